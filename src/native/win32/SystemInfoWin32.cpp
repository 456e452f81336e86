// SystemInfoWin32.cpp - user name and operating-system version on Windows.
// Part of qvbase, the QVKernel foundation class library.
#include "native/SystemInfo.h"

namespace qvbase {
namespace native {

LONG QueryUserName(char* buffer, DWORD* size) {
  if (!size)
    return ERROR_INVALID_PARAMETER;
  if (GetUserNameA(buffer, size))
    return ERROR_SUCCESS;
  LONG error = static_cast<LONG>(GetLastError());
  return error == ERROR_INSUFFICIENT_BUFFER ? ERROR_MORE_DATA : error;
}

bool QueryOsVersion(OsVersionInfo* info) {
  if (!info || info->dwOSVersionInfoSize != sizeof(OsVersionInfo))
    return false;
  return GetVersionExA(info) != FALSE;
}

std::string PosixSystemName() { return {}; }

} // namespace native
} // namespace qvbase
