// Listeners and broadcasters: top-level membership, registration order and
// its symmetry, filters, the relay and its consumption, the index-based
// walks and their kept skip, logs written and replayed, destruction and the
// flush word.
#include <qvbase/PMsgListener.h>

#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>

#include "support/ErrorTestSupport.h"
#include "support/MessageTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::Describe;
using qvbase::test::RecordingBroadcaster;
using qvbase::test::RecordingListener;
using qvbase::test::ScopedPendingQueue;
using qvbase::test::TestNote;
using qvbase::test::TestSignal;
using qvbase::test::TestUrgentNote;

typedef std::vector<std::string> Record;

void Broadcast(const char* text) {
  PMessage(new TestNote(text)).Broadcast();
  PMessage::ProcessMessages();
}

void SendTo(PMsgListener* target, PMessageData* data) {
  PMessage(data).Send(target);
  PMessage::ProcessMessages();
}

PStream OpenLog(ULONG mode = OpenReadWrite) {
  PStream log(new PMemoryStreamHdl(/*granularity=*/256));
  log.Open(mode | OpenAllowEmpty); // an empty source may be opened to read
  return log;
}

ULONG Occurrences(const LinkedList<PMsgListener>& list, const PMsgListener* listener) {
  ULONG n = 0;
  for (ULONG i = 0; i < list.Size(); ++i)
    n += list.At(i) == listener;
  return n;
}

// --- Top-level listeners and registration ---

TEST(PMsgListener, NewListenerIsListeningAndTopLevel) {
  RecordingListener listener("l", nullptr);
  EXPECT_TRUE(listener.IsListening());
  EXPECT_TRUE(listener.IsTopLevel());
  EXPECT_EQ(Occurrences(gTopListeners, &listener), 1u);
  EXPECT_EQ(gTopListeners.Last(), &listener);
}

TEST(PMsgListener, RegisteredListenerLeavesGlobalBroadcastsUntilItsLastUnregister) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener listener("l", &seen);
  PMsgBroadcaster first("first", nullptr);
  PMsgBroadcaster second("second", nullptr);
  // The broadcasters are top-level themselves: silenced, they relay nothing.
  first.StopListening();
  second.StopListening();
  listener.RegisterTo(&first);
  listener.RegisterTo(&second);
  Broadcast("registered");
  listener.UnregisterFrom(&first);
  Broadcast("one left");
  listener.UnregisterFrom(&second);
  Broadcast("top again");
  EXPECT_EQ(seen, (Record{"l:top again"}));
  EXPECT_EQ(Occurrences(gTopListeners, &listener), 1u);
}

TEST(PMsgListener, RegisterAsksTheLatestFirstAndRegisterTailInOrder) {
  ScopedPendingQueue queue;
  Record seen;
  PMsgBroadcaster hub("hub", nullptr);
  RecordingListener a("a", &seen), b("b", &seen), c("c", &seen), d("d", &seen);
  a.RegisterTo(&hub);
  hub.Register(&b);
  c.RegisterToTail(&hub);
  hub.RegisterTail(&d);
  SendTo(&hub, new TestNote("m"));
  EXPECT_EQ(seen, (Record{"b:m", "a:m", "c:m", "d:m"}));
  ASSERT_EQ(hub.ListenerCount(), 4u);
  EXPECT_EQ(hub.ListenerAt(0), &b);
  EXPECT_EQ(hub.ListenerAt(3), &d);
}

TEST(PMsgBroadcaster, TwoListenersAreAskedLatestFirstWithRegisterAndInOrderWithRegisterTail) {
  struct Row {
    const char* how;
    bool tail;
    Record expected;
  };
  const Row rows[] = {{"Register", false, {"second:m", "first:m"}},
                      {"RegisterTail", true, {"first:m", "second:m"}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.how);
    Record seen;
    PMsgBroadcaster hub("hub", nullptr);
    RecordingListener first("first", &seen), second("second", &seen);
    for (RecordingListener* l : {&first, &second}) {
      if (row.tail)
        hub.RegisterTail(l);
      else
        hub.Register(l);
    }
    hub.DoExecute(PMessage(new TestNote("m")));
    EXPECT_EQ(seen, row.expected);
  }
}

