// Messages: the handle, the pending queue (order, urgency, flushing,
// handlers that send during delivery), and the stream form, written and
// read back, with placeholders, unknown kinds and damaged logs.
#include <qvbase/PMessage.h>

#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PMsgListener.h>
#include <qvbase/PStreamSection.h>

#include "support/ErrorTestSupport.h"
#include "support/MessageTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::Describe;
using qvbase::test::RecordingListener;
using qvbase::test::ScopedErrorCapture;
using qvbase::test::ScopedPendingQueue;
using qvbase::test::TestNote;
using qvbase::test::TestSignal;
using qvbase::test::TestUnmakeable;
using qvbase::test::TestUrgentNote;

typedef std::vector<std::string> Record;

// A memory stream open for reading and writing, in the given byte order.
PStream OpenLog(unsigned short ordering = kByteOrderingIntel) {
  PStream log(new PMemoryStreamHdl(/*granularity=*/256));
  log.Open(OpenReadWrite | OpenAllowEmpty); // an empty source may be opened to read
  log.SetByteOrdering(ordering);
  return log;
}

std::string Bytes(PStream& stream) {
  unsigned __int64 keep = stream.GetPos();
  std::string bytes(static_cast<std::size_t>(stream.GetSize()), '\0');
  stream.MoveTo(0);
  stream.Read(&bytes[0], static_cast<ULONG>(bytes.size()), 1);
  stream.MoveTo(keep);
  return bytes;
}

// A section header written by hand, as a damaged or foreign log has it.
void WriteHeader(PStream& stream, const PUniversalID& id, LONG version, __int64 size) {
  stream.Write(id);
  stream.Write(version);
  stream.Write(size);
}

// --- The handle ---

TEST(PMessage, HandleSharesThePayloadAndReleasesItWithTheLastCopy) {
  int before = TestNote::alive;
  {
    PMessage a(new TestNote("shared"));
    PMessage b(a);
    PMessage c;
    c = b;
    EXPECT_EQ(a.GetData(), c.GetData());
    EXPECT_EQ(a.GetData()->NumSmartLocks(), 3u);
    c = new TestNote("other");
    EXPECT_EQ(a.GetData()->NumSmartLocks(), 2u);
    PMessage& alias = c;
    c = alias; // self-assignment keeps the payload
    EXPECT_EQ(Describe(c), "other");
    EXPECT_EQ(TestNote::alive, before + 2);
  }
  EXPECT_EQ(TestNote::alive, before);
}

TEST(PMessage, PayloadKnowsItsClass) {
  PMessage note(new TestUrgentNote("u"));
  EXPECT_STREQ(note.GetData()->DC_Name(), "TestUrgentNote");
  EXPECT_EQ(note.GetData()->DC_CLSID(), PAutomaticUID("TestUrgentNote"));
  EXPECT_NE(note.DataAs<TestNote>(), nullptr); // derived kind
  EXPECT_EQ(note.DataAs<TestSignal>(), nullptr);
  EXPECT_TRUE(PMessage().IsEmpty());
  EXPECT_EQ(PMessage().DataAs<TestNote>(), nullptr);
  EXPECT_FALSE(PMessageData().IsStreamable());
  EXPECT_EQ(PMessageData().DC_CLSID(), PAutomaticUID("MessageData"));
}

// --- The pending queue ---

TEST(PMessage, SendingAnEmptyMessageQueuesNothing) {
  ScopedPendingQueue queue;
  RecordingListener listener("l", nullptr);
  PMessage().Send(&listener);
  PMessage().Send(&listener, /*urgent=*/true);
  PMessage().Broadcast();
  EXPECT_EQ(gPendingMessages.Size(), 0u);
}

TEST(PMessage, UrgentMessagesGoFirstTheLatestUrgentFirst) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener listener("l", &seen);
  PMessage(new TestNote("C")).Send(&listener);
  PMessage(new TestNote("A")).Send(&listener, /*urgent=*/true);
  PMessage(new TestNote("B")).Send(&listener, /*urgent=*/true);
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"l:B", "l:A", "l:C"}));
  EXPECT_EQ(gPendingMessages.Size(), 0u);
}

TEST(PMessage, UrgentBroadcastGoesAheadOfQueuedMessages) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener listener("l", &seen);
  PMessage(new TestNote("queued")).Send(&listener);
  PMessage(new TestNote("broadcast")).Broadcast();
  PMessage(new TestNote("urgent broadcast")).Broadcast(/*urgent=*/true);
  ASSERT_EQ(gPendingMessages.Size(), 3u);
  EXPECT_EQ(gPendingMessages.At(0)->target, nullptr);
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"l:urgent broadcast", "l:queued", "l:broadcast"}));
}

