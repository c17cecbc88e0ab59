// The load of all providers: see the header. Source of the order: the settings, whose subkeys come
// sorted without regard to case.
#include "framework/common/znprov/loader.h"

#include <set>
#include <string>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/descriptor.h"
#include "framework/common/znprov/localprovider.h"
#include "framework/common/znprov/textlist.h"
#include "support/common/fastlock.h"
#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr u32 kMaxGroupName = 127;
constexpr u32 kMaxProviderName = 255;

class Loader {
 public:
  explicit Loader(Database& database) noexcept : database_(database) {}
  [[nodiscard]] u32 LoadAll();

 private:
  [[nodiscard]] u32 LoadGroup(const std::u16string& group);
  [[nodiscard]] u32 LoadGroupsBefore(const std::u16string& group);
  [[nodiscard]] u32 LoadProvidersOf(const std::u16string& group);
  [[nodiscard]] u32 LoadGuarded(const std::u16string& name, const std::u16string& group) noexcept;
  [[nodiscard]] u32 LoadProvider(const std::u16string& name, const ProviderDescriptor* parent,
                                 const std::u16string& group);
  [[nodiscard]] u32 LoadDescribed(ProviderDescriptor* descriptor, const std::u16string& group);
  [[nodiscard]] u32 LoadDependencies(const ProviderDescriptor& descriptor, bool areStrict);
  [[nodiscard]] u32 LoadImage(ProviderDescriptor* descriptor);
  [[nodiscard]] u32 StartProvider(const ProviderDescriptor& descriptor, ZnHandle* out);
  void FinishProvider(const ProviderDescriptor& descriptor, Provider& provider);
  void CreateConfiglets(const ProviderDescriptor& descriptor, Provider& provider);
  void RaiseLoaded(const Provider& provider);
  void RecordOutcome(std::u16string_view name, bool isLoaded);

  Database& database_;
  std::set<std::u16string> loadedGroups_;
  std::set<std::u16string> groupsInProgress_;
};

u32 Loader::LoadAll() {
  SettingsKey groups;
  SettingsKey providers;
  if (ZN_FAILED(groups.Open(u"ProviderGroup"))) return ZNE_PROVIDER_GROUP_REG_MISSING;
  if (ZN_FAILED(providers.Open(u"Providers"))) return ZNE_PROVIDER_REG_UNREADABLE;
  bool hasFailed = false;
  for (u32 index = 0;; ++index) {
    std::u16string group;
    const u32 end = SubkeyName(groups, index, kMaxGroupName, &group);
    if (end == ZNE_NO_MORE_PROPERTIES) break;
    if (ZN_FAILED(end)) return ZNE_PROVIDER_GROUP_REG_DAMAGED;
    const u32 status = LoadGroup(group);
    if (status == ZNE_PROVIDER_REG_CIRCULAR) return status;
    if (status != ZN_OK) hasFailed = true;
  }
  // The last pass: every provider without a group.
  if (LoadProvidersOf({}) != ZN_OK) hasFailed = true;
  return hasFailed ? ZNW_PROVIDERS_FAILED_TO_LOAD : ZN_OK;
}

u32 Loader::LoadGroup(const std::u16string& group) {
  if (loadedGroups_.contains(group)) return ZN_OK;
  if (!groupsInProgress_.insert(group).second) return ZNE_PROVIDER_REG_CIRCULAR;
  u32 status = LoadGroupsBefore(group);
  if (status == ZN_OK) status = LoadProvidersOf(group);
  // Whatever the outcome: a group that could not be read is no cycle when it is named again.
  loadedGroups_.insert(group);
  groupsInProgress_.erase(group);
  return status;
}

u32 Loader::LoadGroupsBefore(const std::u16string& group) {
  SettingsKey key;
  if (ZN_FAILED(key.Open(u"ProviderGroup\\" + group))) return ZNE_PROVIDER_GROUP_LOAD_DAMAGED;
  std::u16string dependsOn;
  if (ZN_FAILED(ReadTextSetting(key.Get(), nullptr, u"DependsOn", &dependsOn))) return ZN_OK;
  for (const std::u16string& before : SplitNames(dependsOn)) {
    if (LoadGroup(before) == ZNE_PROVIDER_REG_CIRCULAR) return ZNE_PROVIDER_REG_CIRCULAR;
  }
  return ZN_OK;
}

