// PStreamIO.cpp - typed values in the persisted stream format.
// Part of qvbase, the QVKernel foundation class library.
//
// The byte layout of every typed value a stream reads and writes. Integers
// are handled in the host's little-endian memory order; "II" writes them as
// they are, "MM" reverses each item.
#include <qvbase/PStream.h>

#include <qvbase/MemoryManager.h>
#include <qvbase/PASCIIString.h>
#include <qvbase/PDate.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/PTime.h>
#include <qvbase/PUniversalID.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "streams/InPlace.h"
#include "strings/PMBStringRefill.h"

using qvbase::streams::InPlace;

namespace {

// Byte runs of this size and more are reversed in a scratch block; smaller
// ones in place and back.
constexpr ULONG kScratchThreshold = 16;
// Counted strings longer than a local buffer are read in chunks: the first
// of this size, each next one twice the last, up to the longest.
constexpr ULONG kFirstChunk = 4096;
constexpr ULONG kLongestChunk = 1024 * 1024;
constexpr ULONG kTerminatedStart = 64;
// Counted strings up to this many bytes are read into a buffer on the stack.
constexpr ULONG kLocalTextBytes = 256;

std::uint16_t ByteSwap(std::uint16_t v) { return __builtin_bswap16(v); }
std::uint32_t ByteSwap(std::uint32_t v) { return __builtin_bswap32(v); }
std::uint64_t ByteSwap(std::uint64_t v) { return __builtin_bswap64(v); }

// Reverses each of `count` items of type T from `from` into `to` (which may
// be the same place).
template <typename T>
void SwapItems(char* to, const char* from, ULONG count) {
  for (ULONG i = 0; i < count; ++i) {
    T item;
    std::memcpy(&item, from + static_cast<std::size_t>(i) * sizeof(T), sizeof(T));
    item = ByteSwap(item);
    std::memcpy(to + static_cast<std::size_t>(i) * sizeof(T), &item, sizeof(T));
  }
}

// Byte i of each item of `itemSize` bytes goes to byte itemSize - 1 - i;
// items of one byte stay as they are.
void ReverseItemsInto(char* to, const char* from, ULONG count, ULONG itemSize) {
  switch (itemSize) {
  case 0:
  case 1:
    if (to != from)
      std::memcpy(to, from, count * static_cast<std::size_t>(itemSize));
    return;
  case 2:
    SwapItems<std::uint16_t>(to, from, count);
    return;
  case 4:
    SwapItems<std::uint32_t>(to, from, count);
    return;
  case 8:
    SwapItems<std::uint64_t>(to, from, count);
    return;
  default:
    for (ULONG i = 0; i < count; ++i) {
      const char* item = from + static_cast<std::size_t>(i) * itemSize;
      char* out = to + static_cast<std::size_t>(i) * itemSize;
      if (to == from)
        std::reverse(out, out + itemSize);
      else
        std::reverse_copy(item, item + itemSize, out);
    }
    return;
  }
}

void ReverseItems(char* data, ULONG count, ULONG itemSize) {
  ReverseItemsInto(data, data, count, itemSize);
}

// One integer value of the stream's own making, in the stream's byte
// ordering. Nobody else sees the local it is ordered in, so it is reversed
// there once; the handler gets one item of sizeof(T) bytes.
template <typename T>
ULONG WriteValue(PStream& stream, T value) {
  if (stream.GetByteOrdering() == kByteOrderingMotorola)
    value = ByteSwap(value);
  const char* bytes = reinterpret_cast<const char*>(&value);
  PStreamHdl* handler = stream.GetHandler();
  if (handler && InPlace::Write(handler, bytes, sizeof(T)))
    return 1;
  return stream.Write(bytes, 1, sizeof(T));
}

// One integer value read into a local of the stream's own and ordered there;
// the handler sees one item of sizeof(T) bytes, as ReadInts would give it.
// The value is stored whatever the handler delivered: a short read leaves
// what it left in the local, which starts as the caller's value.
template <typename T>
ULONG ReadValue(PStream& stream, void* target) {
  T value;
  std::memcpy(&value, target, sizeof(T));
  char* bytes = reinterpret_cast<char*>(&value);
  PStreamHdl* handler = stream.GetHandler();
  ULONG read = 1;
  if (!handler || !InPlace::Read(handler, bytes, sizeof(T)))
    read = stream.Read(bytes, 1, sizeof(T));
  if (stream.GetByteOrdering() == kByteOrderingMotorola)
    value = ByteSwap(value);
  std::memcpy(target, &value, sizeof(T));
  return read;
}

// The identifier's 16 bytes in memory order.
void IdBytes(const PUniversalID& id, char bytes[16]) {
  _GUID g = id;
  std::memcpy(bytes, &g, 16);
}

// The handler side of strings: PString's handler accessor and its
// constructor from a handler are for its family only.
class HandlerAccess : public PString {
public:
  // A free-type string holding `handler`.
  explicit HandlerAccess(PStringHandler* handler) : PString(handler) {}
  // The handler `text` holds, or null when it is empty.
  static PStringHandler* Of(const PString& text) { return (text.*&HandlerAccess::Handler)(); }
};

// Assigns to `target` the multibyte string of the terminated bytes at
// `text`, as PMBString(text, true) makes it. When they are all 7-bit, each is
// one character in every locale, so the handler is made over their count
// without measuring them character by character: the same content, size and
// length. Such text is written into the target's own handler instead when
// the handler and the block it would replace are ones nobody can tell from
// new ones: the library's multibyte handler, unshared, of the capacity the
// new one would get, its block from the runtime heap that the new one would
// come from too (RefillSevenBitText says which conditions and why). A
// target read over and over, the usual case, then costs no allocation and
// no release per string.
void AssignMultibyteText(PString* target, const char* text) {
  std::size_t bytes = 0;
  while (text[bytes] != '\0' && static_cast<unsigned char>(text[bytes]) < 0x80)
    ++bytes;
  if (bytes == 0 || text[bytes] != '\0') {
    *target = PMBString(text, /*copy=*/true);
    return;
  }
  const ULONG count = static_cast<ULONG>(bytes);
  if (qvbase::strings::RefillSevenBitText(target, text, count))
    return;
  *target = HandlerAccess(PMBStringHandler::FromBytes(text, count, count));
}

// The bytes of a string's multibyte form. A string whose handler holds
// multibyte or ASCII text already has them: the converted copy would be a
// byte-for-byte copy of its content. Any other string (Unicode) is converted,
// and the converted string is kept here while the bytes are in use.
class MultibyteBytes {
public:
  explicit MultibyteBytes(const PString& text) {
    PStringHandler* handler = HandlerAccess::Of(text);
    if (!handler)
      return;
    const PStringHandlerDec* type = handler->GetHandlerType();
    if (type == &gMBStringHandlerDec || type == &gASCIIStringHandlerDec) {
      m_data = static_cast<const char*>(handler->GetContent());
      m_size = handler->GetSize();
      return;
    }
    m_converted.emplace(text);
    m_data = static_cast<const char*>(*m_converted);
    m_size = m_converted->Size();
  }

