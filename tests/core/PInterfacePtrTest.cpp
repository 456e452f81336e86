// Handles on foreign interfaces: reference discipline, queries, creation of
// registered classes, and the error raised when either fails.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PInterfacePtr.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

namespace {

// A COM object with a visible reference count; it implements IPersist.
class CountedObject : public IPersist {
public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IPersist)) {
      *out = static_cast<IPersist*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* id) override {
    *id = GUID_NULL;
    return S_OK;
  }
  ULONG refs = 1;
};

// A typed handle, as client code derives them.
class TestPtr : public PInterfacePtr {
public:
  TestPtr() = default;
  explicit TestPtr(IUnknown* object) : PInterfacePtr(object) {}
  TestPtr(const TestPtr& other) = default;
  TestPtr& operator=(const TestPtr& other) = default;
  using PInterfacePtr::AssignTo;
  using PInterfacePtr::CreateData;
  using PInterfacePtr::GetData;
};

const _GUID kRegisteredClass = {0x1A2B3C4D, 0x0001, 0x4002, {0x80, 0x03, 0, 0, 0, 0, 0, 0x01}};
const _GUID kUnknownClass = {0x1A2B3C4D, 0x0001, 0x4002, {0x80, 0x03, 0, 0, 0, 0, 0, 0x02}};
CountedObject gFactoryObject;

HRESULT CreateCounted(const _GUID& iid, void** out) {
  return gFactoryObject.QueryInterface(iid, out);
}

TEST(PInterfacePtr, ConstructionTakesAReferenceAndDestructionGivesItBack) {
  CountedObject object;
  {
    TestPtr handle(&object);
    EXPECT_EQ(object.refs, 2u);
    EXPECT_TRUE(handle.IsValid());
    EXPECT_EQ(handle.GetData(), &object);
  }
  EXPECT_EQ(object.refs, 1u);
  TestPtr empty(nullptr);
  EXPECT_TRUE(empty.IsNull());
  EXPECT_TRUE(empty.IsNotValid());
  EXPECT_FALSE(empty.IsNotNull());
}

TEST(PInterfacePtr, CopyingDoesNotChangeTheCount) {
  CountedObject object;
  TestPtr* handle = new TestPtr(&object);
  EXPECT_EQ(object.refs, 2u);
  TestPtr* copy = new TestPtr(*handle);
  EXPECT_EQ(object.refs, 2u);
  TestPtr assigned;
  assigned = *handle;
  EXPECT_EQ(object.refs, 2u);
  EXPECT_EQ(assigned.GetData(), &object);
  // Each destroyed handle releases: the copies must be balanced by hand.
  object.AddRef();
  object.AddRef();
  delete copy;
  delete handle;
  EXPECT_EQ(object.refs, 2u);
}

TEST(PInterfacePtr, AssignToTakesTheNewBeforeReleasingTheOld) {
  CountedObject first, second;
  TestPtr handle(&first);
  handle.AssignTo(&second);
  EXPECT_EQ(first.refs, 1u);
  EXPECT_EQ(second.refs, 2u);
  handle.AssignTo(&second); // the same object: the count is unchanged
  EXPECT_EQ(second.refs, 2u);
  handle.AssignTo(static_cast<IUnknown*>(nullptr));
  EXPECT_EQ(second.refs, 1u);
  EXPECT_TRUE(handle.IsNull());
}

TEST(PInterfacePtr, QueryHoldsTheInterfaceAsked) {
  CountedObject object, old;
  TestPtr handle(&old);
  handle.AssignTo(&object, PUniversalID(IID_IPersist));
  EXPECT_EQ(handle.GetData(), static_cast<IUnknown*>(static_cast<IPersist*>(&object)));
  EXPECT_EQ(object.refs, 2u);
  EXPECT_EQ(old.refs, 1u);
}

TEST(PInterfacePtr, FailedQueryRaisesAndLeavesTheHandleNull) {
  CountedObject object, old;
  TestPtr handle(&old);
  try {
    handle.AssignTo(&object, PUniversalID(IID_IStream));
    FAIL() << "no error raised";
  } catch (const PError& error) {
    EXPECT_EQ(error.Severity(), ErrorSeverityError);
    EXPECT_STREQ(error.File(), "src\\PInterfacePtr");
    EXPECT_EQ(error.Line(), 81u);
    EXPECT_EQ(error.Code(), kErrPlatformUnmapped); // the status as a Win32 number has no mapping
    EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), static_cast<int>(E_NOINTERFACE));
  }
  EXPECT_TRUE(handle.IsNull());
  EXPECT_EQ(old.refs, 1u);
  EXPECT_EQ(object.refs, 1u);
}

TEST(PInterfacePtr, IgnoredFailureReturnsWithANullHandle) {
  CountedObject object;
  qvbase::test::CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  TestPtr handle(&object);
  // The hook's answer is obeyed even where the mask did not offer it.
  EXPECT_NO_THROW(handle.AssignTo(&object, PUniversalID(IID_IStream)));
  EXPECT_TRUE(handle.IsNull());
  EXPECT_EQ(object.refs, 1u);
}

TEST(PInterfacePtr, CreatesRegisteredClasses) {
  ASSERT_EQ(GRegisterClassFactory(PUniversalID(kRegisteredClass), CreateCounted), S_OK);
  {
    TestPtr handle;
    handle.CreateData(PUniversalID(kRegisteredClass), PUniversalID(IID_IPersist));
    EXPECT_EQ(handle.GetData(), static_cast<IUnknown*>(static_cast<IPersist*>(&gFactoryObject)));
    EXPECT_EQ(gFactoryObject.refs, 2u);
  }
  EXPECT_EQ(gFactoryObject.refs, 1u);
  EXPECT_EQ(GUnregisterClassFactory(PUniversalID(kRegisteredClass)), S_OK);
}

TEST(PInterfacePtr, CreatingAnUnknownClassRaisesAtItsOwnLine) {
  CountedObject old;
  TestPtr handle(&old);
  try {
    handle.CreateData(PUniversalID(kUnknownClass), PUniversalID(IID_IUnknown));
    FAIL() << "no error raised";
  } catch (const PError& error) {
    EXPECT_EQ(error.Line(), 93u);
    EXPECT_STREQ(error.File(), "src\\PInterfacePtr");
    EXPECT_EQ(error.GetIntegerInfo("nativecode", 0), static_cast<int>(REGDB_E_CLASSNOTREG));
  }
  EXPECT_TRUE(handle.IsNull());
  EXPECT_EQ(old.refs, 1u);
}

} // namespace
