// Requests per second of the reference gateway for "GetChannels" with 50 concurrent clients on loopback,
// printed as a ratio against a baseline measured in the same run: a minimal asio server on the same kind of
// loop that reads the same request and answers the same bytes without looking at them.
//
//   gateway_bench [requests per client]     (default 400)

#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "client.h"
#include "link/text_encoding.h"
#include "server.h"
#include "support/temp_dir.h"

namespace {

using asio::ip::tcp;
using namespace halqvantor::gateway;

constexpr int kClients = 50;

// The baseline: one connection per request, read until the request's last byte, answer, wait for the close.
class FixedReplyServer {
 public:
  FixedReplyServer(std::string request_end, std::string reply)
      : end_(std::move(request_end)), reply_(std::move(reply)), acceptor_(io_, tcp::endpoint(tcp::v4(), 0)) {
    Accept();
    thread_ = std::thread([this] { io_.run(); });
  }
  ~FixedReplyServer() {
    asio::post(io_, [this] { acceptor_.close(); });
    io_.stop();
    thread_.join();
  }
  uint16_t port() const { return acceptor_.local_endpoint().port(); }

 private:
  struct Session : std::enable_shared_from_this<Session> {
    Session(tcp::socket s, const FixedReplyServer& server) : socket(std::move(s)), owner(server) {}
    void Read() {
      socket.async_read_some(asio::buffer(buffer), [self = shared_from_this()](asio::error_code ec, size_t n) {
        if (ec) return;
        self->request.append(self->buffer, n);
        if (!self->answered && self->request.ends_with(self->owner.end_)) {
          self->answered = true;
          asio::async_write(self->socket, asio::buffer(self->owner.reply_), [self](asio::error_code, size_t) {});
        }
        self->Read();
      });
    }
    tcp::socket socket;
    const FixedReplyServer& owner;
    char buffer[4096];
    std::string request;
    bool answered = false;
  };

  void Accept() {
    acceptor_.async_accept([this](asio::error_code ec, tcp::socket socket) {
      if (ec) return;
      socket.set_option(tcp::no_delay(true));
      std::make_shared<Session>(std::move(socket), *this)->Read();
      Accept();
    });
  }

  std::string end_;
  std::string reply_;
  asio::io_context io_;
  tcp::acceptor acceptor_;
  std::thread thread_;
};

// Requests per second of `kClients` clients each sending `per_client` requests; checks every answer.
double Measure(uint16_t port, const std::string& request, const std::string& expected, int per_client) {
  std::atomic<int> wrong{0};
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> clients;
  for (int c = 0; c < kClients; ++c) {
    clients.emplace_back([&] {
      ExchangeOptions options;
      options.abortive_close = true;  // no TIME_WAIT pile-up over tens of thousands of connections
      GatewayClient client("127.0.0.1", port, options);
      for (int r = 0; r < per_client; ++r) {
        try {
          if (client.Exchange(request) != expected) ++wrong;
        } catch (const std::exception&) {
          ++wrong;
        }
      }
    });
  }
  for (std::thread& t : clients) t.join();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (wrong > 0) std::fprintf(stderr, "%d wrong or failed answers\n", wrong.load());
  return kClients * per_client / seconds;
}

}  // namespace

int main(int argc, char** argv) {
  const int per_client = argc > 1 ? std::max(1, std::atoi(argv[1])) : 400;
  halqvantor::testing::TempDir dir;
  std::filesystem::copy(VANTOR_GATEWAY_SAMPLE, dir.File("data"), std::filesystem::copy_options::recursive);
  std::filesystem::create_directories(dir.File("blob"));

  GatewayOptions options;
  options.data_dir = dir.File("data");
  options.blob_dir = dir.File("blob");
  GatewayServer gateway(options);
  std::thread loop([&] { gateway.Run(); });

  const std::string request =
      FrameRequest("B1", "easy", halqvantor::EncodeText("easy"), std::vector<std::string>{"GetChannels"});
  const std::string reply = Exchange("127.0.0.1", gateway.port(), request);
  FixedReplyServer baseline("^GetChannels^", reply);

  // Warm both up, then alternate so that neither profits from the machine's mood.
  Measure(baseline.port(), request, reply, 20);
  Measure(gateway.port(), request, reply, 20);
  double base = 0, served = 0;
  for (int round = 0; round < 2; ++round) {
    base += Measure(baseline.port(), request, reply, per_client / 2);
    served += Measure(gateway.port(), request, reply, per_client / 2);
  }
  base /= 2;
  served /= 2;
  std::printf("GetChannels, %d concurrent clients, %d requests each on loopback\n", kClients, per_client);
  std::printf("  baseline (fixed reply server): %9.0f requests/s\n", base);
  std::printf("  vantor-gateway:                %9.0f requests/s\n", served);
  std::printf("  ratio gateway/baseline:        %9.2f\n", served / base);

  gateway.Stop();
  loop.join();
  return 0;
}
