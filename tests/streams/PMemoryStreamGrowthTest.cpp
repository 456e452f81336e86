// Memory streams: growth of the block, under an installed manager, with the
// system heap's functions patched and on the system heap itself; refused
// growth and out-of-memory errors.
#include <qvbase/MemoryManager.h>
#include <qvbase/PErrorCodes.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PMemoryStream.h>

#include "PMemoryStreamTestSupport.h"

#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::Content;
using qvbase::test::CountingHook;
using qvbase::test::ExpectStreamError;
using qvbase::test::kNothingThrown;
using qvbase::test::LoadingHdl;
using qvbase::test::OpenScratch;

// A manager that refuses blocks above a limit, to reach the out-of-memory
// paths without asking the system for gigabytes.
struct LimitedManager : qvbase::test::SystemCalls {
  static constexpr ULONG kLimit = 4096;
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    if (size > kLimit + 64)
      return nullptr;
    return SystemCalls::Allocate(self, size, mode);
  }
};

class ScopedLimitedManager {
public:
  ScopedLimitedManager()
      : m_manager{0,
                  "Limited",
                  &LimitedManager::Allocate,
                  &LimitedManager::Reallocate,
                  &LimitedManager::Size,
                  &LimitedManager::Release,
                  &LimitedManager::Stats},
        m_saved(GGetDefaultMemManager()) {
    GSetDefaultMemManager(&m_manager);
  }
  ~ScopedLimitedManager() { GSetDefaultMemManager(m_saved); }
  ScopedLimitedManager(const ScopedLimitedManager&) = delete;
  ScopedLimitedManager& operator=(const ScopedLimitedManager&) = delete;

private:
  MemoryManager m_manager;
  MemoryManager* m_saved;
};

// A manager on the system heap that counts its calls.
struct CountingManager {
  static int allocations, reallocations, releases;
  static void* Allocate(MemoryManager*, ULONG size, unsigned short mode) {
    ++allocations;
    return gSysManager->allocate(gSysManager, size, mode);
  }
  static void* Reallocate(MemoryManager*, void* block, ULONG size) {
    ++reallocations;
    return gSysManager->reallocate(gSysManager, block, size);
  }
  static void Release(MemoryManager*, void* block) {
    ++releases;
    gSysManager->release(gSysManager, block);
  }
};
int CountingManager::allocations = 0;
int CountingManager::reallocations = 0;
int CountingManager::releases = 0;

TEST(MemoryStream, GrowthUnderAnInstalledManagerAllocatesCopiesAndReleases) {
  MemoryManager counting{0,
                         "Counting",
                         &CountingManager::Allocate,
                         &CountingManager::Reallocate,
                         &LimitedManager::Size,
                         &CountingManager::Release,
                         &LimitedManager::Stats};
  MemoryManager* saved = GGetDefaultMemManager();
  GSetDefaultMemManager(&counting);
  CountingManager::allocations = CountingManager::reallocations = CountingManager::releases = 0;
  {
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, 16);
    std::string written;
    for (int i = 0; i < 10; ++i) {
      std::string piece(7, static_cast<char>('a' + i));
      stream.Write(piece.data(), 7, 1);
      written += piece;
    }
    // 70 bytes in steps of 16: blocks of 16, 32, 48, 64 and 80 bytes, each
    // taking over the content of the one before.
    EXPECT_EQ(handler->GetCapacity(), 80u);
    EXPECT_EQ(CountingManager::allocations, 5);
    EXPECT_EQ(CountingManager::releases, 4);
    EXPECT_EQ(CountingManager::reallocations, 0);
    EXPECT_EQ(Content(handler, stream), written);
  }
  GSetDefaultMemManager(saved);
  EXPECT_EQ(CountingManager::releases, 5);
}

// The system record is writable: an application may route its functions
// through its own. Growth then shows as allocate, copy and release again.
TEST(MemoryStream, GrowthWithPatchedSystemFunctionsAllocatesCopiesAndReleases) {
  const MemoryManager original = *gSysManager;
  static MemoryManager saved;
  saved = original;
  struct Through {
    static void* Allocate(MemoryManager*, ULONG size, unsigned short mode) {
      ++CountingManager::allocations;
      return saved.allocate(&saved, size, mode);
    }
    static void* Reallocate(MemoryManager*, void* block, ULONG size) {
      ++CountingManager::reallocations;
      return saved.reallocate(&saved, block, size);
    }
    static void Release(MemoryManager*, void* block) {
      ++CountingManager::releases;
      saved.release(&saved, block);
    }
  };
  gSysManager->allocate = &Through::Allocate;
  gSysManager->reallocate = &Through::Reallocate;
  gSysManager->release = &Through::Release;
  CountingManager::allocations = CountingManager::reallocations = CountingManager::releases = 0;
  std::string content;
  {
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, 16);
    const int before = CountingManager::allocations;
    const int releasedBefore = CountingManager::releases;
    stream.Write("0123456789abcdef", 16, 1);
    stream.Write("ghijklmnopqrstuvwxyz", 20, 1);
    // A block of 16 bytes for the first write, then one of 48 that takes
    // over its content, the first one given back.
    EXPECT_EQ(handler->GetCapacity(), 48u);
    EXPECT_EQ(CountingManager::allocations - before, 2);
    EXPECT_EQ(CountingManager::releases - releasedBefore, 1);
    EXPECT_EQ(CountingManager::reallocations, 0);
    content = Content(handler, stream);
  }
  *gSysManager = original;
  EXPECT_EQ(content, "0123456789abcdefghijklmnopqrstuvwxyz");
}

