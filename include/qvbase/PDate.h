// PDate.h - universal and local dates as tick counts from 1970.
// Part of qvbase, the QVKernel foundation class library.
//
// A date is an instant held as a PTime counted from 1970-01-01 00:00:00:
// PUTDate in universal time, PLocalDate as the local wall-clock reading
// counted from the same epoch. The unset PTime means "no date" and is what
// the default constructors give. Both are plain values; the Windows-backed
// flavours (WINDate.h) keep platform structures beside the value and refresh
// them through PTimeChanged, which SetValue, assignment, += and -= call.
//
// PLocalDate answers calendar questions by breaking its tick count down as if
// it were universal time, which yields the local fields. The breakdown covers
// 1970-01-01 00:00:00 to 3000-12-31 23:59:59 on every platform (the range of
// the Windows C runtime, kept everywhere so that answers do not depend on the
// machine); outside it a query raises error 1200.
//
//   PLocalDate d(PTime(86400 * 10000000LL + 6 * 3600 * 10000000LL));
//   d.Format("^yyyy^-^MM^-^dd^ ^HH^:^mm^");   // "1970-01-02 06:00"
//
// Dates are not shared objects; a date with caches (the WIN flavours) must
// not be read from two threads at once.
#pragma once

#include <qvbase/PMBString.h>
#include <qvbase/PRoot.h>
#include <qvbase/PTime.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PASCIIString;

// An instant in universal time, counted in ticks from 1970.
class QVBASE_API PUTDate : public PRoot {
public:
  // No date.
  PUTDate();
  // Seconds since the epoch.
  PUTDate(LONG seconds);
  PUTDate(const PTime& value);
  PUTDate(const PUTDate& other);
  ~PUTDate() override;
  PUTDate& operator=(const PUTDate& other);

  PTime GetValue() const { return m_value; }
  void SetValue(const PTime& value);
  bool IsValid() const { return m_value.IsValid(); }

  PUTDate operator+(const PTime& span) const;
  PUTDate operator-(const PTime& span) const;
  PUTDate& operator+=(const PTime& span);
  PUTDate& operator-=(const PTime& span);
  PTime operator-(const PUTDate& other) const;

  bool operator==(const PUTDate& other) const { return m_value == other.m_value; }
  bool operator!=(const PUTDate& other) const { return m_value != other.m_value; }
  bool operator<(const PUTDate& other) const { return m_value < other.m_value; }
  bool operator<=(const PUTDate& other) const { return m_value <= other.m_value; }
  bool operator>(const PUTDate& other) const { return m_value > other.m_value; }
  bool operator>=(const PUTDate& other) const { return m_value >= other.m_value; }
  bool IsNear(const PUTDate& other, const PTime& tolerance) const;

  // The time within the day: value - whole days, the days counted with
  // signed division truncating toward zero (so before 1970 the result is
  // negative or zero).
  PTime DayTime() const;
  // The same day at `dayTime` within it.
  PUTDate SameDay(const PTime& dayTime) const;

protected:
  // Called after every change of the value; the base does nothing.
  virtual void PTimeChanged();

  PTime m_value;
};

// An instant as the local wall-clock reading, counted in ticks from 1970.
class QVBASE_API PLocalDate : public PRoot {
public:
  PLocalDate();
  PLocalDate(LONG seconds);
  PLocalDate(const PTime& value);
  PLocalDate(const PLocalDate& other);
  ~PLocalDate() override;
  PLocalDate& operator=(const PLocalDate& other);

