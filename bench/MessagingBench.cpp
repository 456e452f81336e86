// MessagingBench.cpp - messages handed to listeners at once, queued and
// delivered later, and posted to a port by other threads, against Qt signals
// and slots (direct and queued connections) and POCO's NotificationCenter and
// NotificationQueue.
// Part of qvbase, the QVKernel foundation class library.
//
// Every side carries the same 16-byte payload (a serial number, a kind and a
// 64-bit value) and every handler does the same thing with it: adds the
// value to a sum and counts the message. qvbase and POCO make a new
// reference-counted payload object per message, as their messages are; Qt
// passes the payload by value (a direct connection by reference, a queued
// connection copies it into its event).

#include "BenchSupport.h"

#include <qvbase/PMessage.h>
#include <qvbase/PMsgListener.h>

#include <Poco/AutoPtr.h>
#include <Poco/NObserver.h>
#include <Poco/Notification.h>
#include <Poco/NotificationCenter.h>
#include <Poco/NotificationQueue.h>
#include <QCoreApplication>
#include <QEventLoop>
#include <QObject>

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

// The payload, as every side carries it.
struct Tick {
  std::int32_t serial;
  std::int32_t kind;
  std::int64_t value;
};
static_assert(sizeof(Tick) == 16, "the payload is 16 bytes on every side");
Q_DECLARE_METATYPE(Tick)

// Qt's side: a sender whose signal carries the payload, and a receiver whose
// slot handles it. moc reads this file (CMAKE_AUTOMOC), hence the named
// namespace and the .moc include at the end.
namespace qtpeer {

class TickSender : public QObject {
  Q_OBJECT
signals:
  void tick(const Tick& tick);
};

class TickCounter : public QObject {
  Q_OBJECT
public:
  void OnTick(const Tick& tick) {
    sum += tick.value;
    ++count;
  }
  std::int64_t sum = 0;
  std::int64_t count = 0;
};

} // namespace qtpeer

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

constexpr int kBroadcastListeners = 10;
constexpr int kPosters = 2;

// ---------------------------------------------------------------------------
// qvbase: a message kind and a listener of that kind.

class PTickMessage : public PMessageData {
  DC_DECLARE_CLASS(PTickMessage)
public:
  PTickMessage() = default;
  PTickMessage(std::int32_t serial, std::int64_t value) : tick{serial, 1, value} {}
  Tick tick{};
};

DC_DEFINE_CLASS(PTickMessage, PMessageData, PAutomaticUID("BenchTick"))

// Counts ticks and consumes none, so that a relay asks every listener. Its
// filter admits ticks only, so the payload is one without asking again.
class PTickCounter : public PMsgListener {
public:
  PTickCounter() : PMsgListener("ticks", &PTickMessage::dcobj_class) {}
  bool ExecuteMsg(const PMessage& message) override {
    const Tick& tick = static_cast<PTickMessage*>(message.GetData())->tick;
    sum += tick.value;
    ++count;
    return false;
  }
  std::int64_t sum = 0;
  std::int64_t count = 0;
};

// ---------------------------------------------------------------------------
// POCO: a notification of that kind and an observer target.

class TickNotification : public Poco::Notification {
public:
  TickNotification(std::int32_t serial, std::int64_t value) : tick{serial, 1, value} {}
  Tick tick;
};

class TickTarget {
public:
  void OnTick(const Poco::AutoPtr<TickNotification>& notification) { Handle(*notification); }
  // What a queue's reader does with what it takes out: the type test the
  // observer makes in the synchronous case, then the handler.
  void Take(Poco::Notification* notification) {
    if (auto* tick = dynamic_cast<TickNotification*>(notification))
      Handle(*tick);
  }
  void Handle(const TickNotification& notification) {
    sum += notification.tick.value;
    ++count;
  }
  std::int64_t sum = 0;
  std::int64_t count = 0;
};

using TickObserver = Poco::NObserver<TickTarget, TickNotification>;

// Qt's event loop, for the queued connections: one per process, made on the
// thread that runs the benchmarks, the first time a queued scenario runs.
QCoreApplication& Application() {
  static int argc = 1;
  static char name[] = "qvbase_bench";
  static char* argv[] = {name, nullptr};
  static QCoreApplication* application = [] {
    qRegisterMetaType<Tick>("Tick");
    return new QCoreApplication(argc, argv);
  }();
  return *application;
}

