// The settings as one TOML document in memory. The top level is the root key. A table is a key, a
// string a text, an integer in 0 ... 2^32-1 a DWORD, an array of strings a string list, an inline
// table { binary = "hex" } bytes. Whatever else TOML knows (floats, booleans, dates, other arrays,
// integers out of range) is kept as it stands, but is no value of this store. Names are compared
// without case and kept as first written; of two that differ in case alone the first in byte order
// counts. Not safe for threads: the store locks.
#pragma once

#include <toml++/toml.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/common/settings_store.h"

namespace zn {

struct SettingsError {
  u32 line = 0;
  u32 column = 0;
  std::string text;
};

class SettingsDocument {
 public:
  // False with `error` filled when the text is no TOML; `this` is empty then.
  [[nodiscard]] bool Parse(std::string_view text, SettingsError* error);

  // The document as text, which Parse reads back to an equal document. The comment lines that stood
  // at the very top of the parsed text come first; other comments are lost. Empty when the text
  // would not read back.
  [[nodiscard]] std::string Format() const;

  // Where something stands that is no value of this store, and what it is: one line each.
  [[nodiscard]] std::vector<std::string> Oddities() const;

  // The statuses are those of settings_store.h. `*changed` tells whether there is something new to
  // write; it is only ever set to true.
  [[nodiscard]] u32 Open(const SettingsPath& path) const;
  [[nodiscard]] u32 CreateKey(const SettingsPath& path, bool* changed);
  [[nodiscard]] u32 DeleteKey(const SettingsPath& path, bool* changed);
  [[nodiscard]] u32 SubKey(const SettingsPath& path, u32 index, std::string* name) const;
  [[nodiscard]] u32 ValueAt(const SettingsPath& path, u32 index, std::string* name,
                            SettingValue* value) const;
  [[nodiscard]] u32 Value(const SettingsPath& path, std::string_view name,
                          SettingValue* value) const;
  [[nodiscard]] u32 SetValue(const SettingsPath& path, std::string_view name,
                             const SettingValue& value, bool* changed);
  [[nodiscard]] u32 DeleteValue(const SettingsPath& path, std::string_view name, bool* changed);

 private:
  toml::table root_;
  std::string head_;  // the comment lines at the top, newlines included
};

}  // namespace zn
