// QVComponent.cpp - the component registry's C API.
// Part of qvbase, the QVKernel foundation class library.
#include <QVComponent.h>
#include <QVResModule.h>

#include "RegistryState.h"
#include "ResourceSearch.h"

#include "native/Modules.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <system_error>
#include <vector>

using qvcomponent::Kind;
using qvcomponent::Object;
using qvcomponent::State;

namespace {

// Names of components and parts become registry key names.
constexpr std::size_t kMaxNameLength = 255;
constexpr char kRegistryRoot[] = "Software\\Varnel\\Components\\";
constexpr char kTypeApplication[] = "Application";
constexpr char kTypeComponent[] = "Component";

// The state, locked for the lifetime of this object. Modules that end with
// their component are unloaded after the lock is given up.
class Locked {
public:
  Locked() : m_state(State::Get()), m_lock(m_state.Lock()) {}
  ~Locked() {
    m_lock.unlock();
    UnloadModules(m_unload);
  }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

  State* operator->() { return &m_state; }
  void Release(Object* object) { m_state.Release(object, &m_unload); }

  // The object behind a handle, checked for its kind.
  int Find(const void* handle, Kind kind, Object** object) {
    Object* found = handle ? m_state.Find(handle) : nullptr;
    if (!found)
      return QVCOMP_E_INVALID_HANDLE;
    if (found->kind != kind)
      return QVCOMP_E_WRONG_KIND;
    *object = found;
    return QVCOMP_OK;
  }

private:
  static void UnloadModules(const std::vector<void*>& modules);

