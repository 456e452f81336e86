// IdentifierBench.cpp - identifiers to their text form and back, and made from
// names, against Qt's QUuid, Boost.Uuid and libuuid.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PASCIIString.h>
#include <qvbase/PString.h>
#include <qvbase/PUniversalID.h>

#include <QByteArray>
#include <QString>
#include <QUuid>

#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <uuid/uuid.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

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

void Register() {
  using benchmark::RegisterBenchmark;
  const auto ids = [](benchmark::internal::Benchmark* b) { Sizes(b, 1000, 1000000); };
  ids(RegisterBenchmark("id_text/qvbase", IdTextQvbase));
  ids(RegisterBenchmark("id_text/qt", IdTextQt));
  ids(RegisterBenchmark("id_text/boost", IdTextBoost));
  ids(RegisterBenchmark("id_text/libuuid", IdTextLibuuid));
  ids(RegisterBenchmark("id_name/qvbase", IdNameQvbase));
  ids(RegisterBenchmark("id_name/qt", IdNameQt));
  ids(RegisterBenchmark("id_name/boost", IdNameBoost));
  ids(RegisterBenchmark("id_name/libuuid", IdNameLibuuid));
}

const ScenarioFile kIdentifiers(/*rank=*/30, Register);

} // namespace
