// Calendar.h - proleptic Gregorian calendar arithmetic shared by the platform
// layer and the date classes.
// Part of qvbase, the QVKernel foundation class library.
//
// Pure integer arithmetic, no operating system and no time zone: day numbers
// counted from 1970-01-01 (negative before it) and the civil date of a day
// number, in the proleptic Gregorian calendar (every year divisible by 4 is a
// leap year except centuries not divisible by 400) for every year a 64-bit
// tick count can reach. Windows' FILETIME/SYSTEMTIME conversions and the C
// runtime's gmtime use the same calendar, so the three agree everywhere.
#pragma once

#include <cstdint>

namespace qvbase {
namespace native {

constexpr std::int64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kTicksPerDay = kTicksPerSecond * kSecondsPerDay;
// Days from 1601-01-01 (the FILETIME epoch) to 1970-01-01.
constexpr std::int64_t kFileTimeEpochDays = 134774;

struct CivilDate {
  std::int64_t year;
  unsigned month; // 1-12
  unsigned day;   // 1-31
};

inline bool IsGregorianLeapYear(std::int64_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

inline unsigned DaysInMonth(std::int64_t year, unsigned month) {
  static const unsigned kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month == 2 && IsGregorianLeapYear(year))
    return 29;
  return month >= 1 && month <= 12 ? kDays[month - 1] : 0;
}

// The field checks of Windows' SystemTimeToFileTime: 1601 <= year <= 30827,
// a day that exists in its month, hour < 24, minute < 60, second < 60 and
// milliseconds < 1000. Wine's own function lets a February 29th of a common
// year and the year 30828 through; both platform files check here first so
// that every platform refuses the same fields.
inline bool IsConvertibleSystemTime(unsigned year, unsigned month, unsigned day, unsigned hour,
                                    unsigned minute, unsigned second, unsigned milliseconds) {
  return year >= 1601 && year <= 30827 && month >= 1 && month <= 12 && day >= 1 &&
         day <= DaysInMonth(year, month) && hour < 24 && minute < 60 && second < 60 &&
         milliseconds < 1000;
}

// Floor division, for day numbers and seconds before 1970.
inline std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  std::int64_t q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// Day number of a civil date (1970-01-01 is 0). Counts in 400-year eras of
// 146097 days, with the year starting in March so that the leap day is last.
inline std::int64_t DaysFromCivil(std::int64_t year, unsigned month, unsigned day) {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = FloorDiv(year, 400);
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t monthFromMarch = month > 2 ? month - 3 : month + 9;
  const std::int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

inline CivilDate CivilFromDays(std::int64_t days) {
  days += 719468;
  const std::int64_t era = FloorDiv(days, 146097);
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  CivilDate date;
  date.day = static_cast<unsigned>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
  date.month = static_cast<unsigned>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
  date.year = yearOfEra + era * 400 + (date.month <= 2 ? 1 : 0);
  return date;
}

// 0 for Sunday to 6 for Saturday; 1970-01-01 was a Thursday.
inline unsigned WeekdayFromDays(std::int64_t days) {
  return static_cast<unsigned>(FloorDiv(days + 4, 7) * -7 + days + 4);
}

} // namespace native
} // namespace qvbase
