// Ports: queued relay, processing one message at a time across ports, the
// kept empty-message hold, and messages posted from other threads - each
// delivered once, in each sender's order, nothing left and nothing leaked,
// with no lost wake-up and no deadlock when a handler posts to its own port.
#include <qvbase/PMsgListener.h>

#include <qvbase/PMemoryStream.h>

#include "support/MessageTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using qvbase::test::Describe;
using qvbase::test::RecordingListener;
using qvbase::test::ScopedPendingQueue;
using qvbase::test::TestNote;
using qvbase::test::TestSignal;

typedef std::vector<std::string> Record;

// Long enough for a thread that could go on to have gone on.
constexpr auto kSettle = std::chrono::milliseconds(100);
// What a wait that should succeed at once may take at most, on a loaded
// machine under a sanitizer.
constexpr ULONG kPatienceMs = 20000;

// A port with its protected members in view and its own handler recorded.
class TestPort : public PMsgPort {
public:
  explicit TestPort(std::vector<std::string>* record = nullptr, const char* name = "port",
                    const PDynClass* filter = nullptr)
      : PMsgPort(name, filter), m_record(record), m_name(name) {}
  bool ExecuteMsg(const PMessage& message) override {
    if (m_record)
      m_record->push_back(m_name + ":" + Describe(message));
    if (onMessage)
      onMessage(message);
    return false;
  }
  using PMsgPort::EnqueueMsg;
  using PMsgPort::mutex;
  using PMsgPort::UnqueueMsg;
  std::function<void(const PMessage&)> onMessage;

private:
  std::vector<std::string>* m_record;
  std::string m_name;
};

// --- One thread ---

TEST(PMsgPort, RelayedMessageReturnsFalseAndReachesListenersOnlyWhenProcessed) {
  Record seen;
  TestPort port(&seen);
  RecordingListener listener("l", &seen, /*consume=*/true);
  port.Register(&listener);
  PMsgBroadcaster hub("hub", nullptr);
  RecordingListener after("after", &seen);
  hub.RegisterTail(&port);
  hub.RegisterTail(&after);
  EXPECT_FALSE(hub.DoExecute(PMessage(new TestNote("m")))); // the relay went on past it
  EXPECT_EQ(seen, (Record{"after:m"}));
  EXPECT_TRUE(port.HasWaitingMessages());
  EXPECT_FALSE(port.IsEmpty());
  EXPECT_FALSE(port.ProcessNextMessage()); // nothing more waits
  EXPECT_EQ(seen, (Record{"after:m", "port:m", "l:m"}));
  EXPECT_TRUE(port.IsEmpty());
}

TEST(PMsgPort, ProcessesInTheOrderPosted) {
  Record seen;
  TestPort port(&seen);
  for (const char* text : {"1", "2", "3"})
    port.DoExecute(PMessage(new TestNote(text)));
  EXPECT_TRUE(port.ProcessNextMessage());
  EXPECT_TRUE(port.ProcessNextMessage());
  EXPECT_FALSE(port.ProcessNextMessage());
  EXPECT_FALSE(port.ProcessNextMessage()); // an empty port does nothing
  EXPECT_EQ(seen, (Record{"port:1", "port:2", "port:3"}));
}

TEST(PMsgPort, TwoPortsAreProcessedOneMessagePerCallInConstructionOrder) {
  Record seen;
  TestPort first(&seen, "first");
  TestPort second(&seen, "second");
  second.DoExecute(PMessage(new TestNote("b")));
  first.DoExecute(PMessage(new TestNote("a")));
  EXPECT_TRUE(PMsgPort::HaveWaitingMessages());
  EXPECT_TRUE(PMsgPort::ProcessNextMessages());
  EXPECT_EQ(seen, (Record{"first:a"}));
  EXPECT_FALSE(PMsgPort::ProcessNextMessages());
  EXPECT_EQ(seen, (Record{"first:a", "second:b"}));
  EXPECT_FALSE(PMsgPort::HaveWaitingMessages());
  EXPECT_FALSE(PMsgPort::ProcessNextMessages());
}

