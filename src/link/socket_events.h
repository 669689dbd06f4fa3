#pragma once

// Reception of a string-mode reply, as plain functions over the bytes of one packet, so that the framing
// can be exercised without a network. The reply starts with the header "TotalBytes:" + decimal length +
// CR LF at the very start of its first packet; only the first packet after the request went out is looked
// at for it (AwaitingFirstPacket), any later one is payload whatever it begins with. The header does not
// count towards BytesReceived. Counts are raw bytes; the payload is added to Response as UTF-8 (each
// received byte one Windows-1252 character). A reply is bounded by the slot's MaxReplyBytes.

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>

#include "link/frm_comm.h"
#include "platform/socket.h"

namespace halqvantor {

// A reply that passes the slot's MaxReplyBytes: its header announced more (announced >= 0), or more bytes
// arrived than the limit allows (announced < 0). StatusText() is the English text for the caller's status,
// LogText() the debug-log line.
class ReplyTooLarge : public std::exception {
 public:
  ReplyTooLarge(int64_t announced, int64_t limit) : announced_(announced), limit_(limit) {}
  const char* what() const noexcept override { return "reply too large"; }
  std::string StatusText() const;
  std::string LogText() const;

 private:
  int64_t announced_;
  int64_t limit_;
};

// True when the packet begins with "TotalBytes:", that is, it is the first packet of a reply.
bool IsFirstPacket(std::string_view packet);

// First packet: BytesToReceive = the length in the header, BytesReceived = the bytes after the header's
// CR LF, Response = those bytes (replacing the old one). Raises 5 when no CR LF follows the keyword, 13 when
// the length is not a number, 6 when it does not fit 32 bits, ReplyTooLarge when the length or the payload
// exceeds MaxReplyBytes. The slot is unchanged when it raises.
void ReceiveFirstPacket(SlotState& slot, std::string_view packet);

// Following packet: BytesReceived grows by the packet's size, Response by its text. Raises ReplyTooLarge
// when BytesReceived would pass MaxReplyBytes and 6 on 32-bit overflow, the slot unchanged either way.
void ReceiveNextPacket(SlotState& slot, std::string_view packet);

// What TakePacket made of a packet.
enum class PacketOutcome {
  kTaken,     // in the slot; the handler logs the "End" line
  kFailed,    // WinsockError = "DataArrival Error (...)", logged; Ready as it was
  kTooLarge,  // ReplyTooLarge set, WinsockError its status text, logged; the connection must go
};

// One DataArrival's work on its packet, without the socket: by the slot's Mode, a string-mode packet goes
// to ReceiveFirstPacket (only the first one after the request, and only with the header) or
// ReceiveNextPacket; a byte-mode packet is counted (bounded by MaxReplyBytes like a reply, BytesToReceive
// standing for the announced length) and written to the open file numbered File, a failed write recorded
// as "File Error (...)". Any other Mode takes nothing. Then Ready once BytesReceived reaches
// BytesToReceive. Never raises: failures go into the slot. Each log line is handed to `log`.
PacketOutcome TakePacket(SlotState& slot, std::string_view packet, const std::function<void(std::string_view)>& log);

// Where the socket may put a byte-mode reply's bytes itself, sparing the copy through its buffer: the
// system descriptor of the slot's open file and the bytes the slot may still take (MaxReplyBytes, and the
// 32-bit count). No target outside byte mode, for an expected length past the bound, for a file number that
// is not open or for a file that is not the system's: those packets come through TakePacket and meet its
// checks there.
platform::ReceiveTarget ByteModeTarget(const SlotState& slot);

// TakePacket for a byte-mode packet of `count` bytes that is already in the slot's file: counted, checked
// and logged the same way, not written again; `file_error` (an errno, 0 for none) is the write's failure,
// recorded as TakePacket records a failed write.
PacketOutcome TakeStoredPacket(SlotState& slot, size_t count, int file_error,
                               const std::function<void(std::string_view)>& log);

}  // namespace halqvantor
