// Resources.h - the platform layer's resource modules: finding and reading resources.
// Part of qvbase, the QVKernel foundation class library.
//
// The resource family reads strings and data from resource modules through
// these calls, which have the shape and the results of the Win32 calls named
// beside them. A module handle is what QVComponent hands out for a
// component's resource module (QVRes_LoadModule) or, on Windows, any module
// handle of the process.
//   - Windows: each is the system's call. A module loaded as a data file is
//     unknown to the loader's list of modules, so that ModuleFileName asks
//     QVComponent, which remembers the path it loaded, when the system
//     cannot name the file.
//   - Elsewhere: each is QVComponent's QVRes_* call on the resource module
//     it loaded from a compiled resource file or a PE image. ModuleFileName
//     of the null handle names the running executable, as on Windows; the
//     executable itself holds no resources there.
// All may be called from any thread.
#pragma once

#include <qvbase/QVCompat.h>

#include <string>

namespace qvbase {
namespace native {

// FindResourceA: the resource of that name and type, or null. A name or type
// up to 0xFFFF (as a pointer value) is a number, anything else a text.
void* FindModuleResource(void* module, const char* name, const char* type);

// SizeofResource: its size in bytes, 0 on failure.
ULONG ModuleResourceSize(void* module, void* resource);

// LoadResource, then LockResource: the address of its bytes, valid while
// the module stays loaded; null on failure.
void* LoadModuleResource(void* module, void* resource);
void* LockModuleResource(void* loaded);

// LoadStringA: string `id` as multibyte text, at most size - 1 bytes and a
// 0 byte; the number of bytes copied, 0 when the module lacks the string.
int LoadModuleString(void* module, ULONG id, char* buffer, int size);

// GetModuleFileNameA: the module's full path; its length, `size` when it
// was cut to size - 1 bytes, 0 on failure.
ULONG ModuleFileName(void* module, char* buffer, ULONG size);

// Copies a module's path with GetModuleFileNameA's buffer rules: the path
// and a 0 byte when they fit (the result is the path's length), else
// size - 1 bytes of it and a 0 byte (the result is `size`); 0, copying
// nothing, for a null buffer, a size of 0 or an empty path.
ULONG CopyModulePath(const std::string& path, char* buffer, ULONG size);

} // namespace native
} // namespace qvbase
