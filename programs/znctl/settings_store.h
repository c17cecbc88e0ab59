// The library's settings store through its exports. Works without the bus. A key that is not there
// reads as empty; failures are thrown as Failure.
#pragma once

#include <optional>
#include <string>

#include "settings_tree.h"

namespace zn::ctl {

SettingsKey ReadSettings(const std::string& keyPath);
bool SettingsKeyExists(const std::string& keyPath);
std::optional<SettingData> ReadSetting(const SettingPath& path);
void WriteSetting(const SettingPath& path, const SettingData& data);
void DeleteSetting(const SettingPath& path);

// Writes every value of the tree; the number of values written.
size_t WriteSettings(const SettingsKey& root);

}  // namespace zn::ctl
