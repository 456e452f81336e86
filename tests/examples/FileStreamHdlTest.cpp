// The file handler the examples and tools use: its open modes, its errors,
// sections and copies through it, and positions past 4 GiB.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PString.h>
#include <qvbase/PUniversalID.h>

#include "FileStreamHdl.h"
#include "support/ErrorTestSupport.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

using qvbase::test::Caught;
using qvbase::test::kNothingThrown;

std::string Text(const PString& text) { return static_cast<const char*>(PMBString(text)); }

std::string ReadAll(PStream& stream) {
  std::string out(static_cast<std::size_t>(stream.GetSize() - stream.GetPos()), '\0');
  if (!out.empty())
    out.resize(stream.Read(&out[0], static_cast<ULONG>(out.size()), 1));
  return out;
}

TEST(FileStream, WritesAFileAndReadsItBack) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("values.bin");
  {
    PStream file(new FileStreamHdl(path, /*blockSize=*/16));
    file.Open(OpenWrite);
    for (LONG i = 0; i < 100; ++i)
      file.Write(static_cast<LONG>(i * 7));
    file.Write(PString("done"));
  }
  EXPECT_EQ(std::filesystem::file_size(path), 408u);
  PStream file(new FileStreamHdl(path, /*blockSize=*/16));
  file.Open(OpenRead);
  EXPECT_EQ(file.GetSize(), 408u);
  for (LONG i = 0; i < 100; ++i) {
    LONG value = 0;
    file.Read(&value);
    ASSERT_EQ(value, i * 7);
  }
  PString text;
  file.Read(&text);
  EXPECT_EQ(Text(text), "done");
  EXPECT_TRUE(file.IsAtEnd());
}

TEST(FileStream, OpeningAMissingFileToReadRaises2302WithThePathAndTheSystemsText) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("absent.bin");
  PStream file(new FileStreamHdl(path));
  PError error = Caught([&] { file.Open(OpenRead); });
  EXPECT_EQ(error.Code(), kErrNotFound);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "FileStreamHdl");
  EXPECT_EQ(Text(error.GetStringInfo("path", "")), path);
  EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), ENOENT);
  EXPECT_EQ(Text(error.GetStringInfo("nativeerror", "")), std::strerror(ENOENT));
  EXPECT_FALSE(file.IsOpened());
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(FileStream, ADirectoryDoesNotOpen) {
  qvbase::test::TempDir dir;
  PStream file(new FileStreamHdl(dir.path()));
  PError error = Caught([&] { file.Open(OpenRead); });
  EXPECT_EQ(error.Code(), kErrOpenFailed);
  EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), EISDIR);
  EXPECT_FALSE(file.IsOpened());
}

TEST(FileStream, OpeningToWriteCreatesOrEmptiesTheFile) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("out.bin");
  qvbase::test::WriteFile(path, "old content");
  PStream file(new FileStreamHdl(path));
  file.Open(OpenWrite);
  EXPECT_EQ(file.GetSize(), 0u);
  file.Write("new", 3, 1);
  file.Close();
  EXPECT_EQ(qvbase::test::ReadFile(path), "new");
  const std::string fresh = dir.File("fresh.bin");
  PStream created(new FileStreamHdl(fresh));
  created.Open(OpenWrite);
  created.Close();
  EXPECT_TRUE(std::filesystem::exists(fresh));
}

TEST(FileStream, OpeningForUpdateKeepsAnExistingFileAndCreatesAMissingOne) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("update.bin");
  qvbase::test::WriteFile(path, "0123456789");
  PStream file(new FileStreamHdl(path));
  file.Open(OpenReadWrite);
  EXPECT_EQ(file.GetSize(), 10u);
  file.MoveTo(4);
  file.Write("ab", 2, 1);
  file.Close();
  EXPECT_EQ(qvbase::test::ReadFile(path), "0123ab6789");
  const std::string fresh = dir.File("fresh.bin");
  PStream created(new FileStreamHdl(fresh));
  created.Open(OpenReadWrite);
  EXPECT_EQ(created.GetSize(), 0u);
  created.Write("x", 1, 1);
  created.Close();
  EXPECT_EQ(qvbase::test::ReadFile(fresh), "x");
}

TEST(FileStream, OpeningForUpdateWithoutLoadingEmptiesTheFile) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("update.bin");
  qvbase::test::WriteFile(path, "0123456789");
  PStream file(new FileStreamHdl(path));
  file.Open(OpenReadWrite | OpenNoLoad);
  EXPECT_EQ(file.GetSize(), 0u);
  file.Close();
  EXPECT_EQ(qvbase::test::ReadFile(path), "");
}

