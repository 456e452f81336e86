// Buffered streams: block transfers to the medium, the shared buffer budget
// and its least-recently-used release, locked handlers, the failed flag,
// resizing the cache, and every error the handler raises.
#include <qvbase/MemoryManager.h>
#include <qvbase/PBufferizedStream.h>
#include <qvbase/PErrorProtection.h>
#include <qvbase/PString.h>

#include "support/CountingMedium.h"
#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using qvbase::test::Caught;
using qvbase::test::CountingHook;
using qvbase::test::CountingMedium;
using qvbase::test::CountingMediumHdl;
using qvbase::test::kNothingThrown;
using qvbase::test::ScopedBuffersMaxSize;
using qvbase::test::ScopedErrorCapture;

constexpr ULONG kKiB = 1024;

// A stream over a counting medium, opened in `mode`.
PStream OpenOver(CountingMedium& medium, ULONG blockSize, ULONG mode, bool locked = false) {
  PStream stream(new CountingMediumHdl(medium, blockSize, locked));
  stream.Open(mode);
  return stream;
}

CountingMediumHdl* HandlerOf(const PStream& stream) {
  return static_cast<CountingMediumHdl*>(stream.GetHandler());
}

std::string ReadAll(PStream& stream, ULONG bytes) {
  std::string out(bytes, '\0');
  ULONG got = stream.Read(&out[0], bytes, 1);
  out.resize(got);
  return out;
}

void WriteText(PStream& stream, const std::string& text) {
  stream.Write(text.data(), static_cast<ULONG>(text.size()), 1);
}

std::string Digits(std::size_t length) {
  std::string out;
  for (std::size_t i = 0; i < length; ++i)
    out += static_cast<char>('0' + i % 10);
  return out;
}

// ---------------------------------------------------------------------------
// Block transfers

TEST(BufferizedStream, ReadingOneByteAtATimeAcrossABlockBoundaryReadsEachBlockOnce) {
  CountingMedium medium(Digits(3 * kKiB));
  PStream stream = OpenOver(medium, kKiB, OpenRead);
  stream.MoveTo(kKiB - 3);
  std::string seen;
  for (int i = 0; i < 6; ++i) {
    char c = 0;
    ASSERT_EQ(stream.Read(&c, 1, 1), 1u);
    seen += c;
  }
  EXPECT_EQ(seen, medium.bytes.substr(kKiB - 3, 6));
  EXPECT_EQ(medium.ReadsAt(0), 1);
  EXPECT_EQ(medium.ReadsAt(kKiB), 1);
  EXPECT_EQ(medium.reads.size(), 2u);
}

TEST(BufferizedStream, ReadingAWholeStreamByteByByteReadsEveryBlockOnce) {
  CountingMedium medium(Digits(5 * kKiB + 100));
  PStream stream = OpenOver(medium, kKiB, OpenRead);
  std::string seen;
  char c = 0;
  while (stream.Read(&c, 1, 1) == 1)
    seen += c;
  EXPECT_EQ(seen, medium.bytes);
  EXPECT_TRUE(stream.IsAtEnd());
  ASSERT_EQ(medium.reads.size(), 6u);
  for (std::size_t i = 0; i < medium.reads.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(medium.reads[i].position, i * kKiB);
    EXPECT_EQ(medium.reads[i].bytes, kKiB);
  }
}

TEST(BufferizedStream, MediumSeesOnlyWholeBlocksAtAlignedStarts) {
  CountingMedium medium(Digits(10 * kKiB));
  PStream stream = OpenOver(medium, kKiB, OpenReadWrite);
  const unsigned __int64 positions[] = {5000, 17, 9000, 2047, 3 * kKiB, 6001};
  for (unsigned __int64 at : positions) {
    stream.MoveTo(at);
    char buffer[700];
    stream.Read(buffer, sizeof buffer, 1);
    stream.MoveTo(at + 100);
    stream.Write("xyz", 3, 1);
  }
  stream.Flush();
  for (const auto& read : medium.reads) {
    EXPECT_EQ(read.position % kKiB, 0u);
    EXPECT_EQ(read.bytes, kKiB);
  }
  for (const auto& write : medium.writes)
    EXPECT_EQ(write.position % kKiB, 0u);
  EXPECT_FALSE(medium.writes.empty());
}

TEST(BufferizedStream, WritesReachTheMediumOnlyWhenTheBlockIsWrittenBack) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 16, OpenReadWrite);
  WriteText(stream, "hello");
  EXPECT_TRUE(medium.writes.empty());
  EXPECT_EQ(stream.GetSize(), 5u);
  EXPECT_EQ(stream.GetPos(), 5u);
  EXPECT_TRUE(HandlerOf(stream)->IsDirty());
  stream.Flush();
  ASSERT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(medium.writes[0].position, 0u);
  EXPECT_EQ(medium.writes[0].bytes, 5u); // the valid bytes, not the whole block
  EXPECT_EQ(medium.bytes, "hello");
  EXPECT_EQ(medium.flushes, 1);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
}

TEST(BufferizedStream, ReadingBackWhatWasWrittenSeesTheBlockBeforeTheMedium) {
  CountingMedium medium(Digits(40));
  PStream stream = OpenOver(medium, 16, OpenReadWrite);
  stream.MoveTo(14);
  WriteText(stream, "ABCDEF"); // across the first boundary
  stream.MoveTo(12);
  EXPECT_EQ(ReadAll(stream, 10), "23ABCDEF01");
}

TEST(BufferizedStream, AFullBlockIsWrittenBackAndTheNextReadEvenWithNothingLeft) {
  CountingMedium medium(Digits(40));
  PStream stream = OpenOver(medium, 16, OpenReadWrite);
  const std::string block(16, 'x');
  WriteText(stream, block);
  ASSERT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(medium.writes[0].position, 0u);
  EXPECT_EQ(medium.writes[0].bytes, 16u);
  EXPECT_EQ(medium.ReadsAt(16), 1);
  EXPECT_EQ(HandlerOf(stream)->GetBlockStart(), 16u);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
}

