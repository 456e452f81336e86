// PStringConversions.cpp - number and hexadecimal conversions, word lists,
// and the locale adopted at start-up.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PStringConversions.h>

#include "errors/RaiseError.h"
#include "strings/PStringHandlerImpl.h"
#include "native/Locale.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The source text the hexadecimal conversions' errors carry: their defined
// position, not a path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\phexastrings";
const ULONG kLineFirstDigit = 68;
const ULONG kLineSecondDigit = 76;

// The remembered locale name. The runtime's own string is only valid until
// the next setlocale, so the name is kept here.
char gLocaleName[256] = "C";

void RememberLocale(const char* name) {
  std::snprintf(gLocaleName, sizeof gLocaleName, "%s", name ? name : "C");
}

// Adopts the user's default locale when the library is loaded: the one
// start-up step of the strings.
const bool kUserLocaleAdopted = (RememberLocale(qvbase::native::AdoptUserLocale()), true);

// Runs a C runtime call with the numeric category in the "C" locale, then
// restores the remembered locale's numeric category.
class CNumericScope {
public:
  CNumericScope() { std::setlocale(LC_NUMERIC, "C"); }
  ~CNumericScope() { std::setlocale(LC_NUMERIC, gLocaleName); }
  CNumericScope(const CNumericScope&) = delete;
  CNumericScope& operator=(const CNumericScope&) = delete;
};

// An ASCII string over a copy of `text`, handed over as a free-type string
// that shares its handler.
PString AsciiResult(const char* text) { return PString(PASCIIString(text, /*copy=*/true)); }

std::string FloatFormatString(const char* pattern, unsigned char precision) {
  char format[32];
  std::snprintf(format, sizeof format, pattern, static_cast<unsigned>(precision));
  return format;
}

// The text of a string as ASCII; empty when it cannot be (after its error
// signal returned).
PASCIIString AsciiText(const PString& text) { return PASCIIString(text); }

const char kHexDigits[] = "0123456789ABCDEF";

void AppendHexByte(char* out, unsigned value) {
  out[0] = kHexDigits[(value >> 4) & 0xF];
  out[1] = kHexDigits[value & 0xF];
}

// The value of a hexadecimal digit, or -1.
int HexValue(LONG ch) {
  if (ch >= '0' && ch <= '9')
    return static_cast<int>(ch - '0');
  if (ch >= 'a' && ch <= 'f')
    return static_cast<int>(ch - 'a' + 10);
  if (ch >= 'A' && ch <= 'F')
    return static_cast<int>(ch - 'A' + 10);
  return -1;
}

// The byte written as the pair of digits at `pos`.
unsigned ReadHexPair(const PASCIIString& text, ULONG pos) {
  int high = HexValue(text.GetChar(pos));
  if (high < 0) {
    qvbase::errors::Raise(kErrStringBadHexDigit, ErrorSeverityError, kSourceFile, kLineFirstDigit);
    high = 0; // when the signal returns
  }
  int low = HexValue(text.GetChar(pos + 1));
  if (low < 0) {
    qvbase::errors::Raise(kErrStringBadHexDigit, ErrorSeverityError, kSourceFile, kLineSecondDigit);
    low = 0;
  }
  return static_cast<unsigned>(high * 16 + low);
}

ULONG ReadHex(const PASCIIString& text, int bytes) {
  ULONG value = 0;
  for (int i = 0; i < bytes; ++i)
    value = (value << 8) | ReadHexPair(text, static_cast<ULONG>(i) * 2);
  return value;
}

} // namespace

const char* GRememberedLocaleName() { return gLocaleName; }

bool GSetRememberedLocale(const char* name) {
  const char* set = std::setlocale(LC_ALL, name);
  if (!set)
    return false;
  RememberLocale(set);
  return true;
}

PString UIntToPString(ULONG value) {
  char text[32];
  std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(value));
  return AsciiResult(text);
}

PString SIntToPString(LONG value) {
  char text[32];
  std::snprintf(text, sizeof text, "%ld", static_cast<long>(value));
  return AsciiResult(text);
}

