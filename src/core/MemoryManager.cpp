// MemoryManager.cpp - the system memory manager, the default manager and the
// GMem* block functions.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/MemoryManager.h>

#include "core/MemoryGrowth.h"
#include "native/Memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Bytes in front of every GMem* block. The owner pointer is the first word;
// on 64-bit targets the rest pads the header to the heap's 16-byte alignment.
constexpr ULONG kHeaderSize = sizeof(void*) == 4 ? 4 : 16;
// The header holds the owner pointer itself, so its size is a pointer's.
static_assert(kHeaderSize >= sizeof(void*), "the header holds the owner pointer");

constexpr ULONG kMaxBlockSize = 0xFFFFFFFFu - kHeaderSize;

// --- The system manager: the C runtime heap. ---

void* SysAllocate(MemoryManager*, ULONG size, unsigned short mode) {
  return mode == 0 ? std::calloc(1, size) : std::malloc(size);
}

void* SysReallocate(MemoryManager*, void* block, ULONG newSize) {
  return std::realloc(block, newSize);
}

ULONG SysSize(MemoryManager*, void* block) {
  std::size_t size = qvbase::native::HeapBlockSize(block);
  return size == static_cast<ULONG>(size) ? static_cast<ULONG>(size) : 0xFFFFFFFFu;
}

void SysRelease(MemoryManager*, void* block) { std::free(block); }

// The process's virtual address space. There is no true largest free block:
// the available figure is reported for it too, by design, and callers that
// size their requests from `largest` rely on it never exceeding `available`.
void SysStats(MemoryManager*, ULONG* total, ULONG* available, ULONG* largest) {
  if (!total && !available && !largest)
    return;
  qvbase::native::MemoryStatus status = qvbase::native::QueryMemoryStatus();
  if (total)
    *total = status.totalVirtual;
  if (available)
    *available = status.availableVirtual;
  if (largest)
    *largest = status.availableVirtual;
}

MemoryManager gSysManagerRecord = {
    /*reserved=*/0, "System",   SysAllocate, SysReallocate,
    SysSize,        SysRelease, SysStats,
};

// Null means gSysManager.
MemoryManager* gDefaultManager = nullptr;

// --- Block headers. ---

MemoryManager* ResolveManager(MemoryManager* manager) {
  if (manager)
    return manager;
  if (gDefaultManager)
    return gDefaultManager;
  return gSysManager;
}

unsigned char* HeaderOf(void* block) { return static_cast<unsigned char*>(block) - kHeaderSize; }

void* BodyOf(void* managerBlock) { return static_cast<unsigned char*>(managerBlock) + kHeaderSize; }

// The manager recorded in front of a block; a recorded null is gSysManager.
MemoryManager* OwnerOf(void* block) {
  MemoryManager* owner;
  std::memcpy(&owner, HeaderOf(block), sizeof(void*));
  return owner ? owner : gSysManager;
}

void SetOwner(void* managerBlock, MemoryManager* owner) {
  std::memcpy(managerBlock, &owner, sizeof(void*));
}

} // namespace

MemoryManager* const gSysManager = &gSysManagerRecord;

extern "C" {

MemoryManager* GGetDefaultMemManager() { return gDefaultManager; }

MemoryManager* GSetDefaultMemManager(MemoryManager* manager) {
  gDefaultManager = manager;
  return manager;
}

void* GMemAllocation(MemoryManager* manager, ULONG size, unsigned short mode) {
  // A size that leaves no room for the header cannot be served; asking the
  // manager for the wrapped-around sum would hand out a block too small.
  if (size > kMaxBlockSize)
    return nullptr;
  MemoryManager* owner = ResolveManager(manager);
  void* managerBlock = owner->allocate(owner, size + kHeaderSize, mode);
  if (!managerBlock)
    return nullptr;
  SetOwner(managerBlock, owner);
  return BodyOf(managerBlock);
}

void* GMemReallocation(void* block, ULONG newSize) {
  if (!block)
    return GMemAllocation(gSysManager, newSize, /*mode=*/0);
  // Deliberately no null test on the manager's result: a failed reallocation
  // comes back as the header size used as an address, not as null, and the
  // block is left as it was. Callers of the library are written against that
  // behaviour and check sizes rather than the pointer. A size that leaves no
  // room for the header fails the same way without asking the manager.
  MemoryManager* owner = OwnerOf(block);
  void* managerBlock = newSize > kMaxBlockSize
                           ? nullptr
                           : owner->reallocate(owner, HeaderOf(block), newSize + kHeaderSize);
  // The owner word travels with the block, so it is not written again.
  return reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(managerBlock) + kHeaderSize);
}

