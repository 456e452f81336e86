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

} // namespace qvbase::test
