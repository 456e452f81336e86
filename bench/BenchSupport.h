// BenchSupport.h - what the scenario files of the benchmark program share.
// Part of qvbase, the QVKernel foundation class library.
//
// Every benchmark is named "<scenario>/<implementation>/<size>", so that
// bench/ratios.py can set each peer against qvbase for the same scenario and
// size: implementations whose name starts with "qvbase" are ours, every other
// one is a peer. Each iteration does the whole scenario at that size (N
// values, N identifiers, N strings, a list of N elements, ...); every
// scenario runs at a small and a large size so that the growth of its cost
// shows.
//
// A scenario file (bench/<Family>Bench.cpp, picked up by bench/CMakeLists.txt
// without being listed) registers its benchmarks from one function, which it
// hands to the program's one main with a ScenarioFile at namespace scope:
//
//   void Register() {
//     qvbench::Sizes(benchmark::RegisterBenchmark("queue/qvbase", QueueQvbase), 10, 10000);
//     qvbench::Sizes(benchmark::RegisterBenchmark("queue/std", QueueStd), 10, 10000);
//   }
//   const qvbench::ScenarioFile kQueue(/*rank=*/70, Register);
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace qvbench {

using RegisterFunction = void (*)();

// Hands a scenario file's registration function to main. main calls them by
// rank, lowest first, because the ratio table lists scenarios in the order
// they were registered: the rank keeps that order whatever order the linker
// puts the files in. Each file takes a rank of its own.
class ScenarioFile {
public:
  ScenarioFile(int rank, RegisterFunction registerBenchmarks);
};

// Calls every scenario file's registration function, by rank.
void RegisterScenarioFiles();

// The two sizes a scenario runs at, its figures in microseconds.
inline void Sizes(benchmark::internal::Benchmark* benchmark, int small, int large) {
  benchmark->Arg(small)->Arg(large)->Unit(benchmark::kMicrosecond);
}

// Byte helpers for the hand-written baselines, which lay out by hand what the
// library's typed values and sections write.

// `value` with its bytes reversed when `swap` is set.
template <typename T>
T Ordered(T value, bool swap) {
  if (!swap)
    return value;
  if constexpr (sizeof(T) == 2)
    return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(value)));
  if constexpr (sizeof(T) == 4)
    return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
  return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(value)));
}

// Appends `value` to `out`, its bytes reversed when `swap` is set.
template <typename T>
void Put(std::vector<char>& out, T value, bool swap) {
  value = Ordered(value, swap);
  const size_t at = out.size();
  out.resize(at + sizeof(T));
  std::memcpy(out.data() + at, &value, sizeof(T));
}

// Reads a T at `at` and moves `at` past it.
template <typename T>
T Get(const std::vector<char>& in, size_t& at, bool swap) {
  T value;
  std::memcpy(&value, in.data() + at, sizeof(T));
  at += sizeof(T);
  return Ordered(value, swap);
}

} // namespace qvbench
