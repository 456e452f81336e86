// Memory streams: granularity, reads past the end, writes and sizes, the
// load and store hooks. Seeks and errors are in PMemoryStreamSeekTest.cpp,
// growth of the block in PMemoryStreamGrowthTest.cpp.
#include <qvbase/MemoryManager.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>

#include "PMemoryStreamTestSupport.h"

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::Content;
using qvbase::test::CountingHook;
using qvbase::test::ExpectStreamError;
using qvbase::test::kNothingThrown;
using qvbase::test::LoadingHdl;
using qvbase::test::OpenScratch;

TEST(MemoryStream, GranularityOfSixteenOrLessGivesSixteen) {
  struct Row {
    ULONG asked, kept;
  };
  const Row kRows[] = {{0, 16}, {1, 16}, {16, 16}, {17, 17}, {4096, 4096}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.asked);
    EXPECT_EQ(PMemoryStreamHdl(row.asked).GetGranularity(), row.kept);
  }
  EXPECT_EQ(PMemoryStreamHdl().GetGranularity(), 0x10000u);
}

TEST(MemoryStream, FreshHandlerStartsEmptyAndClosed) {
  PMemoryStreamHdl* handler = new PMemoryStreamHdl(32);
  PStream stream(handler);
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_EQ(handler->GetBuffer(), nullptr);
  EXPECT_FALSE(handler->IsDirty());
  EXPECT_EQ(stream.OpenMode(), 0u);
  EXPECT_EQ(stream.GetSize(), 0u);
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_EQ(handler->GetAvailableOpenModes(), 0x30000000u);
}

TEST(MemoryStream, SeventeenthByteGrowsTheCapacityByOneStep) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  EXPECT_EQ(stream.Write("a", 1, 1), 1u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  EXPECT_EQ(stream.GetSize(), 1u);
  EXPECT_EQ(stream.Write("bcdefghijklmnop", 15, 1), 15u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  EXPECT_EQ(stream.Write("q", 1, 1), 1u);
  EXPECT_EQ(handler->GetCapacity(), 32u);
  EXPECT_EQ(stream.GetSize(), 17u);
  EXPECT_EQ(Content(handler, stream), "abcdefghijklmnopq");
}

TEST(MemoryStream, CapacityIsTheSizeRoundedUpToTheGranularity) {
  struct Row {
    ULONG granularity, size, capacity;
  };
  const Row kRows[] = {{16, 0, 0},     {16, 1, 16},     {16, 16, 16},    {16, 17, 32},
                       {100, 99, 100}, {100, 100, 100}, {100, 101, 200}, {17, 35, 51}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(testing::Message() << row.granularity << " " << row.size);
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, row.granularity);
    stream.SetSize(row.size);
    EXPECT_EQ(handler->GetCapacity(), row.capacity);
    EXPECT_EQ(stream.GetSize(), row.size);
  }
}

TEST(MemoryStream, ReadPastEndCopiesWhatIsLeftAndMovesPositionByRequest) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream);
  stream.Write("0123456789", 10, 1);
  stream.MoveTo(4);
  char buffer[40];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(stream.Read(buffer, 10, 4), 1u);
  EXPECT_EQ(std::string(buffer, 7), "456789#");
  EXPECT_EQ(stream.GetPos(), 44u);
  EXPECT_TRUE(stream.IsAtEnd());
  EXPECT_EQ(stream.GetSize(), 10u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
}

TEST(MemoryStream, ReadStartingPastTheEndCopiesNothing) {
  PStream stream;
  OpenScratch(stream);
  stream.Write("0123456789", 10, 1);
  stream.MoveTo(8);
  char buffer[16];
  EXPECT_EQ(stream.Read(buffer, 1, 4), 0u); // 2 bytes copied: no whole item
  EXPECT_EQ(stream.GetPos(), 12u);
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(stream.Read(buffer, 3, 1), 0u);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_EQ(stream.GetPos(), 15u);
}

TEST(MemoryStream, ReadOfZeroBytesDoesNothing) {
  PStream stream;
  OpenScratch(stream);
  stream.Write("0123", 4, 1);
  stream.MoveTo(1);
  char buffer[4];
  EXPECT_EQ(stream.Read(buffer, 0, 4), 0u);
  EXPECT_EQ(stream.Read(buffer, 4, 0), 0u);
  EXPECT_EQ(stream.GetPos(), 1u);
}

