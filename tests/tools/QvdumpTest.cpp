// qvdump, the section tree printer: its output, names of PAutomaticUID
// identifiers, hex dumps, bad input and usage errors.
#include "support/JsonTestSupport.h"
#include "support/TestSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using qvbase::test::IsOneLine;
using qvbase::test::Lines;
using qvbase::test::RunResult;

RunResult Qvdump(std::vector<std::string> args) {
  args.insert(args.begin(), qvbase::test::BuiltProgram("qvdump"));
  return qvbase::test::Run(args);
}

std::string Text(const PUniversalID& id) {
  PMBString text = static_cast<PString>(id);
  return static_cast<const char*>(text);
}

PStream NewStream(unsigned short ordering) {
  PStream stream(new PMemoryStreamHdl(64));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

std::string Content(PStream& stream) {
  std::string bytes(static_cast<std::size_t>(stream.GetSize()), '\0');
  stream.MoveTo(0);
  if (!bytes.empty())
    stream.Read(&bytes[0], static_cast<ULONG>(bytes.size()), 1);
  return bytes;
}

void WriteBody(PStream& section, const std::string& body) {
  if (!body.empty())
    section.Write(body.data(), static_cast<ULONG>(body.size()), 1);
}

void AddSection(PStream& parent, const PUniversalID& id, ULONG version, const std::string& body) {
  PStreamSection section = OpenWriteSection(parent, id, version);
  WriteBody(section, body);
  section.Close();
}

const PAutomaticUID kOuter("Outer");
const PAutomaticUID kInner("Inner");
const PAutomaticUID kEmpty("Empty");
const PUniversalID kPlain(PASCIIString("{12345678-9ABC-DEF0-1122-334455667788}", true));

// Outer (version 2) holding Inner ("Hello") and Empty, then a section with
// an identifier not made from a name and a 3-byte body.
std::string SmallFile(unsigned short ordering) {
  PStream file = NewStream(ordering);
  {
    PStreamSection outer = OpenWriteSection(file, kOuter, 2);
    AddSection(outer, kInner, 1, "Hello");
    AddSection(outer, kEmpty, 3, "");
    outer.Close();
  }
  AddSection(file, kPlain, 7, "xyz");
  return Content(file);
}

std::string SmallTree() {
  return "0 " + Text(kOuter) + " \"Outer\" version 2 size 89\n" +    //
         "  28 " + Text(kInner) + " \"Inner\" version 1 size 33\n" + //
         "  61 " + Text(kEmpty) + " \"Empty\" version 3 size 28\n" + //
         "89 {12345678-9ABC-DEF0-1122-334455667788} version 7 size 31\n";
}

RunResult DumpBytes(const std::string& bytes, std::vector<std::string> options = {}) {
  qvbase::test::TempDir dir;
  std::string path = dir.File("sections.bin");
  qvbase::test::WriteFile(path, bytes);
  options.push_back(path);
  return Qvdump(options);
}

void SetSize(std::string& bytes, std::size_t sectionAt, unsigned long long size) {
  for (int i = 0; i < 8; ++i)
    bytes[sectionAt + 20 + i] = static_cast<char>((size >> (8 * i)) & 0xFF);
}

void ExpectBadInput(const RunResult& r, const std::string& message) {
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(Lines(r.err), "qvdump: " + message + "\n");
  EXPECT_EQ(r.out, "");
}

TEST(Qvdump, PrintsTheNestedTreeOfALittleEndianFile) {
  RunResult r = DumpBytes(SmallFile(kByteOrderingIntel));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out), SmallTree());
  EXPECT_EQ(r.err, "");

  RunResult explicitOrder = DumpBytes(SmallFile(kByteOrderingIntel), {"--ii"});
  EXPECT_EQ(explicitOrder.status, 0) << explicitOrder.err;
  EXPECT_EQ(Lines(explicitOrder.out), SmallTree());
}

TEST(Qvdump, PrintsTheSameTreeOfABigEndianFileWithMm) {
  RunResult r = DumpBytes(SmallFile(kByteOrderingMotorola), {"--mm"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out), SmallTree());
}

