// AllocationFaults.cpp - counting allocations and making them fail: the
// replacement of global operator new and the failing memory manager.
//
// Every block either source hands out carries a header in front of it that
// records which Watch it was made under, so that giving it back counts
// against that Watch only (blocks made before a Watch, or kept by the
// library's caches after it, are not mistaken for leaks of another).
#include "support/AllocationFaults.h"

#include <qvbase/MemoryManager.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace qvbase::test {

namespace {

// One header per block, as large as the heap's alignment so that the block
// behind it keeps that alignment.
struct alignas(alignof(std::max_align_t)) Header {
  std::uint64_t watch; // the Watch it was made under; 0 for none
  std::size_t size;
};

struct State {
  std::atomic<std::uint64_t> watch{0}; // the current Watch, 0 for none
  std::uint64_t lastWatch = 0;
  std::size_t failAt = 0; // 0: nothing fails
  AllocationFaults::Kind kind = AllocationFaults::kTransient;
  std::atomic<std::size_t> allocations{0};
  std::atomic<std::size_t> failures{0};
  std::atomic<std::size_t> largest{0};
  std::atomic<long> outstanding{0};
  std::atomic<std::size_t> liveBytes{0};
  std::atomic<std::size_t> peakBytes{0};
};

State& Current() {
  static State state;
  return state;
}

// Counts one request and says whether it is to fail.
bool CountAndDecide(std::size_t size) {
  State& s = Current();
  if (s.watch.load() == 0)
    return false;
  const std::size_t n = ++s.allocations;
  std::size_t seen = s.largest.load();
  while (size > seen && !s.largest.compare_exchange_weak(seen, size)) {
  }
  const bool fail =
      s.failAt != 0 && (n == s.failAt || (s.kind == AllocationFaults::kPersistent && n > s.failAt));
  if (fail)
    ++s.failures;
  return fail;
}

void* Tagged(void* raw, std::size_t size) {
  if (!raw)
    return nullptr;
  Header* header = static_cast<Header*>(raw);
  header->watch = Current().watch.load();
  header->size = size;
  if (header->watch != 0) {
    State& s = Current();
    ++s.outstanding;
    const std::size_t live = s.liveBytes += size;
    std::size_t peak = s.peakBytes.load();
    while (live > peak && !s.peakBytes.compare_exchange_weak(peak, live)) {
    }
  }
  return header + 1;
}

Header* HeaderOf(void* block) { return static_cast<Header*>(block) - 1; }

void Untag(Header* header) {
  if (header->watch != 0 && header->watch == Current().watch.load()) {
    --Current().outstanding;
    Current().liveBytes -= header->size;
  }
}

// ---------------------------------------------------------------------------
// The failing memory manager: the system manager's blocks, with a header.

void* ManagerAllocate(MemoryManager*, ULONG size, unsigned short mode) {
  if (CountAndDecide(size))
    return nullptr;
  return Tagged(gSysManager->allocate(gSysManager, size + sizeof(Header), mode), size);
}

void* ManagerReallocate(MemoryManager*, void* block, ULONG size) {
  // Resizing is the system manager's fast path only; a manager installed by
  // the application sees allocate, copy and release instead. Passed through.
  Header* header = HeaderOf(block);
  void* moved = gSysManager->reallocate(gSysManager, header, size + sizeof(Header));
  if (!moved)
    return nullptr;
  Header* movedHeader = static_cast<Header*>(moved);
  if (movedHeader->watch != 0 && movedHeader->watch == Current().watch.load())
    Current().liveBytes += size - movedHeader->size; // wraps back when it shrinks
  movedHeader->size = size;
  return movedHeader + 1;
}

ULONG ManagerSize(MemoryManager*, void* block) {
  return gSysManager->size(gSysManager, HeaderOf(block)) - static_cast<ULONG>(sizeof(Header));
}

void ManagerRelease(MemoryManager*, void* block) {
  Header* header = HeaderOf(block);
  Untag(header);
  gSysManager->release(gSysManager, header);
}

void ManagerStats(MemoryManager*, ULONG* total, ULONG* available, ULONG* largest) {
  gSysManager->stats(gSysManager, total, available, largest);
}

MemoryManager gFailingManager = {0,           "Failing",      ManagerAllocate, ManagerReallocate,
                                 ManagerSize, ManagerRelease, ManagerStats};

MemoryManager* gPreviousDefault = nullptr;

void Begin(std::size_t failAt, AllocationFaults::Kind kind) {
  State& s = Current();
  s.allocations = 0;
  s.failures = 0;
  s.largest = 0;
  s.outstanding = 0;
  s.liveBytes = 0;
  s.peakBytes = 0;
  s.failAt = failAt;
  s.kind = kind;
  gPreviousDefault = GGetDefaultMemManager();
  GSetDefaultMemManager(&gFailingManager);
  s.watch = ++s.lastWatch;
}

// ---------------------------------------------------------------------------
// Global operator new

// Under Windows, blocks cross the library's DLL boundary: a block the DLL's
// operator new made may be deleted here and one made here deleted in the
// DLL, both through the one C runtime heap. So there the replacement only
// counts and fails requests, and hands out the runtime's blocks as they
// are: no header, and no count of outstanding blocks or bytes.
#if defined(_WIN32)
constexpr bool kNewBlocksTagged = false;
#else
constexpr bool kNewBlocksTagged = true;
#endif

void* Allocated(std::size_t size) {
  if (!kNewBlocksTagged)
    return std::malloc(size ? size : 1);
  return Tagged(std::malloc(size + sizeof(Header)), size);
}

void* New(std::size_t size) {
  if (CountAndDecide(size))
    throw std::bad_alloc();
  void* block = Allocated(size);
  if (!block)
    throw std::bad_alloc();
  return block;
}

void* NewNoThrow(std::size_t size) noexcept {
  if (CountAndDecide(size))
    return nullptr;
  return Allocated(size);
}

void Delete(void* block) noexcept {
  if (!block)
    return;
  if (!kNewBlocksTagged) {
    std::free(block);
    return;
  }
  Header* header = HeaderOf(block);
  Untag(header);
  std::free(header);
}

} // namespace

