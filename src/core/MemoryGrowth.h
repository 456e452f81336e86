// MemoryGrowth.h - growing a GMem* block, for the library's own containers,
// and whether the calls on a block reach only the C runtime heap.
// Part of qvbase, the QVKernel foundation class library.
#pragma once

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace core {

// A block of at least `newSize` bytes from the default manager that starts
// with the first `keep` bytes of `block` (which may be null), `block` being
// given back. Null when no block could be had; `block` is then untouched and
// still owned by the caller.
//
// The containers define their growth as "allocate a new block, copy, free the
// old one", and a manager installed by the application sees exactly those
// calls. When both the block's owner and the manager a new block would come
// from are the system manager, the C runtime resizes the block instead, in
// place where it can, and at least doubled, so that a block grown by small
// steps is not copied at every step. The containers' capacities stay the
// ones they define; only GMemSize of the block, which is the runtime's
// usable size and at least what was asked anyway, can be larger.
void* GrowBlock(void* block, ULONG keep, ULONG newSize);

// Whether `block` (a non-null GMem* block) belongs to the manager that a new
// block would come from now, and that manager is the runtime heap: a record
// that still holds the system manager's allocate, reallocate and release.
// Then every call the library makes for the block, and for a new block in
// its place, ends in the C runtime and in no function an application
// installed or patched, so a caller may keep, resize or reuse the block
// instead of making those calls without anybody seeing the difference.
bool OwnedByDefaultRuntimeHeap(void* block);

} // namespace core

// The name GrowBlock had before the library's helpers took the names of
// their folders; kept for code written against it.
namespace detail {
using core::GrowBlock;
} // namespace detail
} // namespace qvbase
