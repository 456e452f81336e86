// Memory streams: every seek mode, and every error the handler raises, with
// its code, severity and preparation.
#include <qvbase/MemoryManager.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>

#include "PMemoryStreamTestSupport.h"

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <functional>
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

} // namespace