TEST(BufferizedStream, AWriteLongerThanSeveralBlocksGoesOutBlockByBlock) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 8, OpenReadWrite);
  const std::string text = Digits(30);
  EXPECT_EQ(stream.Write(text.data(), 15, 2), 15u);
  ASSERT_EQ(medium.writes.size(), 3u);
  EXPECT_EQ(medium.writes[2].position, 16u);
  stream.Close();
  EXPECT_EQ(medium.bytes, text);
}

TEST(BufferizedStream, ReadReturnsWholeItemsAndStopsAtTheEnd) {
  CountingMedium medium(Digits(10));
  PStream stream = OpenOver(medium, 4, OpenRead);
  char buffer[16] = {};
  EXPECT_EQ(stream.Read(buffer, 4, 4), 2u);
  EXPECT_EQ(std::string(buffer, 10), Digits(10));
  // The position moves by the bytes there were.
  EXPECT_EQ(stream.GetPos(), 10u);
  EXPECT_TRUE(stream.IsAtEnd());
  EXPECT_EQ(stream.Read(buffer, 1, 1), 0u);
}

TEST(BufferizedStream, AnItemCountTimesSizeBeyondThirtyTwoBitsIsCountedInSixtyFourBits) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 64, OpenRead);
  std::vector<char> buffer(100);
  EXPECT_EQ(stream.Read(buffer.data(), 0x10000, 0x10000), 0u);
  EXPECT_EQ(std::string(buffer.begin(), buffer.end()), medium.bytes);
  EXPECT_EQ(stream.GetPos(), 100u);
}

TEST(BufferizedStream, AnEmptyRequestLeavesTheBlockAlone) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 16, OpenReadWrite);
  stream.MoveTo(50);
  const std::size_t reads = medium.reads.size();
  char c = 0;
  EXPECT_EQ(stream.Read(&c, 0, 1), 0u);
  EXPECT_EQ(stream.Write(&c, 3, 0), 3u);
  EXPECT_EQ(medium.reads.size(), reads);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
  EXPECT_EQ(stream.GetPos(), 50u);
}

TEST(BufferizedStream, OpenTakesTheMediumsPositionAndSizeAndReadsTheFirstBlock) {
  CountingMedium medium(Digits(100));
  PStream stream(new CountingMediumHdl(medium, 32));
  EXPECT_EQ(stream.GetSize(), 0u);
  stream.Open(OpenRead);
  EXPECT_EQ(medium.opens, 1);
  EXPECT_EQ(stream.GetSize(), 100u);
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_EQ(medium.ReadsAt(0), 1);
  EXPECT_TRUE(HandlerOf(stream)->HasBlock());
}

TEST(BufferizedStream, SeeksDoNotTouchTheMedium) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 16, OpenRead);
  const std::size_t reads = medium.reads.size();
  medium.position = 77;
  stream.MoveTo(90);
  stream.MoveBack(40);
  stream.MoveFwd(5);
  EXPECT_EQ(stream.GetPos(), 55u);
  stream.MoveFromEnd(100);
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_EQ(medium.position, 77u);
  EXPECT_EQ(medium.reads.size(), reads);
}

TEST(BufferizedStream, CloseWritesBackForgetsTheCacheAndClosesTheMedium) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 16, OpenReadWrite);
  WriteText(stream, "abc");
  stream.Close();
  EXPECT_EQ(medium.bytes, "abc");
  EXPECT_EQ(medium.closes, 1);
  EXPECT_FALSE(stream.IsOpened());
  EXPECT_EQ(stream.GetPos(), 0u);
  EXPECT_EQ(stream.GetSize(), 0u);
  EXPECT_FALSE(HandlerOf(stream)->HasBlock());
  stream.Open(OpenRead);
  EXPECT_EQ(ReadAll(stream, 10), "abc");
}

TEST(BufferizedStream, TheLastReferenceClosesAndWritesBack) {
  CountingMedium medium;
  {
    PStream stream = OpenOver(medium, 16, OpenWrite);
    WriteText(stream, "kept");
  }
  EXPECT_EQ(medium.bytes, "kept");
  EXPECT_EQ(medium.closes, 1);
}

TEST(BufferizedStream, DestroyingAnOpenHandlerReleasesItsBlockWithoutWritingIt) {
  ScopedBuffersMaxSize budget(kBufferizedDefaultMaxSize);
  const ULONG before = PBufferizedStreamHdl::GetBuffersCurSize();
  CountingMedium medium;
  // Never referenced by a stream, so nothing closes it on the way out.
  CountingMediumHdl* handler = new CountingMediumHdl(medium, 64);
  handler->Open(OpenReadWrite);
  handler->Write("lost", 4, 1);
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before + 64);
  delete handler;
  EXPECT_TRUE(medium.writes.empty());
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before);
}

TEST(BufferizedStream, ABlockSizeOfZeroIsTakenAsOne) {
  CountingMedium medium("abc");
  PStream stream = OpenOver(medium, 0, OpenRead);
  EXPECT_EQ(HandlerOf(stream)->GetBlockSize(), 1u);
  EXPECT_EQ(ReadAll(stream, 3), "abc");
  EXPECT_EQ(medium.reads.size(), 3u); // one per byte
}

