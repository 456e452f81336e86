// ErrorTestSupport.h - catching and observing raised errors in tests.
// Part of qvbase, the QVKernel foundation class library.
//
//   PError e = Caught([&] { stream.MoveTo(99); });
//   EXPECT_EQ(e.Code(), kErrStreamSeekPastEnd);
//
//   CountingHook hook(ErrorHandlingIgnore);        // answers every error
//   PErrorHookProtection ask(&hook, /*set=*/true);
//   stream.MoveTo(99);                             // signalled, dropped
//   EXPECT_EQ(hook.codes, std::vector<int>{kErrStreamSeekPastEnd});
#pragma once

#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>

#include <vector>

namespace qvbase::test {

// The code Caught reports when nothing was thrown. No error of the library
// has it.
constexpr int kNothingThrown = -1000;

// Runs `raise` and returns the PError it threw; an error of code
// kNothingThrown when it returned normally.
template <typename F>
PError Caught(F&& raise) {
  try {
    raise();
  } catch (const PError& e) {
    return e;
  }
  return PError(kNothingThrown);
}

// A hook that records every error offered to it and gives one answer.
class CountingHook : public PErrorHook {
public:
  explicit CountingHook(TypErrorHandlingEnum answer = ErrorHandlingIgnore) : m_answer(answer) {}
  TypErrorHandlingEnum DisplayError(PError& error, ULONG mask) override {
    ++calls;
    lastMask = mask;
    codes.push_back(error.Code());
    errors.push_back(error);
    return m_answer;
  }
  void SetAnswer(TypErrorHandlingEnum answer) { m_answer = answer; }

  int calls = 0;
  ULONG lastMask = 0;
  std::vector<int> codes;
  std::vector<PError> errors; // as offered: code, severity, position, info

private:
  TypErrorHandlingEnum m_answer;
};

// Installs a CountingHook for one scope: every error signalled meanwhile is
// recorded and answered (by default: ignored, so that signalling returns).
class ScopedErrorCapture {
public:
  explicit ScopedErrorCapture(TypErrorHandlingEnum answer = ErrorHandlingIgnore)
      : hook(answer), m_protection(&hook, /*set=*/true) {}
  CountingHook hook;

private:
  PErrorHookProtection m_protection;
};

} // namespace qvbase::test
