// PTime.cpp - durations as signed counts of 100-nanosecond ticks.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PTime.h>

#include "errors/RaiseError.h"
#include "time/DatePlaceholder.h"

#include <cstdint>
#include <cstdlib>

namespace {

// Time values report their errors as part of the date family: the one source
// text "src\PDate" names both, and error handlers match on it. It is the
// errors' defined position, not a path of this tree.
const char kSourceFile[] = "src\\PDate";
constexpr __int64 kUnset = INT64_MIN;
constexpr __int64 kTicksPerSecond = 10000000;

// Tick arithmetic wraps around as 64-bit two's complement does: it is done
// unsigned, so that an overflow is defined rather than undefined behaviour.
__int64 Wrap(std::uint64_t value) { return static_cast<__int64>(value); }

} // namespace

PTime::PTime() : m_value(kUnset) {}

PTime::PTime(const __int64& ticks) : m_value(ticks) {}

PTime::PTime(LONG seconds, ULONG nanoseconds)
    : m_value(static_cast<__int64>(seconds) * kTicksPerSecond + nanoseconds / 100) {}

PTime::PTime(const PTime& other) : PRoot(), m_value(other.m_value) {}

PTime::~PTime() = default;

PTime& PTime::operator=(const PTime& other) {
  m_value = other.m_value;
  return *this;
}

bool PTime::IsValid() const { return m_value != kUnset; }

PTime PTime::operator+(const PTime& other) const {
  return PTime(
      Wrap(static_cast<std::uint64_t>(m_value) + static_cast<std::uint64_t>(other.m_value)));
}

PTime PTime::operator-(const PTime& other) const {
  return PTime(
      Wrap(static_cast<std::uint64_t>(m_value) - static_cast<std::uint64_t>(other.m_value)));
}

PTime& PTime::operator+=(const PTime& other) { return *this = *this + other; }

PTime& PTime::operator-=(const PTime& other) { return *this = *this - other; }

PTime PTime::operator-() const { return PTime(Wrap(0 - static_cast<std::uint64_t>(m_value))); }

PTime PTime::operator*(const __int64& factor) const {
  return PTime(Wrap(static_cast<std::uint64_t>(m_value) * static_cast<std::uint64_t>(factor)));
}

PTime& PTime::operator*=(const __int64& factor) { return *this = *this * factor; }

namespace {

// A product or quotient outside the 64-bit range (or not a number) would be
// undefined as an integer: it saturates, and a NaN gives 0.
__int64 FromDouble(double value) {
  if (value != value)
    return 0;
  if (value >= 9223372036854775807.0)
    return 0x7FFFFFFFFFFFFFFFLL;
  if (value <= -9223372036854775808.0)
    return -0x7FFFFFFFFFFFFFFFLL - 1;
  return static_cast<__int64>(value);
}

} // namespace

PTime PTime::operator*(double factor) const {
  return PTime(FromDouble(static_cast<double>(m_value) * factor));
}

PTime& PTime::operator*=(double factor) { return *this = *this * factor; }

PTime PTime::operator/(const __int64& divisor) const {
  // The most negative value divided by -1 wraps (to itself) like a negation,
  // instead of trapping.
  if (divisor == -1)
    return -*this;
  return PTime(m_value / divisor);
}

PTime& PTime::operator/=(const __int64& divisor) { return *this = *this / divisor; }

PTime PTime::operator/(double divisor) const {
  return PTime(FromDouble(static_cast<double>(m_value) / divisor));
}

PTime& PTime::operator/=(double divisor) { return *this = *this / divisor; }

__int64 PTime::operator/(const PTime& divisor) const {
  if (divisor.m_value == -1)
    return static_cast<__int64>(0 - static_cast<std::uint64_t>(m_value));
  return m_value / divisor.m_value;
}

__int64 PTime::operator%(const PTime& divisor) const {
  return divisor.m_value == -1 ? 0 : m_value % divisor.m_value;
}

bool PTime::IsNear(const PTime& other, const PTime& tolerance) const {
  // Magnitudes as unsigned, so that the unset value has one too.
  const std::uint64_t difference =
      m_value >= other.m_value
          ? static_cast<std::uint64_t>(m_value) - static_cast<std::uint64_t>(other.m_value)
          : static_cast<std::uint64_t>(other.m_value) - static_cast<std::uint64_t>(m_value);
  const std::uint64_t limit = tolerance.m_value >= 0
                                  ? static_cast<std::uint64_t>(tolerance.m_value)
                                  : 0 - static_cast<std::uint64_t>(tolerance.m_value);
  return difference <= limit;
}

PMBString PTime::Format(const PMBString& pattern) const {
  if (m_value < 0)
    qvbase::errors::Raise(kErrDateBreakdown, ErrorSeverityFatal, kSourceFile, __LINE__);
  // The signal returned: the pattern is filled from the count as it is.
  // Only time-span fields are filled; their digits hold no caret.
  return qvbase::time::FillPlaceholders(
      pattern, [this](const PASCIIString& name, qvbase::time::PlaceholderClass kind) {
        qvbase::time::PlaceholderValue value;
        if (kind == qvbase::time::kPlaceholderTimeSpan) {
          value.filled = true;
          value.text = PMBString(GetParameterValue(name));
        }
        return value;
      });
}

PASCIIString PTime::GetParameterValue(const PASCIIString& name) const {
  return PASCIIString(qvbase::time::TimeSpanText(m_value, name).c_str(), /*copy=*/true);
}
