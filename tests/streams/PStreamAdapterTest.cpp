// The COM stream adapter: IStream over a stream handler, as the handler's
// QueryInterface hands it out; its operations, their statuses and counts,
// and what becomes of the handler's errors.
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>
#include <qvbase/PStream.h>
#include <qvbase/WINError.h>

#include "support/ErrorTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using qvbase::test::CountingHook;

// A memory handler that counts its own destruction.
class CountedMemoryHdl : public PMemoryStreamHdl {
public:
  explicit CountedMemoryHdl(int* destroyed) : m_destroyed(destroyed) {}
  ~CountedMemoryHdl() override { ++*m_destroyed; }

private:
  int* m_destroyed;
};

// A memory stream with some content, open for reading and writing, and an
// adapter over its handler.
struct AdapterFixture {
  AdapterFixture() {
    memory = new PMemoryStreamHdl(16);
    stream = PStream(memory);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.Write("0123456789", 10, 1);
    stream.MoveTo(0);
    void* out = nullptr;
    EXPECT_EQ(memory->QueryInterface(IID_IStream, &out), S_OK);
    adapter = static_cast<IStream*>(out);
  }
  ~AdapterFixture() {
    if (adapter)
      adapter->Release();
  }
  PMemoryStreamHdl* memory;
  PStream stream;
  IStream* adapter = nullptr;
};

TEST(PStreamAdapter, EachQueryForAStreamInterfaceGivesAFreshAdapter) {
  PStream stream(new PMemoryStreamHdl);
  PStreamHdl* handler = stream.GetHandler();
  void* first = nullptr;
  void* second = nullptr;
  EXPECT_EQ(handler->QueryInterface(IID_IStream, &first), S_OK);
  EXPECT_EQ(handler->QueryInterface(IID_ISequentialStream, &second), S_OK);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(handler->NumSmartLocks(), 3u);
  static_cast<IUnknown*>(first)->Release();
  static_cast<IUnknown*>(second)->Release();
  EXPECT_EQ(handler->NumSmartLocks(), 1u);
}

TEST(PStreamAdapter, QueryWithoutAnOutputIsRefused) {
  PStream stream(new PMemoryStreamHdl);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_IStream, nullptr), E_POINTER);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_ISequentialStream, nullptr), E_POINTER);
}

TEST(PStreamAdapter, OtherInterfacesAreAnsweredAsSmartDataAnswers) {
  PStream stream(new PMemoryStreamHdl);
  void* out = reinterpret_cast<void*>(1);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_IPersist, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(stream.GetHandler()->QueryInterface(IID_IUnknown, &out), S_OK);
  ASSERT_NE(out, nullptr);
  static_cast<IUnknown*>(out)->Release();
}

