// Lists over the four back ends: element operations, the position cache,
// growth, reference counting of the smart back ends, and bad positions.
#include <qvbase/PList.h>
#include <qvbase/PSmartData.h>

#include "PListTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using qvbase::test::AsElement;
using qvbase::test::Backend;
using qvbase::test::Contents;
using qvbase::test::Fill;
using qvbase::test::InspectedArray;
using qvbase::test::InspectedArrayConstructor;
using qvbase::test::InspectedLinked;
using qvbase::test::InspectedLinkedConstructor;
using qvbase::test::Item;
using qvbase::test::Journal;
using qvbase::test::kBackends;
using qvbase::test::kPlainBackends;
using qvbase::test::NullConstructor;
using qvbase::test::TestList;
using qvbase::test::Tracked;

TEST(PList, ArrayGrowsByFourSlots) {
  TestList list(InspectedArrayConstructor);
  auto* array = static_cast<InspectedArray*>(list.Data());
  EXPECT_EQ(array->Capacity(), 0u);
  const ULONG expected[] = {4, 4, 4, 4, 8, 8, 8, 8, 12, 12};
  for (int i = 0; i < 10; ++i) {
    list.AddAnObjectTail(Item(i));
    EXPECT_EQ(array->Capacity(), expected[i]) << "after element " << i + 1;
  }
  list.Clear();
  EXPECT_EQ(array->Capacity(), 0u);
}

TEST(PList, AddAfterUnknownReferenceGoesToTheHead) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    Fill(list, 3);
    list.AddAnObjectAfter(Item(9), Item(15));
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(9), Item(0), Item(1), Item(2)}));
    list.AddAnObjectAfter(Item(8), Item(1));
    EXPECT_EQ(list.GetAnIndex(Item(8)), 3u);
  }
}

TEST(PList, AddBeforeUnknownReferenceGoesBeforeTheLastElement) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    list.AddAnObjectBefore(Item(7), Item(15)); // empty list: at the head
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(7)}));
    list.AddAnObjectTail(Item(0));
    list.AddAnObjectBefore(Item(9), Item(15));
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(7), Item(9), Item(0)}));
    list.AddAnObjectBefore(Item(8), Item(0));
    EXPECT_EQ(list.GetAnIndex(Item(8)), 2u);
  }
}

TEST(PList, SmartListReleasesAnElementOnlyAfterUnlinkingIt) {
  Journal journal;
  TestList list(GSmartListDataConstructor);
  list.AddAnObjectTail(AsElement(new Tracked(&journal, "a", &list)));
  list.AddAnObjectTail(AsElement(new Tracked(&journal, "b", &list)));
  list.RemoveAnIdx(0);
  EXPECT_EQ(journal.events,
            (std::vector<std::string>{"init a", "init b", "uninit a", "delete a (out of list)"}));
  EXPECT_EQ(list.Size(), 1u);
}

TEST(PList, DestroyingASmartListReleasesEveryElementInOrder) {
  for (auto factory : {GSmartListDataConstructor, GSmartArrayDataConstructor}) {
    Journal journal;
    {
      TestList list(factory);
      for (const char* name : {"a", "b", "c"})
        list.AddAnObjectTail(AsElement(new Tracked(&journal, name)));
      journal.events.clear();
    }
    EXPECT_EQ(journal.events, (std::vector<std::string>{"uninit a", "delete a", "uninit b",
                                                        "delete b", "uninit c", "delete c"}));
  }
}

TEST(PList, SmartBackEndsHoldOneReferencePerOccurrence) {
  for (auto factory : {GSmartListDataConstructor, GSmartArrayDataConstructor}) {
    Journal journal;
    auto* t = new Tracked(&journal, "t");
    t->AddRef(); // the test's own reference
    {
      TestList list(factory);
      list.AddAnObjectTail(AsElement(t));
      list.AddAnObjectTail(AsElement(t));
      EXPECT_EQ(t->NumSmartLocks(), 3u);
      list.RemoveAnObject(AsElement(t));
      EXPECT_EQ(t->NumSmartLocks(), 2u);
    }
    EXPECT_EQ(t->NumSmartLocks(), 1u);
    EXPECT_EQ(t->Release(), 0u);
    EXPECT_EQ(journal.events, (std::vector<std::string>{"init t", "uninit t", "delete t"}));
  }
}

TEST(PList, SmartArrayReleasesBeforeClosingUp) {
  Journal journal;
  TestList list(GSmartArrayDataConstructor);
  list.AddAnObjectTail(AsElement(new Tracked(&journal, "a", &list)));
  list.RemoveAnIdx(0);
  // The array back end releases the element while it is still in place.
  EXPECT_EQ(journal.events.back(), "delete a (still in list)");
  EXPECT_TRUE(list.IsEmpty());
}

