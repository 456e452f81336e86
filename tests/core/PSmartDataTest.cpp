// Shared data and its handles: reference counting, Initialize and
// Uninitialize, queries and the object-model wrappers over a smart data.
#include <qvbase/PSmartData.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

struct Counters {
  int initialize = 0;
  int uninitialize = 0;
  int destroyed = 0;
  std::vector<std::string> events;
};

class CountedData : public PSmartData {
public:
  explicit CountedData(Counters* counters) : m_counters(counters) {}
  CountedData(const CountedData& other) : PSmartData(other), m_counters(other.m_counters) {}
  ~CountedData() override {
    ++m_counters->destroyed;
    m_counters->events.push_back("destroy");
  }
  void Initialize() override {
    ++m_counters->initialize;
    m_counters->events.push_back("Initialize");
  }
  void Uninitialize() override {
    ++m_counters->uninitialize;
    m_counters->events.push_back("Uninitialize");
  }

private:
  Counters* m_counters;
};

// {6B1E2F40-1C2D-4E5F-9A8B-7C6D5E4F3A21}
const _GUID kNoteClassId = {
    0x6B1E2F40, 0x1C2D, 0x4E5F, {0x9A, 0x8B, 0x7C, 0x6D, 0x5E, 0x4F, 0x3A, 0x21}};
// An interface the data answers for itself: {0A0B0C0D-0001-0002-0304-050607080910}
const _GUID kNoteInterface = {
    0x0A0B0C0D, 0x0001, 0x0002, {0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x10}};

class IdentifiedData : public CountedData {
public:
  using CountedData::CountedData;
  const PUniversalID& DC_CLSID() const override {
    static const PUniversalID id(kNoteClassId);
    return id;
  }
};

// Answers kNoteInterface with itself (as a plain pointer) and records every
// interface it was asked for.
class AnsweringData : public CountedData {
public:
  using CountedData::CountedData;
  HRESULT QueryInterface(const _GUID& iid, void** out) const override {
    asked.push_back(iid);
    if (IsEqualGUID(iid, kNoteInterface)) {
      *out = const_cast<AnsweringData*>(this);
      AddRef();
      return S_OK;
    }
    return PSmartData::QueryInterface(iid, out);
  }
  mutable std::vector<_GUID> asked;
};

// A typed handle that opens the protected operations to the tests.
class Handle : public PSmartPtr {
public:
  Handle() = default;
  explicit Handle(PSmartData* data) { AssignTo(data); }
  using PSmartPtr::AssignTo;
  using PSmartPtr::GetData;
};

// An IUnknown that only counts.
class CountingUnknown : public IUnknown {
public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOTIMPL; }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  ULONG refs = 0;
};

IUnknown* QueryUnknown(const PSmartData* data) {
  void* out = nullptr;
  EXPECT_EQ(data->QueryInterface(IID_IUnknown, &out), S_OK);
  return static_cast<IUnknown*>(out);
}

// --- Counting and life ---

TEST(PSmartData, NewDataStartsWithoutReferences) {
  Counters counters;
  CountedData* data = new CountedData(&counters);
  EXPECT_EQ(data->NumSmartLocks(), 0u);
  EXPECT_FALSE(data->IsSmartPointed());
  EXPECT_FALSE(data->IsSmartLocked());
  EXPECT_EQ(counters.initialize, 0);
  // A data that never gets a handle is deleted by its owner.
  delete data;
  EXPECT_EQ(counters.uninitialize, 0);
  EXPECT_EQ(counters.destroyed, 1);
}

TEST(PSmartData, NewHandleOnNewDataRunsInitializeOnce) {
  Counters counters;
  CountedData* data = new CountedData(&counters);
  Handle handle(data);
  EXPECT_EQ(data->NumSmartLocks(), 1u);
  EXPECT_EQ(counters.initialize, 1);
  EXPECT_TRUE(data->IsSmartPointed());
  EXPECT_FALSE(data->IsSmartLocked());
}

