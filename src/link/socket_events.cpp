#include "link/socket_events.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <limits>
#include <string>

#include "halqvantor/Variant.h"
#include "link/debug_log.h"
#include "link/general_failure.h"
#include "platform/cp1252.h"
#include "platform/files.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

constexpr std::string_view kHeaderKeyword = "TotalBytes:";
// Response is reserved up to the announced length, but never more than this (or half the text, once that is
// more) ahead of the bytes: a header that announces far more than arrives must not cost memory.
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
// Fuzz builds run the same arithmetic on a smaller scale: the address sanitizer writes the shadow of every byte
// a reserve frees, which would make each input that announces a large reply cost milliseconds.
constexpr int32_t kMaxReserve = 64 * 1024;
#else
constexpr int32_t kMaxReserve = 64 * 1024 * 1024;
#endif

std::string WinsockPrefix(int16_t index) { return "    Winsock(" + std::to_string(index) + ")-"; }

// The UTF-8 length of Windows-1252 bytes: two or three bytes for each one from 0x80 up.
size_t Utf8Length(std::string_view bytes) {
  size_t length = bytes.size();
  for (const char c : bytes) {
    const auto b = static_cast<unsigned char>(c);
    if (b >= 0x80) length += platform::Cp1252ToChar(b) < 0x800 ? 1 : 2;
  }
  return length;
}

// Makes room in `response` for the UTF-8 form of `bytes` before it is appended. A string left to grow by
// itself doubles, holding old and new buffer at once; instead the room covers the announced bytes still to
// come, at the growth of the text so far (a reply with characters from 0x80 up is longer in UTF-8 than on
// the wire), so that a reply is moved at most a few times. The room ahead of the text is at most
// kMaxReserve, or as much as the text once that is more: a header that announces more than comes costs
// little. A longer reply gets the expected size halved until it fits that, so that it doubles in steps that
// end at its size, and its last move holds half and whole (1.5x) at once, not most and whole.
// `received` counts the wire bytes including `bytes`.
void MakeRoom(std::string& response, std::string_view bytes, int64_t received, int64_t announced) {
  // Each byte takes at most three in UTF-8: only near the end of the room are the bytes counted.
  if (response.size() + 3 * bytes.size() <= response.capacity()) return;
  const size_t needed = response.size() + Utf8Length(bytes);
  if (needed <= response.capacity()) return;
  const int64_t to_come = std::max<int64_t>(announced - received, 0);
  const double growth = received > 0 ? static_cast<double>(needed) / static_cast<double>(received) : 1.0;
  double wanted = static_cast<double>(to_come) * growth;
  // Text that grows may grow unevenly: a little more room, so that it is not moved for a few bytes.
  if (growth > 1.0) wanted += (wanted + static_cast<double>(needed)) / 32;
  const auto text = static_cast<double>(needed);
  const double most_ahead = std::max(double{kMaxReserve}, text);
  double room = text + wanted;
  while (room - text > most_ahead) room /= 2;  // stays above text: room - text > text before halving
  // A string's own reserve at least doubles what it has; a fresh one takes the size asked for.
  std::string moved;
  moved.reserve(std::max(needed, static_cast<size_t>(room)));
  moved.append(response);
  response.swap(moved);
}

}  // namespace

std::string ReplyTooLarge::StatusText() const {
  if (announced_ >= 0) {
    return "Reply too large (" + std::to_string(announced_) + " bytes announced, the limit is " +
           std::to_string(limit_) + " bytes).";
  }
  return "Reply too large (more than the limit of " + std::to_string(limit_) + " bytes arrived).";
}

std::string ReplyTooLarge::LogText() const {
  if (announced_ >= 0) {
    return "    Antwort zu gross: " + std::to_string(announced_) + " Bytes angekündigt, erlaubt sind " +
           std::to_string(limit_) + " Bytes.";
  }
  return "    Antwort zu gross: mehr als " + std::to_string(limit_) + " Bytes empfangen.";
}

bool IsFirstPacket(std::string_view packet) { return packet.substr(0, kHeaderKeyword.size()) == kHeaderKeyword; }

