// PList.h - ordered lists of object pointers over interchangeable back ends.
// Part of qvbase, the QVKernel foundation class library.
//
// A PList holds untyped object pointers in order. It owns no storage itself:
// it is built with a factory that makes its back end (a PListData): a doubly
// linked list (PLinkedListData), a growable array (PDynArrayData), or their
// reference-counting variants (PSmartListData, PSmartArrayData), which keep
// every element - a PSmartData - alive with one reference per occurrence.
// Plain back ends own none of their elements.
//
// Every back end remembers the last position it touched (index and object),
// so walking by index, or stepping to the neighbour of the object just found,
// costs O(1) per step. PList's element operations are protected: typed lists
// derive from it and expose typed wrappers.
//
//   class PTaskList : public PList {
//   public:
//     PTaskList() : PList(GDynArrayDataConstructor) {}
//     void Add(Task* t) { AddAnObjectTail(t); }
//     Task* At(ULONG i) const { return static_cast<Task*>(GetAnObject(i)); }
//   };
//
// A smart back end receives its elements as `const void*`; each must be the
// address of the PSmartData itself (convert a derived pointer to
// `PSmartData*` before it becomes `void*`).
//
// Positions and counts are 32-bit; a position that is not found is
// 0xFFFFFFFF. A list and its back end belong to one thread at a time.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

// "Not in the list", as every position-returning operation reports it.
constexpr ULONG kListNoIndex = 0xFFFFFFFFu;

// The back end of a PList: the interface every storage of list elements
// implements.
class QVBASE_API PListData : public PRoot {
public:
  PListData();
  virtual ~PListData();

  // Inserts so that the object ends up at `index` (past the end: at the end).
  virtual void InsertARef(const void* object, ULONG index) = 0;
  // Removes the element at `index` (past the end: nothing happens).
  virtual void RemoveARef(ULONG index) = 0;
  virtual void RemoveAllRefs() = 0;
  // Moves the element at `from` to `to`; false when nothing moved (equal or
  // out-of-range positions).
  virtual bool MoveARef(ULONG from, ULONG to) = 0;
  // Inserts all of another back end's elements, in order, from `index` on.
  // The other back end may be of another kind, or this one.
  virtual void InsertAList(const PListData* other, ULONG index);
  // A position of the object, kListNoIndex when absent. The position cache
  // is asked first, then its two neighbours, then a scan from the head: an
  // object that is in the list twice is found near the cache first.
  virtual ULONG FindAnIdxFromObject(const void* object) const = 0;
  // The object at `index`; null when the list is empty or `index` is past
  // the end.
  virtual void* FindAnObjectFromIdx(ULONG index) const = 0;
  // Called for every object that enters, and for every one that leaves, the
  // list. Plain back ends do nothing; the smart ones count references.
  virtual void ARefAdded(const void* object) const;
  virtual void ARefRemoved(const void* object) const;

  ULONG Count() const { return count; }

protected:
  ULONG count;
};

// The list back end over a growable array.
class QVBASE_API PDynArrayData : public PListData {
public:
  PDynArrayData();
  ~PDynArrayData() override;

  void InsertARef(const void* object, ULONG index) override;
  void RemoveARef(ULONG index) override;
  void RemoveAllRefs() override;
  bool MoveARef(ULONG from, ULONG to) override;
  ULONG FindAnIdxFromObject(const void* object) const override;
  void* FindAnObjectFromIdx(ULONG index) const override;

protected:
  ULONG capacity;         // slots allocated
  void** array;           // the slots
  mutable ULONG cacheIdx; // last position touched, kListNoIndex for none
  mutable void* cacheObj; // the object there, null for none

private:
  // Slots really allocated. Equal to capacity, except after a growth whose
  // allocation failed: capacity keeps its raised value, and the next insert
  // allocates that capacity instead of writing past the old slots.
  ULONG m_allocatedSlots;
};

// One element of a PLinkedListData.
struct PLinkedNode {
  PLinkedNode* next;
  PLinkedNode* prev;
  void* object;
};

// The list back end over a doubly linked list.
class QVBASE_API PLinkedListData : public PListData {
public:
  PLinkedListData();
  ~PLinkedListData() override;

  void InsertARef(const void* object, ULONG index) override;
  void RemoveARef(ULONG index) override;
  void RemoveAllRefs() override;
  bool MoveARef(ULONG from, ULONG to) override;
  ULONG FindAnIdxFromObject(const void* object) const override;
  void* FindAnObjectFromIdx(ULONG index) const override;

protected:
  PLinkedNode* head;
  PLinkedNode* tail;
  mutable PLinkedNode* cacheNode; // the node last touched
  mutable ULONG cacheIdx;         // its position, kListNoIndex for none
  mutable void* cacheObj;         // its object

private:
  // Links `node` in before `before`; a null `before` appends at the tail.
  void InsertNode(PLinkedNode* node, PLinkedNode* before);
  void RemoveNode(PLinkedNode* node);
  void MoveCacheTo(ULONG index) const;
  void MoveCacheTo(const void* object) const;
  void ClearCache() const;
};

