#include "support/fake_clock.h"

namespace halqvantor::testing {

FakeClock::FakeClock(platform::LocalDateTime start, platform::Env* base) : EnvWrapper(base), now_(start) {}

platform::LocalDateTime FakeClock::Now() {
  ++reads_;
  if (on_read) on_read(*this);
  return now_;
}

int64_t FakeClock::SteadyMilliseconds() {
  if (on_read) on_read(*this);
  return ms_;
}

void FakeClock::AdvanceSeconds(int64_t seconds) {
  ms_ += seconds * 1000;
  const int64_t total = now_.hour * 3600 + now_.minute * 60 + now_.second + seconds;
  now_.date = platform::AddDays(now_.date, total / 86400);
  now_.hour = static_cast<int>(total / 3600 % 24);
  now_.minute = static_cast<int>(total / 60 % 60);
  now_.second = static_cast<int>(total % 60);
}

}  // namespace halqvantor::testing
