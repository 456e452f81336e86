// PMBString.h - strings in the C runtime locale's multibyte code page.
// Part of qvbase, the QVKernel foundation class library.
//
// PMBStringHandler holds text in which a character takes 1 to 4 bytes;
// character boundaries are found with the locale's character length, and
// positions and counts at the handler interface are in characters. It is the
// handler of free-type strings built from narrow text. It remembers whether
// its content is pure 7-bit, and then reports the ASCII code set so that it
// mixes cheaply with ASCII strings. PMBString is the PString whose every
// value is converted to multibyte.
//
//   PMBString path("C:\\temp");     // borrowed
//   path += "\\file";               // own buffer now
//   const char* text = path;        // never null
//
// Two packings of a character into a LONG exist and are kept apart: the one
// of GetChar (bytes folded first to last, value * 256 + signed byte) and the
// one of GMBCharLen; see there.
#pragma once

#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// The string handler of the C runtime locale's multibyte code page.
class QVBASE_API PMBStringHandler : public PStringHandler {
public:
  // `offset` and `length` count characters: the start is `offset`
  // characters into `text`, the end `length` characters further; stepping
  // stops at a terminator. copy false borrows the range.
  PMBStringHandler(const char* text, ULONG offset, ULONG length, bool copy);
  PMBStringHandler(const PMBStringHandler& other);
  ~PMBStringHandler() override;
  PMBStringHandler& operator=(const PMBStringHandler& other);

  PStringHandlerDec* GetHandlerType() const override;
  // kCodeSetASCII while the content is pure 7-bit, else kCodeSetMultiByte.
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
  // The packed character at `pos` (bytes folded first to last); 0 past the
  // end.
  LONG GetChar(ULONG pos) const override;

  // Bytes of the owned buffer; 0 when the text is borrowed.
  ULONG Capacity() const { return capacity; }

  // A new owned handler over `bytes` bytes of `text` that count as `chars`
  // characters.
  static PMBStringHandler* FromBytes(const char* text, ULONG bytes, ULONG chars);

protected:
  ULONG size;
  ULONG len;
  ULONG capacity;
  bool isAscii;
  char* buffer;

private:
  PMBStringHandler();
  void SetBufferTo(const char* text, ULONG bytes, ULONG chars, bool copy);
  void FreeBuffer();
  void ReTestForAscii();
  // Byte offset of character `pos`, stepping from the start; stops at the
  // end of the content.
  ULONG ByteOffset(ULONG pos) const;
  // Replaces the owned buffer by a fresh one of `newSize` content bytes:
  // the first `keep` bytes, then `insert` (`insertBytes` of them), then the
  // content from byte `resume` on.
  void Rebuild(ULONG keep, const char* insert, ULONG insertBytes, ULONG resume);
  // After `bytes` bytes were inserted at byte `at`: isAscii as
  // ReTestForAscii would set it, testing only the inserted bytes when the
  // content was 7-bit before.
  void UpdateAsciiAfterInsert(bool wasAscii, ULONG at, ULONG bytes);
  // The forward search over pure 7-bit content, byte by byte, where that
  // gives what the character-wise search gives: then true, with the result
  // in `found`; false when the character-wise search must run.
  bool FindSevenBit(const char* needle, ULONG needleBytes, ULONG k, ULONG from, ULONG last,
                    TypStringComp mode, ULONG* found) const;
};

// The multibyte handler's type record.
QVBASE_API extern PStringHandlerDec gMBStringHandlerDec;

// fromText: measures the terminated text and makes a handler over all of it.
// Deliberately, its character count is the byte count: the constructor takes
// a length in characters, and stepping that many characters stops at the
// terminator, so the whole text is taken. Clients that compare lengths of
// such strings with byte counts rely on it.
QVBASE_API PStringHandler* GMBStringHandlerConstructor1(const char* text, bool copy);
// fromHandler: the source's content as multibyte text.
QVBASE_API PStringHandler* GMBStringHandlerConstructor2(const PStringHandler* source);
// fromChar: an owned handler holding the character packed as GMBCharLen
// packs it.
QVBASE_API PStringHandler* GMBStringHandlerConstructor3(LONG ch);

// The byte length (1 to 4) of the character at `text`; with a non-null
// `packed` also the character packed into a LONG by this function's own
// arithmetic, which is kept exactly as it has always been (it repeats the
// third byte and ignores the fourth; stored values depend on it).
QVBASE_API int GMBCharLen(const char* text, LONG* packed);
// The byte length of a packed character and, with a non-null `out` (room
// for 4 bytes), its bytes.
QVBASE_API int GMBCharLen(LONG ch, char* out);

// The multibyte compare function of a mode: 1 and 3 ignore case, 2
// collates, every other value is exact.
QVBASE_API TypStringCmpFunction GMBGetCmpMethod(TypStringComp mode);

// A string in the C runtime locale's multibyte code page.
class QVBASE_API PMBString : public PString {
public:
  PMBString();
  PMBString(const PMBString& other);
  PMBString(const PString& other);
  PMBString(const char* text, bool copy);
  // Copy flag from gConstStrForceCopy; string literals bind here.
  PMBString(const char* text);
#if defined(_MFC_VER)
  // MFC's string, always copied; only where MFC is part of the build.
  PMBString(const CString& text);
#endif

  PMBString& operator=(const PMBString& other);
  PMBString& operator=(const PString& other);

  // The content; the shared empty text for an empty string, never null.
  operator const char*() const;
  // The packed character of GetChar.
  LONG operator[](ULONG pos) const;
  LONG operator[](int pos) const { return (*this)[static_cast<ULONG>(pos)]; }
};
