// PStringHandlerImpl.h - helpers shared by the string handlers.
// Part of qvbase, the QVKernel foundation class library.
//
// Buffer sizing and allocation and a scoped owner for temporary handlers.
// Private to the library.
#pragma once

#include <qvbase/MemoryManager.h>
#include <qvbase/PString.h>
#include <qvbase/QVCompat.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace qvbase {
namespace strings {

// `value` rounded up to a multiple of `step`.
inline ULONG RoundUp(ULONG value, ULONG step) { return (value + step - 1) / step * step; }

// Handler buffers come from the default memory manager, zero-filled. When
// no block can be had, std::bad_alloc is thrown, as when any object of the
// library cannot be created: nothing sensible can go on without it. The
// handlers take a new block before they give the old one up, so that a
// string that cannot grow keeps its content.
inline void* AllocateBlock(ULONG bytes) {
  void* block = GMemAllocation(nullptr, bytes, /*mode=*/0);
  if (!block)
    throw std::bad_alloc();
  return block;
}
inline void FreeBlock(void* block) { GMemFree(block); }

inline LONG Sign(int value) { return value < 0 ? -1 : (value > 0 ? 1 : 0); }

// A byte as the signed value that packed characters are made of (the bytes
// of 128 and above are negative, as on the library's Windows targets).
inline LONG SignedByte(char byte) {
  const LONG value = static_cast<unsigned char>(byte);
  return value < 128 ? value : value - 256;
}

// The code set of a handler seen through a const pointer: asking does not
// change it.
inline TypCodeSet CodeSetOf(const PStringHandler* handler) {
  return const_cast<PStringHandler*>(handler)->GetCodeSet();
}

// A zero-filled scratch array.
template <typename T>
class Buffer {
public:
  explicit Buffer(std::size_t count) : m_items(count ? count : 1) {}
  T* data() { return m_items.data(); }
  T& operator[](std::size_t i) { return m_items[i]; }

private:
  std::vector<T> m_items;
};

// Owns a temporary handler that no string references: deletes it at the end
// of the scope.
class HandlerHolder {
public:
  HandlerHolder() : m_handler(nullptr) {}
  ~HandlerHolder() { delete m_handler; }
  HandlerHolder(const HandlerHolder&) = delete;
  HandlerHolder& operator=(const HandlerHolder&) = delete;
  void Reset(PStringHandler* handler) {
    delete m_handler;
    m_handler = handler;
  }
  PStringHandler* Get() const { return m_handler; }

private:
  PStringHandler* m_handler;
};

// Compares at most `count` units of two texts that need not be terminated:
// no further than what both sides hold (`mine` and `available` units), then,
// when that part is equal, by how much of `count` each side could supply.
template <typename Unit, typename Compare>
LONG BoundedCompare(Compare compare, const Unit* ours, ULONG mine, const Unit* theirs,
                    ULONG available, ULONG count) {
  ULONG bounded = count;
  if (bounded > mine)
    bounded = mine;
  if (bounded > available)
    bounded = available;
  LONG result = compare(ours, theirs, bounded);
  if (result != 0 || bounded == count)
    return result;
  ULONG mineLeft = mine < count ? mine : count;
  ULONG theirsLeft = available < count ? available : count;
  return mineLeft == theirsLeft ? 0 : (mineLeft < theirsLeft ? -1 : 1);
}

// The byte count of a terminated multibyte text, measured by stepping its
// characters as GMBStringHandlerConstructor1 does (PMBString.cpp).
ULONG MeasureMultiByteText(const char* text);

// The forward search as candidate compares: the first position i from `from`
// up to `last` where handler->CompareSubHandler(i, peer, 0, k, mode) is 0.
// The handlers search this way for a class that overrides CompareSubHandler,
// so that its compare still sees every candidate.
inline ULONG FindByCompares(const PStringHandler* handler, const PStringHandler* peer, ULONG from,
                            ULONG last, ULONG k, TypStringComp mode) {
  for (ULONG i = from; i <= last; ++i)
    if (handler->CompareSubHandler(i, peer, 0, k, mode) == 0)
      return i;
  return kStringNotFound;
}

// The backward search as candidate compares, which every handler uses: from
// `from` (the last of `len` positions when beyond it) down to 0, the first
// position i where handler->CompareSubHandler(i, peer, 0, k, mode) is 0.
// Deliberately no check that a match fits before the end: the compare stops
// at the terminator, so a match cannot run past it, and a class that
// overrides CompareSubHandler sees every candidate from `from` down.
inline ULONG FindBackwardByCompares(const PStringHandler* handler, ULONG len,
                                    const PStringHandler* peer, ULONG from, TypStringComp mode) {
  if (len == 0)
    return kStringNotFound;
  const ULONG k = peer->GetLen();
  if (from >= len)
    from = len - 1;
  for (ULONG i = from + 1; i-- > 0;)
    if (handler->CompareSubHandler(i, peer, 0, k, mode) == 0)
      return i;
  return kStringNotFound;
}

// The first position i from `from` up to `last` at which the `count` bytes of
// `needle` occur in `text`, byte for byte; kStringNotFound when there is none.
// `text` must hold `last + count` bytes.
inline ULONG FindBytes(const char* text, ULONG from, ULONG last, const char* needle, ULONG count) {
  if (from > last)
    return kStringNotFound;
  if (count == 0)
    return from;
  const char first = needle[0];
  ULONG at = from;
  while (at <= last) {
    const void* hit = std::memchr(text + at, first, last - at + 1);
    if (!hit)
      break;
    at = static_cast<ULONG>(static_cast<const char*>(hit) - text);
    if (std::memcmp(text + at + 1, needle + 1, count - 1) == 0)
      return at;
    ++at;
  }
  return kStringNotFound;
}

// A byte with A-Z folded to a-z and nothing else changed.
inline unsigned AsciiFold(char c) {
  const unsigned u = static_cast<unsigned char>(c);
  return u - 'A' < 26u ? u + ('a' - 'A') : u;
}

// Eight bytes below 128 with A-Z folded to a-z: a byte from 'A' to 'Z' is the
// one for which adding 0x3F sets the top bit and adding 0x25 does not (no
// addition carries into the next byte below 128).
inline std::uint64_t AsciiFoldWord(std::uint64_t bytes) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  const std::uint64_t upper = ((bytes + 0x3F * kOnes) ^ (bytes + 0x25 * kOnes)) & (0x80 * kOnes);
  return bytes | (upper >> 2);
}

// At most `count` bytes of two texts with A-Z folded, stopping at a
// terminator: the sign of the first difference. Both texts hold at least
// `readable` bytes; within them, runs of eight 7-bit bytes without a 0 are
// compared a word at a time, which changes nothing in the result.
inline LONG AsciiFoldCompare(const char* a, const char* b, ULONG count, ULONG readable = 0) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  constexpr std::uint64_t kHigh = 0x80 * kOnes;
  const ULONG words = readable < count ? readable : count;
  ULONG i = 0;
  while (words - i >= 8) {
    std::uint64_t wa, wb;
    std::memcpy(&wa, a + i, 8);
    std::memcpy(&wb, b + i, 8);
    if (((wa | wb) & kHigh) != 0 || ((wa - kOnes) & ~wa & kHigh) != 0 ||
        AsciiFoldWord(wa) != AsciiFoldWord(wb))
      break;
    i += 8;
  }
  for (; i < count; ++i) {
    const unsigned ca = AsciiFold(a[i]), cb = AsciiFold(b[i]);
    if (ca != cb)
      return ca < cb ? -1 : 1;
    if (ca == 0)
      break;
  }
  return 0;
}

} // namespace strings
} // namespace qvbase
