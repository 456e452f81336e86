// Streams: the front object, handler sharing, the guarded operations and
// their retry, closing at the last reference, byte ordering, and the copy
// of one stream into another.
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/WINError.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

// Runs `action`; the thrown error, or code -1 when nothing was thrown.
template <typename F>
PError Caught(F&& action) {
  try {
    action();
  } catch (const PError& e) {
    return e;
  }
  return PError(-1);
}

class CountingHook : public PErrorHook {
public:
  explicit CountingHook(TypErrorHandlingEnum answer) : m_answer(answer) {}
  TypErrorHandlingEnum DisplayError(PError& error, ULONG mask) override {
    ++calls;
    lastMask = mask;
    codes.push_back(error.Code());
    return m_answer;
  }
  int calls = 0;
  ULONG lastMask = 0;
  std::vector<int> codes;

private:
  TypErrorHandlingEnum m_answer;
};

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
      Raise(1229);
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
      Raise(1230);
    }
    return count;
  }
  void IOOpen(ULONG newMode) override { mode = newMode; }
  void IOSetOpenMode(ULONG newMode) override { mode = newMode; }
  ULONG IOGetAvailableOpenModes() const override { return OpenReadWrite; }
  void IOClose() override {
    ++closeCalls;
    if (closeRaises)
      Raise(1223);
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
    EXPECT_EQ(thrown.Code(), 1220);
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
  EXPECT_EQ(hook.codes, (std::vector<int>{1220, 1220}));
}

TEST(PStream, NullHandlerPointerGivesAStreamWithoutHandler) {
  PStream stream(static_cast<PStreamHdl*>(nullptr));
  EXPECT_EQ(stream.GetHandler(), nullptr);
  EXPECT_EQ(Caught([&] { stream.Close(); }).Code(), 1220);
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
  EXPECT_EQ(thrown.Code(), 1223);
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
    EXPECT_EQ(Caught([&] { stream.Read(buffer, 4, 1); }).Code(), 1229);
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
  EXPECT_EQ(Caught([&] { stream.Read(buffer, 2, 1); }).Code(), 1229);
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
  EXPECT_EQ(thrown.Code(), 1229);
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
  EXPECT_EQ(thrown.Code(), 3);
  EXPECT_EQ(thrown.GetIntegerInfo("waserror", 0), 1230);
  EXPECT_EQ(handler->writeCalls, 1);
}

TEST(PStream, PrepareErrorGoesThroughTheHandler) {
  PError error(1227, ErrorSeverityAbort);
  PStream bare;
  EXPECT_EQ(bare.PrepareError(error).EnumErrorInfo(), 0u);
  PStream recorded(new RecordingHdl);
  EXPECT_EQ(recorded.PrepareError(error).GetIntegerInfo("recorded", 0), 1);
  PStream plain(new PlainHdl);
  PError copy = plain.PrepareError(error);
  EXPECT_EQ(copy.Code(), 1227);
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
      EXPECT_EQ(thrown.Code(), -1);
      EXPECT_EQ(stream.GetByteOrdering(), row.value);
    } else {
      EXPECT_EQ(thrown.Code(), 1233);
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
  EXPECT_EQ(thrown.Code(), 1233);
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
      1230);
  EXPECT_FALSE(source.IsOpened());
  EXPECT_FALSE(destination.IsOpened());
}

// --- The COM stream adapter ---

// A memory stream with some content, open for reading and writing, and an
// adapter over its handler.
struct AdapterFixture {
  AdapterFixture() {
    memory = new PMemoryStreamHdl(16);
    stream = PStream(memory);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.Write("0123456789", 10, 1);
    stream.MoveTo(0);
    void* out = nullptr;
    EXPECT_EQ(memory->QueryInterface(IID_IStream, &out), S_OK);
    adapter = static_cast<IStream*>(out);
  }
  ~AdapterFixture() {
    if (adapter)
      adapter->Release();
  }
  PMemoryStreamHdl* memory;
  PStream stream;
  IStream* adapter = nullptr;
};

TEST(PStreamAdapter, EachQueryForAStreamInterfaceGivesAFreshAdapter) {
  PStream stream(new PMemoryStreamHdl);
  PStreamHdl* handler = stream.GetHandler();
  void* first = nullptr;
  void* second = nullptr;
  EXPECT_EQ(handler->QueryInterface(IID_IStream, &first), S_OK);
  EXPECT_EQ(handler->QueryInterface(IID_ISequentialStream, &second), S_OK);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(handler->NumSmartLocks(), 3u);
  static_cast<IUnknown*>(first)->Release();
  static_cast<IUnknown*>(second)->Release();
  EXPECT_EQ(handler->NumSmartLocks(), 1u);
}

