// Number and hexadecimal conversions, the locale bracket of floating-point
// text, and word lists.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>

#include "support/ErrorTestSupport.h"
#include "support/LocaleTestSupport.h"
#include "support/StringTestSupport.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <string>

namespace {

std::string Narrow(const PString& s) {
  PMBString mb(s);
  return std::string(static_cast<const char*>(mb));
}

// Makes a locale with a decimal comma the remembered one for one test, and
// puts the previous one back.
class ScopedCommaLocale {
public:
  ScopedCommaLocale()
      : m_saved(GRememberedLocaleName()), m_process(std::setlocale(LC_ALL, nullptr)) {
    const char* kNames[] = {"de_DE.UTF-8",         "de_DE.utf8", "de_DE", "fr_FR.UTF-8",
                            "German_Germany.1252", "German",     "deu"};
    for (const char* name : kNames) {
      if (GSetRememberedLocale(name) && std::localeconv()->decimal_point[0] == ',') {
        m_active = true;
        return;
      }
    }
    Restore();
  }
  ~ScopedCommaLocale() { Restore(); }
  bool active() const { return m_active; }

private:
  void Restore() {
    GSetRememberedLocale(m_saved.c_str());
    std::setlocale(LC_ALL, m_process.c_str());
  }
  std::string m_saved;
  std::string m_process;
  bool m_active = false;
};

} // namespace

// --- Boundaries --------------------------------------------------------------

TEST(PStringConversions, FloatToPStringUsesPointUnderCommaLocale) {
  ScopedCommaLocale comma;
  if (!comma.active())
    return qvbase::test::MissingSetUpLocale("decimal-comma de_DE.UTF-8");
  EXPECT_EQ(Narrow(FloatToPString(0.5, 3)), "0.5");
  // The remembered locale is back afterwards.
  EXPECT_EQ(std::localeconv()->decimal_point[0], ',');
}

TEST(PStringConversions, FloatFormatUsesSignAndLocaleSeparator) {
  ScopedCommaLocale comma;
  if (!comma.active())
    return qvbase::test::MissingSetUpLocale("decimal-comma de_DE.UTF-8");
  EXPECT_EQ(Narrow(FloatFormat(0.5, 3, true)), "+0,5");
}

TEST(PStringConversions, UInt8ToHexaIsUpperCase) { EXPECT_EQ(Narrow(UInt8ToHexa(171)), "AB"); }

TEST(PStringConversions, HexaToUInt8ReadsEitherCase) {
  EXPECT_EQ(HexaToUInt8(PASCIIString("ab")), 171);
  EXPECT_EQ(HexaToUInt8(PASCIIString("AB")), 171);
}

TEST(PStringConversions, HexaToUInt32ReadsMostSignificantFirst) {
  EXPECT_EQ(HexaToUInt32(PASCIIString("0000FFFF")), 65535u);
}

TEST(PStringConversions, AddToWordListOnEmptyListAddsNoSeparator) {
  PString list;
  AddToWordList(list, PString("red"), ',');
  EXPECT_EQ(Narrow(list), "red");
  AddToWordList(list, PString("green"), ',');
  EXPECT_EQ(Narrow(list), "red,green");
}

TEST(PStringConversions, WordMatchingCountsHitsAndLeavesCounterAtZero) {
  ULONG counter = 99;
  EXPECT_EQ(WordMatching(PString("red green blue"), PString("green pink"), kStrCompExact, &counter),
            1u);
  EXPECT_EQ(counter, 0u);
}

// --- Numbers ----------------------------------------------------------------

TEST(PStringConversions, IntegerResultsShareAnAsciiHandler) {
  PString text = UIntToPString(42);
  EXPECT_EQ(&gASCIIStringHandlerDec, text.HandlerType());
  EXPECT_EQ(Narrow(text), "42");
  EXPECT_EQ(Narrow(UIntToPString(0xFFFFFFFFu)), "4294967295");
  EXPECT_EQ(Narrow(SIntToPString(LONG(-2147483647 - 1))), "-2147483648");
  EXPECT_EQ(&gASCIIStringHandlerDec, UInt32ToHexa(1).HandlerType());
}