TEST(PMsgListener, RegisterToListsTheBroadcasterFirstAndRegisterToTailLast) {
  PMsgBroadcaster a("a", nullptr), b("b", nullptr), c("c", nullptr);
  RecordingListener listener("l", nullptr);
  listener.RegisterTo(&a);
  listener.RegisterTo(&b);
  listener.RegisterToTail(&c);
  ASSERT_EQ(listener.BroadcasterCount(), 3u);
  EXPECT_EQ(listener.BroadcasterAt(0), &b);
  EXPECT_EQ(listener.BroadcasterAt(1), &a);
  EXPECT_EQ(listener.BroadcasterAt(2), &c);
  listener.UnregisterFrom(&b);
  listener.UnregisterFrom(&c);
  listener.UnregisterFrom(&a);
  // Top-level again, appended after every other top-level listener.
  EXPECT_EQ(gTopListeners.Last(), &listener);
}

TEST(PMsgListener, RegistrationWithNullIsIgnored) {
  RecordingListener listener("l", nullptr);
  listener.RegisterTo(nullptr);
  listener.RegisterToTail(nullptr);
  listener.UnregisterFrom(nullptr);
  EXPECT_TRUE(listener.IsTopLevel());
  EXPECT_EQ(Occurrences(gTopListeners, &listener), 1u);
}

TEST(PMsgListener, UnregisteringFromABroadcasterItIsNotRegisteredToChangesNothing) {
  RecordingListener listener("l", nullptr);
  PMsgBroadcaster hub("hub", nullptr), other("other", nullptr);
  listener.UnregisterFrom(&hub); // top-level, stays so once
  EXPECT_EQ(Occurrences(gTopListeners, &listener), 1u);
  listener.RegisterTo(&hub);
  listener.UnregisterFrom(&other);
  EXPECT_FALSE(listener.IsTopLevel());
  EXPECT_EQ(Occurrences(gTopListeners, &listener), 0u);
  listener.UnregisterFrom(&hub);
}

TEST(PMsgListener, RegistrationStaysSymmetricThroughAnySequence) {
  std::mt19937 random(20261125);
  std::vector<std::unique_ptr<RecordingListener>> listeners;
  std::vector<std::unique_ptr<PMsgBroadcaster>> hubs;
  for (int i = 0; i < 5; ++i)
    listeners.push_back(std::make_unique<RecordingListener>("l", nullptr));
  for (int i = 0; i < 3; ++i)
    hubs.push_back(std::make_unique<PMsgBroadcaster>("h", nullptr));
  for (int step = 0; step < 400; ++step) {
    PMsgListener* l = listeners[random() % listeners.size()].get();
    PMsgBroadcaster* h = hubs[random() % hubs.size()].get();
    switch (random() % 4) {
    case 0:
      l->RegisterTo(h);
      break;
    case 1:
      l->RegisterToTail(h);
      break;
    default:
      l->UnregisterFrom(h);
      break;
    }
    // The listener's broadcasters and the broadcaster's listeners change
    // together; a listener is top-level exactly while registered nowhere,
    // and then listed once.
    for (auto& each : listeners) {
      ULONG total = 0;
      for (auto& hub : hubs) {
        ULONG listed = 0;
        for (ULONG i = 0; i < hub->ListenerCount(); ++i)
          listed += hub->ListenerAt(i) == each.get();
        ULONG back = 0;
        for (ULONG i = 0; i < each->BroadcasterCount(); ++i)
          back += each->BroadcasterAt(i) == hub.get();
        ASSERT_EQ(listed, back) << "step " << step;
        total += back;
      }
      ASSERT_EQ(total, each->BroadcasterCount());
      ASSERT_EQ(Occurrences(gTopListeners, each.get()), each->IsTopLevel() ? 1u : 0u);
    }
  }
  hubs.clear(); // broadcasters go first: their listeners become top-level
  for (auto& each : listeners)
    EXPECT_EQ(Occurrences(gTopListeners, each.get()), 1u);
}

