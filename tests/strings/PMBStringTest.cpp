// The multibyte handler: its length as measured from text, the 7-bit flag,
// the two character packings, editing and the 7-bit-only InsertChar.
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "strings/PStringHandlerImpl.h"
#include "support/ErrorTestSupport.h"
#include "support/LocaleTestSupport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class InspectedMB : public PMBString {
public:
  using PMBString::PMBString;
  using PMBString::operator=;
  const PMBStringHandler* Held() const { return static_cast<const PMBStringHandler*>(Handler()); }
};

} // namespace

// --- Boundaries --------------------------------------------------------------

TEST(PMBString, TextWithOneDoubleByteCharacterReportsMultibyteAndByteCount) {
  qvbase::test::ScopedDoubleByteLocale locale;
  if (!locale.active())
    return qvbase::test::MissingSetUpLocale("double-byte (UTF-8)");
  PStringHandler* handler = gMBStringHandlerDec.fromText(locale.doubleByte(), true);
  EXPECT_EQ(handler->GetCodeSet(), kCodeSetMultiByte);
  EXPECT_EQ(handler->GetLen(), 2u);
  EXPECT_EQ(handler->GetSize(), 2u);
  delete handler;
}

TEST(PMBString, SevenBitTextReportsAscii) {
  PStringHandler* handler = GMBStringHandlerConstructor1("plain", true);
  EXPECT_EQ(handler->GetCodeSet(), kCodeSetASCII);
  delete handler;
}

TEST(PMBString, EmptyOwnedHandlerFullSizeIsTwo) {
  PMBStringHandler handler("", 0, 0, /*copy=*/true);
  EXPECT_EQ(handler.GetFullSize(), 2u);
  EXPECT_EQ(handler.Capacity(), 8u);
}

TEST(PMBString, BorrowedHandlerIsDuplicatedOnFirstChange) {
  char caller[] = "borrowed";
  PMBStringHandler handler(caller, 0, 8, /*copy=*/false);
  EXPECT_FALSE(handler.CanBeModified());
  InspectedMB text(caller, /*copy=*/false);
  EXPECT_EQ(static_cast<const void*>(caller), text.Held()->GetContent());
  text.SetChar(0, 'B');
  EXPECT_NE(static_cast<const void*>(caller), text.Held()->GetContent());
  EXPECT_STREQ("Borrowed", static_cast<const char*>(text));
  EXPECT_STREQ("borrowed", caller);
}

TEST(PMBString, CharLenOfSevenBitByteAndOfPacked128) {
  LONG packed = 0;
  EXPECT_EQ(GMBCharLen("\x7F", &packed), 1);
  EXPECT_EQ(packed, 127);
  EXPECT_EQ(GMBCharLen(LONG(128), nullptr), 2);
}

// --- Packings ---------------------------------------------------------------

TEST(PMBString, PackedCharacterLengthsByRange) {
  const struct {
    LONG ch;
    int length;
  } kRows[] = {{0, 1},          {127, 1},
               {-128, 1},       {128, 2},
               {-129, 2},       {32767, 2},
               {-32768, 2},     {32768, 3},
               {8388607, 3},    {-8388608, 3},
               {8388608, 4},    {-8388609, 4},
               {0x7FFFFFFF, 4}, {LONG(0x80000000u), 4}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.ch);
    char out[4] = {0};
    EXPECT_EQ(row.length, GMBCharLen(row.ch, out));
    EXPECT_EQ(row.length, GMBCharLen(row.ch, nullptr));
  }
}

TEST(PMBString, PackedCharacterBytes) {
  const struct {
    LONG ch;
    unsigned char bytes[4];
  } kRows[] = {
      {65, {0x41}},
      {-1, {0xFF}},
      {-87, {0xA9}},
      {128, {0x00, 0x01}},
      {300, {300 & 127, 300 >> 7}},
      // Low byte 0xD4, negated 0x2C, masked 0x2C, negated 0xD4; then 300 >> 7.
      {-300, {0xD4, 0x02}},
      {40000, {40000 & 127, (40000 >> 7) & 0xFF, 40000 >> 15}},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.ch);
    char out[4] = {0};
    int n = GMBCharLen(row.ch, out);
    for (int i = 0; i < n; ++i)
      EXPECT_EQ(row.bytes[i], static_cast<unsigned char>(out[i])) << "byte " << i;
  }
}

