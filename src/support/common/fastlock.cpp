// The two process-wide locks and the thread number they know their owner by.
#include "support/common/fastlock.h"

namespace zn {

constinit thread_local u32 cachedThreadId __attribute__((tls_model("initial-exec"))) = 0;

void WordLock::LockSlowly() noexcept {
  // Whoever gets here takes the word as 2: it cannot tell whether it was the last to wait.
  while (word_.exchange(2, std::memory_order_acquire) != 0) {
    word_.wait(2, std::memory_order_relaxed);
  }
}

// Constant-initialised on this host and never destroyed before the process ends: any static may use
// them. Not constinit, since some hosts have a mutex that is made at start-up.
RecursiveLock fastLock;
RecursiveLock databaseLock;

}  // namespace zn