TEST(PMsgPort, ProcessNextMessagesAnswersTrueWhileTheSamePortHasMore) {
  Record seen;
  TestPort port(&seen);
  port.DoExecute(PMessage(new TestNote("1")));
  port.DoExecute(PMessage(new TestNote("2")));
  EXPECT_TRUE(PMsgPort::ProcessNextMessages());
  EXPECT_FALSE(PMsgPort::ProcessNextMessages());
  EXPECT_EQ(seen, (Record{"port:1", "port:2"}));
}

TEST(PMsgPort, ProcessNextMessagesSkipsEmptyPortsAndLooksOnlyLaterForMore) {
  Record seen;
  TestPort empty(&seen, "empty");
  TestPort middle(&seen, "middle");
  TestPort last(&seen, "last");
  middle.DoExecute(PMessage(new TestNote("m")));
  last.DoExecute(PMessage(new TestNote("l")));
  EXPECT_TRUE(PMsgPort::ProcessNextMessages()); // the last port still has one
  EXPECT_EQ(seen, (Record{"middle:m"}));
  // Kept as it stands: the answer looks at the processed port and the ports
  // after it. A message queued meanwhile in an earlier port is not counted,
  // so the caller's loop ends here and the message waits for the next call.
  last.onMessage = [&](const PMessage&) { empty.DoExecute(PMessage(new TestNote("e"))); };
  EXPECT_FALSE(PMsgPort::ProcessNextMessages());
  EXPECT_EQ(seen, (Record{"middle:m", "last:l"}));
  EXPECT_TRUE(PMsgPort::HaveWaitingMessages());
  EXPECT_FALSE(PMsgPort::ProcessNextMessages());
  EXPECT_EQ(seen, (Record{"middle:m", "last:l", "empty:e"}));
}

TEST(PMsgPort, PortsAreListedInConstructionOrderWhileTheyLive) {
  auto a = std::make_unique<TestPort>();
  TestPort b;
  ULONG before = PMsgPort::theirList.Size();
  EXPECT_EQ(PMsgPort::theirList.At(before - 2), a.get());
  EXPECT_EQ(PMsgPort::theirList.Last(), &b);
  a.reset();
  EXPECT_EQ(PMsgPort::theirList.Size(), before - 1);
  TestPort copy(b); // a copy is a new port of its own
  EXPECT_EQ(PMsgPort::theirList.Last(), &copy);
  b.DoExecute(PMessage(new TestNote("only b")));
  EXPECT_TRUE(copy.IsEmpty());
}

TEST(PMsgPort, DestroyingAPortDropsItsWaitingPayloads) {
  int before = TestNote::alive;
  {
    TestPort port;
    port.DoExecute(PMessage(new TestNote("dropped")));
    port.DoExecute(PMessage(new TestNote("dropped too")));
    EXPECT_EQ(TestNote::alive, before + 2);
  }
  EXPECT_EQ(TestNote::alive, before);
}

TEST(PMsgPort, PostQueuesThePayloadAndEmptiesTheCallersHandle) {
  TestPort port;
  PMessage message(new TestNote("handed over"));
  PMessageData* data = message.GetData();
  port.Post(message);
  EXPECT_TRUE(message.IsEmpty());
  EXPECT_EQ(data->NumSmartLocks(), 1u); // the queue's reference alone
  PMessage empty;
  port.Post(empty); // kept as it stands: the lock stays held once
  EXPECT_TRUE(port.mutex.Lock());
  port.mutex.Unlock();
  port.mutex.Unlock(); // gives back the hold the empty message kept
  EXPECT_EQ(Describe(port.UnqueueMsg()), "handed over");
}

