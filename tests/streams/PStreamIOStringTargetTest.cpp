// Typed string reads as their target sees them: the target's own multibyte
// handler refilled where a new one could not be told from it, and a new
// handler wherever it could (another handler class, a declared type, a
// shared or borrowed handler, another capacity, 8-bit text, a memory manager
// that would see the difference), each read ending as a read into a fresh
// string ends.
#include <qvbase/MemoryManager.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PString.h>
#include <qvbase/PUNIString.h>

#include "PStreamIOTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <typeinfo>

namespace {

using qvbase::test::NewStream;
using qvbase::test::ScopedAllocationCount;
using qvbase::test::ScopedPatchedSystemCount;

// A string of class S whose handler a test can look at.
template <typename S>
class Inspected : public S {
public:
  using S::S;
  using S::operator=;
  Inspected() {}
  // The source's handler shared, or converted to S's declared type.
  explicit Inspected(const PString& other) : S(other) {}
  PStringHandler* Held() const { return this->Handler(); }
};

// A free-type string over a handler the test made.
class Holding : public PString {
public:
  explicit Holding(PStringHandler* handler) : PString(handler) {}
  using PString::operator=;
  PStringHandler* Held() const { return Handler(); }
};

// An application's multibyte handler: the same text, but a class of its own
// that counts its destructions.
class OwnMBHandler : public PMBStringHandler {
public:
  explicit OwnMBHandler(const char* text)
      : PMBStringHandler(text, 0, static_cast<ULONG>(std::strlen(text)), /*copy=*/true) {}
  ~OwnMBHandler() override { ++destroyed; }
  static int destroyed;
};
int OwnMBHandler::destroyed = 0;

// A stream holding each of `texts` as a counted string of its raw bytes,
// positioned at the start.
PStream CountedStream(std::initializer_list<std::string> texts) {
  PStream stream = NewStream(kByteOrderingIntel);
  for (const std::string& text : texts) {
    stream.Write(static_cast<LONG>(text.size()));
    if (!text.empty())
      stream.Write(text.data(), static_cast<ULONG>(text.size()), 1);
  }
  stream.MoveTo(0);
  return stream;
}

// Everything a reader of a string and of its handler can see.
// Classes are compared as type_info objects, not by the records' addresses:
// on Windows the test program and the library each keep a record of a class.
struct Seen {
  std::string text;
  ULONG len = 0;
  ULONG size = 0;
  TypCodeSet codeSet = kCodeSetASCII;
  PStringHandlerDec* type = nullptr;
  const std::type_info* handlerClass = nullptr;
  // For a multibyte handler: its capacity and the whole of its buffer.
  ULONG capacity = 0;
  std::string buffer;
};

Seen Observe(const PString& text, const PStringHandler* held) {
  Seen seen;
  seen.text = qvbase::test::Text(text);
  seen.len = text.Len();
  seen.size = text.Size();
  seen.codeSet = text.CodeSet();
  seen.type = text.HandlerType();
  if (!held)
    return seen;
  seen.handlerClass = &typeid(*held);
  if (*seen.handlerClass == typeid(PMBStringHandler)) {
    const auto* mb = static_cast<const PMBStringHandler*>(held);
    seen.capacity = mb->Capacity();
    seen.buffer.assign(static_cast<const char*>(mb->GetContent()), mb->Capacity());
  }
  return seen;
}

void ExpectSame(const Seen& got, const Seen& expected) {
  EXPECT_EQ(got.text, expected.text);
  EXPECT_EQ(got.len, expected.len);
  EXPECT_EQ(got.size, expected.size);
  EXPECT_EQ(got.codeSet, expected.codeSet);
  EXPECT_EQ(got.type, expected.type);
  ASSERT_EQ(got.handlerClass == nullptr, expected.handlerClass == nullptr);
  if (got.handlerClass) {
    EXPECT_TRUE(*got.handlerClass == *expected.handlerClass);
  }
  EXPECT_EQ(got.capacity, expected.capacity);
  EXPECT_EQ(got.buffer, expected.buffer);
}

// What a counted read of `bytes` gives a fresh free-type string.
Seen FreshRead(const std::string& bytes) {
  PStream stream = CountedStream({bytes});
  Inspected<PString> fresh;
  stream.Read(&fresh);
  return Observe(fresh, fresh.Held());
}

// The buffer of a new multibyte handler over 7-bit `text`: the text, then
// zeros up to its capacity.
std::string FreshBuffer(const std::string& text, ULONG capacity) {
  std::string buffer = text;
  buffer.resize(capacity, '\0');
  return buffer;
}

} // namespace