TEST(PMessage, QueuedRecordKeepsThePayloadAlive) {
  ScopedPendingQueue queue;
  int before = TestNote::alive;
  RecordingListener listener("l", nullptr);
  PMessage(new TestNote("kept")).Send(&listener);
  EXPECT_EQ(TestNote::alive, before + 1);
  PendingMessage* record = gPendingMessages.First();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->target, &listener);
  EXPECT_EQ(Describe(record->message), "kept");
  PMessage::FlushMessages(&listener);
  EXPECT_EQ(TestNote::alive, before);
}

TEST(PMessage, FlushingOneListenerRemovesOnlyItsRecords) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener a("a", &seen);
  RecordingListener b("b", &seen);
  PMessage(new TestNote("1")).Send(&a);
  PMessage(new TestNote("2")).Send(&b);
  PMessage(new TestNote("3")).Send(&a);
  PMessage(new TestNote("4")).Broadcast();
  PMessage(new TestNote("5")).Send(&b);
  PMessage::FlushMessages(&a);
  ASSERT_EQ(gPendingMessages.Size(), 3u);
  EXPECT_EQ(Describe(gPendingMessages.At(0)->message), "2");
  EXPECT_EQ(Describe(gPendingMessages.At(1)->message), "4");
  EXPECT_EQ(Describe(gPendingMessages.At(2)->message), "5");
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"b:2", "a:4", "b:4", "b:5"}));
}

TEST(PMessage, FlushingNullRemovesEveryQueuedBroadcastOnly) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener a("a", &seen);
  PMessage(new TestNote("b1")).Broadcast();
  PMessage(new TestNote("to-a")).Send(&a);
  PMessage(new TestNote("b2")).Broadcast(/*urgent=*/true);
  PMessage(new TestNote("b3")).Send(nullptr); // a send without target is a broadcast
  PMessage::FlushMessages(nullptr);
  ASSERT_EQ(gPendingMessages.Size(), 1u);
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"a:to-a"}));
}

TEST(PMessage, BroadcastReachesEveryTopLevelListener) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener a("a", &seen, /*consume=*/true);
  RecordingListener b("b", &seen);
  PMessage(new TestNote("all")).Broadcast();
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"a:all", "b:all"})); // consuming does not stop a broadcast
}

TEST(PMessage, HandlersThatSendOrBroadcastDuringDeliveryAreServedInTheSameCall) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener a("a", &seen);
  RecordingListener b("b", &seen);
  a.onMessage = [&](const PMessage& m) {
    if (Describe(m) == "first") {
      // Its own record has left the queue already.
      seen.push_back("queued:" + std::to_string(gPendingMessages.Size()));
      PMessage(new TestNote("normal")).Send(&b);
      PMessage(new TestNote("urgent")).Send(&b, /*urgent=*/true);
      PMessage(new TestNote("news")).Broadcast();
    }
  };
  PMessage(new TestNote("first")).Send(&a);
  PMessage(new TestNote("backlog")).Send(&b);
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"a:first", "queued:1", "b:urgent", "b:backlog", "b:normal", "a:news",
                          "b:news"}));
  EXPECT_EQ(gPendingMessages.Size(), 0u);
}

TEST(PMessage, HandlerThatThrowsLeavesTheRestQueued) {
  ScopedPendingQueue queue;
  int before = TestNote::alive;
  Record seen;
  RecordingListener a("a", &seen);
  a.onMessage = [](const PMessage& m) {
    if (Describe(m) == "bad")
      throw PError(kErrInvalidArgument);
  };
  PMessage(new TestNote("bad")).Send(&a);
  PMessage(new TestNote("next")).Send(&a);
  EXPECT_EQ(Caught([] { PMessage::ProcessMessages(); }).Code(), kErrInvalidArgument);
  EXPECT_EQ(gPendingMessages.Size(), 1u);
  EXPECT_EQ(TestNote::alive, before + 1); // the thrown record was deleted
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"a:bad", "a:next"}));
}

TEST(PMessage, RecordsStillQueuedWhenTheQueueGoesAreDeleted) {
  int before = TestNote::alive;
  {
    PPendingMessageList list;
    list.AddTail(new PendingMessage(new TestNote("left"), nullptr));
    EXPECT_EQ(TestNote::alive, before + 1);
  }
  EXPECT_EQ(TestNote::alive, before);
}

