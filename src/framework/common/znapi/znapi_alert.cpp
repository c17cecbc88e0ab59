// Alerts: publishing and raising. Registering for them: znapi_ev.cpp.
#include "framework/common/znalert/alert.h"
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znprov/provider.h"
#include "zn/alert.h"

namespace zn {

namespace {

[[nodiscard]] bool IsAlertTopic(const char* topic) noexcept {
  return IsGoodString(topic, kMaxTypeLength) && *topic != '\0';
}

[[nodiscard]] bool IsPropsetHandleOrNull(ZnHandle handle) noexcept {
  return IsValidHandleOrNull(handle, HANDLE_PROPSET);
}

[[nodiscard]] const PropertySet* SetOrNull(ZnHandle handle) noexcept {
  return handle == nullptr ? nullptr : HandleThing<PropertySet>(handle);
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 ObPublishAlert(ZnHandle hDb, ZnHandle hProvider, const AlertDescriptor* alert) {
  return ApiCall("ObPublishAlert", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsGoodPointer(alert) && IsAlertTopic(alert->topic)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    FetchAlerts(*database);
    ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(hProvider)));  // it may have gone meanwhile
    return PublishAlert(*database, *HandleThing<Provider>(hProvider), *alert);
  });
}

u32 ObUnpublishAlert(ZnHandle hDb, ZnHandle hProvider, const char* topic) {
  return ApiCall("ObUnpublishAlert", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsGoodString(topic, kMaxTypeLength)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    FetchAlerts(*database);
    return UnpublishAlert(*database, topic);
  });
}

u32 ObRaiseAlert(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle hInsertions,
                 ZnHandle hUserProperties) {
  return ApiCall("ObRaiseAlert", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsProviderHandle(hProvider) &&
                                    IsGoodString(topic, kMaxTypeLength) &&
                                    IsPropsetHandleOrNull(hInsertions) &&
                                    IsPropsetHandleOrNull(hUserProperties)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    FetchAlerts(*database);
    ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(hProvider) &&
                                    IsPropsetHandleOrNull(hInsertions) &&
                                    IsPropsetHandleOrNull(hUserProperties)));
    return RaiseAlert(*database, *HandleThing<Provider>(hProvider), topic,
                      {SetOrNull(hInsertions), SetOrNull(hUserProperties)});
  });
}

}  // extern "C"
