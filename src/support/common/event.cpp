// Events: a flag to wait for. Their states are, like the handle records, type-stable: a closed
// event's state goes to a free list and never back to the heap, so a call with a stale handle finds
// a state that does not know it instead of freed memory. A state is reused only when nobody waits
// on it any more. Each state has a lock of its own; none of these is held with any other.
#include "support/common/event.h"

#include <chrono>
#include <new>

#include "support/common/handle.h"
#include "support/common/sync.h"
#include "zn/platform.h"

namespace zn {

namespace {

struct EventState {
  Mutex mutex;
  Condition changed;
  ZnHandle handle ZN_GUARDED_BY(mutex) = nullptr;  // whose state this is; null while free
  bool autoReset ZN_GUARDED_BY(mutex) = false;
  bool signalled ZN_GUARDED_BY(mutex) = false;
  u32 waiters ZN_GUARDED_BY(mutex) = 0;
  u32 releases ZN_GUARDED_BY(mutex) = 0;  // waiters let go but not awake yet; at most `waiters`
  u64 settings ZN_GUARDED_BY(mutex) =
      0;                           // how often it was set: a manual one lets go whoever waits
  EventState* nextFree = nullptr;  // under the free list's lock
};

struct FreeStates {
  Mutex mutex;
  EventState* first ZN_GUARDED_BY(mutex) = nullptr;
};

FreeStates& Free() noexcept {
  static FreeStates& states = *new FreeStates;  // never destroyed: threads may outlive the statics
  return states;
}

EventState* TakeState() noexcept {
  FreeStates& states = Free();
  {
    const MutexLock lock(states.mutex);
    if (EventState* state = states.first; state != nullptr) {
      states.first = state->nextFree;
      return state;
    }
  }
  return new (std::nothrow) EventState;
}

void GiveStateBack(EventState* state) noexcept {
  FreeStates& states = Free();
  const MutexLock lock(states.mutex);
  state->nextFree = states.first;
  states.first = state;
}

// The state of a live event handle, or null. What it says is good only after the caller has found
// its own handle in it under its lock.
EventState* FindState(ZnHandle event) noexcept {
  return LiveHandleThing<EventState>(event, kEventTag);
}

// Runs `act` on the state of a live event under its lock; false when the handle is none. The
// analysis cannot match the lock of a lambda's argument here; the lambdas name it and are checked
// themselves.
template <typename Act>
bool WithState(ZnHandle event, Act&& act) noexcept ZN_NO_THREAD_SAFETY_ANALYSIS {
  EventState* state = FindState(event);
  if (state == nullptr) return false;
  const MutexLock lock(state->mutex);
  if (state->handle != event) return false;
  act(*state);
  return true;
}

using Clock = std::chrono::steady_clock;

// Whether a waiter that came when the event had been set `settingsAtEntry` times may go.
bool MayGo(const EventState& state, u64 settingsAtEntry) noexcept ZN_REQUIRES(state.mutex) {
  if (state.autoReset) return state.signalled || state.releases > 0;
  return state.signalled || state.settings != settingsAtEntry;
}

// Waits until the event is signalled, closed or out of time; the caller holds the state's lock. A
// waiter that was there when the event was set goes, even if the event is reset before it runs.
u32 WaitLocked(EventState& state, ZnHandle event, u32 timeoutMs) noexcept ZN_REQUIRES(state.mutex) {
  const bool forever = timeoutMs == kWaitForever;
  const auto limit =
      forever ? Clock::time_point() : Clock::now() + std::chrono::milliseconds(timeoutMs);
  const u64 settingsAtEntry = state.settings;
  ++state.waiters;
  bool inTime = timeoutMs != 0;
  while (state.handle == event && !MayGo(state, settingsAtEntry) && inTime) {
    if (forever) {
      state.changed.Wait(state.mutex);
    } else {
      inTime = state.changed.WaitUntil(state.mutex, limit);
    }
  }
  --state.waiters;
  if (state.handle != event) return kWaitFailed;
  if (!MayGo(state, settingsAtEntry)) return kWaitTimeout;
  if (!state.autoReset) return kWaitSignalled;
  if (state.releases > 0) {
    --state.releases;
  } else {
    state.signalled = false;
  }
  return kWaitSignalled;
}

}  // namespace

}  // namespace zn

extern "C" {

ZnHandle ZnCreateEvent(u8 autoReset, u8 initial) {
  zn::EventState* state = zn::TakeState();
  if (state == nullptr) return nullptr;
  ZnHandle event = zn::AllocateHandle(zn::kEventTag, state);
  if (event == nullptr) {
    zn::GiveStateBack(state);
    return nullptr;
  }
  const zn::MutexLock lock(state->mutex);
  state->handle = event;
  state->autoReset = autoReset != 0;
  state->signalled = initial != 0;
  return event;
}

bool ZnSetEvent(ZnHandle event) {
  return zn::WithState(event, [](zn::EventState& state) ZN_REQUIRES(state.mutex) {
    ++state.settings;
    if (!state.autoReset) {
      state.signalled = true;
      if (state.waiters > 0) state.changed.NotifyAll();
    } else if (state.releases < state.waiters) {
      ++state.releases;
      state.changed.NotifyOne();
    } else {
      state.signalled = true;
    }
  });
}

bool ZnResetEvent(ZnHandle event) {
  return zn::WithState(
      event, [](zn::EventState& state) ZN_REQUIRES(state.mutex) { state.signalled = false; });
}

bool ZnCloseEvent(ZnHandle event) {
  void* thing = nullptr;
  if (!zn::FreeHandle(event, zn::kEventTag, &thing)) return false;
  auto* state = static_cast<zn::EventState*>(thing);
  bool unused = false;
  {
    const zn::MutexLock lock(state->mutex);
    state->handle = nullptr;
    state->signalled = false;
    state->releases = 0;
    unused = state->waiters == 0;
    if (!unused) state->changed.NotifyAll();
  }
  if (unused) zn::GiveStateBack(state);
  return true;
}

u32 ZnWaitForEvent(ZnHandle event, u32 timeoutMs) {
  zn::EventState* state = zn::FindState(event);
  if (state == nullptr) return zn::kWaitFailed;
  u32 result = zn::kWaitFailed;
  bool lastOfClosed = false;
  {
    const zn::MutexLock lock(state->mutex);
    if (state->handle != event) return zn::kWaitFailed;
    result = zn::WaitLocked(*state, event, timeoutMs);
    lastOfClosed = state->handle == nullptr && state->waiters == 0;
  }
  if (lastOfClosed) zn::GiveStateBack(state);
  return result;
}

}  // extern "C"