void GMemFree(void* block) {
  if (!block)
    return;
  MemoryManager* owner = OwnerOf(block);
  owner->release(owner, HeaderOf(block));
}

ULONG GMemSize(void* block) {
  if (!block)
    return 0;
  MemoryManager* owner = OwnerOf(block);
  ULONG size = owner->size(owner, HeaderOf(block));
  // A manager that reports less than the header knows nothing usable.
  return size > kHeaderSize ? size - kHeaderSize : 0;
}

void GMemStats(MemoryManager* manager, ULONG* total, ULONG* available, ULONG* largest) {
  MemoryManager* resolved = ResolveManager(manager);
  resolved->stats(resolved, total, available, largest);
}

} // extern "C"

void* GCPPAllocation(unsigned int size, MemoryManager* /*manager*/) { return ::operator new(size); }

namespace {

// A record that still holds the runtime-heap functions: its allocate, copy
// and release together are exactly what one realloc does, and a block kept
// in place of one released and one allocated is missed by nobody. The
// system record is writable, and an application that patched its functions
// sees the calls it asked to see.
bool IsRuntimeHeap(const MemoryManager* manager) {
  return manager->allocate == SysAllocate && manager->reallocate == SysReallocate &&
         manager->release == SysRelease;
}

} // namespace

bool qvbase::core::OwnedByDefaultRuntimeHeap(void* block) {
  MemoryManager* owner = OwnerOf(block);
  // A new block would carry the default manager in its header, the kept
  // one carries its owner's: both must be the same record.
  return owner == ResolveManager(nullptr) && IsRuntimeHeap(owner);
}

void* qvbase::core::GrowBlock(void* block, ULONG keep, ULONG newSize) {
  if (block && OwnedByDefaultRuntimeHeap(block)) {
    MemoryManager* owner = OwnerOf(block);
    if (newSize > kMaxBlockSize)
      return nullptr;
    void* header = HeaderOf(block);
    const std::uint64_t wanted = std::uint64_t(newSize) + kHeaderSize;
    const std::uint64_t usable = qvbase::native::HeapBlockSize(header);
    // Room left from the runtime's rounding or from an earlier step.
    if (usable >= wanted)
      return block;
    // The block at least doubles: one grown in many small steps then moves a
    // logarithmic number of times, whatever the runtime does with blocks it
    // cannot extend where they are (the untouched reserve costs address
    // space, not memory). The caller's capacity is still the one it asked
    // for; the reserve is only the block's size.
    std::uint64_t ask = 2 * usable;
    if (ask < wanted)
      ask = wanted;
    if (ask > std::uint64_t(kMaxBlockSize) + kHeaderSize)
      ask = std::uint64_t(kMaxBlockSize) + kHeaderSize;
    void* managerBlock = owner->reallocate(owner, header, static_cast<ULONG>(ask));
    if (!managerBlock && ask > wanted)
      managerBlock = owner->reallocate(owner, header, static_cast<ULONG>(wanted));
    // The owner word travels with the block.
    return managerBlock ? BodyOf(managerBlock) : nullptr;
  }
  void* grown = GMemAllocation(nullptr, newSize, /*mode=*/1);
  if (!grown)
    return nullptr;
  if (block) {
    if (keep)
      std::memcpy(grown, block, keep);
    GMemFree(block);
  }
  return grown;
}
