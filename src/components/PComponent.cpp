// PComponent.cpp - components of the suite, and the enumerations over them.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PComponent.h>

#include <qvbase/PMBString.h>

#include "components/ComponentRegistry.h"
#include "native/Registry.h"

#include <cstring>
#include <string>
#include <vector>

using qvbase::components::EmptyRecord;
using qvbase::components::Registry;
namespace native = qvbase::native;

namespace {

// Class texts of the keys the default resource file is recorded under.
constexpr char kComponentKeyClass[] = "QVComponent";
constexpr char kResourceSetsKeyClass[] = "qvcomponent";
constexpr char kResourceSetsKey[] = "ResourceSets";
constexpr char kDefResFileValue[] = "DefResFile";
constexpr std::uint32_t kRegistryPathSize = 256;
constexpr std::uint32_t kComponentStringSize = 512;

bool EqualsIgnoringCase(const char* a, const char* b) {
  for (;; ++a, ++b) {
    char x = *a >= 'A' && *a <= 'Z' ? static_cast<char>(*a - 'A' + 'a') : *a;
    char y = *b >= 'A' && *b <= 'Z' ? static_cast<char>(*b - 'A' + 'a') : *b;
    if (x != y)
      return false;
    if (!x)
      return true;
  }
}

// Whether `name` under `path` (HKEY_LOCAL_MACHINE) already holds `text` as a
// string. Read-only, so that a module loaded again does not rewrite (nor
// lock) the store.
bool HoldsText(const std::string& path, const char* name, const std::string& text) {
  native::RegKey key = nullptr;
  if (native::OpenRegKey(native::kRegLocalMachine, path.c_str(), native::kKeyQueryValue, &key) !=
      ERROR_SUCCESS)
    return false;
  std::vector<char> value(text.size() + 2);
  DWORD type = 0;
  DWORD size = static_cast<DWORD>(value.size());
  LONG rc = native::QueryRegValue(key, name, &type, reinterpret_cast<BYTE*>(value.data()), &size);
  native::CloseRegKey(key);
  return rc == ERROR_SUCCESS && type == native::kRegSz && size == text.size() + 1 &&
         std::memcmp(value.data(), text.c_str(), size) == 0;
}

LONG SetText(native::RegKey key, const char* name, const std::string& text) {
  return native::SetRegValue(key, name, native::kRegSz, reinterpret_cast<const BYTE*>(text.c_str()),
                             static_cast<DWORD>(text.size() + 1));
}

// Records a resource DLL as the value "DefResFile" of the component's key.
void RecordResourceDll(const std::string& path, const char* file) {
  if (HoldsText(path, kDefResFileValue, file))
    return;
  native::RegKey key = nullptr;
  if (native::CreateRegKey(native::kRegLocalMachine, path.c_str(), kComponentKeyClass,
                           native::kKeyWrite, &key, nullptr) != ERROR_SUCCESS)
    return;
  SetText(key, kDefResFileValue, file);
  native::CloseRegKey(key);
}

// Records any other resource file as the default value of the subkey
// "ResourceSets": the component's text, a comma and the file name.
void RecordResourceSet(void* handle, const std::string& path, const char* file) {
  char component[kComponentStringSize];
  if (Registry().GetComponentString(handle, component, kComponentStringSize) != 0)
    return;
  std::string set = std::string(component) + "," + file;
  if (HoldsText(path + "\\" + kResourceSetsKey, nullptr, set))
    return;
  native::RegKey key = nullptr;
  if (native::CreateRegKey(native::kRegLocalMachine, path.c_str(), kComponentKeyClass,
                           native::kKeyWrite, &key, nullptr) != ERROR_SUCCESS)
    return;
  native::RegKey sets = nullptr;
  if (native::CreateRegKey(key, kResourceSetsKey, kResourceSetsKeyClass, native::kKeyWrite, &sets,
                           nullptr) == ERROR_SUCCESS) {
    SetText(sets, nullptr, set);
    native::CloseRegKey(sets);
  }
  native::CloseRegKey(key);
}

// Records the component's default resource file. Any step that fails ends
// the recording silently: loading a module never fails because of the
// registry.
void RecordDefaultResourceFile(void* handle, const char* file) {
  if (!handle || !file)
    return;
  char path[kRegistryPathSize];
  if (Registry().GetComponentRegistryPath(handle, QVCOMP_PATH_RESOURCES, path, kRegistryPathSize) !=
      0)
    return;
  const char* dot = std::strrchr(file, '.');
  if (dot && EqualsIgnoringCase(dot + 1, "dll"))
    RecordResourceDll(path, file);
  else
    RecordResourceSet(handle, path, file);
}

QVCompComponentInfos ComponentInfos(void* handle, bool* read) {
  QVCompComponentInfos infos = EmptyRecord<QVCompComponentInfos>();
  *read = Registry().GetComponentInfos(handle, &infos) == 0;
  return infos;
}

struct FileCallbackPair {
  PComponent::FileCallback callback;
  void* context;
};

// Called by the registry for each part: hands the part's best running file
// to the caller's callback. A part without one is passed over, and the
// enumeration goes on.
int FileTrampoline(void* part, void* data) {
  const FileCallbackPair* pair = static_cast<const FileCallbackPair*>(data);
  void* file = nullptr;
  if (Registry().ObtainBestComponentFileFromPart(part, &file) != 0)
    return true;
  bool goOn;
  {
    PComponentFile temporary(file, false);
    goOn = pair->callback(temporary, pair->context);
    Registry().Release(file);
  }
  return goOn;
}

struct ComponentCallbackPair {
  bool (*callback)(const PComponent&, void*);
  void* context;
};

int ComponentTrampoline(void* component, void* data) {
  const ComponentCallbackPair* pair = static_cast<const ComponentCallbackPair*>(data);
  PComponent temporary(component);
  return pair->callback(temporary, pair->context);
}

} // namespace