TEST(BufferizedStream, TypedValuesRoundTripThroughTheBlocks) {
  CountingMedium medium;
  {
    PStream stream = OpenOver(medium, 7, OpenWrite);
    stream.SetByteOrdering(kByteOrderingMotorola);
    for (LONG i = 0; i < 50; ++i)
      stream.Write(static_cast<LONG>(i * 1000003));
    stream.Write(PString("a counted text across blocks"));
  }
  PStream stream = OpenOver(medium, 7, OpenRead);
  stream.SetByteOrdering(kByteOrderingMotorola);
  for (LONG i = 0; i < 50; ++i) {
    LONG value = 0;
    stream.Read(&value);
    ASSERT_EQ(value, i * 1000003);
  }
  PString text;
  stream.Read(&text);
  EXPECT_STREQ(static_cast<const char*>(PMBString(text)), "a counted text across blocks");
  EXPECT_TRUE(stream.IsAtEnd());
}

// Deliberate and kept: a write-only stream never reads its blocks, so a
// block it moves back to keeps the bytes of the block it held before.
TEST(BufferizedStream, AWriteOnlyStreamNeverReadsAndWritesWhatTheBlockHeld) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 4, OpenWrite);
  WriteText(stream, "0123"); // block 0 full: written back, block 1 not read
  WriteText(stream, "45");   // block 1 holds "4523"
  stream.MoveTo(1);
  WriteText(stream, "X"); // back to block 0, not read: "4X23"
  stream.Close();
  EXPECT_TRUE(medium.reads.empty());
  EXPECT_EQ(medium.bytes, "4X2345");
}

// ---------------------------------------------------------------------------
// Locked handlers

TEST(BufferizedStream, ALockedHandlerTakesItsBlockAtConstruction) {
  ScopedBuffersMaxSize budget(kBufferizedDefaultMaxSize);
  const ULONG before = PBufferizedStreamHdl::GetBuffersCurSize();
  CountingMedium medium;
  PStream stream(new CountingMediumHdl(medium, 128, /*locked=*/true));
  EXPECT_TRUE(HandlerOf(stream)->HasBlock());
  EXPECT_TRUE(HandlerOf(stream)->IsLocked());
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before + 128);
}

TEST(BufferizedStream, ALockedBlockIsNeverReleasedByFlushBuffersEvenOverTheBudget) {
  ScopedBuffersMaxSize budget(kBufferizedDefaultMaxSize);
  CountingMedium lockedMedium, otherMedium("xyz");
  PStream locked(new CountingMediumHdl(lockedMedium, 600 * kKiB, /*locked=*/true));
  PStream other = OpenOver(otherMedium, 600 * kKiB, OpenRead);
  // 1200 KiB: over the budget, and the other handler kept its block because
  // only blocks of unlocked handlers could have been released.
  EXPECT_TRUE(HandlerOf(other)->HasBlock());
  EXPECT_GT(PBufferizedStreamHdl::GetBuffersCurSize(), PBufferizedStreamHdl::GetBuffersMaxSize());
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(0xFFFFFFFF), 600 * kKiB);
  EXPECT_TRUE(HandlerOf(locked)->HasBlock());
  EXPECT_FALSE(HandlerOf(other)->HasBlock());
  PBufferizedStreamHdl::SetBuffersMaxSize(0);
  EXPECT_TRUE(HandlerOf(locked)->HasBlock());
}

TEST(BufferizedStream, ALockedHandlerKeepsItsBlockAcrossCloseButReadsTheMediumAgain) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 16, OpenReadWrite, /*locked=*/true);
  WriteText(stream, "abc");
  stream.Close();
  EXPECT_TRUE(HandlerOf(stream)->HasBlock());
  EXPECT_EQ(medium.bytes, "abc");
  medium.bytes = "xyz"; // changed behind the closed stream
  stream.Open(OpenRead);
  EXPECT_EQ(ReadAll(stream, 3), "xyz");
}

// ---------------------------------------------------------------------------
// The budget

TEST(BufferizedStream, UsingASecondHandlerOverTheBudgetReleasesTheFirstsBlockAfterWritingIt) {
  ScopedBuffersMaxSize budget(0x100000);
  ASSERT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), 0u);
  CountingMedium first, second(Digits(100));
  PStream one = OpenOver(first, 768 * kKiB, OpenReadWrite);
  WriteText(one, "dirty");
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), 768 * kKiB);
  PStream two = OpenOver(second, 768 * kKiB, OpenRead);
  EXPECT_FALSE(HandlerOf(one)->HasBlock());
  EXPECT_TRUE(HandlerOf(two)->HasBlock());
  ASSERT_EQ(first.writes.size(), 1u);
  EXPECT_EQ(first.bytes, "dirty");
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), 768 * kKiB);
}

TEST(BufferizedStream, ACleanBlockReleasedByTheBudgetIsNotWritten) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium first(Digits(10)), second(Digits(10));
  PStream one = OpenOver(first, 768 * kKiB, OpenReadWrite);
  PStream two = OpenOver(second, 768 * kKiB, OpenReadWrite);
  EXPECT_FALSE(HandlerOf(one)->HasBlock());
  EXPECT_TRUE(first.writes.empty());
  // The released handler takes a block again when it is used.
  EXPECT_EQ(ReadAll(one, 10), Digits(10));
  EXPECT_FALSE(HandlerOf(two)->HasBlock());
}

TEST(BufferizedStream, TheLeastRecentlyUsedHandlerGivesUpItsBlockFirst) {
  ScopedBuffersMaxSize budget(3 * kKiB);
  CountingMedium a(Digits(10)), b(Digits(10)), c(Digits(10)), d(Digits(10));
  PStream sa = OpenOver(a, kKiB, OpenRead);
  PStream sb = OpenOver(b, kKiB, OpenRead);
  PStream sc = OpenOver(c, kKiB, OpenRead);
  char byte = 0;
  sa.Read(&byte, 1, 1); // a is now the most recently used
  PStream sd = OpenOver(d, kKiB, OpenRead);
  EXPECT_TRUE(HandlerOf(sa)->HasBlock());
  EXPECT_FALSE(HandlerOf(sb)->HasBlock());
  EXPECT_TRUE(HandlerOf(sc)->HasBlock());
  EXPECT_TRUE(HandlerOf(sd)->HasBlock());
}

