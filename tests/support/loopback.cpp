#include "support/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace halqvantor::testing {

int ListenOnLoopback(int backlog, int* port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), len) != 0 || ::listen(fd, backlog) != 0) {
    if (fd >= 0) ::close(fd);
    throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  *port = ntohs(addr.sin_port);
  return fd;
}

LoopbackServer::LoopbackServer(std::function<void(int fd)> serve) : serve_(std::move(serve)) {
  fd_ = ListenOnLoopback(4, &port_);
  thread_ = std::thread([this] {
    while (!stop_) {
      const int c = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (c < 0) return;
      serve_(c);
      ::close(c);
    }
  });
}

LoopbackServer::~LoopbackServer() {
  stop_ = true;
  ::shutdown(fd_, SHUT_RDWR);
  ::close(fd_);
  thread_.join();
}

}  // namespace halqvantor::testing
