#pragma once

// The network as a socket sees it: name resolution and the few socket calls of a non-blocking TCP client,
// plus the wait of the event pump. The default is the system's (getaddrinfo, socket, poll); a test puts a
// scripted network in its place and so produces refused and reset connections, resolver failures and slow
// readers without leaving the process.
//
// Calls answer errno values (0 for success) so that one table (SocketErrorFromErrno) turns them into the
// socket control's numbers; name resolution answers in those numbers itself.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace halqvantor::platform {

// A failure in the socket control's terms (number 0: none).
struct SocketError {
  int32_t number = 0;
  std::string description;
};

// The one table from the operating system's errors to the socket control's: an errno value, and a name
// resolution result (getaddrinfo's code, with errno for its system errors).
SocketError SocketErrorFromErrno(int err);
SocketError SocketErrorFromResolver(int resolver_error, int err);

enum class AddressFamily { kIPv4, kIPv6 };

// One resolved address: its family, its text ("127.0.0.1", "::1") and the system's own form of it.
struct SocketAddress {
  AddressFamily family = AddressFamily::kIPv4;
  std::string text;
  std::vector<unsigned char> native;  // the sockaddr bytes; empty for an address a fake made up
};

// What a descriptor waits for and what it got, as poll(2) counts them.
enum PollEvents : short { kPollIn = 0x001, kPollOut = 0x004, kPollErr = 0x008, kPollHup = 0x010 };
struct PollEntry {
  int descriptor = -1;
  short wanted = 0;
  short ready = 0;
};

// What Network::ReceiveToFile did: the bytes it took from the connection and why it stopped. The bytes
// taken count as received even when the file refused some of them (file_error).
struct FileReception {
  int64_t moved = 0;
  bool peer_closed = false;  // the peer closed the connection after those bytes
  int socket_error = 0;      // errno of the failed connection, 0 when it is fine
  int file_error = 0;        // errno of the failed write, 0 when every byte is in the file
};

class Network {
 public:
  virtual ~Network() = default;
  // The addresses of host:port for a TCP connection, in the order to try them. May block. On failure the
  // socket control's error (11001 host not found, ...) and no addresses.
  virtual SocketError Resolve(const std::string& host, int32_t port, std::vector<SocketAddress>* addresses) = 0;
  // A new non-blocking stream socket of `family` with Nagle's delay off: its descriptor, or -errno.
  virtual int OpenSocket(AddressFamily family) = 0;
  // Binds the socket to the local port (any address of its family). 0 or errno.
  virtual int BindLocalPort(int descriptor, AddressFamily family, int32_t port) = 0;
  // Starts the connection: 0 when it is made at once, EINPROGRESS when it completes later, else errno.
  virtual int StartConnect(int descriptor, const SocketAddress& address) = 0;
  // The outcome of a connection that was in progress, once Poll reported `ready` for the descriptor: 0 or
  // errno.
  virtual int ConnectResult(int descriptor, short ready) = 0;
  // send(2) and recv(2) without signals: the byte count (0 from Receive: the peer closed), or -errno.
  virtual int64_t Send(int descriptor, const char* data, size_t size) = 0;
  virtual int64_t Receive(int descriptor, char* buffer, size_t capacity) = 0;
  virtual void CloseSocket(int descriptor) = 0;
  // Waits until one of `entries` is ready or `timeout_ms` passed (0: look only); sets their `ready`. The
  // number of ready entries. With no entries it just waits the time.
  virtual int Poll(std::vector<PollEntry>& entries, int timeout_ms) = 0;
  // The most one pass of the event pump waits for something to happen, in milliseconds.
  virtual int EventWaitMs() = 0;

  // The direct path from a connection into a file of the system's file system (a descriptor from
  // WritableFile::Descriptor), which spares the copy through the process's memory. A network that has none
  // keeps the default, and its callers move the bytes through Receive instead.
  //
  // Moves the bytes that have arrived on `descriptor`, at most `max`, into the file at its position, until
  // none is left to take, the peer closed, the connection failed, a write failed or `max` bytes moved; sets
  // `*result`. False when it cannot do this for this pair (nothing was taken).
  virtual bool ReceiveToFile(int descriptor, int file_descriptor, size_t max, FileReception* result);
  // Asks Poll to report `descriptor` readable only once `bytes` wait unread there (or the peer closed, or the
  // connection failed); 1 is the usual. A network that cannot do this keeps the default, which does nothing.
  virtual void SetReceiveLowWater(int descriptor, int bytes);

  // The system's network.
  static Network* Default();
};

}  // namespace halqvantor::platform
