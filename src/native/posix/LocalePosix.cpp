// LocalePosix.cpp - multibyte text, UTF-16 and comparisons over the C locale.
// Part of qvbase, the QVKernel foundation class library.
//
// glibc's wchar_t holds whole code points (UCS-4) in every locale, so the
// conversions here go through mbrtowc/wcrtomb one character at a time and make
// or join UTF-16 surrogate pairs themselves. Every call starts from a fresh
// conversion state: the locales the library meets are stateless.
#include "native/Locale.h"

#include <climits>
#include <cstdint>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <locale.h>
#include <string>

namespace qvbase {
namespace native {

namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;
constexpr char kUnencodableByte = '?';
// A byte that starts no valid character is keyed apart from every character:
// surrogate code points never come out of a multibyte decoder.
constexpr std::uint32_t kInvalidByteKeyBase = 0xDC00;

bool IsSurrogate(std::uint32_t u) { return u >= 0xD800 && u <= 0xDFFF; }
bool IsHighSurrogate(std::uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
bool IsLowSurrogate(std::uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

int Sign(long long difference) { return difference < 0 ? -1 : difference > 0 ? 1 : 0; }

// Decodes the character at `text`, of which `available` bytes may be read.
// Returns the bytes it takes (1 for a 0 byte, which decodes to 0), or 0 when
// the bytes there do not make one complete, valid character.
std::size_t DecodeCharacter(const char* text, std::size_t available, char32_t* character) {
  std::mbstate_t state{};
  wchar_t wide = 0;
  std::size_t n = std::mbrtowc(&wide, text, available, &state);
  if (n == static_cast<std::size_t>(-1) || n == static_cast<std::size_t>(-2))
    return 0;
  *character = static_cast<char32_t>(wide);
  return n == 0 ? 1 : n;
}

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

// The units of the first `count` units of a terminated UTF-16 text.
std::size_t SpanOfUnits(const unsigned short* units, std::size_t count) {
  std::size_t n = 0;
  while (n < count && units[n] != 0)
    ++n;
  return n;
}

// Appends to a bounded output while counting everything that would be written.
template <typename T>
class BoundedOutput {
public:
  BoundedOutput(T* out, std::size_t capacity) : m_out(out), m_capacity(out ? capacity : 0) {}
  void Put(T value) {
    if (m_total < m_capacity)
      m_out[m_total] = value;
    ++m_total;
  }
  std::size_t Total() const { return m_total; }

private:
  T* m_out;
  std::size_t m_capacity;
  std::size_t m_total = 0;
};

void PutCodePoint(char32_t c, BoundedOutput<unsigned short>* out) {
  if (c > 0x10FFFF)
    c = kReplacementCharacter;
  if (c > 0xFFFF) {
    const char32_t v = c - 0x10000;
    out->Put(static_cast<unsigned short>(0xD800 + (v >> 10)));
    out->Put(static_cast<unsigned short>(0xDC00 + (v & 0x3FF)));
  } else {
    out->Put(static_cast<unsigned short>(c));
  }
}

void PutEncoded(char32_t c, BoundedOutput<char>* out) {
  char bytes[MB_LEN_MAX];
  std::mbstate_t state{};
  std::size_t n = std::wcrtomb(bytes, static_cast<wchar_t>(c), &state);
  if (n == static_cast<std::size_t>(-1)) {
    out->Put(kUnencodableByte);
    return;
  }
  for (std::size_t i = 0; i < n; ++i)
    out->Put(bytes[i]);
}

// The case-folded key of the multibyte character at `text`; `*length` gets its
// byte length, 0 at the terminator.
std::uint32_t FoldedCharacterKey(const char* text, std::size_t* length) {
  if (*text == '\0') {
    *length = 0;
    return 0;
  }
  char32_t c = 0;
  std::size_t n = DecodeCharacter(text, static_cast<std::size_t>(MB_CUR_MAX), &c);
  if (n == 0) {
    *length = 1;
    return kInvalidByteKeyBase + static_cast<unsigned char>(*text);
  }
  *length = n;
  return static_cast<std::uint32_t>(std::towlower(static_cast<wint_t>(c)));
}

std::uint32_t FoldedUnit(unsigned short unit) {
  if (IsSurrogate(unit))
    return unit;
  const wint_t folded = std::towlower(static_cast<wint_t>(unit));
  return folded <= 0xFFFF ? static_cast<std::uint32_t>(folded) : unit;
}

// UTF-16 units -> wide characters of the C library, pairs joined.
std::wstring UnitsToWide(const unsigned short* units, std::size_t count) {
  std::wstring wide;
  wide.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t u = units[i];
    if (IsHighSurrogate(u) && i + 1 < count && IsLowSurrogate(units[i + 1])) {
      u = 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00u);
      ++i;
    }
    wide.push_back(static_cast<wchar_t>(u));
  }
  return wide;
}

} // namespace

int CharLength(const char* text) {
  if (*text == '\0')
    return 0;
  std::mbstate_t state{};
  std::size_t n = std::mbrlen(text, static_cast<std::size_t>(MB_CUR_MAX), &state);
  if (n == static_cast<std::size_t>(-1) || n == static_cast<std::size_t>(-2) || n == 0)
    return 1;
  return static_cast<int>(n);
}

std::size_t MultiByteToUnits(const char* text, std::size_t bytes, unsigned short* out,
                             std::size_t capacity) {
  BoundedOutput<unsigned short> output(out, capacity);
  std::size_t at = 0;
  while (at < bytes) {
    char32_t c = 0;
    std::size_t n = DecodeCharacter(text + at, bytes - at, &c);
    if (n == 0) {
      // Invalid or cut short: one replacement for this byte, then the next.
      c = kReplacementCharacter;
      n = 1;
    }
    PutCodePoint(c, &output);
    at += n;
  }
  return output.Total();
}

std::size_t UnitsToMultiByte(const unsigned short* units, std::size_t count, char* out,
                             std::size_t capacity) {
  BoundedOutput<char> output(out, capacity);
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t u = units[i];
    if (IsHighSurrogate(u) && i + 1 < count && IsLowSurrogate(units[i + 1])) {
      PutEncoded(static_cast<char32_t>(0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00u)),
                 &output);
      ++i;
    } else if (IsSurrogate(u)) {
      output.Put(kUnencodableByte);
    } else {
      PutEncoded(static_cast<char32_t>(u), &output);
    }
  }
  return output.Total();
}

