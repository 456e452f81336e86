// The 7-bit handler: borrowed and owned buffers, growth by 8 bytes, the
// character-range error at every entry point, and conversions.
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "support/ErrorTestSupport.h"
#include "support/StringTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

class InspectedASCII : public PASCIIString {
public:
  using PASCIIString::PASCIIString;
  using PASCIIString::operator=;
  const PASCIIStringHandler* Held() const {
    return static_cast<const PASCIIStringHandler*>(Handler());
  }
};

class InspectedString : public PString {
public:
  using PString::PString;
  const PStringHandler* Held() const { return Handler(); }
};

} // namespace

// --- Boundaries --------------------------------------------------------------

TEST(PASCIIString, BorrowedHandlerIsDuplicatedOnFirstChange) {
  char caller[] = "borrowed";
  PASCIIStringHandler handler(caller, 0, 8, /*copy=*/false);
  EXPECT_FALSE(handler.CanBeModified());
  EXPECT_EQ(handler.Capacity(), 0u);

  InspectedASCII text(caller, /*copy=*/false);
  EXPECT_EQ(static_cast<const void*>(caller), text.Held()->GetContent());
  text.SetChar(0, 'B');
  text += "!";
  EXPECT_NE(static_cast<const void*>(caller), text.Held()->GetContent());
  EXPECT_STREQ("Borrowed!", static_cast<const char*>(text));
  EXPECT_STREQ("borrowed", caller);
}

TEST(PASCIIString, SixCharacterTextKeepsBufferForOneInsertThenGrowsTo16) {
  InspectedASCII text("abcdef", /*copy=*/true);
  EXPECT_EQ(text.Held()->Capacity(), 8u);
  const void* before = text.Held()->GetContent();
  text.Insert(LONG('g'), 6);
  EXPECT_EQ(text.Held()->Capacity(), 8u);
  EXPECT_EQ(before, text.Held()->GetContent());
  text.Insert(LONG('h'), 7);
  EXPECT_EQ(text.Held()->Capacity(), 16u);
  EXPECT_STREQ("abcdefgh", static_cast<const char*>(text));
}

TEST(PASCIIString, AppendingAnyStringReallocates) {
  InspectedASCII text("ab", /*copy=*/true);
  ASSERT_EQ(text.Held()->Capacity(), 8u);
  const void* before = text.Held()->GetContent();
  text += PASCIIString("c");
  // Room for it was there, yet the buffer is new.
  EXPECT_NE(before, text.Held()->GetContent());
  EXPECT_EQ(text.Held()->Capacity(), 8u);
  EXPECT_STREQ("abc", static_cast<const char*>(text));
}

TEST(PASCIIString, GetCharAtLengthReturnsZero) {
  PASCIIStringHandler handler("abc", 0, 3, /*copy=*/true);
  EXPECT_EQ(LONG('c'), handler.GetChar(2));
  EXPECT_EQ(handler.GetChar(3), 0);
  EXPECT_EQ(handler.GetChar(1000), 0);
}

TEST(PASCIIString, ConvertingMultibyteHighByteSignalsAndYieldsNoHandler) {
  PMBStringHandler source("caf\xE9", 0, 4, /*copy=*/true);
  PError raised = qvbase::test::Caught([&] { gASCIIStringHandlerDec.fromHandler(&source); });
  EXPECT_NE(raised.Code(), qvbase::test::kNothingThrown);
  EXPECT_EQ(raised.Code(), kErrStringCharOutOfRange);
  EXPECT_EQ(raised.Severity(), ErrorSeverityError);
  EXPECT_STREQ(raised.File(), "src\\PASCIIString");
  EXPECT_EQ(raised.Line(), 137u);

  qvbase::test::ScopedErrorCapture ignore;
  EXPECT_EQ(gASCIIStringHandlerDec.fromHandler(&source), nullptr);
  EXPECT_EQ(ignore.hook.calls, 1);
}

// --- Failure handling -------------------------------------------------------

