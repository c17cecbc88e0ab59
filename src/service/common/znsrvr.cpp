// Stop of a server. The order follows the flow of data: first no more calls, then the alert that
// everybody can still hear, then the threads that tell of changes, then the providers, then the
// databases.
#include "framework/common/znalert/alert.h"
#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/alert.h"
#include "zn/init.h"
#include "zn/pr.h"
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

[[nodiscard]] u32 RaiseServerAlert(const char* topic) noexcept {
  ZnHandle system = nullptr;
  ZN_RETURN_IF_FAILED(PrGetProviderByName(nullptr, kSystemProviderName.data(), &system));
  return ObRaiseAlert(nullptr, system, topic, nullptr, nullptr);
}

// The alert is worth nothing if the threads end before it is heard; a receiver that hangs holds the
// stop up no longer than any other thread does.
void AnnounceShutdown() noexcept {
  constexpr u32 kPatienceMs = 30000;
  if (RaiseServerAlert(kServerShutdownAlert) != ZN_OK) {
    ZN_TRACE(6, "ZnSvc:Failed to raise alert");
    return;
  }
  static_cast<void>(WaitForDelivery(kPatienceMs));
}

}  // namespace
}  // namespace zn

extern "C" u32 ShutdownServer(void) {
  zn::EndCalls();
  if (zn::HasSystemDatabase()) {
    zn::AnnounceShutdown();
    zn::StopFramework(zn::LibraryLife::kEnds);
  }
  ZnTraceClose();
  return ZN_OK;
}
