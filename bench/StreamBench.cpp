// StreamBench.cpp - typed values written and read back in memory, and raw
// bulk writes, against Qt's QDataStream, POCO's binary streams, a vector and
// memcpy.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PString.h>

#include <QByteArray>
#include <QDataStream>
#include <QString>

#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <Poco/MemoryStream.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using qvbench::Get;
using qvbench::Ordered;
using qvbench::Put;
using qvbench::ScenarioFile;
using qvbench::Sizes;

// Typed write then read of N values in memory: N / 4 records, each a 32-bit
// int, a 64-bit int, a bool and a three-letter string.

void StreamQvbase(benchmark::State& state, unsigned short ordering) {
  const int n = static_cast<int>(state.range(0)) / 4;
  const PString abc("abc", true);
  for (auto _ : state) {
    PStream s(new PMemoryStreamHdl(65536));
    s.Open(OpenReadWrite | OpenAllowEmpty);
    s.SetByteOrdering(ordering);
    for (int i = 0; i < n; ++i) {
      s.Write(LONG(i));
      s.Write(static_cast<__int64>(i) * 3);
      s.Write((i & 1) != 0);
      s.Write(abc);
    }
    s.MoveTo(0);
    LONG l = 0;
    __int64 h = 0;
    bool b = false;
    PString t;
    std::int64_t sum = 0;
    for (int i = 0; i < n; ++i) {
      s.Read(&l);
      s.Read(&h);
      s.Read(&b);
      s.Read(&t);
      sum += l + h + b + t.Len();
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// The same bytes through the memory handler's own calls, without PStream:
// no guarded call, no typed layer, the string read into a plain buffer. What
// the typed row costs more is what PStream's guard and typed values cost.
class DirectMemory : public PMemoryStreamHdl {
public:
  using PMemoryStreamHdl::IOOpen;
  using PMemoryStreamHdl::IORead;
  using PMemoryStreamHdl::IOSetPos;
  using PMemoryStreamHdl::IOWrite;
  using PMemoryStreamHdl::PMemoryStreamHdl;
};

void StreamQvbaseDirect(benchmark::State& state, bool swap) {
  const int n = static_cast<int>(state.range(0)) / 4;
  for (auto _ : state) {
    DirectMemory* h = new DirectMemory(65536);
    h->AddRef();
    h->IOOpen(OpenReadWrite | OpenAllowEmpty);
    for (int i = 0; i < n; ++i) {
      const LONG l = Ordered(LONG(i), swap);
      const __int64 q = Ordered(static_cast<__int64>(i) * 3, swap);
      const short b = Ordered(short((i & 1) != 0), swap);
      const LONG len = Ordered(LONG(3), swap);
      h->IOWrite(reinterpret_cast<const char*>(&l), 1, 4);
      h->IOWrite(reinterpret_cast<const char*>(&q), 1, 8);
      h->IOWrite(reinterpret_cast<const char*>(&b), 1, 2);
      h->IOWrite(reinterpret_cast<const char*>(&len), 1, 4);
      h->IOWrite("abc", 3, 1);
    }
    h->IOSetPos(SeekFromStart, 0);
    std::int64_t sum = 0;
    char text[16];
    for (int i = 0; i < n; ++i) {
      LONG l, len;
      __int64 q;
      short b;
      h->IORead(reinterpret_cast<char*>(&l), 1, 4);
      h->IORead(reinterpret_cast<char*>(&q), 1, 8);
      h->IORead(reinterpret_cast<char*>(&b), 1, 2);
      h->IORead(reinterpret_cast<char*>(&len), 1, 4);
      len = Ordered(len, swap);
      h->IORead(text, static_cast<ULONG>(len), 1);
      sum += Ordered(l, swap) + Ordered(q, swap) + Ordered(b, swap) + len;
    }
    h->Release();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n * 4);
}

void StreamQt(benchmark::State& state, QDataStream::ByteOrder ordering) {
  const int n = static_cast<int>(state.range(0)) / 4;
  const QString abc = QStringLiteral("abc");
  for (auto _ : state) {
    QByteArray buffer;
    {
      QDataStream out(&buffer, QIODevice::WriteOnly);
      out.setByteOrder(ordering);
      for (int i = 0; i < n; ++i) {
        out << qint32(i) << qint64(i) * 3 << ((i & 1) != 0) << abc;
      }
    }
    QDataStream in(buffer);
    in.setByteOrder(ordering);
    qint32 l = 0;
    qint64 h = 0;
    bool b = false;
    QString t;
    std::int64_t sum = 0;
    for (int i = 0; i < n; ++i) {
      in >> l >> h >> b >> t;
      sum += l + h + b + t.size();
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void StreamPoco(benchmark::State& state, Poco::BinaryWriter::StreamByteOrder wOrder,
                Poco::BinaryReader::StreamByteOrder rOrder) {
  const int n = static_cast<int>(state.range(0)) / 4;
  const std::string abc("abc");
  for (auto _ : state) {
    // POCO's memory streams work over a buffer of fixed size: sized up front.
    std::vector<char> buffer(static_cast<size_t>(n) * 24 + 16);
    Poco::MemoryOutputStream os(buffer.data(), buffer.size());
    {
      Poco::BinaryWriter out(os, wOrder);
      for (int i = 0; i < n; ++i) {
        out << Poco::Int32(i) << Poco::Int64(i) * 3 << ((i & 1) != 0) << abc;
      }
    }
    Poco::MemoryInputStream is(buffer.data(), static_cast<size_t>(os.charsWritten()));
    Poco::BinaryReader in(is, rOrder);
    Poco::Int32 l = 0;
    Poco::Int64 h = 0;
    bool b = false;
    std::string t;
    std::int64_t sum = 0;
    for (int i = 0; i < n; ++i) {
      in >> l >> h >> b >> t;
      sum += l + h + b + static_cast<std::int64_t>(t.size());
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n * 4);
}

// The floor: raw bytes appended to a vector, swapped by hand when asked.
void StreamMemcpy(benchmark::State& state, bool swap) {
  const int n = static_cast<int>(state.range(0)) / 4;
  const std::string abc("abc");
  for (auto _ : state) {
    std::vector<char> buffer;
    for (int i = 0; i < n; ++i) {
      Put(buffer, std::int32_t(i), swap);
      Put(buffer, std::int64_t(i) * 3, swap);
      buffer.push_back((i & 1) != 0 ? 1 : 0);
      Put(buffer, std::uint32_t(abc.size()), swap);
      buffer.insert(buffer.end(), abc.begin(), abc.end());
    }
    size_t at = 0;
    std::int64_t sum = 0;
    std::string t;
    for (int i = 0; i < n; ++i) {
      const auto l = Get<std::int32_t>(buffer, at, swap);
      const auto h = Get<std::int64_t>(buffer, at, swap);
      const bool b = buffer[at++] != 0;
      const auto len = Get<std::uint32_t>(buffer, at, swap);
      t.assign(buffer.data() + at, len);
      at += len;
      sum += l + h + b + static_cast<std::int64_t>(t.size());
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// Raw bulk write of N MiB into memory, in chunks of 4 KiB or 64 KiB.

constexpr ULONG kMiB = 1024 * 1024;

std::vector<char> Chunk(size_t size) {
  std::vector<char> chunk(size);
  for (size_t i = 0; i < size; ++i)
    chunk[i] = static_cast<char>(i * 7);
  return chunk;
}

// The memory stream with the given granularity: 64 KiB is its default; a
// caller that writes much picks a larger one.
void BulkQvbase(benchmark::State& state, ULONG chunkSize, ULONG granularity) {
  const ULONG total = static_cast<ULONG>(state.range(0)) * kMiB;
  const auto chunk = Chunk(chunkSize);
  for (auto _ : state) {
    PStream s(new PMemoryStreamHdl(granularity));
    s.Open(OpenWrite);
    for (ULONG done = 0; done < total; done += chunkSize)
      s.Write(chunk.data(), chunkSize, 1);
    benchmark::DoNotOptimize(s.GetPos());
  }
  state.SetBytesProcessed(state.iterations() * total);
}

void BulkVector(benchmark::State& state, ULONG chunkSize) {
  const ULONG total = static_cast<ULONG>(state.range(0)) * kMiB;
  const auto chunk = Chunk(chunkSize);
  for (auto _ : state) {
    std::vector<char> out;
    for (ULONG done = 0; done < total; done += chunkSize)
      out.insert(out.end(), chunk.begin(), chunk.end());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * total);
}

// The physical limit: copies into a buffer allocated (and touched) once.
void BulkMemcpy(benchmark::State& state, ULONG chunkSize) {
  const ULONG total = static_cast<ULONG>(state.range(0)) * kMiB;
  const auto chunk = Chunk(chunkSize);
  std::vector<char> out(total);
  for (auto _ : state) {
    for (ULONG done = 0; done < total; done += chunkSize)
      std::memcpy(out.data() + done, chunk.data(), chunkSize);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * total);
}

void Register() {
  using benchmark::RegisterBenchmark;
  const auto values = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 1000000); };
  const auto mebibytes = [](benchmark::internal::Benchmark* b) { Sizes(b, 1, 64); };

  values(RegisterBenchmark("stream_be/qvbase", StreamQvbase, kByteOrderingMotorola));
  values(RegisterBenchmark("stream_be/qvbase_direct", StreamQvbaseDirect, true));
  values(RegisterBenchmark("stream_be/qt", StreamQt, QDataStream::BigEndian));
  values(RegisterBenchmark("stream_be/poco", StreamPoco, Poco::BinaryWriter::BIG_ENDIAN_BYTE_ORDER,
                           Poco::BinaryReader::BIG_ENDIAN_BYTE_ORDER));
  values(RegisterBenchmark("stream_be/memcpy", StreamMemcpy, true));
  values(RegisterBenchmark("stream_le/qvbase", StreamQvbase, kByteOrderingIntel));
  values(RegisterBenchmark("stream_le/qvbase_direct", StreamQvbaseDirect, false));
  values(RegisterBenchmark("stream_le/qt", StreamQt, QDataStream::LittleEndian));
  values(RegisterBenchmark("stream_le/poco", StreamPoco,
                           Poco::BinaryWriter::LITTLE_ENDIAN_BYTE_ORDER,
                           Poco::BinaryReader::LITTLE_ENDIAN_BYTE_ORDER));
  values(RegisterBenchmark("stream_le/memcpy", StreamMemcpy, false));

  for (const ULONG chunk : {4096u, 65536u}) {
    const std::string name = chunk == 4096 ? "bulk_4k" : "bulk_64k";
    mebibytes(RegisterBenchmark((name + "/qvbase").c_str(), BulkQvbase, chunk, 65536u));
    mebibytes(RegisterBenchmark((name + "/qvbase_g16m").c_str(), BulkQvbase, chunk, 16 * kMiB));
    mebibytes(RegisterBenchmark((name + "/vector").c_str(), BulkVector, chunk));
    mebibytes(RegisterBenchmark((name + "/memcpy").c_str(), BulkMemcpy, chunk));
  }
}

const ScenarioFile kStreams(/*rank=*/10, Register);

} // namespace
