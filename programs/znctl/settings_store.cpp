// The library's settings store through its exports.
#include "settings_store.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "failure.h"
#include "session.h"
#include "text.h"
#include "zn/settings.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

// Types of stored values, as the store's functions number them.
constexpr u32 kText = 1;
constexpr u32 kExpandableText = 2;
constexpr u32 kDword = 4;
constexpr u32 kTextList = 7;
constexpr u32 kBytes = 3;

[[noreturn]] void Fail(u32 status, const std::string& what) {
  std::vector<std::string> details;
  const std::string fault = FaultOfSettingsFile(SettingsFile());
  details.push_back(fault.empty() ? "the settings file is " + SettingsFile() : fault);
  throw Failure(status, "cannot " + what, std::move(details));
}

void CheckStore(u32 status, const std::string& what) {
  if (ZN_FAILED(status)) Fail(status, what);
}

class Key {
 public:
  Key() = default;
  ~Key() {
    if (handle_ != nullptr) ZnRegCloseKey(handle_);
  }
  Key(Key&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  Key& operator=(Key&&) = delete;

  ZnHandle Handle() const { return handle_ != nullptr ? handle_ : HkeyMiraRoot(); }
  ZnHandle* Out() { return &handle_; }

 private:
  ZnHandle handle_ = nullptr;
};

ZnHandle Root() {
  const ZnHandle root = HkeyMiraRoot();
  if (root == nullptr) Fail(ZNE_UNEXPECTED, "open the settings");
  return root;
}

// Nothing where there is no such key.
std::optional<Key> OpenKey(const std::string& path) {
  Key key;
  const ZnHandle root = Root();
  if (path.empty()) return key;
  const u32 status = ZnRegOpenKeyEx(root, ToUtf16(path).c_str(), 0, 0, key.Out());
  if (status == ZNE_HASH_LOOKUP_FAILED) return std::nullopt;
  CheckStore(status, fmt::format("open the settings key \"{}\"", Printable(path)));
  return key;
}

std::u16string WideAt(const std::vector<u8>& bytes) {
  std::u16string text(bytes.size() / sizeof(ZnWChar), u'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(ZnWChar));
  return text;
}

std::vector<std::string> SplitList(const std::u16string& text) {
  std::vector<std::string> list;
  size_t from = 0;
  while (from < text.size() && text[from] != u'\0') {
    size_t end = text.find(u'\0', from);
    if (end == std::u16string::npos) end = text.size();
    list.push_back(ToUtf8(std::u16string_view(text).substr(from, end - from)));
    from = end + 1;
  }
  return list;
}

SettingData Decode(u32 type, const std::vector<u8>& bytes) {
  if (type == kText || type == kExpandableText) {
    const std::u16string text = WideAt(bytes);
    return ToUtf8(std::u16string_view(text).substr(0, text.find(u'\0')));
  }
  if (type == kTextList) return SplitList(WideAt(bytes));
  if (type == kDword && bytes.size() >= sizeof(u32)) {
    u32 number = 0;
    std::memcpy(&number, bytes.data(), sizeof(number));
    return number;
  }
  return bytes;
}

struct Encoded {
  u32 type;
  std::vector<u8> bytes;
};

std::vector<u8> BytesOf(const std::u16string& text) {
  std::vector<u8> bytes(text.size() * sizeof(ZnWChar));
  std::memcpy(bytes.data(), text.data(), bytes.size());
  return bytes;
}

Encoded Encode(const SettingData& data) {
  if (const auto* text = std::get_if<std::string>(&data)) {
    return {kText, BytesOf(ToUtf16(*text) + u'\0')};
  }
  if (const u32* number = std::get_if<u32>(&data)) {
    std::vector<u8> bytes(sizeof(u32));
    std::memcpy(bytes.data(), number, sizeof(u32));
    return {kDword, std::move(bytes)};
  }
  if (const auto* list = std::get_if<std::vector<std::string>>(&data)) {
    std::u16string all;
    for (const std::string& item : *list) all += ToUtf16(item) + u'\0';
    return {kTextList, BytesOf(all + u'\0')};
  }
  return {kBytes, std::get<std::vector<u8>>(data)};
}

constexpr u32 kNameUnits = 512;

std::vector<SettingValue> ValuesOf(ZnHandle key) {
  std::vector<SettingValue> values;
  std::vector<u8> bytes(256);
  for (u32 index = 0;;) {
    ZnWChar name[kNameUnits];
    u32 nameLength = kNameUnits;
    u32 type = 0;
    u32 length = static_cast<u32>(bytes.size());
    const u32 status =
        ZnRegEnumValue(key, index, name, &nameLength, nullptr, &type, bytes.data(), &length);
    if (status == ZNE_NO_MORE_PROPERTIES) return values;
    if (status == ZNE_BUFFER_TOO_SMALL && bytes.size() < (size_t{1} << 28)) {
      bytes.resize(bytes.size() * 4);
      continue;
    }
    CheckStore(status, "list the settings");
    values.push_back({ToUtf8(name), Decode(type, {bytes.begin(), bytes.begin() + length})});
    ++index;
  }
}

std::vector<std::string> SubkeysOf(ZnHandle key) {
  std::vector<std::string> names;
  for (u32 index = 0;; ++index) {
    ZnWChar name[kNameUnits];
    u32 length = kNameUnits;
    const u32 status =
        ZnRegEnumKeyEx(key, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ZNE_NO_MORE_PROPERTIES) return names;
    CheckStore(status, "list the settings");
    names.push_back(ToUtf8(name));
  }
}

std::string Join(const std::string& path, const std::string& name) {
  return path.empty() ? name : path + "/" + name;
}

size_t WriteKey(const std::string& path, const SettingsKey& key) {
  size_t written = key.values.size();
  for (const SettingValue& value : key.values) WriteSetting({path, value.name}, value.data);
  for (const SettingsKey& child : key.keys) {
    const std::string childPath = Join(path, child.name);
    Key made;
    CheckStore(ZnRegCreateKey(Root(), ToUtf16(childPath).c_str(), made.Out()),
               fmt::format("make the settings key \"{}\"", Printable(childPath)));
    written += WriteKey(childPath, child);
  }
  return written;
}

}  // namespace

bool SettingsKeyExists(const std::string& keyPath) {
  return OpenKey(keyPath).has_value();
}

SettingsKey ReadSettings(const std::string& keyPath) {
  SettingsKey tree;
  const std::optional<Key> key = OpenKey(keyPath);
  if (!key) return tree;
  tree.values = ValuesOf(key->Handle());
  for (const std::string& name : SubkeysOf(key->Handle())) {
    SettingsKey child = ReadSettings(Join(keyPath, name));
    child.name = name;
    tree.keys.push_back(std::move(child));
  }
  return tree;
}

std::optional<SettingData> ReadSetting(const SettingPath& path) {
  const std::optional<Key> key = OpenKey(path.key);
  if (!key) return std::nullopt;
  const std::u16string name = ToUtf16(path.name);
  std::vector<u8> bytes(256);
  for (;;) {
    u32 type = 0;
    u32 length = static_cast<u32>(bytes.size());
    const u32 status =
        ZnRegQueryValueEx(key->Handle(), name.c_str(), nullptr, &type, bytes.data(), &length);
    if (status == ZNE_HASH_LOOKUP_FAILED) return std::nullopt;
    if (status == ZNE_BUFFER_TOO_SMALL && bytes.size() < (size_t{1} << 28)) {
      bytes.resize(bytes.size() * 4);
      continue;
    }
    CheckStore(status, fmt::format("read the setting \"{}\"", Printable(path.name)));
    bytes.resize(length);
    return Decode(type, bytes);
  }
}

void WriteSetting(const SettingPath& path, const SettingData& data) {
  Key key;
  const std::string where = Printable(Join(path.key, path.name));
  if (!path.key.empty()) {
    CheckStore(ZnRegCreateKey(Root(), ToUtf16(path.key).c_str(), key.Out()),
               fmt::format("write the setting \"{}\"", where));
  } else {
    Root();
  }
  const Encoded encoded = Encode(data);
  CheckStore(ZnRegSetValueEx(key.Handle(), ToUtf16(path.name).c_str(), 0, encoded.type,
                             encoded.bytes.data(), static_cast<u32>(encoded.bytes.size())),
             fmt::format("write the setting \"{}\"", where));
}

void DeleteSetting(const SettingPath& path) {
  const std::optional<Key> key = OpenKey(path.key);
  const u32 status = key ? ZnRegDeleteValue(key->Handle(), ToUtf16(path.name).c_str())
                         : u32{ZNE_HASH_LOOKUP_FAILED};
  CheckStore(status,
             fmt::format("delete the setting \"{}\"", Printable(Join(path.key, path.name))));
}

size_t WriteSettings(const SettingsKey& root) {
  return WriteKey("", root);
}

}  // namespace zn::ctl
