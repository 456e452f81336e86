// WINDate.cpp - dates backed by the Windows FILETIME and SYSTEMTIME structures.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/WINDate.h>

#include <qvbase/PASCIIString.h>
#include "errors/RaiseError.h"
#include "native/Time.h"

#include <cstdint>
#include <string>

const __int64 gFileTimeEpochOffset = 116444736000000000LL;

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\WINDate";

// value + offset and back, wrapping as unsigned 64-bit numbers do.
FILETIME FileTimeOf(const PTime& value) {
  const std::uint64_t ticks = static_cast<std::uint64_t>(value.GetValue()) +
                              static_cast<std::uint64_t>(gFileTimeEpochOffset);
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(ticks);
  time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
  return time;
}

PTime ValueOf(DWORD low, DWORD high) {
  const std::uint64_t ticks = (static_cast<std::uint64_t>(high) << 32) | low;
  return PTime(static_cast<__int64>(ticks - static_cast<std::uint64_t>(gFileTimeEpochOffset)));
}

PTime ValueOf(const FILETIME& time) { return ValueOf(time.dwLowDateTime, time.dwHighDateTime); }

WINFILETIME Alias(const FILETIME& time) {
  WINFILETIME alias;
  alias.dwLowDateTime = time.dwLowDateTime;
  alias.dwHighDateTime = time.dwHighDateTime;
  return alias;
}

// The file time of calendar fields, or the unset time after a refusal that
// a protection let return.
PTime ValueOfFields(const SYSTEMTIME& fields) {
  FILETIME time;
  if (!qvbase::native::SystemTimeToFileTime(fields, &time)) {
    qvbase::errors::Raise(kErrDateConversion, ErrorSeverityAbort, kSourceFile, __LINE__);
    return PTime();
  }
  return ValueOf(time);
}

SYSTEMTIME FieldsOf(const FILETIME& time) {
  SYSTEMTIME fields = {};
  if (!qvbase::native::FileTimeToSystemTime(time, &fields)) {
    fields = SYSTEMTIME();
    qvbase::errors::Raise(kErrDateConversion, ErrorSeverityAbort, kSourceFile, __LINE__);
  }
  return fields;
}

PTime UniversalOfLocal(const WINLocalDate& local) {
  if (!local.IsValid())
    return PTime();
  FILETIME universal;
  if (!qvbase::native::LocalToUniversalFileTime(static_cast<FILETIME>(local), &universal)) {
    qvbase::errors::Raise(kErrDateConversion, ErrorSeverityAbort, kSourceFile, __LINE__);
    return PTime();
  }
  return ValueOf(universal);
}

PTime LocalOfUniversal(const WINUTDate& universal) {
  if (!universal.IsValid())
    return PTime();
  FILETIME local;
  if (!qvbase::native::UniversalToLocalFileTime(static_cast<FILETIME>(universal), &local)) {
    qvbase::errors::Raise(kErrDateConversion, ErrorSeverityAbort, kSourceFile, __LINE__);
    return PTime();
  }
  return ValueOf(local);
}

SYSTEMTIME FieldsOf(unsigned short year, unsigned short month, unsigned short day,
                    unsigned short hour, unsigned short minute, unsigned short second,
                    unsigned short milliseconds) {
  SYSTEMTIME fields = {};
  fields.wYear = year;
  fields.wMonth = month;
  fields.wDay = day;
  fields.wHour = hour;
  fields.wMinute = minute;
  fields.wSecond = second;
  fields.wMilliseconds = milliseconds;
  return fields;
}

PMBString Text(const std::string& text) { return PMBString(text.c_str(), /*copy=*/true); }

} // namespace

// ---------------------------------------------------------------------------
// WINUTDate

WINUTDate::WINUTDate() : m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::WINUTDate(LONG seconds) : PUTDate(seconds), m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::WINUTDate(const PTime& value) : PUTDate(value), m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::WINUTDate(const WINUTDate& other) : PUTDate(other), m_fileTime(other.m_fileTime) {}

WINUTDate::WINUTDate(const PUTDate& other) : PUTDate(other), m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::WINUTDate(const FILETIME& fileTime) : PUTDate(ValueOf(fileTime)), m_fileTime(fileTime) {}

WINUTDate::WINUTDate(const WINFILETIME& fileTime)
    : PUTDate(ValueOf(fileTime.dwLowDateTime, fileTime.dwHighDateTime)),
      m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::WINUTDate(const SYSTEMTIME& systemTime)
    : PUTDate(ValueOfFields(systemTime)), m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::WINUTDate(const WINLocalDate& local)
    : PUTDate(UniversalOfLocal(local)), m_fileTime(FileTimeOf(m_value)) {}

WINUTDate::~WINUTDate() = default;

WINUTDate& WINUTDate::operator=(const WINUTDate& other) {
  PUTDate::operator=(other); // refreshes the file time through PTimeChanged
  return *this;
}

WINUTDate::operator FILETIME() const { return m_fileTime; }

WINUTDate::operator WINFILETIME() const { return Alias(m_fileTime); }

WINUTDate::operator SYSTEMTIME() const { return FieldsOf(m_fileTime); }

void WINUTDate::PTimeChanged() { m_fileTime = FileTimeOf(m_value); }

// ---------------------------------------------------------------------------
// WINLocalDate