TEST(FileStream, ModeErrorsRaiseTheirCodes) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("f.bin");
  qvbase::test::WriteFile(path, "abc");
  PStream file(new FileStreamHdl(path));
  EXPECT_EQ(Caught([&] { file.Open(0); }).Code(), kErrStreamOpenModeInvalid);
  EXPECT_EQ(Caught([&] { file.Close(); }).Code(), kErrStreamClosed);
  file.Open(OpenRead);
  EXPECT_EQ(Caught([&] { file.Open(OpenRead); }).Code(), kErrStreamAlreadyOpen);
  PError change = Caught([&] { file.SetOpenMode(OpenReadWrite); });
  EXPECT_EQ(change.Code(), kErrStreamOpenModeNotExact);
  EXPECT_STREQ(change.File(), "FileStreamHdl");
  EXPECT_EQ(Caught([&] { file.Write("x", 1, 1); }).Code(), kErrStreamNotWritable);
  EXPECT_EQ(Caught([&] { file.Close(); }).Code(), kNothingThrown);
  EXPECT_EQ(qvbase::test::ReadFile(path), "abc");
}

TEST(FileStream, ASectionWrittenToAFileIsPatchedAndReadBack) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("doc.qvd");
  const PAutomaticUID id("Chapter");
  {
    PStream file(new FileStreamHdl(path, /*blockSize=*/32));
    file.Open(OpenReadWrite);
    PStreamSection section = OpenWriteSection(file, id, /*version=*/3);
    for (LONG i = 0; i < 40; ++i)
      section.Write(i);
    section.Close();
  }
  EXPECT_EQ(std::filesystem::file_size(path), 28u + 160u);
  PStream file(new FileStreamHdl(path, /*blockSize=*/32));
  file.Open(OpenRead);
  PStreamSection section = OpenReadSection(file, id);
  EXPECT_EQ(section.Version(), 3u);
  EXPECT_EQ(section.GetSize(), 188u);
  LONG last = 0;
  for (LONG i = 0; i < 40; ++i)
    section.Read(&last);
  EXPECT_EQ(last, 39);
}

TEST(FileStream, AStreamCopyFillsAWriteOnlyFile) {
  qvbase::test::TempDir dir;
  const std::string source = dir.File("source.bin");
  std::string content;
  for (int i = 0; i < 10000; ++i)
    content += static_cast<char>(i * 31);
  qvbase::test::WriteFile(source, content);
  const std::string target = dir.File("target.bin");
  qvbase::test::WriteFile(target, std::string(20000, 'x'));
  PStream from(new FileStreamHdl(source, /*blockSize=*/512));
  PStream to(new FileStreamHdl(target, /*blockSize=*/4096));
  GStreamDuplication(from, to, /*open=*/true, OpenReadWrite, /*hook=*/nullptr);
  EXPECT_EQ(qvbase::test::ReadFile(target), content);
}

TEST(FileStream, ShrinkingCutsTheFileAndGrowingAddsZeros) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("sized.bin");
  qvbase::test::WriteFile(path, "0123456789");
  PStream file(new FileStreamHdl(path, /*blockSize=*/4));
  file.Open(OpenReadWrite);
  file.MoveTo(8);
  file.SetSize(6);
  EXPECT_EQ(file.GetPos(), 6u);
  EXPECT_EQ(std::filesystem::file_size(path), 6u);
  file.SetSize(9);
  file.Write("!", 1, 1);
  file.MoveTo(0);
  EXPECT_EQ(ReadAll(file), std::string("012345!") + std::string(2, '\0'));
  file.Close();
  EXPECT_EQ(qvbase::test::ReadFile(path), std::string("012345!") + std::string(2, '\0'));
}

TEST(FileStream, PositionsAndSizesPastFourGibibytesWorkOnEveryTarget) {
  qvbase::test::TempDir dir;
  const std::string path = dir.File("large.bin");
  const unsigned __int64 fourGiB = 0x100000000ull;
  const unsigned __int64 beyond = fourGiB + 0x40000003ull; // 5 GiB and 3 bytes
  {
    PStream file(new FileStreamHdl(path));
    file.Open(OpenReadWrite);
    // Sparse where the file system allows: nothing between is written.
    file.SetSize(beyond + 10);
    EXPECT_EQ(file.GetSize(), beyond + 10);
    file.MoveTo(beyond);
    file.Write("xyz", 3, 1);
    file.MoveTo(fourGiB - 1);
    file.Write("<>", 2, 1);
    EXPECT_EQ(file.GetPos(), fourGiB + 1);
  }
  EXPECT_EQ(std::filesystem::file_size(path), beyond + 10);
  PStream file(new FileStreamHdl(path));
  file.Open(OpenRead);
  EXPECT_EQ(file.GetSize(), beyond + 10);
  file.MoveTo(beyond - 1);
  char bytes[6] = {};
  EXPECT_EQ(file.Read(bytes, 1, sizeof bytes), 1u);
  EXPECT_EQ(std::string(bytes, sizeof bytes), std::string("\0xyz\0\0", 6));
  file.MoveFromEnd(beyond + 10 - (fourGiB - 1));
  EXPECT_EQ(file.GetPos(), fourGiB - 1);
  EXPECT_EQ(file.Read(bytes, 2, 1), 2u);
  EXPECT_EQ(std::string(bytes, 2), "<>");
}

} // namespace
