// qvbase_bench.cpp - qvbase side by side with the libraries a C++ developer
// would otherwise pick: Qt 5 Core, POCO Foundation, Boost and libuuid.
//
// Every benchmark is named "<scenario>/<implementation>/<size>", so that
// bench/ratios.py can set each peer against qvbase for the same scenario and
// size. Each iteration does the whole scenario at that size (N values, N
// identifiers, N strings, a list of N elements, ...); every scenario runs at a
// small and a large size so that the growth of its cost shows.

#include <benchmark/benchmark.h>

#include <qvbase/PASCIIString.h>
#include <qvbase/PError.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PList.h>
#include <qvbase/PMBString.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PString.h>
#include <qvbase/PSmartData.h>
#include <qvbase/PUniversalID.h>

#include <QByteArray>
#include <QDataStream>
#include <QList>
#include <QString>
#include <QUuid>

#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <Poco/Exception.h>
#include <Poco/MemoryStream.h>

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <uuid/uuid.h>

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// ---------------------------------------------------------------------------
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

template <typename T>
T Ordered(T v, bool swap) {
  if (!swap)
    return v;
  if constexpr (sizeof(T) == 2)
    return static_cast<T>(__builtin_bswap16(static_cast<std::uint16_t>(v)));
  if constexpr (sizeof(T) == 4)
    return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(v)));
  return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(v)));
}

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
template <typename T>
T Swap(T v, bool swap) {
  if (!swap)
    return v;
  if constexpr (sizeof(T) == 4)
    return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(v)));
  if constexpr (sizeof(T) == 8)
    return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(v)));
  return v;
}

template <typename T>
void Put(std::vector<char>& out, T v, bool swap) {
  v = Swap(v, swap);
  const size_t at = out.size();
  out.resize(at + sizeof(T));
  std::memcpy(out.data() + at, &v, sizeof(T));
}

template <typename T>
T Get(const std::vector<char>& in, size_t& at, bool swap) {
  T v;
  std::memcpy(&v, in.data() + at, sizeof(T));
  at += sizeof(T);
  return Swap(v, swap);
}

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

// ---------------------------------------------------------------------------
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

// ---------------------------------------------------------------------------
// Identifiers to their text form and back.