TEST(PStringConversions, FloatResultsAreMultibyte) {
  PString text = FloatToPString(1.25, 6);
  EXPECT_EQ(&gMBStringHandlerDec, text.HandlerType());
  EXPECT_EQ(Narrow(text), "1.25");
  EXPECT_EQ(Narrow(FloatToPString(3.14159, 3)), "3.14");
  EXPECT_EQ(Narrow(FloatFormat(-2.0, 6, false)), "-2");
  EXPECT_EQ(Narrow(FloatFormat(2.0, 6, true)), "+2");
}

TEST(PStringConversions, ReadsIntegersAndFloats) {
  const struct {
    const char* text;
    ULONG asUnsigned;
    LONG asSigned;
  } kRows[] = {
      {"42", 42, 42}, {"  7 apples", 7, 7},    {"", 0, 0},
      {"none", 0, 0}, {"-5", 0xFFFFFFFBu, -5}, {"-2147483648", 0x80000000u, LONG(-2147483647 - 1)}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(row.asUnsigned, PStringToUInt(PString(row.text)));
    EXPECT_EQ(row.asSigned, PStringToSInt(PString(row.text)));
  }
  // The largest unsigned value reads back exactly.
  EXPECT_EQ(PStringToUInt(PString("4294967295")), 0xFFFFFFFFu);
}

TEST(PStringConversions, OutOfRangeIntegersSaturateOnEveryTarget) {
  // As a 32-bit long reads them, whatever the width of long here.
  EXPECT_EQ(PStringToSInt(PString("4294967295")), 0x7FFFFFFF);
  EXPECT_EQ(PStringToSInt(PString("99999999999999999999")), 0x7FFFFFFF);
  EXPECT_EQ(-0x7FFFFFFF - 1, PStringToSInt(PString("-2147483649")));
  EXPECT_EQ(PStringToUInt(PString("4294967296")), 0xFFFFFFFFu);
  EXPECT_EQ(PStringToUInt(PString("-1")), 0xFFFFFFFFu);
  EXPECT_DOUBLE_EQ(0.25, PStringToFloat(PString("0.25")));
  EXPECT_DOUBLE_EQ(0.0, PStringToFloat(PString("x")));
}

TEST(PStringConversions, ReadingNonAsciiTextRaisesThenReadsEmpty) {
  PString text("7\xE9");
  PError raised = qvbase::test::Caught([&] { PStringToUInt(text); });
  EXPECT_EQ(raised.Code(), kErrStringCharOutOfRange);
  qvbase::test::ScopedErrorCapture ignore;
  EXPECT_EQ(PStringToUInt(text), 0u);
  EXPECT_EQ(PStringToSInt(text), 0);
  EXPECT_DOUBLE_EQ(0.0, PStringToFloat(text));
}

TEST(PStringConversions, FloatReadingUsesPointUnderCommaLocale) {
  ScopedCommaLocale comma;
  if (!comma.active())
    return qvbase::test::MissingSetUpLocale("decimal-comma de_DE.UTF-8");
  EXPECT_DOUBLE_EQ(0.5, PStringToFloat(PString("0.5")));
}

TEST(PStringConversions, RememberedLocaleIsTheProcessLocaleAtStartUp) {
  ASSERT_NE(nullptr, GRememberedLocaleName());
  EXPECT_NE('\0', GRememberedLocaleName()[0]);
}

// --- Hexadecimal --------------------------------------------------------------