TEST(PList, NeighboursOfTheEndsAreNull) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    Fill(list, 3);
    EXPECT_EQ(list.GetANextObject(Item(2)), nullptr);
    EXPECT_EQ(list.GetAPrevObject(Item(0)), nullptr);
    EXPECT_EQ(list.GetANextObject(Item(0)), Item(1));
    EXPECT_EQ(list.GetAPrevObject(Item(2)), Item(1));
    EXPECT_EQ(list.GetANextObject(Item(9)), nullptr);
    EXPECT_EQ(list.GetAPrevObject(Item(9)), nullptr);
    EXPECT_EQ(list.GetAFirstObject(), Item(0));
    EXPECT_EQ(list.GetALastObject(), Item(2));
  }
}

TEST(PList, ListWithoutBackEndIgnoresEverything) {
  TestList list(NullConstructor);
  list.AddAnObjectTail(Item(0));
  list.AddAnObjectHead(Item(1));
  list.AddAnObject(Item(2), 0);
  EXPECT_EQ(list.Size(), 0u);
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(list.GetAnObject(0), nullptr);
  EXPECT_EQ(list.GetAnIndex(Item(0)), kListNoIndex);
  EXPECT_EQ(list.GetALastObject(), nullptr);
  EXPECT_FALSE(list.MoveAnIdx(0, 1));
  EXPECT_FALSE(list.MoveAnObjectToHead(Item(0)));
  list.RemoveAnIdx(0);
  list.RemoveAnObject(Item(0));
  list.Clear();
  TestList other(GDynArrayDataConstructor);
  Fill(other, 2);
  list = other;
  list.InsertAList(other, 0);
  EXPECT_EQ(list.Size(), 0u);
}

TEST(PList, EmptyListAnswersNothingFound) {
  for (const Backend& b : kBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.GetAFirstObject(), nullptr);
    EXPECT_EQ(list.GetALastObject(), nullptr);
    EXPECT_EQ(list.GetAnIndex(Item(0)), kListNoIndex);
    EXPECT_EQ(list.GetAnObject(3), nullptr);
  }
}

TEST(PList, MovesPlaceTheElementWhereAsked) {
  struct Row {
    const char* what;
    ULONG from, to;
    bool moved;
    std::vector<int> after;
  };
  const Row rows[] = {
      {"towards the tail", 1, 3, true, {0, 2, 3, 1, 4}},
      {"towards the head", 3, 1, true, {0, 3, 1, 2, 4}},
      {"head to tail", 0, 4, true, {1, 2, 3, 4, 0}},
      {"tail to head", 4, 0, true, {4, 0, 1, 2, 3}},
      {"neighbours", 2, 3, true, {0, 1, 3, 2, 4}},
      {"same place", 2, 2, false, {0, 1, 2, 3, 4}},
      {"from past the end", 5, 1, false, {0, 1, 2, 3, 4}},
      {"to past the end", 1, 9, false, {0, 1, 2, 3, 4}},
  };
  for (const Backend& b : kPlainBackends) {
    for (const Row& row : rows) {
      SCOPED_TRACE(std::string(b.name) + ": " + row.what);
      TestList list(b.factory);
      Fill(list, 5);
      EXPECT_EQ(list.MoveAnIdx(row.from, row.to), row.moved);
      std::vector<void*> expected;
      for (int i : row.after)
        expected.push_back(Item(i));
      EXPECT_EQ(Contents(list), expected);
    }
  }
}

TEST(PList, ObjectMovesReportWhetherAnythingMoved) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    Fill(list, 4);
    EXPECT_FALSE(list.MoveAnObjectForward(Item(0)));
    EXPECT_FALSE(list.MoveAnObjectBackward(Item(3)));
    EXPECT_FALSE(list.MoveAnObjectToHead(Item(0)));
    EXPECT_FALSE(list.MoveAnObjectToTail(Item(3)));
    EXPECT_FALSE(list.MoveAnObjectTo(Item(2), 2));
    EXPECT_FALSE(list.MoveAnObjectTo(Item(9), 0));
    EXPECT_TRUE(list.MoveAnObjectForward(Item(2)));  // 0 2 1 3
    EXPECT_TRUE(list.MoveAnObjectBackward(Item(0))); // 2 0 1 3
    EXPECT_TRUE(list.MoveAnObjectToTail(Item(2)));   // 0 1 3 2
    EXPECT_TRUE(list.MoveAnObjectToHead(Item(3)));   // 3 0 1 2
    EXPECT_TRUE(list.MoveAnObjectTo(Item(0), 3));    // 3 1 2 0
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(3), Item(1), Item(2), Item(0)}));
  }
}

