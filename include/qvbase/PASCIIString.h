// PASCIIString.h - strings of 7-bit text, one byte per character.
// Part of qvbase, the QVKernel foundation class library.
//
// PASCIIStringHandler owns a heap buffer sized to its text (a multiple of 8
// bytes, terminator included, no geometric growth) or borrows a caller's
// constant text without copying it. PASCIIString is the PString whose every
// value is converted to ASCII. A character outside 0..127 is an error
// (code 1210) at every entry point; where the error signal returns, the
// operation goes on as its comment says.
//
//   PASCIIString name("module");            // borrowed
//   PASCIIString copy(name);                // shared
//   copy += "s";                            // own buffer now
//   const char* text = copy;                // "modules", never null
#pragma once

#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The string handler of 7-bit text, one byte per character.
class QVBASE_API PASCIIStringHandler : public PStringHandler {
public:
  // The `length` bytes at `text + offset`. copy false borrows them (nothing
  // is written there, so the caller's text should be terminated at the end
  // of the range); copy true allocates and copies.
  PASCIIStringHandler(const char* text, ULONG offset, ULONG length, bool copy);
  PASCIIStringHandler(const PASCIIStringHandler& other);
  ~PASCIIStringHandler() override;
  PASCIIStringHandler& operator=(const PASCIIStringHandler& other);

  PStringHandlerDec* GetHandlerType() const override;
  TypCodeSet GetCodeSet() override;
  bool HandlesCodeSet(TypCodeSet codeSet) const override;
  PStringHandler* Duplicate() const override;
  ULONG GetSize() const override;
  ULONG GetFullSize() const override;
  ULONG GetLen() const override;
  const void* GetContent() const override;
  PStringHandler* GetSubHandler(ULONG start, ULONG count) const override;
  ULONG FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override;
  ULONG FindCharFwd(LONG ch, ULONG from, TypStringComp mode) const override;
  ULONG FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                          TypStringComp mode) const override;
  ULONG FindCharBwd(LONG ch, ULONG from, TypStringComp mode) const override;
  LONG CompareSubHandler(ULONG start, const PStringHandler* other, ULONG otherStart, ULONG count,
                         TypStringComp mode) const override;
  void InsertHandler(const PStringHandler* other, ULONG pos) override;
  void InsertChar(LONG ch, ULONG pos) override;
  void DeletePart(ULONG start, ULONG count) override;
  void SetChar(ULONG pos, LONG ch) override;
  bool CanBeModified() const override;
  LONG GetChar(ULONG pos) const override;

  // Bytes of the owned buffer; 0 when the text is borrowed.
  ULONG Capacity() const { return capacity; }

protected:
  ULONG len;
  ULONG capacity;
  char* buffer;

private:
  void SetBufferTo(const char* text, ULONG length, bool copy);
  void FreeBuffer();
};

// The ASCII handler's type record: fromText, fromHandler,
// GASCIIStrHandlerConstructor3.
QVBASE_API extern PStringHandlerDec gASCIIStringHandlerDec;

// A new owned handler holding one character; a character outside 0..127
// raises 1210 and is stored (its low byte) when the signal returns.
QVBASE_API PStringHandler* GASCIIStrHandlerConstructor3(LONG ch);

// The ASCII compare function of a mode: 1 and 3 ignore case, every other
// value (collation included, which ASCII does not have) is exact.
QVBASE_API TypStringCmpFunction GASCIIGetCmpMethod(TypStringComp mode);

// A string of 7-bit text, one byte per character.
class QVBASE_API PASCIIString : public PString {
public:
  PASCIIString();
  PASCIIString(const PASCIIString& other);
  // Converts the source's content to ASCII.
  PASCIIString(const PString& other);
  PASCIIString(const char* text, bool copy);
  // Copy flag from gConstStrForceCopy; string literals bind here.
  PASCIIString(const char* text);
#if defined(_MFC_VER)
  // MFC's string, always copied; only where MFC is part of the build.
  PASCIIString(const CString& text);
#endif

  PASCIIString& operator=(const PASCIIString& other);
  PASCIIString& operator=(const PString& other);

  // The content; the shared empty text for an empty string, never null.
  operator const char*() const;
  // The character at `pos`; 0 when empty or out of range.
  char operator[](ULONG pos) const;
  // The same for an int index, so that ascii[0] does not compete with the
  // built-in subscript through operator const char*.
  char operator[](int pos) const { return (*this)[static_cast<ULONG>(pos)]; }
};
