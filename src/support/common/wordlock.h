// A plain lock of one word, inline where nobody else wants it, for the few places that every call
// passes: the bus lock stands on one, and so does the arena of handles. Elsewhere Mutex (sync.h).
#pragma once

#include <atomic>

#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

// 0 free, 1 held, 2 held and perhaps waited for.
class ZN_CAPABILITY("mutex") WordLock {
 public:
  constexpr WordLock() = default;
  WordLock(const WordLock&) = delete;
  WordLock& operator=(const WordLock&) = delete;

  void Lock() noexcept ZN_ACQUIRE() ZN_NO_THREAD_SAFETY_ANALYSIS {
    u32 expected = 0;
    if (word_.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
      return;
    }
    LockSlowly();
  }
  void Unlock() noexcept ZN_RELEASE() ZN_NO_THREAD_SAFETY_ANALYSIS {
    if (word_.exchange(0, std::memory_order_release) == 2) word_.notify_one();
  }

 private:
  void LockSlowly() noexcept;

  std::atomic<u32> word_{0};
};

class ZN_SCOPED_CAPABILITY WordLockHold {
 public:
  explicit WordLockHold(WordLock& lock) noexcept ZN_ACQUIRE(lock) : lock_(lock) { lock_.Lock(); }
  ~WordLockHold() ZN_RELEASE() { lock_.Unlock(); }
  WordLockHold(const WordLockHold&) = delete;
  WordLockHold& operator=(const WordLockHold&) = delete;

 private:
  WordLock& lock_;
};

}  // namespace zn
