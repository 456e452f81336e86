// PMsgListener.h - listeners, broadcasters and message ports.
// Part of qvbase, the QVKernel foundation class library.
//
// A listener receives messages in ExecuteMsg, which a subclass overrides
// (true consumes the message). It is either top-level - registered to no
// broadcaster, then it receives every global broadcast and is listed in
// gTopListeners - or registered to one or more broadcasters, which relay
// what they receive to it. A broadcaster is a listener, so broadcasters form
// a tree whose roots are the top-level listeners. A port is a broadcaster
// that queues what it receives and relays it when its owner asks: the way
// messages cross threads.
//
//   class PCounter : public PMsgListener {
//   public:
//     PCounter() : PMsgListener("counter", &PGreeting::dcobj_class) {}
//     bool ExecuteMsg(const PMessage& m) override { ++seen; return false; }
//     int seen = 0;
//   };
//
// Delivery contract:
// - Synchronous. A listener is asked (its filter and listening switch
//   first) when the pending queue delivers to it (PMessage.h), when a
//   broadcaster it is registered to relays, or when a port it is registered
//   to is processed - always on the thread doing that, inside that call.
// - A broadcaster that executes a message first writes it to its log (when
//   it has a log stream open for writing), then runs its own ExecuteMsg,
//   then asks its listeners in list order until one consumes the message,
//   and reports the consumption to whoever asked it. Register puts a
//   listener first (the latest registered is asked first), RegisterTail
//   last.
// - A global broadcast asks every top-level listener; consuming does not
//   stop it.
// - Both walks go by index over the live list, re-reading its length at
//   each step. This is deliberate and kept: a listener that joins during
//   the walk (appended) is reached in the same walk, and when a listener
//   leaves during it, the one that followed moves into its place and is
//   skipped this time. A listener registered at the head (Register) during
//   a relay moves every listener down one place: the one being asked is
//   asked once more and the newcomer is first from the next message on. A
//   listener unregistered from its last broadcaster during a global
//   broadcast is appended to the top-level listeners and reached in it.
// - During delivery a handler may send and broadcast (queued, PMessage.h),
//   post to any port (queued, never delivered inside the call, even to the
//   port being processed), register and unregister listeners, and destroy a
//   listener other than itself (a destroyed listener leaves every list at
//   once). It must not destroy the listener or broadcaster that is running
//   it, nor a broadcaster whose relay is under way above it.
// - A port never consumes: executing a message only queues it under the
//   port's mutex and answers false, so a relay goes on past a port. The
//   queued message reaches the port's own ExecuteMsg and its listeners when
//   the owner calls ProcessNextMessage or PMsgPort::ProcessNextMessages, on
//   that thread, outside the lock. Processing, not posting, writes the
//   port's log.
// - Only a port's queue is shared between threads. Registration lists,
//   gTopListeners and the list of ports belong to one thread, as does the
//   pending queue. Reference counts are plain integers, so a thread other
//   than the port's owner posts with Post, which hands its reference over
//   under the port's lock; it keeps no handle on the payload afterwards.
// - Kept as it stands: queueing an empty message in a port takes the
//   port's mutex and never gives it back (the unlock belongs to the
//   append). The thread that did it goes on (the mutex is recursive); any
//   other thread then blocks on that port until the holder unlocks it.
#pragma once

#include <qvbase/NMutex.h>
#include <qvbase/PDynClass.h>
#include <qvbase/PList.h>
#include <qvbase/PMessage.h>
#include <qvbase/PStream.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

#include <atomic>

class PMsgBroadcaster;
class PMsgPort;

// A port's queue: payloads in arrival order, one reference held on each.
class QVBASE_API PMsgPortQueue : public PList {
public:
  PMsgPortQueue() : PList(GSmartListDataConstructor) {}
  void Append(PMessageData* data) { AddAnObjectTail(static_cast<PSmartData*>(data)); }
  PMessageData* First() const {
    return static_cast<PMessageData*>(static_cast<PSmartData*>(GetAFirstObject()));
  }
  void RemoveFirst() { RemoveAnIdx(0); }
};