TEST(Qvdump, ReadingInTheWrongByteOrderIsBadInput) {
  // The first size, 89, read big-endian is 89 << 56.
  RunResult r = DumpBytes(SmallFile(kByteOrderingIntel), {"--mm"});
  ExpectBadInput(r, "section at offset 0: size 6413125869375586304 runs past "
                    "the end of the file at offset 120");
}

TEST(Qvdump, ShowsTheNameOfAnAutomaticIdentifier) {
  PStream file = NewStream(kByteOrderingIntel);
  AddSection(file, PAutomaticUID("A"), 1, "");
  AddSection(file, PAutomaticUID("Twenty0123456789abcd"), 1, "");
  RunResult r = DumpBytes(Content(file));
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out), "0 {00000000-0000-42C0-0000-000000000010} \"A\" version 1 size 28\n"
                          "28 " +
                              Text(PAutomaticUID("Twenty0123456789abcd")) +
                              " \"Twenty0123456789abcd\" version 1 size 28\n");
}

TEST(Qvdump, ShowsNoNameWhenTheIdentifierIsNotRebuiltExactly) {
  // "a-b" places the codes of "ab" but its checksum counts the hyphen;
  // a name longer than twenty codes cannot be rebuilt either.
  const PUniversalID ids[] = {kPlain, PAutomaticUID("a-b"), PAutomaticUID("Twentyone0123456789ab"),
                              PUniversalID()};
  for (const PUniversalID& id : ids) {
    SCOPED_TRACE(Text(id));
    PStream file = NewStream(kByteOrderingIntel);
    AddSection(file, id, 4, "");
    RunResult r = DumpBytes(Content(file));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(Lines(r.out), "0 " + Text(id) + " version 4 size 28\n");
  }
}

TEST(Qvdump, HexDumpsBodiesThatAreNotSections) {
  PStream file = NewStream(kByteOrderingIntel);
  {
    PStreamSection outer = OpenWriteSection(file, kOuter, 1);
    AddSection(outer, kInner, 1, std::string("Hello, sections!\x00\x01\xFF", 19));
    outer.Close();
  }
  RunResult r = DumpBytes(Content(file), {"--hex"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out),
            "0 " + Text(kOuter) + " \"Outer\" version 1 size 75\n" + //
                "  28 " + Text(kInner) + " \"Inner\" version 1 size 47\n" +
                "    00000038  48 65 6C 6C 6F 2C 20 73  65 63 74 69 6F 6E 73 "
                "21  |Hello, sections!|\n"
                "    00000048  00 01 FF                                        "
                "  |...|\n");

  RunResult plain = DumpBytes(Content(file));
  EXPECT_EQ(plain.status, 0) << plain.err;
  EXPECT_EQ(Lines(plain.out).find("00000038"), std::string::npos);
}

TEST(Qvdump, ABodyWithABrokenSectionIsShownAsData) {
  PStream file = NewStream(kByteOrderingIntel);
  {
    PStreamSection outer = OpenWriteSection(file, kOuter, 1);
    AddSection(outer, kInner, 1, "");
    outer.Close();
  }
  std::string bytes = Content(file);
  SetSize(bytes, 28, 29); // one byte past its parent
  RunResult r = DumpBytes(bytes);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(r.out), "0 " + Text(kOuter) + " \"Outer\" version 1 size 56\n");
}

TEST(Qvdump, SizeBelowTheHeaderIsBadInput) {
  PStream file = NewStream(kByteOrderingIntel);
  AddSection(file, kOuter, 1, "");
  AddSection(file, kInner, 1, "");
  std::string bytes = Content(file);
  SetSize(bytes, 28, 27);
  ExpectBadInput(DumpBytes(bytes), "section at offset 28: size 27 is below the 28-byte header");
}

TEST(Qvdump, SizeZeroWhichWouldMakeNoProgressIsBadInput) {
  PStream file = NewStream(kByteOrderingIntel);
  AddSection(file, kOuter, 1, "abc");
  AddSection(file, kInner, 1, "");
  std::string bytes = Content(file);
  SetSize(bytes, 31, 0);
  ExpectBadInput(DumpBytes(bytes), "section at offset 31: size 0 is below the 28-byte header");
}

