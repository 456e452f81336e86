// PString.h - the string value and the interface of its encoding handlers.
// Part of qvbase, the QVKernel foundation class library.
//
// A PString holds no characters itself. It holds a reference-counted string
// handler (a PStringHandler: ASCII, multibyte or Unicode) that owns or borrows
// one terminated character buffer, and optionally a declared handler type
// (PStringHandlerDec) that pins the encoding. Copies share the handler; every
// modification first makes the handler private (copy-on-write), so a copy
// never sees changes made through another. A string without a declared type
// ("free type") widens by itself as content requires: ASCII, then multibyte,
// then Unicode; it never narrows.
//
//   PString greeting("Hello");        // borrows the literal (see gConstStrForceCopy)
//   PString copy = greeting;          // shares the handler
//   copy += ", world";                // copy gets its own buffer; greeting unchanged
//   ULONG at = copy.FindForward("world", 0, kStrCompIgnoreCase);   // 7
//
// Positions and counts are 32-bit and in characters; a search that finds
// nothing returns kStringNotFound (0xFFFFFFFF). Handler counts are plain
// integers: a string and the handlers it shares belong to one thread at a
// time.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/PSmartData.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

#if defined(_MFC_VER)
#include <afxstr.h>
#endif

class PASCIIString;
class PStringHandler;

// What searches return when nothing is found.
constexpr ULONG kStringNotFound = 0xFFFFFFFFu;

// How comparisons and searches compare characters. Any value other than the
// named ones selects the exact comparison, so the type holds every int.
enum TypStringComp : int {
  kStrCompExact = 0,      // byte or unit order
  kStrCompIgnoreCase = 1, // case folded
  kStrCompCollate = 2,    // the locale's collation (exact for ASCII)
  kStrCompNoCase = 3,     // the same functions as kStrCompIgnoreCase
  kStrCompComposite = 4   // PString::CompareTo only: ignore case, then collate, then exact
};

// The character repertoire of a handler's content.
enum TypCodeSet : int {
  kCodeSetASCII = 1,     // 7-bit
  kCodeSetMultiByte = 2, // the C runtime locale's multibyte code page
  kCodeSetUnicode = 3    // 16-bit units
};

// A compare function of a handler: two buffers and a count of characters
// (units for Unicode), returning the sign of the comparison.
typedef LONG (*TypStringCmpFunction)(const void* a, const void* b, ULONG count);

// One record per handler class: the three ways to make a handler of that
// class. Fields in this order.
struct PStringHandlerDec {
  // Over a terminated narrow text; copy false lets the handler borrow it.
  PStringHandler* (*fromText)(const char* text, bool copy);
  // Holding another handler's content, converted.
  PStringHandler* (*fromHandler)(const PStringHandler* source);
  // Holding one character.
  PStringHandler* (*fromChar)(LONG ch);
};

// The owner of one character buffer in one encoding. All operations are
// pure here; positions and counts are in characters, characters travel as
// LONG values (a multibyte character packed into one value).
class QVBASE_API PStringHandler : public PSmartData {
public:
  PStringHandler();
  PStringHandler(const PStringHandler& other);
  ~PStringHandler() override;
  PStringHandler& operator=(const PStringHandler& other);

