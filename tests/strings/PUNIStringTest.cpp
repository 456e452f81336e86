// The Unicode handler: sizes in bytes, growth by 4 units, one-byte
// conversion of narrow characters, and the not-settable error.
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "support/ErrorTestSupport.h"
#include "support/LocaleTestSupport.h"
#include "support/StringTestSupport.h"

#include <gtest/gtest.h>

namespace {

const unsigned short kAbc[] = {'a', 'b', 'c', 0};

class InspectedUNI : public PUNIString {
public:
  using PUNIString::PUNIString;
  const PUNIStringHandler* Held() const { return static_cast<const PUNIStringHandler*>(Handler()); }
};

} // namespace

// --- Boundaries --------------------------------------------------------------

TEST(PUNIString, FullSizeOfEmptyIsTwoAndOfThreeUnitsEight) {
  PUNIStringHandler empty(kAbc, 0, 0, /*copy=*/true);
  EXPECT_EQ(empty.GetFullSize(), 2u);
  PUNIStringHandler three(kAbc, 0, 3, /*copy=*/true);
  EXPECT_EQ(three.GetFullSize(), 8u);
  EXPECT_EQ(three.GetSize(), 6u);
}

TEST(PUNIString, ThreeUnitsHaveFourUnitBufferAndInsertGrowsToEight) {
  PUNIStringHandler handler(kAbc, 0, 3, /*copy=*/true);
  EXPECT_EQ(handler.Capacity(), 4u);
  handler.InsertChar('d', 3);
  EXPECT_EQ(handler.Capacity(), 8u);
  EXPECT_EQ(handler.GetLen(), 4u);
  EXPECT_EQ(LONG('d'), handler.GetChar(3));
  EXPECT_EQ(static_cast<const unsigned short*>(handler.GetContent())[4], 0);
}

TEST(PUNIString, InsertingDoubleByteCharacterDoesNotGiveItsUnicodeValue) {
  qvbase::test::ScopedDoubleByteLocale locale;
  if (!locale.active())
    return qvbase::test::MissingSetUpLocale("double-byte (UTF-8)");
  // The character's Unicode value, through a whole-string conversion.
  PUNIString whole{PString(locale.doubleByte(), true)};
  ASSERT_EQ(whole.Len(), 1u);
  LONG packed = 0;
  GMBCharLen(locale.doubleByte(), &packed);
  PUNIStringHandler handler(kAbc, 0, 0, true);
  handler.InsertChar(packed, 0);
  EXPECT_EQ(handler.GetLen(), 1u);
  EXPECT_NE(whole.GetChar(0), handler.GetChar(0));
}

// --- Handler contracts ------------------------------------------------------

TEST(PUNIString, SlotValues) {
  PUNIStringHandler handler(kAbc, 0, 3, true);
  EXPECT_EQ(handler.GetCodeSet(), kCodeSetUnicode);
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetASCII));
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetMultiByte));
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetUnicode));
  EXPECT_EQ(handler.GetLen(), 3u);
  EXPECT_EQ(LONG('b'), handler.GetChar(1));
  EXPECT_EQ(handler.GetChar(3), 0);
  EXPECT_TRUE(handler.CanBeModified());
  EXPECT_EQ(GUNIStringHandlerConstructor2, handler.GetHandlerType()->fromHandler);
}

TEST(PUNIString, CapacityIsLengthPlusTerminatorRoundedToFourUnits) {
  const unsigned short kText[] = {'0', '1', '2', '3', '4', '5', '6', '7', '8', 0};
  const struct {
    ULONG length;
    ULONG capacity;
  } kRows[] = {{0, 4}, {3, 4}, {4, 8}, {7, 8}, {8, 12}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.length);
    PUNIStringHandler handler(kText, 0, row.length, true);
    EXPECT_EQ(row.capacity, handler.Capacity());
  }
}

TEST(PUNIString, InsertCharUsesSpareCapacityInPlace) {
  PUNIStringHandler handler(kAbc, 0, 2, true);
  ASSERT_EQ(handler.Capacity(), 4u);
  const void* before = handler.GetContent();
  handler.InsertChar('x', 0);
  EXPECT_EQ(before, handler.GetContent());
  EXPECT_EQ(LONG('x'), handler.GetChar(0));
  EXPECT_EQ(LONG('b'), handler.GetChar(2));
}