TEST(PList, RemoveAnObjectTakesTheFirstOccurrenceAndIgnoresBadPositions) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    for (int i : {1, 2, 1, 3})
      list.AddAnObjectTail(Item(i));
    // The position cache rests on the last element: the neighbour search
    // would find the second 1 first, the removal still takes the first.
    list.RemoveAnObject(Item(1));
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(2), Item(1), Item(3)}));
    list.RemoveAnObject(Item(9));
    list.RemoveAnIdx(3);
    list.RemoveAnIdx(kListNoIndex);
    EXPECT_EQ(list.Size(), 3u);
    list.RemoveAnIdx(2);
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(2), Item(1)}));
  }
}

// An object that is in the list twice is found where the position cache
// points first: the cached element, then its neighbours, then the scan from
// the head. Walks that step from the object just found rely on it.
TEST(PList, DuplicatesAreFoundNearTheCacheFirst) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    for (int i : {1, 2, 1, 3})
      list.AddAnObjectTail(Item(i));         // the cache rests on index 3
    EXPECT_EQ(list.GetAnIndex(Item(1)), 2u); // the neighbour before the cache
    list.RemoveAnIdx(2);
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(1), Item(2), Item(3)}));
    list.AddAnObjectTail(Item(2));           // 1 2 3 2, cache on index 3
    EXPECT_EQ(list.GetAnIndex(Item(2)), 3u); // the cached element itself
  }
}

TEST(PList, InsertPastTheEndAppends) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    Fill(list, 2);
    list.AddAnObject(Item(5), 100);
    list.AddAnObject(Item(6), kListNoIndex);
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(0), Item(1), Item(5), Item(6)}));
    EXPECT_EQ(list.GetAnObject(4), nullptr);
    EXPECT_EQ(list.GetAnObject(kListNoIndex), nullptr);
  }
}

TEST(PList, CopyMayUseAnotherBackEnd) {
  TestList source(GLinkedListDataConstructor);
  Fill(source, 5);
  TestList copy(GDynArrayDataConstructor, source);
  EXPECT_EQ(Contents(copy), Contents(source));
  EXPECT_NE(dynamic_cast<PDynArrayData*>(copy.Data()), nullptr);
}

TEST(PList, AssignmentReplacesElementsAndKeepsTheBackEnd) {
  TestList target(GDynArrayDataConstructor);
  Fill(target, 2);
  PListData* backEnd = target.Data();
  TestList source(GLinkedListDataConstructor);
  for (int i : {7, 8, 9})
    source.AddAnObjectTail(Item(i));
  target = source;
  EXPECT_EQ(target.Data(), backEnd);
  EXPECT_EQ(Contents(target), Contents(source));
  // Assigning a list to itself keeps what it holds.
  target = target;
  EXPECT_EQ(Contents(target), Contents(source));
}

TEST(PList, InsertAListKeepsOrderEvenIntoItself) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    TestList list(b.factory);
    Fill(list, 3);
    TestList other(GLinkedListDataConstructor);
    other.AddAnObjectTail(Item(8));
    other.AddAnObjectTail(Item(9));
    list.InsertAList(other, 1);
    EXPECT_EQ(Contents(list), (std::vector<void*>{Item(0), Item(8), Item(9), Item(1), Item(2)}));
    list.InsertAList(list, 5);
    EXPECT_EQ(list.Size(), 10u);
    EXPECT_EQ(list.GetAnObject(5), Item(0));
    EXPECT_EQ(list.GetAnObject(9), Item(2));
  }
}

TEST(PList, ArrayCacheFollowsWhatWasTouched) {
  TestList list(InspectedArrayConstructor);
  auto* array = static_cast<InspectedArray*>(list.Data());
  EXPECT_EQ(array->CacheIdx(), kListNoIndex);
  Fill(list, 6);
  EXPECT_EQ(array->CacheIdx(), 5u); // the last insert
  EXPECT_EQ(array->CacheObj(), Item(5));
  EXPECT_EQ(list.GetAnObject(2), Item(2));
  EXPECT_EQ(array->CacheIdx(), 2u);
  EXPECT_EQ(list.GetAnIndex(Item(3)), 3u); // the neighbour after
  EXPECT_EQ(array->CacheIdx(), 3u);
  EXPECT_EQ(list.GetAnIndex(Item(2)), 2u); // the neighbour before
  EXPECT_EQ(array->CacheObj(), Item(2));
  // A miss forgets the object but keeps the index.
  EXPECT_EQ(list.GetAnIndex(Item(12)), kListNoIndex);
  EXPECT_EQ(array->CacheIdx(), 2u);
  EXPECT_EQ(array->CacheObj(), nullptr);
  // Removal points the cache at the head, or nowhere when emptied.
  list.RemoveAnIdx(4);
  EXPECT_EQ(array->CacheIdx(), 0u);
  EXPECT_EQ(array->CacheObj(), Item(0));
  list.Clear();
  EXPECT_EQ(array->CacheIdx(), kListNoIndex);
  EXPECT_EQ(array->CacheObj(), nullptr);
}

