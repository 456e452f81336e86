// PList.cpp - ordered lists of object pointers over interchangeable back ends.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PList.h>

#include <qvbase/MemoryManager.h>
#include <qvbase/PSmartData.h>

#include "core/MemoryGrowth.h"

#include <cstring>
#include <new>
#include <vector>

namespace {

// Growth of the array back end: exactly four slots at a time. Deliberately
// small and linear; lists in the library are short, and callers that fill
// long ones choose the linked back end.
constexpr ULONG kArrayGrowth = 4;

// The most slots one raw block can hold (block sizes are 32-bit).
constexpr ULONG kMaxSlots = (0xFFFFFFFFu - 64u) / sizeof(void*);

void* AllocateRaw(std::size_t bytes) {
  return GMemAllocation(nullptr, static_cast<ULONG>(bytes), /*mode=*/1);
}

// Library objects are made through the one allocation function, then built.
template <typename T>
PListData* Construct() {
  void* memory = GCPPAllocation(sizeof(T), nullptr);
  return memory ? ::new (memory) T : nullptr;
}

} // namespace

// ---------------------------------------------------------------------------
// PListData

PListData::PListData() : count(0) {}

PListData::~PListData() = default;

void PListData::InsertAList(const PListData* other, ULONG index) {
  if (!other || other->count == 0)
    return;
  // Collected first: `other` may be this very back end.
  std::vector<void*> objects;
  objects.reserve(other->count);
  for (ULONG i = 0; i < other->count; ++i)
    objects.push_back(other->FindAnObjectFromIdx(i));
  if (index > count)
    index = count;
  for (void* object : objects)
    InsertARef(object, index++);
}

void PListData::ARefAdded(const void*) const {}

void PListData::ARefRemoved(const void*) const {}

// ---------------------------------------------------------------------------
// PDynArrayData

PDynArrayData::PDynArrayData()
    : capacity(0), array(nullptr), cacheIdx(kListNoIndex), cacheObj(nullptr), m_allocatedSlots(0) {}

PDynArrayData::~PDynArrayData() { GMemFree(array); }

void PDynArrayData::InsertARef(const void* object, ULONG index) {
  if (index > count)
    index = count;
  void* element = const_cast<void*>(object);
  if (count < m_allocatedSlots) {
    std::memmove(array + index + 1, array + index, (count - index) * sizeof(void*));
    array[index] = element;
  } else {
    // A full array grows by one step. The raised capacity stays even when
    // the new block cannot be had (the insert then does not happen); the
    // next insert allocates that capacity without raising it again.
    if (count >= capacity) {
      if (capacity > kMaxSlots - kArrayGrowth)
        return;
      capacity += kArrayGrowth;
    }
    // The new block holds the old elements, then the tail moves up by one.
    void** grown = static_cast<void**>(
        qvbase::core::GrowBlock(array, static_cast<ULONG>(count * sizeof(void*)),
                                static_cast<ULONG>(capacity * sizeof(void*))));
    if (!grown)
      return;
    m_allocatedSlots = capacity;
    std::memmove(grown + index + 1, grown + index, (count - index) * sizeof(void*));
    grown[index] = element;
    array = grown;
  }
  ARefAdded(object);
  cacheIdx = index;
  cacheObj = element;
  ++count;
}

void PDynArrayData::RemoveARef(ULONG index) {
  if (index >= count)
    return;
  // The element is released while still in place, then the tail closes up.
  ARefRemoved(array[index]);
  std::memmove(array + index, array + index + 1, (count - index - 1) * sizeof(void*));
  --count;
  if (count) {
    cacheIdx = 0;
    cacheObj = array[0];
  } else {
    cacheIdx = kListNoIndex;
    cacheObj = nullptr;
  }
}

void PDynArrayData::RemoveAllRefs() {
  for (ULONG i = 0; i < count; ++i)
    ARefRemoved(array[i]);
  count = 0;
  cacheIdx = kListNoIndex;
  cacheObj = nullptr;
  GMemFree(array);
  array = nullptr;
  capacity = 0;
  m_allocatedSlots = 0;
}

