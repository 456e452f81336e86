// ResourcesWin32.cpp - resource modules through the Windows loader.
// Part of qvbase, the QVKernel foundation class library.
#include <windows.h>

#include "native/Resources.h"

#include <QVResModule.h>

namespace qvbase {
namespace native {

void* FindModuleResource(void* module, const char* name, const char* type) {
  return FindResourceA(static_cast<HMODULE>(module), name, type);
}

ULONG ModuleResourceSize(void* module, void* resource) {
  return SizeofResource(static_cast<HMODULE>(module), static_cast<HRSRC>(resource));
}

void* LoadModuleResource(void* module, void* resource) {
  return LoadResource(static_cast<HMODULE>(module), static_cast<HRSRC>(resource));
}

void* LockModuleResource(void* loaded) { return LockResource(static_cast<HGLOBAL>(loaded)); }

int LoadModuleString(void* module, ULONG id, char* buffer, int size) {
  return LoadStringA(static_cast<HINSTANCE>(module), id, buffer, size);
}

ULONG ModuleFileName(void* module, char* buffer, ULONG size) {
  const DWORD length = GetModuleFileNameA(static_cast<HMODULE>(module), buffer, size);
  if (length != 0 || !module)
    return length;
  // A resource module loaded as a data file: QVComponent knows its path.
  return QVRes_GetModuleFileName(module, buffer, size);
}

} // namespace native
} // namespace qvbase
