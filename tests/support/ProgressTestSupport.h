// ProgressTestSupport.h - a clock the test moves, for progress timing.
// Part of qvbase, the QVKernel foundation class library.
//
//   ManualClock clock;                      // installed; stands still
//   hook.StartProgress(100);
//   clock.Advance(PTime(2, 0));             // two seconds pass
//   hook.ContinueProgress(10);
//   EXPECT_EQ(hook.GetEllapsedTime(), PTime(2, 0));
#pragma once

#include <qvbase/PDate.h>
#include <qvbase/PTime.h>

#include "progress/ProgressClock.h"

namespace qvbase::test {

// Installs itself as the progress family's clock for its lifetime and puts
// the previous clock back after. It starts at 2024-01-01 00:00:00 local and
// moves only when told. One at a time.
class ManualClock {
public:
  ManualClock() : m_previous(qvbase::progress::SetLocalClock(&ManualClock::Read)) {
    Now() = PTime(kStart);
  }
  ~ManualClock() { qvbase::progress::SetLocalClock(m_previous); }
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  void Advance(const PTime& span) { Now() += span; }
  PLocalDate Date() const { return PLocalDate(Now()); }

  // 2024-01-01 00:00:00 as ticks from 1970.
  static constexpr __int64 kStart = 1704067200LL * 10000000LL;

private:
  static PTime& Now() {
    static PTime now;
    return now;
  }
  static PTime Read() { return Now(); }

  qvbase::progress::LocalClock m_previous;
};

// Shorthand for spans in tests.
inline PTime Seconds(LONG seconds) { return PTime(seconds, 0); }
inline PTime Milliseconds(LONG ms) { return PTime(static_cast<__int64>(ms) * 10000); }

} // namespace qvbase::test