TEST(PASCIIString, EveryEntryPointRaisesCharacterOutOfRangeWithItsLine) {
  struct Row {
    const char* name;
    void (*call)();
    unsigned line;
  };
  const Row kRows[] = {
      {"fromText", [] { delete gASCIIStringHandlerDec.fromText("\x80", true); }, 92},
      {"fromChar", [] { delete GASCIIStrHandlerConstructor3(200); }, 100},
      {"InsertChar",
       [] {
         PASCIIStringHandler h("a", 0, 1, true);
         h.InsertChar(-5, 0);
       },
       277},
      {"SetChar",
       [] {
         PASCIIStringHandler h("a", 0, 1, true);
         h.SetChar(0, 128);
       },
       364},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    PError raised = qvbase::test::Caught(row.call);
    EXPECT_NE(raised.Code(), qvbase::test::kNothingThrown);
    EXPECT_EQ(raised.Code(), kErrStringCharOutOfRange);
    EXPECT_EQ(raised.Severity(), ErrorSeverityError);
    EXPECT_STREQ(raised.File(), "src\\PASCIIString");
    EXPECT_EQ(row.line, raised.Line());
  }
}

TEST(PASCIIString, ReturnedSignalStoresTheCharacterAnyway) {
  qvbase::test::ScopedErrorCapture ignore;
  PStringHandler* fromText = gASCIIStringHandlerDec.fromText("a\xE9", true);
  EXPECT_EQ(fromText->GetLen(), 2u);
  delete fromText;
  PStringHandler* fromChar = GASCIIStrHandlerConstructor3(0x1E9);
  EXPECT_EQ(LONG(static_cast<signed char>(0xE9)), fromChar->GetChar(0));
  delete fromChar;
  PASCIIStringHandler handler("ab", 0, 2, true);
  handler.InsertChar(0x1FF, 1);
  EXPECT_EQ(handler.GetLen(), 3u);
  EXPECT_EQ(handler.GetChar(1), -1);
  handler.SetChar(0, 0x80);
  EXPECT_EQ(handler.GetChar(0), -128);
  EXPECT_EQ(ignore.hook.calls, 4);
}

// --- Handler contracts ------------------------------------------------------

TEST(PASCIIString, SlotValues) {
  PASCIIStringHandler handler("hello", 0, 5, true);
  EXPECT_EQ(&gASCIIStringHandlerDec, handler.GetHandlerType());
  EXPECT_EQ(handler.GetCodeSet(), kCodeSetASCII);
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetASCII));
  EXPECT_FALSE(handler.HandlesCodeSet(kCodeSetMultiByte));
  EXPECT_FALSE(handler.HandlesCodeSet(kCodeSetUnicode));
  EXPECT_EQ(handler.GetSize(), 5u);
  EXPECT_EQ(handler.GetLen(), 5u);
  EXPECT_EQ(handler.GetFullSize(), 6u);
  EXPECT_EQ(handler.Capacity(), 8u);
  EXPECT_TRUE(handler.CanBeModified());
}

TEST(PASCIIString, CapacityIsLengthPlusTerminatorRoundedToEight) {
  const struct {
    ULONG length;
    ULONG capacity;
  } kRows[] = {{0, 8}, {6, 8}, {7, 8}, {8, 16}, {15, 16}, {16, 24}};
  const char kText[] = "0123456789abcdefghij";
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.length);
    PASCIIStringHandler handler(kText, 0, row.length, true);
    EXPECT_EQ(row.capacity, handler.Capacity());
    EXPECT_EQ(static_cast<const char*>(handler.GetContent())[row.length], '\0');
  }
}

TEST(PASCIIString, OffsetSelectsTheRange) {
  PASCIIStringHandler handler("abcdef", 2, 3, true);
  EXPECT_STREQ("cde", static_cast<const char*>(handler.GetContent()));
}

TEST(PASCIIString, DeleteNeverShrinksTheBuffer) {
  InspectedASCII text("abcdefghijklmnop", true);
  ASSERT_EQ(text.Held()->Capacity(), 24u);
  text.Delete(2, 10);
  EXPECT_EQ(text.Held()->Capacity(), 24u);
  EXPECT_STREQ("abmnop", static_cast<const char*>(text));
  text.Delete(3, 3);
  EXPECT_STREQ("abm", static_cast<const char*>(text));
}

TEST(PASCIIString, SharedHandlerIsNotModifiable) {
  InspectedASCII text("abc", true);
  InspectedASCII copy(text);
  EXPECT_FALSE(text.Held()->CanBeModified());
  copy.Delete(0, 1);
  EXPECT_TRUE(text.Held()->CanBeModified());
}

TEST(PASCIIString, ConvertsUnicodeContentOfSevenBitUnits) {
  const unsigned short kWide[] = {'o', 'k', 0};
  InspectedASCII text{PString(kWide, true)};
  EXPECT_EQ(&gASCIIStringHandlerDec, text.Held()->GetHandlerType());
  EXPECT_STREQ("ok", static_cast<const char*>(text));
}

