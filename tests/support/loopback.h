#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace halqvantor::testing {

// A TCP socket listening on 127.0.0.1 on an ephemeral port; `port` receives the port. Throws
// std::runtime_error when the socket cannot be made.
int ListenOnLoopback(int backlog, int* port);

// A plain server on 127.0.0.1 for baselines and benchmarks: one connection at a time, each handed to
// `serve` and closed after it. The destructor stops accepting and waits for the connection being served.
class LoopbackServer {
 public:
  explicit LoopbackServer(std::function<void(int fd)> serve);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const { return port_; }

 private:
  std::function<void(int)> serve_;
  int fd_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace halqvantor::testing
