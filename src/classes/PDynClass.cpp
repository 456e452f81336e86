// PDynClass.cpp - class records, their families, and creation by identifier.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PDynClass.h>

#include <qvbase/PErrorCodes.h>

#include "errors/RaiseError.h"

namespace {

// The error's defined source position, not a path of this tree.
const char kSourceFile[] = "src\\pdynclasses";
constexpr ULONG kNoConstructorLine = 242;

const char kUnknownObject[] = "Unknown object";

// One entry of a wrapper list: the wrapper and the distance of its class to
// the record that owns the list, which orders the entries.
struct WrapperEntry : PRoot {
  WrapperEntry(const PDynClassWrapper* w, ULONG d) : wrapper(w), distance(d) {}
  const PDynClassWrapper* wrapper;
  ULONG distance;
};

typedef LinkedList<WrapperEntry> WrapperList;

WrapperList* AsWrapperList(PList* list) { return static_cast<WrapperList*>(list); }

} // namespace

// ---------------------------------------------------------------------------
// PDynClassWrapper

PDynClassWrapper::~PDynClassWrapper() = default;

PUniversalID PDynClassWrapper::MapCLSIDToIID(const PUniversalID&) const { return PUniversalID(); }

// ---------------------------------------------------------------------------
// PDynClass

PDynClass::PDynClass(DC_ROOT_INFOS* root, const char* name, const PDynClass* parent,
                     const PUniversalID& id, const PDynClassWrapper* wrapper,
                     Constructor constructor)
    : m_root(root), m_next(nullptr), m_previous(nullptr), m_parent(parent), m_name(name), m_id(id),
      m_wrapper(wrapper), m_constructor(constructor), m_wrapperList(nullptr) {
  if (!m_root)
    return;
  ++m_root->count;
  m_next = m_root->first;
  if (m_next)
    m_next->m_previous = this;
  m_root->first = this;
  if (m_wrapper)
    DropWrapperListsOfFamily();
}

PDynClass::~PDynClass() {
  if (m_root) {
    if (m_wrapper)
      DropWrapperListsOfFamily();
    if (m_previous)
      m_previous->m_next = m_next;
    else
      m_root->first = m_next;
    if (m_next)
      m_next->m_previous = m_previous;
    --m_root->count;
  }
  m_root = nullptr;
  m_next = nullptr;
  m_previous = nullptr;
  m_parent = nullptr;
  m_name = nullptr;
  m_wrapper = nullptr;
  m_constructor = nullptr;
  m_id = PUniversalID();
  UnmakeWrapperList();
}

void PDynClass::DropWrapperListsOfFamily() const {
  for (const PDynClass* record = m_root->first; record; record = record->m_next)
    record->UnmakeWrapperList();
}

bool PDynClass::IsClassIID(const PUniversalID& id) const {
  if (!m_id.IsValid() || !id.IsValid())
    return false;
  return m_id == id;
}

bool PDynClass::IsClass(const PDynClass* other) const {
  return other && (other == this || IsClassIID(other->m_id));
}

bool PDynClass::IsUsingIID(const PUniversalID& id) const {
  return IsClassIID(id) || (m_wrapper && m_wrapper->IsUsingIID(id));
}

ULONG PDynClass::DistanceTo(const PDynClass* target) const {
  if (!target)
    return kDynClassNoDistance;
  ULONG steps = 0;
  for (const PDynClass* record = this; record; record = record->m_parent, ++steps)
    if (record == target || record->IsClassIID(target->m_id))
      return steps;
  return kDynClassNoDistance;
}

ULONG PDynClass::DistanceToIID(const PUniversalID& id) const {
  ULONG steps = 0;
  for (const PDynClass* record = this; record; record = record->m_parent, ++steps)
    if (record->IsClassIID(id))
      return steps;
  return kDynClassNoDistance;
}

bool PDynClass::IsAChildOf(const PDynClass* other) const {
  return DistanceTo(other) != kDynClassNoDistance;
}

bool PDynClass::IsAParentOf(const PDynClass* other) const {
  return other && other->DistanceTo(this) != kDynClassNoDistance;
}

bool PDynClass::IsAChildOfIID(const PUniversalID& id) const {
  return DistanceToIID(id) != kDynClassNoDistance;
}

bool PDynClass::IsAParentOfIID(const PUniversalID& id) const {
  const PDynClass* user = GDynClassFindIIDHandler(m_root, id);
  return user && user->DistanceTo(this) != kDynClassNoDistance;
}

