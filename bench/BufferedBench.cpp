// BufferedBench.cpp - a 64 MiB file read and written in items of 1, 8 and
// 4096 bytes through the buffered file handler, against stdio's FILE*,
// std::fstream and Qt's QFile.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PStream.h>

#include "FileStreamHdl.h"

#include <QFile>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

using qvbench::ScenarioFile;

// The file every scenario works on: 64 MiB, in the system's temporary folder
// (TMPDIR), written once for the readers and rewritten by every writer.
constexpr std::size_t kFileSize = std::size_t(64) << 20;

const std::string& FilePath() {
  static const std::string path = [] {
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder && *folder ? folder : "/tmp") + "/qvbase-bench-buffered.bin";
  }();
  return path;
}

// The readers' file, made before the first of them runs.
void PrepareFile() {
  static bool prepared = false;
  if (prepared)
    return;
  std::vector<char> chunk(1 << 20);
  for (std::size_t i = 0; i < chunk.size(); ++i)
    chunk[i] = static_cast<char>(i * 131);
  std::FILE* file = std::fopen(FilePath().c_str(), "wb");
  for (std::size_t done = 0; file && done < kFileSize; done += chunk.size())
    std::fwrite(chunk.data(), 1, chunk.size(), file);
  if (file)
    std::fclose(file);
  prepared = true;
}

// Each iteration moves the whole file, item by item; the item size is the
// benchmark's argument.
std::size_t Items(const benchmark::State& state) {
  return kFileSize / static_cast<std::size_t>(state.range(0));
}

void Finish(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(kFileSize));
}

// ---------------------------------------------------------------------------
// Reading

void ReadQvbase(benchmark::State& state) {
  PrepareFile();
  const ULONG item = static_cast<ULONG>(state.range(0));
  std::vector<char> buffer(item);
  for (auto _ : state) {
    PStream file(new FileStreamHdl(FilePath()));
    file.Open(OpenRead);
    unsigned sum = 0;
    for (std::size_t i = Items(state); i > 0; --i) {
      file.Read(buffer.data(), 1, item);
      sum += static_cast<unsigned char>(buffer[0]);
    }
    file.Close();
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}

void ReadStdio(benchmark::State& state) {
  PrepareFile();
  const std::size_t item = static_cast<std::size_t>(state.range(0));
  std::vector<char> buffer(item);
  for (auto _ : state) {
    std::FILE* file = std::fopen(FilePath().c_str(), "rb");
    unsigned sum = 0;
    for (std::size_t i = Items(state); i > 0; --i) {
      std::fread(buffer.data(), item, 1, file);
      sum += static_cast<unsigned char>(buffer[0]);
    }
    std::fclose(file);
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}

void ReadFstream(benchmark::State& state) {
  PrepareFile();
  const std::size_t item = static_cast<std::size_t>(state.range(0));
  std::vector<char> buffer(item);
  for (auto _ : state) {
    std::ifstream file(FilePath(), std::ios::binary);
    unsigned sum = 0;
    for (std::size_t i = Items(state); i > 0; --i) {
      file.read(buffer.data(), static_cast<std::streamsize>(item));
      sum += static_cast<unsigned char>(buffer[0]);
    }
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}

void ReadQFile(benchmark::State& state) {
  PrepareFile();
  const qint64 item = state.range(0);
  std::vector<char> buffer(static_cast<std::size_t>(item));
  for (auto _ : state) {
    QFile file(QString::fromStdString(FilePath()));
    file.open(QIODevice::ReadOnly);
    unsigned sum = 0;
    for (std::size_t i = Items(state); i > 0; --i) {
      file.read(buffer.data(), item);
      sum += static_cast<unsigned char>(buffer[0]);
    }
    benchmark::DoNotOptimize(sum);
  }
  Finish(state);
}

// ---------------------------------------------------------------------------
// Writing: the file is created (emptied) and written whole, then closed.

void WriteQvbase(benchmark::State& state) {
  const ULONG item = static_cast<ULONG>(state.range(0));
  const std::vector<char> buffer(item, 'q');
  for (auto _ : state) {
    PStream file(new FileStreamHdl(FilePath()));
    file.Open(OpenWrite);
    for (std::size_t i = Items(state); i > 0; --i)
      file.Write(buffer.data(), 1, item);
    file.Close();
  }
  Finish(state);
}

void WriteStdio(benchmark::State& state) {
  const std::size_t item = static_cast<std::size_t>(state.range(0));
  const std::vector<char> buffer(item, 'q');
  for (auto _ : state) {
    std::FILE* file = std::fopen(FilePath().c_str(), "wb");
    for (std::size_t i = Items(state); i > 0; --i)
      std::fwrite(buffer.data(), item, 1, file);
    std::fclose(file);
  }
  Finish(state);
}

void WriteFstream(benchmark::State& state) {
  const std::size_t item = static_cast<std::size_t>(state.range(0));
  const std::vector<char> buffer(item, 'q');
  for (auto _ : state) {
    std::ofstream file(FilePath(), std::ios::binary | std::ios::trunc);
    for (std::size_t i = Items(state); i > 0; --i)
      file.write(buffer.data(), static_cast<std::streamsize>(item));
  }
  Finish(state);
}

void WriteQFile(benchmark::State& state) {
  const qint64 item = state.range(0);
  const std::vector<char> buffer(static_cast<std::size_t>(item), 'q');
  for (auto _ : state) {
    QFile file(QString::fromStdString(FilePath()));
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    for (std::size_t i = Items(state); i > 0; --i)
      file.write(buffer.data(), item);
  }
  Finish(state);
}

void Register() {
  using benchmark::RegisterBenchmark;
  // The argument is the item size; the file is 64 MiB at every size.
  const auto sizes = [](benchmark::internal::Benchmark* b) {
    b->Arg(1)->Arg(8)->Arg(4096)->Unit(benchmark::kMillisecond);
  };
  sizes(RegisterBenchmark("file_read/qvbase", ReadQvbase));
  sizes(RegisterBenchmark("file_read/stdio", ReadStdio));
  sizes(RegisterBenchmark("file_read/fstream", ReadFstream));
  sizes(RegisterBenchmark("file_read/qfile", ReadQFile));
  sizes(RegisterBenchmark("file_write/qvbase", WriteQvbase));
  sizes(RegisterBenchmark("file_write/stdio", WriteStdio));
  sizes(RegisterBenchmark("file_write/fstream", WriteFstream));
  sizes(RegisterBenchmark("file_write/qfile", WriteQFile));
}

const ScenarioFile kBuffered(/*rank=*/80, Register);

} // namespace
