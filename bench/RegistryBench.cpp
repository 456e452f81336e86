// RegistryBench.cpp - loading the POSIX registry store by its size: one key
// with N values, and N keys of one value each, against reading the same file
// into memory line by line with the standard library (the least any loader
// of a text file does). A linear load shows as a time per item that stays
// flat from the small size to the large one. POSIX only: on Windows the
// registry is the system's.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include "native/Registry.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;
namespace native = qvbase::native;

enum class Shape { kValues, kKeys };

// The scratch directory the stores are written to, made once: a folder in
// the system's temporary folder (TMPDIR, else /tmp), as the file_ scenarios
// use, and never the working directory, which may be a source tree. The
// stores of the large size take some 190 MB and are kept between runs.
std::string ScratchDirectory() {
  static const std::string dir = [] {
    const char* folder = std::getenv("TMPDIR");
    const std::filesystem::path path =
        std::filesystem::path(folder && *folder ? folder : "/tmp") / "qvbase-bench-registry";
    std::filesystem::create_directories(path);
    return path.string();
  }();
  return dir;
}

// Writes a store of `count` values in one key, or of `count` keys, as a
// user's script would: names in counting order (v0, v1, ..., v10, ...),
// which is not the order the store keeps sub-keys in, so that their sorting
// is measured too. `copy` tells two files of the same content apart.
std::string MakeStore(Shape shape, long count, int copy) {
  const std::string path = ScratchDirectory() + "/" +
                           (shape == Shape::kValues ? "values" : "keys") + "-" +
                           std::to_string(count) + "-" + std::to_string(copy) + ".reg";
  if (std::filesystem::exists(path))
    return path;
  std::ofstream out(path, std::ios::binary);
  out << "Windows Registry Editor Version 5.00\n\n";
  char line[96];
  if (shape == Shape::kValues) {
    out << "[HKEY_CURRENT_USER\\Software\\Scale]\n";
    for (long i = 0; i < count; ++i) {
      std::snprintf(line, sizeof line, "\"value%ld\"=dword:%08lx\n", i,
                    static_cast<unsigned long>(i));
      out << line;
    }
  } else {
    for (long i = 0; i < count; ++i) {
      std::snprintf(line, sizeof line,
                    "[HKEY_CURRENT_USER\\Software\\Scale\\key%ld]\n\"value\"=dword:%08lx\n\n", i,
                    static_cast<unsigned long>(i));
      out << line;
    }
  }
  return path;
}

// Reads the last entry of the store `path`: found only once all of it is in
// place.
bool ReadLast(const std::string& path, Shape shape, long count) {
  setenv("QVBASE_REGISTRY", path.c_str(), 1);
  const std::string last = std::to_string(count - 1);
  const std::string key =
      shape == Shape::kValues ? "Software\\Scale" : "Software\\Scale\\key" + last;
  const std::string name = shape == Shape::kValues ? "value" + last : "value";
  native::RegKey handle = nullptr;
  if (native::OpenRegKey(native::kRegCurrentUser, key.c_str(), native::kKeyRead, &handle) !=
      ERROR_SUCCESS)
    return false;
  DWORD value = 0;
  DWORD size = sizeof value;
  const LONG rc =
      native::QueryRegValue(handle, name.c_str(), nullptr, reinterpret_cast<BYTE*>(&value), &size);
  native::CloseRegKey(handle);
  return rc == ERROR_SUCCESS && value == static_cast<DWORD>(count - 1);
}

// The two copies of a store, old enough that the store takes their times as
// settled (a file touched in the last two seconds is read and compared each
// time, in case it changed within one tick of the file system's clock).
struct Stores {
  std::string first;
  std::string second;
};

Stores MakeStores(Shape shape, long count) {
  Stores stores{MakeStore(shape, count, 1), MakeStore(shape, count, 2)};
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  return stores;
}

// Every iteration parses a whole store: the reads alternate between two
// copies, and the store keeps a snapshot of the last file it parsed only.
// Each load also releases the tree of the one before; the second copy is
// read once first, so that the first timed load releases a tree of the same
// size as every other, not whatever tree the benchmark before left (freeing
// a million keys of another scenario would be charged to a few loads of
// this one).
void LoadQvbase(benchmark::State& state, Shape shape) {
  const long count = static_cast<long>(state.range(0));
  const Stores stores = MakeStores(shape, count);
  if (!ReadLast(stores.second, shape, count)) {
    state.SkipWithError(native::RegLastErrorText().c_str());
    return;
  }
  bool second = false;
  for (auto _ : state) {
    if (!ReadLast(second ? stores.second : stores.first, shape, count)) {
      state.SkipWithError(native::RegLastErrorText().c_str());
      break;
    }
    second = !second;
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Reads of an unchanged store after the first take its snapshot.
void RereadQvbase(benchmark::State& state, Shape shape) {
  const long count = static_cast<long>(state.range(0));
  const Stores stores = MakeStores(shape, count);
  if (!ReadLast(stores.first, shape, count)) {
    state.SkipWithError(native::RegLastErrorText().c_str());
    return;
  }
  for (auto _ : state)
    benchmark::DoNotOptimize(ReadLast(stores.first, shape, count));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The same file read into memory and split into lines, nothing parsed.
void LoadLines(benchmark::State& state, Shape shape) {
  const long count = static_cast<long>(state.range(0));
  const std::string path = MakeStore(shape, count, 1);
  for (auto _ : state) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    std::size_t lines = 0;
    while (std::getline(in, line))
      lines += !line.empty();
    benchmark::DoNotOptimize(lines);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto sizes = [](benchmark::internal::Benchmark* b) {
    Sizes(b, 10000, 1000000);
    b->Unit(benchmark::kMillisecond);
  };
  sizes(RegisterBenchmark("reg_values/qvbase", LoadQvbase, Shape::kValues));
  sizes(RegisterBenchmark("reg_values/lines", LoadLines, Shape::kValues));
  sizes(RegisterBenchmark("reg_values/qvbase_reread", RereadQvbase, Shape::kValues));
  sizes(RegisterBenchmark("reg_keys/qvbase", LoadQvbase, Shape::kKeys));
  sizes(RegisterBenchmark("reg_keys/lines", LoadLines, Shape::kKeys));
  sizes(RegisterBenchmark("reg_keys/qvbase_reread", RereadQvbase, Shape::kKeys));
}

const ScenarioFile kRegistry(/*rank=*/120, Register);

} // namespace
