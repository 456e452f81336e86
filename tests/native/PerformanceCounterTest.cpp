// The platform layer's performance counter: it moves forward, at the rate
// its frequency says.
#include "native/PerformanceCounter.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using qvbase::native::QueryPerformanceCounter;
using qvbase::native::QueryPerformanceFrequency;

TEST(PerformanceCounter, NeverGoesBack) {
  __int64 previous = 0;
  ASSERT_TRUE(QueryPerformanceCounter(&previous));
  for (int i = 0; i < 100000; ++i) {
    __int64 now = 0;
    ASSERT_TRUE(QueryPerformanceCounter(&now));
    ASSERT_GE(now, previous);
    previous = now;
  }
}

TEST(PerformanceCounter, FrequencyIsFixedAndAtLeastAMegahertz) {
  __int64 first = 0, second = 0;
  ASSERT_TRUE(QueryPerformanceFrequency(&first));
  ASSERT_TRUE(QueryPerformanceFrequency(&second));
  EXPECT_EQ(first, second);
  EXPECT_GE(first, 1000000);
}

TEST(PerformanceCounter, TicksOverTheFrequencyAreSecondsOfTheSteadyClock) {
  __int64 frequency = 0, start = 0, end = 0;
  ASSERT_TRUE(QueryPerformanceFrequency(&frequency));
  const auto clockStart = std::chrono::steady_clock::now();
  ASSERT_TRUE(QueryPerformanceCounter(&start));
  // Busy, not asleep: the counter must follow time spent working.
  while (std::chrono::steady_clock::now() - clockStart < std::chrono::milliseconds(50)) {
  }
  ASSERT_TRUE(QueryPerformanceCounter(&end));
  const double counted = static_cast<double>(end - start) / static_cast<double>(frequency);
  const double measured =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - clockStart).count();
  EXPECT_GE(counted, 0.045);
  EXPECT_LE(counted, measured + 0.005);
}

} // namespace