TEST(PSmartData, CopiedHandleSharesTheDataAndLocksIt) {
  Counters counters;
  CountedData* data = new CountedData(&counters);
  Handle first(data);
  Handle second(first);
  EXPECT_EQ(second.GetData(), data);
  EXPECT_EQ(data->NumSmartLocks(), 2u);
  EXPECT_TRUE(data->IsSmartLocked());
  EXPECT_EQ(counters.initialize, 1);
}

TEST(PSmartData, DestroyingEveryHandleRunsUninitializeOnceThenDeletesOnce) {
  Counters counters;
  {
    Handle first(new CountedData(&counters));
    Handle second(first);
    Handle third;
    third = second;
    EXPECT_EQ(first.GetData()->NumSmartLocks(), 3u);
  }
  EXPECT_EQ(counters.initialize, 1);
  EXPECT_EQ(counters.uninitialize, 1);
  EXPECT_EQ(counters.destroyed, 1);
  const std::vector<std::string> expected = {"Initialize", "Uninitialize", "destroy"};
  EXPECT_EQ(counters.events, expected);
}

TEST(PSmartData, AddRefAndReleaseReturnTheNewCount) {
  Counters counters;
  CountedData* data = new CountedData(&counters);
  EXPECT_EQ(data->AddRef(), 1u);
  EXPECT_EQ(data->AddRef(), 2u);
  EXPECT_EQ(counters.initialize, 1);
  EXPECT_EQ(data->Release(), 1u);
  EXPECT_EQ(counters.destroyed, 0);
  EXPECT_EQ(data->Release(), 0u);
  EXPECT_EQ(counters.uninitialize, 1);
  EXPECT_EQ(counters.destroyed, 1);
}

TEST(PSmartData, CopyConstructedDataStartsWithoutReferences) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  CountedData copy(*static_cast<CountedData*>(handle.GetData()));
  EXPECT_EQ(copy.NumSmartLocks(), 0u);
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
}

TEST(PSmartData, AssignmentKeepsTheTargetsCount) {
  Counters counters;
  Handle target(new CountedData(&counters));
  Handle source(new CountedData(&counters));
  Handle sourceAgain(source);
  PSmartData& result = (*target.GetData() = *source.GetData());
  EXPECT_EQ(&result, target.GetData());
  EXPECT_EQ(target.GetData()->NumSmartLocks(), 1u);
  EXPECT_EQ(source.GetData()->NumSmartLocks(), 2u);
}

TEST(PSmartData, EveryTwoDataCompareEqual) {
  // Deliberate: no comparison at this level; derived classes bring their own.
  Counters counters;
  Handle a(new CountedData(&counters));
  Handle b(new IdentifiedData(&counters));
  EXPECT_TRUE(*a.GetData() == *b.GetData());
  EXPECT_FALSE(*a.GetData() != *b.GetData());
  EXPECT_TRUE(*a.GetData() == *a.GetData());
  EXPECT_FALSE(*a.GetData() != *a.GetData());
}

// --- Handles ---

TEST(PSmartPtr, AssignToTheHeldDataLeavesTheCountUnchanged) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  handle.AssignTo(handle.GetData());
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
  EXPECT_EQ(counters.initialize, 1);
  EXPECT_EQ(counters.uninitialize, 0);
  EXPECT_EQ(counters.destroyed, 0);
}

TEST(PSmartPtr, SelfAssignmentKeepsTheData) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  Handle& same = handle;
  handle = same;
  ASSERT_TRUE(handle.IsValid());
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
  EXPECT_EQ(counters.destroyed, 0);
}

TEST(PSmartPtr, AssignToOtherDataReleasesThePrevious) {
  Counters first, second;
  Handle handle(new CountedData(&first));
  CountedData* next = new CountedData(&second);
  handle.AssignTo(next);
  EXPECT_EQ(first.uninitialize, 1);
  EXPECT_EQ(first.destroyed, 1);
  EXPECT_EQ(handle.GetData(), next);
  EXPECT_EQ(next->NumSmartLocks(), 1u);
  EXPECT_EQ(second.initialize, 1);
}

TEST(PSmartPtr, AssignToNullEmptiesTheHandle) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  handle.AssignTo(nullptr);
  EXPECT_TRUE(handle.IsNull());
  EXPECT_EQ(counters.destroyed, 1);
}

