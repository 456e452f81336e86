// FailingStream.h - a stream handler that makes chosen I/O calls fail, for
// the tests that run a scenario once per call it makes.
//
// FailingStreamHdl stacks on another stream (usually over a memory handler)
// and passes every operation on, except that the n-th IORead, IOWrite,
// IOSetPos or IOFlush (or, persistently, the n-th and every later one) fails
// as a device fails:
//   - kSignalledError: nothing is done and the device's error is signalled
//     (1229 for reads and seeks, 1230 for writes and flushes, severity 29,
//     so that a retry may be offered);
//   - kShortCount: a read or write moves half of the items, then signals the
//     same error; a seek or flush has no half and fails as above.
// When the signal returns (a hook ignored it), the call answers what was
// moved. Without a plan it only counts the calls of each kind.
//
//   PStream memory(new PMemoryStreamHdl);
//   FailingStreamHdl::Plan plan{FailingStreamHdl::kWrite, 3, false, FailingStreamHdl::kShortCount};
//   PStream file(new FailingStreamHdl(memory, plan));   // the third write fails once
#pragma once

#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/POverStream.h>
#include <qvbase/PStream.h>

#include "errors/RaiseError.h"

#include <array>
#include <cstddef>

namespace qvbase::test {

class FailingStreamHdl : public POverStreamHdl {
public:
  enum Call { kRead, kWrite, kSetPos, kFlush, kCallKinds };
  enum How { kSignalledError, kShortCount };

  struct Plan {
    Call call = kRead;
    std::size_t failAt = 0; // 1-based; 0 fails nothing
    bool persistent = false;
    How how = kSignalledError;
  };

  explicit FailingStreamHdl(PStream& beneath) : POverStreamHdl(beneath) {}
  FailingStreamHdl(PStream& beneath, const Plan& plan) : POverStreamHdl(beneath), m_plan(plan) {}

  // Calls of one kind so far, failed ones included.
  std::size_t Calls(Call call) const { return m_calls[call]; }
  std::size_t Failures() const { return m_failures; }

  static constexpr const char* kSource = "tests\\FailingStream";

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    if (!Fails(kRead))
      return POverStreamHdl::IORead(buffer, count, itemSize);
    ULONG moved = 0;
    if (m_plan.how == kShortCount && count > 1)
      moved = POverStreamHdl::IORead(buffer, count / 2, itemSize);
    Signal(kErrStreamShortRead);
    return moved;
  }

  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    if (!Fails(kWrite))
      return POverStreamHdl::IOWrite(buffer, count, itemSize);
    ULONG moved = 0;
    if (m_plan.how == kShortCount && count > 1)
      moved = POverStreamHdl::IOWrite(buffer, count / 2, itemSize);
    Signal(kErrStreamShortWrite);
    return moved;
  }

  void IOSetPos(TypSeekMode mode, unsigned __int64 offset) override {
    if (!Fails(kSetPos)) {
      POverStreamHdl::IOSetPos(mode, offset);
      return;
    }
    Signal(kErrStreamShortRead);
  }

  void IOFlush() override {
    if (!Fails(kFlush)) {
      POverStreamHdl::IOFlush();
      return;
    }
    Signal(kErrStreamShortWrite);
  }

private:
  bool Fails(Call call) {
    const std::size_t n = ++m_calls[call];
    const bool fails = m_plan.failAt != 0 && call == m_plan.call &&
                       (n == m_plan.failAt || (m_plan.persistent && n > m_plan.failAt));
    if (fails)
      ++m_failures;
    return fails;
  }

  // As a handler raises its errors: its own context first, then the chain.
  void Signal(int code) {
    qvbase::errors::RaiseThrough(*this, code, ErrorSeverityError, kSource,
                                 static_cast<ULONG>(__LINE__));
  }

  Plan m_plan;
  std::array<std::size_t, kCallKinds> m_calls{};
  std::size_t m_failures = 0;
};

// A user's hook that answers "retry" whenever a retry is offered, up to
// `attempts` times in a row, then lets the error go out.
class RetryingHook : public PErrorHook {
public:
  explicit RetryingHook(int attempts = 3) : m_attempts(attempts) {}
  TypErrorHandlingEnum DisplayError(PError&, ULONG mask) override {
    ++offered;
    if ((mask & kErrorMaskRetry) && m_inARow < m_attempts) {
      ++m_inARow;
      ++retries;
      return ErrorHandlingRetry;
    }
    m_inARow = 0;
    return ErrorHandlingNone;
  }
  int offered = 0;
  int retries = 0;

private:
  int m_attempts;
  int m_inARow = 0;
};

} // namespace qvbase::test
