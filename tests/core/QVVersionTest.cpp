// The library's version and the registry store it reports.
#include <qvbase/qvbase.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(QVVersion, LoadedLibraryIsVersion120Build27) {
  EXPECT_STREQ(qvbase::LibraryVersion(), "1.2.0");
  EXPECT_EQ(qvbase::LibraryBuild(), 27u);
  EXPECT_STREQ(qvbase::LibraryVersion(), QVBASE_VERSION_STRING);
  EXPECT_EQ(QVBASE_VERSION_MAJOR, 1);
  EXPECT_EQ(QVBASE_VERSION_MINOR, 2);
  EXPECT_EQ(QVBASE_VERSION_BUILD, 27);
}

#if defined(_WIN32)
TEST(QVVersion, RegistryStoreIsTheWindowsRegistry) {
  EXPECT_STREQ(qvbase::RegistryStoreDescription(), "Windows registry");
}
#else
TEST(QVVersion, RegistryStoreFollowsTheEnvironment) {
  qvbase::test::ScopedEnv env("QVBASE_REGISTRY", "/tmp/some/where.reg");
  EXPECT_STREQ(qvbase::RegistryStoreDescription(), "/tmp/some/where.reg");
}
#endif

} // namespace