TEST(PMBString, PackingFromTextUsesItsOwnArithmetic) {
  qvbase::test::ScopedLocale utf8("C.UTF-8");
  if (!utf8.active() || GMBCharLen("\xC3\xA9", nullptr) != 2)
    return qvbase::test::MissingSetUpLocale("UTF-8");
  LONG packed = 0;
  // b0 = -61, b1 = -87: b0 - b1 * 128.
  EXPECT_EQ(GMBCharLen("\xC3\xA9", &packed), 2);
  EXPECT_EQ(-61 - (-87) * 128, packed);
  // Three bytes E2 82 AC: b0 - b2 * 32768 - b1 * 128.
  EXPECT_EQ(GMBCharLen("\xE2\x82\xAC", &packed), 3);
  EXPECT_EQ(-30 - (-84) * 32768 - (-126) * 128, packed);
  // Four bytes F0 9F 98 80: the third byte twice, the fourth not at all.
  EXPECT_EQ(GMBCharLen("\xF0\x9F\x98\x80", &packed), 4);
  EXPECT_EQ(-16 - (-97) * 128 - (-104) * 8388608 - (-104) * 32768, packed);
}

TEST(PMBString, GetCharFoldsBytesFirstToLast) {
  qvbase::test::ScopedLocale utf8("C.UTF-8");
  if (!utf8.active() || GMBCharLen("\xC3\xA9", nullptr) != 2)
    return qvbase::test::MissingSetUpLocale("UTF-8");
  PMBStringHandler handler("a\xC3\xA9z", 0, 3, true);
  EXPECT_EQ(handler.GetLen(), 3u);
  EXPECT_EQ(handler.GetSize(), 4u);
  EXPECT_EQ(LONG('a'), handler.GetChar(0));
  EXPECT_EQ(-61 * 256 + -87, handler.GetChar(1));
  EXPECT_EQ(LONG('z'), handler.GetChar(2));
  EXPECT_EQ(handler.GetChar(3), 0);
}

// --- Editing ----------------------------------------------------------------

TEST(PMBString, InsertCharAcceptsSevenBitOnly) {
  PMBStringHandler handler("ac", 0, 2, true);
  handler.InsertChar('b', 1);
  EXPECT_STREQ("abc", static_cast<const char*>(handler.GetContent()));
  PError raised = qvbase::test::Caught([&] { handler.InsertChar(128, 0); });
  EXPECT_NE(raised.Code(), qvbase::test::kNothingThrown);
  EXPECT_EQ(raised.Code(), kErrStringCharOutOfRange);
  EXPECT_EQ(raised.Severity(), ErrorSeverityError);
  EXPECT_STREQ(raised.File(), "src\\PMBString");
  EXPECT_EQ(raised.Line(), 439u);
  qvbase::test::ScopedErrorCapture ignore;
  handler.InsertChar(-3, 0);
  EXPECT_EQ(ignore.hook.calls, 1);
  EXPECT_STREQ("abc", static_cast<const char*>(handler.GetContent()));
}

TEST(PMBString, InsertCharAlwaysReallocates) {
  PMBStringHandler handler("ab", 0, 2, true);
  ASSERT_EQ(handler.Capacity(), 8u);
  const void* before = handler.GetContent();
  handler.InsertChar('c', 2);
  EXPECT_NE(before, handler.GetContent());
  EXPECT_EQ(handler.Capacity(), 8u);
  EXPECT_EQ(handler.GetLen(), 3u);
  EXPECT_EQ(handler.GetSize(), 3u);
}

TEST(PMBString, CapacityKeepsTwoBytesOfHeadroom) {
  const struct {
    ULONG length;
    ULONG capacity;
  } kRows[] = {{0, 8}, {5, 8}, {6, 8}, {7, 16}, {14, 16}, {15, 24}};
  const char kText[] = "0123456789abcdefghij";
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.length);
    PMBStringHandler handler(kText, 0, row.length, true);
    EXPECT_EQ(row.capacity, handler.Capacity());
  }
}

