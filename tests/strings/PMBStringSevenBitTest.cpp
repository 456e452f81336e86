// The multibyte handler over pure 7-bit content: positions, searches and
// comparisons byte by byte, which must answer as the character-wise ones do.
#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "strings/PStringHandlerImpl.h"
#include "support/ErrorTestSupport.h"
#include "support/LocaleTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

// Pure 7-bit content is handled byte by byte; the same content followed by one
// byte of 128 or above is handled character by character. Both must answer
// alike wherever the extra byte plays no part.

namespace {

// The locales the checks run in: "C" and, where the system has them, UTF-8,
// a German UTF-8 locale and a Turkish one (whose capital I does not fold to
// 'i', so that case-insensitive work stays character-wise there).
const char* const kLocales[] = {"C", "C.UTF-8", "de_DE.UTF-8", "tr_TR.UTF-8"};

// Byte offset of character `pos` as the handler defines it: one locale
// character length at a time, stopping at a 0 byte and at the end.
ULONG SteppedOffset(const char* text, ULONG size, ULONG pos) {
  ULONG at = 0;
  for (ULONG i = 0; i < pos && at < size; ++i) {
    if (text[at] == '\0')
      break;
    int n = std::mblen(text + at, MB_CUR_MAX);
    at += n > 0 ? static_cast<ULONG>(n) : 1u;
  }
  return at < size ? at : size;
}

// A multibyte handler over `bytes` bytes that may hold 0 bytes (made through
// an ASCII handler, the one way such content arrives).
PStringHandler* MultiByteOver(const char* bytes, ULONG size) {
  PASCIIStringHandler ascii(bytes, 0, size, /*copy=*/true);
  return GMBStringHandlerConstructor2(&ascii);
}

} // namespace

TEST(PMBString, SevenBitPositionsAreThoseOfCharacterStepping) {
  for (const char* name : kLocales) {
    qvbase::test::ScopedLocale locale(name);
    if (!locale.active())
      continue;
    SCOPED_TRACE(name);
    const struct {
      const char* bytes;
      ULONG size;
    } kRows[] = {{"", 0}, {"a", 1}, {"plain text", 10}, {"ab\0cd", 5}, {"\0xyz", 4}, {"xyz\0", 4}};
    for (const auto& row : kRows) {
      SCOPED_TRACE(std::string(row.bytes, row.size));
      std::unique_ptr<PStringHandler> handler(MultiByteOver(row.bytes, row.size));
      ASSERT_EQ(handler->GetCodeSet(), kCodeSetASCII);
      // The same bytes and one of 128 or above: character by character.
      std::string longer(row.bytes, row.size);
      longer += '\xE9';
      std::unique_ptr<PStringHandler> mixed(MultiByteOver(longer.data(), row.size + 1));
      for (ULONG pos = 0; pos <= row.size + 2; ++pos) {
        SCOPED_TRACE(pos);
        const ULONG at = SteppedOffset(row.bytes, row.size, pos);
        const LONG expected = pos < row.size && at < row.size ? row.bytes[at] : 0;
        EXPECT_EQ(handler->GetChar(pos), expected);
        std::unique_ptr<PStringHandler> slice(handler->GetSubHandler(pos, 2));
        std::unique_ptr<PStringHandler> mixedSlice(mixed->GetSubHandler(pos, 2));
        ASSERT_LE(slice->GetSize(), 2u);
        EXPECT_EQ(std::string(row.bytes + at, slice->GetSize()),
                  std::string(static_cast<const char*>(slice->GetContent()), slice->GetSize()));
        if (pos < row.size) {
          EXPECT_EQ(mixed->GetChar(pos), handler->GetChar(pos));
          EXPECT_EQ(
              std::string(static_cast<const char*>(mixedSlice->GetContent()), mixedSlice->GetSize())
                  .substr(0, slice->GetSize()),
              std::string(static_cast<const char*>(slice->GetContent()), slice->GetSize()));
        }
      }
    }
  }
}

