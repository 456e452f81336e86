// MemoryManager.h - pluggable raw-block allocation and object allocation.
// Part of qvbase, the QVKernel foundation class library.
//
// A MemoryManager is a record of functions that hand out raw blocks. The
// library brings one, gSysManager, which sits on the C runtime heap; a client
// may build its own record and install it as the process-wide default. The
// GMem* functions put a small header in front of every block they return,
// which remembers the manager that made it: a block is resized, measured and
// freed by that manager whatever the default is by then. The header is 4
// bytes on 32-bit targets and 16 bytes on 64-bit ones, so that blocks keep
// the runtime heap's alignment; its first word is the owner.
//
// Objects created with new (PRoot and everything derived from it) do not go
// through a MemoryManager at all: they get their memory from GCPPAllocation.
//
// No locks: the default-manager pointer is a plain word, meant to be set once
// at start-up before other threads allocate. The system manager is as
// thread-safe as the runtime heap. A manager installed as the default must
// outlive every block allocated through it.
//
//   void* buffer = GMemAllocation(nullptr, 256, /*mode=*/0);  // zero-filled
//   buffer = GMemReallocation(buffer, 512);
//   ULONG usable = GMemSize(buffer);                          // >= 512
//   GMemFree(buffer);
#pragma once

#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

extern "C" {

// A manager of raw blocks. Every function gets the record itself first, so
// that one set of functions may serve several records.
struct MemoryManager {
  // 0 in the system manager; the library never reads it.
  ULONG reserved;
  // Zero-terminated name; the system manager's is "System".
  const char* name;
  // A block of `size` bytes, or null. Mode 0 asks for zero-filled memory, any
  // other mode for uninitialised memory.
  void* (*allocate)(MemoryManager* self, ULONG size, unsigned short mode);
  // Resizes a block, keeping its leading bytes; the possibly moved block.
  void* (*reallocate)(MemoryManager* self, void* block, ULONG newSize);
  // The usable size of a block.
  ULONG (*size)(MemoryManager* self, void* block);
  // Gives a block back.
  void (*release)(MemoryManager* self, void* block);
  // The manager's totals; an out pointer that is null is skipped.
  void (*stats)(MemoryManager* self, ULONG* total, ULONG* available, ULONG* largest);
};

// The current default manager, possibly null (which means gSysManager).
QVBASE_API MemoryManager* GGetDefaultMemManager();

// Makes `manager` (which may be null) the default and returns it. No
// validation and no locking.
QVBASE_API MemoryManager* GSetDefaultMemManager(MemoryManager* manager);

// A block of `size` bytes from `manager`, else from the default manager, else
// from gSysManager; null when the manager has none. Mode 0 asks for
// zero-filled memory.
QVBASE_API void* GMemAllocation(MemoryManager* manager, ULONG size, unsigned short mode);

// Resizes a block through the manager that made it. A null block gives a
// zero-filled block of gSysManager (the default manager is not consulted).
// The result is never null: a failed reallocation returns the header size as
// an address (4 on 32-bit targets), so test the block size, not the pointer.
QVBASE_API void* GMemReallocation(void* block, ULONG newSize);

// Gives a block back to the manager that made it; null is ignored.
QVBASE_API void GMemFree(void* block);

// The usable size of a block (at least what was asked for); 0 for null.
QVBASE_API ULONG GMemSize(void* block);

// The totals of `manager`, resolved as GMemAllocation resolves it. Each out
// pointer may be null. gSysManager reports the process's total and available
// virtual address space, and the available figure again as the largest free
// block.
QVBASE_API void GMemStats(MemoryManager* manager, ULONG* total, ULONG* available, ULONG* largest);

} // extern "C"

// The system manager, on the C runtime heap. The record is static data that
// lives as long as the library.
extern QVBASE_API MemoryManager* const gSysManager;

// The one function through which library objects get memory: `size` bytes
// from the global allocation operator, which throws or returns null as the
// runtime does. `manager` is accepted and ignored.
QVBASE_API void* GCPPAllocation(unsigned int size, MemoryManager* manager);