  State& m_state;
  std::unique_lock<std::mutex> m_lock;
  std::vector<void*> m_unload;
};

void Locked::UnloadModules(const std::vector<void*>& modules) {
  for (void* module : modules)
    QVRes_FreeModule(module);
}

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualIgnoringCase(const std::string& a, const char* b) {
  std::size_t length = std::strlen(b);
  if (a.size() != length)
    return false;
  for (std::size_t i = 0; i < length; ++i)
    if (LowerAscii(a[i]) != LowerAscii(b[i]))
      return false;
  return true;
}

bool SamePath(const std::string& a, const std::string& b) {
#if defined(_WIN32)
  return EqualIgnoringCase(a, b.c_str());
#else
  return a == b;
#endif
}

bool ValidName(const char* name) {
  std::size_t length = std::strlen(name);
  if (length == 0 || length > kMaxNameLength)
    return false;
  for (const char* p = name; *p; ++p)
    if (*p == '\\' || static_cast<unsigned char>(*p) < 0x20)
      return false;
  return true;
}

// Copies a text with its terminating zero into the caller's buffer.
int CopyText(const std::string& text, char* buffer, std::uint32_t size) {
  if (!buffer)
    return QVCOMP_E_NULL_POINTER;
  if (text.size() + 1 > size) {
    if (size > 0)
      buffer[0] = '\0';
    return QVCOMP_E_BUFFER_TOO_SMALL;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return QVCOMP_OK;
}

// An absolute, normalised form of a path, so that one file has one name.
bool NormalPath(const std::string& path, std::string* normal) {
  std::error_code error;
  std::filesystem::path absolute = std::filesystem::absolute(path, error);
  if (error)
    return false;
  *normal = absolute.lexically_normal().string();
  return true;
}

std::string LastName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

// The file object for a path, made when there is none yet. Under the lock.
Object* FileForPath(Locked& state, const std::string& path) {
  for (Object* file : state->All(Kind::kFile)) {
    if (SamePath(file->path, path)) {
      state->AddRef(file);
      return file;
    }
  }
  Object* file = state->Create(Kind::kFile);
  file->path = path;
  file->fileName = LastName(path);
  return file;
}

// The running executable's instance. Asked once, and never under the lock:
// the loader takes its own lock to answer, and a module being loaded may be
// declaring itself (holding the loader's lock) while waiting for ours.
void* ApplicationInstance() {
  static void* const instance = qvbase::native::ApplicationInstance();
  return instance;
}

bool IsApplicationFile(const Object* file, void* application) {
  return file->instance && file->instance == application;
}

std::string VersionText(const Object* component) {
  return std::to_string(component->majorVersion) + "." + std::to_string(component->minorVersion);
}

// Where the component's resource files are recorded (path kind 0x80000001).
std::string ResourcesPath(const Object* component) {
  return kRegistryRoot + component->name + "\\" + VersionText(component) + "\\Resources";
}

// The component's text: "<name> <major>.<minor>".
std::string ComponentText(const Object* component) {
  return component->name + " " + VersionText(component);
}

// Calls `proc` for each handle, each kept alive by one reference until all
// calls are done (also when a callback throws).
int CallEach(const std::vector<void*>& handles, QVCompEnumProc proc, void* context) {
  struct Keep {
    const std::vector<void*>& handles;
    ~Keep() {
      Locked state;
      for (void* handle : handles)
        if (Object* object = state->Find(handle))
          state.Release(object);
    }
  } keep{handles};
  for (void* handle : handles)
    if (!proc(handle, context))
      break;
  return QVCOMP_OK;
}

// Takes a reference on each object and returns their handles. Under the lock.
std::vector<void*> Keep(Locked& state, const std::vector<Object*>& objects) {
  std::vector<void*> handles;
  handles.reserve(objects.size());
  for (Object* object : objects) {
    state->AddRef(object);
    handles.push_back(State::HandleOf(object));
  }
  return handles;
}

int EnumerateComponents(const char* name, QVCompEnumProc proc, void* context) {
  std::vector<void*> handles;
  {
    Locked state;
    std::vector<Object*> chosen;
    for (Object* component : state->All(Kind::kComponent))
      if (!name || EqualIgnoringCase(component->name, name))
        chosen.push_back(component);
    handles = Keep(state, chosen);
  }
  return CallEach(handles, proc, context);
}

int EnumerateParts(void* component, bool byType, std::uint32_t type, QVCompEnumProc proc,
                   void* context) {
  std::vector<void*> handles;
  {
    Locked state;
    Object* owner = nullptr;
    if (int rc = state.Find(component, Kind::kComponent, &owner))
      return rc;
    if (!proc)
      return QVCOMP_E_NULL_POINTER;
    std::vector<Object*> chosen;
    for (Object* part : state->All(Kind::kPart))
      if (part->owner == owner && (!byType || type == 0 || part->type == type))
        chosen.push_back(part);
    handles = Keep(state, chosen);
  }
  return CallEach(handles, proc, context);
}

// The directories of the component's running files, in the order they were
// first obtained.
std::vector<std::string> RunningFileDirectories(Locked& state, const Object* component) {
  std::vector<std::string> directories;
  for (const Object* file : state->All(Kind::kFile))
    if (file->running && file->owner && file->owner->owner == component && !file->path.empty())
      directories.push_back(qvcomponent::DirectoryOf(file->path));
  return directories;
}

// Loads the resource module recorded for the component, once: a component
// whose module cannot be found answers without one until a module is given
// or the given one is taken back (QVComp_SetComponentResLocation), so that a
// missing file costs one search, not one per resource.
void SeekRecordedModule(Locked& state, Object* component) {
  if (component->givenModule || component->loadedModule || component->resourcesSought)
    return;
  component->resourcesSought = true;
  std::string file =
      qvcomponent::RecordedResourceFile(ResourcesPath(component), ComponentText(component));
  component->loadedModule =
      qvcomponent::LoadResourceModule(file, RunningFileDirectories(state, component));
}

// The module and offset of a component, with a part's offset added.
int ResourceLocation(Locked& state, Object* component, std::int32_t partOffset, void** module,
                     std::int32_t* offset) {
  SeekRecordedModule(state, component);
  void* found = component->givenModule ? component->givenModule : component->loadedModule;
  if (!found) {
    *module = nullptr;
    if (offset)
      *offset = 0;
    return QVCOMP_E_NOT_FOUND;
  }
  *module = found;
  if (offset)
    *offset = static_cast<std::int32_t>(static_cast<std::uint32_t>(component->resourceOffset) +
                                        static_cast<std::uint32_t>(partOffset));
  return QVCOMP_OK;
}

} // namespace

extern "C" {

int QVComp_AddRef(void* handle) {
  Locked state;
  Object* object = handle ? state->Find(handle) : nullptr;
  if (!object)
    return QVCOMP_E_INVALID_HANDLE;
  state->AddRef(object);
  return QVCOMP_OK;
}

int QVComp_Release(void* handle) {
  Locked state;
  Object* object = handle ? state->Find(handle) : nullptr;
  if (!object)
    return QVCOMP_E_INVALID_HANDLE;
  state.Release(object);
  return QVCOMP_OK;
}

int QVComp_ObtainAComponent(const char* name, std::uint32_t majorVersion,
                            std::uint32_t minorVersion, void** component) {
  if (!name || !component)
    return QVCOMP_E_NULL_POINTER;
  *component = nullptr;
  if (!ValidName(name))
    return QVCOMP_E_INVALID_ARGUMENT;
  try {
    Locked state;
    for (Object* existing : state->All(Kind::kComponent)) {
      if (existing->majorVersion == majorVersion && existing->minorVersion == minorVersion &&
          EqualIgnoringCase(existing->name, name)) {
        state->AddRef(existing);
        *component = State::HandleOf(existing);
        return QVCOMP_OK;
      }
    }
    Object* created = state->Create(Kind::kComponent);
    created->name = name;
    created->displayName = name;
    created->majorVersion = majorVersion;
    created->minorVersion = minorVersion;
    *component = State::HandleOf(created);
    return QVCOMP_OK;
  } catch (const std::bad_alloc&) {
    return QVCOMP_E_OUT_OF_MEMORY;
  }
}

int QVComp_GetComponentInfos(void* component, QVCompComponentInfos* infos) {
  void* application = ApplicationInstance();
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(component, Kind::kComponent, &object))
    return rc;
  if (!infos)
    return QVCOMP_E_NULL_POINTER;
  if (infos->size < sizeof(QVCompComponentInfos))
    return QVCOMP_E_BAD_RECORD_SIZE;
  QVCompWord parts = 0;
  bool isApplication = false;
  for (Object* part : state->All(Kind::kPart))
    if (part->owner == object)
      ++parts;
  for (Object* file : state->All(Kind::kFile))
    if (file->owner && file->owner->owner == object && IsApplicationFile(file, application))
      isApplication = true;
  std::memset(infos, 0, sizeof *infos);
  infos->size = sizeof *infos;
  infos->name = object->name.c_str();
  infos->majorVersion = object->majorVersion;
  infos->minorVersion = object->minorVersion;
  infos->partCount = parts;
  infos->type = isApplication ? kTypeApplication : kTypeComponent;
  return QVCOMP_OK;
}

std::uint32_t QVComp_GetComponentDisplayName(void* component, char* buffer, std::uint32_t size) {
  Locked state;
  Object* object = nullptr;
  if (state.Find(component, Kind::kComponent, &object) != QVCOMP_OK)
    return 0;
  const std::string& text = object->displayName;
  std::uint32_t needed = static_cast<std::uint32_t>(text.size() + 1);
  if (buffer && size > 0) {
    std::size_t copied = std::min<std::size_t>(text.size(), size - 1);
    std::memcpy(buffer, text.data(), copied);
    buffer[copied] = '\0';
  }
  return needed;
}

int QVComp_SetComponentDisplayName(void* component, const char* text) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(component, Kind::kComponent, &object))
    return rc;
  if (!text)
    return QVCOMP_E_NULL_POINTER;
  try {
    object->displayName = text;
  } catch (const std::bad_alloc&) {
    return QVCOMP_E_OUT_OF_MEMORY;
  }
  return QVCOMP_OK;
}

