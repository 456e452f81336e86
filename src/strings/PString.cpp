// PString.cpp - the string value: handler sharing, copy-on-write, widening,
// comparisons, searches and parameter substitution.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PASCIIString.h>
#include <qvbase/PMBString.h>
#include <qvbase/PString.h>
#include <qvbase/PUNIString.h>

#include "strings/PStringHandlerImpl.h"

#include <cstdio>
#include <optional>
#include <typeinfo>

namespace {

const char kVoidText[] = "";
const char kUndefinedText[] = "Undefined Resource String";

const LONG kCaret = '^';

bool IsEmptyHandler(const PStringHandler* handler) { return !handler || handler->GetLen() == 0; }

// The library's own handlers look at a partner only for the length of the
// call, so narrow text can be lent to them as a handler that no string holds.
// A handler class of the application's may keep its partner (hold it in a
// string, take a reference): it is given a partner that a temporary string
// owns, as it always was. No receiver (an empty string) looks at nothing.
bool LendsToHandler(const PStringHandler* receiver) {
  if (!receiver)
    return true;
  const std::type_info& type = typeid(*receiver);
  return type == typeid(PMBStringHandler) || type == typeid(PASCIIStringHandler) ||
         type == typeid(PUNIStringHandler);
}

// A free-type string that shows its handler.
class OwningString : public PString {
public:
  OwningString(const char* text, bool copy) : PString(text, copy) {}
  PStringHandler* Held() const { return Handler(); }
};

// A search, comparison or insert partner made from narrow text for the length
// of one call, for the handler `receiver`: the handler a free-type string
// built from that text would hold (copy flag `copy`). Lent without a string
// around it where LendsToHandler allows, held by a temporary string
// otherwise. Null or empty text gives no handler.
class NarrowOperand {
public:
  NarrowOperand(const char* text, bool copy, const PStringHandler* receiver) {
    if (!text || *text == '\0')
      return;
    if (LendsToHandler(receiver))
      m_lent.emplace(text, 0, qvbase::strings::MeasureMultiByteText(text), copy);
    else
      m_owned.emplace(text, copy);
  }
  // Null for a null or empty text.
  PStringHandler* Get() {
    if (m_lent)
      return &*m_lent;
    return m_owned ? m_owned->Held() : nullptr;
  }

private:
  std::optional<PMBStringHandler> m_lent;
  std::optional<OwningString> m_owned;
};

ULONG FindForwardIn(PStringHandler* mine, const PStringHandler* what, ULONG from,
                    TypStringComp mode) {
  if (IsEmptyHandler(mine) || IsEmptyHandler(what))
    return kStringNotFound;
  ULONG length = mine->GetLen();
  ULONG needed = what->GetLen();
  // Len() < needed + from, written so that it cannot wrap.
  if (needed > length || from > length - needed)
    return kStringNotFound;
  return mine->FindSubHandlerFwd(what, from, mode);
}

ULONG FindBackwardIn(PStringHandler* mine, const PStringHandler* what, ULONG from,
                     TypStringComp mode) {
  if (IsEmptyHandler(mine) || IsEmptyHandler(what) || what->GetLen() > mine->GetLen())
    return kStringNotFound;
  ULONG last = mine->GetLen() - what->GetLen();
  if (from > last)
    from = last;
  return mine->FindSubHandlerBwd(what, from, mode);
}

LONG CompareHandlers(PStringHandler* mine, PStringHandler* theirs, TypStringComp mode) {
  if (IsEmptyHandler(mine))
    return IsEmptyHandler(theirs) ? 0 : -1;
  if (IsEmptyHandler(theirs))
    return 1;
  if (mode == kStrCompComposite) {
    LONG result = CompareHandlers(mine, theirs, kStrCompNoCase);
    if (result == 0)
      result = CompareHandlers(mine, theirs, kStrCompCollate);
    if (result == 0)
      result = CompareHandlers(mine, theirs, kStrCompExact);
    return result;
  }
  ULONG count = mine->GetLen() > theirs->GetLen() ? mine->GetLen() : theirs->GetLen();
  TypCodeSet mineSet = mine->GetCodeSet();
  TypCodeSet theirSet = theirs->GetCodeSet();
  // The handler of the wider code set does the work.
  const TypCodeSet kWidest[] = {kCodeSetUnicode, kCodeSetMultiByte};
  for (TypCodeSet wide : kWidest) {
    if (mineSet == wide)
      return mine->CompareSubHandler(0, theirs, 0, count, mode);
    if (theirSet == wide)
      return -theirs->CompareSubHandler(0, mine, 0, count, mode);
  }
  return mine->CompareSubHandler(0, theirs, 0, count, mode);
}

} // namespace

bool gConstStrForceCopy = false;
const char* gVoidCharString = kVoidText;
const char* gUndefinedString = kUndefinedText;