// The array back end that keeps one reference on its element per occurrence.
class QVBASE_API PSmartArrayData : public PDynArrayData {
public:
  void ARefAdded(const void* object) const override;
  void ARefRemoved(const void* object) const override;
};

// The linked back end that keeps one reference on its element per occurrence.
class QVBASE_API PSmartListData : public PLinkedListData {
public:
  void ARefAdded(const void* object) const override;
  void ARefRemoved(const void* object) const override;
};

// Back-end factories, handed to PList's constructors.
QVBASE_API PListData* GLinkedListDataConstructor();
QVBASE_API PListData* GDynArrayDataConstructor();
QVBASE_API PListData* GSmartListDataConstructor();
QVBASE_API PListData* GSmartArrayDataConstructor();

// An ordered list of object pointers over an interchangeable back end.
class QVBASE_API PList : public PRoot {
public:
  typedef PListData* (*DataFactory)();

  // A factory that returns null leaves a list on which every operation does
  // nothing and every query answers 0, null or kListNoIndex.
  explicit PList(DataFactory factory);
  // A copy of `source` over a back end of this list's own choosing.
  PList(DataFactory factory, const PList& source);
  PList(const PList&) = delete;
  // Replaces the elements by the source's; the back end stays. Assigning a
  // list to itself changes nothing.
  PList& operator=(const PList& source);
  // Removes every element (the smart back ends release them), then deletes
  // the back end.
  ~PList() override;

  void Clear();
  bool IsEmpty() const;
  ULONG Size() const;

protected:
  void AddAnObject(const void* object, ULONG index);
  void AddAnObjectHead(const void* object);
  void AddAnObjectTail(const void* object);
  // After the reference; at the head when the reference is not in the list.
  void AddAnObjectAfter(const void* object, const void* reference);
  // Before the reference; before the last element when the reference is not
  // in the list (at the head of an empty list).
  void AddAnObjectBefore(const void* object, const void* reference);
  void InsertAList(const PList& other, ULONG index);
  // Removes the first occurrence from the head, if any.
  void RemoveAnObject(const void* object);
  void RemoveAnIdx(ULONG index);

  void* GetAnObject(ULONG index) const;
  ULONG GetAnIndex(const void* object) const;
  void* GetAFirstObject() const;
  void* GetALastObject() const;
  void* GetANextObject(const void* object) const;
  void* GetAPrevObject(const void* object) const;

  bool MoveAnObjectToHead(const void* object);
  bool MoveAnObjectToTail(const void* object);
  bool MoveAnObjectForward(const void* object);
  bool MoveAnObjectBackward(const void* object);
  bool MoveAnObjectTo(const void* object, ULONG index);
  bool MoveAnIdx(ULONG from, ULONG to);

  PListData* data;
};

// A typed list of T pointers over the linked back end: the elements are not
// owned. Walks by index and by neighbour are cheap (see the file comment).
//
//   LinkedList<PMsgPort> ports;
//   ports.AddTail(&port);
//   for (ULONG i = 0; i < ports.Size(); ++i) ports.At(i)->...;
template <class T>
class LinkedList : public PList {
public:
  LinkedList() : PList(GLinkedListDataConstructor) {}
  LinkedList(const LinkedList& other) : PList(GLinkedListDataConstructor, other) {}
  LinkedList& operator=(const LinkedList& other) {
    PList::operator=(other);
    return *this;
  }

  void Add(T* object, ULONG index) { AddAnObject(object, index); }
  void AddHead(T* object) { AddAnObjectHead(object); }
  void AddTail(T* object) { AddAnObjectTail(object); }
  // Removes the first occurrence from the head, if any.
  void Remove(T* object) { RemoveAnObject(object); }
  void RemoveAt(ULONG index) { RemoveAnIdx(index); }

  // Null past the end.
  T* At(ULONG index) const { return static_cast<T*>(GetAnObject(index)); }
  // kListNoIndex when absent.
  ULONG IndexOf(const T* object) const { return GetAnIndex(object); }
  bool Contains(const T* object) const { return GetAnIndex(object) != kListNoIndex; }
  T* First() const { return static_cast<T*>(GetAFirstObject()); }
  T* Last() const { return static_cast<T*>(GetALastObject()); }
  T* Next(const T* object) const { return static_cast<T*>(GetANextObject(object)); }
  T* Prev(const T* object) const { return static_cast<T*>(GetAPrevObject(object)); }
};
