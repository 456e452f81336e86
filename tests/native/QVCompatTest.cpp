// Widths, layouts and constants of the Win32 and COM names on every target.
#include <qvbase/QVCompat.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace {

TEST(QVCompat, IntegerTypesHaveWin32Widths) {
  EXPECT_EQ(sizeof(LONG), 4u);
  EXPECT_EQ(sizeof(ULONG), 4u);
  EXPECT_EQ(sizeof(DWORD), 4u);
  EXPECT_EQ(sizeof(HRESULT), 4u);
  EXPECT_EQ(sizeof(__int64), 8u);
  EXPECT_EQ(sizeof(unsigned __int64), 8u);
  EXPECT_TRUE(std::is_signed<LONG>::value);
  EXPECT_TRUE(std::is_unsigned<ULONG>::value);
  EXPECT_TRUE(std::is_unsigned<DWORD>::value);
  EXPECT_TRUE(std::is_signed<HRESULT>::value);
  EXPECT_TRUE(std::is_signed<__int64>::value);
}

TEST(QVCompat, GuidIsSixteenBytesInPlatformLayout) {
  EXPECT_EQ(sizeof(_GUID), 16u);
  EXPECT_EQ(sizeof(GUID), 16u);
  EXPECT_EQ(offsetof(GUID, Data1), 0u);
  EXPECT_EQ(offsetof(GUID, Data2), 4u);
  EXPECT_EQ(offsetof(GUID, Data3), 6u);
  EXPECT_EQ(offsetof(GUID, Data4), 8u);
  EXPECT_EQ(sizeof(GUID::Data1), 4u);
  EXPECT_EQ(sizeof(GUID::Data2), 2u);
  EXPECT_TRUE((std::is_same<IID, GUID>::value));
  EXPECT_TRUE((std::is_same<REFIID, const IID&>::value));
}

TEST(QVCompat, TimeRecordsHaveWin32Layout) {
  EXPECT_EQ(sizeof(FILETIME), 8u);
  EXPECT_EQ(offsetof(FILETIME, dwLowDateTime), 0u);
  EXPECT_EQ(offsetof(FILETIME, dwHighDateTime), 4u);
  EXPECT_EQ(sizeof(SYSTEMTIME), 16u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wYear), 0u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wMonth), 2u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wDayOfWeek), 4u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wDay), 6u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wHour), 8u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wMinute), 10u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wSecond), 12u);
  EXPECT_EQ(offsetof(SYSTEMTIME, wMilliseconds), 14u);
}

TEST(QVCompat, LargeIntegersAreEightBytes) {
  EXPECT_EQ(sizeof(LARGE_INTEGER), 8u);
  EXPECT_EQ(sizeof(ULARGE_INTEGER), 8u);
  ULARGE_INTEGER u;
  u.QuadPart = 0x0102030405060708ull;
  EXPECT_EQ(u.u.LowPart, 0x05060708u);
  EXPECT_EQ(u.u.HighPart, 0x01020304u);
}

TEST(QVCompat, StatusValuesAreTheStandardOnes) {
  struct Row {
    const char* name;
    HRESULT value;
    std::uint32_t expected;
  };
  const Row rows[] = {
      {"S_OK", S_OK, 0x00000000u},
      {"S_FALSE", S_FALSE, 0x00000001u},
      {"E_NOTIMPL", E_NOTIMPL, 0x80004001u},
      {"E_NOINTERFACE", E_NOINTERFACE, 0x80004002u},
      {"E_POINTER", E_POINTER, 0x80004003u},
      {"E_ABORT", E_ABORT, 0x80004004u},
      {"E_FAIL", E_FAIL, 0x80004005u},
      {"E_UNEXPECTED", E_UNEXPECTED, 0x8000FFFFu},
      {"E_ACCESSDENIED", E_ACCESSDENIED, 0x80070005u},
      {"E_OUTOFMEMORY", E_OUTOFMEMORY, 0x8007000Eu},
      {"E_INVALIDARG", E_INVALIDARG, 0x80070057u},
      {"REGDB_E_CLASSNOTREG", REGDB_E_CLASSNOTREG, 0x80040154u},
      {"CLASS_E_NOAGGREGATION", CLASS_E_NOAGGREGATION, 0x80040110u},
      {"STG_E_INVALIDFUNCTION", STG_E_INVALIDFUNCTION, 0x80030001u},
      {"STG_E_ACCESSDENIED", STG_E_ACCESSDENIED, 0x80030005u},
      {"STG_E_INVALIDPOINTER", STG_E_INVALIDPOINTER, 0x80030009u},
      {"STG_E_WRITEFAULT", STG_E_WRITEFAULT, 0x8003001Du},
      {"STG_E_READFAULT", STG_E_READFAULT, 0x8003001Eu},
      {"STG_E_MEDIUMFULL", STG_E_MEDIUMFULL, 0x80030070u},
      {"STG_E_INVALIDFLAG", STG_E_INVALIDFLAG, 0x800300FFu},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(static_cast<std::uint32_t>(row.value), row.expected);
  }
  EXPECT_TRUE(FAILED(E_FAIL));
  EXPECT_TRUE(SUCCEEDED(S_FALSE));
}