void ReceiveFirstPacket(SlotState& slot, std::string_view packet) {
  // The CR LF that ends the header is looked for from the first character after the keyword on; without
  // it the length's extent is negative, an invalid argument.
  const size_t cr = packet.find("\r\n", kHeaderKeyword.size());
  if (cr == std::string_view::npos) vb::Raise(ErrorNumber::kInvalidProcedureCall);
  const std::string length_text =
      platform::Cp1252ToUtf8(packet.substr(kHeaderKeyword.size(), cr - kHeaderKeyword.size()));
  const int32_t announced = Variant(length_text).ToLong();
  const std::string_view payload = packet.substr(cr + 2);
  if (announced > slot.MaxReplyBytes) throw ReplyTooLarge(announced, slot.MaxReplyBytes);
  if (static_cast<int64_t>(payload.size()) > slot.MaxReplyBytes) throw ReplyTooLarge(-1, slot.MaxReplyBytes);

  std::string response;
  MakeRoom(response, payload, static_cast<int64_t>(payload.size()), announced);
  platform::AppendCp1252AsUtf8(response, payload);
  slot.BytesToReceive = announced;
  slot.BytesReceived = static_cast<int32_t>(payload.size());
  slot.Response = std::move(response);
}

void ReceiveNextPacket(SlotState& slot, std::string_view packet) {
  const int64_t received = static_cast<int64_t>(slot.BytesReceived) + static_cast<int64_t>(packet.size());
  if (received > slot.MaxReplyBytes) throw ReplyTooLarge(-1, slot.MaxReplyBytes);
  const int32_t count = vb::CheckedInt32(received);
  MakeRoom(slot.Response, packet, received, slot.BytesToReceive);
  slot.BytesReceived = count;
  platform::AppendCp1252AsUtf8(slot.Response, packet);
}

namespace {

// One packet's work for TakePacket and TakeStoredPacket: `packet` holds its bytes, or, for a byte-mode
// packet already in the file, is empty while `stored` counts them.
PacketOutcome Take(SlotState& slot, std::string_view packet, size_t stored, int file_error,
                   const std::function<void(std::string_view)>& log) {
  try {
    if (slot.Mode == ReceptionMode::kString) {
      // Only the first packet after the request went out may start a reply: TCP cuts a stream anywhere, so a
      // later piece of payload that happens to begin with the keyword is payload all the same.
      const bool first = slot.AwaitingFirstPacket && IsFirstPacket(packet);
      slot.AwaitingFirstPacket = false;
      if (first) {
        log("    First packet received (mode: " + std::string(ToText(slot.Mode)) + ").");
        ReceiveFirstPacket(slot, packet);
      } else {
        log("    Next packet received (mode: " + std::string(ToText(slot.Mode)) + ").");
        ReceiveNextPacket(slot, packet);
      }
    } else if (slot.Mode == ReceptionMode::kByte) {
      // The caller's expected length stands for the announced one; the file is bounded like a text reply.
      if (slot.BytesToReceive > slot.MaxReplyBytes) throw ReplyTooLarge(slot.BytesToReceive, slot.MaxReplyBytes);
      const size_t size = stored > 0 ? stored : packet.size();
      const int64_t received = static_cast<int64_t>(slot.BytesReceived) + static_cast<int64_t>(size);
      if (received > slot.MaxReplyBytes) throw ReplyTooLarge(-1, slot.MaxReplyBytes);
      slot.BytesReceived = vb::CheckedInt32(received);
      log("    Packet received (mode: " + std::string(ToText(slot.Mode)) + ").");
      try {
        if (stored == 0) {
          platform::WriteToFile(slot.File, packet);
        } else if (file_error != 0) {
          throw RuntimeError(platform::ErrorFromErrno(file_error));
        }
      } catch (const RuntimeError& e) {
        // The bytes count as received all the same; the failure ends the wait.
        slot.WinsockError = "File Error (" + std::to_string(e.number()) + " - " + e.description() + ")";
      }
    }
    if (slot.BytesReceived >= slot.BytesToReceive) slot.Ready = true;
    return PacketOutcome::kTaken;
  } catch (const ReplyTooLarge& e) {
    slot.WinsockError = e.StatusText();
    slot.ReplyTooLarge = true;
    log(e.LogText());
    return PacketOutcome::kTooLarge;
  } catch (const std::exception& e) {
    const ErrorInfo info = DescribeError(e);
    slot.WinsockError = "DataArrival Error (" + std::to_string(info.number) + " - " + info.text + ")";
    log("    Error occured: " + slot.WinsockError + ".");
    return PacketOutcome::kFailed;
  }
}

}  // namespace

PacketOutcome TakePacket(SlotState& slot, std::string_view packet, const std::function<void(std::string_view)>& log) {
  return Take(slot, packet, 0, 0, log);
}

PacketOutcome TakeStoredPacket(SlotState& slot, size_t count, int file_error,
                               const std::function<void(std::string_view)>& log) {
  return Take(slot, {}, count, file_error, log);
}