  virtual PStringHandlerDec* GetHandlerType() const = 0;
  // The code set of the current content.
  virtual TypCodeSet GetCodeSet() = 0;
  // Whether this handler can hold characters of `codeSet`.
  virtual bool HandlesCodeSet(TypCodeSet codeSet) const = 0;
  // A new handler of the same type with its own copy of the content.
  virtual PStringHandler* Duplicate() const = 0;
  // Content size in storage units (bytes for narrow handlers).
  virtual ULONG GetSize() const = 0;
  // Size in bytes including the terminator.
  virtual ULONG GetFullSize() const = 0;
  virtual ULONG GetLen() const = 0;
  // The terminated character buffer.
  virtual const void* GetContent() const = 0;
  // A new handler owning a copy of the slice.
  virtual PStringHandler* GetSubHandler(ULONG start, ULONG count) const = 0;
  virtual ULONG FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                                  TypStringComp mode) const = 0;
  virtual ULONG FindCharFwd(LONG ch, ULONG from, TypStringComp mode) const = 0;
  virtual ULONG FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                                  TypStringComp mode) const = 0;
  virtual ULONG FindCharBwd(LONG ch, ULONG from, TypStringComp mode) const = 0;
  // Three-way comparison of `count` characters from `start` against the other
  // handler's from `otherStart`.
  virtual LONG CompareSubHandler(ULONG start, const PStringHandler* other, ULONG otherStart,
                                 ULONG count, TypStringComp mode) const = 0;
  virtual void InsertHandler(const PStringHandler* other, ULONG pos) = 0;
  virtual void InsertChar(LONG ch, ULONG pos) = 0;
  virtual void DeletePart(ULONG start, ULONG count) = 0;
  virtual void SetChar(ULONG pos, LONG ch) = 0;
  // True only when the handler owns its buffer and has at most one reference.
  virtual bool CanBeModified() const = 0;
  // The character at `pos`; 0 past the end.
  virtual LONG GetChar(ULONG pos) const = 0;
};

// The copy flag of strings built from a single text pointer: false (the
// default) borrows the caller's text, true copies it.
QVBASE_API extern bool gConstStrForceCopy;
// The empty terminated text that every handler without storage points at.
QVBASE_API extern const char* gVoidCharString;
// "Undefined Resource String".
QVBASE_API extern const char* gUndefinedString;

// The string value: text shared between copies, encoded by its handler.
class QVBASE_API PString : public PRoot {
public:
  PString();
  // Shares the source's handler; free type.
  PString(const PString& other);
  PString(const char* text, bool copy);
  PString(const unsigned short* text, bool copy);
  // The copy flag comes from gConstStrForceCopy. A string literal binds here,
  // so by default a literal is borrowed, not copied.
  PString(const char* text);
  PString(const unsigned short* text);
#if defined(_MFC_VER)
  // MFC's string, always copied; only where MFC is part of the build.
  PString(const CString& text);
#endif
  ~PString() override;

  ULONG Len() const;
  ULONG Size() const;
  ULONG FullSize() const;
  // The handler's code set; kCodeSetASCII for an empty string.
  TypCodeSet CodeSet() const;
  // The handler's type, or the declared type when there is no handler.
  PStringHandlerDec* HandlerType() const;
  bool IsEmpty() const;
  bool IsNotEmpty() const;
  // The character at `pos`; 0 when empty or past the end.
  LONG GetChar(ULONG pos) const;

  // An empty source leaves this string without a handler. Otherwise the
  // source handler is shared, or converted to the declared type.
  PString& operator=(const PString& other);

  // Inserts at `pos`; into an empty string the position is ignored.
  void Insert(const PString& text, ULONG pos);
  void Insert(const char* text, ULONG pos);
  void Insert(LONG ch, ULONG pos);
  PString& operator+=(const PString& text);
  PString& operator+=(const char* text);
  PString& operator+=(char ch);
  void Delete(ULONG start, ULONG count);
  void SetChar(ULONG pos, LONG ch);

  // New free-type strings over a copy of the clamped range.
  PString Left(ULONG count) const;
  PString Mid(ULONG start, ULONG count) const;
  PString Right(ULONG count) const;

  // Forward searches reject a start that leaves no room for the match;
  // backward searches clamp it to the last possible position. The asymmetry
  // is deliberate and callers rely on both.
  ULONG FindForward(const PString& what, ULONG from, TypStringComp mode) const;
  ULONG FindForward(const char* what, ULONG from, TypStringComp mode) const;
  ULONG FindForward(LONG ch, ULONG from, TypStringComp mode) const;
  ULONG FindBackward(const PString& what, ULONG from, TypStringComp mode) const;
  ULONG FindBackward(const char* what, ULONG from, TypStringComp mode) const;
  ULONG FindBackward(LONG ch, ULONG from, TypStringComp mode) const;

