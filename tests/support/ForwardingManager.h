// ForwardingManager.h - memory manager calls that pass straight through to
// the system manager, for test managers that watch or refuse only some.
#pragma once

#include <qvbase/MemoryManager.h>

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

} // namespace qvbase::test
