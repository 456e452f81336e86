// Memory streams: the library's own memory handler, whose reads, writes and
// seeks inside its block skip the guard, set against a handler derived from
// it, which takes the guarded path with every call: the same bytes, state,
// results and errors, and a derived handler still sees each call in order.
#include <qvbase/MemoryManager.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PString.h>

#include "PMemoryStreamTestSupport.h"

#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"
#include "support/RecordingMemoryHdl.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::Content;
using qvbase::test::CountingHook;
using qvbase::test::ExpectStreamError;
using qvbase::test::kNothingThrown;
using qvbase::test::RecordingMemoryHdl;

// What a step left behind: its result and the handler's whole state.
struct Outcome {
  ULONG result;
  std::string content;
  unsigned __int64 size;
  unsigned __int64 position;
  ULONG capacity;
  bool dirty;
  bool failed;
  int thrown;
};

Outcome RunStep(PStream& stream, PMemoryStreamHdl* handler,
                const std::function<ULONG(PStream&)>& step) {
  Outcome o{};
  o.thrown = kNothingThrown;
  try {
    o.result = step(stream);
  } catch (const PError& e) {
    o.thrown = e.Code();
  }
  o.content = handler->GetBuffer() ? Content(handler, stream) : std::string();
  o.size = stream.GetSize();
  o.position = stream.GetPos();
  o.capacity = handler->GetCapacity();
  o.dirty = handler->IsDirty();
  o.failed = handler->HasFailed();
  return o;
}

void ExpectSameOutcome(const Outcome& a, const Outcome& b) {
  EXPECT_EQ(a.result, b.result);
  EXPECT_EQ(a.content, b.content);
  EXPECT_EQ(a.size, b.size);
  EXPECT_EQ(a.position, b.position);
  EXPECT_EQ(a.capacity, b.capacity);
  EXPECT_EQ(a.dirty, b.dirty);
  EXPECT_EQ(a.failed, b.failed);
  EXPECT_EQ(a.thrown, b.thrown);
}

using Steps = std::vector<std::pair<const char*, std::function<ULONG(PStream&)>>>;

// Runs `steps` in turn over a plain handler and over a derived one, both of
// granularity 16 and in `ordering`, and expects the same outcome after each.
void ExpectSameStateAfterEveryStep(const Steps& steps, unsigned short ordering) {
  PStream plainStream(new PMemoryStreamHdl(16));
  plainStream.Open(OpenReadWrite | OpenAllowEmpty);
  plainStream.SetByteOrdering(ordering);
  auto* plain = static_cast<PMemoryStreamHdl*>(plainStream.GetHandler());
  RecordingMemoryHdl* derived = new RecordingMemoryHdl(16);
  PStream derivedStream(derived);
  derivedStream.Open(OpenReadWrite | OpenAllowEmpty);
  derivedStream.SetByteOrdering(ordering);
  for (const auto& [name, step] : steps) {
    SCOPED_TRACE(name);
    const Outcome a = RunStep(plainStream, plain, step);
    const Outcome b = RunStep(derivedStream, derived, step);
    ExpectSameOutcome(a, b);
  }
  EXPECT_FALSE(derived->calls.empty());
}

TEST(MemoryStream, DerivedHandlerSeesEveryCallOfTypedValuesInOrder) {
  RecordingMemoryHdl* handler = new RecordingMemoryHdl(16);
  PStream stream(handler);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  handler->calls.clear();

  stream.Write(LONG(7));
  stream.Write(true);
  stream.Write(PString("abc", true));
  stream.MoveTo(0);
  LONG l = 0;
  bool b = false;
  PString t;
  stream.Read(&l);
  stream.Read(&b);
  stream.Read(&t);

  const std::vector<std::string> expected = {
      "IOGetPos",     "IOWrite 1x4", "IOSetSize 4",  // the LONG
      "IOGetPos",     "IOWrite 1x2", "IOSetSize 6",  // the bool
      "IOGetPos",     "IOWrite 1x4", "IOSetSize 10", // the string's length
      "IOGetPos",     "IOWrite 3x1", "IOSetSize 13", // and its bytes
      "IOSetPos 2 0",                                // MoveTo
      "IOGetPos",     "IORead 1x4",                  //
      "IOGetPos",     "IORead 1x2",                  //
      "IOGetPos",     "IORead 1x4",                  //
      "IOGetPos",     "IORead 3x1"};
  EXPECT_EQ(handler->calls, expected);
  EXPECT_EQ(l, 7);
  EXPECT_TRUE(b);
  EXPECT_STREQ(static_cast<const char*>(PMBString(t)), "abc");
}

