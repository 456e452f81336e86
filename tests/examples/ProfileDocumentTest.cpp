// The profiler example: silent until its registry switch names a results
// file, then its own blocks and the library's instrumented calls are there.
#include "native/Registry.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qvbase::test::Lines;
const char kSwitchKey[] = "Software\\Varnel\\Benchmarks\\Examples\\Profile";

// The example's switch, in the test's private registry on POSIX; on Windows
// in the build's own Wine prefix, removed again at the end.
class ScopedProfileSwitch {
public:
  explicit ScopedProfileSwitch(const std::string& results) {
    qvbase::native::RegKey key = nullptr;
    EXPECT_EQ(qvbase::native::CreateRegKey(qvbase::native::kRegLocalMachine, kSwitchKey, nullptr,
                                           qvbase::native::kKeyAllAccess, &key, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(qvbase::native::SetRegValue(key, "", qvbase::native::kRegSz,
                                          reinterpret_cast<const BYTE*>(results.c_str()),
                                          static_cast<DWORD>(results.size() + 1)),
              ERROR_SUCCESS);
    qvbase::native::CloseRegKey(key);
  }
  ~ScopedProfileSwitch() {
    qvbase::native::DeleteRegTree(qvbase::native::kRegLocalMachine, kSwitchKey);
  }
  ScopedProfileSwitch(const ScopedProfileSwitch&) = delete;
  ScopedProfileSwitch& operator=(const ScopedProfileSwitch&) = delete;
};

TEST(ProfileDocument, RunsSilentlyWhileTheProfilerIsOff) {
  qvtest::ScratchRegistry registry;
  qvtest::TempDir dir;
  qvtest::RunResult r =
      qvtest::Run({qvtest::BuiltProgram("qvbase_profile_example"), dir.File("doc.qvd"), "400"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string out = Lines(r.out);
  EXPECT_NE(out.find("profiler off:"), std::string::npos) << out;
  EXPECT_NE(out.find("wrote 400 sections"), std::string::npos) << out;
  EXPECT_NE(out.find("read 300 sections, skipped 100"), std::string::npos) << out;
}

TEST(ProfileDocument, AppendsItsBlocksAndTheLibrarysCallsWhenSwitchedOn) {
  qvtest::ScratchRegistry registry;
  qvtest::TempDir dir;
  const std::string results = dir.File("profile.txt");
  ScopedProfileSwitch on(results);
  for (int run = 0; run < 2; ++run) {
    qvtest::RunResult r =
        qvtest::Run({qvtest::BuiltProgram("qvbase_profile_example"), dir.File("doc.qvd"), "400"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(Lines(r.out).find("profiler on: results are appended to " + results),
              std::string::npos)
        << r.out;
  }
  const std::string text = Lines(qvtest::ReadFile(results));
  const char* const expected[] = {
      "Example,WriteSections (profile_document.cpp)                 1   ",
      "Example,ReadSections (profile_document.cpp)                 1   ",
      "Example,FindWords (profile_document.cpp)                 300   ",
      "PStreamSection,OpenWriteSection (src\\PStreamSection)                 400   ",
      "PStreamSection,OpenReadSection (src\\PStreamSection)                 300   ",
      "PStreamSection,SkipCurrentSection (src\\PStreamSection)                 100   ",
      "PStreamSectionHdl,Close (src\\PStreamSection)                 700   ",
      "PBufferizedStreamHdl,Open (src\\PBufferizedStream)                 2   ",
      "PBufferizedStreamHdl,Close (src\\PBufferizedStream)                 2   ",
      "PStreamHdl,Open (src\\PStream)                 702   ",
      "PStreamHdl,Close (src\\PStream)                 700   ",
      "PMBStringHandler,FindSubHandlerFwd (src\\PMBString)                 ",
  };
  for (const char* line : expected) {
    SCOPED_TRACE(line);
    const std::size_t first = text.find(line);
    EXPECT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find(line, first + 1), std::string::npos); // once per run
  }
  const std::string header = "Benchmark results for Examples Profile\n\n\n\n";
  const std::size_t firstHeader = text.find(header);
  ASSERT_NE(firstHeader, std::string::npos);
  EXPECT_EQ(text.rfind(header) + header.size(), text.size()); // each run ends with its header
  EXPECT_GT(text.rfind(header), firstHeader);
}

} // namespace
