// CopyBytes.h - the copies of the stream handlers' hot paths.
// Part of qvbase, the QVKernel foundation class library. Internal.
#pragma once

#include <cstddef>
#include <cstring>

namespace qvbase {
namespace streams {

// Copies `bytes` between a handler's block and a caller. The item sizes of
// typed values (1, 2, 4 and 8 bytes) get single moves the compiler inlines;
// only other sizes call memcpy.
inline void CopyBytes(char* to, const char* from, std::size_t bytes) {
  switch (bytes) {
  case 1:
    *to = *from;
    return;
  case 2:
    std::memcpy(to, from, 2);
    return;
  case 4:
    std::memcpy(to, from, 4);
    return;
  case 8:
    std::memcpy(to, from, 8);
    return;
  default:
    std::memcpy(to, from, bytes);
  }
}

} // namespace streams
} // namespace qvbase
