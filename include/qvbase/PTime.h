// PTime.h - durations as signed counts of 100-nanosecond ticks.
// Part of qvbase, the QVKernel foundation class library.
//
// PTime is a plain value: a signed 64-bit count of 100-ns ticks (10,000,000 a
// second), also the difference of two dates. The most negative count marks
// an unset time and is what the default constructor gives; arithmetic does not
// look at it. Formatting fills ^name^ placeholders of the time-span class
// (H, HH, m, mm, s, ss, TD, TH, TM, TS) and leaves every other one in place:
//
//   PTime t(3725, 0);                               // 1 h 2 min 5 s
//   PMBString text = t.Format("^HH^:^mm^:^ss^");    // "01:02:05"
//
// Copy freely; share between threads like any integer.
#pragma once

#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// A duration as a signed count of 100-nanosecond ticks.
class QVBASE_API PTime : public PRoot {
public:
  // The unset time.
  PTime();
  PTime(const __int64& ticks);
  // seconds * 10,000,000 + nanoseconds / 100; the division truncates.
  PTime(LONG seconds, ULONG nanoseconds);
  PTime(const PTime& other);
  ~PTime() override;
  PTime& operator=(const PTime& other);

  __int64 GetValue() const { return m_value; }
  void SetValue(const __int64& ticks) { m_value = ticks; }
  // Not the unset value.
  bool IsValid() const;

  // Both look only at zero: the unset time is "true". Deliberate; callers
  // test "any duration at all" this way and treat unset separately.
  explicit operator bool() const { return m_value != 0; }
  bool operator!() const { return m_value == 0; }

  // Signed comparison of the counts; the unset time is the smallest.
  bool operator==(const PTime& other) const { return m_value == other.m_value; }
  bool operator!=(const PTime& other) const { return m_value != other.m_value; }
  bool operator<(const PTime& other) const { return m_value < other.m_value; }
  bool operator<=(const PTime& other) const { return m_value <= other.m_value; }
  bool operator>(const PTime& other) const { return m_value > other.m_value; }
  bool operator>=(const PTime& other) const { return m_value >= other.m_value; }

  // Plain 64-bit arithmetic: no overflow check, the unset value is a number
  // like any other, and a zero divisor is not guarded.
  PTime operator+(const PTime& other) const;
  PTime operator-(const PTime& other) const;
  PTime& operator+=(const PTime& other);
  PTime& operator-=(const PTime& other);
  PTime operator-() const;
  PTime operator*(const __int64& factor) const;
  PTime& operator*=(const __int64& factor);
  // Through double; the product goes back to ticks truncating toward zero.
  PTime operator*(double factor) const;
  PTime& operator*=(double factor);
  // Truncating toward zero.
  PTime operator/(const __int64& divisor) const;
  PTime& operator/=(const __int64& divisor);
  PTime operator/(double divisor) const;
  PTime& operator/=(double divisor);
  // Quotient and remainder of two durations, truncating toward zero.
  __int64 operator/(const PTime& divisor) const;
  __int64 operator%(const PTime& divisor) const;

  // An int converts equally well to __int64 and to double; these pick the
  // integer forms so that t * 2 and t / 3 mean what they say.
  PTime operator*(int factor) const { return *this * static_cast<__int64>(factor); }
  PTime& operator*=(int factor) { return *this *= static_cast<__int64>(factor); }
  PTime operator/(int divisor) const { return *this / static_cast<__int64>(divisor); }
  PTime& operator/=(int divisor) { return *this /= static_cast<__int64>(divisor); }

  // |this - other| <= |tolerance|.
  bool IsNear(const PTime& other, const PTime& tolerance) const;

  // Fills the time-span placeholders of `pattern`; see the file comment. The
  // time is cut to whole seconds first. A negative time raises error 1200
  // (severity 33); when a protection lets that return, the pattern is filled
  // anyway from the negative count.
  PMBString Format(const PMBString& pattern) const;

private:
  PASCIIString GetParameterValue(const PASCIIString& name) const;

  __int64 m_value;
};
