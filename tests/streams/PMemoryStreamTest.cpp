// Memory streams: granularity and growth, reads past the end, seeks and
// their errors, the load and store hooks, and every error the handler
// raises.
#include <qvbase/MemoryManager.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>

#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::CountingHook;
using qvbase::test::kNothingThrown;

// A memory handler whose content lives in a string: loaded at open, stored
// back at flush and close.
class LoadingHdl : public PMemoryStreamHdl {
public:
  explicit LoadingHdl(std::string content, ULONG granularity = 16)
      : PMemoryStreamHdl(granularity), source(std::move(content)) {}

  std::string source;
  std::vector<std::string> stored;
  int neededCalls = 0;
  int readCalls = 0;
  bool readRaises = false;

protected:
  ULONG NeededSize() override {
    ++neededCalls;
    return static_cast<ULONG>(source.size());
  }
  void MemoryRead(char* buffer, ULONG size) override {
    ++readCalls;
    std::memcpy(buffer, source.data(), size);
    if (readRaises)
      throw PError(4242, ErrorSeverityError, "test", 1);
  }
  void MemoryWrite(const char* data, ULONG size) override {
    stored.emplace_back(data ? std::string(data, size) : std::string());
    source = stored.back();
  }
};

// A scratch stream open for reading and writing.
PMemoryStreamHdl* OpenScratch(PStream& stream, ULONG granularity = 16) {
  PMemoryStreamHdl* handler = new PMemoryStreamHdl(granularity);
  stream = PStream(handler);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  return handler;
}

std::string Content(const PMemoryStreamHdl* handler, const PStream& stream) {
  return std::string(handler->GetBuffer(), static_cast<size_t>(stream.GetSize()));
}

void ExpectStreamError(const PError& error, int code, TypErrorSeverityEnum severity) {
  EXPECT_EQ(error.Code(), code);
  EXPECT_EQ(error.Severity(), severity);
  EXPECT_STREQ(error.File(), "src\\PMemoryStream");
  EXPECT_GT(error.Line(), 0u);
}

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

TEST(MemoryStream, EachSeekModeMovesAsDefined) {
  struct Row {
    const char* name;
    TypSeekMode mode;
    ULONG offset;
    ULONG expected;
  };
  // Size 10, position 4.
  const Row kRows[] = {
      {"forward", SeekFwd, 3, 7},
      {"forward to the end", SeekFwd, 6, 10},
      {"back", SeekBack, 4, 0},
      {"from start", SeekFromStart, 9, 9},
      {"start at end", SeekFromStart, 10, 10},
      {"from end", SeekFromEnd, 3, 7},
      {"from end to start", SeekFromEnd, 10, 0},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    PStream stream;
    OpenScratch(stream);
    stream.Write("0123456789", 10, 1);
    stream.MoveTo(4);
    stream.SetPos(row.mode, row.offset);
    EXPECT_EQ(stream.GetPos(), row.expected);
  }
}

TEST(MemoryStream, SeekErrorsAreSignalledOrThrownAsDefined) {
  struct Row {
    const char* name;
    TypSeekMode mode;
    ULONG offset;
    int code;
    bool signalled;      // a hook sees it and may let it through
    ULONG positionAfter; // when let through
  };
  // Size 10, position 4.
  const Row kRows[] = {
      {"forward past the end", SeekFwd, 7, kErrStreamSeekPastEnd, true, 11},
      {"absolute past the end", SeekFromStart, 11, kErrStreamSeekPastEnd, true, 11},
      {"back before the start", SeekBack, 5, kErrStreamSeekBeforeStart, false, 4},
      {"from the end beyond the size", SeekFromEnd, 11, kErrStreamSeekBeforeStart, true, 0},
      {"unknown mode", static_cast<TypSeekMode>(4), 0, kErrStreamBadSeekMode, false, 4},
      {"negative mode", static_cast<TypSeekMode>(-1), 0, kErrStreamBadSeekMode, false, 4},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    {
      PStream stream;
      OpenScratch(stream);
      stream.Write("0123456789", 10, 1);
      stream.MoveTo(4);
      ExpectStreamError(Caught([&] { stream.SetPos(row.mode, row.offset); }), row.code,
                        ErrorSeverityAbort);
    }
    CountingHook hook(ErrorHandlingIgnore);
    PErrorHookProtection protection(&hook, true);
    PStream stream;
    OpenScratch(stream);
    stream.Write("0123456789", 10, 1);
    stream.MoveTo(4);
    PError thrown = Caught([&] { stream.SetPos(row.mode, row.offset); });
    if (row.signalled) {
      EXPECT_EQ(thrown.Code(), kNothingThrown);
      EXPECT_EQ(hook.codes, std::vector<int>{row.code});
    } else {
      EXPECT_EQ(thrown.Code(), row.code);
      EXPECT_TRUE(hook.codes.empty());
    }
    EXPECT_EQ(stream.GetPos(), row.positionAfter);
  }
}

