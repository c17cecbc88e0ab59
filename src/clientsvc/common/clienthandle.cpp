// Client handles: see the header.
#include "clientsvc/common/clienthandle.h"

#include <atomic>
#include <cstddef>

#include "support/common/handle.h"
#include "support/common/sync.h"

namespace zn {

namespace {

static_assert(sizeof(ClientHandle) <= sizeof(ZnHandleRecord) &&
                  offsetof(ClientHandle, magic) == offsetof(ZnHandleRecord, tag) &&
                  offsetof(ClientHandle, session) == offsetof(ZnHandleRecord, thing) &&
                  offsetof(ClientHandle, state) >= sizeof(u32),
              "the public record is the arena's");

[[nodiscard]] ZnHandle RecordOf(const ClientHandle* handle) noexcept {
  return reinterpret_cast<ZnHandle>(const_cast<ClientHandle*>(handle));
}

[[nodiscard]] std::atomic_ref<u32> StateOf(const ClientHandle* handle) noexcept {
  return std::atomic_ref<u32>(const_cast<ClientHandle*>(handle)->state);
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
  return StateOf(handle).load();
}

void SetClientState(ClientHandle* handle, u32 state) noexcept {
  StateOf(handle).store(state);
}

const void* ClientSessionOf(const ClientHandle* handle) noexcept {
  return HandleThing<void>(RecordOf(handle));
}

bool TakeForClosing(ClientHandle* handle) noexcept {
  const MutexLock lock(closingMutex);
  if (!IsClientHandle(handle)) return false;
  return StateOf(handle).exchange(ZN_CLIENT_CLOSED) != ZN_CLIENT_CLOSED;
}

}  // namespace zn
