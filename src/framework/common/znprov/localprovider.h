// Providers without a library: a program, or another provider, that registers a callback table of
// its own.
#pragma once

#include <string_view>

#include "framework/common/znprov/provider.h"

namespace zn {

// Makes the provider object and runs its Initialize, if the table has one, with the bus lock
// released. Failure leaves neither the provider nor objects of it: ZNE_TYPE_NOT_FOUND on a database
// without KELD_Provider, or what Initialize answers. Under FAST_LOCK.
[[nodiscard]] u32 AddLocalProvider(Database& database, std::u16string_view name,
                                   const ProviderCallbacks& callbacks, ZnHandle* out);

// Makes a provider object and enters it in the list. Null where KELD_Provider is unknown. Under
// FAST_LOCK.
[[nodiscard]] Provider* AddProviderObject(Database& database, std::u16string_view name,
                                          const ProviderCallbacks& callbacks,
                                          std::shared_ptr<void> library, bool isBuiltIn);

// Makes the provider a child of the groups that say they contain providers. It lives outside the
// object table, so the group's end alone knows of the relation. Under FAST_LOCK.
void EnterInGroups(Database& database, const Provider& provider);

// Deletes a provider with every object it owns, its tasks among them, without running its Shutdown.
// No effect for a handle that is none. Under FAST_LOCK.
void DiscardProvider(Database& database, ZnHandle provider) noexcept;

}  // namespace zn
