// PStringConversions.h - numbers to and from strings, hexadecimal text, and
// strings as lists of separated words.
// Part of qvbase, the QVKernel foundation class library.
//
// The library adopts the user's default locale once at start-up and
// remembers its name. Floating-point text written by FloatToPString and read
// by PStringToFloat always uses a decimal point: those calls switch the
// numeric category to "C" for their duration and then restore the
// remembered locale. FloatFormat deliberately prints in the current locale.
// The locale is process-wide: calls that switch it must not run while
// another thread depends on it.
//
//   PString n = UIntToPString(42);          // "42", an ASCII handler
//   ULONG back = PStringToUInt(n);          // 42
//   PString h = UInt32ToHexa(0xBEEF);       // "0000BEEF"
//   PString words;
//   AddToWordList(words, "red", ' ');       // "red"
#pragma once

#include <qvbase/PASCIIString.h>
#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

QVBASE_API PString UIntToPString(ULONG value);
QVBASE_API PString SIntToPString(LONG value);
// %.<precision>g under the "C" numeric locale: always a decimal point.
QVBASE_API PString FloatToPString(double value, unsigned char precision);
// %.<precision>g, or %+.<precision>g with `withSign`, in the current locale.
QVBASE_API PString FloatFormat(double value, unsigned char precision, bool withSign);

// The text as ASCII, read with %lu / %ld; 0 when nothing can be read. Text
// that is not 7-bit raises 1210 and, when that returns, reads as empty.
QVBASE_API ULONG PStringToUInt(const PString& text);
QVBASE_API LONG PStringToSInt(const PString& text);
// The text as ASCII, read under the "C" numeric locale.
QVBASE_API double PStringToFloat(const PString& text);

// Upper-case hexadecimal, most significant byte first.
QVBASE_API PString UInt8ToHexa(unsigned char value);
QVBASE_API PString UInt16ToHexa(unsigned short value);
QVBASE_API PString UInt32ToHexa(ULONG value);
// Read pair by pair from the start, first pair most significant; either
// case; text past the digits needed is ignored. A bad digit (a missing one
// included) raises 1212; when that returns, the digit counts as 0.
QVBASE_API unsigned char HexaToUInt8(const PASCIIString& text);
QVBASE_API unsigned short HexaToUInt16(const PASCIIString& text);
QVBASE_API ULONG HexaToUInt32(const PASCIIString& text);

// Appends the separator (only when the list is not empty) and the word.
QVBASE_API void AddToWordList(PString& list, const PString& word, char separator);
// Takes the next word off the front of `source`: separators before it are
// skipped, the word runs to the next separator or the end, and the word and
// the one separator after it are removed from `source`. False, with `source`
// emptied, when no word is left. `word` may be null.
QVBASE_API bool GetNextWord(PString& source, PString* word, char separator);
// The number of blank-separated words of `words` found in `text`. The
// counter behind `wordCount` is set to 0 and deliberately never increased:
// callers have always read 0 there.
QVBASE_API ULONG WordMatching(const PString& text, const PString& words, TypStringComp mode,
                              ULONG* wordCount);

// The locale name remembered at start-up (the result of adopting the user's
// default locale), to which the numeric category is restored.
QVBASE_API const char* GRememberedLocaleName();
// Makes `name` the process locale (all categories) and remembers it in place
// of the start-up one; false, changing nothing, when the runtime refuses it.
QVBASE_API bool GSetRememberedLocale(const char* name);
