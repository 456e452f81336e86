// Random and truncated text through every reader of outside text: the
// hexadecimal and number readers and parameter substitution end with their
// defined result or error, never a crash or a read out of bounds.
#include <qvbase/PASCIIString.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/PUNIString.h>

#include "support/ErrorTestSupport.h"
#include "support/StringTestSupport.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

const int kRounds = 3000;

// Text biased towards the characters the readers care about.
std::string RandomText(std::mt19937& random, bool sevenBit) {
  static const char kAlphabet[] = "^^^0123456789abcdefABCDEFxyz -+.,eE\t";
  std::uniform_int_distribution<int> length(0, 24);
  std::uniform_int_distribution<int> pick(0, sizeof kAlphabet - 2);
  std::uniform_int_distribution<int> anyByte(1, 255);
  std::uniform_int_distribution<int> coin(0, 9);
  std::string text;
  for (int i = length(random); i > 0; --i)
    text += (!sevenBit && coin(random) == 0) ? static_cast<char>(anyByte(random))
                                             : kAlphabet[pick(random)];
  return text;
}

// Runs a call whose only allowed failure is a PError with one of `codes`.
template <typename F>
void ExpectDefinedOutcome(F&& call, std::initializer_list<int> codes) {
  PError raised = qvbase::test::Caught(call);
  if (raised.Code() == qvbase::test::kNothingThrown)
    return;
  bool known = false;
  for (int code : codes)
    known = known || code == raised.Code();
  EXPECT_TRUE(known) << "code " << raised.Code();
}

} // namespace

TEST(PStringRobustness, HexaReadersEndWithValueOrBadDigitError) {
  std::mt19937 random(1234);
  for (int round = 0; round < kRounds; ++round) {
    std::string text = RandomText(random, /*sevenBit=*/true);
    SCOPED_TRACE(text);
    PASCIIString ascii(text.c_str(), /*copy=*/true);
    for (ULONG cut = 0; cut <= ascii.Len(); cut += 3) {
      PASCIIString truncated(ascii.Left(cut));
      ExpectDefinedOutcome([&] { HexaToUInt8(truncated); }, {kErrStringBadHexDigit});
      ExpectDefinedOutcome([&] { HexaToUInt16(truncated); }, {kErrStringBadHexDigit});
      ExpectDefinedOutcome([&] { HexaToUInt32(truncated); }, {kErrStringBadHexDigit});
    }
  }
  // With the errors ignored every reading completes with a value.
  qvbase::test::ScopedErrorCapture ignore;
  std::mt19937 again(99);
  for (int round = 0; round < kRounds; ++round) {
    PASCIIString text(RandomText(again, true).c_str(), true);
    ULONG value = HexaToUInt32(text);
    EXPECT_EQ(value, HexaToUInt32(text));
  }
}

TEST(PStringRobustness, NumberReadersEndWithValueOrCharacterError) {
  std::mt19937 random(5678);
  for (int round = 0; round < kRounds; ++round) {
    std::string text = RandomText(random, /*sevenBit=*/false);
    SCOPED_TRACE(text);
    PString narrow(text.c_str(), /*copy=*/true);
    ExpectDefinedOutcome([&] { PStringToUInt(narrow); }, {kErrStringCharOutOfRange});
    ExpectDefinedOutcome([&] { PStringToSInt(narrow); }, {kErrStringCharOutOfRange});
    ExpectDefinedOutcome([&] { PStringToFloat(narrow); }, {kErrStringCharOutOfRange});
  }
}

TEST(PStringRobustness, ParameterOperationsEndOnAnyText) {
  std::mt19937 random(4321);
  for (int round = 0; round < kRounds; ++round) {
    std::string text = RandomText(random, /*sevenBit=*/round % 2 == 0);
    std::string value = RandomText(random, /*sevenBit=*/true);
    SCOPED_TRACE(text + " / " + value);
    PString subject(text.c_str(), /*copy=*/true);
    if (round % 3 == 0)
      subject = PUNIString(subject);

    ULONG from = 0;
    int steps = 0;
    ExpectDefinedOutcome(
        [&] {
          PASCIIString name;
          ULONG length = 0;
          for (;;) {
            ULONG at = subject.FindNextParameter(&name, &length, from);
            if (at == kStringNotFound)
              break;
            ASSERT_GE(length, 2u);
            ASSERT_LE(at + length, subject.Len());
            from = at + 1;
            ++steps;
          }
          subject.FindNextParameter(nullptr, nullptr, 0xFFFFFFFFu);
        },
        {kErrStringCharOutOfRange});
    ExpectDefinedOutcome(
        [&] {
          PString copy(subject);
          copy.SetParameter(PASCIIString(RandomText(random, true).c_str(), true),
                            PString(value.c_str(), true));
          copy.SetParameter(static_cast<ULONG>(round), PString(value.c_str(), true));
        },
        {kErrStringCharOutOfRange});
    ExpectDefinedOutcome(
        [&] {
          PString copy(subject);
          copy.ValidateParams(PString(value.c_str(), true));
        },
        {kErrStringCharOutOfRange});
    EXPECT_LE(steps, static_cast<int>(text.size()));
  }
}
