#pragma once

#include <functional>

#include "platform/clock.h"

namespace halqvantor::testing {

// A clock that stands still until told to move. Installed for the lifetime of the object. `on_read`, when
// set, runs before every reading, so a test can let time pass while the code under test waits.
class FakeClock : public platform::Clock {
 public:
  explicit FakeClock(platform::LocalDateTime start = {{2002, 11, 15}, 14, 3, 7});
  ~FakeClock() override;

  platform::LocalDateTime Now() override;
  void Set(const platform::LocalDateTime& now) { now_ = now; }
  void AdvanceSeconds(int64_t seconds);
  int reads() const { return reads_; }

  std::function<void(FakeClock&)> on_read;

 private:
  platform::LocalDateTime now_;
  platform::Clock* previous_;
  int reads_ = 0;
};

}  // namespace halqvantor::testing
