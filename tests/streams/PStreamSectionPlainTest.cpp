// Sections over the library's own memory handler, whose reads and writes
// inside the parent's block skip the guards, set against sections over a
// handler derived from it, which sees every call the sections make.
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>

#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"
#include "support/RecordingMemoryHdl.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::RecordingMemoryHdl;

const PAutomaticUID kOuter("Outer");
const PAutomaticUID kInner("Inner");

TEST(PStreamSection, DerivedParentSeesEveryCallOfASectionInOrder) {
  RecordingMemoryHdl* parent = new RecordingMemoryHdl(16);
  PStream stream(parent);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  parent->calls.clear();

  {
    PStreamSection section = OpenWriteSection(stream, kOuter, 1);
    section.Write(LONG(5));
    section.Close();
  }
  const std::vector<std::string> written = {
      "IOGetPos",                                     // open: the start
      "IOGetPos",      "IOWrite 2x8", "IOSetSize 16", // the identifier
      "IOGetPos",                                     // where version and size go
      "IOGetPos",      "IOWrite 1x4", "IOSetSize 20", // the version
      "IOGetPos",      "IOWrite 1x8", "IOSetSize 28", // the provisional size
      "IOGetPos",                                     // the section's guard
      "IOGetPos",      "IOWrite 1x4", "IOSetSize 32", // the body
      "IOGetPos",                                     // the section's size
      "IOGetPos",                                     // close: the end
      "IOSetPos 2 16",                                //
      "IOGetPos",      "IOWrite 1x4",                 // the version again
      "IOGetPos",      "IOWrite 1x8",                 // the size
      "IOSetPos 2 32"};
  EXPECT_EQ(parent->calls, written);

  parent->calls.clear();
  stream.MoveTo(0);
  LONG body = 0;
  {
    PStreamSection section = OpenReadSection(stream, kOuter);
    section.Read(&body);
  }
  stream.MoveTo(0);
  SkipCurrentSection(stream);
  const std::vector<std::string> read = {"IOSetPos 2 0",                //
                                         "IOGetPos",                    // open: the start
                                         "IOGetPos",      "IORead 2x8", // the identifier
                                         "IOGetPos", // where version and size are
                                         "IOGetPos",      "IORead 1x4", // the version
                                         "IOGetPos",      "IORead 1x8", // the size
                                         "IOGetPos",                    // the section's guard
                                         "IOGetPos",      "IORead 1x4", // the body
                                         "IOSetPos 2 32",               // close: after the section
                                         "IOSetPos 2 0",                //
                                         "IOGetPos",                    // skip: the start
                                         "IOGetPos",      "IORead 2x8", //
                                         "IOGetPos",      "IORead 1x4", //
                                         "IOGetPos",      "IORead 1x8", //
                                         "IOSetPos 2 32"};
  EXPECT_EQ(body, 5);
  EXPECT_EQ(parent->calls, read);
}

// Nested sections with values of every width, written and read back.
std::vector<LONG> WriteAndReadNested(PStream& stream) {
  {
    PStreamSection outer = OpenWriteSection(stream, kOuter, 3);
    outer.Write(LONG(1));
    {
      PStreamSection inner = OpenWriteSection(outer, kInner, 4);
      inner.Write(short(2));
      inner.Write(static_cast<__int64>(3));
      inner.Write("bytes", 5, 1);
      inner.Close();
    }
    outer.Write(true);
    outer.Close();
  }
  std::vector<LONG> seen;
  stream.MoveTo(0);
  PStreamSection outer = OpenReadSection(stream, kOuter);
  LONG l = 0;
  outer.Read(&l);
  seen.push_back(l);
  {
    PStreamSection inner = OpenReadSection(outer, kInner);
    short s = 0;
    __int64 q = 0;
    char text[5] = {};
    inner.Read(&s);
    inner.Read(&q);
    inner.Read(text, 5, 1);
    seen.push_back(s);
    seen.push_back(static_cast<LONG>(q));
    seen.push_back(text[4]);
    seen.push_back(static_cast<LONG>(inner.GetSize()));
    seen.push_back(static_cast<LONG>(inner.GetPos()));
  }
  bool b = false;
  outer.Read(&b);
  seen.push_back(b);
  seen.push_back(static_cast<LONG>(outer.GetSize()));
  seen.push_back(static_cast<LONG>(outer.GetPos()));
  seen.push_back(outer.GetHandler()->HasFailed());
  outer.Close();
  seen.push_back(static_cast<LONG>(stream.GetPos()));
  return seen;
}

std::string Bytes(PStream& stream, const PMemoryStreamHdl* handler) {
  return std::string(handler->GetBuffer(), static_cast<size_t>(stream.GetSize()));
}

// A stream over `handler`, open for reading and writing with nothing loaded,
// in the given byte ordering.
PStream OpenedOver(PMemoryStreamHdl* handler, unsigned short ordering) {
  PStream stream(handler);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(ordering);
  return stream;
}

