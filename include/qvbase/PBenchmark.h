// PBenchmark.h - named benchmarks and the instrumented calls they measure.
// Part of qvbase, the QVKernel foundation class library.
//
// A built-in profiler that costs nothing until it is switched on. A
// PBenchmark is a named measurement (a group and a name). Starting it looks
// up HKEY_LOCAL_MACHINE\Software\Varnel\Benchmarks\<group>\<name>: only when
// that key's default value is a string does the benchmark become active,
// and the string names the text file its results are appended to when the
// benchmark is destroyed. Anything else (no key, a value of another type)
// leaves it inactive and silent.
//
// While at least one benchmark is active, every PBenchmarkCall put on the
// stack at the start of an instrumented block times that block with the
// platform's performance counter and charges it to a record per call site
// (its three texts, compared by address) in every active benchmark. Calls
// nest: a call's time counts in the inclusive time of the call it runs
// inside, and not in that call's own time; the bookkeeping of each exit is
// measured and taken out of the enclosing call, so that the profiler does
// not count itself. With no benchmark active a PBenchmarkCall tests one
// pointer and does nothing else.
//
//   void Document::Save() {
//     PBenchmarkCall call("Document", "Save", "document.cpp");
//     ...
//   }
//
//   PBenchmark benchmark("Documents", "Save");   // the registry decides
//   benchmark.Start();
//   document.Save();
//   // destroyed: "Document,Save (document.cpp)  1  0.012 s  0.034 s" and a
//   // header line are appended to the file the registry names
//
// A results file gets, for each record, the first text, the second, the
// third in parentheses, the number of calls, the own time (without the
// calls inside it) and the inclusive time, in seconds with three decimals;
// then "Benchmark results for <group> <name>" and two empty lines.
// Deliberately the header comes after the lines it heads: in a file that
// many runs append to, each run's lines come before its header.
//
// The list of active benchmarks and the innermost open call are
// process-wide and unlocked: instrumented code runs on one thread.
#pragma once

#include <qvbase/QVCompat.h>
#include <qvbase/QVExport.h>

class PBenchmarkCall;
struct PBenchmarkResults;

// A named benchmark (group and name), switched on in the registry, that records
// the instrumented calls made while it is active.
class QVBASE_API PBenchmark {
public:
  // Inactive and unlinked; the texts are not copied and must outlive the
  // benchmark.
  PBenchmark(const char* group, const char* name);
  // Deliberately copied as they are: the links, the texts, the active flag
  // and the results pointer. A copy is a second view of the same benchmark,
  // not a second one; only the original may be destroyed or stopped.
  PBenchmark(const PBenchmark& other);
  PBenchmark& operator=(const PBenchmark& other);
  // Stops the benchmark when active, then appends its results to its file
  // (once, whether or not it was stopped before). Not virtual: benchmarks
  // are destroyed as what they were made.
  ~PBenchmark();

  // Nothing in the library calls CanStop; the default answers true. Started
  // runs when the benchmark becomes active, Stopped when it stops. All three
  // do nothing here.
  virtual bool CanStop();
  virtual void Stopped();
  virtual void Started();

  // Activates the benchmark when its registry key's default value is a
  // string (see the file comment); does nothing when already active. A null
  // group or name, or records that cannot be allocated, leave it inactive.
  void Start();
  // Deactivates and unlinks an active benchmark, then runs Stopped. Its
  // records stay until its destruction.
  void Stop();

  bool IsActive() const { return m_active != 0; }
  const char* GetGroup() const { return m_group; }
  const char* GetName() const { return m_name; }
  // The results file named in the registry; null while none was read.
  const char* GetResultsPath() const;

  // The newest active benchmark, and the next older one.
  static PBenchmark* FirstActive() { return theirFirstActive; }
  PBenchmark* NextActive() const { return m_next; }

private:
  friend class PBenchmarkCall;

  // Appends the records and the header to the results file and frees them.
  void WriteResults();

  PBenchmark* m_next;     // older active benchmark
  PBenchmark* m_previous; // newer active benchmark
  const char* m_group;
  const char* m_name;
  LONG m_active;
  PBenchmarkResults* m_results; // owned: the file's path and the records

  static PBenchmark* theirFirstActive;
};

// Times the block it is declared in, from its construction to ExitCall or
// its destruction. The three texts name the call site in the results (by
// convention the class, the operation and the source); they are compared
// by address, so two sites with equal texts at different addresses are two
// records, and the texts must outlive every active benchmark.
class QVBASE_API PBenchmarkCall {
public:
  // With no active benchmark this is one pointer test and nothing else: the
  // call is never charged, even when a benchmark starts before it ends.
  PBenchmarkCall(const char* first, const char* second, const char* third) {
    if (PBenchmark::theirFirstActive)
      Enter(first, second, third);
  }
  ~PBenchmarkCall() { ExitCall(); }

  PBenchmarkCall(const PBenchmarkCall&) = delete;
  PBenchmarkCall& operator=(const PBenchmarkCall&) = delete;

  // Ends the measurement and charges it; only the innermost open call can
  // end, anything else (a call that was never timed, one already ended, one
  // with calls still open inside it) does nothing.
  void ExitCall() {
    if (theirInnermost == this)
      Leave();
  }

  // The innermost open call, null when none is open.
  static PBenchmarkCall* Innermost() { return theirInnermost; }

private:
  void Enter(const char* first, const char* second, const char* third);
  void Leave();

  // Deliberately left unset when no benchmark is active: nothing reads them
  // then.
  PBenchmarkCall* m_enclosing; // the call that was innermost when this one began
  const char* m_third;
  const char* m_second;
  const char* m_first;
  __int64 m_start;     // counter at the start
  __int64 m_elapsed;   // ticks from start to exit
  __int64 m_childTime; // ticks of the calls inside, their own bookkeeping excluded
  __int64 m_overhead;  // ticks of the bookkeeping of the calls inside

  static PBenchmarkCall* theirInnermost;
};
