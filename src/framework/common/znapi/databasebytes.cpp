// The frames of the byte form of private databases. They trace no entry and no exit.
#include "framework/common/znapi/databasebytes.h"

#include "framework/common/znapi/apiframe.h"
#include "framework/common/zncore/database_value.h"

namespace zn {

namespace {

constexpr FrameTraces kRefusalsOnly{.entry = false, .exit = false};

u32 OpenPrivateDatabase(const ApiFrame& frame, ZnHandle handle, Database** out) noexcept {
  const Database* database =
      handle == nullptr ? ZnGetSystemDatabase() : HandleThing<Database>(handle);
  const bool isPrivate = database != nullptr && (database->Flags() & DB_PRIVATE) != 0;
  if (!isPrivate) return frame.Refuse("Invalid database");
  return frame.OpenDatabase(handle, out);
}

}  // namespace

u32 DbMarshalPrivateDatabase(ZnHandle hDb, u32* outLength, void** outData) noexcept {
  return ApiCall("DbMarshalPrivateDatabase", kRefusalsOnly, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(
        frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(outLength) && IsGoodPointer(outData)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(OpenPrivateDatabase(frame, hDb, &database));
    PropertySet set;
    MarshalDatabase(*database, &set);
    BinaryWriter stream;
    set.Marshal(stream);
    *outData = stream.Buffer().Take(outLength);
    return ZN_OK;
  });
}

u32 DbUnmarshalPrivateDatabase(ZnHandle hDb, u32 length, const void* data) noexcept {
  return ApiCall("DbUnmarshalPrivateDatabase", kRefusalsOnly, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(data)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(OpenPrivateDatabase(frame, hDb, &database));
    BinaryReader stream(data, length);
    PropertySet set;
    ZN_RETURN_IF_FAILED(set.Unmarshal(stream));
    return UnmarshalDatabase(set, *database);
  });
}

}  // namespace zn