TEST(MemoryStream, GrowthOnTheSystemHeapReservesAheadAndKeepsTheDefinedCapacity) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  const char piece[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                          '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
  int resized = 0;
  ULONG blockSize = 0;
  for (int i = 0; i < 20000; ++i) {
    stream.Write(piece, 16, 1);
    // The capacity is the defined one at every step...
    ASSERT_EQ(handler->GetCapacity(), 16u * static_cast<ULONG>(i + 1));
    const ULONG size = GMemSize(const_cast<char*>(handler->GetBuffer()));
    ASSERT_GE(size, handler->GetCapacity());
    if (size != blockSize) {
      ++resized;
      blockSize = size;
    }
  }
  // ...while the block behind it has been resized a few dozen times in
  // 20,000 steps, not at every step.
  EXPECT_LE(resized, 40);
  const std::string content = Content(handler, stream);
  ASSERT_EQ(content.size(), 320000u);
  for (std::size_t at = 0; at < content.size(); at += 16)
    ASSERT_EQ(content.compare(at, 16, piece, 16), 0) << at;
}

TEST(MemoryStream, GrowthOnTheSystemHeapKeepsTheContentAcrossManySteps) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  std::string written;
  for (int i = 0; i < 5000; ++i) {
    std::string piece(static_cast<size_t>(1 + i % 37), static_cast<char>('A' + i % 26));
    stream.Write(piece.data(), static_cast<ULONG>(piece.size()), 1);
    written += piece;
  }
  EXPECT_EQ(handler->GetCapacity(), (written.size() + 15) / 16 * 16);
  EXPECT_EQ(Content(handler, stream), written);
}

TEST(MemoryStream, RefusedGrowthRaisesOutOfMemoryAndKeepsTheContent) {
  ScopedLimitedManager limited;
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 16);
  stream.Write("abc", 3, 1);
  ExpectStreamError(Caught([&] { stream.SetSize(100000); }), kErrOutOfMemory, ErrorSeverityAbort);
  EXPECT_EQ(stream.GetSize(), 3u);
  EXPECT_EQ(handler->GetCapacity(), 16u);
  std::vector<char> big(100000, 'x');
  EXPECT_EQ(Caught([&] { stream.Write(big.data(), 100000, 1); }).Code(), kErrOutOfMemory);
  EXPECT_EQ(Content(handler, stream), "abc");
  EXPECT_EQ(stream.GetPos(), 3u);
}

TEST(MemoryStream, RefusedGrowthLetThroughWritesNothing) {
  ScopedLimitedManager limited;
  CountingHook hook(ErrorHandlingIgnore);
  PErrorHookProtection protection(&hook, true);
  PStream stream;
  OpenScratch(stream, 16);
  std::vector<char> big(100000, 'x');
  EXPECT_EQ(stream.Write(big.data(), 100000, 1), 0u);
  EXPECT_EQ(hook.codes, std::vector<int>{kErrOutOfMemory});
  EXPECT_EQ(stream.GetSize(), 0u);
}

TEST(MemoryStream, SourceLargerThanMemoryRaisesOutOfMemoryAtOpen) {
  ScopedLimitedManager limited;
  LoadingHdl* handler = new LoadingHdl(std::string(100000, 'x'));
  PStream stream(handler);
  EXPECT_EQ(Caught([&] { stream.Open(OpenWrite); }).Code(), kErrOutOfMemory);
  EXPECT_EQ(handler->readCalls, 0);
}

TEST(MemoryStream, GranularityAtThe32BitLimitRefusesToRoundPastIt) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 0xFFFFFFF0u);
  // 0xFFFFFFF1 would round to 2 * 0xFFFFFFF0, beyond 32 bits.
  EXPECT_EQ(Caught([&] { stream.SetSize(0xFFFFFFF1u); }).Code(), kErrOutOfMemory);
  EXPECT_EQ(handler->GetCapacity(), 0u);
  EXPECT_EQ(stream.GetSize(), 0u);
}

} // namespace

