#include "platform/socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "halqvantor/RuntimeError.h"

namespace halqvantor::platform {
namespace {

// The socket's own errors for a call made in the wrong state.
constexpr int32_t kSckBadState = 40006;   // not connected
constexpr int32_t kSckInvalidOp = 40020;  // not allowed while the socket is in use

// Bytes read in one recv call, and the most that waits unread before the socket stops reading. One chunk
// per pass: the receiver handles each piece while it is still in the cache, which keeps a long byte-mode
// reception (written to a file as it comes) close to the speed of a plain read/write loop.
constexpr size_t kMaxUnread = 256 * 1024;
// Bytes of a stream pulled from its source at a time. A file goes out through this buffer rather than with
// sendfile: over loopback, where the other end copies the bytes anyway, a copy into large writes is the
// faster of the two.
constexpr size_t kStreamChunk = 1024 * 1024;
// The most bytes one pass moves from the connection into the receiver's file when the network does that
// directly: large enough that the pass's own cost vanishes, small enough that the pump still gets round to
// the other sockets and the waiter's clock.
constexpr size_t kMaxDirectPass = 4 * 1024 * 1024;
// The most awaited bytes a direct reception lets gather before poll wakes the pump for them. Woken for every
// piece as it comes, the receiver takes the bytes in small passes and falls behind a plain blocking loop;
// woken for a share this large, it moves them in a few big ones.
constexpr int64_t kLowWaterBytes = 256 * 1024;

std::vector<Socket*>& Registry() {
  thread_local std::vector<Socket*> sockets;
  return sockets;
}

}  // namespace

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

void Socket::SetNetwork(Network* network) {
  if (network == network_) return;
  Close();
  network_ = network;
}

void Socket::Connect() {
  if (state_ != kSckClosed) throw RuntimeError(kSckInvalidOp, "Invalid operation at current state");
  if (RemotePort < 0 || RemotePort > 65535) {
    throw RuntimeError(ErrorNumber::kInvalidPropertyValue, "Invalid property value");
  }
  addresses_.clear();
  next_address_ = 0;
  last_connect_error_ = 0;
  receive_to_file_ = true;
  bytes_sent_ = 0;
  state_ = kSckResolvingHost;

  const SocketError resolved = network_->Resolve(RemoteHost, RemotePort, &addresses_);
  if (resolved.number != 0) {
    addresses_.clear();
    state_ = kSckError;
    due_.push_back({true, resolved});
    return;
  }
  state_ = kSckHostResolved;
  StartNextAddress();
}

// Tries the resolved addresses in order until one connects or is under way; the last failure is reported
// when none is left.
void Socket::StartNextAddress() {
  while (next_address_ < addresses_.size()) {
    const SocketAddress& address = addresses_[next_address_++];
    const int fd = network_->OpenSocket(address.family);
    if (fd < 0) {
      last_connect_error_ = -fd;
      continue;
    }
    fd_ = fd;
    ++generation_;
    if (LocalPort != 0) {
      const int bound = network_->BindLocalPort(fd, address.family, LocalPort);
      if (bound != 0) {
        last_connect_error_ = bound;
        CloseDescriptor();
        continue;
      }
    }
    const int started = network_->StartConnect(fd, address);
    if (started == 0) {
      state_ = kSckConnected;
      due_.push_back({});
      return;
    }
    if (started == EINPROGRESS) {
      state_ = kSckConnecting;
      return;
    }
    last_connect_error_ = started;
    CloseDescriptor();
  }
  state_ = kSckError;
  due_.push_back({true, SocketErrorFromErrno(last_connect_error_ != 0 ? last_connect_error_ : ECONNREFUSED)});
}

void Socket::SendAhead(std::string_view bytes) {
  if (state_ != kSckConnecting || sent_ahead_ != 0 || bytes.empty()) return;
  int64_t n = 0;
  do {
    n = network_->Send(fd_, bytes.data(), bytes.size());
  } while (n == -EINTR);
  if (n > 0) {
    sent_ahead_ = static_cast<size_t>(n);
    bytes_sent_ += n;
  } else if (n < 0 && n != -EAGAIN && n != -EWOULDBLOCK && n != -ENOTCONN) {
    ahead_error_ = static_cast<int>(-n);
  }
}

void Socket::SendData(std::string_view bytes) {
  if (state_ != kSckConnected) {
    throw RuntimeError(kSckBadState, "Wrong protocol or connection state for the requested transaction or request");
  }
  const size_t ahead = std::min(sent_ahead_, bytes.size());
  bytes.remove_prefix(ahead);
  sent_ahead_ -= ahead;
  if (source_ != nullptr || stream_offset_ < stream_length_) {
    throw RuntimeError(kSckInvalidOp, "Invalid operation at current state");
  }
  if (send_offset_ == send_queue_.size()) {
    send_queue_.clear();
    send_offset_ = 0;
  }
  send_queue_.append(bytes);
  SendQueuedNow();
}

// Sends what the queue holds as far as the connection takes it at once, so that a request is on its way
// before the next pump pass instead of after it. A failure is reported by that pass, as the pump's own sends
// report theirs.
void Socket::SendQueuedNow() {
  while (send_offset_ < send_queue_.size()) {
    const int64_t n = network_->Send(fd_, send_queue_.data() + send_offset_, send_queue_.size() - send_offset_);
    if (n == -EINTR) continue;
    if (n < 0) {
      if (n != -EAGAIN && n != -EWOULDBLOCK) {
        CloseDescriptor();
        state_ = kSckError;
        due_.push_back({true, SocketErrorFromErrno(static_cast<int>(-n))});
      }
      return;
    }
    bytes_sent_ += n;
    send_offset_ += static_cast<size_t>(n);
  }
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
  sent_ahead_ = 0;
  ahead_error_ = 0;
  low_water_ = 1;
  if (fd_ >= 0) {
    network_->CloseSocket(fd_);
    fd_ = -1;
    ++generation_;
  }
}

short Socket::WantedEvents() const {
  if (fd_ < 0) return 0;
  switch (state_) {
    case kSckConnecting:
      return kPollOut;
    case kSckConnected: {
      short wanted = 0;
      if (received_size_ < kMaxUnread) wanted |= kPollIn;
      if (HasPendingSend()) wanted |= kPollOut;
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
    if ((revents & (kPollOut | kPollErr | kPollHup)) == 0) return 0;
    // Bytes that went ahead prove the connection stood; what befell it since, the reading finds.
    const int err = sent_ahead_ > 0 ? 0 : ahead_error_ != 0 ? ahead_error_ : network_->ConnectResult(fd_, revents);
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
  if ((revents & kPollOut) != 0 && HasPendingSend()) {
    delivered += FlushSendQueue();
    if (generation != generation_ || state_ != kSckConnected) return delivered;
  }
  if ((revents & (kPollIn | kPollHup | kPollErr)) != 0) delivered += ReadAvailable();
  return delivered;
}

int Socket::FlushSendQueue() {
  const uint64_t generation = generation_;
  for (;;) {
    const std::string_view bytes = PendingBytes();
    if (bytes.empty()) break;
    // A source may report its failure to whoever waits; the socket itself goes on as it is.
    if (generation != generation_ || state_ != kSckConnected) return 0;
    const int64_t n = network_->Send(fd_, bytes.data(), bytes.size());
    if (n < 0) {
      if (n == -EINTR) continue;
      if (n == -EAGAIN || n == -EWOULDBLOCK) return 0;
      return Fail(SocketErrorFromErrno(static_cast<int>(-n)));
    }
    bytes_sent_ += n;
    if (send_offset_ < send_queue_.size()) {
      send_offset_ += static_cast<size_t>(n);
    } else {
      stream_offset_ += static_cast<size_t>(n);
    }
  }
  return 0;
}

// Reads what the connection holds (up to the unread limit), then reports it: DataArrival for new bytes,
// followed by Close when the peer has closed or Error when the connection failed. While nothing waits
// unread, the bytes go into the sink's target file instead when it names one and the network can do that.
int Socket::ReadAvailable() {
  if (received_size_ == 0 && receive_to_file_ && sink_ != nullptr) {
    const ReceiveTarget target = sink_->SocketReceiveTarget(index_);
    if (target.file_descriptor >= 0 && target.limit > 0) return ReadIntoTarget(target);
  }
  SetLowWater(1);
  const size_t before = received_size_;
  bool peer_closed = false;
  int read_error = 0;
  // One buffer for the socket's life: recv writes straight into it, and receivers read it where it lies.
  if (!received_) received_ = std::make_unique_for_overwrite<char[]>(kMaxUnread);
  while (received_size_ < kMaxUnread) {
    const int64_t n = network_->Receive(fd_, received_.get() + received_size_, kMaxUnread - received_size_);
    if (n > 0) {
      const bool drained = static_cast<size_t>(n) < kMaxUnread - received_size_;
      received_size_ += static_cast<size_t>(n);
      // A short read took all the connection held; what comes later the next poll reports.
      if (drained) break;
      continue;
    }
    if (n == 0) {
      peer_closed = true;
    } else if (n == -EINTR) {
      continue;
    } else if (n != -EAGAIN && n != -EWOULDBLOCK) {
      read_error = static_cast<int>(-n);
    }
    break;
  }
  return ReportReceived(received_size_ - before, false, 0, peer_closed, read_error);
}

int Socket::ReadIntoTarget(const ReceiveTarget& target) {
  FileReception moved;
  const size_t max = static_cast<size_t>(std::min<int64_t>(target.limit, kMaxDirectPass));
  if (!network_->ReceiveToFile(fd_, target.file_descriptor, max, &moved)) {
    receive_to_file_ = false;  // not on this connection: the buffer takes the bytes from now on
    return ReadAvailable();
  }
  // Never more than what is still awaited, so the last of it wakes the pump too.
  SetLowWater(static_cast<int>(std::clamp<int64_t>(target.awaited - moved.moved, 1, kLowWaterBytes)));
  return ReportReceived(static_cast<size_t>(moved.moved), true, moved.file_error, moved.peer_closed,
                        moved.socket_error);
}

void Socket::SetLowWater(int bytes) {
  if (bytes == low_water_ || fd_ < 0) return;
  network_->SetReceiveLowWater(fd_, bytes);
  low_water_ = bytes;
}

// The events of one read: DataArrival (or DataStored) for new bytes, then Error or Close, unless a handler
// closed the socket meanwhile.
int Socket::ReportReceived(size_t new_bytes, bool stored, int file_error, bool peer_closed, int read_error) {
  int delivered = 0;
  const uint64_t generation = generation_;
  if (new_bytes > 0) {
    ++delivered;
    if (sink_ != nullptr) {
      if (stored) {
        sink_->SocketDataStored(index_, static_cast<int32_t>(new_bytes), file_error);
      } else {
        sink_->SocketDataArrival(index_, static_cast<int32_t>(received_size_));
      }
    }
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

namespace {

// The longest the waiter's poll may block while sockets of other networks are open too: those are only
// looked at between two polls, so their events must not wait behind a long sleep.
constexpr int kSharedWaitMs = 5;

// Each network polls its own sockets; only the waiter's waits. Most passes have one network.
struct PollGroup {
  Network* network = nullptr;
  std::vector<PollEntry> entries;
  std::vector<std::pair<Socket*, uint64_t>> owners;
};

// What a pass works on. The outermost pass of a thread keeps its vectors from one pass to the next, so that a
// round trip's passes allocate nothing; a pass started from inside a handler has its own.
struct PassScratch {
  std::vector<Socket*> sockets;
  std::vector<PollGroup> groups;
  size_t group_count = 0;

  PollGroup& GroupOf(Network* network) {
    for (size_t i = 0; i < group_count; ++i) {
      if (groups[i].network == network) return groups[i];
    }
    if (group_count == groups.size()) groups.emplace_back();
    PollGroup& group = groups[group_count++];
    group.network = network;
    group.entries.clear();
    group.owners.clear();
    return group;
  }
};

int RunEventPass(Network& waiter, int max_wait_ms) {
  thread_local PassScratch outermost;
  thread_local int depth = 0;
  PassScratch nested;
  PassScratch& scratch = depth == 0 ? outermost : nested;
  struct DepthGuard {
    int& depth;
    explicit DepthGuard(int& d) : depth(d) { ++depth; }
    ~DepthGuard() { --depth; }
  } guard(depth);

  // Handlers may close sockets (or, in principle, make new ones) while this pass runs: work on a copy and
  // check each descriptor's generation before acting on its readiness.
  std::vector<Socket*>& list = scratch.sockets;
  list.assign(ThreadSockets().begin(), ThreadSockets().end());
  int delivered = 0;
  for (Socket* s : list) {
    if (s->HasDueEvents()) delivered += s->DeliverDueEvents();
  }

  scratch.group_count = 0;
  scratch.GroupOf(&waiter);
  for (Socket* s : list) {
    const short wanted = s->WantedEvents();
    if (wanted == 0) continue;
    PollGroup& group = scratch.GroupOf(&s->network());
    group.entries.push_back({s->Descriptor(), wanted, 0});
    group.owners.emplace_back(s, s->Generation());
  }
  int timeout = delivered > 0 ? 0 : std::min(max_wait_ms, waiter.EventWaitMs());
  if (scratch.group_count > 1) timeout = std::min(timeout, kSharedWaitMs);
  for (size_t g = 0; g < scratch.group_count; ++g) {
    PollGroup& group = scratch.groups[g];
    const int wait = group.network == &waiter ? timeout : 0;
    if (group.entries.empty() && wait == 0) continue;  // nothing to look at, no time to pass
    const bool any_ready = group.network->Poll(group.entries, wait) > 0;
    for (size_t i = 0; i < group.entries.size(); ++i) {
      Socket* s = group.owners[i].first;
      if (s->Generation() != group.owners[i].second) continue;
      short ready = any_ready ? group.entries[i].ready : short{0};
      if (ready == 0 && s->HoldsLowWater()) ready = kPollIn;  // bytes short of the mark are taken on every pass
      if (ready != 0) delivered += s->HandleReady(ready);
    }
  }
  return delivered;
}

}  // namespace

int DoEvents(Network& waiter, int max_wait_ms) { return RunEventPass(waiter, std::max(max_wait_ms, 0)); }

int DoPendingEvents(Network& waiter) { return RunEventPass(waiter, 0); }

}  // namespace halqvantor::platform
