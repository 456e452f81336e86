// Modules.h - the platform layer's loaded code modules (instances).
// Part of qvbase, the QVKernel foundation class library.
//
// A module instance is what Windows calls an HINSTANCE: the base address at
// which an executable or a shared library is loaded. The component registry
// knows a running module by its instance and needs the module's path; the
// library needs its own instance to declare itself. On Windows these are
// GetModuleHandleExA and GetModuleFileNameA; on ELF systems the instance is
// the start of the module's first loaded segment (what dladdr reports as
// its base), found among the loaded objects. Safe from any thread.
#pragma once

#include <string>

namespace qvbase {
namespace native {

// The instance of the loaded module that holds `address` (code or data of
// that module); null when no module holds it.
void* ModuleInstanceContaining(const void* address);

// The running executable's instance.
void* ApplicationInstance();

// The full path of the module loaded at `instance`. False, with `path`
// untouched, when no module is loaded there (any other address, null).
bool ModuleInstancePath(void* instance, std::string* path);

} // namespace native
} // namespace qvbase
