// The C locale services: character lengths, UTF-16 conversions, comparisons.
#include "native/Locale.h"

#include "support/LocaleTestSupport.h"

#include <gtest/gtest.h>

#include <clocale>
#include <initializer_list>
#include <string>

namespace {

using namespace qvbase::native;

using qvbase::test::ScopedLocale;

// A runtime may accept a locale name yet keep another character type (the
// Windows msvcrt.dll takes ".65001" for every category but LC_CTYPE), so each
// locale is probed for the encoding the tests expect.
bool IsUtf8() { return CharLength("\xE6\x97\xA5") == 3; }
bool IsWindows1252() {
  return MultiByteToUnits(std::string("\x80\xE4")) == u"\u20AC\u00E4" && CharLength("\xE4") == 1;
}
bool IsShiftJis() { return CharLength("\x93\xFA") == 2; }

// glibc's names first, then the Windows runtime's.
class ScopedUtf8Locale : public ScopedLocale {
public:
  ScopedUtf8Locale() : ScopedLocale({"C.UTF-8", "C.utf8", "en_US.UTF-8", ".UTF8"}, &IsUtf8) {}
};

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

typedef int (*NarrowCompare)(const char*, const char*, std::size_t);
typedef int (*UnitCompare)(const unsigned short*, const unsigned short*, std::size_t);

struct NarrowRow {
  const char* name;
  NarrowCompare compare;
  const char* a;
  const char* b;
  std::size_t count;
  int sign;
};

struct UnitRow {
  const char* name;
  UnitCompare compare;
  std::u16string a;
  std::u16string b;
  std::size_t count;
  int sign;
};

template <typename Row>
void CheckRows(const Row* rows, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(rows[i].compare(rows[i].a, rows[i].b, rows[i].count), rows[i].sign);
  }
}

template <>
void CheckRows(const UnitRow* rows, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(rows[i].compare(Units(rows[i].a), Units(rows[i].b), rows[i].count), rows[i].sign);
  }
}

TEST(Locale, AdoptUserLocaleMakesTheUserLocaleCurrent) {
  ScopedLocale restore("C");
  const std::string name = AdoptUserLocale();
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(name, std::setlocale(LC_ALL, nullptr));
}

