// The files that a provider offers to clients: the ids of its extension and its message catalog.
#include <string>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/zni18n/catalog.h"
#include "framework/common/znprov/provider.h"
#include "zn/guid.h"
#include "zn/pr.h"

namespace zn {

namespace {

using IdText = const String& (Provider::*)() const;

[[nodiscard]] u32 GetId(const char* function, ZnHandle hProvider, GUID* result, IdText text) {
  return ApiCall(function, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(hProvider) && IsGoodPointer(result)));
    return ZnStringToGUID((HandleThing<Provider>(hProvider)->*text)().CStr(), result);
  });
}

// The text of the id of an extension object; the zero id leaves what there is.
[[nodiscard]] u32 TextOfExtension(Database& database, const ObjectId& id, std::string* out) {
  if (IsZeroGuid(id)) return ZN_OK;
  const DBNode* node = database.FindObject(id);
  if (node == nullptr) return ZNE_OBJECT_NOT_FOUND;
  if (!database.Types().TypeIsA(node->GetTypeName().Text(), kExtensionTypeName)) {
    return ZNE_INVALID_ARGUMENTS;
  }
  out->assign(kGuidTextLength, '\0');
  FormatGuid(id, out->data());
  return ZN_OK;
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 PrGetExtension(ZnHandle hProvider, GUID* result) {
  return GetId("PrGetExtension", hProvider, result, &Provider::ClientExtension);
}

u32 PrGetMessageCatalog(ZnHandle hProvider, GUID* result) {
  return GetId("PrGetMessageCatalog", hProvider, result, &Provider::MessageCatalog);
}

u32 PrSetProviderExtensions(ZnHandle hProvider, ObjectId extension, ObjectId catalog) {
  return ApiCall("PrSetProviderExtensions", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(hProvider)));
    const auto* provider = HandleThing<Provider>(hProvider);
    std::string extensionText(provider->ClientExtension().Text());
    std::string catalogText(provider->MessageCatalog().Text());
    Database& database = provider->GetDatabase();
    ZN_RETURN_IF_FAILED(TextOfExtension(database, extension, &extensionText));
    ZN_RETURN_IF_FAILED(TextOfExtension(database, catalog, &catalogText));
    // On a client copy the look-ups may have released the lock.
    ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(hProvider)));
    HandleThing<Provider>(hProvider)->SetExtensions(extensionText, catalogText);
    return ZN_OK;
  });
}

}  // extern "C"
