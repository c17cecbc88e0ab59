// Pr* exports but for the calls: providers of programs, look-ups, properties of provider objects.
// The property calls run the frame on the provider object itself: no database, no authorisation.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/localprovider.h"
#include "framework/common/znprov/provider.h"
#include "support/common/block.h"
#include "zn/init.h"
#include "zn/pr.h"

namespace zn {
namespace {

[[nodiscard]] bool IsSlotFilled(auto slot) noexcept {
  return IsGoodPointer(reinterpret_cast<const void*>(slot));
}

// Hands out the handle of a provider that was looked up; the status of a miss is that of a damaged
// registry, and stays so.
[[nodiscard]] u32 GiveHandle(const Provider* provider, ZnHandle* out) noexcept {
  if (provider == nullptr) return ZNE_PROVIDER_REG_NO_PROVIDERS;
  *out = provider->Handle();
  return ZN_OK;
}

}  // namespace
}  // namespace zn

extern "C" {

using namespace zn;

u32 PrCreateProvider(ZnHandle hDb, const ZnWChar* name, const ProviderCallbacks* callbacks,
                     ZnHandle* outProvider) {
  return ApiCall("PrCreateProvider", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb) && IsGoodString(name, kMaxNameLength) &&
                                    IsGoodPointer(callbacks) && IsSlotFilled(callbacks->Call) &&
                                    IsSlotFilled(callbacks->Initialize) &&
                                    IsSlotFilled(callbacks->Event) && IsGoodPointer(outProvider)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    if (database->LookUpProviderByName(name) != nullptr) return ZNE_PROVIDER_NAME_EXISTS;
    return AddLocalProvider(*database, name, *callbacks, outProvider);
  });
}

u32 ZnRegisterAsProvider(ZnHandle hDb, const ZnWChar* name, const ProviderCallbacks* callbacks,
                         ZnHandle* outProvider) {
  return ApiCall("ZnRegisterAsProvider", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb) && IsGoodString(name, kMaxNameLength) &&
                                    IsGoodPointer(callbacks) && IsSlotFilled(callbacks->Event) &&
                                    IsGoodPointer(outProvider)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    // Contract: a name that is taken is no error and gives no handle.
    if (database->LookUpProviderByName(name) != nullptr) return ZN_OK;
    return AddLocalProvider(*database, name, *callbacks, outProvider);
  });
}

u32 PrGetProperty(ZnHandle hProvider, const char* name, Property2** out) {
  return ApiCall("PrGetProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) &&
                                    IsGoodString(name, kMaxNameLength) && IsGoodPointer(out)));
    const Property* property =
        HandleThing<Provider>(hProvider)->Properties().Find(std::string_view(name));
    if (property == nullptr) return ZNE_PROPERTY_NOT_FOUND;
    return ConvertProperty3ToProperty2(*property, out);
  });
}

u32 PrGetProperties(ZnHandle hProvider, ZnHandle* outPropset) {
  return ApiCall("PrGetProperties", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) && IsGoodPointer(outPropset)));
    ZnHandle wrapped = WrapPropertySet(HandleThing<Provider>(hProvider)->GetProperties());
    if (wrapped == nullptr) return ZNE_OUT_OF_MEMORY;
    *outPropset = wrapped;
    return ZN_OK;
  });
}

u32 PrSetProperty(ZnHandle hProvider, const Property2* property) {
  return ApiCall("PrSetProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) && IsReadableProperty(property)));
    Property value;
    ZN_RETURN_IF_FAILED(ConvertProperty2ToProperty3(property, &value));
    return HandleThing<Provider>(hProvider)->SetProperty(value);
  });
}

u32 PrSetProperties(ZnHandle hProvider, ZnHandle hPropset) {
  return ApiCall("PrSetProperties", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) && IsPropsetHandle(hPropset)));
    return HandleThing<Provider>(hProvider)->SetProperties(*HandleThing<PropertySet>(hPropset));
  });
}

u32 PrGetProviderName(ZnHandle hProvider, ZnWChar** name) {
  return ApiCall("PrGetProviderName", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) && IsGoodPointer(name)));
    ZnWChar* copy = TextToBlock(HandleThing<Provider>(hProvider)->Name().Text());
    if (copy == nullptr) return ZNE_OUT_OF_MEMORY;
    *name = copy;
    return ZN_OK;
  });
}

u32 PrGetProviderByName(ZnHandle hDb, const ZnWChar* name, ZnHandle* outProvider) {
  return ApiCall("PrGetProviderByName", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb) && IsGoodString(name, kMaxNameLength) &&
                                    IsGoodPointer(outProvider)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return GiveHandle(database->LookUpProviderByName(name), outProvider);
  });
}

u32 PrGetProviderHandle(ZnHandle hDb, ObjectId providerId, ZnHandle* outProvider) {
  return ApiCall("PrGetProviderHandle", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb) && IsGoodPointer(outProvider)));
    // Contract: alone among the calls, this one does not take 0 for the system database.
    if (hDb == nullptr) return frame.Refuse("Invalid database");
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return GiveHandle(database->LookUpProviderById(providerId), outProvider);
  });
}

u32 PrGetProviderId(ZnHandle hProvider, ObjectId* out) {
  return ApiCall("PrGetProviderId", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsProviderHandle(hProvider) && IsGoodPointer(out)));
    *out = HandleThing<Provider>(hProvider)->GetId().Value();
    return ZN_OK;
  });
}

}  // extern "C"
