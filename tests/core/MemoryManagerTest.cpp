// Block allocation through memory managers: resolution, the owner word in
// front of every block, the system manager and object allocation.
#include <qvbase/MemoryManager.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

namespace {

// Bytes in front of every block: one 32-bit word on 32-bit targets, 16 bytes
// on 64-bit ones so that blocks keep the heap's alignment.
const std::size_t kHeader = sizeof(void*) == 4 ? 4 : 16;

MemoryManager* OwnerWord(void* block) {
  MemoryManager* owner;
  std::memcpy(&owner, static_cast<unsigned char*>(block) - kHeader, sizeof owner);
  return owner;
}

void SetOwnerWord(void* block, MemoryManager* owner) {
  std::memcpy(static_cast<unsigned char*>(block) - kHeader, &owner, sizeof owner);
}

bool AllBytesAre(const void* block, std::size_t size, unsigned char value) {
  const unsigned char* bytes = static_cast<const unsigned char*>(block);
  for (std::size_t i = 0; i < size; ++i)
    if (bytes[i] != value)
      return false;
  return true;
}

// Leaves freed, dirty blocks of `size` bytes on the heap, so that a later
// block of that size is likely to reuse dirty memory.
void DirtyTheHeap(ULONG size) {
  void* blocks[4];
  for (void*& block : blocks) {
    block = GMemAllocation(nullptr, size, /*mode=*/1);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0xA5, size);
  }
  for (void* block : blocks)
    GMemFree(block);
}

// A manager that records every call and keeps its blocks on the system heap.
// The record comes first, so that the functions find the spy from `self`.
struct SpyManager {
  MemoryManager record;
  int allocations = 0;
  int reallocations = 0;
  int sizes = 0;
  int releases = 0;
  int stats = 0;
  ULONG lastSize = 0;
  unsigned short lastMode = 0xFFFF;
  void* lastBlock = nullptr;
  MemoryManager* lastSelf = nullptr;
  ULONG* lastTotal = nullptr;
  ULONG* lastAvailable = nullptr;
  ULONG* lastLargest = nullptr;
  // Behaviour switches.
  bool failAllocate = false;
  bool failReallocate = false;
  bool fillUninitialised = false;      // mode != 0 blocks come back full of 0xCD
  MemoryManager* stampOwner = nullptr; // reallocate writes this as the first word
  ULONG fixedSize = 0;                 // size reports this when not 0

  SpyManager() {
    record.reserved = 0;
    record.name = "Spy";
    record.allocate = Allocate;
    record.reallocate = Reallocate;
    record.size = Size;
    record.release = Release;
    record.stats = Stats;
  }
  SpyManager(const SpyManager&) = delete;
  SpyManager& operator=(const SpyManager&) = delete;

  MemoryManager* Get() { return &record; }
  int Calls() const { return allocations + reallocations + sizes + releases + stats; }

  static SpyManager* From(MemoryManager* self) { return reinterpret_cast<SpyManager*>(self); }

  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    SpyManager* spy = From(self);
    ++spy->allocations;
    spy->lastSelf = self;
    spy->lastSize = size;
    spy->lastMode = mode;
    spy->lastBlock = nullptr;
    if (spy->failAllocate)
      return nullptr;
    void* block = gSysManager->allocate(gSysManager, size, mode);
    if (block && mode != 0 && spy->fillUninitialised)
      std::memset(block, 0xCD, size);
    spy->lastBlock = block;
    return block;
  }
  static void* Reallocate(MemoryManager* self, void* block, ULONG newSize) {
    SpyManager* spy = From(self);
    ++spy->reallocations;
    spy->lastSelf = self;
    spy->lastBlock = block;
    spy->lastSize = newSize;
    if (spy->failReallocate)
      return nullptr;
    void* moved = gSysManager->reallocate(gSysManager, block, newSize);
    if (moved && spy->stampOwner)
      std::memcpy(moved, &spy->stampOwner, sizeof spy->stampOwner);
    return moved;
  }
  static ULONG Size(MemoryManager* self, void* block) {
    SpyManager* spy = From(self);
    ++spy->sizes;
    spy->lastSelf = self;
    spy->lastBlock = block;
    return spy->fixedSize ? spy->fixedSize : gSysManager->size(gSysManager, block);
  }
  static void Release(MemoryManager* self, void* block) {
    SpyManager* spy = From(self);
    ++spy->releases;
    spy->lastSelf = self;
    spy->lastBlock = block;
    gSysManager->release(gSysManager, block);
  }
  static void Stats(MemoryManager* self, ULONG* total, ULONG* available, ULONG* largest) {
    SpyManager* spy = From(self);
    ++spy->stats;
    spy->lastSelf = self;
    spy->lastTotal = total;
    spy->lastAvailable = available;
    spy->lastLargest = largest;
    if (total)
      *total = 3000;
    if (available)
      *available = 2000;
    if (largest)
      *largest = 1000;
  }
};

