// ComClasses.h - in-process classes that CreateInstance serves.
// Part of qvbase, the QVKernel foundation class library.
//
// CreateInstance behaves like CoCreateInstance for the library: a class that
// this process registered with RegisterClassFactory is created by its creation
// function, on every platform. Any other class goes, on Windows, to the
// system's CoCreateInstance (COM is initialised for the calling thread first
// when it is not yet, as a single-threaded apartment; a thread already in
// another apartment keeps it). On POSIX there is no system class store, so any
// other class is REGDB_E_CLASSNOTREG.
//
// The table is process-wide and guarded by a mutex, because modules may fill
// it from their static initialisers on any thread; creation functions run
// outside the lock, so they may themselves create instances or register
// classes. Aggregation is never offered: the library always creates whole
// objects.
//
//   static HRESULT CreateCounter(REFIID iid, void** out) {
//     Counter* c = new Counter;               // count starts at 0
//     HRESULT hr = c->QueryInterface(iid, out);
//     if (FAILED(hr)) delete c;
//     return hr;
//   }
//   RegisterClassFactory(CLSID_Counter, &CreateCounter);
#pragma once

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace native {

// Creates an object of the class and stores its `iid` interface, with one
// reference, in `*out`; on failure it returns the failure and leaves `*out`
// null.
typedef HRESULT (*ClassCreateFunction)(REFIID iid, void** out);

// Registers (or, for a class already registered, replaces) the creation
// function of `clsid` for the whole process. E_INVALIDARG for a null function.
HRESULT RegisterClassFactory(REFCLSID clsid, ClassCreateFunction create);

// Removes the registration; REGDB_E_CLASSNOTREG when there was none.
HRESULT UnregisterClassFactory(REFCLSID clsid);

// As CoCreateInstance: E_POINTER for a null `out`; otherwise `*out` is null
// unless the call succeeds. A non-null `outer` is CLASS_E_NOAGGREGATION.
// `context` is ignored for classes of this process (they are always
// in-process) and passed to the system for the others on Windows.
HRESULT CreateInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid, void** out);

// The system's class store, which CreateInstance asks for classes this process
// has not registered: CoCreateInstance without aggregation on Windows,
// REGDB_E_CLASSNOTREG on POSIX. `out` is non-null and already null.
HRESULT CreateSystemInstance(REFCLSID clsid, DWORD context, REFIID iid, void** out);

} // namespace native
} // namespace qvbase