namespace {

// A memory handler that notes every size change its writes ask for.
class SizeWatchingHdl : public PMemoryStreamHdl {
public:
  explicit SizeWatchingHdl(ULONG granularity) : PMemoryStreamHdl(granularity) {}
  std::vector<unsigned long long> sizes;

protected:
  void IOSetSize(unsigned __int64 size) override {
    sizes.push_back(size);
    PMemoryStreamHdl::IOSetSize(size);
  }
};

ULONG RoundedUp(ULONG bytes, ULONG granularity) {
  return (bytes + granularity - 1) / granularity * granularity;
}

// Appends of every length into a block of a granularity that is not a power
// of two: each write past the size asks the handler for the new size once,
// the block stays while the size is in its last step, and grows by whole
// steps (one new block, the content kept) when a write crosses it.
TEST(MemoryStream, WritesInsideTheBlockKeepItAndWritesAcrossItGrowByWholeSteps) {
  const ULONG kGranularity = 100;
  auto* handler = new SizeWatchingHdl(kGranularity);
  PStream stream(handler);
  stream.Open(OpenReadWrite | OpenAllowEmpty);
  std::string expected;
  const ULONG lengths[] = {1, 1, 98, 1, 99, 3, 200, 7, 95, 1, 250, 50};
  for (ULONG length : lengths) {
    SCOPED_TRACE(testing::Message() << "size " << expected.size() << " + " << length);
    const ULONG before = handler->GetCapacity();
    const char* block = handler->GetBuffer();
    const std::string piece(length, static_cast<char>('a' + expected.size() % 26));
    handler->sizes.clear();
    EXPECT_EQ(stream.Write(piece.data(), length, 1), length);
    expected += piece;
    const ULONG size = static_cast<ULONG>(expected.size());
    EXPECT_EQ(handler->sizes, std::vector<unsigned long long>{size});
    EXPECT_EQ(stream.GetSize(), size);
    EXPECT_EQ(stream.GetPos(), size);
    EXPECT_EQ(handler->GetCapacity(), RoundedUp(size, kGranularity));
    if (handler->GetCapacity() == before) {
      EXPECT_EQ(handler->GetBuffer(), block);
    }
    EXPECT_EQ(Content(handler, stream), expected);
    EXPECT_TRUE(handler->IsDirty());
  }
  // Overwriting inside the content asks for no size at all.
  handler->sizes.clear();
  stream.MoveTo(10);
  stream.Write("XYZ", 3, 1);
  EXPECT_TRUE(handler->sizes.empty());
  EXPECT_EQ(stream.GetSize(), expected.size());
}

TEST(MemoryStream, SizeChangesWithinTheLastStepKeepTheBlock) {
  struct Row {
    const char* what;
    ULONG from, to, capacity;
    bool sameBlock;
  };
  // Granularity 16, content of `from` bytes, then SetSize(to).
  const Row rows[] = {
      {"grow inside the step", 17, 30, 32, true},
      {"grow to the step's end", 17, 32, 32, true},
      {"shrink inside the step", 30, 17, 32, true},
      {"shrink to the step below", 30, 16, 16, false},
      {"grow across the step", 32, 33, 48, false},
      {"full step to zero", 16, 0, 0, false},
      {"one byte to the step's end", 1, 16, 16, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    PStream stream;
    PMemoryStreamHdl* handler = OpenScratch(stream, 16);
    const std::string content(row.from, 'c');
    stream.Write(content.data(), row.from, 1);
    stream.Flush(); // clean, so that the change is seen to mark it dirty
    ASSERT_FALSE(handler->IsDirty());
    const char* block = handler->GetBuffer();
    stream.SetSize(row.to);
    EXPECT_EQ(handler->GetCapacity(), row.capacity);
    EXPECT_EQ(stream.GetSize(), row.to);
    EXPECT_EQ(stream.GetPos(), std::min(row.from, row.to)); // cut when beyond
    EXPECT_TRUE(handler->IsDirty());
    if (row.sameBlock) {
      EXPECT_EQ(handler->GetBuffer(), block);
    }
    if (row.to != 0) {
      EXPECT_EQ(std::string(handler->GetBuffer(), std::min(row.from, row.to)),
                content.substr(0, std::min(row.from, row.to)));
    }
  }
}

// A position left past the end by an over-long read is cut by a size change
// that keeps the block, as by any other.
TEST(MemoryStream, GrowingInsideTheStepCutsAPositionBeyondTheNewSize) {
  PStream stream;
  PMemoryStreamHdl* handler = OpenScratch(stream, 64);
  stream.Write("0123456789", 10, 1);
  stream.MoveTo(0);
  char buffer[40];
  stream.Read(buffer, 40, 1); // position 40, size 10
  ASSERT_EQ(stream.GetPos(), 40u);
  stream.SetSize(20);
  EXPECT_EQ(handler->GetCapacity(), 64u);
  EXPECT_EQ(stream.GetPos(), 20u);
  stream.SetSize(50);
  EXPECT_EQ(stream.GetPos(), 20u);
  EXPECT_EQ(stream.GetSize(), 50u);
}

} // namespace
