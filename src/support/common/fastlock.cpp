// The two process-wide locks and the thread number they know their owner by.
#include "support/common/fastlock.h"

namespace zn {

constinit thread_local u32 cachedThreadId __attribute__((tls_model("initial-exec"))) = 0;

// Constant-initialised and never destroyed before the process ends: any static may use them.
constinit RecursiveLock fastLock;
constinit RecursiveLock databaseLock;

}  // namespace zn
