// The ZnReg* calls: argument checks, key handles, names and buffers over the settings store. A key
// handle stands for a path, kept in one table under a lock of its own, so that a handle closed on
// another thread at the same moment is a refusal and not a fault. A key that was deleted under its
// handle answers kSettingRefused, and is there again when it is made again.
#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "support/common/handle.h"
#include "support/common/pointers.h"
#include "support/common/settings_store.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "support/common/text.h"
#include "zn/settings.h"

namespace zn {

namespace {

constexpr u32 kKeyTag = 0x455A0002;  // none of the kinds that ZnCloseHandle takes
constexpr size_t kMaxDepth = 512;

// The open keys.
class KeyTable {
 public:
  // Null when memory is short.
  ZnHandle Open(SettingsPath path) {
    ZnHandle key = AllocateHandle(kKeyTag, nullptr);
    if (key == nullptr) return nullptr;
    const MutexLock lock(mutex_);
    paths_.insert_or_assign(key, std::move(path));
    return key;
  }

  // The root's handle is made once and stays.
  ZnHandle Root() {
    const MutexLock lock(mutex_);
    if (HandleTag(root_) != kKeyTag) {
      root_ = AllocateHandle(kKeyTag, nullptr);
      if (root_ != nullptr) paths_.insert_or_assign(root_, SettingsPath());
    }
    return root_;
  }

  bool Find(ZnHandle key, SettingsPath* path) {
    const MutexLock lock(mutex_);
    const auto found = HandleTag(key) == kKeyTag ? paths_.find(key) : paths_.end();
    if (found == paths_.end()) return false;
    *path = found->second;
    return true;
  }

  bool Close(ZnHandle key) {
    const MutexLock lock(mutex_);
    if (key == root_) return HandleTag(key) == kKeyTag;
    paths_.erase(key);
    return FreeHandle(key, kKeyTag);
  }

 private:
  Mutex mutex_;
  ZnHandle root_ ZN_GUARDED_BY(mutex_) = nullptr;
  std::unordered_map<ZnHandle, SettingsPath> paths_ ZN_GUARDED_BY(mutex_);
};

KeyTable& Keys() {
  static KeyTable& keys = *new KeyTable;  // never destroyed: late threads may ask
  return keys;
}

// Runs a call's body; whatever it throws becomes a status.
template <typename Body>
u32 Guarded(const Body& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ZNE_OUT_OF_MEMORY;
  } catch (const std::exception&) {
    return ZNE_UNEXPECTED;
  }
}

// Adds the names of a path, which '\\' and '/' separate; empty ones count for nothing.
u32 AppendPath(const ZnWChar* text, SettingsPath* path) {
  const std::u16string_view whole(text);
  size_t start = 0;
  while (start < whole.size()) {
    const size_t end = std::min(whole.find_first_of(u"\\/", start), whole.size());
    if (end > start) path->push_back(ToNarrow(whole.substr(start, end - start)));
    start = end + 1;
  }
  return path->size() <= kMaxDepth ? ZN_OK : ZNE_INVALID_ARGUMENTS;
}

// A null name is the key's unnamed value.
std::string NameOf(const ZnWChar* name) {
  return name == nullptr ? std::string() : ToNarrow(name);
}

// Copies a name with its terminator. `*length` has the room in units and receives the length
// without the terminator; when the room is short, the room that is needed.
u32 GiveName(const std::string& name, ZnWChar* out, u32* length) {
  const std::u16string wide = ToWide(name);
  if (wide.size() + 1 > *length) {
    *length = static_cast<u32>(wide.size() + 1);
    return ZNE_BUFFER_TOO_SMALL;
  }
  std::copy_n(wide.c_str(), wide.size() + 1, out);
  *length = static_cast<u32>(wide.size());
  return ZN_OK;
}

// Copies a value's bytes. `*length` has the room in bytes and receives the size in either case;
// with no buffer only the size is told.
u32 GiveData(const SettingValue& value, u32* type, u8* data, u32* length) {
  if (type != nullptr) *type = value.type;
  if (length == nullptr) return ZN_OK;
  const u32 room = *length;
  *length = static_cast<u32>(value.data.size());
  if (data == nullptr) return ZN_OK;
  if (room < value.data.size()) return ZNE_BUFFER_TOO_SMALL;
  std::copy(value.data.begin(), value.data.end(), data);
  return ZN_OK;
}

u32 OpenKeyAt(SettingsPath path, ZnHandle* result) {
  ZnHandle key = Keys().Open(std::move(path));
  if (key == nullptr) return ZNE_OUT_OF_MEMORY;
  *result = key;
  return ZN_OK;
}

}  // namespace

}  // namespace zn

