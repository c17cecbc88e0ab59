// The one lock of the bus: re-entrant, process-wide, with an owner and a hold count. Every exported
// function that touches shared state holds it across its body; code that calls out of the bus (a
// provider, a connection) releases it completely through BusRelease and looks everything up again
// afterwards. Static analysis cannot follow a re-entrant lock, so code that needs it says "Under
// FAST_LOCK" and calls AssertBusLocked().
#pragma once

#include <atomic>
#include <cassert>

#include "support/common/wordlock.h"
#include "zn/types.h"

namespace zn {

inline constexpr u32 kNoThread = 0xFFFFFFFFu;

// The calling thread's number once it has asked for it, else 0. In the static thread-local block,
// so that reading it is one instruction and not a call.
extern constinit thread_local u32 cachedThreadId __attribute__((tls_model("initial-exec")));
// Asks the system, fills the cache.
[[nodiscard]] u32 LookUpThreadId() noexcept;

// The calling thread's number, never 0 and never kNoThread. A forked child keeps the number of the
// thread that forked: the locks it held across the fork stay its own.
[[nodiscard]] inline u32 CurrentThreadId() noexcept {
  const u32 id = cachedThreadId;
  return id != 0 ? id : LookUpThreadId();
}

// A re-entrant lock with owner and count. The two instances of the process are the bus lock and the
// advisory lock of DbLockDatabase.
class RecursiveLock {
 public:
  RecursiveLock() = default;  // constant where the host's mutex is
  RecursiveLock(const RecursiveLock&) = delete;
  RecursiveLock& operator=(const RecursiveLock&) = delete;

  void Lock() noexcept ZN_NO_THREAD_SAFETY_ANALYSIS {
    const u32 self = CurrentThreadId();
    if (owner_.load(std::memory_order_relaxed) == self) {
      ++count_;
      return;
    }
    lock_.Lock();
    owner_.store(self, std::memory_order_relaxed);
    count_ = 1;
  }

  // By a thread that does not hold the lock: waits for it and does nothing.
  void Unlock() noexcept ZN_NO_THREAD_SAFETY_ANALYSIS {
    if (owner_.load(std::memory_order_relaxed) != CurrentThreadId()) {
      lock_.Lock();
      lock_.Unlock();
      return;
    }
    if (--count_ > 0) return;
    owner_.store(kNoThread, std::memory_order_relaxed);
    lock_.Unlock();
  }

  [[nodiscard]] bool HeldByThisThread() const noexcept {
    return owner_.load(std::memory_order_relaxed) == CurrentThreadId();
  }
  // Holds of the calling thread; 0 when another thread or none has the lock.
  [[nodiscard]] u32 HoldCount() const noexcept { return HeldByThisThread() ? count_ : 0; }
  [[nodiscard]] u32 Owner() const noexcept { return owner_.load(std::memory_order_relaxed); }

  // Gives all holds of the calling thread back and returns how many there were.
  [[nodiscard]] u32 ReleaseAll() noexcept ZN_NO_THREAD_SAFETY_ANALYSIS {
    const u32 depth = HoldCount();
    if (depth == 0) return 0;
    count_ = 0;
    owner_.store(kNoThread, std::memory_order_relaxed);
    lock_.Unlock();
    return depth;
  }
  void Reacquire(u32 depth) noexcept {
    if (depth == 0) return;
    Lock();
    count_ += depth - 1;
  }

 private:
  WordLock lock_;
  std::atomic<u32> owner_{kNoThread};
  u32 count_ = 0;  // touched by the owner only
};

// The bus lock itself. A function-local static would cost a guard on every call.
extern RecursiveLock fastLock;
// The advisory lock behind DbLockDatabase.
extern RecursiveLock databaseLock;

inline void FAST_LOCK() noexcept {
  fastLock.Lock();
}
inline void FAST_UNLOCK() noexcept {
  fastLock.Unlock();
}
inline void AssertBusLocked() noexcept {
  assert(fastLock.HeldByThisThread());
}

// Holds the bus lock for a scope.
class BusLock {
 public:
  BusLock() noexcept { FAST_LOCK(); }
  ~BusLock() { FAST_UNLOCK(); }
  BusLock(const BusLock&) = delete;
  BusLock& operator=(const BusLock&) = delete;
};

// Gives the bus lock back completely for a scope and takes it again to the same depth: the bracket
// around every call into a provider or a connection. Pointers into a database are dead after it.
class BusRelease {
 public:
  BusRelease() noexcept : depth_(fastLock.ReleaseAll()) {}
  ~BusRelease() { fastLock.Reacquire(depth_); }
  BusRelease(const BusRelease&) = delete;
  BusRelease& operator=(const BusRelease&) = delete;

 private:
  u32 depth_;
};

}  // namespace zn
