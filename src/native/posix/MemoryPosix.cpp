// MemoryPosix.cpp - heap block sizes and the memory status on POSIX systems.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Memory.h"

#include <cstdio>
#include <limits>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace qvbase {
namespace native {

namespace {

constexpr std::uint64_t kMax32 = 0xFFFFFFFFu;

std::uint32_t ClampTo32(std::uint64_t value) {
  return static_cast<std::uint32_t>(value > kMax32 ? kMax32 : value);
}

// Everything a pointer of this process can address: 4 GiB for a 32-bit
// program, effectively unbounded for a 64-bit one (it is clamped anyway).
std::uint64_t PointerSpan() {
  if (sizeof(void*) == 4)
    return std::uint64_t(1) << 32;
  return std::numeric_limits<std::uint64_t>::max();
}

std::uint64_t AddressSpaceLimit() {
  std::uint64_t span = PointerSpan();
  struct rlimit limit;
  if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      static_cast<std::uint64_t>(limit.rlim_cur) < span)
    return static_cast<std::uint64_t>(limit.rlim_cur);
  return span;
}

// The process's current virtual size in bytes, from the first field of
// /proc/self/statm (pages); false when it cannot be read.
bool VirtualSize(std::uint64_t* bytes) {
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (!file)
    return false;
  unsigned long long pages = 0;
  bool ok = std::fscanf(file, "%llu", &pages) == 1;
  std::fclose(file);
  long pageSize = sysconf(_SC_PAGESIZE);
  if (!ok || pageSize <= 0)
    return false;
  *bytes = static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
  return true;
}

} // namespace

std::size_t HeapBlockSize(void* block) { return block ? malloc_usable_size(block) : 0; }

MemoryStatus QueryMemoryStatus() {
  std::uint64_t total = AddressSpaceLimit();
  std::uint64_t used = 0;
  std::uint64_t available = total;
  if (VirtualSize(&used))
    available = used < total ? total - used : 0;
  return MemoryStatus{ClampTo32(total), ClampTo32(available)};
}

} // namespace native
} // namespace qvbase
