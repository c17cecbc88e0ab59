// The slow side of the frame: refusals and the resolution of a database.
#include "framework/common/znapi/apiframe.h"

namespace zn {

u32 ApiFrame::Refuse(const char* why) const noexcept {
  ZN_TRACE(3, "ZnAPI:%s: %s", name_, why);
  return ZNE_INVALID_ARGUMENTS;
}

u32 ApiFrame::OpenDatabase(ZnHandle handle, Database** out) const noexcept {
  Database* database = handle == nullptr ? ZnGetSystemDatabase() : HandleThing<Database>(handle);
  if (database == nullptr) return Refuse("Invalid database");
  if (!database->IsAuthenticated()) {
    ZN_TRACE(3, "ZnAPI:%s: DB auth failed", name_);
    return ZNW_SHMEM_LOGIN_FAILED;
  }
  *out = database;
  return ZN_OK;
}

u32 ApiFrame::OpenObject(ZnHandle handle, const ObjectId& id, Database** database,
                         DBNode** out) const noexcept {
  ZN_RETURN_UNLESS_OK(OpenDatabase(handle, database));
  *out = (*database)->FindObject(id);
  return *out == nullptr ? ZNE_OBJECT_NOT_FOUND : ZN_OK;
}

}  // namespace zn
