// The stream copy's progress: what it reports to its hook and when, sizes
// beyond 32 bits, and cancellation through the hook.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PProgressDialog.h>
#include <qvbase/PProgressHook.h>
#include <qvbase/PStream.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/ErrorTestSupport.h"
#include "support/ProgressTestSupport.h"

namespace {

using qvbase::test::Caught;
using qvbase::test::ManualClock;
using qvbase::test::Seconds;

// A handler over a byte string. A declared size larger than the bytes makes
// a source whose reads past them deliver zeros, so that a copy of any size
// needs no memory of that size.
class BytesHdl : public PStreamHdl {
public:
  std::string data;
  unsigned __int64 declaredSize = 0; // 0: the size of `data`
  unsigned __int64 pos = 0;
  ULONG mode = 0;
  int closeCalls = 0;

protected:
  ULONG IORead(char* buffer, ULONG count, ULONG itemSize) override {
    const ULONG bytes = count * itemSize;
    for (ULONG i = 0; i < bytes; ++i, ++pos)
      buffer[i] = pos < data.size() ? data[static_cast<size_t>(pos)] : '\0';
    return count;
  }
  ULONG IOWrite(const char* buffer, ULONG count, ULONG itemSize) override {
    const ULONG bytes = count * itemSize;
    if (data.size() < pos + bytes)
      data.resize(static_cast<size_t>(pos + bytes));
    std::memcpy(&data[static_cast<size_t>(pos)], buffer, bytes);
    pos += bytes;
    return count;
  }
  void IOOpen(ULONG newMode) override { mode = newMode; }
  void IOSetOpenMode(ULONG newMode) override { mode = newMode; }
  ULONG IOGetAvailableOpenModes() const override { return OpenReadWrite; }
  void IOClose() override {
    ++closeCalls;
    mode = 0;
  }
  void IOFlush() override {}
  ULONG IOOpenMode() const override { return mode; }
  void IOSetSize(unsigned __int64 size) override { data.resize(static_cast<size_t>(size)); }
  unsigned __int64 IOGetSize() const override {
    return declaredSize != 0 ? declaredSize : data.size();
  }
  void IOSetPos(TypSeekMode seek, unsigned __int64 offset) override {
    pos = seek == SeekFromStart ? offset : pos;
  }
  unsigned __int64 IOGetPos() const override { return pos; }
  bool IOIsAtEnd() const override { return pos >= IOGetSize(); }
};

std::string Pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>(i * 7 + i / 256);
  return bytes;
}

// A hook that writes down every call the copy makes, and cancels at the
// Continue number `cancelAt` (counted from 1; 0: never).
class ReportRecorder : public PProgressHook {
public:
  std::vector<std::string> calls;
  int cancelAt = 0;
  int continues = 0;

  void SetEndValue(ULONG end) override {
    calls.push_back("end " + std::to_string(end));
    PProgressHook::SetEndValue(end);
  }
  void SetCurrentValue(ULONG value) override {
    calls.push_back("current " + std::to_string(value));
    PProgressHook::SetCurrentValue(value);
  }
  void Continue() override {
    calls.push_back("continue");
    PProgressHook::Continue();
  }

protected:
  bool DoContinue() override { return cancelAt == 0 || ++continues < cancelAt; }
};

using Calls = std::vector<std::string>;

TEST(GStreamDuplication, ReportsTheSizeThenEachChunkOneChunkBehind) {
  BytesHdl* from = new BytesHdl;
  from->data = Pattern(5000);
  BytesHdl* to = new BytesHdl;
  PStream source(from), destination(to);
  ReportRecorder hook;
  GStreamDuplication(source, destination, /*open=*/true, OpenWrite, &hook);
  EXPECT_EQ(to->data, from->data);
  // Deliberate and kept: each figure is what was copied before the chunk,
  // so 4096, not 5000, is the last one.
  EXPECT_EQ(hook.calls, (Calls{"end 5000", "current 0", "continue", "current 2048", "continue",
                               "current 4096", "continue"}));
}

TEST(GStreamDuplication, AStartedHookShowsTheCopyAndStopCompletesIt) {
  ManualClock clock;
  BytesHdl* from = new BytesHdl;
  from->data = Pattern(10000);
  BytesHdl* to = new BytesHdl;
  PStream source(from), destination(to);
  PProgressHook hook;
  hook.Start();
  GStreamDuplication(source, destination, /*open=*/true, OpenWrite, &hook);
  EXPECT_EQ(hook.GetEndValue(), 10000u);
  EXPECT_EQ(hook.GetCurrentValue(), 8192u);
  hook.Stop();
  EXPECT_EQ(hook.GetCurrentValue(), 10000u);
  EXPECT_EQ(hook.GetCurrentPercent(), 1.0);
}