TEST(PList, LinkedCacheFollowsWhatWasTouched) {
  TestList list(InspectedLinkedConstructor);
  auto* linked = static_cast<InspectedLinked*>(list.Data());
  Fill(list, 8);
  EXPECT_EQ(linked->CacheIdx(), 7u);
  for (ULONG i = 0; i < 8; ++i) {
    EXPECT_EQ(list.GetAnObject(i), Item(static_cast<int>(i)));
    EXPECT_EQ(linked->CacheIdx(), i);
  }
  for (ULONG i = 8; i-- > 0;)
    EXPECT_EQ(list.GetAnIndex(Item(static_cast<int>(i))), i);
  // Removing makes the follower the cached node, at the same position.
  list.RemoveAnIdx(3);
  EXPECT_EQ(linked->CacheIdx(), 3u);
  EXPECT_EQ(linked->CacheObj(), Item(4));
  // Removing the last node leaves no cache.
  list.RemoveAnIdx(6);
  EXPECT_EQ(linked->CacheIdx(), kListNoIndex);
  EXPECT_EQ(list.GetAnObject(20), nullptr);
  EXPECT_EQ(linked->CacheIdx(), kListNoIndex);
}

TEST(PList, LinkedIndexWalkSeesChangesMadeBetweenSteps) {
  // A walk by index, the list changed between two steps, against a vector
  // changed the same way: each step answers from the list as it is now.
  TestList list(InspectedLinkedConstructor);
  std::vector<void*> model;
  for (int i = 0; i < 8; ++i) {
    list.AddAnObject(Item(i), static_cast<ULONG>(i));
    model.push_back(Item(i));
  }
  for (ULONG i = 0; i < list.Size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(list.GetAnObject(i), model[i]);
    if (i == 1) { // the current element leaves: the next one moves into its place
      list.RemoveAnIdx(i);
      model.erase(model.begin() + i);
    } else if (i == 3) { // one joins before the walk's position
      list.AddAnObject(Item(12), 0);
      model.insert(model.begin(), Item(12));
    } else if (i == 5) { // one joins right after it
      list.AddAnObject(Item(13), i + 1);
      model.insert(model.begin() + i + 1, Item(13));
    }
  }
  ASSERT_EQ(list.Size(), static_cast<ULONG>(model.size()));
  for (ULONG i = 0; i < list.Size(); ++i)
    EXPECT_EQ(list.GetAnObject(i), model[i]);
  EXPECT_EQ(list.GetAnObject(list.Size()), nullptr);
}

// Every back end against a plain vector, over many random operations.
TEST(PList, RandomOperationsMatchAVector) {
  for (const Backend& b : kPlainBackends) {
    SCOPED_TRACE(b.name);
    std::mt19937 random(7);
    TestList list(b.factory);
    std::vector<void*> model;
    for (int step = 0; step < 4000; ++step) {
      int op = static_cast<int>(random() % 6);
      void* item = Item(static_cast<int>(random() % 16));
      ULONG n = static_cast<ULONG>(model.size());
      ULONG pos = n ? static_cast<ULONG>(random() % (n + 2)) : 0;
      switch (op) {
      case 0:
      case 1:
        list.AddAnObject(item, pos);
        model.insert(model.begin() + std::min<ULONG>(pos, n), item);
        break;
      case 2:
        list.RemoveAnIdx(pos);
        if (pos < n)
          model.erase(model.begin() + pos);
        break;
      case 3: {
        ULONG to = n ? static_cast<ULONG>(random() % (n + 1)) : 0;
        bool moved = list.MoveAnIdx(pos, to);
        EXPECT_EQ(moved, pos != to && pos < n && to < n);
        if (moved) {
          void* v = model[pos];
          model.erase(model.begin() + pos);
          model.insert(model.begin() + to, v);
        }
        break;
      }
      case 4: {
        // With duplicates any occurrence may answer; it must be one.
        ULONG found = list.GetAnIndex(item);
        if (std::find(model.begin(), model.end(), item) == model.end())
          ASSERT_EQ(found, kListNoIndex);
        else
          ASSERT_TRUE(found < n && model[found] == item) << found;
        break;
      }
      case 5:
        ASSERT_EQ(list.GetAnObject(pos), pos < n ? model[pos] : nullptr);
        break;
      }
      ASSERT_EQ(list.Size(), model.size());
    }
    EXPECT_EQ(Contents(list), model);
  }
}

} // namespace
