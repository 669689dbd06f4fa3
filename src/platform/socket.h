#pragma once

// The socket of one connection slot, with the surface of the socket control the component is written
// against: Protocol, RemoteHost, RemotePort, LocalPort and State (0 closed, 1 open, 2 listening,
// 3 connection pending, 4 resolving host, 5 host resolved, 6 connecting, 7 connected, 8 peer is closing,
// 9 error).

#include <cstdint>
#include <string>

namespace halqvantor::platform {

enum SocketState : int16_t {
  kSckClosed = 0,
  kSckOpen = 1,
  kSckListening = 2,
  kSckConnectionPending = 3,
  kSckResolvingHost = 4,
  kSckHostResolved = 5,
  kSckConnecting = 6,
  kSckConnected = 7,
  kSckClosing = 8,
  kSckError = 9,
};

class Socket {
 public:
  virtual ~Socket() = default;

  int32_t Protocol = 0;  // 0: TCP
  std::string RemoteHost;
  int32_t RemotePort = 0;
  int32_t LocalPort = 0;  // 0: any

  int16_t State() const { return state_; }
  // Closes the connection, if any; the State becomes 0.
  virtual void Close() { state_ = kSckClosed; }

 protected:
  int16_t state_ = kSckClosed;
};

}  // namespace halqvantor::platform
