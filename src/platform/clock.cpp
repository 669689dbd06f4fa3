#include "platform/clock.h"

#include <cmath>
#include <cstdio>
#include <ctime>


namespace halqvantor::platform {
namespace {

class SystemClock final : public Clock {
 public:
  LocalDateTime Now() override {
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    LocalDateTime now;
    now.date = {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday};
    now.hour = tm.tm_hour;
    now.minute = tm.tm_min;
    now.second = tm.tm_sec;
    return now;
  }
};

// 30.12.1899, day 0 of automation dates, counted from 1970-01-01.
constexpr int64_t kAutomationEpoch = -25569;

}  // namespace

int32_t Clock::SecondsSinceMidnight() {
  const LocalDateTime now = Now();
  return now.hour * 3600 + now.minute * 60 + now.second;
}

Clock* Clock::Default() {
  static SystemClock clock;
  return &clock;
}

// Howard Hinnant's days-from-civil algorithm.
int64_t DaysFromCivil(const CivilDate& date) {
  int64_t y = date.year;
  const int64_t m = date.month;
  const int64_t d = date.day;
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

CivilDate CivilFromDays(int64_t z) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t y = yoe + era * 400;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int64_t d = doy - (153 * mp + 2) / 5 + 1;
  const int64_t m = mp + (mp < 10 ? 3 : -9);
  return {static_cast<int>(y + (m <= 2)), static_cast<int>(m), static_cast<int>(d)};
}

CivilDate AddDays(const CivilDate& date, int64_t days) { return CivilFromDays(DaysFromCivil(date) + days); }

bool IsValidDate(int year, int month, int day) {
  if (year < 100 || year > 9999 || month < 1 || month > 12 || day < 1) return false;
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  const int max = month == 2 && leap ? 29 : kDays[month - 1];
  return day <= max;
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
