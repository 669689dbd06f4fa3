#include "support/scripted_gateway.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace halqvantor::testing {
namespace {

// No wait of the gateway lasts longer: a broken test fails instead of hanging.
constexpr int kSafetyMs = 10000;

bool Complete(std::string_view r) {
  size_t separators = 0;
  for (size_t p = r.find("^,^"); p != std::string_view::npos; p = r.find("^,^", p + 3)) ++separators;
  return separators >= 3 && r.back() == '^';
}

// The next bytes from `fd` into `buf`: 0 when the client closed, stopped sending or the time is up.
ssize_t Read(int fd, char* buf, size_t size) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, kSafetyMs) > 0 ? ::recv(fd, buf, size, 0) : 0;
}

}  // namespace

std::string ScriptedGateway::Reply(std::string_view payload) {
  return "TotalBytes:" + std::to_string(payload.size()) + "\r\n" + std::string(payload);
}

void ScriptedGateway::Script(std::vector<Step> steps) {
  std::lock_guard<std::mutex> lock(mutex_);
  scripts_.push_back(std::move(steps));
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

void ScriptedGateway::Play(int fd) {
  std::vector<Step> steps;
  size_t index = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!scripts_.empty()) steps = scripts_[std::min(requests_.size(), scripts_.size() - 1)];
    index = requests_.size();
    requests_.emplace_back();
  }
  std::string request;
  char buf[4096];
  ssize_t n = 1;
  while (!Complete(request) && (n = Read(fd, buf, sizeof buf)) > 0) {
    request.append(buf, static_cast<size_t>(n));
    std::lock_guard<std::mutex> lock(mutex_);
    requests_[index] = request;
  }
  for (const Step& step : steps) {
    if (step.close) return;
    for (size_t sent = 0; sent < step.bytes.size();) {
      const ssize_t k = ::send(fd, step.bytes.data() + sent, step.bytes.size() - sent, MSG_NOSIGNAL);
      if (k <= 0) break;  // the client is gone
      sent += static_cast<size_t>(k);
    }
  }
  while (n > 0 && (n = Read(fd, buf, sizeof buf)) > 0) {
  }
}

}  // namespace halqvantor::testing
