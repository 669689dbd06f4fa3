#pragma once

// The socket of one connection slot, with the surface the component's requests use: Protocol, RemoteHost,
// RemotePort, LocalPort and State (0 closed, 1 open, 2 listening, 3 connection pending, 4 resolving host,
// 5 host resolved, 6 connecting, 7 connected, 8 peer is closing, 9 error), Connect, SendData, GetData and
// Close.
//
// Underneath is a non-blocking TCP socket of a Network (the system's unless the socket is given another).
// Nothing happens behind the caller's back: the thread's event pump
// (DoEvents) sends what SendData could not send at once, reads what arrived and reports Connect, DataArrival, Close and
// Error to the socket's event sink. Failures are reported with the socket's own error numbers and words (10061 refused,
// 10054 reset, 11001 host not found, ...).

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/network.h"

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

// Where a receiver wants arriving bytes to go without passing through the socket's buffer: a file of the
// system's file system (its descriptor, -1 for none) and the most bytes it may take now, with the bytes the
// receiver still waits for when it knows them (0 when it does not).
struct ReceiveTarget {
  int file_descriptor = -1;
  int64_t limit = 0;
  int64_t awaited = 0;
};

// The receiver of a socket's events, called with the index the socket was given. Calls come only from
// inside DoEvents on the socket's thread; a receiver may call the socket back (GetData, Close).
class SocketEventSink {
 public:
  virtual ~SocketEventSink() = default;
  virtual void SocketConnect(int32_t index) = 0;
  virtual void SocketDataArrival(int32_t index, int32_t bytes_total) = 0;
  virtual void SocketClose(int32_t index) = 0;
  virtual void SocketError(int32_t index, int32_t number, const std::string& description) = 0;
  // Asked before each read while nothing received waits unread. When the socket's network can move bytes
  // into the target's file directly, they go there and come as DataStored instead of DataArrival.
  virtual ReceiveTarget SocketReceiveTarget(int32_t /*index*/) { return {}; }
  // `bytes` bytes arrived and went into the target's file at its position; `file_error` is the errno of a
  // write that failed (0: all of them are in the file), the bytes having arrived all the same.
  virtual void SocketDataStored(int32_t /*index*/, int32_t /*bytes*/, int /*file_error*/) {}
};

// Bytes sent after what SendData queued, pulled while the connection takes them, so that a large body (a
// file) goes out from where it lies instead of from memory.
class SendSource {
 public:
  virtual ~SendSource() = default;
  // Copies the next bytes into `buffer`, at most `capacity`: their count, 0 at the end, or -1 when the
  // source failed (it reports its failure itself). 0 and -1 end the stream.
  virtual int64_t Read(char* buffer, size_t capacity) = 0;
};

class Socket {
 public:
  // A closed socket of the calling thread; it takes part in that thread's DoEvents while it lives.
  Socket();
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Where the events go; without a sink they are dropped.
  void SetEventSink(SocketEventSink* sink, int32_t index);
  // The network the socket's connections go through from now on (closes the socket when it changes).
  void SetNetwork(Network* network);
  Network& network() const { return *network_; }

  int32_t Protocol = 0;  // 0: TCP
  std::string RemoteHost;
  int32_t RemotePort = 0;
  int32_t LocalPort = 0;  // 0: any

  int16_t State() const { return state_; }
  // Bytes the connection took since the last Connect (SendData's and the stream's).
  int64_t BytesSent() const { return bytes_sent_; }

