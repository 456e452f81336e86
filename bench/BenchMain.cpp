// BenchMain.cpp - the benchmark program's one main: qvbase side by side with
// the libraries a C++ developer would otherwise pick (Qt 5 Core, POCO
// Foundation, Boost, libuuid and the standard library). The scenarios live in
// the *Bench.cpp files beside this one (BenchSupport.h says how one is added).
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace qvbench {
namespace {

// Filled by the scenario files' static objects before main runs; a function
// so that it exists before the first of them, whichever file that is.
std::vector<std::pair<int, RegisterFunction>>& ScenarioFiles() {
  static std::vector<std::pair<int, RegisterFunction>> files;
  return files;
}

} // namespace

ScenarioFile::ScenarioFile(int rank, RegisterFunction registerBenchmarks) {
  ScenarioFiles().emplace_back(rank, registerBenchmarks);
}

void RegisterScenarioFiles() {
  auto& files = ScenarioFiles();
  std::stable_sort(files.begin(), files.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& file : files)
    file.second();
}

} // namespace qvbench

int main(int argc, char** argv) {
  qvbench::RegisterScenarioFiles();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
