// A private database as a value: the property set that stands for it. Under FAST_LOCK.
#pragma once

#include <string_view>
#include <vector>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

class Database;

// The content of a database as a set: id, types, and the objects that are not hidden.
void MarshalDatabase(Database& database, PropertySet* out);
// The same for the handle of a private database; false for any other handle.
[[nodiscard]] bool MarshalPrivateDatabase(ZnHandle handle, PropertySet* out);
// Gives the database the id, types and objects of the set; objects that it holds already stay.
// ZNE_INVALID_ARGUMENTS for a set of another shape, or the failure of a type or object.
[[nodiscard]] u32 UnmarshalDatabase(const PropertySet& set, Database& database);
// A new private database with the content of the set. The statuses of UnmarshalDatabase, and
// ZNE_OUT_OF_MEMORY.
[[nodiscard]] u32 UnmarshalPrivateDatabase(const PropertySet& set, ZnHandle* out);

// The elements of a list of sets, whichever tag of a set they have; null when there is none.
[[nodiscard]] const std::vector<Value>* FindSetList(const PropertySet& set,
                                                    std::string_view name) noexcept;

}  // namespace zn
