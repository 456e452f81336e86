// Stream sections read from arbitrary bytes, in both byte orderings.
//
// The script opens sections (any, or by identifier), nests them, peeks at
// and skips the next one, reads typed values inside them, moves within them
// and closes them; the content is the stream they stand in. Every step must
// end normally or with a PError, and the promises a reader builds on must
// hold: a peek leaves the position where it was, a skip lands at the start
// plus the header's size, an opened section stands after its 28-byte
// header, closing a section read moves its parent to its end.
#include "FuzzSupport.h"

#include <qvbase/PError.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PUniversalID.h>

#include <cstdint>
#include <vector>

namespace {

using qvbase::fuzz::Check;

constexpr unsigned __int64 kHeaderSize = 28;
// Beyond this the memory handler's 32-bit positions saturate, and the
// arithmetic of the promises below no longer holds; damaged sizes reach it.
constexpr unsigned __int64 kExactPositions = 0x7FFFFFFF;

enum Op : std::uint8_t {
  kOpenAny,
  kOpenById,
  kPeek,
  kSkip,
  kClose,
  kReadLong,
  kReadText,
  kReadIdentifier,
  kReadChars,
  kMoveTo,
  kMoveFromEnd,
  kQuery,
  kOpCount
};

// The identifiers a reader of the example's document asks for, and one that
// no section has.
PUniversalID KnownId(std::uint8_t choice) {
  static const char* const kNames[] = {"Document", "Chapter", "Thumbnail", "Summary", "Missing"};
  return PAutomaticUID(kNames[choice % 5]);
}

// An open section and where its header stood in its parent.
struct Open {
  PStreamSection section;
  unsigned __int64 start;
};

class Reader {
public:
  explicit Reader(PStream& file) : m_file(file) {}

  void Step(std::uint8_t op, qvbase::fuzz::Script& script) {
    switch (op % kOpCount) {
    case kOpenAny:
      Push([&](PStream& parent) { return OpenReadSection(parent); });
      break;
    case kOpenById: {
      const PUniversalID id = KnownId(script.Next());
      Push([&](PStream& parent) { return OpenReadSection(parent, id); });
      break;
    }
    case kPeek: {
      const unsigned __int64 before = Top().GetPos();
      GetNextSection(Top());
      Check(Top().GetPos() == before, "a peek at the next section moved the stream");
      break;
    }
    case kSkip: {
      PStream& parent = Top();
      const unsigned __int64 before = parent.GetPos();
      // The size field as the skip will see it.
      PUniversalID id;
      LONG version = 0;
      __int64 field = 0;
      parent.Read(&id);
      parent.Read(&version);
      parent.Read(&field);
      parent.MoveTo(before);
      const unsigned __int64 size = static_cast<unsigned __int64>(field);
      SkipCurrentSection(parent);
      if (before + size <= kExactPositions)
        Check(parent.GetPos() == before + size, "a skip did not land after the section");
      break;
    }
    case kClose:
      if (!m_open.empty()) {
        Open top = m_open.back();
        m_open.pop_back();
        const unsigned __int64 size = top.section.GetSize();
        top.section.Close();
        if (top.start + size <= kExactPositions)
          Check(Top().GetPos() == top.start + size, "closing a section left its parent inside it");
      }
      break;
    case kReadLong: {
      LONG value = 0;
      Top().Read(&value);
      break;
    }
    case kReadText: {
      PString text;
      Top().Read(&text);
      break;
    }
    case kReadIdentifier: {
      PUniversalID id;
      Top().Read(&id);
      break;
    }
    case kReadChars: {
      char bytes[256];
      const std::uint8_t count = script.Next();
      Top().Read(bytes, count, 1);
      break;
    }
    case kMoveTo:
      Top().MoveTo(script.Next());
      break;
    case kMoveFromEnd:
      Top().MoveFromEnd(script.Next());
      break;
    case kQuery: {
      PStream& top = Top();
      const bool atEnd = top.IsAtEnd();
      if (!m_open.empty() && top.GetPos() >= top.GetSize())
        Check(atEnd, "a section read to its size is not at its end");
      break;
    }
    }
  }

private:
  PStream& Top() { return m_open.empty() ? m_file : static_cast<PStream&>(m_open.back().section); }

  template <typename OpenSection>
  void Push(OpenSection open) {
    PStream& parent = Top();
    const unsigned __int64 start = parent.GetPos();
    PStreamSection section = open(parent);
    if (start + kHeaderSize <= kExactPositions)
      Check(section.GetPos() == kHeaderSize, "an opened section is not after its header");
    Check(section.GetSize() >= kHeaderSize, "a section opened with a size below its header");
    m_open.push_back(Open{section, start});
  }

  PStream& m_file;
  std::vector<Open> m_open;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  qvbase::fuzz::UsePrivateRegistry();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qvbase::fuzz::ScriptedInput input = qvbase::fuzz::SplitInput(data, size);
  const unsigned short ordering = (input.flags & 1) ? kByteOrderingMotorola : kByteOrderingIntel;
  PStream file = qvbase::fuzz::OpenContent(input.content, ordering);
  Reader reader(file);
  while (!input.script.Done()) {
    const std::uint8_t op = input.script.Next();
    try {
      reader.Step(op, input.script);
    } catch (const PError&) {
      // A damaged stream raises errors; the stream stays usable after each.
    }
  }
  return 0;
}
