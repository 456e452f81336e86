// TimePosix.cpp - clock, time zone and date formatting on POSIX systems.
// Part of qvbase, the QVKernel foundation class library.
//
// The FILETIME/SYSTEMTIME conversions are calendar arithmetic (Calendar.h)
// with Windows' range checks; the zone is the C library's (TZ). glibc on i386
// has a 32-bit time_t by default, which ends in 2038: this file asks for the
// 64-bit one, which never crosses the layer's interface.
#if !defined(_TIME_BITS) && defined(__i386__)
#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64
#endif

#include "native/Time.h"

#include "native/Calendar.h"

#include <cstdint>
#include <cstring>
#include <ctime>
#include <sys/time.h>
#include <time.h>

namespace qvbase {
namespace native {

namespace {

constexpr std::int64_t kTicksPerMillisecond = 10000;
constexpr std::int64_t kFileTimeEpochTicks = kFileTimeEpochDays * kTicksPerDay;

std::int64_t TicksOf(const FILETIME& time) {
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) |
                                   time.dwLowDateTime);
}

FILETIME FileTimeOf(std::int64_t ticks) {
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(ticks));
  time.dwHighDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(ticks) >> 32);
  return time;
}

// Seconds since 1970 of a tick count since 1601, rounded down.
time_t UnixSecondsOf(std::int64_t fileTicks) {
  return static_cast<time_t>(FloorDiv(fileTicks - kFileTimeEpochTicks, kTicksPerSecond));
}

// The zone's offset from universal time, in seconds, at a universal instant.
bool OffsetAt(time_t seconds, long* offset) {
  struct tm fields;
  if (!localtime_r(&seconds, &fields))
    return false;
  *offset = fields.tm_gmtoff;
  return true;
}

struct tm FieldsOf(const SYSTEMTIME& time) {
  struct tm fields;
  std::memset(&fields, 0, sizeof fields);
  fields.tm_year = time.wYear - 1900;
  fields.tm_mon = time.wMonth - 1;
  fields.tm_mday = time.wDay;
  fields.tm_hour = time.wHour;
  fields.tm_min = time.wMinute;
  fields.tm_sec = time.wSecond;
  fields.tm_wday = time.wDayOfWeek;
  fields.tm_yday = static_cast<int>(DaysFromCivil(time.wYear, time.wMonth, time.wDay) -
                                    DaysFromCivil(time.wYear, 1, 1));
  fields.tm_isdst = -1;
  return fields;
}

std::string Strftime(const SYSTEMTIME& time, const char* format) {
  if (time.wMonth < 1 || time.wMonth > 12 || time.wDayOfWeek > 6)
    return std::string();
  struct tm fields = FieldsOf(time);
  char buffer[256];
  std::size_t length = std::strftime(buffer, sizeof buffer, format, &fields);
  return std::string(buffer, length);
}

void SystemTimeFromUnix(const struct timespec& now, bool local, SYSTEMTIME* out) {
  long offset = 0;
  if (local)
    OffsetAt(now.tv_sec, &offset);
  std::int64_t ticks = (static_cast<std::int64_t>(now.tv_sec) + offset) * kTicksPerSecond +
                       now.tv_nsec / 100 + kFileTimeEpochTicks;
  FileTimeToSystemTime(FileTimeOf(ticks), out);
}

} // namespace

void CurrentUniversalTime(SYSTEMTIME* out) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  SystemTimeFromUnix(now, /*local=*/false, out);
}

void CurrentLocalTime(SYSTEMTIME* out) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  SystemTimeFromUnix(now, /*local=*/true, out);
}

