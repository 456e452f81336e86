// Durations: construction, validity, arithmetic and formatting.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PTime.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

constexpr __int64 kSecond = 10000000;

std::string Formatted(const PTime& time, const char* pattern) {
  PMBString text = time.Format(PMBString(pattern, true));
  return static_cast<const char*>(text);
}

TEST(PTime, SecondsAndNanosecondsTruncateToTicks) {
  EXPECT_EQ(PTime(1, 999).GetValue(), 10000009);
  EXPECT_EQ(PTime(0, 99).GetValue(), 0);
  EXPECT_EQ(PTime(-2, 500).GetValue(), -2 * kSecond + 5);
}

TEST(PTime, DefaultIsInvalidYetTrueAndZeroIsValidYetFalse) {
  PTime unset;
  EXPECT_FALSE(unset.IsValid());
  EXPECT_TRUE(static_cast<bool>(unset));
  EXPECT_FALSE(!unset);
  EXPECT_EQ(unset.GetValue(), INT64_MIN);
  PTime zero(0);
  EXPECT_TRUE(zero.IsValid());
  EXPECT_FALSE(static_cast<bool>(zero));
  EXPECT_TRUE(!zero);
}

TEST(PTime, ElementsOfOneHourTwoMinutesFiveSeconds) {
  const PTime time(3725, 0);
  EXPECT_EQ(Formatted(time, "^HH^"), "01");
  EXPECT_EQ(Formatted(time, "^m^"), "2");
  EXPECT_EQ(Formatted(time, "^ss^"), "05");
  EXPECT_EQ(Formatted(time, "^TM^"), "62");
}

TEST(PTime, DivisionAndRemainderOfDurationsTruncateTowardZero) {
  EXPECT_EQ(PTime(-7) / PTime(2), -3);
  EXPECT_EQ(PTime(-7) % PTime(2), -1);
}

TEST(PTime, IsNearWithNegativeToleranceActsAsItsAbsoluteValue) {
  const PTime a(100), b(103);
  EXPECT_TRUE(a.IsNear(b, PTime(-3)));
  EXPECT_TRUE(b.IsNear(a, PTime(-3)));
  EXPECT_FALSE(a.IsNear(b, PTime(-2)));
  EXPECT_EQ(a.IsNear(b, PTime(3)), a.IsNear(b, PTime(-3)));
}

TEST(PTime, MultiplyingTenTicksByFifteenHundredthsGivesOne) {
  EXPECT_EQ((PTime(10) * 0.15).GetValue(), 1);
  PTime t(10);
  t *= 0.15;
  EXPECT_EQ(t.GetValue(), 1);
}

TEST(PTime, DoubleProductsAndQuotientsTruncateTowardZero) {
  EXPECT_EQ((PTime(-10) * 0.15).GetValue(), -1);
  EXPECT_EQ((PTime(10) / 4.0).GetValue(), 2);
  EXPECT_EQ((PTime(-10) / 4.0).GetValue(), -2);
  PTime t(7);
  t /= 2.0;
  EXPECT_EQ(t.GetValue(), 3);
}

TEST(PTime, IntegerProductsAndQuotients) {
  EXPECT_EQ((PTime(6) * static_cast<__int64>(7)).GetValue(), 42);
  EXPECT_EQ((PTime(6) * 7).GetValue(), 42);
  EXPECT_EQ((PTime(-7) / 2).GetValue(), -3);
  PTime t(9);
  t *= 3;
  t /= static_cast<__int64>(4);
  EXPECT_EQ(t.GetValue(), 6);
}

TEST(PTime, SumsDifferencesAndNegation) {
  PTime t(5);
  t += PTime(10);
  EXPECT_EQ(t.GetValue(), 15);
  t -= PTime(20);
  EXPECT_EQ(t.GetValue(), -5);
  EXPECT_EQ((-t).GetValue(), 5);
  EXPECT_EQ((PTime(3) + PTime(4)).GetValue(), 7);
  EXPECT_EQ((PTime(3) - PTime(4)).GetValue(), -1);
}

TEST(PTime, ArithmeticIgnoresTheUnsetValueAndWraps) {
  const PTime unset;
  EXPECT_EQ((unset + PTime(1)).GetValue(), INT64_MIN + 1);
  EXPECT_EQ((unset - PTime(1)).GetValue(), INT64_MAX);
  EXPECT_EQ((-unset).GetValue(), INT64_MIN);
}

TEST(PTime, ComparisonsAreSignedAndUnsetIsSmallest) {
  const PTime unset, negative(-1), zero(0), one(1);
  EXPECT_TRUE(unset < negative);
  EXPECT_TRUE(negative < zero);
  EXPECT_TRUE(zero <= zero);
  EXPECT_TRUE(one > zero);
  EXPECT_TRUE(one >= one);
  EXPECT_TRUE(one != zero);
  EXPECT_TRUE(PTime(1, 0) == PTime(kSecond));
}

TEST(PTime, CopyAssignmentAndSetValue) {
  PTime a(12);
  PTime b(a);
  PTime c;
  c = b;
  EXPECT_EQ(c.GetValue(), 12);
  c.SetValue(99);
  EXPECT_EQ(c.GetValue(), 99);
  EXPECT_EQ(a.GetValue(), 12);
}

