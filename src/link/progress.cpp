#include "link/progress.h"

#include <exception>
#include <utility>

namespace halqvantor {

bool ProgressMeter::Start(const Progress& hook, std::string_view operation, platform::Clock& clock,
                          std::function<ProgressReading()> read) {
  if (active()) return false;
  cancelled_ = false;
  if (!hook) return true;
  hook_ = hook;
  operation_ = operation;
  clock_ = &clock;
  read_ = std::move(read);
  last_bytes_ = 0;
  last_ms_ = clock.SteadyMilliseconds();
  closed_told_ = false;
  return true;
}

void ProgressMeter::Stop() {
  hook_ = nullptr;
  read_ = nullptr;
}

bool ProgressMeter::Call(ProgressInfo::Event event, const ProgressReading& reading) {
  ProgressInfo info;
  info.operation = operation_;
  info.bytes = reading.bytes;
  info.expected = reading.expected;
  info.event = event;
  bool go_on = false;
  try {
    go_on = hook_(info);
  } catch (...) {
    // A hook that fails cannot have meant to go on.
    go_on = false;
  }
  if (!go_on && event != ProgressInfo::Event::kDone) {
    cancelled_ = true;
    Stop();
  }
  return go_on;
}

bool ProgressMeter::Look() {
  if (cancelled_) return false;
  if (!active()) return true;
  const ProgressReading reading = read_();
  if (reading.closed_early && !closed_told_) {
    closed_told_ = true;
    if (!Call(ProgressInfo::Event::kClosedEarly, reading)) return false;
  }
  const int64_t now = clock_->SteadyMilliseconds();
  if (reading.bytes > last_bytes_) {
    if (reading.bytes - last_bytes_ < kMovedEveryBytes && now - last_ms_ < kMovedEveryMs) return true;
    last_bytes_ = reading.bytes;
    last_ms_ = now;
    return Call(ProgressInfo::Event::kMoved, reading);
  }
  if (now - last_ms_ < kWaitingEveryMs) return true;
  last_ms_ = now;
  return Call(ProgressInfo::Event::kWaiting, {last_bytes_, reading.expected, reading.closed_early});
}

void ProgressMeter::Done() {
  if (!active()) return;
  Call(ProgressInfo::Event::kDone, read_());
  Stop();
}

}  // namespace halqvantor
