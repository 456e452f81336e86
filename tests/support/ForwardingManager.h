// ForwardingManager.h - memory manager calls that pass straight through to
// the system manager, for test managers that watch or refuse only some.
#pragma once

#include <qvbase/MemoryManager.h>

#include <vector>

namespace qvbase::test {

struct SystemCalls {
  static void* Allocate(MemoryManager*, ULONG size, unsigned short mode) {
    return gSysManager->allocate(gSysManager, size, mode);
  }
  static void* Reallocate(MemoryManager*, void* block, ULONG size) {
    return gSysManager->reallocate(gSysManager, block, size);
  }
  static ULONG Size(MemoryManager*, void* block) { return gSysManager->size(gSysManager, block); }
  static void Release(MemoryManager*, void* block) { gSysManager->release(gSysManager, block); }
  static void Stats(MemoryManager*, ULONG*, ULONG*, ULONG*) {}
};

// Installs a default manager that passes every call through and records the
// size of each block asked for, for the lifetime of the scope.
class ScopedAllocationLog {
public:
  ScopedAllocationLog() : m_previous(GGetDefaultMemManager()) {
    theirCurrent = this;
    GSetDefaultMemManager(&m_manager);
  }
  ~ScopedAllocationLog() {
    GSetDefaultMemManager(m_previous);
    theirCurrent = nullptr;
  }
  ScopedAllocationLog(const ScopedAllocationLog&) = delete;
  ScopedAllocationLog& operator=(const ScopedAllocationLog&) = delete;

  // Sizes in the order the blocks were asked for.
  std::vector<ULONG> sizes;

private:
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    if (theirCurrent)
      theirCurrent->sizes.push_back(size);
    return SystemCalls::Allocate(self, size, mode);
  }

  static inline ScopedAllocationLog* theirCurrent = nullptr;
  MemoryManager m_manager = {0,
                             "Logged",
                             Allocate,
                             SystemCalls::Reallocate,
                             SystemCalls::Size,
                             SystemCalls::Release,
                             SystemCalls::Stats};
  MemoryManager* m_previous;
};

// Installs a default manager that passes every call through and counts the
// blocks it allocates and releases, for the lifetime of the scope. Blocks it
// made go on naming it after the scope, so the strings and streams holding
// them must end before it does.
class ScopedAllocationCount {
public:
  ScopedAllocationCount() : m_previous(GGetDefaultMemManager()) {
    theirCurrent = this;
    GSetDefaultMemManager(&m_manager);
  }
  ~ScopedAllocationCount() {
    if (GGetDefaultMemManager() == &m_manager)
      GSetDefaultMemManager(m_previous);
    theirCurrent = nullptr;
  }
  ScopedAllocationCount(const ScopedAllocationCount&) = delete;
  ScopedAllocationCount& operator=(const ScopedAllocationCount&) = delete;

  // Stops being the default manager and puts the previous one back; blocks
  // it made are still counted when they are released.
  void Uninstall() { GSetDefaultMemManager(m_previous); }

  int allocations = 0;
  int releases = 0;

private:
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    if (theirCurrent)
      ++theirCurrent->allocations;
    return SystemCalls::Allocate(self, size, mode);
  }
  static void Release(MemoryManager* self, void* block) {
    if (theirCurrent)
      ++theirCurrent->releases;
    SystemCalls::Release(self, block);
  }

  static inline ScopedAllocationCount* theirCurrent = nullptr;
  MemoryManager m_manager = {
      0,       "Counted",         Allocate, SystemCalls::Reallocate, SystemCalls::Size,
      Release, SystemCalls::Stats};
  MemoryManager* m_previous;
};

// Replaces the system manager's allocate and release by ones that count
// their calls and then call the originals, and puts the originals back at
// the end of the scope: an application that patched the system record.
// Not to be combined with the managers above, which pass through to it.
class ScopedPatchedSystemCount {
public:
  ScopedPatchedSystemCount() : m_allocate(gSysManager->allocate), m_release(gSysManager->release) {
    theirCurrent = this;
    gSysManager->allocate = Allocate;
    gSysManager->release = Release;
  }
  ~ScopedPatchedSystemCount() {
    gSysManager->allocate = m_allocate;
    gSysManager->release = m_release;
    theirCurrent = nullptr;
  }
  ScopedPatchedSystemCount(const ScopedPatchedSystemCount&) = delete;
  ScopedPatchedSystemCount& operator=(const ScopedPatchedSystemCount&) = delete;

  int allocations = 0;
  int releases = 0;

private:
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    ++theirCurrent->allocations;
    return theirCurrent->m_allocate(self, size, mode);
  }
  static void Release(MemoryManager* self, void* block) {
    ++theirCurrent->releases;
    theirCurrent->m_release(self, block);
  }

  static inline ScopedPatchedSystemCount* theirCurrent = nullptr;
  decltype(MemoryManager::allocate) m_allocate;
  decltype(MemoryManager::release) m_release;
};

} // namespace qvbase::test