PString FloatToPString(double value, unsigned char precision) {
  std::string format = FloatFormatString("%%.%ug", precision);
  char text[512];
  {
    CNumericScope c;
    std::snprintf(text, sizeof text, format.c_str(), value);
  }
  return PString(text, /*copy=*/true);
}

PString FloatFormat(double value, unsigned char precision, bool withSign) {
  // Deliberately in the current locale: display texts use its separator.
  std::string format = FloatFormatString(withSign ? "%%+.%ug" : "%%.%ug", precision);
  char text[512];
  std::snprintf(text, sizeof text, format.c_str(), value);
  return PString(text, /*copy=*/true);
}

// The readers behave as the C runtime's "%lu" and "%ld" do with a 32-bit
// long, on every target: digits beyond the range saturate at its ends (a
// 64-bit long would wrap them on the way to 32 bits instead).
ULONG PStringToUInt(const PString& text) {
  long long value = 0;
  if (std::sscanf(AsciiText(text), "%lld", &value) != 1)
    return 0;
  // A minus sign negates in 32 bits ("-5" is 0xFFFFFFFB), as strtoul does.
  if (value > 0xFFFFFFFFll || value < -0xFFFFFFFFll)
    return 0xFFFFFFFFu;
  return static_cast<ULONG>(value);
}

LONG PStringToSInt(const PString& text) {
  long long value = 0;
  if (std::sscanf(AsciiText(text), "%lld", &value) != 1)
    return 0;
  if (value > 0x7FFFFFFFll)
    return 0x7FFFFFFF;
  if (value < -0x80000000ll)
    return static_cast<LONG>(-0x7FFFFFFF - 1);
  return static_cast<LONG>(value);
}

double PStringToFloat(const PString& text) {
  PASCIIString ascii = AsciiText(text);
  CNumericScope c;
  return std::atof(ascii);
}

PString UInt8ToHexa(unsigned char value) {
  char text[3] = {0};
  AppendHexByte(text, value);
  return AsciiResult(text);
}

PString UInt16ToHexa(unsigned short value) {
  char text[5] = {0};
  AppendHexByte(text, static_cast<unsigned>(value >> 8));
  AppendHexByte(text + 2, value & 0xFFu);
  return AsciiResult(text);
}

PString UInt32ToHexa(ULONG value) {
  char text[9] = {0};
  for (std::size_t i = 0; i < 4; ++i)
    AppendHexByte(text + 2 * i, (value >> (24 - 8 * i)) & 0xFFu);
  return AsciiResult(text);
}

unsigned char HexaToUInt8(const PASCIIString& text) {
  return static_cast<unsigned char>(ReadHex(text, 1));
}

unsigned short HexaToUInt16(const PASCIIString& text) {
  return static_cast<unsigned short>(ReadHex(text, 2));
}

ULONG HexaToUInt32(const PASCIIString& text) { return ReadHex(text, 4); }

void AddToWordList(PString& list, const PString& word, char separator) {
  if (list.IsNotEmpty())
    list += separator;
  list += word;
}

bool GetNextWord(PString& source, PString* word, char separator) {
  const LONG sep = qvbase::strings::SignedByte(separator);
  ULONG length = source.Len();
  ULONG start = 0;
  while (start < length && source.GetChar(start) == sep)
    ++start;
  if (start >= length) {
    source = PString();
    if (word)
      *word = PString();
    return false;
  }
  ULONG end = source.FindForward(sep, start, kStrCompExact);
  if (end == kStringNotFound)
    end = length;
  if (word)
    *word = source.Mid(start, end - start);
  // The word and the one separator after it leave the source.
  ULONG consumed = end < length ? end + 1 : length;
  source.Delete(0, consumed);
  return true;
}

ULONG WordMatching(const PString& text, const PString& words, TypStringComp mode,
                   ULONG* wordCount) {
  if (wordCount)
    *wordCount = 0;
  // The counter is only cleared: the counting step has always moved the
  // pointer rather than the value, and callers rely on reading 0.
  ULONG found = 0;
  PString rest(words);
  PString word;
  while (GetNextWord(rest, &word, ' ')) {
    if (word.IsNotEmpty() && text.FindForward(word, 0, mode) != kStringNotFound)
      ++found;
  }
  return found;
}
