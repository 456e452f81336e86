// Locale.h - the C runtime locale: multibyte text, 16-bit Unicode, comparisons.
// Part of qvbase, the QVKernel foundation class library.
//
// The library's narrow strings are in the multibyte code page of the current
// C runtime locale (LC_CTYPE), its Unicode strings are 16-bit units (UTF-16),
// and it adopts the user's locale once at start-up. This layer gives the
// string classes what they need of the locale with one meaning everywhere,
// although Linux has a 32-bit wchar_t and no _mbs* functions:
//
// - Character length: the byte length of the character at a pointer, 0 at the
//   terminator; a byte that does not start a valid character counts as one
//   character of one byte, so that scanning always moves on.
// - Conversion: locale multibyte <-> UTF-16. On POSIX through mbrtowc/wcrtomb
//   with UTF-16 surrogates made and joined here. On Windows through
//   MultiByteToWideChar/WideCharToMultiByte with the C runtime's current
//   LC_CTYPE code page (the ANSI code page CP_ACP in the "C" locale, where the
//   runtime reports none), so that conversions agree with the runtime's own
//   character boundaries.
//   Replacements: a multibyte byte that does not start a valid, complete
//   character becomes one U+FFFD unit and the conversion goes on with the next
//   byte (POSIX; Windows gives the system's own replacement, which is U+FFFD in
//   UTF-8 and the code page's mapping in single-byte code pages). A unit that
//   the locale cannot encode, a lone surrogate included, becomes one '?'
//   (POSIX; Windows gives the code page's default character, '?', or in UTF-8
//   the encoded U+FFFD for a lone surrogate).
// - Comparisons with a count, returning only a sign (<0, 0, >0): the
//   equivalents of _strnicmp, _mbsncmp, _mbsnicmp, _mbsncoll, wcsncmp,
//   _wcsnicmp and _wcsncoll. Counts are in characters (multibyte) or units
//   (Unicode), and a comparison stops at a terminator. On Windows they are the
//   C runtime's own functions, except that multibyte collation cuts out the
//   first n characters itself and uses strcoll (msvcrt.dll's _mbsncoll is
//   missing under Wine). On POSIX:
//     exact      multibyte characters compare by their bytes as unsigned
//                values, units as unsigned 16-bit values (code-point order for
//                UTF-8 and for the BMP);
//     ignore case  AsciiCompareIgnoreCase folds only A-Z to a-z. The other
//                two fold each character to lower case with the locale's
//                towlower (so in the "C" locale only A-Z fold; in a UTF-8
//                locale accented and other cased letters fold too); a unit
//                that is a surrogate is compared unfolded, as on Windows; an
//                invalid multibyte byte compares as itself, never equal to a
//                valid character;
//     collation  the first n characters are copied into bounded buffers and
//                compared with the locale's strcoll / wcscoll (in "C" and
//                C.UTF-8 that is code-point order).
//   On Windows "ignore case" and "collation" are the runtime's: folding by
//   the locale's LC_CTYPE, collation by its LC_COLLATE (the system's string
//   sort for the locale's language). The _mbs* functions find character
//   boundaries with the runtime's multibyte code page, which msvcrt.dll sets
//   to the ANSI code page at start-up and setlocale leaves alone; CharLength
//   and the conversions follow LC_CTYPE. The two agree for the user's own
//   locale. msvcrt.dll has no UTF-8 LC_CTYPE.
//
// Everything here reads the process-wide C locale; changing the locale while
// another thread compares or converts is the caller's race, as with the C
// runtime itself. The functions keep no state of their own.
#pragma once

#include <cstddef>
#include <string>

namespace qvbase {
namespace native {

// setlocale(LC_ALL, ""): the user's default locale becomes the process
// locale. Returns the new locale's name, or "C" when the user's locale cannot
// be set (the process then stays in the locale it had). The name is the
// runtime's storage, valid until the next setlocale.
const char* AdoptUserLocale();

// Byte length of the multibyte character at `text` in the current locale: 0 at
// the terminator, 1 for a byte that does not start a valid character or starts
// one that the following bytes do not complete.
int CharLength(const char* text);

// Locale multibyte text -> UTF-16. Converts `bytes` bytes of `text` (a 0 byte
// is an ordinary character and becomes a 0 unit) and returns the number of
// units the whole conversion gives; at most `capacity` of them are written to
// `out` (none when `out` is null), with no terminator added.
std::size_t MultiByteToUnits(const char* text, std::size_t bytes, unsigned short* out,
                             std::size_t capacity);

// UTF-16 -> locale multibyte text; the same conventions, counted in bytes.
std::size_t UnitsToMultiByte(const unsigned short* units, std::size_t count, char* out,
                             std::size_t capacity);

// The same conversions into strings.
std::u16string MultiByteToUnits(const std::string& text);
std::string UnitsToMultiByte(const std::u16string& units);

// Comparisons of at most `count` characters (units for the Units* forms);
// see the file comment for what case and collation mean on each platform.
int AsciiCompareIgnoreCase(const char* a, const char* b, std::size_t count);
// The same result as AsciiCompareIgnoreCase, for two texts that both hold at
// least `count` bytes (POSIX then compares eight bytes at a time).
int AsciiCompareIgnoreCaseWithin(const char* a, const char* b, std::size_t count);
int MultiByteCompare(const char* a, const char* b, std::size_t count);
int MultiByteCompareIgnoreCase(const char* a, const char* b, std::size_t count);
int MultiByteCollate(const char* a, const char* b, std::size_t count);
int UnitsCompare(const unsigned short* a, const unsigned short* b, std::size_t count);
int UnitsCompareIgnoreCase(const unsigned short* a, const unsigned short* b, std::size_t count);
int UnitsCollate(const unsigned short* a, const unsigned short* b, std::size_t count);

// What the current locale makes of the bytes 1 to 127, so that the string
// handlers can treat pure 7-bit text byte by byte and still give exactly what
// the character-wise functions above give.
struct SevenBitTraits {
  // Each of these bytes is a character of its own: CharLength gives 1.
  bool singleBytes;
  // On top of that, MultiByteCompareIgnoreCase keys each of them as ASCII
  // folding does (A-Z as a-z, every other byte as itself), so that on two
  // 7-bit texts it orders as a byte-wise A-Z folding compare does. False in
  // locales that fold a 7-bit letter otherwise (the Turkic dotless i), and
  // wherever this layer does not fold by itself.
  bool foldsAsAscii;
};

// The traits of the locale in force for the calling thread's conversions,
// measured once per locale name and remembered for the process. Both are
// false whenever they cannot be established cheaply (a per-thread locale on
// POSIX): callers then take the character-wise path.
SevenBitTraits CurrentSevenBitTraits();

// For CurrentSevenBitTraits, from each platform: the name of the locale in
// force, under which its traits are remembered (null when they cannot be),
// and the traits measured afresh.
const char* SevenBitTraitsKey();
SevenBitTraits ProbeSevenBitTraits();

} // namespace native
} // namespace qvbase
