// The platform layer's loaded modules: instances and their paths.
#include "native/Modules.h"

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
namespace native = qvbase::native;

int FunctionOfTheExecutable() { return 7; }

TEST(Modules, TheExecutablesCodeIsInTheApplicationInstance) {
  void* instance =
      native::ModuleInstanceContaining(reinterpret_cast<const void*>(&FunctionOfTheExecutable));
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(instance, native::ApplicationInstance());
  std::string path;
  ASSERT_TRUE(native::ModuleInstancePath(instance, &path));
  EXPECT_TRUE(fs::equivalent(path, qvtest::SelfPath())) << path;
}

TEST(Modules, ALibrarysDataIsInItsOwnInstanceWithItsPath) {
  // The C runtime's standard output lives in the runtime library's data.
  void* instance = native::ModuleInstanceContaining(static_cast<const void*>(stdout));
  ASSERT_NE(instance, nullptr);
  EXPECT_NE(instance, native::ApplicationInstance());
  std::string path;
  ASSERT_TRUE(native::ModuleInstancePath(instance, &path));
  EXPECT_TRUE(fs::is_regular_file(path)) << path;
}

TEST(Modules, AnAddressThatIsNoInstanceHasNoPath) {
  int local = 0;
  std::string path = "untouched";
  EXPECT_FALSE(native::ModuleInstancePath(&local, &path));
  EXPECT_FALSE(native::ModuleInstancePath(nullptr, &path));
  EXPECT_FALSE(native::ModuleInstancePath(reinterpret_cast<void*>(0x10), &path));
  EXPECT_EQ(path, "untouched");
  EXPECT_EQ(native::ModuleInstanceContaining(nullptr), nullptr);
}

} // namespace