// Visits every provider of the settings; those of other groups refuse. What becomes of a single
// provider stands in the lists of the provider "system".
u32 Loader::LoadProvidersOf(const std::u16string& group) {
  SettingsKey key;
  if (ZN_FAILED(key.Open(u"Providers"))) return ZNE_PROVIDER_REG_UNREADABLE;
  for (u32 index = 0;; ++index) {
    std::u16string name;
    const u32 end = SubkeyName(key, index, kMaxProviderName, &name);
    if (end == ZNE_NO_MORE_PROPERTIES) return ZN_OK;
    if (ZN_FAILED(end)) return ZNW_PROVIDER_REG_DAMAGED;
    static_cast<void>(LoadGuarded(name, group));
  }
}

// Whatever is thrown, a short memory most likely, costs this provider alone.
u32 Loader::LoadGuarded(const std::u16string& name, const std::u16string& group) noexcept {
  try {
    return LoadProvider(name, nullptr, group);
  } catch (...) {
    return ZNE_PROVIDER_UNRECOVERABLE;
  }
}

// ZN_OK alone means that the provider is there: ZNW_PROVIDER_NOT_IN_GROUP is a warning, and yet the
// end of a provider that strictly depends on this one.
u32 Loader::LoadProvider(const std::u16string& name, const ProviderDescriptor* parent,
                         const std::u16string& group) {
  if (database_.FindProviderByName(name) != nullptr) return ZN_OK;
  ProviderDescriptor descriptor;
  descriptor.chain = parent;
  u32 status = ReadDescriptor(name, &descriptor);
  if (status == ZN_OK) status = LoadDescribed(&descriptor, group);
  if (status != ZN_OK && status != ZNW_PROVIDER_NOT_IN_GROUP) RecordOutcome(name, false);
  return status;
}

u32 Loader::LoadDescribed(ProviderDescriptor* descriptor, const std::u16string& group) {
  if (descriptor->group != group) return ZNW_PROVIDER_NOT_IN_GROUP;
  if (LoadDependencies(*descriptor, true) != ZN_OK) return ZNE_DEPENDENT_PROVIDER_FAILED;
  static_cast<void>(LoadDependencies(*descriptor, false));
  // Contract: whatever the entry point answers but 0 ends the load, successes among it.
  u32 status = LoadImage(descriptor);
  if (status != ZN_OK) return status;
  ZnHandle handle = nullptr;
  status = StartProvider(*descriptor, &handle);
  Provider* provider = database_.FindProviderByHandle(handle);
  if (ZN_FAILED(status) || provider == nullptr) {
    DiscardProvider(database_, handle);
    return ZN_FAILED(status) ? status : ZNE_UNEXPECTED;
  }
  FinishProvider(*descriptor, *provider);
  RecordOutcome(descriptor->name, true);
  return ZN_OK;
}

// Whether a descriptor on the way from this one to its first ancestor has that name.
[[nodiscard]] bool IsOnChain(const ProviderDescriptor& descriptor, std::u16string_view name) {
  for (const ProviderDescriptor* at = &descriptor; at != nullptr; at = at->chain) {
    if (at->name == name) return true;
  }
  return false;
}

// A strict list ends at its first failure. A weak one goes on, but for a cycle, behind which the
// rest of the list is left to its own turn.
u32 Loader::LoadDependencies(const ProviderDescriptor& descriptor, bool areStrict) {
  const auto& names = areStrict ? descriptor.strictDependsOn : descriptor.dependsOn;
  for (const std::u16string& name : names) {
    if (IsOnChain(descriptor, name)) return ZNE_PROVIDER_REG_CIRCULAR;
    const u32 status = LoadProvider(name, &descriptor, descriptor.group);
    if (areStrict && status != ZN_OK) return status;
  }
  return ZN_OK;
}

[[nodiscard]] u32 CallEntryPoint(void* entry, ProviderDescriptor* descriptor) {
  const auto function = reinterpret_cast<ProviderEntryFunction>(entry);
  const BusRelease release;
  try {
    return function(descriptor->name.c_str(), 0, &descriptor->callbacks);
  } catch (...) {
    return ZNE_PROVIDER_UNRECOVERABLE;
  }
}

// Unloading runs the library's own code, wherever the last reference goes.
void Unload(void* library) {
  const BusRelease release;
  static_cast<void>(ZnFreeLibrary(library));
}

