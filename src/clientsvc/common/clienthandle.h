// The records behind ClientHandle are records of the arena of handles, so that the check of a stale
// one touches no freed memory and ZnFree knows them.
#pragma once

#include "zn/client.h"

namespace zn {

// In the state "created"; null when memory is short.
[[nodiscard]] ClientHandle* MakeClientHandle(void* session) noexcept;
// No effect on one that is freed.
void FreeClientHandle(ClientHandle* handle) noexcept;
[[nodiscard]] bool IsClientHandle(const ClientHandle* handle) noexcept;

// The handle has been checked.
[[nodiscard]] u32 ClientState(const ClientHandle* handle) noexcept;
void SetClientState(ClientHandle* handle, u32 state) noexcept;
// From connected to logged on; true for one that is logged on already, false for one that was
// closed meanwhile and stays so.
[[nodiscard]] bool MarkLoggedOn(ClientHandle* handle) noexcept;
[[nodiscard]] const void* ClientSessionOf(const ClientHandle* handle) noexcept;

// Marks a good handle that is not closed as closed; of two callers one gets it.
[[nodiscard]] bool TakeForClosing(ClientHandle* handle) noexcept;

}  // namespace zn