TEST(MemoryStream, EveryErrorCarriesItsCodeAndSeverity) {
  struct Row {
    const char* name;
    ULONG openMode; // 0: closed
    std::function<void(PStream&)> call;
    int code;
  };
  char buffer[4] = {};
  const Row kRows[] = {
      {"open without read or write", 0, [](PStream& s) { s.Open(OpenNoLoad); },
       kErrStreamOpenModeInvalid},
      {"read when closed", 0, [&](PStream& s) { s.Read(buffer, 1, 1); }, kErrStreamClosed},
      {"write when closed", 0, [](PStream& s) { s.Write("x", 1, 1); }, kErrStreamClosed},
      {"size when closed", 0, [](PStream& s) { s.SetSize(1); }, kErrStreamClosed},
      {"seek when closed", 0, [](PStream& s) { s.MoveTo(0); }, kErrStreamClosed},
      {"close when closed", 0, [](PStream& s) { s.Close(); }, kErrStreamClosed},
      {"flush when closed", 0, [](PStream& s) { s.Flush(); }, kErrStreamClosed},
      {"open twice", OpenWrite, [](PStream& s) { s.Open(OpenWrite); }, kErrStreamAlreadyOpen},
      {"write read-only", OpenRead | OpenAllowEmpty, [](PStream& s) { s.Write("x", 1, 1); },
       kErrStreamNotWritable},
      {"size read-only", OpenRead | OpenAllowEmpty, [](PStream& s) { s.SetSize(3); },
       kErrStreamNotWritable},
      {"read write-only", OpenWrite, [&](PStream& s) { s.Read(buffer, 1, 1); },
       kErrStreamNotReadable},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    PStream stream(new PMemoryStreamHdl);
    if (row.openMode)
      stream.Open(row.openMode);
    ExpectStreamError(Caught([&] { row.call(stream); }), row.code, ErrorSeverityAbort);
  }
}

TEST(MemoryStream, ReadAndWriteLetThroughReportNothing) {
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PStream stream(new PMemoryStreamHdl);
  char buffer[4];
  EXPECT_EQ(stream.Read(buffer, 4, 1), 0u);
  EXPECT_EQ(stream.Write("abcd", 4, 1), 0u);
  EXPECT_EQ(hook.codes, (std::vector<int>{kErrStreamClosed, kErrStreamClosed}));
}

TEST(MemoryStream, ErrorsArePreparedByTheHandler) {
  struct TaggingHdl : PMemoryStreamHdl {
    PError IOPrepareError(PError& error) override {
      PError prepared(error);
      prepared.SetIntegerInfo("memory", 7);
      return prepared;
    }
  };
  PStream stream(new TaggingHdl);
  PError thrown = Caught([&] { stream.Close(); });
  EXPECT_EQ(thrown.Code(), kErrStreamClosed);
  EXPECT_EQ(thrown.GetIntegerInfo("memory", 0), 7);
  stream.Open(OpenWrite);
  thrown = Caught([&] { stream.MoveBack(1); });
  EXPECT_EQ(thrown.Code(), kErrStreamSeekBeforeStart);
  EXPECT_EQ(thrown.GetIntegerInfo("memory", 0), 7);
}

// A manager that refuses blocks above a limit, to reach the out-of-memory
// paths without asking the system for gigabytes.
struct LimitedManager : qvbase::test::SystemCalls {
  static constexpr ULONG kLimit = 4096;
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    if (size > kLimit + 64)
      return nullptr;
    return SystemCalls::Allocate(self, size, mode);
  }
};