bool PDynClass::IsAParentOfCLSID(const PUniversalID& id) const {
  const PDynClass* handler = GDynClassFindCLSIDHandler(m_root, id);
  return handler && handler->DistanceTo(this) != kDynClassNoDistance;
}

void* PDynClass::DynClassCast(void* object, const PDynClass* target) const {
  return DistanceTo(target) != kDynClassNoDistance ? object : nullptr;
}

const void* PDynClass::DynClassCast(const void* object, const PDynClass* target) const {
  return DistanceTo(target) != kDynClassNoDistance ? object : nullptr;
}

void* PDynClass::CreateClassInstance() const {
  if (!m_constructor) {
    qvbase::errors::Raise(kErrClassWithoutConstructor, ErrorSeverityAbort, kSourceFile,
                          kNoConstructorLine);
    return nullptr; // the error was let through: there is no instance
  }
  return m_constructor();
}

void* PDynClass::CreateClassInstance(const PUniversalID& id) const {
  if (m_root) {
    for (const PDynClass* record = m_root->first; record; record = record->m_next)
      if (record->IsClassIID(id) && record->DistanceTo(this) != kDynClassNoDistance)
        return record->CreateClassInstance();
  }
  if (!m_wrapperList)
    MakeWrapperList();
  WrapperList* list = AsWrapperList(m_wrapperList);
  for (WrapperEntry* entry = list->First(); entry; entry = list->Next(entry))
    if (void* instance = entry->wrapper->CreateClassInstance(id))
      return instance;
  return nullptr;
}

void PDynClass::MakeWrapperList() const {
  UnmakeWrapperList();
  WrapperList* list = new WrapperList;
  m_wrapperList = list;
  if (!m_root)
    return;
  for (const PDynClass* record = m_root->first; record; record = record->m_next) {
    if (!record->m_wrapper)
      continue;
    ULONG distance = record->DistanceTo(this);
    if (distance == kDynClassNoDistance)
      continue;
    // Before the first entry nearer to this class: the most derived first,
    // and among equals the one met first (the newer) stays first.
    WrapperEntry* entry = new WrapperEntry(record->m_wrapper, distance);
    WrapperEntry* before = list->First();
    while (before && before->distance >= distance)
      before = list->Next(before);
    if (before)
      list->Add(entry, list->IndexOf(before));
    else
      list->AddTail(entry);
  }
}

void PDynClass::UnmakeWrapperList() const {
  WrapperList* list = AsWrapperList(m_wrapperList);
  if (!list)
    return;
  m_wrapperList = nullptr;
  for (ULONG i = 0; i < list->Size(); ++i)
    delete list->At(i);
  delete list;
}

ULONG PDynClass::WrapperCount() const { return m_wrapperList ? m_wrapperList->Size() : 0; }

const PDynClassWrapper* PDynClass::WrapperAt(ULONG index) const {
  if (!m_wrapperList)
    return nullptr;
  WrapperEntry* entry = AsWrapperList(m_wrapperList)->At(index);
  return entry ? entry->wrapper : nullptr;
}

// ---------------------------------------------------------------------------
// Finding records in a family

const PDynClass* GDynClassFindIIDHandler(DC_ROOT_INFOS* root, const PUniversalID& id) {
  if (!root)
    return nullptr;
  for (const PDynClass* record = root->first; record; record = record->Next())
    if (record->IsUsingIID(id))
      return record;
  return nullptr;
}

const char* GDynClassFindIIDName(DC_ROOT_INFOS* root, const PUniversalID& id) {
  const PDynClass* record = GDynClassFindIIDHandler(root, id);
  return record ? record->ClassName() : kUnknownObject;
}

const PDynClass* GDynClassFindCLSIDHandler(DC_ROOT_INFOS* root, const PUniversalID& id) {
  if (!root)
    return nullptr;
  for (const PDynClass* record = root->first; record; record = record->Next()) {
    if (record->IsClassIID(id))
      return record;
    const PDynClassWrapper* wrapper = record->ClassWrapper();
    if (!wrapper)
      continue;
    PUniversalID iid = wrapper->MapCLSIDToIID(id);
    if (!iid.IsValid())
      continue;
    if (const PDynClass* handler = GDynClassFindIIDHandler(root, iid))
      return handler;
  }
  return nullptr;
}

const char* GDynClassFindCLSIDName(DC_ROOT_INFOS* root, const PUniversalID& id) {
  const PDynClass* record = GDynClassFindCLSIDHandler(root, id);
  return record ? record->ClassName() : kUnknownObject;
}
