// ErrorTestSupport.h - catching and observing raised errors in tests.
// Part of qvbase, the QVKernel foundation class library.
//
// Every suite catches and observes errors with these; none writes its own.
// A suite that raises as the library does (prepare, then signal) uses the
// library's own helper, qvbase::errors::Raise from "errors/RaiseError.h".
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

// Whether a CountingHook gives its answer whatever the mask of offered
// handlings says (a hook's answer is obeyed either way), or only when the mask
// offers it, answering ErrorHandlingNone otherwise.
enum class Answering { kAlways, kWhenOffered };

// A hook that records every error offered to it and gives one answer.
class CountingHook : public PErrorHook {
public:
  explicit CountingHook(TypErrorHandlingEnum answer = ErrorHandlingIgnore,
                        Answering answering = Answering::kAlways)
      : m_answer(answer), m_answering(answering) {}
  TypErrorHandlingEnum DisplayError(PError& error, ULONG mask) override {
    ++calls;
    lastMask = mask;
    lastCode = error.Code();
    lastLine = error.Line();
    codes.push_back(error.Code());
    errors.push_back(error);
    if (m_answering == Answering::kWhenOffered && !(mask & (1u << m_answer)))
      return ErrorHandlingNone;
    return m_answer;
  }
  void SetAnswer(TypErrorHandlingEnum answer) { m_answer = answer; }

  int calls = 0;
  ULONG lastMask = 0; // the handlings offered with the last error
  int lastCode = 0;   // the last error's code and line (0 before any)
  ULONG lastLine = 0;
  std::vector<int> codes;
  std::vector<PError> errors; // as offered: code, severity, position, info

private:
  TypErrorHandlingEnum m_answer;
  Answering m_answering;
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
