// Identifiers as values: the null identifier, copies and bytewise comparison.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PUniversalID.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

namespace {

// {12345678-9ABC-DEF0-0123-456789ABCDEF}
const _GUID kSample = {
    0x12345678, 0x9ABC, 0xDEF0, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};

TEST(PUniversalID, DefaultIsTheNullIdentifier) {
  PUniversalID id;
  EXPECT_FALSE(id.IsValid());
  const _GUID null = {};
  EXPECT_TRUE(id == null);
  EXPECT_EQ(std::memcmp(static_cast<const _GUID*>(id), &null, sizeof null), 0);
}

TEST(PUniversalID, FromGuidKeepsTheSixteenBytes) {
  PUniversalID id(kSample);
  EXPECT_TRUE(id.IsValid());
  EXPECT_EQ(std::memcmp(static_cast<const _GUID*>(id), &kSample, sizeof kSample), 0);
  _GUID copy = id;
  EXPECT_TRUE(IsEqualGUID(copy, kSample));
}

TEST(PUniversalID, CopyAndAssignmentCopyTheBytes) {
  PUniversalID original(kSample);
  PUniversalID copy(original);
  EXPECT_TRUE(copy == original);
  PUniversalID assigned;
  assigned = original;
  EXPECT_TRUE(assigned == kSample);
  EXPECT_NE(static_cast<const _GUID*>(assigned), static_cast<const _GUID*>(original));
}

TEST(PUniversalID, AnySetByteMakesItValidAndDifferent) {
  for (int byte = 0; byte < 16; ++byte) {
    SCOPED_TRACE(byte);
    _GUID raw = {};
    reinterpret_cast<unsigned char*>(&raw)[byte] = 0x01;
    PUniversalID id(raw);
    EXPECT_TRUE(id.IsValid());
    EXPECT_TRUE(id != PUniversalID());
    EXPECT_FALSE(id == PUniversalID());
    EXPECT_TRUE(id != kSample);
  }
}

TEST(PUniversalID, IsARootObjectWithTheIdentifierBehindItsVirtualTablePointer) {
  EXPECT_TRUE((std::is_base_of<PRoot, PUniversalID>::value));
  EXPECT_EQ(sizeof(PUniversalID), sizeof(void*) + 16);
}

} // namespace

