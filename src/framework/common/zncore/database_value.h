// A private database as a value: the property set that stands for it. Under FAST_LOCK.
#pragma once

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

class Database;

// The content of a private database as a set; false for any other handle.
[[nodiscard]] bool MarshalPrivateDatabase(ZnHandle handle, PropertySet* out);
// Gives the database the id, types and objects of the set; objects that it holds already stay.
// ZNE_INVALID_ARGUMENTS for a set of another shape, or the failure of a type or object.
[[nodiscard]] u32 UnmarshalDatabase(const PropertySet& set, Database& database);
// A new private database with the content of the set. The statuses of UnmarshalDatabase, and
// ZNE_OUT_OF_MEMORY.
[[nodiscard]] u32 UnmarshalPrivateDatabase(const PropertySet& set, ZnHandle* out);

}  // namespace zn
