// The settings store as the ZnReg* calls see it: a tree of keys with named, typed values. The
// host's half keeps it (posix/settings_store.cpp). A key is named by its path from the root, names
// are UTF-8 and compared without case. Any thread.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "zn/types.h"

namespace zn {

using SettingsPath = std::vector<std::string>;

// A value in the form of the boundary: its ZN_REG_ type and its bytes, texts with terminators.
struct SettingValue {
  u32 type = 0;
  std::vector<u8> data;
  bool operator==(const SettingValue&) const = default;
};

// What the calls below answer besides 0:
inline constexpr u32 kSettingMissing = 0xC100000Cu;   // no such key or value
inline constexpr u32 kSettingNoMore = 0xC1000013u;    // the enumeration is at its end
inline constexpr u32 kSettingRefused = 0xC1000001u;   // the key was deleted, or still has subkeys;
                                                      // the file cannot be read, parsed or written
inline constexpr u32 kSettingConflict = 0x80070057u;  // a key where a value stands, or the reverse

[[nodiscard]] u32 SettingsOpen(const SettingsPath& path);
[[nodiscard]] u32 SettingsCreateKey(const SettingsPath& path);
[[nodiscard]] u32 SettingsDeleteKey(const SettingsPath& path);
[[nodiscard]] u32 SettingsSubKey(const SettingsPath& path, u32 index, std::string* name);
[[nodiscard]] u32 SettingsValueAt(const SettingsPath& path, u32 index, std::string* name,
                                  SettingValue* value);
[[nodiscard]] u32 SettingsValue(const SettingsPath& path, const std::string& name,
                                SettingValue* value);
[[nodiscard]] u32 SettingsSetValue(const SettingsPath& path, const std::string& name,
                                   const SettingValue& value);
[[nodiscard]] u32 SettingsDeleteValue(const SettingsPath& path, const std::string& name);

}  // namespace zn