TEST(PMsgPort, QueueHoldsOneReferenceToEachWaitingPayload) {
  TestPort port;
  PMessage message(new TestNote("shared"));
  port.DoExecute(message);
  EXPECT_EQ(message.GetData()->NumSmartLocks(), 2u);
  PMessage taken = port.UnqueueMsg();
  EXPECT_EQ(taken.GetData(), message.GetData());
  EXPECT_EQ(message.GetData()->NumSmartLocks(), 2u); // the queue's went to `taken`
  EXPECT_TRUE(port.UnqueueMsg().IsEmpty());
}

TEST(PMsgPort, FilterAndListeningApplyWhenAPortIsDispatchedTo) {
  ScopedPendingQueue queue;
  TestPort port(nullptr, "port", &TestSignal::dcobj_class);
  PMessage(new TestNote("filtered")).Send(&port);
  PMessage(new TestSignal(1)).Send(&port);
  PMessage::ProcessMessages();
  port.StopListening();
  PMessage(new TestSignal(2)).Send(&port);
  PMessage::ProcessMessages();
  PMessage queued = port.UnqueueMsg();
  EXPECT_EQ(Describe(queued), "signal:1");
  EXPECT_TRUE(port.IsEmpty());
}

TEST(PMsgPort, PortWithoutCriticalSectionQueuesAndHandsOutNothing) {
  TestPort port;
  port.DoExecute(PMessage(new TestNote("before")));
  port.mutex.Uninit(); // Lock fails from now on
  int before = TestNote::alive;
  port.DoExecute(PMessage(new TestNote("ignored")));
  EXPECT_EQ(TestNote::alive, before);       // not queued: released with its handle
  EXPECT_TRUE(port.UnqueueMsg().IsEmpty()); // the lock failed: nothing taken
  EXPECT_TRUE(port.HasWaitingMessages());   // "before" is still there
  EXPECT_TRUE(port.ProcessNextMessage());   // and stays there
}

TEST(PMsgPort, AssignmentTakesTheBroadcasterPartAndKeepsQueueAndMutex) {
  TestPort source;
  source.StopListening();
  source.DoExecute(PMessage(new TestNote("source's")));
  TestPort target;
  target.DoExecute(PMessage(new TestNote("target's")));
  target = source;
  EXPECT_FALSE(target.IsListening());
  EXPECT_EQ(Describe(target.UnqueueMsg()), "target's");
  EXPECT_TRUE(target.IsEmpty());
  EXPECT_TRUE(target.mutex.Lock()); // its own critical section, still attached
  target.mutex.Unlock();
  EXPECT_EQ(Describe(source.UnqueueMsg()), "source's");
}

TEST(PMsgPort, ProcessingWritesTheLogNotPosting) {
  TestPort port;
  PStream log(new PMemoryStreamHdl(256));
  log.Open(OpenWrite);
  port.WriteToLog(log);
  port.DoExecute(PMessage(new TestNote("x")));
  EXPECT_EQ(log.GetSize(), 0u);
  port.ProcessNextMessage();
  EXPECT_EQ(log.GetSize(), 28u + 4 + 1 + 4);
}

TEST(PMsgPort, EmptyMessageLeavesTheMutexHeldAsItStands) {
  TestPort port;
  port.EnqueueMsg(PMessage()); // nothing queued; the lock is kept
  EXPECT_TRUE(port.IsEmpty());
  // The holding thread itself goes on: the mutex is recursive.
  port.DoExecute(PMessage(new TestNote("same thread")));
  EXPECT_TRUE(port.HasWaitingMessages());
  // Any other thread blocks until the hold is given back.
  std::atomic<bool> posted{false};
  std::thread other([&] {
    PMessage message(new TestNote("other thread"));
    port.Post(message);
    posted = true;
  });
  std::this_thread::sleep_for(kSettle);
  EXPECT_FALSE(posted);
  port.mutex.Unlock(); // what the append would have done
  other.join();
  EXPECT_TRUE(posted);
  EXPECT_TRUE(port.ProcessNextMessage());
  EXPECT_FALSE(port.ProcessNextMessage());
}

