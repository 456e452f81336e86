// SystemInfo.h - the platform layer's user name and operating-system version.
// Part of qvbase, the QVKernel foundation class library.
//
// What the library reports about the machine it runs on: the logged-on
// user's name and the operating system's identification, with the contracts
// of the Win32 calls GetUserNameA and GetVersionExA. On Windows they are
// those calls. On POSIX:
//
// - the user name is the name of the process's effective user in the
//   system's user database (getpwuid_r), not the environment's USER, which
//   any parent process may set;
// - the version describes the running kernel and the distribution, so that
//   an application showing "the operating system" shows what its user
//   expects: platform id kPlatformPosix (the Windows platform names do not
//   apply; PosixSystemName() gives "Linux"), major and minor version and
//   build number from the kernel's release ("6.1.0-18-amd64" gives 6, 1, 0),
//   and as service-pack text the distribution's name from os-release
//   (PRETTY_NAME, "Debian GNU/Linux 12 (bookworm)"), or "<system> <release>"
//   where there is no os-release.
//
// Safe from any thread.
#pragma once

#include <qvbase/QVCompat.h>

#include <string>

namespace qvbase {
namespace native {

// Fills `buffer` (`*size` bytes) with the user's name and a terminating zero
// and sets `*size` to the bytes written, zero included: ERROR_SUCCESS. When
// the buffer is too small (or null): ERROR_MORE_DATA and `*size` the bytes
// needed. Windows answers a short buffer with ERROR_INSUFFICIENT_BUFFER; it
// is reported as ERROR_MORE_DATA here, so that callers retry on one code on
// every platform. Other failures: ERROR_INVALID_PARAMETER for a null `size`;
// on POSIX ERROR_NONE_MAPPED when the user database has no entry for the
// user; on Windows the system's error.
LONG QueryUserName(char* buffer, DWORD* size);

// The platform ids of the version record: the Windows ones, and the one
// reported on every POSIX system ("POSX").
enum : DWORD {
  kPlatformWin32s = 0,
  kPlatformWindows = 1,
  kPlatformWindowsNT = 2,
  kPlatformPosix = 0x504F5358,
};

// The version record, laid out as OSVERSIONINFOA.
#if defined(_WIN32)
typedef OSVERSIONINFOA OsVersionInfo;
#else
struct OsVersionInfo {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  char szCSDVersion[128];
};
#endif

// Fills the record whose size word the caller has set to sizeof it, as
// GetVersionExA does; false (record untouched) when the size word is wrong
// or the system cannot say.
bool QueryOsVersion(OsVersionInfo* info);

// The operating system's own name on POSIX (uname's system name, "Linux");
// empty on Windows, whose names follow from the platform id.
std::string PosixSystemName();

} // namespace native
} // namespace qvbase
