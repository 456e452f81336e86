// ErrorBench.cpp - an error with information items raised under nested
// protections and caught outside them, against a standard exception with RAII
// guards and POCO's exception.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PError.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMBString.h>

#include <Poco/Exception.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

// An error carrying N information items (alternately integers and strings),
// signalled under three nested protections and caught outside them.

const char* const kInfoKeys[] = {"i0", "i1", "i2",  "i3",  "i4",  "i5",  "i6",  "i7",
                                 "i8", "i9", "i10", "i11", "i12", "i13", "i14", "i15"};

void ErrorQvbase(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const PMBString value("a file name.txt", true);
  long caught = 0;
  for (auto _ : state) {
    PErrorProtection outer(true);
    try {
      PErrorProtection middle(true);
      PErrorRetryProtection inner(true);
      PError error(kErrInvalidArgument, ErrorSeverityError, __FILE__, __LINE__);
      for (int i = 0; i < n; ++i) {
        if (i & 1)
          error.SetStringInfo(kInfoKeys[i], value);
        else
          error.SetIntegerInfo(kInfoKeys[i], i);
      }
      PErrorProtectionStatus().SignalError(error);
    } catch (const PError& e) {
      caught += e.Code();
    }
  }
  benchmark::DoNotOptimize(caught);
}

// The standard library's way: an exception type with a list of key/value
// texts, thrown through three RAII guards.
struct Guard {
  int* depth;
  explicit Guard(int* d) : depth(d) { ++*depth; }
  ~Guard() { --*depth; }
};

struct InfoError : std::runtime_error {
  using std::runtime_error::runtime_error;
  std::vector<std::pair<std::string, std::string>> info;
};

void ErrorStd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  long caught = 0;
  int depth = 0;
  for (auto _ : state) {
    Guard outer(&depth);
    try {
      Guard middle(&depth);
      Guard inner(&depth);
      InfoError error("1001");
      for (int i = 0; i < n; ++i)
        error.info.emplace_back(kInfoKeys[i],
                                (i & 1) ? std::string("a file name.txt") : std::to_string(i));
      throw error;
    } catch (const InfoError& e) {
      caught += static_cast<long>(e.info.size()) + e.what()[0];
    }
  }
  benchmark::DoNotOptimize(caught);
}

// POCO's exception carries a message and a code: the items go into the
// message text.
void ErrorPoco(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  long caught = 0;
  int depth = 0;
  for (auto _ : state) {
    Guard outer(&depth);
    try {
      Guard middle(&depth);
      Guard inner(&depth);
      std::string message;
      for (int i = 0; i < n; ++i) {
        message += kInfoKeys[i];
        message += '=';
        message += (i & 1) ? std::string("a file name.txt") : std::to_string(i);
        message += ';';
      }
      throw Poco::Exception(message, kErrInvalidArgument);
    } catch (const Poco::Exception& e) {
      caught += e.code();
    }
  }
  benchmark::DoNotOptimize(caught);
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto infos = [](benchmark::internal::Benchmark* b) { Sizes(b, 0, 16); };
  infos(RegisterBenchmark("error_3/qvbase", ErrorQvbase));
  infos(RegisterBenchmark("error_3/std", ErrorStd));
  infos(RegisterBenchmark("error_3/poco", ErrorPoco));
}

const ScenarioFile kErrors(/*rank=*/60, Register);

} // namespace
