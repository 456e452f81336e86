// PMsgListener.cpp - listeners and broadcasters: registration, dispatch,
// the relay, global broadcasts, and logs written and replayed.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PMsgListener.h>

#include <qvbase/PStreamSection.h>

LinkedList<PMsgListener> gTopListeners;

// ---------------------------------------------------------------------------
// PMsgListener

bool PMsgListener::Accepts(const PDynClass* candidate) {
  return candidate && candidate->IsAChildOf(&PMessageData::dcobj_class);
}

PMsgListener::PMsgListener(const char* /*name: accepted, not kept*/, const PDynClass* filter)
    : filter(Accepts(filter) ? filter : nullptr), listening(true), flushWord(0) {
  gTopListeners.AddTail(this);
}

PMsgListener::PMsgListener(const PMsgListener& other)
    : PRoot(other), filter(other.filter), listening(other.listening), flushWord(other.flushWord) {
  gTopListeners.AddTail(this);
}

PMsgListener& PMsgListener::operator=(const PMsgListener& other) {
  filter = other.filter;
  listening = other.listening;
  flushWord = other.flushWord;
  return *this;
}

PMsgListener::~PMsgListener() {
  if (flushWord != 0)
    PMessage::FlushMessages(this);
  while (PMsgBroadcaster* b = broadcasters.First())
    UnregisterFrom(b);
  gTopListeners.Remove(this);
}

bool PMsgListener::ExecuteMsg(const PMessage&) { return false; }

bool PMsgListener::DoExecute(const PMessage& message) { return ExecuteMsg(message); }

void PMsgListener::SetFilter(const PDynClass* newFilter) {
  filter = Accepts(newFilter) ? newFilter : nullptr;
}

void PMsgListener::RegisterTo(PMsgBroadcaster* b) {
  if (!b)
    return;
  if (broadcasters.IsEmpty())
    gTopListeners.Remove(this);
  broadcasters.AddHead(b);
  b->listeners.AddHead(this);
}

void PMsgListener::RegisterToTail(PMsgBroadcaster* b) {
  if (!b)
    return;
  if (broadcasters.IsEmpty())
    gTopListeners.Remove(this);
  broadcasters.AddTail(b);
  b->listeners.AddTail(this);
}

void PMsgListener::UnregisterFrom(PMsgBroadcaster* b) {
  // Both links go together, or neither: registration stays symmetric.
  if (!b || !broadcasters.Contains(b))
    return;
  broadcasters.Remove(b);
  b->listeners.Remove(this);
  if (broadcasters.IsEmpty())
    gTopListeners.AddTail(this);
}

void PMsgListener::SetTraceOn(void (*)(const char*)) {}

void PMsgListener::SetTraceOff() {}

bool PMsgListener::Dispatch(const PMessage& message) {
  PMessageData* data = message.GetData();
  if (!data || !listening)
    return false;
  if (filter && data->DC()->DistanceTo(filter) == kDynClassNoDistance)
    return false;
  return DoExecute(message);
}

void PMsgListener::Broadcast(const PMessage& message) {
  // Deliberately by index over the live list, its length read again at each
  // step, and every result ignored: a listener that joins is reached in this
  // walk, and one that leaves makes the next one move into its place and be
  // skipped this time. Pinned by the global broadcast tests.
  for (ULONG i = 0; i < gTopListeners.Size(); ++i)
    gTopListeners.At(i)->Dispatch(message);
}

// ---------------------------------------------------------------------------
// PMsgBroadcaster

PMsgBroadcaster::PMsgBroadcaster(const char* name, const PDynClass* filter)
    : PMsgListener(name, filter) {}

PMsgBroadcaster::PMsgBroadcaster(const PMsgBroadcaster& other)
    : PMsgListener(other), log(other.log) {}

PMsgBroadcaster& PMsgBroadcaster::operator=(const PMsgBroadcaster& other) {
  PMsgListener::operator=(other);
  log = other.log;
  return *this;
}

PMsgBroadcaster::~PMsgBroadcaster() {
  while (PMsgListener* l = listeners.First())
    l->UnregisterFrom(this);
}

void PMsgBroadcaster::WriteToLog(PStream& s) { log = s; }

void PMsgBroadcaster::StopWritingLog() { log = PStream(); }

bool PMsgBroadcaster::DoExecute(const PMessage& message) {
  if (log.GetHandler() && (log.OpenMode() & OpenWrite) != 0)
    message.WriteTo(log);
  return Relay(message);
}

bool PMsgBroadcaster::Relay(const PMessage& message) {
  bool consumed = ExecuteMsg(message);
  // Deliberately by index over the live list, as the global broadcast: a
  // listener that leaves during the relay makes the next one be skipped.
  for (ULONG i = 0; !consumed && i < listeners.Size(); ++i)
    consumed = listeners.At(i)->Dispatch(message);
  return consumed;
}

ULONG PMsgBroadcaster::ReadFromLog(PStream& s) {
  ULONG unknown = 0;
  while (s.GetHandler() && !s.IsAtEnd()) {
    PMessage message;
    TypMessageRead found = message.ReadFrom(s);
    if (found == MessageReadDamaged)
      break; // the error was let through; the stream stands at its end
    if (found == MessageReadUnknown)
      ++unknown;
    Relay(message); // a replay is not logged again
  }
  return unknown;
}
