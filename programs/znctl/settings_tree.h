// The settings as the console holds them: a tree of keys with typed values, and its TOML form,
// which is that of the settings file: text is a string, an integer from 0 to 4294967295 a DWORD, an
// array of strings a list, { binary = "hex" } bytes. Pure functions; settings_store.h reaches the
// library's store.
#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "zn/types.h"

namespace zn::ctl {

using SettingData = std::variant<std::string, u32, std::vector<std::string>, std::vector<u8>>;

struct SettingValue {
  std::string name;
  SettingData data;
};

struct SettingsKey {
  std::string name;
  std::vector<SettingValue> values;
  std::vector<SettingsKey> keys;
};

// A value's place: the key's path with "/" between names ("" is the root), and the value's name.
struct SettingPath {
  std::string key;
  std::string name;
};

// "Providers/hostinv/ImageFile" or "Providers\hostinv\ImageFile". Throws UsageError for an empty
// name anywhere.
SettingPath ParseSettingPath(std::string_view text);
std::string NormaliseKeyPath(std::string_view text);

std::string ToToml(const SettingsKey& root);

// Throws Failure that names line and column of what is wrong.
SettingsKey ParseToml(std::string_view text, const std::string& file);

std::string SettingTypeName(const SettingData& data);  // string, dword, list, binary
std::string FormatSetting(const SettingData& data);    // as TOML writes it

// Reads command-line words as a value. `type` may be empty: one whole number is a DWORD, several
// words are a list, else text. Throws UsageError.
SettingData ParseSetting(const std::vector<std::string>& words, const std::string& type);

}  // namespace zn::ctl
