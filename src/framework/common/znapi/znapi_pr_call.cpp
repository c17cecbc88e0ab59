// Pr* exports that call providers, and the export that makes a task by hand.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/znprov/providercall.h"
#include "framework/common/znprov/task.h"
#include "zn/ob.h"
#include "zn/pr.h"

namespace zn {
namespace {

// What PrCallProvider and PrCallDispatch check alike, but for the place of the task's id.
[[nodiscard]] bool AreCallArgumentsGood(const ProviderCallArguments& call,
                                        const ObjectId* providerId) noexcept {
  const bool isCallbackGood = (call.flags & ZN_CALL_ASYNCHRONOUS) == 0 ||
                              call.callback == nullptr ||
                              IsGoodPointer(reinterpret_cast<const void*>(call.callback));
  return IsPropsetHandle(call.in) && IsPropsetHandle(call.out) && IsGoodPointer(call.interfaceId) &&
         IsGoodPointer(providerId) && isCallbackGood;
}

[[nodiscard]] bool IsTaskPlaceGood(const ProviderCallArguments& call, const ObjectId* taskId,
                                   bool mayBeNull) noexcept {
  if ((call.flags & ZN_CALL_ASYNCHRONOUS) == 0) return true;
  return (mayBeNull && taskId == nullptr) || IsGoodPointer(taskId);
}

// Whether a call on that provider object runs in this process.
[[nodiscard]] bool IsCalledHere(const Database& database, const Provider& provider) noexcept {
  return database.Callbacks().forwardProviderCall == nullptr ||
         (provider.GetFlags() & OBJECT_CLIENT_LOCAL) != 0;
}

}  // namespace
}  // namespace zn

extern "C" {

using namespace zn;

u32 PrCallProvider(ZnHandle hProvider, ObjectId id, const GUID* interfaceId, u32 majorCode,
                   u32 minorCode, ZnHandle hIn, ZnHandle hOut, u32 flags, u32 reserved,
                   void* context, TaskCallback callback, ObjectId* providerId, ObjectId* taskId) {
  return ApiCall("PrCallProvider", [&](ApiFrame& frame) -> u32 {
    const ProviderCallArguments call{id,   interfaceId, majorCode, minorCode, hIn,
                                     hOut, flags,       reserved,  context,   callback};
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) &&
                                    AreCallArgumentsGood(call, providerId) &&
                                    IsTaskPlaceGood(call, taskId, true)));
    auto* provider = HandleThing<Provider>(hProvider);
    Database* database = DatabaseOfCall(*provider);
    if (database == nullptr) return ZNE_INVALID_ARGUMENTS;
    return CallProvider(*database, *provider, call, {providerId, taskId});
  });
}

u32 PrCallDispatch(ZnHandle hDb, ObjectId id, const GUID* interfaceId, u32 majorCode, u32 minorCode,
                   ZnHandle hIn, ZnHandle hOut, u32 flags, u32 reserved, void* context,
                   TaskCallback callback, ObjectId* providerId, ObjectId* taskId) {
  return ApiCall("PrCallDispatch", [&](ApiFrame& frame) -> u32 {
    const ProviderCallArguments call{id,   interfaceId, majorCode, minorCode, hIn,
                                     hOut, flags,       reserved,  context,   callback};
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb) &&
                                    AreCallArgumentsGood(call, providerId) &&
                                    IsTaskPlaceGood(call, taskId, false)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    InternedId server;
    ZN_RETURN_IF_FAILED(object->GetInterfaceProvider(*interfaceId, &server));
    Provider* provider = database->LookUpProviderById(server.Value());
    if (provider == nullptr) return ZNE_PROVIDER_REG_NO_PROVIDERS;
    if (!IsCalledHere(*database, *provider)) {
      return ForwardProviderCall(*database, call, {providerId, taskId});
    }
    return PrCallProvider(provider->Handle(), id, interfaceId, majorCode, minorCode, hIn, hOut,
                          flags, reserved, context, callback, providerId, taskId);
  });
}

u32 ObCreateTaskObject(ZnHandle hDb, ZnHandle hProvider, ObjectId object, u32 majorCode,
                       u32 minorCode, const GUID* interfaceId, ZnHandle hInPropset,
                       ZnHandle hOutPropset, ObjectId* out) {
  // Contract: the arguments are checked before the lock is taken, and a refusal has no exit trace.
  ZN_TRACE(1, "ZnAPI:Entering ObCreateTaskObject");
  const bool areArgumentsGood = IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                IsGoodPointer(interfaceId) && IsPropsetHandle(hInPropset) &&
                                IsPropsetHandle(hOutPropset) && IsGoodPointer(out);
  if (!areArgumentsGood) {
    ZN_TRACE(3, "ZnAPI:ObCreateTaskObject: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  return ApiCall("ObCreateTaskObject", {.entry = false}, [&](ApiFrame& frame) -> u32 {
    // Again under the lock: another thread may have deleted the provider or a set meanwhile.
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsPropsetHandle(hInPropset) && IsPropsetHandle(hOutPropset)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    const ProviderCallArguments call{object,      interfaceId, majorCode, minorCode, hInPropset,
                                     hOutPropset, 0,           0,         nullptr,   nullptr};
    return CreateTaskObject(*database, *HandleThing<Provider>(hProvider), call, out);
  });
}

}  // extern "C"
