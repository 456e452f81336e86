// ErrorText.h - the message text of a Win32 error number.
// Part of qvbase, the QVKernel foundation class library.
//
// The errors that the library builds from platform error numbers carry the
// system's own text for the number. On Windows that is FormatMessageA from the
// system message table in the default language, returned exactly as the
// system gives it: system messages end with a CR LF line break, and it is
// kept. On POSIX the library carries the standard English Windows texts of the
// numbers it maps and of the registry's numbers, each likewise ending in CR LF
// so that stored texts look the same on every platform. Inserts such as "%1"
// are never expanded.
//
// All functions may be called from any thread.
#pragma once

#include <qvbase/QVCompat.h>

#include <cstddef>
#include <string>

namespace qvbase {
namespace native {

// The text for `code` in `*text`; false, and `*text` untouched, when the system
// (or, on POSIX, the library's table) has no text for it.
bool SystemErrorText(DWORD code, std::string* text);

// The library's own English texts, one table sorted by number, without the
// line break. Built on every platform; POSIX answers SystemErrorText from it.
struct EnglishErrorEntry {
  DWORD code;
  const char* text;
};
const EnglishErrorEntry* EnglishErrorTable(std::size_t* count);

// The English text for `code`, or null when the table has none.
const char* EnglishErrorText(DWORD code);

} // namespace native
} // namespace qvbase
