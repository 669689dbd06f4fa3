#include "link/socket_events.h"

#include <algorithm>
#include <exception>
#include <string>

#include "component/debug_log.h"
#include "halqvantor/Variant.h"
#include "platform/cp1252.h"
#include "platform/files.h"
#include "platform/vb_runtime.h"

namespace halqvantor {
namespace {

constexpr std::string_view kHeaderKeyword = "TotalBytes:";
// Response is reserved up to the announced length, but never more than this ahead of the bytes: a header
// that announces far more than arrives must not cost memory.
constexpr int32_t kMaxReserve = 64 * 1024 * 1024;

std::string WinsockPrefix(int16_t index) { return "    Winsock(" + std::to_string(index) + ")-"; }

}  // namespace

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

  std::string response;
  response.reserve(static_cast<size_t>(std::clamp<int32_t>(announced, 0, kMaxReserve)));
  platform::AppendCp1252AsUtf8(response, payload);
  slot.BytesToReceive = announced;
  slot.BytesReceived = static_cast<int32_t>(payload.size());
  slot.Response = std::move(response);
}

void ReceiveNextPacket(SlotState& slot, std::string_view packet) {
  slot.BytesReceived = vb::CheckedInt32(static_cast<int64_t>(slot.BytesReceived) + static_cast<int64_t>(packet.size()));
  platform::AppendCp1252AsUtf8(slot.Response, packet);
}

void frmComm::ctlWinsock_Connect(int16_t Index) {
  try {
    SetReady(Index, true);
    WriteSlotLog(Index, WinsockPrefix(Index) + "Connect-Event.");
  } catch (const std::exception&) {
    // An event handler has nobody to report to.
  }
}

void frmComm::ctlWinsock_Close(int16_t Index) {
  try {
    WriteSlotLog(Index, WinsockPrefix(Index) + "Close-Event.");
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

void frmComm::ctlWinsock_DataArrival(int16_t Index, int32_t bytesTotal) {
  SlotState* slot = nullptr;
  try {
    slot = &State(Index);
  } catch (const std::exception&) {
    return;  // not a slot (the design-time element): nothing to receive into
  }
  WriteSlotLog(Index, WinsockPrefix(Index) + "DataArrival-Event Start.");
  // The handler reads all bytesTotal bytes: they are gone from the socket however it ends.
  platform::Socket& socket = ctlWinsock(Index);
  struct ConsumeAtEnd {
    platform::Socket& socket;
    size_t count = 0;
    ~ConsumeAtEnd() { socket.Consume(count); }
  } consume{socket};
  try {
    if (slot->Mode == "STRING") {
      const std::string_view packet = socket.PeekData(bytesTotal);
      consume.count = packet.size();
      if (IsFirstPacket(packet)) {
        WriteSlotLog(Index, "    First packet received (mode: STRING).");
        ReceiveFirstPacket(*slot, packet);
      } else {
        WriteSlotLog(Index, "    Next packet received (mode: STRING).");
        ReceiveNextPacket(*slot, packet);
      }
    } else if (slot->Mode == "BYTE") {
      const std::string_view packet = socket.PeekData(bytesTotal);
      consume.count = packet.size();
      slot->BytesReceived =
          vb::CheckedInt32(static_cast<int64_t>(slot->BytesReceived) + static_cast<int64_t>(packet.size()));
      WriteSlotLog(Index, "    Packet received (mode: BYTE).");
      try {
        platform::WriteToFile(slot->File, packet);
      } catch (const RuntimeError& e) {
        // The bytes count as received all the same; the failure ends the wait.
        slot->WinsockError = "File Error (" + std::to_string(e.number()) + " - " + e.description() + ")";
      }
    }
    if (slot->BytesReceived >= slot->BytesToReceive) slot->Ready = true;
    WriteSlotLog(Index, WinsockPrefix(Index) + "DataArrival-Event End (" + std::to_string(slot->BytesReceived) +
                            " of " + std::to_string(slot->BytesToReceive) + " bytes received).");
  } catch (const std::exception& e) {
    const ErrorInfo info = DescribeError(e);
    slot->WinsockError = "DataArrival Error (" + std::to_string(info.number) + " - " + info.text + ")";
    WriteSlotLog(Index, "    Error occured: " + slot->WinsockError + ".");
  }
}

void frmComm::SocketConnect(int32_t index) { ctlWinsock_Connect(static_cast<int16_t>(index)); }

void frmComm::SocketDataArrival(int32_t index, int32_t bytes_total) {
  ctlWinsock_DataArrival(static_cast<int16_t>(index), bytes_total);
}

void frmComm::SocketClose(int32_t index) { ctlWinsock_Close(static_cast<int16_t>(index)); }

void frmComm::SocketError(int32_t index, int32_t number, const std::string& description) {
  ctlWinsock_Error(static_cast<int16_t>(index), number, description);
}

}  // namespace halqvantor
