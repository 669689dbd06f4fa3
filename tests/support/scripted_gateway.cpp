#include "support/scripted_gateway.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>

namespace halqvantor::testing {
namespace {

// No step of a test waits longer than this on the client; it keeps a broken test from hanging.
constexpr int kSafetyMs = 10000;

bool FourFieldsEndingInCaret(std::string_view request) {
  if (request.empty() || request.back() != '^') return false;
  int separators = 0;
  for (size_t pos = request.find("^,^"); pos != std::string_view::npos; pos = request.find("^,^", pos + 3)) {
    ++separators;
  }
  return separators >= 3;
}

void SendAll(int fd, std::string_view bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      return;  // the client is gone
    }
    sent += static_cast<size_t>(n);
  }
}

}  // namespace

std::string ScriptedGateway::Reply(std::string_view payload) {
  return "TotalBytes:" + std::to_string(payload.size()) + "\r\n" + std::string(payload);
}

ScriptedGateway::ScriptedGateway() : request_complete_(FourFieldsEndingInCaret) {
  if (::pipe2(stop_pipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int one = 1;
  ::setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;
  if (::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(listen_fd_, 16) != 0) {
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  socklen_t len = sizeof addr;
  ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
  port_ = ntohs(addr.sin_port);
  thread_ = std::thread([this] { Serve(); });
}

ScriptedGateway::~ScriptedGateway() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  released_.notify_all();
  (void)!::write(stop_pipe_[1], "x", 1);
  thread_.join();
  ::close(listen_fd_);
  ::close(stop_pipe_[0]);
  ::close(stop_pipe_[1]);
}

void ScriptedGateway::Script(std::vector<Step> steps) {
  std::lock_guard<std::mutex> lock(mutex_);
  scripts_.push_back(std::move(steps));
}

void ScriptedGateway::set_request_complete(std::function<bool(std::string_view)> rule) {
  std::lock_guard<std::mutex> lock(mutex_);
  request_complete_ = std::move(rule);
}

void ScriptedGateway::Continue() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++releases_;
  }
  released_.notify_all();
}

std::vector<std::string> ScriptedGateway::Requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

int ScriptedGateway::connections() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(requests_.size());
}

int ScriptedGateway::UnusedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  socklen_t len = sizeof addr;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);  // not listening: a connection is refused
  return ntohs(addr.sin_port);
}

// Waits until `fd` is readable or the gateway stops; false when stopping or after the safety time.
bool ScriptedGateway::WaitReadable(int fd) {
  pollfd fds[2] = {{fd, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
  const int n = ::poll(fds, 2, kSafetyMs);
  return n > 0 && fds[1].revents == 0;
}

void ScriptedGateway::Serve() {
  for (;;) {
    if (!WaitReadable(listen_fd_)) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stopping_) return;
      continue;
    }
    const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    std::vector<Step> steps;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      const size_t i = requests_.size();
      if (!scripts_.empty()) steps = scripts_[std::min(i, scripts_.size() - 1)];
    }
    Handle(fd, steps);
  }
}

void ScriptedGateway::Handle(int fd, const std::vector<Step>& steps) {
  // The request: read until the rule says it is complete or the client stops sending.
  std::string request;
  size_t index;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    index = requests_.size();
    requests_.emplace_back();
  }
  bool client_closed = false;
  for (;;) {
    std::function<bool(std::string_view)> rule;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      requests_[index] = request;
      rule = request_complete_;
    }
    if (rule(request)) break;
    if (!WaitReadable(fd)) {
      client_closed = true;
      break;
    }
    char buf[4096];
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) {
      client_closed = true;
      break;
    }
    request.append(buf, static_cast<size_t>(n));
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_[index] = request;
  }

  bool open = true;
  for (const Step& step : steps) {
    if (!open) break;
    switch (step.kind) {
      case Step::Kind::kSend:
        SendAll(fd, step.bytes);
        break;
      case Step::Kind::kPauseMs:
        std::this_thread::sleep_for(std::chrono::milliseconds(step.millis));
        break;
      case Step::Kind::kAwait: {
        std::unique_lock<std::mutex> lock(mutex_);
        const int wanted = ++awaits_passed_;
        released_.wait_for(lock, std::chrono::milliseconds(kSafetyMs),
                           [&] { return stopping_ || releases_ >= wanted; });
        break;
      }
      case Step::Kind::kClose:
        ::close(fd);
        open = false;
        break;
      case Step::Kind::kReset: {
        const linger abort_now{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort_now, sizeof abort_now);
        ::close(fd);
        open = false;
        break;
      }
      case Step::Kind::kSilence:
        break;
    }
  }
  if (!open) return;
  if (!client_closed) WaitForClientClose(fd);
  ::close(fd);
}

void ScriptedGateway::WaitForClientClose(int fd) {
  char buf[4096];
  while (WaitReadable(fd)) {
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) return;
  }
}

}  // namespace halqvantor::testing
