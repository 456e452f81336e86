// Dates backed by FILETIME and SYSTEMTIME: the file-time constant, the
// conversions, the cached SYSTEMTIME, the makers, the clock and the user's
// formats.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/WINDate.h>

#include "support/ErrorTestSupport.h"
#include "support/TimeTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

constexpr __int64 kSecond = 10000000;
constexpr __int64 kHour = 3600 * kSecond;
constexpr __int64 kDay = 24 * kHour;
constexpr __int64 kOffset = 116444736000000000LL;

__int64 Ticks(const FILETIME& time) {
  return static_cast<__int64>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) |
                              time.dwLowDateTime);
}

FILETIME MakeFileTime(__int64 ticks) {
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(ticks));
  time.dwHighDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(ticks) >> 32);
  return time;
}

std::string Text(const PMBString& text) { return static_cast<const char*>(text); }

// Exposes the cache so that tests can see it discarded and built.
class InspectedLocalDate : public WINLocalDate {
public:
  using WINLocalDate::WINLocalDate;
  bool HasSystemTime() const { return m_systemTime != nullptr; }
};

using qvbase::test::Caught;

void ExpectConversionError(const PError& error) {
  EXPECT_EQ(error.Code(), kErrDateConversion);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "src\\WINDate");
  EXPECT_GT(error.Line(), 0u);
}

TEST(WINUTDate, EpochHasTheKnownFileTime) {
  const WINUTDate date(PUTDate(0));
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), 116444736000000000LL);
  const SYSTEMTIME fields = date;
  EXPECT_EQ(fields.wYear, 1970);
  EXPECT_EQ(fields.wMonth, 1);
  EXPECT_EQ(fields.wDay, 1);
  EXPECT_EQ(fields.wHour, 0);
  EXPECT_EQ(fields.wMinute, 0);
  EXPECT_EQ(fields.wSecond, 0);
}

TEST(WINUTDate, FileTimeOffsetIsOneProcessWideConstant) {
  EXPECT_EQ(gFileTimeEpochOffset, 116444736000000000LL);
  EXPECT_EQ(gFileTimeEpochOffset, static_cast<__int64>(0x019DB1DED53E8000LL));
}

TEST(WINLocalDate, InvalidLocalDateConvertsToInvalidUniversalDateWithoutError) {
  qvbase::test::ScopedErrorCapture watch;
  const WINLocalDate local;
  const WINUTDate universal(local);
  EXPECT_FALSE(universal.IsValid());
  EXPECT_EQ(watch.hook.calls, 0);
}

TEST(WINLocalDate, PlusEqualsDiscardsTheCachedSystemTime) {
  InspectedLocalDate date(MakeNLocDate(2024, 3, 14, 13, 5, 9, 0));
  EXPECT_FALSE(date.HasSystemTime());
  EXPECT_EQ(date.Day(), 14);
  EXPECT_TRUE(date.HasSystemTime());
  date += PTime(kDay);
  EXPECT_FALSE(date.HasSystemTime());
  EXPECT_EQ(date.Day(), 15);
  date -= PTime(3 * kDay);
  EXPECT_EQ(date.Day(), 12);
  date.SetValue(PTime(0));
  EXPECT_EQ(date.Year(), 1970);
}

TEST(WINUTDate, FileTimeFollowsEveryChange) {
  WINUTDate date(10);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), kOffset + 10 * kSecond);
  date += PTime(5);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), kOffset + 10 * kSecond + 5);
  date -= PTime(10 * kSecond);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), kOffset + 5);
  date.SetValue(PTime(-kOffset));
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), 0);
  date = WINUTDate(1);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), kOffset + kSecond);
  PUTDate& base = date;
  base = PUTDate(2);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), kOffset + 2 * kSecond);
}

TEST(WINUTDate, FromFileTimeAndTheAliasRecord) {
  const WINUTDate date(MakeFileTime(kOffset + kDay));
  EXPECT_EQ(date.GetValue().GetValue(), kDay);
  WINFILETIME alias = date;
  EXPECT_EQ(alias.dwLowDateTime, static_cast<FILETIME>(date).dwLowDateTime);
  EXPECT_EQ(alias.dwHighDateTime, static_cast<FILETIME>(date).dwHighDateTime);
  alias.dwLowDateTime += 7;
  EXPECT_EQ(WINUTDate(alias).GetValue().GetValue(), kDay + 7);
  const WINUTDate start(MakeFileTime(0));
  EXPECT_EQ(start.GetValue().GetValue(), -kOffset);
}