bool PDynArrayData::MoveARef(ULONG from, ULONG to) {
  if (from == to || from >= count || to >= count)
    return false;
  void* object = array[from];
  if (from < to)
    std::memmove(array + from, array + from + 1, (to - from) * sizeof(void*));
  else
    std::memmove(array + to + 1, array + to, (from - to) * sizeof(void*));
  array[to] = object;
  cacheIdx = to;
  cacheObj = object;
  return true;
}

ULONG PDynArrayData::FindAnIdxFromObject(const void* object) const {
  if (count == 0)
    return kListNoIndex;
  auto hit = [&](ULONG i) {
    cacheIdx = i;
    cacheObj = array[i];
    return i;
  };
  // The cached element answers at once, then its two neighbours (the one
  // before first), then a scan from the head. The cache answers only while
  // it still names the element at its index: after a miss it holds a null
  // object at a stale index, which must not answer a search for null.
  if (cacheIdx < count) {
    if (cacheObj == object && array[cacheIdx] == object)
      return cacheIdx;
    if (cacheIdx > 0 && array[cacheIdx - 1] == object)
      return hit(cacheIdx - 1);
    if (cacheIdx + 1 < count && array[cacheIdx + 1] == object)
      return hit(cacheIdx + 1);
  }
  for (ULONG i = 0; i < count; ++i)
    if (array[i] == object)
      return hit(i);
  // A miss forgets the object; the index stays as it was.
  cacheObj = nullptr;
  return kListNoIndex;
}

void* PDynArrayData::FindAnObjectFromIdx(ULONG index) const {
  if (count == 0)
    return nullptr;
  cacheIdx = index;
  // A position past the end reads as null: the slot there is not read.
  cacheObj = index < count ? array[index] : nullptr;
  return cacheObj;
}

// ---------------------------------------------------------------------------
// PLinkedListData

PLinkedListData::PLinkedListData()
    : head(nullptr), tail(nullptr), cacheNode(nullptr), cacheIdx(kListNoIndex), cacheObj(nullptr) {}

PLinkedListData::~PLinkedListData() {
  for (PLinkedNode* node = head; node;) {
    PLinkedNode* next = node->next;
    GMemFree(node);
    node = next;
  }
}

void PLinkedListData::ClearCache() const {
  cacheNode = nullptr;
  cacheIdx = kListNoIndex;
  cacheObj = nullptr;
}

void PLinkedListData::InsertNode(PLinkedNode* node, PLinkedNode* before) {
  node->next = before;
  node->prev = before ? before->prev : tail;
  if (node->prev)
    node->prev->next = node;
  else
    head = node;
  if (before)
    before->prev = node;
  else
    tail = node;
}

void PLinkedListData::RemoveNode(PLinkedNode* node) {
  if (node->prev)
    node->prev->next = node->next;
  else
    head = node->next;
  if (node->next)
    node->next->prev = node->prev;
  else
    tail = node->prev;
  node->next = node->prev = nullptr;
}

void PLinkedListData::MoveCacheTo(ULONG index) const {
  PLinkedNode* node;
  ULONG position;
  bool cacheValid = cacheNode && cacheIdx != kListNoIndex;
  // Start from whichever of head, tail and cache is nearest.
  bool fromHead, fromTail;
  if (cacheValid) {
    fromHead = index < cacheIdx / 2;
    fromTail = !fromHead && index > cacheIdx + (count - cacheIdx) / 2;
  } else {
    fromHead = index < count / 2;
    fromTail = !fromHead;
  }
  if (fromHead) {
    node = head;
    position = 0;
  } else if (fromTail) {
    node = tail;
    position = count - 1;
  } else {
    node = cacheNode;
    position = cacheIdx;
  }
  while (node && position < index) {
    node = node->next;
    ++position;
  }
  while (node && position > index) {
    node = node->prev;
    --position;
  }
  if (!node) {
    ClearCache();
    return;
  }
  cacheNode = node;
  cacheIdx = index;
  cacheObj = node->object;
}

