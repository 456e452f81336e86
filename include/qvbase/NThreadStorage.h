// NThreadStorage.h - a per-thread value made, destroyed and copied by a
// subclass.
// Part of qvbase, the QVKernel foundation class library.
//
// An NThreadStorage names one thread-local slot (a Win32 TLS index) and
// knows how to create, destroy and copy the value that each thread keeps in
// it; a subclass supplies those three operations. The library never
// allocates or frees a slot index: the application gets one with TlsAlloc
// (offered on every target by QVCompat.h), sets it with SetIndex before the
// storage is used, and frees it with TlsFree after the last thread is done.
// A thread runs the per-thread hooks with a ThreadScope: the value is created
// when the thread's work starts and destroyed when it ends.
//
//   class PCounterStorage : public NThreadStorage {
//     void* CreateValue() const override { return new int(0); }
//     void DestroyValue(void* v) const override { delete static_cast<int*>(v); }
//     void CopyValue(const void* s, void* v) const override { ... }
//   } counters;
//   counters.SetIndex(TlsAlloc());
//   std::thread([&] { NThreadStorage::ThreadScope scope(counters); ... counters.GetPtr() ... });
//
// Values are strictly per thread. The storage object itself is shared by
// every thread and must not change (SetIndex, assignment) while they use it.
//
// The library also keeps, from start-up to exit, one process-wide list of
// storages with the mutex that guards it (Registry, RegistryMutex), for
// applications that keep their storages in one place; the library itself
// puts nothing in it.
#pragma once

#include <qvbase/NMutex.h>
#include <qvbase/PList.h>
#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// A per-thread value whose making, destruction and copying a subclass
// provides, kept in a thread-local slot the application gives it.
class QVBASE_API NThreadStorage : public PRoot {
public:
  // Sets no index. The index reads as TLS_OUT_OF_INDEXES until SetIndex, so
  // that a storage used too early answers null instead of reading some other
  // slot.
  NThreadStorage();
  // Both copy the index and the second word.
  NThreadStorage(const NThreadStorage& other);
  NThreadStorage& operator=(const NThreadStorage& other);
  ~NThreadStorage() override;

  // The calling thread's value (TlsGetValue of the index).
  void* GetPtr() const;
  // CopyValue(source, the calling thread's value).
  void SetFrom(const void* source);

  ULONG Index() const { return m_index; }
  void SetIndex(ULONG index) { m_index = index; }
  // A word of the application's, copied with the storage and otherwise
  // unused.
  ULONG UserWord() const { return m_userWord; }
  void SetUserWord(ULONG word) { m_userWord = word; }

  // Do nothing: nothing has to be prepared for storages, nor undone.
  static void Init();
  static void Uninit();

  // The process-wide list of storages and its mutex, both there from
  // start-up to exit. The mutex is free (Init was called); hold it while
  // walking or changing the list from several threads.
  static LinkedList<NThreadStorage>& Registry();
  static NMutex& RegistryMutex();

  // Runs the per-thread hooks of one storage on the thread that makes it:
  // the constructor creates the calling thread's value and stores it in the
  // slot, the destructor passes it to DestroyValue and empties the slot.
  class QVBASE_API ThreadScope {
  public:
    explicit ThreadScope(const NThreadStorage& storage);
    ~ThreadScope();
    ThreadScope(const ThreadScope&) = delete;
    ThreadScope& operator=(const ThreadScope&) = delete;

  private:
    const NThreadStorage& m_storage;
  };

protected:
  // A new value for the calling thread.
  virtual void* CreateValue() const = 0;
  // Destroys a value CreateValue made (null when the thread set none).
  virtual void DestroyValue(void* value) const = 0;
  // Copies `source` into the calling thread's value `current`.
  virtual void CopyValue(const void* source, void* current) const = 0;

private:
  void LocalThreadInit() const;
  void LocalThreadUninit() const;

  ULONG m_index;
  ULONG m_userWord;
};
