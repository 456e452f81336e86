// The platform layer's clock, file-time arithmetic, zone conversions and
// date texts.
#include "native/Calendar.h"
#include "native/Time.h"
#include "support/TimeTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using namespace qvbase::native;

constexpr std::int64_t kEpochFileTicks = 116444736000000000LL;

FILETIME MakeFileTime(std::int64_t ticks) {
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(ticks));
  time.dwHighDateTime = static_cast<DWORD>(static_cast<std::uint64_t>(ticks) >> 32);
  return time;
}

std::int64_t Ticks(const FILETIME& time) {
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) |
                                   time.dwLowDateTime);
}

SYSTEMTIME MakeSystemTime(WORD year, WORD month, WORD day, WORD hour = 0, WORD minute = 0,
                          WORD second = 0, WORD milliseconds = 0) {
  SYSTEMTIME time = {};
  time.wYear = year;
  time.wMonth = month;
  time.wDay = day;
  time.wHour = hour;
  time.wMinute = minute;
  time.wSecond = second;
  time.wMilliseconds = milliseconds;
  return time;
}

TEST(TimeNative, FileTimeEpochIsFirstOfJanuary1601) {
  SYSTEMTIME fields;
  ASSERT_TRUE(FileTimeToSystemTime(MakeFileTime(0), &fields));
  EXPECT_EQ(fields.wYear, 1601);
  EXPECT_EQ(fields.wMonth, 1);
  EXPECT_EQ(fields.wDay, 1);
  EXPECT_EQ(fields.wDayOfWeek, 1); // a Monday
  EXPECT_EQ(fields.wHour, 0);
}

TEST(TimeNative, UnixEpochIsTheKnownFileTime) {
  FILETIME time;
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(1970, 1, 1), &time));
  EXPECT_EQ(Ticks(time), kEpochFileTicks);
  SYSTEMTIME fields;
  ASSERT_TRUE(FileTimeToSystemTime(time, &fields));
  EXPECT_EQ(fields.wYear, 1970);
  EXPECT_EQ(fields.wDayOfWeek, 4); // a Thursday
}

TEST(TimeNative, FieldsRoundTripThroughFileTime) {
  struct Row {
    SYSTEMTIME fields;
    WORD dayOfWeek;
  };
  const Row rows[] = {
      {MakeSystemTime(1601, 12, 31, 23, 59, 59, 999), 1},
      {MakeSystemTime(1900, 2, 28, 12, 0, 0, 0), 3},
      {MakeSystemTime(2000, 2, 29, 1, 2, 3, 4), 2},
      {MakeSystemTime(2024, 3, 14, 13, 5, 9, 250), 4},
      {MakeSystemTime(2038, 1, 19, 3, 14, 8, 0), 2},
      {MakeSystemTime(30827, 12, 31, 23, 59, 59, 999), 5},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.fields.wYear);
    FILETIME time;
    ASSERT_TRUE(SystemTimeToFileTime(row.fields, &time));
    SYSTEMTIME back;
    ASSERT_TRUE(FileTimeToSystemTime(time, &back));
    EXPECT_EQ(back.wYear, row.fields.wYear);
    EXPECT_EQ(back.wMonth, row.fields.wMonth);
    EXPECT_EQ(back.wDay, row.fields.wDay);
    EXPECT_EQ(back.wHour, row.fields.wHour);
    EXPECT_EQ(back.wMinute, row.fields.wMinute);
    EXPECT_EQ(back.wSecond, row.fields.wSecond);
    EXPECT_EQ(back.wMilliseconds, row.fields.wMilliseconds);
    EXPECT_EQ(back.wDayOfWeek, row.dayOfWeek);
  }
}

TEST(TimeNative, MillisecondsDropTheTicksBelowThem) {
  SYSTEMTIME fields;
  ASSERT_TRUE(FileTimeToSystemTime(MakeFileTime(kEpochFileTicks + 12345678), &fields));
  EXPECT_EQ(fields.wSecond, 1);
  EXPECT_EQ(fields.wMilliseconds, 234);
}