TEST(MemoryStream, PlainHandlerLeavesTheSameStateAsADerivedOneAfterEveryStep) {
  // Steps inside the block (unguarded for the plain handler) and across it
  // or over the end (guarded for both).
  const Steps steps = {
      {"write 4 into an empty stream", [](PStream& s) { return s.Write("abcd", 1, 4); }},
      {"write up to the block's end", [](PStream& s) { return s.Write("0123456789ab", 3, 4); }},
      {"write across into the next step", [](PStream& s) { return s.Write("xy", 2, 1); }},
      {"write nothing", [](PStream& s) { return s.Write("", 0, 4); }},
      {"seek back",
       [](PStream& s) {
         s.MoveBack(5);
         return 0u;
       }},
      {"overwrite inside the content", [](PStream& s) { return s.Write("Q", 1, 1); }},
      {"seek from the end",
       [](PStream& s) {
         s.MoveFromEnd(18);
         return 0u;
       }},
      {"read inside the content",
       [](PStream& s) {
         char buffer[8];
         return s.Read(buffer, 2, 4);
       }},
      {"seek forward",
       [](PStream& s) {
         s.MoveFwd(3);
         return 0u;
       }},
      {"read over the end",
       [](PStream& s) {
         char buffer[16];
         return s.Read(buffer, 4, 2);
       }},
      {"read from past the end",
       [](PStream& s) {
         char buffer[4];
         return s.Read(buffer, 1, 4);
       }},
      {"seek to the start",
       [](PStream& s) {
         s.MoveTo(0);
         return 0u;
       }},
      {"seek to the end exactly",
       [](PStream& s) {
         s.MoveFwd(s.GetSize());
         return 0u;
       }},
      {"seek back before the start",
       [](PStream& s) {
         s.MoveBack(1000);
         return 0u;
       }},
  };
  ExpectSameStateAfterEveryStep(steps, kByteOrderingIntel);
}

// A typed value read as the step's result: the value's bits folded into 32,
// so that two handlers that delivered different bytes give different results.
template <typename T>
ULONG ReadTyped(PStream& s, T start) {
  T value = start;
  s.Read(&value);
  const unsigned __int64 bits = static_cast<unsigned __int64>(value);
  return static_cast<ULONG>(bits ^ (bits >> 32));
}

TEST(MemoryStream, PlainHandlerLeavesTheSameStateAsADerivedOneAfterEveryTypedStep) {
  // Typed values take their own in-place copy of the plain handler: set
  // against the guarded path in both byte orderings, inside the block, across
  // it, over the end, from past the end and with a value half read.
  for (const unsigned short ordering : {kByteOrderingIntel, kByteOrderingMotorola}) {
    SCOPED_TRACE(ordering == kByteOrderingIntel ? "II" : "MM");
    const Steps steps = {
        {"a long into an empty stream",
         [](PStream& s) {
           s.Write(LONG(0x01020304));
           return 0u;
         }},
        {"a 64-bit integer",
         [](PStream& s) {
           s.Write(static_cast<__int64>(0x1122334455667788));
           return 0u;
         }},
        {"a short and a bool up to the block's end",
         [](PStream& s) {
           s.Write(short(0x0A0B));
           s.Write(true);
           return 0u;
         }},
        {"a long across into the next step",
         [](PStream& s) {
           s.Write(LONG(-2));
           return 0u;
         }},
        {"back to the start",
         [](PStream& s) {
           s.MoveTo(0);
           return 0u;
         }},
        {"read the long", [](PStream& s) { return ReadTyped<LONG>(s, 0); }},
        {"read the 64-bit integer", [](PStream& s) { return ReadTyped<__int64>(s, 0); }},
        {"read the short", [](PStream& s) { return ReadTyped<short>(s, 0); }},
        {"read the bool",
         [](PStream& s) {
           bool b = false;
           s.Read(&b);
           return b ? 1u : 0u;
         }},
        {"overwrite the bool inside the content",
         [](PStream& s) {
           s.MoveBack(2);
           s.Write(false);
           return 0u;
         }},
        {"a long with two bytes left",
         [](PStream& s) {
           s.MoveFromEnd(2);
           return ReadTyped<LONG>(s, 0x55555555);
         }},
        {"a short from past the end", [](PStream& s) { return ReadTyped<short>(s, 0x1234); }},
        {"a 64-bit integer at the end exactly",
         [](PStream& s) {
           s.MoveFromEnd(0);
           return ReadTyped<__int64>(s, 7);
         }},
        {"a long written inside the content after a failed seek",
         [](PStream& s) {
           s.MoveTo(4);
           try {
             s.MoveBack(1000);
           } catch (const PError&) {
           }
           s.Write(LONG(9));
           return 0u;
         }},
    };
    ExpectSameStateAfterEveryStep(steps, ordering);
  }
}