int QVComp_GetComponentRegistryPath(void* component, std::uint32_t kind, char* buffer,
                                    std::uint32_t size) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(component, Kind::kComponent, &object))
    return rc;
  std::string path = kRegistryRoot + object->name;
  switch (kind) {
  case QVCOMP_PATH_COMPONENT:
    path += "\\" + VersionText(object);
    break;
  case QVCOMP_PATH_ALL_VERSIONS:
    break;
  case QVCOMP_PATH_RESOURCES:
    path = ResourcesPath(object);
    break;
  default:
    if (buffer && size > 0)
      buffer[0] = '\0';
    return QVCOMP_E_INVALID_ARGUMENT;
  }
  return CopyText(path, buffer, size);
}

int QVComp_GetComponentString(void* component, char* buffer, std::uint32_t size) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(component, Kind::kComponent, &object))
    return rc;
  return CopyText(ComponentText(object), buffer, size);
}

int QVComp_SetComponentResLocation(void* component, void* module, std::int32_t offset) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(component, Kind::kComponent, &object))
    return rc;
  object->givenModule = module;
  object->resourceOffset = offset;
  // Taking the given module back looks for the recorded one again.
  if (!module)
    object->resourcesSought = false;
  return QVCOMP_OK;
}

int QVComp_GetComponentResLocation(void* component, void** module, std::int32_t* offset) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(component, Kind::kComponent, &object))
    return rc;
  if (!module)
    return QVCOMP_E_NULL_POINTER;
  return ResourceLocation(state, object, 0, module, offset);
}

