// Null streams: the counters, the refusal to read, seeks and every error.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PNullStream.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::CountingHook;

void ExpectNullStreamError(const PError& error, int code) {
  EXPECT_EQ(error.Code(), code);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "src\\PNullStream");
}

TEST(PNullStream, WritesMovePositionAndRaiseSize) {
  PNullStream stream;
  stream.Open(OpenWrite);
  EXPECT_EQ(stream.Write(nullptr, 3, 4), 3u);
  EXPECT_EQ(stream.GetPos(), 12u);
  EXPECT_EQ(stream.GetSize(), 12u);
  stream.MoveBack(12);
  EXPECT_EQ(stream.Write("ab", 2, 1), 2u);
  EXPECT_EQ(stream.GetSize(), 12u);
  EXPECT_EQ(stream.GetPos(), 2u);
}

TEST(PNullStream, OpeningForReadingRaises1222) {
  PNullStream stream;
  ExpectNullStreamError(Caught([&] { stream.Open(OpenRead); }), kErrStreamOpenModeNotExact);
  ExpectNullStreamError(Caught([&] { stream.Open(OpenReadWrite); }), kErrStreamOpenModeNotExact);
  EXPECT_FALSE(stream.IsOpened());
}

TEST(PNullStream, ReadingFromAnOpenStreamRaises1232) {
  PNullStream stream;
  stream.Open(OpenWrite);
  char buffer[4];
  ExpectNullStreamError(Caught([&] { stream.Read(buffer, 1, 1); }), kErrStreamNotReadable);
}

TEST(PNullStream, LetThroughReadReturnsNothing) {
  CountingHook hook;
  PErrorHookProtection protection(&hook, true);
  PNullStream stream;
  char buffer[4];
  EXPECT_EQ(stream.Read(buffer, 4, 1), 0u);
  EXPECT_EQ(hook.codes, std::vector<int>{kErrStreamNotReadable});
}

TEST(PNullStream, StartsWithIntelOrderingAndOffersWritingOnly) {
  PNullStream stream;
  EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingIntel);
  ASSERT_NE(stream.GetHandler(), nullptr);
  EXPECT_EQ(stream.GetHandler()->GetAvailableOpenModes(), OpenWrite);
  EXPECT_EQ(stream.OpenMode(), 0u);
  stream.Open(OpenWrite);
  EXPECT_EQ(stream.OpenMode(), OpenWrite);
  EXPECT_TRUE(stream.IsWritable());
  EXPECT_FALSE(stream.IsReadable());
  stream.Close();
  EXPECT_EQ(stream.OpenMode(), 0u);
}

TEST(PNullStream, EachStreamHasItsOwnHandlerAndCopiesShareIt) {
  PNullStream first;
  PNullStream second;
  EXPECT_NE(first.GetHandler(), second.GetHandler());
  PNullStream copy(first);
  EXPECT_EQ(copy.GetHandler(), first.GetHandler());
  first.Open(OpenWrite);
  first.Write(nullptr, 5, 1);
  EXPECT_EQ(copy.GetPos(), 5u);
  second = first;
  EXPECT_EQ(second.GetSize(), 5u);
}

TEST(PNullStream, OpeningResetsTheCounters) {
  PNullStream stream;
  stream.Open(OpenWrite);
  stream.Write(nullptr, 10, 1);
  stream.Close();
  EXPECT_EQ(stream.GetSize(), 10u);
  stream.Open(OpenWrite);
  EXPECT_EQ(stream.GetSize(), 0u);
  EXPECT_EQ(stream.GetPos(), 0u);
}

TEST(PNullStream, CountersAre64Bit) {
  PNullStream stream;
  stream.Open(OpenWrite);
  for (int i = 0; i < 3; ++i)
    stream.Write(nullptr, 0x80000000u, 1);
  EXPECT_EQ(stream.GetSize(), 0x180000000ull);
  stream.MoveTo(0x100000001ull);
  EXPECT_EQ(stream.GetPos(), 0x100000001ull);
}

