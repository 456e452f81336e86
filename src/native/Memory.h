// Memory.h - the platform layer's view of the C runtime heap and the address space.
// Part of qvbase, the QVKernel foundation class library.
//
// What the system memory manager needs beyond malloc, calloc, realloc and
// free: the usable size of a heap block and the figures of the global memory
// status. Both are plain queries: they take no lock of their own and may be
// called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvbase {
namespace native {

// The usable size of a block that malloc, calloc or realloc of this C runtime
// returned: at least what was asked for, more when the heap rounded it up.
// 0 for null.
std::size_t HeapBlockSize(void* block);

// The process's virtual address space as a 32-bit program sees it. Figures
// larger than 32 bits are clamped to 0xFFFFFFFF, as the 32-bit memory status
// of Windows reports them.
struct MemoryStatus {
  std::uint32_t totalVirtual;
  std::uint32_t availableVirtual;
};

// On Windows, GlobalMemoryStatus's dwTotalVirtual and dwAvailVirtual. On
// POSIX, the total is the address-space limit of the process (RLIMIT_AS) when
// one is set, else the whole span its pointers can address; the available
// figure is that total less the process's current virtual size
// (/proc/self/statm), or the whole total when that cannot be read.
MemoryStatus QueryMemoryStatus();

} // namespace native
} // namespace qvbase