  const char* Data() const { return m_data; }
  ULONG Size() const { return m_size; }

private:
  std::optional<PMBString> m_converted;
  const char* m_data = nullptr;
  ULONG m_size = 0;
};

} // namespace

// ---------------------------------------------------------------------------
// The integer workers

ULONG PStream::WriteInts(const char* data, ULONG count, ULONG itemSize) {
  if (m_byteOrdering != kByteOrderingMotorola || itemSize < 2)
    return Write(data, count, itemSize);
  const unsigned long long total = static_cast<unsigned long long>(count) * itemSize;
  if (total >= kScratchThreshold && total <= 0xFFFFFFFFull) {
    char* scratch =
        static_cast<char*>(GMemAllocation(nullptr, static_cast<ULONG>(total), /*mode=*/1));
    if (scratch) {
      ReverseItemsInto(scratch, data, count, itemSize);
      ULONG written;
      try {
        written = Write(scratch, count, itemSize);
      } catch (...) {
        GMemFree(scratch);
        throw;
      }
      GMemFree(scratch);
      return written;
    }
  }
  // Small runs (or no scratch block): reversed in place, written, restored.
  char* items = const_cast<char*>(data);
  ReverseItems(items, count, itemSize);
  ULONG written;
  try {
    written = Write(items, count, itemSize);
  } catch (...) {
    ReverseItems(items, count, itemSize);
    throw;
  }
  ReverseItems(items, count, itemSize);
  return written;
}

ULONG PStream::ReadInts(char* data, ULONG count, ULONG itemSize) {
  ULONG read = Read(data, count, itemSize);
  // Every item is reversed, whatever the handler returned.
  if (m_byteOrdering == kByteOrderingMotorola)
    ReverseItems(data, count, itemSize);
  return read;
}

// ---------------------------------------------------------------------------
// Writing

void PStream::Write(char value) { Write(&value, 1, 1); }

// Single values are the stream's own locals, not the caller's data: they are
// ordered in a copy, and the handler sees the same bytes and item size as
// WriteInts would give it.

void PStream::Write(short value) { WriteValue(*this, static_cast<std::uint16_t>(value)); }

