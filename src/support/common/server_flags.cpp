// The server's flags: one word under the bus lock.
#include "support/common/fastlock.h"
#include "zn/init.h"

namespace {
u32 serverFlags = 0;  // under FAST_LOCK
}

extern "C" {

u32 ZnGetServerFlags(void) {
  const zn::BusLock lock;
  return serverFlags;
}

u32 ZnSetServerFlags(u32 flags) {
  const zn::BusLock lock;
  const u32 old = serverFlags;
  serverFlags = flags;
  return old;
}

}  // extern "C"