TEST(BufferizedStream, AHandlerUsedAgainAndAgainStaysTheMostRecentlyUsed) {
  ScopedBuffersMaxSize budget(2 * kKiB);
  CountingMedium a(Digits(10)), b(Digits(10)), c(Digits(10));
  PStream sa = OpenOver(a, kKiB, OpenRead);
  PStream sb = OpenOver(b, kKiB, OpenRead);
  char byte = 0;
  sb.Read(&byte, 1, 1);
  sa.Read(&byte, 1, 1);
  sa.Read(&byte, 1, 1);
  sa.Read(&byte, 1, 1);
  PStream sc = OpenOver(c, kKiB, OpenRead);
  EXPECT_TRUE(HandlerOf(sa)->HasBlock());
  EXPECT_FALSE(HandlerOf(sb)->HasBlock());
  EXPECT_TRUE(HandlerOf(sc)->HasBlock());
}

TEST(BufferizedStream, AfterTheMostRecentlyUsedHandlerGoesTheNextUseStillCounts) {
  ScopedBuffersMaxSize budget(3 * kKiB);
  CountingMedium a(Digits(10)), b(Digits(10)), c(Digits(10)), d(Digits(10)), e(Digits(10));
  PStream sa = OpenOver(a, kKiB, OpenRead);
  PStream sc;
  char byte = 0;
  {
    PStream sb = OpenOver(b, kKiB, OpenRead);
    sc = OpenOver(c, kKiB, OpenRead);
    sb.Read(&byte, 1, 1); // b is the most recent; then it goes
  }
  sa.Read(&byte, 1, 1); // a moves behind c
  PStream sd = OpenOver(d, kKiB, OpenRead);
  PStream se = OpenOver(e, kKiB, OpenRead); // over the budget: c is the oldest
  EXPECT_TRUE(HandlerOf(sa)->HasBlock());
  EXPECT_FALSE(HandlerOf(sc)->HasBlock());
  EXPECT_TRUE(HandlerOf(sd)->HasBlock());
  EXPECT_TRUE(HandlerOf(se)->HasBlock());
}

TEST(BufferizedStream, FlushBuffersOfOneByteFreesOneWholeBlockAndReturnsItsSize) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium a(Digits(10)), b(Digits(10));
  PStream sa = OpenOver(a, 3000, OpenRead);
  PStream sb = OpenOver(b, 5000, OpenRead);
  const ULONG before = PBufferizedStreamHdl::GetBuffersCurSize();
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(1), 3000u);
  EXPECT_FALSE(HandlerOf(sa)->HasBlock());
  EXPECT_TRUE(HandlerOf(sb)->HasBlock());
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before - 3000);
}

TEST(BufferizedStream, FlushBuffersOfZeroFreesNothing) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium a(Digits(10));
  PStream sa = OpenOver(a, 3000, OpenReadWrite);
  WriteText(sa, "x");
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(0), 0u);
  EXPECT_TRUE(HandlerOf(sa)->HasBlock());
  EXPECT_TRUE(HandlerOf(sa)->IsDirty());
  EXPECT_TRUE(a.writes.empty());
}

TEST(BufferizedStream, FlushBuffersWritesBackADirtyBlockBeforeFreeingIt) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium a;
  PStream sa = OpenOver(a, 64, OpenReadWrite);
  WriteText(sa, "saved");
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(64), 64u);
  EXPECT_EQ(a.bytes, "saved");
  EXPECT_EQ(sa.GetPos(), 5u);
  WriteText(sa, "!");
  sa.Close();
  EXPECT_EQ(a.bytes, "saved!");
}

TEST(BufferizedStream, FlushBuffersReturnsLessWhenTooFewBlocksAreLeft) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium a(Digits(10));
  PStream sa = OpenOver(a, 100, OpenRead);
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(0xFFFFFFFF), 100u);
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(1), 0u);
}

TEST(BufferizedStream, LoweringTheBudgetReleasesBlocksAtOnce) {
  ScopedBuffersMaxSize budget(0x100000);
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersMaxSize(), 0x100000u);
  CountingMedium a(Digits(10)), b(Digits(10));
  PStream sa = OpenOver(a, 100, OpenRead);
  PStream sb = OpenOver(b, 100, OpenRead);
  PBufferizedStreamHdl::SetBuffersMaxSize(150);
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersMaxSize(), 150u);
  EXPECT_FALSE(HandlerOf(sa)->HasBlock());
  EXPECT_TRUE(HandlerOf(sb)->HasBlock());
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), 100u);
}

TEST(BufferizedStream, TheDefaultBudgetIsOneMebibyte) {
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersMaxSize(), 0x100000u);
  EXPECT_EQ(kBufferizedDefaultMaxSize, 0x100000u);
}

TEST(BufferizedStream, ADestroyedHandlerLeavesTheRegistry) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium a(Digits(10)), b(Digits(10));
  PStream sb = OpenOver(b, 100, OpenRead);
  { PStream sa = OpenOver(a, 100, OpenRead); }
  // Only b is left to walk.
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(0xFFFFFFFF), 100u);
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), 0u);
}

// ---------------------------------------------------------------------------
// No block

// Installs a memory manager for one scope: blocks of at least `threshold`
// bytes get `Allocate`'s answer, smaller ones come from the system manager.
class ScopedBlockManager {
public:
  using Allocator = void* (*)(MemoryManager*, ULONG, unsigned short);
  ScopedBlockManager(Allocator allocate, ULONG threshold) {
    s_allocate = allocate;
    s_threshold = threshold;
    m_manager = {0,
                 "Blocks",
                 &ScopedBlockManager::Allocate,
                 &qvbase::test::SystemCalls::Reallocate,
                 &ScopedBlockManager::Size,
                 &ScopedBlockManager::Release,
                 &qvbase::test::SystemCalls::Stats};
    m_saved = GGetDefaultMemManager();
    GSetDefaultMemManager(&m_manager);
  }
  ~ScopedBlockManager() { GSetDefaultMemManager(m_saved); }
  ScopedBlockManager(const ScopedBlockManager&) = delete;
  ScopedBlockManager& operator=(const ScopedBlockManager&) = delete;