TEST(MemoryStream, PlainHandlerErrorsStillComeThroughTheGuard) {
  PStream stream(new PMemoryStreamHdl(16));
  stream.Open(OpenRead | OpenAllowEmpty);
  PStreamHdl* handler = stream.GetHandler();

  const PError notWritable = Caught([&] { stream.Write("ab", 2, 1); });
  ExpectStreamError(notWritable, kErrStreamNotWritable, ErrorSeverityAbort);
  EXPECT_TRUE(handler->HasFailed());

  const PError pastEnd = Caught([&] { stream.MoveTo(1); });
  ExpectStreamError(pastEnd, kErrStreamSeekPastEnd, ErrorSeverityAbort);

  // A seek that stays inside the content clears the flag as any attempt does.
  stream.MoveTo(0);
  EXPECT_FALSE(handler->HasFailed());
}

// Refuses the first block it is asked for, then passes every call through.
struct RefusingOnceManager : qvbase::test::SystemCalls {
  static inline int refusals = 0;
  static inline std::vector<ULONG> sizes;
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    sizes.push_back(size);
    if (refusals > 0) {
      --refusals;
      return nullptr;
    }
    return SystemCalls::Allocate(self, size, mode);
  }
};

TEST(MemoryStream, RetryHookRestartsAFailedWriteOfThePlainHandlerFromItsFirstPosition) {
  PStream stream(new PMemoryStreamHdl(16));
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  stream.Write("0123456789abcdef", 16, 1); // the first block, full
  auto* handler = static_cast<PMemoryStreamHdl*>(stream.GetHandler());

  MemoryManager refusing{0,
                         "RefusingOnce",
                         &RefusingOnceManager::Allocate,
                         &RefusingOnceManager::Reallocate,
                         &RefusingOnceManager::Size,
                         &RefusingOnceManager::Release,
                         &RefusingOnceManager::Stats};
  MemoryManager* saved = GGetDefaultMemManager();
  GSetDefaultMemManager(&refusing);
  RefusingOnceManager::refusals = 1;
  RefusingOnceManager::sizes.clear();
  CountingHook hook(ErrorHandlingRetry);
  ULONG written = 0;
  {
    PErrorHookProtection protection(&hook, /*set=*/true);
    written = stream.Write("\x04\x03\x02\x01", 1, 4);
  }
  GSetDefaultMemManager(saved);

  EXPECT_EQ(hook.codes, std::vector<int>{kErrOutOfMemory});
  // The refused block and the one of the retry are the same request (the
  // error's own blocks come between them).
  ASSERT_GE(RefusingOnceManager::sizes.size(), 2u);
  EXPECT_EQ(RefusingOnceManager::sizes.front(), RefusingOnceManager::sizes.back());
  EXPECT_GE(RefusingOnceManager::sizes.front(), 32u);
  EXPECT_EQ(written, 1u);
  EXPECT_EQ(stream.GetSize(), 20u);
  EXPECT_EQ(stream.GetPos(), 20u);
  EXPECT_EQ(handler->GetCapacity(), 32u);
  EXPECT_EQ(Content(handler, stream), std::string("0123456789abcdef\x04\x03\x02\x01", 20));
  EXPECT_FALSE(handler->HasFailed());
}

} // namespace
