// PASCIIString.cpp - the 7-bit handler and the ASCII string.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PASCIIString.h>
#include <qvbase/PBenchmark.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "errors/RaiseError.h"
#include "strings/PStringHandlerImpl.h"
#include "native/Locale.h"

#include <cstring>
#include <typeinfo>

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PASCIIString";

// The class a switched-on benchmark names for the searches timed here.
const char kProfiledClass[] = "PASCIIStringHandler";

// Source lines of the character-range error (1210), one per entry point.
const ULONG kLineFromText = 92;
const ULONG kLineFromChar = 100;
const ULONG kLineFromMultiByte = 137;
const ULONG kLineInsertChar = 277;
const ULONG kLineSetChar = 364;

void RaiseOutOfRange(ULONG line) {
  qvbase::errors::Raise(kErrStringCharOutOfRange, ErrorSeverityError, kSourceFile, line);
}

bool IsSevenBit(LONG ch) { return ch >= 0 && ch <= 127; }

LONG CompareExact(const void* a, const void* b, ULONG count) {
  return qvbase::strings::Sign(
      std::strncmp(static_cast<const char*>(a), static_cast<const char*>(b), count));
}

LONG CompareIgnoreCase(const void* a, const void* b, ULONG count) {
  return qvbase::native::AsciiCompareIgnoreCase(static_cast<const char*>(a),
                                                static_cast<const char*>(b), count);
}

// CompareIgnoreCase for two texts that both hold `count` bytes.
LONG CompareIgnoreCaseWithin(const void* a, const void* b, ULONG count) {
  return qvbase::native::AsciiCompareIgnoreCaseWithin(static_cast<const char*>(a),
                                                      static_cast<const char*>(b), count);
}

PStringHandler* FromText(const char* text, bool copy) {
  ULONG length = 0;
  bool sevenBit = true;
  for (const char* p = text; *p; ++p, ++length)
    if (static_cast<unsigned char>(*p) >= 128)
      sevenBit = false;
  if (!sevenBit)
    RaiseOutOfRange(kLineFromText);
  // The text is taken as it is when the signal returns.
  return new PASCIIStringHandler(text, 0, length, copy);
}

// Units above 127 cannot be ASCII: they are reported like multibyte bytes
// above 127, and the conversion gives no handler.
PStringHandler* FromUnicode(const PStringHandler* source) {
  const unsigned short* units = static_cast<const unsigned short*>(source->GetContent());
  ULONG length = source->GetLen();
  for (ULONG i = 0; i < length; ++i) {
    if (units[i] >= 128) {
      RaiseOutOfRange(kLineFromMultiByte);
      return nullptr;
    }
  }
  qvbase::strings::Buffer<char> narrow(length + 1);
  for (ULONG i = 0; i < length; ++i)
    narrow[i] = static_cast<char>(units[i]);
  return new PASCIIStringHandler(narrow.data(), 0, length, /*copy=*/true);
}

PStringHandler* FromHandler(const PStringHandler* source) {
  PStringHandler* writable = const_cast<PStringHandler*>(source);
  TypCodeSet codeSet = writable->GetCodeSet();
  if (codeSet == kCodeSetUnicode)
    return FromUnicode(source);
  const char* text = static_cast<const char*>(source->GetContent());
  ULONG bytes = source->GetSize();
  if (codeSet != kCodeSetASCII) {
    for (ULONG i = 0; i < bytes; ++i) {
      if (static_cast<unsigned char>(text[i]) >= 128) {
        RaiseOutOfRange(kLineFromMultiByte);
        return nullptr;
      }
    }
  }
  return new PASCIIStringHandler(text, 0, bytes, /*copy=*/true);
}

// An other handler as ASCII-comparable narrow text: Unicode content is
// converted first (the holder owns the converted copy).
const PStringHandler* NarrowPeer(const PStringHandler* other,
                                 qvbase::strings::HandlerHolder& holder) {
  if (const_cast<PStringHandler*>(other)->GetCodeSet() != kCodeSetUnicode)
    return other;
  holder.Reset(FromHandler(other));
  return holder.Get();
}

} // namespace

