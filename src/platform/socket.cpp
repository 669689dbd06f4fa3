#include "platform/socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "halqvantor/RuntimeError.h"
#include "platform/installed.h"

namespace halqvantor::platform {
namespace {

// The socket's own errors for a call made in the wrong state.
constexpr int32_t kSckBadState = 40006;   // not connected
constexpr int32_t kSckInvalidOp = 40020;  // not allowed while the socket is in use

// Bytes read in one recv call, and the most that waits unread before the socket stops reading. One chunk
// per pass: the receiver handles each piece while it is still in the cache, which keeps a long byte-mode
// reception (written to a file as it comes) close to the speed of a plain read/write loop.
constexpr size_t kMaxUnread = 256 * 1024;
// Bytes of a stream pulled from its source at a time.
constexpr size_t kStreamChunk = 256 * 1024;

std::vector<Socket*>& Registry() {
  thread_local std::vector<Socket*> sockets;
  return sockets;
}

}  // namespace

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

Socket::Socket() { Registry().push_back(this); }

Socket::~Socket() {
  CloseDescriptor();
  auto& sockets = Registry();
  sockets.erase(std::remove(sockets.begin(), sockets.end(), this), sockets.end());
}

void Socket::SetEventSink(SocketEventSink* sink, int32_t index) {
  sink_ = sink;
  index_ = index;
}

void Socket::Connect() {
  if (state_ != kSckClosed) throw RuntimeError(kSckInvalidOp, "Invalid operation at current state");
  if (RemotePort < 0 || RemotePort > 65535) {
    throw RuntimeError(ErrorNumber::kInvalidPropertyValue, "Invalid property value");
  }
  addresses_.clear();
  next_address_ = 0;
  last_connect_error_ = 0;
  state_ = kSckResolvingHost;

  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string port = std::to_string(RemotePort);
  const int rc = ::getaddrinfo(RemoteHost.c_str(), port.c_str(), &hints, &found);
  if (rc != 0) {
    state_ = kSckError;
    due_.push_back({true, SocketErrorFromResolver(rc, errno)});
    return;
  }
  for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(a->ai_addr);
    addresses_.emplace_back(bytes, bytes + a->ai_addrlen);
  }
  ::freeaddrinfo(found);
  state_ = kSckHostResolved;
  StartNextAddress();
}

// Tries the resolved addresses in order until one connects or is under way; the last failure is reported
// when none is left.
void Socket::StartNextAddress() {
  while (next_address_ < addresses_.size()) {
    const std::vector<unsigned char>& address = addresses_[next_address_++];
    const auto* sa = reinterpret_cast<const sockaddr*>(address.data());
    const int fd = ::socket(sa->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
      last_connect_error_ = errno;
      continue;
    }
    fd_ = fd;
    ++generation_;
    const int one = 1;
    (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (LocalPort != 0) {
      sockaddr_storage local{};
      socklen_t local_len = 0;
      if (sa->sa_family == AF_INET6) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&local);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(static_cast<uint16_t>(LocalPort));
        local_len = sizeof(sockaddr_in6);
      } else {
        auto* in4 = reinterpret_cast<sockaddr_in*>(&local);
        in4->sin_family = AF_INET;
        in4->sin_port = htons(static_cast<uint16_t>(LocalPort));
        local_len = sizeof(sockaddr_in);
      }
      if (::bind(fd, reinterpret_cast<sockaddr*>(&local), local_len) != 0) {
        last_connect_error_ = errno;
        CloseDescriptor();
        continue;
      }
    }
    if (::connect(fd, sa, static_cast<socklen_t>(address.size())) == 0) {
      state_ = kSckConnected;
      due_.push_back({});
      return;
    }
    if (errno == EINPROGRESS || errno == EINTR) {
      state_ = kSckConnecting;
      return;
    }
    last_connect_error_ = errno;
    CloseDescriptor();
  }
  state_ = kSckError;
  due_.push_back({true, SocketErrorFromErrno(last_connect_error_ != 0 ? last_connect_error_ : ECONNREFUSED)});
}

void Socket::SendData(std::string_view bytes) {
  if (state_ != kSckConnected) {
    throw RuntimeError(kSckBadState, "Wrong protocol or connection state for the requested transaction or request");
  }
  if (source_ != nullptr || stream_offset_ < stream_length_) {
    throw RuntimeError(kSckInvalidOp, "Invalid operation at current state");
  }
  if (send_offset_ == send_queue_.size()) {
    send_queue_.clear();
    send_offset_ = 0;
  }
  send_queue_.append(bytes);
}