// A Qt sender connected to one counter, with the given kind of connection
// (a queued one needs the event loop).
struct QtTicks {
  explicit QtTicks(Qt::ConnectionType type) {
    if (type != Qt::DirectConnection)
      Application();
    QObject::connect(&sender, &qtpeer::TickSender::tick, &counter, &qtpeer::TickCounter::OnTick,
                     type);
  }
  qtpeer::TickSender sender;
  qtpeer::TickCounter counter;
};

// ---------------------------------------------------------------------------
// msg_send, msg_broadcast: N messages, each made and handed at once to a
// broadcaster (a sender, a notification center) with one listener, or with
// ten that all see it.

// With `onePayload`, one message made once and handed over N times: the
// relay alone, without making and releasing a payload per message.
void RelayQvbase(benchmark::State& state, int listeners, bool onePayload) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  PMsgBroadcaster sender("sender", nullptr);
  std::vector<std::unique_ptr<PTickCounter>> counters;
  for (int l = 0; l < listeners; ++l) {
    counters.push_back(std::make_unique<PTickCounter>());
    sender.RegisterTail(counters.back().get());
  }
  const PMessage same(new PTickMessage(1, 1));
  for (auto _ : state) {
    if (onePayload) {
      for (std::int32_t i = 0; i < n; ++i)
        sender.DoExecute(same);
    } else {
      for (std::int32_t i = 0; i < n; ++i)
        sender.DoExecute(PMessage(new PTickMessage(i, i)));
    }
  }
  benchmark::DoNotOptimize(counters.back()->sum);
}

void RelayQt(benchmark::State& state, int listeners) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  qtpeer::TickSender sender;
  std::vector<std::unique_ptr<qtpeer::TickCounter>> counters;
  for (int l = 0; l < listeners; ++l) {
    counters.push_back(std::make_unique<qtpeer::TickCounter>());
    QObject::connect(&sender, &qtpeer::TickSender::tick, counters.back().get(),
                     &qtpeer::TickCounter::OnTick, Qt::DirectConnection);
  }
  for (auto _ : state) {
    for (std::int32_t i = 0; i < n; ++i)
      emit sender.tick(Tick{i, 1, i});
  }
  benchmark::DoNotOptimize(counters.back()->sum);
}

void RelayPoco(benchmark::State& state, int listeners) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  Poco::NotificationCenter center;
  std::vector<TickTarget> targets(static_cast<std::size_t>(listeners));
  for (TickTarget& target : targets)
    center.addObserver(TickObserver(target, &TickTarget::OnTick));
  for (auto _ : state) {
    for (std::int32_t i = 0; i < n; ++i)
      center.postNotification(new TickNotification(i, i));
  }
  for (TickTarget& target : targets)
    center.removeObserver(TickObserver(target, &TickTarget::OnTick));
  benchmark::DoNotOptimize(targets.back().sum);
}

// ---------------------------------------------------------------------------
// msg_queue: N messages queued for one listener, then the queue drained on
// the same thread: the pending queue, a queued connection within one thread
// drained by the event loop, a NotificationQueue emptied by its reader.

void QueueQvbase(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  PTickCounter counter;
  for (auto _ : state) {
    for (std::int32_t i = 0; i < n; ++i)
      PMessage(new PTickMessage(i, i)).Send(&counter);
    PMessage::ProcessMessages();
  }
  benchmark::DoNotOptimize(counter.sum);
}

void QueueQt(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  QtTicks qt(Qt::QueuedConnection);
  for (auto _ : state) {
    const std::int64_t goal = qt.counter.count + n;
    for (std::int32_t i = 0; i < n; ++i)
      emit qt.sender.tick(Tick{i, 1, i});
    while (qt.counter.count < goal)
      QCoreApplication::processEvents();
  }
  benchmark::DoNotOptimize(qt.counter.sum);
}

void QueuePoco(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  Poco::NotificationQueue queue;
  TickTarget target;
  for (auto _ : state) {
    for (std::int32_t i = 0; i < n; ++i)
      queue.enqueueNotification(new TickNotification(i, i));
    for (;;) {
      Poco::Notification::Ptr notification(queue.dequeueNotification());
      if (!notification)
        break;
      target.Take(notification.get());
    }
  }
  benchmark::DoNotOptimize(target.sum);
}