u32 Loader::LoadImage(ProviderDescriptor* descriptor) {
  void* library = nullptr;
  {
    const BusRelease release;  // a library runs code of its own when it is loaded
    library = ZnLoadLibraryW(descriptor->imageFile.c_str());
  }
  if (library == nullptr) {
    ZN_TRACE(6, "Error in loading provider %S : %s \n", descriptor->imageFile.c_str(),
             LastFailureText());
    return ZNE_PROVIDER_IMAGE_DAMAGED;
  }
  descriptor->library = {library, &Unload};
  void* entry = ZnGetProcAddress(library, descriptor->entryName.c_str());
  if (entry == nullptr) return ZNE_PROVIDER_REG_NO_PROVIDERS;
  return CallEntryPoint(entry, descriptor);
}

// Makes the provider object and initialises it. The handle is written as soon as there is one.
u32 Loader::StartProvider(const ProviderDescriptor& descriptor, ZnHandle* out) {
  Provider* provider = AddProviderObject(database_, descriptor.name, descriptor.callbacks,
                                         descriptor.library, false);
  if (provider == nullptr) return ZNE_TYPE_NOT_FOUND;
  *out = provider->Handle();
  ZN_RETURN_IF_FAILED(provider->Initialize());
  provider = database_.FindProviderByHandle(*out);
  if (provider == nullptr || provider->Callbacks().GetVersion == nullptr) return ZN_OK;
  const WideString version = provider->GetVersion();
  provider = database_.FindProviderByHandle(*out);
  if (provider == nullptr) return ZN_OK;
  return provider->SetProperty(Property("VERSION", Value::WideText(version)));
}

void Loader::FinishProvider(const ProviderDescriptor& descriptor, Provider& provider) {
  CreateConfiglets(descriptor, provider);
  provider.SetExtensions(descriptor.clientExtension, descriptor.messageCatalog);
  EnterInGroups(database_, provider);
  for (const Property& property : descriptor.properties) {
    // One by one: a value whose name is taken by a property of another type costs itself alone.
    static_cast<void>(provider.SetProperty(property));
  }
  provider.SetRegistered();
  RaiseLoaded(provider);
}

void Loader::CreateConfiglets(const ProviderDescriptor& descriptor, Provider& provider) {
  for (const std::u16string& name : descriptor.configlets) {
    DBNode* node = nullptr;
    if (ZN_FAILED(database_.CreateDBNode(&provider, "KELD_Configlet", 0, &node, nullptr))) {
      ZN_TRACE(6, "Failed to create configlet object\n");
      continue;
    }
    static_cast<void>(node->SetProperty(Property("Name", Value::WideText(name))));
  }
}

void Loader::RaiseLoaded(const Provider& provider) {
  PropertySet data;
  data.Put("Name", Value::WideText(provider.Name()));
  static_cast<void>(RaiseEvent(database_, provider.Handle(),
                               ProviderLoadedTopic(provider.GetId().Value()), data, kRaiseFlags));
}

[[nodiscard]] std::u16string ListOf(const Provider& system, std::string_view property) {
  const Value* list = system.Properties().FindValue(property, ZN_TYPE_WIDESTRING);
  return list == nullptr ? std::u16string() : std::u16string(list->AsWideText());
}

// A failed provider stands once in the one list, a loaded one in the other. Nothing is recorded
// while there is no provider "system".
void Loader::RecordOutcome(std::u16string_view name, bool isLoaded) {
  constexpr std::string_view kFailed = "FAILED_PROVIDERS";
  constexpr std::string_view kLoaded = "LOADED_PROVIDERS";
  Provider* system = database_.FindProviderByName(kSystemProviderName);
  if (system == nullptr) return;
  std::u16string failed = WithoutEntry(ListOf(*system, kFailed), name);
  if (!isLoaded) failed = WithEntry(failed, name);
  static_cast<void>(system->SetProperty(Property(kFailed, Value::WideText(failed))));
  if (!isLoaded) return;
  const std::u16string loaded = WithEntry(ListOf(*system, kLoaded), name);
  static_cast<void>(system->SetProperty(Property(kLoaded, Value::WideText(loaded))));
}

}  // namespace

u32 LoadRegisteredProviders(Database& database, u32 reserved) {
  if (reserved != 0) return ZNE_INVALID_ARGUMENTS;
  return Loader(database).LoadAll();
}

}  // namespace zn