int QVComp_EnumRunningComponents(QVCompEnumProc proc, void* context) {
  if (!proc)
    return QVCOMP_E_NULL_POINTER;
  return EnumerateComponents(nullptr, proc, context);
}

int QVComp_EnumRunningComponentsByName(const char* name, QVCompEnumProc proc, void* context) {
  if (!name || !proc)
    return QVCOMP_E_NULL_POINTER;
  return EnumerateComponents(name, proc, context);
}

int QVComp_ObtainApplicationComponent(void** component) {
  if (!component)
    return QVCOMP_E_NULL_POINTER;
  *component = nullptr;
  void* application = ApplicationInstance();
  Locked state;
  for (Object* file : state->All(Kind::kFile)) {
    if (IsApplicationFile(file, application) && file->owner) {
      Object* owner = file->owner->owner;
      state->AddRef(owner);
      *component = State::HandleOf(owner);
      return QVCOMP_OK;
    }
  }
  return QVCOMP_E_NOT_FOUND;
}

int QVComp_ObtainAComponentPart(void* component, const char* name, void** part) {
  if (!part || !name)
    return QVCOMP_E_NULL_POINTER;
  *part = nullptr;
  try {
    Locked state;
    Object* owner = nullptr;
    if (int rc = state.Find(component, Kind::kComponent, &owner))
      return rc;
    if (!ValidName(name))
      return QVCOMP_E_INVALID_ARGUMENT;
    for (Object* existing : state->All(Kind::kPart)) {
      if (existing->owner == owner && EqualIgnoringCase(existing->name, name)) {
        state->AddRef(existing);
        *part = State::HandleOf(existing);
        return QVCOMP_OK;
      }
    }
    Object* created = state->Create(Kind::kPart);
    created->name = name;
    created->owner = owner;
    state->AddRef(owner);
    *part = State::HandleOf(created);
    return QVCOMP_OK;
  } catch (const std::bad_alloc&) {
    return QVCOMP_E_OUT_OF_MEMORY;
  }
}

int QVComp_GetComponentPartInfos(void* part, QVCompPartInfos* infos) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  if (!infos)
    return QVCOMP_E_NULL_POINTER;
  if (infos->size < sizeof(QVCompPartInfos))
    return QVCOMP_E_BAD_RECORD_SIZE;
  std::memset(infos, 0, sizeof *infos);
  infos->size = sizeof *infos;
  infos->type = object->type;
  infos->name = object->name.c_str();
  infos->resourceOffset =
      static_cast<QVCompWord>(static_cast<std::intptr_t>(object->resourceOffset));
  return QVCOMP_OK;
}

int QVComp_SetComponentPartType(void* part, std::uint32_t type) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  object->type = type;
  return QVCOMP_OK;
}

int QVComp_GetComponentPartType(void* part, std::uint32_t* type) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  if (!type)
    return QVCOMP_E_NULL_POINTER;
  *type = object->type;
  return QVCOMP_OK;
}