TEST(PSmartPtr, EmptyHandleIsNullAndNotValid) {
  Handle handle;
  EXPECT_TRUE(handle.IsNull());
  EXPECT_TRUE(handle.IsNotValid());
  EXPECT_FALSE(handle.IsValid());
  EXPECT_FALSE(handle.IsNotNull());
  EXPECT_EQ(handle.GetData(), nullptr);
  EXPECT_EQ(static_cast<void*>(handle), nullptr);
}

TEST(PSmartPtr, HandleWithDataIsValidAndShowsTheRawPointer) {
  Counters counters;
  CountedData* data = new CountedData(&counters);
  Handle handle(data);
  EXPECT_FALSE(handle.IsNull());
  EXPECT_FALSE(handle.IsNotValid());
  EXPECT_TRUE(handle.IsValid());
  EXPECT_TRUE(handle.IsNotNull());
  EXPECT_EQ(handle.GetData(), data);
  EXPECT_EQ(static_cast<void*>(handle), static_cast<void*>(static_cast<PSmartData*>(data)));
  // Looking at the pointer takes no reference.
  EXPECT_EQ(data->NumSmartLocks(), 1u);
}

TEST(PSmartPtr, IsOnePointerBesidesItsVirtualTablePointer) {
  EXPECT_EQ(sizeof(PSmartPtr), 2 * sizeof(void*));
}

TEST(PSmartPtr, GetClassIdOnEmptyHandleFailsWithPointerError) {
  Handle handle;
  _GUID id = {};
  EXPECT_EQ(handle.GetClassID(&id), E_POINTER);
}

TEST(PSmartPtr, GetClassIdAsksTheData) {
  Counters counters;
  Handle handle(new IdentifiedData(&counters));
  _GUID id = {};
  EXPECT_EQ(handle.GetClassID(&id), S_OK);
  EXPECT_TRUE(IsEqualGUID(id, kNoteClassId));
  EXPECT_EQ(handle.GetClassID(nullptr), E_INVALIDARG);
}

TEST(PSmartPtr, QueryInterfaceOnEmptyHandleFailsWithPointerError) {
  Handle handle;
  void* out = nullptr;
  EXPECT_EQ(handle.QueryInterface(IID_IUnknown, &out), E_POINTER);
  EXPECT_EQ(out, nullptr);
}

TEST(PSmartPtr, QueryInterfaceAsksTheData) {
  Counters counters;
  AnsweringData* data = new AnsweringData(&counters);
  Handle handle(data);
  void* out = nullptr;
  EXPECT_EQ(handle.QueryInterface(kNoteInterface, &out), S_OK);
  EXPECT_EQ(out, static_cast<void*>(data));
  ASSERT_EQ(data->asked.size(), 1u);
  EXPECT_TRUE(IsEqualGUID(data->asked[0], kNoteInterface));
  EXPECT_EQ(data->NumSmartLocks(), 2u);
  data->Release();
}

// --- Class identifiers ---

TEST(PSmartData, BaseClassIdIsNull) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  const PUniversalID& id = handle.GetData()->DC_CLSID();
  EXPECT_FALSE(id.IsValid());
  const _GUID null = {};
  EXPECT_TRUE(id == null);
}

TEST(PSmartData, GetClassIdCopiesTheClassId) {
  Counters counters;
  Handle plain(new CountedData(&counters));
  Handle identified(new IdentifiedData(&counters));
  _GUID id;
  std::memset(&id, 0xEE, sizeof id);
  EXPECT_EQ(plain.GetData()->GetClassID(&id), S_OK);
  const _GUID null = {};
  EXPECT_TRUE(IsEqualGUID(id, null));
  EXPECT_EQ(identified.GetData()->GetClassID(&id), S_OK);
  EXPECT_TRUE(IsEqualGUID(id, kNoteClassId));
}

TEST(PSmartData, GetClassIdWithNullOutFailsWithInvalidArgument) {
  Counters counters;
  Handle handle(new IdentifiedData(&counters));
  EXPECT_EQ(handle.GetData()->GetClassID(nullptr), E_INVALIDARG);
}

