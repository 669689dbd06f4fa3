#include "platform/clock.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace halqvantor::platform {
namespace {

class SystemClock final : public Clock {
 public:
  LocalDateTime Now() override {
    // The local time changes only from one second to the next: within a second the last answer holds, and a
    // request's wait loop asks many times a second.
    thread_local std::time_t last_second = -1;
    thread_local LocalDateTime last;
    const std::time_t t = std::time(nullptr);
    if (t == last_second) return last;
    std::tm tm{};
    localtime_r(&t, &tm);
    LocalDateTime now;
    now.date = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday};
    now.hour = tm.tm_hour;
    now.minute = tm.tm_min;
    now.second = tm.tm_sec;
    last_second = t;
    last = now;
    return now;
  }

  int MillisecondsToNextSecond() override {
    // Local time changes its seconds when the system time does (zones are whole minutes away).
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return 1000 - static_cast<int>(ts.tv_nsec / 1000000);
  }
};

}  // namespace

int64_t Clock::SteadyMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

namespace {

// 30.12.1899, day 0 of automation dates, counted from 1970-01-01.
constexpr int64_t kAutomationEpoch = -25569;

// The calendar repeats every 400 years, which are 146,097 days. Whole cycles are taken off first, so that
// year_month_day works on a date between 1970 and 2369 whatever the date asked for.
constexpr int64_t kYearsPerCycle = 400;
constexpr int64_t kDaysPerCycle = 146097;

int64_t CyclesBelow(int64_t value, int64_t cycle_length) {
  return value / cycle_length - (value % cycle_length < 0 ? 1 : 0);
}

}  // namespace

int32_t Clock::SecondsSinceMidnight() {
  const LocalDateTime now = Now();
  return now.hour * 3600 + now.minute * 60 + now.second;
}

Clock* Clock::Default() {
  static SystemClock clock;
  return &clock;
}

int64_t DaysFromCivil(const CivilDate& date) {
  const int64_t cycles = CyclesBelow(int64_t{date.year} - 1970, kYearsPerCycle);
  const std::chrono::year year(static_cast<int>(date.year - cycles * kYearsPerCycle));
  const std::chrono::sys_days first_of_month = year / std::chrono::month(static_cast<unsigned>(date.month)) / 1;
  // A day past the month's end (or before its first) counts on into the next month (or back).
  return cycles * kDaysPerCycle + first_of_month.time_since_epoch().count() + (date.day - 1);
}

CivilDate CivilFromDays(int64_t days) {
  const int64_t cycles = CyclesBelow(days, kDaysPerCycle);
  const std::chrono::year_month_day ymd{std::chrono::sys_days(std::chrono::days(days - cycles * kDaysPerCycle))};
  return {static_cast<int>(static_cast<int>(ymd.year()) + cycles * kYearsPerCycle),
          static_cast<int>(static_cast<unsigned>(ymd.month())), static_cast<int>(static_cast<unsigned>(ymd.day()))};
}

CivilDate AddDays(const CivilDate& date, int64_t days) { return CivilFromDays(DaysFromCivil(date) + days); }

bool IsValidDate(int year, int month, int day) {
  if (year < 100 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31) return false;
  const std::chrono::year_month_day ymd{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                        std::chrono::day(static_cast<unsigned>(day))};
  return ymd.ok();
}

double ToAutomationDate(const LocalDateTime& value) {
  const double days = static_cast<double>(DaysFromCivil(value.date) - kAutomationEpoch);
  const double fraction = (value.hour * 3600 + value.minute * 60 + value.second) / 86400.0;
  // Before day 0 the fraction counts away from zero, as in automation dates.
  return days < 0 ? days - fraction : days + fraction;
}

LocalDateTime FromAutomationDate(double value) {
  const double whole = std::trunc(value);
  double fraction = std::fabs(value - whole);
  LocalDateTime out;
  out.date = CivilFromDays(static_cast<int64_t>(whole) + kAutomationEpoch);
  auto seconds = static_cast<int64_t>(std::llround(fraction * 86400.0));
  if (seconds >= 86400) seconds = 86399;
  out.hour = static_cast<int>(seconds / 3600);
  out.minute = static_cast<int>(seconds / 60 % 60);
  out.second = static_cast<int>(seconds % 60);
  return out;
}

std::string FormatDate(const CivilDate& date) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02d.%02d.%04d", date.day % 100, date.month % 100, date.year % 10000);
  return buf;
}

std::string FormatTime(int hour, int minute, int second) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", hour % 100, minute % 100, second % 100);
  return buf;
}

}  // namespace halqvantor::platform