int QVComp_SetComponentPartResOffset(void* part, std::int32_t offset) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  object->resourceOffset = offset;
  return QVCOMP_OK;
}

int QVComp_GetComponentPartResLocation(void* part, void** module, std::int32_t* offset) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  if (!module)
    return QVCOMP_E_NULL_POINTER;
  return ResourceLocation(state, object->owner, object->resourceOffset, module, offset);
}

int QVComp_ObtainComponentFromPart(void* part, void** component) {
  if (!component)
    return QVCOMP_E_NULL_POINTER;
  *component = nullptr;
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  state->AddRef(object->owner);
  *component = State::HandleOf(object->owner);
  return QVCOMP_OK;
}

int QVComp_EnumRunningComponentParts(void* component, QVCompEnumProc proc, void* context) {
  return EnumerateParts(component, false, 0, proc, context);
}

int QVComp_EnumRunningComponentPartsByType(void* component, std::uint32_t type, QVCompEnumProc proc,
                                           void* context) {
  return EnumerateParts(component, true, type, proc, context);
}

int QVComp_ObtainBestComponentFileFromPart(void* part, void** file) {
  if (!file)
    return QVCOMP_E_NULL_POINTER;
  *file = nullptr;
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(part, Kind::kPart, &object))
    return rc;
  Object* best = nullptr;
  for (Object* candidate : state->All(Kind::kFile)) {
    if (candidate->owner != object || !candidate->running)
      continue;
    if (!best) {
      best = candidate;
      continue;
    }
    // Compare major, minor, fixes, build; the earlier declared wins a tie.
    int order = 0;
    for (int i = 0; i < 4 && order == 0; ++i)
      if (candidate->versions[i] != best->versions[i])
        order = candidate->versions[i] > best->versions[i] ? 1 : -1;
    if (order > 0 || (order == 0 && candidate->runningSince < best->runningSince))
      best = candidate;
  }
  if (!best)
    return QVCOMP_E_NOT_FOUND;
  state->AddRef(best);
  *file = State::HandleOf(best);
  return QVCOMP_OK;
}

int QVComp_ObtainAComponentFileFromInstance(void* instance, void** file) {
  if (!file)
    return QVCOMP_E_NULL_POINTER;
  *file = nullptr;
  if (!instance)
    return QVCOMP_E_INVALID_ARGUMENT;
  std::string path;
  if (!qvbase::native::ModuleInstancePath(instance, &path))
    return QVCOMP_E_NOT_FOUND;
  try {
    std::string normal;
    if (!NormalPath(path, &normal))
      return QVCOMP_E_NOT_FOUND;
    Locked state;
    Object* object = FileForPath(state, normal);
    object->instance = instance;
    *file = State::HandleOf(object);
    return QVCOMP_OK;
  } catch (const std::bad_alloc&) {
    return QVCOMP_E_OUT_OF_MEMORY;
  }
}

int QVComp_ObtainAComponentFileFromPath(const char* path, void** file) {
  if (!path || !file)
    return QVCOMP_E_NULL_POINTER;
  *file = nullptr;
  try {
    std::error_code error;
    if (!*path || !std::filesystem::is_regular_file(path, error))
      return QVCOMP_E_NOT_FOUND;
    std::string normal;
    if (!NormalPath(path, &normal))
      return QVCOMP_E_NOT_FOUND;
    Locked state;
    *file = State::HandleOf(FileForPath(state, normal));
    return QVCOMP_OK;
  } catch (const std::bad_alloc&) {
    return QVCOMP_E_OUT_OF_MEMORY;
  }
}

int QVComp_ObtainApplicationComponentFile(void** file) {
  return QVComp_ObtainAComponentFileFromInstance(ApplicationInstance(), file);
}

int QVComp_SetComponentFileInfos(void* file, const QVCompFileInfos* infos) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(file, Kind::kFile, &object))
    return rc;
  if (!infos)
    return QVCOMP_E_NULL_POINTER;
  if (infos->size < sizeof(QVCompFileInfos))
    return QVCOMP_E_BAD_RECORD_SIZE;
  object->versions[0] = static_cast<std::uint32_t>(infos->majorVersion);
  object->versions[1] = static_cast<std::uint32_t>(infos->minorVersion);
  object->versions[2] = static_cast<std::uint32_t>(infos->fixesVersion);
  object->versions[3] = static_cast<std::uint32_t>(infos->buildNumber);
  object->versions[4] = static_cast<std::uint32_t>(infos->extra);
  return QVCOMP_OK;
}

