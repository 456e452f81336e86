// PListTestSupport.h - what the list suite's files share: a list with its
// element operations in view, back ends with their fields in view, distinct
// elements, and smart elements that journal their life.
#pragma once

#include <qvbase/PList.h>
#include <qvbase/PSmartData.h>

#include <string>
#include <utility>
#include <vector>

namespace qvbase::test {

// Exposes the protected element operations, as a typed list would.
class TestList : public PList {
public:
  using PList::PList;
  using PList::operator=;
  using PList::AddAnObject;
  using PList::AddAnObjectAfter;
  using PList::AddAnObjectBefore;
  using PList::AddAnObjectHead;
  using PList::AddAnObjectTail;
  using PList::GetAFirstObject;
  using PList::GetALastObject;
  using PList::GetANextObject;
  using PList::GetAnIndex;
  using PList::GetAnObject;
  using PList::GetAPrevObject;
  using PList::InsertAList;
  using PList::MoveAnIdx;
  using PList::MoveAnObjectBackward;
  using PList::MoveAnObjectForward;
  using PList::MoveAnObjectTo;
  using PList::MoveAnObjectToHead;
  using PList::MoveAnObjectToTail;
  using PList::RemoveAnIdx;
  using PList::RemoveAnObject;
  PListData* Data() const { return data; }
};

// Array back end with its fields in view.
class InspectedArray : public PDynArrayData {
public:
  ULONG Capacity() const { return capacity; }
  ULONG CacheIdx() const { return cacheIdx; }
  void* CacheObj() const { return cacheObj; }
};
inline PListData* InspectedArrayConstructor() { return new InspectedArray; }

class InspectedLinked : public PLinkedListData {
public:
  ULONG CacheIdx() const { return cacheIdx; }
  void* CacheObj() const { return cacheObj; }
};
inline PListData* InspectedLinkedConstructor() { return new InspectedLinked; }

inline PListData* NullConstructor() { return nullptr; }

struct Backend {
  const char* name;
  PList::DataFactory factory;
};
inline const Backend kBackends[] = {
    {"linked", GLinkedListDataConstructor},
    {"array", GDynArrayDataConstructor},
    {"smart linked", GSmartListDataConstructor},
    {"smart array", GSmartArrayDataConstructor},
};
inline const Backend kPlainBackends[] = {
    {"linked", GLinkedListDataConstructor},
    {"array", GDynArrayDataConstructor},
};

// Distinct addresses to store; plain back ends never touch what they point at.
inline int gItems[16];
inline void* Item(int i) { return &gItems[i]; }

inline std::vector<void*> Contents(const TestList& list) {
  std::vector<void*> out;
  for (ULONG i = 0; i < list.Size(); ++i)
    out.push_back(list.GetAnObject(i));
  return out;
}

inline void Fill(TestList& list, int n) {
  for (int i = 0; i < n; ++i)
    list.AddAnObjectTail(Item(i));
}

// Records, in one shared journal, the life events of smart elements.
struct Journal {
  std::vector<std::string> events;
};

class Tracked : public PSmartData {
public:
  Tracked(Journal* journal, std::string name, TestList* watched = nullptr)
      : m_journal(journal), m_name(std::move(name)), m_watched(watched) {}
  ~Tracked() override {
    std::string where;
    if (m_watched)
      where = m_watched->GetAnIndex(this) == kListNoIndex ? " (out of list)" : " (still in list)";
    m_journal->events.push_back("delete " + m_name + where);
  }
  void Initialize() override { m_journal->events.push_back("init " + m_name); }
  void Uninitialize() override { m_journal->events.push_back("uninit " + m_name); }

private:
  Journal* m_journal;
  std::string m_name;
  TestList* m_watched;
};

inline const void* AsElement(const Tracked* t) { return static_cast<const PSmartData*>(t); }

} // namespace qvbase::test