  // Negative, zero or positive. An empty string is below every non-empty one
  // and equal to another empty one in every mode.
  LONG CompareTo(const PString& other, TypStringComp mode) const;
  LONG CompareTo(const char* other, TypStringComp mode) const;

  // Equality is exact; ordering is the composite (human) order. The
  // difference is deliberate.
  bool operator==(const PString& other) const;
  bool operator!=(const PString& other) const;
  bool operator<(const PString& other) const;
  bool operator<=(const PString& other) const;
  bool operator>(const PString& other) const;
  bool operator>=(const PString& other) const;
  bool operator==(const char* other) const;
  bool operator!=(const char* other) const;
  bool operator<(const char* other) const;
  bool operator<=(const char* other) const;
  bool operator>(const char* other) const;
  bool operator>=(const char* other) const;

  // Placeholders are ^name^; ^^ stands for one literal caret.
  // The position of the next placeholder at or after `from`, or
  // kStringNotFound (then `name` and `length` are left alone). `length` gets
  // the whole length, carets included; `name` the text between the carets
  // (empty for ^^). Either pointer may be null.
  ULONG FindNextParameter(PASCIIString* name, ULONG* length, ULONG from) const;
  // Replaces the first ^name^ (found ignoring case) by `value`.
  PString& SetParameter(const PASCIIString& name, const PString& value);
  // The same with the name written as the index in decimal: ^0^, ^1^, ...
  PString& SetParameter(ULONG index, const PString& value);
  // Finishes a text after substitution: every remaining placeholder is
  // replaced by `value` (removed when `value` is empty) and every ^^ loses
  // one caret.
  void ValidateParams(const PString& value);

protected:
  explicit PString(PStringHandler* handler);
  explicit PString(PStringHandlerDec* type);
  PString(PStringHandler* handler, PStringHandlerDec* type);
  PString(const PString& other, PStringHandlerDec* type);
  PString(const char* text, bool copy, PStringHandlerDec* type);
  PString(const unsigned short* text, bool copy, PStringHandlerDec* type);
#if defined(_MFC_VER)
  PString(const CString& text, PStringHandlerDec* type);
#endif

  void PStringInit(PStringHandler* handler, PStringHandlerDec* type);
  void PStringInit(const char* text, bool copy, PStringHandlerDec* type);
  void PStringInit(const unsigned short* text, bool copy, PStringHandlerDec* type);
  // Replaces a handler that cannot be modified by its duplicate: the whole
  // copy-on-write mechanism. Call only on a string with a handler.
  void MakeOwnHandler();

  // The handler, or null for an empty string; no reference is taken.
  PStringHandler* Handler() const;
  // The declared type, or null for free type.
  PStringHandlerDec* DeclaredType() const;

private:
  // The handle through which the string holds its handler's reference.
  class HandlerRef : public PSmartPtr {
  public:
    HandlerRef() {}
    HandlerRef(const HandlerRef& other) : PSmartPtr(other) {}
    HandlerRef& operator=(const HandlerRef& other) {
      PSmartPtr::operator=(other);
      return *this;
    }
    // Takes the new reference before dropping the old one.
    void Set(PStringHandler* handler) { AssignTo(handler); }
    PStringHandler* Get() const { return static_cast<PStringHandler*>(GetData()); }
  };

  void SetHandler(PStringHandler* handler) { m_handler.Set(handler); }
  // Insert of a non-empty handler into this non-empty string.
  void InsertInto(PStringHandler* other, ULONG pos);

  HandlerRef m_handler;
  PStringHandlerDec* m_handlerType;
};
