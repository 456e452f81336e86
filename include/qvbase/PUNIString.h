// PUNIString.h - strings of 16-bit Unicode units.
// Part of qvbase, the QVKernel foundation class library.
//
// PUNIStringHandler holds text as unsigned short units, one unit per
// character, owned (a multiple of 4 units, terminator included) or borrowed.
// It handles every code set, so a free-type string that meets Unicode content
// becomes Unicode and stays so. Narrow content is converted from and to the
// C runtime locale's multibyte code page.
//
//   static const unsigned short kName[] = {'n', 'a', 'm', 'e', 0};
//   PUNIString name(kName);              // borrowed
//   PString line("file ");               // multibyte
//   line += name;                        // line is Unicode now
#pragma once

#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The string handler of 16-bit Unicode units.
class QVBASE_API PUNIStringHandler : public PStringHandler {
public:
  // The `length` units at `text + offset`; copy false borrows them.
  PUNIStringHandler(const unsigned short* text, ULONG offset, ULONG length, bool copy);
  PUNIStringHandler(const PUNIStringHandler& other);
  ~PUNIStringHandler() override;
  PUNIStringHandler& operator=(const PUNIStringHandler& other);

  PStringHandlerDec* GetHandlerType() const override;
  TypCodeSet GetCodeSet() override;
  bool HandlesCodeSet(TypCodeSet codeSet) const override;
  PStringHandler* Duplicate() const override;
  // Bytes: two per unit.
  ULONG GetSize() const override;
  ULONG GetFullSize() const override;
  ULONG GetLen() const override;
  const void* GetContent() const override;
  PStringHandler* GetSubHandler(ULONG start, ULONG count) const override;
  ULONG FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override;
  // Narrow characters (packed as GMBCharLen packs them) are converted from
  // their first byte alone; see InsertChar.
  ULONG FindCharFwd(LONG ch, ULONG from, TypStringComp mode) const override;
  ULONG FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override;
  ULONG FindCharBwd(LONG ch, ULONG from, TypStringComp mode) const override;
  LONG CompareSubHandler(ULONG start, const PStringHandler* other, ULONG otherStart, ULONG count,
                         TypStringComp mode) const override;
  void InsertHandler(const PStringHandler* other, ULONG pos) override;
  // `ch` is a packed narrow character. Deliberately only its first byte is
  // converted, as a one-byte character: a double-byte character does not
  // give its Unicode value here (callers insert wide text as strings). A byte
  // that does not convert stores U+FFFD.
  void InsertChar(LONG ch, ULONG pos) override;
  void DeletePart(ULONG start, ULONG count) override;
  // The same conversion as InsertChar; a byte that does not convert alone
  // raises 1211 (abort severity) and the unit is left as it was.
  void SetChar(ULONG pos, LONG ch) override;
  bool CanBeModified() const override;
  LONG GetChar(ULONG pos) const override;

  // Units of the owned buffer; 0 when the text is borrowed.
  ULONG Capacity() const { return capacity; }

protected:
  ULONG len;
  ULONG capacity;
  unsigned short* buffer;

private:
  void SetBufferTo(const unsigned short* text, ULONG length, bool copy);
  void FreeBuffer();
  void Rebuild(ULONG newCapacity, ULONG keep, const unsigned short* insert, ULONG insertUnits,
               ULONG resume);
};

// fromHandler of the Unicode type record: the source's content as units
// (narrow content converted from the locale's multibyte code page).
QVBASE_API PStringHandler* GUNIStringHandlerConstructor2(const PStringHandler* source);

// The Unicode compare function of a mode: 1 and 3 ignore case, 2 collates,
// every other value is exact. Counts are in units.
QVBASE_API TypStringCmpFunction GUNIGetCmpMethod(TypStringComp mode);

// A string of 16-bit Unicode units.
class QVBASE_API PUNIString : public PString {
public:
  PUNIString();
  PUNIString(const PUNIString& other);
  PUNIString(const PString& other);
  PUNIString(const unsigned short* text, bool copy);
  // Copy flag from gConstStrForceCopy.
  PUNIString(const unsigned short* text);

  PUNIString& operator=(const PUNIString& other);
  PUNIString& operator=(const PString& other);

  // The units; a shared empty text for an empty string, never null.
  operator const unsigned short*() const;
};
