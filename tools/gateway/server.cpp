#include "server.h"

#include <algorithm>
#include <asio.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "archive.h"
#include "blob_files.h"
#include "commands.h"
#include "request_reader.h"
#include "status.h"
#include "text.h"

namespace halqvantor::gateway {

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;

class Connection;

class GatewayServer::Impl {
 public:
  explicit Impl(GatewayOptions options)
      : options_(WithClock(std::move(options))),
        store_(options_.data_dir),
        commands_(store_, BlobFolder(options_.blob_dir), options_.busy, LimitsOf(options_)),
        acceptor_(io_),
        sweep_(io_),
        pool_(static_cast<size_t>(std::max(1, options_.workers))) {
    Listen();
    port_ = acceptor_.local_endpoint().port();
    const auto shortest = std::min({options_.idle_timeout, options_.request_timeout, options_.linger_timeout});
    sweep_period_ = std::clamp(shortest / 4, std::chrono::milliseconds(10), std::chrono::milliseconds(1000));
  }

  // Opens the listening socket; a failure names the address and port it was for.
  void Listen() {
    const std::string where = options_.listen + ":" + std::to_string(options_.port);
    asio::error_code error;
    const asio::ip::address address = asio::ip::make_address(options_.listen, error);
    if (error) throw std::runtime_error("cannot listen on " + where + ": " + options_.listen + " is no IP address");
    const tcp::endpoint endpoint(address, options_.port);
    try {
      acceptor_.open(endpoint.protocol());
      acceptor_.set_option(tcp::acceptor::reuse_address(true));
      acceptor_.bind(endpoint);
      acceptor_.listen(asio::socket_base::max_listen_connections);
    } catch (const asio::system_error& e) {
      std::string hint;
      if (e.code() == std::errc::address_in_use) hint = " (another program listens there; --port 0 takes a free port)";
      if (e.code() == std::errc::address_not_available) hint = " (no interface of this machine has that address)";
      if (e.code() == std::errc::permission_denied) hint = " (ports below 1024 need privileges)";
      throw std::runtime_error("cannot listen on " + where + ": " + e.code().message() + hint);
    }
  }

  void Run() {
    Accept();
    ArmSweep();
    io_.run();
  }

  void Stop();
  void Sweep();
  void Remove(const std::shared_ptr<Connection>& c) { connections_.erase(c); }
  // Closes the connection idle longest; false when every connection is busy with its request.
  bool ShedIdlest();

  static GatewayOptions WithClock(GatewayOptions o) {
    if (!o.now) o.now = [] { return Clock::now(); };
    return o;
  }
  static CommandLimits LimitsOf(const GatewayOptions& o) {
    return {o.max_session_bytes, o.session_idle, o.max_pages, o.max_answer_bytes, o.max_note_bytes, o.now};
  }

  GatewayOptions options_;
  Store store_;
  Commands commands_;
  asio::io_context io_;
  tcp::acceptor acceptor_;
  asio::steady_timer sweep_;
  // Declared after the loop: destroyed (stopped and joined) first, so no command outlives what it posts to.
  asio::thread_pool pool_;
  std::chrono::milliseconds sweep_period_{1000};
  std::set<std::shared_ptr<Connection>> connections_;
  std::atomic<uint64_t> answered_{0};
  std::atomic<uint64_t> received_{0};
  std::atomic<size_t> open_{0};
  bool stopping_ = false;
  uint16_t port_ = 0;

 private:
  void Accept();
  void ArmSweep() {
    if (stopping_) return;
    sweep_.expires_after(sweep_period_);
    sweep_.async_wait([this](const asio::error_code& ec) {
      if (ec || stopping_) return;
      Sweep();
      ArmSweep();
    });
  }
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(GatewayServer::Impl& server, tcp::socket socket)
      : server_(server),
        socket_(std::move(socket)),
        reader_(server.options_.max_request_bytes, server.options_.max_upload_bytes),
        buffer_(64 * 1024) {
    reader_.StreamUploads([&commands = server.commands_](const Request& head) { return commands.OpenUpload(head); });
  }

  void Start() {
    started_ = last_activity_ = server_.options_.now();
    Read();
  }