TEST(PASCIIString, RejectsUnicodeContentAboveSevenBits) {
  const unsigned short kWide[] = {'o', 0xE9, 0};
  PUNIString wide(kWide, true);
  PError raised = qvbase::test::Caught([&] { PASCIIString text(wide); });
  EXPECT_EQ(raised.Code(), kErrStringCharOutOfRange);
  EXPECT_EQ(raised.Line(), 137u);
}

TEST(PASCIIString, ConversionOperatorNeverNull) {
  PASCIIString empty;
  EXPECT_EQ(gVoidCharString, static_cast<const char*>(empty));
  EXPECT_EQ(empty[0], '\0');
  PASCIIString text("xy");
  EXPECT_EQ(text[1], 'y');
  EXPECT_EQ(text[2], '\0');
}

TEST(PASCIIString, CompareMethodsByMode) {
  const struct {
    TypStringComp mode;
    int abcVsABC;
  } kRows[] = {{kStrCompExact, 1},  {kStrCompIgnoreCase, 0}, {kStrCompCollate, 1},
               {kStrCompNoCase, 0}, {kStrCompComposite, 1},  {TypStringComp(9), 1}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.mode);
    LONG result = GASCIIGetCmpMethod(row.mode)("abc", "ABC", 3);
    EXPECT_EQ(row.abcVsABC, result < 0 ? -1 : (result > 0 ? 1 : 0));
  }
  EXPECT_EQ(GASCIIGetCmpMethod(kStrCompExact), GASCIIGetCmpMethod(kStrCompCollate));
  EXPECT_EQ(GASCIIGetCmpMethod(kStrCompIgnoreCase), GASCIIGetCmpMethod(kStrCompNoCase));
}

TEST(PASCIIString, CharacterSearchOutsideSevenBitsFindsNothing) {
  PASCIIStringHandler handler("abc", 0, 3, true);
  EXPECT_EQ(handler.FindCharFwd(200, 0, kStrCompExact), kStringNotFound);
  EXPECT_EQ(handler.FindCharBwd(-1, 2, kStrCompExact), kStringNotFound);
  EXPECT_EQ(handler.FindCharBwd('B', 2, kStrCompIgnoreCase), 1u);
}

TEST(PASCIIString, BackwardSubstringSearchStopsAtTerminator) {
  PASCIIStringHandler handler("abcab", 0, 5, true);
  PASCIIStringHandler what("abc", 0, 3, true);
  // From the last position the compare runs into the terminator: no match
  // there, the earlier one is found.
  EXPECT_EQ(handler.FindSubHandlerBwd(&what, 4, kStrCompExact), 0u);
}

TEST(PASCIIString, GetSubHandlerCopies) {
  PASCIIStringHandler handler("abcdef", 0, 6, false);
  PStringHandler* slice = handler.GetSubHandler(1, 3);
  EXPECT_TRUE(slice->CanBeModified());
  EXPECT_STREQ("bcd", static_cast<const char*>(slice->GetContent()));
  delete slice;
}

// --- Forward search ---------------------------------------------------------

namespace {

// Counts the compares that a search makes through the virtual compare.
class CountingHandler : public PASCIIStringHandler {
public:
  using PASCIIStringHandler::PASCIIStringHandler;
  LONG CompareSubHandler(ULONG start, const PStringHandler* other, ULONG otherStart, ULONG count,
                         TypStringComp mode) const override {
    ++compares;
    return PASCIIStringHandler::CompareSubHandler(start, other, otherStart, count, mode);
  }
  mutable int compares = 0;
};

// The search as candidate-by-candidate compares define it.
ULONG FindByCompares(const PASCIIStringHandler& hay, const PStringHandler& what, ULONG from,
                     TypStringComp mode) {
  const ULONG k = what.GetLen();
  if (k > hay.GetLen())
    return kStringNotFound;
  for (ULONG i = from; i <= hay.GetLen() - k; ++i)
    if (hay.CompareSubHandler(i, &what, 0, k, mode) == 0)
      return i;
  return kStringNotFound;
}

} // namespace