void PLinkedListData::MoveCacheTo(const void* object) const {
  if (cacheNode && cacheIdx != kListNoIndex) {
    if (cacheObj == object)
      return;
    if (cacheNode->prev && cacheNode->prev->object == object) {
      cacheNode = cacheNode->prev;
      --cacheIdx;
      cacheObj = cacheNode->object;
      return;
    }
    if (cacheNode->next && cacheNode->next->object == object) {
      cacheNode = cacheNode->next;
      ++cacheIdx;
      cacheObj = cacheNode->object;
      return;
    }
  }
  ULONG position = 0;
  for (PLinkedNode* node = head; node; node = node->next, ++position) {
    if (node->object == object) {
      cacheNode = node;
      cacheIdx = position;
      cacheObj = node->object;
      return;
    }
  }
  ClearCache();
}

void PLinkedListData::InsertARef(const void* object, ULONG index) {
  auto* node = static_cast<PLinkedNode*>(AllocateRaw(sizeof(PLinkedNode)));
  if (!node)
    return;
  node->object = const_cast<void*>(object);
  ARefAdded(object);
  if (index < count) {
    MoveCacheTo(index);
    InsertNode(node, cacheNode);
  } else {
    InsertNode(node, nullptr);
    index = count;
  }
  cacheNode = node;
  cacheIdx = index;
  cacheObj = node->object;
  ++count;
}

void PLinkedListData::RemoveARef(ULONG index) {
  MoveCacheTo(index);
  PLinkedNode* node = cacheNode;
  if (!node)
    return;
  PLinkedNode* next = node->next;
  RemoveNode(node);
  --count;
  if (next) {
    cacheNode = next; // same index as the node it replaces
    cacheObj = next->object;
  } else {
    ClearCache();
  }
  // Released only once it is out of the list: its destructor may look at
  // the list and must not find itself there.
  ARefRemoved(node->object);
  GMemFree(node);
}

void PLinkedListData::RemoveAllRefs() {
  // The chain is detached whole first, then released in index order.
  PLinkedNode* node = head;
  head = tail = nullptr;
  count = 0;
  ClearCache();
  while (node) {
    PLinkedNode* next = node->next;
    ARefRemoved(node->object);
    GMemFree(node);
    node = next;
  }
}

bool PLinkedListData::MoveARef(ULONG from, ULONG to) {
  if (from == to || from >= count || to >= count)
    return false;
  MoveCacheTo(from);
  PLinkedNode* node = cacheNode;
  if (!node)
    return false;
  MoveCacheTo(to);
  PLinkedNode* target = cacheNode;
  if (!target)
    return false;
  RemoveNode(node);
  // After the target when moving towards the tail, before it otherwise: the
  // node lands at `to` either way.
  InsertNode(node, from < to ? target->next : target);
  cacheNode = node;
  cacheIdx = to;
  cacheObj = node->object;
  return true;
}

ULONG PLinkedListData::FindAnIdxFromObject(const void* object) const {
  MoveCacheTo(object);
  return cacheIdx;
}

void* PLinkedListData::FindAnObjectFromIdx(ULONG index) const {
  // A walk by index asks for the cached position or the one after it: those
  // are answered from the cache at once, without choosing where to start.
  if (cacheNode && cacheIdx != kListNoIndex) {
    if (index == cacheIdx)
      return cacheObj;
    if (index == cacheIdx + 1 && cacheNode->next) {
      cacheNode = cacheNode->next;
      cacheIdx = index;
      cacheObj = cacheNode->object;
      return cacheObj;
    }
  }
  MoveCacheTo(index);
  return cacheObj;
}

// ---------------------------------------------------------------------------
// Smart back ends: one reference per occurrence, by PSmartData's own rules.

void PSmartArrayData::ARefAdded(const void* object) const {
  if (object)
    static_cast<const PSmartData*>(object)->AddRef();
}

void PSmartArrayData::ARefRemoved(const void* object) const {
  if (object)
    static_cast<const PSmartData*>(object)->Release();
}

void PSmartListData::ARefAdded(const void* object) const {
  if (object)
    static_cast<const PSmartData*>(object)->AddRef();
}

void PSmartListData::ARefRemoved(const void* object) const {
  if (object)
    static_cast<const PSmartData*>(object)->Release();
}

PListData* GLinkedListDataConstructor() { return Construct<PLinkedListData>(); }
PListData* GDynArrayDataConstructor() { return Construct<PDynArrayData>(); }
PListData* GSmartListDataConstructor() { return Construct<PSmartListData>(); }
PListData* GSmartArrayDataConstructor() { return Construct<PSmartArrayData>(); }

