// PMBString.cpp - the multibyte handler and the multibyte string.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PASCIIString.h>
#include <qvbase/PBenchmark.h>
#include <qvbase/PMBString.h>
#include <qvbase/PUNIString.h>

#include "core/MemoryGrowth.h"
#include "errors/RaiseError.h"
#include "strings/PMBStringRefill.h"
#include "strings/PStringHandlerImpl.h"
#include "native/Locale.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <typeinfo>
#include <vector>

namespace {

// The source text this family's errors carry: their defined position, not a
// path of this tree (it stays as it is wherever this file lives).
const char kSourceFile[] = "src\\PMBString";

// The class a switched-on benchmark names for the searches timed here.
const char kProfiledClass[] = "PMBStringHandler";
const ULONG kLineInsertChar = 439;

// Byte length of the character at `p`: 0 at a terminator, at least 1
// elsewhere (a byte that starts no valid character is one character).
ULONG CharBytes(const char* p) { return static_cast<ULONG>(qvbase::native::CharLength(p)); }

LONG CompareExact(const void* a, const void* b, ULONG count) {
  return qvbase::native::MultiByteCompare(static_cast<const char*>(a), static_cast<const char*>(b),
                                          count);
}

LONG CompareIgnoreCase(const void* a, const void* b, ULONG count) {
  return qvbase::native::MultiByteCompareIgnoreCase(static_cast<const char*>(a),
                                                    static_cast<const char*>(b), count);
}

LONG CompareCollate(const void* a, const void* b, ULONG count) {
  return qvbase::native::MultiByteCollate(static_cast<const char*>(a), static_cast<const char*>(b),
                                          count);
}

// Whether every 7-bit byte is a character of its own in the current locale
// (it is in every locale the library meets; checked, not assumed). Stepping
// then takes such bytes one at a time without asking the locale, and pure
// 7-bit content has its character positions at the same byte offsets.
bool SevenBitSingle() { return qvbase::native::CurrentSevenBitTraits().singleBytes; }

// The character length at `p` as CharBytes gives it, asking the locale only
// for bytes of 128 and above.
ULONG StepAt(const char* p, bool sevenBitSingle) {
  const unsigned char byte = static_cast<unsigned char>(*p);
  if (byte == 0)
    return 0;
  if (sevenBitSingle && byte < 128)
    return 1;
  return CharBytes(p);
}

// `text` moved on by `count` characters; stepping stops at a terminator.
const char* StepChars(const char* text, ULONG count, bool sevenBitSingle) {
  for (ULONG i = 0; i < count; ++i) {
    ULONG step = StepAt(text, sevenBitSingle);
    if (step == 0)
      break;
    text += step;
  }
  return text;
}

// The byte offset `count` characters after byte `at` of a content of `size`
// bytes: never past the end of the content, and not past a 0 byte, at which
// stepping stops.
ULONG StepWithin(const char* buffer, ULONG size, ULONG at, ULONG count, bool sevenBitSingle) {
  for (ULONG i = 0; i < count && at < size; ++i) {
    ULONG step = StepAt(buffer + at, sevenBitSingle);
    if (step == 0)
      break;
    at += step;
  }
  return at < size ? at : size;
}

// Whether no byte of `count` is 128 or above. One pass without an early exit,
// which the compiler turns into wide operations.
bool SevenBitBytes(const char* text, ULONG count) {
  unsigned char seen = 0;
  for (ULONG i = 0; i < count; ++i)
    seen |= static_cast<unsigned char>(text[i]);
  return seen < 128;
}

// The number of characters in `bytes` bytes of `text`.
ULONG CountChars(const char* text, ULONG bytes) {
  ULONG chars = 0;
  ULONG at = 0;
  while (at < bytes) {
    ULONG step = CharBytes(text + at);
    at += step ? step : 1;
    ++chars;
  }
  return chars;
}

PStringHandler* FromUnicode(const PStringHandler* source) {
  const unsigned short* units = static_cast<const unsigned short*>(source->GetContent());
  ULONG count = source->GetLen();
  std::size_t bytes = qvbase::native::UnitsToMultiByte(units, count, nullptr, 0);
  qvbase::strings::Buffer<char> narrow(bytes + 1);
  qvbase::native::UnitsToMultiByte(units, count, narrow.data(), bytes);
  ULONG size = static_cast<ULONG>(bytes);
  return PMBStringHandler::FromBytes(narrow.data(), size, CountChars(narrow.data(), size));
}

// The other handler as multibyte-comparable text: Unicode content is
// converted first (the holder owns the converted copy).
const PStringHandler* NarrowPeer(const PStringHandler* other,
                                 qvbase::strings::HandlerHolder& holder) {
  if (qvbase::strings::CodeSetOf(other) != kCodeSetUnicode)
    return other;
  holder.Reset(FromUnicode(other));
  return holder.Get();
}

} // namespace

