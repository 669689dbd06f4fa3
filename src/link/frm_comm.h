#pragma once

// frmComm: the table of connection slots of one thread. A slot n is the socket ctlWinsock(n), the sorted
// list lstSort(n) and the state record SlotState(n) together. Slot numbers start at 1 (socket 0 and list 0
// exist from the start and are never handed out); a freed slot is reused, lowest number
// first, and keeps its socket, list, last response (a list request hands its reply over to its rows), counters
// and log settings until its next owner overwrites them. At most 32767 slots exist.
//
// Each thread has its own form (ForThisThread), as objects of one page thread share one; an object uses the
// form of the thread that created it.
//
// The form receives the events of its sockets (socket_events.cpp): they arrive while the thread yields to the
// event loop (platform::DoEvents) and turn into changes of the slot's state.

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "halqvantor/Extensions.h"
#include "platform/env.h"
#include "platform/socket.h"
#include "platform/sorted_list.h"

namespace halqvantor {

// How a slot takes in the bytes of a reply: kString collects a text reply into Response, kByte writes every
// byte into an open file; kNone (a slot no request has set up yet) takes nothing.
enum class ReceptionMode { kNone, kString, kByte };
// The mode's name in log lines: "", "STRING" or "BYTE".
std::string_view ToText(ReceptionMode mode);

struct SlotState {
  bool Busy = false;                          // owned by a live component object
  ReceptionMode Mode = ReceptionMode::kNone;  // reception mode of the current request
  bool Ready = false;                         // the awaited step finished: connected, or the whole reply received
  std::string Response;                       // collected reply payload in string mode (UTF-8)
  std::string WinsockError;                   // error text of the last socket or reception failure; "" when none
  int32_t BytesToReceive = 0;  // payload length announced by the reply (or set by the caller in byte mode)
  int32_t BytesReceived = 0;   // payload bytes received so far
  uint8_t File = 0;            // number of the open file that byte-mode reception writes to
  std::string DebugLogPath;    // log folder of the owner
  std::string SessionID;       // session id of the owner; names the log file
  platform::Env* Environment = platform::Env::Default();  // the owner's: the log's clock and files
  // Set by the request under way (RunRoundTrip) from its object's options and its progress:
  int64_t MaxReplyBytes = ObjectOptions().max_reply_bytes;  // the most payload bytes a reply may bring
  bool AwaitingFirstPacket = false;  // the request went out and no packet of its reply has come yet
  bool ReplyTooLarge = false;        // the reply passed MaxReplyBytes; WinsockError holds the status text
  bool PeerClosed = false;           // the gateway closed this connection (its Close event came)
};

class frmComm final : private platform::SocketEventSink {
 public:
  // The form of the calling thread, created on first use; it lives as long as the thread.
  static frmComm& ForThisThread();

  frmComm();
  frmComm(const frmComm&) = delete;
  frmComm& operator=(const frmComm&) = delete;

  int32_t SlotCount() const { return slot_count_; }

  // The lowest slot that is not Busy, loading a new one when all are taken; marks it Busy. Raises 6 when
  // 32767 slots are taken.
  int32_t GetFreeWinsockInstance();

  // Accessors of the state record; a slot outside 1 .. SlotCount raises 9 (subscript out of range).
  void SetBusy(int32_t slot, bool value);
  void SetMode(int32_t slot, ReceptionMode value);
  void SetReady(int32_t slot, bool value);
  void SetResponse(int32_t slot, std::string value);
  void SetWinsockError(int32_t slot, std::string value);
  void SetBytesToReceive(int32_t slot, int32_t value);
  void SetBytesReceived(int32_t slot, int32_t value);
  void SetFile(int32_t slot, uint8_t value);
  void SetDebugLogPath(int32_t slot, std::string value);
  void SetSessionID(int32_t slot, std::string value);
  bool GetBusy(int32_t slot) const;
  ReceptionMode GetMode(int32_t slot) const;
  bool GetReady(int32_t slot) const;
  const std::string& GetResponse(int32_t slot) const;
  const std::string& GetWinsockError(int32_t slot) const;
  int32_t GetBytesToReceive(int32_t slot) const;
  int32_t GetBytesReceived(int32_t slot) const;
  uint8_t GetFile(int32_t slot) const;
  const std::string& GetDebugLogPath(int32_t slot) const;
  const std::string& GetSessionID(int32_t slot) const;

  // The whole record, for code that works on several fields at once (reception appends to Response).
  SlotState& State(int32_t slot);

  // The slot's socket and sorted list; element 0 exists too. An index outside 0 .. SlotCount raises 9.
  platform::Socket& ctlWinsock(int32_t slot);
  platform::SortedList& lstSort(int32_t slot);

  // One debug-log line into the slot's own log folder and session file. LogsSlot says whether the slot
  // has a log at all, so that a line need not be put together for nobody.
  void WriteSlotLog(int32_t slot, std::string_view text) const;
  bool LogsSlot(int32_t slot) const;

  // The event handlers of ctlWinsock(Index). They never raise: a failure is recorded in the slot's
  // WinsockError (and logged).
  // Connect: the slot is Ready.
  void ctlWinsock_Connect(int16_t Index);
  // Close: logged, nothing else.
  void ctlWinsock_Close(int16_t Index);
  // Error: WinsockError = Number + " - " + Description, and the socket is closed.
  void ctlWinsock_Error(int16_t Index, int32_t Number, const std::string& Description);
  // DataArrival: takes the bytesTotal received bytes and, by the slot's Mode, adds them to Response
  // (kString, after the "TotalBytes:" header of a reply's first packet) or writes them to the open file
  // numbered File (kByte); Ready once BytesReceived reaches BytesToReceive.
  void ctlWinsock_DataArrival(int16_t Index, int32_t bytesTotal);

 private:
  void SocketConnect(int32_t index) override;
  void SocketDataArrival(int32_t index, int32_t bytes_total) override;
  void SocketClose(int32_t index) override;
  void SocketError(int32_t index, int32_t number, const std::string& description) override;
  platform::ReceiveTarget SocketReceiveTarget(int32_t index) override;
  void SocketDataStored(int32_t index, int32_t bytes, int file_error) override;
  // DataArrival's work on `bytes` received bytes: in the socket's buffer, or already in the slot's file
  // (`stored`, with the errno of a failed write).
  void TakeArrival(int16_t Index, int32_t bytes, bool stored, int file_error);

  const SlotState& Record(int32_t slot) const;
  SlotState& Record(int32_t slot);
  void LoadElement();

  int32_t slot_count_ = 0;
  std::deque<SlotState> slots_;  // index 0 unused; a deque keeps references stable as slots load
  std::vector<std::unique_ptr<platform::Socket>> sockets_;
  std::deque<platform::SortedList> lists_;
};

}  // namespace halqvantor
