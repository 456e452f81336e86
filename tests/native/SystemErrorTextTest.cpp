// Message texts of Win32 error numbers.
#include "native/ErrorText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qvbase::native::EnglishErrorTable;
using qvbase::native::EnglishErrorText;
using qvbase::native::SystemErrorText;

// Every number that the library maps to an error of its own, and the
// registry's numbers.
constexpr DWORD kNumbersWithTexts[] = {
    0,    1237, 1223, 22,   58,   120,  87,   160,  1361, 8,    1113, 38,   131,  1117, 88,  23,
    193,  1392, 5,    86,   1239, 1240, 1315, 1326, 1327, 1329, 1331, 1380, 1385, 2202, 65,  107,
    1112, 1222, 1231, 55,   64,   4005, 21,   108,  170,  1200, 2404, 39,   15,   20,   67,  1203,
    123,  161,  1210, 1214, 2,    3,    53,   52,   80,   1379, 82,   4,    16,   145,  110, 111,
    154,  32,   33,   234,  259,  1009, 1010, 1011, 1012, 1013, 1014, 1015, 1016, 1017, 1018};

TEST(SystemErrorText, TableIsSortedByNumber) {
  std::size_t count = 0;
  const auto* table = EnglishErrorTable(&count);
  ASSERT_GT(count, 0u);
  for (std::size_t i = 1; i < count; ++i) {
    SCOPED_TRACE(table[i].code);
    EXPECT_LT(table[i - 1].code, table[i].code);
  }
}

TEST(SystemErrorText, EveryMappedNumberHasAnEnglishText) {
  for (DWORD code : kNumbersWithTexts) {
    SCOPED_TRACE(code);
    const char* text = EnglishErrorText(code);
    ASSERT_NE(text, nullptr);
    EXPECT_GT(std::string(text).size(), 5u);
    EXPECT_EQ(std::string(text).find('\n'), std::string::npos);
  }
}

TEST(SystemErrorText, EnglishTableAnswersOnlyItsOwnNumbers) {
  EXPECT_STREQ(EnglishErrorText(2), "The system cannot find the file specified.");
  EXPECT_EQ(EnglishErrorText(7), nullptr);
  EXPECT_EQ(EnglishErrorText(99999), nullptr);
  EXPECT_EQ(EnglishErrorText(0xFFFFFFFFu), nullptr);
}

TEST(SystemErrorText, KnownNumbersHaveTheSystemText) {
  struct Row {
    DWORD code;
    const char* english;
  };
  const Row rows[] = {
      {0, "The operation completed successfully.\r\n"},
      {2, "The system cannot find the file specified.\r\n"},
      {5, "Access is denied.\r\n"},
      {87, "The parameter is incorrect.\r\n"},
      {259, "No more data is available.\r\n"},
      {1223, "The operation was canceled by the user.\r\n"},
      {193, "%1 is not a valid Win32 application.\r\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.code);
    std::string text;
    ASSERT_TRUE(SystemErrorText(row.code, &text));
#if defined(_WIN32)
    // The system's own table: its wording and language are the system's.
    EXPECT_FALSE(text.empty());
#else
    EXPECT_EQ(text, row.english);
#endif
  }
}

TEST(SystemErrorText, UnknownNumberHasNoTextAndLeavesTheOutputAlone) {
  std::string text = "unchanged";
  EXPECT_FALSE(SystemErrorText(99999, &text));
  EXPECT_EQ(text, "unchanged");
}

} // namespace