  // When the connection last did something, if it may be shed: it waits for its request or for its client
  // to close, and nothing is under way for it.
  std::optional<Clock::time_point> IdleSince() const {
    if (phase_ == Phase::kDraining) return answered_at_;
    if (phase_ == Phase::kReading) return last_activity_;
    return std::nullopt;
  }

  void CheckDeadline(Clock::time_point now) {
    const GatewayOptions& o = server_.options_;
    switch (phase_) {
      case Phase::kReading:
        if (now - last_activity_ >= o.idle_timeout || now - started_ >= o.request_timeout) {
          if (reader_.buffered() > 0) {
            Respond(ErrorAnswer(kIncompleteRequest, StandardMessage(kIncompleteRequest)), "-");
          } else {
            Close();
          }
        }
        break;
      case Phase::kWriting:
      case Phase::kDraining:
        if (now - answered_at_ >= o.linger_timeout) Close();
        break;
      case Phase::kWorking:  // bounded by the command's own limits
      case Phase::kClosed:
        break;
    }
  }

  void Close() {
    if (phase_ == Phase::kClosed) return;
    phase_ = Phase::kClosed;
    asio::error_code ignored;
    socket_.shutdown(tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    --server_.open_;
    server_.Remove(shared_from_this());
  }

 private:
  enum class Phase { kReading, kWorking, kWriting, kDraining, kClosed };

  void Read() {
    socket_.async_read_some(asio::buffer(buffer_),
                            [self = shared_from_this()](const asio::error_code& ec, size_t n) { self->OnRead(ec, n); });
  }

  void OnRead(const asio::error_code& ec, size_t n) {
    if (phase_ == Phase::kClosed) return;
    if (ec) {
      // The client closed (or failed). One that closed its side in the middle of a request still hears why.
      if (ec == asio::error::eof && phase_ == Phase::kReading && reader_.buffered() > 0) {
        close_after_write_ = true;
        Respond(ErrorAnswer(kIncompleteRequest, StandardMessage(kIncompleteRequest)), "-");
      } else if (phase_ != Phase::kWriting && phase_ != Phase::kWorking) {
        Close();
      } else {
        close_after_write_ = true;
      }
      return;
    }
    last_activity_ = server_.options_.now();
    server_.received_ += n;
    if (phase_ == Phase::kReading) {
      switch (reader_.Feed(std::string_view(buffer_.data(), n))) {
        case RequestReader::State::kComplete:
          if (reader_.upload_body() != nullptr) {
            Respond(server_.commands_.FinishUpload(reader_.request(), reader_.upload_body()),
                    reader_.request().command);
          } else {
            Work();
          }
          break;
        case RequestReader::State::kFailed:
          Respond(ErrorAnswer(reader_.error_code(), reader_.error_text()), "-");
          break;
        case RequestReader::State::kNeedMore:
          break;
      }
    }
    // Bytes after the request are read and dropped until the client closes.
    if (phase_ != Phase::kClosed) Read();
  }

  // Runs the command on the worker pool; its answer comes back to the loop. The request stays untouched
  // meanwhile: nothing more is fed to the reader once it is complete.
  void Work() {
    phase_ = Phase::kWorking;
    asio::post(server_.pool_, [self = shared_from_this()] {
      auto answer = std::make_shared<Answer>(self->server_.commands_.Handle(self->reader_.request()));
      asio::post(self->server_.io_,
                 [self, answer] { self->Respond(std::move(*answer), self->reader_.request().command); });
    });
  }

  void Respond(Answer answer, const std::string& command) {
    if (phase_ == Phase::kClosed) return;
    phase_ = Phase::kWriting;
    answered_at_ = server_.options_.now();
    ++server_.answered_;
    raw_ = answer.raw;
    out_ = std::move(answer.bytes);
    if (server_.options_.log != nullptr) {
      const size_t from = out_.find(kCrLf);
      const size_t to = out_.find(kCrLf, from + 2);
      *server_.options_.log << LogField(reader_.request().user) << " " << LogField(command) << " -> "
                            << (raw_ ? std::to_string(out_.size()) + " bytes"
                                     : LogField(std::string_view(out_).substr(from + 2, to - from - 2)))
                            << std::endl;
    }
    asio::async_write(socket_, asio::buffer(out_),
                      [self = shared_from_this()](const asio::error_code& ec, size_t) { self->OnWritten(ec); });
  }

  void OnWritten(const asio::error_code& ec) {
    if (phase_ == Phase::kClosed) return;
    if (ec || close_after_write_ || (raw_ && out_.empty())) {
      Close();
      return;
    }
    // Raw file bytes have no length header: the end of the stream tells the client that the file is complete.
    if (raw_) {
      asio::error_code ignored;
      socket_.shutdown(tcp::socket::shutdown_send, ignored);
    }
    phase_ = Phase::kDraining;
    out_.clear();
    out_.shrink_to_fit();
  }

  GatewayServer::Impl& server_;
  tcp::socket socket_;
  RequestReader reader_;
  std::vector<char> buffer_;
  std::string out_;
  bool raw_ = false;
  bool close_after_write_ = false;
  Phase phase_ = Phase::kReading;
  Clock::time_point started_, last_activity_, answered_at_;
};

void GatewayServer::Impl::Accept() {
  acceptor_.async_accept([this](const asio::error_code& ec, tcp::socket socket) {
    if (stopping_ || ec == asio::error::operation_aborted) return;
    // Out of descriptors: an idle connection makes room for the new one.
    if (ec == asio::error::no_descriptors && ShedIdlest()) {
      Accept();
      return;
    }
    if (ec) {
      // Out of descriptors with nobody idle, or similar: try again shortly instead of spinning.
      auto retry = std::make_shared<asio::steady_timer>(io_, std::chrono::milliseconds(50));
      retry->async_wait([this, retry](const asio::error_code&) { Accept(); });
      return;
    }
    asio::error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
    if (connections_.size() >= options_.max_connections && !ShedIdlest()) {
      socket.close(ignored);  // every connection is at work: this one has to try again
      Accept();
      return;
    }
    auto connection = std::make_shared<Connection>(*this, std::move(socket));
    connections_.insert(connection);
    ++open_;
    connection->Start();
    Accept();
  });
}

bool GatewayServer::Impl::ShedIdlest() {
  std::shared_ptr<Connection> idlest;
  Clock::time_point since = Clock::time_point::max();
  for (const auto& c : connections_) {
    if (const auto idle = c->IdleSince(); idle && *idle < since) {
      since = *idle;
      idlest = c;
    }
  }
  if (!idlest) return false;
  idlest->Close();
  return true;
}

void GatewayServer::Impl::Sweep() {
  const auto now = options_.now();
  // Closing removes from the set: check a copy.
  const std::vector<std::shared_ptr<Connection>> all(connections_.begin(), connections_.end());
  for (const auto& c : all) c->CheckDeadline(now);
}

void GatewayServer::Impl::Stop() {
  stopping_ = true;
  asio::error_code ignored;
  acceptor_.close(ignored);
  sweep_.cancel();
  const std::vector<std::shared_ptr<Connection>> all(connections_.begin(), connections_.end());
  for (const auto& c : all) c->Close();
}

GatewayServer::GatewayServer(GatewayOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

GatewayServer::~GatewayServer() = default;

uint16_t GatewayServer::port() const { return impl_->port_; }

void GatewayServer::Run() { impl_->Run(); }

void GatewayServer::Stop() {
  asio::post(impl_->io_, [impl = impl_.get()] { impl->Stop(); });
}

void GatewayServer::CheckDeadlines() {
  asio::post(impl_->io_, [impl = impl_.get()] { impl->Sweep(); });
}

uint64_t GatewayServer::answered() const { return impl_->answered_; }

uint64_t GatewayServer::received_bytes() const { return impl_->received_; }

size_t GatewayServer::open_connections() const { return impl_->open_; }

size_t GatewayServer::sessions() const { return impl_->commands_.sessions().sessions(); }

size_t GatewayServer::session_bytes() const { return impl_->commands_.sessions().bytes(); }

}  // namespace halqvantor::gateway
