// Parents and children.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znapi/apiresult.h"
#include "zn/ob.h"

namespace zn {

namespace {

using ListRelated = u32 (DBNode::*)(std::string_view typeFilter, std::vector<ObjectId>* out) const;

// ObGetChildObjects and ObGetParentObjects.
u32 GetRelatedObjects(ApiFrame& frame, ZnHandle hDb, const ObjectId& id, const char* type,
                      u32* count, ObjectId** out, ListRelated list) {
  ZN_RETURN_IF_FAILED(
      frame.Check(IsDatabaseHandle(hDb) && IsTypeNameOrNull(type) && AreListOutputs(count, out)));
  Database* database = nullptr;
  DBNode* object = nullptr;
  ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
  std::vector<ObjectId> ids;
  ZN_RETURN_IF_FAILED((object->*list)(TypeNameOrRoot(type), &ids));
  return ListToCaller(ids, count, out);
}

// The parent of a relation whose child must exist too. The child is looked up first; on a client
// copy either look-up may release the lock, so only the last pointer is good.
u32 OpenParent(const ApiFrame& frame, ZnHandle hDb, const ObjectId& parentId,
               const ObjectId& childId, DBNode** parent) {
  Database* database = nullptr;
  DBNode* child = nullptr;
  ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, childId, &database, &child));
  *parent = database->FindObject(parentId);
  return *parent == nullptr ? ZNE_OBJECT_NOT_FOUND : ZN_OK;
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 ObGetChildObjects(ZnHandle hDb, ObjectId id, const char* type, u32* count, ObjectId** out) {
  return ApiCall("ObGetChildObjects", [&](ApiFrame& frame) -> u32 {
    return GetRelatedObjects(frame, hDb, id, type, count, out, &DBNode::GetChildren);
  });
}

u32 ObGetParentObjects(ZnHandle hDb, ObjectId id, const char* type, u32* count, ObjectId** out) {
  return ApiCall("ObGetParentObjects", [&](ApiFrame& frame) -> u32 {
    return GetRelatedObjects(frame, hDb, id, type, count, out, &DBNode::GetParents);
  });
}

bool ObHasChildren(ZnHandle hDb, ObjectId id, u32 mask) {
  bool has = false;
  static_cast<void>(
      ApiCall("ObHasChildren", {.entry = false, .exit = false}, [&](ApiFrame& frame) -> u32 {
        if (!IsDatabaseHandle(hDb)) return frame.Refuse("Invalid database handle");
        Database* database = nullptr;
        DBNode* object = nullptr;
        ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
        has = object->HasChildren(mask);
        return ZN_OK;
      }));
  return has;
}

u32 ObAddChildObject(ZnHandle hDb, ObjectId parent, ObjectId child) {
  ZN_TRACE(1, "ZnAPI:Entering ObAddChildObject");
  const BusLock lock;  // Contract: held over the exit trace
  return ApiCall("ObAddChildObject", {.entry = false, .exit = true}, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && !SameGuid(parent, child)));
    DBNode* parentNode = nullptr;
    ZN_RETURN_UNLESS_OK(OpenParent(frame, hDb, parent, child, &parentNode));
    return parentNode->AddChild(InternedId(child));
  });
}

u32 ObRemoveChildObject(ZnHandle hDb, ObjectId parent, ObjectId child) {
  return ApiCall("ObRemoveChildObject", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    DBNode* parentNode = nullptr;
    ZN_RETURN_UNLESS_OK(OpenParent(frame, hDb, parent, child, &parentNode));
    parentNode->RemoveChild(InternedId(child));
    return ZN_OK;
  });
}

}  // extern "C"
