// Stop of a server. The order follows the flow of data: first no more calls, then the threads that
// tell of changes, then the providers, then the databases.
#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "zn/init.h"
#include "zn/trace.h"

namespace zn {
namespace {

void EndCalls() noexcept {
  const BusLock lock;
  SetShuttingDown(true);
  WaitForCallsToEnd();
}

[[nodiscard]] bool HasSystemDatabase() noexcept {
  const BusLock lock;
  return ZnGetSystemDatabase() != nullptr;
}

}  // namespace
}  // namespace zn

extern "C" u32 ShutdownServer(void) {
  zn::EndCalls();
  if (zn::HasSystemDatabase()) zn::StopFramework(zn::LibraryLife::kEnds);
  ZnTraceClose();
  return ZN_OK;
}
