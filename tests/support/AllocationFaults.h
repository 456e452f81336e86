// AllocationFaults.h - counting allocations and making them fail, for the
// tests that run a scenario once per allocation it makes.
//
// Two sources are watched as one sequence: the library's memory managers
// (a manager installed as the default for the scope of a Watch) and global
// operator new, which this support replaces in the test executable that
// links AllocationFaults.cpp (one executable only: nothing else may replace
// it there). On ELF platforms the library's own operator new calls reach the
// replacement too; a DLL's do not, so the operator new half of a scenario is
// only watched where LibraryNewIsWatched() says so.
//
//   AllocationFaults::Watch watch;                 // counts, fails nothing
//   RunScenario();
//   const std::size_t total = watch.Allocations();
//   for (std::size_t n = 1; n <= total; ++n) {
//     AllocationFaults::Watch failing(n, AllocationFaults::kTransient);
//     ... RunScenario(): the n-th allocation fails, the others succeed
//   }
//
// A failing operator new throws std::bad_alloc; a failing manager answers
// null, as the system manager does when the heap is exhausted.
#pragma once

#include <cstddef>

namespace qvbase::test {

class AllocationFaults {
public:
  enum Kind {
    kTransient,  // only the n-th allocation fails
    kPersistent, // the n-th and every later one fail
  };

  // Counts allocations while it lives and fails them as told; installs the
  // failing memory manager as the default and restores the previous one.
  // Watches do not nest.
  class Watch {
  public:
    Watch();                              // counts, fails nothing
    Watch(std::size_t failAt, Kind kind); // 1-based
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Allocations asked for so far, failed ones included.
    std::size_t Allocations() const;
    // Allocations made to fail so far.
    std::size_t Failures() const;
    // The largest single request so far, in bytes.
    std::size_t Largest() const;
    // Requests seen but not given back: blocks and objects that are still
    // alive (a scenario that cleans up after itself leaves 0). Under Windows
    // the manager's blocks only: operator new's blocks cross the DLL
    // boundary there and are not tracked.
    long Outstanding() const;
    // The most bytes alive at once, of those allocated under this Watch
    // (under Windows, of the manager's blocks).
    std::size_t PeakBytes() const;
  };

  // Whether operator new called inside the library reaches the replacement.
  static bool LibraryNewIsWatched();
};

} // namespace qvbase::test
