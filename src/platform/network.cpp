#include "platform/network.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace halqvantor::platform {

static_assert(kPollIn == POLLIN && kPollOut == POLLOUT && kPollErr == POLLERR && kPollHup == POLLHUP);

SocketError SocketErrorFromErrno(int err) {
  switch (err) {
    case ECONNREFUSED:
      return {10061, "Connection is forcefully rejected"};
    case ECONNRESET:
    case EPIPE:
      return {10054, "Connection is reset by remote side"};
    case ETIMEDOUT:
      return {10060, "Connection timed out"};
    case ENETUNREACH:
      return {10051, "Network cannot be reached from this host at this time"};
    case EHOSTUNREACH:
    case EHOSTDOWN:
      return {10065, "No route to host"};
    case ECONNABORTED:
      return {10053, "Connection is aborted due to timeout or other failure"};
    case EADDRINUSE:
      return {10048, "Address in use"};
    case EADDRNOTAVAIL:
      return {10049, "Address not available from the local machine"};
    case ENOTCONN:
      return {10057, "Socket is not connected"};
    case EAFNOSUPPORT:
    case EPROTONOSUPPORT:
      return {10047, "Address family not supported"};
    case EACCES:
    case EPERM:
      return {10013, "Permission denied"};
    case EMFILE:
    case ENFILE:
      return {10024, "Too many open sockets"};
    case ENOBUFS:
    case ENOMEM:
      return {10055, "No buffer space is available"};
    default:
      return {10050, "Network subsystem failed"};
  }
}

SocketError SocketErrorFromResolver(int resolver_error, int err) {
  switch (resolver_error) {
    case EAI_NONAME:
#ifdef EAI_NODATA
    case EAI_NODATA:
#endif
#ifdef EAI_ADDRFAMILY
    case EAI_ADDRFAMILY:
#endif
      return {11001, "Authoritative answer: Host not found"};
    case EAI_AGAIN:
      return {11002, "Non-Authoritative answer: Host not found"};
    case EAI_FAIL:
      return {11003, "Non-recoverable errors"};
    case EAI_MEMORY:
      return {10055, "No buffer space is available"};
    case EAI_SYSTEM:
      return SocketErrorFromErrno(err);
    default:
      return {11004, "Valid name, no data record of requested type"};
  }
}

bool Network::ReceiveToFile(int, int, size_t, FileReception*) { return false; }

void Network::SetReceiveLowWater(int, int) {}