TEST(Qvdump, SectionRunningPastTheEndOfTheFileIsBadInput) {
  PStream file = NewStream(kByteOrderingIntel);
  AddSection(file, kOuter, 1, "");
  AddSection(file, kInner, 1, "body");
  std::string bytes = Content(file);
  SetSize(bytes, 28, 33);
  ExpectBadInput(DumpBytes(bytes), "section at offset 28: size 33 runs past "
                                   "the end of the file at offset 60");
  // The largest size a header can hold asks for no memory.
  SetSize(bytes, 28, ~0ULL);
  ExpectBadInput(DumpBytes(bytes), "section at offset 28: size 18446744073709551615 runs past "
                                   "the end of the file at offset 60");
}

TEST(Qvdump, HeaderCutShortIsBadInput) {
  PStream file = NewStream(kByteOrderingIntel);
  AddSection(file, kOuter, 1, "");
  std::string bytes = Content(file) + std::string(10, 'z');
  ExpectBadInput(DumpBytes(bytes), "section at offset 28: header cut short: 10 "
                                   "of 28 bytes before the end of the file");
}

// Outer holding Inner holding Inner ..., `levels` sections deep.
std::string NestedFile(int levels) {
  PStream file = NewStream(kByteOrderingIntel);
  std::vector<PStreamSection> open;
  open.reserve(static_cast<std::size_t>(levels));
  open.push_back(OpenWriteSection(file, kOuter, 1));
  for (int i = 1; i < levels; ++i)
    open.push_back(OpenWriteSection(open.back(), kInner, 1));
  while (!open.empty()) {
    open.back().Close();
    open.pop_back();
  }
  return Content(file);
}

TEST(Qvdump, DeepNestingIsCutOffWithANote) {
  RunResult r = DumpBytes(NestedFile(150));
  EXPECT_EQ(r.status, 0) << r.err;
  std::string out = Lines(r.out);
  EXPECT_EQ(out.rfind("0 " + Text(kOuter) + " \"Outer\" version 1 size 4200\n", 0), 0u);
  EXPECT_NE(out.find("(sections nested deeper than 100 levels are not opened)\n"),
            std::string::npos);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 101);
}

TEST(Qvdump, EmptyFilePrintsNothing) {
  RunResult r = DumpBytes("");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
}

TEST(Qvdump, MissingFileIsBadInput) {
  qvbase::test::TempDir dir;
  RunResult r = Qvdump({dir.File("absent.bin")});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
  EXPECT_NE(r.err.find("absent.bin"), std::string::npos);
}

TEST(Qvdump, FileLargerThanOneGibibyteIsRefusedBeforeReading) {
  qvbase::test::TempDir dir;
  std::string f = dir.File("huge.bin");
  qvbase::test::WriteFile(f, "");
  // Sparse: one byte over the limit, without writing a gibibyte.
  std::filesystem::resize_file(f, (std::uintmax_t(1) << 30) + 1);
  RunResult r = Qvdump({f});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
  EXPECT_NE(r.err.find("is larger than 1 GiB"), std::string::npos) << r.err;
  EXPECT_EQ(r.out, "");
}

