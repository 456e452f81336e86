// SystemInfoPosix.cpp - user name and operating-system version on POSIX.
// Part of qvbase, the QVKernel foundation class library.
#include "native/SystemInfo.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

namespace qvbase {
namespace native {
namespace {

// The effective user's name from the user database; false when it has none.
bool LookUpUserName(std::string* name) {
  long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> scratch(hint > 0 ? static_cast<std::size_t>(hint) : 1024);
  for (;;) {
    passwd entry;
    passwd* found = nullptr;
    int rc = getpwuid_r(geteuid(), &entry, scratch.data(), scratch.size(), &found);
    if (rc == ERANGE && scratch.size() < (1u << 20)) {
      scratch.resize(scratch.size() * 2);
      continue;
    }
    if (rc != 0 || !found || !found->pw_name)
      return false;
    *name = found->pw_name;
    return true;
  }
}

// Reads "1.2.3..." from the front of `text`; missing numbers stay 0.
void ParseRelease(const char* text, DWORD numbers[3]) {
  for (int i = 0; i < 3; ++i) {
    numbers[i] = 0;
    if (*text < '0' || *text > '9')
      return;
    char* end = nullptr;
    unsigned long value = std::strtoul(text, &end, 10);
    numbers[i] = static_cast<DWORD>(value);
    text = end;
    if (*text != '.')
      return;
    ++text;
  }
}

// PRETTY_NAME of an os-release file, unquoted; empty when absent.
std::string PrettyName(const char* path) {
  std::FILE* file = std::fopen(path, "r");
  if (!file)
    return {};
  std::string result;
  char line[512];
  while (std::fgets(line, sizeof line, file)) {
    const char kKey[] = "PRETTY_NAME=";
    if (std::strncmp(line, kKey, sizeof kKey - 1) != 0)
      continue;
    std::string value = line + sizeof kKey - 1;
    while (!value.empty() && (value.back() == '\n' || value.back() == '\r'))
      value.pop_back();
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front())
      value = value.substr(1, value.size() - 2);
    result = value;
    break;
  }
  std::fclose(file);
  return result;
}

} // namespace

LONG QueryUserName(char* buffer, DWORD* size) {
  if (!size)
    return ERROR_INVALID_PARAMETER;
  std::string name;
  if (!LookUpUserName(&name))
    return ERROR_NONE_MAPPED;
  DWORD needed = static_cast<DWORD>(name.size() + 1);
  if (!buffer || *size < needed) {
    *size = needed;
    return ERROR_MORE_DATA;
  }
  std::memcpy(buffer, name.c_str(), needed);
  *size = needed;
  return ERROR_SUCCESS;
}

bool QueryOsVersion(OsVersionInfo* info) {
  if (!info || info->dwOSVersionInfoSize != sizeof(OsVersionInfo))
    return false;
  utsname names;
  if (uname(&names) != 0)
    return false;
  DWORD numbers[3];
  ParseRelease(names.release, numbers);
  std::string text = PrettyName("/etc/os-release");
  if (text.empty())
    text = PrettyName("/usr/lib/os-release");
  if (text.empty())
    text = std::string(names.sysname) + " " + names.release;
  info->dwMajorVersion = numbers[0];
  info->dwMinorVersion = numbers[1];
  info->dwBuildNumber = numbers[2];
  info->dwPlatformId = kPlatformPosix;
  std::snprintf(info->szCSDVersion, sizeof info->szCSDVersion, "%s", text.c_str());
  return true;
}

std::string PosixSystemName() {
  utsname names;
  if (uname(&names) != 0)
    return {};
  return names.sysname;
}

} // namespace native
} // namespace qvbase