TEST(PStringConversions, HexaWritersTable) {
  EXPECT_EQ(Narrow(UInt8ToHexa(0)), "00");
  EXPECT_EQ(Narrow(UInt8ToHexa(15)), "0F");
  EXPECT_EQ(Narrow(UInt16ToHexa(0xBEEF)), "BEEF");
  EXPECT_EQ(Narrow(UInt16ToHexa(1)), "0001");
  EXPECT_EQ(Narrow(UInt32ToHexa(0xDEADBEEFu)), "DEADBEEF");
  EXPECT_EQ(Narrow(UInt32ToHexa(0)), "00000000");
}

TEST(PStringConversions, HexaRoundTrips) {
  const ULONG kValues[] = {0, 1, 0x7F, 0x80, 0xFF, 0x1234, 0xFFFF, 0x10000, 0x89ABCDEF, 0xFFFFFFFF};
  for (ULONG value : kValues) {
    SCOPED_TRACE(value);
    EXPECT_EQ(value, HexaToUInt32(PASCIIString(UInt32ToHexa(value))));
    EXPECT_EQ(value & 0xFFFF, HexaToUInt16(PASCIIString(UInt16ToHexa(value & 0xFFFF))));
    EXPECT_EQ(value & 0xFF, HexaToUInt8(PASCIIString(UInt8ToHexa(value & 0xFF))));
  }
}

TEST(PStringConversions, HexaReadersIgnoreTextPastTheDigits) {
  EXPECT_EQ(HexaToUInt8(PASCIIString("12zz")), 0x12);
  EXPECT_EQ(HexaToUInt16(PASCIIString("1234567")), 0x1234);
}

TEST(PStringConversions, BadHexDigitRaisesWithLineOfItsPlace) {
  const struct {
    const char* text;
    unsigned line;
  } kRows[] = {{"G0", 68}, {"0G", 76}, {"", 68}, {"1", 76}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.text);
    PError raised = qvbase::test::Caught([&] { HexaToUInt8(PASCIIString(row.text)); });
    EXPECT_NE(raised.Code(), qvbase::test::kNothingThrown);
    EXPECT_EQ(raised.Code(), kErrStringBadHexDigit);
    EXPECT_EQ(raised.Severity(), ErrorSeverityError);
    EXPECT_STREQ(raised.File(), "src\\phexastrings");
    EXPECT_EQ(row.line, raised.Line());
  }
}

TEST(PStringConversions, BadHexDigitCountsAsZeroWhenSignalReturns) {
  qvbase::test::ScopedErrorCapture ignore;
  EXPECT_EQ(HexaToUInt8(PASCIIString("xF")), 0x0F);
  EXPECT_EQ(HexaToUInt8(PASCIIString("A")), 0xA0);
  EXPECT_EQ(HexaToUInt32(PASCIIString("12..34")), 0x12003400u);
  EXPECT_EQ(ignore.hook.calls, 6);
}

// --- Words --------------------------------------------------------------------

TEST(PStringConversions, GetNextWordTakesWordsOffTheFront) {
  PString source(",,red,,green,");
  PString word;
  ASSERT_TRUE(GetNextWord(source, &word, ','));
  EXPECT_EQ(Narrow(word), "red");
  EXPECT_EQ(Narrow(source), ",green,");
  ASSERT_TRUE(GetNextWord(source, &word, ','));
  EXPECT_EQ(Narrow(word), "green");
  EXPECT_FALSE(GetNextWord(source, &word, ','));
  EXPECT_TRUE(word.IsEmpty());
  EXPECT_TRUE(source.IsEmpty());
  PString last("solo");
  EXPECT_TRUE(GetNextWord(last, nullptr, ' '));
  EXPECT_TRUE(last.IsEmpty());
}

TEST(PStringConversions, WordMatchingFollowsTheMode) {
  EXPECT_EQ(WordMatching(PString("Red Green"), PString("red green"), kStrCompExact, nullptr), 0u);
  EXPECT_EQ(
      WordMatching(PString("Red Green"), PString("  red   green "), kStrCompIgnoreCase, nullptr),
      2u);
}
