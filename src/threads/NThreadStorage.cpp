// NThreadStorage.cpp - per-thread values, the process-wide storage list, and
// the thread-local slots QVCompat.h offers outside Windows.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/NThreadStorage.h>

#include "native/Threads.h"

namespace {

// The process-wide list of storages and its mutex, made at library start-up
// and undone at exit.
struct StorageRegistry {
  LinkedList<NThreadStorage> storages;
  NMutex mutex;
  StorageRegistry() { mutex.Init(); }
  ~StorageRegistry() { mutex.Uninit(); }
};

StorageRegistry gStorageRegistry;

} // namespace

NThreadStorage::NThreadStorage() : m_index(TLS_OUT_OF_INDEXES), m_userWord(0) {}

NThreadStorage::NThreadStorage(const NThreadStorage& other)
    : PRoot(other), m_index(other.m_index), m_userWord(other.m_userWord) {}

NThreadStorage& NThreadStorage::operator=(const NThreadStorage& other) {
  m_index = other.m_index;
  m_userWord = other.m_userWord;
  return *this;
}

NThreadStorage::~NThreadStorage() = default;

void* NThreadStorage::GetPtr() const { return qvbase::native::GetThreadValue(m_index); }

void NThreadStorage::SetFrom(const void* source) { CopyValue(source, GetPtr()); }

void NThreadStorage::Init() {}

void NThreadStorage::Uninit() {}

LinkedList<NThreadStorage>& NThreadStorage::Registry() { return gStorageRegistry.storages; }

NMutex& NThreadStorage::RegistryMutex() { return gStorageRegistry.mutex; }

void NThreadStorage::LocalThreadInit() const {
  qvbase::native::SetThreadValue(m_index, CreateValue());
}

void NThreadStorage::LocalThreadUninit() const {
  DestroyValue(GetPtr());
  // The value is gone: GetPtr answers null rather than a dangling pointer.
  qvbase::native::SetThreadValue(m_index, nullptr);
}

NThreadStorage::ThreadScope::ThreadScope(const NThreadStorage& storage) : m_storage(storage) {
  m_storage.LocalThreadInit();
}

NThreadStorage::ThreadScope::~ThreadScope() { m_storage.LocalThreadUninit(); }

#if !defined(_WIN32)

DWORD TlsAlloc() { return qvbase::native::AllocThreadValueIndex(); }

BOOL TlsFree(DWORD index) { return qvbase::native::FreeThreadValueIndex(index) ? TRUE : FALSE; }

LPVOID TlsGetValue(DWORD index) { return qvbase::native::GetThreadValue(index); }

BOOL TlsSetValue(DWORD index, LPVOID value) {
  return qvbase::native::SetThreadValue(index, value) ? TRUE : FALSE;
}

#endif