// --- The stream form ---

TEST(PMessage, StreamableMessageIsOneSectionKeyedByItsClass) {
  PStream log = OpenLog();
  PMessage note(new TestNote("hello", 7));
  note.WriteTo(log);
  EXPECT_EQ(log.GetPos(), note.WriteSize(log));
  log.MoveTo(0);
  PStreamSection section = OpenReadSection(log);
  EXPECT_EQ(section.ID(), PAutomaticUID("TestNote"));
  EXPECT_EQ(section.Version(), 3u);
  EXPECT_EQ(section.GetSize(), 28u + 4 + 5 + 4);
  section.Close();
  EXPECT_EQ(log.GetPos(), 41u);
}

TEST(PMessage, NotStreamableMessageIsAnEmptySectionWithTheNullIdentifier) {
  PStream log = OpenLog();
  PMessage(new TestSignal(5)).WriteTo(log);
  PMessage().WriteTo(log); // an empty message too
  std::string bytes = Bytes(log);
  ASSERT_EQ(bytes.size(), 56u);
  std::string placeholder(28, '\0');
  placeholder[20] = 28; // the size field: the header alone
  EXPECT_EQ(bytes.substr(0, 28), placeholder);
  EXPECT_EQ(bytes.substr(28), placeholder);
  EXPECT_EQ(PMessage(new TestSignal(5)).WriteSize(log), 28u);
  EXPECT_EQ(PMessage().WriteSize(log), 28u);
}

TEST(PMessage, MessagesRoundTripInBothByteOrders) {
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering);
    PStream log = OpenLog(ordering);
    PMessage(new TestNote("one", 1)).WriteTo(log);
    PMessage(new TestUrgentNote("two")).WriteTo(log);
    log.MoveTo(0);
    PMessage first;
    EXPECT_EQ(first.ReadFrom(log), MessageReadKnown);
    ASSERT_NE(first.DataAs<TestNote>(), nullptr);
    EXPECT_EQ(first.DataAs<TestNote>()->text, "one");
    EXPECT_EQ(first.DataAs<TestNote>()->number, 1);
    EXPECT_EQ(first.DataAs<TestNote>()->readVersion, 3u);
    PMessage second;
    EXPECT_EQ(second.ReadFrom(log), MessageReadKnown);
    EXPECT_STREQ(second.GetData()->DC_Name(), "TestUrgentNote");
    EXPECT_EQ(Describe(second), "two");
    EXPECT_TRUE(log.IsAtEnd());
  }
}

TEST(PMessage, PlaceholderReadsBackAsAnEmptyMessageAndTheReplayGoesOn) {
  PStream log = OpenLog();
  PMessage(new TestSignal(1)).WriteTo(log);
  PMessage(new TestNote("after")).WriteTo(log);
  log.MoveTo(0);
  PMessage message(new TestNote("previous content"));
  EXPECT_EQ(message.ReadFrom(log), MessageReadPlaceholder);
  EXPECT_TRUE(message.IsEmpty());
  EXPECT_EQ(log.GetPos(), 28u);
  EXPECT_EQ(message.ReadFrom(log), MessageReadKnown);
  EXPECT_EQ(Describe(message), "after");
}

TEST(PMessage, UnknownKindReadsBackAsAnEmptyMessageAfterItsSection) {
  PStream log = OpenLog();
  PStreamSection foreign = OpenWriteSection(log, PAutomaticUID("FromANewerProgram"), 9);
  foreign.Write(LONG(1234));
  foreign.Close();
  PMessage(new TestNote("known")).WriteTo(log);
  log.MoveTo(0);
  EXPECT_EQ(GetNextSection(log), PAutomaticUID("FromANewerProgram")); // which kind it is
  PMessage message(new TestNote("previous content"));
  EXPECT_EQ(message.ReadFrom(log), MessageReadUnknown);
  EXPECT_TRUE(message.IsEmpty());
  EXPECT_EQ(log.GetPos(), 32u);
  EXPECT_EQ(message.ReadFrom(log), MessageReadKnown);
  EXPECT_EQ(Describe(message), "known");
}

} // namespace

// A kind whose reader takes a fixed number of bytes, whatever was written.
class FixedReader : public PMessageData {
  DC_DECLARE_CLASS(FixedReader)
public:
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG*) const override { stream.Write(LONG(42)); }
  void ReadFrom(PStream& stream, ULONG) override {
    std::string bytes(toRead + 1, '\0');
    got = stream.Read(&bytes[0], toRead, 1);
  }
  static ULONG toRead;
  ULONG got = 0;
};
ULONG FixedReader::toRead = 0;
DC_DEFINE_CLASS(FixedReader, PMessageData, PAutomaticUID("FixedReader"))

