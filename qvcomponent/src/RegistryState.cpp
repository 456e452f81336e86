// RegistryState.cpp - the objects the component registry keeps.
// Part of qvbase, the QVKernel foundation class library.
#include "RegistryState.h"

#include <algorithm>

namespace qvcomponent {

State& State::Get() {
  static State* state = new State;
  return *state;
}

Object* State::Find(const void* handle) const {
  auto it = m_objects.find(reinterpret_cast<std::uintptr_t>(handle));
  return it == m_objects.end() ? nullptr : it->second.get();
}

Object* State::Create(Kind kind) {
  do {
    m_nextHandle += 4;
    if (m_nextHandle < kFirstHandle)
      m_nextHandle = kFirstHandle;
  } while (m_objects.count(m_nextHandle));
  std::unique_ptr<Object> object(new Object);
  object->kind = kind;
  object->handle = m_nextHandle;
  object->sequence = NextSequence();
  object->references = 1;
  Object* result = object.get();
  m_objects.emplace(result->handle, std::move(object));
  return result;
}

void State::Release(Object* object, std::vector<void*>* unload) {
  while (object && --object->references == 0) {
    Object* owner = object->owner;
    if (object->loadedModule)
      unload->push_back(object->loadedModule);
    m_objects.erase(object->handle);
    object = owner;
  }
}

std::vector<Object*> State::All(Kind kind) const {
  std::vector<Object*> result;
  for (const auto& entry : m_objects)
    if (entry.second->kind == kind)
      result.push_back(entry.second.get());
  std::sort(result.begin(), result.end(),
            [](const Object* a, const Object* b) { return a->sequence < b->sequence; });
  return result;
}

} // namespace qvcomponent