TEST(PMsgPort, HandlerPostingToItsOwnPortDoesNotDeadlock) {
  Record seen;
  TestPort port(&seen);
  RecordingListener listener("l", &seen);
  port.Register(&listener);
  int posts = 0;
  port.onMessage = [&](const PMessage&) {
    if (++posts <= 3)
      port.DoExecute(PMessage(new TestNote("again " + std::to_string(posts))));
  };
  listener.onMessage = [&](const PMessage& m) {
    if (Describe(m) == "first")
      port.DoExecute(PMessage(new TestNote("from listener")));
  };
  port.DoExecute(PMessage(new TestNote("first")));
  // Each post is queued for a later call, never delivered inside this one.
  EXPECT_TRUE(port.ProcessNextMessage());
  EXPECT_EQ(seen, (Record{"port:first", "l:first"}));
  while (port.ProcessNextMessage()) {
  }
  EXPECT_EQ(seen,
            (Record{"port:first", "l:first", "port:again 1", "l:again 1", "port:from listener",
                    "l:from listener", "port:again 2", "l:again 2", "port:again 3", "l:again 3"}));
}

// --- Several threads ---

// A payload that says who sent it and its number in that sender's series.
struct Posted {
  int sender;
  int sequence;
};

// Records what it receives; checked on the owning thread.
class CollectingListener : public PMsgListener {
public:
  bool ExecuteMsg(const PMessage& message) override {
    TestNote* note = message.DataAs<TestNote>();
    if (note)
      received.push_back(
          Posted{static_cast<int>(note->number >> 16), static_cast<int>(note->number & 0xFFFF)});
    return false;
  }
  std::vector<Posted> received;
};

TEST(PMsgPort, MessagesPostedFromManyThreadsArriveOnceInEachSendersOrder) {
  constexpr int kSenders = 4;
  constexpr int kPorts = 3;
  constexpr int kPerSender = 3000;
  const int aliveBefore = TestNote::alive;
  std::vector<std::unique_ptr<TestPort>> ports;
  std::vector<std::unique_ptr<CollectingListener>> collectors;
  for (int p = 0; p < kPorts; ++p) {
    ports.push_back(std::make_unique<TestPort>());
    collectors.push_back(std::make_unique<CollectingListener>());
    ports[p]->Register(collectors[p].get());
  }
  std::atomic<int> finished{0};
  std::vector<std::thread> senders;
  for (int s = 0; s < kSenders; ++s)
    senders.emplace_back([&, s] {
      for (int i = 0; i < kPerSender; ++i) {
        PMessage message(new TestNote("posted", (s << 16) | i));
        ports[(s + i) % kPorts]->Post(message);
      }
      ++finished;
    });
  // The owning thread processes while the senders post.
  int processed = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (processed < kSenders * kPerSender && std::chrono::steady_clock::now() < deadline) {
    if (!PMsgPort::HaveWaitingMessages()) {
      PMsgPort::WaitForWaitingMessages(1000);
      continue;
    }
    PMsgPort::ProcessNextMessages();
    ++processed;
  }
  for (std::thread& t : senders)
    t.join();
  EXPECT_EQ(finished, kSenders);
  EXPECT_EQ(processed, kSenders * kPerSender);
  EXPECT_FALSE(PMsgPort::HaveWaitingMessages()); // nothing left queued
  std::map<int, int> next;                       // per sender and port: the next number expected
  int total = 0;
  for (int p = 0; p < kPorts; ++p) {
    EXPECT_TRUE(ports[p]->IsEmpty());
    for (const Posted& got : collectors[p]->received) {
      ++total;
      int key = got.sender * kPorts + p;
      int& expected = next[key];
      // This sender's messages to this port, every kPorts-th number.
      while ((got.sender + expected) % kPorts != p)
        ++expected;
      ASSERT_EQ(got.sequence, expected) << "sender " << got.sender << " port " << p;
      ++expected;
    }
  }
  EXPECT_EQ(total, kSenders * kPerSender); // each exactly once
  collectors.clear();
  ports.clear();
  EXPECT_EQ(TestNote::alive, aliveBefore); // nothing leaked
}

