// QVResModuleWin32.cpp - resource modules through the Windows loader.
// Part of qvbase, the QVKernel foundation class library.
//
// Each call is the system's. Around them this file keeps the modules it
// loaded and the resource handles it handed out, for two reasons: the system
// calls do not survive a made-up handle, which must give a failure here; and
// a module loaded as a data file is not in the loader's list, so that the
// system cannot name its file: QVRes_GetModuleFileName answers with the path
// it was loaded from.
#if defined(_WIN32)

#include <windows.h>

#include <QVResModule.h>

#include "native/Resources.h"

#include <map>
#include <mutex>
#include <set>
#include <string>

namespace {

struct Module {
  std::string path;
  int loads = 0;             // the system counts loads of one file; so do we
  std::set<HRSRC> resources; // the handles FindResource gave out for it
};

struct Registry {
  std::mutex lock;
  std::map<HMODULE, Module> modules;
};

Registry& Modules() {
  // Never destroyed: calls made while other static objects are destroyed
  // still find it.
  static Registry* registry = new Registry;
  return *registry;
}

Module* Loaded(void* handle) {
  auto found = Modules().modules.find(static_cast<HMODULE>(handle));
  return found == Modules().modules.end() ? nullptr : &found->second;
}

bool KnownResource(void* handle, void* resource) {
  Module* module = Loaded(handle);
  return module && resource && module->resources.count(static_cast<HRSRC>(resource)) != 0;
}

std::string FullPath(const char* path) {
  char full[MAX_PATH * 4];
  const DWORD length = GetFullPathNameA(path, sizeof full, full, nullptr);
  return length == 0 || length >= sizeof full ? std::string(path) : std::string(full, length);
}

} // namespace

extern "C" {

QVRES_API int QVRes_LoadModule(const char* path, void** module) {
  if (!module)
    return QVRES_BAD_ARGUMENT;
  *module = nullptr;
  if (!path)
    return QVRES_BAD_ARGUMENT;
  const DWORD attributes = GetFileAttributesA(path);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY))
    return QVRES_CANNOT_READ;
  HMODULE handle = LoadLibraryExA(path, nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (!handle)
    return QVRES_NOT_A_MODULE;
  Registry& registry = Modules();
  std::lock_guard<std::mutex> guard(registry.lock);
  // The same file loaded twice may come back as the same handle: each load
  // needs its own QVRes_FreeModule.
  Module& loaded = registry.modules[handle];
  loaded.path = FullPath(path);
  ++loaded.loads;
  *module = handle;
  return QVRES_OK;
}

QVRES_API int QVRes_FreeModule(void* handle) {
  Registry& registry = Modules();
  std::lock_guard<std::mutex> guard(registry.lock);
  Module* module = Loaded(handle);
  if (!module || !FreeLibrary(static_cast<HMODULE>(handle)))
    return 1;
  if (--module->loads == 0)
    registry.modules.erase(static_cast<HMODULE>(handle));
  return 0;
}

QVRES_API void* QVRes_FindResource(void* handle, const char* name, const char* type) {
  if (!name || !type)
    return nullptr;
  std::lock_guard<std::mutex> guard(Modules().lock);
  Module* module = Loaded(handle);
  if (!module)
    return nullptr;
  HRSRC resource = FindResourceA(static_cast<HMODULE>(handle), name, type);
  if (resource)
    module->resources.insert(resource);
  return resource;
}

QVRES_API uint32_t QVRes_SizeofResource(void* handle, void* resource) {
  std::lock_guard<std::mutex> guard(Modules().lock);
  if (!KnownResource(handle, resource))
    return 0;
  return SizeofResource(static_cast<HMODULE>(handle), static_cast<HRSRC>(resource));
}

QVRES_API void* QVRes_LoadResource(void* handle, void* resource) {
  std::lock_guard<std::mutex> guard(Modules().lock);
  if (!KnownResource(handle, resource))
    return nullptr;
  return LoadResource(static_cast<HMODULE>(handle), static_cast<HRSRC>(resource));
}

QVRES_API void* QVRes_LockResource(void* loaded) {
  return loaded ? LockResource(static_cast<HGLOBAL>(loaded)) : nullptr;
}

QVRES_API int QVRes_LoadString(void* handle, unsigned int id, char* buffer, int size) {
  if (!buffer || size < 1)
    return 0;
  buffer[0] = '\0';
  std::lock_guard<std::mutex> guard(Modules().lock);
  if (!Loaded(handle))
    return 0;
  const int length = LoadStringA(static_cast<HMODULE>(handle), id, buffer, size);
  return length > 0 ? length : 0;
}

QVRES_API uint32_t QVRes_GetModuleFileName(void* handle, char* buffer, uint32_t size) {
  if (!buffer || size == 0)
    return 0;
  std::lock_guard<std::mutex> guard(Modules().lock);
  Module* module = Loaded(handle);
  if (!module)
    return 0;
  const DWORD length = GetModuleFileNameA(static_cast<HMODULE>(handle), buffer, size);
  if (length != 0)
    return length;
  // Loaded as a data file: the loader does not know its name.
  return qvbase::native::CopyModulePath(module->path, buffer, size);
}

} // extern "C"

#endif // defined(_WIN32)
