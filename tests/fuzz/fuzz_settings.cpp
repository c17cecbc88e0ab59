// The settings file: any text parses or is refused with a place; what parses is written as a text
// that reads back the same and keeps every key and value, and survives changes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/posix/settings_toml.h"
#include "zn/settings.h"

namespace {

using zn::SettingsDocument;
using zn::SettingsPath;

void Require(bool condition) {
  if (!condition) std::abort();
}

// Every key and value below a key, as the store enumerates them.
using Listing = std::vector<std::pair<SettingsPath, zn::SettingValue>>;

void List(const SettingsDocument& document, const SettingsPath& path, Listing* listing) {
  listing->push_back({path, {}});
  std::string name;
  zn::SettingValue value;
  for (u32 i = 0; document.ValueAt(path, i, &name, &value) == 0; ++i) {
    zn::SettingValue found;
    Require(document.Value(path, name, &found) == 0 && found == value);
    SettingsPath named = path;
    named.push_back(name);
    listing->push_back({named, value});
  }
  for (u32 i = 0; document.SubKey(path, i, &name) == 0; ++i) {
    SettingsPath below = path;
    below.push_back(name);
    Require(document.Open(below) == 0);
    List(document, below, listing);
  }
}

Listing ListingOf(const SettingsDocument& document) {
  Listing listing;
  List(document, {}, &listing);
  return listing;
}

SettingsDocument Reread(const SettingsDocument& document) {
  const std::string text = document.Format();
  Require(!text.empty());
  SettingsDocument again;
  zn::SettingsError error;
  Require(again.Parse(text, &error));
  return again;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  SettingsDocument document;
  zn::SettingsError error;
  if (!document.Parse(text, &error)) {
    Require(error.line > 0 && !error.text.empty());
    return 0;
  }
  static_cast<void>(document.Oddities());
  const Listing listing = ListingOf(document);
  Require(ListingOf(Reread(document)) == listing);

  bool changed = false;
  const zn::SettingValue number{ZN_REG_DWORD, {1, 2, 3, 4}};
  for (const auto& [path, value] : listing) {
    if (value.type == 0 && document.Open(path) == 0) {
      static_cast<void>(document.SetValue(path, "binary", number, &changed));
    } else if (value.type != 0) {
      const SettingsPath key(path.begin(), path.end() - 1);
      Require(document.DeleteValue(key, path.back(), &changed) == 0 || document.Open(key) != 0);
    }
  }
  Require(ListingOf(Reread(document)) == ListingOf(document));
  return 0;
}