TEST(Locale, ComparisonsInTheCLocale) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
  const NarrowRow rows[] = {
      {"exact less", &MultiByteCompare, "abc", "abd", 3, -1},
      {"exact within count", &MultiByteCompare, "abc", "abd", 2, 0},
      {"exact longer is greater", &MultiByteCompare, "abc", "ab", 3, 1},
      {"exact stops at terminator", &MultiByteCompare, "ab", "ab", 10, 0},
      {"exact count zero", &MultiByteCompare, "a", "b", 0, 0},
      {"exact bytes are unsigned", &MultiByteCompare, "\x80", "a", 1, 1},
      {"exact is case sensitive", &MultiByteCompare, "abc", "ABC", 3, 1},
      {"nocase equal", &MultiByteCompareIgnoreCase, "abc", "ABC", 3, 0},
      {"nocase less", &MultiByteCompareIgnoreCase, "abc", "ABD", 3, -1},
      {"nocase within count", &MultiByteCompareIgnoreCase, "abX", "ABy", 2, 0},
      {"nocase shorter is less", &MultiByteCompareIgnoreCase, "AB", "abc", 5, -1},
      {"ascii nocase equal", &AsciiCompareIgnoreCase, "HeLLo", "hello", 5, 0},
      {"ascii nocase less", &AsciiCompareIgnoreCase, "HELLO", "hellp", 5, -1},
      {"ascii nocase within count", &AsciiCompareIgnoreCase, "HELLO", "hellp", 4, 0},
      {"ascii nocase greater", &AsciiCompareIgnoreCase, "b", "A", 1, 1},
      {"collate less", &MultiByteCollate, "abc", "abd", 3, -1},
      {"collate within count", &MultiByteCollate, "abc", "abd", 2, 0},
      {"collate equal", &MultiByteCollate, "same", "same", 4, 0},
      {"collate stops at terminator", &MultiByteCollate, "ab", "ab", 99, 0},
  };
  CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(Locale, UnitComparisonsInTheCLocale) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
  const UnitRow rows[] = {
      {"exact less", &UnitsCompare, u"abc", u"abd", 3, -1},
      {"exact within count", &UnitsCompare, u"abc", u"abd", 2, 0},
      {"exact stops at terminator", &UnitsCompare, u"ab", u"ab", 10, 0},
      {"exact longer is greater", &UnitsCompare, u"abc", u"ab", 3, 1},
      {"exact unit order", &UnitsCompare, u"\u00E4", u"a", 1, 1},
      // Units compare as 16-bit values: a surrogate sorts below U+FFFF.
      {"exact surrogates are units", &UnitsCompare, u"\uFFFF", u"\U0001F600", 2, 1},
      {"nocase equal", &UnitsCompareIgnoreCase, u"ABC", u"abc", 3, 0},
      {"nocase less", &UnitsCompareIgnoreCase, u"ABC", u"abd", 3, -1},
      {"nocase within count", &UnitsCompareIgnoreCase, u"ABx", u"abY", 2, 0},
      {"collate less", &UnitsCollate, u"abc", u"abd", 3, -1},
      {"collate within count", &UnitsCollate, u"abc", u"abd", 2, 0},
      {"collate stops at terminator", &UnitsCollate, u"ab", u"ab", 99, 0},
  };
  CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(Locale, MultibyteComparisonsCountCharactersInUtf8) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  // U+00E4 and U+00C4 are two bytes each in UTF-8.
  const NarrowRow rows[] = {
      {"exact counts characters", &MultiByteCompare,
       "\xC3\xA4"
       "b",
       "\xC3\xA4"
       "c",
       2, -1},
      {"exact one character", &MultiByteCompare,
       "\xC3\xA4"
       "b",
       "\xC3\xA4"
       "c",
       1, 0},
      {"exact code point order", &MultiByteCompare, "\xC3\xA4", "z", 1, 1},
      {"nocase folds accents", &MultiByteCompareIgnoreCase, "\xC3\x84", "\xC3\xA4", 1, 0},
      {"nocase counts characters", &MultiByteCompareIgnoreCase,
       "\xC3\x84"
       "B",
       "\xC3\xA4"
       "c",
       2, -1},
      {"nocase one character", &MultiByteCompareIgnoreCase,
       "\xC3\x84"
       "B",
       "\xC3\xA4"
       "c",
       1, 0},
      {"collate counts characters", &MultiByteCollate,
       "\xC3\xA4"
       "b",
       "\xC3\xA4"
       "c",
       2, -1},
      {"collate one character", &MultiByteCollate,
       "\xC3\xA4"
       "b",
       "\xC3\xA4"
       "c",
       1, 0},
      {"collate CJK equal", &MultiByteCollate, "\xE6\x97\xA5\xE6\x9C\xAC", "\xE6\x97\xA5", 1, 0},
  };
  CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(Locale, UnitCaseFoldingFollowsAUtf8Locale) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  const UnitRow rows[] = {
      {"nocase folds accents", &UnitsCompareIgnoreCase, u"\u00C4B", u"\u00E4b", 2, 0},
      {"nocase folds Greek", &UnitsCompareIgnoreCase, u"\u0391\u0392", u"\u03B1\u03B2", 2, 0},
      {"nocase still orders", &UnitsCompareIgnoreCase, u"\u00C4B", u"\u00E4c", 2, -1},
      {"collate within count", &UnitsCollate, u"\u00E4b", u"\u00E4c", 1, 0},
      {"collate less", &UnitsCollate, u"\u00E4b", u"\u00E4c", 2, -1},
  };
  CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(Locale, CharacterLengthsFollowUtf8) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  struct Row {
    const char* name;
    const char* text;
    int length;
  };
  const Row rows[] = {
      {"terminator", "", 0},
      {"ascii", "a", 1},
      {"latin", "\xC3\xA4", 2},
      {"cjk", "\xE6\x97\xA5", 3},
      {"outside the BMP", "\xF0\x9F\x98\x80", 4},
      {"invalid byte", "\xFF", 1},
      {"stray continuation", "\x80", 1},
      {"cut short by the terminator", "\xE6\x97", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(CharLength(row.text), row.length);
  }
}

