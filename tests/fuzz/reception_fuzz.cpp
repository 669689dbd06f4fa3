// Reception of one slot fed arbitrary packet sequences, without a network.
//
// Input: one flags byte, then packets, each a 16-bit little-endian length and that many bytes (a length
// past the end takes what is left). The length 0xFFFF carries no bytes: it marks a new request on the same
// slot (the next packet is the first after the request again), as a slot sees when its object asks again.
// Flags: bit 0 byte mode (else string mode), bit 1 a small reply limit (bits 2 to 6 plus one, times
// 64 bytes), bit 7 an expected length set by the caller (as the blob transfer does) from the two bytes
// after the flags.
//
// Checked after every packet: neither the byte count nor the text kept grows past the slot's reply limit,
// and a refused reply is recorded and takes nothing more.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/fuzz_check.h"
#include "link/frm_comm.h"
#include "link/socket_events.h"
#include "platform/files.h"

namespace {

using halqvantor::PacketOutcome;
using halqvantor::ReceptionMode;
using halqvantor::SlotState;
using halqvantor::fuzz::Require;
namespace platform = halqvantor::platform;

constexpr uint16_t kNewRequest = 0xFFFF;

// Byte-mode packets go to a file that keeps only its length.
class CountingFileSystem : public platform::EnvWrapper {
 public:
  CountingFileSystem() : EnvWrapper(platform::Env::Default()) {}
  int OpenForBinaryWrite(const std::string&, std::unique_ptr<platform::WritableFile>* file) override {
    struct Counting : platform::WritableFile {
      int Write(std::string_view bytes) override {
        written += bytes.size();
        return 0;
      }
      int Close() override { return 0; }
      size_t written = 0;
    };
    *file = std::make_unique<Counting>();
    return 0;
  }
};

// The UTF-8 length of Windows-1252 text is at most three bytes per received byte.
void CheckSlot(const SlotState& slot) {
  Require(slot.BytesReceived <= slot.MaxReplyBytes);
  Require(slot.Response.size() <= 3 * static_cast<size_t>(slot.MaxReplyBytes) + 3 * 64 * 1024);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static CountingFileSystem file_system;
  if (size == 0) return 0;

  const uint8_t flags = data[0];
  std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  SlotState slot;
  slot.Mode = (flags & 1) != 0 ? ReceptionMode::kByte : ReceptionMode::kString;
  if ((flags & 2) != 0) slot.MaxReplyBytes = (((flags >> 2) & 0x1F) + 1) * 64;
  // A file number that stays open for the input's life, as the blob transfer holds one.
  const int file = platform::FreeFile();
  platform::OpenFileForBinaryWrite(file_system, file, "reception.bin");
  slot.File = static_cast<uint8_t>(file);
  if ((flags & 0x80) != 0 && rest.size() >= 2) {
    slot.BytesToReceive = static_cast<uint8_t>(rest[0]) | (static_cast<uint8_t>(rest[1]) << 8);
    rest.remove_prefix(2);
  }
  slot.AwaitingFirstPacket = true;

  bool refused = false;
  while (rest.size() >= 2) {
    const uint16_t length = static_cast<uint16_t>(static_cast<uint8_t>(rest[0]) | (static_cast<uint8_t>(rest[1]) << 8));
    rest.remove_prefix(2);
    if (length == kNewRequest) {
      // What RunRoundTrip does before it sends.
      slot.ReplyTooLarge = false;
      slot.WinsockError.clear();
      slot.Ready = false;
      slot.AwaitingFirstPacket = true;
      refused = false;
      continue;
    }
    if (refused) continue;  // the connection is gone: nothing more of this reply arrives
    const std::string_view packet = rest.substr(0, length);
    rest.remove_prefix(packet.size());
    const int32_t before = slot.BytesReceived;
    const PacketOutcome outcome = halqvantor::TakePacket(slot, packet, [](std::string_view) {});
    CheckSlot(slot);
    if (outcome == PacketOutcome::kTooLarge) {
      Require(slot.ReplyTooLarge && !slot.WinsockError.empty());
      Require(slot.BytesReceived == before);
      refused = true;
    }
  }
  platform::CloseFile(file);
  return 0;
}
