// The progress-bar example: a copy under a console progress dialog, written
// to a file as one line per refresh; Ctrl-C leaves a prefix of the source,
// closed; failures and wrong usage.
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The lines of the program's output, line ends of either platform taken off.
std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// One refresh of the bar for a copy of 4 MiB.
const std::regex kBarLine(
    R"(\[[#-]{30}\] +\d+\.\d%  \d+\.\d of 4\.0 MiB  \d+\.\d MiB/s  (\d\d:\d\d:\d\d|--:--:--) left)");

std::vector<std::string> BarLines(const std::vector<std::string>& lines) {
  std::vector<std::string> bars;
  for (const std::string& line : lines)
    if (!line.empty() && line[0] == '[')
      bars.push_back(line);
  return bars;
}

TEST(CopyWithProgress, CopiesAndDrawsOneLinePerRefreshWhenNotOnATerminal) {
  qvtest::TempDir dir;
  const std::string source = dir.File("source.bin"), destination = dir.File("copy.bin");
  qvtest::RunResult r = qvtest::Run({qvtest::BuiltProgram("copy_with_progress"), "--size", "4",
                                     "--delay", "0", source, destination});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<std::string> lines = Lines(r.out);
  ASSERT_GE(lines.size(), 4u) << r.out;
  EXPECT_EQ(lines.front(), "copying " + source + " to " + destination + ": 4194304 bytes");
  EXPECT_EQ(lines.back().rfind("copied 4194304 bytes in ", 0), 0u) << lines.back();
  // Redrawing in place is for terminals: no carriage return within a line.
  for (const std::string& line : lines)
    EXPECT_EQ(line.find('\r'), std::string::npos) << line;
  const std::vector<std::string> bars = BarLines(lines);
  ASSERT_GE(bars.size(), 2u);
  for (const std::string& bar : bars)
    EXPECT_TRUE(std::regex_match(bar, kBarLine)) << bar;
  // Shown at the start (show delay 0), drawn complete at the stop.
  EXPECT_EQ(bars.front(),
            "[------------------------------]   0.0%  0.0 of 4.0 MiB  0.0 MiB/s  --:--:-- left");
  EXPECT_EQ(bars.back().rfind("[##############################] 100.0%  4.0 of 4.0 MiB  ", 0), 0u)
      << bars.back();
  const std::string copied = qvtest::ReadFile(destination);
  EXPECT_EQ(copied.size(), 4194304u);
  EXPECT_TRUE(copied == qvtest::ReadFile(source));
}

TEST(CopyWithProgress, ACopyDoneWithinTheShowDelayDrawsNoBar) {
  qvtest::TempDir dir;
  const std::string source = dir.File("source.bin"), destination = dir.File("copy.bin");
  qvtest::RunResult r = qvtest::Run({qvtest::BuiltProgram("copy_with_progress"), "--size", "1",
                                     "--delay", "3600000", source, destination});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<std::string> lines = Lines(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;
  EXPECT_EQ(lines[1].rfind("copied 1048576 bytes in ", 0), 0u);
  EXPECT_EQ(qvtest::ReadFile(destination).size(), 1048576u);
}

TEST(CopyWithProgress, CtrlCLeavesAClosedPrefixOfTheSourceAndExits130) {
  qvtest::TempDir dir;
  const std::string source = dir.File("source.bin"), destination = dir.File("copy.bin");
  qvtest::RunResult r =
      qvtest::Run({qvtest::BuiltProgram("copy_with_progress"), "--size", "4", "--delay", "0",
                   "--interrupt-at", "1000000", source, destination});
  ASSERT_EQ(r.status, 130) << r.err;
  const std::vector<std::string> lines = Lines(r.out);
  ASSERT_FALSE(lines.empty());
  const std::string& last = lines.back();
  const std::string head = "cancelled: " + destination + " holds the first ";
  ASSERT_EQ(last.rfind(head, 0), 0u) << last;
  const unsigned long long kept = std::stoull(last.substr(head.size()));
  EXPECT_EQ(last, head + std::to_string(kept) + " bytes of " + source);
  // Whole chunks of 2048 bytes, the one during which the signal came included.
  EXPECT_EQ(kept % 2048, 0u);
  EXPECT_GE(kept, 1000000u);
  EXPECT_LT(kept, 1000000u + 2 * 2048);
  const std::string copied = qvtest::ReadFile(destination);
  ASSERT_EQ(copied.size(), kept);
  EXPECT_TRUE(copied == qvtest::ReadFile(source).substr(0, kept));
  // The last bar is where the copy stopped, not a completed one.
  const std::vector<std::string> bars = BarLines(lines);
  ASSERT_FALSE(bars.empty());
  EXPECT_TRUE(std::regex_match(bars.back(), kBarLine)) << bars.back();
  EXPECT_EQ(bars.back().find("100.0%"), std::string::npos);
}

TEST(CopyWithProgress, AMissingSourceFailsWithOneLine) {
  qvtest::TempDir dir;
  qvtest::RunResult r = qvtest::Run(
      {qvtest::BuiltProgram("copy_with_progress"), dir.File("missing.bin"), dir.File("copy.bin")});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("copy_with_progress: error 2302 at FileStreamHdl(", 0), 0u) << r.err;
  EXPECT_NE(r.err.find("missing.bin"), std::string::npos);
  EXPECT_EQ(Lines(r.err).size(), 1u);
}

TEST(CopyWithProgress, WrongUsageExits2) {
  const std::vector<std::vector<std::string>> rows = {
      {},
      {"only-one"},
      {"a", "b", "c"},
      {"--size"},
      {"--size", "x", "a", "b"},
      {"--frobnicate", "a", "b"},
  };
  for (const std::vector<std::string>& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row));
    std::vector<std::string> argv = {qvtest::BuiltProgram("copy_with_progress")};
    argv.insert(argv.end(), row.begin(), row.end());
    qvtest::RunResult r = qvtest::Run(argv);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.rfind("usage: copy_with_progress", 0), 0u) << r.err;
  }
}

} // namespace
