// PRoot.h - the root class of every library class.
// Part of qvbase, the QVKernel foundation class library.
//
// PRoot gives every class of the library a virtual destructor, so that any
// library object deleted through a base pointer runs its most derived
// destructor, and class-level operator new and delete that route through
// GCPPAllocation. It has no data of its own; copying and assigning it copy
// nothing. Nothing here is shared state.
#pragma once

#include <qvbase/MemoryManager.h>
#include <qvbase/QVExport.h>

#include <cstddef>

// The root class of every library class: its objects are allocated
// through the library's memory manager.
class QVBASE_API PRoot {
public:
  PRoot();
  PRoot(const PRoot& other);
  virtual ~PRoot();

  // Returns the object itself; there is nothing to copy.
  PRoot& operator=(const PRoot& other);

  // Memory from GCPPAllocation. The form that names a manager passes it
  // through, and GCPPAllocation ignores it: objects never come from a
  // MemoryManager.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, MemoryManager* manager);
  static void operator delete(void* object);
  // Called only when a constructor run by the manager form of new throws.
  static void operator delete(void* object, MemoryManager* manager);
};
