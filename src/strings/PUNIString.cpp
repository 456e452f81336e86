// PUNIString.cpp - the Unicode handler and the Unicode string.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PBenchmark.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "errors/RaiseError.h"
#include "strings/PStringHandlerImpl.h"
#include "native/Locale.h"

#include <cstring>

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PUNIString";

// The class a switched-on benchmark names for the searches timed here.
const char kProfiledClass[] = "PUNIStringHandler";
const ULONG kLineSetChar = 250;

const unsigned short kVoidUnits[] = {0};
const unsigned short kReplacementUnit = 0xFFFD;

unsigned short* VoidUnits() { return const_cast<unsigned short*>(kVoidUnits); }

// Converts a packed narrow character the way a one-byte conversion does:
// only its first byte is looked at. Returns the bytes consumed: 1 when that
// byte is a whole character (`unit` gets it), 0 for the terminator byte
// (`unit` gets 0), -1 when the byte is not a character on its own (`unit`
// gets U+FFFD).
int ConvertFirstByte(LONG ch, unsigned short* unit) {
  char bytes[8] = {0};
  GMBCharLen(ch, bytes);
  if (bytes[0] == '\0') {
    *unit = 0;
    return 0;
  }
  unsigned short converted = 0;
  std::size_t units = qvbase::native::MultiByteToUnits(bytes, 1, &converted, 1);
  if (units != 1 || converted == kReplacementUnit) {
    *unit = kReplacementUnit;
    return -1;
  }
  *unit = converted;
  return 1;
}

LONG CompareExact(const void* a, const void* b, ULONG count) {
  return qvbase::native::UnitsCompare(static_cast<const unsigned short*>(a),
                                      static_cast<const unsigned short*>(b), count);
}

LONG CompareIgnoreCase(const void* a, const void* b, ULONG count) {
  return qvbase::native::UnitsCompareIgnoreCase(static_cast<const unsigned short*>(a),
                                                static_cast<const unsigned short*>(b), count);
}

LONG CompareCollate(const void* a, const void* b, ULONG count) {
  return qvbase::native::UnitsCollate(static_cast<const unsigned short*>(a),
                                      static_cast<const unsigned short*>(b), count);
}

ULONG MeasureUnits(const unsigned short* text) {
  ULONG length = 0;
  while (text[length] != 0)
    ++length;
  return length;
}

PStringHandler* FromText(const char* text, bool /*copy*/) {
  // Narrow text cannot be borrowed as units: it is always converted.
  std::size_t bytes = std::strlen(text);
  std::size_t count = qvbase::native::MultiByteToUnits(text, bytes, nullptr, 0);
  qvbase::strings::Buffer<unsigned short> units(count + 1);
  qvbase::native::MultiByteToUnits(text, bytes, units.data(), count);
  return new PUNIStringHandler(units.data(), 0, static_cast<ULONG>(count), /*copy=*/true);
}

PStringHandler* FromChar(LONG ch) {
  unsigned short unit = 0;
  ConvertFirstByte(ch, &unit);
  return new PUNIStringHandler(&unit, 0, 1, /*copy=*/true);
}

// The Unicode handler's type record; reached through GetHandlerType.
PStringHandlerDec gUNIStringHandlerDec = {FromText, GUNIStringHandlerConstructor2, FromChar};

// The other handler as units: narrow content is converted first (the holder
// owns the converted copy).
const PStringHandler* WidePeer(const PStringHandler* other,
                               qvbase::strings::HandlerHolder& holder) {
  if (qvbase::strings::CodeSetOf(other) == kCodeSetUnicode)
    return other;
  holder.Reset(GUNIStringHandlerConstructor2(other));
  return holder.Get();
}

} // namespace

PStringHandler* GUNIStringHandlerConstructor2(const PStringHandler* source) {
  if (qvbase::strings::CodeSetOf(source) == kCodeSetUnicode)
    return new PUNIStringHandler(static_cast<const unsigned short*>(source->GetContent()), 0,
                                 source->GetLen(), /*copy=*/true);
  const char* text = static_cast<const char*>(source->GetContent());
  std::size_t bytes = source->GetSize();
  std::size_t count = qvbase::native::MultiByteToUnits(text, bytes, nullptr, 0);
  qvbase::strings::Buffer<unsigned short> units(count + 1);
  qvbase::native::MultiByteToUnits(text, bytes, units.data(), count);
  return new PUNIStringHandler(units.data(), 0, static_cast<ULONG>(count), /*copy=*/true);
}

TypStringCmpFunction GUNIGetCmpMethod(TypStringComp mode) {
  switch (mode) {
  case kStrCompIgnoreCase:
  case kStrCompNoCase:
    return CompareIgnoreCase;
  case kStrCompCollate:
    return CompareCollate;
  default:
    return CompareExact;
  }
}

// ---------------------------------------------------------------------------
// PUNIStringHandler