int QVComp_GetComponentFileInfos(void* file, QVCompFileInfos* infos) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(file, Kind::kFile, &object))
    return rc;
  if (!infos)
    return QVCOMP_E_NULL_POINTER;
  if (infos->size < sizeof(QVCompFileInfos))
    return QVCOMP_E_BAD_RECORD_SIZE;
  std::memset(infos, 0, sizeof *infos);
  infos->size = sizeof *infos;
  infos->path = object->path.c_str();
  infos->fileName = object->fileName.c_str();
  infos->majorVersion = object->versions[0];
  infos->minorVersion = object->versions[1];
  infos->fixesVersion = object->versions[2];
  infos->buildNumber = object->versions[3];
  infos->extra = object->versions[4];
  return QVCOMP_OK;
}

int QVComp_DeclareFileRunning(void* file, void* part) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(file, Kind::kFile, &object))
    return rc;
  Object* newPart = nullptr;
  if (part) {
    if (int rc = state.Find(part, Kind::kPart, &newPart))
      return rc;
    // The caller's reference on the part is now the file's.
    if (object->owner == newPart) {
      state.Release(newPart);
    } else {
      Object* oldPart = object->owner;
      object->owner = newPart;
      if (oldPart)
        state.Release(oldPart);
    }
  }
  if (!object->running) {
    object->running = true;
    state->AddRef(object);
  }
  object->runningSince = state->NextSequence();
  return QVCOMP_OK;
}

int QVComp_DeclareFileStopping(void* file) {
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(file, Kind::kFile, &object))
    return rc;
  if (!object->running)
    return QVCOMP_E_NOT_RUNNING;
  object->running = false;
  state.Release(object);
  return QVCOMP_OK;
}

int QVComp_ObtainComponentPartFromFile(void* file, void** part) {
  if (!part)
    return QVCOMP_E_NULL_POINTER;
  *part = nullptr;
  Locked state;
  Object* object = nullptr;
  if (int rc = state.Find(file, Kind::kFile, &object))
    return rc;
  if (!object->owner)
    return QVCOMP_E_NOT_FOUND;
  state->AddRef(object->owner);
  *part = State::HandleOf(object->owner);
  return QVCOMP_OK;
}

const QVCompFunctionTable* QVComp_FunctionTable(void) {
  static const QVCompFunctionTable table = {
      QVComp_AddRef,
      QVComp_Release,
      QVComp_ObtainAComponent,
      QVComp_GetComponentInfos,
      QVComp_GetComponentDisplayName,
      QVComp_SetComponentDisplayName,
      QVComp_GetComponentRegistryPath,
      QVComp_GetComponentString,
      QVComp_SetComponentResLocation,
      QVComp_GetComponentResLocation,
      QVComp_EnumRunningComponents,
      QVComp_EnumRunningComponentsByName,
      QVComp_ObtainApplicationComponent,
      QVComp_ObtainAComponentPart,
      QVComp_GetComponentPartInfos,
      QVComp_SetComponentPartType,
      QVComp_GetComponentPartType,
      QVComp_SetComponentPartResOffset,
      QVComp_GetComponentPartResLocation,
      QVComp_ObtainComponentFromPart,
      QVComp_EnumRunningComponentParts,
      QVComp_EnumRunningComponentPartsByType,
      QVComp_ObtainBestComponentFileFromPart,
      QVComp_ObtainAComponentFileFromInstance,
      QVComp_ObtainAComponentFileFromPath,
      QVComp_ObtainApplicationComponentFile,
      QVComp_SetComponentFileInfos,
      QVComp_GetComponentFileInfos,
      QVComp_DeclareFileRunning,
      QVComp_DeclareFileStopping,
      QVComp_ObtainComponentPartFromFile,
  };
  return &table;
}

} // extern "C"