AllocationFaults::Watch::Watch() { Begin(0, kTransient); }

AllocationFaults::Watch::Watch(std::size_t failAt, Kind kind) { Begin(failAt, kind); }

AllocationFaults::Watch::~Watch() {
  Current().watch = 0;
  GSetDefaultMemManager(gPreviousDefault);
}

std::size_t AllocationFaults::Watch::Allocations() const { return Current().allocations; }
std::size_t AllocationFaults::Watch::Failures() const { return Current().failures; }
std::size_t AllocationFaults::Watch::Largest() const { return Current().largest; }
long AllocationFaults::Watch::Outstanding() const { return Current().outstanding; }
std::size_t AllocationFaults::Watch::PeakBytes() const { return Current().peakBytes; }

bool AllocationFaults::LibraryNewIsWatched() {
#if defined(_WIN32)
  return false; // the DLL calls the C++ runtime's operator new
#else
  return true;
#endif
}

} // namespace qvbase::test

void* operator new(std::size_t size) { return qvbase::test::New(size); }
void* operator new[](std::size_t size) { return qvbase::test::New(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return qvbase::test::NewNoThrow(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return qvbase::test::NewNoThrow(size);
}
void operator delete(void* block) noexcept { qvbase::test::Delete(block); }
void operator delete[](void* block) noexcept { qvbase::test::Delete(block); }
void operator delete(void* block, std::size_t) noexcept { qvbase::test::Delete(block); }
void operator delete[](void* block, std::size_t) noexcept { qvbase::test::Delete(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { qvbase::test::Delete(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { qvbase::test::Delete(block); }