// A receiver of messages: top-level, or registered to broadcasters.
class QVBASE_API PMsgListener : public PRoot {
public:
  // The name is accepted and not kept. The filter is kept when it is the
  // message family's root class or derives from it; any other class (or
  // null) leaves the listener without filter: it accepts every message.
  // The new listener listens and is top-level.
  explicit PMsgListener(const char* name = nullptr, const PDynClass* filter = nullptr);
  // A copy takes the filter, the listening switch and the flush word, not
  // the registrations: it starts top-level.
  PMsgListener(const PMsgListener& other);
  // Takes the filter, the listening switch and the flush word; the
  // registrations of this listener stay as they are.
  PMsgListener& operator=(const PMsgListener& other);
  // Flushes the pending records addressed to it when the flush word is set,
  // unregisters from each of its broadcasters, leaves gTopListeners.
  ~PMsgListener() override;

  // The handler: true consumes the message. False here.
  virtual bool ExecuteMsg(const PMessage& message);
  // What executing a message means for this listener: here, ExecuteMsg.
  virtual bool DoExecute(const PMessage& message);

  void StartListening() { listening = true; }
  void StopListening() { listening = false; }
  bool IsListening() const { return listening; }

  const PDynClass* Filter() const { return filter; }
  // The constructor's rule: a class outside the message family clears it.
  void SetFilter(const PDynClass* newFilter);

  // Registers to `b` (null is ignored), first among its listeners, or last.
  // A listener registered twice to one broadcaster is listed twice there.
  void RegisterTo(PMsgBroadcaster* b);
  void RegisterToTail(PMsgBroadcaster* b);
  // Removes one registration to `b` (null, or a broadcaster it is not
  // registered to, changes nothing); a listener left with no broadcaster is
  // top-level again.
  void UnregisterFrom(PMsgBroadcaster* b);

  // Accepted for compatibility; no trace is written.
  void SetTraceOn(void (*trace)(const char*));
  void SetTraceOff();

  // Top-level exactly while registered to no broadcaster.
  bool IsTopLevel() const { return broadcasters.IsEmpty(); }
  ULONG BroadcasterCount() const { return broadcasters.Size(); }
  PMsgBroadcaster* BroadcasterAt(ULONG index) const { return broadcasters.At(index); }

protected:
  // The flush word. No operation of the library sets it: a subclass that
  // wants its queued messages dropped when it goes turns it on.
  void SetFlushOnDestroy(bool flush) { flushWord = flush ? 1 : 0; }
  bool IsFlushOnDestroy() const { return flushWord != 0; }

private:
  // Asks this listener for `message`: false for an empty message, a
  // listener that does not listen, or a message its filter rejects; else
  // its DoExecute.
  bool Dispatch(const PMessage& message);
  // Asks every top-level listener (the index walk above); results ignored.
  static void Broadcast(const PMessage& message);
  static bool Accepts(const PDynClass* candidate);

  const PDynClass* filter;
  bool listening;
  LinkedList<PMsgBroadcaster> broadcasters;
  ULONG flushWord;

  friend class PMessage;
  friend class PMsgBroadcaster;
};

// A listener that relays what it executes to its own listeners, and can
// log and replay it.
class QVBASE_API PMsgBroadcaster : public PMsgListener {
public:
  explicit PMsgBroadcaster(const char* name = nullptr, const PDynClass* filter = nullptr);
  // A copy shares the log and has no listeners.
  PMsgBroadcaster(const PMsgBroadcaster& other);
  // Takes the listener state and shares the log; the listeners stay.
  PMsgBroadcaster& operator=(const PMsgBroadcaster& other);
  // Unregisters every listener, then the listener part goes.
  ~PMsgBroadcaster() override;

  void Register(PMsgListener* l) { l->RegisterTo(this); }
  void RegisterTail(PMsgListener* l) { l->RegisterToTail(this); }
  void Unregister(PMsgListener* l) { l->UnregisterFrom(this); }

  ULONG ListenerCount() const { return listeners.Size(); }
  PMsgListener* ListenerAt(ULONG index) const { return listeners.At(index); }