PStringHandlerDec gASCIIStringHandlerDec = {FromText, FromHandler, GASCIIStrHandlerConstructor3};

PStringHandler* GASCIIStrHandlerConstructor3(LONG ch) {
  if (!IsSevenBit(ch))
    RaiseOutOfRange(kLineFromChar);
  // The low byte is stored when the signal returns.
  char byte = static_cast<char>(ch);
  return new PASCIIStringHandler(&byte, 0, 1, /*copy=*/true);
}

TypStringCmpFunction GASCIIGetCmpMethod(TypStringComp mode) {
  switch (mode) {
  case kStrCompIgnoreCase:
  case kStrCompNoCase:
    return CompareIgnoreCase;
  default:
    return CompareExact;
  }
}

// ---------------------------------------------------------------------------
// PASCIIStringHandler

PASCIIStringHandler::PASCIIStringHandler(const char* text, ULONG offset, ULONG length, bool copy)
    : len(0), capacity(0), buffer(const_cast<char*>(gVoidCharString)) {
  SetBufferTo(text + offset, length, copy);
}

PASCIIStringHandler::PASCIIStringHandler(const PASCIIStringHandler& other)
    : PStringHandler(other), len(0), capacity(0), buffer(const_cast<char*>(gVoidCharString)) {
  SetBufferTo(other.buffer, other.len, /*copy=*/true);
}

PASCIIStringHandler::~PASCIIStringHandler() {
  FreeBuffer();
  buffer = const_cast<char*>(gVoidCharString);
  len = 0;
  capacity = 0;
}

PASCIIStringHandler& PASCIIStringHandler::operator=(const PASCIIStringHandler& other) {
  if (this != &other) {
    PStringHandler::operator=(other);
    // Copy first: `other` may borrow from this handler's buffer.
    qvbase::strings::Buffer<char> saved(other.len + 1);
    std::memcpy(saved.data(), other.buffer, other.len);
    SetBufferTo(saved.data(), other.len, /*copy=*/true);
  }
  return *this;
}

void PASCIIStringHandler::FreeBuffer() {
  if (capacity != 0 && buffer != gVoidCharString)
    qvbase::strings::FreeBlock(buffer);
  capacity = 0;
}

void PASCIIStringHandler::SetBufferTo(const char* text, ULONG length, bool copy) {
  if (!copy) {
    FreeBuffer();
    buffer = const_cast<char*>(text);
    capacity = 0;
    len = length;
    return;
  }
  // The new block before the old one goes: when it cannot be had, the
  // handler keeps its content.
  const ULONG newCapacity = qvbase::strings::RoundUp(length + 1, 8);
  char* fresh = static_cast<char*>(qvbase::strings::AllocateBlock(newCapacity));
  if (length)
    std::memcpy(fresh, text, length);
  fresh[length] = '\0';
  FreeBuffer();
  buffer = fresh;
  capacity = newCapacity;
  len = length;
}

PStringHandlerDec* PASCIIStringHandler::GetHandlerType() const { return &gASCIIStringHandlerDec; }

TypCodeSet PASCIIStringHandler::GetCodeSet() { return kCodeSetASCII; }

bool PASCIIStringHandler::HandlesCodeSet(TypCodeSet codeSet) const {
  return codeSet == kCodeSetASCII;
}

PStringHandler* PASCIIStringHandler::Duplicate() const { return FromHandler(this); }

ULONG PASCIIStringHandler::GetSize() const { return len; }

ULONG PASCIIStringHandler::GetFullSize() const { return len + 1; }

ULONG PASCIIStringHandler::GetLen() const { return len; }

const void* PASCIIStringHandler::GetContent() const { return buffer; }

PStringHandler* PASCIIStringHandler::GetSubHandler(ULONG start, ULONG count) const {
  if (start > len)
    start = len;
  if (count > len - start)
    count = len - start;
  return new PASCIIStringHandler(buffer, start, count, /*copy=*/true);
}

