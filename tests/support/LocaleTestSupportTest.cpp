// The locale helpers every suite shares: switching and restoring the process
// locale, and a missing set-up locale failing a CI run instead of skipping.
#include "support/LocaleTestSupport.h"
#include "support/TestSupport.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

using qvbase::test::ScopedLocale;

TEST(LocaleTestSupport, ScopedLocaleTakesTheFirstAcceptedNameAndRestoresTheOld) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  {
    ScopedLocale locale({"no-such-locale", "C"});
    ASSERT_TRUE(locale.active());
    EXPECT_STREQ(locale.name(), "C");
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  }
  EXPECT_EQ(std::string(std::setlocale(LC_ALL, nullptr)), before);
}

TEST(LocaleTestSupport, ScopedLocaleWithoutAnAcceptedNameChangesNothing) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  ScopedLocale locale({"no-such-locale", "C"}, [] { return false; });
  EXPECT_FALSE(locale.active());
  EXPECT_EQ(locale.name(), nullptr);
  EXPECT_EQ(std::string(std::setlocale(LC_ALL, nullptr)), before);
}

#if !defined(_WIN32)
// What keeps a CI run from losing the locale tests silently.
TEST(LocaleTestSupport, MissingSetUpLocaleFailsTheTestWhenCIIsSet) {
  qvbase::test::ScopedEnv ci("CI", "1");
  EXPECT_NONFATAL_FAILURE(qvbase::test::MissingSetUpLocale("Klingon"),
                          "the Klingon locale is missing, though tools/setup.sh generates it");
}
#endif

} // namespace
