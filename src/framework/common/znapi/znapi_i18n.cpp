// Localized texts.
#include <string>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/zni18n/localize.h"
#include "framework/common/znprov/provider.h"
#include "support/common/block.h"
#include "zn/guid.h"
#include "zn/i18n.h"

namespace zn {

namespace {

constexpr size_t kMaxSkin = 256;

// What the three calls have in common.
struct LocalizedRequest {
  ZnHandle hDb;
  u32 locale;
  const char* skin;
  u32 reserved;
  ZnWChar** out;
};

// The checks and the database.
[[nodiscard]] u32 Open(const ApiFrame& frame, const LocalizedRequest& request, Database** out) {
  const bool hasGoodSkin = request.skin == nullptr || IsGoodString(request.skin, kMaxSkin);
  ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(request.hDb) && IsGoodPointer(request.out) &&
                                  hasGoodSkin && request.reserved == 0));
  return frame.OpenDatabase(request.hDb, out);
}

[[nodiscard]] CatalogKey KeyOf(const GUID& catalog, const LocalizedRequest& request) {
  CatalogKey key;
  key.catalog = catalog;
  if (request.locale != 0) key.locale = request.locale;
  if (request.skin != nullptr) key.skin = request.skin;
  return key;
}

[[nodiscard]] u32 GiveText(const std::u16string& text, ZnWChar** out) noexcept {
  ZnWChar* block = TextToBlock(std::u16string_view(text));
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = block;
  return ZN_OK;
}

[[nodiscard]] u32 GiveMessage(const Database& database, const GUID& catalog, u32 message,
                              const LocalizedRequest& request) {
  std::u16string text;
  ZN_RETURN_IF_FAILED(
      GetMessageText(DatabaseRef(database), KeyOf(catalog, request), message, &text));
  return GiveText(text, request.out);
}

[[nodiscard]] u32 CatalogOf(Database& database, ZnHandle hProvider, GUID* out) {
  const Provider* provider = hProvider == nullptr
                                 ? database.LookUpProviderByName(kSystemProviderName)
                                 : HandleThing<Provider>(hProvider);
  if (provider == nullptr) return ZNE_PROVIDER_REG_NO_PROVIDERS;
  return ZnStringToGUID(provider->MessageCatalog().CStr(), out);
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 i18nGetLocalizedString(ZnHandle hDb, ZnHandle hProvider, u32 message, u32 locale,
                           const char* skin, u32 reserved, ZnWChar** out) {
  return ApiCall("i18nGetLocalizedString", [&](ApiFrame& frame) -> u32 {
    const LocalizedRequest request{hDb, locale, skin, reserved, out};
    ZN_RETURN_IF_FAILED(frame.Check(IsValidHandleOrNull(hProvider, HANDLE_PROVIDER)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(Open(frame, request, &database));
    GUID catalog{};
    ZN_RETURN_IF_FAILED(CatalogOf(*database, hProvider, &catalog));
    return GiveMessage(*database, catalog, message, request);
  });
}

u32 i18nGetLocalizedStringFromi18n(ZnHandle hDb, I18nString msg, u32 locale, const char* skin,
                                   u32 reserved, ZnWChar** out) {
  return ApiCall("i18nGetLocalizedStringFromi18n", [&](ApiFrame& frame) -> u32 {
    const LocalizedRequest request{hDb, locale, skin, reserved, out};
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(Open(frame, request, &database));
    return GiveMessage(*database, msg.catalog, msg.message, request);
  });
}

u32 ZnMakeLocalizedFormattedString(ZnHandle hDb, I18nFormatString fmt, u32 locale, const char* skin,
                                   u32 reserved, ZnWChar** out) {
  return ApiCall("ZnMakeLocalizedFormattedString", [&](ApiFrame& frame) -> u32 {
    const LocalizedRequest request{hDb, locale, skin, reserved, out};
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(Open(frame, request, &database));
    std::u16string text;
    ZN_RETURN_IF_FAILED(
        MakeLocalizedText(DatabaseRef(*database), fmt, KeyOf(fmt.catalog, request), &text));
    return GiveText(text, out);
  });
}

}  // extern "C"