// ---------------------------------------------------------------------------
// PStringHandler

PStringHandler::PStringHandler() = default;
PStringHandler::PStringHandler(const PStringHandler& other) = default;
PStringHandler::~PStringHandler() = default;
PStringHandler& PStringHandler::operator=(const PStringHandler& other) {
  PSmartData::operator=(other);
  return *this;
}

// ---------------------------------------------------------------------------
// Construction

PString::PString() : m_handlerType(nullptr) {
  PStringInit(static_cast<PStringHandler*>(nullptr), nullptr);
}

// Through PStringInit, on an empty handle. Copying the handle itself saves
// two calls (104 instructions a copy and release instead of 120) and was
// faster over 1,000 strings, but a quarter slower over 100,000, whose
// handlers are out of the caches; it is not used.
PString::PString(const PString& other) : PRoot(other), m_handlerType(nullptr) {
  PStringInit(other.Handler(), nullptr);
}

PString::PString(const char* text, bool copy) : m_handlerType(nullptr) {
  PStringInit(text, copy, nullptr);
}

PString::PString(const unsigned short* text, bool copy) : m_handlerType(nullptr) {
  PStringInit(text, copy, nullptr);
}

PString::PString(const char* text) : m_handlerType(nullptr) {
  PStringInit(text, gConstStrForceCopy, nullptr);
}

PString::PString(const unsigned short* text) : m_handlerType(nullptr) {
  PStringInit(text, gConstStrForceCopy, nullptr);
}

PString::PString(PStringHandler* handler) : m_handlerType(nullptr) {
  PStringInit(handler, nullptr);
}

PString::PString(PStringHandlerDec* type) : m_handlerType(nullptr) {
  PStringInit(static_cast<PStringHandler*>(nullptr), type);
}

PString::PString(PStringHandler* handler, PStringHandlerDec* type) : m_handlerType(nullptr) {
  PStringInit(handler, type);
}

PString::PString(const PString& other, PStringHandlerDec* type)
    : PRoot(other), m_handlerType(nullptr) {
  PStringInit(other.Handler(), type);
}

PString::PString(const char* text, bool copy, PStringHandlerDec* type) : m_handlerType(nullptr) {
  PStringInit(text, copy, type);
}

PString::PString(const unsigned short* text, bool copy, PStringHandlerDec* type)
    : m_handlerType(nullptr) {
  PStringInit(text, copy, type);
}

#if defined(_MFC_VER)
PString::PString(const CString& text) : m_handlerType(nullptr) {
  PStringInit(static_cast<LPCSTR>(text), /*copy=*/true, nullptr);
}
PString::PString(const CString& text, PStringHandlerDec* type) : m_handlerType(nullptr) {
  PStringInit(static_cast<LPCSTR>(text), /*copy=*/true, type);
}
#endif

PString::~PString() = default;

void PString::PStringInit(PStringHandler* handler, PStringHandlerDec* type) {
  m_handlerType = type;
  if (!handler)
    return;
  PStringHandler* adopted = handler;
  if (type && handler->GetHandlerType() != type) {
    adopted = type->fromHandler(handler);
    // A handler that nobody references yet was handed over to this string:
    // its converted copy replaces it.
    if (!handler->IsSmartPointed())
      delete handler;
  }
  // A failed conversion (its error signal returned) leaves the string as it
  // was rather than holding nothing of the declared type.
  if (adopted)
    SetHandler(adopted);
}

void PString::PStringInit(const char* text, bool copy, PStringHandlerDec* type) {
  m_handlerType = type;
  if (!text)
    return;
  PStringHandler* made =
      type ? type->fromText(text, copy) : GMBStringHandlerConstructor1(text, copy);
  if (made)
    SetHandler(made);
}

void PString::PStringInit(const unsigned short* text, bool copy, PStringHandlerDec* type) {
  PUNIString wide(text, copy);
  PStringInit(wide.Handler(), type);
}

void PString::MakeOwnHandler() {
  PStringHandler* handler = Handler();
  if (!handler->CanBeModified())
    SetHandler(handler->Duplicate());
}

PStringHandler* PString::Handler() const { return m_handler.Get(); }

PStringHandlerDec* PString::DeclaredType() const { return m_handlerType; }

// ---------------------------------------------------------------------------
// Queries

ULONG PString::Len() const { return Handler() ? Handler()->GetLen() : 0; }

ULONG PString::Size() const { return Handler() ? Handler()->GetSize() : 0; }

ULONG PString::FullSize() const { return Handler() ? Handler()->GetFullSize() : 0; }

TypCodeSet PString::CodeSet() const { return Handler() ? Handler()->GetCodeSet() : kCodeSetASCII; }

