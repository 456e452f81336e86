// ListBench.cpp - lists of pointers filled, walked, searched and thinned, over
// each of the library's back ends, against std::list, std::vector and QList.
// Part of qvbase, the QVKernel foundation class library.

#include "BenchSupport.h"

#include <qvbase/PList.h>
#include <qvbase/PSmartData.h>

#include <QList>

#include <algorithm>
#include <iterator>
#include <list>
#include <vector>

namespace {

using qvbench::ScenarioFile;
using qvbench::Sizes;

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

void Register() {
  using benchmark::RegisterBenchmark;
  const auto lists = [](benchmark::internal::Benchmark* b) { Sizes(b, 10, 100000); };
  lists(RegisterBenchmark("list/qvbase_array", ListQvbase, GDynArrayDataConstructor));
  lists(RegisterBenchmark("list/qvbase_linked", ListQvbase, GLinkedListDataConstructor));
  lists(RegisterBenchmark("list/qvbase_smartarray", ListQvbase, GSmartArrayDataConstructor));
  lists(RegisterBenchmark("list/qvbase_smartlist", ListQvbase, GSmartListDataConstructor));
  lists(RegisterBenchmark("list/std_list", ListStdList));
  lists(RegisterBenchmark("list/std_vector", ListStdVector));
  lists(RegisterBenchmark("list/qt", ListQt));
}

const ScenarioFile kLists(/*rank=*/50, Register);

} // namespace
