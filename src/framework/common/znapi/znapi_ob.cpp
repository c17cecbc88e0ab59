// Objects: creation, deletion, flags, keys and properties. Ids: znapi_ob_id.cpp; relations:
// znapi_ob_relation.cpp; interfaces: znapi_ob_interface.cpp; types as objects:
// znapi_ob_type.cpp.
#include <cstring>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/znapi/apiresult.h"
#include "framework/common/znpropset/property2.h"
#include "zn/ob.h"

namespace zn {

namespace {

u32 CreateObject(Database& database, ZnHandle hProvider, const char* type, u32 flags,
                 ObjectId* out) {
  DBNode* node = nullptr;
  const u32 status =
      database.CreateDBNode(HandleThing<Provider>(hProvider), type, flags, &node, nullptr);
  if (node != nullptr) *out = node->Guid();
  return status;
}

// A lookup key as it is stored and searched: the provider's id, then the provider's bytes. Short
// keys, which most are, need no allocation to be looked up.
class KeyBlock {
 public:
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): what is used of short_ is written here
  KeyBlock(const ObjectId& provider, const void* key, u32 length)
      : length_(sizeof(ObjectId) + length) {
    u8* bytes = short_;
    if (length_ > sizeof(short_)) {
      long_ = std::make_unique<u8[]>(length_);
      bytes = long_.get();
    }
    std::memcpy(bytes, &provider, sizeof(ObjectId));
    if (length != 0) std::memcpy(bytes + sizeof(ObjectId), key, length);
  }
  [[nodiscard]] std::string_view View() const noexcept {
    return {reinterpret_cast<const char*>(long_ == nullptr ? short_ : long_.get()), length_};
  }

 private:
  u8 short_[128];
  std::unique_ptr<u8[]> long_;
  size_t length_;
};

// A key with its prefix has a 32-bit length.
bool IsKeyLength(u32 length) noexcept {
  return length <= 0xFFFFFFFFu - sizeof(ObjectId);
}

u32 StoreKey(Database& database, DBNode& object, const void* key, u32 length) {
  if (key == nullptr) {
    object.SetKey({});
    return ZN_OK;
  }
  KeyBlock block(object.CreatorId().Value(), key, length);
  // Contract: also when it is this object's own key.
  if (database.FindByKey(block.View()) != nullptr) return ZNE_DUPLICATE_LOOKUP_KEY;
  object.SetKey(block.View());
  return ZN_OK;
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 ObCreateObject(ZnHandle hDb, ZnHandle hProvider, const char* type, ObjectId* out) {
  return ApiCall("ObCreateObject", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsGoodPointer(out) && IsTypeName(type)));
    // Objects of the library itself are made by other ways; ObCreateObjectEx does not look.
    if (HandleThing<Provider>(hProvider)->IsBuiltIn()) {
      return frame.Refuse("Error: System provider handle specified");
    }
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return CreateObject(*database, hProvider, type, 0, out);
  });
}

u32 ObCreateObjectEx(ZnHandle hDb, ZnHandle hProvider, const char* type, u32 flags, u32,
                     ObjectId* out) {
  return ApiCall("ObCreateObjectEx", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsTypeName(type) && IsGoodPointer(out)));
    const u32 visibility = VisibilityFlags(flags);
    if (visibility == 0 && flags != 0) return frame.Refuse("Invalid flags specified");
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return CreateObject(*database, hProvider, type, visibility, out);
  });
}

u32 ObDeleteObject(ZnHandle hDb, ObjectId id) {
  return ApiCall("ObDeleteObject", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    database->DeleteNode(object);
    return ZN_OK;
  });
}

u32 ObGetObjectType(ZnHandle hDb, ObjectId id, char** outType) {
  return ApiCall("ObGetObjectType", [&](ApiFrame& frame) -> u32 {
    const bool isWritable = IsGoodPointer(outType);
    if (isWritable) *outType = nullptr;  // before the other checks: a failure leaves null
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && isWritable));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    *outType = TextToBlock(object->GetTypeName().Text());
    return *outType == nullptr ? ZNE_OUT_OF_MEMORY : ZN_OK;
  });
}

u32 ObGetObjectFlags(ZnHandle hDb, ObjectId id, u32* out) {
  return ApiCall("ObGetObjectFlags", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(out)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    *out = object->GetFlags() & OBJECT_PUBLIC_FLAGS;
    return ZN_OK;
  });
}