  // Hands out one static scrap, so that huge blocks can be accounted
  // without being allocated; they are never touched.
  static void* Scrap(MemoryManager*, ULONG, unsigned short) { return s_scrap; }
  static void* Refuse(MemoryManager*, ULONG, unsigned short) { return nullptr; }

private:
  static bool IsScrap(void* block) { return block == s_scrap; }
  static void* Allocate(MemoryManager* self, ULONG size, unsigned short mode) {
    return size >= s_threshold ? s_allocate(self, size, mode)
                               : qvbase::test::SystemCalls::Allocate(self, size, mode);
  }
  static ULONG Size(MemoryManager* self, void* block) {
    return IsScrap(block) ? sizeof s_scrap : qvbase::test::SystemCalls::Size(self, block);
  }
  static void Release(MemoryManager* self, void* block) {
    if (!IsScrap(block))
      qvbase::test::SystemCalls::Release(self, block);
  }

  static inline Allocator s_allocate = nullptr;
  static inline ULONG s_threshold = 0;
  alignas(16) static inline char s_scrap[64] = {};
  MemoryManager m_manager;
  MemoryManager* m_saved;
};

TEST(BufferizedStream, NoBlockToBeHadRaises1007AndSetsFailed) {
  ScopedBuffersMaxSize budget(0x100000);
  const ULONG before = PBufferizedStreamHdl::GetBuffersCurSize();
  CountingMedium medium(Digits(10));
  PStream stream(new CountingMediumHdl(medium, 64));
  {
    ScopedBlockManager refusing(&ScopedBlockManager::Refuse, /*threshold=*/64);
    stream.Open(OpenReadWrite);
    EXPECT_FALSE(HandlerOf(stream)->HasBlock());
    EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before);
    char c = 0;
    PError read = Caught([&] { stream.Read(&c, 1, 1); });
    EXPECT_EQ(read.Code(), kErrOutOfMemory);
    EXPECT_EQ(read.Severity(), ErrorSeverityAbort);
    EXPECT_STREQ(read.File(), "src\\PBufferizedStream");
    EXPECT_TRUE(HandlerOf(stream)->HasFailed());
    PError write = Caught([&] { stream.Write("x", 1, 1); });
    EXPECT_EQ(write.Code(), kErrOutOfMemory);
  }
  EXPECT_EQ(ReadAll(stream, 10), Digits(10));
}

TEST(BufferizedStream, ADroppedNoBlockErrorReadsAndWritesNothing) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium medium(Digits(10));
  PStream stream(new CountingMediumHdl(medium, 64));
  ScopedBlockManager refusing(&ScopedBlockManager::Refuse, /*threshold=*/64);
  stream.Open(OpenReadWrite);
  ScopedErrorCapture capture;
  char c = 0;
  EXPECT_EQ(stream.Read(&c, 1, 1), 0u);
  EXPECT_EQ(stream.Write("x", 1, 1), 0u);
  EXPECT_EQ(capture.hook.codes, (std::vector<int>{kErrOutOfMemory, kErrOutOfMemory}));
  EXPECT_EQ(stream.GetPos(), 0u);
}

TEST(BufferizedStream, ABlockThatWouldTakeTheTotalPastThirtyTwoBitsCannotBeHad) {
  ScopedBuffersMaxSize budget(0xFFFFFFFF);
  const ULONG before = PBufferizedStreamHdl::GetBuffersCurSize();
  {
    ScopedBlockManager scrap(&ScopedBlockManager::Scrap, /*threshold=*/0x10000000);
    CountingMedium big, small(Digits(10));
    PStream huge(new CountingMediumHdl(big, 0xF0000000, /*locked=*/true));
    ASSERT_TRUE(HandlerOf(huge)->HasBlock());
    PStream other(new CountingMediumHdl(small, 0x20000000));
    ScopedErrorCapture capture;
    other.Open(OpenRead);
    EXPECT_FALSE(HandlerOf(other)->HasBlock());
    char c = 0;
    EXPECT_EQ(other.Read(&c, 1, 1), 0u);
    EXPECT_EQ(capture.hook.codes, std::vector<int>{kErrOutOfMemory});
    EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before + 0xF0000000);
  }
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before);
}

// ---------------------------------------------------------------------------
// Failed transfers

TEST(BufferizedStream, AShortBlockReadRaises1229WithSeverity29) {
  CountingMedium medium(Digits(100));
  PStream stream(new CountingMediumHdl(medium, 32));
  medium.shortReads = 1;
  PError error = Caught([&] { stream.Open(OpenRead); });
  EXPECT_EQ(error.Code(), kErrStreamShortRead);
  EXPECT_EQ(error.Severity(), ErrorSeverityError);
  EXPECT_STREQ(error.File(), "src\\PBufferizedStream");
  EXPECT_TRUE(HandlerOf(stream)->HasFailed());
}

TEST(BufferizedStream, AShortBlockReadAtTheMediumsEndIsNoError) {
  CountingMedium medium(Digits(40));
  PStream stream = OpenOver(medium, 32, OpenRead);
  EXPECT_EQ(ReadAll(stream, 50), Digits(40));
  EXPECT_FALSE(HandlerOf(stream)->HasFailed());
}