PStringHandlerDec* PString::HandlerType() const {
  return Handler() ? Handler()->GetHandlerType() : m_handlerType;
}

bool PString::IsEmpty() const { return !Handler() || Handler()->GetLen() == 0; }

bool PString::IsNotEmpty() const { return !IsEmpty(); }

LONG PString::GetChar(ULONG pos) const { return Handler() ? Handler()->GetChar(pos) : 0; }

// ---------------------------------------------------------------------------
// Assignment and modification

PString& PString::operator=(const PString& other) {
  if (other.IsEmpty()) {
    SetHandler(nullptr);
    return *this;
  }
  PStringHandler* source = other.Handler();
  if (!m_handlerType || source->GetHandlerType() == m_handlerType) {
    SetHandler(source);
    return *this;
  }
  // A conversion whose error signal returned gives no handler: the string
  // becomes empty rather than keep its old text.
  SetHandler(m_handlerType->fromHandler(source));
  return *this;
}

void PString::Insert(const PString& text, ULONG pos) {
  if (text.IsEmpty())
    return;
  if (IsEmpty()) {
    *this = text;
    return;
  }
  InsertInto(text.Handler(), pos);
}

void PString::InsertInto(PStringHandler* other, ULONG pos) {
  if (Handler()->GetHandlerType() == other->GetHandlerType() || m_handlerType) {
    // Same type, or a declared type: the handler converts foreign content.
    MakeOwnHandler();
  } else {
    // Free type widens as the content requires, and never narrows.
    TypCodeSet incoming = other->GetCodeSet();
    if (incoming == kCodeSetUnicode && !Handler()->HandlesCodeSet(kCodeSetUnicode))
      SetHandler(GUNIStringHandlerConstructor2(Handler()));
    else if (incoming == kCodeSetMultiByte && !Handler()->HandlesCodeSet(kCodeSetMultiByte))
      SetHandler(GMBStringHandlerConstructor2(Handler()));
    else
      MakeOwnHandler();
  }
  Handler()->InsertHandler(other, pos);
}

void PString::Insert(const char* text, ULONG pos) {
  if (IsEmpty()) {
    // This string takes the text's own (borrowing) handler.
    PString wrapped(text, /*copy=*/false);
    Insert(wrapped, pos);
    return;
  }
  // The handler that receives the text is a duplicate of this one, or made
  // from it by widening: of the same class, or one of the library's.
  NarrowOperand wrapped(text, /*copy=*/false, Handler());
  if (!IsEmptyHandler(wrapped.Get()))
    InsertInto(wrapped.Get(), pos);
}

void PString::Insert(LONG ch, ULONG pos) {
  if (!Handler()) {
    PStringHandler* made =
        m_handlerType ? m_handlerType->fromChar(ch) : GMBStringHandlerConstructor3(ch);
    if (made)
      SetHandler(made);
    return;
  }
  MakeOwnHandler();
  Handler()->InsertChar(ch, pos);
}

PString& PString::operator+=(const PString& text) {
  Insert(text, Len());
  return *this;
}

PString& PString::operator+=(const char* text) {
  Insert(text, Len());
  return *this;
}

PString& PString::operator+=(char ch) {
  Insert(static_cast<LONG>(ch), Len());
  return *this;
}

void PString::Delete(ULONG start, ULONG count) {
  ULONG length = Len();
  if (length == 0 || start >= length)
    return;
  if (count > length - start)
    count = length - start;
  if (count == length) {
    SetHandler(nullptr);
    return;
  }
  MakeOwnHandler();
  Handler()->DeletePart(start, count);
}

void PString::SetChar(ULONG pos, LONG ch) {
  if (IsEmpty() || pos >= Len())
    return;
  MakeOwnHandler();
  Handler()->SetChar(pos, ch);
}

PString PString::Left(ULONG count) const { return Mid(0, count); }

PString PString::Mid(ULONG start, ULONG count) const {
  ULONG length = Len();
  if (length == 0 || start >= length)
    return PString();
  if (count > length - start)
    count = length - start;
  if (count == 0)
    return PString();
  return PString(Handler()->GetSubHandler(start, count));
}

PString PString::Right(ULONG count) const {
  ULONG length = Len();
  if (count > length)
    count = length;
  return Mid(length - count, count);
}

// ---------------------------------------------------------------------------
// Searching

ULONG PString::FindForward(const PString& what, ULONG from, TypStringComp mode) const {
  return FindForwardIn(Handler(), what.Handler(), from, mode);
}

ULONG PString::FindForward(const char* what, ULONG from, TypStringComp mode) const {
  if (IsEmpty())
    return kStringNotFound;
  NarrowOperand wrapped(what, gConstStrForceCopy, Handler());
  return FindForwardIn(Handler(), wrapped.Get(), from, mode);
}