TEST(PMsgListener, DestroyedListenerLeavesItsBroadcastersAndTheTopLevel) {
  PMsgBroadcaster hub("hub", nullptr), other("other", nullptr);
  auto listener = std::make_unique<RecordingListener>("l", nullptr);
  listener->RegisterTo(&hub);
  listener->RegisterTo(&other);
  PMsgListener* address = listener.get();
  listener.reset();
  EXPECT_EQ(hub.ListenerCount(), 0u);
  EXPECT_EQ(other.ListenerCount(), 0u);
  EXPECT_EQ(Occurrences(gTopListeners, address), 0u);
}

TEST(PMsgListener, DestroyedBroadcasterReturnsItsListenersToTheTopLevel) {
  RecordingListener a("a", nullptr), b("b", nullptr);
  auto hub = std::make_unique<PMsgBroadcaster>("hub", nullptr);
  PMsgBroadcaster keep("keep", nullptr);
  a.RegisterTo(hub.get());
  b.RegisterTo(hub.get());
  b.RegisterTo(&keep);
  hub.reset();
  EXPECT_TRUE(a.IsTopLevel());
  EXPECT_EQ(Occurrences(gTopListeners, &a), 1u);
  EXPECT_EQ(b.BroadcasterCount(), 1u); // still registered to the other one
  EXPECT_EQ(Occurrences(gTopListeners, &b), 0u);
}

// --- Filters and listening ---

TEST(PMsgListener, FilterOutsideTheMessageFamilyIsClearedAndAcceptsEverything) {
  ScopedPendingQueue queue;
  Record seen;
  DC_ROOT_INFOS otherFamily{0, nullptr};
  PDynClass stranger(&otherFamily, "Stranger", nullptr, PAutomaticUID("Stranger"), nullptr,
                     nullptr);
  RecordingListener listener("l", &seen, false, &stranger);
  EXPECT_EQ(listener.Filter(), nullptr);
  SendTo(&listener, new TestNote("note"));
  SendTo(&listener, new TestSignal(1));
  EXPECT_EQ(seen, (Record{"l:note", "l:signal:1"}));
}

TEST(PMsgListener, FilterAcceptsItsClassAndDerivedClassesOnly) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener listener("l", &seen, false, &TestNote::dcobj_class);
  EXPECT_EQ(listener.Filter(), &TestNote::dcobj_class);
  SendTo(&listener, new TestNote("note"));
  SendTo(&listener, new TestUrgentNote("derived"));
  SendTo(&listener, new TestSignal(2));
  EXPECT_EQ(seen, (Record{"l:note", "l:derived"}));
  listener.SetFilter(&PMessageData::dcobj_class); // the root itself is kept
  EXPECT_EQ(listener.Filter(), &PMessageData::dcobj_class);
  SendTo(&listener, new TestSignal(3));
  DC_ROOT_INFOS otherFamily{0, nullptr};
  PDynClass stranger(&otherFamily, "Stranger", nullptr, PAutomaticUID("Stranger2"), nullptr,
                     nullptr);
  listener.SetFilter(&stranger); // rejected: clears the filter
  EXPECT_EQ(listener.Filter(), nullptr);
  EXPECT_EQ(seen.back(), "l:signal:3");
}

TEST(PMsgListener, ListenerThatStoppedListeningIsNotAsked) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener listener("l", &seen);
  listener.StopListening();
  EXPECT_FALSE(listener.IsListening());
  SendTo(&listener, new TestNote("unheard"));
  listener.StartListening();
  SendTo(&listener, new TestNote("heard"));
  EXPECT_EQ(seen, (Record{"l:heard"}));
}

