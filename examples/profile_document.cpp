// profile_document.cpp - the built-in profiler, switched on in the registry.
//
// The program writes a file of many identified sections through the
// buffered file handler, reads it back (skipping the sections it does not
// want) and looks for words in texts, all under one benchmark, group
// "Examples", name "Profile". The benchmark measures only while the key
// HKEY_LOCAL_MACHINE\Software\Varnel\Benchmarks\Examples\Profile has a
// string default value, which names the file its results are appended to:
//
//   qvreg set 'HKLM\Software\Varnel\Benchmarks\Examples\Profile' '' sz /tmp/profile.txt
//   qvbase_profile_example [FILE] [SECTIONS]
//   cat /tmp/profile.txt
//
// The results show the program's own blocks (PBenchmarkCall below) beside the
// library's instrumented calls: stream open and close, section writing,
// opening and skipping, and the string handlers' searches. FILE defaults to
// profile_document.qvd, SECTIONS to 20000.
#include <qvbase/qvbase.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/FileStreamHdl.h"

namespace {

// The call sites' texts; the profiler tells them apart by address.
const char kExample[] = "Example";
const char kSource[] = "profile_document.cpp";

const PAutomaticUID kRecord("Record");
const PAutomaticUID kNote("Note");

const char* const kWords[] = {"alpha", "beta", "gamma", "delta", "epsilon", "zeta", "eta"};

PString RecordText(ULONG index) {
  std::string text = "record " + std::to_string(static_cast<unsigned long>(index)) + ":";
  for (int w = 0; w < 12; ++w)
    text += std::string(" ") + kWords[(index + static_cast<ULONG>(w) * 3) % 7];
  return PString(text.c_str(), /*copy=*/true);
}

void WriteSections(PStream& file, ULONG count) {
  PBenchmarkCall call(kExample, "WriteSections", kSource);
  for (ULONG i = 0; i < count; ++i) {
    // Every fourth section is a note that the reader skips.
    PStreamSection section = OpenWriteSection(file, i % 4 == 3 ? kNote : kRecord, 1);
    section.Write(static_cast<LONG>(i));
    section.Write(RecordText(i));
    section.Close();
  }
}

ULONG ReadSections(PStream& file, ULONG* skipped, ULONG* found) {
  PBenchmarkCall call(kExample, "ReadSections", kSource);
  ULONG read = 0;
  while (!file.IsAtEnd()) {
    if (GetNextSection(file) != kRecord) {
      SkipCurrentSection(file);
      ++*skipped;
      continue;
    }
    PStreamSection section = OpenReadSection(file, kRecord);
    LONG index = 0;
    PString text;
    section.Read(&index);
    section.Read(&text);
    section.Close();
    ++read;
    PBenchmarkCall search(kExample, "FindWords", kSource);
    for (ULONG at = text.FindForward("epsilon", 0, kStrCompIgnoreCase); at != kStringNotFound;
         at = text.FindForward("epsilon", at + 1, kStrCompIgnoreCase))
      ++*found;
  }
  return read;
}

} // namespace

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "profile_document.qvd";
  const ULONG count = argc > 2 ? static_cast<ULONG>(std::strtoul(argv[2], nullptr, 10)) : 20000;

  PBenchmark benchmark("Examples", "Profile");
  benchmark.Start();
  if (benchmark.IsActive())
    std::printf("profiler on: results are appended to %s\n", benchmark.GetResultsPath());
  else
    std::printf("profiler off: HKLM\\Software\\Varnel\\Benchmarks\\Examples\\Profile has no "
                "string default value\n");
  try {
    PStream file(new FileStreamHdl(path));
    file.Open(OpenReadWrite | OpenNoLoad);
    WriteSections(file, count);
    std::printf("wrote %lu sections, %llu bytes, to %s\n", static_cast<unsigned long>(count),
                static_cast<unsigned long long>(file.GetSize()), path.c_str());
    file.Close();

    PStream back(new FileStreamHdl(path));
    back.Open(OpenRead);
    ULONG skipped = 0, found = 0;
    const ULONG read = ReadSections(back, &skipped, &found);
    back.Close();
    std::printf("read %lu sections, skipped %lu, found \"epsilon\" %lu times\n",
                static_cast<unsigned long>(read), static_cast<unsigned long>(skipped),
                static_cast<unsigned long>(found));
  } catch (const PError& error) {
    std::fprintf(stderr, "error %d (%s line %u)\n", error.Code(), error.File() ? error.File() : "?",
                 static_cast<unsigned>(error.Line()));
    return 1;
  }
  // The benchmark's results are appended when it goes, at the end of main.
  return 0;
}
