// PerformanceCounterPosix.cpp - the high-resolution counter on POSIX systems.
// Part of qvbase, the QVKernel foundation class library.
#include "native/PerformanceCounter.h"

#include <time.h>

namespace qvbase {
namespace native {

namespace {

constexpr __int64 kNanosecondsPerSecond = 1000000000;

} // namespace

bool QueryPerformanceCounter(__int64* count) {
  timespec now;
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
    *count = 0;
    return false;
  }
  *count = static_cast<__int64>(now.tv_sec) * kNanosecondsPerSecond + now.tv_nsec;
  return true;
}

bool QueryPerformanceFrequency(__int64* frequency) {
  *frequency = kNanosecondsPerSecond;
  return true;
}

} // namespace native
} // namespace qvbase
