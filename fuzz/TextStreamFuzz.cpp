// Text streams and streams sharing handlers loaded from arbitrary bytes.
//
// The script makes handlers over slices of the content, hands them to text
// streams and streams, copies, assigns and drops those front objects, and
// closes streams explicitly. A model counts the references each handler
// must have: after every step each live handler has exactly that many, the
// last reference closes a handler still open (once) and deletes it, and at
// the end every handler made has been deleted exactly once.
#include "FuzzSupport.h"

#include <qvbase/PError.h>
#include <qvbase/PStream.h>
#include <qvbase/PTextStream.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace {

using qvbase::fuzz::Check;

// What happened to each handler made in this run.
struct Record {
  int holders = 0; // references the model expects
  int closes = 0;
  int deletions = 0;
  bool open = false;
};
std::vector<Record> gRecords;

class CountedHdl : public qvbase::fuzz::LoadedStreamHdl {
public:
  CountedHdl(std::string_view content, std::size_t index)
      : LoadedStreamHdl(content), m_index(index) {}
  ~CountedHdl() override { ++gRecords[m_index].deletions; }

protected:
  void IOClose() override {
    if (IOOpenMode() != 0)
      ++gRecords[m_index].closes;
    LoadedStreamHdl::IOClose();
  }

private:
  std::size_t m_index;
};

constexpr std::size_t kSlots = 4;

// A front object and the handler it holds (an index into gRecords, or -1).
template <typename Front>
struct Slot {
  std::optional<Front> front;
  int handler = -1;
};

class Driver {
public:
  explicit Driver(std::string_view content) : m_content(content) {}

  ~Driver() {
    for (auto& slot : m_text)
      Drop(slot);
    for (auto& slot : m_streams)
      Drop(slot);
  }

  void Step(qvbase::fuzz::Script& script) {
    const std::uint8_t op = script.Next();
    const std::size_t a = script.Next() % kSlots;
    const std::size_t b = script.Next() % kSlots;
    switch (op % 9) {
    case 0: // a text stream over a new handler
      Drop(m_text[a]);
      Make(m_text[a], script.Next());
      break;
    case 1: // a stream over a new handler
      Drop(m_streams[a]);
      Make(m_streams[a], script.Next());
      break;
    case 2: // copy construction
      Drop(m_text[a]);
      if (m_text[b].front)
        Take(m_text[a], PTextStream(*m_text[b].front), m_text[b].handler);
      break;
    case 3: // assignment, self-assignment included
      if (m_text[a].front && m_text[b].front) {
        Hold(m_text[b].handler);
        *m_text[a].front = *m_text[b].front;
        Release(m_text[a].handler);
        m_text[a].handler = m_text[b].handler;
      }
      break;
    case 4: // assignment of a text stream without handler
      if (m_text[a].front) {
        *m_text[a].front = PTextStream();
        Release(m_text[a].handler);
        m_text[a].handler = -1;
      }
      break;
    case 5:
      Drop(m_text[a]);
      break;
    case 6:
      Drop(m_streams[a]);
      break;
    case 7: // a text stream sharing a stream's handler
      if (m_streams[b].front && m_streams[b].handler >= 0) {
        Drop(m_text[a]);
        Take(m_text[a], PTextStream(m_streams[b].front->GetHandler()), m_streams[b].handler);
      }
      break;
    case 8: // closing through a stream: the last reference then closes nothing
      if (m_streams[a].front && m_streams[a].handler >= 0) {
        Record& record = gRecords[m_streams[a].handler];
        try {
          m_streams[a].front->Close();
          record.open = false;
        } catch (const PError&) {
          Check(!record.open, "closing an open stream failed");
        }
      }
      break;
    }
    for (const Record& record : gRecords) {
      Check(record.deletions <= 1, "a handler was deleted twice");
      Check(record.closes <= 1, "a handler was closed twice");
    }
  }

private:
  template <typename Front>
  void Make(Slot<Front>& slot, std::uint8_t slice) {
    const std::size_t index = gRecords.size();
    gRecords.emplace_back();
    const std::size_t from = m_content.empty() ? 0 : slice % m_content.size();
    auto* handler = new CountedHdl(m_content.substr(from), index);
    handler->Open(OpenRead | OpenAllowEmpty);
    gRecords[index].open = true;
    Take(slot, Front(handler), static_cast<int>(index));
  }

  template <typename Front>
  void Take(Slot<Front>& slot, Front front, int handler) {
    // `front` holds a reference of its own until it goes out of scope here.
    slot.front.emplace(front);
    Hold(handler);
    slot.handler = handler;
  }

  template <typename Front>
  void Drop(Slot<Front>& slot) {
    if (!slot.front)
      return;
    slot.front.reset();
    Release(slot.handler);
    slot.handler = -1;
  }

  void Hold(int handler) {
    if (handler >= 0)
      ++gRecords[handler].holders;
  }

  void Release(int handler) {
    if (handler < 0)
      return;
    Record& record = gRecords[handler];
    if (--record.holders == 0) {
      Check(record.deletions == 1, "the last reference did not delete its handler");
      Check(record.closes == 1, "the last reference did not close the handler exactly once");
    } else {
      Check(record.deletions == 0, "a handler was deleted while still held");
    }
  }

  std::string_view m_content;
  std::array<Slot<PTextStream>, kSlots> m_text;
  std::array<Slot<PStream>, kSlots> m_streams;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qvbase::fuzz::ScriptedInput input = qvbase::fuzz::SplitInput(data, size);
  gRecords.clear();
  {
    Driver driver(input.content);
    while (!input.script.Done())
      driver.Step(input.script);
  }
  for (const Record& record : gRecords) {
    Check(record.holders == 0 && record.deletions == 1, "a handler outlived its last reference");
    Check(record.closes == 1, "a handler was not closed exactly once");
  }
  return 0;
}
