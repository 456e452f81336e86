// ResourceSearch.cpp - finding and loading a component's recorded resource module.
// Part of qvbase, the QVKernel foundation class library.
#include "ResourceSearch.h"

#include <QVComponent.h>
#include <QVResModule.h>

#include "native/Modules.h"
#include "native/Process.h"
#include "native/Registry.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace native = qvbase::native;

namespace qvcomponent {

namespace {

constexpr char kDefResFileValue[] = "DefResFile";
constexpr char kResourceSetsKey[] = "ResourceSets";
constexpr char kResourcePathVariable[] = "QVBASE_RESOURCE_PATH";
#if defined(_WIN32)
constexpr char kPathListSeparator = ';';
#else
constexpr char kPathListSeparator = ':';
#endif

// A recorded text is a file name: far below this.
constexpr DWORD kLargestRecordedText = 4096;

// The string value `name` of HKEY_LOCAL_MACHINE\`path`; empty when it is
// missing, not a string, or unreadable.
std::string StringValue(const std::string& path, const char* name) {
  native::RegKey key = nullptr;
  if (native::OpenRegKey(native::kRegLocalMachine, path.c_str(), native::kKeyQueryValue, &key) !=
      ERROR_SUCCESS)
    return {};
  std::string text;
  DWORD type = 0;
  DWORD size = 0;
  if (native::QueryRegValue(key, name, &type, nullptr, &size) == ERROR_SUCCESS &&
      type == native::kRegSz && size > 0 && size <= kLargestRecordedText) {
    std::string buffer(size, '\0');
    if (native::QueryRegValue(key, name, &type, reinterpret_cast<BYTE*>(&buffer[0]), &size) ==
            ERROR_SUCCESS &&
        type == native::kRegSz) {
      buffer.resize(std::min<std::size_t>(size, buffer.size()));
      text = buffer.substr(0, buffer.find('\0'));
    }
  }
  native::CloseRegKey(key);
  return text;
}

#if !defined(_WIN32)
bool EndsWithDllIgnoringCase(const std::string& name) {
  if (name.size() < 4)
    return false;
  std::string tail = name.substr(name.size() - 4);
  for (char& c : tail)
    if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  return tail == ".dll";
}
#endif

// The names `file` is looked for under, in order.
std::vector<std::string> NamesFor(const std::string& file) {
  std::vector<std::string> names{file};
#if !defined(_WIN32)
  if (EndsWithDllIgnoringCase(file))
    names.push_back(file.substr(0, file.size() - 4) + ".res");
#endif
  return names;
}

// The directories of the resource path variable, in order.
std::vector<std::string> ResourcePathDirectories() {
  std::vector<std::string> directories;
  std::string list;
  if (!native::GetEnv(kResourcePathVariable, &list))
    return directories;
  std::string current;
  for (const char* p = list.c_str();; ++p) {
    if (*p == kPathListSeparator || !*p) {
      if (!current.empty())
        directories.push_back(current);
      current.clear();
      if (!*p)
        break;
    } else {
      current += *p;
    }
  }
  return directories;
}

std::string OwnDirectory() {
  std::string path;
  if (!native::ModuleInstancePath(
          native::ModuleInstanceContaining(reinterpret_cast<const void*>(&QVComp_AddRef)), &path))
    return {};
  return DirectoryOf(path);
}

// The first of `names` in `directory` (for an empty directory: the names as
// they are) that is a file and loads; null when none does.
void* LoadFirst(const std::string& directory, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    std::filesystem::path candidate =
        directory.empty() ? std::filesystem::path(name) : std::filesystem::path(directory) / name;
    std::error_code error;
    if (!std::filesystem::is_regular_file(candidate, error))
      continue;
    void* module = nullptr;
    if (QVRes_LoadModule(candidate.string().c_str(), &module) == 0 && module)
      return module;
  }
  return nullptr;
}

} // namespace

std::string DirectoryOf(const std::string& path) {
  return std::filesystem::path(path).parent_path().string();
}

std::string RecordedResourceFile(const std::string& resourcesPath,
                                 const std::string& componentText) {
  std::string file = StringValue(resourcesPath, kDefResFileValue);
  if (!file.empty())
    return file;
  // "<component text>,<file name>": the set recorded for this component.
  std::string set = StringValue(resourcesPath + "\\" + kResourceSetsKey, nullptr);
  std::string prefix = componentText + ",";
  if (set.size() > prefix.size() && set.compare(0, prefix.size(), prefix) == 0)
    return set.substr(prefix.size());
  return {};
}

void* LoadResourceModule(const std::string& file, const std::vector<std::string>& fileDirectories) {
  if (file.empty())
    return nullptr;
  const std::vector<std::string> names = NamesFor(file);
  if (std::filesystem::path(file).has_parent_path())
    return LoadFirst(std::string(), names);
  std::vector<std::string> directories = ResourcePathDirectories();
  directories.insert(directories.end(), fileDirectories.begin(), fileDirectories.end());
  directories.push_back(OwnDirectory());
  for (const std::string& directory : directories) {
    if (directory.empty())
      continue;
    if (void* module = LoadFirst(directory, names))
      return module;
  }
  return nullptr;
}

} // namespace qvcomponent
