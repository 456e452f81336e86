// The Unicode handler: sizes in bytes, growth by 4 units, one-byte
// conversion of narrow characters, and the not-settable error.
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

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
  EXPECT_EQ(2u, empty.GetFullSize());
  PUNIStringHandler three(kAbc, 0, 3, /*copy=*/true);
  EXPECT_EQ(8u, three.GetFullSize());
  EXPECT_EQ(6u, three.GetSize());
}

TEST(PUNIString, ThreeUnitsHaveFourUnitBufferAndInsertGrowsToEight) {
  PUNIStringHandler handler(kAbc, 0, 3, /*copy=*/true);
  EXPECT_EQ(4u, handler.Capacity());
  handler.InsertChar('d', 3);
  EXPECT_EQ(8u, handler.Capacity());
  EXPECT_EQ(4u, handler.GetLen());
  EXPECT_EQ(LONG('d'), handler.GetChar(3));
  EXPECT_EQ(0, static_cast<const unsigned short*>(handler.GetContent())[4]);
}

TEST(PUNIString, InsertingDoubleByteCharacterDoesNotGiveItsUnicodeValue) {
  qvtest::ScopedDoubleByteLocale locale;
  if (!locale.active())
    GTEST_SKIP() << "no double-byte locale on this system";
  // The character's Unicode value, through a whole-string conversion.
  PUNIString whole{PString(locale.doubleByte(), true)};
  ASSERT_EQ(1u, whole.Len());
  LONG packed = 0;
  GMBCharLen(locale.doubleByte(), &packed);
  PUNIStringHandler handler(kAbc, 0, 0, true);
  handler.InsertChar(packed, 0);
  EXPECT_EQ(1u, handler.GetLen());
  EXPECT_NE(whole.GetChar(0), handler.GetChar(0));
}

// --- Handler contracts ------------------------------------------------------

TEST(PUNIString, SlotValues) {
  PUNIStringHandler handler(kAbc, 0, 3, true);
  EXPECT_EQ(kCodeSetUnicode, handler.GetCodeSet());
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetASCII));
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetMultiByte));
  EXPECT_TRUE(handler.HandlesCodeSet(kCodeSetUnicode));
  EXPECT_EQ(3u, handler.GetLen());
  EXPECT_EQ(LONG('b'), handler.GetChar(1));
  EXPECT_EQ(0, handler.GetChar(3));
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
  ASSERT_EQ(4u, handler.Capacity());
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
  EXPECT_EQ(0u, text.Held()->Capacity());
  text.SetChar(0, 'W');
  EXPECT_NE(static_cast<const void*>(caller), text.Held()->GetContent());
  EXPECT_EQ(LONG('W'), text.GetChar(0));
  EXPECT_EQ('w', caller[0]);
}

TEST(PUNIString, SetCharOfUnconvertibleCharacterRaisesNotSettable) {
  PUNIStringHandler handler(kAbc, 0, 3, true);
  // The terminator byte consumes no byte.
  qvtest::RaisedError raised = qvtest::CaptureError([&] { handler.SetChar(0, 0); });
  EXPECT_TRUE(raised.thrown);
  EXPECT_EQ(kErrStringUnicodeNotSettable, raised.code);
  EXPECT_EQ(ErrorSeverityAbort, raised.severity);
  EXPECT_EQ("src\\PUNIString", raised.file);
  EXPECT_EQ(250u, raised.line);
  qvtest::ScopedIgnoreErrors ignore;
  handler.SetChar(0, 0);
  EXPECT_EQ(1, ignore.hook.calls);
  EXPECT_EQ(LONG('a'), handler.GetChar(0));
}

TEST(PUNIString, SetCharOfSevenBitCharacterStoresIt) {
  PUNIStringHandler handler(kAbc, 0, 3, true);
  handler.SetChar(1, 'Z');
  EXPECT_EQ(LONG('Z'), handler.GetChar(1));
}

TEST(PUNIString, NarrowContentIsConverted) {
  PUNIString text(PString("narrow"));
  EXPECT_EQ(6u, text.Len());
  EXPECT_EQ(LONG('w'), text.GetChar(5));
  const unsigned short* units = text;
  EXPECT_EQ('n', units[0]);
  EXPECT_EQ(0, units[6]);
}

TEST(PUNIString, EmptyConversionNeverNull) {
  PUNIString empty;
  const unsigned short* units = empty;
  ASSERT_NE(nullptr, units);
  EXPECT_EQ(0, units[0]);
}

TEST(PUNIString, EditingAndSearching) {
  PUNIString text(kAbc, true);
  text.Insert(PString("xy"), 1);
  EXPECT_EQ(5u, text.Len());
  EXPECT_EQ(1u, text.FindForward("XY", 0, kStrCompIgnoreCase));
  EXPECT_EQ(4u, text.FindBackward(LONG('c'), 100, kStrCompExact));
  text.Delete(1, 2);
  EXPECT_EQ(0, text.CompareTo(PString("abc"), kStrCompExact));
  EXPECT_EQ(0, text.CompareTo(PUNIString(PString("ABC")), kStrCompIgnoreCase));
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
  EXPECT_EQ(0, GUNIGetCmpMethod(kStrCompIgnoreCase)(kLower, kUpper, 2));
  EXPECT_EQ(GUNIGetCmpMethod(kStrCompIgnoreCase), GUNIGetCmpMethod(kStrCompNoCase));
  EXPECT_EQ(GUNIGetCmpMethod(kStrCompExact), GUNIGetCmpMethod(kStrCompComposite));
  EXPECT_NE(GUNIGetCmpMethod(kStrCompExact), GUNIGetCmpMethod(kStrCompCollate));
}