// A directory used to be measured as "larger than 1 GiB".
TEST(Qvdump, ADirectoryIsNamedAsADirectory) {
  qvtest::TempDir dir;
  RunResult r = Qvdump({dir.path()});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(IsOneLine(r.err)) << r.err;
  EXPECT_NE(r.err.find("is a directory"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("1 GiB"), std::string::npos) << r.err;
  EXPECT_EQ(r.out, "");
}

TEST(Qvdump, HelpPrintsUsageAndSucceeds) {
  RunResult r = Qvdump({"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("usage: qvdump [--mm|--ii] [--hex] [--json] FILE"), std::string::npos);
}

TEST(Qvdump, WrongUsageExitsWithTwoAndOneLine) {
  qvbase::test::TempDir dir;
  std::string f = dir.File("f.bin");
  qvbase::test::WriteFile(f, "");
  const std::vector<std::vector<std::string>> rows = {
      {}, {"--hex"}, {"--json"}, {"--bogus", f}, {f, f}, {"--mm", "--ii", f},
  };
  for (const auto& row : rows) {
    std::string trace;
    for (const auto& a : row)
      trace += a + " ";
    SCOPED_TRACE(trace);
    RunResult r = Qvdump(row);
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(IsOneLine(r.err)) << r.err;
    EXPECT_EQ(r.err.rfind("qvdump: ", 0), 0u) << r.err;
    EXPECT_EQ(r.out, "");
  }
}

// The JSON form of the tree: the same sections, parsed rather than compared
// as text.
using qvbase::test::Json;
using qvbase::test::ParseJson;

void ExpectSection(const Json& section, const std::string& offset, const PUniversalID& id,
                   const std::string& name, const std::string& version, const std::string& size,
                   const std::string& body) {
  EXPECT_EQ(section["offset"].text, offset);
  EXPECT_EQ(section["id"].text, Text(id));
  if (name.empty()) {
    EXPECT_EQ(section["name"].kind, Json::kNull);
  } else {
    EXPECT_EQ(section["name"].text, name);
  }
  EXPECT_EQ(section["version"].text, version);
  EXPECT_EQ(section["size"].text, size);
  EXPECT_EQ(section["body"].text, body);
}

TEST(Qvdump, JsonGivesTheNestedTreeWithOffsetsIdentifiersNamesVersionsAndSizes) {
  RunResult r = DumpBytes(SmallFile(kByteOrderingIntel), {"--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const Json doc = ParseJson(r.out);
  EXPECT_EQ(doc["byteOrder"].text, "II");
  EXPECT_EQ(doc["size"].text, "120");
  ASSERT_EQ(doc["sections"].items.size(), 2u);
  const Json& outer = doc["sections"][0];
  ExpectSection(outer, "0", kOuter, "Outer", "2", "89", "sections");
  ASSERT_EQ(outer["sections"].items.size(), 2u);
  ExpectSection(outer["sections"][0], "28", kInner, "Inner", "1", "33", "data");
  EXPECT_FALSE(outer["sections"][0].Has("bytes"));
  ExpectSection(outer["sections"][1], "61", kEmpty, "Empty", "3", "28", "empty");
  ExpectSection(doc["sections"][1], "89", kPlain, "", "7", "31", "data");
}

TEST(Qvdump, JsonWithHexGivesTheBytesOfBodiesThatAreNotSections) {
  RunResult r = DumpBytes(SmallFile(kByteOrderingMotorola), {"--mm", "--hex", "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const Json doc = ParseJson(r.out);
  EXPECT_EQ(doc["byteOrder"].text, "MM");
  EXPECT_EQ(doc["sections"][0]["sections"][0]["bytes"].text, "48656c6c6f"); // "Hello"
  EXPECT_FALSE(doc["sections"][0]["sections"][1].Has("bytes"));             // empty body
  EXPECT_EQ(doc["sections"][1]["bytes"].text, "78797a");                    // "xyz"
}

TEST(Qvdump, JsonOfAnEmptyFileHasNoSections) {
  RunResult r = DumpBytes("", {"--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const Json doc = ParseJson(r.out);
  EXPECT_EQ(doc["size"].text, "0");
  EXPECT_EQ(doc["sections"].kind, Json::kArray);
  EXPECT_TRUE(doc["sections"].items.empty());
}

TEST(Qvdump, JsonMarksSectionsNestedTooDeepAsNotOpened) {
  RunResult r = DumpBytes(NestedFile(150), {"--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const Json doc = ParseJson(r.out);
  const Json* level = &doc["sections"][0];
  for (int depth = 0; depth < 99; ++depth) {
    ASSERT_EQ(level->operator[]("body").text, "sections") << "depth " << depth;
    level = &level->operator[]("sections")[0];
  }
  EXPECT_EQ((*level)["body"].text, "not opened");
  EXPECT_FALSE(level->Has("sections"));
}

TEST(Qvdump, JsonOfBadInputPrintsOnlyTheMessage) {
  std::string bytes = SmallFile(kByteOrderingIntel);
  SetSize(bytes, 0, 27);
  RunResult r = DumpBytes(bytes, {"--json"});
  ExpectBadInput(r, "section at offset 0: size 27 is below the 28-byte header");
}

} // namespace