TEST(TimeNative, SystemTimeOutOfRangeIsRefused) {
  const SYSTEMTIME rows[] = {
      MakeSystemTime(1600, 12, 31),         MakeSystemTime(30828, 1, 1),
      MakeSystemTime(2024, 0, 1),           MakeSystemTime(2024, 13, 1),
      MakeSystemTime(2024, 1, 0),           MakeSystemTime(2023, 2, 29),
      MakeSystemTime(1900, 2, 29),          MakeSystemTime(2024, 4, 31),
      MakeSystemTime(2024, 1, 1, 24),       MakeSystemTime(2024, 1, 1, 0, 60),
      MakeSystemTime(2024, 1, 1, 0, 0, 60), MakeSystemTime(2024, 1, 1, 0, 0, 0, 1000),
  };
  for (const SYSTEMTIME& fields : rows) {
    SCOPED_TRACE(testing::Message() << fields.wYear << "-" << fields.wMonth << "-" << fields.wDay
                                    << " " << fields.wHour << ":" << fields.wMinute << ":"
                                    << fields.wSecond << "." << fields.wMilliseconds);
    FILETIME time;
    EXPECT_FALSE(SystemTimeToFileTime(fields, &time));
  }
}

TEST(TimeNative, DayOfWeekIsIgnoredOnTheWayIn) {
  SYSTEMTIME fields = MakeSystemTime(2024, 2, 29);
  fields.wDayOfWeek = 6;
  FILETIME time;
  ASSERT_TRUE(SystemTimeToFileTime(fields, &time));
  fields.wDayOfWeek = 0;
  FILETIME same;
  ASSERT_TRUE(SystemTimeToFileTime(fields, &same));
  EXPECT_EQ(Ticks(time), Ticks(same));
}

TEST(TimeNative, FileTimeWithTopBitSetIsRefused) {
  SYSTEMTIME fields;
  EXPECT_FALSE(FileTimeToSystemTime(MakeFileTime(-1), &fields));
  EXPECT_TRUE(FileTimeToSystemTime(MakeFileTime(INT64_MAX), &fields));
  EXPECT_EQ(fields.wYear, 30828);
}

TEST(TimeNative, CalendarArithmeticAgreesWithItself) {
  for (std::int64_t days = -200000; days < 200000; days += 7919) {
    CivilDate date = CivilFromDays(days);
    EXPECT_EQ(DaysFromCivil(date.year, date.month, date.day), days);
  }
  EXPECT_EQ(DaysFromCivil(1601, 1, 1), -kFileTimeEpochDays);
  EXPECT_EQ(WeekdayFromDays(-1), 3u);
}

TEST(TimeNative, CurrentUniversalAndLocalTimesAreNearOneAnother) {
  SYSTEMTIME universal, local;
  CurrentUniversalTime(&universal);
  CurrentLocalTime(&local);
  FILETIME u, l;
  ASSERT_TRUE(SystemTimeToFileTime(universal, &u));
  ASSERT_TRUE(SystemTimeToFileTime(local, &l));
  EXPECT_GE(universal.wYear, 2024);
  // No zone is more than 14 hours from universal time.
  const std::int64_t difference = Ticks(l) - Ticks(u);
  EXPECT_LE(difference, 14 * 3600 * kTicksPerSecond + kTicksPerSecond);
  EXPECT_GE(difference, -14 * 3600 * kTicksPerSecond - kTicksPerSecond);
}

TEST(TimeNative, LocalConversionRoundTripsInAnyZone) {
  FILETIME universal = MakeFileTime(kEpochFileTicks + 1700000000LL * kTicksPerSecond);
  FILETIME local, back;
  ASSERT_TRUE(UniversalToLocalFileTime(universal, &local));
  ASSERT_TRUE(LocalToUniversalFileTime(local, &back));
  EXPECT_EQ(Ticks(back), Ticks(universal));
  EXPECT_EQ((Ticks(local) - Ticks(universal)) % (15 * 60 * kTicksPerSecond), 0);
}

