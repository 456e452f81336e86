// Sections over the library's own memory handler, whose reads and writes
// inside the parent's block skip the guards, set against sections over a
// handler derived from it, which sees every call the sections make.
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStreamSection.h>

#include "support/RecordingMemoryHdl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

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

TEST(PStreamSection, PlainParentGivesTheSameBytesAndValuesAsADerivedOne) {
  for (unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering);
    PMemoryStreamHdl* plain = new PMemoryStreamHdl(16);
    PStream plainStream(plain);
    plainStream.Open(OpenReadWrite | OpenAllowEmpty);
    plainStream.SetByteOrdering(ordering);
    RecordingMemoryHdl* derived = new RecordingMemoryHdl(16);
    PStream derivedStream(derived);
    derivedStream.Open(OpenReadWrite | OpenAllowEmpty);
    derivedStream.SetByteOrdering(ordering);

    const std::vector<LONG> plainSeen = WriteAndReadNested(plainStream);
    const std::vector<LONG> derivedSeen = WriteAndReadNested(derivedStream);
    EXPECT_EQ(plainSeen, derivedSeen);
    EXPECT_EQ(plainSeen.front(), 1);
    EXPECT_EQ(Bytes(plainStream, plain), Bytes(derivedStream, derived));
    EXPECT_EQ(plainStream.GetSize(), 28u + 4 + 28 + 2 + 8 + 5 + 2);
  }
}

} // namespace