platform::ReceiveTarget ByteModeTarget(const SlotState& slot) {
  if (slot.Mode != ReceptionMode::kByte || slot.BytesToReceive > slot.MaxReplyBytes) return {};
  const platform::WritableFile* file = platform::OpenFileAt(slot.File);
  if (file == nullptr || file->Descriptor() < 0) return {};
  const int64_t bound = std::min<int64_t>(slot.MaxReplyBytes, std::numeric_limits<int32_t>::max());
  return {file->Descriptor(), bound - slot.BytesReceived,
          static_cast<int64_t>(slot.BytesToReceive) - static_cast<int64_t>(slot.BytesReceived)};
}

void frmComm::ctlWinsock_Connect(int16_t Index) {
  try {
    SetReady(Index, true);
    if (LogsSlot(Index)) WriteSlotLog(Index, WinsockPrefix(Index) + "Connect-Event.");
  } catch (const std::exception&) {
    // An event handler has nobody to report to.
  }
}

void frmComm::ctlWinsock_Close(int16_t Index) {
  try {
    WriteSlotLog(Index, WinsockPrefix(Index) + "Close-Event.");
    State(Index).PeerClosed = true;
  } catch (const std::exception&) {
  }
}

void frmComm::ctlWinsock_Error(int16_t Index, int32_t Number, const std::string& Description) {
  try {
    WriteSlotLog(Index, WinsockPrefix(Index) + "Error-Event (" + std::to_string(Number) + "- " + Description + ").");
    SetWinsockError(Index, std::to_string(Number) + " - " + Description);
    ctlWinsock(Index).Close();
  } catch (const std::exception&) {
  }
}

void frmComm::ctlWinsock_DataArrival(int16_t Index, int32_t bytesTotal) { TakeArrival(Index, bytesTotal, false, 0); }

void frmComm::TakeArrival(int16_t Index, int32_t bytes, bool stored, int file_error) {
  SlotState* slot = nullptr;
  try {
    slot = &State(Index);
  } catch (const std::exception&) {
    return;  // not a slot (element 0, never handed out): nothing to receive into
  }
  if (LogsSlot(Index)) WriteSlotLog(Index, WinsockPrefix(Index) + "DataArrival-Event Start.");
  // The handler reads all the bytes: they are gone from the socket however it ends. Any other Mode reads
  // nothing. Bytes the socket stored in the slot's file are only counted.
  platform::Socket& socket = ctlWinsock(Index);
  const auto log = [&](std::string_view line) { WriteSlotLog(Index, line); };
  PacketOutcome outcome;
  if (stored) {
    outcome = TakeStoredPacket(*slot, static_cast<size_t>(bytes), file_error, log);
  } else {
    const bool reads = slot->Mode != ReceptionMode::kNone;
    const std::string_view packet = reads ? socket.PeekData(bytes) : std::string_view();
    struct ConsumeAtEnd {
      platform::Socket& socket;
      size_t count;
      ~ConsumeAtEnd() { socket.Consume(count); }
    } consume{socket, packet.size()};
    outcome = TakePacket(*slot, packet, log);
  }
  if (outcome == PacketOutcome::kTaken) {
    if (LogsSlot(Index))
      WriteSlotLog(Index, WinsockPrefix(Index) + "DataArrival-Event End (" + std::to_string(slot->BytesReceived) +
                              " of " + std::to_string(slot->BytesToReceive) + " bytes received).");
  } else if (outcome == PacketOutcome::kTooLarge) {
    // Nothing more of this reply is read: the connection goes now, and the next request starts afresh.
    socket.Close();
  }
}

void frmComm::SocketConnect(int32_t index) { ctlWinsock_Connect(static_cast<int16_t>(index)); }

void frmComm::SocketDataArrival(int32_t index, int32_t bytes_total) {
  ctlWinsock_DataArrival(static_cast<int16_t>(index), bytes_total);
}

platform::ReceiveTarget frmComm::SocketReceiveTarget(int32_t index) {
  try {
    return ByteModeTarget(State(index));
  } catch (const std::exception&) {
    return {};  // not a slot: its bytes go through DataArrival, which drops them
  }
}

void frmComm::SocketDataStored(int32_t index, int32_t bytes, int file_error) {
  TakeArrival(static_cast<int16_t>(index), bytes, true, file_error);
}

void frmComm::SocketClose(int32_t index) { ctlWinsock_Close(static_cast<int16_t>(index)); }

void frmComm::SocketError(int32_t index, int32_t number, const std::string& description) {
  ctlWinsock_Error(static_cast<int16_t>(index), number, description);
}

}  // namespace halqvantor
