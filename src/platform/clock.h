#pragma once

// The clock of the component: time of day for the request time-outs, today's date for date tokens, and the
// time stamp of the debug log. Everything reads the clock of its object's environment (platform/env.h);
// tests give objects a fake one so that no test waits for real time.

#include <cstdint>
#include <string>

namespace halqvantor::platform {

struct CivilDate {
  int year = 1899;
  int month = 12;
  int day = 30;
  bool operator==(const CivilDate&) const = default;
};

struct LocalDateTime {
  CivilDate date;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

class Clock {
 public:
  virtual ~Clock() = default;
  // The local date and time of day, in whole seconds.
  virtual LocalDateTime Now() = 0;

  // Milliseconds until the seconds of Now() change: how long a wait that looks at the clock each second may
  // sleep. 0 for a clock that moves only when told (a test's), so that its waits never sleep.
  virtual int MillisecondsToNextSecond() { return 0; }

  // Seconds since midnight of Now(): the time measure of every wait.
  int32_t SecondsSinceMidnight();
  CivilDate Today() { return Now().date; }

  // The system's local time.
  static Clock* Default();
};

// Calendar arithmetic (proleptic Gregorian). DaysFromCivil takes a month 1 .. 12; a day outside the month
// counts on from its first day.
int64_t DaysFromCivil(const CivilDate& date);  // days since 1970-01-01
CivilDate CivilFromDays(int64_t days);
CivilDate AddDays(const CivilDate& date, int64_t days);
bool IsValidDate(int year, int month, int day);

// Automation dates: days since 30.12.1899, the fraction being the time of day.
double ToAutomationDate(const LocalDateTime& value);
LocalDateTime FromAutomationDate(double value);

// "DD.MM.YYYY" and "hh:mm:ss", the forms of the German regional settings.
std::string FormatDate(const CivilDate& date);
std::string FormatTime(int hour, int minute, int second);

}  // namespace halqvantor::platform