TEST(PStreamSection, PlainParentGivesTheSameBytesAndValuesAsADerivedOne) {
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering);
    PMemoryStreamHdl* plain = new PMemoryStreamHdl(16);
    PStream plainStream = OpenedOver(plain, ordering);
    RecordingMemoryHdl* derived = new RecordingMemoryHdl(16);
    PStream derivedStream = OpenedOver(derived, ordering);

    const std::vector<LONG> plainSeen = WriteAndReadNested(plainStream);
    const std::vector<LONG> derivedSeen = WriteAndReadNested(derivedStream);
    EXPECT_EQ(plainSeen, derivedSeen);
    EXPECT_EQ(plainSeen.front(), 1);
    EXPECT_EQ(Bytes(plainStream, plain), Bytes(derivedStream, derived));
    EXPECT_EQ(plainStream.GetSize(), 28u + 4 + 28 + 2 + 8 + 5 + 2);
  }
}

// A section made over a parent without opening it, so that a test can look
// at its handler whichever way its opening ends.
class UnopenedSection : public PStreamSection {
public:
  explicit UnopenedSection(PStream& parent) : PStreamSection(parent) {}
};

// Everything a step can be told apart by: the error it raised, then the
// parent's and the section's state, each as a number.
std::vector<LONG> Observe(int thrown, PStream& parent, PStreamSection& section) {
  return {thrown,
          static_cast<LONG>(parent.GetPos()),
          static_cast<LONG>(parent.GetSize()),
          static_cast<LONG>(parent.GetHandler()->HasFailed()),
          static_cast<LONG>(section.OpenMode()),
          static_cast<LONG>(section.GetSize()),
          static_cast<LONG>(section.OpenMode() != 0 ? section.GetPos() : 0),
          static_cast<LONG>(section.Version()),
          static_cast<LONG>(section.GetHandler()->HasFailed())};
}

// One case: `prepare` lays out the parent's content, `step` opens or closes a
// section over it; the observations after the step.
struct SectionCase {
  const char* name;
  std::function<void(PStream&)> prepare;
  std::function<void(PStream&, PStreamSection&)> step;
};

// A 28-byte header of identifier kOuter, version 7 and the given size field,
// then `body` bytes, in the stream's byte ordering.
void PutHeader(PStream& s, __int64 size, int body) {
  s.Write(static_cast<const PUniversalID&>(kOuter));
  s.Write(LONG(7));
  s.Write(size);
  for (int i = 0; i < body; ++i)
    s.Write(char('a' + i));
  s.MoveTo(0);
}

std::vector<LONG> RunCase(PStream& parent, const SectionCase& c) {
  c.prepare(parent);
  UnopenedSection section(parent);
  section.SetVersion(3);
  section.SetID(kInner);
  const PError e = Caught([&] { c.step(parent, section); });
  std::vector<LONG> seen = Observe(e.Code(), parent, section);
  // Whatever is left open is closed quietly at the end of the case.
  return seen;
}

