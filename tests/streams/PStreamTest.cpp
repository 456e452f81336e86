// Streams: the front object, handler sharing, the guarded operations and
// their retry, closing at the last reference, byte ordering, and the copy
// of one stream into another.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::CountingHook;
using qvbase::test::kNothingThrown;

// A handler over a byte vector that counts its calls and fails on request.
class RecordingHdl : public PStreamHdl {
public:
  explicit RecordingHdl(int* destroyed = nullptr) : m_destroyed(destroyed) {}
  ~RecordingHdl() override {
    if (m_destroyed)
      ++*m_destroyed;
  }

  std::string data;
  ULONG pos = 0;
  ULONG mode = 0;
  int readCalls = 0;
  int writeCalls = 0;
  int closeCalls = 0;
  int failReads = 0;  // the next reads that fail after moving the position
  int failWrites = 0; // the next writes that fail after writing
  bool closeRaises = false;
  std::vector<ULONG> readStarts;

  using PStreamHdl::IOIsOpened;
  using PStreamHdl::IOIsReadable;
  using PStreamHdl::IOIsWritable;

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    ++readCalls;
    readStarts.push_back(pos);
    ULONG bytes = count * itemSize;
    ULONG left = pos < data.size() ? static_cast<ULONG>(data.size()) - pos : 0;
    ULONG copied = bytes < left ? bytes : left;
    std::memcpy(buffer, data.data() + pos, copied);
    pos += copied;
    if (failReads > 0) {
      --failReads;
      Raise(kErrStreamShortRead);
    }
    return itemSize ? copied / itemSize : 0;
  }
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    ++writeCalls;
    ULONG bytes = count * itemSize;
    if (data.size() < pos + bytes)
      data.resize(pos + bytes);
    std::memcpy(&data[pos], buffer, bytes);
    pos += bytes;
    if (failWrites > 0) {
      --failWrites;
      Raise(kErrStreamShortWrite);
    }
    return count;
  }
  void IOOpen(ULONG newMode) override { mode = newMode; }
  void IOSetOpenMode(ULONG newMode) override { mode = newMode; }
  ULONG IOGetAvailableOpenModes() const override { return OpenReadWrite; }
  void IOClose() override {
    ++closeCalls;
    if (closeRaises)
      Raise(kErrStreamClosed);
    mode = 0;
  }
  void IOFlush() override {}
  ULONG IOOpenMode() const override { return mode; }
  void IOSetSize(unsigned __int64 size) override { data.resize(static_cast<size_t>(size)); }
  unsigned __int64 IOGetSize() const override { return data.size(); }
  void IOSetPos(TypSeekMode seek, unsigned __int64 offset) override {
    switch (seek) {
    case SeekFwd:
      pos += static_cast<ULONG>(offset);
      break;
    case SeekBack:
      pos -= static_cast<ULONG>(offset);
      break;
    case SeekFromStart:
      pos = static_cast<ULONG>(offset);
      break;
    case SeekFromEnd:
      pos = static_cast<ULONG>(data.size() - offset);
      break;
    }
  }
  unsigned __int64 IOGetPos() const override { return pos; }
  bool IOIsAtEnd() const override { return pos >= data.size(); }
  PError IOPrepareError(PError& error) override {
    PError prepared(error);
    prepared.SetIntegerInfo("recorded", 1);
    return prepared;
  }

private:
  void Raise(int code) {
    PError error(code, ErrorSeverityError, "test", 1);
    PError own = PrepareError(error);
    PError prepared = PErrorProtectionStatus().PrepareError(own);
    PErrorProtectionStatus().SignalError(prepared);
  }

  int* m_destroyed;
};

// A handler with the base error preparation.
class PlainHdl : public RecordingHdl {
protected:
  PError IOPrepareError(PError& error) override { return PStreamHdl::IOPrepareError(error); }
};

TEST(PStream, DefaultStreamAnswersQueriesWithoutAnError) {
  PStream stream;
  EXPECT_EQ(stream.GetHandler(), nullptr);
  EXPECT_FALSE(stream.IsOpened());
  EXPECT_FALSE(stream.IsReadable());
  EXPECT_FALSE(stream.IsWritable());
  EXPECT_FALSE(stream.IsAtEnd());
  EXPECT_EQ(stream.GetSize(), 0u);
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_EQ(stream.OpenMode(), 0u);
  EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingIntel);
}

