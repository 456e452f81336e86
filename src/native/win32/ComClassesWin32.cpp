// ComClassesWin32.cpp - classes of the system's COM class store.
// Part of qvbase, the QVKernel foundation class library.
#include "native/ComClasses.h"

namespace qvbase {
namespace native {

namespace {

// COM must be initialised on a thread before CoCreateInstance works there.
// The first call on each thread joins a single-threaded apartment; S_FALSE
// (already initialised by someone else) and RPC_E_CHANGED_MODE (already in
// the multithreaded apartment) both leave the thread usable. The reference
// this takes is kept for the thread's life: the library cannot know when the
// thread's last COM object is gone.
void EnsureComOnThisThread() {
  static thread_local bool initialised = false;
  if (initialised)
    return;
  HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  initialised = SUCCEEDED(hr) || hr == RPC_E_CHANGED_MODE;
}

} // namespace

HRESULT CreateSystemInstance(REFCLSID clsid, DWORD context, REFIID iid, void** out) {
  EnsureComOnThisThread();
  return CoCreateInstance(clsid, nullptr, context, iid, out);
}

} // namespace native
} // namespace qvbase