namespace {

// The pipe between connection and file in ReceiveToFile: its capacity is asked for (the system may give
// less), and each splice from the connection moves at most that much.
constexpr int kPipeBytes = 1 << 20;

// True for a file that splice can write at its position: a regular file not opened for appending.
bool CanSpliceInto(int file_descriptor) {
  struct stat st {};
  const int flags = ::fcntl(file_descriptor, F_GETFL);
  return flags >= 0 && (flags & O_APPEND) == 0 && ::fstat(file_descriptor, &st) == 0 && S_ISREG(st.st_mode);
}

// The most a pass of the event pump waits when its caller sets no nearer bound. Readiness ends a wait at once,
// so a long bound costs nothing while a reply comes, and a waiting request wakes only to look at its clock.
constexpr int kDefaultEventWaitMs = 1000;

int FamilyOf(AddressFamily family) { return family == AddressFamily::kIPv6 ? AF_INET6 : AF_INET; }

// `host` as an IPv4 or IPv6 address literal: its one address, true; false for a name.
bool NumericAddress(const std::string& host, int32_t port, std::vector<SocketAddress>* addresses) {
  SocketAddress address;
  sockaddr_storage storage{};
  size_t length = 0;
  auto* in4 = reinterpret_cast<sockaddr_in*>(&storage);
  auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
  if (::inet_pton(AF_INET, host.c_str(), &in4->sin_addr) == 1) {
    in4->sin_family = AF_INET;
    in4->sin_port = htons(static_cast<uint16_t>(port));
    address.family = AddressFamily::kIPv4;
    length = sizeof(sockaddr_in);
  } else if (::inet_pton(AF_INET6, host.c_str(), &in6->sin6_addr) == 1) {
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(static_cast<uint16_t>(port));
    address.family = AddressFamily::kIPv6;
    length = sizeof(sockaddr_in6);
  } else {
    return false;
  }
  if (address.family == AddressFamily::kIPv4) {
    address.text = host;  // dotted decimal is taken only in its one written form
  } else {
    char text[INET6_ADDRSTRLEN] = {};
    if (::inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text) != nullptr) address.text = text;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(&storage);
  address.native.assign(bytes, bytes + length);
  addresses->push_back(std::move(address));
  return true;
}

class SystemNetwork final : public Network {
 public:
  SocketError Resolve(const std::string& host, int32_t port, std::vector<SocketAddress>* addresses) override {
    addresses->clear();
    // An address written out needs no resolver (which would read its configuration on every call).
    if (NumericAddress(host, port, addresses)) return {};
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const std::string port_text = std::to_string(port);
    const int rc = ::getaddrinfo(host.c_str(), port_text.c_str(), &hints, &found);
    if (rc != 0) return SocketErrorFromResolver(rc, errno);
    for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
      SocketAddress address;
      address.family = a->ai_family == AF_INET6 ? AddressFamily::kIPv6 : AddressFamily::kIPv4;
      char text[INET6_ADDRSTRLEN] = {};
      const void* where = a->ai_family == AF_INET6
                              ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(a->ai_addr)->sin6_addr)
                              : static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(a->ai_addr)->sin_addr);
      if (::inet_ntop(a->ai_family, where, text, sizeof text) != nullptr) address.text = text;
      const auto* bytes = reinterpret_cast<const unsigned char*>(a->ai_addr);
      address.native.assign(bytes, bytes + a->ai_addrlen);
      addresses->push_back(std::move(address));
    }
    ::freeaddrinfo(found);
    return {};
  }

  int OpenSocket(AddressFamily family) override {
    const int fd = ::socket(FamilyOf(family), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return -errno;
    const int one = 1;
    (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
  }

  int BindLocalPort(int descriptor, AddressFamily family, int32_t port) override {
    sockaddr_storage local{};
    socklen_t local_len = 0;
    if (family == AddressFamily::kIPv6) {
      auto* in6 = reinterpret_cast<sockaddr_in6*>(&local);
      in6->sin6_family = AF_INET6;
      in6->sin6_port = htons(static_cast<uint16_t>(port));
      local_len = sizeof(sockaddr_in6);
    } else {
      auto* in4 = reinterpret_cast<sockaddr_in*>(&local);
      in4->sin_family = AF_INET;
      in4->sin_port = htons(static_cast<uint16_t>(port));
      local_len = sizeof(sockaddr_in);
    }
    return ::bind(descriptor, reinterpret_cast<sockaddr*>(&local), local_len) == 0 ? 0 : errno;
  }

  int StartConnect(int descriptor, const SocketAddress& address) override {
    if (address.native.empty()) return EAFNOSUPPORT;
    const auto* sa = reinterpret_cast<const sockaddr*>(address.native.data());
    if (::connect(descriptor, sa, static_cast<socklen_t>(address.native.size())) == 0) return 0;
    return errno == EINTR ? EINPROGRESS : errno;
  }

  int ConnectResult(int descriptor, short ready) override {
    // A failed connection reports an error or hang-up with its writability; writable alone is connected.
    if ((ready & (POLLERR | POLLHUP)) == 0) return 0;
    int err = 0;
    socklen_t len = sizeof err;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
    return err;
  }

  int64_t Send(int descriptor, const char* data, size_t size) override {
    const ssize_t n = ::send(descriptor, data, size, MSG_NOSIGNAL);
    return n < 0 ? -errno : n;
  }

  int64_t Receive(int descriptor, char* buffer, size_t capacity) override {
    const ssize_t n = ::recv(descriptor, buffer, capacity, 0);
    return n < 0 ? -errno : n;
  }

  void CloseSocket(int descriptor) override { ::close(descriptor); }

  int Poll(std::vector<PollEntry>& entries, int timeout_ms) override {
    // A pass mostly waits for one socket or a few: their entries live on the stack.
    constexpr size_t kOnStack = 16;
    pollfd on_stack[kOnStack];
    std::vector<pollfd> on_heap;
    pollfd* fds = on_stack;
    if (entries.size() > kOnStack) {
      on_heap.resize(entries.size());
      fds = on_heap.data();
    }
    for (size_t i = 0; i < entries.size(); ++i) fds[i] = {entries[i].descriptor, entries[i].wanted, 0};
    const int ready = ::poll(entries.empty() ? nullptr : fds, static_cast<nfds_t>(entries.size()), timeout_ms);
    for (size_t i = 0; i < entries.size(); ++i) entries[i].ready = ready > 0 ? fds[i].revents : 0;
    return ready < 0 ? 0 : ready;
  }

  int EventWaitMs() override { return kDefaultEventWaitMs; }

  // splice through a pipe: the bytes go from the connection's buffers to the file's pages without a copy
  // into the process. The pipe lives for the call only, so no descriptor outlasts it.
  bool ReceiveToFile(int descriptor, int file_descriptor, size_t max, FileReception* result) override {
    *result = {};
    if (!CanSpliceInto(file_descriptor)) return false;
    int pipe_fds[2];
    if (::pipe2(pipe_fds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    (void)::fcntl(pipe_fds[1], F_SETPIPE_SZ, kPipeBytes);
    bool supported = true;
    while (static_cast<size_t>(result->moved) < max) {
      const ssize_t in = ::splice(descriptor, nullptr, pipe_fds[1], nullptr, max - static_cast<size_t>(result->moved),
                                  SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
      if (in == 0) {
        result->peer_closed = true;
        break;
      }
      if (in < 0) {
        if (errno == EINTR) continue;
        if (errno == EINVAL && result->moved == 0) {
          supported = false;  // a descriptor splice does not take: nothing was taken
        } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
          result->socket_error = errno;
        }
        break;
      }
      result->moved += in;
      // The pipe is emptied into the file before more is taken, so it never holds bytes of an earlier call.
      for (size_t left = static_cast<size_t>(in); left > 0 && result->file_error == 0;) {
        const ssize_t out = ::splice(pipe_fds[0], nullptr, file_descriptor, nullptr, left, SPLICE_F_MOVE);
        if (out > 0) {
          left -= static_cast<size_t>(out);
        } else if (out == 0) {
          result->file_error = EIO;
        } else if (errno != EINTR) {
          result->file_error = errno;
        }
      }
      if (result->file_error != 0) break;
    }
    ::close(pipe_fds[0]);
    ::close(pipe_fds[1]);
    return supported;
  }

  void SetReceiveLowWater(int descriptor, int bytes) override {
    (void)::setsockopt(descriptor, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes);
  }
};

}  // namespace

Network* Network::Default() {
  static SystemNetwork network;
  return &network;
}

}  // namespace halqvantor::platform