TEST(PStream, DefaultStreamOperationsRaise1220) {
  struct Row {
    const char* name;
    std::function<void(PStream&)> call;
  };
  char buffer[4] = {};
  const Row kRows[] = {
      {"Read", [&](PStream& s) { s.Read(buffer, 1, 1); }},
      {"Write", [&](PStream& s) { s.Write(buffer, 1, 1); }},
      {"Open", [](PStream& s) { s.Open(OpenRead); }},
      {"Close", [](PStream& s) { s.Close(); }},
      {"SetPos", [](PStream& s) { s.SetPos(SeekFromStart, 0); }},
      {"SetOpenMode", [](PStream& s) { s.SetOpenMode(OpenWrite); }},
      {"Flush", [](PStream& s) { s.Flush(); }},
      {"SetSize", [](PStream& s) { s.SetSize(1); }},
      {"MoveTo", [](PStream& s) { s.MoveTo(0); }},
      {"MoveFromEnd", [](PStream& s) { s.MoveFromEnd(0); }},
      {"MoveFwd", [](PStream& s) { s.MoveFwd(0); }},
      {"MoveBack", [](PStream& s) { s.MoveBack(0); }},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    PStream stream;
    PError thrown = Caught([&] { row.call(stream); });
    EXPECT_EQ(thrown.Code(), kErrStreamNoHandler);
    EXPECT_EQ(thrown.Severity(), ErrorSeverityFatal);
    EXPECT_STREQ(thrown.File(), "src\\PStream");
    // Without a handler the preparation leaves the error unchanged.
    EXPECT_EQ(thrown.EnumErrorInfo(), 0u);
  }
}

TEST(PStream, Dropped1220LetsReadAndWriteReportNothing) {
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PStream stream;
  char buffer[4] = {};
  EXPECT_EQ(stream.Read(buffer, 4, 1), 0u);
  EXPECT_EQ(stream.Write(buffer, 4, 1), 0u);
  EXPECT_EQ(hook.codes, (std::vector<int>{kErrStreamNoHandler, kErrStreamNoHandler}));
}

TEST(PStream, NullHandlerPointerGivesAStreamWithoutHandler) {
  PStream stream(static_cast<PStreamHdl*>(nullptr));
  EXPECT_EQ(stream.GetHandler(), nullptr);
  EXPECT_EQ(Caught([&] { stream.Close(); }).Code(), kErrStreamNoHandler);
}