namespace {

_GUID MakeGuid(std::uint32_t d1, std::uint16_t d2, std::uint16_t d3,
               std::initializer_list<int> d4) {
  _GUID id = {d1, d2, d3, {}};
  int i = 0;
  for (int b : d4)
    id.Data4[i++] = static_cast<std::uint8_t>(b);
  return id;
}

TEST(PUniversalID, GroupFourAndFiveOneAreFlagsNotValues) {
  // {00000000-0000-0000-1200-000000000000}
  PUniversalID id(MakeGuid(0, 0, 0, {0x12, 0x00, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(id.Group4(), 1u);
  EXPECT_EQ(id.Group51(), 0u);
  PUniversalID other(MakeGuid(0, 0, 0, {0, 0, 0x00, 0x34, 0, 0, 0, 0}));
  EXPECT_EQ(other.Group4(), 0u);
  EXPECT_EQ(other.Group51(), 1u);
}

TEST(PUniversalID, GroupsAndHalvesReadTheLittleEndianLayout) {
  PUniversalID id(
      MakeGuid(0x01020304, 0x0506, 0x0708, {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10}));
  EXPECT_EQ(id.Group1(), 0x01020304u);
  EXPECT_EQ(id.Group2(), 0x0506u);
  EXPECT_EQ(id.Group3(), 0x0708u);
  EXPECT_EQ(id.Group52(), 0x100F0E0Du);
  EXPECT_EQ(id.Huge1(), 0x0708050601020304ull);
  EXPECT_EQ(id.Huge2(), 0x100F0E0D0C0B0A09ull);
}

TEST(PUniversalID, H2LayoutConvertsBothWays) {
  _GUID g = MakeGuid(0xDEADBEEF, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8});
  PUniversalID id(g);
  _H2_GUID h2 = id;
  EXPECT_EQ(h2.Data1, 0xDEADBEEFu);
  EXPECT_EQ(h2.Data4[7], 8);
  EXPECT_TRUE(PUniversalID(h2) == g);
  EXPECT_EQ(sizeof(_H2_GUID), 16u);
}

TEST(PUniversalID, CreateNewGivesFreshRandomIdentifiers) {
  PUniversalID a, b;
  a.CreateNew();
  b.CreateNew();
  EXPECT_TRUE(a.IsValid());
  EXPECT_TRUE(a != b);
}

TEST(PAutomaticUID, EmptyNameIsTheNullIdentifier) {
  PAutomaticUID id("");
  EXPECT_FALSE(id.IsValid());
  EXPECT_FALSE(PAutomaticUID(nullptr).IsValid());
}

TEST(PAutomaticUID, OneLetterPacksItsCodeAndChecksum) {
  PAutomaticUID id("A");
  EXPECT_EQ(id.Huge1(), (4ull << 60) | (11ull << 54));
  EXPECT_EQ(id.Huge2(), 1ull << 60);
  // {00000000-0000-42C0-0000-000000000010}
  EXPECT_TRUE(id == MakeGuid(0, 0, 0x42C0, {0, 0, 0, 0, 0, 0, 0, 0x10}));
}

TEST(PAutomaticUID, SkippedCharactersChangeOnlyTheChecksum) {
  PAutomaticUID dashed("a-b"), plain("ab");
  const std::uint64_t payload = (1ull << 60) - 1; // bits 0..59
  EXPECT_EQ(dashed.Huge1() & payload, plain.Huge1() & payload);
  EXPECT_EQ(dashed.Huge2() & payload, plain.Huge2() & payload);
  EXPECT_TRUE(dashed != plain);
  // 'a' is 37, 'b' 38: the first character highest.
  EXPECT_EQ(plain.Huge1() & payload, (37ull << 54) | (38ull << 48));
}

TEST(PAutomaticUID, CodesCoverDigitsAndBothCases) {
  struct Row {
    const char* name;
    std::uint64_t code;
  };
  const Row rows[] = {{"1", 1}, {"9", 9}, {"0", 10}, {"A", 11}, {"Z", 36}, {"a", 37}, {"z", 62}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(PAutomaticUID(row.name).Huge1() & ((1ull << 60) - 1), row.code << 54);
  }
}

TEST(PAutomaticUID, TwentyCodesFillBothHalvesAndTheRestOnlyCountInTheSum) {
  const char* twenty = "ABCDEFGHIJKLMNOPQRST";
  PAutomaticUID id(twenty);
  const std::uint64_t payload = (1ull << 60) - 1;
  std::uint64_t low = 0, high = 0;
  for (int i = 0; i < 10; ++i) {
    low |= static_cast<std::uint64_t>(11 + i) << (54 - 6 * i);
    high |= static_cast<std::uint64_t>(21 + i) << (54 - 6 * i);
  }
  EXPECT_EQ(id.Huge1() & payload, low);
  EXPECT_EQ(id.Huge2() & payload, high);
  PAutomaticUID longer("ABCDEFGHIJKLMNOPQRSTUV");
  EXPECT_EQ(longer.Huge1() & payload, low);
  EXPECT_EQ(longer.Huge2() & payload, high);
  EXPECT_TRUE(longer != id); // the checksum saw the extra characters
  EXPECT_TRUE(PAutomaticUID("Document") == PAutomaticUID("Document"));
}

} // namespace

#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>

#include <random>

namespace {

std::string Text(const PUniversalID& id) {
  PMBString text = static_cast<PString>(id);
  return static_cast<const char*>(text);
}

PError ParseError(const char* text) {
  return qvbase::test::Caught([&] { PUniversalID id{PASCIIString(text, true)}; });
}

TEST(PUniversalID, NullIdentifierText) {
  EXPECT_EQ(Text(PUniversalID()), "{00000000-0000-0000-0000-000000000000}");
}

TEST(PUniversalID, TextHasUpperCaseFullWidthFields) {
  _GUID g = MakeGuid(0xA, 0xBC, 0xDEF, {0x1, 0xAB, 0, 0xFF, 0x10, 0x2, 0x3, 0xC4});
  EXPECT_EQ(Text(PUniversalID(g)), "{0000000A-00BC-0DEF-01AB-00FF100203C4}");
  EXPECT_EQ(Text(PUniversalID(IID_IStream)), "{0000000C-0000-0000-C000-000000000046}");
}

TEST(PUniversalID, TextRoundTripsForAnyIdentifier) {
  std::mt19937 random(1213);
  for (int i = 0; i < 500; ++i) {
    _GUID g;
    g.Data1 = random();
    g.Data2 = static_cast<std::uint16_t>(random());
    g.Data3 = static_cast<std::uint16_t>(random());
    for (auto& b : g.Data4)
      b = static_cast<std::uint8_t>(random());
    PUniversalID id(g);
    std::string text = Text(id);
    ASSERT_EQ(text.size(), 38u);
    EXPECT_EQ(text.find_first_of("abcdef"), std::string::npos) << text;
    PUniversalID back{PASCIIString(text.c_str(), true)};
    ASSERT_TRUE(back == id) << text;
  }
}

TEST(PUniversalID, LowerCaseDigitsParseToo) {
  PUniversalID id{PASCIIString("{0000000c-0000-0000-c000-000000000046}")};
  EXPECT_TRUE(id == IID_IStream);
}

TEST(PUniversalID, ParsingChecksLengthThenBracesThenHyphens) {
  struct Row {
    const char* what;
    const char* text;
    ULONG line;
  };
  const Row rows[] = {
      {"no braces (36 characters)", "00000000-0000-0000-0000-000000000000", 68},
      {"one too long", "{00000000-0000-0000-0000-000000000000}}", 68},
      {"empty", "", 68},
      {"round bracket", "(00000000-0000-0000-0000-000000000000}", 71},
      {"no closing brace", "{00000000-0000-0000-0000-0000000000000", 71},
      {"plus at 19", "{00000000-0000-0000+0000-000000000000}", 74},
      {"no hyphen at 9", "{000000000000-0000-0000-000000000000-}", 74},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    PError error = ParseError(row.text);
    EXPECT_EQ(error.Code(), kErrInvalidArgument);
    EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
    EXPECT_STREQ(error.File(), "src\\puniversalid");
    EXPECT_EQ(error.Line(), row.line);
  }
}

// Replaces the text being parsed when the first error reaches it, and lets
// every error through.
class RewriteOnFirstError : public PErrorHook {
public:
  explicit RewriteOnFirstError(PASCIIString* text) : m_text(text) {}
  TypErrorHandlingEnum DisplayError(PError&, ULONG) override {
    if (calls++ == 0)
      *m_text = PASCIIString("{0000000C-0000-0000-C000-000000000046}", true);
    return ErrorHandlingIgnore;
  }
  int calls = 0;

private:
  PASCIIString* m_text;
};

TEST(PUniversalID, ChecksLookAtTheTextAfreshAfterALetThroughSignal) {
  // The length check fails and its hook replaces the text: the later
  // checks and the fields read the new text, not the old one's characters.
  PASCIIString text("{short}", true);
  RewriteOnFirstError hook(&text);
  PErrorHookProtection protection(&hook, true);
  PUniversalID id{text};
  EXPECT_EQ(hook.calls, 1);
  EXPECT_TRUE(id == IID_IStream);
}

TEST(PUniversalID, IgnoredParseErrorsGoOnAndReadTheFields) {
  qvbase::test::CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  // Wrong brace and wrong hyphen: two errors, both ignored; the fields are
  // still read from their places.
  PUniversalID id{PASCIIString("(0000000C-0000-0000+C000-000000000046}")};
  EXPECT_EQ(hook.calls, 2);
  EXPECT_TRUE(id == IID_IStream);
}

} // namespace

namespace {

// Thousands of random and cut texts through the parser, with every error
// ignored so that each check and the field readers see the bad text.
TEST(PUniversalID, RandomAndTruncatedTextNeverBreaksTheParser) {
  qvbase::test::CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  const std::string alphabet = "{}-0123456789abcdefABCDEFgxyz+() \x80\xFF";
  std::mt19937 random(99);
  const std::string valid = "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    if (round % 2) {
      text = valid.substr(0, random() % (valid.size() + 1));
    } else {
      std::size_t n = random() % 45;
      for (std::size_t i = 0; i < n; ++i)
        text += alphabet[random() % alphabet.size()];
    }
    try {
      PUniversalID id{PASCIIString(text.c_str(), true)};
      if (text == valid) {
        EXPECT_EQ(Text(id), valid);
      }
    } catch (const PError& error) {
      // Only the hexadecimal readers may still throw (their errors are not
      // warnings); nothing else escapes.
      EXPECT_NE(error.Code(), kErrNone);
    }
  }
  EXPECT_GT(hook.calls, 0);
}

} // namespace

