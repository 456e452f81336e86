// In-process classes: registration, creation, and the failures of creation.
#include "native/ComClasses.h"
#include "native/Guid.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace {

using qvbase::native::CreateGuid;
using qvbase::native::CreateInstance;
using qvbase::native::RegisterClassFactory;
using qvbase::native::UnregisterClassFactory;

// A small IPersist that counts its live objects and the calls that make them.
class CountingObject final : public IPersist {
public:
  static int s_live;
  static int s_created;
  static CLSID s_clsid;

  CountingObject() { ++s_live; }
  ~CountingObject() { --s_live; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out)
      return E_POINTER;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IPersist)) {
      *out = static_cast<IPersist*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --m_refs;
    if (left == 0)
      delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* classId) override {
    *classId = s_clsid;
    return S_OK;
  }

private:
  ULONG m_refs = 0;
};

int CountingObject::s_live = 0;
int CountingObject::s_created = 0;
CLSID CountingObject::s_clsid = {
    0x5A0C1F2E, 0x3B4D, 0x4E6F, {0x80, 0x91, 0xA2, 0xB3, 0xC4, 0xD5, 0xE6, 0xF7}};

HRESULT CreateCountingObject(REFIID iid, void** out) {
  ++CountingObject::s_created;
  CountingObject* object = new CountingObject;
  HRESULT hr = object->QueryInterface(iid, out);
  if (FAILED(hr))
    delete object;
  return hr;
}

HRESULT CreateNothing(REFIID, void** out) {
  *out = nullptr;
  return E_OUTOFMEMORY;
}

// Registers the counting class for one test and removes it after.
class ScopedCountingClass {
public:
  ScopedCountingClass() {
    EXPECT_EQ(RegisterClassFactory(CountingObject::s_clsid, &CreateCountingObject), S_OK);
    CountingObject::s_created = 0;
  }
  ~ScopedCountingClass() { UnregisterClassFactory(CountingObject::s_clsid); }
};

GUID FreshClsid() {
  GUID id = {};
  EXPECT_EQ(CreateGuid(&id), S_OK);
  return id;
}

void* const kSentinel = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0x1234));

TEST(ComClasses, CreateInstanceMakesARegisteredClass) {
  ScopedCountingClass registered;
  void* out = nullptr;
  ASSERT_EQ(
      CreateInstance(CountingObject::s_clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IPersist, &out),
      S_OK);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(CountingObject::s_created, 1);
  EXPECT_EQ(CountingObject::s_live, 1);
  IPersist* persist = static_cast<IPersist*>(out);
  CLSID clsid = {};
  EXPECT_EQ(persist->GetClassID(&clsid), S_OK);
  EXPECT_TRUE(IsEqualCLSID(clsid, CountingObject::s_clsid));
  EXPECT_EQ(persist->Release(), 0u);
  EXPECT_EQ(CountingObject::s_live, 0);
}

TEST(ComClasses, UnregisteredClassIsNotRegistered) {
  void* out = kSentinel;
  EXPECT_EQ(CreateInstance(FreshClsid(), nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &out),
            REGDB_E_CLASSNOTREG);
  EXPECT_EQ(out, nullptr);
}

TEST(ComClasses, UnregisteringRemovesTheClass) {
  ASSERT_EQ(RegisterClassFactory(CountingObject::s_clsid, &CreateCountingObject), S_OK);
  EXPECT_EQ(UnregisterClassFactory(CountingObject::s_clsid), S_OK);
  void* out = kSentinel;
  EXPECT_EQ(
      CreateInstance(CountingObject::s_clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &out),
      REGDB_E_CLASSNOTREG);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(UnregisterClassFactory(CountingObject::s_clsid), REGDB_E_CLASSNOTREG);
}

TEST(ComClasses, AggregationIsRefusedWithoutCreating) {
  ScopedCountingClass registered;
  CountingObject outer;
  outer.AddRef();
  void* out = kSentinel;
  EXPECT_EQ(
      CreateInstance(CountingObject::s_clsid, &outer, CLSCTX_INPROC_SERVER, IID_IUnknown, &out),
      CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(CountingObject::s_created, 0);
}

TEST(ComClasses, NullOutputIsAPointerError) {
  ScopedCountingClass registered;
  EXPECT_EQ(
      CreateInstance(CountingObject::s_clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, nullptr),
      E_POINTER);
  EXPECT_EQ(CountingObject::s_created, 0);
}

TEST(ComClasses, UnsupportedInterfaceFailsAndLeavesNothingBehind) {
  ScopedCountingClass registered;
  void* out = kSentinel;
  EXPECT_EQ(
      CreateInstance(CountingObject::s_clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IStream, &out),
      E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(CountingObject::s_created, 1);
  EXPECT_EQ(CountingObject::s_live, 0);
}

TEST(ComClasses, RegisteringAgainReplacesTheCreationFunction) {
  ScopedCountingClass registered;
  ASSERT_EQ(RegisterClassFactory(CountingObject::s_clsid, &CreateNothing), S_OK);
  void* out = kSentinel;
  EXPECT_EQ(
      CreateInstance(CountingObject::s_clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &out),
      E_OUTOFMEMORY);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(CountingObject::s_created, 0);
}

TEST(ComClasses, NullCreationFunctionIsRefused) {
  EXPECT_EQ(RegisterClassFactory(FreshClsid(), nullptr), E_INVALIDARG);
}

TEST(ComClasses, ClassesRegisteredFromSeveralThreadsAreAllServed) {
  constexpr int kThreads = 4;
  constexpr int kClassesPerThread = 50;
  std::vector<std::vector<GUID>> ids(kThreads);
  for (auto& list : ids)
    for (int i = 0; i < kClassesPerThread; ++i)
      list.push_back(FreshClsid());
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&ids, t] {
      for (const GUID& id : ids[t])
        RegisterClassFactory(id, &CreateCountingObject);
    });
  for (std::thread& thread : threads)
    thread.join();

  for (const auto& list : ids)
    for (const GUID& id : list) {
      void* out = nullptr;
      ASSERT_EQ(CreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &out), S_OK);
      static_cast<IUnknown*>(out)->Release();
      EXPECT_EQ(UnregisterClassFactory(id), S_OK);
    }
  EXPECT_EQ(CountingObject::s_live, 0);
}

} // namespace
