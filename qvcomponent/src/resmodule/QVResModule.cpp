// QVResModule.cpp - resource modules read from their files (every platform but Windows).
// Part of qvbase, the QVKernel foundation class library.
//
// A module is its file read into memory whole and parsed once
// (ResourceImage); its handle is the address of the Module below. Handles
// are checked against the set of loaded modules, and resource handles
// against the entries of their module, so that a stale or made-up handle
// gives a failure instead of a crash.
#if !defined(_WIN32)

#include <QVResModule.h>

#include "native/Locale.h"
#include "native/Resources.h"
#include "resmodule/ResourceImage.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

using qvcomponent::resmodule::ParseFailure;
using qvcomponent::resmodule::ResourceEntry;
using qvcomponent::resmodule::ResourceImage;
using qvcomponent::resmodule::ResourceKey;

struct Module {
  std::vector<std::uint8_t> bytes;
  ResourceImage image;
  std::string path;
};

// The loaded modules, and the lock every call holds while it uses one.
struct Registry {
  std::mutex lock;
  std::unordered_set<const Module*> modules;
};

Registry& Modules() {
  // Never destroyed: calls made while other static objects are destroyed
  // still find it.
  static Registry* registry = new Registry;
  return *registry;
}

Module* Loaded(void* handle) {
  Module* module = static_cast<Module*>(handle);
  return handle && Modules().modules.count(module) ? module : nullptr;
}

const ResourceEntry* EntryOf(const Module& module, void* resource) {
  const std::vector<ResourceEntry>& entries = module.image.Entries();
  if (!resource || entries.empty())
    return nullptr;
  const ResourceEntry* entry = static_cast<const ResourceEntry*>(resource);
  const std::less<const ResourceEntry*> before;
  if (before(entry, entries.data()) || !before(entry, entries.data() + entries.size()))
    return nullptr;
  // Inside the array: it must also be the start of an element.
  const std::uintptr_t distance =
      reinterpret_cast<std::uintptr_t>(entry) - reinterpret_cast<std::uintptr_t>(entries.data());
  return distance % sizeof(ResourceEntry) == 0 ? entry : nullptr;
}

// A name or type argument: a number in the integer-resource form or as
// "#123", else a name.
ResourceKey KeyFromArgument(const char* argument) {
  const std::uintptr_t value = reinterpret_cast<std::uintptr_t>(argument);
  if (value <= 0xFFFF)
    return ResourceKey::Number(static_cast<std::uint16_t>(value));
  if (argument[0] == '#' && argument[1] != '\0') {
    unsigned long number = 0;
    const char* p = argument + 1;
    while (*p >= '0' && *p <= '9' && number <= 0xFFFF)
      number = number * 10 + static_cast<unsigned long>(*p++ - '0');
    if (*p == '\0' && number <= 0xFFFF)
      return ResourceKey::Number(static_cast<std::uint16_t>(number));
  }
  const std::u16string units = qvbase::native::MultiByteToUnits(std::string(argument));
  return ResourceKey::Name(units);
}

int ReadFile(const std::string& path, std::vector<std::uint8_t>* bytes) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > qvcomponent::resmodule::kMaxImageSize)
    return QVRES_CANNOT_READ;
  std::ifstream file(path, std::ios::binary);
  if (!file)
    return QVRES_CANNOT_READ;
  try {
    bytes->resize(static_cast<std::size_t>(size));
  } catch (const std::bad_alloc&) {
    return QVRES_CANNOT_READ;
  }
  if (size != 0 &&
      !file.read(reinterpret_cast<char*>(bytes->data()), static_cast<std::streamsize>(size)))
    return QVRES_CANNOT_READ;
  // A file that grew meanwhile is read as far as it was measured.
  return QVRES_OK;
}

std::string FullPath(const std::string& path) {
  std::error_code error;
  std::filesystem::path full = std::filesystem::absolute(path, error);
  return error ? path : full.lexically_normal().string();
}

} // namespace