TEST(PMBString, ZeroByteStopsSevenBitPositions) {
  // Stepping stops at the 0 byte: every later position reads there.
  std::unique_ptr<PStringHandler> handler(MultiByteOver("ab\0cd", 5));
  EXPECT_EQ(handler->GetCodeSet(), kCodeSetASCII);
  EXPECT_EQ(handler->GetLen(), 5u);
  EXPECT_EQ(LONG('b'), handler->GetChar(1));
  EXPECT_EQ(handler->GetChar(3), 0);
  EXPECT_EQ(handler->GetChar(4), 0);
  std::unique_ptr<PStringHandler> tail(handler->GetSubHandler(3, 2));
  EXPECT_EQ(tail->GetLen(), 0u);
  handler->InsertChar('X', 4);
  EXPECT_EQ(std::string(static_cast<const char*>(handler->GetContent()), 6),
            std::string("abX\0cd", 6));
}

TEST(PMBString, SevenBitSearchFindsWhatCharacterWiseSearchFinds) {
  const struct {
    const char* hay;
    const char* needle;
    ULONG from;
    TypStringComp mode;
    ULONG found;
  } kRows[] = {
      {"needle in a haystack", "needle", 0, kStrCompExact, 0},
      {"a haystack with a needle", "needle", 0, kStrCompExact, 18},
      {"a haystack with a needle", "needle", 18, kStrCompExact, 18},
      {"a haystack with a needle", "needle", 19, kStrCompExact, kStringNotFound},
      {"needle needle", "needle", 1, kStrCompExact, 7},
      {"no match", "needle", 0, kStrCompExact, kStringNotFound},
      {"short", "longer than short", 0, kStrCompExact, kStringNotFound},
      {"abcabd", "abd", 0, kStrCompExact, 3},
      {"aaaab", "aab", 0, kStrCompExact, 2},
      {"x", "x", 0, kStrCompExact, 0},
      {"x", "x", 1, kStrCompExact, kStringNotFound},
      {"x", "x", 9, kStrCompExact, kStringNotFound},
      {"Needle", "needle", 0, kStrCompExact, kStringNotFound},
      {"a NEEDLE", "needle", 0, kStrCompIgnoreCase, 2},
      {"a NEEDLE", "needle", 0, kStrCompNoCase, 2},
      {"a NEEDLE", "needle", 0, kStrCompCollate, kStringNotFound},
      {"a needle", "needle", 0, kStrCompCollate, 2},
      {"a NEEDLE", "needle", 0, TypStringComp(9), kStringNotFound},
      // Only A-Z fold: the neighbours of the letters stay apart.
      {"@[`{z", "Z", 0, kStrCompIgnoreCase, 4},
      {"`{[@a", "A", 0, kStrCompIgnoreCase, 4},
      {"a[b{c", "{", 0, kStrCompIgnoreCase, 3},
      {"a`b@c", "@", 0, kStrCompIgnoreCase, 3},
      {"ZZ[", "z[", 0, kStrCompIgnoreCase, 1},
      // A needle of 128 or above matches no 7-bit text.
      {"caf\x65 cafe", "caf\xE9", 0, kStrCompExact, kStringNotFound},
      {"cafe", "caf\xE9", 0, kStrCompIgnoreCase, kStringNotFound},
  };
  for (const char* name : kLocales) {
    qvbase::test::ScopedLocale locale(name);
    if (!locale.active())
      continue;
    for (const auto& row : kRows) {
      SCOPED_TRACE(std::string(name) + ": \"" + row.hay + "\" / \"" + row.needle + "\" from " +
                   std::to_string(row.from) + " mode " + std::to_string(int(row.mode)));
      PMBStringHandler hay(row.hay, 0, std::strlen(row.hay), /*copy=*/true);
      PMBStringHandler needle(row.needle, 0, std::strlen(row.needle), /*copy=*/false);
      ASSERT_EQ(hay.GetCodeSet(), kCodeSetASCII);
      EXPECT_EQ(row.found, hay.FindSubHandlerFwd(&needle, row.from, row.mode));
      // Character by character: the same text with a byte of 128 or above at
      // its end, where no needle of the table can match.
      const std::string longer = std::string(row.hay) + "\xE9";
      PMBStringHandler mixed(longer.c_str(), 0, longer.size(), /*copy=*/true);
      ASSERT_EQ(mixed.GetCodeSet(), kCodeSetMultiByte);
      if (row.from <= hay.GetLen() - std::min<ULONG>(hay.GetLen(), needle.GetLen()) ||
          needle.GetLen() > hay.GetLen()) {
        EXPECT_EQ(row.found, mixed.FindSubHandlerFwd(&needle, row.from, row.mode));
      }
      // Through PString, with the needle as text and as an ASCII string.
      PString text(row.hay, true);
      EXPECT_EQ(row.found, text.FindForward(row.needle, row.from, row.mode));
      if (row.mode == kStrCompExact || row.mode == kStrCompIgnoreCase) {
        qvbase::test::ScopedErrorCapture ignore;
        PASCIIString asciiNeedle(row.needle, true);
        if (ignore.hook.calls == 0) {
          EXPECT_EQ(row.found, text.FindForward(asciiNeedle, row.from, row.mode));
        }
      }
    }
  }
}