class ScopedLimitedManager {
public:
  ScopedLimitedManager()
      : m_manager{0,
                  "Limited",
                  &LimitedManager::Allocate,
                  &LimitedManager::Reallocate,
                  &LimitedManager::Size,
                  &LimitedManager::Release,
                  &LimitedManager::Stats},
        m_saved(GGetDefaultMemManager()) {
    GSetDefaultMemManager(&m_manager);
  }
  ~ScopedLimitedManager() { GSetDefaultMemManager(m_saved); }
  ScopedLimitedManager(const ScopedLimitedManager&) = delete;
  ScopedLimitedManager& operator=(const ScopedLimitedManager&) = delete;

private:
  MemoryManager m_manager;
  MemoryManager* m_saved;
};

// A manager on the system heap that counts its calls.
struct CountingManager {
  static int allocations, reallocations, releases;
  static void* Allocate(MemoryManager*, ULONG size, unsigned short mode) {
    ++allocations;
    return gSysManager->allocate(gSysManager, size, mode);
  }
  static void* Reallocate(MemoryManager*, void* block, ULONG size) {
    ++reallocations;
    return gSysManager->reallocate(gSysManager, block, size);
  }
  static void Release(MemoryManager*, void* block) {
    ++releases;
    gSysManager->release(gSysManager, block);
  }
};
int CountingManager::allocations = 0;
int CountingManager::reallocations = 0;
int CountingManager::releases = 0;

TEST(MemoryStream, GrowthUnderAnInstalledManagerAllocatesCopiesAndReleases) {
  MemoryManager counting{0,
                         "Counting",
                         &CountingManager::Allocate,
                         &CountingManager::Reallocate,
                         &LimitedManager::Size,
                         &CountingManager::Release,
                         &LimitedManager::Stats};
  MemoryManager* saved = GGetDefaultMemManager();
  GSetDefaultMemManager(&counting);
  CountingManager::allocations = CountingManager::reallocations = CountingManager::releases = 0;
  {
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, 16);
    std::string written;
    for (int i = 0; i < 10; ++i) {
      std::string piece(7, static_cast<char>('a' + i));
      stream.Write(piece.data(), 7, 1);
      written += piece;
    }
    // 70 bytes in steps of 16: blocks of 16, 32, 48, 64 and 80 bytes, each
    // taking over the content of the one before.
    EXPECT_EQ(handler->GetCapacity(), 80u);
    EXPECT_EQ(CountingManager::allocations, 5);
    EXPECT_EQ(CountingManager::releases, 4);
    EXPECT_EQ(CountingManager::reallocations, 0);
    EXPECT_EQ(Content(handler, stream), written);
  }
  GSetDefaultMemManager(saved);
  EXPECT_EQ(CountingManager::releases, 5);
}

// The system record is writable: an application may route its functions
// through its own. Growth then shows as allocate, copy and release again.
TEST(MemoryStream, GrowthWithPatchedSystemFunctionsAllocatesCopiesAndReleases) {
  const MemoryManager original = *gSysManager;
  static MemoryManager saved;
  saved = original;
  struct Through {
    static void* Allocate(MemoryManager*, ULONG size, unsigned short mode) {
      ++CountingManager::allocations;
      return saved.allocate(&saved, size, mode);
    }
    static void* Reallocate(MemoryManager*, void* block, ULONG size) {
      ++CountingManager::reallocations;
      return saved.reallocate(&saved, block, size);
    }
    static void Release(MemoryManager*, void* block) {
      ++CountingManager::releases;
      saved.release(&saved, block);
    }
  };
  gSysManager->allocate = &Through::Allocate;
  gSysManager->reallocate = &Through::Reallocate;
  gSysManager->release = &Through::Release;
  CountingManager::allocations = CountingManager::reallocations = CountingManager::releases = 0;
  std::string content;
  {
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, 16);
    const int before = CountingManager::allocations;
    const int releasedBefore = CountingManager::releases;
    stream.Write("0123456789abcdef", 16, 1);
    stream.Write("ghijklmnopqrstuvwxyz", 20, 1);
    // A block of 16 bytes for the first write, then one of 48 that takes
    // over its content, the first one given back.
    EXPECT_EQ(handler->GetCapacity(), 48u);
    EXPECT_EQ(CountingManager::allocations - before, 2);
    EXPECT_EQ(CountingManager::releases - releasedBefore, 1);
    EXPECT_EQ(CountingManager::reallocations, 0);
    content = Content(handler, stream);
  }
  *gSysManager = original;
  EXPECT_EQ(content, "0123456789abcdefghijklmnopqrstuvwxyz");
}

