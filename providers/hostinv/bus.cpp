// The provider's hold on the bus; see the header.
#include "bus.h"

#include <algorithm>
#include <vector>

#include "text.h"
#include "zn/znmira.h"

namespace hostinv {
namespace {

// Types of settings values, and the access that reading takes.
constexpr u32 kSettingString = 1;
constexpr u32 kSettingNumber = 4;
constexpr u32 kReadAccess = 0x20019;

u32 Put(ZnHandle set, const char* name, u32 tag, u32 flags, std::size_t size, const void* value) {
  Property2 property{};
  // The record is read only; its pointers are not const because it also carries results.
  property.Name = const_cast<char*>(name);
  property.Type = tag;
  property.Flags = flags;
  property.Size = static_cast<u32>(size);
  property.Value = const_cast<void*>(value);
  return PsSetProperty(set, &property);
}

// Writes the alternative that a Value holds, under the tag that stands for it.
struct Putter {
  ZnHandle set;
  const char* name;
  u32 flags;

  u32 operator()(bool value) const {
    const u8 byte = value ? 1 : 0;
    return Put(set, name, ZN_TYPE_BOOLEAN, flags, sizeof(byte), &byte);
  }
  u32 operator()(u32 value) const {
    return Put(set, name, ZN_TYPE_UINT32, flags, sizeof(value), &value);
  }
  u32 operator()(std::uint64_t value) const {
    return Put(set, name, ZN_TYPE_UINT64, flags, sizeof(value), &value);
  }
  u32 operator()(Time value) const {
    return Put(set, name, ZN_TYPE_TIME, flags, sizeof(value.seconds), &value.seconds);
  }
  u32 operator()(const std::string& value) const {
    // A text ends at its first zero; a longer size would not fit its contents.
    return Put(set, name, ZN_TYPE_STRING, flags, std::char_traits<char>::length(value.c_str()) + 1,
               value.c_str());
  }
  u32 operator()(const std::u16string& value) const {
    const std::size_t length = std::char_traits<char16_t>::length(value.c_str());
    return Put(set, name, ZN_TYPE_WIDESTRING, flags, (length + 1) * sizeof(ZnWChar), value.c_str());
  }
  u32 operator()(const std::vector<std::string>& value) const {
    std::vector<const char*> texts;
    texts.reserve(value.size());
    for (const std::string& text : value) texts.push_back(text.c_str());
    return Put(set, name, ZN_TYPE_STRING | ZN_TYPE_ARRAY, flags, texts.size(),
               texts.empty() ? nullptr : texts.data());
  }
};

std::u16string ProviderName(ZnHandle provider) {
  ZnWChar* name = nullptr;
  if (ZN_FAILED(PrGetProviderName(provider, &name))) return {};
  std::u16string text(name);
  ZnFree(name);
  return text;
}

// The bytes of a value of the wanted type, empty where there is none.
std::vector<u8> QuerySetting(ZnHandle key, const ZnWChar* name, u32 wantedType) {
  std::vector<u8> data(4096);
  u32 type = 0;
  u32 length = static_cast<u32>(data.size());
  u32 status = ZnRegQueryValueEx(key, name, nullptr, &type, data.data(), &length);
  if (status == ZNE_BUFFER_TOO_SMALL && length > data.size()) {
    data.resize(length);
    status = ZnRegQueryValueEx(key, name, nullptr, &type, data.data(), &length);
  }
  if (ZN_FAILED(status) || type != wantedType) return {};
  data.resize(length);
  return data;
}

std::string SettingText(ZnHandle key, const ZnWChar* name, const std::string& fallback) {
  const std::vector<u8> data = QuerySetting(key, name, kSettingString);
  if (data.empty()) return fallback;
  std::u16string wide(data.size() / sizeof(ZnWChar), u'\0');
  std::copy_n(data.data(), wide.size() * sizeof(ZnWChar), reinterpret_cast<u8*>(wide.data()));
  return FromUtf16(wide.substr(0, wide.find(u'\0')));
}

u32 SettingNumber(ZnHandle key, const ZnWChar* name, u32 fallback) {
  const std::vector<u8> data = QuerySetting(key, name, kSettingNumber);
  if (data.size() != sizeof(u32)) return fallback;
  u32 value = 0;
  std::copy_n(data.data(), sizeof(value), reinterpret_cast<u8*>(&value));
  return value;
}

}  // namespace

PropertySet::PropertySet() {
  if (ZN_FAILED(PsCreatePropset(&handle_))) handle_ = nullptr;
}

PropertySet::~PropertySet() {
  if (handle_ != nullptr) PsDestroyPropset(handle_);
}

u32 PutProperty(ZnHandle set, const char* name, const Value& value, u32 flags) {
  return std::visit(Putter{set, name, flags}, value);
}

u32 PutProperty(ZnHandle set, const char* name, const PropertySet& value) {
  return Put(set, name, ZN_TYPE_PROPSET, 0, 8, value.Handle());
}

u32 PutId(ZnHandle set, const char* name, const ObjectId& id) {
  return Put(set, name, ZN_TYPE_OBJECT_ID, 0, sizeof(id), &id);
}

u32 PutProperties(ZnHandle set, const Properties& properties) {
  for (const auto& [name, value] : properties) {
    const u32 status = PutProperty(set, name.c_str(), value);
    if (ZN_FAILED(status)) return status;
  }
  return 0;
}

u32 FindText(ZnHandle set, const char* name, std::string* text) {
  Property2* property = nullptr;
  const u32 status = PsFindProperty(set, name, &property);
  if (ZN_FAILED(status)) return status;
  u32 result = 0;
  if (property->Type == ZN_TYPE_STRING) {
    *text = static_cast<const char*>(property->Value);
  } else if (property->Type == ZN_TYPE_WIDESTRING) {
    *text = FromUtf16(static_cast<const ZnWChar*>(property->Value));
  } else {
    result = ZNE_INVALID_ARGUMENTS;
  }
  PsFreeProperty(property);
  return result;
}

u32 FindId(ZnHandle set, const char* name, ObjectId* id) {
  Property2* property = nullptr;
  const u32 status = PsFindProperty(set, name, &property);
  if (ZN_FAILED(status)) return status;
  const bool good = property->Type == ZN_TYPE_OBJECT_ID;
  if (good) *id = *static_cast<const ObjectId*>(property->Value);
  PsFreeProperty(property);
  return good ? 0 : ZNE_INVALID_ARGUMENTS;
}

Settings ReadSettings(ZnHandle provider) {
  Settings settings;
  ZnHandle key = nullptr;
  const std::u16string path = u"Providers/" + ProviderName(provider);
  if (ZN_FAILED(ZnRegOpenKeyEx(HkeyMiraRoot(), path.c_str(), 0, kReadAccess, &key))) {
    return settings;
  }
  settings.root = SettingText(key, u"Root", settings.root);
  settings.periodMs = SettingNumber(key, u"Period", settings.periodMs);
  AlertLimits& alerts = settings.alerts;
  alerts.fullPercent = SettingNumber(key, u"AlertUsedPercent", alerts.fullPercent);
  alerts.hysteresis = SettingNumber(key, u"AlertHysteresis", alerts.hysteresis);
  alerts.links = SettingNumber(key, u"AlertLinks", 1) != 0;
  alerts.disks = SettingNumber(key, u"AlertDisks", 1) != 0;
  ZnRegCloseKey(key);
  while (settings.root.ends_with('/')) settings.root.pop_back();
  if (settings.periodMs != 0) settings.periodMs = std::max(settings.periodMs, kLeastPeriodMs);
  return settings;
}

void Publisher::Publish(Inventory next) {
  const Changes changes = Compare(current_, next);
  if (changes.IsEmpty()) return;
  DbUpdateSequenceStart(database_, 0);
  for (const std::string& key : changes.removed) Remove(key);
  for (const std::string& key : changes.added) {
    if (!Add(key, next[key])) next.erase(key);
  }
  for (const auto& [key, properties] : changes.changed) Set(key, properties);
  for (const auto& [parent, child] : changes.unlinked) {
    ObRemoveChildObject(database_, IdOf(parent), IdOf(child));
  }
  for (const auto& [parent, child] : changes.linked) {
    ObAddChildObject(database_, IdOf(parent), IdOf(child));
  }
  DbUpdateSequenceFinish(database_, 0);
  current_ = std::move(next);
}

void Publisher::ForgetDeleted() {
  std::erase_if(ids_, [this](const auto& entry) {
    if (ObExists(database_, entry.second)) return false;
    current_.erase(entry.first);
    return true;
  });
  // Relations to a deleted object are gone with it.
  for (auto& [key, item] : current_) {
    std::erase_if(item.parents,
                  [this](const std::string& parent) { return !current_.contains(parent); });
  }
}

void Publisher::Remove(const std::string& key) {
  ObDeleteObject(database_, IdOf(key));
  ids_.erase(key);
}

bool Publisher::Add(const std::string& key, const Item& item) {
  ObjectId id{};
  if (ZN_FAILED(ObCreateObject(database_, provider_, item.type, &id))) return false;
  ids_[key] = id;
  Set(key, item.properties);
  // Last, so that whoever finds the object by its key finds it whole.
  const u32 status = ObSetKey(database_, id, key.data(), static_cast<u32>(key.size()));
  if (ZN_FAILED(status)) {
    Remove(key);
    return false;
  }
  return true;
}

void Publisher::Set(const std::string& key, const Properties& properties) {
  const PropertySet set;
  if (ZN_FAILED(PutProperties(set.Handle(), properties))) return;
  // Fails only on an object that somebody else has deleted; a rescan makes it again.
  ObSetProperties(database_, IdOf(key), set.Handle());
}

ObjectId Publisher::IdOf(const std::string& key) const {
  const auto found = ids_.find(key);
  return found == ids_.end() ? ObjectId{} : found->second;
}

}  // namespace hostinv