TEST(WINUTDate, MakeNUTDateAndSystemTimeRoundTrip) {
  const WINUTDate date = MakeNUTDate(2024, 3, 14, 13, 5, 9, 250);
  EXPECT_EQ(date.GetValue().GetValue(),
            (19796 * 86400LL + 13 * 3600 + 5 * 60 + 9) * kSecond + 250 * 10000);
  const SYSTEMTIME fields = date;
  EXPECT_EQ(fields.wYear, 2024);
  EXPECT_EQ(fields.wMonth, 3);
  EXPECT_EQ(fields.wDay, 14);
  EXPECT_EQ(fields.wDayOfWeek, 4);
  EXPECT_EQ(fields.wMilliseconds, 250);
  EXPECT_EQ(WINUTDate(fields), date);
}

TEST(WINUTDate, DatesBeforeTheEpochReachBackTo1601) {
  const WINUTDate date = MakeNUTDate(1601, 1, 1, 0, 0, 0, 0);
  EXPECT_EQ(date.GetValue().GetValue(), -kOffset);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(date)), 0);
  const WINLocalDate local = MakeNLocDate(1900, 2, 28, 23, 0, 0, 0);
  EXPECT_EQ(local.Year(), 1900);
  EXPECT_EQ(local.DayInWeek(), 3);
  EXPECT_EQ(local.DayInYear(), 59);
  EXPECT_FALSE(local.IsBissex());
}

TEST(WINUTDate, RefusedSystemTimeRaises1201) {
  ExpectConversionError(Caught([] { MakeNUTDate(2023, 2, 29, 0, 0, 0, 0); }));
  ExpectConversionError(Caught([] { MakeNLocDate(2024, 13, 1, 0, 0, 0, 0); }));
  ExpectConversionError(Caught([] { MakeNUTDate(1600, 12, 31, 0, 0, 0, 0); }));
}

TEST(WINUTDate, IgnoredRefusalGivesNoDate) {
  qvbase::test::ScopedErrorCapture ignore;
  const WINUTDate date = MakeNUTDate(2024, 4, 31, 0, 0, 0, 0);
  EXPECT_FALSE(date.IsValid());
  EXPECT_EQ(ignore.hook.lastCode, kErrDateConversion);
}

TEST(WINUTDate, SystemTimeBefore1601Raises1201) {
  const WINUTDate date(PTime(-kOffset - 1));
  ExpectConversionError(Caught([&] {
    SYSTEMTIME fields = date;
    (void)fields;
  }));
  qvbase::test::ScopedErrorCapture ignore;
  const SYSTEMTIME fields = date;
  EXPECT_EQ(fields.wYear, 0);
  EXPECT_EQ(ignore.hook.calls, 1);
}

TEST(WINLocalDate, FailedCreateSTRaises1201AndLeavesItUnbuilt) {
  InspectedLocalDate date(PTime(-kOffset - 1));
  ExpectConversionError(Caught([&] { date.Day(); }));
  EXPECT_FALSE(date.HasSystemTime());
  qvbase::test::ScopedErrorCapture ignore;
  EXPECT_EQ(date.Year(), 0);
  EXPECT_EQ(date.Month(), 0);
  EXPECT_FALSE(date.HasSystemTime());
  EXPECT_EQ(ignore.hook.calls, 2);
  const SYSTEMTIME fields = date;
  EXPECT_EQ(fields.wDay, 0);
}

TEST(WINLocalDate, FieldsComeFromTheSystemTime) {
  const WINLocalDate date = MakeNLocDate(2024, 3, 14, 13, 5, 9, 0);
  EXPECT_EQ(date.Year(), 2024);
  EXPECT_EQ(date.Month(), 3);
  EXPECT_EQ(date.Day(), 14);
  EXPECT_EQ(date.DayInWeek(), 4);
  EXPECT_EQ(date.Hours(), 13);
  EXPECT_EQ(date.Minutes(), 5);
  EXPECT_EQ(date.Seconds(), 9);
  EXPECT_EQ(date.DayInYear(), 74);
  EXPECT_EQ(date.Week(0), 10);
  EXPECT_TRUE(date.IsBissex());
  const SYSTEMTIME fields = date;
  EXPECT_EQ(fields.wHour, 13);
  // The generic breakdown of the same value agrees.
  const PLocalDate generic(date.GetValue());
  EXPECT_EQ(generic.Day(), 14);
  EXPECT_EQ(generic.Hours(), 13);
}

TEST(WINLocalDate, CopiesHaveTheirOwnCache) {
  InspectedLocalDate date(MakeNLocDate(2024, 3, 14, 13, 5, 9, 0));
  EXPECT_EQ(date.Day(), 14);
  InspectedLocalDate copy(static_cast<const WINLocalDate&>(date));
  EXPECT_FALSE(copy.HasSystemTime());
  EXPECT_EQ(copy.Day(), 14);
  WINLocalDate assigned;
  assigned = date;
  EXPECT_EQ(assigned.Day(), 14);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(assigned)), Ticks(static_cast<FILETIME>(date)));
  const WINLocalDate fromBase(PLocalDate(86400));
  EXPECT_EQ(fromBase.Day(), 2);
  EXPECT_EQ(Ticks(static_cast<FILETIME>(fromBase)), kOffset + kDay);
}

