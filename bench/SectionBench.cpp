// SectionBench.cpp - small stream sections written, then skipped through,
// against the same layout by hand in a vector and through Qt's QDataStream.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PUniversalID.h>

#include <QByteArray>
#include <QDataStream>
#include <QUuid>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using qvbench::Put;
using qvbench::ScenarioFile;
using qvbench::Sizes;

// N small sections (one 32-bit value each) written, then skipped through.

void SectionsQvbase(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const PAutomaticUID item("Item");
  for (auto _ : state) {
    PStream s(new PMemoryStreamHdl(65536));
    s.Open(OpenReadWrite | OpenAllowEmpty);
    for (int i = 0; i < n; ++i) {
      PStreamSection section = OpenWriteSection(s, item, 1);
      section.Write(LONG(i));
      section.Close();
    }
    s.MoveTo(0);
    for (int i = 0; i < n; ++i)
      SkipCurrentSection(s);
    benchmark::DoNotOptimize(s.GetPos());
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// The same layout by hand: identifier, version, size patched afterwards.
void SectionsMemcpy(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  unsigned char id[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  for (auto _ : state) {
    std::vector<char> buffer;
    for (int i = 0; i < n; ++i) {
      const size_t start = buffer.size();
      buffer.insert(buffer.end(), id, id + 16);
      Put(buffer, std::uint32_t(1), false);
      Put(buffer, std::uint64_t(0), false);
      Put(buffer, std::int32_t(i), false);
      const std::uint64_t size = buffer.size() - start;
      std::memcpy(buffer.data() + start + 20, &size, 8);
    }
    size_t at = 0;
    for (int i = 0; i < n; ++i) {
      std::uint64_t size;
      std::memcpy(&size, buffer.data() + at + 20, 8);
      at += size;
    }
    benchmark::DoNotOptimize(at);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void SectionsQt(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const QUuid id = QUuid::createUuid();
  for (auto _ : state) {
    QByteArray buffer;
    QDataStream out(&buffer, QIODevice::ReadWrite);
    for (int i = 0; i < n; ++i) {
      const qint64 start = out.device()->pos();
      out << id << quint32(1) << quint64(0) << qint32(i);
      const qint64 end = out.device()->pos();
      out.device()->seek(start + 20);
      out << quint64(end - start);
      out.device()->seek(end);
    }
    out.device()->seek(0);
    for (int i = 0; i < n; ++i) {
      const qint64 start = out.device()->pos();
      out.device()->seek(start + 20);
      quint64 size;
      out >> size;
      out.device()->seek(start + static_cast<qint64>(size));
    }
    benchmark::DoNotOptimize(out.device()->pos());
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto sections = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 100000); };
  sections(RegisterBenchmark("sections/qvbase", SectionsQvbase));
  sections(RegisterBenchmark("sections/qt", SectionsQt));
  sections(RegisterBenchmark("sections/memcpy", SectionsMemcpy));
}

const ScenarioFile kSections(/*rank=*/20, Register);

} // namespace
