// ProfilerBench.cpp - what an instrumented block pays for its PBenchmarkCall:
// with no benchmark active, and with one active, against timing the block by
// hand with two reads of std::chrono::steady_clock.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PBenchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

const char kClass[] = "Bench";
const char kOperation[] = "Call";
const char kSource[] = "ProfilerBench.cpp";

// N instrumented blocks, each empty but for a compiler barrier, so that the
// test of the benchmark list is made for every block as in real code.
void CallsOff(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  for (auto _ : state) {
    for (std::int64_t i = 0; i < n; ++i) {
      PBenchmarkCall call(kClass, kOperation, kSource);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// One benchmark switched on through a registry of the program's own (the
// POSIX store QVBASE_REGISTRY names), its results file removed at the end.
class SwitchedOnBenchmark {
public:
  SwitchedOnBenchmark() {
    const char* folder = std::getenv("TMPDIR");
    const std::string base = std::string(folder && *folder ? folder : "/tmp") + "/qvbase-bench-";
    m_store = base + "registry.reg";
    m_results = base + "profile.txt";
    if (std::FILE* store = std::fopen(m_store.c_str(), "w")) {
      std::fprintf(store,
                   "Windows Registry Editor Version 5.00\n\n"
                   "[HKEY_LOCAL_MACHINE\\Software\\Varnel\\Benchmarks\\Bench\\Calls]\n"
                   "@=\"%s\"\n",
                   m_results.c_str());
      std::fclose(store);
    }
    const char* saved = std::getenv("QVBASE_REGISTRY");
    m_hadStore = saved != nullptr;
    if (saved)
      m_savedStore = saved;
    setenv("QVBASE_REGISTRY", m_store.c_str(), 1);
    m_benchmark = new PBenchmark("Bench", "Calls");
    m_benchmark->Start();
  }
  ~SwitchedOnBenchmark() {
    delete m_benchmark;
    if (m_hadStore)
      setenv("QVBASE_REGISTRY", m_savedStore.c_str(), 1);
    else
      unsetenv("QVBASE_REGISTRY");
    std::remove(m_store.c_str());
    std::remove(m_results.c_str());
  }
  bool IsActive() const { return m_benchmark->IsActive(); }

private:
  std::string m_store, m_results, m_savedStore;
  bool m_hadStore = false;
  PBenchmark* m_benchmark = nullptr;
};

// N instrumented blocks inside one enclosing block, with the benchmark
// active: each block reads the counter at its start and twice at its end
// and charges its record; the bookkeeping goes to the enclosing block's
// overhead.
void CallsOn(benchmark::State& state) {
  SwitchedOnBenchmark on;
  if (!on.IsActive()) {
    state.SkipWithError("the benchmark did not switch on");
    return;
  }
  const std::int64_t n = state.range(0);
  for (auto _ : state) {
    PBenchmarkCall outer(kClass, "Outer", kSource);
    for (std::int64_t i = 0; i < n; ++i) {
      PBenchmarkCall call(kClass, kOperation, kSource);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// The same blocks timed by hand: two reads of the steady clock around each,
// their difference summed.
void CallsSteadyClock(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  std::chrono::steady_clock::duration total{};
  for (auto _ : state) {
    for (std::int64_t i = 0; i < n; ++i) {
      const auto start = std::chrono::steady_clock::now();
      benchmark::ClobberMemory();
      total += std::chrono::steady_clock::now() - start;
    }
  }
  benchmark::DoNotOptimize(total);
  state.SetItemsProcessed(state.iterations() * n);
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto sizes = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 100000); };
  sizes(RegisterBenchmark("bench_call/qvbase_off", CallsOff));
  sizes(RegisterBenchmark("bench_call/qvbase_on", CallsOn));
  sizes(RegisterBenchmark("bench_call/steady_clock", CallsSteadyClock));
}

const ScenarioFile kProfiler(/*rank=*/110, Register);

} // namespace
