// TimeTestSupport.h - a time zone of the test's own, and helpers shared by the
// time and date suites.
#pragma once

#include "native/Time.h"
#include "support/TestSupport.h"

#include <memory>

namespace qvbase::test {

// Sets TZ for its lifetime and makes the C library reread it; restores both
// after. On Windows the machine's zone still governs the system conversions,
// so tests that need a known zone run on POSIX only.
class ScopedTimeZone {
public:
  explicit ScopedTimeZone(const char* tz) : m_env(new ScopedEnv("TZ", tz)) {
    qvbase::native::ReloadTimeZone();
  }
  ~ScopedTimeZone() {
    m_env.reset();
    qvbase::native::ReloadTimeZone();
  }
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
  std::unique_ptr<ScopedEnv> m_env;
};

// Central European time: +1, +2 from the last Sunday of March 02:00 to the
// last Sunday of October 03:00.
constexpr const char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char kUniversal[] = "UTC0";

} // namespace qvbase::test
