// Resources.cpp - the parts of the resource layer that every platform shares.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Resources.h"

#include <cstring>

namespace qvbase {
namespace native {

ULONG CopyModulePath(const std::string& path, char* buffer, ULONG size) {
  if (!buffer || size == 0 || path.empty())
    return 0;
  if (path.size() < size) {
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return static_cast<ULONG>(path.size());
  }
  std::memcpy(buffer, path.data(), size - 1);
  buffer[size - 1] = '\0';
  return size;
}

} // namespace native
} // namespace qvbase