#include <qvbase/PUNIString.h>

#include <string>

namespace {

TEST(PUniversalID, TextIsAFreeTypeMultibyteStringOfThirtyEightCharacters) {
  _GUID g = MakeGuid(0x89ABCDEF, 0x0123, 0x4567, {0x89, 0xAB, 0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67});
  const PString text = PUniversalID(g);
  const PString byHand("{89ABCDEF-0123-4567-89AB-CDEF01234567}", true);
  EXPECT_EQ(text.HandlerType(), &gMBStringHandlerDec);
  EXPECT_EQ(text.HandlerType(), byHand.HandlerType());
  EXPECT_EQ(text.Len(), 38u);
  EXPECT_EQ(text.Size(), 38u);
  EXPECT_EQ(text.FullSize(), byHand.FullSize());
  EXPECT_EQ(text.CodeSet(), kCodeSetASCII);
  EXPECT_TRUE(text == byHand);
  // A free-type string: appending Unicode widens it, as any narrow text does.
  PString widened = text;
  const unsigned short units[] = {0x263A, 0};
  widened += PUNIString(units, true);
  EXPECT_EQ(widened.CodeSet(), kCodeSetUnicode);
  EXPECT_EQ(text.Len(), 38u);
}

// A text of the right shape whose digits are not all hexadecimal is refused
// by the hexadecimal readers, digit by digit, as before any check passed.
TEST(PUniversalID, NonHexadecimalDigitInAnyFieldRaisesTheReadersError) {
  const std::string valid = "{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";
  const ULONG digits[] = {1, 2, 8, 10, 13, 15, 18, 20, 21, 22, 23, 25, 26, 33, 36};
  for (ULONG pos : digits) {
    for (char bad : {'g', 'G', ' ', '-', '{', '\x7F'}) {
      SCOPED_TRACE(testing::Message() << "'" << bad << "' at " << pos);
      std::string text = valid;
      text[pos] = bad;
      PError error = ParseError(text.c_str());
      EXPECT_EQ(error.Code(), kErrStringBadHexDigit);
      EXPECT_EQ(error.Severity(), ErrorSeverityError);
      EXPECT_STREQ(error.File(), "src\\phexastrings");
      // The readers take each field pair by pair: the first digit of a pair
      // is line 68, the second line 76.
      const std::string pairStarts = ",1,3,5,7,10,12,15,17,20,22,25,27,29,31,33,35,";
      const bool first = pairStarts.find("," + std::to_string(pos) + ",") != std::string::npos;
      EXPECT_EQ(error.Line(), first ? 68u : 76u);
    }
  }
}

TEST(PUniversalID, IgnoredDigitErrorsReadTheBadDigitAsZero) {
  qvbase::test::CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PUniversalID id{PASCIIString("{0000000x-0000-0000-C000-0000000000z6}")};
  EXPECT_EQ(hook.calls, 2);
  _GUID expected = MakeGuid(0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x06});
  EXPECT_TRUE(id == expected);
}

TEST(PUniversalID, MixedCaseDigitsParseToTheSameIdentifier) {
  PUniversalID upper{PASCIIString("{ABCDEF01-ABCD-EF01-ABCD-EFABCDEF0123}")};
  PUniversalID mixed{PASCIIString("{aBcDeF01-AbCd-eF01-aBcD-EfAbCdEf0123}")};
  EXPECT_TRUE(upper == mixed);
  EXPECT_EQ(upper.Group1(), 0xABCDEF01u);
  EXPECT_EQ(upper.Group2(), 0xABCDu);
  EXPECT_EQ(upper.Group3(), 0xEF01u);
  EXPECT_EQ(upper.Group52(), 0x2301EFCDu);
}

// Every check still reads its characters when an earlier one was let
// through: a short text fails the brace check at its missing end too.
TEST(PUniversalID, LetThroughChecksReadMissingCharactersAsZero) {
  qvbase::test::CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  try {
    PUniversalID id{PASCIIString("{0000")};
  } catch (const PError&) {
    // the hexadecimal readers may still throw on the missing digits
  }
  EXPECT_GE(hook.calls, 3); // length, braces, hyphens
}

} // namespace