TEST(PTime, EveryTimeSpanPlaceholder) {
  // 2 days, 3 h 4 min 5 s, and 6 ticks that whole seconds drop.
  const PTime time((2 * 86400 + 3 * 3600 + 4 * 60 + 5) * kSecond + 6);
  const struct {
    const char* pattern;
    const char* expected;
  } rows[] = {
      {"^H^", "3"},   {"^HH^", "03"}, {"^m^", "4"},   {"^mm^", "04"},   {"^s^", "5"},
      {"^ss^", "05"}, {"^TD^", "2"},  {"^TH^", "51"}, {"^TM^", "3064"}, {"^TS^", "183845"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pattern);
    EXPECT_EQ(Formatted(time, row.pattern), row.expected);
  }
}

TEST(PTime, TwoDigitFieldsKeepLargerValuesWhole) {
  const PTime time((23 * 3600 + 59 * 60 + 58) * kSecond);
  EXPECT_EQ(Formatted(time, "^HH^:^mm^:^ss^"), "23:59:58");
  EXPECT_EQ(Formatted(PTime(0), "^HH^:^mm^:^ss^ ^TD^"), "00:00:00 0");
}

TEST(PTime, PlaceholdersOfOtherClassesStayInTheText) {
  const PTime time(3725, 0);
  EXPECT_EQ(Formatted(time, "^yyyy^-^MM^-^dd^ ^H^"), "^yyyy^-^MM^-^dd^ 1");
  EXPECT_EQ(Formatted(time, "^MMMM^ ^tt^ ^x^ ^TDD^ ^T^ ^^"), "^MMMM^ ^tt^ ^x^ ^TDD^ ^T^ ^^");
  EXPECT_EQ(Formatted(time, "no placeholders"), "no placeholders");
}

TEST(PTime, TwoLetterTNamesBeyondTheFourTotalsBecomeEmpty) {
  // Every two-character name starting with T is a time-span field; only TD,
  // TH, TM and TS have a value, the others are replaced by nothing.
  const PTime time(3725, 0);
  EXPECT_EQ(Formatted(time, "[^TX^][^Td^][^T0^][^TM^]"), "[][][][62]");
}

TEST(PTime, ScanResumesAfterASkippedPlaceholder) {
  // The caret that closes a skipped name must not open the next one.
  EXPECT_EQ(Formatted(PTime(61, 0), "^q^m^s^"), "^q^m1");
  EXPECT_EQ(Formatted(PTime(61, 0), "^m^^s^"), "11");
}

PError FormatError(const PTime& time) {
  return qvbase::test::Caught([&] { time.Format(PMBString("^H^", true)); });
}

TEST(PTime, FormattingANegativeTimeRaisesFatal1200) {
  PError error = FormatError(PTime(-1));
  EXPECT_EQ(error.Code(), kErrDateBreakdown);
  EXPECT_EQ(error.Severity(), ErrorSeverityFatal);
  EXPECT_STREQ(error.File(), "src\\PDate");
  EXPECT_GT(error.Line(), 0u);
  EXPECT_EQ(FormatError(PTime()).Code(), kErrDateBreakdown);
  EXPECT_EQ(FormatError(PTime(0)).Code(), qvbase::test::kNothingThrown);
}

TEST(PTime, IgnoredFormatErrorStillFillsThePattern) {
  qvbase::test::ScopedErrorCapture ignore;
  const PTime time(-3725, 0);
  EXPECT_EQ(Formatted(time, "^TM^"), "-62");
  EXPECT_EQ(ignore.hook.calls, 1);
  EXPECT_EQ(ignore.hook.lastCode, kErrDateBreakdown);
}

} // namespace

namespace {

TEST(PTime, DivisionByMinusOneWrapsInsteadOfTrapping) {
  PTime unset; // the most negative value
  PTime divided = unset / static_cast<__int64>(-1);
  EXPECT_EQ(divided.GetValue(), unset.GetValue());
  EXPECT_EQ(PTime(static_cast<__int64>(10)) / static_cast<__int64>(-1),
            PTime(static_cast<__int64>(-10)));
  EXPECT_EQ(unset % PTime(static_cast<__int64>(-1)), 0);
  EXPECT_EQ(PTime(static_cast<__int64>(7)) / PTime(static_cast<__int64>(-1)), -7);
}

TEST(PTime, FloatingFactorsOutOfRangeSaturate) {
  PTime big(static_cast<__int64>(0x4000000000000000LL));
  EXPECT_EQ((big * 4.0).GetValue(), 0x7FFFFFFFFFFFFFFFLL);
  EXPECT_EQ((big * -4.0).GetValue(), -0x7FFFFFFFFFFFFFFFLL - 1);
  EXPECT_EQ((big / 0.0).GetValue(), 0x7FFFFFFFFFFFFFFFLL);
  EXPECT_EQ((PTime(static_cast<__int64>(0)) / 0.0).GetValue(), 0); // 0/0 is not a number
}

} // namespace
