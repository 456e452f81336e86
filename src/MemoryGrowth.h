// MemoryGrowth.h - growing a GMem* block, for the library's own containers.
// Part of qvbase, the QVKernel foundation class library.
#pragma once

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace detail {

// A block of `newSize` bytes from the default manager that starts with the
// first `keep` bytes of `block` (which may be null), `block` being given back.
// Null when no block could be had; `block` is then untouched and still owned
// by the caller.
//
// The containers define their growth as "allocate a new block, copy, free the
// old one", and a manager installed by the application sees exactly those
// calls. When both the block's owner and the manager a new block would come
// from are the system manager, the C runtime resizes the block instead, in
// place where it can: nobody can tell the two apart except by speed, and
// growing a large block by small steps no longer copies it every time.
void* GrowBlock(void* block, ULONG keep, ULONG newSize);

} // namespace detail
} // namespace qvbase
