// ResourcesPosix.cpp - resource modules through QVComponent's reader.
// Part of qvbase, the QVKernel foundation class library.
//
// The calls resolve against QVComponent, which the library links; only the
// library uses this part of the layer.
#include "native/Process.h"
#include "native/Resources.h"

#include <QVResModule.h>

namespace qvbase {
namespace native {

void* FindModuleResource(void* module, const char* name, const char* type) {
  return QVRes_FindResource(module, name, type);
}

ULONG ModuleResourceSize(void* module, void* resource) {
  return QVRes_SizeofResource(module, resource);
}

void* LoadModuleResource(void* module, void* resource) {
  return QVRes_LoadResource(module, resource);
}

void* LockModuleResource(void* loaded) { return QVRes_LockResource(loaded); }

int LoadModuleString(void* module, ULONG id, char* buffer, int size) {
  return QVRes_LoadString(module, id, buffer, size);
}

ULONG ModuleFileName(void* module, char* buffer, ULONG size) {
  if (module)
    return QVRes_GetModuleFileName(module, buffer, size);
  // The null handle stands for the running executable, as on Windows.
  return CopyModulePath(ExecutablePath(), buffer, size);
}

} // namespace native
} // namespace qvbase
