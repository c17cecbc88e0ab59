// Wait events: a caller sleeps until a predicate of its own accepts an event. The entry lies in the
// registry of the database, the handle that the caller holds names the event it sleeps on.
#include <algorithm>
#include <cstdint>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/status.h"
#include "zn/platform.h"

namespace zn {

namespace {

// In the handle of a wait event whose wait is over.
void* ConsumedEvent() noexcept {
  return reinterpret_cast<void*>(UINTPTR_MAX);
}

// The entry that sleeps on the event, sought from the end, or null.
WaitEntry* FindWait(std::vector<WaitEntry>& waits, ZnHandle event) noexcept {
  const auto found = std::find_if(waits.rbegin(), waits.rend(),
                                  [event](const WaitEntry& w) { return w.event == event; });
  return found == waits.rend() ? nullptr : &*found;
}

// Ends the one wait that the handle is good for, unless another thread has done so or the database
// has gone meanwhile.
void ConsumeWait(ZnHandle database, ZnHandle waitHandle, ZnHandle event) noexcept {
  if (!IsValidHandle(database, HANDLE_DATABASE)) return;
  std::vector<WaitEntry>& waits = HandleThing<Database>(database)->Events().Waits();
  WaitEntry* const entry = FindWait(waits, event);
  if (entry == nullptr) return;
  static_cast<void>(ZnCloseEvent(event));
  waits.erase(waits.begin() + (entry - waits.data()));
  if (IsValidHandle(waitHandle, HANDLE_EVENT) && HandleThing<void>(waitHandle) == event) {
    waitHandle->thing = ConsumedEvent();
  }
}

}  // namespace

u32 CreateWaitEvent(Database& database, bool (*predicate)(const EventRecord*, void*), void* context,
                    ZnHandle* out) {
  AssertBusLocked();
  std::vector<WaitEntry>& waits = database.Events().Waits();
  waits.reserve(waits.size() + 1);  // first, so that nothing needs undoing when it fails
  const ZnHandle event = ZnCreateEvent(1, 0);
  if (event == nullptr) return ZNE_UNEXPECTED;
  const ZnHandle handle = AllocateHandle(HANDLE_EVENT, event);
  if (handle == nullptr) {
    static_cast<void>(ZnCloseEvent(event));
    return ZNE_OUT_OF_MEMORY;
  }
  waits.push_back({event, predicate, context});
  *out = handle;
  return ZN_OK;
}

u32 WaitForEvent(Database& database, ZnHandle waitHandle, u32 timeoutMs) {
  AssertBusLocked();
  const ZnHandle databaseHandle = database.Handle();
  const ZnHandle event = static_cast<ZnHandle>(HandleThing<void>(waitHandle));
  const bool found = FindWait(database.Events().Waits(), event) != nullptr;
  const u32 depth = fastLock.ReleaseAll();
  // Contract: without an entry the lock stays released. The frame's unlock then finds a lock that
  // is not held, which does nothing; a caller that held it outside has lost it.
  if (!found) return ZNE_EVENT_NOT_FOUND;
  // How the wait ended is not looked at: a time-out consumes the handle like a signal.
  static_cast<void>(ZnWaitForEvent(event, timeoutMs));
  fastLock.Reacquire(depth);
  ConsumeWait(databaseHandle, waitHandle, event);
  return ZN_OK;
}

}  // namespace zn
