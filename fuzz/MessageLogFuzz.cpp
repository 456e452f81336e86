// Message logs replayed from arbitrary bytes, in both byte orderings.
//
// The input is a flags byte, then the log. Bit 0 of the flags chooses the
// byte ordering ("MM" when set). The log is replayed with ReadFromLog into a
// broadcaster whose listeners know a few kinds of message: the two of the
// message_log example (a temperature and an alarm, with the same formats),
// a kind whose payload holds further messages (nested sections), and a kind
// registered without a factory. One listener is a port, drained after the
// replay. The replay must end normally or with a PError; then the promises
// a replaying application builds on must hold: every message read was
// relayed, the port gives back what it queued, and every payload has gone
// when the last reference to it went. Every kind of the log is written
// again (WriteToLog of a second broadcaster) and that log must replay to
// the same kinds.
#include "FuzzSupport.h"

#include <qvbase/PError.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMessage.h>
#include <qvbase/PMsgListener.h>
#include <qvbase/PStream.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using qvbase::fuzz::Check;

int gAlive = 0; // payloads of the kinds below, alive now

// Counts its payloads, so that a leak or a double release shows.
class FuzzKind : public PMessageData {
public:
  FuzzKind() { ++gAlive; }
  ~FuzzKind() override { --gAlive; }
};

std::string TextOf(const PString& text) { return static_cast<const char*>(PMBString(text)); }

} // namespace

// The example's kinds, with its formats.
class PTemperature : public FuzzKind {
  DC_DECLARE_CLASS(PTemperature)
public:
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override {
    stream.Write(PMBString(room.c_str(), /*copy=*/true));
    stream.Write(tenths);
    *version = 1;
  }
  void ReadFrom(PStream& stream, ULONG) override {
    PString text;
    stream.Read(&text);
    room = TextOf(text);
    stream.Read(&tenths);
  }
  std::string room;
  LONG tenths = 0;
};

class PAlarm : public FuzzKind {
  DC_DECLARE_CLASS(PAlarm)
public:
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override {
    stream.Write(level);
    stream.Write(PMBString(text.c_str(), /*copy=*/true));
    *version = 2;
  }
  void ReadFrom(PStream& stream, ULONG) override {
    stream.Read(&level);
    PString read;
    stream.Read(&read);
    text = TextOf(read);
  }
  std::string text;
  LONG level = 0;
};

// A payload made of messages: a count, then that many messages, each a
// section of its own inside this one. Reading stops at the section's end,
// and at a depth that a real log never reaches.
class PBundle : public FuzzKind {
  DC_DECLARE_CLASS(PBundle)
public:
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override {
    stream.Write(static_cast<LONG>(parts.size()));
    for (const PMessage& part : parts)
      part.WriteTo(stream);
    *version = 1;
  }
  void ReadFrom(PStream& stream, ULONG) override {
    LONG count = 0;
    stream.Read(&count);
    if (++depth <= kMaxDepth)
      for (LONG i = 0; i < count && !stream.IsAtEnd(); ++i) {
        PMessage part;
        part.ReadFrom(stream);
        parts.push_back(part);
      }
    --depth;
  }
  std::vector<PMessage> parts;
  static constexpr int kMaxDepth = 8;
  static int depth;
};
int PBundle::depth = 0;

// Known by identifier, but never made: reading it raises 1009.
class PSealed : public FuzzKind {
  DC_DECLARE_CLASS(PSealed)
public:
  bool IsStreamable() const override { return true; }
};

DC_DEFINE_CLASS(PTemperature, PMessageData, PAutomaticUID("Temperature"))
DC_DEFINE_CLASS(PAlarm, PMessageData, PAutomaticUID("Alarm"))
DC_DEFINE_CLASS(PBundle, PMessageData, PAutomaticUID("Bundle"))
DC_DEFINE_ABSTRACT_CLASS(PSealed, PMessageData, PAutomaticUID("Sealed"))

namespace {

// Records the kinds it is asked about; consumes alarms.
class Recorder : public PMsgListener {
public:
  explicit Recorder(const PDynClass* filter = nullptr) : PMsgListener("recorder", filter) {}
  bool ExecuteMsg(const PMessage& message) override {
    kinds.push_back(message.GetData() ? message.GetData()->DC() : nullptr);
    return message.DataAs<PAlarm>() != nullptr;
  }
  std::vector<const PDynClass*> kinds;
};

class Replayer : public PMsgBroadcaster {
public:
  Replayer() : PMsgBroadcaster("replayer", nullptr) {}
  bool ExecuteMsg(const PMessage& message) override {
    ++executed;
    if (message.GetData())
      kinds.push_back(message.GetData()->DC());
    return false;
  }
  int executed = 0;
  std::vector<const PDynClass*> kinds;
};

// Replays `log` into a fresh tree; the kinds of the messages read, in order.
std::vector<const PDynClass*> Replay(PStream& log, PStream* rewrite) {
  Replayer replayer;
  Recorder temperatures(&PTemperature::dcobj_class);
  Recorder everything;
  PMsgPort port("port", nullptr);
  Recorder behindPort;
  port.Register(&behindPort);
  replayer.RegisterTail(&temperatures);
  replayer.RegisterTail(&port);
  replayer.RegisterTail(&everything);
  PMsgBroadcaster writer("writer", nullptr);
  if (rewrite) {
    writer.WriteToLog(*rewrite);
    replayer.RegisterTail(&writer);
  }
  try {
    replayer.ReadFromLog(log);
  } catch (const PError&) {
    // A damaged log ends the replay with an error: what came before stands.
  }
  // Every message the port queued is relayed when it is processed: the port
  // sees what passed the listeners before it, the consumers excepted.
  ULONG queued = 0;
  while (port.HasWaitingMessages()) {
    port.ProcessNextMessage();
    ++queued;
  }
  Check(behindPort.kinds.size() == queued, "the port relays each message it queued, once");
  Check(port.IsEmpty() && !PMsgPort::HaveWaitingMessages(), "a drained port is empty");
  Check(replayer.kinds.size() <= static_cast<std::size_t>(replayer.executed),
        "the replayer runs its handler on every message read");
  return replayer.kinds;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const unsigned short ordering = (data[0] & 1) ? kByteOrderingMotorola : kByteOrderingIntel;
  std::string_view content(reinterpret_cast<const char*>(data + 1), size - 1);
  {
    PStream log = qvbase::fuzz::OpenContent(content, ordering);
    PStream rewritten = qvbase::fuzz::OpenScratch(ordering);
    std::vector<const PDynClass*> kinds = Replay(log, &rewritten);
    Check(gAlive == 0, "every payload of the replay has gone");
    // What the library wrote, it reads back to the same kinds. (The writer
    // saw the messages that no listener before it consumed.)
    rewritten.MoveTo(0);
    std::vector<const PDynClass*> again = Replay(rewritten, nullptr);
    Check(again.size() <= kinds.size(), "a rewritten log holds no more messages than were read");
    for (const PDynClass* kind : again) {
      bool seen = false;
      for (const PDynClass* original : kinds)
        seen = seen || original == kind;
      Check(seen, "a rewritten log holds only kinds that were read");
    }
  }
  Check(gAlive == 0, "every payload has gone with the streams");
  return 0;
}
