// Benchmarks: switched on by the registry, charging instrumented calls per
// call site, nesting, and the results file they append to.
#include <qvbase/PBenchmark.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PString.h>
#include <qvbase/PUNIString.h>

#include "native/Registry.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

using qvbase::native::CreateRegKey;
using qvbase::native::DeleteRegTree;
using qvbase::native::kRegLocalMachine;
using qvbase::native::RegKey;

const char kBenchmarksKey[] = "Software\\Varnel\\Benchmarks";

// A benchmark switch of the test's own: the key
// HKLM\Software\Varnel\Benchmarks\<group>\<name> with a default value, in a
// private store on POSIX and below a group no other test uses on Windows,
// where the group is deleted at the end.
class ScopedBenchmarkSwitch {
public:
  ScopedBenchmarkSwitch(const std::string& group, const std::string& name)
      : m_group(group), m_name(name) {}
  ~ScopedBenchmarkSwitch() {
    DeleteRegTree(kRegLocalMachine, (std::string(kBenchmarksKey) + "\\" + m_group).c_str());
  }
  ScopedBenchmarkSwitch(const ScopedBenchmarkSwitch&) = delete;
  ScopedBenchmarkSwitch& operator=(const ScopedBenchmarkSwitch&) = delete;

  // Sets the value `valueName` (empty: the default value) of the key.
  void Set(const char* valueName, DWORD type, const void* data, DWORD size) {
    RegKey key = nullptr;
    const std::string path = std::string(kBenchmarksKey) + "\\" + m_group + "\\" + m_name;
    ASSERT_EQ(CreateRegKey(kRegLocalMachine, path.c_str(), nullptr, qvbase::native::kKeyAllAccess,
                           &key, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(
        qvbase::native::SetRegValue(key, valueName, type, static_cast<const BYTE*>(data), size),
        ERROR_SUCCESS);
    qvbase::native::CloseRegKey(key);
  }
  void SetResultsFile(const std::string& path) {
    Set("", qvbase::native::kRegSz, path.c_str(), static_cast<DWORD>(path.size() + 1));
  }

private:
  std::string m_group, m_name;
};

// One benchmark switched on for the test: a private registry, a results
// file in a scratch folder, and a group named after the test.
class BenchmarkFixture : public ::testing::Test {
protected:
  BenchmarkFixture()
      : m_group(std::string("qvbase-tests-") +
                ::testing::UnitTest::GetInstance()->current_test_info()->name()),
        m_switch(m_group, "Run"), m_results(m_dir.File("results.txt")) {}

  void SwitchOn() { m_switch.SetResultsFile(m_results); }
  std::string Results() const {
    return qvtest::FileExists(m_results) ? qvtest::ReadFile(m_results) : std::string();
  }

  qvtest::ScratchRegistry m_registry;
  qvtest::TempDir m_dir;
  std::string m_group;
  ScopedBenchmarkSwitch m_switch;
  std::string m_results;
};

struct Line {
  std::string first, second, third;
  unsigned count = 0;
  double own = 0, inclusive = 0;
};

// The record lines of a results file, in file order; header and empty
// lines are left out.
std::vector<Line> RecordLines(const std::string& text) {
  static const std::regex kLine(
      R"(^(.*),(.*) \((.*)\) {17}(\d+) {3}(-?\d+\.\d{3}) s {4}(-?\d+\.\d{3}) s\r?$)");
  std::vector<Line> lines;
  std::istringstream in(text);
  std::string raw;
  while (std::getline(in, raw)) {
    std::smatch m;
    if (!std::regex_match(raw, m, kLine))
      continue;
    Line line;
    line.first = m[1];
    line.second = m[2];
    line.third = m[3];
    line.count = static_cast<unsigned>(std::stoul(m[4]));
    line.own = std::stod(m[5]);
    line.inclusive = std::stod(m[6]);
    lines.push_back(line);
  }
  return lines;
}

// Busy for `seconds` of the steady clock: the time the profiler should see.
void Spin(double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
  }
}

// A benchmark that counts its hooks.
class CountingBenchmark : public PBenchmark {
public:
  CountingBenchmark(const char* group, const char* name) : PBenchmark(group, name) {}
  void Started() override { ++started; }
  void Stopped() override { ++stopped; }
  int started = 0;
  int stopped = 0;
};

using Benchmark = BenchmarkFixture;

// ---------------------------------------------------------------------------
// Switching on

TEST_F(Benchmark, AStringDefaultValueActivatesItAndNamesTheResultsFile) {
  SwitchOn();
  CountingBenchmark benchmark(m_group.c_str(), "Run");
  EXPECT_FALSE(benchmark.IsActive());
  benchmark.Start();
  EXPECT_TRUE(benchmark.IsActive());
  EXPECT_EQ(benchmark.started, 1);
  EXPECT_EQ(PBenchmark::FirstActive(), &benchmark);
  ASSERT_NE(benchmark.GetResultsPath(), nullptr);
  EXPECT_EQ(std::string(benchmark.GetResultsPath()), m_results);
  benchmark.Start();
  EXPECT_EQ(benchmark.started, 1);
}

TEST_F(Benchmark, ANonStringDefaultValueLeavesItInactiveAndWritesNothing) {
  const DWORD number = 7;
  m_switch.Set("", qvbase::native::kRegDword, &number, sizeof number);
  {
    CountingBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    EXPECT_FALSE(benchmark.IsActive());
    EXPECT_EQ(benchmark.started, 0);
    EXPECT_EQ(PBenchmark::FirstActive(), nullptr);
    PBenchmarkCall call("A", "B", "C");
    EXPECT_EQ(PBenchmarkCall::Innermost(), nullptr);
  }
  EXPECT_FALSE(qvtest::FileExists(m_results));
}

TEST_F(Benchmark, AStringInANamedValueOrAMissingKeyLeavesItInactive) {
  m_switch.Set("file", qvbase::native::kRegSz, m_results.c_str(),
               static_cast<DWORD>(m_results.size() + 1));
  PBenchmark named(m_group.c_str(), "Run");
  named.Start();
  EXPECT_FALSE(named.IsActive());
  PBenchmark missing(m_group.c_str(), "Absent");
  missing.Start();
  EXPECT_FALSE(missing.IsActive());
  PBenchmark unnamed(nullptr, "Run");
  unnamed.Start();
  EXPECT_FALSE(unnamed.IsActive());
}

TEST_F(Benchmark, StoppingUnlinksItAndRunsStoppedOnce) {
  SwitchOn();
  CountingBenchmark older(m_group.c_str(), "Run");
  CountingBenchmark newer(m_group.c_str(), "Run");
  older.Start();
  newer.Start();
  EXPECT_EQ(PBenchmark::FirstActive(), &newer);
  EXPECT_EQ(newer.NextActive(), &older);
  newer.Stop();
  EXPECT_FALSE(newer.IsActive());
  EXPECT_EQ(newer.stopped, 1);
  EXPECT_EQ(PBenchmark::FirstActive(), &older);
  EXPECT_EQ(older.NextActive(), nullptr);
  newer.Stop();
  EXPECT_EQ(newer.stopped, 1);
  older.Stop();
  EXPECT_EQ(PBenchmark::FirstActive(), nullptr);
}

TEST_F(Benchmark, CanStopAnswersTrueAndNothingCallsIt) {
  PBenchmark benchmark(m_group.c_str(), "Run");
  EXPECT_TRUE(benchmark.CanStop());
}

// Deliberate and kept: a copy shares the original's links, flag and
// records; it is never destroyed here, since only the original may be.
TEST_F(Benchmark, ACopyCarriesTheLinksTextsFlagAndResultsAsTheyAre) {
  SwitchOn();
  PBenchmark older(m_group.c_str(), "Run");
  PBenchmark original(m_group.c_str(), "Run");
  older.Start();
  original.Start();
  alignas(PBenchmark) unsigned char storage[sizeof(PBenchmark)];
  PBenchmark* copy = new (storage) PBenchmark(original);
  EXPECT_TRUE(copy->IsActive());
  EXPECT_EQ(copy->GetGroup(), original.GetGroup());
  EXPECT_EQ(copy->GetName(), original.GetName());
  EXPECT_EQ(copy->NextActive(), &older);
  EXPECT_EQ(copy->GetResultsPath(), original.GetResultsPath());
  EXPECT_EQ(PBenchmark::FirstActive(), &original);
  // Assignment copies the same way, over whatever the target held.
  alignas(PBenchmark) unsigned char other[sizeof(PBenchmark)];
  PBenchmark* assigned = new (other) PBenchmark("Other", "Name");
  *assigned = original;
  EXPECT_TRUE(assigned->IsActive());
  EXPECT_EQ(assigned->GetGroup(), original.GetGroup());
  EXPECT_EQ(assigned->GetName(), original.GetName());
  EXPECT_EQ(assigned->NextActive(), &older);
  EXPECT_EQ(assigned->GetResultsPath(), original.GetResultsPath());
}

TEST_F(Benchmark, StartedAgainAfterStopItAddsToTheRecordsItHas) {
  SwitchOn();
  {
    CountingBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    { PBenchmarkCall call("Site", "Call", "test"); }
    benchmark.Stop();
    { PBenchmarkCall call("Site", "Call", "test"); } // not charged
    benchmark.Start();
    EXPECT_EQ(benchmark.started, 2);
    { PBenchmarkCall call("Site", "Call", "test"); }
  }
  const std::string text = Results();
  const std::vector<Line> lines = RecordLines(text);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].count, 2u);
  const std::string header = "Benchmark results for " + m_group + " Run";
  EXPECT_NE(text.find(header), std::string::npos);
  EXPECT_EQ(text.find(header), text.rfind(header));
}