PStringHandlerDec gMBStringHandlerDec = {GMBStringHandlerConstructor1, GMBStringHandlerConstructor2,
                                         GMBStringHandlerConstructor3};

ULONG qvbase::strings::MeasureMultiByteText(const char* text) {
  const bool sevenBitSingle = SevenBitSingle();
  ULONG bytes = 0;
  while (text[bytes] != '\0')
    bytes += StepAt(text + bytes, sevenBitSingle);
  return bytes;
}

PStringHandler* GMBStringHandlerConstructor1(const char* text, bool copy) {
  // The measuring pass also counts characters and notes whether they are all
  // 7-bit; neither is used, and the length handed over is the byte count.
  return new PMBStringHandler(text, 0, qvbase::strings::MeasureMultiByteText(text), copy);
}

PStringHandler* GMBStringHandlerConstructor2(const PStringHandler* source) {
  if (qvbase::strings::CodeSetOf(source) == kCodeSetUnicode)
    return FromUnicode(source);
  return PMBStringHandler::FromBytes(static_cast<const char*>(source->GetContent()),
                                     source->GetSize(), source->GetLen());
}

PStringHandler* GMBStringHandlerConstructor3(LONG ch) {
  char bytes[8] = {0};
  GMBCharLen(ch, bytes);
  return new PMBStringHandler(bytes, 0, 1, /*copy=*/true);
}

int GMBCharLen(const char* text, LONG* packed) {
  int n = qvbase::native::CharLength(text);
  if (n < 1 || n > 4)
    n = 1;
  if (packed) {
    // The packing is defined on the bytes as signed values.
    const std::int64_t b0 = qvbase::strings::SignedByte(text[0]);
    const std::int64_t b1 = n >= 2 ? qvbase::strings::SignedByte(text[1]) : 0;
    const std::int64_t b2 = n >= 3 ? qvbase::strings::SignedByte(text[2]) : 0;
    std::int64_t value = 0;
    switch (n) {
    case 1:
      value = b0;
      break;
    case 2:
      value = b0 < 0 ? b0 - b1 * 128 : b1 * 128 - b0;
      break;
    case 3:
      value = b0 < 0 ? b0 - b2 * 32768 - b1 * 128 : (b2 * 256 + b1) * 128 - b0;
      break;
    default:
      // The third byte twice and no fourth: the packing as it has always
      // been computed.
      value = b0 < 0 ? b0 - b1 * 128 - b2 * 8388608 - b2 * 32768
                     : ((b2 * 256 + b2) * 256 + b1) * 128 - b0;
      break;
    }
    *packed = static_cast<LONG>(value);
  }
  return n;
}

int GMBCharLen(LONG ch, char* out) {
  int n = 4;
  if (ch >= -128 && ch <= 127)
    n = 1;
  else if (ch >= -32768 && ch <= 32767)
    n = 2;
  else if (ch >= -8388608 && ch <= 8388607)
    n = 3;
  if (!out)
    return n;
  const std::uint32_t bits = static_cast<std::uint32_t>(ch);
  std::uint32_t u = bits;
  if (ch >= 0) {
    out[0] = static_cast<char>(bits & 127u);
  } else {
    const std::uint8_t low = static_cast<std::uint8_t>(bits & 0xFFu);
    const std::uint8_t folded =
        static_cast<std::uint8_t>(static_cast<std::uint8_t>(0u - low) & 127u);
    out[0] = static_cast<char>(static_cast<std::uint8_t>(0u - folded));
    u = 0u - bits;
  }
  const unsigned kShifts[] = {7, 15, 23};
  for (int i = 1; i < n; ++i)
    out[i] = static_cast<char>((u >> kShifts[i - 1]) & 0xFFu);
  return n;
}

