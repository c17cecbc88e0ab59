// Settings with defaults.
#include "support/common/helpers.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <vector>

#include "support/common/block.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"

namespace zn {

namespace {

// The key a setting is read from: `key` itself or a key opened below it for the time being.
class SettingKey {
 public:
  SettingKey(ZnHandle key, const ZnWChar* subKey) noexcept {
    if (subKey == nullptr) {
      key_ = key;
      return;
    }
    status_ = ZnRegOpenKeyEx(key, subKey, 0, 0, &key_);
    opened_ = !ZN_FAILED(status_);
  }
  ~SettingKey() {
    if (opened_) static_cast<void>(ZnRegCloseKey(key_));
  }
  SettingKey(const SettingKey&) = delete;
  SettingKey& operator=(const SettingKey&) = delete;
  [[nodiscard]] u32 Status() const noexcept { return status_; }
  [[nodiscard]] ZnHandle Get() const noexcept { return key_; }

 private:
  ZnHandle key_ = nullptr;
  u32 status_ = ZN_OK;
  bool opened_ = false;
};

u32 ReadText(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name, std::u16string* out) {
  const SettingKey from(key, subKey);
  ZN_RETURN_IF_FAILED(from.Status());
  std::vector<u8> buffer(256);
  u32 type = 0;
  u32 length = 0;
  u32 status = ZNE_BUFFER_TOO_SMALL;
  while (status == ZNE_BUFFER_TOO_SMALL) {
    buffer.resize(std::max<size_t>(buffer.size(), length));
    length = static_cast<u32>(buffer.size());
    status = ZnRegQueryValueEx(from.Get(), name, nullptr, &type, buffer.data(), &length);
  }
  ZN_RETURN_IF_FAILED(status);
  if (type != ZN_REG_SZ && type != ZN_REG_EXPAND_SZ && type != ZN_REG_MULTI_SZ) {
    return ZNE_INVALID_ARGUMENTS;
  }
  std::u16string text(length / sizeof(ZnWChar), u'\0');
  if (!text.empty()) std::memcpy(text.data(), buffer.data(), text.size() * sizeof(ZnWChar));
  text.resize(std::min(text.size(), text.find(u'\0')));
  *out = std::move(text);
  return ZN_OK;
}

}  // namespace

u32 ReadTextSetting(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name, std::u16string* out) {
  out->clear();
  return ReadText(key, subKey, name, out);
}

u32 ReadStringSetting(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name,
                      const ZnWChar* fallback, ZnWChar** out) noexcept {
  if (!IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  try {
    std::u16string text;
    if (const u32 status = ReadText(key, subKey, name, &text); ZN_FAILED(status)) {
      if (fallback == nullptr) return status;
      text = fallback;
    }
    ZnWChar* block = TextToBlock(std::u16string_view(text));
    if (block == nullptr) return ZNE_OUT_OF_MEMORY;
    *out = block;
    return ZN_OK;
  } catch (const std::exception&) {
    return ZNE_OUT_OF_MEMORY;
  }
}

u32 ReadDwordSetting(ZnHandle key, const ZnWChar* subKey, const ZnWChar* name, u32 fallback,
                     u32* out) noexcept {
  if (!IsGoodPointer(out)) return ZN_OK;
  *out = fallback;
  const SettingKey from(key, subKey);
  if (ZN_FAILED(from.Status())) return ZN_OK;
  u32 type = 0;
  u32 value = 0;
  u32 length = sizeof(value);
  const u32 status =
      ZnRegQueryValueEx(from.Get(), name, nullptr, &type, reinterpret_cast<u8*>(&value), &length);
  if (!ZN_FAILED(status) && type == ZN_REG_DWORD) *out = value;
  return ZN_OK;
}

u32 WriteStringSetting(ZnHandle key, const ZnWChar* name, const ZnWChar* value) noexcept {
  if (!IsGoodPointer(value)) return ZNE_INVALID_ARGUMENTS;
  return ZnRegSetValueEx(key, name, 0, ZN_REG_SZ, reinterpret_cast<const u8*>(value),
                         ZnByteLengthW(value));
}

std::string PathSetting(const ZnWChar* name) {
  std::u16string text;
  if (ZN_FAILED(ReadTextSetting(HkeyMiraRoot(), nullptr, name, &text))) return {};
  return ToHostPath(ToNarrow(text));
}

std::string InstallDirectory() {
  std::string path = PathSetting(u"InstallDir");
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string ToHostPath(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

}  // namespace zn