u32 ObSetFlags(ZnHandle hDb, ObjectId id, u32 flags) {
  // Contract: its own entry trace, no exit trace, no trace of a bad argument, and another
  // function's name where a database is not authorised.
  ZN_TRACE(1, "ZNAPI:Entering ObSetFlags");
  return ApiCall("ObSetFlags", {.entry = false, .exit = false}, [&](ApiFrame& frame) -> u32 {
    if (!IsDatabaseHandle(hDb)) return ZNE_INVALID_ARGUMENTS;
    Database* database = hDb == nullptr ? ZnGetSystemDatabase() : HandleThing<Database>(hDb);
    if (database != nullptr && !database->IsAuthenticated()) {
      ZN_TRACE(3, "ZnAPI:ObSetProperties: DB auth failed");
      return ZNW_SHMEM_LOGIN_FAILED;
    }
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    object->SetFlags(flags);
    return ZN_OK;
  });
}

bool ObExists(ZnHandle hDb, ObjectId id) {
  bool exists = false;
  FAST_LOCK();  // Contract: ahead of the entry trace, unlike everywhere else
  ZN_TRACE(1, "ZnAPI:Entering ObExists");
  static_cast<void>(
      ApiCall("ObExists", {.entry = false, .exit = false}, [&](ApiFrame& frame) -> u32 {
        if (!IsDatabaseHandle(hDb)) return frame.Refuse("Invalid database handle");
        Database* database = nullptr;
        ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
        exists = database->ObjectExists(id);  // never asks a server
        return ZN_OK;
      }));
  FAST_UNLOCK();
  ZN_TRACE(1, "ZnAPI:Exiting ObExists");
  return exists;
}

u32 ObSetKey(ZnHandle hDb, ObjectId id, const void* key, u32 length) {
  return ApiCall("ObSetKey", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) &&
                                    (key == nullptr || IsGoodPointer(key)) && IsKeyLength(length)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    return StoreKey(*database, *object, key, length);
  });
}

u32 ObGetKey(ZnHandle hDb, ObjectId id, void** outKey, u32* outLength) {
  return ApiCall("ObGetKey", [&](ApiFrame& frame) -> u32 {
    if (IsGoodPointer(outKey)) *outKey = nullptr;  // both before any check
    if (IsGoodPointer(outLength)) *outLength = 0;
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && AreListOutputs(outLength, outKey)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    return object->CopyKey(outKey, outLength);
  });
}

u32 ObGetObjectIdByKey(ZnHandle hDb, ZnHandle hProvider, const void* key, u32 length,
                       ObjectId* out) {
  return ApiCall("ObGetObjectIdByKey", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsGoodPointer(key) && IsKeyLength(length) &&
                                    IsGoodPointer(out)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    const KeyBlock block(HandleThing<Provider>(hProvider)->GetId().Value(), key, length);
    const DBNode* object = database->FindByKey(block.View());
    if (object == nullptr) return ZNE_OBJECT_NOT_FOUND;
    *out = object->Guid();
    return ZN_OK;
  });
}

u32 ObGetProperty(ZnHandle hDb, ObjectId id, const char* name, Property2** out) {
  return ApiCall("ObGetProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodString(name, kMaxNameLength) &&
                                    IsGoodPointer(out)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    const Property* property = object->Properties().Find(std::string_view(name));
    if (property == nullptr) return ZNE_PROPERTY_NOT_FOUND;
    return ConvertProperty3ToProperty2(*property, out);
  });
}

u32 ObSetProperty(ZnHandle hDb, ObjectId id, const Property2* property) {
  return ApiCall("ObSetProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsReadableProperty(property)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    Property converted;
    ZN_RETURN_IF_FAILED(ConvertProperty2ToProperty3(property, &converted));
    return object->SetProperty(converted);
  });
}

u32 ObGetProperties(ZnHandle hDb, ObjectId id, ZnHandle* outPropset) {
  return ApiCall("ObGetProperties", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(outPropset)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    const ZnHandle handle = WrapPropertySet(object->GetProperties());
    if (handle == nullptr) return ZNE_OUT_OF_MEMORY;
    *outPropset = handle;
    return ZN_OK;
  });
}

u32 ObSetProperties(ZnHandle hDb, ObjectId id, ZnHandle hPropset) {
  return ApiCall("ObSetProperties", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsPropsetHandle(hPropset)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    return object->SetProperties(*HandleThing<PropertySet>(hPropset));
  });
}

}  // extern "C"
