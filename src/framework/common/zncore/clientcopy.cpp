// Client copies from outside: see the header.
#include "framework/common/zncore/clientcopy.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/zncore/wireform.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/znwire/messages.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/status.h"

namespace zn {

namespace {

[[nodiscard]] Database* LiveCopy(ZnHandle handle) noexcept {
  if (!IsValidHandle(handle, HANDLE_DATABASE)) return nullptr;
  auto* database = HandleThing<Database>(handle);
  return database->IsLocal() ? nullptr : database;
}

// The provider of an event, null where it names none.
[[nodiscard]] u32 ProviderOfEvent(Database& database, const PropertySet& message, ZnHandle* out) {
  *out = nullptr;
  const Value* id = message.FindValue(wire::kProviderIdKey, ZN_TYPE_OBJECT_ID);
  if (id == nullptr || IsZeroGuid(id->AsGuid())) return ZN_OK;
  // Not fetched here: the answer would come on the connection that this very call holds up.
  const Provider* provider = database.FindProviderById(id->AsGuid());
  if (provider == nullptr) {
    database.ForgetProvidersComplete();
    return ZNE_PROVIDER_REG_NO_PROVIDERS;
  }
  *out = provider->Handle();
  return ZN_OK;
}

}  // namespace

ZnHandle CreateClientCopy(const DatabaseCallbacks& callbacks) noexcept try {
  const BusLock lock;
  auto database = std::make_unique<Database>(0, callbacks);
  const ZnHandle handle = database->Handle();
  if (handle == nullptr) return nullptr;
  database->SetAuthenticated(false);
  DatabaseList().push_back(std::move(database));
  return handle;
} catch (const std::bad_alloc&) {
  return nullptr;
}

bool DeleteClientCopy(ZnHandle handle) noexcept {
  const BusLock lock;
  const Database* database = LiveCopy(handle);
  if (database == nullptr) return false;
  auto& list = DatabaseList();
  const auto place = std::find_if(list.begin(), list.end(),
                                  [&](const auto& entry) { return entry.get() == database; });
  if (place == list.end()) return false;
  const std::unique_ptr<Database> taken = std::move(*place);
  list.erase(place);
  return true;  // its destructor waits for the requests under way
}

bool SetLoggedOn(ZnHandle handle, bool isLoggedOn) noexcept {
  const BusLock lock;
  Database* database = LiveCopy(handle);
  if (database == nullptr) return false;
  database->SetAuthenticated(isLoggedOn);
  return true;
}

void UnloadProvidersOf(const DatabaseRef& reference) noexcept {
  for (;;) {
    Database* database = reference.Find();
    if (database == nullptr || database->Providers().empty()) return;
    const std::unique_ptr<Provider> provider =
        database->TakeProvider(database->Providers().back().get());
    static_cast<void>(provider->Shutdown());
  }
}

void TellServerGone(ZnHandle handle) noexcept {
  const BusLock lock;
  const Database* database = LiveCopy(handle);
  if (database != nullptr) UnloadProvidersOf(DatabaseRef(*database));
}

u32 DbUpdateCache(ZnHandle hDb, PropertySet& record) noexcept {
  return ApiCall("DbUpdateCache", {.entry = false, .exit = false}, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return database->UpdateCache(record);
  });
}

u32 RaiseServerEvent(ZnHandle hDb, PropertySet& message) noexcept try {
  const BusLock lock;
  Database* database = LiveCopy(hDb);
  if (database == nullptr) return ZNE_INVALID_ARGUMENTS;
  const Value* flags = message.FindValue(wire::kFlagsKey, ZN_TYPE_UINT32);
  const Value* topic = message.FindValue(wire::kNotificationIdKey, ZN_TYPE_STRING);
  PropertySet data;
  if (flags == nullptr || topic == nullptr || !TakeNestedSet(message, wire::kDataKey, &data)) {
    return ZNE_PROPERTY_NOT_FOUND;
  }
  ZnHandle provider = nullptr;
  ZN_RETURN_IF_FAILED(ProviderOfEvent(*database, message, &provider));
  if (!database->Events().HasListeners()) return ZN_OK;
  return RaiseReceivedEvent(*database, provider, topic->AsText(), std::move(data),
                            flags->AsUInt32());
} catch (const std::bad_alloc&) {
  return ZNE_OUT_OF_MEMORY;
}

}  // namespace zn
