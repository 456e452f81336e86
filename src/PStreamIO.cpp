// PStreamIO.cpp - typed values in the persisted stream format.
// Part of qvbase, the QVKernel foundation class library.
//
// The byte layout of every typed value a stream reads and writes. Integers
// are handled in the host's little-endian memory order; "II" writes them as
// they are, "MM" reverses each item.
#include <qvbase/PStream.h>

#include <qvbase/MemoryManager.h>
#include <qvbase/PDate.h>
#include <qvbase/PMBString.h>
#include <qvbase/PStringConversions.h>
#include <qvbase/PTime.h>
#include <qvbase/PUniversalID.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

// Byte runs of this size and more are reversed in a scratch block; smaller
// ones in place and back.
constexpr ULONG kScratchThreshold = 16;
// Counted strings are read in chunks of this size.
constexpr ULONG kOverrunChunk = 1024 * 1024;
constexpr ULONG kTerminatedStart = 64;

void ReverseItems(char* data, ULONG count, ULONG itemSize) {
  if (itemSize < 2)
    return;
  for (ULONG i = 0; i < count; ++i)
    std::reverse(data + static_cast<std::size_t>(i) * itemSize, data + static_cast<std::size_t>(i + 1) * itemSize);
}

// The identifier's 16 bytes in memory order.
void IdBytes(const PUniversalID& id, char bytes[16]) {
  _GUID g = id;
  std::memcpy(bytes, &g, 16);
}

PMBString Multibyte(const PString& text) { return PMBString(text); }

} // namespace

// ---------------------------------------------------------------------------
// The integer workers

ULONG PStream::WriteInts(const char* data, ULONG count, ULONG itemSize) {
  if (m_byteOrdering != kByteOrderingMotorola || itemSize < 2)
    return Write(data, count, itemSize);
  const unsigned long long total = static_cast<unsigned long long>(count) * itemSize;
  if (total >= kScratchThreshold && total <= 0xFFFFFFFFull) {
    char* scratch = static_cast<char*>(GMemAllocation(nullptr, static_cast<ULONG>(total), /*mode=*/1));
    if (scratch) {
      std::memcpy(scratch, data, static_cast<std::size_t>(total));
      ReverseItems(scratch, count, itemSize);
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

void PStream::Write(short value) { WriteInts(reinterpret_cast<const char*>(&value), 1, 2); }

void PStream::Write(LONG value) { WriteInts(reinterpret_cast<const char*>(&value), 1, 4); }

void PStream::Write(const __int64& value) {
  __int64 local = value;
  WriteInts(reinterpret_cast<const char*>(&local), 1, 8);
}

void PStream::Write(bool value) {
  short local = value ? 1 : 0;
  WriteInts(reinterpret_cast<const char*>(&local), 1, 2);
}

void PStream::Write(float value, unsigned char digits) { Write(static_cast<double>(value), digits); }

void PStream::Write(double value, unsigned char digits) { Write(FloatToPString(value, digits)); }

void PStream::Write(const PString& text) {
  PMBString bytes = Multibyte(text);
  LONG length = static_cast<LONG>(bytes.Size());
  Write(length);
  if (length)
    Write(static_cast<const char*>(bytes), bytes.Size(), 1);
}

void PStream::Write(const char* text) { Write(PString(text, /*copy=*/false)); }

void PStream::Write(const PString& text, char terminator) {
  PMBString bytes = Multibyte(text);
  if (bytes.Size())
    Write(static_cast<const char*>(bytes), bytes.Size(), 1);
  Write(&terminator, 1, 1);
}

void PStream::Write(const PUniversalID& id) {
  char bytes[16];
  IdBytes(id, bytes);
  WriteInts(bytes, 2, 8);
}

void PStream::Write(const PTime& time) { Write(time.GetValue()); }

void PStream::Write(const PUTDate& date) { Write(date.GetValue()); }

// ---------------------------------------------------------------------------
// Reading

void PStream::Read(char* value) { Read(value, 1, 1); }

void PStream::Read(short* value) { ReadInts(reinterpret_cast<char*>(value), 1, 2); }

void PStream::Read(LONG* value) { ReadInts(reinterpret_cast<char*>(value), 1, 4); }

void PStream::Read(__int64* value) { ReadInts(reinterpret_cast<char*>(value), 1, 8); }

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
  short local = 0;
  ReadInts(reinterpret_cast<char*>(&local), 1, 2);
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
  // The length is not trusted with memory: the bytes are read in chunks,
  // and kept only while the handler delivers whole chunks. The handler still
  // sees the whole count asked for (and moves its position as it would).
  std::vector<char> bytes;
  std::vector<char> scratch;
  bool keeping = true;
  for (ULONG rest = length; rest > 0;) {
    const ULONG chunk = std::min(rest, kOverrunChunk);
    if (keeping) {
      const std::size_t old = bytes.size();
      bytes.resize(old + chunk);
      ULONG got = Read(bytes.data() + old, chunk, 1);
      if (got < chunk) {
        bytes.resize(old + got);
        keeping = false;
      }
    } else {
      scratch.resize(chunk);
      Read(scratch.data(), chunk, 1);
    }
    rest -= chunk;
  }
  bytes.push_back('\0');
  *text = PMBString(bytes.data(), /*copy=*/true);
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
  *text = PMBString(bytes.data(), /*copy=*/true);
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
void PStream::ReadArray(short* values, ULONG count) { ReadInts(reinterpret_cast<char*>(values), count, 2); }
void PStream::ReadArray(LONG* values, ULONG count) { ReadInts(reinterpret_cast<char*>(values), count, 4); }
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
ULONG PStream::WriteSize(const PString& text) const { return 4 + Multibyte(text).Size(); }
ULONG PStream::WriteSize(const PString& text, char) const { return Multibyte(text).Size() + 1; }

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