TEST(MemoryStream, HugeReadRequestStopsThePositionAtTheLast32BitValue) {
  PStream stream;
  OpenScratch(stream);
  stream.Write("0123", 4, 1);
  stream.MoveTo(0);
  char buffer[4];
  // 0x10000 * 0x10000 overflows 32 bits: the four bytes left are copied.
  EXPECT_EQ(stream.Read(buffer, 0x10000, 0x10000), 0u);
  EXPECT_EQ(std::string(buffer, 4), "0123");
  EXPECT_EQ(stream.GetPos(), 0xFFFFFFFFu);
  EXPECT_EQ(stream.Read(buffer, 1, 1), 0u);
  EXPECT_EQ(stream.GetPos(), 0xFFFFFFFFu);
}

TEST(MemoryStream, WriteBeyond32BitsRaisesOutOfMemoryWithoutAllocating) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream);
  stream.Write("0123", 4, 1);
  char buffer[4];
  stream.Read(buffer, 0xFFFFFFFF, 1); // leaves the position at 0xFFFFFFFF
  PError thrown = Caught([&] { stream.Write("x", 1, 1); });
  ExpectStreamError(thrown, kErrOutOfMemory, ErrorSeverityAbort);
  EXPECT_EQ(stream.GetSize(), 4u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  thrown = Caught([&] { stream.Write(buffer, 0x10000, 0x10000); });
  EXPECT_EQ(thrown.Code(), kErrOutOfMemory);
}

TEST(MemoryStream, WriteAfterAnOverLongReadFillsTheGap) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream);
  stream.Write("ab", 2, 1);
  stream.MoveTo(0);
  char buffer[8];
  stream.Read(buffer, 4, 1);
  EXPECT_EQ(stream.Write("z", 1, 1), 1u);
  EXPECT_EQ(stream.GetSize(), 5u);
  EXPECT_EQ(handler->GetBuffer()[0], 'a');
  EXPECT_EQ(handler->GetBuffer()[4], 'z');
}

TEST(MemoryStream, WriteReturnsTheItemsAskedFor) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream);
  EXPECT_EQ(stream.Write("abcdef", 3, 2), 3u);
  EXPECT_EQ(stream.GetPos(), 6u);
  EXPECT_TRUE(handler->IsDirty());
  // Zero bytes: the count comes back and nothing moves.
  EXPECT_EQ(stream.Write("x", 5, 0), 5u);
  EXPECT_EQ(stream.Write(nullptr, 0, 7), 0u);
  EXPECT_EQ(stream.GetPos(), 6u);
  EXPECT_EQ(stream.GetSize(), 6u);
}

TEST(MemoryStream, OverwritingInsideTheContentKeepsTheSize) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream);
  stream.Write("abcdef", 6, 1);
  stream.MoveTo(2);
  stream.Write("XY", 2, 1);
  EXPECT_EQ(stream.GetSize(), 6u);
  EXPECT_EQ(stream.GetPos(), 4u);
  EXPECT_EQ(Content(handler, stream), "abXYef");
}

TEST(MemoryStream, SetSizeToTheCurrentSizeLeavesACleanStreamClean) {
  LoadingHdl* handler = new LoadingHdl("0123456789");
  PStream stream(handler);
  stream.Open(OpenReadWrite);
  ASSERT_FALSE(handler->IsDirty());
  stream.SetSize(10);
  EXPECT_FALSE(handler->IsDirty());
  stream.SetSize(12);
  EXPECT_TRUE(handler->IsDirty());
}

TEST(MemoryStream, SetSizeToAnotherSizeMarksTheStreamDirty) {
  struct Row {
    ULONG size;
    const char* why;
  };
  const Row kRows[] = {{9, "same capacity, smaller"},
                       {14, "same capacity, larger"},
                       {40, "grow"},
                       {3, "shrink below"},
                       {0, "empty"}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.why);
    LoadingHdl* handler = new LoadingHdl("0123456789", 16);
    PStream stream(handler);
    stream.Open(OpenReadWrite);
    stream.SetSize(row.size);
    EXPECT_TRUE(handler->IsDirty());
    EXPECT_EQ(stream.GetSize(), row.size);
  }
}