TEST(PStreamAdapter, AdapterAnswersItsOwnInterfaces) {
  AdapterFixture f;
  void* out = nullptr;
  EXPECT_EQ(f.adapter->QueryInterface(IID_ISequentialStream, &out), S_OK);
  EXPECT_EQ(out, static_cast<void*>(f.adapter));
  static_cast<IUnknown*>(out)->Release();
  EXPECT_EQ(f.adapter->QueryInterface(IID_IPersist, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
}

TEST(PStreamAdapter, AdapterKeepsItsHandlerAlive) {
  int destroyed = 0;
  CountedMemoryHdl* handler = new CountedMemoryHdl(&destroyed);
  void* out = nullptr;
  {
    PStream stream(handler);
    stream.Open(OpenReadWrite | OpenAllowEmpty);
    stream.Write("abc", 3, 1);
    stream.MoveTo(0);
    ASSERT_EQ(handler->QueryInterface(IID_IStream, &out), S_OK);
  }
  EXPECT_EQ(destroyed, 0);
  IStream* adapter = static_cast<IStream*>(out);
  char buffer[3];
  ULONG read = 9;
  EXPECT_EQ(adapter->Read(buffer, 3, &read), S_OK);
  EXPECT_EQ(std::string(buffer, 3), "abc");
  adapter->Release();
  EXPECT_EQ(destroyed, 1);
}

TEST(PStreamAdapter, ReadReportsTheHandlersItemCount) {
  AdapterFixture f;
  char buffer[16] = {};
  ULONG read = 99;
  // One item of 4 bytes: the transferred count is that one item.
  EXPECT_EQ(f.adapter->Read(buffer, 4, &read), S_OK);
  EXPECT_EQ(read, 1u);
  EXPECT_EQ(std::string(buffer, 4), "0123");
  EXPECT_EQ(f.stream.GetPos(), 4u);
  // Six bytes left of eight asked: no whole item.
  EXPECT_EQ(f.adapter->Read(buffer, 8, &read), S_OK);
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(std::string(buffer, 6), "456789");
  EXPECT_EQ(f.adapter->Read(buffer, 1, nullptr), S_OK);
}

TEST(PStreamAdapter, WriteReportsTheHandlersItemCount) {
  AdapterFixture f;
  ULONG written = 99;
  EXPECT_EQ(f.adapter->Write("abcdefghijkl", 12, &written), S_OK);
  EXPECT_EQ(written, 1u);
  EXPECT_EQ(f.stream.GetSize(), 12u);
  EXPECT_EQ(std::string(f.memory->GetBuffer(), 12), "abcdefghijkl");
}

TEST(PStreamAdapter, HandlerErrorsComeBackAsStatusAndReachNoHook) {
  CountingHook hook(ErrorHandlingNone);
  PErrorHookProtection protection(&hook, true);
  AdapterFixture f;
  f.stream.Close();
  char buffer[4];
  ULONG read = 99;
  HRESULT status = f.adapter->Read(buffer, 4, &read);
  EXPECT_EQ(status, HResultFromPError(PError(kErrStreamClosed, ErrorSeverityAbort)));
  EXPECT_TRUE(FAILED(status));
  EXPECT_EQ(read, 0u);
  ULONG written = 99;
  EXPECT_TRUE(FAILED(f.adapter->Write("x", 1, &written)));
  EXPECT_EQ(written, 0u);
  EXPECT_TRUE(FAILED(f.adapter->SetSize(ULARGE_INTEGER{})));
  EXPECT_EQ(hook.calls, 0);
}

TEST(PStreamAdapter, SeekUsesTheOriginAsTheSeekMode) {
  struct Row {
    const char* name;
    LONGLONG move;
    DWORD origin;
    unsigned __int64 position;
  };
  // Position 4 in 10 bytes.
  const Row kRows[] = {{"0 forward", 3, 0, 7},
                       {"1 back", 3, 1, 1},
                       {"2 from start", 9, 2, 9},
                       {"3 from end", 2, 3, 8}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    AdapterFixture f;
    f.stream.MoveTo(4);
    LARGE_INTEGER move;
    move.QuadPart = row.move;
    ULARGE_INTEGER position;
    position.QuadPart = 99;
    EXPECT_EQ(f.adapter->Seek(move, row.origin, &position), S_OK);
    EXPECT_EQ(position.QuadPart, row.position);
    EXPECT_EQ(f.stream.GetPos(), row.position);
  }
}

TEST(PStreamAdapter, SeekWithAnUnknownOriginAnswersInvalidFunction) {
  AdapterFixture f;
  LARGE_INTEGER move;
  move.QuadPart = 0;
  EXPECT_EQ(f.adapter->Seek(move, 4, nullptr), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(static_cast<ULONG>(STG_E_INVALIDFUNCTION), 0x80030001u);
  move.QuadPart = 11;
  HRESULT status = f.adapter->Seek(move, 2, nullptr);
  EXPECT_TRUE(FAILED(status));
  EXPECT_NE(status, STG_E_INVALIDFUNCTION);
}

TEST(PStreamAdapter, SetSizeGoesToTheHandler) {
  AdapterFixture f;
  ULARGE_INTEGER size;
  size.QuadPart = 3;
  EXPECT_EQ(f.adapter->SetSize(size), S_OK);
  EXPECT_EQ(f.stream.GetSize(), 3u);
}

TEST(PStreamAdapter, CopyToWritesTheBytesToTheTarget) {
  AdapterFixture source;
  AdapterFixture target;
  target.stream.SetSize(0);
  source.stream.MoveTo(2);
  ULARGE_INTEGER count, read, written;
  count.QuadPart = 5;
  EXPECT_EQ(source.adapter->CopyTo(target.adapter, count, &read, &written), S_OK);
  EXPECT_EQ(read.QuadPart, 5u);
  // The target's Write reports its item count.
  EXPECT_EQ(written.QuadPart, 1u);
  EXPECT_EQ(std::string(target.memory->GetBuffer(), 5), "23456");
  // Asking for more than is left copies what is left.
  count.QuadPart = 100;
  EXPECT_EQ(source.adapter->CopyTo(target.adapter, count, &read, nullptr), S_OK);
  EXPECT_EQ(read.QuadPart, 3u);
  EXPECT_EQ(target.stream.GetSize(), 8u);
}

TEST(PStreamAdapter, CopyToWithoutATargetIsRefused) {
  AdapterFixture f;
  ULARGE_INTEGER count, read;
  count.QuadPart = 4;
  EXPECT_EQ(f.adapter->CopyTo(nullptr, count, &read, nullptr), STG_E_INVALIDPOINTER);
  EXPECT_EQ(read.QuadPart, 0u);
}

TEST(PStreamAdapter, CommitFlushesTheHandler) {
  struct StoringHdl : PMemoryStreamHdl {
    int stores = 0;
    void MemoryWrite(const char*, ULONG) override { ++stores; }
  };
  StoringHdl* handler = new StoringHdl;
  PStream stream(handler);
  stream.Open(OpenWrite);
  stream.Write("x", 1, 1);
  void* out = nullptr;
  ASSERT_EQ(handler->QueryInterface(IID_IStream, &out), S_OK);
  IStream* adapter = static_cast<IStream*>(out);
  EXPECT_EQ(adapter->Commit(0), S_OK);
  EXPECT_EQ(handler->stores, 1);
  EXPECT_FALSE(handler->IsDirty());
  stream.Close();
  EXPECT_EQ(adapter->Commit(0), S_OK); // a failing flush is not reported
  adapter->Release();
}

TEST(PStreamAdapter, FixedAnswersOfTheRemainingOperations) {
  AdapterFixture f;
  ULARGE_INTEGER offset, count;
  offset.QuadPart = 0;
  count.QuadPart = 1;
  EXPECT_EQ(f.adapter->Revert(), S_OK);
  EXPECT_EQ(f.adapter->LockRegion(offset, count, 1), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(f.adapter->UnlockRegion(offset, count, 1), STG_E_INVALIDFUNCTION);
  STATSTG stat;
  std::memset(&stat, 0xAB, sizeof stat);
  EXPECT_EQ(f.adapter->Stat(&stat, 0), S_OK);
  EXPECT_EQ(stat.type, 0xABABABABu);
  IStream* clone = nullptr;
  EXPECT_EQ(f.adapter->Clone(&clone), E_NOTIMPL);
  EXPECT_EQ(static_cast<ULONG>(E_NOTIMPL), 0x80004001u);
  EXPECT_EQ(clone, nullptr);
}

} // namespace
