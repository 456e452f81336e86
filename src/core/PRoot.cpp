// PRoot.cpp - the root class of every library class.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PRoot.h>

#include <new>

namespace {

// GCPPAllocation takes a 32-bit size; no object comes near that, but a size
// that does not fit fails the way the global operator does.
unsigned int ObjectSize(std::size_t size) {
  if (size != static_cast<unsigned int>(size))
    throw std::bad_alloc();
  return static_cast<unsigned int>(size);
}

} // namespace

PRoot::PRoot() = default;

PRoot::PRoot(const PRoot&) {}

PRoot::~PRoot() = default;

PRoot& PRoot::operator=(const PRoot&) { return *this; }

void* PRoot::operator new(std::size_t size) { return GCPPAllocation(ObjectSize(size), nullptr); }

void* PRoot::operator new(std::size_t size, MemoryManager* manager) {
  return GCPPAllocation(ObjectSize(size), manager);
}

void PRoot::operator delete(void* object) { ::operator delete(object); }

void PRoot::operator delete(void* object, MemoryManager*) { ::operator delete(object); }
