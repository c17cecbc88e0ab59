// Events: what lets a waiter go and what does not.
#include "support/common/event.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/common/handle.h"
#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {
namespace {

TEST(Event, AnAutoResetOneIsClearAfterAWait) {
  ZnHandle event = ZnCreateEvent(1, 0);
  EXPECT_EQ(ZnWaitForEvent(event, 0), 258u);
  EXPECT_TRUE(ZnSetEvent(event));
  EXPECT_TRUE(ZnSetEvent(event)) << "twice is once";
  EXPECT_EQ(ZnWaitForEvent(event, 0), 0u);
  EXPECT_EQ(ZnWaitForEvent(event, 0), 258u);
  EXPECT_TRUE(ZnCloseEvent(event));
}

TEST(Event, AManualResetOneStaysSet) {
  ZnHandle event = ZnCreateEvent(0, 1);
  EXPECT_EQ(ZnWaitForEvent(event, 0), 0u);
  EXPECT_EQ(ZnWaitForEvent(event, 0xFFFFFFFFu), 0u);
  EXPECT_TRUE(ZnResetEvent(event));
  EXPECT_EQ(ZnWaitForEvent(event, 1), 258u);
  EXPECT_TRUE(ZnCloseEvent(event));
}

TEST(Event, AnInitiallySetAutoResetOneLetsOneGo) {
  ZnHandle event = ZnCreateEvent(1, 1);
  EXPECT_EQ(ZnWaitForEvent(event, 0), 0u);
  EXPECT_EQ(ZnWaitForEvent(event, 0), 258u);
  EXPECT_TRUE(ZnCloseEvent(event));
}

TEST(Event, StaleAndForeignHandlesAreRefused) {
  ZnHandle event = ZnCreateEvent(1, 1);
  EXPECT_TRUE(ZnCloseEvent(event));
  ZnHandle other = AllocateHandle(HANDLE_PROPSET, nullptr);
  for (ZnHandle handle : {event, other, ZnHandle{}, reinterpret_cast<ZnHandle>(UINTPTR_MAX)}) {
    EXPECT_FALSE(ZnSetEvent(handle));
    EXPECT_FALSE(ZnResetEvent(handle));
    EXPECT_FALSE(ZnCloseEvent(handle));
    EXPECT_EQ(ZnWaitForEvent(handle, 0), 0xFFFFFFFFu);
    EXPECT_EQ(ZnWaitForEvent(handle, 0xFFFFFFFFu), 0xFFFFFFFFu) << "and nobody waits for ever";
  }
  EXPECT_TRUE(FreeAnyHandle(other));
}

TEST(Event, ZnCloseHandleDoesNotTakeOne) {
  ZnHandle event = ZnCreateEvent(1, 0);
  EXPECT_EQ(ZnCloseHandle(event), 0x80070057u);
  EXPECT_TRUE(ZnCloseEvent(event));
}

TEST(Event, AReusedStateBeginsAfresh) {
  for (int i = 0; i < 100; ++i) {
    ZnHandle event = ZnCreateEvent(0, 1);
    EXPECT_EQ(ZnWaitForEvent(event, 0), 0u);
    EXPECT_TRUE(ZnCloseEvent(event));
    ZnHandle next = ZnCreateEvent(1, 0);
    EXPECT_EQ(ZnWaitForEvent(next, 0), 258u);
    EXPECT_TRUE(ZnCloseEvent(next));
  }
}

// Threads that wait on one event, and what each got.
class Waiters {
 public:
  Waiters(int count, ZnHandle event) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([this, event] {
        const u32 result = ZnWaitForEvent(event, 0xFFFFFFFFu);
        if (result == 0) ++signalled_;
        if (result == 0xFFFFFFFFu) ++failed_;
        ZnSetEvent(one_);
      });
    }
  }
  ~Waiters() {
    for (std::thread& thread : threads_) thread.join();
    ZnCloseEvent(one_);
  }
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;
  void AwaitOne() { EXPECT_EQ(ZnWaitForEvent(one_, 0xFFFFFFFFu), 0u); }
  [[nodiscard]] int Signalled() const { return signalled_; }
  [[nodiscard]] int Failed() const { return failed_; }
  void Join() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }

 private:
  ZnHandle one_ = ZnCreateEvent(1, 0);
  std::atomic<int> signalled_{0};
  std::atomic<int> failed_{0};
  std::vector<std::thread> threads_;
};

