// MessageTestSupport.cpp - message kinds and recording listeners for the
// messaging suites.
// Part of qvbase, the QVKernel foundation class library.
#include "support/MessageTestSupport.h"

#include <qvbase/PMBString.h>

namespace qvbase::test {

std::atomic<int> TestNote::alive{0};

DC_DEFINE_CLASS(TestNote, PMessageData, PAutomaticUID("TestNote"))
DC_DEFINE_CLASS(TestUrgentNote, TestNote, PAutomaticUID("TestUrgentNote"))
DC_DEFINE_CLASS(TestSignal, PMessageData, PAutomaticUID("TestSignal"))
DC_DEFINE_ABSTRACT_CLASS(TestUnmakeable, PMessageData, PAutomaticUID("TestUnmakeable"))

TestNote::TestNote() { ++alive; }

TestNote::TestNote(const std::string& text, LONG number) : text(text), number(number) { ++alive; }

TestNote::~TestNote() { --alive; }

void TestNote::WriteTo(PStream& stream, ULONG* version) const {
  stream.Write(PMBString(text.c_str(), /*copy=*/true));
  stream.Write(number);
  *version = 3;
}

ULONG TestNote::WriteSize(PStream& stream) const {
  return stream.WriteSize(PMBString(text.c_str(), /*copy=*/true)) + stream.WriteSize(number);
}

void TestNote::ReadFrom(PStream& stream, ULONG version) {
  PString read;
  stream.Read(&read);
  text = static_cast<const char*>(PMBString(read));
  stream.Read(&number);
  readVersion = version;
}

std::string Describe(const PMessage& message) {
  PMessageData* data = message.GetData();
  if (!data)
    return "<empty>";
  if (TestNote* note = message.DataAs<TestNote>())
    return note->text;
  if (TestSignal* signal = message.DataAs<TestSignal>())
    return "signal:" + std::to_string(signal->value);
  return data->DC_Name();
}

RecordingListener::RecordingListener(std::string name, std::vector<std::string>* record,
                                     bool consume, const PDynClass* filter)
    : PMsgListener(name.c_str(), filter), name(std::move(name)), record(record), consume(consume) {}

bool RecordingListener::ExecuteMsg(const PMessage& message) {
  record->push_back(name + ":" + Describe(message));
  if (onMessage)
    onMessage(message);
  return consume;
}

RecordingBroadcaster::RecordingBroadcaster(std::string name, std::vector<std::string>* record,
                                           bool consume)
    : PMsgBroadcaster(name.c_str(), nullptr), name(std::move(name)), record(record),
      consume(consume) {}

bool RecordingBroadcaster::ExecuteMsg(const PMessage& message) {
  record->push_back(name + ":" + Describe(message));
  if (onMessage)
    onMessage(message);
  return consume;
}

ScopedPendingQueue::ScopedPendingQueue() = default;

ScopedPendingQueue::~ScopedPendingQueue() {
  while (!gPendingMessages.IsEmpty()) {
    PendingMessage* record = gPendingMessages.First();
    gPendingMessages.RemoveAt(0);
    delete record;
  }
}

} // namespace qvbase::test