TEST(MemoryStream, ShrinkingCutsThePositionAndKeepsTheLeadingContent) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  stream.Write("abcdefghijklmnopqrstuvwxyz", 26, 1);
  EXPECT_EQ(handler->GetCapacity(), 32u);
  stream.SetSize(5);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  EXPECT_EQ(stream.GetPos(), 5u);
  EXPECT_EQ(Content(handler, stream), "abcde");
  stream.SetSize(0);
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_EQ(handler->GetBuffer(), nullptr);
  EXPECT_EQ(stream.GetPos(), 0u);
}

TEST(MemoryStream, SizeChangeWithinTheCapacityCutsThePosition) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  stream.Write("abcdefghij", 10, 1);
  stream.SetSize(4);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  EXPECT_EQ(stream.GetPos(), 4u);
  EXPECT_EQ(Content(handler, stream), "abcd");
}

TEST(MemoryStream, GrowingKeepsTheContentAndThePosition) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  stream.Write("abc", 3, 1);
  stream.MoveTo(1);
  stream.SetSize(100);
  EXPECT_EQ(handler->GetCapacity(), 112u);
  EXPECT_EQ(stream.GetSize(), 100u);
  EXPECT_EQ(stream.GetPos(), 1u);
  EXPECT_EQ(std::string(handler->GetBuffer(), 3), "abc");
}

TEST(MemoryStream, OnlyTheLow32BitsOfSizesAndOffsetsCount) {
  PStream stream;
  OpenScratch(stream);
  stream.SetSize(0x100000005ull);
  EXPECT_EQ(stream.GetSize(), 5u);
  stream.MoveTo(0x100000002ull);
  EXPECT_EQ(stream.GetPos(), 2u);
}

TEST(MemoryStream, ClosingADirtyWritableStreamStoresTheWholeContentOnce) {
  LoadingHdl* handler = new LoadingHdl("");
  PStream stream(handler);
  stream.Open(OpenWrite);
  stream.Write("hello", 5, 1);
  stream.MoveTo(1);
  stream.Close();
  ASSERT_EQ(handler->stored.size(), 1u);
  EXPECT_EQ(handler->stored[0], "hello");
  EXPECT_FALSE(handler->IsDirty());
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_EQ(stream.OpenMode(), 0u);
  EXPECT_EQ(stream.GetSize(), 0u);
}

TEST(MemoryStream, ClosingACleanStreamStoresNothing) {
  LoadingHdl* handler = new LoadingHdl("abc");
  PStream stream(handler);
  stream.Open(OpenReadWrite);
  char buffer[3];
  stream.Read(buffer, 3, 1);
  stream.Close();
  EXPECT_TRUE(handler->stored.empty());
}

TEST(MemoryStream, FlushStoresAChangedWritableStreamOnly) {
  LoadingHdl* handler = new LoadingHdl("abc");
  PStream stream(handler);
  stream.Open(OpenReadWrite);
  stream.Flush();
  EXPECT_TRUE(handler->stored.empty());
  stream.Write("X", 1, 1);
  stream.Flush();
  ASSERT_EQ(handler->stored.size(), 1u);
  EXPECT_EQ(handler->stored[0], "Xbc");
  EXPECT_FALSE(handler->IsDirty());
  stream.Close();
  EXPECT_EQ(handler->stored.size(), 1u);
}

TEST(MemoryStream, ReadOnlyStreamIsNeverStored) {
  LoadingHdl* handler = new LoadingHdl("");
  PStream stream(handler);
  stream.Open(OpenRead | OpenAllowEmpty);
  EXPECT_TRUE(handler->IsDirty());
  stream.Flush();
  stream.Close();
  EXPECT_TRUE(handler->stored.empty());
}

