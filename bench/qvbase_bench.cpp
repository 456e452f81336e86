// qvbase_bench.cpp - qvbase side by side with the libraries a C++ developer
// would otherwise pick: Qt 5 Core, POCO Foundation, Boost and libuuid.
//
// Every benchmark is named "<scenario>/<implementation>/<size>", so that
// bench/ratios.py can set each peer against qvbase for the same scenario and
// size. Each iteration does the whole scenario at that size (N records, N
// identifiers, a string of N characters, a list of N elements).

#include <benchmark/benchmark.h>

#include <qvbase/PASCIIString.h>
#include <qvbase/PError.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PList.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/PStreamSection.h>
#include <qvbase/PString.h>
#include <qvbase/PUniversalID.h>

#include <QByteArray>
#include <QDataStream>
#include <QList>
#include <QString>
#include <QUuid>

#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <Poco/MemoryStream.h>

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <uuid/uuid.h>

#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kSmall = 16;
constexpr int kLarge = 4096;

// ---------------------------------------------------------------------------
// Typed write then read of N records, each a 32-bit int, a 64-bit int, a bool
// and a three-letter string, in memory.

void StreamQvbase(benchmark::State& state, unsigned short ordering) {
  const int n = static_cast<int>(state.range(0));
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

void StreamQt(benchmark::State& state, QDataStream::ByteOrder ordering) {
  const int n = static_cast<int>(state.range(0));
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
  const int n = static_cast<int>(state.range(0));
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
  state.SetItemsProcessed(state.iterations() * n);
}

// The floor: raw bytes appended to a vector, swapped by hand when asked.
template <typename T>
T Swap(T v, bool swap) {
  if (!swap) return v;
  if constexpr (sizeof(T) == 4) return static_cast<T>(__builtin_bswap32(static_cast<std::uint32_t>(v)));
  if constexpr (sizeof(T) == 8) return static_cast<T>(__builtin_bswap64(static_cast<std::uint64_t>(v)));
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
  const int n = static_cast<int>(state.range(0));
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
// Identifiers to their text form and back.

void IdTextQvbase(benchmark::State& state) {
  std::vector<PUniversalID> ids(static_cast<size_t>(state.range(0)));
  for (auto& id : ids) id.CreateNew();
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
  for (auto& id : ids) id = QUuid::createUuid();
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
  for (auto& id : ids) id = random();
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
  struct Id { uuid_t bytes; };
  std::vector<Id> ids(static_cast<size_t>(state.range(0)));
  for (auto& id : ids) uuid_generate_random(id.bytes);
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
  for (int i = 0; i < n; ++i) names.push_back("Section" + std::to_string(i));
  return names;
}

void IdNameQvbase(benchmark::State& state) {
  const auto names = Names(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::uint64_t acc = 0;
    for (const auto& name : names) acc ^= PAutomaticUID(name.c_str()).Huge1();
    benchmark::DoNotOptimize(acc);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void IdNameQt(benchmark::State& state) {
  const auto names = Names(static_cast<int>(state.range(0)));
  const QUuid ns = QUuid::createUuid();
  for (auto _ : state) {
    unsigned acc = 0;
    for (const auto& name : names) acc ^= QUuid::createUuidV5(ns, QByteArray(name.c_str())).data1;
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
    for (const auto& name : names) acc ^= gen(name).data[0];
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
    for (int i = 0; i < n; ++i) SkipCurrentSection(s);
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
// Strings of N characters.

std::string Sample(int n, char last) {
  std::string s;
  for (int i = 0; i < n - 1; ++i) s += static_cast<char>('a' + i % 26);
  s += last;
  return s;
}

std::string Upper(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

template <typename Text>
void StrCopyQvbase(benchmark::State& state) {
  const Text a(Sample(static_cast<int>(state.range(0)), 'z').c_str(), true);
  for (auto _ : state) {
    Text b = a;
    benchmark::DoNotOptimize(b.Len());
  }
}
void StrCopyStd(benchmark::State& state) {
  const std::string a = Sample(static_cast<int>(state.range(0)), 'z');
  for (auto _ : state) {
    std::string b = a;
    benchmark::DoNotOptimize(b.size());
  }
}
void StrCopyQt(benchmark::State& state) {
  const QString a = QString::fromStdString(Sample(static_cast<int>(state.range(0)), 'z'));
  for (auto _ : state) {
    QString b = a;
    benchmark::DoNotOptimize(b.size());
  }
}

// Appends eight characters at a time up to N.
template <typename Text>
void StrAppendQvbase(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Text s;
    for (int i = 0; i < n; i += 8) s += "abcdefgh";
    benchmark::DoNotOptimize(s.Len());
  }
}
void StrAppendStd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::string s;
    for (int i = 0; i < n; i += 8) s += "abcdefgh";
    benchmark::DoNotOptimize(s.size());
  }
}
void StrAppendQt(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    QString s;
    for (int i = 0; i < n; i += 8) s += QLatin1String("abcdefgh");
    benchmark::DoNotOptimize(s.size());
  }
}

// A needle at the very end of N characters.
template <typename Text>
void StrFindQvbase(benchmark::State& state) {
  const Text hay((Sample(static_cast<int>(state.range(0)), 'a') + "NEEDLE").c_str(), true);
  for (auto _ : state) benchmark::DoNotOptimize(hay.FindForward("NEEDLE", 0, kStrCompExact));
}
void StrFindStd(benchmark::State& state) {
  const std::string hay = Sample(static_cast<int>(state.range(0)), 'a') + "NEEDLE";
  for (auto _ : state) benchmark::DoNotOptimize(hay.find("NEEDLE"));
}
void StrFindQt(benchmark::State& state) {
  const QString hay = QString::fromStdString(Sample(static_cast<int>(state.range(0)), 'a') + "NEEDLE");
  for (auto _ : state) benchmark::DoNotOptimize(hay.indexOf(QLatin1String("NEEDLE")));
}

// Equal but for case, all N characters.
template <typename Text>
void StrNoCaseQvbase(benchmark::State& state) {
  const std::string t = Sample(static_cast<int>(state.range(0)), 'z');
  const Text a(t.c_str(), true), b(Upper(t).c_str(), true);
  for (auto _ : state) benchmark::DoNotOptimize(a.CompareTo(b, kStrCompIgnoreCase));
}
void StrNoCaseStd(benchmark::State& state) {
  const std::string t = Sample(static_cast<int>(state.range(0)), 'z');
  const std::string a = t, b = Upper(t);
  for (auto _ : state) benchmark::DoNotOptimize(strcasecmp(a.c_str(), b.c_str()));
}
void StrNoCaseQt(benchmark::State& state) {
  const std::string t = Sample(static_cast<int>(state.range(0)), 'z');
  const QString a = QString::fromStdString(t), b = QString::fromStdString(Upper(t));
  for (auto _ : state) benchmark::DoNotOptimize(a.compare(b, Qt::CaseInsensitive));
}

// Differ in the last character only.
template <typename Text>
void StrOrderQvbase(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Text a(Sample(n, 'y').c_str(), true), b(Sample(n, 'z').c_str(), true);
  for (auto _ : state) benchmark::DoNotOptimize(a < b);
}
void StrOrderStd(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::string a = Sample(n, 'y'), b = Sample(n, 'z');
  for (auto _ : state) benchmark::DoNotOptimize(a < b);
}
void StrOrderQt(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const QString a = QString::fromStdString(Sample(n, 'y')), b = QString::fromStdString(Sample(n, 'z'));
  for (auto _ : state) benchmark::DoNotOptimize(a < b);
}


// ---------------------------------------------------------------------------
// Lists of N pointers: append, walk by index, find the last, remove every
// element by value from the head.

struct Item { int value; };

class ItemList : public PList {
public:
  explicit ItemList(DataFactory factory) : PList(factory) {}
  void Add(Item* item) { AddAnObjectTail(item); }
  Item* At(ULONG i) const { return static_cast<Item*>(GetAnObject(i)); }
  ULONG IndexOf(const Item* item) const { return GetAnIndex(item); }
  void Remove(const Item* item) { RemoveAnObject(item); }
};

std::vector<Item> Items(int n) {
  std::vector<Item> items(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) items[static_cast<size_t>(i)].value = i;
  return items;
}

void ListQvbase(benchmark::State& state, PList::DataFactory factory) {
  const int n = static_cast<int>(state.range(0));
  auto items = Items(n);
  for (auto _ : state) {
    ItemList list(factory);
    for (auto& item : items) list.Add(&item);
    long sum = 0;
    for (ULONG i = 0; i < list.Size(); ++i) sum += list.At(i)->value;
    sum += list.IndexOf(&items.back());
    for (const auto& item : items) list.Remove(&item);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void ListStdList(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto items = Items(n);
  for (auto _ : state) {
    std::list<Item*> list;
    for (auto& item : items) list.push_back(&item);
    long sum = 0;
    for (Item* item : list) sum += item->value;  // a list has no index walk
    sum += std::distance(list.begin(), std::find(list.begin(), list.end(), &items.back()));
    for (auto& item : items) list.erase(std::find(list.begin(), list.end(), &item));  // first only, as the others
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void ListStdVector(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto items = Items(n);
  for (auto _ : state) {
    std::vector<Item*> list;
    for (auto& item : items) list.push_back(&item);
    long sum = 0;
    for (size_t i = 0; i < list.size(); ++i) sum += list[i]->value;
    sum += std::find(list.begin(), list.end(), &items.back()) - list.begin();
    for (auto& item : items) list.erase(std::find(list.begin(), list.end(), &item));
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void ListQt(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto items = Items(n);
  for (auto _ : state) {
    QList<Item*> list;
    for (auto& item : items) list.append(&item);
    long sum = 0;
    for (int i = 0; i < list.size(); ++i) sum += list.at(i)->value;
    sum += list.indexOf(&items.back());
    for (auto& item : items) list.removeOne(&item);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * n);
}

// ---------------------------------------------------------------------------
// An error signalled under three nested protections and caught outside.

void ErrorQvbase(benchmark::State& state) {
  long caught = 0;
  for (auto _ : state) {
    PErrorProtection outer(true);
    try {
      PErrorProtection middle(true);
      PErrorRetryProtection inner(true);
      PError error(1001, ErrorSeverityError, __FILE__, __LINE__);
      PErrorProtectionStatus().SignalError(error);
    } catch (const PError& e) {
      caught += e.Code();
    }
  }
  benchmark::DoNotOptimize(caught);
}

struct Guard {
  int* depth;
  explicit Guard(int* d) : depth(d) { ++*depth; }
  ~Guard() { --*depth; }
};

void ErrorStd(benchmark::State& state) {
  long caught = 0;
  int depth = 0;
  for (auto _ : state) {
    Guard outer(&depth);
    try {
      Guard middle(&depth);
      Guard inner(&depth);
      throw std::runtime_error("1001");
    } catch (const std::runtime_error& e) {
      caught += e.what()[0];
    }
  }
  benchmark::DoNotOptimize(caught);
}

// ---------------------------------------------------------------------------

void Register() {
  const auto both = [](benchmark::internal::Benchmark* b) { b->Arg(kSmall)->Arg(kLarge); };
  const auto strings = [](benchmark::internal::Benchmark* b) { b->Arg(8)->Arg(kLarge); };

  both(benchmark::RegisterBenchmark("stream_be/qvbase", StreamQvbase, kByteOrderingMotorola));
  both(benchmark::RegisterBenchmark("stream_be/qt", StreamQt, QDataStream::BigEndian));
  both(benchmark::RegisterBenchmark("stream_be/poco", StreamPoco, Poco::BinaryWriter::BIG_ENDIAN_BYTE_ORDER,
                                    Poco::BinaryReader::BIG_ENDIAN_BYTE_ORDER));
  both(benchmark::RegisterBenchmark("stream_be/memcpy", StreamMemcpy, true));
  both(benchmark::RegisterBenchmark("stream_le/qvbase", StreamQvbase, kByteOrderingIntel));
  both(benchmark::RegisterBenchmark("stream_le/qt", StreamQt, QDataStream::LittleEndian));
  both(benchmark::RegisterBenchmark("stream_le/poco", StreamPoco, Poco::BinaryWriter::LITTLE_ENDIAN_BYTE_ORDER,
                                    Poco::BinaryReader::LITTLE_ENDIAN_BYTE_ORDER));
  both(benchmark::RegisterBenchmark("stream_le/memcpy", StreamMemcpy, false));

  both(benchmark::RegisterBenchmark("id_text/qvbase", IdTextQvbase));
  both(benchmark::RegisterBenchmark("id_text/qt", IdTextQt));
  both(benchmark::RegisterBenchmark("id_text/boost", IdTextBoost));
  both(benchmark::RegisterBenchmark("id_text/libuuid", IdTextLibuuid));
  both(benchmark::RegisterBenchmark("id_name/qvbase", IdNameQvbase));
  both(benchmark::RegisterBenchmark("id_name/qt", IdNameQt));
  both(benchmark::RegisterBenchmark("id_name/boost", IdNameBoost));
  both(benchmark::RegisterBenchmark("id_name/libuuid", IdNameLibuuid));

  both(benchmark::RegisterBenchmark("sections/qvbase", SectionsQvbase));
  both(benchmark::RegisterBenchmark("sections/qt", SectionsQt));
  both(benchmark::RegisterBenchmark("sections/memcpy", SectionsMemcpy));

  strings(benchmark::RegisterBenchmark("str_copy/qvbase", StrCopyQvbase<PString>));
  strings(benchmark::RegisterBenchmark("str_copy/qvbase_ascii", StrCopyQvbase<PASCIIString>));
  strings(benchmark::RegisterBenchmark("str_copy/std", StrCopyStd));
  strings(benchmark::RegisterBenchmark("str_copy/qt", StrCopyQt));
  strings(benchmark::RegisterBenchmark("str_append/qvbase", StrAppendQvbase<PString>));
  strings(benchmark::RegisterBenchmark("str_append/qvbase_ascii", StrAppendQvbase<PASCIIString>));
  strings(benchmark::RegisterBenchmark("str_append/std", StrAppendStd));
  strings(benchmark::RegisterBenchmark("str_append/qt", StrAppendQt));
  strings(benchmark::RegisterBenchmark("str_find/qvbase", StrFindQvbase<PString>));
  strings(benchmark::RegisterBenchmark("str_find/qvbase_ascii", StrFindQvbase<PASCIIString>));
  strings(benchmark::RegisterBenchmark("str_find/std", StrFindStd));
  strings(benchmark::RegisterBenchmark("str_find/qt", StrFindQt));
  strings(benchmark::RegisterBenchmark("str_nocase/qvbase", StrNoCaseQvbase<PString>));
  strings(benchmark::RegisterBenchmark("str_nocase/qvbase_ascii", StrNoCaseQvbase<PASCIIString>));
  strings(benchmark::RegisterBenchmark("str_nocase/std", StrNoCaseStd));
  strings(benchmark::RegisterBenchmark("str_nocase/qt", StrNoCaseQt));
  strings(benchmark::RegisterBenchmark("str_order/qvbase", StrOrderQvbase<PString>));
  strings(benchmark::RegisterBenchmark("str_order/qvbase_ascii", StrOrderQvbase<PASCIIString>));
  strings(benchmark::RegisterBenchmark("str_order/std", StrOrderStd));
  strings(benchmark::RegisterBenchmark("str_order/qt", StrOrderQt));

  both(benchmark::RegisterBenchmark("list/qvbase_array", ListQvbase, GDynArrayDataConstructor));
  both(benchmark::RegisterBenchmark("list/qvbase_linked", ListQvbase, GLinkedListDataConstructor));
  both(benchmark::RegisterBenchmark("list/std_list", ListStdList));
  both(benchmark::RegisterBenchmark("list/std_vector", ListStdVector));
  both(benchmark::RegisterBenchmark("list/qt", ListQt));

  benchmark::RegisterBenchmark("error_3/qvbase", ErrorQvbase)->Arg(1);
  benchmark::RegisterBenchmark("error_3/std", ErrorStd)->Arg(1);
}

} // namespace

int main(int argc, char** argv) {
  Register();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