TEST(PNullStream, SetSizeCutsThePosition) {
  PNullStream stream;
  stream.Open(OpenWrite);
  stream.Write(nullptr, 20, 1);
  stream.SetSize(8);
  EXPECT_EQ(stream.GetSize(), 8u);
  EXPECT_EQ(stream.GetPos(), 8u);
  stream.SetSize(30);
  EXPECT_EQ(stream.GetSize(), 30u);
  EXPECT_EQ(stream.GetPos(), 8u);
}

TEST(PNullStream, ChangingToWritingOnlyDoesNothing) {
  PNullStream stream;
  stream.Open(OpenWrite);
  stream.Write(nullptr, 4, 1);
  stream.SetOpenMode(OpenWrite);
  EXPECT_EQ(stream.GetPos(), 4u);
  EXPECT_EQ(stream.OpenMode(), OpenWrite);
}

TEST(PNullStream, EachSeekModeMovesAsDefined) {
  struct Row {
    const char* name;
    TypSeekMode mode;
    unsigned __int64 offset;
    unsigned __int64 expected;
  };
  const Row kRows[] = {{"forward", SeekFwd, 3, 7},
                       {"back", SeekBack, 4, 0},
                       {"from start", SeekFromStart, 10, 10},
                       {"from end", SeekFromEnd, 3, 7}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    PNullStream stream;
    stream.Open(OpenWrite);
    stream.Write(nullptr, 10, 1);
    stream.MoveTo(4);
    stream.SetPos(row.mode, row.offset);
    EXPECT_EQ(stream.GetPos(), row.expected);
  }
}

TEST(PNullStream, EveryErrorCarriesItsCode) {
  struct Row {
    const char* name;
    bool open;
    std::function<void(PStream&)> call;
    int code;
  };
  const Row kRows[] = {
      {"open twice", true, [](PStream& s) { s.Open(OpenWrite); }, kErrStreamAlreadyOpen},
      {"mode change when closed", false, [](PStream& s) { s.SetOpenMode(OpenWrite); },
       kErrStreamClosed},
      {"mode change to reading", true, [](PStream& s) { s.SetOpenMode(OpenRead); },
       kErrStreamOpenModeNotExact},
      {"close when closed", false, [](PStream& s) { s.Close(); }, kErrStreamClosed},
      {"write when closed", false, [](PStream& s) { s.Write("x", 1, 1); }, kErrStreamClosed},
      {"seek when closed", false, [](PStream& s) { s.MoveTo(0); }, kErrStreamClosed},
      {"forward past the end", true, [](PStream& s) { s.MoveFwd(7); }, kErrStreamSeekPastEnd},
      {"absolute past the end", true, [](PStream& s) { s.MoveTo(11); }, kErrStreamSeekPastEnd},
      {"back before the start", true, [](PStream& s) { s.MoveBack(5); }, kErrStreamSeekBeforeStart},
      {"from the end beyond the size", true, [](PStream& s) { s.MoveFromEnd(11); },
       kErrStreamSeekBeforeStart},
      {"unknown mode", true, [](PStream& s) { s.SetPos(static_cast<TypSeekMode>(9), 0); },
       kErrStreamBadSeekMode},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    PNullStream stream;
    stream.Open(OpenWrite);
    stream.Write(nullptr, 10, 1);
    stream.MoveTo(4);
    if (!row.open)
      stream.Close();
    ExpectNullStreamError(Caught([&] { row.call(stream); }), row.code);
  }
}

TEST(PNullStream, SeekErrorsLetThroughAreCarriedOut) {
  CountingHook hook;
  PErrorHookProtection protection(&hook, true);
  PNullStream stream;
  stream.Open(OpenWrite);
  stream.Write(nullptr, 10, 1);
  stream.MoveTo(12);
  EXPECT_EQ(stream.GetPos(), 12u);
  stream.MoveFromEnd(11);
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_EQ(hook.codes, (std::vector<int>{kErrStreamSeekPastEnd, kErrStreamSeekBeforeStart}));
  // Back before the start is thrown, never offered.
  EXPECT_EQ(Caught([&] { stream.MoveBack(1); }).Code(), kErrStreamSeekBeforeStart);
  EXPECT_EQ(hook.codes.size(), 2u);
}

} // namespace