  // Calendar fields of the local reading. Month 1-12, Day 1-31, DayInWeek
  // 0 (Sunday) to 6, Hours 0-23. A value outside the breakdown's range raises
  // error 1200 (severity 33); when that returns, the field is 0.
  virtual unsigned short Year() const;
  virtual unsigned char Month() const;
  virtual unsigned char Day() const;
  virtual unsigned char DayInWeek() const;
  // Week of the year for weeks that start on `firstDay` (0 Sunday to 6
  // Saturday; larger values are taken modulo 7): week 1 starts on the first
  // such day of the year and the days before it are week 0, as strftime's
  // %U (Sunday) and %W (Monday) count.
  virtual unsigned char Week(unsigned char firstDay) const;
  // 1 for January 1st, up to 366; from Year, Month and Day with the
  // calendar's own leap years.
  virtual unsigned short DayInYear() const;
  virtual unsigned char Hours() const;
  virtual unsigned char Minutes() const;
  virtual unsigned char Seconds() const;
  // Leap year by the library's own rule: multiples of 4, except multiples
  // of 100 that are not multiples of 1000. Deliberately not the calendar's
  // 400: stored schedules were computed with it, so 2000 and 1000 are leap
  // years and 1900 and 2400 are not.
  virtual bool IsBissex() const;
  // The C runtime's localtime daylight-saving flag for the same seconds;
  // outside the breakdown's range error 1200 (severity 29), then false.
  virtual bool IsDaySavingTime() const;

  PTime GetValue() const { return m_value; }
  void SetValue(const PTime& value);
  bool IsValid() const { return m_value.IsValid(); }

  PLocalDate operator+(const PTime& span) const;
  PLocalDate operator-(const PTime& span) const;
  PLocalDate& operator+=(const PTime& span);
  PLocalDate& operator-=(const PTime& span);
  PTime operator-(const PLocalDate& other) const;

  bool operator==(const PLocalDate& other) const { return m_value == other.m_value; }
  bool operator!=(const PLocalDate& other) const { return m_value != other.m_value; }
  bool operator<(const PLocalDate& other) const { return m_value < other.m_value; }
  bool operator<=(const PLocalDate& other) const { return m_value <= other.m_value; }
  bool operator>(const PLocalDate& other) const { return m_value > other.m_value; }
  bool operator>=(const PLocalDate& other) const { return m_value >= other.m_value; }
  bool IsNear(const PLocalDate& other, const PTime& tolerance) const;

  PTime DayTime() const;
  PLocalDate SameDay(const PTime& dayTime) const;

  // Fills ^name^ placeholders with the date's fields:
  //   H HH m mm s ss   hours (0-23), minutes, seconds; doubled = two digits
  //   TD TH TM TS      whole days, hours, minutes, seconds since 1970
  //   M MM d dd        month and day; doubled = two digits
  //   h hh             hours on the 12-hour clock (12, 1-11)
  //   w ww             Week(1) (weeks starting on Monday)
  //   yy yyyy          year, last two digits / four digits
  //   yd ydd           DayInYear; ydd = three digits
  //   MMM MMMM ddd dddd gg t tt   month and day names, era, AM/PM designator
  //                    (first character for t), from GetSystemParameterValue
  // Other placeholders, ^^ included, stay as they are.
  PMBString Format(const PMBString& pattern) const;

protected:
  virtual void PTimeChanged();
  // The locale-dependent names. This generic version takes them from the C
  // runtime's strftime in the current LC_TIME locale (%b %B %a %A %p); it
  // has no era, so gg is empty.
  virtual PMBString GetSystemParameterValue(const PASCIIString& name) const;
  // The numeric and time-span fields; empty for other names.
  PMBString GetParameterValue(const PASCIIString& name) const;

  PTime m_value;
};

// The generic flavours: no platform state, only conversions from the bases.
class QVBASE_API NGenUTDate : public PUTDate {
public:
  NGenUTDate() = default;
  NGenUTDate(const NGenUTDate& other) = default;
  NGenUTDate& operator=(const NGenUTDate& other) = default;

protected:
  NGenUTDate(const PUTDate& other) : PUTDate(other) {}
  NGenUTDate& operator=(const PUTDate& other) {
    PUTDate::operator=(other);
    return *this;
  }
};

// The generic local date: a PLocalDate with nothing beside its value.
class QVBASE_API NGenLocalDate : public PLocalDate {
public:
  NGenLocalDate() = default;
  NGenLocalDate(const NGenLocalDate& other) = default;
  NGenLocalDate& operator=(const NGenLocalDate& other) = default;

protected:
  NGenLocalDate(const PLocalDate& other) : PLocalDate(other) {}
  NGenLocalDate& operator=(const PLocalDate& other) {
    PLocalDate::operator=(other);
    return *this;
  }
};