namespace {

TEST(PMessage, PayloadThatReadsTooLittleOrTooMuchLeavesTheStreamAfterItsSection) {
  for (ULONG toRead : {0u, 2u, 4u, 20u}) {
    SCOPED_TRACE(toRead);
    FixedReader::toRead = toRead;
    PStream log = OpenLog();
    PMessage(new FixedReader).WriteTo(log);
    PMessage(new TestNote("next")).WriteTo(log);
    log.MoveTo(0);
    PMessage message;
    EXPECT_EQ(message.ReadFrom(log), MessageReadKnown);
    EXPECT_EQ(log.GetPos(), 32u);
    EXPECT_EQ(message.ReadFrom(log), MessageReadKnown);
    EXPECT_EQ(Describe(message), "next");
  }
}

TEST(PMessage, KindWithoutFactoryRaisesError1009WhenRead) {
  PStream log = OpenLog();
  PStreamSection section = OpenWriteSection(log, PAutomaticUID("TestUnmakeable"), 0);
  section.Close();
  log.MoveTo(0);
  PMessage message;
  EXPECT_EQ(Caught([&] { message.ReadFrom(log); }).Code(), kErrClassWithoutConstructor);
  // Let through, the section counts as an unknown kind and is skipped.
  log.MoveTo(0);
  ScopedErrorCapture capture;
  EXPECT_EQ(message.ReadFrom(log), MessageReadUnknown);
  EXPECT_EQ(capture.hook.codes, std::vector<int>{kErrClassWithoutConstructor});
  EXPECT_EQ(log.GetPos(), 28u);
}

TEST(PMessage, TruncatedHeaderEndsTheReadWithError1233) {
  PStream log = OpenLog();
  PMessage(new TestNote("cut")).WriteTo(log);
  log.SetSize(20); // the header stops inside its version field
  log.MoveTo(0);
  PMessage message;
  EXPECT_EQ(Caught([&] { message.ReadFrom(log); }).Code(), kErrStreamBadFormat);
}

TEST(PMessage, SizePastTheEndEndsTheReadWithError1233) {
  PStream log = OpenLog();
  WriteHeader(log, PAutomaticUID("TestNote"), 3, 1000);
  log.Write(PMBString("short"));
  log.Write(LONG(1));
  log.MoveTo(0);
  PMessage message;
  EXPECT_EQ(Caught([&] { message.ReadFrom(log); }).Code(), kErrStreamBadFormat);
  log.MoveTo(0);
  ScopedErrorCapture capture;
  EXPECT_EQ(message.ReadFrom(log), MessageReadDamaged);
  EXPECT_TRUE(log.IsAtEnd());
}

TEST(PMessage, SizeBelowTheHeaderEndsTheReadWithError1233) {
  for (LONG small : {0, 27, -1}) {
    const __int64 size = small;
    SCOPED_TRACE(size);
    PStream log = OpenLog();
    WriteHeader(log, PAutomaticUID("TestNote"), 3, size);
    log.Write(LONG(1));
    log.MoveTo(0);
    PMessage message;
    EXPECT_EQ(Caught([&] { message.ReadFrom(log); }).Code(), kErrStreamBadFormat);
  }
}

TEST(PMessage, SizeThatSendsTheStreamBackEndsTheReplayAtTheEnd) {
  // The memory stream takes the low 32 bits of a position: a size just
  // below 4 GiB brings the reader back before its section.
  PStream log = OpenLog();
  PMessage(new TestNote("first")).WriteTo(log);
  const unsigned __int64 second = log.GetPos();
  WriteHeader(log, PAutomaticUID("TestSignal"), 0, 0xFFFFFFF0LL);
  log.MoveTo(second);
  PMessage message(new TestNote("previous"));
  PError e = Caught([&] { message.ReadFrom(log); });
  EXPECT_EQ(e.Code(), kErrStreamBadFormat);
  EXPECT_EQ(e.Severity(), ErrorSeverityError);
  EXPECT_STREQ(e.File(), "src\\PMessage");
  log.MoveTo(second);
  ScopedErrorCapture capture;
  EXPECT_EQ(message.ReadFrom(log), MessageReadDamaged);
  EXPECT_TRUE(message.IsEmpty());
  EXPECT_TRUE(log.IsAtEnd()); // a replay loop stops here
}

} // namespace