void PStream::Write(LONG value) { WriteValue(*this, static_cast<std::uint32_t>(value)); }

void PStream::Write(const __int64& value) { WriteValue(*this, static_cast<std::uint64_t>(value)); }

void PStream::Write(bool value) { WriteValue(*this, static_cast<std::uint16_t>(value ? 1 : 0)); }

void PStream::Write(float value, unsigned char digits) {
  Write(static_cast<double>(value), digits);
}

void PStream::Write(double value, unsigned char digits) { Write(FloatToPString(value, digits)); }

void PStream::Write(const PString& text) {
  MultibyteBytes bytes(text);
  Write(static_cast<LONG>(bytes.Size()));
  if (bytes.Size())
    Write(bytes.Data(), bytes.Size(), 1);
}

void PStream::Write(const char* text) {
  // 7-bit text is its own multibyte form, one byte per character in every
  // locale: its bytes go out as the string made of it would put them.
  std::size_t bytes = 0;
  if (text)
    while (text[bytes] != '\0' && static_cast<unsigned char>(text[bytes]) < 0x80)
      ++bytes;
  if (text && text[bytes] != '\0') {
    Write(PString(text, /*copy=*/false));
    return;
  }
  const ULONG length = static_cast<ULONG>(bytes);
  Write(static_cast<LONG>(length));
  if (length)
    Write(text, length, 1);
}

void PStream::Write(const PString& text, char terminator) {
  MultibyteBytes bytes(text);
  if (bytes.Size())
    Write(bytes.Data(), bytes.Size(), 1);
  Write(&terminator, 1, 1);
}

void PStream::Write(const PUniversalID& id) {
  // Two 8-byte items through the integer writer like every other value: 16
  // bytes, so under "MM" they are ordered in a scratch block, which an
  // installed memory manager sees.
  char bytes[16];
  IdBytes(id, bytes);
  WriteInts(bytes, 2, 8);
}

void PStream::Write(const PTime& time) { Write(time.GetValue()); }

void PStream::Write(const PUTDate& date) { Write(date.GetValue()); }

// ---------------------------------------------------------------------------
// Reading

void PStream::Read(char* value) { Read(value, 1, 1); }

void PStream::Read(short* value) { ReadValue<std::uint16_t>(*this, value); }

void PStream::Read(LONG* value) { ReadValue<std::uint32_t>(*this, value); }

void PStream::Read(__int64* value) { ReadValue<std::uint64_t>(*this, value); }

void PStream::Read(float* value) {
  double wide = 0;
  Read(&wide);
  *value = static_cast<float>(wide);
}

void PStream::Read(double* value) {
  PString text;
  Read(&text);
  *value = PStringToFloat(text);
}

void PStream::Read(bool* value) {
  std::uint16_t local = 0;
  ReadValue<std::uint16_t>(*this, &local);
  *value = local != 0;
}

void PStream::Read(PString* text) {
  LONG signedLength = 0;
  Read(&signedLength);
  const ULONG length = static_cast<ULONG>(signedLength);
  if (length == 0) {
    *text = PMBString();
    return;
  }
  if (length <= kLocalTextBytes) {
    // One chunk, the same single read; only the bytes delivered are kept.
    // Zeroed first, as a fresh block is: a handler that reports bytes it
    // did not deliver gives a text that ends there, never what the stack
    // held before.
    char local[kLocalTextBytes + 1];
    std::memset(local, 0, length);
    const ULONG got = Read(local, length, 1);
    local[got < length ? got : length] = '\0';
    AssignMultibyteText(text, local);
    return;
  }
  // The length is not trusted with memory: the bytes are read in chunks
  // that start small and double, and kept only while the handler delivers
  // whole chunks, so what is allocated stays within twice what the handler
  // delivered. The handler still sees the whole count asked for, and moves
  // its position as one read of it would: once it has run short, the rest
  // is read into one scratch chunk of at most kLongestChunk bytes.
  std::vector<char> bytes;
  std::vector<char> scratch;
  bool keeping = true;
  ULONG chunk = kFirstChunk;
  for (ULONG rest = length; rest > 0;) {
    const ULONG part = std::min(rest, chunk);
    if (keeping) {
      const std::size_t old = bytes.size();
      bytes.resize(old + part);
      ULONG got = Read(bytes.data() + old, part, 1);
      if (got < part) {
        bytes.resize(old + got);
        keeping = false;
      }
    } else {
      if (scratch.size() < part) {
        // What the scratch held is of no use: given back before the larger
        // one is taken.
        scratch = std::vector<char>();
        scratch.resize(part);
      }
      Read(scratch.data(), part, 1);
    }
    rest -= part;
    chunk = std::min(chunk * 2, kLongestChunk);
  }
  bytes.push_back('\0');
  AssignMultibyteText(text, bytes.data());
}

