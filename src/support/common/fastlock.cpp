// The two process-wide locks.
#include "support/common/fastlock.h"

namespace zn {

// Constant-initialised and never destroyed before the process ends: any static may use them.
constinit RecursiveLock fastLock;
constinit RecursiveLock databaseLock;

}  // namespace zn
