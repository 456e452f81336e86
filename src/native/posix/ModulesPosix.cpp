// ModulesPosix.cpp - loaded modules on ELF systems.
// Part of qvbase, the QVKernel foundation class library.
#include "native/Modules.h"

#include "native/Process.h"

#include <cstdint>
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace qvbase {
namespace native {
namespace {

// The lowest address of a loaded object's segments, page-aligned as the
// loader maps it: what dladdr reports as the object's base.
std::uintptr_t ObjectBase(const dl_phdr_info* info) {
  std::uintptr_t lowest = UINTPTR_MAX;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    if (segment.p_type == PT_LOAD && segment.p_vaddr < lowest)
      lowest = segment.p_vaddr;
  }
  if (lowest == UINTPTR_MAX)
    return 0;
  const std::uintptr_t pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  return (info->dlpi_addr + lowest) & ~(pageSize - 1);
}

struct Search {
  std::uintptr_t instance;
  bool first = true; // the loader reports the executable first
  bool found = false;
  bool isExecutable = false;
  std::string name;
};

int VisitObject(dl_phdr_info* info, std::size_t, void* data) {
  Search* search = static_cast<Search*>(data);
  bool isExecutable = search->first;
  search->first = false;
  if (ObjectBase(info) != search->instance || search->instance == 0)
    return 0;
  search->found = true;
  search->isExecutable = isExecutable;
  search->name = info->dlpi_name ? info->dlpi_name : "";
  return 1;
}

int VisitExecutable(dl_phdr_info* info, std::size_t, void* data) {
  *static_cast<std::uintptr_t*>(data) = ObjectBase(info);
  return 1;
}

} // namespace

void* ModuleInstanceContaining(const void* address) {
  Dl_info info;
  if (!address || dladdr(address, &info) == 0)
    return nullptr;
  return info.dli_fbase;
}

void* ApplicationInstance() {
  std::uintptr_t base = 0;
  dl_iterate_phdr(VisitExecutable, &base);
  return reinterpret_cast<void*>(base);
}

bool ModuleInstancePath(void* instance, std::string* path) {
  Search search;
  search.instance = reinterpret_cast<std::uintptr_t>(instance);
  dl_iterate_phdr(VisitObject, &search);
  if (!search.found)
    return false;
  // The loader names the executable by an empty text (or as it was started);
  // the process knows its full path.
  std::string name = search.isExecutable ? ExecutablePath() : search.name;
  if (name.empty())
    return false;
  if (path)
    *path = name;
  return true;
}

Module OpenModule(const std::string& path, std::string* error) {
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module && error) {
    const char* reason = dlerror();
    *error = reason ? reason : "the module cannot be loaded";
  }
  return module;
}

bool CloseModule(Module module) { return module && dlclose(module) == 0; }

void* ModuleSymbol(Module module, const char* name) {
  return module && name ? dlsym(module, name) : nullptr;
}

const char* ModuleSuffix() { return ".so"; }

} // namespace native
} // namespace qvbase
