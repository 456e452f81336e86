// StringTestSupport.h - shared helpers of the string suites: locale and
// global-flag scopes, error capture and an error hook that lets signals
// return.
#pragma once

#include <qvbase/PError.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PString.h>

#include <clocale>
#include <cstdlib>
#include <initializer_list>
#include <string>

namespace qvtest {

// Switches the process locale for one test and puts the old one back.
class ScopedLocale {
public:
  explicit ScopedLocale(const char* name) : m_saved(std::setlocale(LC_ALL, nullptr)) {
    m_active = std::setlocale(LC_ALL, name) != nullptr;
  }
  ~ScopedLocale() { std::setlocale(LC_ALL, m_saved.c_str()); }
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;
  bool active() const { return m_active; }

private:
  std::string m_saved;
  bool m_active;
};

// A locale in which `doubleByte()` is one character of two bytes: UTF-8
// where the system has it, else Shift JIS; inactive when neither exists.
class ScopedDoubleByteLocale {
public:
  ScopedDoubleByteLocale() : m_saved(std::setlocale(LC_ALL, nullptr)), m_text(nullptr) {
    struct Candidate {
      const char* name;
      const char* sample;
    };
    const Candidate kCandidates[] = {{"C.UTF-8", "\xC3\xA9"},
                                     {"C.utf8", "\xC3\xA9"},
                                     {"en_US.UTF-8", "\xC3\xA9"},
                                     {"Japanese_Japan.932", "\x82\xA0"},
                                     {".932", "\x82\xA0"}};
    for (const Candidate& c : kCandidates) {
      if (std::setlocale(LC_ALL, c.name) && std::mblen(c.sample, 2) == 2) {
        m_text = c.sample;
        return;
      }
    }
    std::setlocale(LC_ALL, m_saved.c_str());
  }
  ~ScopedDoubleByteLocale() { std::setlocale(LC_ALL, m_saved.c_str()); }
  ScopedDoubleByteLocale(const ScopedDoubleByteLocale&) = delete;
  ScopedDoubleByteLocale& operator=(const ScopedDoubleByteLocale&) = delete;
  bool active() const { return m_text != nullptr; }
  // One character of two bytes, terminated.
  const char* doubleByte() const { return m_text; }

private:
  std::string m_saved;
  const char* m_text;
};

// Sets gConstStrForceCopy for one test.
class ScopedForceCopy {
public:
  explicit ScopedForceCopy(bool value) : m_saved(gConstStrForceCopy) { gConstStrForceCopy = value; }
  ~ScopedForceCopy() { gConstStrForceCopy = m_saved; }
  ScopedForceCopy(const ScopedForceCopy&) = delete;
  ScopedForceCopy& operator=(const ScopedForceCopy&) = delete;

private:
  bool m_saved;
};

// What a call threw, if it threw a PError.
struct RaisedError {
  bool thrown = false;
  int code = 0;
  int severity = 0;
  std::string file;
  unsigned line = 0;
};

template <typename F>
RaisedError CaptureError(F&& call) {
  RaisedError raised;
  try {
    call();
  } catch (const PError& error) {
    raised.thrown = true;
    raised.code = error.Code();
    raised.severity = error.Severity();
    raised.file = error.File() ? error.File() : "";
    raised.line = static_cast<unsigned>(error.Line());
  }
  return raised;
}

// Answers every error with "ignore", so that SignalError returns; remembers
// what it saw.
class IgnoringHook : public PErrorHook {
public:
  TypErrorHandlingEnum DisplayError(PError& error, ULONG) override {
    ++calls;
    lastCode = error.Code();
    lastLine = static_cast<unsigned>(error.Line());
    return ErrorHandlingIgnore;
  }
  int calls = 0;
  int lastCode = 0;
  unsigned lastLine = 0;
};

// An installed protection with an IgnoringHook for the scope.
class ScopedIgnoreErrors {
public:
  ScopedIgnoreErrors() : m_protection(&hook, /*set=*/true) {}
  IgnoringHook hook;

private:
  PErrorHookProtection m_protection;
};

} // namespace qvtest
