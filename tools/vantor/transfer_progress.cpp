#include "transfer_progress.h"

#include <algorithm>
#include <atomic>

namespace vantor {
namespace {

std::atomic<bool> interrupt_seen{false};

extern "C" void NoteInterrupt(int) { interrupt_seen.store(true); }

}  // namespace

std::string GroupedNumber(int64_t value) {
  const std::string digits = std::to_string(value);
  const size_t sign = value < 0 ? 1 : 0;
  std::string grouped = digits.substr(0, sign);
  for (size_t i = sign; i < digits.size(); ++i) {
    if (i > sign && (digits.size() - i) % 3 == 0) grouped += ',';
    grouped += digits[i];
  }
  return grouped;
}

InterruptCatcher::InterruptCatcher() {
  interrupt_seen.store(false);
  struct sigaction action {};
  action.sa_handler = NoteInterrupt;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &previous_);
}

InterruptCatcher::~InterruptCatcher() { sigaction(SIGINT, &previous_, nullptr); }

bool InterruptCatcher::Interrupted() { return interrupt_seen.load(); }

TransferWatch::TransferWatch(std::ostream& err, bool draw, std::string label)
    : err_(err), draw_(draw), label_(std::move(label)) {}

halqvantor::Progress TransferWatch::Hook() {
  return [this](const halqvantor::ProgressInfo& info) { return Report(info); };
}

bool TransferWatch::Report(const halqvantor::ProgressInfo& info) {
  using Event = halqvantor::ProgressInfo::Event;
  bytes_ = std::max(bytes_, info.bytes);
  if (draw_ && info.event != Event::kWaiting) Draw(info.bytes, info.expected);
  if (InterruptCatcher::Interrupted()) {
    interrupted_ = true;
    return false;
  }
  if (info.event == Event::kClosedEarly) {
    closed_early_ = Closed{info.bytes, info.expected};
    return false;
  }
  return true;
}

void TransferWatch::Draw(int64_t bytes, int64_t expected) {
  constexpr int kWidth = 30;
  const int64_t total = std::max<int64_t>(expected, 0);
  const int64_t done = std::clamp<int64_t>(bytes, 0, total > 0 ? total : bytes);
  const int filled = total > 0 ? static_cast<int>(done * kWidth / total) : 0;
  err_ << '\r' << label_ << " [" << std::string(filled, '#') << std::string(kWidth - filled, ' ') << "] ";
  if (total > 0) err_ << done * 100 / total << "% ";
  err_ << GroupedNumber(bytes);
  if (total > 0) err_ << '/' << GroupedNumber(total);
  err_ << " bytes" << std::flush;
  drawn_ = true;
}

void TransferWatch::Finish() {
  if (drawn_) err_ << '\n' << std::flush;
  drawn_ = false;
}

}  // namespace vantor
