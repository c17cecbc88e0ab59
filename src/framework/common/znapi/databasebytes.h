// A private database as a block of bytes: the frames of two calls that the library makes itself and
// does not export. In a property the same content travels as a value (zncore/database_value.h).
#pragma once

#include "zn/types.h"

namespace zn {

// The id, types and objects of a private database, hidden objects and relations to them left out,
// as the stream form of one property set. The block is the caller's, who frees it with ZnFree.
// ZNE_INVALID_ARGUMENTS, also for a database that is not private; ZNW_SHMEM_LOGIN_FAILED;
// ZNE_OUT_OF_MEMORY.
[[nodiscard]] u32 DbMarshalPrivateDatabase(ZnHandle hDb, u32* outLength, void** outData) noexcept;

// Reads such a block into a private database, which takes the id and the types over and the objects
// that it does not hold yet. It is meant for one that is new: after a failure it has what was read
// before. The statuses above, ZNE_UNEXPECTED for bytes that are no property set, and those of
// UnmarshalDatabase.
[[nodiscard]] u32 DbUnmarshalPrivateDatabase(ZnHandle hDb, u32 length, const void* data) noexcept;

}  // namespace zn
