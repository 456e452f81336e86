// Lists when memory runs out or is watched: an insert without memory, and the
// array back end's growth under an installed manager, with the system heap's
// functions patched, and on the system heap itself.
#include <qvbase/MemoryManager.h>
#include <qvbase/PList.h>
#include <qvbase/PSmartData.h>

#include "PListTestSupport.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using qvbase::test::AsElement;
using qvbase::test::Contents;
using qvbase::test::Fill;
using qvbase::test::InspectedArray;
using qvbase::test::InspectedArrayConstructor;
using qvbase::test::Item;
using qvbase::test::Journal;
using qvbase::test::TestList;
using qvbase::test::Tracked;

// A memory manager that refuses every block, installed as the default.
void* RefuseAllocate(MemoryManager*, ULONG, unsigned short) { return nullptr; }
void* RefuseReallocate(MemoryManager*, void*, ULONG) { return nullptr; }
ULONG RefuseSize(MemoryManager*, void*) { return 0; }
void RefuseRelease(MemoryManager*, void*) {}
void RefuseStats(MemoryManager*, ULONG*, ULONG*, ULONG*) {}

class NoMemory {
public:
  NoMemory() : m_previous(GGetDefaultMemManager()) { GSetDefaultMemManager(&m_manager); }
  ~NoMemory() { GSetDefaultMemManager(m_previous); }

private:
  MemoryManager m_manager = {0,          "Refusing",    RefuseAllocate, RefuseReallocate,
                             RefuseSize, RefuseRelease, RefuseStats};
  MemoryManager* m_previous;
};

TEST(PList, ArrayInsertWithoutMemoryKeepsTheRaisedCapacity) {
  TestList list(InspectedArrayConstructor);
  auto* array = static_cast<InspectedArray*>(list.Data());
  Fill(list, 4);
  {
    NoMemory refuse;
    list.AddAnObjectTail(Item(4));
  }
  EXPECT_EQ(list.Size(), 4u);
  EXPECT_EQ(array->Capacity(), 8u);
  EXPECT_EQ(Contents(list), (std::vector<void*>{Item(0), Item(1), Item(2), Item(3)}));
  // With memory back, the next insert allocates the raised capacity
  // instead of writing past the four slots it still has.
  list.AddAnObjectTail(Item(4));
  EXPECT_EQ(list.Size(), 5u);
  EXPECT_EQ(array->Capacity(), 8u);
  for (int i = 5; i < 9; ++i)
    list.AddAnObjectTail(Item(i));
  EXPECT_EQ(array->Capacity(), 12u);
  EXPECT_EQ(list.GetAnObject(8), Item(8));
}

TEST(PList, LinkedInsertWithoutMemoryDoesNothing) {
  Journal journal;
  TestList list(GSmartListDataConstructor);
  auto* t = new Tracked(&journal, "t");
  t->AddRef();
  {
    NoMemory refuse;
    list.AddAnObjectTail(AsElement(t));
  }
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(t->NumSmartLocks(), 1u); // no reference was taken
  t->Release();
}

// A memory manager on the C heap that counts what it is asked, installed as
// the default.
struct Calls {
  int allocate = 0, reallocate = 0, release = 0;
};
Calls gCalls;
void* CountAllocate(MemoryManager*, ULONG size, unsigned short) {
  ++gCalls.allocate;
  return std::malloc(size);
}
void* CountReallocate(MemoryManager*, void* block, ULONG size) {
  ++gCalls.reallocate;
  return std::realloc(block, size);
}
ULONG CountSize(MemoryManager*, void*) { return 0; }
void CountRelease(MemoryManager*, void* block) {
  ++gCalls.release;
  std::free(block);
}

class CountedMemory {
public:
  CountedMemory() : m_previous(GGetDefaultMemManager()) {
    gCalls = Calls();
    GSetDefaultMemManager(&m_manager);
  }
  ~CountedMemory() { GSetDefaultMemManager(m_previous); }

private:
  MemoryManager m_manager = {0,         "Counting",   CountAllocate, CountReallocate,
                             CountSize, CountRelease, RefuseStats};
  MemoryManager* m_previous;
};

TEST(PList, ArrayGrowthUnderAnInstalledManagerAllocatesCopiesAndReleases) {
  CountedMemory counted;
  {
    TestList list(InspectedArrayConstructor);
    auto* array = static_cast<InspectedArray*>(list.Data());
    for (int i = 0; i < 9; ++i)
      list.AddAnObject(Item(i), static_cast<ULONG>(i / 2)); // growth with a tail to move
    EXPECT_EQ(array->Capacity(), 12u);
    // Three blocks (4, 8, 12 slots), the first two given back, nothing
    // resized behind the manager's back.
    EXPECT_EQ(gCalls.allocate, 3);
    EXPECT_EQ(gCalls.release, 2);
    EXPECT_EQ(gCalls.reallocate, 0);
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(1), Item(3), Item(5), Item(7), Item(8),
                                                  Item(6), Item(4), Item(2), Item(0)}));
  }
  EXPECT_EQ(gCalls.release, 3);
}

// The system record is writable: an application may route its functions
// through its own, and then sees every growth step as on its own manager.
TEST(PList, ArrayGrowthWithPatchedSystemFunctionsAllocatesCopiesAndReleases) {
  const MemoryManager original = *gSysManager;
  gCalls = Calls();
  gSysManager->allocate = CountAllocate;
  gSysManager->reallocate = CountReallocate;
  gSysManager->release = CountRelease;
  std::vector<void*> contents;
  ULONG capacity = 0;
  Calls seen;
  {
    TestList list(InspectedArrayConstructor);
    auto* array = static_cast<InspectedArray*>(list.Data());
    gCalls = Calls();
    for (int i = 0; i < 9; ++i)
      list.AddAnObject(Item(i), static_cast<ULONG>(i));
    seen = gCalls;
    capacity = array->Capacity();
    contents = Contents(list);
  }
  *gSysManager = original;
  EXPECT_EQ(capacity, 12u);
  EXPECT_EQ(seen.allocate, 3);
  EXPECT_EQ(seen.release, 2);
  EXPECT_EQ(seen.reallocate, 0);
  EXPECT_EQ(contents, (std::vector<void*>{Item(0), Item(1), Item(2), Item(3), Item(4), Item(5),
                                          Item(6), Item(7), Item(8)}));
}

TEST(PList, ArrayGrowthOnTheSystemHeapKeepsEveryElementInPlace) {
  // Inserted at the head, in the middle and at the tail across many growth
  // steps; the result must be the vector's.
  TestList list(InspectedArrayConstructor);
  auto* array = static_cast<InspectedArray*>(list.Data());
  std::vector<void*> model;
  for (int i = 0; i < 1000; ++i) {
    ULONG at = i % 3 == 0   ? 0
               : i % 3 == 1 ? static_cast<ULONG>(model.size() / 2)
                            : static_cast<ULONG>(model.size());
    list.AddAnObject(Item(i % 16), at);
    model.insert(model.begin() + at, Item(i % 16));
  }
  EXPECT_EQ(array->Capacity(), 1000u);
  EXPECT_EQ(Contents(list), model);
}

} // namespace