TypStringCmpFunction GMBGetCmpMethod(TypStringComp mode) {
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
// PMBStringHandler

PMBStringHandler::PMBStringHandler()
    : size(0), len(0), capacity(0), isAscii(true), buffer(const_cast<char*>(gVoidCharString)) {}

PMBStringHandler::PMBStringHandler(const char* text, ULONG offset, ULONG length, bool copy)
    : PMBStringHandler() {
  const bool sevenBitSingle = SevenBitSingle();
  const char* start = StepChars(text, offset, sevenBitSingle);
  const char* end = StepChars(start, length, sevenBitSingle);
  SetBufferTo(start, static_cast<ULONG>(end - start), length, copy);
}

PMBStringHandler::PMBStringHandler(const PMBStringHandler& other)
    : PStringHandler(other), size(0), len(0), capacity(0), isAscii(true),
      buffer(const_cast<char*>(gVoidCharString)) {
  SetBufferTo(other.buffer, other.size, other.len, /*copy=*/true);
}

PMBStringHandler::~PMBStringHandler() {
  FreeBuffer();
  buffer = const_cast<char*>(gVoidCharString);
  size = len = 0;
}

PMBStringHandler& PMBStringHandler::operator=(const PMBStringHandler& other) {
  if (this != &other) {
    PStringHandler::operator=(other);
    std::vector<char> saved(other.buffer, other.buffer + other.size);
    saved.push_back('\0');
    SetBufferTo(saved.data(), other.size, other.len, /*copy=*/true);
  }
  return *this;
}

PMBStringHandler* PMBStringHandler::FromBytes(const char* text, ULONG bytes, ULONG chars) {
  std::unique_ptr<PMBStringHandler> made(new PMBStringHandler());
  made->SetBufferTo(text, bytes, chars, /*copy=*/true);
  return made.release();
}

void PMBStringHandler::FreeBuffer() {
  if (capacity != 0 && buffer != gVoidCharString)
    qvbase::strings::FreeBlock(buffer);
  capacity = 0;
}

void PMBStringHandler::SetBufferTo(const char* text, ULONG bytes, ULONG chars, bool copy) {
  if (!copy) {
    FreeBuffer();
    buffer = const_cast<char*>(text);
  } else {
    // Two bytes of headroom, one more than the ASCII handler keeps. The new
    // block is taken before the old one is given back: when it cannot be
    // had, the handler keeps its content.
    const ULONG newCapacity = qvbase::strings::RoundUp(bytes + 2, 8);
    char* fresh = static_cast<char*>(qvbase::strings::AllocateBlock(newCapacity));
    if (bytes)
      std::memcpy(fresh, text, bytes);
    fresh[bytes] = '\0';
    FreeBuffer();
    buffer = fresh;
    capacity = newCapacity;
  }
  size = bytes;
  len = chars;
  ReTestForAscii();
}

void PMBStringHandler::ReTestForAscii() { isAscii = size == len && SevenBitBytes(buffer, size); }

ULONG PMBStringHandler::ByteOffset(ULONG pos) const {
  if (pos == 0)
    return 0;
  const bool sevenBitSingle = SevenBitSingle();
  if (isAscii && sevenBitSingle) {
    // Every character is one byte: the position is the offset, unless a 0
    // byte comes first, where stepping stops.
    const ULONG limit = pos < size ? pos : size;
    const void* zero = std::memchr(buffer, 0, limit);
    return zero ? static_cast<ULONG>(static_cast<const char*>(zero) - buffer) : limit;
  }
  return StepWithin(buffer, size, 0, pos, sevenBitSingle);
}

void PMBStringHandler::Rebuild(ULONG keep, const char* insert, ULONG insertBytes, ULONG resume) {
  ULONG tail = size - resume;
  ULONG newSize = keep + insertBytes + tail;
  ULONG newCapacity = qvbase::strings::RoundUp(newSize + 2, 8);
  char* fresh = static_cast<char*>(qvbase::strings::AllocateBlock(newCapacity));
  std::memcpy(fresh, buffer, keep);
  if (insertBytes)
    std::memcpy(fresh + keep, insert, insertBytes);
  std::memcpy(fresh + keep + insertBytes, buffer + resume, tail);
  fresh[newSize] = '\0';
  FreeBuffer();
  buffer = fresh;
  capacity = newCapacity;
  size = newSize;
}

PStringHandlerDec* PMBStringHandler::GetHandlerType() const { return &gMBStringHandlerDec; }

TypCodeSet PMBStringHandler::GetCodeSet() { return isAscii ? kCodeSetASCII : kCodeSetMultiByte; }

bool PMBStringHandler::HandlesCodeSet(TypCodeSet codeSet) const {
  return codeSet == kCodeSetASCII || codeSet == kCodeSetMultiByte;
}

PStringHandler* PMBStringHandler::Duplicate() const { return GMBStringHandlerConstructor2(this); }

ULONG PMBStringHandler::GetSize() const { return size; }

ULONG PMBStringHandler::GetFullSize() const { return size + 2; }

ULONG PMBStringHandler::GetLen() const { return len; }

const void* PMBStringHandler::GetContent() const { return buffer; }

PStringHandler* PMBStringHandler::GetSubHandler(ULONG start, ULONG count) const {
  ULONG from = ByteOffset(start);
  ULONG to = from;
  ULONG chars = 0;
  const bool sevenBitSingle = SevenBitSingle();
  while (chars < count && to < size) {
    ULONG step = StepAt(buffer + to, sevenBitSingle);
    if (step == 0)
      break;
    to += step;
    ++chars;
  }
  if (to > size)
    to = size;
  return FromBytes(buffer + from, to - from, chars);
}

ULONG PMBStringHandler::FindSubHandlerFwd(const PStringHandler* what, ULONG from,
                                          TypStringComp mode) const {
  PBenchmarkCall call(kProfiledClass, "FindSubHandlerFwd", kSourceFile);
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(what, holder);
  ULONG k = peer->GetLen();
  if (k > len)
    return kStringNotFound;
  const ULONG last = len - k;
  if (from > last)
    return kStringNotFound;
  // Every candidate is compared as CompareSubHandler(i, peer, 0, k, mode)
  // compares it; a class that overrides that compare keeps it.
  if (typeid(*this) != typeid(PMBStringHandler))
    return qvbase::strings::FindByCompares(this, peer, from, last, k, mode);
  const char* needle = static_cast<const char*>(peer->GetContent());
  ULONG found = kStringNotFound;
  if (FindSevenBit(needle, peer->GetSize(), k, from, last, mode, &found))
    return found;
  // One walk through the bytes: the offset of each candidate follows from
  // the previous one, one character on.
  TypStringCmpFunction compare = GMBGetCmpMethod(mode);
  const bool sevenBitSingle = SevenBitSingle();
  ULONG at = ByteOffset(from);
  for (ULONG i = from;; ++i) {
    if (compare(buffer + at, needle, k) == 0)
      return i;
    if (i == last)
      break;
    at = StepWithin(buffer, size, at, 1, sevenBitSingle);
  }
  return kStringNotFound;
}

bool PMBStringHandler::FindSevenBit(const char* needle, ULONG needleBytes, ULONG k, ULONG from,
                                    ULONG last, TypStringComp mode, ULONG* found) const {
  const qvbase::native::SevenBitTraits traits = qvbase::native::CurrentSevenBitTraits();
  const bool ignoreCase = mode == kStrCompIgnoreCase || mode == kStrCompNoCase;
  if (!isAscii || !traits.singleBytes || mode == kStrCompCollate ||
      (ignoreCase && !traits.foldsAsAscii))
    return false;
  // With no 0 byte in the content, candidate i starts at byte i and its k
  // characters are its k bytes (i + k is within the content). A needle whose
  // k characters are k bytes from 1 to 127 then matches exactly where those
  // bytes do (ignoring case: where they do folded). Anything else - a 0
  // byte, a byte of 128 or above, which may even fold onto a 7-bit letter -
  // is left to the character-wise search.
  if (k > needleBytes || std::memchr(buffer, 0, size) || std::memchr(needle, 0, k) ||
      !SevenBitBytes(needle, k))
    return false;
  if (!ignoreCase) {
    *found = qvbase::strings::FindBytes(buffer, from, last, needle, k);
    return true;
  }
  *found = kStringNotFound;
  for (ULONG i = from; i <= last; ++i) {
    if (qvbase::strings::AsciiFoldCompare(buffer + i, needle, k, /*readable=*/k) == 0) {
      *found = i;
      break;
    }
  }
  return true;
}

ULONG PMBStringHandler::FindCharFwd(LONG ch, ULONG from, TypStringComp mode) const {
  char probe[8] = {0};
  GMBCharLen(ch, probe);
  TypStringCmpFunction compare = GMBGetCmpMethod(mode);
  const bool sevenBitSingle = SevenBitSingle();
  if (compare == CompareExact && isAscii && sevenBitSingle && !std::memchr(buffer, 0, size)) {
    // Every character is its byte, and only a 7-bit character other than 0
    // compares equal to one; position i is byte i.
    const unsigned char wanted = static_cast<unsigned char>(probe[0]);
    if (from >= size || wanted == 0 || wanted >= 128)
      return kStringNotFound;
    const void* hit = std::memchr(buffer + from, wanted, size - from);
    return hit ? static_cast<ULONG>(static_cast<const char*>(hit) - buffer) : kStringNotFound;
  }
  ULONG at = ByteOffset(from);
  for (ULONG i = from; i < len && at < size; ++i) {
    if (compare(buffer + at, probe, 1) == 0)
      return i;
    ULONG step = StepAt(buffer + at, sevenBitSingle);
    at += step ? step : 1;
  }
  return kStringNotFound;
}

ULONG PMBStringHandler::FindSubHandlerBwd(const PStringHandler* what, ULONG from,
                                          TypStringComp mode) const {
  PBenchmarkCall call(kProfiledClass, "FindSubHandlerBwd", kSourceFile);
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(what, holder);
  return qvbase::strings::FindBackwardByCompares(this, len, peer, from, mode);
}

ULONG PMBStringHandler::FindCharBwd(LONG ch, ULONG from, TypStringComp mode) const {
  if (len == 0)
    return kStringNotFound;
  if (from >= len)
    from = len - 1;
  char probe[8] = {0};
  GMBCharLen(ch, probe);
  TypStringCmpFunction compare = GMBGetCmpMethod(mode);
  // Character starts up to `from`, then tested from the last one down.
  std::vector<ULONG> starts;
  ULONG at = 0;
  for (ULONG i = 0; i <= from && at < size; ++i) {
    starts.push_back(at);
    ULONG step = CharBytes(buffer + at);
    at += step ? step : 1;
  }
  for (std::size_t i = starts.size(); i-- > 0;)
    if (compare(buffer + starts[i], probe, 1) == 0)
      return static_cast<ULONG>(i);
  return kStringNotFound;
}

LONG PMBStringHandler::CompareSubHandler(ULONG start, const PStringHandler* other, ULONG otherStart,
                                         ULONG count, TypStringComp mode) const {
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(other, holder);
  const char* theirs = static_cast<const char*>(peer->GetContent());
  ULONG theirBytes = peer->GetSize();
  bool theirsSevenBit = false;
  if (peer->GetHandlerType() == &gMBStringHandlerDec) {
    const PMBStringHandler* narrow = static_cast<const PMBStringHandler*>(peer);
    const ULONG offset = narrow->ByteOffset(otherStart);
    theirs += offset;
    theirBytes -= offset;
    theirsSevenBit = narrow->isAscii;
  } else {
    const ULONG offset = otherStart < theirBytes ? otherStart : theirBytes;
    theirs += offset;
    theirBytes -= offset;
  }
  const ULONG offset = ByteOffset(start);
  const char* mine = buffer + offset;
  TypStringCmpFunction compare = GMBGetCmpMethod(mode);
  // Two 7-bit runs compare byte by byte with the same result as character by
  // character: the exact order is the byte order, and where the locale keys
  // 7-bit letters as ASCII folding does, so is the case-insensitive one.
  // Collation stays with the locale. Only the bytes that both sides hold are
  // compared so; when they are equal and the count goes on, the character-wise
  // compare takes over after them (it answers there as it would from the
  // start, all before being equal single-byte characters).
  const qvbase::native::SevenBitTraits traits = qvbase::native::CurrentSevenBitTraits();
  const bool ignoreCase = mode == kStrCompIgnoreCase || mode == kStrCompNoCase;
  if (isAscii && traits.singleBytes && mode != kStrCompCollate &&
      (!ignoreCase || traits.foldsAsAscii)) {
    const ULONG mineBytes = size - offset;
    ULONG shared = count < mineBytes ? count : mineBytes;
    if (shared > theirBytes)
      shared = theirBytes;
    if (theirsSevenBit || SevenBitBytes(theirs, shared)) {
      const LONG result = ignoreCase
                              ? qvbase::strings::AsciiFoldCompare(mine, theirs, shared, shared)
                              : qvbase::strings::Sign(std::strncmp(mine, theirs, shared));
      // Equal up to a 0 byte on both sides: both texts end there.
      if (result != 0 || shared == count || std::memchr(mine, 0, shared))
        return result;
      return compare(mine + shared, theirs + shared, count - shared);
    }
  }
  return compare(mine, theirs, count);
}

void PMBStringHandler::InsertHandler(const PStringHandler* other, ULONG pos) {
  qvbase::strings::HandlerHolder holder;
  const PStringHandler* peer = NarrowPeer(other, holder);
  ULONG at = ByteOffset(pos);
  ULONG chars = peer->GetLen();
  const ULONG bytes = peer->GetSize();
  const bool wasAscii = isAscii;
  Rebuild(at, static_cast<const char*>(peer->GetContent()), bytes, at);
  len += chars;
  UpdateAsciiAfterInsert(wasAscii, at, bytes);
}

void PMBStringHandler::UpdateAsciiAfterInsert(bool wasAscii, ULONG at, ULONG bytes) {
  // Content that was pure 7-bit stays so exactly when the inserted bytes are
  // and size still equals len: the same answer as testing everything again.
  // (The bytes are read where they now are: the source may have been this
  // handler's old buffer.)
  if (!wasAscii) {
    ReTestForAscii();
    return;
  }
  isAscii = size == len && SevenBitBytes(buffer + at, bytes);
}

void PMBStringHandler::InsertChar(LONG ch, ULONG pos) {
  if (ch < 0 || ch > 127) {
    qvbase::errors::Raise(kErrStringCharOutOfRange, ErrorSeverityError, kSourceFile,
                          kLineInsertChar);
    // Nothing is inserted when the signal returns.
    return;
  }
  // Always a fresh buffer of (size + 1 + 2) rounded to 8. Deliberately kept
  // as it stands: the in-place path compares the new capacity with the new
  // size, which never match, so it is never taken and every inserted
  // character reallocates (the suite pins it).
  const char byte = static_cast<char>(ch);
  ULONG at = ByteOffset(pos);
  const bool wasAscii = isAscii;
  Rebuild(at, &byte, 1, at);
  ++len;
  UpdateAsciiAfterInsert(wasAscii, at, 1);
}

void PMBStringHandler::DeletePart(ULONG start, ULONG count) {
  ULONG from = ByteOffset(start);
  ULONG to = from;
  ULONG removed = 0;
  const bool sevenBitSingle = SevenBitSingle();
  while (removed < count && to < size) {
    ULONG step = StepAt(buffer + to, sevenBitSingle);
    if (step == 0)
      break;
    to += step;
    ++removed;
  }
  if (to > size)
    to = size;
  if (removed == 0 || capacity == 0)
    return;
  // In place; the buffer never shrinks.
  std::memmove(buffer + from, buffer + to, size - to + 1);
  size -= to - from;
  len -= removed < len ? removed : len;
  ReTestForAscii();
}

void PMBStringHandler::SetChar(ULONG pos, LONG ch) {
  char bytes[8] = {0};
  ULONG n = static_cast<ULONG>(GMBCharLen(ch, bytes));
  ULONG at = ByteOffset(pos);
  if (at >= size)
    return;
  ULONG old = CharBytes(buffer + at);
  if (old == 0)
    old = 1;
  if (at + old > size)
    old = size - at;
  Rebuild(at, bytes, n, at + old);
  ReTestForAscii();
}

bool PMBStringHandler::CanBeModified() const { return capacity != 0 && NumSmartLocks() < 2; }

LONG PMBStringHandler::GetChar(ULONG pos) const {
  if (pos >= len)
    return 0;
  ULONG at = ByteOffset(pos);
  if (at >= size)
    return 0;
  ULONG n = CharBytes(buffer + at);
  if (at + n > size)
    n = size - at;
  std::uint32_t value = 0;
  for (ULONG i = 0; i < n; ++i)
    value = value * 256u +
            static_cast<std::uint32_t>(static_cast<LONG>(static_cast<signed char>(buffer[at + i])));
  return static_cast<LONG>(value);
}

// ---------------------------------------------------------------------------
// PMBString

PMBString::PMBString() : PString(&gMBStringHandlerDec) {}

PMBString::PMBString(const PMBString& other)
    : PString(static_cast<const PString&>(other), &gMBStringHandlerDec) {}

PMBString::PMBString(const PString& other) : PString(other, &gMBStringHandlerDec) {}

PMBString::PMBString(const char* text, bool copy) : PString(text, copy, &gMBStringHandlerDec) {}

PMBString::PMBString(const char* text) : PString(text, gConstStrForceCopy, &gMBStringHandlerDec) {}

#if defined(_MFC_VER)
PMBString::PMBString(const CString& text) : PString(text, &gMBStringHandlerDec) {}
#endif

PMBString& PMBString::operator=(const PMBString& other) {
  PString::operator=(other);
  return *this;
}

PMBString& PMBString::operator=(const PString& other) {
  PString::operator=(other);
  return *this;
}

PMBString::operator const char*() const {
  return Handler() ? static_cast<const char*>(Handler()->GetContent()) : gVoidCharString;
}

LONG PMBString::operator[](ULONG pos) const { return GetChar(pos); }

// ---------------------------------------------------------------------------
// Refilling a string's own handler

namespace {

// What the refill below reads and writes of a string and of its handler.
// Both are protected; pointers to them taken through derived classes reach
// them in any PString and any PMBStringHandler.
class RefilledString : public PString {
public:
  static PStringHandler* HandlerOf(const PString& text) {
    return (text.*&RefilledString::Handler)();
  }
  static PStringHandlerDec* DeclaredTypeOf(const PString& text) {
    return (text.*&RefilledString::DeclaredType)();
  }
};

class RefilledHandler : public PMBStringHandler {
public:
  static char* BufferOf(const PMBStringHandler& handler) {
    return handler.*&RefilledHandler::buffer;
  }
  static void SetSevenBitContent(PMBStringHandler& handler, const char* text, ULONG bytes) {
    char* buffer = BufferOf(handler);
    // The bytes behind the text are zeroed up to the end of the buffer, as
    // in the zero-filled block that a new handler's content is copied into.
    std::memcpy(buffer, text, bytes);
    std::memset(buffer + bytes, 0, (handler.*&RefilledHandler::capacity) - bytes);
    (handler.*&RefilledHandler::size) = bytes;
    (handler.*&RefilledHandler::len) = bytes;
    // What ReTestForAscii finds: as many characters as bytes, all 7-bit.
    (handler.*&RefilledHandler::isAscii) = true;
  }
};

} // namespace

// Assigning a new handler (one object from operator new and one zero-filled
// block from the default manager, then the target's old handler and block
// given back) is replaced by writing the text into the old handler, when
// nobody can tell the two apart:
// - the handler is exactly the library's multibyte handler: a class derived
//   from it may watch its calls, its creation or its destruction;
// - the string is of free type or declared multibyte: any other declared
//   type would convert the new handler;
// - the handler owns its buffer and this string is its only reference: a
//   borrowed buffer belongs to the caller, and a copy sharing the handler
//   keeps its text (copy-on-write);
// - a new handler would get the capacity this one has, so that every field
//   ends as it would in the new one;
// - the buffer belongs to the default manager and that manager is the
//   runtime heap, which is where the new block would come from: a manager
//   that an application installed, or whose functions it patched, sees one
//   allocation and one release for every read as it always has.
// The typed stream reads call this for every string they read, usually into
// the same target over and over.
bool qvbase::strings::RefillSevenBitText(PString* target, const char* text, ULONG bytes) {
  PStringHandler* held = RefilledString::HandlerOf(*target);
  if (!held || &typeid(*held) != &typeid(PMBStringHandler))
    return false;
  PStringHandlerDec* declared = RefilledString::DeclaredTypeOf(*target);
  if (declared && declared != &gMBStringHandlerDec)
    return false;
  PMBStringHandler& handler = *static_cast<PMBStringHandler*>(held);
  const ULONG capacity = handler.Capacity();
  char* buffer = RefilledHandler::BufferOf(handler);
  if (capacity == 0 || buffer == gVoidCharString || handler.NumSmartLocks() != 1 ||
      qvbase::strings::RoundUp(bytes + 2, 8) != capacity ||
      !qvbase::core::OwnedByDefaultRuntimeHeap(buffer))
    return false;
  RefilledHandler::SetSevenBitContent(handler, text, bytes);
  return true;
}
