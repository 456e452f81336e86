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

// Loading a module at run time (dlopen, LoadLibraryA) and unloading it: its
// static objects are built at load and destroyed at unload.
typedef void* Module;
// The module at `path`; null, with the system's reason in `*error` (when
// not null), when it cannot be loaded.
Module OpenModule(const std::string& path, std::string* error);
// Unloads it; false for null or when the system refuses.
bool CloseModule(Module module);
// The address of an exported function or object; null when absent.
void* ModuleSymbol(Module module, const char* name);
// The file suffix of a loadable module here: ".so" or ".dll".
const char* ModuleSuffix();

} // namespace native
} // namespace qvbase
