// Number and hexadecimal conversions, the locale bracket of floating-point
// text, and word lists.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>

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
    GTEST_SKIP() << "no locale with a decimal comma on this system";
  EXPECT_EQ("0.5", Narrow(FloatToPString(0.5, 3)));
  // The remembered locale is back afterwards.
  EXPECT_EQ(',', std::localeconv()->decimal_point[0]);
}

TEST(PStringConversions, FloatFormatUsesSignAndLocaleSeparator) {
  ScopedCommaLocale comma;
  if (!comma.active())
    GTEST_SKIP() << "no locale with a decimal comma on this system";
  EXPECT_EQ("+0,5", Narrow(FloatFormat(0.5, 3, true)));
}

TEST(PStringConversions, UInt8ToHexaIsUpperCase) { EXPECT_EQ("AB", Narrow(UInt8ToHexa(171))); }

TEST(PStringConversions, HexaToUInt8ReadsEitherCase) {
  EXPECT_EQ(171, HexaToUInt8(PASCIIString("ab")));
  EXPECT_EQ(171, HexaToUInt8(PASCIIString("AB")));
}

TEST(PStringConversions, HexaToUInt32ReadsMostSignificantFirst) {
  EXPECT_EQ(65535u, HexaToUInt32(PASCIIString("0000FFFF")));
}

TEST(PStringConversions, AddToWordListOnEmptyListAddsNoSeparator) {
  PString list;
  AddToWordList(list, PString("red"), ',');
  EXPECT_EQ("red", Narrow(list));
  AddToWordList(list, PString("green"), ',');
  EXPECT_EQ("red,green", Narrow(list));
}

TEST(PStringConversions, WordMatchingCountsHitsAndLeavesCounterAtZero) {
  ULONG counter = 99;
  EXPECT_EQ(
      1u, WordMatching(PString("red green blue"), PString("green pink"), kStrCompExact, &counter));
  EXPECT_EQ(0u, counter);
}

// --- Numbers ----------------------------------------------------------------

TEST(PStringConversions, IntegerResultsShareAnAsciiHandler) {
  PString text = UIntToPString(42);
  EXPECT_EQ(&gASCIIStringHandlerDec, text.HandlerType());
  EXPECT_EQ("42", Narrow(text));
  EXPECT_EQ("4294967295", Narrow(UIntToPString(0xFFFFFFFFu)));
  EXPECT_EQ("-2147483648", Narrow(SIntToPString(LONG(-2147483647 - 1))));
  EXPECT_EQ(&gASCIIStringHandlerDec, UInt32ToHexa(1).HandlerType());
}

TEST(PStringConversions, FloatResultsAreMultibyte) {
  PString text = FloatToPString(1.25, 6);
  EXPECT_EQ(&gMBStringHandlerDec, text.HandlerType());
  EXPECT_EQ("1.25", Narrow(text));
  EXPECT_EQ("3.14", Narrow(FloatToPString(3.14159, 3)));
  EXPECT_EQ("-2", Narrow(FloatFormat(-2.0, 6, false)));
  EXPECT_EQ("+2", Narrow(FloatFormat(2.0, 6, true)));
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
  EXPECT_EQ(0xFFFFFFFFu, PStringToUInt(PString("4294967295")));
}

TEST(PStringConversions, OutOfRangeIntegersSaturateOnEveryTarget) {
  // As a 32-bit long reads them, whatever the width of long here.
  EXPECT_EQ(0x7FFFFFFF, PStringToSInt(PString("4294967295")));
  EXPECT_EQ(0x7FFFFFFF, PStringToSInt(PString("99999999999999999999")));
  EXPECT_EQ(-0x7FFFFFFF - 1, PStringToSInt(PString("-2147483649")));
  EXPECT_EQ(0xFFFFFFFFu, PStringToUInt(PString("4294967296")));
  EXPECT_EQ(0xFFFFFFFFu, PStringToUInt(PString("-1")));
  EXPECT_DOUBLE_EQ(0.25, PStringToFloat(PString("0.25")));
  EXPECT_DOUBLE_EQ(0.0, PStringToFloat(PString("x")));
}

