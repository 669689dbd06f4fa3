#include "support/scripted_gateway.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "support/loopback.h"

namespace halqvantor::testing {
namespace {

// No wait of the gateway lasts longer: a broken test fails instead of hanging.
constexpr int kSafetyMs = 10000;

}  // namespace

std::string ScriptedGateway::Reply(std::string_view payload) {
  return "TotalBytes:" + std::to_string(payload.size()) + "\r\n" + std::string(payload);
}

std::vector<ScriptedGateway::Step> ScriptedGateway::CutAt(std::string_view wire, size_t offset, Cut how) {
  std::vector<Step> steps;
  if (offset > 0) steps.push_back(Send(std::string(wire.substr(0, offset))));
  steps.push_back(how == Cut::kClose ? Close() : how == Cut::kReset ? Reset() : Silence());
  return steps;
}

int ScriptedGateway::finished() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return finished_;
}

int ScriptedGateway::closed() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return closed_;
}

bool ScriptedGateway::WaitAllClosed(int timeout_ms) const {
  const int wanted = connections();
  std::unique_lock<std::mutex> lock(mutex_);
  return released_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return closed_ >= wanted; });
}

ScriptedGateway::ScriptedGateway() {
  request_complete = [](std::string_view r) {
    size_t separators = 0;
    for (size_t p = r.find("^,^"); p != std::string_view::npos; p = r.find("^,^", p + 3)) ++separators;
    return separators >= 3 && r.back() == '^';
  };
  listen_fd_ = ListenOnLoopback(16, &port_);
  if (::pipe2(stop_pipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
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
  for (int fd : {listen_fd_, stop_pipe_[0], stop_pipe_[1]}) ::close(fd);
}

void ScriptedGateway::Script(std::vector<Step> steps) {
  std::lock_guard<std::mutex> lock(mutex_);
  scripts_.push_back(std::move(steps));
}

void ScriptedGateway::Continue() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++releases_;
  released_.notify_all();
}

std::vector<std::string> ScriptedGateway::Requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

int ScriptedGateway::UnusedPort() {
  int port = 0;
  ::close(ListenOnLoopback(1, &port));  // closed again: a connection to it is refused
  return port;
}

bool ScriptedGateway::Readable(int fd, int timeout_ms) {
  pollfd fds[2] = {{fd, POLLIN, 0}, {stop_pipe_[0], POLLIN, 0}};
  return ::poll(fds, 2, timeout_ms) > 0 && fds[1].revents == 0;
}

void ScriptedGateway::Serve() {
  while (Readable(listen_fd_, -1)) {
    const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    std::vector<Step> steps;
    std::function<bool(std::string_view)> complete;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!scripts_.empty()) steps = scripts_[std::min(requests_.size(), scripts_.size() - 1)];
      complete = request_complete;
      requests_.emplace_back();
    }
    Play(fd, steps, complete);
  }
}

void ScriptedGateway::Play(int fd, const std::vector<Step>& steps,
                           const std::function<bool(std::string_view)>& complete) {
  std::string request;
  char buf[4096];
  ssize_t n = 1;
  while (!complete(request) && Readable(fd) && (n = ::recv(fd, buf, sizeof buf, 0)) > 0) {
    request.append(buf, static_cast<size_t>(n));
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.back() = request;
  }
  for (const Step& step : steps) {
    switch (step.kind) {
      case Step::Kind::kSend:
        for (size_t sent = 0; sent < step.bytes.size();) {
          const ssize_t k = ::send(fd, step.bytes.data() + sent, step.bytes.size() - sent, MSG_NOSIGNAL);
          if (k <= 0) break;  // the client is gone
          sent += static_cast<size_t>(k);
        }
        break;
      case Step::Kind::kPauseMs:
        std::this_thread::sleep_for(std::chrono::milliseconds(step.millis));
        break;
      case Step::Kind::kAwait: {
        std::unique_lock<std::mutex> lock(mutex_);
        const int wanted = ++awaits_;
        released_.wait_for(lock, std::chrono::milliseconds(kSafetyMs),
                           [&] { return stopping_ || releases_ >= wanted; });
        break;
      }
      case Step::Kind::kReset: {
        const linger abort_now{1, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort_now, sizeof abort_now);
        [[fallthrough]];
      }
      case Step::Kind::kClose: {
        ::close(fd);
        std::lock_guard<std::mutex> lock(mutex_);
        ++finished_;
        ++closed_;
        released_.notify_all();
        return;
      }
      case Step::Kind::kSilence:
        break;
    }
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++finished_;
  }
  while (n > 0 && Readable(fd) && (n = ::recv(fd, buf, sizeof buf, 0)) > 0) {
  }
  ::close(fd);
  std::lock_guard<std::mutex> lock(mutex_);
  ++closed_;
  released_.notify_all();
}

}  // namespace halqvantor::testing
