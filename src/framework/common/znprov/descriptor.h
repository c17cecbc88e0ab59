// What the settings say about one provider. Under the root key:
//
//   Providers\<name>\ImageFile        the library, by default the provider's name
//                    ProviderEntry    the entry point, by default "ProviderEntry"
//                    ProviderGroup    its group; empty for none
//                    DependsOn        providers to load before, if they can be; joined by ";"
//                    StrictDependsOn  providers that must be loaded before; joined by ";"
//                    ClientExtension  id of its client extension
//                    MessageCatalog   id of its message catalog
//                    CONFIGLETS       names of its configlets, joined by ";", at most 256 bytes
//                    every value      text and numbers become properties of the provider
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

struct ProviderDescriptor {
  const ProviderDescriptor* chain = nullptr;  // whose dependency brought this one in
  ProviderCallbacks callbacks{};
  std::u16string name;
  std::u16string imageFile;
  std::vector<std::u16string> dependsOn;
  std::vector<std::u16string> strictDependsOn;
  std::u16string group;  // empty for none
  std::string entryName;
  std::string clientExtension;
  std::string messageCatalog;
  std::vector<std::u16string> configlets;
  std::shared_ptr<void> library;
  PropertySet properties;
};

// Fills the descriptor from the settings; the store's status when the provider's key cannot be
// opened.
[[nodiscard]] u32 ReadDescriptor(std::u16string_view name, ProviderDescriptor* out);

// The names between the semicolons, without blanks around them and without empty ones.
[[nodiscard]] std::vector<std::u16string> SplitNames(std::u16string_view list);

// A key of the settings, closed at the end of its scope.
class SettingsKey {
 public:
  SettingsKey() = default;
  ~SettingsKey();
  SettingsKey(const SettingsKey&) = delete;
  SettingsKey& operator=(const SettingsKey&) = delete;
  // Opens a key below the root: the status of the store.
  [[nodiscard]] u32 Open(std::u16string_view path);
  [[nodiscard]] ZnHandle Get() const noexcept { return key_; }

 private:
  ZnHandle key_ = nullptr;
};

// Every text and number of the key as a property; values of other types are passed over.
void ReadProperties(const SettingsKey& key, PropertySet* out);

// Name of the subkey at an index: ZNE_NO_MORE_PROPERTIES behind the last one, ZNE_BUFFER_TOO_SMALL
// for a name of more than `limit` units.
[[nodiscard]] u32 SubkeyName(const SettingsKey& key, u32 index, u32 limit, std::u16string* out);

}  // namespace zn