TEST(PStreamSection, PlainParentOpensAndClosesAsADerivedOneInEveryCase) {
  const auto openWrite = [](PStream&, PStreamSection& s) { s.Open(OpenWrite); };
  const auto openRead = [](PStream&, PStreamSection& s) { s.Open(OpenRead); };
  const std::vector<SectionCase> cases = {
      {"written at the start of an empty block", [](PStream& p) { p.Write("0123", 4, 1); },
       [](PStream& p, PStreamSection& s) {
         p.MoveTo(0);
         s.Open(OpenWrite);
       }},
      {"written where the header runs past the block",
       [](PStream& p) {
         p.Write("0123456789", 10, 1); // capacity 16: the header needs a second step
       },
       openWrite},
      {"written, a body, and closed", [](PStream&) {},
       [](PStream&, PStreamSection& s) {
         s.Open(OpenWrite);
         s.Write(LONG(99));
         s.SetVersion(8);
         s.Close();
       }},
      {"written, moved back into the body and closed", [](PStream&) {},
       [](PStream&, PStreamSection& s) {
         s.Open(OpenWrite);
         s.Write(static_cast<__int64>(1));
         s.MoveBack(6);
         s.Close();
       }},
      {"written, the parent cut inside the header, closed", [](PStream&) {},
       [](PStream& p, PStreamSection& s) {
         s.Open(OpenWrite);
         p.SetSize(20);
         s.Close();
       }},
      {"written, the parent cut to the identifier, closed", [](PStream&) {},
       [](PStream& p, PStreamSection& s) {
         s.Open(OpenWrite);
         p.SetSize(16); // the size field grows the block again
         s.Close();
       }},
      {"written, the parent cut before the version, closed", [](PStream&) {},
       [](PStream& p, PStreamSection& s) {
         s.Open(OpenWrite);
         p.SetSize(10); // the seek back to the version fails
         s.Close();
       }},
      {"written over a parent that is not writable",
       [](PStream& p) { p.SetOpenMode(OpenRead | OpenAllowEmpty); }, openWrite},
      {"written when already open", [](PStream&) {},
       [](PStream&, PStreamSection& s) {
         s.Open(OpenWrite);
         s.Open(OpenWrite);
       }},
      {"opened with both bits", [](PStream&) {},
       [](PStream&, PStreamSection& s) { s.Open(OpenReadWrite); }},
      {"read from a whole header", [](PStream& p) { PutHeader(p, 30, 2); }, openRead},
      {"read, and closed before its body", [](PStream& p) { PutHeader(p, 30, 6); },
       [](PStream&, PStreamSection& s) {
         s.Open(OpenRead);
         s.Close();
       }},
      {"read with a size field below a header's length", [](PStream& p) { PutHeader(p, 10, 2); },
       openRead},
      {"read from a header cut short",
       [](PStream& p) {
         PutHeader(p, 30, 0);
         p.SetSize(20);
       },
       openRead},
      {"read, and closed with its end past the parent's", [](PStream& p) { PutHeader(p, 1000, 2); },
       [](PStream&, PStreamSection& s) {
         s.Open(OpenRead);
         s.Close();
       }},
      {"read after a failed seek of the parent", [](PStream& p) { PutHeader(p, 28, 0); },
       [](PStream& p, PStreamSection& s) {
         try {
           p.MoveBack(1);
         } catch (const PError&) {
         }
         s.Open(OpenRead);
       }},
      {"closed when never opened", [](PStream&) {}, [](PStream&, PStreamSection& s) { s.Close(); }},
  };
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering == kByteOrderingIntel ? "II" : "MM");
    for (const SectionCase& c : cases) {
      SCOPED_TRACE(c.name);
      PMemoryStreamHdl* plain = new PMemoryStreamHdl(16);
      PStream plainStream = OpenedOver(plain, ordering);
      RecordingMemoryHdl* derived = new RecordingMemoryHdl(16);
      PStream derivedStream = OpenedOver(derived, ordering);

      const std::vector<LONG> plainSeen = RunCase(plainStream, c);
      const std::vector<LONG> derivedSeen = RunCase(derivedStream, c);
      EXPECT_EQ(plainSeen, derivedSeen);
      EXPECT_EQ(Bytes(plainStream, plain), Bytes(derivedStream, derived));
      EXPECT_EQ(plain->GetCapacity(), derived->GetCapacity());
      EXPECT_FALSE(derived->calls.empty());
    }
  }
}

// The opening and closing of a section over the plain handler clear the
// section's failed flag, as a guarded attempt does: a section whose earlier
// operation failed is closed through the public Close at its end.
TEST(PStreamSection, OpeningAndClosingOverThePlainParentClearTheFailedFlag) {
  PStream stream(new PMemoryStreamHdl(16));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  UnopenedSection section(stream);
  section.SetID(kOuter);
  const PError early = Caught([&] { section.Close(); });
  EXPECT_EQ(early.Code(), kErrStreamClosed);
  EXPECT_TRUE(section.GetHandler()->HasFailed());
  section.Open(OpenWrite);
  EXPECT_FALSE(section.GetHandler()->HasFailed());
  const PError seek = Caught([&] { section.MoveBack(100); });
  EXPECT_NE(seek.Code(), qvbase::test::kNothingThrown);
  EXPECT_TRUE(section.GetHandler()->HasFailed());
  section.Close();
  EXPECT_FALSE(section.GetHandler()->HasFailed());
  EXPECT_EQ(stream.GetSize(), 28u);
}

// Records, for every block asked for, whether a retry protection was the
// innermost one: what an installed memory manager can see of a guard.
struct GuardWatchingManager : qvbase::test::SystemCalls {
  static inline std::vector<bool> guarded;
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    PErrorProtection* innermost = PErrorProtection::Innermost();
    guarded.push_back(innermost && dynamic_cast<PErrorRetryProtection*>(innermost));
    return SystemCalls::Allocate(self, size, mode);
  }
};

// Under "MM" the identifier of a written header is ordered in a scratch
// block: its opening keeps its guard, so that an installed memory manager is
// asked for that block inside it, as over any other parent.
TEST(PStreamSection, WrittenHeaderUnderMotorolaOrderingAsksForItsScratchBlockInsideTheGuard) {
  PStream stream(new PMemoryStreamHdl(65536));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.SetByteOrdering(kByteOrderingMotorola);
  stream.Write("x", 1, 1); // the block exists: opening grows nothing

  MemoryManager watching{0,
                         "GuardWatching",
                         &GuardWatchingManager::Allocate,
                         &GuardWatchingManager::Reallocate,
                         &GuardWatchingManager::Size,
                         &GuardWatchingManager::Release,
                         &GuardWatchingManager::Stats};
  MemoryManager* saved = GGetDefaultMemManager();
  GSetDefaultMemManager(&watching);
  GuardWatchingManager::guarded.clear();
  {
    UnopenedSection section(stream);
    section.SetID(kOuter);
    section.Open(OpenWrite);
    section.Close();
  }
  GSetDefaultMemManager(saved);
  EXPECT_EQ(GuardWatchingManager::guarded, std::vector<bool>{true});
  EXPECT_EQ(stream.GetSize(), 29u);
}

} // namespace
