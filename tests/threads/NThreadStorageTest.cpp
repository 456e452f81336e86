// Per-thread values: the Tls* slots with their Win32 meanings on every
// target, the storage's per-thread hooks, its copy, and the process-wide
// storage list.
#include <qvbase/NThreadStorage.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

// A slot index of the test's own, freed at the end.
class ScopedTlsIndex {
public:
  ScopedTlsIndex() : m_index(TlsAlloc()) {}
  ~ScopedTlsIndex() {
    if (m_index != TLS_OUT_OF_INDEXES)
      TlsFree(m_index);
  }
  ScopedTlsIndex(const ScopedTlsIndex&) = delete;
  ScopedTlsIndex& operator=(const ScopedTlsIndex&) = delete;
  DWORD Get() const { return m_index; }

private:
  DWORD m_index;
};

// Each thread's value is an int; the storage counts what it was asked.
class IntStorage : public NThreadStorage {
public:
  mutable int created = 0;
  mutable int destroyed = 0;
  mutable std::vector<const void*> copiedFrom;
  mutable std::vector<void*> copiedInto;

protected:
  void* CreateValue() const override {
    ++created;
    return new int(100 + created);
  }
  void DestroyValue(void* value) const override {
    ++destroyed;
    delete static_cast<int*>(value);
  }
  void CopyValue(const void* source, void* current) const override {
    copiedFrom.push_back(source);
    copiedInto.push_back(current);
    if (current)
      *static_cast<int*>(current) = *static_cast<const int*>(source);
  }
};

TEST(ThreadLocalSlots, NewSlotIsNullInEveryThread) {
  ScopedTlsIndex index;
  ASSERT_NE(index.Get(), TLS_OUT_OF_INDEXES);
  EXPECT_EQ(TlsGetValue(index.Get()), nullptr);
  void* seen = &seen;
  std::thread([&] { seen = TlsGetValue(index.Get()); }).join();
  EXPECT_EQ(seen, nullptr);
}

TEST(ThreadLocalSlots, ValueSetInOneThreadIsNotSeenByAnother) {
  ScopedTlsIndex index;
  int mine = 1;
  int theirs = 2;
  ASSERT_EQ(TlsSetValue(index.Get(), &mine), TRUE);
  void* seenThere = nullptr;
  void* seenBack = nullptr;
  std::thread([&] {
    seenBack = TlsGetValue(index.Get());
    TlsSetValue(index.Get(), &theirs);
    seenThere = TlsGetValue(index.Get());
  }).join();
  EXPECT_EQ(seenBack, nullptr);
  EXPECT_EQ(seenThere, &theirs);
  EXPECT_EQ(TlsGetValue(index.Get()), &mine);
}

TEST(ThreadLocalSlots, TwoSlotsAreDistinct) {
  ScopedTlsIndex a;
  ScopedTlsIndex b;
  ASSERT_NE(a.Get(), b.Get());
  int x = 0;
  TlsSetValue(a.Get(), &x);
  EXPECT_EQ(TlsGetValue(b.Get()), nullptr);
}

TEST(ThreadLocalSlots, FreedSlotForgetsItsValuesAndCannotBeFreedTwice) {
  DWORD index = TlsAlloc();
  ASSERT_NE(index, TLS_OUT_OF_INDEXES);
  int x = 0;
  TlsSetValue(index, &x);
  EXPECT_EQ(TlsFree(index), TRUE);
  EXPECT_EQ(TlsFree(index), FALSE);
  // A slot made afterwards (possibly the same index) starts null.
  ScopedTlsIndex again;
  EXPECT_EQ(TlsGetValue(again.Get()), nullptr);
}

TEST(ThreadLocalSlots, NoIndexIsRefused) {
  EXPECT_EQ(TlsGetValue(TLS_OUT_OF_INDEXES), nullptr);
  int x = 0;
  EXPECT_EQ(TlsSetValue(TLS_OUT_OF_INDEXES, &x), FALSE);
  EXPECT_EQ(TlsFree(TLS_OUT_OF_INDEXES), FALSE);
}