void IdTextQvbase(benchmark::State& state) {
  std::vector<PUniversalID> ids(static_cast<size_t>(state.range(0)));
  for (auto& id : ids)
    id.CreateNew();
  for (auto _ : state) {
    ULONG same = 0;
    for (const auto& id : ids) {
      PString text = id;
      PUniversalID back{PASCIIString(text)};
      same += back == id;
    }
    benchmark::DoNotOptimize(same);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdTextQt(benchmark::State& state) {
  std::vector<QUuid> ids(static_cast<size_t>(state.range(0)));
  for (auto& id : ids)
    id = QUuid::createUuid();
  for (auto _ : state) {
    unsigned same = 0;
    for (const auto& id : ids) {
      const QString text = id.toString();
      const QUuid back(text);
      same += back == id;
    }
    benchmark::DoNotOptimize(same);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdTextBoost(benchmark::State& state) {
  boost::uuids::random_generator random;
  std::vector<boost::uuids::uuid> ids(static_cast<size_t>(state.range(0)));
  for (auto& id : ids)
    id = random();
  boost::uuids::string_generator parse;
  for (auto _ : state) {
    unsigned same = 0;
    for (const auto& id : ids) {
      const std::string text = boost::uuids::to_string(id);
      const boost::uuids::uuid back = parse(text);
      same += back == id;
    }
    benchmark::DoNotOptimize(same);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdTextLibuuid(benchmark::State& state) {
  struct Id {
    uuid_t bytes;
  };
  std::vector<Id> ids(static_cast<size_t>(state.range(0)));
  for (auto& id : ids)
    uuid_generate_random(id.bytes);
  for (auto _ : state) {
    unsigned same = 0;
    for (const auto& id : ids) {
      char text[37];
      uuid_unparse_upper(id.bytes, text);
      uuid_t back;
      uuid_parse(text, back);
      same += uuid_compare(back, id.bytes) == 0;
    }
    benchmark::DoNotOptimize(same);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::vector<std::string> Names(int n) {
  std::vector<std::string> names;
  for (int i = 0; i < n; ++i)
    names.push_back("Section" + std::to_string(i));
  return names;
}

void IdNameQvbase(benchmark::State& state) {
  const auto names = Names(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::uint64_t acc = 0;
    for (const auto& name : names)
      acc ^= PAutomaticUID(name.c_str()).Huge1();
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdNameQt(benchmark::State& state) {
  const auto names = Names(static_cast<int>(state.range(0)));
  const QUuid ns = QUuid::createUuid();
  for (auto _ : state) {
    unsigned acc = 0;
    for (const auto& name : names)
      acc ^= QUuid::createUuidV5(ns, QByteArray(name.c_str())).data1;
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdNameBoost(benchmark::State& state) {
  const auto names = Names(static_cast<int>(state.range(0)));
  boost::uuids::random_generator random;
  boost::uuids::name_generator_sha1 gen(random());
  for (auto _ : state) {
    unsigned acc = 0;
    for (const auto& name : names)
      acc ^= gen(name).data[0];
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdNameLibuuid(benchmark::State& state) {
  const auto names = Names(static_cast<int>(state.range(0)));
  uuid_t ns;
  uuid_generate_random(ns);
  for (auto _ : state) {
    unsigned acc = 0;
    for (const auto& name : names) {
      uuid_t out;
      uuid_generate_sha1(out, ns, name.c_str(), name.size());
      acc ^= out[0];
    }
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// ---------------------------------------------------------------------------
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

// ---------------------------------------------------------------------------
// N short strings (about 40 characters, 7-bit), as an application holds
// names and labels: "record-004711 quick brown fox jumps over".

std::vector<std::string> Records(int n) {
  std::vector<std::string> records;
  records.reserve(static_cast<size_t>(n));
  char text[64];
  for (int i = 0; i < n; ++i) {
    std::snprintf(text, sizeof text, "record-%06d quick brown fox jumps over",
                  (i * 7919) % 1000003);
    records.emplace_back(text);
  }
  return records;
}

std::string Upper(std::string s) {
  for (auto& c : s)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

template <typename Text>
std::vector<Text> Texts(const std::vector<std::string>& records) {
  std::vector<Text> texts;
  texts.reserve(records.size());
  for (const auto& r : records)
    texts.emplace_back(r.c_str(), true);
  return texts;
}

std::vector<QString> QTexts(const std::vector<std::string>& records) {
  std::vector<QString> texts;
  texts.reserve(records.size());
  for (const auto& r : records)
    texts.push_back(QString::fromStdString(r));
  return texts;
}

std::vector<std::string> Uppers(const std::vector<std::string>& records) {
  std::vector<std::string> uppers;
  for (const auto& r : records)
    uppers.push_back(Upper(r));
  return uppers;
}

// copy: a copy of the whole array, every string copy-constructed (qvbase and
// Qt share the text, std copies the bytes).
template <typename Text>
void StrCopyQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    std::vector<Text> copies(texts);
    benchmark::DoNotOptimize(copies.data());
  }
}
void StrCopyStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::vector<std::string> copies(texts);
    benchmark::DoNotOptimize(copies.data());
  }
}
void StrCopyQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    std::vector<QString> copies(texts);
    benchmark::DoNotOptimize(copies.data());
  }
}

// append: a copy of every string with a suffix appended.
template <typename Text>
void StrAppendQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    ULONG total = 0;
    for (const auto& t : texts) {
      Text s = t;
      s += " the lazy dog";
      total += s.Len();
    }
    benchmark::DoNotOptimize(total);
  }
}
void StrAppendStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    size_t total = 0;
    for (const auto& t : texts) {
      std::string s = t;
      s += " the lazy dog";
      total += s.size();
    }
    benchmark::DoNotOptimize(total);
  }
}
void StrAppendQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    int total = 0;
    for (const auto& t : texts) {
      QString s = t;
      s += QLatin1String(" the lazy dog");
      total += s.size();
    }
    benchmark::DoNotOptimize(total);
  }
}

// find: a word near the end of every string.
template <typename Text>
void StrFindQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  const Text word("over", true);
  for (auto _ : state) {
    ULONG total = 0;
    for (const auto& t : texts)
      total += t.FindForward(word, 0, kStrCompExact);
    benchmark::DoNotOptimize(total);
  }
}
void StrFindStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  const std::string word("over");
  for (auto _ : state) {
    size_t total = 0;
    for (const auto& t : texts)
      total += t.find(word);
    benchmark::DoNotOptimize(total);
  }
}
void StrFindQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  const QString word = QStringLiteral("over");
  for (auto _ : state) {
    int total = 0;
    for (const auto& t : texts)
      total += t.indexOf(word);
    benchmark::DoNotOptimize(total);
  }
}

// nocase: every string against its upper-case form, ignoring case.
template <typename Text>
void StrNoCaseQvbase(benchmark::State& state) {
  const auto records = Records(static_cast<int>(state.range(0)));
  const auto a = Texts<Text>(records), b = Texts<Text>(Uppers(records));
  for (auto _ : state) {
    LONG equal = 0;
    for (size_t i = 0; i < a.size(); ++i)
      equal += a[i].CompareTo(b[i], kStrCompIgnoreCase) == 0;
    benchmark::DoNotOptimize(equal);
  }
}
void StrNoCaseStd(benchmark::State& state) {
  const auto a = Records(static_cast<int>(state.range(0)));
  const auto b = Uppers(a);
  for (auto _ : state) {
    int equal = 0;
    for (size_t i = 0; i < a.size(); ++i)
      equal += strcasecmp(a[i].c_str(), b[i].c_str()) == 0;
    benchmark::DoNotOptimize(equal);
  }
}
void StrNoCaseQt(benchmark::State& state) {
  const auto records = Records(static_cast<int>(state.range(0)));
  const auto a = QTexts(records), b = QTexts(Uppers(records));
  for (auto _ : state) {
    int equal = 0;
    for (size_t i = 0; i < a.size(); ++i)
      equal += a[i].compare(b[i], Qt::CaseInsensitive) == 0;
    benchmark::DoNotOptimize(equal);
  }
}

// order: every string against the next one with operator<.
template <typename Text>
void StrOrderQvbase(benchmark::State& state) {
  const auto texts = Texts<Text>(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    int less = 0;
    for (size_t i = 1; i < texts.size(); ++i)
      less += texts[i - 1] < texts[i];
    benchmark::DoNotOptimize(less);
  }
}
void StrOrderStd(benchmark::State& state) {
  const auto texts = Records(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    int less = 0;
    for (size_t i = 1; i < texts.size(); ++i)
      less += texts[i - 1] < texts[i];
    benchmark::DoNotOptimize(less);
  }
}
void StrOrderQt(benchmark::State& state) {
  const auto texts = QTexts(Records(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    int less = 0;
    for (size_t i = 1; i < texts.size(); ++i)
      less += texts[i - 1] < texts[i];
    benchmark::DoNotOptimize(less);
  }
}

// ---------------------------------------------------------------------------
// Lists of N pointers: append all, walk by index, then find and remove by
// value up to 100 elements spread evenly over the list (the rest goes with
// the list).

struct Item : PSmartData {
  int value = 0;
};

class ItemList : public PList {
public:
  explicit ItemList(DataFactory factory) : PList(factory) {}
  // The smart back ends want the PSmartData address itself.
  void Add(Item* item) { AddAnObjectTail(static_cast<PSmartData*>(item)); }
  Item* At(ULONG i) const { return static_cast<Item*>(static_cast<PSmartData*>(GetAnObject(i))); }
  ULONG IndexOf(const Item* item) const { return GetAnIndex(static_cast<const PSmartData*>(item)); }
  void Remove(const Item* item) { RemoveAnObject(static_cast<const PSmartData*>(item)); }
};

// The items live as long as the benchmark; each holds one reference of its
// own, so that the smart back ends never delete one.
struct Items {
  std::vector<Item*> all;
  std::vector<Item*> probes; // the elements found and removed
  explicit Items(int n) {
    for (int i = 0; i < n; ++i) {
      all.push_back(new Item);
      all.back()->value = i;
      all.back()->AddRef();
    }
    const int k = std::min(n, 100);
    for (int j = 0; j < k; ++j)
      probes.push_back(all[static_cast<size_t>(j) * n / k]);
  }
  ~Items() {
    for (Item* item : all)
      item->Release();
  }
};

void ListQvbase(benchmark::State& state, PList::DataFactory factory) {
  const Items items(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    ItemList list(factory);
    for (Item* item : items.all)
      list.Add(item);
    long sum = 0;
    for (ULONG i = 0; i < list.Size(); ++i)
      sum += list.At(i)->value;
    for (const Item* item : items.probes)
      sum += list.IndexOf(item);
    for (const Item* item : items.probes)
      list.Remove(item);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void ListStdList(benchmark::State& state) {
  const Items items(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::list<Item*> list;
    for (Item* item : items.all)
      list.push_back(item);
    long sum = 0;
    for (Item* item : list)
      sum += item->value; // a list has no index walk
    for (Item* item : items.probes)
      sum += std::distance(list.begin(), std::find(list.begin(), list.end(), item));
    for (Item* item : items.probes)
      list.erase(std::find(list.begin(), list.end(), item));
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void ListStdVector(benchmark::State& state) {
  const Items items(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::vector<Item*> list;
    for (Item* item : items.all)
      list.push_back(item);
    long sum = 0;
    for (size_t i = 0; i < list.size(); ++i)
      sum += list[i]->value;
    for (Item* item : items.probes)
      sum += std::find(list.begin(), list.end(), item) - list.begin();
    for (Item* item : items.probes)
      list.erase(std::find(list.begin(), list.end(), item));
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void ListQt(benchmark::State& state) {
  const Items items(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    QList<Item*> list;
    for (Item* item : items.all)
      list.append(item);
    long sum = 0;
    for (int i = 0; i < list.size(); ++i)
      sum += list.at(i)->value;
    for (Item* item : items.probes)
      sum += list.indexOf(item);
    for (Item* item : items.probes)
      list.removeOne(item);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// ---------------------------------------------------------------------------
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
      PError error(1001, ErrorSeverityError, __FILE__, __LINE__);
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
      throw Poco::Exception(message, 1001);
    } catch (const Poco::Exception& e) {
      caught += e.code();
    }
  }
  benchmark::DoNotOptimize(caught);
}

// ---------------------------------------------------------------------------

void Register() {
  using benchmark::RegisterBenchmark;
  const auto sizes = [](benchmark::internal::Benchmark* b, int small, int large) {
    b->Arg(small)->Arg(large)->Unit(benchmark::kMicrosecond);
  };
  const auto values = [&](benchmark::internal::Benchmark* b) { sizes(b, 1000, 1000000); };
  const auto mebibytes = [&](benchmark::internal::Benchmark* b) { sizes(b, 1, 64); };
  const auto sections = [&](benchmark::internal::Benchmark* b) { sizes(b, 1000, 100000); };
  const auto ids = [&](benchmark::internal::Benchmark* b) { sizes(b, 1000, 1000000); };
  const auto strings = [&](benchmark::internal::Benchmark* b) { sizes(b, 1000, 100000); };
  const auto lists = [&](benchmark::internal::Benchmark* b) { sizes(b, 10, 100000); };
  const auto infos = [&](benchmark::internal::Benchmark* b) { sizes(b, 0, 16); };

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

  sections(RegisterBenchmark("sections/qvbase", SectionsQvbase));
  sections(RegisterBenchmark("sections/qt", SectionsQt));
  sections(RegisterBenchmark("sections/memcpy", SectionsMemcpy));

  ids(RegisterBenchmark("id_text/qvbase", IdTextQvbase));
  ids(RegisterBenchmark("id_text/qt", IdTextQt));
  ids(RegisterBenchmark("id_text/boost", IdTextBoost));
  ids(RegisterBenchmark("id_text/libuuid", IdTextLibuuid));
  ids(RegisterBenchmark("id_name/qvbase", IdNameQvbase));
  ids(RegisterBenchmark("id_name/qt", IdNameQt));
  ids(RegisterBenchmark("id_name/boost", IdNameBoost));
  ids(RegisterBenchmark("id_name/libuuid", IdNameLibuuid));

  strings(RegisterBenchmark("str_copy/qvbase", StrCopyQvbase<PString>));
  strings(RegisterBenchmark("str_copy/qvbase_ascii", StrCopyQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_copy/std", StrCopyStd));
  strings(RegisterBenchmark("str_copy/qt", StrCopyQt));
  strings(RegisterBenchmark("str_append/qvbase", StrAppendQvbase<PString>));
  strings(RegisterBenchmark("str_append/qvbase_ascii", StrAppendQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_append/std", StrAppendStd));
  strings(RegisterBenchmark("str_append/qt", StrAppendQt));
  strings(RegisterBenchmark("str_find/qvbase", StrFindQvbase<PString>));
  strings(RegisterBenchmark("str_find/qvbase_ascii", StrFindQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_find/std", StrFindStd));
  strings(RegisterBenchmark("str_find/qt", StrFindQt));
  strings(RegisterBenchmark("str_nocase/qvbase", StrNoCaseQvbase<PString>));
  strings(RegisterBenchmark("str_nocase/qvbase_ascii", StrNoCaseQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_nocase/std", StrNoCaseStd));
  strings(RegisterBenchmark("str_nocase/qt", StrNoCaseQt));
  strings(RegisterBenchmark("str_order/qvbase", StrOrderQvbase<PString>));
  strings(RegisterBenchmark("str_order/qvbase_ascii", StrOrderQvbase<PASCIIString>));
  strings(RegisterBenchmark("str_order/std", StrOrderStd));
  strings(RegisterBenchmark("str_order/qt", StrOrderQt));

  lists(RegisterBenchmark("list/qvbase_array", ListQvbase, GDynArrayDataConstructor));
  lists(RegisterBenchmark("list/qvbase_linked", ListQvbase, GLinkedListDataConstructor));
  lists(RegisterBenchmark("list/qvbase_smartarray", ListQvbase, GSmartArrayDataConstructor));
  lists(RegisterBenchmark("list/qvbase_smartlist", ListQvbase, GSmartListDataConstructor));
  lists(RegisterBenchmark("list/std_list", ListStdList));
  lists(RegisterBenchmark("list/std_vector", ListStdVector));
  lists(RegisterBenchmark("list/qt", ListQt));

  infos(RegisterBenchmark("error_3/qvbase", ErrorQvbase));
  infos(RegisterBenchmark("error_3/std", ErrorStd));
  infos(RegisterBenchmark("error_3/poco", ErrorPoco));
}

} // namespace

int main(int argc, char** argv) {
  Register();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