ULONG PASCIIStringHandler::FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                                             TypStringComp mode) const {
  PBenchmarkCall call(kProfiledClass, "FindSubHandlerFwd", kSourceFile);
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(what, holder);
  if (!peer)
    return kStringNotFound;
  ULONG k = peer->GetLen();
  if (k > len)
    return kStringNotFound;
  const ULONG last = len - k;
  if (from > last)
    return kStringNotFound;
  // A class that overrides CompareSubHandler has every candidate compared
  // through it.
  if (typeid(*this) != typeid(PASCIIStringHandler))
    return qvbase::strings::FindByCompares(this, peer, from, last, k, mode);
  // What CompareSubHandler(i, peer, 0, k, mode) does for each candidate,
  // without its per-call set-up: a candidate has k bytes left (i <= len - k),
  // so the bounded compare runs over min(k, the peer's size) bytes, and a
  // peer with fewer than k bytes matches nowhere.
  const char* needle = static_cast<const char*>(peer->GetContent());
  if (peer->GetSize() < k)
    return kStringNotFound;
  TypStringCmpFunction compare = GASCIIGetCmpMethod(mode);
  if (compare == CompareIgnoreCase)
    compare = CompareIgnoreCaseWithin;
  if (compare == CompareExact && !std::memchr(needle, 0, k)) {
    // strncmp over a needle without a 0 byte is equal exactly where all k
    // bytes are.
    return qvbase::strings::FindBytes(buffer, from, last, needle, k);
  }
  for (ULONG i = from; i <= last; ++i)
    if (compare(buffer + i, needle, k) == 0)
      return i;
  return kStringNotFound;
}

ULONG PASCIIStringHandler::FindCharFwd(LONG ch, ULONG from, TypStringComp mode) const {
  if (!IsSevenBit(ch))
    return kStringNotFound;
  const char probe = static_cast<char>(ch);
  TypStringCmpFunction compare = GASCIIGetCmpMethod(mode);
  for (ULONG i = from; i < len; ++i)
    if (compare(buffer + i, &probe, 1) == 0)
      return i;
  return kStringNotFound;
}

ULONG PASCIIStringHandler::FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                                             TypStringComp mode) const {
  PBenchmarkCall call(kProfiledClass, "FindSubHandlerBwd", kSourceFile);
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(what, holder);
  if (!peer)
    return kStringNotFound;
  return qvbase::strings::FindBackwardByCompares(this, len, peer, from, mode);
}

ULONG PASCIIStringHandler::FindCharBwd(LONG ch, ULONG from, TypStringComp mode) const {
  if (!IsSevenBit(ch) || len == 0)
    return kStringNotFound;
  if (from >= len)
    from = len - 1;
  const char probe = static_cast<char>(ch);
  TypStringCmpFunction compare = GASCIIGetCmpMethod(mode);
  for (ULONG i = from + 1; i-- > 0;)
    if (compare(buffer + i, &probe, 1) == 0)
      return i;
  return kStringNotFound;
}

LONG PASCIIStringHandler::CompareSubHandler(ULONG start, const PStringHandler* other,
                                            ULONG otherStart, ULONG count,
                                            TypStringComp mode) const {
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(other, holder);
  if (!peer)
    return -1;
  if (start > len)
    start = len;
  ULONG peerBytes = peer->GetSize();
  if (otherStart > peerBytes)
    otherStart = peerBytes;
  const char* theirs = static_cast<const char*>(peer->GetContent()) + otherStart;
  // A borrowed text need not be terminated at its end: compare no further
  // than what both sides hold, then by length. (So the compare runs within
  // bytes that both sides hold.)
  TypStringCmpFunction compare = GASCIIGetCmpMethod(mode);
  if (compare == CompareIgnoreCase)
    compare = CompareIgnoreCaseWithin;
  return qvbase::strings::BoundedCompare(compare, buffer + start, len - start, theirs,
                                         peerBytes - otherStart, count);
}

