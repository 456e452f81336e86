// RegistryWin32.cpp - the registry on Windows: the Win32 calls themselves.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Registry.h"

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace native {

namespace {

HKEY ToHkey(RegKey key) { return reinterpret_cast<HKEY>(key); }

thread_local std::string tLastError;

// Records the system's text for a failed call, for RegLastErrorText.
LONG Track(LONG rc) {
  if (rc == ERROR_SUCCESS) {
    tLastError.clear();
    return rc;
  }
  char* text = nullptr;
  DWORD n = FormatMessageA(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(rc), 0, reinterpret_cast<char*>(&text), 0, nullptr);
  if (n && text) {
    tLastError.assign(text, n);
    while (!tLastError.empty() && (tLastError.back() == '\n' || tLastError.back() == '\r' ||
                                   tLastError.back() == ' ' || tLastError.back() == '.'))
      tLastError.pop_back();
  } else {
    tLastError = "Windows registry error " + std::to_string(rc);
  }
  if (text)
    LocalFree(text);
  return rc;
}

} // namespace

RegKey const kRegLocalMachine = reinterpret_cast<RegKey>(HKEY_LOCAL_MACHINE);
RegKey const kRegCurrentUser = reinterpret_cast<RegKey>(HKEY_CURRENT_USER);

LONG OpenRegKey(RegKey parent, const char* subKey, DWORD access, RegKey* result) {
  HKEY key = nullptr;
  LONG rc = Track(::RegOpenKeyExA(ToHkey(parent), subKey, 0, access, &key));
  if (result)
    *result = rc == ERROR_SUCCESS ? reinterpret_cast<RegKey>(key) : nullptr;
  return rc;
}

LONG CreateRegKey(RegKey parent, const char* subKey, const char* className, DWORD access,
                  RegKey* result, DWORD* disposition) {
  HKEY key = nullptr;
  LONG rc =
      Track(::RegCreateKeyExA(ToHkey(parent), subKey ? subKey : "", 0, const_cast<char*>(className),
                              REG_OPTION_NON_VOLATILE, access, nullptr, &key, disposition));
  if (result)
    *result = rc == ERROR_SUCCESS ? reinterpret_cast<RegKey>(key) : nullptr;
  return rc;
}

LONG CloseRegKey(RegKey key) { return Track(::RegCloseKey(ToHkey(key))); }

LONG QueryRegValue(RegKey key, const char* name, DWORD* type, BYTE* data, DWORD* size) {
  return Track(::RegQueryValueExA(ToHkey(key), name, nullptr, type, data, size));
}

LONG SetRegValue(RegKey key, const char* name, DWORD type, const BYTE* data, DWORD size) {
  return Track(::RegSetValueExA(ToHkey(key), name, 0, type, data, size));
}

LONG DeleteRegValue(RegKey key, const char* name) {
  return Track(::RegDeleteValueA(ToHkey(key), name));
}

LONG DeleteRegKey(RegKey parent, const char* subKey) {
  return Track(::RegDeleteKeyA(ToHkey(parent), subKey ? subKey : ""));
}

LONG DeleteRegTree(RegKey parent, const char* subKey) {
  return Track(::RegDeleteTreeA(ToHkey(parent), subKey && *subKey ? subKey : nullptr));
}

LONG EnumRegKey(RegKey key, DWORD index, char* name, DWORD* nameSize) {
  return Track(
      ::RegEnumKeyExA(ToHkey(key), index, name, nameSize, nullptr, nullptr, nullptr, nullptr));
}

LONG EnumRegValue(RegKey key, DWORD index, char* name, DWORD* nameSize, DWORD* type, BYTE* data,
                  DWORD* dataSize) {
  return Track(::RegEnumValueA(ToHkey(key), index, name, nameSize, nullptr, type, data, dataSize));
}

LONG QueryRegKeyInfo(RegKey key, DWORD* subKeys, DWORD* maxSubKeyLength, DWORD* values,
                     DWORD* maxValueNameLength, DWORD* maxValueLength) {
  return Track(::RegQueryInfoKeyA(ToHkey(key), nullptr, nullptr, nullptr, subKeys, maxSubKeyLength,
                                  nullptr, values, maxValueNameLength, maxValueLength, nullptr,
                                  nullptr));
}

std::string RegLastErrorText() { return tLastError; }

std::string RegStoreDescription() { return "Windows registry"; }

DWORD RegStoreParses() { return 0; }

} // namespace native
} // namespace qvbase