TEST(Locale, CharacterLengthInTheCLocaleIsOneByte) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
  EXPECT_EQ(CharLength(""), 0);
  EXPECT_EQ(CharLength("a"), 1);
  EXPECT_EQ(CharLength("\xC3\xA4"), 1);
}

TEST(Locale, ConversionsRoundTripInUtf8) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  struct Row {
    const char* name;
    std::string narrow;
    std::u16string units;
  };
  const Row rows[] = {
      {"ascii", "Hello, world", u"Hello, world"},
      {"latin accents", "\xC3\xA9t\xC3\xA9 \xC3\x84rger", u"\u00E9t\u00E9 \u00C4rger"},
      {"cjk", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", u"\u65E5\u672C\u8A9E"},
      {"outside the BMP", "a\xF0\x9F\x98\x80z", u"a\U0001F600z"},
      {"embedded zero", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
      {"empty", "", u""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(MultiByteToUnits(row.narrow), row.units);
    EXPECT_EQ(UnitsToMultiByte(row.units), row.narrow);
  }
  EXPECT_EQ(MultiByteToUnits("\xF0\x9F\x98\x80").size(), 2u);
}

TEST(Locale, ConversionsInTheCLocaleKeepAscii) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
  EXPECT_EQ(MultiByteToUnits(std::string("plain text 123")), u"plain text 123");
  EXPECT_EQ(UnitsToMultiByte(std::u16string(u"plain text 123")), "plain text 123");
}

TEST(Locale, BoundedConversionWritesAPrefixAndReportsTheWhole) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  const char text[] = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"; // three CJK characters
  unsigned short units[4] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
  EXPECT_EQ(MultiByteToUnits(text, sizeof text - 1, nullptr, 0), 3u);
  EXPECT_EQ(MultiByteToUnits(text, sizeof text - 1, units, 2), 3u);
  EXPECT_EQ(units[0], 0x65E5);
  EXPECT_EQ(units[1], 0x672C);
  EXPECT_EQ(units[2], 0xAAAA);

  const std::u16string wide = u"\u65E5\u672C";
  char bytes[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
  EXPECT_EQ(UnitsToMultiByte(Units(wide), wide.size(), nullptr, 0), 6u);
  EXPECT_EQ(UnitsToMultiByte(Units(wide), wide.size(), bytes, 4), 6u);
  EXPECT_EQ(std::string(bytes, 5), "\xE6\x97\xA5\xE6#");
}

TEST(Locale, InvalidMultibyteBytesBecomeReplacementCharacters) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  EXPECT_EQ(MultiByteToUnits(std::string("a\xFF"
                                         "b")),
            u"a\uFFFDb");
  EXPECT_EQ(MultiByteToUnits(std::string("\x80x")), u"\uFFFDx");
#if !defined(_WIN32)
  // Each byte of a character cut short is replaced on its own.
  EXPECT_EQ(MultiByteToUnits(std::string("x\xE6\x97")), u"x\uFFFD\uFFFD");
#else
  const std::u16string cut = MultiByteToUnits(std::string("x\xE6\x97"));
  ASSERT_GE(cut.size(), 2u);
  EXPECT_EQ(cut[0], u'x');
  EXPECT_EQ(cut[1], 0xFFFD);
#endif
}