TEST(NThreadStorage, StorageWithoutIndexAnswersNull) {
  IntStorage storage;
  EXPECT_EQ(storage.Index(), TLS_OUT_OF_INDEXES);
  EXPECT_EQ(storage.GetPtr(), nullptr);
}

TEST(NThreadStorage, ThreadScopeCreatesTheValueAndDestroysItAtTheEnd) {
  ScopedTlsIndex index;
  IntStorage storage;
  storage.SetIndex(index.Get());
  {
    NThreadStorage::ThreadScope scope(storage);
    EXPECT_EQ(storage.created, 1);
    ASSERT_NE(storage.GetPtr(), nullptr);
    EXPECT_EQ(*static_cast<int*>(storage.GetPtr()), 101);
    EXPECT_EQ(TlsGetValue(index.Get()), storage.GetPtr());
  }
  EXPECT_EQ(storage.destroyed, 1);
  EXPECT_EQ(storage.GetPtr(), nullptr);
}

TEST(NThreadStorage, EachThreadHasItsOwnValue) {
  ScopedTlsIndex index;
  IntStorage storage;
  storage.SetIndex(index.Get());
  NThreadStorage::ThreadScope scope(storage);
  void* mine = storage.GetPtr();
  void* theirs = nullptr;
  void* afterTheirs = nullptr;
  void* beforeScope = &beforeScope;
  std::thread([&] {
    beforeScope = storage.GetPtr(); // no scope yet on this thread
    NThreadStorage::ThreadScope inner(storage);
    theirs = storage.GetPtr();
  }).join();
  afterTheirs = storage.GetPtr();
  EXPECT_EQ(beforeScope, nullptr);
  EXPECT_NE(theirs, nullptr);
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(afterTheirs, mine);
  EXPECT_EQ(storage.created, 2);
  EXPECT_EQ(storage.destroyed, 1);
}

TEST(NThreadStorage, SetFromCopiesIntoTheCallingThreadsValue) {
  ScopedTlsIndex index;
  IntStorage storage;
  storage.SetIndex(index.Get());
  NThreadStorage::ThreadScope scope(storage);
  int source = 42;
  storage.SetFrom(&source);
  ASSERT_EQ(storage.copiedFrom.size(), 1u);
  EXPECT_EQ(storage.copiedFrom[0], &source);
  EXPECT_EQ(storage.copiedInto[0], storage.GetPtr());
  EXPECT_EQ(*static_cast<int*>(storage.GetPtr()), 42);
}

TEST(NThreadStorage, CopyTakesTheIndexAndTheSecondWord) {
  IntStorage storage;
  storage.SetIndex(7);
  storage.SetUserWord(0xCAFE);
  IntStorage copy(storage);
  EXPECT_EQ(copy.Index(), 7u);
  EXPECT_EQ(copy.UserWord(), 0xCAFEu);
  IntStorage assigned;
  assigned = storage;
  EXPECT_EQ(assigned.Index(), 7u);
  EXPECT_EQ(assigned.UserWord(), 0xCAFEu);
}

TEST(NThreadStorage, ProcessWideListAndMutexExistFromStartUp) {
  NThreadStorage::Init(); // nothing to prepare
  NMutex& mutex = NThreadStorage::RegistryMutex();
  ASSERT_TRUE(mutex.Lock()); // initialised and free
  LinkedList<NThreadStorage>& storages = NThreadStorage::Registry();
  EXPECT_EQ(storages.Size(), 0u); // the library keeps nothing there
  IntStorage storage;
  storages.AddTail(&storage);
  EXPECT_EQ(storages.First(), &storage);
  storages.Remove(&storage);
  mutex.Unlock();
  NThreadStorage::Uninit(); // and nothing to undo
  EXPECT_TRUE(mutex.Lock());
  mutex.Unlock();
}

} // namespace
