// Providers without a library, and the making and unmaking of provider objects: see the header.
#include "framework/common/znprov/localprovider.h"

#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/databaseref.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"

namespace zn {

namespace {

[[nodiscard]] std::vector<ObjectId> ObjectsOf(Database& database, const InternedId& provider) {
  std::vector<ObjectId> all;
  if (ZN_FAILED(database.ListInstances(kRootTypeName, &all))) return {};
  std::erase_if(all, [&](const ObjectId& id) {
    const DBNode* node = database.FindCached(id);
    return node == nullptr || !(node->CreatorId() == provider);
  });
  return all;
}

void DeleteObjectsOf(Database& database, const InternedId& provider) {
  for (const ObjectId& id : ObjectsOf(database, provider)) {
    DBNode* node = database.FindCached(id);
    if (node != nullptr) database.DeleteNode(node);
  }
}

}  // namespace

Provider* AddProviderObject(Database& database, std::u16string_view name,
                            const ProviderCallbacks& callbacks, std::shared_ptr<void> library,
                            bool isBuiltIn) {
  TypeObject* type = database.Types().FindType("KELD_Provider");
  if (type == nullptr) return nullptr;
  auto provider =
      std::make_unique<Provider>(&database, type, name, callbacks, std::move(library), isBuiltIn);
  Provider* added = provider.get();
  database.AddProvider(std::move(provider));
  return added;
}

u32 AddLocalProvider(Database& database, std::u16string_view name,
                     const ProviderCallbacks& callbacks, ZnHandle* out) {
  Provider* provider = AddProviderObject(database, name, callbacks, nullptr, false);
  if (provider == nullptr) return ZNE_TYPE_NOT_FOUND;
  if (&database != ZnGetSystemDatabase()) {
    provider->SetRawFlags(provider->GetFlags() | OBJECT_CLIENT_LOCAL);
  }
  const ZnHandle handle = provider->Handle();
  const DatabaseRef reference(database);
  if (callbacks.Initialize != nullptr) {
    const u32 status = provider->Initialize();
    Database* still = reference.Find();
    if (still == nullptr) return ZNE_UNEXPECTED;  // deleted meanwhile, and the provider with it
    if (ZN_FAILED(status)) {
      DiscardProvider(*still, handle);
      return status;
    }
    provider = still->FindProviderByHandle(handle);
    if (provider == nullptr) return ZNE_UNEXPECTED;
  }
  provider->SetRegistered();
  *out = handle;
  return ZN_OK;
}

void EnterInGroups(Database& database, const Provider& provider) {
  std::vector<DBNode*> groups;
  if (ZN_FAILED(database.GetGroupsContaining(provider.GetTypeName().Text(), 0, &groups))) return;
  for (DBNode* group : groups) static_cast<void>(group->AddChild(provider.GetId()));
}

void DiscardProvider(Database& database, ZnHandle handle) noexcept {
  Provider* provider = database.FindProviderByHandle(handle);
  if (provider == nullptr) return;
  try {
    DeleteObjectsOf(database, provider->GetId());
  } catch (const std::bad_alloc&) {
    // Some of its objects stay, without a creator; that is no reason to keep the provider.
  }
  database.TakeProvider(provider).reset();
}

}  // namespace zn