// Installs a default manager for its lifetime and puts the previous one back.
class ScopedDefaultManager {
public:
  explicit ScopedDefaultManager(MemoryManager* manager) : m_previous(GGetDefaultMemManager()) {
    GSetDefaultMemManager(manager);
  }
  ~ScopedDefaultManager() { GSetDefaultMemManager(m_previous); }
  ScopedDefaultManager(const ScopedDefaultManager&) = delete;
  ScopedDefaultManager& operator=(const ScopedDefaultManager&) = delete;

private:
  MemoryManager* m_previous;
};

// --- The system manager and the default ---

TEST(MemoryManager, SystemManagerIsNamedSystemWithReservedZero) {
  ASSERT_NE(gSysManager, nullptr);
  EXPECT_STREQ(gSysManager->name, "System");
  EXPECT_EQ(gSysManager->reserved, 0u);
  EXPECT_NE(gSysManager->allocate, nullptr);
  EXPECT_NE(gSysManager->reallocate, nullptr);
  EXPECT_NE(gSysManager->size, nullptr);
  EXPECT_NE(gSysManager->release, nullptr);
  EXPECT_NE(gSysManager->stats, nullptr);
}

TEST(MemoryManager, RecordHasItsFieldsInOrder) {
  EXPECT_EQ(offsetof(MemoryManager, reserved), 0u);
  EXPECT_LT(offsetof(MemoryManager, reserved), offsetof(MemoryManager, name));
  EXPECT_LT(offsetof(MemoryManager, name), offsetof(MemoryManager, allocate));
  EXPECT_LT(offsetof(MemoryManager, allocate), offsetof(MemoryManager, reallocate));
  EXPECT_LT(offsetof(MemoryManager, reallocate), offsetof(MemoryManager, size));
  EXPECT_LT(offsetof(MemoryManager, size), offsetof(MemoryManager, release));
  EXPECT_LT(offsetof(MemoryManager, release), offsetof(MemoryManager, stats));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(sizeof(MemoryManager), 28u);
  }
}

TEST(MemoryManager, NoDefaultManagerIsInstalledAtStart) {
  EXPECT_EQ(GGetDefaultMemManager(), nullptr);
}

TEST(MemoryManager, SetDefaultReturnsItsArgumentAndGetReadsItBack) {
  SpyManager spy;
  MemoryManager* previous = GGetDefaultMemManager();
  EXPECT_EQ(GSetDefaultMemManager(spy.Get()), spy.Get());
  EXPECT_EQ(GGetDefaultMemManager(), spy.Get());
  EXPECT_EQ(GSetDefaultMemManager(nullptr), nullptr);
  EXPECT_EQ(GGetDefaultMemManager(), nullptr);
  GSetDefaultMemManager(previous);
  EXPECT_EQ(spy.Calls(), 0);
}

// --- Allocation ---

