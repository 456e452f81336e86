// Threads.h - the platform layer's recursive locks and thread-local values.
// Part of qvbase, the QVKernel foundation class library.
//
// A recursive lock is the Win32 CRITICAL_SECTION on Windows and a recursive
// pthread mutex on POSIX: mutual exclusion between threads, re-entry by the
// thread that holds it, no time-out. It lives in memory the caller provides
// (RecursiveLockSize() bytes, aligned as a heap block is), so that the caller
// decides where it comes from.
//
// Thread-local values are the Win32 TLS slots on Windows and pthread
// thread-specific data on POSIX: an index names a slot that every thread
// has, holding one pointer per thread, null until the thread sets it. Freeing
// an index forgets every thread's value in it.
//
// All functions may be called from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvbase {
namespace native {

struct RecursiveLock;

// The bytes a recursive lock needs.
std::size_t RecursiveLockSize();

// Makes a lock, free, in `memory`; false when the system refused (the memory
// then holds no lock).
bool InitRecursiveLock(RecursiveLock* lock);
// Blocks until the calling thread holds the lock; a thread that holds it
// already enters again at once. Each enter needs its leave.
void EnterRecursiveLock(RecursiveLock* lock);
void LeaveRecursiveLock(RecursiveLock* lock);
// Destroys a lock nobody holds; the memory stays the caller's.
void DestroyRecursiveLock(RecursiveLock* lock);

// The index AllocThreadValueIndex answers when no slot is left, and that no
// slot ever has.
constexpr std::uint32_t kNoThreadValueIndex = 0xFFFFFFFFu;

// A new slot, null in every thread; kNoThreadValueIndex when none is left.
std::uint32_t AllocThreadValueIndex();
// Frees a slot; false for an index that is not allocated.
bool FreeThreadValueIndex(std::uint32_t index);
// The calling thread's value; null when it set none or the index is not
// allocated.
void* GetThreadValue(std::uint32_t index);
// Sets the calling thread's value; false for an index that is not allocated.
bool SetThreadValue(std::uint32_t index, void* value);

} // namespace native
} // namespace qvbase
