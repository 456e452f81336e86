// ComClassesPosix.cpp - no system class store on POSIX.
// Part of qvbase, the QVKernel foundation class library.
#include "native/ComClasses.h"

namespace qvbase {
namespace native {

HRESULT CreateSystemInstance(REFCLSID, DWORD, REFIID, void**) { return REGDB_E_CLASSNOTREG; }

} // namespace native
} // namespace qvbase
