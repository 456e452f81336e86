// LocaleTestSupport.h - switching the process locale for one test, and what a
// test does when the locale it needs is missing.
// Part of qvbase, the QVKernel foundation class library.
//
//   qvbase::test::ScopedLocale turkish("tr_TR.UTF-8");
//   if (!turkish.active())
//     return qvbase::test::MissingSetUpLocale("tr_TR.UTF-8");
//
// tools/setup.sh generates the locales the suites switch to on Linux (see its
// list). A test that needs one of them calls MissingSetUpLocale when it is
// missing: that skips the test on a developer's machine, and fails it when the
// environment variable CI is set (tools/test-all.sh sets it), so that a lost
// locale cannot silently drop coverage from a CI run. A test whose locale no
// set-up provides (a Windows code page on Linux, any locale under Wine) calls
// MissingLocale, which only skips.
#pragma once

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <initializer_list>
#include <string>

namespace qvbase::test {

// Switches the process locale (every category) for one scope to the first of
// `names` that the C library accepts and, when a probe is given, that passes
// it; puts the previous locale back at the end of the scope. Inactive (and the
// locale unchanged) when none does.
//
// A runtime may accept a locale name yet keep another character type (the
// Windows msvcrt.dll takes ".65001" for every category but LC_CTYPE): a probe
// checks the encoding the test relies on.
class ScopedLocale {
public:
  explicit ScopedLocale(const char* name) : ScopedLocale({name}) {}
  explicit ScopedLocale(std::initializer_list<const char*> names, bool (*probe)() = nullptr)
      : m_saved(std::setlocale(LC_ALL, nullptr)) {
    for (const char* name : names) {
      if (std::setlocale(LC_ALL, name) && (!probe || probe())) {
        m_name = name;
        return;
      }
      std::setlocale(LC_ALL, m_saved.c_str());
    }
  }
  ~ScopedLocale() { std::setlocale(LC_ALL, m_saved.c_str()); }
  ScopedLocale(const ScopedLocale&) = delete;
  ScopedLocale& operator=(const ScopedLocale&) = delete;

  bool active() const { return m_name != nullptr; }
  // The name that was taken; null when inactive.
  const char* name() const { return m_name; }

private:
  std::string m_saved;
  const char* m_name = nullptr;
};

// A locale in which `doubleByte()` is one character of two bytes: UTF-8
// where the system has it, else Shift JIS; inactive when neither exists.
class ScopedDoubleByteLocale : public ScopedLocale {
public:
  ScopedDoubleByteLocale()
      : ScopedLocale({"C.UTF-8", "C.utf8", "en_US.UTF-8", "Japanese_Japan.932", ".932"},
                     &HasDoubleByteSample) {}
  // One character of two bytes, terminated; null when inactive.
  const char* doubleByte() const {
    if (!active())
      return nullptr;
    return std::mblen(kUtf8Sample, 2) == 2 ? kUtf8Sample : kShiftJisSample;
  }

private:
  static constexpr const char* kUtf8Sample = "\xC3\xA9";
  static constexpr const char* kShiftJisSample = "\x82\xA0";
  static bool HasDoubleByteSample() {
    return std::mblen(kUtf8Sample, 2) == 2 || std::mblen(kShiftJisSample, 2) == 2;
  }
};

// Ends a test whose locale `name`, which tools/setup.sh provides, is missing:
// fails it when CI is set, skips it otherwise. Under Windows no set-up
// provides locales, so the test is skipped there.
inline void MissingSetUpLocale(const std::string& name) {
#if !defined(_WIN32)
  if (std::getenv("CI")) {
    ADD_FAILURE() << "the " << name << " locale is missing, though tools/setup.sh generates it";
    return;
  }
#endif
  GTEST_SKIP() << "no " << name << " locale on this system (tools/setup.sh generates it)";
}

// Ends a test whose locale `name`, which no set-up provides, is missing.
inline void MissingLocale(const std::string& name) {
  GTEST_SKIP() << "no " << name << " locale on this system";
}

} // namespace qvbase::test