TEST(PMsgListener, TraceSwitchesAreAcceptedAndDoNothing) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener listener("l", &seen);
  listener.SetTraceOn([](const char*) { FAIL() << "no trace is written"; });
  SendTo(&listener, new TestNote("m"));
  listener.SetTraceOff();
  EXPECT_EQ(seen, (Record{"l:m"}));
}

// --- The relay ---

TEST(PMsgBroadcaster, ConsumingListenerStopsTheRelay) {
  ScopedPendingQueue queue;
  Record seen;
  PMsgBroadcaster hub("hub", nullptr);
  RecordingListener first("first", &seen), eater("eater", &seen, /*consume=*/true),
      last("last", &seen);
  hub.RegisterTail(&first);
  hub.RegisterTail(&eater);
  hub.RegisterTail(&last);
  EXPECT_TRUE(hub.DoExecute(PMessage(new TestNote("m"))));
  EXPECT_EQ(seen, (Record{"first:m", "eater:m"}));
}

TEST(PMsgBroadcaster, OwnHandlerRunsFirstAndMayConsume) {
  Record seen;
  RecordingBroadcaster hub("hub", &seen);
  RecordingListener listener("l", &seen);
  hub.Register(&listener);
  EXPECT_FALSE(hub.DoExecute(PMessage(new TestNote("a"))));
  hub.consume = true;
  EXPECT_TRUE(hub.DoExecute(PMessage(new TestNote("b"))));
  EXPECT_EQ(seen, (Record{"hub:a", "l:a", "hub:b"}));
}

TEST(PMsgBroadcaster, ConsumedBelowIsReportedUpTheTree) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingBroadcaster top("top", &seen), middle("middle", &seen);
  RecordingListener eater("eater", &seen, /*consume=*/true), sibling("sibling", &seen);
  top.RegisterTail(&middle);
  top.RegisterTail(&sibling);
  middle.Register(&eater);
  SendTo(&top, new TestNote("m"));
  EXPECT_EQ(seen, (Record{"top:m", "middle:m", "eater:m"}));
}

TEST(PMsgBroadcaster, EmptyMessageIsNotDispatched) {
  Record seen;
  RecordingBroadcaster hub("hub", &seen);
  RecordingListener listener("l", &seen);
  hub.Register(&listener);
  hub.DoExecute(PMessage()); // the broadcaster's own handler sees it
  EXPECT_EQ(seen, (Record{"hub:<empty>"}));
}

// --- The index-based walks (deliberate, kept) ---

TEST(PMsgListener, GlobalBroadcastSkipsTheListenerAfterOneThatLeaves) {
  ScopedPendingQueue queue;
  Record seen;
  PMsgBroadcaster elsewhere("elsewhere", nullptr);
  RecordingListener a("a", &seen), leaver("leaver", &seen), skipped("skipped", &seen),
      d("d", &seen);
  leaver.onMessage = [&](const PMessage&) {
    if (leaver.IsTopLevel())
      leaver.RegisterTo(&elsewhere);
  };
  Broadcast("m");
  // Kept as it stands: the walk is by index, so the one after the leaver
  // moved into its place and is not asked in this broadcast.
  EXPECT_EQ(seen, (Record{"a:m", "leaver:m", "d:m"}));
  seen.clear();
  Broadcast("n"); // "elsewhere" is top-level and relays to the leaver first
  EXPECT_EQ(seen, (Record{"leaver:n", "a:n", "skipped:n", "d:n"}));
  leaver.UnregisterFrom(&elsewhere);
}