TEST(MemoryStream, GrowthOnTheSystemHeapReservesAheadAndKeepsTheDefinedCapacity) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  const char piece[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                          '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
  int resized = 0;
  ULONG blockSize = 0;
  for (int i = 0; i < 20000; ++i) {
    stream.Write(piece, 16, 1);
    // The capacity is the defined one at every step...
    ASSERT_EQ(handler->GetCapacity(), 16u * static_cast<ULONG>(i + 1));
    const ULONG size = GMemSize(const_cast<char*>(handler->GetBuffer()));
    ASSERT_GE(size, handler->GetCapacity());
    if (size != blockSize) {
      ++resized;
      blockSize = size;
    }
  }
  // ...while the block behind it has been resized a few dozen times in
  // 20,000 steps, not at every step.
  EXPECT_LE(resized, 40);
  const std::string content = Content(handler, stream);
  ASSERT_EQ(content.size(), 320000u);
  for (std::size_t at = 0; at < content.size(); at += 16)
    ASSERT_EQ(content.compare(at, 16, piece, 16), 0) << at;
}

TEST(MemoryStream, GrowthOnTheSystemHeapKeepsTheContentAcrossManySteps) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  std::string written;
  for (int i = 0; i < 5000; ++i) {
    std::string piece(static_cast<size_t>(1 + i % 37), static_cast<char>('A' + i % 26));
    stream.Write(piece.data(), static_cast<ULONG>(piece.size()), 1);
    written += piece;
  }
  EXPECT_EQ(handler->GetCapacity(), (written.size() + 15) / 16 * 16);
  EXPECT_EQ(Content(handler, stream), written);
}

TEST(MemoryStream, RefusedGrowthRaisesOutOfMemoryAndKeepsTheContent) {
  ScopedLimitedManager limited;
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  stream.Write("abc", 3, 1);
  ExpectStreamError(Caught([&] { stream.SetSize(100000); }), kErrOutOfMemory, ErrorSeverityAbort);
  EXPECT_EQ(stream.GetSize(), 3u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  std::vector<char> big(100000, 'x');
  EXPECT_EQ(Caught([&] { stream.Write(big.data(), 100000, 1); }).Code(), kErrOutOfMemory);
  EXPECT_EQ(Content(handler, stream), "abc");
  EXPECT_EQ(stream.GetPos(), 3u);
}

TEST(MemoryStream, RefusedGrowthLetThroughWritesNothing) {
  ScopedLimitedManager limited;
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PStream stream;
  OpenScratch(stream, 16);
  std::vector<char> big(100000, 'x');
  EXPECT_EQ(stream.Write(big.data(), 100000, 1), 0u);
  EXPECT_EQ(hook.codes, std::vector<int>{kErrOutOfMemory});
  EXPECT_EQ(stream.GetSize(), 0u);
}

TEST(MemoryStream, SourceLargerThanMemoryRaisesOutOfMemoryAtOpen) {
  ScopedLimitedManager limited;
  LoadingHdl* handler = new LoadingHdl(std::string(100000, 'x'));
  PStream stream(handler);
  EXPECT_EQ(Caught([&] { stream.Open(OpenWrite); }).Code(), kErrOutOfMemory);
  EXPECT_EQ(handler->readCalls, 0);
}

TEST(MemoryStream, GranularityAtThe32BitLimitRefusesToRoundPastIt) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 0xFFFFFFF0u);
  // 0xFFFFFFF1 would round to 2 * 0xFFFFFFF0, beyond 32 bits.
  EXPECT_EQ(Caught([&] { stream.SetSize(0xFFFFFFF1u); }).Code(), kErrOutOfMemory);
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_EQ(stream.GetSize(), 0u);
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

