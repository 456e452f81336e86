// WINSystemComponent.cpp - the operating system as a component, and the
// logged-on user.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PComponent.h>

#include <qvbase/PMBString.h>

#include "components/SystemInfoSource.h"
#include "native/SystemInfo.h"

#include <string>
#include <vector>

namespace native = qvbase::native;

namespace {

constexpr char kUnknown[] = "Unknown";
// The user-name buffer starts here and doubles while the system asks for
// more, up to a bound no user name reaches.
constexpr DWORD kFirstUserNameSize = 64;
constexpr DWORD kMaxUserNameSize = 1u << 20;

const qvbase::components::SystemInfoSource kPlatformSource = {native::QueryUserName,
                                                              native::QueryOsVersion};
const qvbase::components::SystemInfoSource* gSource = &kPlatformSource;

// The system's version, read on first need and kept for the process. A
// failed read leaves the size word 0, so that the next need asks again.
native::OsVersionInfo gVersion;
bool gIsNT = false;

const native::OsVersionInfo* Version() {
  if (gVersion.dwOSVersionInfoSize == 0) {
    gVersion.dwOSVersionInfoSize = sizeof gVersion;
    if (!gSource->queryOsVersion(&gVersion)) {
      gVersion.dwOSVersionInfoSize = 0;
      return nullptr;
    }
  }
  return &gVersion;
}

std::string PlatformName() {
  const native::OsVersionInfo* version = Version();
  if (!version)
    return kUnknown;
  switch (version->dwPlatformId) {
  case native::kPlatformWin32s:
    return "Win32s";
  case native::kPlatformWindows:
    return "Win95";
  case native::kPlatformWindowsNT:
    gIsNT = true;
    return "WinNT";
  case native::kPlatformPosix: {
    std::string name = native::PosixSystemName();
    return name.empty() ? kUnknown : name;
  }
  default:
    return kUnknown;
  }
}

ULONG SystemMajorVersion() {
  const native::OsVersionInfo* version = Version();
  return version ? version->dwMajorVersion : 0;
}

ULONG SystemMinorVersion() {
  const native::OsVersionInfo* version = Version();
  return version ? version->dwMinorVersion : 0;
}

PString ServicePackText() {
  const native::OsVersionInfo* version = Version();
  if (!version)
    return PMBString(kUnknown, true);
  char text[sizeof version->szCSDVersion + 1] = {};
  for (std::size_t i = 0; i < sizeof version->szCSDVersion && version->szCSDVersion[i]; ++i)
    text[i] = version->szCSDVersion[i];
  return PMBString(text, true);
}

} // namespace

namespace qvbase::components {

const SystemInfoSource* SetSystemInfoSource(const SystemInfoSource* source) {
  const SystemInfoSource* previous = gSource == &kPlatformSource ? nullptr : gSource;
  gSource = source ? source : &kPlatformSource;
  gVersion = native::OsVersionInfo{};
  gIsNT = false;
  return previous;
}

} // namespace qvbase::components

WINSystemComponent::WINSystemComponent()
    : PComponent("SYSTEM", PlatformName().c_str(), SystemMajorVersion(), SystemMinorVersion()),
      m_userNameFetched(false) {
  SetDisplayName(ServicePackText());
}

WINSystemComponent::~WINSystemComponent() {}

bool WINSystemComponent::IsNT() const { return gIsNT; }

PString WINSystemComponent::UserName() {
  if (m_userNameFetched)
    return m_userName;
  // The buffer starts zeroed, so that a failure leaves an empty name.
  std::vector<char> buffer;
  for (DWORD size = kFirstUserNameSize; size <= kMaxUserNameSize; size *= 2) {
    buffer.assign(size, '\0');
    DWORD given = size;
    LONG rc = gSource->queryUserName(buffer.data(), &given);
    if (rc != ERROR_MORE_DATA) {
      if (rc != ERROR_SUCCESS)
        buffer.assign(1, '\0');
      break;
    }
    buffer.assign(1, '\0');
  }
  buffer.back() = '\0';
  m_userName = PMBString(buffer.data(), true);
  m_userNameFetched = true;
  return m_userName;
}