// --- The refill --------------------------------------------------------------

TEST(PStreamIO, CountedReadRefillsTheTargetsOwnUnsharedMultibyteHandler) {
  PStream stream = CountedStream({"xyz"});
  Inspected<PString> target("abcdef", /*copy=*/true);
  PStringHandler* before = target.Held();
  const void* block = before->GetContent();
  stream.Read(&target);
  EXPECT_EQ(target.Held(), before);
  EXPECT_EQ(target.Held()->GetContent(), block);
  const Seen seen = Observe(target, target.Held());
  ExpectSame(seen, FreshRead("xyz"));
  EXPECT_EQ(seen.capacity, 8u);
  EXPECT_EQ(seen.codeSet, kCodeSetASCII); // the 7-bit flag
  // The bytes that held "def" are zero again, as in a new zero-filled block.
  EXPECT_EQ(seen.buffer, FreshBuffer("xyz", 8));
  EXPECT_EQ(target.Held()->NumSmartLocks(), 1u);
}

TEST(PStreamIO, TerminatedReadRefillsTheTargetsOwnHandlerToo) {
  PStream stream = NewStream(kByteOrderingIntel);
  stream.Write("xyz|", 4, 1);
  stream.MoveTo(0);
  Inspected<PString> target("abcde", /*copy=*/true);
  PStringHandler* before = target.Held();
  stream.Read(&target, '|');
  EXPECT_EQ(target.Held(), before);
  ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
  EXPECT_EQ(stream.GetPos(), 4u);
}

TEST(PStreamIO, DeclaredMultibyteTargetIsRefilledLikeAFreeOne) {
  PStream stream = CountedStream({"xyz"});
  Inspected<PMBString> target("abc", /*copy=*/true);
  PStringHandler* before = target.Held();
  stream.Read(&target);
  EXPECT_EQ(target.Held(), before);
  const Seen seen = Observe(target, target.Held());
  EXPECT_EQ(seen.text, "xyz");
  EXPECT_EQ(seen.len, 3u);
  EXPECT_EQ(seen.size, 3u);
  EXPECT_EQ(seen.codeSet, kCodeSetASCII);
  EXPECT_EQ(seen.type, &gMBStringHandlerDec);
  EXPECT_EQ(seen.capacity, 8u);
  EXPECT_EQ(seen.buffer, FreshBuffer("xyz", 8));
}

// One target read again and again, every result as a fresh string's: a new
// handler where there was none, the same one while the capacity stays, none
// for the empty text.
TEST(PStreamIO, ReadsIntoOneTargetEndAsReadsIntoFreshStrings) {
  const std::string texts[] = {"abc", "abcdef", "ab", ""};
  PStream stream = CountedStream({texts[0], texts[1], texts[2], texts[3]});
  Inspected<PString> target;
  PStringHandler* first = nullptr;
  for (const std::string& text : texts) {
    SCOPED_TRACE("\"" + text + "\"");
    stream.Read(&target);
    ExpectSame(Observe(target, target.Held()), FreshRead(text));
    if (text.empty()) {
      EXPECT_EQ(target.Held(), nullptr);
    } else if (!first) {
      first = target.Held();
      ASSERT_NE(first, nullptr);
    } else {
      EXPECT_EQ(target.Held(), first); // capacity 8 all along: refilled
    }
  }
}

// --- Where a new handler is made ---------------------------------------------

// The declared type pins the handler class: an ASCII or Unicode target gets
// the read text converted, in a handler of its own type, as before.
TEST(PStreamIO, DeclaredAsciiAndUnicodeTargetsGetTheirOwnHandlerType) {
  {
    PStream stream = CountedStream({"xyz"});
    Inspected<PASCIIString> target("abc", /*copy=*/true);
    PStringHandler* before = target.Held();
    stream.Read(&target);
    EXPECT_NE(target.Held(), before);
    EXPECT_TRUE(typeid(*target.Held()) == typeid(PASCIIStringHandler));
    EXPECT_EQ(target.HandlerType(), &gASCIIStringHandlerDec);
    EXPECT_EQ(qvbase::test::Text(target), "xyz");
    EXPECT_EQ(target.Len(), 3u);
    EXPECT_EQ(target.Size(), 3u);
    EXPECT_EQ(target.CodeSet(), kCodeSetASCII);
    EXPECT_EQ(static_cast<PASCIIStringHandler*>(target.Held())->Capacity(), 8u);
  }
  {
    const unsigned short abc[] = {'a', 'b', 'c', 0};
    PStream stream = CountedStream({"xyz"});
    Inspected<PUNIString> target(abc, /*copy=*/true);
    PStringHandler* before = target.Held();
    stream.Read(&target);
    EXPECT_NE(target.Held(), before);
    EXPECT_TRUE(typeid(*target.Held()) == typeid(PUNIStringHandler));
    EXPECT_EQ(qvbase::test::Text(target), "xyz");
    EXPECT_EQ(target.Len(), 3u);
    EXPECT_EQ(target.CodeSet(), kCodeSetUnicode);
  }
}

