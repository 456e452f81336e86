// PBenchmark.cpp - named benchmarks, their activation from the registry, the
// charging of instrumented calls, and the results file.
// Part of qvbase, the QVKernel foundation class library.
#include <qvbase/PBenchmark.h>

#include <qvbase/MemoryManager.h>

#include <cstdio>

#include "native/PerformanceCounter.h"
#include "native/Registry.h"

// One call site's totals in one benchmark.
struct PBenchmarkRecord {
  PBenchmarkRecord* next;
  const char* first;
  const char* second;
  const char* third;
  unsigned __int64 count;
  __int64 total;    // ticks, from start to exit of every call
  __int64 overhead; // ticks of the bookkeeping of the calls inside
  __int64 child;    // ticks of the calls inside
};

// What an active benchmark owns: the results file's path and its records,
// the newest first.
struct PBenchmarkResults {
  char* path;
  PBenchmarkRecord* records;
};

PBenchmark* PBenchmark::theirFirstActive = nullptr;
PBenchmarkCall* PBenchmarkCall::theirInnermost = nullptr;

namespace {

const char kBenchmarksKey[] = "Software\\Varnel\\Benchmarks";

__int64 Counter() {
  __int64 now = 0;
  qvbase::native::QueryPerformanceCounter(&now);
  return now;
}

// Closes the keys it holds when it goes.
class KeyChain {
public:
  KeyChain() = default;
  ~KeyChain() {
    for (int i = m_count; i > 0; --i)
      qvbase::native::CloseRegKey(m_keys[i - 1]);
  }
  KeyChain(const KeyChain&) = delete;
  KeyChain& operator=(const KeyChain&) = delete;

  // Opens `subKey` below the last key opened (below HKEY_LOCAL_MACHINE for
  // the first) for reading.
  bool Open(const char* subKey) {
    qvbase::native::RegKey parent =
        m_count == 0 ? qvbase::native::kRegLocalMachine : m_keys[m_count - 1];
    qvbase::native::RegKey key = nullptr;
    if (qvbase::native::OpenRegKey(parent, subKey, qvbase::native::kKeyRead, &key) != ERROR_SUCCESS)
      return false;
    m_keys[m_count++] = key;
    return true;
  }
  qvbase::native::RegKey Last() const { return m_keys[m_count - 1]; }

private:
  qvbase::native::RegKey m_keys[3] = {};
  int m_count = 0;
};

// The path the key's default value holds, in a block of its own (null when
// it cannot be read). The block has room for a terminator the value may
// lack.
char* ReadPath(qvbase::native::RegKey key, DWORD size) {
  if (size == 0xFFFFFFFFu)
    return nullptr;
  char* path = static_cast<char*>(GMemAllocation(nullptr, size + 1, /*mode=*/0));
  if (!path)
    return nullptr;
  DWORD read = size;
  if (qvbase::native::QueryRegValue(key, nullptr, nullptr, reinterpret_cast<BYTE*>(path), &read) !=
      ERROR_SUCCESS) {
    GMemFree(path);
    return nullptr;
  }
  return path;
}

// The record of a call site, found by the addresses of its texts, or a new
// one at the head; null when none can be allocated.
PBenchmarkRecord* RecordFor(PBenchmarkResults* results, const char* first, const char* second,
                            const char* third) {
  for (PBenchmarkRecord* record = results->records; record; record = record->next) {
    if (record->first == first && record->second == second && record->third == third)
      return record;
  }
  auto* record =
      static_cast<PBenchmarkRecord*>(GMemAllocation(nullptr, sizeof(PBenchmarkRecord), 0));
  if (!record)
    return nullptr;
  record->next = results->records;
  record->first = first;
  record->second = second;
  record->third = third;
  results->records = record;
  return record;
}

const char* Printable(const char* text) { return text ? text : ""; }

// Whole milliseconds of `ticks`, as a signed 64-bit count.
__int64 Milliseconds(__int64 ticks, __int64 frequency) {
  return frequency > 0 ? ticks * 1000 / frequency : 0;
}

} // namespace

// ---------------------------------------------------------------------------
// PBenchmark

PBenchmark::PBenchmark(const char* group, const char* name)
    : m_next(nullptr), m_previous(nullptr), m_group(group), m_name(name), m_active(0),
      m_results(nullptr) {}

PBenchmark::PBenchmark(const PBenchmark& other)
    : m_next(other.m_next), m_previous(other.m_previous), m_group(other.m_group),
      m_name(other.m_name), m_active(other.m_active), m_results(other.m_results) {}

