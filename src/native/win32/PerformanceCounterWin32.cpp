// PerformanceCounterWin32.cpp - the high-resolution counter on Windows.
// Part of qvbase, the QVKernel foundation class library.
#include "native/PerformanceCounter.h"

#include <qvbase/QVCompat.h>

namespace qvbase {
namespace native {

bool QueryPerformanceCounter(__int64* count) {
  LARGE_INTEGER value;
  if (!::QueryPerformanceCounter(&value)) {
    *count = 0;
    return false;
  }
  *count = value.QuadPart;
  return true;
}

bool QueryPerformanceFrequency(__int64* frequency) {
  LARGE_INTEGER value;
  if (!::QueryPerformanceFrequency(&value)) {
    *frequency = 0;
    return false;
  }
  *frequency = value.QuadPart;
  return true;
}

} // namespace native
} // namespace qvbase