namespace {

// A memory handler that notes every size change its writes ask for.
class SizeWatchingHdl : public PMemoryStreamHdl {
public:
  explicit SizeWatchingHdl(ULONG granularity) : PMemoryStreamHdl(granularity) {}
  std::vector<unsigned long long> sizes;

protected:
  void IOSetSize(unsigned __int64 size) override {
    sizes.push_back(size);
    PMemoryStreamHdl::IOSetSize(size);
  }
};

ULONG RoundedUp(ULONG bytes, ULONG granularity) {
  return (bytes + granularity - 1) / granularity * granularity;
}

// Appends of every length into a block of a granularity that is not a power
// of two: each write past the size asks the handler for the new size once,
// the block stays while the size is in its last step, and grows by whole
// steps (one new block, the content kept) when a write crosses it.
TEST(MemoryStream, WritesInsideTheBlockKeepItAndWritesAcrossItGrowByWholeSteps) {
  const ULONG kGranularity = 100;
  auto* handler = new SizeWatchingHdl(kGranularity);
  PStream stream(handler);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  std::string expected;
  const ULONG lengths[] = {1, 1, 98, 1, 99, 3, 200, 7, 95, 1, 250, 50};
  for (ULONG length : lengths) {
    SCOPED_TRACE(testing::Message() << "size " << expected.size() << " + " << length);
    const ULONG before = handler->GetCapacity();
    const char* block = handler->GetBuffer();
    const std::string piece(length, static_cast<char>('a' + expected.size() % 26));
    handler->sizes.clear();
    EXPECT_EQ(stream.Write(piece.data(), length, 1), length);
    expected += piece;
    const ULONG size = static_cast<ULONG>(expected.size());
    EXPECT_EQ(handler->sizes, std::vector<unsigned long long>{size});
    EXPECT_EQ(stream.GetSize(), size);
    EXPECT_EQ(stream.GetPos(), size);
    EXPECT_EQ(handler->GetCapacity(), RoundedUp(size, kGranularity));
    if (handler->GetCapacity() == before) {
      EXPECT_EQ(handler->GetBuffer(), block);
    }
    EXPECT_EQ(Content(handler, stream), expected);
    EXPECT_TRUE(handler->IsDirty());
  }
  // Overwriting inside the content asks for no size at all.
  handler->sizes.clear();
  stream.MoveTo(10);
  stream.Write("XYZ", 3, 1);
  EXPECT_TRUE(handler->sizes.empty());
  EXPECT_EQ(stream.GetSize(), expected.size());
}

TEST(MemoryStream, SizeChangesWithinTheLastStepKeepTheBlock) {
  struct Row {
    const char* what;
    ULONG from, to, capacity;
    bool sameBlock;
  };
  // Granularity 16, content of `from` bytes, then SetSize(to).
  const Row rows[] = {
      {"grow inside the step", 17, 30, 32, true},
      {"grow to the step's end", 17, 32, 32, true},
      {"shrink inside the step", 30, 17, 32, true},
      {"shrink to the step below", 30, 16, 16, false},
      {"grow across the step", 32, 33, 48, false},
      {"full step to zero", 16, 0, 0, false},
      {"one byte to the step's end", 1, 16, 16, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, 16);
    const std::string content(row.from, 'c');
    stream.Write(content.data(), row.from, 1);
    stream.Flush(); // clean, so that the change is seen to mark it dirty
    ASSERT_FALSE(handler->IsDirty());
    const char* block = handler->GetBuffer();
    stream.SetSize(row.to);
    EXPECT_EQ(handler->GetCapacity(), row.capacity);
    EXPECT_EQ(stream.GetSize(), row.to);
    EXPECT_EQ(stream.GetPos(), std::min(row.from, row.to)); // cut when beyond
    EXPECT_TRUE(handler->IsDirty());
    if (row.sameBlock) {
      EXPECT_EQ(handler->GetBuffer(), block);
    }
    if (row.to != 0) {
      EXPECT_EQ(std::string(handler->GetBuffer(), std::min(row.from, row.to)),
                content.substr(0, std::min(row.from, row.to)));
    }
  }
}

// A position left past the end by an over-long read is cut by a size change
// that keeps the block, as by any other.
TEST(MemoryStream, GrowingInsideTheStepCutsAPositionBeyondTheNewSize) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 64);
  stream.Write("0123456789", 10, 1);
  stream.MoveTo(0);
  char buffer[40];
  stream.Read(buffer, 40, 1); // position 40, size 10
  ASSERT_EQ(stream.GetPos(), 40u);
  stream.SetSize(20);
  EXPECT_EQ(handler->GetCapacity(), 64u);
  EXPECT_EQ(stream.GetPos(), 20u);
  stream.SetSize(50);
  EXPECT_EQ(stream.GetPos(), 20u);
  EXPECT_EQ(stream.GetSize(), 50u);
}

} // namespace
