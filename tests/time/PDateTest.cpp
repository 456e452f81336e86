// Universal and local dates: values, arithmetic, day split, calendar fields,
// leap years, breakdown errors and formatting.
#include <qvbase/PDate.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>

#include "support/ErrorTestSupport.h"
#include "support/LocaleTestSupport.h"
#include "support/TimeTestSupport.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <string>

namespace {

constexpr __int64 kSecond = 10000000;
constexpr __int64 kHour = 3600 * kSecond;
constexpr __int64 kDay = 24 * kHour;

// 2024-03-14 13:05:09, a Thursday, as a local reading.
const PLocalDate kPiDay(PTime((19796 * 86400LL + 13 * 3600 + 5 * 60 + 9) * kSecond));

std::string Formatted(const PLocalDate& date, const char* pattern) {
  PMBString text = date.Format(PMBString(pattern, true));
  return static_cast<const char*>(text);
}

// A local date whose year is whatever the test says, for the leap-year rule
// outside the breakdown's range.
class FixedYearDate : public PLocalDate {
public:
  explicit FixedYearDate(unsigned short year) : m_year(year) {}
  unsigned short Year() const override { return m_year; }

private:
  unsigned short m_year;
};

// Counts PTimeChanged calls.
class ObservedUTDate : public PUTDate {
public:
  int changes = 0;

protected:
  void PTimeChanged() override { ++changes; }
};

PError BreakdownError(const PLocalDate& date) {
  return qvbase::test::Caught([&] { date.Year(); });
}

TEST(PUTDate, ZeroIsTheEpoch) {
  const PUTDate date(0);
  EXPECT_TRUE(date.IsValid());
  EXPECT_EQ(date.GetValue().GetValue(), 0);
  const PLocalDate local(0);
  EXPECT_EQ(local.Year(), 1970);
  EXPECT_EQ(local.Month(), 1);
  EXPECT_EQ(local.Day(), 1);
  EXPECT_EQ(local.Hours(), 0);
  EXPECT_EQ(local.Minutes(), 0);
  EXPECT_EQ(local.Seconds(), 0);
  EXPECT_EQ(local.DayInWeek(), 4);
}

TEST(PLocalDate, IsBissexForTwoThousandAndNinetySix) {
  EXPECT_TRUE(FixedYearDate(2000).IsBissex());
  EXPECT_TRUE(FixedYearDate(1996).IsBissex());
}

TEST(PLocalDate, IsBissexFalseForNineteenHundredTwentyOneHundredAndTwentyFourHundred) {
  EXPECT_FALSE(FixedYearDate(1900).IsBissex());
  EXPECT_FALSE(FixedYearDate(2100).IsBissex());
  EXPECT_FALSE(FixedYearDate(2400).IsBissex());
}

TEST(PLocalDate, IsBissexTakesMultiplesOfOneThousandNotFourHundred) {
  // Deliberate: the year 1000 is a leap year here and 1600 is not.
  EXPECT_TRUE(FixedYearDate(1000).IsBissex());
  EXPECT_TRUE(FixedYearDate(3000).IsBissex());
  EXPECT_FALSE(FixedYearDate(1600).IsBissex());
  EXPECT_TRUE(FixedYearDate(2024).IsBissex());
  EXPECT_FALSE(FixedYearDate(2023).IsBissex());
  EXPECT_FALSE(FixedYearDate(2022).IsBissex());
}

TEST(PLocalDate, IsBissexReadsTheBrokenDownYear) {
  EXPECT_TRUE(kPiDay.IsBissex());
  EXPECT_FALSE(PLocalDate(0).IsBissex());
}

TEST(PUTDate, DayTimeOfSixInTheMorningIsSixHours) {
  const PUTDate date(PTime(kDay + 6 * kHour));
  EXPECT_EQ(date.DayTime().GetValue(), 216000000000LL);
  const PLocalDate local(PTime(kDay + 6 * kHour));
  EXPECT_EQ(local.DayTime().GetValue(), 216000000000LL);
}

TEST(PUTDate, SameDayWithOneHourIsOneInTheMorningOfThatDay) {
  const PUTDate date(PTime(kDay + 6 * kHour));
  EXPECT_EQ(date.SameDay(PTime(kHour)).GetValue().GetValue(), kDay + kHour);
  const PLocalDate local(PTime(kDay + 6 * kHour));
  const PLocalDate same = local.SameDay(PTime(kHour));
  EXPECT_EQ(same.Day(), 2);
  EXPECT_EQ(same.Hours(), 1);
}

TEST(PUTDate, DayTimeBeforeTheEpochTruncatesTowardZero) {
  const PUTDate date(PTime(-kDay - 6 * kHour));
  EXPECT_EQ(date.DayTime().GetValue(), -6 * kHour);
  EXPECT_EQ(date.SameDay(PTime(kHour)).GetValue().GetValue(), -kDay + kHour);
}

TEST(PUTDate, SecondsConstructorAndDefault) {
  EXPECT_EQ(PUTDate(86400).GetValue().GetValue(), kDay);
  EXPECT_EQ(PUTDate(-1).GetValue().GetValue(), -kSecond);
  EXPECT_FALSE(PUTDate().IsValid());
  EXPECT_FALSE(PLocalDate().IsValid());
}

TEST(PUTDate, ArithmeticAndComparisons) {
  PUTDate date(100);
  const PUTDate later = date + PTime(5 * kSecond);
  EXPECT_EQ((later - date).GetValue(), 5 * kSecond);
  EXPECT_EQ((later - PTime(5 * kSecond)), date);
  EXPECT_TRUE(date < later);
  EXPECT_TRUE(later >= date);
  EXPECT_TRUE(date != later);
  date += PTime(5 * kSecond);
  EXPECT_TRUE(date == later);
  date -= PTime(kSecond);
  EXPECT_TRUE(date.IsNear(later, PTime(-kSecond)));
  EXPECT_FALSE(date.IsNear(later, PTime(kSecond - 1)));
}

TEST(PUTDate, ChangesOfTheValueNotifyTheDerivedClass) {
  ObservedUTDate date;
  date.SetValue(PTime(1));
  date += PTime(1);
  date -= PTime(1);
  EXPECT_EQ(date.changes, 3);
  const PUTDate sum = date + PTime(1); // a new date; this one is unchanged
  EXPECT_EQ(date.changes, 3);
  EXPECT_EQ(sum.GetValue().GetValue(), 2);
}

TEST(PLocalDate, FieldsOfAKnownDate) {
  EXPECT_EQ(kPiDay.Year(), 2024);
  EXPECT_EQ(kPiDay.Month(), 3);
  EXPECT_EQ(kPiDay.Day(), 14);
  EXPECT_EQ(kPiDay.DayInWeek(), 4);
  EXPECT_EQ(kPiDay.Hours(), 13);
  EXPECT_EQ(kPiDay.Minutes(), 5);
  EXPECT_EQ(kPiDay.Seconds(), 9);
  EXPECT_EQ(kPiDay.DayInYear(), 31 + 29 + 14);
}

TEST(PLocalDate, LocalFieldsDoNotDependOnTheZone) {
  // The local reading is broken down as universal time: no zone enters.
  qvbase::test::ScopedTimeZone zone(qvbase::test::kCentralEurope);
  EXPECT_EQ(kPiDay.Hours(), 13);
  EXPECT_EQ(PLocalDate(0).Hours(), 0);
}

TEST(PLocalDate, DayInYearCountsFromOneWithTheCalendarsLeapDays) {
  EXPECT_EQ(PLocalDate(0).DayInYear(), 1);
  const PLocalDate lastOf2024(PTime((20088 * 86400LL) * kSecond)); // 2024-12-31
  EXPECT_EQ(lastOf2024.Month(), 12);
  EXPECT_EQ(lastOf2024.Day(), 31);
  EXPECT_EQ(lastOf2024.DayInYear(), 366);
  const PLocalDate lastOf2100(PTime((47846 * 86400LL) * kSecond)); // 2100-12-31
  EXPECT_EQ(lastOf2100.Year(), 2100);
  EXPECT_EQ(lastOf2100.DayInYear(), 365);
}

TEST(PLocalDate, WeekCountsFromTheFirstChosenDayOfTheYear) {
  // 1970-01-01 was a Thursday: week 0 for weeks from Sunday or Monday, week 1
  // for weeks that start on Thursday.
  const PLocalDate newYear(0);
  EXPECT_EQ(newYear.Week(0), 0);
  EXPECT_EQ(newYear.Week(1), 0);
  EXPECT_EQ(newYear.Week(4), 1);
  EXPECT_EQ(newYear.Week(11), 1); // taken modulo 7
  const PLocalDate firstSunday(PTime(3 * kDay));
  EXPECT_EQ(firstSunday.Week(0), 1);
  EXPECT_EQ(firstSunday.Week(1), 0);
  // 2024-03-14, a Thursday; 2024 began on a Monday: %U gives 10, %W 11.
  EXPECT_EQ(kPiDay.Week(0), 10);
  EXPECT_EQ(kPiDay.Week(1), 11);
}

TEST(PLocalDate, BreakdownCoversUpToTheEndOfYearThreeThousand) {
  const PLocalDate last(PTime(32535215999LL * kSecond));
  EXPECT_EQ(last.Year(), 3000);
  EXPECT_EQ(last.Month(), 12);
  EXPECT_EQ(last.Day(), 31);
  EXPECT_EQ(last.Seconds(), 59);
  EXPECT_EQ(BreakdownError(PLocalDate(PTime(32535216000LL * kSecond))).Code(), kErrDateBreakdown);
}

TEST(PLocalDate, BreakdownBeforeTheEpochRaisesFatal1200) {
  const PError error = BreakdownError(PLocalDate(-1));
  EXPECT_EQ(error.Code(), kErrDateBreakdown);
  EXPECT_EQ(error.Severity(), ErrorSeverityFatal);
  EXPECT_STREQ(error.File(), "src\\PDate");
  EXPECT_GT(error.Line(), 0u);
  EXPECT_EQ(BreakdownError(PLocalDate()).Code(), kErrDateBreakdown);
  // Less than a second before the epoch truncates to second 0.
  EXPECT_EQ(BreakdownError(PLocalDate(PTime(-1))).Code(), qvbase::test::kNothingThrown);
}

TEST(PLocalDate, IgnoredBreakdownErrorGivesZeroFields) {
  qvbase::test::ScopedErrorCapture ignore;
  const PLocalDate date(-5);
  EXPECT_EQ(date.Year(), 0);
  EXPECT_EQ(date.Day(), 0);
  EXPECT_EQ(date.DayInYear(), 0);
  EXPECT_EQ(ignore.hook.calls, 5); // Year, Day, then Year, Month and Day for DayInYear
}

TEST(PLocalDate, DaylightSavingFailureIsError1200OfSeverity29) {
  try {
    PLocalDate(-1).IsDaySavingTime();
    FAIL() << "no error";
  } catch (const PError& error) {
    EXPECT_EQ(error.Code(), kErrDateBreakdown);
    EXPECT_EQ(error.Severity(), ErrorSeverityError);
    EXPECT_STREQ(error.File(), "src\\PDate");
    EXPECT_GT(error.Line(), 0u);
  }
}

TEST(PLocalDate, IgnoredDaylightSavingFailureGivesFalse) {
  qvbase::test::ScopedErrorCapture ignore;
  EXPECT_FALSE(PLocalDate().IsDaySavingTime());
  EXPECT_EQ(ignore.hook.lastCode, kErrDateBreakdown);
}

#if !defined(_WIN32)
TEST(PLocalDate, DaylightSavingReadsTheSameSecondsInTheZone) {
  qvbase::test::ScopedTimeZone zone(qvbase::test::kCentralEurope);
  EXPECT_TRUE(PLocalDate(1720000000).IsDaySavingTime());  // July 2024
  EXPECT_FALSE(PLocalDate(1705000000).IsDaySavingTime()); // January 2024
  qvbase::test::ScopedTimeZone universal(qvbase::test::kUniversal);
  EXPECT_FALSE(PLocalDate(1720000000).IsDaySavingTime());
}
#endif

TEST(PLocalDate, ArithmeticCopyAndAssignment) {
  PLocalDate date(kPiDay);
  date += PTime(kDay);
  EXPECT_EQ(date.Day(), 15);
  date -= PTime(2 * kDay);
  EXPECT_EQ(date.Day(), 13);
  EXPECT_EQ((kPiDay - date).GetValue(), kDay);
  EXPECT_EQ((date + PTime(kDay)), kPiDay);
  EXPECT_TRUE(date < kPiDay);
  PLocalDate copy;
  copy = kPiDay;
  EXPECT_EQ(copy, kPiDay);
  EXPECT_TRUE(copy.IsNear(date, PTime(-kDay)));
}

TEST(PLocalDate, GenericFlavoursCopyFromEachOther) {
  NGenLocalDate a;
  EXPECT_FALSE(a.IsValid());
  NGenLocalDate b(a);
  b.SetValue(PTime(kDay));
  a = b;
  EXPECT_EQ(a.Day(), 2);
  NGenUTDate u;
  u.SetValue(PTime(5));
  NGenUTDate v(u);
  EXPECT_EQ(v.GetValue().GetValue(), 5);
}

// --- Formatting --------------------------------------------------------------

TEST(PLocalDate, FormatNumericDatePlaceholders) {
  const struct {
    const char* pattern;
    const char* expected;
  } rows[] = {
      {"^M^", "3"},   {"^MM^", "03"},     {"^d^", "14"},  {"^dd^", "14"},
      {"^h^", "1"},   {"^hh^", "01"},     {"^w^", "11"},  {"^ww^", "11"},
      {"^yy^", "24"}, {"^yyyy^", "2024"}, {"^yd^", "74"}, {"^ydd^", "074"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pattern);
    EXPECT_EQ(Formatted(kPiDay, row.pattern), row.expected);
  }
}

TEST(PLocalDate, FormatTimeSpanPlaceholders) {
  const struct {
    const char* pattern;
    const char* expected;
  } rows[] = {
      {"^H^", "13"},        {"^HH^", "13"},         {"^m^", "5"},      {"^mm^", "05"},
      {"^s^", "9"},         {"^ss^", "09"},         {"^TD^", "19796"}, {"^TH^", "475117"},
      {"^TM^", "28507025"}, {"^TS^", "1710421509"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pattern);
    EXPECT_EQ(Formatted(kPiDay, row.pattern), row.expected);
  }
}

TEST(PLocalDate, FormatSmallFieldsGetTheirPadding) {
  const PLocalDate early(PTime(4 * kDay + 7 * kSecond)); // 1970-01-05 00:00:07
  EXPECT_EQ(Formatted(early, "^yyyy^-^MM^-^dd^ ^HH^:^mm^:^ss^ ^h^ ^ydd^ ^yy^"),
            "1970-01-05 00:00:07 12 005 70");
}

TEST(PLocalDate, FormatNamePlaceholdersInTheCLocale) {
  qvbase::test::ScopedLocale locale("C");
  EXPECT_EQ(Formatted(kPiDay, "^MMM^|^MMMM^|^ddd^|^dddd^|^t^|^tt^|^gg^"),
            "Mar|March|Thu|Thursday|P|PM|");
  EXPECT_EQ(Formatted(PLocalDate(0), "^tt^"), "AM");
}

TEST(PLocalDate, FormatLeavesUnknownPlaceholdersAndEscapes) {
  EXPECT_EQ(Formatted(kPiDay, "^y^ ^yyy^ ^A^ ^z^ ^TDX^ ^^ ^ddddd^"),
            "^y^ ^yyy^ ^A^ ^z^ ^TDX^ ^^ ^ddddd^");
  EXPECT_EQ(Formatted(kPiDay, "^q^d^dd^"), "^q^d14");
  EXPECT_EQ(Formatted(kPiDay, "^yyyy^^MM^^dd^"), "20240314");
}

TEST(PLocalDate, FormatOfAnUnbreakableDateRaises1200) {
  try {
    Formatted(PLocalDate(-1), "^yyyy^");
    FAIL() << "no error";
  } catch (const PError& error) {
    EXPECT_EQ(error.Code(), kErrDateBreakdown);
  }
}

TEST(PlaceholderClass, OnlyExactSpellingsAreFilled) {
  // A name is filled when it is of a class; every other name survives.
  const char* const filled[] = {"H",  "HH",  "m",   "mm",   "s",   "ss",   "TD", "TH", "TM", "TS",
                                "M",  "MM",  "d",   "dd",   "h",   "hh",   "w",  "ww", "yy", "yyyy",
                                "yd", "ydd", "MMM", "MMMM", "ddd", "dddd", "t",  "tt"};
  for (const char* name : filled) {
    SCOPED_TRACE(name);
    const std::string pattern = std::string("^") + name + "^";
    EXPECT_NE(Formatted(kPiDay, pattern.c_str()), pattern);
  }
  const char* const kept[] = {"y", "yyy", "yyyyy", "HHH", "T",   "TDX", "G", "a",  "z",
                              "~", "hhh", "www",   "mmm", "sss", "ttt", "g", "ggg"};
  for (const char* name : kept) {
    SCOPED_TRACE(name);
    const std::string pattern = std::string("^") + name + "^";
    EXPECT_EQ(Formatted(kPiDay, pattern.c_str()), pattern);
  }
}

TEST(PlaceholderClass, EveryTwoCharacterTNameIsATimeSpanField) {
  // The T group checks the length only: a two-character T name other than
  // TD, TH, TM and TS is of the time-span class and has an empty value.
  // "T" and "TDX" are of no class and stay (see above).
  for (const char* name : {"TX", "Td", "T0"}) {
    SCOPED_TRACE(name);
    const std::string pattern = std::string("[^") + name + "^]";
    EXPECT_EQ(Formatted(kPiDay, pattern.c_str()), "[]");
  }
}

TEST(PlaceholderClass, TimeValuesFillOnlyTheTimeSpanClass) {
  const PTime time(3725, 0);
  PMBString text = time.Format(PMBString("^H^ ^M^ ^MMM^ ^d^", true));
  EXPECT_STREQ(static_cast<const char*>(text), "1 ^M^ ^MMM^ ^d^");
}

} // namespace
