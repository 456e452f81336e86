// message_log.cpp - messages sent through a tree of listeners, recorded in a
// log, and replayed into a fresh tree.
//
// An application declares two kinds of message (a temperature reading and
// an alarm), sends and broadcasts them through a broadcaster with three
// listeners, and records what the broadcaster executes with WriteToLog into
// a memory stream, which it saves to a file. Then it reads the file back and
// replays it into a fresh tree with ReadFromLog. Each listener prints what it
// received.
//
//   qvbase_message_log [FILE] [--mm]
//
// FILE defaults to message_log.qvd in the current directory; --mm writes
// and reads the log in "MM" byte ordering (the default is "II"). `qvdump FILE`
// shows one section per message, keyed by the kind's class identifier.
#include <qvbase/qvbase.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// --- Two kinds of message ---

class PTemperature : public PMessageData {
  DC_DECLARE_CLASS(PTemperature)
public:
  PTemperature() = default;
  PTemperature(const char* room, LONG tenths) : room(room), tenths(tenths) {}
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override {
    stream.Write(PString(room.c_str()));
    stream.Write(tenths);
    *version = 1;
  }
  ULONG WriteSize(PStream& stream) const override {
    return stream.WriteSize(PString(room.c_str())) + stream.WriteSize(tenths);
  }
  void ReadFrom(PStream& stream, ULONG) override {
    PString text;
    stream.Read(&text);
    room = static_cast<const char*>(PMBString(text));
    stream.Read(&tenths);
  }
  std::string room;
  LONG tenths = 0; // tenths of a degree Celsius
};

class PAlarm : public PMessageData {
  DC_DECLARE_CLASS(PAlarm)
public:
  PAlarm() = default;
  PAlarm(const char* text, LONG level) : text(text), level(level) {}
  bool IsStreamable() const override { return true; }
  void WriteTo(PStream& stream, ULONG* version) const override {
    stream.Write(level);
    stream.Write(PString(text.c_str()));
    *version = 2;
  }
  ULONG WriteSize(PStream& stream) const override {
    return stream.WriteSize(level) + stream.WriteSize(PString(text.c_str()));
  }
  void ReadFrom(PStream& stream, ULONG) override {
    stream.Read(&level);
    PString read;
    stream.Read(&read);
    text = static_cast<const char*>(PMBString(read));
  }
  std::string text;
  LONG level = 0;
};

DC_DEFINE_CLASS(PTemperature, PMessageData, PAutomaticUID("Temperature"))
DC_DEFINE_CLASS(PAlarm, PMessageData, PAutomaticUID("Alarm"))

namespace {

std::string Describe(const PMessage& message) {
  char line[160];
  if (PTemperature* t = message.DataAs<PTemperature>()) {
    std::snprintf(line, sizeof line, "temperature %s %ld.%ld C", t->room.c_str(),
                  static_cast<long>(t->tenths / 10), static_cast<long>(t->tenths % 10));
    return line;
  }
  if (PAlarm* a = message.DataAs<PAlarm>()) {
    std::snprintf(line, sizeof line, "alarm level %ld \"%s\"", static_cast<long>(a->level),
                  a->text.c_str());
    return line;
  }
  return "an empty message";
}

// A listener that prints what it receives, and may consume it.
class PPrinter : public PMsgListener {
public:
  PPrinter(const char* name, const PDynClass* filter, bool consume)
      : PMsgListener(name, filter), m_name(name), m_consume(consume) {}
  bool ExecuteMsg(const PMessage& message) override {
    std::printf("  %s received %s\n", m_name, Describe(message).c_str());
    return m_consume;
  }

private:
  const char* m_name;
  bool m_consume;
};

// The house: a broadcaster relaying to the siren (alarms only; it consumes
// them), the thermostat (temperatures only) and the diary (everything).
struct House {
  PMsgBroadcaster house{"house", nullptr};
  PPrinter siren{"siren", &PAlarm::dcobj_class, /*consume=*/true};
  PPrinter thermostat{"thermostat", &PTemperature::dcobj_class, /*consume=*/false};
  PPrinter diary{"diary", nullptr, /*consume=*/false};
  House() {
    house.RegisterTail(&siren);
    house.RegisterTail(&thermostat);
    house.RegisterTail(&diary);
  }
};

std::vector<char> Contents(PStream& stream) {
  std::vector<char> bytes(static_cast<std::size_t>(stream.GetSize()));
  stream.MoveTo(0);
  if (!bytes.empty())
    stream.Read(bytes.data(), static_cast<ULONG>(bytes.size()), 1);
  return bytes;
}

} // namespace

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "message_log.qvd";
  const unsigned short ordering =
      argc > 2 && std::string(argv[2]) == "--mm" ? kByteOrderingMotorola : kByteOrderingIntel;
  try {
    PStream log(new PMemoryStreamHdl(/*granularity=*/1024));
    log.Open(OpenReadWrite | OpenAllowEmpty);
    log.SetByteOrdering(ordering);
    {
      std::printf("recording:\n");
      House tree;
      PPrinter monitor("monitor", nullptr, /*consume=*/false); // top-level
      tree.house.WriteToLog(log);
      PMessage(new PTemperature("kitchen", 215)).Send(&tree.house);
      PMessage(new PAlarm("smoke in the kitchen", 3)).Send(&tree.house, /*urgent=*/true);
      PMessage(new PTemperature("hall", 198)).Broadcast();
      PMessage::ProcessMessages();
      tree.house.StopWritingLog();
    }
    std::vector<char> bytes = Contents(log);
    {
      std::ofstream out(path, std::ios::binary | std::ios::trunc);
      out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      if (!out) {
        std::fprintf(stderr, "message_log: cannot write %s\n", path.c_str());
        return 1;
      }
    }
    std::printf("saved %zu bytes to %s\n", bytes.size(), path.c_str());

    std::ifstream in(path, std::ios::binary);
    std::vector<char> saved((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    PStream replay(new PMemoryStreamHdl(/*granularity=*/1024));
    replay.Open(OpenReadWrite | OpenAllowEmpty);
    replay.SetByteOrdering(ordering);
    if (!saved.empty())
      replay.Write(saved.data(), static_cast<ULONG>(saved.size()), 1);
    replay.MoveTo(0);
    std::printf("replaying %s:\n", path.c_str());
    House fresh;
    ULONG unknown = fresh.house.ReadFromLog(replay);
    std::printf("replayed, %lu of an unknown kind\n", static_cast<unsigned long>(unknown));
  } catch (const PError& e) {
    std::fprintf(stderr, "message_log: error %d\n", e.Code());
    return 1;
  }
  return 0;
}