TEST(PStream, StreamsCountTheirHandler) {
  int destroyed = 0;
  RecordingHdl* handler = new RecordingHdl(&destroyed);
  {
    PStream first(handler);
    EXPECT_EQ(handler->NumSmartLocks(), 1u);
    {
      PStream second(first);
      PStream third;
      third = second;
      EXPECT_EQ(handler->NumSmartLocks(), 3u);
    }
    EXPECT_EQ(handler->NumSmartLocks(), 1u);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(PStream, SelfAssignmentKeepsTheHandler) {
  int destroyed = 0;
  RecordingHdl* handler = new RecordingHdl(&destroyed);
  PStream stream(handler);
  PStream& alias = stream;
  stream = alias;
  EXPECT_EQ(stream.GetHandler(), handler);
  EXPECT_EQ(handler->NumSmartLocks(), 1u);
  EXPECT_EQ(destroyed, 0);
}

TEST(PStream, CopiesShareThePositionOfTheirHandler) {
  RecordingHdl* handler = new RecordingHdl;
  handler->data = "0123456789";
  PStream first(handler);
  PStream second(first);
  first.Open(OpenRead);
  first.MoveTo(7);
  EXPECT_EQ(second.GetPos(), 7u);
  char c = 0;
  EXPECT_EQ(second.Read(&c, 1, 1), 1u);
  EXPECT_EQ(c, '7');
  EXPECT_EQ(first.GetPos(), 8u);
}

TEST(PStream, ByteOrderingOfOneCopyLeavesTheOtherUnchanged) {
  PStream first(new RecordingHdl);
  PStream second(first);
  second.SetByteOrdering(kByteOrderingMotorola);
  EXPECT_EQ(second.GetByteOrdering(), 0x4D4D);
  EXPECT_EQ(first.GetByteOrdering(), 0x4949);
  PStream third(second);
  EXPECT_EQ(third.GetByteOrdering(), 0x4D4D);
  first = second;
  EXPECT_EQ(first.GetByteOrdering(), 0x4D4D);
}

TEST(PStream, ClosedHandlerIsNotClosedAgainAtItsEnd) {
  int closes = 0;
  struct Observed : RecordingHdl {
    int* closes;
    explicit Observed(int* c) : closes(c) {}
    ~Observed() override { *closes = closeCalls; }
  };
  {
    PStream stream(new Observed(&closes));
    stream.Open(OpenWrite);
    stream.Close();
  }
  EXPECT_EQ(closes, 1);
}

TEST(PStream, LastCopyGoingAwayClosesAnOpenHandler) {
  int closes = 0;
  struct Observed : RecordingHdl {
    int* closes;
    explicit Observed(int* c) : closes(c) {}
    ~Observed() override { *closes = closeCalls; }
  };
  {
    PStream first(new Observed(&closes));
    first.Open(OpenWrite);
    { PStream second(first); }
    EXPECT_EQ(closes, 0);
  }
  EXPECT_EQ(closes, 1);
}

TEST(PStream, ClosingErrorOfACleanHandlerReachesTheAssigningCaller) {
  int destroyed = 0;
  RecordingHdl* handler = new RecordingHdl(&destroyed);
  handler->closeRaises = true;
  PStream stream(handler);
  stream.Open(OpenWrite);
  PError thrown = Caught([&] { stream = PStream(); });
  EXPECT_EQ(thrown.Code(), kErrStreamClosed);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(stream.GetHandler(), nullptr);
}

TEST(PStream, FailedHandlerClosesQuietlyAtItsEnd) {
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection protection(&hook, true);
  int destroyed = 0;
  RecordingHdl* handler = new RecordingHdl(&destroyed);
  handler->data = "abcd";
  handler->closeRaises = true;
  {
    PStream stream(handler);
    stream.Open(OpenRead);
    handler->failReads = 1;
    char buffer[4];
    EXPECT_EQ(Caught([&] { stream.Read(buffer, 4, 1); }).Code(), kErrStreamShortRead);
    EXPECT_TRUE(handler->HasFailed());
    EXPECT_EQ(hook.calls, 1);
    // The closing error that follows goes to no hook and no caller.
    EXPECT_NO_THROW(stream = PStream());
  }
  EXPECT_EQ(hook.calls, 1);
  EXPECT_EQ(destroyed, 1);
}

TEST(PStream, SuccessfulAttemptClearsTheFailedFlag) {
  RecordingHdl* handler = new RecordingHdl;
  handler->data = "abcd";
  PStream stream(handler);
  stream.Open(OpenRead);
  handler->failReads = 1;
  char buffer[4];
  EXPECT_EQ(Caught([&] { stream.Read(buffer, 2, 1); }).Code(), kErrStreamShortRead);
  EXPECT_TRUE(handler->HasFailed());
  EXPECT_EQ(stream.Read(buffer, 2, 1), 2u);
  EXPECT_FALSE(handler->HasFailed());
}

TEST(PStream, RetryAnswerRestartsAFailedReadFromItsFirstPosition) {
  CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection protection(&hook, true);
  RecordingHdl* handler = new RecordingHdl;
  handler->data = "0123456789";
  PStream stream(handler);
  stream.Open(OpenRead);
  stream.MoveTo(3);
  handler->failReads = 2;
  char buffer[5] = {};
  EXPECT_EQ(stream.Read(buffer, 4, 1), 4u);
  EXPECT_EQ(std::string(buffer, 4), "3456");
  EXPECT_EQ(handler->readCalls, 3);
  EXPECT_EQ(handler->readStarts, (std::vector<ULONG>{3, 3, 3}));
  EXPECT_EQ(stream.GetPos(), 7u);
  EXPECT_EQ(hook.calls, 2);
  // The retry protection of the guarded read is what offers the choice.
  EXPECT_EQ(hook.lastMask & kErrorMaskRetry, kErrorMaskRetry);
}

TEST(PStream, RetryAnswerRestartsAFailedWriteFromItsFirstPosition) {
  CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection protection(&hook, true);
  RecordingHdl* handler = new RecordingHdl;
  PStream stream(handler);
  stream.Open(OpenWrite);
  stream.Write("ab", 2, 1);
  handler->failWrites = 1;
  EXPECT_EQ(stream.Write("cdef", 2, 2), 2u);
  EXPECT_EQ(handler->data, "abcdef");
  EXPECT_EQ(handler->writeCalls, 3);
  EXPECT_EQ(stream.GetPos(), 6u);
  EXPECT_FALSE(handler->HasFailed());
}

TEST(PStream, ErrorNotRetriedIsPassedOnWithItsPreparation) {
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection protection(&hook, true);
  RecordingHdl* handler = new RecordingHdl;
  handler->data = "0123";
  PStream stream(handler);
  stream.Open(OpenRead);
  handler->failReads = 1;
  char buffer[4];
  PError thrown = Caught([&] { stream.Read(buffer, 2, 1); });
  EXPECT_EQ(thrown.Code(), kErrStreamShortRead);
  EXPECT_EQ(thrown.GetIntegerInfo("recorded", 0), 1);
  EXPECT_EQ(handler->readCalls, 1);
  EXPECT_TRUE(handler->HasFailed());
  // The stream stays usable.
  EXPECT_EQ(stream.Read(buffer, 2, 1), 2u);
}

TEST(PStream, ControlCodesOtherThanRetryAreNotRetried) {
  CountingHook hook(ErrorHandlingAction);
  PErrorHookProtection protection(&hook, true);
  RecordingHdl* handler = new RecordingHdl;
  PStream stream(handler);
  stream.Open(OpenWrite);
  handler->failWrites = 1;
  PError thrown = Caught([&] { stream.Write("x", 1, 1); });
  EXPECT_EQ(thrown.Code(), kErrControlAbortAction);
  EXPECT_EQ(thrown.GetIntegerInfo("waserror", 0), kErrStreamShortWrite);
  EXPECT_EQ(handler->writeCalls, 1);
}

TEST(PStream, PrepareErrorGoesThroughTheHandler) {
  PError error(kErrStreamSeekPastEnd, ErrorSeverityAbort);
  PStream bare;
  EXPECT_EQ(bare.PrepareError(error).EnumErrorInfo(), 0u);
  PStream recorded(new RecordingHdl);
  EXPECT_EQ(recorded.PrepareError(error).GetIntegerInfo("recorded", 0), 1);
  PStream plain(new PlainHdl);
  PError copy = plain.PrepareError(error);
  EXPECT_EQ(copy.Code(), kErrStreamSeekPastEnd);
  EXPECT_FALSE(copy.HasIntegerInfo("recorded"));
}

TEST(PStream, ShortcutsSeekWithTheirModes) {
  struct Row {
    const char* name;
    std::function<void(PStream&)> move;
    unsigned __int64 expected;
  };
  const Row kRows[] = {
      {"MoveTo", [](PStream& s) { s.MoveTo(2); }, 2},
      {"MoveFwd", [](PStream& s) { s.MoveFwd(3); }, 8},
      {"MoveBack", [](PStream& s) { s.MoveBack(3); }, 2},
      {"MoveFromEnd", [](PStream& s) { s.MoveFromEnd(1); }, 9},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    RecordingHdl* handler = new RecordingHdl;
    handler->data = "0123456789";
    handler->pos = 5;
    PStream stream(handler);
    row.move(stream);
    EXPECT_EQ(stream.GetPos(), row.expected);
  }
}

TEST(PStream, ModeQueriesFollowTheOpenModeBits) {
  struct Row {
    ULONG mode;
    bool opened, readable, writable;
  };
  const Row kRows[] = {{0, false, false, false},
                       {OpenRead, true, true, false},
                       {OpenWrite, true, false, true},
                       {OpenReadWrite, true, true, true},
                       {0x40000000, true, false, false}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.mode);
    RecordingHdl* handler = new RecordingHdl;
    PStream stream(handler);
    stream.Open(row.mode);
    EXPECT_EQ(stream.OpenMode(), row.mode);
    EXPECT_EQ(stream.IsOpened(), row.opened);
    EXPECT_EQ(stream.IsReadable(), row.readable);
    EXPECT_EQ(stream.IsWritable(), row.writable);
    EXPECT_EQ(handler->IOIsOpened(), row.opened);
    EXPECT_EQ(handler->IOIsReadable(), row.readable);
    EXPECT_EQ(handler->IOIsWritable(), row.writable);
    handler->mode = 0; // nothing to close at the end
  }
}

TEST(PStream, SetByteOrderingAcceptsOnlyTheTwoMarkers) {
  struct Row {
    unsigned short value;
    bool accepted;
  };
  const Row kRows[] = {{0x4949, true},  {0x4D4D, true}, {0x494D, false},
                       {0x4D49, false}, {0, false},     {0xFFFF, false}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.value);
    PStream stream;
    stream.SetByteOrdering(kByteOrderingMotorola);
    PError thrown = Caught([&] { stream.SetByteOrdering(row.value); });
    if (row.accepted) {
      EXPECT_EQ(thrown.Code(), kNothingThrown);
      EXPECT_EQ(stream.GetByteOrdering(), row.value);
    } else {
      EXPECT_EQ(thrown.Code(), kErrStreamBadFormat);
      EXPECT_EQ(thrown.Severity(), ErrorSeverityError);
      EXPECT_STREQ(thrown.File(), "src\\PStream");
      EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingMotorola);
    }
  }
}