ULONG PString::FindForward(LONG ch, ULONG from, TypStringComp mode) const {
  if (IsEmpty() || from >= Len())
    return kStringNotFound;
  return Handler()->FindCharFwd(ch, from, mode);
}

ULONG PString::FindBackward(const PString& what, ULONG from, TypStringComp mode) const {
  return FindBackwardIn(Handler(), what.Handler(), from, mode);
}

ULONG PString::FindBackward(const char* what, ULONG from, TypStringComp mode) const {
  if (IsEmpty())
    return kStringNotFound;
  NarrowOperand wrapped(what, gConstStrForceCopy, Handler());
  return FindBackwardIn(Handler(), wrapped.Get(), from, mode);
}

ULONG PString::FindBackward(LONG ch, ULONG from, TypStringComp mode) const {
  if (IsEmpty())
    return kStringNotFound;
  if (from > Len() - 1)
    from = Len() - 1;
  return Handler()->FindCharBwd(ch, from, mode);
}

// ---------------------------------------------------------------------------
// Comparison

LONG PString::CompareTo(const PString& other, TypStringComp mode) const {
  return CompareHandlers(Handler(), other.Handler(), mode);
}

LONG PString::CompareTo(const char* other, TypStringComp mode) const {
  NarrowOperand wrapped(other, gConstStrForceCopy, Handler());
  return CompareHandlers(Handler(), wrapped.Get(), mode);
}

bool PString::operator==(const PString& other) const {
  return CompareTo(other, kStrCompExact) == 0;
}
bool PString::operator!=(const PString& other) const {
  return CompareTo(other, kStrCompExact) != 0;
}
bool PString::operator<(const PString& other) const {
  return CompareTo(other, kStrCompComposite) < 0;
}
bool PString::operator<=(const PString& other) const {
  return CompareTo(other, kStrCompComposite) <= 0;
}
bool PString::operator>(const PString& other) const {
  return CompareTo(other, kStrCompComposite) > 0;
}
bool PString::operator>=(const PString& other) const {
  return CompareTo(other, kStrCompComposite) >= 0;
}
bool PString::operator==(const char* other) const { return CompareTo(other, kStrCompExact) == 0; }
bool PString::operator!=(const char* other) const { return CompareTo(other, kStrCompExact) != 0; }
bool PString::operator<(const char* other) const { return CompareTo(other, kStrCompComposite) < 0; }
bool PString::operator<=(const char* other) const {
  return CompareTo(other, kStrCompComposite) <= 0;
}
bool PString::operator>(const char* other) const { return CompareTo(other, kStrCompComposite) > 0; }
bool PString::operator>=(const char* other) const {
  return CompareTo(other, kStrCompComposite) >= 0;
}

// ---------------------------------------------------------------------------
// Parameter substitution

ULONG PString::FindNextParameter(PASCIIString* name, ULONG* length, ULONG from) const {
  ULONG first = FindForward(kCaret, from, kStrCompExact);
  if (first == kStringNotFound)
    return kStringNotFound;
  ULONG second = FindForward(kCaret, first + 1, kStrCompExact);
  if (second == kStringNotFound)
    return kStringNotFound;
  ULONG whole = second - first + 1;
  if (length)
    *length = whole;
  if (name) {
    if (whole < 3)
      *name = PASCIIString();
    else
      *name = Mid(first + 1, whole - 2);
  }
  return first;
}

PString& PString::SetParameter(const PASCIIString& name, const PString& value) {
  PASCIIString pattern("^", /*copy=*/true);
  pattern += name;
  pattern += "^";
  ULONG at = FindForward(pattern, 0, kStrCompIgnoreCase);
  if (at != kStringNotFound) {
    Delete(at, pattern.Len());
    Insert(value, at);
  }
  return *this;
}

PString& PString::SetParameter(ULONG index, const PString& value) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%lu", static_cast<unsigned long>(index));
  return SetParameter(PASCIIString(digits, /*copy=*/true), value);
}

void PString::ValidateParams(const PString& value) {
  // A value that holds a caret would be found again after its insertion and
  // could be inserted forever; such a value is skipped over instead of being
  // searched again. Values without carets (what callers pass) are searched
  // again, as every other handled position is.
  const bool valueHasCaret = value.FindForward(kCaret, 0, kStrCompExact) != kStringNotFound;
  ULONG from = 0;
  for (;;) {
    ULONG length = 0;
    ULONG at = FindNextParameter(nullptr, &length, from);
    if (at == kStringNotFound)
      return;
    from = at;
    if (length > 2) {
      Delete(at, length);
      if (value.IsNotEmpty()) {
        Insert(value, at);
        if (valueHasCaret)
          from = at + value.Len();
      }
    } else {
      // The ^^ escape keeps one caret, which the next search sees again.
      Delete(at, 1);
    }
  }
}