TEST(PMBString, EditingKeepsSevenBitFlagCurrent) {
  qvbase::test::ScopedLocale utf8("C.UTF-8");
  if (!utf8.active() || GMBCharLen("\xC3\xA9", nullptr) != 2)
    return qvbase::test::MissingSetUpLocale("UTF-8");
  PMBString text("abc", true);
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  text.Insert(PMBString("\xC3\xA9", true), 1);
  EXPECT_EQ(text.CodeSet(), kCodeSetMultiByte);
  EXPECT_STREQ("a\xC3\xA9"
               "bc",
               static_cast<const char*>(text));
  // The inserted text's length counts bytes, as measured from text.
  EXPECT_EQ(text.Len(), 5u);
  // Deleting the character removes its two bytes but one from the length,
  // so size and length differ and the flag stays clear.
  text.Delete(1, 1);
  EXPECT_STREQ("abc", static_cast<const char*>(text));
  EXPECT_EQ(text.Len(), 4u);
  EXPECT_EQ(text.CodeSet(), kCodeSetMultiByte);
  PMBString fresh("abc", true);
  fresh.SetChar(1, 'B');
  EXPECT_EQ(fresh.CodeSet(), kCodeSetASCII);
}

TEST(PMBString, PositionsCountCharacters) {
  qvbase::test::ScopedLocale utf8("C.UTF-8");
  if (!utf8.active() || GMBCharLen("\xC3\xA9", nullptr) != 2)
    return qvbase::test::MissingSetUpLocale("UTF-8");
  PMBStringHandler handler("\xC3\xA9x\xC3\xA9y", 0, 4, true);
  EXPECT_EQ(handler.FindCharFwd('x', 0, kStrCompExact), 1u);
  EXPECT_EQ(handler.FindCharBwd('y', 3, kStrCompExact), 3u);
  PStringHandler* slice = handler.GetSubHandler(1, 2);
  EXPECT_STREQ("x\xC3\xA9", static_cast<const char*>(slice->GetContent()));
  EXPECT_EQ(slice->GetLen(), 2u);
  delete slice;
  handler.DeletePart(0, 1);
  EXPECT_STREQ("x\xC3\xA9y", static_cast<const char*>(handler.GetContent()));
  handler.SetChar(1, 'e');
  EXPECT_STREQ("xey", static_cast<const char*>(handler.GetContent()));
}

TEST(PMBString, FromCharMakesOneOwnedCharacter) {
  PStringHandler* handler = GMBStringHandlerConstructor3('q');
  EXPECT_TRUE(handler->CanBeModified());
  EXPECT_STREQ("q", static_cast<const char*>(handler->GetContent()));
  EXPECT_EQ(handler->GetLen(), 1u);
  delete handler;
}

TEST(PMBString, ConvertsUnicodeContent) {
  const unsigned short kWide[] = {'w', 'i', 'd', 'e', 0};
  PMBString text{PString(kWide, true)};
  EXPECT_EQ(&gMBStringHandlerDec, text.HandlerType());
  EXPECT_STREQ("wide", static_cast<const char*>(text));
}

TEST(PMBString, CompareMethodsByMode) {
  qvbase::test::ScopedLocale c("C");
  EXPECT_NE(0, GMBGetCmpMethod(kStrCompExact)("abc", "ABC", 3));
  EXPECT_EQ(GMBGetCmpMethod(kStrCompIgnoreCase)("abc", "ABC", 3), 0);
  EXPECT_EQ(GMBGetCmpMethod(kStrCompNoCase)("abc", "ABC", 3), 0);
  EXPECT_GT(GMBGetCmpMethod(kStrCompCollate)("b", "a", 1), 0);
  EXPECT_EQ(GMBGetCmpMethod(kStrCompIgnoreCase), GMBGetCmpMethod(kStrCompNoCase));
  EXPECT_EQ(GMBGetCmpMethod(kStrCompExact), GMBGetCmpMethod(TypStringComp(7)));
}

TEST(PMBString, ConversionOperatorNeverNull) {
  PMBString empty;
  EXPECT_EQ(gVoidCharString, static_cast<const char*>(empty));
  PMBString text("ab");
  EXPECT_EQ(LONG('b'), text[1]);
  EXPECT_EQ(text[5], 0);
}
