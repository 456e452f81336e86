// TimeWin32.cpp - clock, time zone and date formatting on Windows.
// Part of qvbase, the QVKernel foundation class library.
//
// The system's own functions throughout, with the SYSTEMTIME fields checked
// first (Calendar.h says why). The local conversions go through
// SYSTEMTIME with the zone rules of the instant (see Time.h for why not
// FileTimeToLocalFileTime).
#include "native/Time.h"

#include "native/Calendar.h"

#include <qvbase/QVCompat.h>

#include <cstring>
#include <ctime>
#include <stdlib.h>
#include <time.h>

namespace qvbase {
namespace native {

namespace {

std::string FormatWith(int (*format)(LCID, DWORD, const SYSTEMTIME*, LPCSTR, LPSTR, int),
                       const SYSTEMTIME& time, DWORD flags, const char* picture) {
  char buffer[256];
  int length = format(LOCALE_USER_DEFAULT, flags, &time, picture, buffer, sizeof buffer);
  if (length <= 0)
    return std::string();
  return std::string(buffer, static_cast<std::size_t>(length - 1));
}

int DateFormat(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR picture, LPSTR out,
               int size) {
  return GetDateFormatA(locale, flags, time, picture, out, size);
}

int TimeFormat(LCID locale, DWORD flags, const SYSTEMTIME* time, LPCSTR picture, LPSTR out,
               int size) {
  return GetTimeFormatA(locale, flags, time, picture, out, size);
}

} // namespace

void CurrentUniversalTime(SYSTEMTIME* out) { ::GetSystemTime(out); }

void CurrentLocalTime(SYSTEMTIME* out) { ::GetLocalTime(out); }

bool FileTimeToSystemTime(const FILETIME& in, SYSTEMTIME* out) {
  return ::FileTimeToSystemTime(&in, out) != FALSE;
}

bool SystemTimeToFileTime(const SYSTEMTIME& in, FILETIME* out) {
  return IsConvertibleSystemTime(in.wYear, in.wMonth, in.wDay, in.wHour, in.wMinute, in.wSecond,
                                 in.wMilliseconds) &&
         ::SystemTimeToFileTime(&in, out) != FALSE;
}

bool UniversalToLocalFileTime(const FILETIME& universal, FILETIME* local) {
  SYSTEMTIME universalFields, localFields;
  return ::FileTimeToSystemTime(&universal, &universalFields) &&
         ::SystemTimeToTzSpecificLocalTime(nullptr, &universalFields, &localFields) &&
         ::SystemTimeToFileTime(&localFields, local);
}

bool LocalToUniversalFileTime(const FILETIME& local, FILETIME* universal) {
  SYSTEMTIME localFields, universalFields;
  return ::FileTimeToSystemTime(&local, &localFields) &&
         ::TzSpecificLocalTimeToSystemTime(nullptr, &localFields, &universalFields) &&
         ::SystemTimeToFileTime(&universalFields, universal);
}

bool DaylightSavingAt(__int64 seconds, bool* inEffect) {
  __time64_t value = seconds;
  struct tm fields;
  if (_localtime64_s(&fields, &value) != 0)
    return false;
  *inEffect = fields.tm_isdst > 0;
  return true;
}

void ReloadTimeZone() { _tzset(); }

std::string FormatShortDate(const SYSTEMTIME& time) {
  return FormatWith(DateFormat, time, DATE_SHORTDATE, nullptr);
}

std::string FormatLongDate(const SYSTEMTIME& time) {
  return FormatWith(DateFormat, time, DATE_LONGDATE, nullptr);
}

std::string FormatTimeOfDay(const SYSTEMTIME& time) {
  return FormatWith(TimeFormat, time, 0, nullptr);
}

std::string FormatDateElement(const SYSTEMTIME& time, const char* picture) {
  static const char* const kDatePictures[] = {"MMM", "MMMM", "ddd", "dddd", "gg"};
  static const char* const kTimePictures[] = {"t", "tt"};
  if (!picture)
    return std::string();
  for (const char* date : kDatePictures)
    if (std::strcmp(picture, date) == 0)
      return FormatWith(DateFormat, time, 0, picture);
  for (const char* timePicture : kTimePictures)
    if (std::strcmp(picture, timePicture) == 0)
      return FormatWith(TimeFormat, time, 0, picture);
  return std::string();
}

} // namespace native
} // namespace qvbase
