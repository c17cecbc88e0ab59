// Extension objects out of the settings: see the header.
#include "framework/common/znprov/extensions.h"

#include <algorithm>
#include <string>

#include "framework/common/zncore/database.h"
#include "framework/common/zni18n/catalog.h"
#include "framework/common/znprov/descriptor.h"
#include "framework/common/znprov/provider.h"
#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "zn/settings.h"

namespace zn {

namespace {

enum Level : size_t { kId, kSkin, kPlatform, kLocale, kLevelCount };
// Units that the name of a key may have, by its level.
constexpr u32 kMaxNames[kLevelCount] = {1024, 1024, 2, 10};

// The digits at the front; 0 without any, the largest number for one beyond 32 bits.
[[nodiscard]] u32 ReadDecimal(std::u16string_view text) noexcept {
  constexpr u64 kLargest = 0xFFFFFFFF;
  u64 number = 0;
  for (const ZnWChar unit : text) {
    if (unit < u'0' || unit > u'9') break;
    number = std::min(number * 10 + (unit - u'0'), kLargest);
  }
  return static_cast<u32>(number);
}

// The walk below one of the two keys.
class ExtensionWalk {
 public:
  ExtensionWalk(Database& database, Provider& provider) noexcept
      : database_(database), provider_(provider) {}
  [[nodiscard]] u32 Run(const std::u16string& root);

 private:
  void WalkLevel(const SettingsKey& key, const std::u16string& path, size_t level,
                 const PropertySet& inherited);
  [[nodiscard]] bool Enter(const std::u16string& path, size_t level, const PropertySet& inherited);
  void AddExtension(const SettingsKey& key, const PropertySet& inherited);
  [[nodiscard]] u32 CreateExtension(const PropertySet& properties);

  Database& database_;
  Provider& provider_;
  std::u16string names_[kLevelCount];
  u32 status_ = ZN_OK;
  bool isStopped_ = false;  // apart from the status: a failed creation may have any
};

u32 ExtensionWalk::Run(const std::u16string& root) {
  SettingsKey key;
  if (ZN_FAILED(key.Open(root))) return ZNE_CLIENT_EXT_REG_MISSING;
  WalkLevel(key, root, kId, {});
  return status_;
}

// A name that is too long ends its level alone, a key that cannot be opened the whole walk.
void ExtensionWalk::WalkLevel(const SettingsKey& key, const std::u16string& path, size_t level,
                              const PropertySet& inherited) {
  for (u32 index = 0; !isStopped_; ++index) {
    const u32 end = SubkeyName(key, index, kMaxNames[level], &names_[level]);
    if (end == ZNE_NO_MORE_PROPERTIES) return;
    if (ZN_FAILED(end)) {
      status_ = end;
      return;
    }
    if (!Enter(path + u'\\' + names_[level], level, inherited)) {
      status_ = ZNE_UNEXPECTED;
      isStopped_ = true;
    }
  }
}

bool ExtensionWalk::Enter(const std::u16string& path, size_t level, const PropertySet& inherited) {
  SettingsKey key;
  if (ZN_FAILED(key.Open(path))) return false;
  PropertySet values;
  ReadProperties(key, &values);
  PropertySet properties = inherited;
  for (const Property& value : values) {
    if (CompareNoCase(value.Name(), std::string_view("ImageFile")) == 0) continue;
    if (CompareNoCase(value.Name(), std::string_view("Flags")) == 0) continue;
    properties.Put(value.Name(), value.GetValue());
  }
  if (level == kLocale) {
    AddExtension(key, properties);
  } else {
    WalkLevel(key, path, level + 1, properties);
  }
  return true;
}

void ExtensionWalk::AddExtension(const SettingsKey& key, const PropertySet& inherited) {
  u32 flags = 0;
  std::u16string imageFile;
  static_cast<void>(ReadDwordSetting(key.Get(), nullptr, u"Flags", 0, &flags));
  if (ZN_FAILED(ReadTextSetting(key.Get(), nullptr, u"ImageFile", &imageFile))) return;
  FileStatus file;
  if (!GetFileStatus(ToHostPath(ToNarrow(imageFile)), &file)) return;
  PropertySet properties;
  properties.Put("Id", Value::Text(ToNarrow(names_[kId])));
  properties.Put("Skin", Value::Text(ToNarrow(names_[kSkin])));
  properties.Put("Platform", Value::UInt32(ReadDecimal(names_[kPlatform])));
  properties.Put("Locale", Value::UInt32(ReadDecimal(names_[kLocale])));
  properties.Put("Flags", Value::UInt32(flags));
  properties.Put("ImageFile", Value::WideText(imageFile));
  properties.Put("FileSize", Value::UInt64(file.size));
  for (const Property& property : inherited) {
    // A value of another type than the property has already costs itself alone.
    static_cast<void>(properties.Set(property));
  }
  const u32 status = CreateExtension(properties);
  if (ZN_FAILED(status)) status_ = status;
}

u32 ExtensionWalk::CreateExtension(const PropertySet& properties) {
  DBNode* node = nullptr;
  ZN_RETURN_IF_FAILED(database_.CreateDBNode(&provider_, kExtensionTypeName, 0, &node, nullptr));
  for (const Property& property : properties) static_cast<void>(node->SetProperty(property));
  return ZN_OK;
}

}  // namespace

u32 CreateExtensionObjects(Database& database, Provider& provider) {
  u32 result = ZN_OK;
  for (const char16_t* root : {u"ClientExtensions", u"MessageCatalogs"}) {
    const u32 status = ExtensionWalk(database, provider).Run(root);
    if (ZN_FAILED(status)) result = status;
  }
  return result;
}

}  // namespace zn