TEST(Locale, LoneSurrogatesBecomeTheReplacementOfTheLocale) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  const std::u16string lone = u"a\xD800"
                              u"b";
  const std::u16string lowFirst = u"\xDC00\xD800";
#if defined(_WIN32)
  EXPECT_EQ(UnitsToMultiByte(lone), "a\xEF\xBF\xBD"
                                    "b");
  EXPECT_EQ(UnitsToMultiByte(lowFirst), "\xEF\xBF\xBD\xEF\xBF\xBD");
#else
  EXPECT_EQ(UnitsToMultiByte(lone), "a?b");
  EXPECT_EQ(UnitsToMultiByte(lowFirst), "??");
#endif
}

TEST(Locale, UnencodableUnitsBecomeQuestionMarksInTheCLocale) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
#if defined(_WIN32)
  // The "C" locale converts with the ANSI code page, which has no CJK.
  const std::string narrow = UnitsToMultiByte(std::u16string(u"a\u65E5b"));
  EXPECT_EQ(narrow.front(), 'a');
  EXPECT_EQ(narrow.back(), 'b');
  EXPECT_NE(narrow.find('?'), std::string::npos);
#else
  EXPECT_EQ(UnitsToMultiByte(std::u16string(u"a\u65E5b")), "a?b");
#endif
}

TEST(Locale, SingleByteLocaleConvertsAndFoldsItsLetters) {
  ScopedLocale latin({".1252", "English_United States.1252", "en_US.CP1252"}, &IsWindows1252);
  if (!latin.active())
    return qvbase::test::MissingLocale("Windows-1252");
  const std::string narrow = "\xC4rger \x80 \xE9t\xE9";
  const std::u16string units = u"\u00C4rger \u20AC \u00E9t\u00E9";
  EXPECT_EQ(MultiByteToUnits(narrow), units);
  EXPECT_EQ(UnitsToMultiByte(units), narrow);
  EXPECT_EQ(CharLength("\xC4"), 1);
  const UnitRow rows[] = {
      {"nocase folds accents", &UnitsCompareIgnoreCase, u"\u00C4B", u"\u00E4b", 2, 0},
      {"nocase still orders", &UnitsCompareIgnoreCase, u"\u00C4B", u"\u00E4c", 2, -1},
  };
  CheckRows(rows, sizeof rows / sizeof rows[0]);
}

TEST(Locale, DoubleByteLocaleMeasuresAndConvertsItsCharacters) {
  ScopedLocale japanese({".932", "Japanese_Japan.932", "ja_JP.SJIS", "ja_JP.sjis"}, &IsShiftJis);
  if (!japanese.active())
    return qvbase::test::MissingLocale("Shift JIS");
  const std::string narrow = "\x93\xFA\x96\x7B"
                             "a";
  const std::u16string units = u"\u65E5\u672Ca";
  EXPECT_EQ(CharLength(narrow.c_str()), 2);
  EXPECT_EQ(CharLength(narrow.c_str() + 4), 1);
  EXPECT_EQ(MultiByteToUnits(narrow), units);
  EXPECT_EQ(UnitsToMultiByte(units), narrow);
}

TEST(Locale, InvalidInputNeverStopsAConversion) {
  ScopedUtf8Locale utf8;
  std::string junk;
  for (int i = 0; i < 256; ++i)
    junk += static_cast<char>(255 - i);
  const std::u16string units = MultiByteToUnits(junk);
  EXPECT_GE(units.size(), 128u);
  EXPECT_LE(units.size(), junk.size());
  std::u16string surrogates;
  for (unsigned u = 0xD7F0; u < 0xE010; ++u)
    surrogates += static_cast<char16_t>(u);
  EXPECT_FALSE(UnitsToMultiByte(surrogates).empty());
}

} // namespace

// --- 7-bit traits -----------------------------------------------------------

