// Start and stop of the client side, counted.
#include <memory>
#include <vector>

#include "clientsvc/common/clientsession.h"
#include "clientsvc/common/csmanager.h"
#include "clientsvc/common/discovery.h"
#include "clientsvc/common/watchdog.h"
#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/database.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "ucl/common/ucl.h"
#include "zn/client.h"

namespace zn {

namespace {

Mutex countMutex;
u64 startups ZN_GUARDED_BY(countMutex) = 0;

[[nodiscard]] u32 Start() {
  if (!StartFramework(0)) return ZNE_UNEXPECTED;
  return UCLStartup();
}

// In a process that hosts the system database that one stays, and its threads with it.
void StopFrameworkOfClient() noexcept {
  bool isHost = false;
  {
    const BusLock lock;
    isHost = ZnGetSystemDatabase() != nullptr;
  }
  if (!isHost) StopFramework(LibraryLife::kGoesOn);
}

void Stop() {
  StopDiscovery();
  CSManagerShutdown();
  // Whoever still waits for a server stops waiting, so that the copies can go.
  for (const std::shared_ptr<ClientSession>& session : SessionList::Instance().All()) {
    session->StopConnection();
  }
  WatchdogTimer::Instance().Stop();
  StopFrameworkOfClient();
  UCLCleanup();
}

}  // namespace

}  // namespace zn

extern "C" {

using namespace zn;

// The lock is held while the work is done: a second caller finds it done.
u32 ClStartup(void) {
  const MutexLock lock(countMutex);
  if (++startups != 1) return ZN_OK;
  const u32 status = Start();
  if (ZN_FAILED(status)) --startups;
  return status;
}

u32 ClShutdown(void) {
  const MutexLock lock(countMutex);
  if (--startups == 0) Stop();
  return ZN_OK;
}

}  // extern "C"
