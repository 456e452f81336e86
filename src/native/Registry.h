// Registry.h - the platform layer's registry: keys, typed values, enumeration.
// Part of qvbase, the QVKernel foundation class library.
//
// The library reads its configuration from the Windows registry and writes a
// component's resource file there. This interface has the shape of the Win32
// "A" registry calls (RegOpenKeyExA, RegQueryValueExA, ...): the same
// arguments, the same buffer and size conventions, the same Win32 error
// numbers as results. On Windows each function is the Win32 call. On POSIX the
// keys and values live in one text file in the .reg export format (see
// RegFile.h); every change rewrites that file atomically under an advisory
// lock, so concurrent writers in several processes lose nothing, and a file
// that cannot be parsed is reported (RegLastErrorText names file and line) and
// never overwritten.
//
// Handles are cheap; a POSIX handle names a key by path, so a handle whose key
// is deleted answers ERROR_KEY_DELETED. All functions may be called from any
// thread; RegLastErrorText is per thread.
#pragma once

#include <qvbase/QVCompat.h>

#include <string>

namespace qvbase {
namespace native {

struct RegKeyOpaque;
typedef RegKeyOpaque* RegKey;

// The two hives the library uses. Closing them is allowed and does nothing.
extern RegKey const kRegLocalMachine;
extern RegKey const kRegCurrentUser;

// Value types, as REG_* on Windows.
enum : DWORD {
  kRegNone = 0,
  kRegSz = 1,
  kRegExpandSz = 2,
  kRegBinary = 3,
  kRegDword = 4,
  kRegDwordBigEndian = 5,
  kRegLink = 6,
  kRegMultiSz = 7,
  kRegQword = 11,
};

// Access rights, as KEY_* on Windows.
enum : DWORD {
  kKeyQueryValue = 0x0001,
  kKeySetValue = 0x0002,
  kKeyCreateSubKey = 0x0004,
  kKeyEnumerateSubKeys = 0x0008,
  kKeyNotify = 0x0010,
  kKeyRead = 0x20019,
  kKeyWrite = 0x20006,
  kKeyAllAccess = 0xF003F,
};

// Dispositions reported by CreateRegKey.
enum : DWORD { kRegCreatedNewKey = 1, kRegOpenedExistingKey = 2 };

// Opens `subKey` (backslash-separated, may be empty for a new handle on
// `parent` itself) with the access mask. ERROR_FILE_NOT_FOUND when absent.
LONG OpenRegKey(RegKey parent, const char* subKey, DWORD access, RegKey* result);

// Opens or creates `subKey` and every missing key above it. `className` is
// accepted for the Win32 call and not kept by the POSIX store. `disposition`
// may be null.
LONG CreateRegKey(RegKey parent, const char* subKey, const char* className, DWORD access,
                  RegKey* result, DWORD* disposition);

LONG CloseRegKey(RegKey key);

// Reads a value; a null or empty name is the key's default value. Any of
// `type`, `data` and `size` may be null. With `data` null the size is
// reported; with a buffer too small, ERROR_MORE_DATA and the size needed.
LONG QueryRegValue(RegKey key, const char* name, DWORD* type, BYTE* data, DWORD* size);

// Writes a value as given: the bytes are stored as they are (a string's
// terminating zero is part of `size`, as the Win32 call expects).
LONG SetRegValue(RegKey key, const char* name, DWORD type, const BYTE* data, DWORD size);

LONG DeleteRegValue(RegKey key, const char* name);

// Deletes `subKey`, which must have no sub-keys of its own (ERROR_ACCESS_DENIED
// otherwise), as RegDeleteKeyA does.
LONG DeleteRegKey(RegKey parent, const char* subKey);

// Deletes `subKey` with everything below it; an empty `subKey` deletes only
// what is below `parent` (its values and sub-keys), as RegDeleteTreeA does.
LONG DeleteRegTree(RegKey parent, const char* subKey);

// Enumerates sub-keys in case-insensitive name order. `nameSize` is in
// characters: on entry the buffer's capacity including the terminating zero,
// on success the name's length without it. ERROR_NO_MORE_ITEMS past the end.
LONG EnumRegKey(RegKey key, DWORD index, char* name, DWORD* nameSize);

// Enumerates values in the order they were first written. Name as for
// EnumRegKey; type, data and size as for QueryRegValue.
LONG EnumRegValue(RegKey key, DWORD index, char* name, DWORD* nameSize, DWORD* type, BYTE* data,
                  DWORD* dataSize);

// Counts and longest lengths, as RegQueryInfoKeyA reports them (on Windows the
// lengths are those of the UTF-16 form kept there: an upper bound). Any pointer
// may be null.
LONG QueryRegKeyInfo(RegKey key, DWORD* subKeys, DWORD* maxSubKeyLength, DWORD* values,
                     DWORD* maxValueNameLength, DWORD* maxValueLength);

// A one-line description of the last failure of a registry call on this
// thread: for a store that cannot be read, the file, the line and what is
// wrong there. Empty when the last call succeeded.
std::string RegLastErrorText();

// Where the registry lives: "Windows registry", or the POSIX store's file.
std::string RegStoreDescription();

// How many times this process has read and parsed the POSIX store (0 on
// Windows): reads of a store that has not changed since use what the last
// one parsed. For tests and diagnostics.
DWORD RegStoreParses();

} // namespace native
} // namespace qvbase
