// The platform layer's user name and operating-system version.
#include "native/SystemInfo.h"

#include "native/Process.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

namespace native = qvbase::native;

#if !defined(_WIN32)
std::string Trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
    text.pop_back();
  return text;
}
#endif

// The user's name as the system's own tools tell it.
std::string ExpectedUserName() {
#if defined(_WIN32)
  std::string name;
  native::GetEnv("USERNAME", &name);
  return name;
#else
  return Trimmed(qvtest::Run({"/usr/bin/id", "-un"}).out);
#endif
}

TEST(SystemInfo, UserNameAsksForMoreRoomThenFillsIt) {
  DWORD size = 1;
  char tiny[1] = {'x'};
  ASSERT_EQ(native::QueryUserName(tiny, &size), ERROR_MORE_DATA);
  std::string expected = ExpectedUserName();
  ASSERT_FALSE(expected.empty());
  EXPECT_EQ(size, expected.size() + 1);

  std::vector<char> buffer(size);
  DWORD given = size;
  ASSERT_EQ(native::QueryUserName(buffer.data(), &given), ERROR_SUCCESS);
  EXPECT_EQ(given, size);
  EXPECT_EQ(std::string(buffer.data()), expected);
}

TEST(SystemInfo, UserNameWithoutABufferReportsTheSizeNeeded) {
  DWORD size = 0;
  ASSERT_EQ(native::QueryUserName(nullptr, &size), ERROR_MORE_DATA);
  EXPECT_EQ(size, ExpectedUserName().size() + 1);
  char buffer[8];
  EXPECT_EQ(native::QueryUserName(buffer, nullptr), ERROR_INVALID_PARAMETER);
}

TEST(SystemInfo, VersionNeedsTheRecordsSizeWord) {
  native::OsVersionInfo info{};
  info.dwOSVersionInfoSize = sizeof info - 1;
  info.dwMajorVersion = 77;
  EXPECT_FALSE(native::QueryOsVersion(&info));
  EXPECT_EQ(info.dwMajorVersion, 77u);
  EXPECT_FALSE(native::QueryOsVersion(nullptr));
}

#if defined(_WIN32)

TEST(SystemInfo, WindowsReportsTheNTFamily) {
  native::OsVersionInfo info{};
  info.dwOSVersionInfoSize = sizeof info;
  ASSERT_TRUE(native::QueryOsVersion(&info));
  EXPECT_EQ(info.dwPlatformId, native::kPlatformWindowsNT);
  EXPECT_GE(info.dwMajorVersion, 5u);
  EXPECT_EQ(native::PosixSystemName(), "");
}

#else

// "6.1.0-18-amd64" gives 6, 1, 0.
std::vector<DWORD> ReleaseNumbers(const std::string& release) {
  std::vector<DWORD> numbers;
  const char* p = release.c_str();
  while (numbers.size() < 3 && *p >= '0' && *p <= '9') {
    char* end = nullptr;
    numbers.push_back(static_cast<DWORD>(std::strtoul(p, &end, 10)));
    p = *end == '.' ? end + 1 : end;
  }
  numbers.resize(3);
  return numbers;
}

// PRETTY_NAME of the machine's os-release, unquoted.
std::string PrettyName() {
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    if (!qvtest::FileExists(path))
      continue;
    std::string text = qvtest::ReadFile(path);
    std::size_t at = text.find("PRETTY_NAME=");
    if (at != 0 && at != std::string::npos && text[at - 1] != '\n')
      at = text.find("\nPRETTY_NAME=") + 1;
    if (at == std::string::npos)
      continue;
    std::string value = text.substr(at + 12, text.find('\n', at) - at - 12);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
      value = value.substr(1, value.size() - 2);
    return value;
  }
  return {};
}

TEST(SystemInfo, PosixReportsTheKernelReleaseAndTheDistribution) {
  native::OsVersionInfo info{};
  info.dwOSVersionInfoSize = sizeof info;
  ASSERT_TRUE(native::QueryOsVersion(&info));
  EXPECT_EQ(info.dwPlatformId, native::kPlatformPosix);
  std::vector<DWORD> numbers = ReleaseNumbers(Trimmed(qvtest::Run({"/bin/uname", "-r"}).out));
  EXPECT_EQ(info.dwMajorVersion, numbers[0]);
  EXPECT_EQ(info.dwMinorVersion, numbers[1]);
  EXPECT_EQ(info.dwBuildNumber, numbers[2]);
  std::string expected = PrettyName();
  if (expected.empty())
    expected = Trimmed(qvtest::Run({"/bin/uname", "-s"}).out) + " " +
               Trimmed(qvtest::Run({"/bin/uname", "-r"}).out);
  EXPECT_EQ(std::string(info.szCSDVersion), expected.substr(0, 127));
}

TEST(SystemInfo, PosixSystemNameIsUnamesName) {
  EXPECT_EQ(native::PosixSystemName(), Trimmed(qvtest::Run({"/bin/uname", "-s"}).out));
}

#endif

} // namespace