// --- Queries and wrappers ---

TEST(PSmartData, QueryPersistWithNullClassIdFailsWithNoInterface) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  void* out = &counters;
  EXPECT_EQ(handle.GetData()->QueryInterface(IID_IPersist, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  // No wrapper was made: nothing holds a reference.
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
}

TEST(PSmartData, QueryUnknownSucceedsEvenWithNullClassId) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  void* out = nullptr;
  ASSERT_EQ(handle.GetData()->QueryInterface(IID_IUnknown, &out), S_OK);
  ASSERT_NE(out, nullptr);
  // The wrapper's handle and the caller's reference.
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 3u);
  static_cast<IUnknown*>(out)->Release();
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
  EXPECT_EQ(counters.destroyed, 0);
}

TEST(PSmartData, QueryPersistWithClassIdGivesAWrapperThatReportsIt) {
  Counters counters;
  Handle handle(new IdentifiedData(&counters));
  void* out = nullptr;
  ASSERT_EQ(handle.GetData()->QueryInterface(IID_IPersist, &out), S_OK);
  IPersist* persist = static_cast<IPersist*>(out);
  ASSERT_NE(persist, nullptr);
  CLSID id = {};
  EXPECT_EQ(persist->GetClassID(&id), S_OK);
  EXPECT_TRUE(IsEqualGUID(id, kNoteClassId));
  EXPECT_EQ(persist->GetClassID(nullptr), E_INVALIDARG);
  persist->Release();
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
}

TEST(PSmartData, QueryOtherInterfaceFailsWithNoInterface) {
  Counters counters;
  Handle handle(new IdentifiedData(&counters));
  void* out = nullptr;
  EXPECT_EQ(handle.GetData()->QueryInterface(IID_IStream, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
}

TEST(PSmartData, QueryWithNullOutFailsWithPointerError) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  EXPECT_EQ(handle.GetData()->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
}

TEST(PSmartData, EveryQueryMakesAFreshWrapper) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  IUnknown* first = QueryUnknown(handle.GetData());
  IUnknown* second = QueryUnknown(handle.GetData());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  first->Release();
  second->Release();
}

TEST(PSmartData, ReleasingTwoWrappersAfterTheHandleDeletesTheDataOnce) {
  Counters counters;
  IUnknown* first = nullptr;
  IUnknown* second = nullptr;
  {
    Handle handle(new CountedData(&counters));
    first = QueryUnknown(handle.GetData());
    second = QueryUnknown(handle.GetData());
  }
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(counters.destroyed, 0);
  first->Release();
  EXPECT_EQ(counters.destroyed, 0);
  second->Release();
  EXPECT_EQ(counters.uninitialize, 1);
  EXPECT_EQ(counters.destroyed, 1);
}

TEST(PSmartData, WrapperAddRefAndReleaseMoveBothCountsAndReturnTheDatasCount) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  PSmartData* data = handle.GetData();
  IUnknown* unknown = QueryUnknown(data);
  ASSERT_NE(unknown, nullptr);
  // Handle 1, wrapper's own handle 1, caller's reference 1.
  EXPECT_EQ(data->NumSmartLocks(), 3u);
  EXPECT_EQ(unknown->AddRef(), 4u);
  EXPECT_EQ(data->NumSmartLocks(), 4u);
  EXPECT_EQ(unknown->Release(), 3u);
  // The last release reports the count before the wrapper drops its own
  // handle; the wrapper is gone afterwards.
  EXPECT_EQ(unknown->Release(), 2u);
  EXPECT_EQ(data->NumSmartLocks(), 1u);
  EXPECT_EQ(counters.destroyed, 0);
}

