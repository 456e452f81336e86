// MessageTestSupport.h - message kinds and recording listeners for the
// messaging suites.
// Part of qvbase, the QVKernel foundation class library.
//
//   std::vector<std::string> seen;
//   RecordingListener a("a", &seen);
//   PMessage(new TestNote("hi")).Broadcast();
//   PMessage::ProcessMessages();
//   EXPECT_EQ(seen, (std::vector<std::string>{"a:hi"}));
#pragma once

#include <qvbase/PMessage.h>
#include <qvbase/PMsgListener.h>
#include <qvbase/PString.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace qvbase::test {

// A streamable kind: a text and a number, format version 3.
class TestNote : public PMessageData {
  DC_DECLARE_CLASS(TestNote)
public:
  TestNote();
  explicit TestNote(const std::string& text, LONG number = 0);
  ~TestNote() override;
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override;
  ULONG WriteSize(PStream& stream) const override;
  void ReadFrom(PStream& stream, ULONG version) override;

  std::string text;
  LONG number = 0;
  ULONG readVersion = 0;
  // Payloads of this kind alive now, in any thread.
  static std::atomic<int> alive;
};

// A kind derived from TestNote, for filters and distances.
class TestUrgentNote : public TestNote {
  DC_DECLARE_CLASS(TestUrgentNote)
public:
  TestUrgentNote() = default;
  explicit TestUrgentNote(const std::string& text) : TestNote(text) {}
};

// A kind that cannot be logged.
class TestSignal : public PMessageData {
  DC_DECLARE_CLASS(TestSignal)
public:
  TestSignal() = default;
  explicit TestSignal(int value) : value(value) {}
  int value = 0;
};

// A kind registered without factory: found by identifier, never made.
class TestUnmakeable : public PMessageData {
  DC_DECLARE_CLASS(TestUnmakeable)
public:
  bool IsStreamable() const override { return true; }
};

// What a message says in a test's record: the note's text, "signal:<n>"
// for a signal, "<empty>" for an empty message, or the kind's name.
std::string Describe(const PMessage& message);

// A listener that appends "<name>:<description>" to a shared record and
// answers `consume`; `onMessage`, when set, runs after the record.
class RecordingListener : public PMsgListener {
public:
  RecordingListener(std::string name, std::vector<std::string>* record, bool consume = false,
                    const PDynClass* filter = nullptr);
  bool ExecuteMsg(const PMessage& message) override;
  using PMsgListener::SetFlushOnDestroy;

  std::string name;
  std::vector<std::string>* record;
  bool consume;
  std::function<void(const PMessage&)> onMessage;
};

// The same for a broadcaster (its own ExecuteMsg).
class RecordingBroadcaster : public PMsgBroadcaster {
public:
  RecordingBroadcaster(std::string name, std::vector<std::string>* record, bool consume = false);
  bool ExecuteMsg(const PMessage& message) override;

  std::string name;
  std::vector<std::string>* record;
  bool consume;
  std::function<void(const PMessage&)> onMessage;
};

// Leaves the pending queue empty at the end of a test, whatever it left.
class ScopedPendingQueue {
public:
  ScopedPendingQueue();
  ~ScopedPendingQueue();
  ScopedPendingQueue(const ScopedPendingQueue&) = delete;
  ScopedPendingQueue& operator=(const ScopedPendingQueue&) = delete;
};

} // namespace qvbase::test