void PStream::Read(PString* text, char terminator) {
  std::vector<char> bytes;
  bytes.reserve(kTerminatedStart);
  for (;;) {
    char c = 0;
    // The end of the data ends the text too: without it a missing
    // terminator would be waited for forever.
    if (Read(&c, 1, 1) != 1 || c == terminator)
      break;
    bytes.push_back(c);
  }
  bytes.push_back('\0');
  AssignMultibyteText(text, bytes.data());
}

void PStream::Read(PUniversalID* id) {
  char bytes[16] = {};
  ReadInts(bytes, 2, 8);
  _GUID g;
  std::memcpy(&g, bytes, 16);
  *id = PUniversalID(g);
}

void PStream::Read(PTime* time) {
  __int64 value = 0;
  Read(&value);
  time->SetValue(value);
}

void PStream::Read(PUTDate* date) {
  __int64 value = 0;
  Read(&value);
  // SetValue stores the value and tells the date it changed.
  date->SetValue(PTime(value));
}

// ---------------------------------------------------------------------------
// Arrays

void PStream::WriteArray(const char* values, ULONG count) { Write(values, count, 1); }
void PStream::WriteArray(const short* values, ULONG count) {
  WriteInts(reinterpret_cast<const char*>(values), count, 2);
}
void PStream::WriteArray(const LONG* values, ULONG count) {
  WriteInts(reinterpret_cast<const char*>(values), count, 4);
}
void PStream::WriteArray(const __int64* values, ULONG count) {
  WriteInts(reinterpret_cast<const char*>(values), count, 8);
}
void PStream::WriteArray(const float* values, ULONG count, unsigned char digits) {
  for (ULONG i = 0; i < count; ++i)
    Write(values[i], digits);
}
void PStream::WriteArray(const double* values, ULONG count, unsigned char digits) {
  for (ULONG i = 0; i < count; ++i)
    Write(values[i], digits);
}

void PStream::ReadArray(char* values, ULONG count) { Read(values, count, 1); }
void PStream::ReadArray(short* values, ULONG count) {
  ReadInts(reinterpret_cast<char*>(values), count, 2);
}
void PStream::ReadArray(LONG* values, ULONG count) {
  ReadInts(reinterpret_cast<char*>(values), count, 4);
}
void PStream::ReadArray(__int64* values, ULONG count) {
  ReadInts(reinterpret_cast<char*>(values), count, 8);
}
void PStream::ReadArray(float* values, ULONG count) {
  for (ULONG i = 0; i < count; ++i)
    Read(&values[i]);
}
void PStream::ReadArray(double* values, ULONG count) {
  for (ULONG i = 0; i < count; ++i)
    Read(&values[i]);
}

// ---------------------------------------------------------------------------
// Sizes

ULONG PStream::WriteSize(char) const { return 1; }
ULONG PStream::WriteSize(short) const { return 2; }
ULONG PStream::WriteSize(LONG) const { return 4; }
ULONG PStream::WriteSize(const __int64&) const { return 8; }
ULONG PStream::WriteSize(const PUniversalID&) const { return 16; }
ULONG PStream::WriteSize(float value, unsigned char digits) const {
  return WriteSize(static_cast<double>(value), digits);
}
ULONG PStream::WriteSize(double value, unsigned char digits) const {
  return WriteSize(FloatToPString(value, digits));
}
ULONG PStream::WriteSize(const PString& text) const { return 4 + MultibyteBytes(text).Size(); }
ULONG PStream::WriteSize(const PString& text, char) const {
  return MultibyteBytes(text).Size() + 1;
}

ULONG PStream::WriteSizeArray(const char*, ULONG count) const { return count; }
ULONG PStream::WriteSizeArray(const short*, ULONG count) const { return 2 * count; }
ULONG PStream::WriteSizeArray(const LONG*, ULONG count) const { return 4 * count; }
ULONG PStream::WriteSizeArray(const __int64*, ULONG count) const { return 8 * count; }
ULONG PStream::WriteSizeArray(const float* values, ULONG count, unsigned char digits) const {
  ULONG total = 0;
  for (ULONG i = 0; i < count; ++i)
    total += WriteSize(values[i], digits);
  return total;
}
ULONG PStream::WriteSizeArray(const double* values, ULONG count, unsigned char digits) const {
  ULONG total = 0;
  for (ULONG i = 0; i < count; ++i)
    total += WriteSize(values[i], digits);
  return total;
}
