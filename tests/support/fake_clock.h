#pragma once

#include <functional>

#include "platform/env.h"

namespace halqvantor::testing {

// An environment whose clock stands still until told to move; everything else goes to `base`. Objects use
// it once given it (SetEnvironment). `on_read`, when set, runs before every reading, so a test can let time
// pass while the code under test waits.
class FakeClock : public platform::EnvWrapper {
 public:
  explicit FakeClock(platform::LocalDateTime start = {{2002, 11, 15}, 14, 3, 7},
                     platform::Env* base = platform::Env::Default());

  platform::LocalDateTime Now() override;
  int MillisecondsToNextSecond() override { return 0; }  // its time moves only when told
  // Stands still too, unless moved by AdvanceMs or AdvanceSeconds; on_read runs before it as well.
  int64_t SteadyMilliseconds() override;
  void AdvanceMs(int64_t ms) { ms_ += ms; }
  void Set(const platform::LocalDateTime& now) { now_ = now; }
  void AdvanceSeconds(int64_t seconds);  // forward only
  int reads() const { return reads_; }

  std::function<void(FakeClock&)> on_read;

 private:
  platform::LocalDateTime now_;
  int reads_ = 0;
  int64_t ms_ = 0;
};

}  // namespace halqvantor::testing