PUNIStringHandler::PUNIStringHandler(const unsigned short* text, ULONG offset, ULONG length,
                                     bool copy)
    : len(0), capacity(0), buffer(VoidUnits()) {
  SetBufferTo(text + offset, length, copy);
}

PUNIStringHandler::PUNIStringHandler(const PUNIStringHandler& other)
    : PStringHandler(other), len(0), capacity(0), buffer(VoidUnits()) {
  SetBufferTo(other.buffer, other.len, /*copy=*/true);
}

PUNIStringHandler::~PUNIStringHandler() {
  FreeBuffer();
  buffer = VoidUnits();
  len = 0;
}

PUNIStringHandler& PUNIStringHandler::operator=(const PUNIStringHandler& other) {
  if (this != &other) {
    PStringHandler::operator=(other);
    qvbase::strings::Buffer<unsigned short> saved(other.len + 1);
    std::memcpy(saved.data(), other.buffer, other.len * sizeof(unsigned short));
    SetBufferTo(saved.data(), other.len, /*copy=*/true);
  }
  return *this;
}

void PUNIStringHandler::FreeBuffer() {
  if (capacity != 0 && buffer != kVoidUnits)
    qvbase::strings::FreeBlock(buffer);
  capacity = 0;
}

void PUNIStringHandler::SetBufferTo(const unsigned short* text, ULONG length, bool copy) {
  if (!copy) {
    FreeBuffer();
    buffer = const_cast<unsigned short*>(text);
    len = length;
    return;
  }
  // A multiple of 4 units: 8-byte blocks, as for the narrow handlers. The new
  // block before the old one goes: when it cannot be had, the handler keeps
  // its content.
  const ULONG newCapacity = qvbase::strings::RoundUp(length + 1, 4);
  unsigned short* fresh = static_cast<unsigned short*>(
      qvbase::strings::AllocateBlock(newCapacity * static_cast<ULONG>(sizeof(unsigned short))));
  if (length)
    std::memcpy(fresh, text, length * sizeof(unsigned short));
  fresh[length] = 0;
  FreeBuffer();
  buffer = fresh;
  capacity = newCapacity;
  len = length;
}

void PUNIStringHandler::Rebuild(ULONG newCapacity, ULONG keep, const unsigned short* insert,
                                ULONG insertUnits, ULONG resume) {
  unsigned short* fresh = static_cast<unsigned short*>(
      qvbase::strings::AllocateBlock(newCapacity * static_cast<ULONG>(sizeof(unsigned short))));
  ULONG tail = len - resume;
  std::memcpy(fresh, buffer, keep * sizeof(unsigned short));
  if (insertUnits)
    std::memcpy(fresh + keep, insert, insertUnits * sizeof(unsigned short));
  std::memcpy(fresh + keep + insertUnits, buffer + resume, tail * sizeof(unsigned short));
  fresh[keep + insertUnits + tail] = 0;
  FreeBuffer();
  buffer = fresh;
  capacity = newCapacity;
  len = keep + insertUnits + tail;
}

PStringHandlerDec* PUNIStringHandler::GetHandlerType() const { return &gUNIStringHandlerDec; }

TypCodeSet PUNIStringHandler::GetCodeSet() { return kCodeSetUnicode; }

bool PUNIStringHandler::HandlesCodeSet(TypCodeSet) const { return true; }

PStringHandler* PUNIStringHandler::Duplicate() const { return GUNIStringHandlerConstructor2(this); }

ULONG PUNIStringHandler::GetSize() const { return len * 2; }

ULONG PUNIStringHandler::GetFullSize() const { return len * 2 + 2; }

ULONG PUNIStringHandler::GetLen() const { return len; }

const void* PUNIStringHandler::GetContent() const { return buffer; }

PStringHandler* PUNIStringHandler::GetSubHandler(ULONG start, ULONG count) const {
  if (start > len)
    start = len;
  if (count > len - start)
    count = len - start;
  return new PUNIStringHandler(buffer, start, count, /*copy=*/true);
}

ULONG PUNIStringHandler::FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                                           TypStringComp mode) const {
  PBenchmarkCall call(kProfiledClass, "FindSubHandlerFwd", kSourceFile);
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = WidePeer(what, holder);
  ULONG k = peer->GetLen();
  if (k > len)
    return kStringNotFound;
  for (ULONG i = from; i <= len - k; ++i)
    if (CompareSubHandler(i, peer, 0, k, mode) == 0)
      return i;
  return kStringNotFound;
}

ULONG PUNIStringHandler::FindCharFwd(LONG ch, ULONG from, TypStringComp mode) const {
  unsigned short probe = 0;
  if (ConvertFirstByte(ch, &probe) < 0)
    return kStringNotFound;
  TypStringCmpFunction compare = GUNIGetCmpMethod(mode);
  for (ULONG i = from; i < len; ++i)
    if (compare(buffer + i, &probe, 1) == 0)
      return i;
  return kStringNotFound;
}