TEST(PStreamAdapter, QueryWithoutAnOutputIsRefused) {
  PStream stream(new PMemoryStreamHdl);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_IStream, nullptr), E_POINTER);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_ISequentialStream, nullptr), E_POINTER);
}

TEST(PStreamAdapter, OtherInterfacesAreAnsweredAsSmartDataAnswers) {
  PStream stream(new PMemoryStreamHdl);
  void* out = reinterpret_cast<void*>(1);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_IPersist, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_IUnknown, &out), S_OK);
  ASSERT_NE(out, nullptr);
  static_cast<IUnknown*>(out)->Release();
}

TEST(PStreamAdapter, AdapterAnswersItsOwnInterfaces) {
  AdapterFixture f;
  void* out = nullptr;
  EXPECT_EQ(f.adapter->QueryInterface(IID_ISequentialStream, &out), S_OK);
  EXPECT_EQ(out, static_cast<void*>(f.adapter));
  static_cast<IUnknown*>(out)->Release();
  EXPECT_EQ(f.adapter->QueryInterface(IID_IPersist, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
}

TEST(PStreamAdapter, AdapterKeepsItsHandlerAlive) {
  int destroyed = 0;
  RecordingHdl* handler = new RecordingHdl(&destroyed);
  handler->data = "abc";
  void* out = nullptr;
  {
    PStream stream(handler);
    ASSERT_EQ(handler->QueryInterface(IID_IStream, &out), S_OK);
  }
  EXPECT_EQ(destroyed, 0);
  IStream* adapter = static_cast<IStream*>(out);
  char buffer[3];
  ULONG read = 9;
  EXPECT_EQ(adapter->Read(buffer, 3, &read), S_OK);
  EXPECT_EQ(std::string(buffer, 3), "abc");
  adapter->Release();
  EXPECT_EQ(destroyed, 1);
}

TEST(PStreamAdapter, ReadReportsTheHandlersItemCount) {
  AdapterFixture f;
  char buffer[16] = {};
  ULONG read = 99;
  // One item of 4 bytes: the transferred count is that one item.
  EXPECT_EQ(f.adapter->Read(buffer, 4, &read), S_OK);
  EXPECT_EQ(read, 1u);
  EXPECT_EQ(std::string(buffer, 4), "0123");
  EXPECT_EQ(f.stream.GetPos(), 4u);
  // Six bytes left of eight asked: no whole item.
  EXPECT_EQ(f.adapter->Read(buffer, 8, &read), S_OK);
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(std::string(buffer, 6), "456789");
  EXPECT_EQ(f.adapter->Read(buffer, 1, nullptr), S_OK);
}

TEST(PStreamAdapter, WriteReportsTheHandlersItemCount) {
  AdapterFixture f;
  ULONG written = 99;
  EXPECT_EQ(f.adapter->Write("abcdefghijkl", 12, &written), S_OK);
  EXPECT_EQ(written, 1u);
  EXPECT_EQ(f.stream.GetSize(), 12u);
  EXPECT_EQ(std::string(f.memory->GetBuffer(), 12), "abcdefghijkl");
}

TEST(PStreamAdapter, HandlerErrorsComeBackAsStatusAndReachNoHook) {
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection protection(&hook, true);
  AdapterFixture f;
  f.stream.Close();
  char buffer[4];
  ULONG read = 99;
  HRESULT status = f.adapter->Read(buffer, 4, &read);
  EXPECT_EQ(status, HResultFromPError(PError(1223, ErrorSeverityAbort)));
  EXPECT_TRUE(FAILED(status));
  EXPECT_EQ(read, 0u);
  ULONG written = 99;
  EXPECT_TRUE(FAILED(f.adapter->Write("x", 1, &written)));
  EXPECT_EQ(written, 0u);
  EXPECT_TRUE(FAILED(f.adapter->SetSize(ULARGE_INTEGER{})));
  EXPECT_EQ(hook.calls, 0);
}

TEST(PStreamAdapter, SeekUsesTheOriginAsTheSeekMode) {
  struct Row {
    const char* name;
    LONGLONG move;
    DWORD origin;
    unsigned __int64 position;
  };
  // Position 4 in 10 bytes.
  const Row kRows[] = {{"0 forward", 3, 0, 7},
                       {"1 back", 3, 1, 1},
                       {"2 from start", 9, 2, 9},
                       {"3 from end", 2, 3, 8}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    AdapterFixture f;
    f.stream.MoveTo(4);
    LARGE_INTEGER move;
    move.QuadPart = row.move;
    ULARGE_INTEGER position;
    position.QuadPart = 99;
    EXPECT_EQ(f.adapter->Seek(move, row.origin, &position), S_OK);
    EXPECT_EQ(position.QuadPart, row.position);
    EXPECT_EQ(f.stream.GetPos(), row.position);
  }
}

TEST(PStreamAdapter, SeekWithAnUnknownOriginAnswersInvalidFunction) {
  AdapterFixture f;
  LARGE_INTEGER move;
  move.QuadPart = 0;
  EXPECT_EQ(f.adapter->Seek(move, 4, nullptr), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(static_cast<ULONG>(STG_E_INVALIDFUNCTION), 0x80030001u);
  move.QuadPart = 11;
  HRESULT status = f.adapter->Seek(move, 2, nullptr);
  EXPECT_TRUE(FAILED(status));
  EXPECT_NE(status, STG_E_INVALIDFUNCTION);
}

TEST(PStreamAdapter, SetSizeGoesToTheHandler) {
  AdapterFixture f;
  ULARGE_INTEGER size;
  size.QuadPart = 3;
  EXPECT_EQ(f.adapter->SetSize(size), S_OK);
  EXPECT_EQ(f.stream.GetSize(), 3u);
}

TEST(PStreamAdapter, CopyToWritesTheBytesToTheTarget) {
  AdapterFixture source;
  AdapterFixture target;
  target.stream.SetSize(0);
  source.stream.MoveTo(2);
  ULARGE_INTEGER count, read, written;
  count.QuadPart = 5;
  EXPECT_EQ(source.adapter->CopyTo(target.adapter, count, &read, &written), S_OK);
  EXPECT_EQ(read.QuadPart, 5u);
  // The target's Write reports its item count.
  EXPECT_EQ(written.QuadPart, 1u);
  EXPECT_EQ(std::string(target.memory->GetBuffer(), 5), "23456");
  // Asking for more than is left copies what is left.
  count.QuadPart = 100;
  EXPECT_EQ(source.adapter->CopyTo(target.adapter, count, &read, nullptr), S_OK);
  EXPECT_EQ(read.QuadPart, 3u);
  EXPECT_EQ(target.stream.GetSize(), 8u);
}

TEST(PStreamAdapter, CopyToWithoutATargetIsRefused) {
  AdapterFixture f;
  ULARGE_INTEGER count, read;
  count.QuadPart = 4;
  EXPECT_EQ(f.adapter->CopyTo(nullptr, count, &read, nullptr), STG_E_INVALIDPOINTER);
  EXPECT_EQ(read.QuadPart, 0u);
}

TEST(PStreamAdapter, CommitFlushesTheHandler) {
  struct StoringHdl : PMemoryStreamHdl {
    int stores = 0;
    void MemoryWrite(const char*, ULONG) override { ++stores; }
  };
  StoringHdl* handler = new StoringHdl;
  PStream stream(handler);
  stream.Open(OpenWrite);
  stream.Write("x", 1, 1);
  void* out = nullptr;
  ASSERT_EQ(handler->QueryInterface(IID_IStream, &out), S_OK);
  IStream* adapter = static_cast<IStream*>(out);
  EXPECT_EQ(adapter->Commit(0), S_OK);
  EXPECT_EQ(handler->stores, 1);
  EXPECT_FALSE(handler->IsDirty());
  stream.Close();
  EXPECT_EQ(adapter->Commit(0), S_OK); // a failing flush is not reported
  adapter->Release();
}

TEST(PStreamAdapter, FixedAnswersOfTheRemainingOperations) {
  AdapterFixture f;
  ULARGE_INTEGER offset, count;
  offset.QuadPart = 0;
  count.QuadPart = 1;
  EXPECT_EQ(f.adapter->Revert(), S_OK);
  EXPECT_EQ(f.adapter->LockRegion(offset, count, 1), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(f.adapter->UnlockRegion(offset, count, 1), STG_E_INVALIDFUNCTION);
  STATSTG stat;
  std::memset(&stat, 0xAB, sizeof stat);
  EXPECT_EQ(f.adapter->Stat(&stat, 0), S_OK);
  EXPECT_EQ(stat.type, 0xABABABABu);
  IStream* clone = nullptr;
  EXPECT_EQ(f.adapter->Clone(&clone), E_NOTIMPL);
  EXPECT_EQ(static_cast<ULONG>(E_NOTIMPL), 0x80004001u);
  EXPECT_EQ(clone, nullptr);
}

} // namespace
