// Client copies as the client service handles them: making and deleting, what the server tells, and
// the loss of the server. A copy is a Database with a way to its server (DatabaseCallbacks); it is
// named by its handle, since it may be gone at any time the bus lock is free. Every call takes the
// bus lock itself.
#pragma once

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/databaseref.h"
#include "zn/types.h"

namespace zn {

// A new copy in the list of databases, not logged on; null when memory is short.
[[nodiscard]] ZnHandle CreateClientCopy(const DatabaseCallbacks& callbacks) noexcept;

// Refuses further calls, waits for the requests under way (whose connection the caller has ended),
// deletes the copy. False when there is no such copy, or somebody else deletes it.
bool DeleteClientCopy(ZnHandle handle) noexcept;

// Whether the copy's session has logged on. False when the copy is gone.
bool SetLoggedOn(ZnHandle handle, bool isLoggedOn) noexcept;

// The server has gone: the provider objects go, last to first, each shut down with the lock
// released.
void TellServerGone(ZnHandle handle) noexcept;
// The same for any database, which may be deleted meanwhile. Under FAST_LOCK.
void UnloadProvidersOf(const DatabaseRef& reference) noexcept;

// One change or batch from the server, with the exported calls' frame but without their traces of
// entry and exit. The set is used up.
[[nodiscard]] u32 DbUpdateCache(ZnHandle hDb, PropertySet& record) noexcept;

// An event that the server raised, as its message tells it: "Flags", "NotificationId",
// "ProviderId", "Data". Queued for the listeners of this process.
// ZNE_PROVIDER_REG_NO_PROVIDERS for a provider that is not here.
[[nodiscard]] u32 RaiseServerEvent(ZnHandle hDb, PropertySet& message) noexcept;

}  // namespace zn