TEST(GStreamDuplication, AnEmptySourceReportsOnlyItsSize) {
  BytesHdl* from = new BytesHdl;
  BytesHdl* to = new BytesHdl;
  PStream source(from), destination(to);
  ReportRecorder hook;
  GStreamDuplication(source, destination, /*open=*/true, OpenWrite, &hook);
  EXPECT_EQ(hook.calls, (Calls{"end 0"}));
  EXPECT_TRUE(to->data.empty());
}

TEST(GStreamDuplication, ASizeBeyond32BitsIsReportedShiftedIntoRange) {
  struct Row {
    const char* name;
    unsigned __int64 size;
    ULONG end;    // size >> shift
    ULONG second; // 2048 >> shift
    ULONG third;  // 4096 >> shift
  };
  const Row rows[] = {
      {"exactly 32 bits", 0xFFFFFFFFull, 0xFFFFFFFFu, 2048, 4096},
      {"one bit more", 0x100000000ull, 0x80000000u, 1024, 2048},
      {"5 GiB + 3", 5ull * 1024 * 1024 * 1024 + 3, static_cast<ULONG>((5ull << 30 | 3) >> 1), 1024,
       2048},
      {"40 bits", 0xFFFFFFFFFFull, 0xFFFFFFFFu, 8, 16},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BytesHdl* from = new BytesHdl;
    from->declaredSize = row.size;
    BytesHdl* to = new BytesHdl;
    PStream source(from), destination(to);
    ReportRecorder hook;
    hook.cancelAt = 3; // three chunks are enough to see the figures
    PError e =
        Caught([&] { GStreamDuplication(source, destination, /*open=*/true, OpenWrite, &hook); });
    EXPECT_EQ(e.Code(), kErrProgressCancelled);
    EXPECT_EQ(hook.calls, (Calls{"end " + std::to_string(row.end), "current 0", "continue",
                                 "current " + std::to_string(row.second), "continue",
                                 "current " + std::to_string(row.third), "continue"}));
  }
}

TEST(GStreamDuplication, AHookThatCancelsStopsTheCopyWithTheCancellationError) {
  BytesHdl* from = new BytesHdl;
  from->data = Pattern(10000);
  BytesHdl* to = new BytesHdl;
  PStream source(from), destination(to);
  ReportRecorder hook;
  hook.cancelAt = 2;
  PError e =
      Caught([&] { GStreamDuplication(source, destination, /*open=*/true, OpenWrite, &hook); });
  EXPECT_EQ(e.Code(), kErrProgressCancelled);
  EXPECT_EQ(e.Severity(), ErrorSeverityAbort);
  // Both streams it opened are closed; the destination holds the two chunks
  // written before the cancelling Continue returned: a prefix of the source.
  EXPECT_FALSE(source.IsOpened());
  EXPECT_FALSE(destination.IsOpened());
  EXPECT_EQ(from->closeCalls, 1);
  EXPECT_EQ(to->closeCalls, 1);
  EXPECT_EQ(to->data, from->data.substr(0, 4096));
}

TEST(GStreamDuplication, ACancelledDialogEndsACopyOfStreamsTheCallerOpened) {
  struct CancellingDialog : PProgressDialog {
    int left = 3;
    bool IsDialogCancelled() override { return --left == 0; }
  };
  ManualClock clock;
  BytesHdl* from = new BytesHdl;
  from->data = Pattern(20000);
  BytesHdl* to = new BytesHdl;
  PStream source(from), destination(to);
  source.Open(OpenRead);
  destination.Open(OpenWrite);
  CancellingDialog dialog;
  dialog.Start();
  PError e = Caught([&] { GStreamDuplication(source, destination, /*open=*/false, 0, &dialog); });
  EXPECT_EQ(e.Code(), kErrProgressCancelled);
  // Not opened by the copy: left open for the caller.
  EXPECT_TRUE(source.IsOpened());
  EXPECT_TRUE(destination.IsOpened());
  EXPECT_EQ(to->data, from->data.substr(0, 3 * 2048));
  EXPECT_EQ(dialog.GetCurrentValue(), 4096u);
  dialog.Stop();
}

} // namespace