TEST(PStreamIO, FreeTargetHoldingAnotherHandlerClassGetsANewMultibyteHandler) {
  {
    SCOPED_TRACE("ASCII handler");
    PStream stream = CountedStream({"xyz"});
    Inspected<PString> target(PASCIIString("abc", /*copy=*/true));
    PStringHandler* before = target.Held();
    ASSERT_TRUE(typeid(*before) == typeid(PASCIIStringHandler));
    stream.Read(&target);
    EXPECT_NE(target.Held(), before);
    ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
  }
  {
    SCOPED_TRACE("Unicode handler");
    const unsigned short abc[] = {'a', 'b', 'c', 0};
    PStream stream = CountedStream({"xyz"});
    Inspected<PString> target(PUNIString(abc, /*copy=*/true));
    PStringHandler* before = target.Held();
    stream.Read(&target);
    EXPECT_NE(target.Held(), before);
    ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
  }
}

// A class derived from the multibyte handler may watch its own life: it is
// let go of and destroyed, and the text comes in a new handler of the
// library's class.
TEST(PStreamIO, DerivedMultibyteHandlerIsReplacedNotRefilled) {
  OwnMBHandler::destroyed = 0;
  PStream stream = CountedStream({"xyz"});
  Holding target(new OwnMBHandler("abc"));
  PStringHandler* before = target.Held();
  ASSERT_EQ(static_cast<PMBStringHandler*>(before)->Capacity(), 8u);
  stream.Read(&target);
  EXPECT_NE(target.Held(), before);
  EXPECT_EQ(OwnMBHandler::destroyed, 1);
  ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
}

// Copy-on-write: the copy sharing the handler keeps its text.
TEST(PStreamIO, SharedHandlerIsLeftToItsCopy) {
  PStream stream = CountedStream({"xyz"});
  Inspected<PString> target("abc", /*copy=*/true);
  Inspected<PString> copy(target);
  PStringHandler* before = target.Held();
  ASSERT_EQ(copy.Held(), before);
  stream.Read(&target);
  EXPECT_NE(target.Held(), before);
  ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
  EXPECT_EQ(copy.Held(), before);
  EXPECT_EQ(qvbase::test::Text(copy), "abc");
  EXPECT_EQ(copy.Len(), 3u);
  EXPECT_EQ(before->NumSmartLocks(), 1u);
}

// A borrowed buffer belongs to the caller, who keeps it as it was.
TEST(PStreamIO, BorrowedTextIsNeverWrittenInto) {
  char caller[] = "abc";
  PStream stream = CountedStream({"xyz"});
  Inspected<PString> target(caller, /*copy=*/false);
  PStringHandler* before = target.Held();
  ASSERT_EQ(static_cast<PMBStringHandler*>(before)->Capacity(), 0u);
  stream.Read(&target);
  EXPECT_NE(target.Held(), before);
  ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
  EXPECT_STREQ(caller, "abc");
}

// The capacity a new handler would get decides: larger or smaller than the
// held one, the text comes in a new handler of its own capacity.
TEST(PStreamIO, OtherCapacityGetsANewHandler) {
  const struct {
    const char* held;
    const char* read;
    ULONG capacity;
  } kRows[] = {{"abc", "abcdefghij", 16}, {"abcdefghij", "abc", 8}, {"abcdef", "abcdefg", 16}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(std::string(row.held) + " -> " + row.read);
    PStream stream = CountedStream({row.read});
    Inspected<PString> target(row.held, /*copy=*/true);
    PStringHandler* before = target.Held();
    stream.Read(&target);
    EXPECT_NE(target.Held(), before);
    const Seen seen = Observe(target, target.Held());
    ExpectSame(seen, FreshRead(row.read));
    EXPECT_EQ(seen.capacity, row.capacity);
  }
}