// ---------------------------------------------------------------------------
// Charging calls

TEST_F(Benchmark, EqualTextsAtDifferentAddressesAreTwoRecords) {
  static const char kFirstA[] = "Document";
  static const char kFirstB[] = "Document";
  static const char kSecond[] = "Save";
  static const char kThird[] = "doc.cpp";
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    { PBenchmarkCall call(kFirstA, kSecond, kThird); }
    { PBenchmarkCall call(kFirstB, kSecond, kThird); }
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 2u);
  for (const Line& line : lines) {
    EXPECT_EQ(line.first, "Document");
    EXPECT_EQ(line.second, "Save");
    EXPECT_EQ(line.third, "doc.cpp");
    EXPECT_EQ(line.count, 1u);
  }
}

TEST_F(Benchmark, OneCallSiteRunManyTimesIsOneRecordWithItsCount) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    for (int i = 0; i < 5; ++i) {
      PBenchmarkCall call("Loop", "Body", "test");
    }
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].count, 5u);
}

TEST_F(Benchmark, NewRecordsComeFirstInTheFile) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    { PBenchmarkCall call("First", "Site", "test"); }
    { PBenchmarkCall call("Second", "Site", "test"); }
    { PBenchmarkCall call("First", "Site", "test"); }
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].first, "Second");
  EXPECT_EQ(lines[1].first, "First");
  EXPECT_EQ(lines[1].count, 2u);
}

