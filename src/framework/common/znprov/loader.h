// Loads the providers of the settings into the system database, group by group, honouring their
// dependencies. A provider that fails is recorded and the others go on; there is no second try
// before the next start. Under FAST_LOCK, which is released around all code of a provider's
// library.
#pragma once

#include "zn/types.h"

namespace zn {

class Database;

// Every group of the key "ProviderGroup" in its order, then the providers without a group.
//
// The start must stop on: ZNE_INVALID_ARGUMENTS for `reserved` other than 0,
// ZNE_PROVIDER_GROUP_REG_MISSING, ZNE_PROVIDER_REG_UNREADABLE without the key "Providers",
// ZNE_PROVIDER_GROUP_REG_DAMAGED, ZNE_PROVIDER_REG_CIRCULAR for a cycle of groups. A start goes on
// with ZNW_PROVIDERS_FAILED_TO_LOAD, which tells of damaged group keys alone: single providers that
// failed stand in the property FAILED_PROVIDERS of the provider "system".
[[nodiscard]] u32 LoadRegisteredProviders(Database& database, u32 reserved);

}  // namespace zn