void Socket::SendStream(std::shared_ptr<SendSource> source) {
  SendData({});
  source_ = std::move(source);
}

bool Socket::HasPendingSend() const {
  return send_offset_ < send_queue_.size() || stream_offset_ < stream_length_ || source_ != nullptr;
}

// The bytes to send next: the rest of the queue, else the rest of the stream's chunk, refilled from the
// source when it is used up. Empty when nothing is left.
std::string_view Socket::PendingBytes() {
  if (send_offset_ < send_queue_.size()) return std::string_view(send_queue_).substr(send_offset_);
  send_queue_.clear();
  send_offset_ = 0;
  while (stream_offset_ == stream_length_ && source_ != nullptr) {
    if (!stream_chunk_) stream_chunk_ = std::make_unique<char[]>(kStreamChunk);
    const std::shared_ptr<SendSource> source = source_;  // kept alive should the read close the socket
    const int64_t n = source->Read(stream_chunk_.get(), kStreamChunk);
    if (!stream_chunk_) return {};
    stream_offset_ = 0;
    stream_length_ = n > 0 ? static_cast<size_t>(n) : 0;
    if (n <= 0) source_.reset();
  }
  return {stream_chunk_.get() + stream_offset_, stream_length_ - stream_offset_};
}

std::string_view Socket::PeekData(int32_t max_bytes) const {
  const size_t n = max_bytes < 0 ? received_size_ : std::min(received_size_, static_cast<size_t>(max_bytes));
  return {received_.get(), n};
}

void Socket::Consume(size_t count) {
  count = std::min(count, received_size_);
  if (count < received_size_) std::memmove(received_.get(), received_.get() + count, received_size_ - count);
  received_size_ -= count;
}

std::string Socket::GetData(int32_t max_bytes) {
  std::string data(PeekData(max_bytes));
  Consume(data.size());
  return data;
}

void Socket::Close() {
  CloseDescriptor();
  state_ = kSckClosed;
  addresses_.clear();
  next_address_ = 0;
  send_queue_.clear();
  send_offset_ = 0;
  source_.reset();
  stream_chunk_.reset();
  stream_length_ = 0;
  stream_offset_ = 0;
  received_size_ = 0;  // the buffer stays for the next connection of the slot
  due_.clear();
}

void Socket::CloseDescriptor() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
    ++generation_;
  }
}

short Socket::WantedEvents() const {
  if (fd_ < 0) return 0;
  switch (state_) {
    case kSckConnecting:
      return POLLOUT;
    case kSckConnected: {
      short wanted = 0;
      if (received_size_ < kMaxUnread) wanted |= POLLIN;
      if (HasPendingSend()) wanted |= POLLOUT;
      return wanted;
    }
    default:
      // After the peer's close or an error there is nothing left to wait for; a closed descriptor would
      // report itself ready on every pass.
      return 0;
  }
}

void Socket::Deliver(const DueEvent& event) {
  if (sink_ == nullptr) return;
  if (event.is_error) {
    sink_->SocketError(index_, event.error.number, event.error.description);
  } else {
    sink_->SocketConnect(index_);
  }
}

int Socket::DeliverDueEvents() {
  int delivered = 0;
  while (!due_.empty()) {
    const DueEvent event = due_.front();
    due_.erase(due_.begin());
    Deliver(event);
    ++delivered;
  }
  return delivered;
}

int Socket::Fail(const SocketError& error) {
  CloseDescriptor();
  state_ = kSckError;
  Deliver({true, error});
  return 1;
}

