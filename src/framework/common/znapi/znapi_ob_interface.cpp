// Interfaces on objects and on types, and the providers that serve them.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znapi/apiresult.h"
#include "zn/ob.h"

namespace zn {

namespace {

constexpr FrameTraces kNoTraces{.entry = false, .exit = false};

// Checks that ObRegisterInterfaceOnType and its reverse share, and the type.
u32 OpenTypeForProvider(const ApiFrame& frame, ZnHandle hDb, const char* typeName,
                        ZnHandle hProvider, const GUID* interfaceId, TypeObject** out) {
  ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsNonEmptyTypeName(typeName) &&
                                  IsProviderHandle(hProvider) && IsGoodPointer(interfaceId)));
  // The library's own provider serves no type; this refusal has no text of its own.
  ZN_RETURN_IF_FAILED(frame.Check(!HandleThing<Provider>(hProvider)->IsBuiltIn()));
  Database* database = nullptr;
  ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
  *out = database->Types().FindType(typeName);
  return *out == nullptr ? ZNE_TYPE_NOT_FOUND : ZN_OK;
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 ObGetProviderForObject(ZnHandle hDb, ObjectId id, ZnHandle* outProvider) {
  return ApiCall("ObGetProviderForObject", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(outProvider)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    const Provider* provider = database->LookUpProviderById(object->CreatorId().Value());
    if (provider == nullptr) return ZNE_UNEXPECTED;  // an object may outlive its creator
    *outProvider = provider->Handle();
    return ZN_OK;
  });
}

u32 ObGetObjectProviders(ZnHandle hDb, ObjectId id, u32* count, ZnHandle** out) {
  return ApiCall("ObGetObjectProviders", [&](ApiFrame& frame) -> u32 {
    if (IsGoodPointer(count)) *count = 0;  // both before any check
    if (IsGoodPointer(out)) *out = nullptr;
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && AreListOutputs(count, out)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));

    // The providers are looked up by ids that stay good if a look-up releases the lock.
    std::vector<InternedId> ids{object->CreatorId()};
    for (const InterfaceRecord& record : object->Interfaces()) ids.push_back(record.provider);
    std::vector<ZnHandle> handles;
    handles.reserve(ids.size());
    for (const InternedId& providerId : ids) {
      handles.push_back(HandleOf(database->LookUpProviderById(providerId.Value())));
    }
    return ListToCaller(handles, count, out);
  });
}

u32 ObGetInterfaceProvider(ZnHandle hDb, ObjectId id, const GUID* interfaceId,
                           ZnHandle* outProvider) {
  return ApiCall("ObGetInterfaceProvider", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(interfaceId) &&
                                    IsGoodPointer(outProvider)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    InternedId providerId;
    // Contract: an interface that nobody serves is an invalid argument here.
    if (ZN_FAILED(object->GetInterfaceProvider(*interfaceId, &providerId))) {
      return ZNE_INVALID_ARGUMENTS;
    }
    const Provider* provider = database->LookUpProviderById(providerId.Value());
    if (provider == nullptr) return ZNE_INVALID_ARGUMENTS;
    *outProvider = provider->Handle();
    return ZN_OK;
  });
}

u32 ObRegisterInterface(ZnHandle hDb, ObjectId id, ZnHandle hProvider, const GUID* interfaceId) {
  return ApiCall("ObRegisterInterface", kNoTraces, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsGoodPointer(interfaceId)));
    const Provider* provider = HandleThing<Provider>(hProvider);
    if (provider == nullptr) return frame.Refuse("Invalid provider");
    const InternedId providerId = provider->GetId();
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    return database->RegisterInterface(object, *interfaceId, providerId);
  });
}

u32 ObDeregisterInterface(ZnHandle hDb, ObjectId id, const GUID* interfaceId) {
  return ApiCall("ObDeregisterInterface", kNoTraces, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(interfaceId)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    return database->DeregisterInterface(object, *interfaceId);
  });
}

u32 ObQueryInterfaces(ZnHandle hDb, ObjectId id, u32* count, GUID** out) {
  return ApiCall("ObQueryInterfaces", [&](ApiFrame& frame) -> u32 {
    if (IsGoodPointer(count)) *count = 0;  // both before any check
    if (IsGoodPointer(out)) *out = nullptr;
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && AreListOutputs(count, out)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    if (object->GetType() == nullptr) return ZNE_UNEXPECTED;
    std::vector<GUID> ids;  // an object has an interface once
    for (const InterfaceRecord& record : object->Interfaces()) ids.push_back(record.interfaceId);
    object->GetType()->CollectInterfaces(true, &ids);
    return ListToCaller(ids, count, out);
  });
}

u32 ObRegisterInterfaceOnType(ZnHandle hDb, const char* type, ZnHandle hProvider,
                              const GUID* interfaceId) {
  return ApiCall("ObRegisterInterfaceOnType", [&](ApiFrame& frame) -> u32 {
    TypeObject* object = nullptr;
    ZN_RETURN_UNLESS_OK(OpenTypeForProvider(frame, hDb, type, hProvider, interfaceId, &object));
    return object->AddInterface(*interfaceId, HandleThing<Provider>(hProvider)->GetId());
  });
}

u32 ObUnregisterInterfaceOnType(ZnHandle hDb, const char* type, ZnHandle hProvider,
                                const GUID* interfaceId) {
  return ApiCall("ObUnregisterInterfaceOnType", [&](ApiFrame& frame) -> u32 {
    TypeObject* object = nullptr;
    ZN_RETURN_UNLESS_OK(OpenTypeForProvider(frame, hDb, type, hProvider, interfaceId, &object));
    return object->RemoveInterface(*interfaceId, HandleThing<Provider>(hProvider)->GetId());
  });
}

}  // extern "C"