extern "C" {

QVRES_API int QVRes_LoadModule(const char* path, void** module) {
  if (!module)
    return QVRES_BAD_ARGUMENT;
  *module = nullptr;
  if (!path)
    return QVRES_BAD_ARGUMENT;
  std::unique_ptr<Module> loaded(new (std::nothrow) Module);
  if (!loaded)
    return QVRES_CANNOT_READ;
  const int read = ReadFile(path, &loaded->bytes);
  if (read != QVRES_OK)
    return read;
  ParseFailure failure;
  if (!loaded->image.Parse(loaded->bytes.data(), loaded->bytes.size(), &failure))
    return QVRES_NOT_A_MODULE;
  loaded->path = FullPath(path);
  Registry& registry = Modules();
  std::lock_guard<std::mutex> guard(registry.lock);
  registry.modules.insert(loaded.get());
  *module = loaded.release();
  return QVRES_OK;
}

QVRES_API int QVRes_FreeModule(void* handle) {
  Registry& registry = Modules();
  Module* module = nullptr;
  {
    std::lock_guard<std::mutex> guard(registry.lock);
    module = Loaded(handle);
    if (!module)
      return 1;
    registry.modules.erase(module);
  }
  delete module;
  return 0;
}

QVRES_API void* QVRes_FindResource(void* handle, const char* name, const char* type) {
  if (!name || !type)
    return nullptr;
  const ResourceKey nameKey = KeyFromArgument(name);
  const ResourceKey typeKey = KeyFromArgument(type);
  std::lock_guard<std::mutex> guard(Modules().lock);
  Module* module = Loaded(handle);
  if (!module)
    return nullptr;
  return const_cast<ResourceEntry*>(module->image.Find(typeKey, nameKey));
}

QVRES_API uint32_t QVRes_SizeofResource(void* handle, void* resource) {
  std::lock_guard<std::mutex> guard(Modules().lock);
  Module* module = Loaded(handle);
  const ResourceEntry* entry = module ? EntryOf(*module, resource) : nullptr;
  return entry ? entry->size : 0;
}

QVRES_API void* QVRes_LoadResource(void* handle, void* resource) {
  std::lock_guard<std::mutex> guard(Modules().lock);
  Module* module = Loaded(handle);
  const ResourceEntry* entry = module ? EntryOf(*module, resource) : nullptr;
  return entry ? const_cast<std::uint8_t*>(module->image.Data(*entry)) : nullptr;
}

QVRES_API void* QVRes_LockResource(void* loaded) {
  // The loaded resource is the address of its bytes already.
  return loaded;
}

QVRES_API int QVRes_LoadString(void* handle, unsigned int id, char* buffer, int size) {
  if (!buffer || size < 1)
    return 0;
  buffer[0] = '\0';
  std::u16string units;
  {
    std::lock_guard<std::mutex> guard(Modules().lock);
    Module* module = Loaded(handle);
    if (!module || !module->image.FindString(id, &units))
      return 0;
  }
  const std::string text = qvbase::native::UnitsToMultiByte(units);
  // Cut at size - 1 bytes, as the system does, even inside a multibyte
  // character: a caller that gets size - 1 back asks again with more room.
  const std::size_t copied = text.size() < static_cast<std::size_t>(size)
                                 ? text.size()
                                 : static_cast<std::size_t>(size - 1);
  std::memcpy(buffer, text.data(), copied);
  buffer[copied] = '\0';
  return static_cast<int>(copied);
}

QVRES_API uint32_t QVRes_GetModuleFileName(void* handle, char* buffer, uint32_t size) {
  if (!buffer || size == 0)
    return 0;
  std::lock_guard<std::mutex> guard(Modules().lock);
  Module* module = Loaded(handle);
  if (!module)
    return 0;
  return qvbase::native::CopyModulePath(module->path, buffer, size);
}

} // extern "C"

#endif // !defined(_WIN32)
