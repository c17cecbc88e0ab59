// Databases: groups, update sequences, lists of objects, private databases, the advisory lock.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znapi/apiresult.h"
#include "framework/common/zncore/database.h"
#include "support/common/fastlock.h"
#include "zn/db.h"

namespace zn {

namespace {

// Update sequences that are open, of whatever database. Under FAST_LOCK.
constinit u32 openSequences = 0;

constexpr const char* kUserGroupType = "KELD_GenericGroup";

u32 ReadContainedTypes(const ApiFrame& frame, u32 count, const char** types,
                       std::vector<std::string>* out) {
  for (u32 i = 0; i < count; ++i) {
    if (!IsTypeName(types[i])) return frame.Refuse("Invalid contained type string");
    out->emplace_back(types[i]);
  }
  return ZN_OK;
}

// The types of a private database: those of the system database, with their ids, or the base types
// where there is none.
u32 FillPrivateTypes(Database& database) {
  Database* system = ZnGetSystemDatabase();
  if (system == nullptr) return RegisterBaseObjectTypes(database);
  CopyTypes(*system, database);
  return ZN_OK;
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 DbCreateGroupNode(ZnHandle hDb, u32 typeCount, const char** types, u32 flags,
                      const ZnWChar* name, ObjectId* out) {
  return ApiCall("DbCreateGroupNode", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && typeCount != 0 &&
                                    IsGoodPointer(types) && IsGoodPointer(name) &&
                                    IsGoodPointer(out)));
    const u32 visibility = VisibilityFlags(flags);
    if (visibility == 0 && flags != 0) return frame.Refuse("Invalid flags specified");
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    std::vector<std::string> containedTypes;
    ZN_RETURN_IF_FAILED(ReadContainedTypes(frame, typeCount, types, &containedTypes));

    const u32 kind = database->IsLocal() ? OBJECT_GROUP_SERVER : OBJECT_GROUP_CLIENT;
    DBNode* node = nullptr;
    const u32 status = database->CreateGroup(name, containedTypes, kUserGroupType, nullptr,
                                             visibility | kind, &node);
    if (node != nullptr) *out = node->Guid();
    return status;
  });
}

u32 DbDeleteGroupNode(ZnHandle hDb, const ZnWChar* name) {
  return ApiCall("DbDeleteGroupNode", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(name)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    DBNode* node = nullptr;
    ZN_RETURN_IF_FAILED(database->RemoveGroup(name, &node));
    database->DeleteNode(node);
    return ZN_OK;
  });
}

u32 DbUpdateSequenceStart(ZnHandle hDb, u32 reserved) {
  return ApiCall("DbUpdateSequenceStart", [&](ApiFrame& frame) -> u32 {
    ++openSequences;  // Contract: before any check, so that a refused start still lets one finish
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && reserved == 0));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    database->BeginUpdateSequence();
    return ZN_OK;
  });
}

u32 DbUpdateSequenceFinish(ZnHandle hDb, u32) {
  return ApiCall("DbUpdateSequenceFinish", [&](ApiFrame& frame) -> u32 {
    if (openSequences == 0) return ZN_OK;  // Contract: for any handle, also a bad one
    --openSequences;
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    database->EndUpdateSequence();
    return ZN_OK;
  });
}

u32 DbGetObjects(ZnHandle hDb, const char* type, u32* count, ObjectId** out) {
  return ApiCall("DbGetObjects", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(
        frame.Check(IsDatabaseHandle(hDb) && IsTypeNameOrNull(type) && AreListOutputs(count, out)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    const std::string_view name = TypeNameOrRoot(type);
    std::vector<ObjectId> ids;
    ZN_RETURN_IF_FAILED(database->GetObjectsOfType(name.empty() ? kRootTypeName : name, &ids));
    return ListToCaller(ids, count, out);
  });
}

u32 DbGetObjectsByQuery(ZnHandle hDb, const ZnWChar* query, u32* count, ObjectId** out) {
  return ApiCall("DbGetObjectsByQuery", [&](ApiFrame& frame) -> u32 {
    // Contract: a null text passes the check, and is no query: it fails without a trace.
    const bool isText = query == nullptr || IsGoodString(query, kMaxTypeLength);
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && isText && AreListOutputs(count, out)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    std::vector<ObjectId> ids;
    ZN_RETURN_IF_FAILED(database->Query(query == nullptr ? std::u16string_view() : query, &ids));
    return ListToCaller(ids, count, out);
  });
}

u32 DbGetObjectsWithInterface(ZnHandle hDb, const char* type, const GUID* interfaceId, u32* count,
                              ObjectId** out) {
  return ApiCall("DbGetObjectsWithInterface", [&](ApiFrame& frame) -> u32 {
    // The type name is not checked: what cannot be one stands for every type.
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(interfaceId) &&
                                    AreListOutputs(count, out)));
    *count = 0;
    *out = nullptr;
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    const std::string_view name = IsGoodPointer(type) ? std::string_view(type) : kRootTypeName;
    std::vector<ObjectId> ids;
    ZN_RETURN_IF_FAILED(database->GetObjectsWithInterface(name, *interfaceId, &ids));
    return ListToCaller(ids, count, out);
  });
}

u32 DbCreatePrivateDatabase(ZnHandle* out) {
  return ApiCall("DbCreatePrivateDatabase", {.entry = false, .exit = false}, [&](ApiFrame&) -> u32 {
    if (!IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
    auto database = std::make_unique<Database>(0, DatabaseCallbacks{});
    if (database->Handle() == nullptr) return ZNE_OUT_OF_MEMORY;
    database->SetFlags(database->Flags() | DB_PRIVATE);
    ZN_RETURN_IF_FAILED(FillPrivateTypes(*database));
    *out = database->Handle();
    static_cast<void>(database.release());  // its handle owns it from here
    return ZN_OK;
  });
}

u32 DbDeletePrivateDatabase(ZnHandle hDb) {
  return ApiCall("DbDeletePrivateDatabase", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsValidHandle(hDb, HANDLE_DATABASE)));
    auto* database = HandleThing<Database>(hDb);
    if (database == nullptr) return frame.Refuse("Invalid database");
    if ((database->Flags() & DB_PRIVATE) == 0) {
      return frame.Refuse("Trying to delete non-private database");
    }
    // The destructor releases the lock around provider calls, with the handle still good: without
    // the flag a second deletion is refused meanwhile.
    database->SetFlags(database->Flags() & ~DB_PRIVATE);
    delete database;
    return ZN_OK;
  });
}

// One advisory lock for the whole process; the handle is never looked at.
void DbLockDatabase(ZnHandle) {
  databaseLock.Lock();
}

void DbUnlockDatabase(ZnHandle) {
  databaseLock.Unlock();
}

}  // extern "C"