TEST(PMsgListener, GlobalBroadcastReachesAListenerThatJoinsDuringIt) {
  ScopedPendingQueue queue;
  Record seen;
  std::unique_ptr<RecordingListener> late;
  RecordingListener a("a", &seen);
  a.onMessage = [&](const PMessage&) {
    if (!late)
      late = std::make_unique<RecordingListener>("late", &seen);
  };
  Broadcast("m");
  EXPECT_EQ(seen, (Record{"a:m", "late:m"}));
}

TEST(PMsgBroadcaster, RelaySkipsTheListenerAfterOneThatLeaves) {
  Record seen;
  PMsgBroadcaster hub("hub", nullptr);
  RecordingListener a("a", &seen), leaver("leaver", &seen), skipped("skipped", &seen);
  hub.RegisterTail(&a);
  hub.RegisterTail(&leaver);
  hub.RegisterTail(&skipped);
  leaver.onMessage = [&](const PMessage&) { hub.Unregister(&leaver); };
  hub.DoExecute(PMessage(new TestNote("m")));
  EXPECT_EQ(seen, (Record{"a:m", "leaver:m"})); // kept: the relay walks by index
}

TEST(PMsgBroadcaster, ListenerRegisteredFirstDuringTheRelayMakesTheCurrentOneAskedAgain) {
  Record seen;
  PMsgBroadcaster hub("hub", nullptr);
  RecordingListener before("before", &seen), current("current", &seen), after("after", &seen),
      newcomer("newcomer", &seen);
  hub.RegisterTail(&before);
  hub.RegisterTail(&current);
  hub.RegisterTail(&after);
  current.onMessage = [&](const PMessage&) {
    if (newcomer.IsTopLevel())
      hub.Register(&newcomer); // at the head: everyone moves one place down
  };
  hub.DoExecute(PMessage(new TestNote("m")));
  // Kept: the walk is by index, so the listener being asked is asked once
  // more and the newcomer, ahead of the walk's place, waits for the next one.
  EXPECT_EQ(seen, (Record{"before:m", "current:m", "current:m", "after:m"}));
  seen.clear();
  hub.DoExecute(PMessage(new TestNote("n")));
  EXPECT_EQ(seen, (Record{"newcomer:n", "before:n", "current:n", "after:n"}));
}

TEST(PMsgListener, ListenerThatBecomesTopLevelDuringABroadcastIsReachedInIt) {
  ScopedPendingQueue queue;
  Record seen;
  PMsgBroadcaster hub("hub", nullptr);
  hub.StopListening(); // top-level itself: silenced, it relays nothing
  RecordingListener returning("returning", &seen), trigger("trigger", &seen);
  returning.RegisterTo(&hub);
  trigger.onMessage = [&](const PMessage&) { returning.UnregisterFrom(&hub); };
  Broadcast("m");
  // Unregistered from its last broadcaster, it is appended to the top-level
  // listeners, ahead of the walk.
  EXPECT_EQ(seen, (Record{"trigger:m", "returning:m"}));
}

TEST(PMsgListener, HandlerMayDestroyAnotherListener) {
  ScopedPendingQueue queue;
  Record seen;
  auto victim = std::make_unique<RecordingListener>("victim", &seen);
  RecordingListener killer("killer", &seen);
  PMsgBroadcaster hub("hub", nullptr);
  hub.RegisterTail(&killer);
  victim->RegisterToTail(&hub);
  killer.onMessage = [&](const PMessage&) { victim.reset(); };
  SendTo(&hub, new TestNote("m"));
  EXPECT_EQ(seen, (Record{"killer:m"}));
  EXPECT_EQ(hub.ListenerCount(), 1u);
}

// --- The flush word ---

TEST(PMsgListener, FlushWordSetBySubclassRemovesItsQueuedMessagesAtDestruction) {
  ScopedPendingQueue queue;
  Record seen;
  RecordingListener other("other", &seen);
  auto flushing = std::make_unique<RecordingListener>("flushing", &seen);
  flushing->SetFlushOnDestroy(true);
  PMessage(new TestNote("for flushing")).Send(flushing.get());
  PMessage(new TestNote("for other")).Send(&other);
  flushing.reset();
  ASSERT_EQ(gPendingMessages.Size(), 1u);
  PMessage::ProcessMessages();
  EXPECT_EQ(seen, (Record{"other:for other"}));
}