int AsciiCompareIgnoreCase(const char* a, const char* b, std::size_t count) {
  auto fold = [](char c) {
    unsigned char u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? u + ('a' - 'A') : u;
  };
  for (std::size_t i = 0; i < count; ++i) {
    int ca = fold(a[i]), cb = fold(b[i]);
    if (ca != cb)
      return Sign(ca - cb);
    if (ca == 0)
      break;
  }
  return 0;
}

int AsciiCompareIgnoreCaseWithin(const char* a, const char* b, std::size_t count) {
  // Runs of eight bytes below 128 without a 0 that fold equal change nothing
  // in the result; a byte from 'A' to 'Z' is the one for which adding 0x3F
  // sets the top bit and adding 0x25 does not (no carry below 128).
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  constexpr std::uint64_t kHigh = 0x80 * kOnes;
  auto foldWord = [](std::uint64_t x) {
    return x | ((((x + 0x3F * kOnes) ^ (x + 0x25 * kOnes)) & kHigh) >> 2);
  };
  std::size_t done = 0;
  while (count - done >= 8) {
    std::uint64_t wa, wb;
    std::memcpy(&wa, a + done, 8);
    std::memcpy(&wb, b + done, 8);
    if (((wa | wb) & kHigh) != 0 || ((wa - kOnes) & ~wa & kHigh) != 0 ||
        foldWord(wa) != foldWord(wb))
      break;
    done += 8;
  }
  return AsciiCompareIgnoreCase(a + done, b + done, count - done);
}

int MultiByteCompare(const char* a, const char* b, std::size_t count) {
  const std::size_t spanA = SpanOfCharacters(a, count);
  const std::size_t spanB = SpanOfCharacters(b, count);
  const std::size_t common = spanA < spanB ? spanA : spanB;
  if (int r = std::memcmp(a, b, common))
    return Sign(r);
  return Sign(static_cast<long long>(spanA) - static_cast<long long>(spanB));
}

int MultiByteCompareIgnoreCase(const char* a, const char* b, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t lengthA = 0, lengthB = 0;
    const std::uint32_t keyA = FoldedCharacterKey(a, &lengthA);
    const std::uint32_t keyB = FoldedCharacterKey(b, &lengthB);
    if (keyA != keyB)
      return keyA < keyB ? -1 : 1;
    if (lengthA == 0)
      break;
    a += lengthA;
    b += lengthB;
  }
  return 0;
}

int MultiByteCollate(const char* a, const char* b, std::size_t count) {
  const std::string first(a, SpanOfCharacters(a, count));
  const std::string second(b, SpanOfCharacters(b, count));
  return Sign(std::strcoll(first.c_str(), second.c_str()));
}

SevenBitTraits ProbeSevenBitTraits() {
  SevenBitTraits traits{true, true};
  for (int c = 1; c < 128; ++c) {
    const char text[2] = {static_cast<char>(c), '\0'};
    if (CharLength(text) != 1) {
      traits.singleBytes = false;
      traits.foldsAsAscii = false;
      break;
    }
    std::size_t length = 0;
    const std::uint32_t key = FoldedCharacterKey(text, &length);
    const std::uint32_t ascii = c >= 'A' && c <= 'Z' ? static_cast<std::uint32_t>(c + ('a' - 'A'))
                                                     : static_cast<std::uint32_t>(c);
    if (length != 1 || key != ascii)
      traits.foldsAsAscii = false;
  }
  return traits;
}

const char* SevenBitTraitsKey() {
  // A thread-local locale has no name that setlocale reports.
  if (uselocale(static_cast<locale_t>(0)) != LC_GLOBAL_LOCALE)
    return nullptr;
  return std::setlocale(LC_CTYPE, nullptr);
}

int UnitsCompare(const unsigned short* a, const unsigned short* b, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (a[i] != b[i])
      return a[i] < b[i] ? -1 : 1;
    if (a[i] == 0)
      break;
  }
  return 0;
}

int UnitsCompareIgnoreCase(const unsigned short* a, const unsigned short* b, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t ua = FoldedUnit(a[i]), ub = FoldedUnit(b[i]);
    if (ua != ub)
      return ua < ub ? -1 : 1;
    if (ua == 0)
      break;
  }
  return 0;
}

int UnitsCollate(const unsigned short* a, const unsigned short* b, std::size_t count) {
  const std::wstring first = UnitsToWide(a, SpanOfUnits(a, count));
  const std::wstring second = UnitsToWide(b, SpanOfUnits(b, count));
  return Sign(std::wcscoll(first.c_str(), second.c_str()));
}

} // namespace native
} // namespace qvbase
