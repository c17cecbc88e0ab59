// Descriptors of providers, read from the settings: see the header.
#include "framework/common/znprov/descriptor.h"

#include "support/common/helpers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "zn/settings.h"

namespace zn {

namespace {

// Types of values in the settings store.
constexpr u32 kTextValue = 1;
constexpr u32 kNumberValue = 4;
constexpr u32 kReadAccess = 0x20019;

// Bytes with the terminator that the list of configlets may take in wide text.
constexpr size_t kMaxConfigletBytes = 256;

// The text of a value, or `fallback` when there is none or it is no text.
[[nodiscard]] std::u16string TextOr(const SettingsKey& key, const ZnWChar* name,
                                    std::u16string_view fallback) {
  std::u16string text;
  if (ZN_FAILED(ReadTextSetting(key.Get(), nullptr, name, &text))) text = fallback;
  return text;
}

[[nodiscard]] std::vector<std::u16string> ReadConfiglets(const SettingsKey& key) {
  const std::u16string list = TextOr(key, u"CONFIGLETS", {});
  if ((list.size() + 1) * sizeof(ZnWChar) > kMaxConfigletBytes) return {};
  return SplitNames(list);
}

struct RawValue {
  std::u16string name;
  u32 type = 0;
  std::vector<u8> data;
};

// The value at an index, with the buffers grown to it.
[[nodiscard]] u32 ReadRawValue(const SettingsKey& key, u32 index, RawValue* out) {
  constexpr u32 kLargest = 1u << 20;
  u32 nameRoom = 256;
  u32 dataRoom = 512;
  for (;;) {
    out->name.resize(nameRoom);
    out->data.resize(dataRoom);
    u32 nameLength = nameRoom;
    u32 dataLength = dataRoom;
    const u32 status = ZnRegEnumValue(key.Get(), index, out->name.data(), &nameLength, nullptr,
                                      &out->type, out->data.data(), &dataLength);
    if (status == ZNE_BUFFER_TOO_SMALL && dataRoom < kLargest) {
      nameRoom *= 2;
      dataRoom *= 2;
      continue;
    }
    if (ZN_FAILED(status)) return status;
    out->name.resize(nameLength);
    out->data.resize(dataLength);
    return ZN_OK;
  }
}

[[nodiscard]] std::u16string TextOf(const std::vector<u8>& data) {
  std::u16string text(data.size() / sizeof(ZnWChar), u'\0');
  std::memcpy(text.data(), data.data(), text.size() * sizeof(ZnWChar));
  return text.substr(0, text.find(u'\0'));
}

}  // namespace

SettingsKey::~SettingsKey() {
  if (key_ != nullptr) static_cast<void>(ZnRegCloseKey(key_));
}

u32 SettingsKey::Open(std::u16string_view path) {
  return ZnRegOpenKeyEx(HkeyMiraRoot(), std::u16string(path).c_str(), 0, kReadAccess, &key_);
}

void ReadProperties(const SettingsKey& key, PropertySet* out) {
  RawValue value;
  for (u32 index = 0; !ZN_FAILED(ReadRawValue(key, index, &value)); ++index) {
    if (value.name.empty()) continue;
    const std::string name = ToNarrow(value.name);
    if (value.type == kTextValue) {
      out->Put(name, Value::Text(ToNarrow(TextOf(value.data))));
    } else if (value.type == kNumberValue && value.data.size() == sizeof(u32)) {
      u32 number = 0;
      std::memcpy(&number, value.data.data(), sizeof(number));
      out->Put(name, Value::UInt32(number));
    }
  }
}

u32 SubkeyName(const SettingsKey& key, u32 index, u32 limit, std::u16string* out) {
  u32 length = limit + 1;
  std::u16string name(length, u'\0');
  ZN_RETURN_IF_FAILED(
      ZnRegEnumKeyEx(key.Get(), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr));
  *out = std::u16string(name.data());  // up to its terminator
  return ZN_OK;
}

std::vector<std::u16string> SplitNames(std::u16string_view list) {
  std::vector<std::u16string> result;
  while (!list.empty()) {
    const size_t end = std::min(list.find(u';'), list.size());
    std::u16string_view name = list.substr(0, end);
    list.remove_prefix(std::min(end + 1, list.size()));
    while (!name.empty() && name.front() == u' ') name.remove_prefix(1);
    while (!name.empty() && name.back() == u' ') name.remove_suffix(1);
    if (!name.empty()) result.emplace_back(name);
  }
  return result;
}

u32 ReadDescriptor(std::u16string_view name, ProviderDescriptor* out) {
  SettingsKey key;
  ZN_RETURN_IF_FAILED(key.Open(std::u16string(u"Providers\\").append(name)));
  out->name = name;
  out->imageFile = TextOr(key, u"ImageFile", name);
  out->entryName = ToNarrow(TextOr(key, u"ProviderEntry", u"ProviderEntry"));
  out->group = TextOr(key, u"ProviderGroup", {});
  out->dependsOn = SplitNames(TextOr(key, u"DependsOn", {}));
  out->strictDependsOn = SplitNames(TextOr(key, u"StrictDependsOn", {}));
  out->clientExtension = ToNarrow(TextOr(key, u"ClientExtension", {}));
  out->messageCatalog = ToNarrow(TextOr(key, u"MessageCatalog", {}));
  out->configlets = ReadConfiglets(key);
  ReadProperties(key, &out->properties);
  return ZN_OK;
}

}  // namespace zn