// ---------------------------------------------------------------------------
// PList

PList::PList(DataFactory factory) : data(factory ? factory() : nullptr) {}

PList::PList(DataFactory factory, const PList& source) : PList(factory) {
  if (data)
    data->InsertAList(source.data, 0);
}

PList& PList::operator=(const PList& source) {
  // Deliberately guarded: assigning a list to itself keeps its elements
  // (clearing first would lose them, and release a smart list's elements).
  if (&source == this || !data)
    return *this;
  data->RemoveAllRefs();
  data->InsertAList(source.data, 0);
  return *this;
}

PList::~PList() {
  if (data) {
    data->RemoveAllRefs();
    delete data;
  }
}

void PList::Clear() {
  if (data)
    data->RemoveAllRefs();
}

bool PList::IsEmpty() const { return !data || data->Count() == 0; }

ULONG PList::Size() const { return data ? data->Count() : 0; }

void PList::AddAnObject(const void* object, ULONG index) {
  if (data)
    data->InsertARef(object, index);
}

void PList::AddAnObjectHead(const void* object) { AddAnObject(object, 0); }

void PList::AddAnObjectTail(const void* object) { AddAnObject(object, Size()); }

void PList::AddAnObjectAfter(const void* object, const void* reference) {
  ULONG index = GetAnIndex(reference);
  AddAnObject(object, index == kListNoIndex ? 0 : index + 1);
}

void PList::AddAnObjectBefore(const void* object, const void* reference) {
  // Deliberately not the tail: an unknown reference puts the object before
  // the current last element, as typed lists built on this expect.
  ULONG index = GetAnIndex(reference);
  if (index == kListNoIndex)
    index = Size() == 0 ? 0 : Size() - 1;
  AddAnObject(object, index);
}

void PList::InsertAList(const PList& other, ULONG index) {
  if (data)
    data->InsertAList(other.data, index);
}

void PList::RemoveAnObject(const void* object) {
  // The first occurrence, found from the head: with duplicates the position
  // cache could point at a later one. Walking by index costs O(1) per step.
  ULONG size = Size();
  for (ULONG i = 0; i < size; ++i) {
    if (data->FindAnObjectFromIdx(i) == object) {
      data->RemoveARef(i);
      return;
    }
  }
}

void PList::RemoveAnIdx(ULONG index) {
  if (index < Size())
    data->RemoveARef(index);
}

void* PList::GetAnObject(ULONG index) const {
  return data ? data->FindAnObjectFromIdx(index) : nullptr;
}

ULONG PList::GetAnIndex(const void* object) const {
  return data ? data->FindAnIdxFromObject(object) : kListNoIndex;
}

void* PList::GetAFirstObject() const { return GetAnObject(0); }

void* PList::GetALastObject() const { return IsEmpty() ? nullptr : GetAnObject(Size() - 1); }

void* PList::GetANextObject(const void* object) const {
  ULONG index = GetAnIndex(object);
  if (index == kListNoIndex || index + 1 >= Size())
    return nullptr;
  return GetAnObject(index + 1);
}

void* PList::GetAPrevObject(const void* object) const {
  ULONG index = GetAnIndex(object);
  if (index == kListNoIndex || index == 0)
    return nullptr;
  return GetAnObject(index - 1);
}

bool PList::MoveAnObjectToHead(const void* object) { return MoveAnObjectTo(object, 0); }

bool PList::MoveAnObjectToTail(const void* object) {
  return !IsEmpty() && MoveAnObjectTo(object, Size() - 1);
}

bool PList::MoveAnObjectForward(const void* object) {
  ULONG index = GetAnIndex(object);
  return index != kListNoIndex && index > 0 && data->MoveARef(index, index - 1);
}

bool PList::MoveAnObjectBackward(const void* object) {
  ULONG index = GetAnIndex(object);
  return index != kListNoIndex && index + 1 < Size() && data->MoveARef(index, index + 1);
}

bool PList::MoveAnObjectTo(const void* object, ULONG index) {
  ULONG from = GetAnIndex(object);
  return from != kListNoIndex && from != index && data->MoveARef(from, index);
}

bool PList::MoveAnIdx(ULONG from, ULONG to) { return data && data->MoveARef(from, to); }
