// ThreadsWin32.cpp - recursive locks and thread-local values of Windows.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Threads.h"

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace native {

struct RecursiveLock {
  CRITICAL_SECTION section;
};

std::size_t RecursiveLockSize() { return sizeof(RecursiveLock); }

bool InitRecursiveLock(RecursiveLock* lock) {
  // Cannot fail on the systems the library supports (XP and later).
  ::InitializeCriticalSection(&lock->section);
  return true;
}

void EnterRecursiveLock(RecursiveLock* lock) { ::EnterCriticalSection(&lock->section); }

void LeaveRecursiveLock(RecursiveLock* lock) { ::LeaveCriticalSection(&lock->section); }

void DestroyRecursiveLock(RecursiveLock* lock) { ::DeleteCriticalSection(&lock->section); }

std::uint32_t AllocThreadValueIndex() {
  DWORD index = ::TlsAlloc();
  return index == TLS_OUT_OF_INDEXES ? kNoThreadValueIndex : static_cast<std::uint32_t>(index);
}

bool FreeThreadValueIndex(std::uint32_t index) { return ::TlsFree(index) != FALSE; }

void* GetThreadValue(std::uint32_t index) { return ::TlsGetValue(index); }

bool SetThreadValue(std::uint32_t index, void* value) {
  return ::TlsSetValue(index, value) != FALSE;
}

} // namespace native
} // namespace qvbase
