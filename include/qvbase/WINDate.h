// WINDate.h - dates backed by the Windows FILETIME and SYSTEMTIME structures.
// Part of qvbase, the QVKernel foundation class library.
//
// WINUTDate keeps the instant also as a FILETIME (100-ns ticks since
// 1601-01-01 UTC), always equal to the value + gFileTimeEpochOffset.
// WINLocalDate keeps the local reading as a local FILETIME the same way and,
// from the first calendar query on, an owned SYSTEMTIME built from it; any
// change of the value discards that SYSTEMTIME. Conversions between universal
// and local time use the machine's zone with the offset in force at the
// instant (see the platform layer). A conversion the platform refuses raises
// error 1201 (severity 25, source src\WINDate).
//
//   WINUTDate when = MakeNUTDate(2024, 3, 14, 13, 5, 9, 0);
//   WINLocalDate shown(when);          // the machine's local reading
//   PMBString text = shown.SystemFormat(kSystemFormatDateTime);
//
// The caches make these dates unsafe to read from two threads at once.
#pragma once

#include <qvbase/PDate.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The FILETIME layout under the library's own name.
struct WINFILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

// 116444736000000000 (0x019DB1DED53E8000): 100-ns ticks from 1601-01-01 to
// 1970-01-01. One process-wide value, set when the library is loaded.
QVBASE_API extern const __int64 gFileTimeEpochOffset;

class WINLocalDate;

// A universal date that keeps its FILETIME and SYSTEMTIME forms beside its value.
class QVBASE_API WINUTDate : public PUTDate {
public:
  WINUTDate();
  WINUTDate(LONG seconds);
  WINUTDate(const PTime& value);
  WINUTDate(const WINUTDate& other);
  // Copies the value.
  WINUTDate(const PUTDate& other);
  WINUTDate(const FILETIME& fileTime);
  WINUTDate(const WINFILETIME& fileTime);
  // Through SystemTimeToFileTime; fields it refuses raise 1201 and, if that
  // returns, give no date.
  WINUTDate(const SYSTEMTIME& systemTime);
  // The universal instant of a local reading; an invalid local date gives an
  // invalid date without an error.
  WINUTDate(const WINLocalDate& local);
  ~WINUTDate() override;
  WINUTDate& operator=(const WINUTDate& other);

  operator FILETIME() const;
  operator WINFILETIME() const;
  // Through FileTimeToSystemTime; a file time it refuses (before 1601)
  // raises 1201 and, if that returns, gives all fields 0.
  operator SYSTEMTIME() const;

protected:
  void PTimeChanged() override;

private:
  FILETIME m_fileTime;
};

// SystemFormat's forms.
enum : unsigned char {
  kSystemFormatDateTime = 0, // short date, one space, time of day
  kSystemFormatShortDate = 1,
  kSystemFormatLongDate = 2,
  kSystemFormatTime = 3,
  kSystemFormatLongDateTime = 4, // long date, one space, time of day
};

// A local date that keeps its FILETIME and SYSTEMTIME forms beside its value.
class QVBASE_API WINLocalDate : public PLocalDate {
public:
  WINLocalDate();
  WINLocalDate(LONG seconds);
  WINLocalDate(const PTime& value);
  WINLocalDate(const WINLocalDate& other);
  WINLocalDate(const PLocalDate& other);
  // Taken as a local file time.
  WINLocalDate(const FILETIME& localFileTime);
  WINLocalDate(const WINFILETIME& localFileTime);
  WINLocalDate(const SYSTEMTIME& systemTime);
  // The local reading of a universal instant; an invalid date gives an
  // invalid one.
  WINLocalDate(const WINUTDate& universal);
  ~WINLocalDate() override;
  WINLocalDate& operator=(const WINLocalDate& other);

  // From the SYSTEMTIME, built on first use.
  unsigned short Year() const override;
  unsigned char Month() const override;
  unsigned char Day() const override;
  unsigned char DayInWeek() const override;
  unsigned char Hours() const override;
  unsigned char Minutes() const override;
  unsigned char Seconds() const override;

  operator FILETIME() const;
  operator WINFILETIME() const;
  // A copy of the cached SYSTEMTIME (all zero when it cannot be built).
  operator SYSTEMTIME() const;

  // The date in the user's format (Windows GetDateFormatA/GetTimeFormatA for
  // the user's default locale; elsewhere the C runtime's LC_TIME formats):
  // one of the kSystemFormat forms; any other value is taken as
  // kSystemFormatDateTime.
  virtual PMBString SystemFormat(unsigned char form) const;

protected:
  void PTimeChanged() override;
  // The names of the user's locale, as GetDateFormatA/GetTimeFormatA give
  // them for the pictures MMM, MMMM, ddd, dddd, gg, t and tt.
  PMBString GetSystemParameterValue(const PASCIIString& name) const override;

  // Builds the SYSTEMTIME from the local file time; a refused conversion
  // raises 1201 and leaves it unbuilt.
  void CreateST() const;
  void DeleteST() const;

  FILETIME m_localFileTime;
  // Owned; null until a query needs it and after every change of the value.
  mutable SYSTEMTIME* m_systemTime;

private:
  // The built SYSTEMTIME, or all-zero fields when it cannot be built.
  const SYSTEMTIME* SystemTime() const;
};

// Dates from calendar fields (the day of the week is not needed).
QVBASE_API WINUTDate MakeNUTDate(unsigned short year, unsigned short month, unsigned short day,
                                 unsigned short hour, unsigned short minute, unsigned short second,
                                 unsigned short milliseconds);
QVBASE_API WINLocalDate MakeNLocDate(unsigned short year, unsigned short month, unsigned short day,
                                     unsigned short hour, unsigned short minute,
                                     unsigned short second, unsigned short milliseconds);
// The clock now, as the system's universal and local time.
QVBASE_API WINUTDate CurrentNUTDate();
QVBASE_API WINLocalDate CurrentNLocDate();