TEST(PMsgListener, WithoutTheFlushWordQueuedMessagesStayQueued) {
  ScopedPendingQueue queue;
  auto plain = std::make_unique<RecordingListener>("plain", nullptr);
  PMessage(new TestNote("left")).Send(plain.get());
  PMsgListener* address = plain.get();
  // The flush word is off by default: the record keeps the address.
  PMessage::FlushMessages(address); // what the application must do itself
  plain.reset();
  EXPECT_EQ(gPendingMessages.Size(), 0u);
  auto again = std::make_unique<RecordingListener>("again", nullptr);
  PMessage(new TestNote("left")).Send(again.get());
  again.reset();
  EXPECT_EQ(gPendingMessages.Size(), 1u); // still there: never delivered now
}

// --- Copies ---

TEST(PMsgListener, CopyTakesTheStateButNotTheRegistrations) {
  PMsgBroadcaster hub("hub", nullptr);
  RecordingListener source("s", nullptr, false, &TestNote::dcobj_class);
  source.StopListening();
  source.RegisterTo(&hub);
  PMsgListener copy(source);
  EXPECT_EQ(copy.Filter(), &TestNote::dcobj_class);
  EXPECT_FALSE(copy.IsListening());
  EXPECT_TRUE(copy.IsTopLevel());
  EXPECT_EQ(Occurrences(gTopListeners, &copy), 1u);
  PMsgListener assigned;
  PMsgBroadcaster other("other", nullptr);
  assigned.RegisterTo(&other);
  assigned = source;
  EXPECT_EQ(assigned.Filter(), &TestNote::dcobj_class);
  EXPECT_EQ(assigned.BroadcasterAt(0), &other); // registrations stay
}

TEST(PMsgBroadcaster, CopySharesTheLogAndHasNoListeners) {
  PStream log = OpenLog(OpenWrite);
  PMsgBroadcaster source("s", nullptr);
  RecordingListener listener("l", nullptr);
  source.Register(&listener);
  source.WriteToLog(log);
  PMsgBroadcaster copy(source);
  EXPECT_EQ(copy.ListenerCount(), 0u);
  EXPECT_EQ(copy.Log().GetHandler(), log.GetHandler());
  copy.DoExecute(PMessage(new TestNote("x")));
  EXPECT_EQ(log.GetPos(), 28u + 4 + 1 + 4);
}

// --- Logs ---

TEST(PMsgBroadcaster, LogIsWrittenOnlyWhileTheLogStreamIsWritable) {
  PMsgBroadcaster hub("hub", nullptr);
  PStream readOnly = OpenLog(OpenRead);
  hub.WriteToLog(readOnly);
  hub.DoExecute(PMessage(new TestNote("not logged")));
  EXPECT_EQ(readOnly.GetSize(), 0u);
  PStream log = OpenLog(OpenWrite);
  hub.WriteToLog(log); // replaces the read-only one
  hub.DoExecute(PMessage(new TestNote("logged")));
  const unsigned __int64 written = log.GetPos();
  EXPECT_EQ(written, 28u + 4 + 6 + 4);
  hub.StopWritingLog();
  EXPECT_EQ(hub.Log().GetHandler(), nullptr);
  hub.DoExecute(PMessage(new TestNote("after stop")));
  EXPECT_EQ(log.GetPos(), written);
  PStream closed = OpenLog(OpenWrite);
  hub.WriteToLog(closed);
  closed.Close();
  hub.DoExecute(PMessage(new TestNote("closed")));
  EXPECT_EQ(closed.GetSize(), 0u);
}