TEST_F(Benchmark, ANestedCallCountsInTheOuterInclusiveTimeAndNotInItsOwn) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    PBenchmarkCall outer("Outer", "Block", "test");
    {
      PBenchmarkCall inner("Inner", "Block", "test");
      Spin(0.08);
    }
    outer.ExitCall();
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 2u);
  const Line& outer = lines[0].first == "Outer" ? lines[0] : lines[1];
  const Line& inner = lines[0].first == "Inner" ? lines[0] : lines[1];
  EXPECT_GE(inner.own, 0.075);
  EXPECT_EQ(inner.own, inner.inclusive);
  EXPECT_GE(outer.inclusive, 0.075);
  EXPECT_LT(outer.own, 0.03);
}

TEST_F(Benchmark, OwnTimeIsWhatTheBlockSpendsOutsideItsCalls) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    PBenchmarkCall outer("Outer", "Block", "test");
    Spin(0.06);
    { PBenchmarkCall inner("Inner", "Block", "test"); }
    outer.ExitCall();
  }
  for (const Line& line : RecordLines(Results())) {
    if (line.first == "Outer") {
      EXPECT_GE(line.own, 0.055);
    } else {
      EXPECT_LT(line.inclusive, 0.03);
    }
  }
}

TEST_F(Benchmark, CallsStartedWhileNoBenchmarkWasActiveAreNeverCharged) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    PBenchmarkCall before("Before", "Start", "test");
    benchmark.Start();
    { PBenchmarkCall after("After", "Start", "test"); }
    EXPECT_EQ(PBenchmarkCall::Innermost(), nullptr);
    before.ExitCall();
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].first, "After");
}