TEST(BufferizedStream, ARetryingHookReadsAShortBlockAgainFromItsStart) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 32, OpenRead);
  stream.MoveTo(40);
  CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection ask(&hook, /*set=*/true);
  medium.shortReads = 1;
  EXPECT_EQ(ReadAll(stream, 10), medium.bytes.substr(40, 10));
  EXPECT_EQ(hook.codes, std::vector<int>{kErrStreamShortRead});
  EXPECT_NE(hook.lastMask & kErrorMaskRetry, 0u);
  EXPECT_EQ(medium.ReadsAt(32), 2);
  EXPECT_FALSE(HandlerOf(stream)->HasFailed());
}

TEST(BufferizedStream, AShortBlockWriteRaises1230WithSeverity29) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdef");
  medium.shortWrites = 1;
  PError error = Caught([&] { stream.Flush(); });
  EXPECT_EQ(error.Code(), kErrStreamShortWrite);
  EXPECT_EQ(error.Severity(), ErrorSeverityError);
  EXPECT_STREQ(error.File(), "src\\PBufferizedStream");
  EXPECT_TRUE(HandlerOf(stream)->HasFailed());
  EXPECT_EQ(medium.flushes, 0);
}

TEST(BufferizedStream, ARetryingHookWritesAShortBlockAgainFromItsStart) {
  CountingMedium medium(Digits(64));
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  stream.MoveTo(40);
  WriteText(stream, "abcdef");
  CountingHook hook(ErrorHandlingRetry);
  PErrorHookProtection ask(&hook, /*set=*/true);
  medium.shortWrites = 1;
  stream.Flush();
  EXPECT_EQ(hook.codes, std::vector<int>{kErrStreamShortWrite});
  EXPECT_EQ(medium.WritesAt(32), 2);
  EXPECT_EQ(medium.bytes.substr(40, 6), "abcdef");
  EXPECT_EQ(medium.bytes.size(), 64u);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
  EXPECT_EQ(medium.flushes, 1);
}

TEST(BufferizedStream, AShortWriteThatAHookLetsThroughLeavesTheBlockDirty) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdef");
  medium.shortWrites = 1;
  {
    ScopedErrorCapture capture;
    stream.Flush();
    EXPECT_EQ(capture.hook.codes, std::vector<int>{kErrStreamShortWrite});
  }
  EXPECT_TRUE(HandlerOf(stream)->IsDirty());
  EXPECT_FALSE(HandlerOf(stream)->HasFailed());
  stream.Flush();
  EXPECT_EQ(medium.bytes, "abcdef");
}

TEST(BufferizedStream, AfterAFailedBlockWriteClosingDoesNotWriteThatBlockAgain) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdef");
  medium.shortWrites = 1;
  EXPECT_EQ(Caught([&] { stream.Flush(); }).Code(), kErrStreamShortWrite);
  ASSERT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(Caught([&] { stream.Close(); }).Code(), kNothingThrown);
  EXPECT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(medium.flushes, 0);
  EXPECT_EQ(medium.closes, 1);
  EXPECT_FALSE(stream.IsOpened());
}

TEST(BufferizedStream, AfterAFailedBlockWriteTheLastReferenceClosesQuietly) {
  CountingMedium medium;
  {
    PStream stream = OpenOver(medium, 32, OpenReadWrite);
    WriteText(stream, "abcdef");
    medium.shortWrites = 1;
    EXPECT_EQ(Caught([&] { stream.Flush(); }).Code(), kErrStreamShortWrite);
  }
  EXPECT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(medium.closes, 1);
}

TEST(BufferizedStream, AfterAFailedBlockWriteTheBudgetDoesNotWriteItAgain) {
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdef");
  medium.shortWrites = 1;
  EXPECT_EQ(Caught([&] { stream.Flush(); }).Code(), kErrStreamShortWrite);
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(1), 32u);
  EXPECT_EQ(medium.writes.size(), 1u);
  EXPECT_FALSE(HandlerOf(stream)->HasBlock());
}

TEST(BufferizedStream, ABlockGivenUpAfterAFailedWriteLeavesNothingDirtyBehind) {
  // The released block's dirty mark used to stay, so the next block loaded
  // at that start was written back at the next flush.
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium medium(Digits(64));
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdef");
  medium.shortWrites = 1;
  EXPECT_EQ(Caught([&] { stream.Flush(); }).Code(), kErrStreamShortWrite);
  EXPECT_EQ(PBufferizedStreamHdl::FlushBuffers(1), 32u);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
  stream.MoveTo(0);
  EXPECT_EQ(ReadAll(stream, 3), "abc");
  stream.Close();
  EXPECT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(medium.flushes, 1);
}

TEST(BufferizedStream, AFailedWriteBackDuringTheBudgetsReleaseKeepsTheBlockAndTheTotal) {
  ScopedBuffersMaxSize budget(100);
  CountingMedium a, b(Digits(10));
  PStream sa = OpenOver(a, 64, OpenReadWrite);
  WriteText(sa, "abc");
  const ULONG before = PBufferizedStreamHdl::GetBuffersCurSize();
  a.shortWrites = 1;
  PStream sb(new CountingMediumHdl(b, 64));
  EXPECT_EQ(Caught([&] { sb.Open(OpenRead); }).Code(), kErrStreamShortWrite);
  EXPECT_TRUE(HandlerOf(sa)->HasBlock());
  EXPECT_TRUE(HandlerOf(sa)->HasFailed());
  EXPECT_FALSE(HandlerOf(sb)->HasBlock());
  EXPECT_EQ(PBufferizedStreamHdl::GetBuffersCurSize(), before);
  // The failed block goes without another attempt; b gets its block.
  EXPECT_EQ(ReadAll(sb, 10), Digits(10));
  EXPECT_FALSE(HandlerOf(sa)->HasBlock());
  EXPECT_EQ(a.writes.size(), 1u);
}

