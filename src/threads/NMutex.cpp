// NMutex.cpp - a recursive lock with an explicit two-phase life.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/NMutex.h>

#include <qvbase/MemoryManager.h>
#include <qvbase/PErrorCodes.h>

#include "errors/RaiseError.h"
#include "native/Threads.h"

namespace {

// The error's defined source position, not a path of this tree.
const char kSourceFile[] = "src\\NMutex";
constexpr ULONG kStillAttachedLine = 69;

qvbase::native::RecursiveLock* LockOf(void* section) {
  return static_cast<qvbase::native::RecursiveLock*>(section);
}

} // namespace

NMutex::NMutex() : m_section(nullptr) {
  void* memory =
      GMemAllocation(nullptr, static_cast<ULONG>(qvbase::native::RecursiveLockSize()), /*mode=*/0);
  if (!memory)
    return; // no critical section: Init and Lock answer false
  if (!qvbase::native::InitRecursiveLock(LockOf(memory))) {
    GMemFree(memory);
    return;
  }
  m_section = memory;
  // Deliberately held by the constructing thread until Init: the owner sets
  // up what the mutex guards first.
  qvbase::native::EnterRecursiveLock(LockOf(m_section));
}

NMutex::NMutex(const NMutex& other) : PRoot(other), m_section(other.m_section) {}

NMutex& NMutex::operator=(const NMutex& other) {
  m_section = other.m_section;
  return *this;
}

NMutex::~NMutex() {
  if (!m_section)
    return;
  // A forgotten Uninit is a defect: reported as fatal, and the critical
  // section is left as it is (another copy may still use it).
  try {
    qvbase::errors::Raise(kErrMutexStillAttached, ErrorSeverityFatal, kSourceFile,
                          kStillAttachedLine);
  } catch (const PError&) {
    // Signalled through the protections and the trace already; a destructor
    // cannot pass it on.
  }
}

bool NMutex::Init() {
  if (!m_section)
    return false;
  qvbase::native::LeaveRecursiveLock(LockOf(m_section));
  return true;
}

bool NMutex::Lock() const {
  if (!m_section)
    return false;
  qvbase::native::EnterRecursiveLock(LockOf(m_section));
  return true;
}

void NMutex::Unlock() const { qvbase::native::LeaveRecursiveLock(LockOf(m_section)); }

void NMutex::Uninit() {
  void* section = m_section;
  if (!section)
    return;
  qvbase::native::EnterRecursiveLock(LockOf(section));
  m_section = nullptr;
  qvbase::native::LeaveRecursiveLock(LockOf(section));
  qvbase::native::DestroyRecursiveLock(LockOf(section));
  GMemFree(section);
}