void PASCIIStringHandler::InsertHandler(const PStringHandler* other, ULONG pos) {
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* source = other;
  if (const_cast<PStringHandler*>(other)->GetCodeSet() != kCodeSetASCII) {
    holder.Reset(FromHandler(other));
    source = holder.Get();
    // A conversion whose error signal returned inserts nothing.
    if (!source)
      return;
  }
  if (pos > len)
    pos = len;
  ULONG k = source->GetLen();
  const char* text = static_cast<const char*>(source->GetContent());
  // Always a fresh buffer, deliberately unlike InsertChar: appending a string
  // never reuses spare capacity.
  ULONG newCapacity = qvbase::strings::RoundUp(len + k + 1, 8);
  char* fresh = static_cast<char*>(qvbase::strings::AllocateBlock(newCapacity));
  std::memcpy(fresh, buffer, pos);
  std::memcpy(fresh + pos, text, k);
  std::memcpy(fresh + pos + k, buffer + pos, len - pos);
  fresh[len + k] = '\0';
  FreeBuffer();
  buffer = fresh;
  capacity = newCapacity;
  len += k;
}

void PASCIIStringHandler::InsertChar(LONG ch, ULONG pos) {
  if (!IsSevenBit(ch))
    RaiseOutOfRange(kLineInsertChar);
  // The low byte goes in when the signal returns.
  if (pos > len)
    pos = len;
  ULONG newCapacity = qvbase::strings::RoundUp(len + 2, 8);
  if (newCapacity == capacity) {
    std::memmove(buffer + pos + 1, buffer + pos, len - pos + 1);
  } else {
    char* fresh = static_cast<char*>(qvbase::strings::AllocateBlock(newCapacity));
    std::memcpy(fresh, buffer, pos);
    std::memcpy(fresh + pos + 1, buffer + pos, len - pos);
    fresh[len + 1] = '\0';
    FreeBuffer();
    buffer = fresh;
    capacity = newCapacity;
  }
  buffer[pos] = static_cast<char>(ch);
  ++len;
}

void PASCIIStringHandler::DeletePart(ULONG start, ULONG count) {
  // A borrowed text is never written.
  if (start >= len || capacity == 0)
    return;
  if (count > len - start)
    count = len - start;
  if (start + count == len)
    buffer[start] = '\0';
  else
    std::memmove(buffer + start, buffer + start + count, len - start - count + 1);
  // The buffer never shrinks.
  len -= count;
}

void PASCIIStringHandler::SetChar(ULONG pos, LONG ch) {
  if (!IsSevenBit(ch))
    RaiseOutOfRange(kLineSetChar);
  // The byte is stored when the signal returns. PString checked `pos`; a
  // direct caller past the end changes nothing.
  if (pos < len && capacity != 0)
    buffer[pos] = static_cast<char>(ch);
}

bool PASCIIStringHandler::CanBeModified() const { return capacity != 0 && NumSmartLocks() < 2; }

LONG PASCIIStringHandler::GetChar(ULONG pos) const {
  if (pos >= len)
    return 0;
  return static_cast<signed char>(buffer[pos]);
}

// ---------------------------------------------------------------------------
// PASCIIString

PASCIIString::PASCIIString() : PString(&gASCIIStringHandlerDec) {}

PASCIIString::PASCIIString(const PASCIIString& other)
    : PString(static_cast<const PString&>(other), &gASCIIStringHandlerDec) {}

PASCIIString::PASCIIString(const PString& other) : PString(other, &gASCIIStringHandlerDec) {}

PASCIIString::PASCIIString(const char* text, bool copy)
    : PString(text, copy, &gASCIIStringHandlerDec) {}

PASCIIString::PASCIIString(const char* text)
    : PString(text, gConstStrForceCopy, &gASCIIStringHandlerDec) {}

#if defined(_MFC_VER)
PASCIIString::PASCIIString(const CString& text) : PString(text, &gASCIIStringHandlerDec) {}
#endif

PASCIIString& PASCIIString::operator=(const PASCIIString& other) {
  PString::operator=(other);
  return *this;
}

PASCIIString& PASCIIString::operator=(const PString& other) {
  PString::operator=(other);
  return *this;
}

PASCIIString::operator const char*() const {
  return Handler() ? static_cast<const char*>(Handler()->GetContent()) : gVoidCharString;
}

char PASCIIString::operator[](ULONG pos) const { return static_cast<char>(GetChar(pos)); }