TEST(PMsgBroadcaster, NewLogLetsGoOfThePreviousLogsHandler) {
  PMsgBroadcaster hub("hub", nullptr);
  PStream first = OpenLog(OpenWrite);
  hub.WriteToLog(first);
  EXPECT_EQ(first.GetHandler()->NumSmartLocks(), 2u); // the stream's and the log's
  PStream second = OpenLog(OpenWrite);
  hub.WriteToLog(second);
  EXPECT_EQ(first.GetHandler()->NumSmartLocks(), 1u);
  EXPECT_EQ(second.GetHandler()->NumSmartLocks(), 2u);
  hub.StopWritingLog();
  EXPECT_EQ(second.GetHandler()->NumSmartLocks(), 1u);
}

TEST(PMsgBroadcaster, LogRecordsEveryExecutedMessageAndPlaceholdersForTheOthers) {
  PMsgBroadcaster hub("hub", nullptr);
  PStream log = OpenLog();
  hub.WriteToLog(log);
  hub.DoExecute(PMessage(new TestNote("a")));
  hub.DoExecute(PMessage(new TestSignal(1)));
  log.MoveTo(0);
  EXPECT_EQ(GetNextSection(log), PAutomaticUID("TestNote"));
  SkipCurrentSection(log);
  EXPECT_EQ(GetNextSection(log), PUniversalID());
  SkipCurrentSection(log);
  EXPECT_TRUE(log.IsAtEnd());
}

TEST(PMsgBroadcaster, ReplayRunsTheHandlerAndRelaysWithoutLoggingAgain) {
  PStream log = OpenLog();
  {
    PMsgBroadcaster recorder("recorder", nullptr);
    recorder.WriteToLog(log);
    recorder.DoExecute(PMessage(new TestNote("one")));
    recorder.DoExecute(PMessage(new TestSignal(9)));
    recorder.DoExecute(PMessage(new TestNote("two")));
    PStreamSection foreign = OpenWriteSection(log, PAutomaticUID("NotAKind"), 1);
    foreign.Close();
  }
  log.MoveTo(0);
  Record seen;
  RecordingBroadcaster replayer("replayer", &seen);
  RecordingListener a("a", &seen), eater("eater", &seen, /*consume=*/true), never("never", &seen);
  replayer.RegisterTail(&a);
  replayer.RegisterTail(&eater);
  replayer.RegisterTail(&never);
  PStream ownLog = OpenLog(OpenWrite);
  replayer.WriteToLog(ownLog);
  EXPECT_EQ(replayer.ReadFromLog(log), 1u); // one unknown kind skipped
  EXPECT_EQ(seen, (Record{"replayer:one", "a:one", "eater:one", "replayer:<empty>", "replayer:two",
                          "a:two", "eater:two", "replayer:<empty>"}));
  EXPECT_EQ(ownLog.GetSize(), 0u);
  EXPECT_TRUE(log.IsAtEnd());
}

TEST(PMsgBroadcaster, ReplayOfAStreamWithoutHandlerOrAtItsEndDoesNothing) {
  Record seen;
  RecordingBroadcaster replayer("replayer", &seen);
  PStream none;
  EXPECT_EQ(replayer.ReadFromLog(none), 0u);
  PStream empty = OpenLog();
  EXPECT_EQ(replayer.ReadFromLog(empty), 0u);
  EXPECT_TRUE(seen.empty());
}

TEST(PMsgBroadcaster, DamagedLogEndsTheReplayWithAnError) {
  PStream log = OpenLog();
  PMessage(new TestNote("whole")).WriteTo(log);
  PMessage(new TestNote("cut short")).WriteTo(log);
  log.SetSize(log.GetSize() - 6);
  log.MoveTo(0);
  Record seen;
  RecordingBroadcaster replayer("replayer", &seen);
  EXPECT_EQ(Caught([&] { replayer.ReadFromLog(log); }).Code(), kErrStreamBadFormat);
  EXPECT_EQ(seen, (Record{"replayer:whole"}));
}

} // namespace