PBenchmark& PBenchmark::operator=(const PBenchmark& other) {
  m_next = other.m_next;
  m_previous = other.m_previous;
  m_group = other.m_group;
  m_name = other.m_name;
  m_active = other.m_active;
  m_results = other.m_results;
  return *this;
}

PBenchmark::~PBenchmark() {
  if (m_active)
    Stop();
  if (m_results)
    WriteResults();
}

bool PBenchmark::CanStop() { return true; }
void PBenchmark::Stopped() {}
void PBenchmark::Started() {}

const char* PBenchmark::GetResultsPath() const { return m_results ? m_results->path : nullptr; }

void PBenchmark::Start() {
  if (m_active || !m_group || !m_name)
    return;
  KeyChain keys;
  if (!keys.Open(kBenchmarksKey) || !keys.Open(m_group) || !keys.Open(m_name))
    return;
  DWORD type = 0;
  DWORD size = 0;
  if (qvbase::native::QueryRegValue(keys.Last(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
      type != qvbase::native::kRegSz)
    return;
  // Started a second time after a Stop, the benchmark goes on adding to the
  // records it has.
  if (!m_results) {
    m_results =
        static_cast<PBenchmarkResults*>(GMemAllocation(nullptr, sizeof(PBenchmarkResults), 0));
    if (!m_results)
      return;
  }
  m_active = 1;
  m_previous = nullptr;
  m_next = theirFirstActive;
  if (m_next)
    m_next->m_previous = this;
  theirFirstActive = this;
  Started();
  if (!m_results->path)
    m_results->path = ReadPath(keys.Last(), size);
}

void PBenchmark::Stop() {
  if (!m_active)
    return;
  m_active = 0;
  if (m_previous)
    m_previous->m_next = m_next;
  if (theirFirstActive == this)
    theirFirstActive = m_next;
  if (m_next)
    m_next->m_previous = m_previous;
  m_next = nullptr;
  m_previous = nullptr;
  Stopped();
}

void PBenchmark::WriteResults() {
  __int64 frequency = 0;
  qvbase::native::QueryPerformanceFrequency(&frequency);
  std::FILE* file = m_results->path ? std::fopen(m_results->path, "a") : nullptr;
  for (PBenchmarkRecord* record = m_results->records; record;) {
    if (file) {
      const __int64 own = Milliseconds(record->total - record->child - record->overhead, frequency);
      const __int64 inclusive = Milliseconds(record->total - record->overhead, frequency);
      std::fprintf(file, "%s,%s (%s)                 %u   %.3f s    %.3f s\n",
                   Printable(record->first), Printable(record->second), Printable(record->third),
                   static_cast<unsigned>(static_cast<ULONG>(record->count)),
                   static_cast<double>(own) * 0.001, static_cast<double>(inclusive) * 0.001);
    }
    PBenchmarkRecord* next = record->next;
    GMemFree(record);
    record = next;
  }
  if (file) {
    // Deliberately after the lines it heads; readers of appended files rely
    // on each run ending with its header.
    std::fprintf(file, "Benchmark results for %s %s\n\n", Printable(m_group), Printable(m_name));
    std::fprintf(file, "\n\n");
    std::fclose(file);
  }
  GMemFree(m_results->path);
  GMemFree(m_results);
  m_results = nullptr;
}

// ---------------------------------------------------------------------------
// PBenchmarkCall

void PBenchmarkCall::Enter(const char* first, const char* second, const char* third) {
  m_third = third;
  m_second = second;
  m_first = first;
  m_enclosing = theirInnermost;
  theirInnermost = this;
  m_elapsed = 0;
  m_childTime = 0;
  m_overhead = 0;
  m_start = Counter();
}

void PBenchmarkCall::Leave() {
  const __int64 now = Counter();
  theirInnermost = m_enclosing;
  m_elapsed = now - m_start;
  for (PBenchmark* benchmark = PBenchmark::theirFirstActive; benchmark;
       benchmark = benchmark->m_next) {
    if (!benchmark->m_results)
      continue;
    PBenchmarkRecord* record = RecordFor(benchmark->m_results, m_first, m_second, m_third);
    if (!record)
      continue;
    record->count += 1;
    record->total += m_elapsed;
    record->overhead += m_overhead;
    record->child += m_childTime;
  }
  if (m_enclosing) {
    m_enclosing->m_childTime += m_elapsed - m_overhead;
    // The bookkeeping since `now` is not the enclosing block's own time.
    m_enclosing->m_overhead += Counter() - now;
  }
}