TEST(MemoryManager, NullManagerWithoutDefaultGivesZeroFilledSystemBlock) {
  ASSERT_EQ(GGetDefaultMemManager(), nullptr);
  const ULONG size = 200;
  DirtyTheHeap(size);
  void* block = GMemAllocation(nullptr, size, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(AllBytesAre(block, size, 0));
  EXPECT_EQ(OwnerWord(block), gSysManager);
  GMemFree(block);
}

TEST(MemoryManager, ModeOneSystemBlockIsNotCleared) {
  ASSERT_EQ(GGetDefaultMemManager(), nullptr);
  // Uninitialised memory is whatever the heap had there; a freed dirty block
  // of the same size is reused by the runtime heap, so some attempt shows a
  // byte that was not cleared. The first bytes may hold the heap's own links.
  const ULONG size = 256;
  bool sawDirtyByte = false;
  for (int attempt = 0; attempt < 16 && !sawDirtyByte; ++attempt) {
    DirtyTheHeap(size);
    void* block = GMemAllocation(nullptr, size, /*mode=*/1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(OwnerWord(block), gSysManager);
    sawDirtyByte = !AllBytesAre(static_cast<unsigned char*>(block) + 32, size - 32, 0);
    GMemFree(block);
  }
  EXPECT_TRUE(sawDirtyByte);
}

TEST(MemoryManager, ModeIsPassedToTheManagerAndTheBlockIsNotCleared) {
  SpyManager spy;
  spy.fillUninitialised = true;
  void* block = GMemAllocation(spy.Get(), 64, /*mode=*/1);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(spy.lastMode, 1);
  EXPECT_TRUE(AllBytesAre(block, 64, 0xCD));
  GMemFree(block);

  block = GMemAllocation(spy.Get(), 64, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(spy.lastMode, 0);
  EXPECT_TRUE(AllBytesAre(block, 64, 0));
  GMemFree(block);
}

TEST(MemoryManager, ExplicitManagerIsUsedBeforeTheDefault) {
  SpyManager named, fallback;
  ScopedDefaultManager scope(fallback.Get());
  void* block = GMemAllocation(named.Get(), 10, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(named.allocations, 1);
  EXPECT_EQ(named.lastSelf, named.Get());
  EXPECT_EQ(fallback.allocations, 0);
  EXPECT_EQ(OwnerWord(block), named.Get());
  GMemFree(block);
  EXPECT_EQ(named.releases, 1);
}

TEST(MemoryManager, DefaultManagerIsUsedWhenNoneIsNamed) {
  SpyManager fallback;
  ScopedDefaultManager scope(fallback.Get());
  void* block = GMemAllocation(nullptr, 10, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(fallback.allocations, 1);
  EXPECT_EQ(fallback.lastSelf, fallback.Get());
  EXPECT_EQ(OwnerWord(block), fallback.Get());
  GMemFree(block);
  EXPECT_EQ(fallback.releases, 1);
}

TEST(MemoryManager, OwnerWordAtTheStartOfTheManagersBlockNamesTheManager) {
  SpyManager spy;
  void* block = GMemAllocation(spy.Get(), 40, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  ASSERT_NE(spy.lastBlock, nullptr);
  EXPECT_EQ(spy.lastSize, 40 + kHeader);
  EXPECT_EQ(static_cast<unsigned char*>(block) - static_cast<unsigned char*>(spy.lastBlock),
            static_cast<std::ptrdiff_t>(kHeader));
  MemoryManager* first;
  std::memcpy(&first, spy.lastBlock, sizeof first);
  EXPECT_EQ(first, spy.Get());
  GMemFree(block);
}

TEST(MemoryManager, BlocksKeepTheHeapsAlignment) {
  void* block = GMemAllocation(nullptr, 24, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  const std::uintptr_t alignment = sizeof(void*) == 4 ? 4 : 16;
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0u);
  GMemFree(block);
}

TEST(MemoryManager, FailedAllocationReturnsNull) {
  SpyManager spy;
  spy.failAllocate = true;
  EXPECT_EQ(GMemAllocation(spy.Get(), 10, /*mode=*/0), nullptr);
  EXPECT_EQ(spy.allocations, 1);
}

TEST(MemoryManager, SizeWithNoRoomForTheHeaderFailsWithoutAskingTheManager) {
  SpyManager spy;
  EXPECT_EQ(GMemAllocation(spy.Get(), 0xFFFFFFFFu, /*mode=*/1), nullptr);
  EXPECT_EQ(spy.allocations, 0);
}

TEST(MemoryManager, BlockRemembersItsManagerAfterDefaultChanges) {
  SpyManager first, second;
  ScopedDefaultManager outer(first.Get());
  void* block = GMemAllocation(nullptr, 32, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(first.allocations, 1);

  ScopedDefaultManager inner(second.Get());
  block = GMemReallocation(block, 64);
  EXPECT_EQ(first.reallocations, 1);
  EXPECT_GE(GMemSize(block), 64u);
  EXPECT_EQ(first.sizes, 1);
  GMemFree(block);
  EXPECT_EQ(first.releases, 1);
  EXPECT_EQ(second.Calls(), 0);
}

// --- Size and free ---

TEST(MemoryManager, SizeIsAtLeastTheRequestedSize) {
  const ULONG sizes[] = {0, 1, 3, 4, 7, 16, 100, 4096, 100000};
  for (ULONG size : sizes) {
    SCOPED_TRACE(size);
    void* block = GMemAllocation(nullptr, size, /*mode=*/0);
    ASSERT_NE(block, nullptr);
    EXPECT_GE(GMemSize(block), size);
    GMemFree(block);
  }
}

TEST(MemoryManager, SizeOfNullIsZero) { EXPECT_EQ(GMemSize(nullptr), 0u); }

TEST(MemoryManager, SizeIsTheManagersFigureLessTheHeader) {
  SpyManager spy;
  spy.fixedSize = 100;
  void* block = GMemAllocation(spy.Get(), 10, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(GMemSize(block), 100 - kHeader);
  EXPECT_EQ(spy.lastBlock, static_cast<unsigned char*>(block) - kHeader);
  GMemFree(block);
}

TEST(MemoryManager, FreeOfNullDoesNothing) {
  SpyManager spy;
  ScopedDefaultManager scope(spy.Get());
  GMemFree(nullptr);
  EXPECT_EQ(spy.Calls(), 0);
}

TEST(MemoryManager, FreeGivesTheManagersOwnBlockBack) {
  SpyManager spy;
  void* block = GMemAllocation(spy.Get(), 10, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  void* managerBlock = spy.lastBlock;
  GMemFree(block);
  EXPECT_EQ(spy.releases, 1);
  EXPECT_EQ(spy.lastBlock, managerBlock);
  EXPECT_EQ(spy.lastSelf, spy.Get());
}

TEST(MemoryManager, NullOwnerWordIsReadAsTheSystemManager) {
  // The spy keeps its blocks on the system heap, so the system manager can
  // measure and free them.
  SpyManager spy;
  void* block = GMemAllocation(spy.Get(), 48, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  SetOwnerWord(block, nullptr);
  EXPECT_GE(GMemSize(block), 48u);
  block = GMemReallocation(block, 96);
  EXPECT_GE(GMemSize(block), 96u);
  GMemFree(block);
  EXPECT_EQ(spy.allocations, 1);
  EXPECT_EQ(spy.sizes + spy.reallocations + spy.releases, 0);
}

// --- Reallocation ---

TEST(MemoryManager, ReallocationOfNullGivesZeroFilledSystemBlockEvenWithDefault) {
  SpyManager spy;
  ScopedDefaultManager scope(spy.Get());
  const ULONG size = 200;
  void* dirty[4];
  for (void*& block : dirty) {
    block = GMemAllocation(gSysManager, size, /*mode=*/1);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0xA5, size);
  }
  for (void* block : dirty)
    GMemFree(block);

  void* block = GMemReallocation(nullptr, size);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(OwnerWord(block), gSysManager);
  EXPECT_TRUE(AllBytesAre(block, size, 0));
  EXPECT_GE(GMemSize(block), size);
  GMemFree(block);
  EXPECT_EQ(spy.Calls(), 0);
}

TEST(MemoryManager, ReallocationKeepsContentsAndOwner) {
  unsigned char* block = static_cast<unsigned char*>(GMemAllocation(nullptr, 64, /*mode=*/1));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 64; ++i)
    block[i] = static_cast<unsigned char>(i);
  block = static_cast<unsigned char*>(GMemReallocation(block, 8192));
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 64; ++i)
    ASSERT_EQ(block[i], i);
  EXPECT_EQ(OwnerWord(block), gSysManager);
  EXPECT_GE(GMemSize(block), 8192u);
  GMemFree(block);
}

TEST(MemoryManager, ReallocationAsksTheOwnerForTheHeaderMore) {
  SpyManager spy;
  void* block = GMemAllocation(spy.Get(), 16, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  void* managerBlock = spy.lastBlock;
  block = GMemReallocation(block, 300);
  EXPECT_EQ(spy.reallocations, 1);
  EXPECT_EQ(spy.lastSelf, spy.Get());
  EXPECT_EQ(spy.lastBlock, managerBlock);
  EXPECT_EQ(spy.lastSize, 300 + kHeader);
  EXPECT_EQ(OwnerWord(block), spy.Get());
  GMemFree(block);
}

TEST(MemoryManager, ReallocationDoesNotRewriteTheOwnerWord) {
  SpyManager owner, stamped;
  owner.stampOwner = stamped.Get();
  void* block = GMemAllocation(owner.Get(), 16, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  block = GMemReallocation(block, 32);
  // Whatever the manager's block holds in front stays there.
  EXPECT_EQ(OwnerWord(block), stamped.Get());
  GMemFree(block);
  EXPECT_EQ(stamped.releases, 1);
  EXPECT_EQ(owner.releases, 0);
}

TEST(MemoryManager, FailedReallocationReturnsHeaderSizeAsAddress) {
  // Deliberate: no null test on the manager's result.
  SpyManager spy;
  void* block = GMemAllocation(spy.Get(), 16, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  std::memset(block, 0x42, 16);
  spy.failReallocate = true;
  void* result = GMemReallocation(block, 1024);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(result), kHeader);
  EXPECT_NE(result, nullptr);
  // The original block is untouched and still the caller's.
  EXPECT_TRUE(AllBytesAre(block, 16, 0x42));
  GMemFree(block);
  EXPECT_EQ(spy.releases, 1);
}

TEST(MemoryManager, ReallocationWithNoRoomForTheHeaderFailsWithoutAskingTheManager) {
  SpyManager spy;
  void* block = GMemAllocation(spy.Get(), 16, /*mode=*/0);
  ASSERT_NE(block, nullptr);
  void* result = GMemReallocation(block, 0xFFFFFFFFu);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(result), kHeader);
  EXPECT_EQ(spy.reallocations, 0);
  GMemFree(block);
}

// --- Statistics ---

TEST(MemoryManager, StatsWithAllOutPointersNullDoesNothing) {
  GMemStats(nullptr, nullptr, nullptr, nullptr);
  GMemStats(gSysManager, nullptr, nullptr, nullptr);
  EXPECT_EQ(GGetDefaultMemManager(), nullptr);
  // The manager is still asked, with nothing to fill in.
  SpyManager spy;
  GMemStats(spy.Get(), nullptr, nullptr, nullptr);
  EXPECT_EQ(spy.stats, 1);
  EXPECT_EQ(spy.lastTotal, nullptr);
  EXPECT_EQ(spy.lastAvailable, nullptr);
  EXPECT_EQ(spy.lastLargest, nullptr);
}

TEST(MemoryManager, SystemStatsReportAvailableAgainAsLargest) {
  // Deliberate: there is no true largest free block.
  ULONG total = 0, available = 0, largest = 0;
  GMemStats(nullptr, &total, &available, &largest);
  EXPECT_GT(total, 0u);
  EXPECT_GT(available, 0u);
  EXPECT_LE(available, total);
  EXPECT_EQ(largest, available);
}

TEST(MemoryManager, SystemStatsSkipNullOutPointers) {
  ULONG total = 0;
  GMemStats(gSysManager, &total, nullptr, nullptr);
  EXPECT_GT(total, 0u);
  ULONG largest = 0;
  GMemStats(gSysManager, nullptr, nullptr, &largest);
  EXPECT_GT(largest, 0u);
}

TEST(MemoryManager, StatsAskTheManagerResolvedLikeAllocation) {
  SpyManager named, fallback;
  ULONG total = 0, available = 0, largest = 0;
  GMemStats(named.Get(), &total, &available, &largest);
  EXPECT_EQ(named.stats, 1);
  EXPECT_EQ(named.lastSelf, named.Get());
  EXPECT_EQ(total, 3000u);
  EXPECT_EQ(available, 2000u);
  EXPECT_EQ(largest, 1000u);

  ScopedDefaultManager scope(fallback.Get());
  GMemStats(nullptr, &total, nullptr, nullptr);
  EXPECT_EQ(fallback.stats, 1);
  EXPECT_EQ(fallback.lastSelf, fallback.Get());
  GMemStats(named.Get(), &total, nullptr, nullptr);
  EXPECT_EQ(named.stats, 2);
  EXPECT_EQ(fallback.stats, 1);
}

// --- Object allocation ---

TEST(MemoryManager, CppAllocationIgnoresTheManager) {
  SpyManager spy;
  ScopedDefaultManager scope(spy.Get());
  void* object = GCPPAllocation(64, spy.Get());
  ASSERT_NE(object, nullptr);
  std::memset(object, 0x11, 64);
  EXPECT_TRUE(AllBytesAre(object, 64, 0x11));
  ::operator delete(object);
  object = GCPPAllocation(8, nullptr);
  ASSERT_NE(object, nullptr);
  ::operator delete(object);
  EXPECT_EQ(spy.Calls(), 0);
}

} // namespace