TEST_F(Benchmark, ExitCallEndsOnlyTheInnermostCallAndOnlyOnce) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    PBenchmarkCall outer("Outer", "Block", "test");
    PBenchmarkCall inner("Inner", "Block", "test");
    outer.ExitCall(); // not the innermost: nothing happens
    EXPECT_EQ(PBenchmarkCall::Innermost(), &inner);
    inner.ExitCall();
    EXPECT_EQ(PBenchmarkCall::Innermost(), &outer);
    inner.ExitCall();
    outer.ExitCall();
    EXPECT_EQ(PBenchmarkCall::Innermost(), nullptr);
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].count, 1u);
  EXPECT_EQ(lines[1].count, 1u);
}

TEST_F(Benchmark, EveryActiveBenchmarkIsCharged) {
  SwitchOn();
  const std::string second = m_dir.File("second.txt");
  ScopedBenchmarkSwitch other(m_group + "-other", "Run");
  other.SetResultsFile(second);
  const std::string otherGroup = m_group + "-other";
  {
    PBenchmark one(m_group.c_str(), "Run");
    PBenchmark two(otherGroup.c_str(), "Run");
    one.Start();
    two.Start();
    { PBenchmarkCall call("Shared", "Call", "test"); }
    two.Stop();
    { PBenchmarkCall call("Shared", "Call", "test"); }
  }
  ASSERT_EQ(RecordLines(Results()).size(), 1u);
  EXPECT_EQ(RecordLines(Results())[0].count, 2u);
  ASSERT_EQ(RecordLines(qvtest::ReadFile(second)).size(), 1u);
  EXPECT_EQ(RecordLines(qvtest::ReadFile(second))[0].count, 1u);
}

TEST_F(Benchmark, NullTextsPrintAsEmpty) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    { PBenchmarkCall call(nullptr, "Second", nullptr); }
  }
  const std::vector<Line> lines = RecordLines(Results());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].first, "");
  EXPECT_EQ(lines[0].second, "Second");
  EXPECT_EQ(lines[0].third, "");
}