bool FileTimeToSystemTime(const FILETIME& in, SYSTEMTIME* out) {
  const std::int64_t ticks = TicksOf(in);
  if (ticks < 0)
    return false;
  const std::int64_t days = ticks / kTicksPerDay;
  const std::int64_t within = ticks % kTicksPerDay;
  const CivilDate date = CivilFromDays(days - kFileTimeEpochDays);
  out->wYear = static_cast<WORD>(date.year);
  out->wMonth = static_cast<WORD>(date.month);
  out->wDay = static_cast<WORD>(date.day);
  out->wDayOfWeek = static_cast<WORD>(WeekdayFromDays(days - kFileTimeEpochDays));
  const std::int64_t seconds = within / kTicksPerSecond;
  out->wHour = static_cast<WORD>(seconds / 3600);
  out->wMinute = static_cast<WORD>(seconds / 60 % 60);
  out->wSecond = static_cast<WORD>(seconds % 60);
  out->wMilliseconds = static_cast<WORD>(within % kTicksPerSecond / kTicksPerMillisecond);
  return true;
}

bool SystemTimeToFileTime(const SYSTEMTIME& in, FILETIME* out) {
  if (!IsConvertibleSystemTime(in.wYear, in.wMonth, in.wDay, in.wHour, in.wMinute, in.wSecond,
                               in.wMilliseconds))
    return false;
  const std::int64_t days = DaysFromCivil(in.wYear, in.wMonth, in.wDay) + kFileTimeEpochDays;
  const std::int64_t seconds = days * kSecondsPerDay + std::int64_t{in.wHour} * 3600 +
                               std::int64_t{in.wMinute} * 60 + in.wSecond;
  *out = FileTimeOf(seconds * kTicksPerSecond + in.wMilliseconds * kTicksPerMillisecond);
  return true;
}

bool UniversalToLocalFileTime(const FILETIME& universal, FILETIME* local) {
  const std::int64_t ticks = TicksOf(universal);
  long offset = 0;
  if (ticks < 0 || !OffsetAt(UnixSecondsOf(ticks), &offset))
    return false;
  const std::int64_t result = ticks + static_cast<std::int64_t>(offset) * kTicksPerSecond;
  if (result < 0)
    return false;
  *local = FileTimeOf(result);
  return true;
}

bool LocalToUniversalFileTime(const FILETIME& local, FILETIME* universal) {
  const std::int64_t ticks = TicksOf(local);
  long guess = 0, offset = 0;
  if (ticks < 0 || !OffsetAt(UnixSecondsOf(ticks), &guess))
    return false;
  const std::int64_t first = ticks - static_cast<std::int64_t>(guess) * kTicksPerSecond;
  if (!OffsetAt(UnixSecondsOf(first), &offset))
    return false;
  const std::int64_t result = ticks - static_cast<std::int64_t>(offset) * kTicksPerSecond;
  if (result < 0)
    return false;
  *universal = FileTimeOf(result);
  return true;
}

bool DaylightSavingAt(__int64 seconds, bool* inEffect) {
  const time_t value = static_cast<time_t>(seconds);
  if (static_cast<__int64>(value) != seconds)
    return false;
  struct tm fields;
  if (!localtime_r(&value, &fields))
    return false;
  *inEffect = fields.tm_isdst > 0;
  return true;
}

void ReloadTimeZone() { tzset(); }

std::string FormatShortDate(const SYSTEMTIME& time) { return Strftime(time, "%x"); }

std::string FormatLongDate(const SYSTEMTIME& time) { return Strftime(time, "%A %d %B %Y"); }

std::string FormatTimeOfDay(const SYSTEMTIME& time) { return Strftime(time, "%X"); }

std::string FormatDateElement(const SYSTEMTIME& time, const char* picture) {
  static const struct {
    const char* picture;
    const char* format;
  } kElements[] = {{"MMM", "%b"}, {"MMMM", "%B"}, {"ddd", "%a"}, {"dddd", "%A"}, {"tt", "%p"}};
  if (!picture)
    return std::string();
  for (const auto& element : kElements)
    if (std::strcmp(picture, element.picture) == 0)
      return Strftime(time, element.format);
  if (std::strcmp(picture, "t") == 0)
    return Strftime(time, "%p").substr(0, 1);
  return std::string();
}

} // namespace native
} // namespace qvbase
