// RegistryState.h - the objects the component registry keeps, and its lock.
// Part of qvbase, the QVKernel foundation class library.
//
// Components, parts and files live in one table keyed by their handle, a
// number handed out once (never an address), so that every handle a caller
// passes is looked up before it is used. Everything here is used under the
// state's lock.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qvcomponent {

enum class Kind { kComponent, kPart, kFile };

struct Object {
  Kind kind;
  std::uintptr_t handle = 0;
  std::uint64_t sequence = 0; // creation order, for enumerations
  std::uint32_t references = 0;

  // A component.
  std::string name; // also a part's name
  std::uint32_t majorVersion = 0;
  std::uint32_t minorVersion = 0;
  std::string displayName;
  void* givenModule = nullptr;     // the caller's module (SetComponentResLocation)
  void* loadedModule = nullptr;    // the module the registry found and loaded
  bool resourcesSought = false;    // the recorded module was looked for
  std::int32_t resourceOffset = 0; // also a part's own offset

  // A part: its component (one reference held). A file: its part (one
  // reference held, or null).
  Object* owner = nullptr;
  std::uint32_t type = 0; // a part's type code

  // A file.
  std::string path;
  std::string fileName;
  void* instance = nullptr;
  std::uint32_t versions[5] = {}; // major, minor, fixes, build, extra
  bool running = false;           // the registry then holds one reference
  std::uint64_t runningSince = 0; // when it was last declared running
};

class State {
public:
  // The one registry of the process. Never destroyed: modules still running
  // may release their handles while the process ends.
  static State& Get();

  std::mutex& Lock() { return m_lock; }

  // The live object behind a handle, or null.
  Object* Find(const void* handle) const;
  Object* Create(Kind kind);
  void AddRef(Object* object) { ++object->references; }
  // Drops one reference; an object without references ends, and drops the
  // one it held on its owner. Modules that ended with a component are added
  // to `unload`, to be unloaded once the lock is released.
  void Release(Object* object, std::vector<void*>* unload);

  // Live objects of a kind in creation order.
  std::vector<Object*> All(Kind kind) const;
  std::uint64_t NextSequence() { return ++m_sequence; }

  static void* HandleOf(const Object* object) { return reinterpret_cast<void*>(object->handle); }

private:
  State() = default;

  std::mutex m_lock;
  std::map<std::uintptr_t, std::unique_ptr<Object>> m_objects;
  std::uintptr_t m_nextHandle = kFirstHandle;
  std::uint64_t m_sequence = 0;

  // Handles step by 4 from here, skipping any still in use after a wrap.
  static constexpr std::uintptr_t kFirstHandle = 0x10000;
};

} // namespace qvcomponent