WINLocalDate::WINLocalDate() : m_localFileTime(FileTimeOf(m_value)), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(LONG seconds)
    : PLocalDate(seconds), m_localFileTime(FileTimeOf(m_value)), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const PTime& value)
    : PLocalDate(value), m_localFileTime(FileTimeOf(m_value)), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const WINLocalDate& other)
    : PLocalDate(other), m_localFileTime(other.m_localFileTime), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const PLocalDate& other)
    : PLocalDate(other), m_localFileTime(FileTimeOf(m_value)), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const FILETIME& localFileTime)
    : PLocalDate(ValueOf(localFileTime)), m_localFileTime(localFileTime), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const WINFILETIME& localFileTime)
    : PLocalDate(ValueOf(localFileTime.dwLowDateTime, localFileTime.dwHighDateTime)),
      m_localFileTime(FileTimeOf(m_value)), m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const SYSTEMTIME& systemTime)
    : PLocalDate(ValueOfFields(systemTime)), m_localFileTime(FileTimeOf(m_value)),
      m_systemTime(nullptr) {}

WINLocalDate::WINLocalDate(const WINUTDate& universal)
    : PLocalDate(LocalOfUniversal(universal)), m_localFileTime(FileTimeOf(m_value)),
      m_systemTime(nullptr) {}

WINLocalDate::~WINLocalDate() { DeleteST(); }

WINLocalDate& WINLocalDate::operator=(const WINLocalDate& other) {
  PLocalDate::operator=(other); // discards the system time, refreshes the file time
  return *this;
}

void WINLocalDate::CreateST() const {
  if (m_systemTime)
    return;
  SYSTEMTIME* fields = new SYSTEMTIME();
  if (!qvbase::native::FileTimeToSystemTime(m_localFileTime, fields)) {
    delete fields;
    qvbase::errors::Raise(kErrDateConversion, ErrorSeverityAbort, kSourceFile, __LINE__);
    return;
  }
  m_systemTime = fields;
}

void WINLocalDate::DeleteST() const {
  delete m_systemTime;
  m_systemTime = nullptr;
}

const SYSTEMTIME* WINLocalDate::SystemTime() const {
  CreateST();
  static const SYSTEMTIME kNone = {};
  return m_systemTime ? m_systemTime : &kNone;
}

unsigned short WINLocalDate::Year() const { return SystemTime()->wYear; }

unsigned char WINLocalDate::Month() const {
  return static_cast<unsigned char>(SystemTime()->wMonth);
}

unsigned char WINLocalDate::Day() const { return static_cast<unsigned char>(SystemTime()->wDay); }

unsigned char WINLocalDate::DayInWeek() const {
  return static_cast<unsigned char>(SystemTime()->wDayOfWeek);
}

unsigned char WINLocalDate::Hours() const {
  return static_cast<unsigned char>(SystemTime()->wHour);
}

unsigned char WINLocalDate::Minutes() const {
  return static_cast<unsigned char>(SystemTime()->wMinute);
}

unsigned char WINLocalDate::Seconds() const {
  return static_cast<unsigned char>(SystemTime()->wSecond);
}

WINLocalDate::operator FILETIME() const { return m_localFileTime; }

WINLocalDate::operator WINFILETIME() const { return Alias(m_localFileTime); }

WINLocalDate::operator SYSTEMTIME() const { return *SystemTime(); }

PMBString WINLocalDate::SystemFormat(unsigned char form) const {
  const SYSTEMTIME& fields = *SystemTime();
  switch (form) {
  case kSystemFormatShortDate:
    return Text(qvbase::native::FormatShortDate(fields));
  case kSystemFormatLongDate:
    return Text(qvbase::native::FormatLongDate(fields));
  case kSystemFormatTime:
    return Text(qvbase::native::FormatTimeOfDay(fields));
  case kSystemFormatLongDateTime:
    return Text(qvbase::native::FormatLongDate(fields) + " " +
                qvbase::native::FormatTimeOfDay(fields));
  default:
    return Text(qvbase::native::FormatShortDate(fields) + " " +
                qvbase::native::FormatTimeOfDay(fields));
  }
}

void WINLocalDate::PTimeChanged() {
  DeleteST();
  m_localFileTime = FileTimeOf(m_value);
}

PMBString WINLocalDate::GetSystemParameterValue(const PASCIIString& name) const {
  return Text(qvbase::native::FormatDateElement(*SystemTime(), name));
}

// ---------------------------------------------------------------------------
// Makers

WINUTDate MakeNUTDate(unsigned short year, unsigned short month, unsigned short day,
                      unsigned short hour, unsigned short minute, unsigned short second,
                      unsigned short milliseconds) {
  return WINUTDate(FieldsOf(year, month, day, hour, minute, second, milliseconds));
}

WINLocalDate MakeNLocDate(unsigned short year, unsigned short month, unsigned short day,
                          unsigned short hour, unsigned short minute, unsigned short second,
                          unsigned short milliseconds) {
  return WINLocalDate(FieldsOf(year, month, day, hour, minute, second, milliseconds));
}

WINUTDate CurrentNUTDate() {
  SYSTEMTIME now;
  qvbase::native::CurrentUniversalTime(&now);
  return WINUTDate(now);
}

WINLocalDate CurrentNLocDate() {
  SYSTEMTIME now;
  qvbase::native::CurrentLocalTime(&now);
  return WINLocalDate(now);
}
