// ZnInitialize: the system database, the provider "system" with the declared types, groups, the
// files offered to clients, declared alerts, the library's own alerts and the providers, in that
// order.
#include <memory>
#include <string>

#include "framework/common/znalert/alert.h"
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znapi/framework.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/extensions.h"
#include "framework/common/znprov/loader.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/znprov/systemprovider.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "support/common/helpers.h"
#include "zn/alert.h"
#include "zn/init.h"
#include "zn/platform.h"
#include "zn/settings.h"

namespace zn {
namespace {

constexpr u32 kServerFlag = 1;

std::u16string& InstallDir() noexcept {
  static auto& directory = *new std::u16string;
  return directory;
}

// The system database, made when there is none; whether it was.
[[nodiscard]] bool MakeSystemDatabase(ZnChangeCallback change, ZnEventCallback event) {
  if (ZnGetSystemDatabase() != nullptr) return false;
  DatabaseCallbacks callbacks;
  callbacks.changeCallback = change;
  callbacks.eventCallback = event;
  auto database = std::make_unique<Database>(DB_KEYED, callbacks);
  DatabaseList().push_back(std::move(database));
  SetSystemDatabase(DatabaseList().back().get());
  ZN_TRACE(1, "ZnAPI:ZnInitialize:System database created");
  return true;
}

void GiveSystemHandle(ZnHandle* out) noexcept {
  if (out == nullptr) return;
  Database* database = ZnGetSystemDatabase();
  *out = database == nullptr ? nullptr : database->Handle();
}

void ReadServerFlags() {
  u32 flags = 0;
  static_cast<void>(ReadDwordSetting(HkeyMiraRoot(), nullptr, u"Flags", 0, &flags));
  static_cast<void>(ZnSetServerFlags(flags));
}

[[nodiscard]] u32 MakeSystemProvider(Database& database) {
  ZN_TRACE(1, "ZnAPI:ZnInitialize:Creating system provider");
  ZN_RETURN_IF_FAILED(CreateSystemProvider(database, kSystemProviderName));
  ZN_TRACE(1, "ZnAPI:ZnInitialize:System provider created");
  return ZN_OK;
}

// Groups and files are an offer of the settings: a start without them goes on.
void MakeExtensionObjects(Database& database, Provider& system) {
  ZN_TRACE(1, "ZnAPI:ZnInitialize:Creating extension objects");
  static_cast<void>(CreateExtensionObjects(database, system));
  ZN_TRACE(1, "ZnAPI:ZnInitialize:Extension objects created");
}

// The alerts of the document that the settings name, published by the provider "system". A document
// with a fault is traced, and the start goes on without it.
void ReadDeclaredAlerts(Database& database, const Provider& system) {
  const std::string path = PathSetting(u"AlertTypeFile");
  if (path.empty()) return;
  const auto publish = [provider = system.Handle()](ZnHandle hDb, const AlertDescriptor& alert) {
    return ObPublishAlert(hDb, provider, &alert);
  };
  static_cast<void>(ReadAlertTypesFromFile(database.Handle(), path.c_str(), publish));
}

// What the settings and the library itself bring before any provider loads.
[[nodiscard]] u32 FillDatabase(Database& database, bool isNew) {
  Provider* system = database.FindProviderByName(kSystemProviderName);
  if (isNew) static_cast<void>(database.LoadRegistryGroups(system));
  if (system == nullptr) return ZN_OK;
  MakeExtensionObjects(database, *system);
  ReadDeclaredAlerts(database, *system);
  return PublishServerAlerts(database, *system);
}

// The signal for providers that wait for all others.
void RaiseLastPhase(Database& database) {
  Provider* system = database.FindProviderByName(kSystemProviderName);
  if (system == nullptr) return;
  static_cast<void>(RaiseEvent(database, system->Handle(), InitializationTopic("lastphase"),
                               PropertySet(), kRaiseFlags));
}

[[nodiscard]] u32 LoadProviders(Database& database) {
  ZN_TRACE(1, "ZnAPI:ZnInitialize:Loading registered providers");
  ZN_RETURN_IF_FAILED(LoadRegisteredProviders(database, 0));
  ZN_TRACE(1, "ZnAPI:ZnInitialize:Provider loading complete");
  return ZN_OK;
}

[[nodiscard]] u32 StartServer(ZnChangeCallback change, ZnEventCallback event, ZnHandle* out) {
  if (IsShuttingDown()) return ZNE_SHUTDOWN_STARTED;
  if (!StartFramework(0)) return ZNE_UNEXPECTED;
  const bool isNew = MakeSystemDatabase(change, event);
  GiveSystemHandle(out);
  ReadServerFlags();
  Database& database = *ZnGetSystemDatabase();
  ZN_RETURN_IF_FAILED(MakeSystemProvider(database));
  ZN_RETURN_IF_FAILED(FillDatabase(database, isNew));
  ZN_RETURN_IF_FAILED(LoadProviders(database));
  RaiseLastPhase(database);
  if (ZN_FAILED(ReadTextSetting(HkeyMiraRoot(), nullptr, u"InstallDir", &InstallDir()))) {
    return ZNE_UNEXPECTED;
  }
  // The last act: what the start itself created raises no change events.
  database.RaiseNotifyEnable();
  return ZN_OK;
}

}  // namespace

const std::u16string& InstallDirAtStart() noexcept {
  return InstallDir();
}

}  // namespace zn

extern "C" {

using namespace zn;

u32 ZnInitialize(u32 flags, ZnChangeCallback change, ZnEventCallback event, ZnHandle* database) {
  return ApiCall("ZnInitialize", [&](ApiFrame& frame) -> u32 {
    const bool isServer = (flags & kServerFlag) != 0;
    const bool isChangeGood = !isServer || IsGoodPointer(reinterpret_cast<const void*>(change));
    ZN_RETURN_UNLESS_OK(frame.Check((flags & ~kServerFlag) == 0 && isChangeGood &&
                                    (database == nullptr || IsGoodPointer(database))));
    if (isServer) return StartServer(change, event, database);
    GiveSystemHandle(database);
    return ZN_OK;
  });
}

}  // extern "C"
