// StringTestSupport.h - shared helpers of the string suites: the global
// force-copy flag for one test. Locales are in LocaleTestSupport.h, errors in
// ErrorTestSupport.h.
#pragma once

#include <qvbase/PString.h>

namespace qvbase::test {

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

} // namespace qvbase::test