TEST(PStream, DroppedOrderingErrorLeavesTheOrderingInPlace) {
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PStream stream;
  stream.SetByteOrdering(0x1234);
  EXPECT_EQ(hook.calls, 1);
  EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingIntel);
}

TEST(PStream, WriteByteOrderingPutsTheTwoMarkerCharacters) {
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering);
    RecordingHdl* handler = new RecordingHdl;
    PStream stream(handler);
    stream.Open(OpenWrite);
    stream.SetByteOrdering(ordering);
    stream.WriteByteOrdering();
    EXPECT_EQ(handler->data, ordering == kByteOrderingIntel ? "II" : "MM");
    EXPECT_EQ(stream.WriteSizeByteOrdering(), 2u);
  }
}

TEST(PStream, ReadByteOrderingAppliesTheMarker) {
  RecordingHdl* handler = new RecordingHdl;
  handler->data = "MMII";
  PStream stream(handler);
  stream.Open(OpenRead);
  stream.ReadByteOrdering();
  EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingMotorola);
  stream.ReadByteOrdering();
  EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingIntel);
  EXPECT_EQ(stream.GetPos(), 4u);
}

TEST(PStream, ReadingTheMarkerMIRaises1233AndKeepsTheOrdering) {
  RecordingHdl* handler = new RecordingHdl;
  handler->data = "MI";
  PStream stream(handler);
  stream.Open(OpenRead);
  stream.SetByteOrdering(kByteOrderingMotorola);
  PError thrown = Caught([&] { stream.ReadByteOrdering(); });
  EXPECT_EQ(thrown.Code(), kErrStreamBadFormat);
  EXPECT_EQ(thrown.Severity(), ErrorSeverityError);
  EXPECT_EQ(stream.GetByteOrdering(), kByteOrderingMotorola);
}