TEST(BufferizedStream, AReadOfABlockThatFailedIsDoneAgainAtTheNextUse) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 32, OpenRead);
  stream.MoveTo(40);
  medium.shortReads = 1;
  char c = 0;
  EXPECT_EQ(Caught([&] { stream.Read(&c, 1, 1); }).Code(), kErrStreamShortRead);
  EXPECT_EQ(stream.GetPos(), 40u);
  EXPECT_EQ(ReadAll(stream, 4), medium.bytes.substr(40, 4));
  EXPECT_EQ(medium.ReadsAt(32), 2);
}

// ---------------------------------------------------------------------------
// Errors of the handler

TEST(BufferizedStream, ReadingAClosedStreamRaises1223AndSetsFailed) {
  CountingMedium medium(Digits(10));
  PStream stream(new CountingMediumHdl(medium, 16));
  char c = 0;
  PError error = Caught([&] { stream.Read(&c, 1, 1); });
  EXPECT_EQ(error.Code(), kErrStreamClosed);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "src\\PBufferizedStream");
  EXPECT_TRUE(HandlerOf(stream)->HasFailed());
}

TEST(BufferizedStream, ReadingAWriteOnlyStreamRaises1232) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 16, OpenWrite);
  char c = 0;
  PError error = Caught([&] { stream.Read(&c, 1, 1); });
  EXPECT_EQ(error.Code(), kErrStreamNotReadable);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_TRUE(HandlerOf(stream)->HasFailed());
}

TEST(BufferizedStream, WritingAClosedStreamRaises1223) {
  CountingMedium medium;
  PStream stream(new CountingMediumHdl(medium, 16));
  PError error = Caught([&] { stream.Write("x", 1, 1); });
  EXPECT_EQ(error.Code(), kErrStreamClosed);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  EXPECT_STREQ(error.File(), "src\\PBufferizedStream");
}

TEST(BufferizedStream, WritingAReadOnlyStreamRaises1231) {
  CountingMedium medium(Digits(10));
  PStream stream = OpenOver(medium, 16, OpenRead);
  PError error = Caught([&] { stream.Write("x", 1, 1); });
  EXPECT_EQ(error.Code(), kErrStreamNotWritable);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  ScopedErrorCapture capture;
  EXPECT_EQ(stream.Write("x", 1, 1), 0u);
  EXPECT_EQ(medium.bytes, Digits(10));
}

TEST(BufferizedStream, EveryErrorIsPreparedByTheHandler) {
  // A handler that adds its own context to every error it raises.
  struct TaggingHdl : CountingMediumHdl {
    using CountingMediumHdl::CountingMediumHdl;
    PError IOPrepareError(PError& error) override {
      PError prepared(error);
      prepared.SetIntegerInfo("medium", 42);
      return prepared;
    }
  };
  ScopedBuffersMaxSize budget(0x100000);
  CountingMedium medium(Digits(100));
  // Blocks of 4 KiB, so that the refused allocation below is the block's
  // and not the error's own information.
  PStream stream(new TaggingHdl(medium, 4096));
  char c = 0;
  struct Row {
    const char* name;
    int code;
    std::function<void()> fault;
  };
  const Row rows[] = {
      {"read while closed", kErrStreamClosed, [&] { stream.Read(&c, 1, 1); }},
      {"write while closed", kErrStreamClosed, [&] { stream.Write("x", 1, 1); }},
      {"short block read", kErrStreamShortRead,
       [&] {
         medium.shortReads = 1;
         stream.Open(OpenReadWrite);
       }},
      {"seek past the end", kErrStreamSeekPastEnd, [&] { stream.SetPos(SeekFromStart, 101); }},
      {"seek before the start", kErrStreamSeekBeforeStart, [&] { stream.SetPos(SeekBack, 1); }},
      {"short block write", kErrStreamShortWrite,
       [&] {
         stream.Write("abc", 3, 1);
         medium.shortWrites = 1;
         stream.Flush();
       }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    PError error = Caught(row.fault);
    EXPECT_EQ(error.Code(), row.code);
    EXPECT_STREQ(error.File(), "src\\PBufferizedStream");
    EXPECT_EQ(error.GetIntegerInfo("medium", 0), 42);
  }
  // No block: the failed one goes without another attempt, and none comes
  // back. The manager outlives the error, whose information it allocated.
  PBufferizedStreamHdl::FlushBuffers(0xFFFFFFFF);
  ScopedBlockManager refusing(&ScopedBlockManager::Refuse, /*threshold=*/4096);
  PError error = Caught([&] { stream.Read(&c, 1, 1); });
  EXPECT_EQ(error.Code(), kErrOutOfMemory);
  EXPECT_EQ(error.GetIntegerInfo("medium", 0), 42);
  EXPECT_EQ(medium.writes.size(), 1u);
}

TEST(BufferizedStream, SeeksOutOfRangeRaiseTheirCodesAndLeaveThePosition) {
  struct Row {
    const char* name;
    TypSeekMode mode;
    unsigned __int64 offset;
    int code;
  };
  const Row rows[] = {
      {"forward past the end", SeekFwd, 11, kErrStreamSeekPastEnd},
      {"from the start past the size", SeekFromStart, 21, kErrStreamSeekPastEnd},
      {"back before the start", SeekBack, 11, kErrStreamSeekBeforeStart},
      {"from the end past the start", SeekFromEnd, 21, kErrStreamSeekBeforeStart},
      {"forward by all ones", SeekFwd, ~0ull, kErrStreamSeekPastEnd},
      {"unknown mode", static_cast<TypSeekMode>(4), 0, kErrStreamBadSeekMode},
  };
  CountingMedium medium(Digits(20));
  PStream stream = OpenOver(medium, 16, OpenRead);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    stream.MoveTo(10);
    PError error = Caught([&] { stream.SetPos(row.mode, row.offset); });
    EXPECT_EQ(error.Code(), row.code);
    EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
    EXPECT_STREQ(error.File(), "src\\PBufferizedStream");
    EXPECT_EQ(stream.GetPos(), 10u);
    ScopedErrorCapture capture;
    stream.SetPos(row.mode, row.offset);
    EXPECT_EQ(capture.hook.codes, std::vector<int>{row.code});
    EXPECT_EQ(stream.GetPos(), 10u);
  }
}