int Socket::HandleReady(short revents) {
  if (state_ == kSckConnecting) {
    if ((revents & (POLLOUT | POLLERR | POLLHUP)) == 0) return 0;
    int err = 0;
    socklen_t len = sizeof err;
    if (::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
    if (err == 0) {
      state_ = kSckConnected;
      Deliver({});
      return 1;
    }
    last_connect_error_ = err;
    CloseDescriptor();
    StartNextAddress();
    return DeliverDueEvents();
  }
  if (state_ != kSckConnected) return 0;

  int delivered = 0;
  const uint64_t generation = generation_;
  if ((revents & POLLOUT) != 0 && HasPendingSend()) {
    delivered += FlushSendQueue();
    if (generation != generation_ || state_ != kSckConnected) return delivered;
  }
  if ((revents & (POLLIN | POLLHUP | POLLERR)) != 0) delivered += ReadAvailable();
  return delivered;
}

int Socket::FlushSendQueue() {
  const uint64_t generation = generation_;
  for (std::string_view bytes = PendingBytes(); !bytes.empty(); bytes = PendingBytes()) {
    // A source may report its failure to whoever waits; the socket itself goes on as it is.
    if (generation != generation_ || state_ != kSckConnected) return 0;
    const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
      return Fail(SocketErrorFromErrno(errno));
    }
    if (send_offset_ < send_queue_.size()) {
      send_offset_ += static_cast<size_t>(n);
    } else {
      stream_offset_ += static_cast<size_t>(n);
    }
  }
  return 0;
}

// Reads what the connection holds (up to the unread limit), then reports it: DataArrival for new bytes,
// followed by Close when the peer has closed or Error when the connection failed.
int Socket::ReadAvailable() {
  const size_t before = received_size_;
  bool peer_closed = false;
  int read_error = 0;
  // One buffer for the socket's life: recv writes straight into it, and receivers read it where it lies.
  if (!received_) received_ = std::make_unique_for_overwrite<char[]>(kMaxUnread);
  while (received_size_ < kMaxUnread) {
    const ssize_t n = ::recv(fd_, received_.get() + received_size_, kMaxUnread - received_size_, 0);
    if (n > 0) {
      received_size_ += static_cast<size_t>(n);
      continue;
    }
    if (n == 0) {
      peer_closed = true;
    } else if (errno == EINTR) {
      continue;
    } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
      read_error = errno;
    }
    break;
  }

  int delivered = 0;
  const uint64_t generation = generation_;
  if (received_size_ > before) {
    ++delivered;
    if (sink_ != nullptr) sink_->SocketDataArrival(index_, static_cast<int32_t>(received_size_));
    if (generation != generation_ || state_ != kSckConnected) return delivered;
  }
  if (read_error != 0) return delivered + Fail(SocketErrorFromErrno(read_error));
  if (peer_closed) {
    state_ = kSckClosing;
    ++delivered;
    if (sink_ != nullptr) sink_->SocketClose(index_);
  }
  return delivered;
}

const std::vector<Socket*>& ThreadSockets() { return Registry(); }

int PollPump::RunOnce(const std::vector<Socket*>& sockets, bool wait) {
  // Handlers may close sockets (or, in principle, make new ones) while this pass runs: work on a copy and
  // check each descriptor's generation before acting on its readiness.
  const std::vector<Socket*> list(sockets);
  int delivered = 0;
  for (Socket* s : list) {
    if (s->HasDueEvents()) delivered += s->DeliverDueEvents();
  }

  std::vector<pollfd> fds;
  std::vector<std::pair<Socket*, uint64_t>> owners;
  fds.reserve(list.size());
  owners.reserve(list.size());
  for (Socket* s : list) {
    const short wanted = s->WantedEvents();
    if (wanted == 0) continue;
    fds.push_back({s->Descriptor(), wanted, 0});
    owners.emplace_back(s, s->Generation());
  }
  const int timeout = (delivered > 0 || !wait) ? 0 : max_wait_ms_;
  const int ready = ::poll(fds.empty() ? nullptr : fds.data(), static_cast<nfds_t>(fds.size()), timeout);
  if (ready <= 0) return delivered;
  for (size_t i = 0; i < fds.size(); ++i) {
    if (fds[i].revents == 0) continue;
    Socket* s = owners[i].first;
    if (s->Generation() != owners[i].second) continue;
    delivered += s->HandleReady(fds[i].revents);
  }
  return delivered;
}

EventPump* EventPump::Default() {
  static PollPump pump;
  return &pump;
}

EventPump& CurrentEventPump() { return Installed<EventPump>::Current(); }

EventPump* InstallEventPump(EventPump* pump) { return Installed<EventPump>::Install(pump); }

int DoEvents() { return CurrentEventPump().RunOnce(ThreadSockets(), true); }

int DoPendingEvents() { return CurrentEventPump().RunOnce(ThreadSockets(), false); }

}  // namespace halqvantor::platform