TEST(EventThreads, AnAutoResetOneLetsOneGoForEachSet) {
  ZnHandle event = ZnCreateEvent(1, 0);
  Waiters waiters(3, event);
  for (int i = 1; i <= 3; ++i) {
    ZnSetEvent(event);
    waiters.AwaitOne();
    EXPECT_EQ(waiters.Signalled(), i);
  }
  waiters.Join();
  EXPECT_EQ(ZnWaitForEvent(event, 0), 258u) << "every set was used up";
  ZnCloseEvent(event);
}

TEST(EventThreads, AManualResetOneLetsAllGo) {
  ZnHandle event = ZnCreateEvent(0, 0);
  Waiters waiters(3, event);
  ZnSetEvent(event);
  waiters.Join();
  EXPECT_EQ(waiters.Signalled(), 3);
  ZnCloseEvent(event);
}

TEST(EventThreads, AWaiterGoesEvenIfTheEventIsResetAtOnce) {
  // The turn passes to and fro: a set whose waiter had missed it would stop everything.
  ZnHandle ping = ZnCreateEvent(0, 0);
  ZnHandle pong = ZnCreateEvent(1, 0);
  std::atomic<bool> stop{false};
  std::atomic<int> rounds{0};
  std::thread other([&] {
    while (!stop) {
      if (ZnWaitForEvent(ping, 0xFFFFFFFFu) != 0) return;
      ++rounds;
      ZnSetEvent(pong);
    }
  });
  for (int i = 0; i < 50; ++i) {
    // Set again while the other thread has not come to its wait yet.
    do {
      ZnSetEvent(ping);
      ZnResetEvent(ping);
    } while (ZnWaitForEvent(pong, 1) != 0);
  }
  EXPECT_GE(rounds, 50);
  stop = true;
  ZnSetEvent(ping);
  other.join();
  ZnCloseEvent(ping);
  ZnCloseEvent(pong);
}

TEST(EventThreads, ClosingWakesWhoeverWaits) {
  for (int round = 0; round < 50; ++round) {
    ZnHandle event = ZnCreateEvent(1, 0);
    Waiters waiters(2, event);
    EXPECT_TRUE(ZnCloseEvent(event));
    waiters.Join();
    EXPECT_EQ(waiters.Failed(), 2);
    EXPECT_EQ(waiters.Signalled(), 0);
  }
}

TEST(EventThreads, StaleHandlesAreHarmlessWhileOthersComeAndGo) {
  std::atomic<ZnHandle> shared{ZnCreateEvent(1, 0)};
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        ZnHandle event = shared;
        ZnSetEvent(event);
        const u32 result = ZnWaitForEvent(event, 0);
        EXPECT_TRUE(result == 0 || result == 258 || result == 0xFFFFFFFFu);
        ZnResetEvent(event);
      }
    });
  }
  for (int i = 0; i < 3000; ++i) {
    ZnHandle old = shared;
    shared = ZnCreateEvent(1, 0);
    EXPECT_TRUE(ZnCloseEvent(old));
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(ZnCloseEvent(shared));
}

TEST(EventThreads, OfTwoConcurrentClosesOneAnswersTrue) {
  for (int i = 0; i < 500; ++i) {
    ZnHandle event = ZnCreateEvent(1, 0);
    std::atomic<int> closed{0};
    std::thread other([&] { closed += ZnCloseEvent(event) ? 1 : 0; });
    closed += ZnCloseEvent(event) ? 1 : 0;
    other.join();
    EXPECT_EQ(closed, 1);
  }
}

}  // namespace
}  // namespace zn