PComponent::PComponent(const char* /*category*/, const char* name, ULONG major, ULONG minor)
    : m_handle(nullptr) {
  if (Registry().ObtainAComponent(name, major, minor, &m_handle) != 0)
    m_handle = nullptr;
}

PComponent::PComponent(const char* category, const char* name, ULONG major, ULONG minor,
                       const char* defaultResourceFile)
    : PComponent(category, name, major, minor) {
  RecordDefaultResourceFile(m_handle, defaultResourceFile);
}

PComponent::PComponent(void* handle) : m_handle(handle) {
  if (m_handle)
    Registry().AddRef(m_handle);
}

PComponent::PComponent(const PComponent& other) : PRoot(other), m_handle(other.m_handle) {
  if (m_handle)
    Registry().AddRef(m_handle);
}

PComponent& PComponent::operator=(const PComponent& other) {
  void* old = m_handle;
  if (other.m_handle)
    Registry().AddRef(other.m_handle);
  m_handle = other.m_handle;
  Registry().Release(old);
  return *this;
}

PComponent::~PComponent() {
  // Unconditionally, also for 0: the registry answers that with a failure.
  Registry().Release(m_handle);
}

PASCIIString PComponent::Name() const {
  bool read;
  QVCompComponentInfos infos = ComponentInfos(m_handle, &read);
  return read && infos.name ? PASCIIString(infos.name, true) : PASCIIString();
}

PASCIIString PComponent::Type() const {
  bool read;
  QVCompComponentInfos infos = ComponentInfos(m_handle, &read);
  return read && infos.type ? PASCIIString(infos.type, true) : PASCIIString();
}

ULONG PComponent::MajorVersion() const {
  bool read;
  QVCompComponentInfos infos = ComponentInfos(m_handle, &read);
  return read ? static_cast<ULONG>(infos.majorVersion) : 0;
}

ULONG PComponent::MinorVersion() const {
  bool read;
  QVCompComponentInfos infos = ComponentInfos(m_handle, &read);
  return read ? static_cast<ULONG>(infos.minorVersion) : 0;
}

PString PComponent::DisplayName() const {
  std::uint32_t size = Registry().GetComponentDisplayName(m_handle, nullptr, 0);
  if (size == 0)
    return PMBString();
  std::vector<char> buffer(size);
  Registry().GetComponentDisplayName(m_handle, buffer.data(), size);
  buffer[size - 1] = '\0';
  return PMBString(buffer.data(), true);
}

void PComponent::SetDisplayName(const PString& text) {
  PMBString multibyte(text);
  Registry().SetComponentDisplayName(m_handle, multibyte);
}

PString PComponent::GetRegistryPath(bool alternate) const {
  char path[kRegistryPathSize];
  std::uint32_t kind = alternate ? QVCOMP_PATH_ALL_VERSIONS : QVCOMP_PATH_COMPONENT;
  if (Registry().GetComponentRegistryPath(m_handle, kind, path, kRegistryPathSize) != 0)
    return PMBString();
  path[kRegistryPathSize - 1] = '\0';
  return PMBString(path, true);
}

void PComponent::SetResHandle(void* module) {
  Registry().SetComponentResLocation(m_handle, module, 0);
}

void* PComponent::ObtainResHandle() const {
  void* module = nullptr;
  if (Registry().GetComponentResLocation(m_handle, &module, nullptr) != 0)
    return nullptr;
  return module;
}

void PComponent::EnumerateFiles(FileCallback callback, void* context) const {
  if (!callback)
    return;
  FileCallbackPair pair = {callback, context};
  Registry().EnumRunningComponentParts(m_handle, FileTrampoline, &pair);
}

void PComponent::EnumerateFilesByType(const char* type, FileCallback callback,
                                      void* context) const {
  if (!callback)
    return;
  FileCallbackPair pair = {callback, context};
  Registry().EnumRunningComponentPartsByType(m_handle, PComponentFile::TypeCodeFromText(type),
                                             FileTrampoline, &pair);
}

void GComponentEnumerate(bool (*callback)(const PComponent&, void*), void* context) {
  if (!callback)
    return;
  ComponentCallbackPair pair = {callback, context};
  Registry().EnumRunningComponents(ComponentTrampoline, &pair);
}

void GComponentEnumerateByName(const char* name, bool (*callback)(const PComponent&, void*),
                               void* context) {
  if (!callback)
    return;
  ComponentCallbackPair pair = {callback, context};
  Registry().EnumRunningComponentsByName(name, ComponentTrampoline, &pair);
}

PComponent GGetApplicationComponent() {
  void* handle = nullptr;
  const bool obtained = Registry().ObtainApplicationComponent(&handle) == 0;
  // One object, returned in place: the caller gets exactly the wrapper's
  // reference, and the one obtained here goes back.
  PComponent component(obtained ? handle : nullptr);
  if (obtained)
    Registry().Release(handle);
  return component;
}