extern "C" {

ZnHandle HkeyMiraRoot(void) {
  ZnHandle root = nullptr;
  static_cast<void>(zn::Guarded([&]() -> u32 {
    ZN_RETURN_IF_FAILED(zn::SettingsOpen({}));
    root = zn::Keys().Root();
    return ZN_OK;
  }));
  return root;
}

u32 ZnRegOpenKeyEx(ZnHandle key, const ZnWChar* subKey, u32, u32, ZnHandle* result) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path) || !zn::IsGoodPointer(result)) return ZNE_INVALID_ARGUMENTS;
    if (subKey != nullptr) ZN_RETURN_IF_FAILED(zn::AppendPath(subKey, &path));
    ZN_RETURN_IF_FAILED(zn::SettingsOpen(path));
    return zn::OpenKeyAt(std::move(path), result);
  });
}

u32 ZnRegCreateKey(ZnHandle key, const ZnWChar* subKey, ZnHandle* result) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path) || !zn::IsGoodPointer(result)) return ZNE_INVALID_ARGUMENTS;
    if (subKey != nullptr) ZN_RETURN_IF_FAILED(zn::AppendPath(subKey, &path));
    ZN_RETURN_IF_FAILED(zn::SettingsCreateKey(path));
    return zn::OpenKeyAt(std::move(path), result);
  });
}

u32 ZnRegCloseKey(ZnHandle key) {
  return zn::Guarded(
      [&]() -> u32 { return zn::Keys().Close(key) ? ZN_OK : ZNE_INVALID_ARGUMENTS; });
}

u32 ZnRegDeleteKey(ZnHandle key, const ZnWChar* subKey) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path) || !zn::IsGoodPointer(subKey)) return ZNE_INVALID_ARGUMENTS;
    const size_t depth = path.size();
    ZN_RETURN_IF_FAILED(zn::AppendPath(subKey, &path));
    if (path.size() == depth) return ZNE_INVALID_ARGUMENTS;
    return zn::SettingsDeleteKey(path);
  });
}

u32 ZnRegDeleteValue(ZnHandle key, const ZnWChar* name) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path)) return ZNE_INVALID_ARGUMENTS;
    return zn::SettingsDeleteValue(path, zn::NameOf(name));
  });
}

u32 ZnRegEnumKeyEx(ZnHandle key, u32 index, ZnWChar* name, u32* nameLen, u32*, ZnWChar* cls,
                   u32* clsLen, void*) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path)) return ZNE_INVALID_ARGUMENTS;
    if (!zn::IsGoodPointer(name) || !zn::IsGoodPointer(nameLen)) return ZNE_INVALID_ARGUMENTS;
    std::string found;
    ZN_RETURN_IF_FAILED(zn::SettingsSubKey(path, index, &found));
    ZN_RETURN_IF_FAILED(zn::GiveName(found, name, nameLen));
    // Keys have no class here: an empty text.
    if (cls != nullptr && clsLen != nullptr && *clsLen > 0) *cls = 0;
    if (clsLen != nullptr) *clsLen = 0;
    return ZN_OK;
  });
}

u32 ZnRegEnumValue(ZnHandle key, u32 index, ZnWChar* name, u32* nameLen, u32*, u32* type, u8* data,
                   u32* dataLen) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path)) return ZNE_INVALID_ARGUMENTS;
    if (!zn::IsGoodPointer(name) || !zn::IsGoodPointer(nameLen)) return ZNE_INVALID_ARGUMENTS;
    if (data != nullptr && dataLen == nullptr) return ZNE_INVALID_ARGUMENTS;
    std::string found;
    zn::SettingValue value;
    ZN_RETURN_IF_FAILED(zn::SettingsValueAt(path, index, &found, &value));
    const u32 nameStatus = zn::GiveName(found, name, nameLen);
    const u32 dataStatus = zn::GiveData(value, type, data, dataLen);
    return ZN_FAILED(nameStatus) ? nameStatus : dataStatus;
  });
}

u32 ZnRegQueryValueEx(ZnHandle key, const ZnWChar* name, u32*, u32* type, u8* data, u32* dataLen) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path)) return ZNE_INVALID_ARGUMENTS;
    if (data != nullptr && dataLen == nullptr) return ZNE_INVALID_ARGUMENTS;
    zn::SettingValue value;
    ZN_RETURN_IF_FAILED(zn::SettingsValue(path, zn::NameOf(name), &value));
    return zn::GiveData(value, type, data, dataLen);
  });
}

u32 ZnRegSetValueEx(ZnHandle key, const ZnWChar* name, u32, u32 type, const u8* data, u32 dataLen) {
  return zn::Guarded([&]() -> u32 {
    zn::SettingsPath path;
    if (!zn::Keys().Find(key, &path)) return ZNE_INVALID_ARGUMENTS;
    if (dataLen != 0 && !zn::IsGoodPointer(data)) return ZNE_INVALID_ARGUMENTS;
    zn::SettingValue value{type, {}};
    if (dataLen != 0) value.data.assign(data, data + dataLen);
    return zn::SettingsSetValue(path, zn::NameOf(name), value);
  });
}

}  // extern "C"