TEST(PUNIString, BorrowedTextIsDuplicatedOnFirstChange) {
  unsigned short caller[] = {'w', 'x', 0};
  InspectedUNI text(caller, /*copy=*/false);
  EXPECT_EQ(static_cast<const void*>(caller), text.Held()->GetContent());
  EXPECT_EQ(text.Held()->Capacity(), 0u);
  text.SetChar(0, 'W');
  EXPECT_NE(static_cast<const void*>(caller), text.Held()->GetContent());
  EXPECT_EQ(LONG('W'), text.GetChar(0));
  EXPECT_EQ(caller[0], 'w');
}

TEST(PUNIString, SetCharOfUnconvertibleCharacterRaisesNotSettable) {
  PUNIStringHandler handler(kAbc, 0, 3, true);
  // The terminator byte consumes no byte.
  PError raised = qvbase::test::Caught([&] { handler.SetChar(0, 0); });
  EXPECT_NE(raised.Code(), qvbase::test::kNothingThrown);
  EXPECT_EQ(raised.Code(), kErrStringUnicodeNotSettable);
  EXPECT_EQ(raised.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(raised.File(), "src\\PUNIString");
  EXPECT_EQ(raised.Line(), 250u);
  qvbase::test::ScopedErrorCapture ignore;
  handler.SetChar(0, 0);
  EXPECT_EQ(ignore.hook.calls, 1);
  EXPECT_EQ(LONG('a'), handler.GetChar(0));
}

TEST(PUNIString, SetCharOfSevenBitCharacterStoresIt) {
  PUNIStringHandler handler(kAbc, 0, 3, true);
  handler.SetChar(1, 'Z');
  EXPECT_EQ(LONG('Z'), handler.GetChar(1));
}

TEST(PUNIString, NarrowContentIsConverted) {
  PUNIString text(PString("narrow"));
  EXPECT_EQ(text.Len(), 6u);
  EXPECT_EQ(LONG('w'), text.GetChar(5));
  const unsigned short* units = text;
  EXPECT_EQ(units[0], 'n');
  EXPECT_EQ(units[6], 0);
}

TEST(PUNIString, EmptyConversionNeverNull) {
  PUNIString empty;
  const unsigned short* units = empty;
  ASSERT_NE(nullptr, units);
  EXPECT_EQ(units[0], 0);
}

TEST(PUNIString, EditingAndSearching) {
  PUNIString text(kAbc, true);
  text.Insert(PString("xy"), 1);
  EXPECT_EQ(text.Len(), 5u);
  EXPECT_EQ(text.FindForward("XY", 0, kStrCompIgnoreCase), 1u);
  EXPECT_EQ(text.FindBackward(LONG('c'), 100, kStrCompExact), 4u);
  text.Delete(1, 2);
  EXPECT_EQ(text.CompareTo(PString("abc"), kStrCompExact), 0);
  EXPECT_EQ(text.CompareTo(PUNIString(PString("ABC")), kStrCompIgnoreCase), 0);
}

TEST(PUNIString, NarrowStringsConvertBack) {
  const unsigned short kWide[] = {'b', 'a', 'c', 'k', 0};
  PUNIString wide(kWide, true);
  PMBString mb(wide);
  EXPECT_STREQ("back", static_cast<const char*>(mb));
  PASCIIString ascii(wide);
  EXPECT_STREQ("back", static_cast<const char*>(ascii));
}

TEST(PUNIString, CompareMethodsByMode) {
  const unsigned short kLower[] = {'a', 'b', 0};
  const unsigned short kUpper[] = {'A', 'B', 0};
  EXPECT_NE(0, GUNIGetCmpMethod(kStrCompExact)(kLower, kUpper, 2));
  EXPECT_EQ(GUNIGetCmpMethod(kStrCompIgnoreCase)(kLower, kUpper, 2), 0);
  EXPECT_EQ(GUNIGetCmpMethod(kStrCompIgnoreCase), GUNIGetCmpMethod(kStrCompNoCase));
  EXPECT_EQ(GUNIGetCmpMethod(kStrCompExact), GUNIGetCmpMethod(kStrCompComposite));
  EXPECT_NE(GUNIGetCmpMethod(kStrCompExact), GUNIGetCmpMethod(kStrCompCollate));
}