TEST(PMsgPort, NoWakeUpIsLostBetweenLookingAndSleeping) {
  // Ping-pong between two threads, each sleeping on its own port until the
  // other posts: a post that lands between a waiter's look at the queue and
  // its sleep must wake it, or the round stalls until the patience runs out.
  constexpr int kRounds = 3000;
  TestPort ping;
  TestPort pong;
  std::atomic<int> pongTimeouts{0};
  std::thread partner([&] {
    for (int i = 0; i < kRounds; ++i) {
      if (!pong.WaitForMessages(kPatienceMs)) {
        ++pongTimeouts;
        return;
      }
      PMessage ball = pong.UnqueueMsg(); // the port is this thread's to take from
      ping.Post(ball);
    }
  });
  int pingTimeouts = 0;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRounds && pongTimeouts == 0; ++i) {
    PMessage ball(new TestNote("ball", i));
    pong.Post(ball);
    if (!ping.WaitForMessages(kPatienceMs)) {
      ++pingTimeouts;
      break;
    }
    PMessage back = ping.UnqueueMsg();
    ASSERT_EQ(back.DataAs<TestNote>()->number, i);
  }
  partner.join();
  EXPECT_EQ(pingTimeouts, 0);
  EXPECT_EQ(pongTimeouts, 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST(PMsgPort, WaitReturnsAtOnceWhenAMessageWaitsAndTimesOutWhenNone) {
  TestPort port;
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(port.WaitForMessages(50));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45));
  EXPECT_FALSE(PMsgPort::WaitForWaitingMessages(0));
  port.DoExecute(PMessage(new TestNote("waiting")));
  EXPECT_TRUE(port.WaitForMessages(INFINITE));
  EXPECT_TRUE(PMsgPort::WaitForWaitingMessages(INFINITE));
  port.ProcessNextMessage();
}

TEST(PMsgPort, WaiterWakesWhenAnotherThreadPosts) {
  TestPort port;
  std::thread poster([&] {
    std::this_thread::sleep_for(kSettle);
    PMessage message(new TestNote("late"));
    port.Post(message);
  });
  EXPECT_TRUE(PMsgPort::WaitForWaitingMessages(kPatienceMs));
  poster.join();
  EXPECT_FALSE(port.ProcessNextMessage());
}

TEST(PMsgPort, OwnPortPostsWhileOtherThreadsPostDoNotDeadlock) {
  TestPort port;
  int echoes = 0;
  port.onMessage = [&](const PMessage& m) {
    if (Describe(m) == "outside" && echoes < 500) {
      ++echoes;
      port.DoExecute(PMessage(new TestNote("echo")));
    }
  };
  std::atomic<bool> stop{false};
  std::thread poster([&] {
    for (int i = 0; i < 500; ++i) {
      PMessage message(new TestNote("outside"));
      port.Post(message);
    }
    stop = true;
  });
  // The port is processed on a thread of its own, so that a deadlock shows
  // as a time-out here rather than as a hung test.
  auto owner = std::async(std::launch::async, [&] {
    while (!stop || port.HasWaitingMessages())
      if (!port.ProcessNextMessage())
        port.WaitForMessages(10);
  });
  ASSERT_EQ(owner.wait_for(std::chrono::seconds(60)), std::future_status::ready)
      << "the owner is stuck";
  poster.join();
  owner.get();
  EXPECT_EQ(echoes, 500);
  EXPECT_TRUE(port.IsEmpty());
}

} // namespace
