#include "link/frm_comm.h"

#include "link/debug_log.h"
#include "platform/vb_runtime.h"

namespace halqvantor {

std::string_view ToText(ReceptionMode mode) {
  switch (mode) {
    case ReceptionMode::kString:
      return "STRING";
    case ReceptionMode::kByte:
      return "BYTE";
    case ReceptionMode::kNone:
      break;
  }
  return "";
}

frmComm& frmComm::ForThisThread() {
  thread_local frmComm form;
  return form;
}

frmComm::frmComm() {
  // Socket 0 and list 0: present from the start, never handed out.
  slots_.emplace_back();
  LoadElement();
}

void frmComm::LoadElement() {
  sockets_.push_back(std::make_unique<platform::Socket>());
  sockets_.back()->SetEventSink(this, static_cast<int32_t>(sockets_.size() - 1));
  lists_.emplace_back();
}

int32_t frmComm::GetFreeWinsockInstance() {
  int32_t slot = 0;
  for (int32_t i = 1; i <= slot_count_; ++i) {
    if (!slots_[static_cast<size_t>(i)].Busy) {
      slot = i;
      break;
    }
  }
  if (slot == 0) {
    if (slot_count_ == INT16_MAX) vb::Raise(ErrorNumber::kOverflow);  // event handlers take a 16-bit index
    ++slot_count_;
    LoadElement();
    slots_.emplace_back();
    slot = slot_count_;
  }
  slots_[static_cast<size_t>(slot)].Busy = true;
  return slot;
}

const SlotState& frmComm::Record(int32_t slot) const {
  if (slot < 1 || slot > slot_count_) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  return slots_[static_cast<size_t>(slot)];
}

SlotState& frmComm::Record(int32_t slot) {
  return const_cast<SlotState&>(static_cast<const frmComm&>(*this).Record(slot));
}

SlotState& frmComm::State(int32_t slot) { return Record(slot); }

void frmComm::SetBusy(int32_t slot, bool value) { Record(slot).Busy = value; }
void frmComm::SetMode(int32_t slot, ReceptionMode value) { Record(slot).Mode = value; }
void frmComm::SetReady(int32_t slot, bool value) { Record(slot).Ready = value; }
void frmComm::SetResponse(int32_t slot, std::string value) { Record(slot).Response = std::move(value); }
void frmComm::SetWinsockError(int32_t slot, std::string value) { Record(slot).WinsockError = std::move(value); }
void frmComm::SetBytesToReceive(int32_t slot, int32_t value) { Record(slot).BytesToReceive = value; }
void frmComm::SetBytesReceived(int32_t slot, int32_t value) { Record(slot).BytesReceived = value; }
void frmComm::SetFile(int32_t slot, uint8_t value) { Record(slot).File = value; }
void frmComm::SetDebugLogPath(int32_t slot, std::string value) { Record(slot).DebugLogPath = std::move(value); }
void frmComm::SetSessionID(int32_t slot, std::string value) { Record(slot).SessionID = std::move(value); }

bool frmComm::GetBusy(int32_t slot) const { return Record(slot).Busy; }
ReceptionMode frmComm::GetMode(int32_t slot) const { return Record(slot).Mode; }
bool frmComm::GetReady(int32_t slot) const { return Record(slot).Ready; }
const std::string& frmComm::GetResponse(int32_t slot) const { return Record(slot).Response; }
const std::string& frmComm::GetWinsockError(int32_t slot) const { return Record(slot).WinsockError; }
int32_t frmComm::GetBytesToReceive(int32_t slot) const { return Record(slot).BytesToReceive; }
int32_t frmComm::GetBytesReceived(int32_t slot) const { return Record(slot).BytesReceived; }
uint8_t frmComm::GetFile(int32_t slot) const { return Record(slot).File; }
const std::string& frmComm::GetDebugLogPath(int32_t slot) const { return Record(slot).DebugLogPath; }
const std::string& frmComm::GetSessionID(int32_t slot) const { return Record(slot).SessionID; }

platform::Socket& frmComm::ctlWinsock(int32_t slot) {
  if (slot < 0 || slot > slot_count_) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  return *sockets_[static_cast<size_t>(slot)];
}

platform::SortedList& frmComm::lstSort(int32_t slot) {
  if (slot < 0 || slot > slot_count_) vb::Raise(ErrorNumber::kSubscriptOutOfRange);
  return lists_[static_cast<size_t>(slot)];
}

bool frmComm::LogsSlot(int32_t slot) const {
  if (slot < 1 || slot > slot_count_) return false;
  const SlotState& s = slots_[static_cast<size_t>(slot)];
  return !LogFilePath(s.DebugLogPath, s.SessionID).empty();
}

void frmComm::WriteSlotLog(int32_t slot, std::string_view text) const {
  if (slot < 1 || slot > slot_count_) return;
  const SlotState& s = slots_[static_cast<size_t>(slot)];
  WriteLogLine(*s.Environment, s.DebugLogPath, s.SessionID, text);
}

}  // namespace halqvantor
