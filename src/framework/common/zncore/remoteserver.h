// The server's side of client copies: a request for objects, providers or types becomes a
// marshalled set of them. Whole types may be asked for, a hundred thousand objects in one answer,
// so they are written straight to the answer's stream and never stand in memory a second time.
#pragma once

#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstream/znstream.h"
#include "zn/types.h"

namespace zn {

class Database;
class DBNode;

// Appends the bytes of the set that Database::MarshalObject makes. Under FAST_LOCK.
void WriteObject(const Database& database, const DBNode& object, BinaryWriter& stream);

// Serves a cache request: appends the marshalled set that the client installs, with the one list
// "Objects", "Providers" or "Types", which may be empty. A null handle is the system database.
// Takes the bus lock for all of it.
//
// ZNE_INVALID_ARGUMENTS for a request that lacks a property, has one of another type or asks by no
// known criterion, and for an unknown type; the failures of Database::Query; ZNE_OUT_OF_MEMORY.
// What a failure has appended is the caller's to cut off.
[[nodiscard]] u32 DbRemoteCacheRequest(ZnHandle hDb, const PropertySet& request,
                                       BinaryWriter& reply) noexcept;

}  // namespace zn