TEST(MemoryStream, OpeningLoadsTheContentThroughTheHooks) {
  LoadingHdl* handler = new LoadingHdl("content of 17 b.", 16);
  PStream stream(handler);
  stream.Open(OpenRead);
  EXPECT_EQ(handler->neededCalls, 1);
  EXPECT_EQ(handler->readCalls, 1);
  EXPECT_EQ(stream.GetSize(), 16u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_FALSE(handler->IsDirty());
  char buffer[16];
  EXPECT_EQ(stream.Read(buffer, 2, 8), 2u);
  EXPECT_EQ(std::string(buffer, 16), "content of 17 b.");
}

TEST(MemoryStream, OpeningForReadingAnEmptySourceRaises1221UnlessBit31) {
  {
    LoadingHdl* handler = new LoadingHdl("");
    PStream stream(handler);
    PError thrown = Caught([&] { stream.Open(OpenRead); });
    ExpectStreamError(thrown, kErrStreamOpenModeInvalid, ErrorSeverityError);
    EXPECT_FALSE(stream.IsOpened());
  }
  {
    LoadingHdl* handler = new LoadingHdl("");
    PStream stream(handler);
    // Checked before the no-load bit.
    EXPECT_EQ(Caught([&] { stream.Open(OpenRead | OpenNoLoad); }).Code(),
              kErrStreamOpenModeInvalid);
  }
  {
    LoadingHdl* handler = new LoadingHdl("");
    PStream stream(handler);
    stream.Open(OpenRead | OpenAllowEmpty);
    EXPECT_TRUE(stream.IsReadable());
    EXPECT_TRUE(handler->IsDirty());
    EXPECT_EQ(stream.GetSize(), 0u);
  }
  {
    LoadingHdl* handler = new LoadingHdl("");
    PStream stream(handler);
    stream.Open(OpenWrite);
    EXPECT_TRUE(stream.IsWritable());
    EXPECT_FALSE(handler->IsDirty());
  }
}

TEST(MemoryStream, EmptySourceErrorLetThroughOpensTheStreamEmpty) {
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PStream stream(new LoadingHdl(""));
  stream.Open(OpenReadWrite);
  EXPECT_EQ(hook.codes, std::vector<int>{kErrStreamOpenModeInvalid});
  EXPECT_EQ(stream.OpenMode(), OpenReadWrite);
  EXPECT_EQ(stream.GetSize(), 0u);
}

TEST(MemoryStream, NoLoadBitStartsEmptyAndDirty) {
  LoadingHdl* handler = new LoadingHdl("old content");
  PStream stream(handler);
  stream.Open(OpenReadWrite | OpenNoLoad);
  EXPECT_EQ(handler->readCalls, 0);
  EXPECT_EQ(stream.GetSize(), 0u);
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_TRUE(handler->IsDirty());
  stream.Close();
  ASSERT_EQ(handler->stored.size(), 1u);
  EXPECT_EQ(handler->stored[0], "");
}

TEST(MemoryStream, FailedLoadIsPassedOnAndLeavesTheStreamClosed) {
  LoadingHdl* handler = new LoadingHdl("abc");
  handler->readRaises = true;
  PStream stream(handler);
  EXPECT_EQ(Caught([&] { stream.Open(OpenRead); }).Code(), 4242);
  EXPECT_FALSE(stream.IsOpened());
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_EQ(handler->GetBuffer(), nullptr);
}

TEST(MemoryStream, FailedLoadLetThroughOpensTheStreamEmpty) {
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  LoadingHdl* handler = new LoadingHdl("abc");
  handler->readRaises = true;
  PStream stream(handler);
  stream.Open(OpenRead);
  EXPECT_EQ(hook.codes, std::vector<int>{4242});
  EXPECT_EQ(stream.OpenMode(), OpenRead);
  EXPECT_EQ(stream.GetSize(), 0u);
  EXPECT_EQ(handler->GetBuffer(), nullptr);
}

TEST(MemoryStream, ChangingTheOpenModeStoresReloadsAndKeepsThePosition) {
  LoadingHdl* handler = new LoadingHdl("abcdef");
  PStream stream(handler);
  stream.Open(OpenReadWrite);
  stream.Write("XY", 2, 1);
  stream.MoveTo(3);
  stream.SetOpenMode(OpenRead);
  ASSERT_EQ(handler->stored.size(), 1u);
  EXPECT_EQ(handler->stored[0], "XYcdef");
  EXPECT_EQ(handler->neededCalls, 2);
  EXPECT_EQ(stream.OpenMode(), OpenRead);
  EXPECT_EQ(stream.GetPos(), 3u);
  char c = 0;
  stream.Read(&c, 1, 1);
  EXPECT_EQ(c, 'd');
}

TEST(MemoryStream, LastReferenceStoresAnOpenDirtyStream) {
  std::vector<std::string> stored;
  struct Observed : LoadingHdl {
    std::vector<std::string>* out;
    explicit Observed(std::vector<std::string>* o) : LoadingHdl(""), out(o) {}
    ~Observed() override { *out = stored; }
  };
  {
    PStream stream(new Observed(&stored));
    stream.Open(OpenWrite);
    stream.Write("kept", 4, 1);
  }
  EXPECT_EQ(stored, std::vector<std::string>{"kept"});
}

} // namespace
