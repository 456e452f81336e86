// The recursive lock: its two-phase life, mutual exclusion between threads,
// recursion, copies that share one critical section, and the fatal error of
// a forgotten Uninit.
#include <qvbase/NMutex.h>

#include <qvbase/MemoryManager.h>

#include "support/ErrorTestSupport.h"
#include "support/ForwardingManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using qvbase::test::ScopedErrorCapture;

// Long enough for a thread that could enter to have entered; the tests that
// use it check that the thread did not.
constexpr auto kSettle = std::chrono::milliseconds(100);

// A thread that takes the mutex once, notes that it did, and lets it go.
class Locker {
public:
  explicit Locker(const NMutex& mutex)
      : m_thread([this, &mutex] {
          m_started = true;
          m_locked = mutex.Lock();
          if (m_locked)
            mutex.Unlock();
          m_done = true;
        }) {}
  ~Locker() { Join(); }
  void Join() {
    if (m_thread.joinable())
      m_thread.join();
  }
  bool Started() const { return m_started; }
  bool Done() const { return m_done; }
  bool Locked() const { return m_locked; }

private:
  std::atomic<bool> m_started{false};
  std::atomic<bool> m_done{false};
  std::atomic<bool> m_locked{false};
  std::thread m_thread;
};

void WaitStarted(const Locker& locker) {
  while (!locker.Started())
    std::this_thread::yield();
}

// Refuses every block, so that the critical section cannot be allocated.
struct RefusingManager : qvbase::test::SystemCalls {
  static void* Allocate(MemoryManager*, ULONG, unsigned short) { return nullptr; }
};

class ScopedRefusingManager {
public:
  ScopedRefusingManager() : m_saved(GGetDefaultMemManager()) { GSetDefaultMemManager(&m_manager); }
  ~ScopedRefusingManager() { GSetDefaultMemManager(m_saved); }
  ScopedRefusingManager(const ScopedRefusingManager&) = delete;
  ScopedRefusingManager& operator=(const ScopedRefusingManager&) = delete;

private:
  MemoryManager m_manager{0,
                          "Refusing",
                          &RefusingManager::Allocate,
                          &RefusingManager::Reallocate,
                          &RefusingManager::Size,
                          &RefusingManager::Release,
                          &RefusingManager::Stats};
  MemoryManager* m_saved;
};

TEST(NMutex, AnotherThreadBlocksInLockUntilTheOwnerCallsInit) {
  NMutex mutex; // held by this thread
  Locker other(mutex);
  WaitStarted(other);
  std::this_thread::sleep_for(kSettle);
  EXPECT_FALSE(other.Done());
  EXPECT_TRUE(mutex.Init());
  other.Join();
  EXPECT_TRUE(other.Locked());
  mutex.Uninit();
}

TEST(NMutex, LockTwiceThenUnlockTwiceLeavesTheMutexFree) {
  NMutex mutex;
  ASSERT_TRUE(mutex.Init());
  EXPECT_TRUE(mutex.Lock());
  EXPECT_TRUE(mutex.Lock()); // recursive: the owner enters again at once
  mutex.Unlock();
  {
    Locker other(mutex);
    WaitStarted(other);
    std::this_thread::sleep_for(kSettle);
    EXPECT_FALSE(other.Done()); // still held once
    mutex.Unlock();
    other.Join();
    EXPECT_TRUE(other.Locked());
  }
  Locker after(mutex);
  after.Join();
  EXPECT_TRUE(after.Locked());
  mutex.Uninit();
}

TEST(NMutex, LockAfterUninitReturnsFalseWithoutBlocking) {
  NMutex mutex;
  ASSERT_TRUE(mutex.Init());
  mutex.Uninit();
  EXPECT_FALSE(mutex.Lock());
  EXPECT_FALSE(mutex.Init());
  Locker other(mutex);
  other.Join();
  EXPECT_FALSE(other.Locked());
}

TEST(NMutex, DestroyingAnAttachedMutexRaisesFatalError1006) {
  ScopedErrorCapture capture;
  NMutex* mutex = new NMutex;
  ASSERT_TRUE(mutex->Init());
  NMutex keeper(*mutex); // the critical section stays allocated: freed below
  delete mutex;
  ASSERT_EQ(capture.hook.codes, std::vector<int>{kErrMutexStillAttached});
  const PError& error = capture.hook.errors[0];
  EXPECT_EQ(error.Severity(), ErrorSeverityFatal);
  EXPECT_STREQ(error.File(), "src\\NMutex");
  EXPECT_EQ(error.Line(), 69u);
  // The destroyed object left the critical section as it was: still usable.
  EXPECT_TRUE(keeper.Lock());
  keeper.Unlock();
  keeper.Uninit();
}

TEST(NMutex, FatalErrorThrownByTheProtectionsStopsInTheDestructor) {
  NMutex* mutex = new NMutex;
  ASSERT_TRUE(mutex->Init());
  NMutex keeper(*mutex);
  // Without a protection the fatal error is thrown; a destructor cannot pass
  // it on.
  EXPECT_NO_THROW(delete mutex);
  keeper.Uninit();
}

TEST(NMutex, UninitBeforeDestructionRaisesNothing) {
  ScopedErrorCapture capture;
  {
    NMutex mutex;
    mutex.Init();
    mutex.Uninit();
  }
  EXPECT_EQ(capture.hook.calls, 0);
}

TEST(NMutex, FailedAllocationLeavesAMutexThatInitAndLockRefuse) {
  ScopedErrorCapture capture;
  {
    ScopedRefusingManager refusing;
    NMutex mutex;
    EXPECT_FALSE(mutex.Init());
    EXPECT_FALSE(mutex.Lock());
    mutex.Uninit(); // nothing to detach
  }
  EXPECT_EQ(capture.hook.calls, 0); // nothing attached, nothing reported
}

TEST(NMutex, CopiesShareOneCriticalSection) {
  NMutex mutex;
  ASSERT_TRUE(mutex.Init());
  NMutex copy(mutex);
  NMutex assigned;
  assigned.Init();
  assigned.Uninit();
  assigned = mutex;
  ASSERT_TRUE(copy.Lock());
  Locker other(assigned);
  WaitStarted(other);
  std::this_thread::sleep_for(kSettle);
  EXPECT_FALSE(other.Done()); // the copy's hold is the original's
  copy.Unlock();
  other.Join();
  EXPECT_TRUE(other.Locked());
  mutex.Uninit();
  // Only one copy may call Uninit: the others take a detached mutex's state
  // so that their destructors find nothing attached.
  NMutex detached;
  detached.Init();
  detached.Uninit();
  copy = detached;
  assigned = detached;
}

TEST(NMutex, ExcludesOtherThreadsFromTheGuardedState) {
  NMutex mutex;
  ASSERT_TRUE(mutex.Init());
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  long counter = 0; // guarded by the mutex only
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        mutex.Lock();
        counter = counter + 1;
        mutex.Unlock();
      }
    });
  for (std::thread& t : threads)
    t.join();
  EXPECT_EQ(counter, long(kThreads) * kRounds);
  mutex.Uninit();
}

} // namespace