TEST(PSmartData, WrapperAnswersUnknownAndPersistWithItself) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  PSmartData* data = handle.GetData();
  IUnknown* unknown = QueryUnknown(data);
  ASSERT_NE(unknown, nullptr);
  void* out = nullptr;
  EXPECT_EQ(unknown->QueryInterface(IID_IUnknown, &out), S_OK);
  EXPECT_EQ(out, static_cast<void*>(unknown));
  EXPECT_EQ(data->NumSmartLocks(), 4u);
  // The wrapper answers IPersist for itself even when the class has no
  // identifier; it then reports the null identifier.
  out = nullptr;
  EXPECT_EQ(unknown->QueryInterface(IID_IPersist, &out), S_OK);
  EXPECT_EQ(out, static_cast<void*>(unknown));
  CLSID id;
  std::memset(&id, 0xEE, sizeof id);
  EXPECT_EQ(static_cast<IPersist*>(out)->GetClassID(&id), S_OK);
  const _GUID null = {};
  EXPECT_TRUE(IsEqualGUID(id, null));
  EXPECT_EQ(data->NumSmartLocks(), 5u);
  unknown->Release();
  unknown->Release();
  unknown->Release();
  EXPECT_EQ(data->NumSmartLocks(), 1u);
}

TEST(PSmartData, WrapperPassesOtherInterfacesToTheData) {
  Counters counters;
  AnsweringData* data = new AnsweringData(&counters);
  Handle handle(data);
  IUnknown* unknown = QueryUnknown(data);
  ASSERT_NE(unknown, nullptr);
  data->asked.clear();
  void* out = nullptr;
  EXPECT_EQ(unknown->QueryInterface(kNoteInterface, &out), S_OK);
  EXPECT_EQ(out, static_cast<void*>(data));
  ASSERT_EQ(data->asked.size(), 1u);
  EXPECT_TRUE(IsEqualGUID(data->asked[0], kNoteInterface));
  data->Release();
  out = nullptr;
  EXPECT_EQ(unknown->QueryInterface(IID_IStream, &out), E_NOINTERFACE);
  EXPECT_EQ(data->asked.size(), 2u);
  unknown->Release();
  EXPECT_EQ(data->NumSmartLocks(), 1u);
}

TEST(PSmartData, WrapperQueryWithNullOutFailsWithPointerError) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  IUnknown* unknown = QueryUnknown(handle.GetData());
  ASSERT_NE(unknown, nullptr);
  EXPECT_EQ(unknown->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 3u);
  unknown->Release();
}

// --- SmartDataQueryInterface ---

TEST(SmartDataQueryInterface, NullOutOrNullDataFailsWithPointerError) {
  Counters counters;
  Handle handle(new CountedData(&counters));
  CountingUnknown self;
  void* out = nullptr;
  EXPECT_EQ(SmartDataQueryInterface(handle.GetData(), IID_IUnknown, nullptr, &self), E_POINTER);
  EXPECT_EQ(SmartDataQueryInterface(nullptr, IID_IUnknown, &out, &self), E_POINTER);
  EXPECT_EQ(SmartDataQueryInterface(nullptr, IID_IUnknown, &out, nullptr), E_POINTER);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(self.refs, 0u);
  EXPECT_EQ(handle.GetData()->NumSmartLocks(), 1u);
}

TEST(SmartDataQueryInterface, SelfIsGivenOutWithOneMoreReference) {
  Counters counters;
  AnsweringData* data = new AnsweringData(&counters);
  Handle handle(data);
  CountingUnknown self;
  IUnknown* selfUnknown = &self;
  void* out = nullptr;
  EXPECT_EQ(SmartDataQueryInterface(data, IID_IStream, &out, selfUnknown), S_OK);
  EXPECT_EQ(out, static_cast<void*>(selfUnknown));
  EXPECT_EQ(self.refs, 1u);
  EXPECT_TRUE(data->asked.empty());
  EXPECT_EQ(data->NumSmartLocks(), 1u);
}

TEST(SmartDataQueryInterface, WithoutSelfTheDataAnswers) {
  Counters counters;
  AnsweringData* data = new AnsweringData(&counters);
  Handle handle(data);
  void* out = nullptr;
  EXPECT_EQ(SmartDataQueryInterface(data, IID_IStream, &out, nullptr), E_NOINTERFACE);
  ASSERT_EQ(data->asked.size(), 1u);
  EXPECT_TRUE(IsEqualGUID(data->asked[0], IID_IStream));
}

} // namespace
