// ProgressBench.cpp - one progress step of a long operation (ContinueProgress:
// advance, time the step, ask whether to go on), against Qt's
// QFutureInterface, Boost's progress_display and a hand-written counter with
// a clock and a cancel flag.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PProgressDialog.h>
#include <qvbase/PProgressHook.h>

#include <QFutureInterface>
#include <boost/timer/progress_display.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ostream>
#include <streambuf>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

// A run of N steps of one unit each, from the start to the stop of the
// operation; the figure divided by N is the cost of one step.

void ProgressQvbase(benchmark::State& state) {
  const ULONG n = static_cast<ULONG>(state.range(0));
  for (auto _ : state) {
    PProgressHook hook;
    hook.StartProgress(n);
    for (ULONG i = 0; i < n; ++i)
      hook.ContinueProgress(1);
    hook.StopProgress();
    benchmark::DoNotOptimize(hook.GetCurrentValue());
  }
}

// The steps of a sub-operation two levels down: each one is mapped into its
// parent's slice and that into the root's, and Continue asks the root.
void ProgressQvbaseLevel2(benchmark::State& state) {
  const ULONG n = static_cast<ULONG>(state.range(0));
  for (auto _ : state) {
    PProgressHook root;
    root.StartProgress(100);
    PProgressHook* file = root.AddLevel(false, 50);
    file->StartProgress(10);
    PProgressHook* block = file->AddLevel(false, 5);
    block->StartProgress(n);
    for (ULONG i = 0; i < n; ++i)
      block->ContinueProgress(1);
    root.StopProgress();
    benchmark::DoNotOptimize(root.GetCurrentValue());
  }
}

// A progress dialog whose window never appears within the run (the show
// delay is 3 seconds): each step also checks the show date and asks the
// window for its events and its cancel button.
void ProgressQvbaseDialog(benchmark::State& state) {
  const ULONG n = static_cast<ULONG>(state.range(0));
  for (auto _ : state) {
    PProgressDialog dialog;
    dialog.StartProgress(n);
    for (ULONG i = 0; i < n; ++i)
      dialog.ContinueProgress(1);
    dialog.StopProgress();
    benchmark::DoNotOptimize(dialog.GetCurrentValue());
  }
}

// Qt's progress of a future: the value under the future's mutex, throttled
// progress events to watchers, and the cancel flag.
void ProgressQt(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    QFutureInterface<void> future;
    future.reportStarted();
    future.setProgressRange(0, n);
    for (int i = 1; i <= n; ++i) {
      future.setProgressValue(i);
      if (future.isCanceled())
        break;
    }
    future.reportFinished();
    benchmark::DoNotOptimize(future.progressValue());
  }
}

// Boost's text progress bar, drawing into a stream that drops its output. It
// neither times nor cancels.
class NullBuffer : public std::streambuf {
protected:
  int overflow(int c) override { return c; }
};

void ProgressBoost(benchmark::State& state) {
  const unsigned long n = static_cast<unsigned long>(state.range(0));
  NullBuffer buffer;
  std::ostream out(&buffer);
  for (auto _ : state) {
    boost::timer::progress_display display(n, out);
    for (unsigned long i = 0; i < n; ++i)
      ++display;
    benchmark::DoNotOptimize(display.count());
  }
}

// What an application writes by hand: a counter, the time of each step from
// the monotonic clock, and a cancel flag another thread may set.
void ProgressStd(benchmark::State& state) {
  const std::uint32_t n = static_cast<std::uint32_t>(state.range(0));
  std::atomic<bool> cancelled{false};
  for (auto _ : state) {
    std::uint32_t current = 0;
    auto last = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration lastStep{};
    for (std::uint32_t i = 0; i < n; ++i) {
      ++current;
      const auto now = std::chrono::steady_clock::now();
      lastStep = now - last;
      last = now;
      if (cancelled.load(std::memory_order_relaxed))
        break;
    }
    benchmark::DoNotOptimize(current);
    benchmark::DoNotOptimize(lastStep);
  }
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto sizes = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 100000); };
  sizes(RegisterBenchmark("progress/qvbase", ProgressQvbase));
  sizes(RegisterBenchmark("progress/qvbase_level2", ProgressQvbaseLevel2));
  sizes(RegisterBenchmark("progress/qvbase_dialog", ProgressQvbaseDialog));
  sizes(RegisterBenchmark("progress/qt", ProgressQt));
  sizes(RegisterBenchmark("progress/boost", ProgressBoost));
  sizes(RegisterBenchmark("progress/std", ProgressStd));
}

const ScenarioFile kProgress(/*rank=*/100, Register);

} // namespace