ULONG PUNIStringHandler::FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                                           TypStringComp mode) const {
  PBenchmarkCall call(kProfiledClass, "FindSubHandlerBwd", kSourceFile);
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = WidePeer(what, holder);
  return qvbase::strings::FindBackwardByCompares(this, len, peer, from, mode);
}

ULONG PUNIStringHandler::FindCharBwd(LONG ch, ULONG from, TypStringComp mode) const {
  unsigned short probe = 0;
  if (len == 0 || ConvertFirstByte(ch, &probe) < 0)
    return kStringNotFound;
  if (from >= len)
    from = len - 1;
  TypStringCmpFunction compare = GUNIGetCmpMethod(mode);
  for (ULONG i = from + 1; i-- > 0;)
    if (compare(buffer + i, &probe, 1) == 0)
      return i;
  return kStringNotFound;
}

LONG PUNIStringHandler::CompareSubHandler(ULONG start, const PStringHandler* other,
                                          ULONG otherStart, ULONG count, TypStringComp mode) const {
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = WidePeer(other, holder);
  if (start > len)
    start = len;
  ULONG peerLen = peer->GetLen();
  if (otherStart > peerLen)
    otherStart = peerLen;
  const unsigned short* theirs =
      static_cast<const unsigned short*>(peer->GetContent()) + otherStart;
  // A borrowed text need not be terminated at its end: compare no further
  // than what both sides hold, then by length.
  return qvbase::strings::BoundedCompare(GUNIGetCmpMethod(mode), buffer + start, len - start,
                                         theirs, peerLen - otherStart, count);
}

void PUNIStringHandler::InsertHandler(const PStringHandler* other, ULONG pos) {
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = WidePeer(other, holder);
  if (pos > len)
    pos = len;
  ULONG k = peer->GetLen();
  // Like the ASCII handler: a fresh buffer sized to the new text.
  Rebuild(qvbase::strings::RoundUp(len + k + 1, 4), pos,
          static_cast<const unsigned short*>(peer->GetContent()), k, pos);
}

void PUNIStringHandler::InsertChar(LONG ch, ULONG pos) {
  unsigned short unit = 0;
  ConvertFirstByte(ch, &unit);
  if (pos > len)
    pos = len;
  ULONG newCapacity = qvbase::strings::RoundUp(len + 2, 4);
  if (newCapacity == capacity) {
    std::memmove(buffer + pos + 1, buffer + pos, (len - pos + 1) * sizeof(unsigned short));
    buffer[pos] = unit;
    ++len;
    return;
  }
  Rebuild(newCapacity, pos, &unit, 1, pos);
}

void PUNIStringHandler::DeletePart(ULONG start, ULONG count) {
  if (start >= len || capacity == 0)
    return;
  if (count > len - start)
    count = len - start;
  // In place; the buffer never shrinks.
  std::memmove(buffer + start, buffer + start + count,
               (len - start - count + 1) * sizeof(unsigned short));
  len -= count;
}

void PUNIStringHandler::SetChar(ULONG pos, LONG ch) {
  unsigned short unit = 0;
  if (ConvertFirstByte(ch, &unit) != 1) {
    qvbase::errors::Raise(kErrStringUnicodeNotSettable, ErrorSeverityAbort, kSourceFile,
                          kLineSetChar);
    // The unit stays as it was when the signal returns.
    return;
  }
  if (pos < len && capacity != 0)
    buffer[pos] = unit;
}

bool PUNIStringHandler::CanBeModified() const { return capacity != 0 && NumSmartLocks() < 2; }

LONG PUNIStringHandler::GetChar(ULONG pos) const { return pos < len ? buffer[pos] : 0; }

// ---------------------------------------------------------------------------
// PUNIString

PUNIString::PUNIString() : PString(&gUNIStringHandlerDec) {}

PUNIString::PUNIString(const PUNIString& other)
    : PString(static_cast<const PString&>(other), &gUNIStringHandlerDec) {}

PUNIString::PUNIString(const PString& other) : PString(other, &gUNIStringHandlerDec) {}

PUNIString::PUNIString(const unsigned short* text, bool copy) : PString(&gUNIStringHandlerDec) {
  if (text)
    PStringInit(new PUNIStringHandler(text, 0, MeasureUnits(text), copy), &gUNIStringHandlerDec);
}

PUNIString::PUNIString(const unsigned short* text) : PUNIString(text, gConstStrForceCopy) {}

PUNIString& PUNIString::operator=(const PUNIString& other) {
  PString::operator=(other);
  return *this;
}

PUNIString& PUNIString::operator=(const PString& other) {
  PString::operator=(other);
  return *this;
}

PUNIString::operator const unsigned short*() const {
  return Handler() ? static_cast<const unsigned short*>(Handler()->GetContent()) : kVoidUnits;
}
