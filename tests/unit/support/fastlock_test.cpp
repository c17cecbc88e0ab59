// The bus lock: holds, owner, giving back for a call out of the bus.
#include "support/common/fastlock.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zn/platform.h"

namespace zn {
namespace {

TEST(FastLock, TakenTwiceAndGivenBackTwiceIsFree) {
  EXPECT_EQ(fastLock.Owner(), kNoThread);
  FAST_LOCK();
  EXPECT_EQ(fastLock.Owner(), CurrentThreadId());
  EXPECT_EQ(fastLock.HoldCount(), 1u);
  FAST_LOCK();
  EXPECT_EQ(fastLock.HoldCount(), 2u);
  FAST_UNLOCK();
  EXPECT_TRUE(fastLock.HeldByThisThread());
  FAST_UNLOCK();
  EXPECT_EQ(fastLock.Owner(), kNoThread);
  EXPECT_EQ(fastLock.HoldCount(), 0u);
}

TEST(FastLock, UnlockWithoutAHoldStaysBalanced) {
  FAST_UNLOCK();
  FAST_UNLOCK();
  EXPECT_EQ(fastLock.Owner(), kNoThread);
  FAST_LOCK();
  EXPECT_EQ(fastLock.HoldCount(), 1u);
  FAST_UNLOCK();
  EXPECT_EQ(fastLock.HoldCount(), 0u);
}

TEST(FastLock, ReleaseAllGivesTheDepthThatReacquireTakes) {
  FAST_LOCK();
  FAST_LOCK();
  FAST_LOCK();
  const u32 depth = fastLock.ReleaseAll();
  EXPECT_EQ(depth, 3u);
  EXPECT_EQ(fastLock.Owner(), kNoThread);
  fastLock.Reacquire(depth);
  EXPECT_EQ(fastLock.HoldCount(), 3u);
  EXPECT_EQ(fastLock.ReleaseAll(), 3u);
  EXPECT_EQ(fastLock.ReleaseAll(), 0u);
  fastLock.Reacquire(0);
  EXPECT_FALSE(fastLock.HeldByThisThread());
}

TEST(FastLock, ScopesNest) {
  {
    const BusLock outer;
    const BusLock inner;
    EXPECT_EQ(fastLock.HoldCount(), 2u);
    {
      const BusRelease out;
      EXPECT_FALSE(fastLock.HeldByThisThread());
    }
    EXPECT_EQ(fastLock.HoldCount(), 2u);
  }
  EXPECT_FALSE(fastLock.HeldByThisThread());
}

TEST(FastLock, ThreadNumbersAreNeitherZeroNorNobody) {
  EXPECT_NE(CurrentThreadId(), 0u);
  EXPECT_NE(CurrentThreadId(), kNoThread);
  EXPECT_EQ(CurrentThreadId(), CurrentThreadId());
}

TEST(FastLockThreads, TheSecondLockIsIndependent) {
  databaseLock.Lock();
  std::thread other([] {
    FAST_LOCK();
    EXPECT_TRUE(fastLock.HeldByThisThread());
    EXPECT_FALSE(databaseLock.HeldByThisThread());
    FAST_UNLOCK();
  });
  other.join();
  databaseLock.Unlock();
  EXPECT_EQ(databaseLock.Owner(), kNoThread);
}

TEST(FastLockThreads, AnUnlockByAnotherThreadWaitsAndDoesNothing) {
  FAST_LOCK();
  FAST_LOCK();
  ZnHandle started = ZnCreateEvent(0, 0);
  std::atomic<bool> done{false};
  std::thread other([&] {
    ZnSetEvent(started);
    FAST_UNLOCK();
    done = true;
  });
  ZnWaitForEvent(started, 0xFFFFFFFFu);
  FAST_UNLOCK();
  EXPECT_FALSE(done) << "the stranger's unlock came back while the lock was held";
  EXPECT_EQ(fastLock.HoldCount(), 1u);
  FAST_UNLOCK();
  other.join();
  EXPECT_TRUE(done);
  EXPECT_EQ(fastLock.Owner(), kNoThread);
  ZnCloseEvent(started);
}

TEST(FastLockThreads, OnlyOneThreadIsInside) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  int counter = 0;  // plain on purpose: the lock is what makes this safe
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const BusLock lock;
        const BusLock again;
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(FastLockThreads, ABlockedThreadGetsTheLockThatIsReleasedCompletely) {
  FAST_LOCK();
  FAST_LOCK();
  ZnHandle got = ZnCreateEvent(0, 0);
  ZnHandle mayLeave = ZnCreateEvent(0, 0);
  std::thread other([&] {
    FAST_LOCK();
    ZnSetEvent(got);
    ZnWaitForEvent(mayLeave, 0xFFFFFFFFu);
    FAST_UNLOCK();
  });
  {
    const BusRelease out;
    EXPECT_EQ(ZnWaitForEvent(got, 0xFFFFFFFFu), 0u);
    ZnSetEvent(mayLeave);
  }
  EXPECT_EQ(fastLock.HoldCount(), 2u);
  FAST_UNLOCK();
  FAST_UNLOCK();
  other.join();
  ZnCloseEvent(got);
  ZnCloseEvent(mayLeave);
}

}  // namespace
}  // namespace zn
