// Time.h - the platform layer's clock, time zone and date formatting.
// Part of qvbase, the QVKernel foundation class library.
//
// The date classes hold instants as 100-ns ticks and need five things of the
// operating system: the current universal and local time, the FILETIME <->
// SYSTEMTIME conversions, the conversion between universal and local time in
// the machine's time zone, whether daylight saving time is in effect, and
// texts for dates in the user's locale.
//
// - FILETIME is 100-ns ticks since 1601-01-01 00:00:00, SYSTEMTIME its
//   broken-down fields (wDayOfWeek 0 = Sunday), both in the proleptic
//   Gregorian calendar. On Windows the conversions are the system's own
//   functions. On POSIX they are the same arithmetic (Calendar.h) with the
//   same checks: a file time with its top bit set fails; a system time fails
//   unless 1601 <= year <= 30827, month 1-12, day within the month, hour < 24,
//   minute < 60, second < 60 and milliseconds < 1000 (the day of the week is
//   ignored). Windows checks the same; the layer checks them itself before
//   calling it, because Wine's function is more lenient.
// - Universal <-> local uses the offset that the zone has AT THE INSTANT
//   converted (a summer date gets its summer offset even in winter). On
//   Windows this is SystemTimeToTzSpecificLocalTime and
//   TzSpecificLocalTimeToSystemTime with the machine's zone, not
//   FileTimeToLocalFileTime, which would apply the offset in force now; so
//   that both platforms agree. On POSIX it is localtime_r with the zone the
//   TZ variable (or the system) names; local to universal takes the offset
//   at the local reading read as universal time, then the offset at the
//   result: in the hour that is repeated when clocks go back this gives the
//   later (standard-time) instant, and a reading in the hour skipped when
//   clocks go forward is moved forward by the skip. Windows' choices in those
//   two hours are its own.
// - Formatting: Windows GetDateFormatA/GetTimeFormatA for the user's default
//   locale; POSIX strftime in the C runtime's LC_TIME locale ("%x" short date,
//   "%A %d %B %Y" long date, "%X" time, "%b %B %a %A %p" for names). The texts
//   differ between platforms and locales; callers show them, never parse them.
//
// Everything reads process-wide state (the clock, TZ, the C locale) and keeps
// none of its own; changing TZ or the locale while another thread converts is
// the caller's race, as with the C runtime itself.
#pragma once

#include <qvbase/QVCompat.h>

#include <string>

namespace qvbase {
namespace native {

// The current time, universal and local, to the millisecond.
void CurrentUniversalTime(SYSTEMTIME* out);
void CurrentLocalTime(SYSTEMTIME* out);

// false (and `out` unspecified) when the input is out of range; see above.
bool FileTimeToSystemTime(const FILETIME& in, SYSTEMTIME* out);
bool SystemTimeToFileTime(const SYSTEMTIME& in, FILETIME* out);

// Universal <-> local file times in the machine's zone; false when the
// instant is outside what the platform converts.
bool UniversalToLocalFileTime(const FILETIME& universal, FILETIME* local);
bool LocalToUniversalFileTime(const FILETIME& local, FILETIME* universal);

// Whether the C runtime's localtime reports daylight saving time for
// `seconds` since 1970-01-01 00:00:00 UTC; false when it cannot break the
// time down.
bool DaylightSavingAt(__int64 seconds, bool* inEffect);

// Rereads the zone from TZ (tzset); after a change of TZ.
void ReloadTimeZone();

// The user's short date, long date or time of day for the given fields; empty
// when the fields cannot be formatted.
std::string FormatShortDate(const SYSTEMTIME& time);
std::string FormatLongDate(const SYSTEMTIME& time);
std::string FormatTimeOfDay(const SYSTEMTIME& time);

// One locale-dependent element, named by its Windows picture: "MMM" and
// "MMMM" (month name abbreviated and full), "ddd" and "dddd" (day name),
// "gg" (era; empty on POSIX, whose C runtime has none), "t" and "tt" (first
// character and whole AM/PM designator). Empty for any other picture.
std::string FormatDateElement(const SYSTEMTIME& time, const char* picture);

} // namespace native
} // namespace qvbase
