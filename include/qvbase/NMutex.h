// NMutex.h - a recursive lock with an explicit two-phase life.
// Part of qvbase, the QVKernel foundation class library.
//
// NMutex wraps one platform critical section (a recursive pthread mutex on
// POSIX): mutual exclusion between threads, recursive entry by the thread
// that holds it, no time-out. Its life has two phases on purpose. A new
// mutex is held by the thread that constructs it, so that the owner finishes
// setting up what the mutex guards before anybody else can enter: Init then
// releases it. Uninit detaches and frees the critical section; it must come
// before destruction, and destroying a mutex that is still attached is a
// defect the library reports as a fatal error (1006).
//
//   NMutex mutex;                // held by this thread
//   ... set up the guarded state ...
//   mutex.Init();                // now free
//   if (mutex.Lock()) { ...; mutex.Unlock(); }
//   mutex.Uninit();              // before the destructor
//
// The critical section is allocated with GMemAllocation from the default
// memory manager. Copies share it (the pointer is copied): only one of them
// may call Uninit. A mutex object may be used from any thread; Init and
// Uninit belong to its owner.
#pragma once

#include <qvbase/PRoot.h>
#include <qvbase/QVExport.h>

// A recursive lock over one platform critical section, held by its
// constructor until Init and detached by Uninit (see the file comment).
class QVBASE_API NMutex : public PRoot {
public:
  // Allocates and initialises a critical section and enters it at once. When
  // it cannot be had the mutex has none: Init and Lock answer false.
  NMutex();
  // Both refer to the same critical section afterwards.
  NMutex(const NMutex& other);
  NMutex& operator=(const NMutex& other);
  // With the critical section still attached (no Uninit), signals error
  // 1006, severity 33 (fatal), through the protections, and leaves the
  // critical section allocated. A destructor cannot pass an error on: when
  // the protections throw it, it goes no further than here.
  ~NMutex() override;

  // Leaves the critical section once, releasing the hold the constructor
  // took; false when there is none.
  bool Init();
  // Blocks until the calling thread holds the critical section (at once
  // when it holds it already); false, without blocking, when there is none.
  bool Lock() const;
  // Leaves it once. There is no test for a missing critical section: calling
  // this on a mutex without one is the caller's error.
  void Unlock() const;
  // Enters the critical section, detaches it, leaves it, destroys it and
  // frees its memory. Lock answers false afterwards.
  void Uninit();

private:
  void* m_section; // the platform critical section; null when detached or never made
};