// ---------------------------------------------------------------------------
// msg_port: two threads post N messages in all (N / 2 each) to the owner's
// port, queue or object while the owner takes them out and hands each to
// its listener, sleeping when nothing waits. The threads are started and
// joined inside every iteration, on every side alike.

template <class Post, class Drain>
void RunPosters(std::int32_t n, Post post, Drain drain) {
  std::vector<std::thread> posters;
  for (int p = 0; p < kPosters; ++p)
    posters.emplace_back([p, n, &post] {
      for (std::int32_t i = p; i < n; i += kPosters)
        post(i);
    });
  drain();
  for (std::thread& poster : posters)
    poster.join();
}

void PortQvbase(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  PMsgPort port("port", nullptr);
  PTickCounter counter;
  port.Register(&counter);
  for (auto _ : state) {
    const std::int64_t goal = counter.count + n;
    RunPosters(
        n,
        [&port](std::int32_t i) {
          PMessage message(new PTickMessage(i, i));
          port.Post(message);
        },
        [&port, &counter, goal] {
          while (counter.count < goal)
            if (!port.ProcessNextMessage() && counter.count < goal)
              port.WaitForMessages(INFINITE);
        });
  }
  benchmark::DoNotOptimize(counter.sum);
}

void PortQt(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  QtTicks qt(Qt::QueuedConnection);
  for (auto _ : state) {
    const std::int64_t goal = qt.counter.count + n;
    RunPosters(
        n,
        [&qt](std::int32_t i) {
          emit qt.sender.tick(Tick{i, 1, i});
        },
        [&qt, goal] {
          while (qt.counter.count < goal)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        });
  }
  benchmark::DoNotOptimize(qt.counter.sum);
}

void PortPoco(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  Poco::NotificationQueue queue;
  TickTarget target;
  for (auto _ : state) {
    RunPosters(
        n, [&queue](std::int32_t i) { queue.enqueueNotification(new TickNotification(i, i)); },
        [&queue, &target, n] {
          for (std::int32_t i = 0; i < n; ++i) {
            Poco::Notification::Ptr notification(queue.waitDequeueNotification());
            target.Take(notification.get());
          }
        });
  }
  benchmark::DoNotOptimize(target.sum);
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto sizes = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 1000000); };
  sizes(RegisterBenchmark("msg_send/qvbase", RelayQvbase, 1, false));
  sizes(RegisterBenchmark("msg_send/qvbase_same", RelayQvbase, 1, true));
  sizes(RegisterBenchmark("msg_send/qt", RelayQt, 1));
  sizes(RegisterBenchmark("msg_send/poco", RelayPoco, 1));
  sizes(RegisterBenchmark("msg_broadcast/qvbase", RelayQvbase, kBroadcastListeners, false));
  sizes(RegisterBenchmark("msg_broadcast/qvbase_same", RelayQvbase, kBroadcastListeners, true));
  sizes(RegisterBenchmark("msg_broadcast/qt", RelayQt, kBroadcastListeners));
  sizes(RegisterBenchmark("msg_broadcast/poco", RelayPoco, kBroadcastListeners));
  sizes(RegisterBenchmark("msg_queue/qvbase", QueueQvbase));
  sizes(RegisterBenchmark("msg_queue/qt", QueueQt));
  sizes(RegisterBenchmark("msg_queue/poco", QueuePoco));
  // Three threads work here: the figure is the CPU time of the whole
  // process (the posters' and the owner's), and the iterations are counted
  // in wall time.
  const auto threaded = [&sizes](benchmark::internal::Benchmark* b) {
    sizes(b->MeasureProcessCPUTime()->UseRealTime());
  };
  threaded(RegisterBenchmark("msg_port/qvbase", PortQvbase));
  threaded(RegisterBenchmark("msg_port/qt", PortQt));
  threaded(RegisterBenchmark("msg_port/poco", PortPoco));
}

const ScenarioFile kMessaging(/*rank=*/130, Register);

} // namespace

#include "MessagingBench.moc"
