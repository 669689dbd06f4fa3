#include "client.h"

#include <asio.hpp>
#include <stdexcept>

#include "request_reader.h"
#include "text.h"

namespace halqvantor::gateway {

using asio::ip::tcp;

std::string FrameRequest(std::string_view session, std::string_view user, std::string_view encoded_password,
                         const std::vector<std::string>& args) {
  std::string out = "^";
  out += session;
  out += "^,^";
  out += user;
  out += "^,^";
  out += encoded_password;
  out += '^';
  for (const std::string& a : args) {
    out += ",^";
    out += a;
    out += '^';
  }
  return out;
}

namespace {

// The full length of a text answer once its header is in, else 0.
size_t AnnouncedLength(std::string_view bytes) {
  if (!bytes.starts_with("TotalBytes:")) return 0;
  const size_t crlf = bytes.find(kCrLf);
  if (crlf == std::string_view::npos) return 0;
  const auto length = ParseInteger(bytes.substr(11, crlf - 11));
  return length && *length >= 0 ? crlf + 2 + static_cast<size_t>(*length) : 0;
}

}  // namespace

namespace {

// Runs one asynchronous step to its end, or gives up after `timeout` (closing the socket).
template <typename Start>
void Await(asio::io_context& io, tcp::socket& socket, std::chrono::milliseconds timeout, const char* what,
           asio::error_code& ec, size_t& n, Start start) {
  bool done = false;
  start([&](const asio::error_code& e, size_t k) {
    ec = e;
    n = k;
    done = true;
  });
  io.restart();
  io.run_for(timeout);
  if (!done) {
    asio::error_code ignored;
    socket.close(ignored);
    io.restart();
    io.run();
    throw std::runtime_error(std::string(what) + ": timed out");
  }
}

}  // namespace

struct GatewayClient::Impl {
  asio::io_context io;
  tcp::endpoint endpoint;
  ExchangeOptions options;
};

GatewayClient::GatewayClient(std::string host, uint16_t port, ExchangeOptions options)
    : impl_(std::make_unique<Impl>()) {
  impl_->endpoint = tcp::endpoint(asio::ip::make_address(host), port);
  impl_->options = options;
}

GatewayClient::~GatewayClient() = default;

std::string GatewayClient::Exchange(std::string_view request) {
  asio::io_context& io = impl_->io;
  const ExchangeOptions& options = impl_->options;
  tcp::socket socket(io);
  asio::error_code ec;
  size_t n = 0;
  Await(io, socket, options.timeout, "connect", ec, n, [&](auto done) {
    socket.async_connect(impl_->endpoint, [done](const asio::error_code& e) mutable { done(e, 0); });
  });
  if (ec) throw std::runtime_error("connect: " + ec.message());
  socket.set_option(tcp::no_delay(true), ec);

  Await(io, socket, options.timeout, "send", ec, n,
        [&](auto done) { asio::async_write(socket, asio::buffer(request.data(), request.size()), done); });
  if (ec) throw std::runtime_error("send: " + ec.message());
  if (options.half_close) socket.shutdown(tcp::socket::shutdown_send, ec);

  std::string received;
  char buffer[16384];
  while (true) {
    Await(io, socket, options.timeout, "receive", ec, n,
          [&](auto done) { socket.async_read_some(asio::buffer(buffer), done); });
    if (ec == asio::error::eof) break;
    if (ec) throw std::runtime_error("receive: " + ec.message());
    received.append(buffer, n);
    const size_t complete = AnnouncedLength(received);
    if (complete > 0 && received.size() >= complete) break;
  }
  if (options.abortive_close) socket.set_option(asio::socket_base::linger(true, 0), ec);
  socket.close(ec);
  return received;
}

std::string Exchange(const std::string& host, uint16_t port, std::string_view request, const ExchangeOptions& options) {
  return GatewayClient(host, port, options).Exchange(request);
}

std::optional<std::string> PayloadOf(std::string_view reply) {
  const size_t complete = AnnouncedLength(reply);
  if (complete == 0 || reply.size() != complete) return std::nullopt;
  const size_t crlf = reply.find(kCrLf);
  return std::string(reply.substr(crlf + 2));
}

}  // namespace halqvantor::gateway
