// The example program: it runs, says what it did, and writes exactly the
// bytes docs/FORMAT.md walks through.
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qvbase::test::Lines;
TEST(TypicalRequest, WritesReadsBackAndSkipsTheUnknownSection) {
  qvbase::test::ScratchRegistry registry;
  qvbase::test::TempDir dir;
  std::string path = dir.File("doc.qvd");
  qvbase::test::RunResult r =
      qvbase::test::Run({qvbase::test::BuiltProgram("qvbase_example"), path});
  ASSERT_EQ(r.status, 0) << r.err;
  std::string out = Lines(r.out);
  EXPECT_NE(out.find("read Document version 2: \"Annual report\", 3 pages, author Author\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("  chapter \"Introduction\", 1200 words\n"), std::string::npos);
  EXPECT_NE(out.find("skipped unknown section {B296DC00-E719-A7AC-0000-000000000040}\n"),
            std::string::npos);
  EXPECT_NE(out.find("read Summary: \"Totals\"\n"), std::string::npos);
  std::string bytes = qvbase::test::ReadFile(path);
  ASSERT_EQ(bytes.size(), 203u);
  // The header of "Document" and its first value, as the format page shows.
  const unsigned char head[] = {0x00, 0x80, 0xcb, 0x69, 0x9c, 0x9f, 0xb3, 0x33, 0x00,
                                0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xf0, 0x02, 0x00,
                                0x00, 0x00, 0x81, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                0x00, 0x03, 0x00, 0x00, 0x00, 0x0d, 0x00, 0x00, 0x00};
  EXPECT_EQ(bytes.substr(0, sizeof head),
            std::string(reinterpret_cast<const char*>(head), sizeof head));
  EXPECT_EQ(bytes.substr(0x24, 13), "Annual report");
}

TEST(TypicalRequest, MotorolaOrderReversesIdentifierHalvesAndIntegers) {
  qvbase::test::TempDir dir;
  std::string path = dir.File("doc-mm.qvd");
  qvbase::test::RunResult r =
      qvbase::test::Run({qvbase::test::BuiltProgram("qvbase_example"), path, "--mm"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::string bytes = qvbase::test::ReadFile(path);
  const unsigned char head[] = {0x33, 0xb3, 0x9f, 0x9c, 0x69, 0xcb, 0x80, 0x00, 0xf0, 0x00,
                                0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02,
                                0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x81};
  EXPECT_EQ(bytes.substr(0, sizeof head),
            std::string(reinterpret_cast<const char*>(head), sizeof head));
}

} // namespace
