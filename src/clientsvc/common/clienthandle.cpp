// Client handles: see the header.
#include "clientsvc/common/clienthandle.h"

#include <cstddef>

#include "support/common/handle.h"
#include "support/common/sync.h"

namespace zn {

namespace {

static_assert(sizeof(ClientHandle) == sizeof(ZnHandleRecord) &&
                  offsetof(ClientHandle, magic) == offsetof(ZnHandleRecord, tag) &&
                  offsetof(ClientHandle, state) == offsetof(ZnHandleRecord, state) &&
                  offsetof(ClientHandle, session) == offsetof(ZnHandleRecord, thing),
              "the public record is the arena's");

[[nodiscard]] ZnHandle RecordOf(const ClientHandle* handle) noexcept {
  return reinterpret_cast<ZnHandle>(const_cast<ClientHandle*>(handle));
}

Mutex closingMutex;

}  // namespace

ClientHandle* MakeClientHandle(void* session) noexcept {
  auto* handle = reinterpret_cast<ClientHandle*>(AllocateHandle(ZN_CLIENT_MAGIC, session));
  if (handle != nullptr) SetClientState(handle, ZN_CLIENT_CREATED);
  return handle;
}

void FreeClientHandle(ClientHandle* handle) noexcept {
  static_cast<void>(FreeHandle(RecordOf(handle), ZN_CLIENT_MAGIC));
}

bool IsClientHandle(const ClientHandle* handle) noexcept {
  return IsValidHandle(RecordOf(handle), ZN_CLIENT_MAGIC);
}

u32 ClientState(const ClientHandle* handle) noexcept {
  return RecordOf(handle)->state.load();
}

void SetClientState(ClientHandle* handle, u32 state) noexcept {
  RecordOf(handle)->state.store(state);
}

bool MarkLoggedOn(ClientHandle* handle) noexcept {
  u32 state = ZN_CLIENT_CONNECTED;
  return RecordOf(handle)->state.compare_exchange_strong(state, ZN_CLIENT_LOGGED_ON) ||
         state == ZN_CLIENT_LOGGED_ON;
}

const void* ClientSessionOf(const ClientHandle* handle) noexcept {
  return HandleThing<void>(RecordOf(handle));
}

bool TakeForClosing(ClientHandle* handle) noexcept {
  const MutexLock lock(closingMutex);
  if (!IsClientHandle(handle)) return false;
  return RecordOf(handle)->state.exchange(ZN_CLIENT_CLOSED) != ZN_CLIENT_CLOSED;
}

}  // namespace zn