  // Replays a log: until `s` has no handler or is at its end, reads one
  // message (PMessage::ReadFrom), runs this broadcaster's ExecuteMsg on it
  // and relays it to the listeners as DoExecute does, without writing it to
  // the log. Placeholders and unknown kinds are executed as empty messages
  // (which the relay passes to nobody). Answers how many sections were of
  // an unknown kind. A damaged section ends the replay with its error; when
  // the error is let through the replay stops there.
  virtual ULONG ReadFromLog(PStream& s);
  // From now on every executed message is written to `s` while `s` is open
  // for writing: the log shares s's handler (the previous log's is let go).
  virtual void WriteToLog(PStream& s);
  // Lets go of the log's handler: nothing more is written.
  virtual void StopWritingLog();
  // Log, own handler, then the listeners until one consumes (see above).
  bool DoExecute(const PMessage& message) override;

  const PStream& Log() const { return log; }

private:
  // Runs the own handler, then asks the listeners until one consumes.
  bool Relay(const PMessage& message);

  LinkedList<PMsgListener> listeners;
  PStream log;

  friend class PMsgListener;
};

// A broadcaster that queues what it receives, from any thread, and relays
// it when its owner processes it.
class QVBASE_API PMsgPort : public PMsgBroadcaster {
public:
  // As the broadcaster; the mutex is made and initialised, the port joins
  // theirList.
  explicit PMsgPort(const char* name = nullptr, const PDynClass* filter = nullptr);
  // A copy is a new port of its own (own mutex, empty queue, in theirList),
  // with the broadcaster part copied.
  PMsgPort(const PMsgPort& other);
  // Copies the broadcaster part; the queue and the mutex stay.
  PMsgPort& operator=(const PMsgPort& other);
  // Leaves theirList, uninitialises the mutex, drops every waiting payload,
  // then the broadcaster part goes.
  ~PMsgPort() override;

  // Queues the message and answers false: a port never consumes.
  bool DoExecute(const PMessage& message) override;
  // The relay of a queued message, when it is processed: the broadcaster's
  // DoExecute (log, own handler, listeners).
  virtual bool AsyncDoExecute(const PMessage& message);

  // From a thread other than the owner's: DoExecute under the port's lock,
  // then the caller's handle is emptied before the lock is given back, so
  // that no reference count is touched by two threads at once.
  void Post(PMessage& message);

  // Read without locking (an atomic count of the waiting messages).
  bool IsEmpty() const { return waiting.load() == 0; }
  bool HasWaitingMessages() const { return waiting.load() != 0; }

  // Takes the first waiting message and relays it (AsyncDoExecute); answers
  // whether more messages wait.
  bool ProcessNextMessage();

  // Blocks the calling thread until this port, or any port, has a waiting
  // message or `milliseconds` have passed (INFINITE: no limit); answers
  // whether one waits. A message posted at any moment before or during the
  // wait ends it: no wake-up is lost.
  bool WaitForMessages(ULONG milliseconds) const;
  static bool WaitForWaitingMessages(ULONG milliseconds);

  // Whether any port has a waiting message.
  static bool HaveWaitingMessages();
  // Processes one message of the first port (in construction order) that
  // has one; answers whether that port still has messages or a later port
  // has any. One call processes at most one message in the process. Kept as
  // it stands: a port before the processed one is not looked at again, so
  // a message that a handler queues there is not counted in the answer; it
  // waits for the next call (HaveWaitingMessages sees it).
  static bool ProcessNextMessages();

  // Every port, in construction order.
  static LinkedList<PMsgPort> theirList;

protected:
  // Locks; a message with data is appended (the queue takes a reference)
  // and the lock is given back. Kept as it stands: for an empty message the
  // lock is kept (see the file comment).
  void EnqueueMsg(const PMessage& message);
  // Locks; the first waiting payload becomes the result and leaves the
  // queue; unlocks. Empty when nothing waits or the lock fails.
  PMessage UnqueueMsg();

  NMutex mutex;
  PMsgPortQueue queue; // smart back end: one reference per waiting payload

private:
  void Join();

  std::atomic<ULONG> waiting; // the queue's count, for the unlocked readers
};

// Every listener registered to no broadcaster.
QVBASE_API extern LinkedList<PMsgListener> gTopListeners;
