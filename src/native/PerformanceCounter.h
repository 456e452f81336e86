// PerformanceCounter.h - the platform layer's high-resolution counter.
// Part of qvbase, the QVKernel foundation class library.
//
// The profiler times instrumented blocks with a counter that only moves
// forward, read as cheaply as the platform allows, and converts ticks to
// seconds with the counter's frequency. The calls have the shape of the Win32
// ones: on Windows they are QueryPerformanceCounter and
// QueryPerformanceFrequency; on POSIX the counter is CLOCK_MONOTONIC in
// nanoseconds, and the frequency is 1,000,000,000 ticks a second.
//
// Both may be called from any thread and take no lock.
#pragma once

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace native {

// The counter's current value; false (and 0) when the platform has none.
bool QueryPerformanceCounter(__int64* count);

// Ticks per second, fixed for the life of the process; false (and 0) when
// the platform has no counter.
bool QueryPerformanceFrequency(__int64* frequency);

} // namespace native
} // namespace qvbase
