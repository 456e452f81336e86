// The platform layer's process helpers that the tools and examples use
// directly: whether standard output is a terminal, and the environment.
#include "native/Process.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using qvbase::native::GetEnv;
using qvbase::native::SetEnv;
using qvbase::native::StandardOutputIsTerminal;

// Prints what the child's standard output is.
int TerminalRole(const std::vector<std::string>&) {
  std::printf("%s\n", StandardOutputIsTerminal() ? "terminal" : "not a terminal");
  return 0;
}

const bool kTerminalRoleRegistered = qvtest::RegisterChildRole("stdout-terminal", TerminalRole);

TEST(Process, StandardOutputWrittenToAFileIsNotATerminal) {
  ASSERT_TRUE(kTerminalRoleRegistered);
  qvtest::RunResult r = qvtest::Run({qvtest::SelfPath(), "--qvtest-child", "stdout-terminal"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, r.out.find_first_of("\r\n")), "not a terminal");
}

TEST(Process, EnvironmentValuesAreSetReadAndRemoved) {
  const char* name = "QVBASE_PROCESS_TEST_VALUE";
  ASSERT_TRUE(SetEnv(name, "one two"));
  std::string value;
  ASSERT_TRUE(GetEnv(name, &value));
  EXPECT_EQ(value, "one two");
  ASSERT_TRUE(SetEnv(name, nullptr));
  EXPECT_FALSE(GetEnv(name, &value));
}

} // namespace
