// The guarded section around every slot of a provider: the bus lock is given back, the slot runs,
// whatever it throws becomes a status, the lock is taken again to the same depth. The library of
// the provider is held meanwhile, so that neither its code nor the exception it threw can be
// unmapped under the guard.
#include "framework/common/znprov/provider.h"

#include <chrono>
#include <utility>

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/task.h"
#include "support/common/fastlock.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "zn/memory.h"

namespace zn {

namespace {

// Under FAST_LOCK.
u32 callsInProgress = 0;
bool shuttingDown = false;

// Wakes the stop that waits for the last call.
struct DrainSignal {
  Mutex mutex;
  Condition ended;
  bool drained ZN_GUARDED_BY(mutex) = false;
};
DrainSignal& Drain() noexcept {
  static DrainSignal& signal = *new DrainSignal;  // a late call may end after the statics are gone
  return signal;
}

void SignalDrained() noexcept {
  DrainSignal& signal = Drain();
  {
    const MutexLock lock(signal.mutex);
    signal.drained = true;
  }
  signal.ended.NotifyAll();
}

// Runs a slot with the bus lock released. `library` is the caller's own reference; it may be the
// last one, and unloading runs code of the provider, so it goes before the lock is taken again.
template <typename Slot>
u32 RunSlot(std::shared_ptr<void> library, Slot&& slot) noexcept {
  const BusRelease release;
  const std::shared_ptr<void> hold = std::move(library);
  try {
    return slot();
  } catch (...) {
    return ZNE_PROVIDER_ACCESS_VIOLATED;
  }
}

// A built-in provider keeps two slots alone: it is part of the library and is neither initialised
// nor shut down.
ProviderCallbacks SlotsToKeep(const ProviderCallbacks& callbacks, bool isBuiltIn) noexcept {
  if (!isBuiltIn) return callbacks;
  ProviderCallbacks kept{};
  kept.Call = callbacks.Call;
  kept.Event = callbacks.Event;
  return kept;
}

}  // namespace

Provider::Provider(Database* database, TypeObject* type, std::u16string_view name,
                   const ProviderCallbacks& callbacks, std::shared_ptr<void> library,
                   bool isBuiltIn)
    : BaseObject(InternedId::Generate(), type, 0),
      database_(database),
      handle_(HANDLE_PROVIDER, this),
      name_(name),
      callbacks_(SlotsToKeep(callbacks, isBuiltIn)),
      library_(std::move(library)),
      isBuiltIn_(isBuiltIn) {}

Provider::~Provider() {
  handle_.Reset();
  ForgetTasksOf(GetId());
  library_.reset();  // with the last reference the library goes, and the lock is released for it
}

void Provider::SetExtensions(std::string_view clientExtension, std::string_view messageCatalog) {
  clientExtension_ = clientExtension;
  messageCatalog_ = messageCatalog;
}

u32 Provider::Call(const ProviderCallArguments& call, const ObjectId& taskId,
                   ZnHandle* answeringProvider) {
  const auto slot = callbacks_.Call;
  if (slot == nullptr) return ZNE_NOT_IMPLEMENTED;
  const BusLock lock;
  if (shuttingDown) return ZNE_SHUTDOWN_STARTED;
  ++callsInProgress;
  const u32 status = RunSlot(library_, [&] {
    return slot(call.object, call.majorCode, call.minorCode, call.in, call.out, call.flags,
                call.reserved, call.context, call.callback, call.interfaceId, &taskId,
                answeringProvider);
  });
  if (--callsInProgress == 0 && shuttingDown) SignalDrained();
  return status;
}

u32 Provider::Initialize() {
  const auto slot = callbacks_.Initialize;
  if (slot == nullptr) return ZNE_NOT_IMPLEMENTED;
  const ZnHandle database = database_->Handle();
  const ZnHandle self = Handle();
  return RunSlot(library_, [&] { return slot(database, self, 0, 0); });
}

u32 Provider::Shutdown() {
  const auto slot = callbacks_.Shutdown;
  if (slot == nullptr) return ZNE_NOT_IMPLEMENTED;
  const ZnHandle database = database_->Handle();
  return RunSlot(library_, [&] { return slot(database); });
}

u32 Provider::SendEvent(const EventRecord* event) {
  const BusLock lock;
  const auto slot = callbacks_.Event;
  if (slot == nullptr) return ZNE_NOT_IMPLEMENTED;
  return RunSlot(library_, [&] { return slot(event); });
}

WideString Provider::GetVersion() {
  const auto slot = callbacks_.GetVersion;
  if (!IsGoodPointer(reinterpret_cast<const void*>(slot))) return {};
  ZnWChar* text = nullptr;
  const u32 status = RunSlot(library_, [&] { return slot(&text); });
  // What the slot answers says nothing: the text alone counts.
  if (status == ZNE_PROVIDER_ACCESS_VIOLATED || !IsGoodString(text, kMaxTypeLength)) return {};
  WideString version(text);
  ZnFree(text);
  return version;
}

u32 CallsInProgress() noexcept {
  return callsInProgress;
}

void SetShuttingDown(bool stopping) noexcept {
  const BusLock lock;
  shuttingDown = stopping;
}

bool IsShuttingDown() noexcept {
  return shuttingDown;
}

void WaitForCallsToEnd() noexcept {
  constexpr std::chrono::milliseconds kLookAgain{1000};
  DrainSignal& signal = Drain();
  while (callsInProgress != 0) {
    const BusRelease release;
    const auto limit = std::chrono::steady_clock::now() + kLookAgain;
    const MutexLock lock(signal.mutex);
    while (!signal.drained && signal.ended.WaitUntil(signal.mutex, limit)) {
    }
    signal.drained = false;
  }
}

}  // namespace zn