// Text with a byte of 128 or above is measured as multibyte text, in a new
// handler.
TEST(PStreamIO, EightBitTextGetsANewHandler) {
  const std::string text = "ab\xE9";
  PStream stream = CountedStream({text});
  Inspected<PString> target("xyz", /*copy=*/true);
  PStringHandler* before = target.Held();
  stream.Read(&target);
  EXPECT_NE(target.Held(), before);
  const Seen seen = Observe(target, target.Held());
  ExpectSame(seen, FreshRead(text));
  EXPECT_EQ(seen.size, 3u);
}

TEST(PStreamIO, EmptyTextLeavesTheTargetWithoutAHandler) {
  PStream stream = CountedStream({""});
  Inspected<PString> target("abc", /*copy=*/true);
  stream.Read(&target);
  EXPECT_EQ(target.Held(), nullptr);
  ExpectSame(Observe(target, target.Held()), FreshRead(""));
}

// --- Memory managers ---------------------------------------------------------

// An installed default manager sees one allocation and one release for every
// string read, as it always has.
TEST(PStreamIO, InstalledManagerSeesEveryReadsAllocationAndRelease) {
  ScopedAllocationCount counted;
  {
    PStream stream = CountedStream({"xyz", "uvw", "abcdef"});
    Inspected<PString> target("abc", /*copy=*/true);
    const char* const texts[] = {"xyz", "uvw", "abcdef"};
    Seen seen[3];
    bool replaced[3] = {};
    const int allocations = counted.allocations;
    const int releases = counted.releases;
    for (int i = 0; i < 3; ++i) {
      PStringHandler* before = target.Held();
      stream.Read(&target);
      replaced[i] = target.Held() != before;
      seen[i] = Observe(target, target.Held());
    }
    EXPECT_EQ(counted.allocations - allocations, 3);
    EXPECT_EQ(counted.releases - releases, 3);
    for (int i = 0; i < 3; ++i) {
      SCOPED_TRACE(texts[i]);
      EXPECT_TRUE(replaced[i]);
      ExpectSame(seen[i], FreshRead(texts[i]));
    }
  }
}

// The held block came from the system manager, the new one would come from
// the installed one: the installed one is asked, the system one releases.
TEST(PStreamIO, BlockOfAnotherManagerThanTheDefaultIsReplaced) {
  Inspected<PString> target("abc", /*copy=*/true);
  PStream stream = CountedStream({"xyz"});
  ScopedAllocationCount counted;
  PStringHandler* before = target.Held();
  stream.Read(&target);
  EXPECT_NE(target.Held(), before);
  EXPECT_EQ(counted.allocations, 1);
  EXPECT_EQ(counted.releases, 0);
  EXPECT_EQ(qvbase::test::Text(target), "xyz");
  target = PString(); // its block names the counting manager
}

// The held block came from a manager no longer installed: it gets its
// release, and the new block comes from the system manager.
TEST(PStreamIO, BlockOfAFormerDefaultManagerGoesBackToIt) {
  ScopedAllocationCount counted;
  PStream stream = CountedStream({"xyz"});
  Inspected<PString> target("abc", /*copy=*/true);
  PStringHandler* before = target.Held();
  const int allocations = counted.allocations;
  counted.Uninstall();
  stream.Read(&target);
  EXPECT_NE(target.Held(), before);
  EXPECT_EQ(counted.allocations, allocations);
  EXPECT_EQ(counted.releases, 1);
  ExpectSame(Observe(target, target.Held()), FreshRead("xyz"));
}

// An application that patched the system record's functions sees its calls.
TEST(PStreamIO, PatchedSystemManagerSeesEveryReadsAllocationAndRelease) {
  Inspected<PString> target("abc", /*copy=*/true);
  PStream stream = CountedStream({"xyz", "uvw"});
  ScopedPatchedSystemCount patched;
  for (const char* text : {"xyz", "uvw"}) {
    SCOPED_TRACE(text);
    PStringHandler* before = target.Held();
    stream.Read(&target);
    EXPECT_NE(target.Held(), before);
    EXPECT_EQ(qvbase::test::Text(target), text);
  }
  EXPECT_EQ(patched.allocations, 2);
  EXPECT_EQ(patched.releases, 2);
}