TEST(PASCIIString, ForwardSearchFindsWhatCandidateComparesFind) {
  const struct {
    std::string hay;
    std::string needle;
    ULONG from;
    TypStringComp mode;
    ULONG found;
  } kRows[] = {
      {"needle in a haystack", "needle", 0, kStrCompExact, 0},
      {"a haystack with a needle", "needle", 0, kStrCompExact, 18},
      {"a haystack with a needle", "needle", 19, kStrCompExact, kStringNotFound},
      {"needle needle", "needle", 1, kStrCompExact, 7},
      {"short", "longer than short", 0, kStrCompExact, kStringNotFound},
      {"aaaab", "aab", 0, kStrCompExact, 2},
      {"x", "x", 1, kStrCompExact, kStringNotFound},
      {"x", "x", 7, kStrCompExact, kStringNotFound},
      {"a NEEDLE", "needle", 0, kStrCompExact, kStringNotFound},
      {"a NEEDLE", "needle", 0, kStrCompIgnoreCase, 2},
      {"a NEEDLE", "needle", 0, kStrCompNoCase, 2},
      // No collation for ASCII: the exact compare.
      {"a NEEDLE", "needle", 0, kStrCompCollate, kStringNotFound},
      {"a needle", "needle", 0, kStrCompCollate, 2},
      {"@[`{z", "Z", 0, kStrCompIgnoreCase, 4},
      {"a[b{c", "{", 0, kStrCompIgnoreCase, 3},
      // 0 bytes: strncmp stops at them, so a needle with one matches text
      // that differs after it; the haystack's are ordinary bytes.
      {std::string("ab\0x-ab\0y", 9), std::string("ab\0z", 4), 0, kStrCompExact, 0},
      {std::string("ab\0x-ab\0y", 9), std::string("ab\0z", 4), 1, kStrCompExact, 5},
      {std::string("x\0needle", 8), "needle", 0, kStrCompExact, 2},
      {std::string("x\0needle", 8), std::string("x\0n", 3), 0, kStrCompExact, 0},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE("\"" + row.hay + "\" / \"" + row.needle + "\" from " + std::to_string(row.from) +
                 " mode " + std::to_string(int(row.mode)));
    PASCIIStringHandler hay(row.hay.data(), 0, static_cast<ULONG>(row.hay.size()), /*copy=*/true);
    PASCIIStringHandler needle(row.needle.data(), 0, static_cast<ULONG>(row.needle.size()),
                               /*copy=*/true);
    EXPECT_EQ(row.found, hay.FindSubHandlerFwd(&needle, row.from, row.mode));
    EXPECT_EQ(row.found, FindByCompares(hay, needle, row.from, row.mode));
    // The same search through a class that compares through its own
    // override: every candidate goes through it.
    CountingHandler counting(row.hay.data(), 0, static_cast<ULONG>(row.hay.size()), /*copy=*/true);
    EXPECT_EQ(row.found, counting.FindSubHandlerFwd(&needle, row.from, row.mode));
    if (needle.GetLen() <= hay.GetLen() && row.from <= hay.GetLen() - needle.GetLen()) {
      EXPECT_GT(counting.compares, 0);
    }
  }
}

TEST(PASCIIString, ForwardSearchForAShorterSizedNeedleFindsNothing) {
  // A needle whose size is below its length (multibyte text whose length was
  // given beyond its end) can never be matched by the bounded compare.
  PASCIIStringHandler hay("abcabc", 0, 6, /*copy=*/true);
  PMBStringHandler needle("bc", 0, 3, /*copy=*/true);
  ASSERT_EQ(needle.GetSize(), 2u);
  ASSERT_EQ(needle.GetLen(), 3u);
  EXPECT_EQ(hay.FindSubHandlerFwd(&needle, 0, kStrCompExact), kStringNotFound);
  EXPECT_EQ(FindByCompares(hay, needle, 0, kStrCompExact), kStringNotFound);
}

TEST(PASCIIString, AppendingTextWithHighBytesReportsTheConversionAndAddsNothing) {
  // The appended text arrives as multibyte text, so the error is the one of
  // the conversion from multibyte.
  PASCIIString text("abc", true);
  PError raised = qvbase::test::Caught([&] { text += "d\xE9"; });
  EXPECT_NE(raised.Code(), qvbase::test::kNothingThrown);
  EXPECT_EQ(raised.Code(), kErrStringCharOutOfRange);
  EXPECT_EQ(raised.Line(), 137u);
  EXPECT_STREQ("abc", static_cast<const char*>(text));
  text += "def";
  EXPECT_STREQ("abcdef", static_cast<const char*>(text));
  EXPECT_EQ(static_cast<const PASCIIStringHandler*>(InspectedASCII(text).Held())->Capacity(), 8u);
}