TEST(PStringConversions, ReadingNonAsciiTextRaisesThenReadsEmpty) {
  PString text("7\xE9");
  qvtest::RaisedError raised = qvtest::CaptureError([&] { PStringToUInt(text); });
  EXPECT_EQ(kErrStringCharOutOfRange, raised.code);
  qvtest::ScopedIgnoreErrors ignore;
  EXPECT_EQ(0u, PStringToUInt(text));
  EXPECT_EQ(0, PStringToSInt(text));
  EXPECT_DOUBLE_EQ(0.0, PStringToFloat(text));
}

TEST(PStringConversions, FloatReadingUsesPointUnderCommaLocale) {
  ScopedCommaLocale comma;
  if (!comma.active())
    GTEST_SKIP() << "no locale with a decimal comma on this system";
  EXPECT_DOUBLE_EQ(0.5, PStringToFloat(PString("0.5")));
}

TEST(PStringConversions, RememberedLocaleIsTheProcessLocaleAtStartUp) {
  ASSERT_NE(nullptr, GRememberedLocaleName());
  EXPECT_NE('\0', GRememberedLocaleName()[0]);
}

// --- Hexadecimal --------------------------------------------------------------

TEST(PStringConversions, HexaWritersTable) {
  EXPECT_EQ("00", Narrow(UInt8ToHexa(0)));
  EXPECT_EQ("0F", Narrow(UInt8ToHexa(15)));
  EXPECT_EQ("BEEF", Narrow(UInt16ToHexa(0xBEEF)));
  EXPECT_EQ("0001", Narrow(UInt16ToHexa(1)));
  EXPECT_EQ("DEADBEEF", Narrow(UInt32ToHexa(0xDEADBEEFu)));
  EXPECT_EQ("00000000", Narrow(UInt32ToHexa(0)));
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
  EXPECT_EQ(0x12, HexaToUInt8(PASCIIString("12zz")));
  EXPECT_EQ(0x1234, HexaToUInt16(PASCIIString("1234567")));
}

TEST(PStringConversions, BadHexDigitRaisesWithLineOfItsPlace) {
  const struct {
    const char* text;
    unsigned line;
  } kRows[] = {{"G0", 68}, {"0G", 76}, {"", 68}, {"1", 76}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.text);
    qvtest::RaisedError raised = qvtest::CaptureError([&] { HexaToUInt8(PASCIIString(row.text)); });
    EXPECT_TRUE(raised.thrown);
    EXPECT_EQ(kErrStringBadHexDigit, raised.code);
    EXPECT_EQ(ErrorSeverityError, raised.severity);
    EXPECT_EQ("src\\phexastrings", raised.file);
    EXPECT_EQ(row.line, raised.line);
  }
}

TEST(PStringConversions, BadHexDigitCountsAsZeroWhenSignalReturns) {
  qvtest::ScopedIgnoreErrors ignore;
  EXPECT_EQ(0x0F, HexaToUInt8(PASCIIString("xF")));
  EXPECT_EQ(0xA0, HexaToUInt8(PASCIIString("A")));
  EXPECT_EQ(0x12003400u, HexaToUInt32(PASCIIString("12..34")));
  EXPECT_EQ(6, ignore.hook.calls);
}

// --- Words --------------------------------------------------------------------

TEST(PStringConversions, GetNextWordTakesWordsOffTheFront) {
  PString source(",,red,,green,");
  PString word;
  ASSERT_TRUE(GetNextWord(source, &word, ','));
  EXPECT_EQ("red", Narrow(word));
  EXPECT_EQ(",green,", Narrow(source));
  ASSERT_TRUE(GetNextWord(source, &word, ','));
  EXPECT_EQ("green", Narrow(word));
  EXPECT_FALSE(GetNextWord(source, &word, ','));
  EXPECT_TRUE(word.IsEmpty());
  EXPECT_TRUE(source.IsEmpty());
  PString last("solo");
  EXPECT_TRUE(GetNextWord(last, nullptr, ' '));
  EXPECT_TRUE(last.IsEmpty());
}

TEST(PStringConversions, WordMatchingFollowsTheMode) {
  EXPECT_EQ(0u, WordMatching(PString("Red Green"), PString("red green"), kStrCompExact, nullptr));
  EXPECT_EQ(2u, WordMatching(PString("Red Green"), PString("  red   green "), kStrCompIgnoreCase,
                             nullptr));
}
