// The display texts of the library's own error codes: the mapper the library
// installs reads them from its resource module, gives way to mappers
// constructed later, and leaves codes without a text, and codes outside its
// range, without one.
#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>

#include "support/KernelResourcesTestSupport.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>
#include <string>

namespace {

using qvbase::test::ScopedKernelResources;

std::string Display(int code) {
  PError error(code, ErrorSeverityError);
  return static_cast<const char*>(error.GetDisplayString());
}

TEST(PErrorDisplayMapper, LibraryCodesShowTheirTextsFromTheLibrarysResources) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  EXPECT_EQ(Display(kErrStreamShortRead),
            "The stream's medium delivered fewer bytes than were asked for.");
  EXPECT_EQ(Display(kErrStreamClosed), "The stream is closed.");
  // Negative codes are found by their low 16 bits.
  EXPECT_EQ(Display(kErrResourceMissing),
            "A resource is missing, or progress levels were used out of order.");
}

TEST(PErrorDisplayMapper, AStreamsErrorIsASentenceWithTheModuleTheLibraryFinds) {
  EXPECT_EQ(Display(kErrStreamShortRead),
            "The stream's medium delivered fewer bytes than were asked for.");
}

TEST(PErrorDisplayMapper, ParametersOfALibraryTextTakeTheErrorsInfo) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  PError error(kErrDiskFull, ErrorSeverityError);
  error.SetIntegerInfo("nativecode", 28);
  EXPECT_EQ(std::string(error.GetDisplayString()), "The disk is full (system error 28).");
}

TEST(PErrorDisplayMapper, CodeWithoutALibraryTextHasNoDisplayString) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  // Inside the range, but the module holds no such string: no fallback text.
  EXPECT_EQ(Display(31000), "");
  // Outside the range the mapper does not take the code at all: 0x10000 + 1229
  // would otherwise read string 1229.
  EXPECT_EQ(Display(0x10000 + kErrStreamShortRead), "");
  EXPECT_EQ(Display(-0x10000 + kErrStreamShortRead), "");
}

// Gives every code it is asked about one text.
class OwnTexts : public PErrorDisplayMapper {
public:
  bool Accepts(int code) override { return code == kErrStreamShortRead; }
  bool Map(int, TypErrorSeverityEnum, PString* text) override {
    *text = PMBString("Our own text", true);
    return true;
  }
};

TEST(PErrorDisplayMapper, AnApplicationsMapperConstructedLaterIsAskedFirst) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  {
    OwnTexts own;
    EXPECT_EQ(Display(kErrStreamShortRead), "Our own text");
    EXPECT_EQ(Display(kErrStreamClosed), "The stream is closed.");
  }
  EXPECT_EQ(Display(kErrStreamShortRead),
            "The stream's medium delivered fewer bytes than were asked for.");
}

TEST(PErrorDisplayMapper, TextIsReadWhenTheErrorAsksAndThenKeptWithIt) {
  PError error(kErrStreamClosed, ErrorSeverityError);
  {
    ScopedKernelResources kernel;
    ASSERT_EQ(kernel.result(), QVRES_OK);
    EXPECT_EQ(std::string(error.GetDisplayString()), "The stream is closed.");
  }
  // The module is gone; the error keeps the text it was given.
  EXPECT_EQ(std::string(error.GetDisplayString()), "The stream is closed.");
}

// Every code named in PErrorCodes.h, read from the header itself, so that a
// code named later without a text in resources/QVKernelRes12.rc is caught.
std::map<std::string, int> NamedCodes() {
  std::istringstream header(
      qvbase::test::ReadFile(QVBASE_TEST_DATA_DIR "/../../include/qvbase/PErrorCodes.h"));
  const std::regex definition(R"(^constexpr int (kErr\w+) = (-?\d+|kErr\w+);)");
  std::map<std::string, int> codes;
  for (std::string line; std::getline(header, line);) {
    std::smatch match;
    if (!std::regex_search(line, match, definition))
      continue;
    const std::string value = match[2];
    codes[match[1]] = value.compare(0, 4, "kErr") == 0 ? codes.at(value) : std::atoi(value.c_str());
  }
  return codes;
}

TEST(PErrorDisplayMapper, EveryNamedCodeHasALibraryText) {
  ScopedKernelResources kernel;
  ASSERT_EQ(kernel.result(), QVRES_OK);
  const std::map<std::string, int> codes = NamedCodes();
  ASSERT_GT(codes.size(), 40u);
  for (const auto& named : codes) {
    if (named.second == kErrNone)
      continue;
    SCOPED_TRACE(named.first);
    EXPECT_NE(Display(named.second), "") << "give it a text in resources/QVKernelRes12.rc";
  }
}

} // namespace
