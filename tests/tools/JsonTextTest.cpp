// The JSON quoting the tools' --json outputs share: what passes through,
// what is escaped, and what replaces bytes that are not UTF-8.
#include "common/JsonText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(JsonText, StringsEscapeQuotesBackslashesAndControlCharacters) {
  EXPECT_EQ(qvtools::JsonString(""), "\"\"");
  EXPECT_EQ(qvtools::JsonString("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(qvtools::JsonString(std::string("\t\n\x01\0", 4)), "\"\\u0009\\u000a\\u0001\\u0000\"");
  EXPECT_EQ(qvtools::JsonString("/\x7F"), "\"/\x7F\"");
}

TEST(JsonText, ValidUtf8PassesThrough) {
  const std::string text = "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"; // été € 😀
  EXPECT_EQ(qvtools::JsonString(text), "\"" + text + "\"");
}

TEST(JsonText, BytesThatAreNotUtf8BecomeTheReplacementCharacter) {
  const std::string kReplacement = "\xEF\xBF\xBD";
  const struct {
    const char* what;
    std::string bytes;
  } rows[] = {
      {"a single-byte code page letter", "\xE9"}, {"a lone continuation byte", "\x80"},
      {"an overlong form", "\xC0\xAF"},           {"a surrogate", "\xED\xA0\x80"},
      {"a sequence cut short", "\xE2\x82"},       {"beyond U+10FFFF", "\xF4\x90\x80\x80"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const std::string quoted = qvtools::JsonString("a" + row.bytes + "b");
    EXPECT_EQ(quoted.front(), '"');
    EXPECT_EQ(quoted.substr(1, 1), "a");
    EXPECT_EQ(quoted.substr(quoted.size() - 2), "b\"");
    const std::string middle = quoted.substr(2, quoted.size() - 4);
    EXPECT_FALSE(middle.empty());
    for (std::size_t at = 0; at < middle.size(); at += kReplacement.size())
      EXPECT_EQ(middle.substr(at, kReplacement.size()), kReplacement);
  }
}

TEST(JsonText, NumbersAndHexBytes) {
  EXPECT_EQ(qvtools::JsonNumber(18446744073709551615ull), "18446744073709551615");
  const unsigned char bytes[] = {0x00, 0x7F, 0xAB};
  EXPECT_EQ(qvtools::JsonHexBytes(bytes, 3), "\"007fab\"");
  EXPECT_EQ(qvtools::JsonHexBytes(bytes, 0), "\"\"");
}

} // namespace