TEST_F(Benchmark, TheLibrarysInstrumentedCallsAreCharged) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    PStream stream(new PMemoryStreamHdl(64));
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    PStreamSection section = OpenWriteSection(stream, PAutomaticUID("Part"), 1);
    section.Write(static_cast<LONG>(1));
    section.Close();
    stream.MoveTo(0);
    SkipCurrentSection(stream);
    stream.MoveTo(0);
    OpenReadSection(stream, PAutomaticUID("Part")).Close();
    stream.Close();
    PASCIIString ascii("a needle in a haystack");
    ascii.FindForward("needle", 0, kStrCompExact);
    ascii.FindBackward("needle", 20, kStrCompExact);
    PMBString multibyte("a needle in a haystack");
    multibyte.FindForward("needle", 0, kStrCompExact);
    PUNIString unicode(PString("a needle in a haystack"));
    unicode.FindBackward("needle", 20, kStrCompExact);
  }
  std::vector<std::string> sites;
  for (const Line& line : RecordLines(Results()))
    sites.push_back(line.first + "," + line.second + " (" + line.third + ") " +
                    std::to_string(line.count));
  const char* const expected[] = {
      "PStreamHdl,Open (src\\PStream) 3",
      "PStreamHdl,Close (src\\PStream) 3",
      "PStreamSection,OpenWriteSection (src\\PStreamSection) 1",
      "PStreamSection,OpenReadSection (src\\PStreamSection) 1",
      "PStreamSection,SkipCurrentSection (src\\PStreamSection) 1",
      "PStreamSectionHdl,Close (src\\PStreamSection) 2",
      "PASCIIStringHandler,FindSubHandlerFwd (src\\PASCIIString) 1",
      "PASCIIStringHandler,FindSubHandlerBwd (src\\PASCIIString) 1",
      "PMBStringHandler,FindSubHandlerFwd (src\\PMBString) 1",
      "PUNIStringHandler,FindSubHandlerBwd (src\\PUNIString) 1",
  };
  for (const char* site : expected)
    EXPECT_NE(std::find(sites.begin(), sites.end(), site), sites.end()) << site;
}

// ---------------------------------------------------------------------------
// The results file

TEST_F(Benchmark, ResultsAreWrittenOnceAtDestructionEvenAfterStop) {
  SwitchOn();
  {
    CountingBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    { PBenchmarkCall call("Charged", "Call", "test"); }
    benchmark.Stop();
    EXPECT_EQ(benchmark.stopped, 1);
    EXPECT_FALSE(qvtest::FileExists(m_results));
    { PBenchmarkCall call("Uncharged", "Call", "test"); }
  }
  const std::string text = Results();
  const std::vector<Line> lines = RecordLines(text);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].first, "Charged");
  const std::string header = "Benchmark results for " + m_group + " Run";
  EXPECT_EQ(text.find(header), text.rfind(header));
}

TEST_F(Benchmark, TheHeaderFollowsItsLinesAndEachRunIsAppended) {
  SwitchOn();
  for (int run = 0; run < 2; ++run) {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    PBenchmarkCall call("Run", run == 0 ? "One" : "Two", "test");
    call.ExitCall();
  }
  std::string text = Results();
  text = std::regex_replace(text, std::regex("\r\n"), "\n");
  const std::string time = R"(-?\d+\.\d{3} s)";
  const std::string header = "Benchmark results for " + m_group + " Run\n\n\n\n";
  const std::regex expected("Run,One \\(test\\)                 1   " + time + "    " + time +
                            "\n" + header + "Run,Two \\(test\\)                 1   " + time +
                            "    " + time + "\n" + header);
  EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

TEST_F(Benchmark, ABenchmarkWithoutCallsWritesItsHeaderOnly) {
  SwitchOn();
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
  }
  std::string text = std::regex_replace(Results(), std::regex("\r\n"), "\n");
  EXPECT_EQ(text, "Benchmark results for " + m_group + " Run\n\n\n\n");
}

TEST_F(Benchmark, AResultsFileThatCannotBeOpenedIsSkippedQuietly) {
  m_switch.SetResultsFile(m_dir.File("no-such-folder/results.txt"));
  {
    PBenchmark benchmark(m_group.c_str(), "Run");
    benchmark.Start();
    EXPECT_TRUE(benchmark.IsActive());
    PBenchmarkCall call("A", "B", "C");
  }
  EXPECT_FALSE(qvtest::FileExists(m_dir.File("no-such-folder/results.txt")));
}

TEST_F(Benchmark, AnInactiveBenchmarkWritesNothing) {
  { PBenchmark benchmark(m_group.c_str(), "Run"); }
  EXPECT_FALSE(qvtest::FileExists(m_results));
}

} // namespace
