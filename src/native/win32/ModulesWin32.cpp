// ModulesWin32.cpp - loaded modules on Windows.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Modules.h"

#include <qvbase/QVCompat.h>

#include <string>
#include <vector>

namespace qvbase {
namespace native {

void* ModuleInstanceContaining(const void* address) {
  HMODULE module = nullptr;
  const DWORD flags =
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!address || !GetModuleHandleExA(flags, static_cast<LPCSTR>(address), &module))
    return nullptr;
  return module;
}

void* ApplicationInstance() { return GetModuleHandleA(nullptr); }

bool ModuleInstancePath(void* instance, std::string* path) {
  if (!instance)
    return false;
  // Paths may be longer than MAX_PATH; grow until the name fits.
  std::vector<char> buffer(260);
  for (;;) {
    DWORD length = GetModuleFileNameA(static_cast<HMODULE>(instance), buffer.data(),
                                      static_cast<DWORD>(buffer.size()));
    if (length == 0)
      return false;
    if (length < buffer.size()) {
      if (path)
        path->assign(buffer.data(), length);
      return true;
    }
    if (buffer.size() >= 32768)
      return false;
    buffer.resize(buffer.size() * 2);
  }
}

Module OpenModule(const std::string& path, std::string* error) {
  HMODULE module = LoadLibraryA(path.c_str());
  if (!module && error)
    *error =
        "LoadLibrary failed for " + path + " (system error " + std::to_string(GetLastError()) + ")";
  return module;
}

bool CloseModule(Module module) { return module && FreeLibrary(static_cast<HMODULE>(module)) != 0; }

void* ModuleSymbol(Module module, const char* name) {
  if (!module || !name)
    return nullptr;
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

const char* ModuleSuffix() { return ".dll"; }

} // namespace native
} // namespace qvbase