TEST(BufferizedStream, SeeksToTheVeryEndAreAllowed) {
  CountingMedium medium(Digits(20));
  PStream stream = OpenOver(medium, 16, OpenRead);
  stream.MoveTo(20);
  EXPECT_TRUE(stream.IsAtEnd());
  stream.MoveFromEnd(20);
  EXPECT_EQ(stream.GetPos(), 0u);
  stream.MoveFwd(20);
  EXPECT_EQ(stream.GetPos(), 20u);
  stream.MoveBack(20);
  EXPECT_EQ(stream.GetPos(), 0u);
}

// ---------------------------------------------------------------------------
// Resizing

TEST(BufferizedStream, ShrinkingInsideTheCachedBlockTrimsItAndTheMedium) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  stream.MoveTo(70);
  EXPECT_EQ(ReadAll(stream, 5), "01234");
  stream.SetSize(72);
  EXPECT_EQ(medium.bytes, Digits(72));
  EXPECT_EQ(stream.GetSize(), 72u);
  EXPECT_EQ(stream.GetPos(), 72u);
  EXPECT_TRUE(stream.IsAtEnd());
  stream.MoveTo(60);
  EXPECT_EQ(ReadAll(stream, 50), Digits(72).substr(60));
}

TEST(BufferizedStream, ShrinkingToTheStartOfTheCachedBlockLeavesItEmpty) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  stream.MoveTo(70);
  WriteText(stream, "xy");
  stream.SetSize(64);
  EXPECT_EQ(medium.bytes, Digits(64));
  EXPECT_EQ(stream.GetPos(), 64u);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
  WriteText(stream, "end");
  stream.Close();
  EXPECT_EQ(medium.bytes, Digits(64) + "end");
}

TEST(BufferizedStream, ShrinkingBeforeTheCachedBlockDropsItsBytes) {
  CountingMedium medium(Digits(100));
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  stream.MoveTo(70);
  WriteText(stream, "xy");
  const std::size_t writes = medium.writes.size();
  stream.SetSize(10);
  EXPECT_EQ(medium.writes.size(), writes); // nothing of the block stays
  EXPECT_EQ(medium.bytes, Digits(10));
  EXPECT_EQ(stream.GetSize(), 10u);
  EXPECT_EQ(stream.GetPos(), 10u);
  stream.MoveTo(0);
  EXPECT_EQ(ReadAll(stream, 50), Digits(10));
  stream.Close();
  EXPECT_EQ(medium.bytes, Digits(10));
}

TEST(BufferizedStream, GrowingPastTheCachedBlockShowsTheMediumsNewBytes) {
  CountingMedium medium(Digits(40));
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  stream.MoveTo(35);
  EXPECT_EQ(ReadAll(stream, 2), "56");
  stream.SetSize(100);
  EXPECT_EQ(medium.resizes, std::vector<unsigned __int64>{100});
  EXPECT_EQ(stream.GetSize(), 100u);
  EXPECT_EQ(stream.GetPos(), 37u);
  stream.MoveTo(38);
  EXPECT_EQ(ReadAll(stream, 4), std::string("89") + std::string(2, '\0'));
  stream.MoveTo(99);
  EXPECT_EQ(ReadAll(stream, 4), std::string(1, '\0'));
}

TEST(BufferizedStream, ResizingWritesBackADirtyBlockFirst) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdefgh");
  stream.SetSize(5);
  EXPECT_EQ(medium.bytes, "abcde");
  ASSERT_EQ(medium.writes.size(), 1u);
  EXPECT_EQ(medium.writes[0].bytes, 5u); // only what stays
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
  stream.SetSize(8);
  stream.MoveTo(0);
  EXPECT_EQ(ReadAll(stream, 8), std::string("abcde") + std::string(3, '\0'));
}

TEST(BufferizedStream, GrowingADirtyBlockKeepsWhatWasWritten) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abc");
  stream.SetSize(40);
  EXPECT_EQ(medium.bytes, std::string("abc") + std::string(37, '\0'));
  EXPECT_EQ(stream.GetPos(), 3u);
  WriteText(stream, "d");
  stream.Close();
  EXPECT_EQ(medium.bytes, std::string("abcd") + std::string(36, '\0'));
}

TEST(BufferizedStream, ResizingAfterAFailedWriteGivesTheBlockUp) {
  CountingMedium medium;
  PStream stream = OpenOver(medium, 32, OpenReadWrite);
  WriteText(stream, "abcdef");
  medium.shortWrites = 1;
  EXPECT_EQ(Caught([&] { stream.Flush(); }).Code(), kErrStreamShortWrite);
  const std::size_t writes = medium.writes.size();
  stream.SetSize(4);
  EXPECT_EQ(medium.writes.size(), writes);
  EXPECT_FALSE(HandlerOf(stream)->IsDirty());
  EXPECT_EQ(stream.GetSize(), 4u);
  EXPECT_EQ(medium.bytes.size(), 4u);
}

TEST(BufferizedStream, ResizingANonWritableStreamRaisesItsCode) {
  CountingMedium medium(Digits(10));
  PStream closed(new CountingMediumHdl(medium, 16));
  PError error = Caught([&] { closed.SetSize(3); });
  EXPECT_EQ(error.Code(), kErrStreamClosed);
  EXPECT_EQ(error.Severity(), ErrorSeverityAbort);
  PStream reading = OpenOver(medium, 16, OpenRead);
  EXPECT_EQ(Caught([&] { reading.SetSize(3); }).Code(), kErrStreamNotWritable);
  EXPECT_EQ(reading.GetSize(), 10u);
  EXPECT_TRUE(medium.resizes.empty());
}

} // namespace