TEST(QVCompat, Win32ErrorNumbersAreTheStandardOnes) {
  EXPECT_EQ(ERROR_SUCCESS, 0);
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, 2);
  EXPECT_EQ(ERROR_ACCESS_DENIED, 5);
  EXPECT_EQ(ERROR_MORE_DATA, 234);
  EXPECT_EQ(ERROR_NO_MORE_ITEMS, 259);
  EXPECT_EQ(ERROR_BADDB, 1009);
  EXPECT_EQ(ERROR_KEY_DELETED, 1018);
  EXPECT_EQ(ERROR_CANCELLED, 1223);
  EXPECT_EQ(ERROR_RETRY, 1237);
}

void ExpectGuid(const GUID& g, std::uint32_t d1, std::uint16_t d2, std::uint16_t d3,
                std::initializer_list<int> d4) {
  EXPECT_EQ(g.Data1, d1);
  EXPECT_EQ(g.Data2, d2);
  EXPECT_EQ(g.Data3, d3);
  int i = 0;
  for (int b : d4)
    EXPECT_EQ(g.Data4[i++], b);
}

TEST(QVCompat, InterfaceIdentifiersHaveTheirStandardValues) {
  {
    SCOPED_TRACE("IID_IUnknown");
    ExpectGuid(IID_IUnknown, 0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46});
  }
  {
    SCOPED_TRACE("IID_IPersist");
    ExpectGuid(IID_IPersist, 0x0000010C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46});
  }
  {
    SCOPED_TRACE("IID_IStream");
    ExpectGuid(IID_IStream, 0x0000000C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46});
  }
  {
    SCOPED_TRACE("IID_ISequentialStream");
    ExpectGuid(IID_ISequentialStream, 0x0C733A30, 0x2A1C, 0x11CE,
               {0xAD, 0xE5, 0x00, 0xAA, 0x00, 0x44, 0x77, 0x3D});
  }
  EXPECT_TRUE(IsEqualIID(IID_IStream, IID_IStream));
  EXPECT_FALSE(IsEqualIID(IID_IStream, IID_IPersist));
}

// A minimal object behind the COM interfaces: the declarations must be
// implementable and callable through their bases.
class CountingStream : public IStream {
public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IStream) ||
        IsEqualIID(riid, IID_ISequentialStream)) {
      *object = this;
      AddRef();
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_refs; }
  HRESULT STDMETHODCALLTYPE Read(void*, ULONG count, ULONG* read) override {
    *read = count / 2;
    return S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG count, ULONG* written) override {
    *written = count;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER, DWORD, ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*,
                                   ULARGE_INTEGER*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

  ULONG m_refs = 1;
};

TEST(QVCompat, StreamInterfacesDispatchThroughTheirBases) {
  CountingStream stream;
  IUnknown* unknown = &stream;
  void* object = nullptr;
  ASSERT_EQ(unknown->QueryInterface(IID_ISequentialStream, &object), S_OK);
  EXPECT_EQ(stream.m_refs, 2u);
  ISequentialStream* sequential = static_cast<ISequentialStream*>(static_cast<IStream*>(object));
  ULONG read = 0;
  char buffer[10];
  EXPECT_EQ(sequential->Read(buffer, 10, &read), S_FALSE);
  EXPECT_EQ(read, 5u);
  EXPECT_EQ(unknown->Release(), 1u);
  EXPECT_EQ(unknown->QueryInterface(IID_IPersist, &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
}

} // namespace