TEST(WINLocalDate, FromLocalFileTime) {
  const WINLocalDate date(MakeFileTime(kOffset + kDay + kHour));
  EXPECT_EQ(date.Day(), 2);
  EXPECT_EQ(date.Hours(), 1);
  WINFILETIME alias = date;
  EXPECT_EQ(WINLocalDate(alias), date);
}

TEST(WINLocalDate, UniversalAndLocalConvertBothWaysInAnyZone) {
  const WINUTDate universal = MakeNUTDate(2024, 7, 1, 12, 0, 0, 0);
  const WINLocalDate local(universal);
  const PTime offset = local.GetValue() - universal.GetValue();
  EXPECT_TRUE(offset.IsNear(PTime(0), PTime(14 * kHour)));
  EXPECT_EQ(offset.GetValue() % (15 * 60 * kSecond), 0);
  EXPECT_EQ(WINUTDate(local), universal);
  EXPECT_FALSE(WINLocalDate(WINUTDate()).IsValid());
}

#if !defined(_WIN32)
TEST(WINLocalDate, ZoneOffsetIsTheOneAtTheInstant) {
  qvbase::test::ScopedTimeZone zone(qvbase::test::kCentralEurope);
  const WINLocalDate summer(MakeNUTDate(2024, 7, 1, 12, 0, 0, 0));
  EXPECT_EQ(summer.Hours(), 14);
  EXPECT_TRUE(summer.IsDaySavingTime());
  const WINLocalDate winter(MakeNUTDate(2024, 1, 1, 12, 0, 0, 0));
  EXPECT_EQ(winter.Hours(), 13);
  EXPECT_EQ(WINUTDate(winter), MakeNUTDate(2024, 1, 1, 12, 0, 0, 0));
  qvbase::test::ScopedTimeZone universal(qvbase::test::kUniversal);
  EXPECT_EQ(WINLocalDate(MakeNUTDate(2024, 7, 1, 12, 0, 0, 0)).Hours(), 12);
}
#endif

TEST(WINDate, CurrentDatesAreNowAndNearOneAnother) {
  const WINUTDate universal = CurrentNUTDate();
  const WINLocalDate local = CurrentNLocDate();
  EXPECT_TRUE(universal.IsValid());
  EXPECT_GE(static_cast<SYSTEMTIME>(universal).wYear, 2024);
  const WINUTDate back(local);
  EXPECT_TRUE(back.IsNear(universal, PTime(5 * kSecond)));
}

TEST(WINLocalDate, SystemFormatFormsCarryTheFields) {
  const WINLocalDate date = MakeNLocDate(2024, 3, 14, 13, 5, 9, 0);
  const std::string shortDate = Text(date.SystemFormat(kSystemFormatShortDate));
  const std::string longDate = Text(date.SystemFormat(kSystemFormatLongDate));
  const std::string time = Text(date.SystemFormat(kSystemFormatTime));
  EXPECT_NE(shortDate.find("14"), std::string::npos) << shortDate;
  EXPECT_NE(longDate.find("2024"), std::string::npos) << longDate;
  EXPECT_NE(time.find("05:09"), std::string::npos) << time;
  EXPECT_EQ(Text(date.SystemFormat(kSystemFormatDateTime)), shortDate + " " + time);
  EXPECT_EQ(Text(date.SystemFormat(kSystemFormatLongDateTime)), longDate + " " + time);
  EXPECT_EQ(Text(date.SystemFormat(200)), shortDate + " " + time);
}

TEST(WINLocalDate, FormatFillsNamesFromTheSystem) {
  const WINLocalDate date = MakeNLocDate(2024, 3, 14, 13, 5, 9, 0);
  const std::string text =
      Text(date.Format(PMBString("^yyyy^-^MM^-^dd^ ^MMMM^ ^dddd^ ^tt^", true)));
  EXPECT_EQ(text.substr(0, 11), "2024-03-14 ");
  EXPECT_EQ(text.find('^'), std::string::npos) << text;
  EXPECT_GT(text.size(), 14u);
  const std::string month = Text(date.Format(PMBString("^MMMM^", true)));
  EXPECT_FALSE(month.empty());
  EXPECT_EQ(Text(date.Format(PMBString("^x^ ^^", true))), "^x^ ^^");
}

} // namespace
