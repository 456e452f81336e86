// PMsgPort.cpp - message ports: broadcasters that queue under a mutex what
// they receive, from any thread, and relay it when their owner asks.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PMsgListener.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

LinkedList<PMsgPort> PMsgPort::theirList;

namespace {

// Wakes the threads waiting for a port. A waiter counts itself in
// `sleepers` under this lock, then tests the ports' counts and sleeps until
// notified; a poster bumps the waiting count of its port first, then reads
// `sleepers`, and only when someone may be asleep takes this lock to
// notify. Both sides write before they read, and all four accesses are
// sequentially consistent: either the waiter sees the new message and does
// not sleep, or the poster sees the waiter and its notification, taken under
// the lock the waiter holds until it sleeps, reaches it. No wake-up is lost,
// and a post that nobody waits for costs no lock beyond the port's own.
struct PostSignal {
  std::mutex lock;
  std::condition_variable posted;
  std::atomic<int> sleepers{0};
};

PostSignal& Signal() {
  static PostSignal* signal = new PostSignal; // never destroyed: ports may outlive statics
  return *signal;
}

void NotifyPosted() {
  PostSignal& signal = Signal();
  if (signal.sleepers.load() == 0)
    return;
  std::lock_guard<std::mutex> hold(signal.lock);
  signal.posted.notify_all();
}

template <class Ready>
bool WaitUntil(ULONG milliseconds, Ready ready) {
  PostSignal& signal = Signal();
  std::unique_lock<std::mutex> hold(signal.lock);
  signal.sleepers.fetch_add(1);
  bool found;
  if (milliseconds == INFINITE) {
    signal.posted.wait(hold, ready);
    found = true;
  } else {
    found = signal.posted.wait_for(hold, std::chrono::milliseconds(milliseconds), ready);
  }
  signal.sleepers.fetch_sub(1);
  return found;
}

} // namespace

PMsgPort::PMsgPort(const char* name, const PDynClass* filter)
    : PMsgBroadcaster(name, filter), waiting(0) {
  Join();
}

PMsgPort::PMsgPort(const PMsgPort& other) : PMsgBroadcaster(other), waiting(0) { Join(); }

void PMsgPort::Join() {
  // The new mutex is held by this thread until Init: nothing can be queued
  // before the port is listed.
  theirList.AddTail(this);
  mutex.Init();
}

PMsgPort& PMsgPort::operator=(const PMsgPort& other) {
  PMsgBroadcaster::operator=(other);
  return *this;
}

PMsgPort::~PMsgPort() {
  theirList.Remove(this);
  mutex.Uninit();
  queue.Clear(); // releases every waiting payload
  waiting = 0;
}

bool PMsgPort::DoExecute(const PMessage& message) {
  EnqueueMsg(message);
  // Deliberately false, even when the port's own listeners would consume the
  // message later: a relay goes on past a port at once, so the listeners
  // after it in its broadcaster are asked now and the port's own ones when
  // it is processed.
  return false;
}

bool PMsgPort::AsyncDoExecute(const PMessage& message) {
  return PMsgBroadcaster::DoExecute(message);
}

void PMsgPort::Post(PMessage& message) {
  if (!mutex.Lock())
    return;
  DoExecute(message);
  message = nullptr; // the caller's reference goes while the lock is held
  mutex.Unlock();
}

void PMsgPort::EnqueueMsg(const PMessage& message) {
  if (!mutex.Lock())
    return;
  PMessageData* data = message.GetData();
  if (!data)
    return; // deliberately as it stands: the mutex stays held (see the header)
  queue.Append(data);
  ++waiting;
  mutex.Unlock();
  NotifyPosted();
}

PMessage PMsgPort::UnqueueMsg() {
  PMessage result;
  if (!mutex.Lock())
    return result;
  if (!queue.IsEmpty()) {
    result = queue.First();
    queue.RemoveFirst();
    --waiting;
  }
  mutex.Unlock();
  return result;
}

bool PMsgPort::ProcessNextMessage() {
  PMessage message = UnqueueMsg();
  if (!message.IsEmpty())
    AsyncDoExecute(message);
  return HasWaitingMessages();
}

bool PMsgPort::WaitForMessages(ULONG milliseconds) const {
  return WaitUntil(milliseconds, [this] { return HasWaitingMessages(); });
}

bool PMsgPort::WaitForWaitingMessages(ULONG milliseconds) {
  return WaitUntil(milliseconds, [] { return HaveWaitingMessages(); });
}

bool PMsgPort::HaveWaitingMessages() {
  for (PMsgPort* port = theirList.First(); port; port = theirList.Next(port))
    if (port->HasWaitingMessages())
      return true;
  return false;
}

bool PMsgPort::ProcessNextMessages() {
  // By index: a handler may construct or destroy ports during the call.
  for (ULONG i = 0; i < theirList.Size(); ++i) {
    PMsgPort* port = theirList.At(i);
    if (!port->HasWaitingMessages())
      continue;
    if (port->ProcessNextMessage())
      return true;
    // That port is drained: the answer is whether a later one has more.
    // Deliberately only the later ones, as the walk goes forward: a message
    // queued meanwhile in an earlier port waits for the next call.
    for (ULONG j = i + 1; j < theirList.Size(); ++j)
      if (theirList.At(j)->HasWaitingMessages())
        return true;
    return false;
  }
  return false;
}
