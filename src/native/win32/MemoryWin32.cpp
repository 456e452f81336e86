// MemoryWin32.cpp - heap block sizes and the memory status on Windows.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Memory.h"

#include <qvbase/QVCompat.h>

#include <malloc.h>

namespace qvbase {
namespace native {

namespace {

std::uint32_t ClampTo32(SIZE_T value) {
  const unsigned long long max32 = 0xFFFFFFFFu;
  unsigned long long wide = value;
  return static_cast<std::uint32_t>(wide > max32 ? max32 : wide);
}

} // namespace

std::size_t HeapBlockSize(void* block) { return block ? _msize(block) : 0; }

MemoryStatus QueryMemoryStatus() {
  MEMORYSTATUS status = {};
  status.dwLength = sizeof status;
  GlobalMemoryStatus(&status);
  return MemoryStatus{ClampTo32(status.dwTotalVirtual), ClampTo32(status.dwAvailVirtual)};
}

} // namespace native
} // namespace qvbase