  // Starts a connection to RemoteHost:RemotePort. The name is resolved here (this may block); the rest
  // completes in DoEvents with a Connect event, or an Error event when it fails (an unknown host too).
  // Raises 40020 when the socket is not closed and 380 for a port outside 0..65535.
  void Connect();
  // Sends `bytes` at once where the connection Connect started already stands (as it mostly does on the local
  // machine), ahead of its Connect event, so that the peer has a request without waiting for a pump pass. The
  // SendData after the Connect event must begin with the same bytes and does not send them again. Where the
  // connection is not up yet, nothing goes out here.
  void SendAhead(std::string_view bytes);
  // Queues bytes for sending and sends what the connection takes at once; DoEvents sends the rest. A failed
  // send comes as the Error event of the next DoEvents. Raises 40006 when the socket is not connected, 40020
  // while a stream is being sent.
  void SendData(std::string_view bytes);
  // Queues the bytes of `source` after everything queued so far: DoEvents pulls and sends them as the
  // connection takes them, one chunk in memory at a time. The socket keeps the source until it ends or the
  // socket is closed. Raises as SendData does.
  void SendStream(std::shared_ptr<SendSource> source);
  // Takes up to `max_bytes` of the received bytes (all of them when `max_bytes` is negative).
  std::string GetData(int32_t max_bytes = -1);
  // GetData without a copy: the received bytes where they lie (valid until the next Consume, Close or pump
  // pass), then Consume drops the first `count` of them.
  std::string_view PeekData(int32_t max_bytes = -1) const;
  void Consume(size_t count);
  // Ends the connection, if any, and drops what was queued or received; the State becomes 0. No event.
  void Close();

  // ---- For the event pump.
  // The descriptor to wait on and the poll events wanted (0: nothing to wait for).
  int Descriptor() const { return fd_; }
  short WantedEvents() const;  // PollEvents
  // Changes whenever the descriptor is closed, so that a pump can tell a stale readiness.
  uint64_t Generation() const { return generation_; }
  // Events that are due without waiting (a connection made at once, a failed name resolution).
  bool HasDueEvents() const { return !due_.empty(); }
  int DeliverDueEvents();
  // Acts on what poll reported for the descriptor; the number of events delivered.
  int HandleReady(short revents);
  // True while poll reports the connection readable only once a share of the awaited bytes is in: a pump
  // then reads it on quiet passes too, so that bytes short of that share reach the receiver all the same.
  bool HoldsLowWater() const { return low_water_ > 1 && state_ == kSckConnected; }

 private:
  struct DueEvent {
    bool is_error = false;
    SocketError error;
  };

  void StartNextAddress();
  int FlushSendQueue();
  void SendQueuedNow();
  bool HasPendingSend() const;
  std::string_view PendingBytes();
  int ReadAvailable();
  int ReadIntoTarget(const ReceiveTarget& target);
  int ReportReceived(size_t new_bytes, bool stored, int file_error, bool peer_closed, int read_error);
  void SetLowWater(int bytes);
  void CloseDescriptor();
  int Fail(const SocketError& error);
  void Deliver(const DueEvent& event);

  Network* network_ = Network::Default();
  SocketEventSink* sink_ = nullptr;
  int32_t index_ = 0;
  int16_t state_ = kSckClosed;
  int fd_ = -1;
  uint64_t generation_ = 0;
  std::vector<SocketAddress> addresses_;  // resolved addresses not tried yet, in order
  size_t next_address_ = 0;
  int last_connect_error_ = 0;
  size_t sent_ahead_ = 0;  // bytes SendAhead sent that SendData has not been handed yet
  int ahead_error_ = 0;    // the connection's failure, taken from it by SendAhead's send
  int64_t bytes_sent_ = 0;
  std::string send_queue_;
  size_t send_offset_ = 0;
  std::shared_ptr<SendSource> source_;  // the stream after the queue, until it ends
  std::unique_ptr<char[]> stream_chunk_;
  size_t stream_length_ = 0;
  size_t stream_offset_ = 0;
  std::unique_ptr<char[]> received_;  // received bytes not taken yet: the first received_size_ of them
  size_t received_size_ = 0;
  bool receive_to_file_ = true;  // the connection may move bytes into the sink's target (cleared when it cannot)
  int low_water_ = 1;            // the connection's receive low-water mark
  std::vector<DueEvent> due_;
};

// The sockets of the calling thread, in the order they were made.
const std::vector<Socket*>& ThreadSockets();

// Yields to the event loop: one pass over the calling thread's sockets that delivers what is due and what
// their networks report ready. `waiter` (the network of the object that waits) waits for its sockets until
// something happens, at most `max_wait_ms` and its EventWaitMs (sleeping that long also when none of its
// sockets is open); sockets of other networks are only looked at, and while there are any the wait is
// short. Loops that wait call this with the time until they must look at their clock again. The number of
// events delivered.
int DoEvents(Network& waiter, int max_wait_ms);
// The same pass without waiting: lets through what is due, for a single yield between two steps.
int DoPendingEvents(Network& waiter);

}  // namespace halqvantor::platform
