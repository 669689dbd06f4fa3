#pragma once

// Progress reports of one long operation to the hook of its object (ObjectOptions::progress), paced so that
// a hook costs next to nothing however fast the bytes move: a call when more bytes moved, at most every
// kMovedEveryMs or after each further kMovedEveryBytes; a kWaiting call when nothing moved for kWaitingEveryMs;
// a kClosedEarly call once per connection that the gateway closed too soon; and kDone at the end. Without a
// hook the meter is idle and reads neither the clock nor the bytes.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "halqvantor/Extensions.h"
#include "platform/clock.h"

namespace halqvantor {

// Where an operation stands, as its meter reads it.
struct ProgressReading {
  int64_t bytes = 0;
  int64_t expected = -1;
  bool closed_early = false;  // the gateway closed the connection before the expected bytes were in
};

// The status and the debug-log line of an operation its hook cancelled.
inline constexpr std::string_view kCancelledStatus = "Cancelled by the caller.";
inline constexpr std::string_view kCancelledLogLine = "Abbruch durch den Aufrufer.";

class ProgressMeter {
 public:
  static constexpr int64_t kMovedEveryMs = 100;
  static constexpr int64_t kMovedEveryBytes = int64_t{1} << 20;
  static constexpr int64_t kWaitingEveryMs = 1000;

  // Starts the reports of `operation`, read through `read`; idle when `hook` is empty. A meter already
  // running (an operation inside another) goes on as it is, and Start returns false.
  bool Start(const Progress& hook, std::string_view operation, platform::Clock& clock,
             std::function<ProgressReading()> read);
  // Ends the reports without a kDone call.
  void Stop();
  // Stop, and forgets a cancel: the meter is ready for the next operation.
  void Reset() {
    Stop();
    cancelled_ = false;
  }
  bool active() const { return static_cast<bool>(hook_); }

  // A new connection of the operation: its early close may be told again.
  void NewConnection() { closed_told_ = false; }
  // One look while the operation waits or works: the hook is called when a call is due. False once the hook
  // asked to stop (and from then on, without further calls).
  bool Look();
  // The last call, kDone, with the reading as it stands; its answer is not read. Then Stop.
  void Done();
  bool cancelled() const { return cancelled_; }

 private:
  bool Call(ProgressInfo::Event event, const ProgressReading& reading);

  Progress hook_;  // a copy: the hook may change the object's options while it runs
  std::string operation_;
  platform::Clock* clock_ = nullptr;
  std::function<ProgressReading()> read_;
  int64_t last_bytes_ = 0;
  int64_t last_ms_ = 0;
  bool closed_told_ = false;
  bool cancelled_ = false;
};

// Runs a meter for one scope: Start on entry, Stop on the way out unless Done came first. A scope whose
// Start found the meter running leaves it alone.
class ProgressScope {
 public:
  ProgressScope(ProgressMeter& meter, const Progress& hook, std::string_view operation, platform::Clock& clock,
                std::function<ProgressReading()> read)
      : meter_(meter), owns_(meter.Start(hook, operation, clock, std::move(read))) {}
  ~ProgressScope() {
    if (owns_) meter_.Reset();
  }
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;
  void Done() {
    if (owns_) meter_.Done();
  }

 private:
  ProgressMeter& meter_;
  bool owns_;
};

}  // namespace halqvantor