TEST(PMBString, SevenBitSearchWithZeroByteInContent) {
  // Stepping stops at the 0 byte, so every candidate past it compares from
  // there; such content is searched character by character.
  std::unique_ptr<PStringHandler> hay(MultiByteOver("ab\0ab", 5));
  PMBStringHandler needle("ab", 0, 2, /*copy=*/true);
  EXPECT_EQ(hay->FindSubHandlerFwd(&needle, 0, kStrCompExact), 0u);
  EXPECT_EQ(hay->FindSubHandlerFwd(&needle, 1, kStrCompExact), kStringNotFound);
  EXPECT_EQ(hay->FindSubHandlerFwd(&needle, 3, kStrCompExact), kStringNotFound);
}

TEST(PMBString, SevenBitComparisonsAgreeWithTheCompareFunctions) {
  const char* const kTexts[] = {"",
                                "a",
                                "A",
                                "ab",
                                "AB",
                                "abc",
                                "abd",
                                "Abc",
                                "aBC",
                                "@",
                                "[",
                                "`",
                                "{",
                                "Z",
                                "z",
                                "a@",
                                "A`",
                                "z[",
                                "Z{",
                                "y",
                                "zz",
                                "ZZ",
                                "abcdefghijklmnopqrstuvwxyz",
                                "abcdefghijklmnopqrstuvwxyzABCDEFGHIJ",
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghij",
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghi@",
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefgh[j",
                                "abcdefghijklmnopqrstuvwxyzabcdefgh{j",
                                "abcdefgh@[`{",
                                "ABCDEFGH`{@["};
  const TypStringComp kModes[] = {kStrCompExact, kStrCompIgnoreCase, kStrCompCollate,
                                  kStrCompNoCase, TypStringComp(9)};
  for (const char* name : kLocales) {
    qvbase::test::ScopedLocale locale(name);
    if (!locale.active())
      continue;
    for (const char* a : kTexts) {
      for (const char* b : kTexts) {
        const ULONG count = static_cast<ULONG>(std::max(std::strlen(a), std::strlen(b)));
        for (TypStringComp mode : kModes) {
          SCOPED_TRACE(std::string(name) + ": \"" + a + "\" / \"" + b + "\" mode " +
                       std::to_string(int(mode)));
          const LONG expected = GMBGetCmpMethod(mode)(a, b, count);
          PMBStringHandler mine(a, 0, std::strlen(a), /*copy=*/true);
          PMBStringHandler theirs(b, 0, std::strlen(b), /*copy=*/false);
          EXPECT_EQ(mine.CompareSubHandler(0, &theirs, 0, count, mode), expected);
          PASCIIStringHandler ascii(b, 0, std::strlen(b), /*copy=*/true);
          EXPECT_EQ(mine.CompareSubHandler(0, &ascii, 0, count, mode), expected);
          if (*a && *b) {
            EXPECT_EQ(PString(a, true).CompareTo(b, mode), expected);
          }
        }
      }
    }
  }
}

TEST(PMBString, SevenBitComparisonFromAnOffsetAndOverACount) {
  PMBStringHandler mine("xxABCD", 0, 6, /*copy=*/true);
  PMBStringHandler theirs("abcz", 0, 4, /*copy=*/true);
  EXPECT_EQ(mine.CompareSubHandler(2, &theirs, 0, 3, kStrCompIgnoreCase), 0);
  EXPECT_EQ(mine.CompareSubHandler(2, &theirs, 0, 4, kStrCompIgnoreCase), -1);
  EXPECT_EQ(mine.CompareSubHandler(3, &theirs, 1, 3, kStrCompIgnoreCase), -1);
  EXPECT_EQ(GMBGetCmpMethod(kStrCompIgnoreCase)("BCD", "bcz", 3),
            mine.CompareSubHandler(3, &theirs, 1, 3, kStrCompIgnoreCase));
  EXPECT_EQ(mine.CompareSubHandler(3, &theirs, 1, 2, kStrCompIgnoreCase), 0);
  EXPECT_EQ(mine.CompareSubHandler(2, &theirs, 0, 1, kStrCompExact), -1);
  // Positions past the end compare from the terminator.
  EXPECT_EQ(mine.CompareSubHandler(9, &theirs, 0, 2, kStrCompExact), -1);
  EXPECT_EQ(mine.CompareSubHandler(9, &theirs, 7, 2, kStrCompExact), 0);
}

TEST(PMBString, BorrowedRangeComparesOnIntoTheCallersText) {
  // A borrowed range ends inside the caller's text, which is not terminated
  // there: a comparison running past the range reads the caller's next
  // bytes, as the compare functions always have.
  const char caller[] = "abcdef";
  PMBStringHandler borrowed(caller, 0, 3, /*copy=*/false);
  PMBStringHandler other("abcd", 0, 4, /*copy=*/true);
  EXPECT_EQ(borrowed.GetLen(), 3u);
  EXPECT_EQ(borrowed.CompareSubHandler(0, &other, 0, 4, kStrCompExact), 0);
  EXPECT_EQ(borrowed.CompareSubHandler(0, &other, 0, 4, kStrCompIgnoreCase), 0);
  EXPECT_EQ(GMBGetCmpMethod(kStrCompExact)(caller, "abcd", 4),
            borrowed.CompareSubHandler(0, &other, 0, 4, kStrCompExact));
}

TEST(PMBString, AppendingKeepsTheSevenBitFlagAsARetestWould) {
  PString text("abc", true);
  text += "defg";
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  EXPECT_EQ(text.Len(), 7u);
  EXPECT_EQ(text.FullSize(), 9u);
  text += "\xE9";
  EXPECT_EQ(text.CodeSet(), kCodeSetMultiByte);
  text += "h";
  EXPECT_EQ(text.CodeSet(), kCodeSetMultiByte);
  text.Insert('i', 0);
  EXPECT_EQ(text.CodeSet(), kCodeSetMultiByte);
  PString plain("abc", true);
  plain.Insert('\x7F', 1);
  plain.Insert(PMBString("xy", true), 0);
  EXPECT_EQ(plain.CodeSet(), kCodeSetASCII);
  EXPECT_STREQ("xya\x7F"
               "bc",
               static_cast<const char*>(PMBString(plain)));
}

TEST(PMBString, SevenBitBytesWithLengthAboveSizeStayMultibyteAfterInsert) {
  // Stepping stops at the terminator, so a length beyond the text is kept as
  // given: size and length differ, and the content does not count as 7-bit
  // however much 7-bit text comes in.
  PMBStringHandler handler("ab", 0, 5, /*copy=*/true);
  ASSERT_EQ(handler.GetSize(), 2u);
  ASSERT_EQ(handler.GetLen(), 5u);
  EXPECT_EQ(handler.GetCodeSet(), kCodeSetMultiByte);
  PMBStringHandler more("cd", 0, 2, /*copy=*/true);
  handler.InsertHandler(&more, 9);
  EXPECT_STREQ("abcd", static_cast<const char*>(handler.GetContent()));
  EXPECT_EQ(handler.GetLen(), 7u);
  EXPECT_EQ(handler.GetCodeSet(), kCodeSetMultiByte);
  handler.InsertChar('e', 9);
  EXPECT_STREQ("abcde", static_cast<const char*>(handler.GetContent()));
  EXPECT_EQ(handler.GetCodeSet(), kCodeSetMultiByte);
}

TEST(PMBString, WordAtATimeFoldingComparesAsByteByByte) {
  // Every pair of 7-bit bytes, in the first and in the second word of two
  // otherwise equal texts that differ in case.
  for (ULONG at : {3u, 11u}) {
    for (int c = 1; c < 128; ++c) {
      for (int d = 1; d < 128; ++d) {
        char a[] = "abcdefghijklmnopq";
        char b[] = "ABCDEFGHIJKLMNOPQ";
        a[at] = static_cast<char>(c);
        b[at] = static_cast<char>(d);
        const LONG bytewise = qvbase::strings::AsciiFoldCompare(a, b, 17);
        ASSERT_EQ(bytewise, qvbase::strings::AsciiFoldCompare(a, b, 17, /*readable=*/17))
            << "bytes " << c << ", " << d << " at " << at;
        const unsigned fc = qvbase::strings::AsciiFold(a[at]),
                       fd = qvbase::strings::AsciiFold(b[at]);
        ASSERT_EQ(fc < fd ? -1 : (fc > fd ? 1 : 0), bytewise);
      }
    }
  }
  // A 0 byte inside a word ends the comparison there.
  EXPECT_EQ(qvbase::strings::AsciiFoldCompare("abc\0efghijk", "ABC\0EFGxijk", 12, 12), 0);
  // Bytes of 128 and above leave the word path to the byte loop.
  EXPECT_EQ(qvbase::strings::AsciiFoldCompare("abcdefg\xE9ijk", "ABCDEFGHIJK", 11, 11), 1);
}

TEST(PMBString, TurkishCapitalIDoesNotMatchSmallIIgnoringCase) {
  qvbase::test::ScopedLocale turkish("tr_TR.UTF-8");
  if (!turkish.active())
    return qvbase::test::MissingSetUpLocale("Turkish tr_TR.UTF-8");
  // The locale folds I to the dotless i: 7-bit text is still compared
  // through the locale's folding.
  const PString text("LIST list", true);
  EXPECT_EQ(text.FindForward("list", 0, kStrCompIgnoreCase), 5u);
  EXPECT_NE(0, PString("I", true).CompareTo("i", kStrCompIgnoreCase));
  EXPECT_EQ(GMBGetCmpMethod(kStrCompIgnoreCase)("LIST", "list", 4),
            PString("LIST", true).CompareTo("list", kStrCompIgnoreCase));
  {
    qvbase::test::ScopedLocale c("C");
    EXPECT_EQ(text.FindForward("list", 0, kStrCompIgnoreCase), 0u);
  }
}

TEST(PMBString, InsertingAStringIntoItselfCopiesItsOldContent) {
  // The handler inserts its own content: the source is the buffer being
  // replaced.
  PMBString text("abc", true);
  text.Insert(text, 1);
  EXPECT_STREQ("aabcbc", static_cast<const char*>(text));
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  PMBString mixed("a\xE9", true);
  mixed.Insert(mixed, 2);
  EXPECT_STREQ("a\xE9"
               "a\xE9",
               static_cast<const char*>(mixed));
  EXPECT_EQ(mixed.CodeSet(), kCodeSetMultiByte);
}

TEST(PMBString, SevenBitCharacterSearchFindsWhatCharacterWiseSearchFinds) {
  const struct {
    LONG ch;
    ULONG from;
    TypStringComp mode;
    ULONG found;
  } kRows[] = {
      {'^', 0, kStrCompExact, 3},
      {'^', 3, kStrCompExact, 3},
      {'^', 4, kStrCompExact, 8},
      {'^', 9, kStrCompExact, kStringNotFound},
      {'^', 40, kStrCompExact, kStringNotFound},
      {'x', 0, kStrCompExact, kStringNotFound},
      {'M', 0, kStrCompExact, kStringNotFound},
      {'M', 0, kStrCompIgnoreCase, 6},
      {0, 0, kStrCompExact, kStringNotFound},
      // 128 packs as the bytes 0 and 1; -23 as the byte 0xE9.
      {128, 0, kStrCompExact, kStringNotFound},
      {-23, 0, kStrCompExact, kStringNotFound},
      {'^', 0, TypStringComp(7), 3},
  };
  for (const char* name : kLocales) {
    qvbase::test::ScopedLocale locale(name);
    if (!locale.active())
      continue;
    PMBStringHandler text("ab ^name^ c", 0, 11, /*copy=*/true);
    PMBStringHandler mixed("ab ^name^ c\xE9", 0, 12, /*copy=*/true);
    ASSERT_EQ(text.GetCodeSet(), kCodeSetASCII);
    ASSERT_EQ(mixed.GetCodeSet(), kCodeSetMultiByte);
    for (const auto& row : kRows) {
      SCOPED_TRACE(std::string(name) + ": " + std::to_string(row.ch) + " from " +
                   std::to_string(row.from));
      EXPECT_EQ(row.found, text.FindCharFwd(row.ch, row.from, row.mode));
      // The extra byte is found where it is.
      EXPECT_EQ(row.ch == -23 ? 11u : row.found, mixed.FindCharFwd(row.ch, row.from, row.mode));
    }
  }
  // A 0 byte in the content: searched character by character, which steps
  // over it.
  std::unique_ptr<PStringHandler> zero(MultiByteOver("a\0b^", 4));
  EXPECT_EQ(zero->FindCharFwd('^', 0, kStrCompExact), 3u);
  EXPECT_EQ(zero->FindCharFwd(128, 0, kStrCompExact), 1u);
}

TEST(PMBString, SevenBitComparisonReadsNoFurtherThanTheCharacterWiseOne) {
  // A borrowed text that ends exactly where its memory does: a
  // case-insensitive comparison decided inside it reads nothing past it.
  std::unique_ptr<char[]> exact(new char[4]);
  std::memcpy(exact.get(), "abcX", 4);
  PASCIIStringHandler borrowed(exact.get(), 0, 4, /*copy=*/false);
  PMBStringHandler mine("abcd", 0, 4, /*copy=*/true);
  EXPECT_EQ(mine.CompareSubHandler(0, &borrowed, 0, 5, kStrCompIgnoreCase), -1);
  PMBStringHandler longer("abcxyz", 0, 6, /*copy=*/true);
  EXPECT_EQ(longer.CompareSubHandler(0, &borrowed, 0, 4, kStrCompIgnoreCase), 0);
  EXPECT_EQ(longer.CompareSubHandler(0, &borrowed, 0, 4, kStrCompExact), 1);
  const PASCIIStringHandler tail(exact.get(), 2, 2, /*copy=*/false);
  EXPECT_EQ(longer.FindSubHandlerFwd(&tail, 0, kStrCompIgnoreCase), 2u);
}