TEST(GStreamDuplication, CopiesTheWholeSizeInChunks) {
  RecordingHdl* from = new RecordingHdl;
  for (int i = 0; i < 5000; ++i)
    from->data.push_back(static_cast<char>(i * 7));
  RecordingHdl* to = new RecordingHdl;
  PStream source(from);
  PStream destination(to);
  GStreamDuplication(source, destination, /*open=*/true, OpenReadWrite, nullptr);
  EXPECT_EQ(to->data, from->data);
  // 2048 + 2048 + 904.
  EXPECT_EQ(from->readCalls, 3);
  EXPECT_EQ(to->writeCalls, 3);
  EXPECT_EQ(from->closeCalls, 1);
  EXPECT_EQ(to->closeCalls, 1);
  EXPECT_EQ(from->mode, 0u);
}

TEST(GStreamDuplication, OpensTheDestinationWriteOnly) {
  struct ModeHdl : RecordingHdl {
    ULONG opened = 0;
    void IOOpen(ULONG m) override {
      opened = m;
      RecordingHdl::IOOpen(m);
    }
  };
  ModeHdl* from = new ModeHdl;
  ModeHdl* to = new ModeHdl;
  PStream source(from);
  PStream destination(to);
  GStreamDuplication(source, destination, true, 0xA0000000, nullptr);
  EXPECT_EQ(from->opened, OpenRead);
  EXPECT_EQ(to->opened, 0x90000000u);
}

TEST(GStreamDuplication, WritesWholeChunksWhateverTheReadReturned) {
  // The source reports a size beyond its bytes: the copy still writes the
  // full size, as the read count is not looked at.
  struct LongHdl : RecordingHdl {
    unsigned __int64 IOGetSize() const override { return 10; }
  };
  LongHdl* from = new LongHdl;
  from->data = "abc";
  RecordingHdl* to = new RecordingHdl;
  PStream source(from);
  PStream destination(to);
  source.Open(OpenRead);
  destination.Open(OpenWrite);
  GStreamDuplication(source, destination, /*open=*/false, 0, nullptr);
  EXPECT_EQ(to->data.size(), 10u);
  EXPECT_EQ(to->data.substr(0, 3), "abc");
  EXPECT_EQ(from->closeCalls, 0);
}

TEST(GStreamDuplication, ClosesBothStreamsWhenAnErrorEscapes) {
  RecordingHdl* from = new RecordingHdl;
  from->data = std::string(3000, 'x');
  RecordingHdl* to = new RecordingHdl;
  to->failWrites = 1;
  PStream source(from);
  PStream destination(to);
  EXPECT_EQ(
      Caught([&] { GStreamDuplication(source, destination, true, OpenWrite, nullptr); }).Code(),
      kErrStreamShortWrite);
  EXPECT_FALSE(source.IsOpened());
  EXPECT_FALSE(destination.IsOpened());
}

} // namespace
