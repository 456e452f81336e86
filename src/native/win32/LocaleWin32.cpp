// LocaleWin32.cpp - multibyte text, UTF-16 and comparisons with the C runtime.
// Part of qvbase, the QVKernel foundation class library.
//
// wchar_t is a UTF-16 unit on Windows, so the runtime's wide functions work on
// the library's units directly, and its _mbs* functions on its multibyte text.
#include "native/Locale.h"

#include <qvbase/QVCompat.h>

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <locale.h>
#include <mbstring.h>
#include <string.h>
#include <string>
#include <vector>
#include <wchar.h>

namespace qvbase {
namespace native {

namespace {

static_assert(sizeof(wchar_t) == sizeof(unsigned short), "wchar_t is a UTF-16 unit on Windows");

int Sign(int value) { return value < 0 ? -1 : value > 0 ? 1 : 0; }

// The code page of the runtime's LC_CTYPE: the one its mblen and _mbs*
// functions use. The "C" locale reports none; the ANSI code page stands in.
UINT CurrentCodePage() {
  UINT codePage = ___lc_codepage_func();
  return codePage != 0 ? codePage : CP_ACP;
}

const unsigned char* Bytes(const char* text) {
  return reinterpret_cast<const unsigned char*>(text);
}
const wchar_t* Wide(const unsigned short* units) { return reinterpret_cast<const wchar_t*>(units); }

// The conversion calls take int counts; longer inputs are not converted.
bool FitsInt(std::size_t count) { return count <= static_cast<std::size_t>(INT_MAX); }

// The bytes of the first `count` characters of a terminated text.
std::size_t SpanOfCharacters(const char* text, std::size_t count) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < count; ++i) {
    int n = CharLength(text + bytes);
    if (n == 0)
      break;
    bytes += static_cast<std::size_t>(n);
  }
  return bytes;
}

} // namespace

int CharLength(const char* text) {
  if (*text == '\0')
    return 0;
  int n = std::mblen(text, static_cast<std::size_t>(MB_CUR_MAX));
  return n <= 0 ? 1 : n;
}

std::size_t MultiByteToUnits(const char* text, std::size_t bytes, unsigned short* out,
                             std::size_t capacity) {
  if (bytes == 0 || !FitsInt(bytes))
    return 0;
  const UINT codePage = CurrentCodePage();
  const int length = static_cast<int>(bytes);
  int needed = MultiByteToWideChar(codePage, 0, text, length, nullptr, 0);
  if (needed <= 0 || !out || capacity == 0)
    return needed > 0 ? static_cast<std::size_t>(needed) : 0;
  if (capacity >= static_cast<std::size_t>(needed)) {
    MultiByteToWideChar(codePage, 0, text, length, reinterpret_cast<wchar_t*>(out), needed);
  } else {
    std::vector<wchar_t> all(static_cast<std::size_t>(needed));
    MultiByteToWideChar(codePage, 0, text, length, all.data(), needed);
    std::memcpy(out, all.data(), capacity * sizeof(wchar_t));
  }
  return static_cast<std::size_t>(needed);
}

std::size_t UnitsToMultiByte(const unsigned short* units, std::size_t count, char* out,
                             std::size_t capacity) {
  if (count == 0 || !FitsInt(count))
    return 0;
  const UINT codePage = CurrentCodePage();
  const wchar_t* wide = Wide(units);
  const int length = static_cast<int>(count);
  int needed = WideCharToMultiByte(codePage, 0, wide, length, nullptr, 0, nullptr, nullptr);
  if (needed <= 0 || !out || capacity == 0)
    return needed > 0 ? static_cast<std::size_t>(needed) : 0;
  if (capacity >= static_cast<std::size_t>(needed)) {
    WideCharToMultiByte(codePage, 0, wide, length, out, needed, nullptr, nullptr);
  } else {
    std::vector<char> all(static_cast<std::size_t>(needed));
    WideCharToMultiByte(codePage, 0, wide, length, all.data(), needed, nullptr, nullptr);
    std::memcpy(out, all.data(), capacity);
  }
  return static_cast<std::size_t>(needed);
}

int AsciiCompareIgnoreCase(const char* a, const char* b, std::size_t count) {
  return Sign(_strnicmp(a, b, count));
}

int AsciiCompareIgnoreCaseWithin(const char* a, const char* b, std::size_t count) {
  return AsciiCompareIgnoreCase(a, b, count);
}

int MultiByteCompare(const char* a, const char* b, std::size_t count) {
  return Sign(_mbsncmp(Bytes(a), Bytes(b), count));
}

int MultiByteCompareIgnoreCase(const char* a, const char* b, std::size_t count) {
  return Sign(_mbsnicmp(Bytes(a), Bytes(b), count));
}

// The runtime's _mbsncoll is not available everywhere msvcrt.dll is (Wine
// leaves it unimplemented), so the first `count` characters are cut out here,
// with the runtime's own character boundaries, and collated with strcoll,
// which uses the same LC_COLLATE.
int MultiByteCollate(const char* a, const char* b, std::size_t count) {
  const std::string first(a, SpanOfCharacters(a, count));
  const std::string second(b, SpanOfCharacters(b, count));
  return Sign(std::strcoll(first.c_str(), second.c_str()));
}

// Case folding here is the runtime's (_mbsnicmp), which is not probed:
// foldsAsAscii stays false and case-insensitive comparisons keep to the
// runtime's own functions.
SevenBitTraits ProbeSevenBitTraits() {
  SevenBitTraits traits{true, false};
  for (int c = 1; c < 128; ++c) {
    const char text[2] = {static_cast<char>(c), '\0'};
    // Lead bytes of the runtime's multibyte code page are never below 128,
    // but the comparisons use that code page: check both.
    if (CharLength(text) != 1 || _ismbblead(static_cast<unsigned int>(c))) {
      traits.singleBytes = false;
      break;
    }
  }
  return traits;
}

const char* SevenBitTraitsKey() { return std::setlocale(LC_CTYPE, nullptr); }

int UnitsCompare(const unsigned short* a, const unsigned short* b, std::size_t count) {
  return Sign(wcsncmp(Wide(a), Wide(b), count));
}

int UnitsCompareIgnoreCase(const unsigned short* a, const unsigned short* b, std::size_t count) {
  return Sign(_wcsnicmp(Wide(a), Wide(b), count));
}

int UnitsCollate(const unsigned short* a, const unsigned short* b, std::size_t count) {
  return Sign(_wcsncoll(Wide(a), Wide(b), count));
}

} // namespace native
} // namespace qvbase