namespace {

unsigned FoldedAscii(int c) {
  return c >= 'A' && c <= 'Z' ? static_cast<unsigned>(c + 32) : static_cast<unsigned>(c);
}

// What the traits claim, checked byte by byte and pair by pair against the
// character-wise functions themselves.
void ExpectTraitsHold() {
  const SevenBitTraits traits = CurrentSevenBitTraits();
  for (int c = 1; c < 128; ++c) {
    const char one[2] = {static_cast<char>(c), '\0'};
    if (traits.singleBytes) {
      EXPECT_EQ(CharLength(one), 1) << "byte " << c;
    }
    if (!traits.foldsAsAscii)
      continue;
    for (int d = 1; d < 128; ++d) {
      const char other[2] = {static_cast<char>(d), '\0'};
      const unsigned fc = FoldedAscii(c), fd = FoldedAscii(d);
      const int expected = fc < fd ? -1 : (fc > fd ? 1 : 0);
      ASSERT_EQ(MultiByteCompareIgnoreCase(one, other, 1), expected) << "bytes " << c << ", " << d;
    }
  }
}

} // namespace

TEST(Locale, SevenBitTraitsHoldInTheCLocale) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
  EXPECT_TRUE(CurrentSevenBitTraits().singleBytes);
#if !defined(_WIN32)
  EXPECT_TRUE(CurrentSevenBitTraits().foldsAsAscii);
#endif
  ExpectTraitsHold();
}

TEST(Locale, SevenBitTraitsHoldInUtf8) {
  ScopedUtf8Locale utf8;
  if (!utf8.active())
    return qvbase::test::MissingSetUpLocale("UTF-8");
  EXPECT_TRUE(CurrentSevenBitTraits().singleBytes);
  ExpectTraitsHold();
}

TEST(Locale, SevenBitTraitsFollowALocaleChange) {
  ScopedLocale c("C");
  ASSERT_TRUE(c.active());
  const SevenBitTraits inC = CurrentSevenBitTraits();
  {
    ScopedLocale turkish("tr_TR.UTF-8");
    if (!turkish.active())
      return qvbase::test::MissingSetUpLocale("Turkish tr_TR.UTF-8");
    // The Turkic capital I folds to the dotless i, not to 'i'.
    EXPECT_FALSE(CurrentSevenBitTraits().foldsAsAscii);
    ExpectTraitsHold();
  }
  const SevenBitTraits back = CurrentSevenBitTraits();
  EXPECT_EQ(inC.singleBytes, back.singleBytes);
  EXPECT_EQ(inC.foldsAsAscii, back.foldsAsAscii);
}

TEST(Locale, IgnoreCaseWithinKnownBytesAnswersAsTheByteCompare) {
  ScopedLocale c("C");
  // Every pair of bytes, in the first and in the second word of two texts
  // that differ in case only.
  for (std::size_t at : {2u, 12u}) {
    for (int x = 0; x < 256; ++x) {
      for (int y = 0; y < 256; ++y) {
        char a[] = "abcdefghijklmnopqr";
        char b[] = "ABCDEFGHIJKLMNOPQR";
        a[at] = static_cast<char>(x);
        b[at] = static_cast<char>(y);
        ASSERT_EQ(AsciiCompareIgnoreCase(a, b, 18), AsciiCompareIgnoreCaseWithin(a, b, 18))
            << "bytes " << x << ", " << y << " at " << at;
      }
    }
  }
  EXPECT_EQ(AsciiCompareIgnoreCaseWithin("abc\0efghijkl", "ABC\0EFGxijkl", 12), 0);
  EXPECT_EQ(AsciiCompareIgnoreCaseWithin("abcdefgh@", "ABCDEFGH`", 9), -1);
  EXPECT_EQ(AsciiCompareIgnoreCaseWithin("abcdefgh{", "ABCDEFGH[", 9), 1);
}