TEST(TimeNative, TextsCarryTheFields) {
  const SYSTEMTIME fields = [] {
    SYSTEMTIME f = MakeSystemTime(2024, 3, 14, 13, 5, 9);
    f.wDayOfWeek = 4;
    return f;
  }();
  EXPECT_NE(FormatShortDate(fields).find("14"), std::string::npos) << FormatShortDate(fields);
  EXPECT_NE(FormatLongDate(fields).find("2024"), std::string::npos) << FormatLongDate(fields);
  EXPECT_NE(FormatTimeOfDay(fields).find("05:09"), std::string::npos) << FormatTimeOfDay(fields);
  EXPECT_FALSE(FormatDateElement(fields, "MMMM").empty());
  EXPECT_FALSE(FormatDateElement(fields, "dddd").empty());
  EXPECT_EQ(FormatDateElement(fields, "yyyy"), "");
}

#if !defined(_WIN32)

TEST(TimeNative, ZoneRulesOfTheInstantApply) {
  qvbase::test::ScopedTimeZone zone(qvbase::test::kCentralEurope);
  const std::int64_t hour = 3600 * kTicksPerSecond;
  FILETIME winter, summer;
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(2024, 1, 15, 12), &winter));
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(2024, 7, 15, 12), &summer));
  FILETIME local;
  ASSERT_TRUE(UniversalToLocalFileTime(winter, &local));
  EXPECT_EQ(Ticks(local) - Ticks(winter), hour);
  ASSERT_TRUE(UniversalToLocalFileTime(summer, &local));
  EXPECT_EQ(Ticks(local) - Ticks(summer), 2 * hour);
  FILETIME universal;
  ASSERT_TRUE(LocalToUniversalFileTime(local, &universal));
  EXPECT_EQ(Ticks(universal), Ticks(summer));
}

TEST(TimeNative, RepeatedHourGoesToTheLaterInstantAndSkippedHourForward) {
  qvbase::test::ScopedTimeZone zone(qvbase::test::kCentralEurope);
  FILETIME local, universal, expected;
  // 2023-10-29 02:30 happens twice; the second time is 01:30 universal.
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(2023, 10, 29, 2, 30), &local));
  ASSERT_TRUE(LocalToUniversalFileTime(local, &universal));
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(2023, 10, 29, 1, 30), &expected));
  EXPECT_EQ(Ticks(universal), Ticks(expected));
  // 2023-03-26 02:30 does not exist; it becomes 03:30 summer time.
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(2023, 3, 26, 2, 30), &local));
  ASSERT_TRUE(LocalToUniversalFileTime(local, &universal));
  ASSERT_TRUE(SystemTimeToFileTime(MakeSystemTime(2023, 3, 26, 1, 30), &expected));
  EXPECT_EQ(Ticks(universal), Ticks(expected));
}

TEST(TimeNative, DaylightSavingFollowsTheZone) {
  bool inEffect = true;
  {
    qvbase::test::ScopedTimeZone zone(qvbase::test::kUniversal);
    ASSERT_TRUE(DaylightSavingAt(1720000000, &inEffect));
    EXPECT_FALSE(inEffect);
  }
  qvbase::test::ScopedTimeZone zone(qvbase::test::kCentralEurope);
  ASSERT_TRUE(DaylightSavingAt(1720000000, &inEffect)); // July 2024
  EXPECT_TRUE(inEffect);
  ASSERT_TRUE(DaylightSavingAt(1705000000, &inEffect)); // January 2024
  EXPECT_FALSE(inEffect);
}

TEST(TimeNative, LocalTimeOfTheClockFollowsTheZone) {
  qvbase::test::ScopedTimeZone zone("XYZ-5");
  SYSTEMTIME universal, local;
  CurrentUniversalTime(&universal);
  CurrentLocalTime(&local);
  FILETIME u, l;
  ASSERT_TRUE(SystemTimeToFileTime(universal, &u));
  ASSERT_TRUE(SystemTimeToFileTime(local, &l));
  EXPECT_NEAR(static_cast<double>(Ticks(l) - Ticks(u)), 5.0 * 3600 * kTicksPerSecond,
              2.0 * kTicksPerSecond);
}

#endif

} // namespace
