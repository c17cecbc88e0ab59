// The provider "system": see the header.
#include "framework/common/znprov/systemprovider.h"

#include <memory>
#include <string>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/localprovider.h"
#include "framework/common/znprov/refresh.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "support/common/fastlock.h"
#include "support/common/helpers.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {

namespace {

// Under FAST_LOCK. Null until the first refresh.
std::unique_ptr<RefreshThread>& Refresher() noexcept {
  static auto& refresher = *new std::unique_ptr<RefreshThread>;
  return refresher;
}

enum class Accepted { kStarted, kFolded, kFailed };
[[nodiscard]] Accepted Accept(const RefreshRequest& request) noexcept {
  const BusLock lock;
  std::unique_ptr<RefreshThread>& refresher = Refresher();
  if (refresher == nullptr && !IsShuttingDown()) refresher = RefreshThread::Start();
  if (refresher == nullptr) return Accepted::kFailed;
  return refresher->Take(request) ? Accepted::kStarted : Accepted::kFolded;
}

[[nodiscard]] u32 RequestRefresh(const RefreshRequest& request) noexcept {
  switch (Accept(request)) {
    case Accepted::kStarted:
      return ZN_OK;
    case Accepted::kFolded:
      ReportRefresh(request, TASK_STATE_FINISHED, 100, ZN_OK);
      return ZN_OK;
    case Accepted::kFailed:
      break;
  }
  ReportRefresh(request, TASK_STATE_FINISHED, 0, ZNE_UNEXPECTED);
  return ZNE_UNEXPECTED;
}

[[nodiscard]] u32 GenerateGuids(u32 count, std::vector<Value>* out) {
  out->reserve(count);
  for (u32 i = 0; i < count; ++i) {
    GUID guid{};
    ZN_RETURN_IF_FAILED(GenerateRawGuid(&guid));
    out->push_back(Value::Guid(guid));
  }
  return ZN_OK;
}

[[nodiscard]] u32 ReadGuidCount(ZnHandle in, u32* out) noexcept {
  const BusLock lock;
  if (!IsValidHandle(in, HANDLE_PROPSET)) return ZNE_INVALID_ARGUMENTS;
  const Property* count = HandleThing<PropertySet>(in)->Find("GUIDCount");
  if (count == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  if (count->TypeTag() != ZN_TYPE_UINT32) return ZNE_INVALID_ARGUMENTS;
  *out = count->GetValue().AsUInt32();
  return *out <= kMaxGuidCount ? ZN_OK : ZNE_INVALID_ARGUMENTS;
}

[[nodiscard]] u32 MakeGuids(ZnHandle in, ZnHandle out) {
  u32 count = 0;
  ZN_RETURN_IF_FAILED(ReadGuidCount(in, &count));
  std::vector<Value> guids;
  ZN_RETURN_IF_FAILED(GenerateGuids(count, &guids));
  Value list = Value::Array(ZN_TYPE_GUID, std::move(guids));
  const BusLock lock;
  if (!IsValidHandle(out, HANDLE_PROPSET)) return ZNE_INVALID_ARGUMENTS;
  HandleThing<PropertySet>(out)->Put("GUIDs", std::move(list));
  return ZN_OK;
}

// A call as the functions below see it.
struct SystemCall {
  ProviderCallArguments call;
  const ObjectId* taskId;
};

[[nodiscard]] u32 RefreshProviders(const SystemCall& request) {
  if ((request.call.flags & ZN_CALL_ASYNCHRONOUS) == 0) return ZNE_INVALID_ARGUMENTS;
  RefreshRequest refresh{request.call, *request.call.interfaceId, *request.taskId};
  // The providers are called one after the other, each to its end.
  refresh.call.flags &= ~ZN_CALL_ASYNCHRONOUS;
  refresh.call.interfaceId = nullptr;
  return RequestRefresh(refresh);
}
[[nodiscard]] u32 DumpAllocations(const SystemCall&) {
  _ZnDumpAllocations();
  return ZN_OK;
}
[[nodiscard]] u32 MakeGuidList(const SystemCall& request) {
  return MakeGuids(request.call.in, request.call.out);
}

struct SystemFunction {
  const GUID& interfaceId;
  u32 minorCode;  // the major code is 0 for all
  u32 (*run)(const SystemCall&);
};
constexpr SystemFunction kFunctions[] = {
    {kRefreshInterface, kMinorRefresh, &RefreshProviders},
    {kRefreshInterface, kMinorRescan, &RefreshProviders},
    {kServiceInterface, kMinorDumpAllocations, &DumpAllocations},
    {kServiceInterface, kMinorMakeGuids, &MakeGuidList},
};

u32 CallSlot(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32 flags,
             u32 reserved, void* context, TaskCallback callback, const GUID* interfaceId,
             const ObjectId* taskId, ZnHandle*) {
  const SystemCall request{
      {id, interfaceId, majorCode, minorCode, in, out, flags, reserved, context, callback}, taskId};
  for (const SystemFunction& function : kFunctions) {
    if (majorCode == 0 && minorCode == function.minorCode &&
        SameGuid(*interfaceId, function.interfaceId)) {
      return function.run(request);
    }
  }
  return ZNE_INVALID_ARGUMENTS;
}

u32 EventSlot(const EventRecord* event) {
  ZN_TRACE(1, "SystemProvider: Received notification %s", event->topic);
  return ZN_OK;
}

// The document of the settings, if they name one. What it declares is there from the first object
// on; a document with a fault is traced, and the start goes on without it.
void ReadDeclaredTypes(Database& database) {
  const std::string path = PathSetting(u"ObjectTypeFile");
  if (path.empty()) return;
  static_cast<void>(ReadObjectTypesFromFile(database.Handle(), path.c_str(), nullptr));
}

[[nodiscard]] u32 CreateTypes(Database& database) {
  ZN_TRACE(1, "ZnAPI:ZnCreateSystemProvider:Creating system object types");
  if (ZN_FAILED(RegisterBaseObjectTypes(database))) return ZNE_UNEXPECTED;
  ReadDeclaredTypes(database);
  if (ZN_FAILED(RegisterMissingSystemTypes(database))) return ZNE_UNEXPECTED;
  ZN_TRACE(1, "ZnAPI:ZnCreateSystemProvider:System object types created");
  return ZN_OK;
}

[[nodiscard]] std::u16string VersionText() {
  ZnWChar* text = nullptr;
  if (ZN_FAILED(ZnGetVersionString(&text)) || text == nullptr) return {};
  std::u16string version(text);
  ZnFree(text);
  return version;
}

void SetInitialProperties(Provider& provider) {
  static_cast<void>(
      provider.SetProperty(Property("FAILED_PROVIDERS", Value::WideText(std::u16string_view()))));
  static_cast<void>(
      provider.SetProperty(Property("LOADED_PROVIDERS", Value::WideText(std::u16string_view()))));
  const std::u16string version = VersionText();
  if (version.empty()) return;
  static_cast<void>(provider.SetProperty(Property("VERSION", Value::WideText(version))));
}

// The group that stands for this machine, with the two interfaces.
void CreateSystemGroup(Database& database, Provider& provider) {
  std::u16string name(kSystemProviderName);
  ZnWChar* computer = ZnGetComputerName();
  if (computer != nullptr && computer[0] != 0) name = computer;
  ZnFree(computer);
  DBNode* group = nullptr;
  const u32 status = database.CreateGroup(name, {"KELD_GenericGroup"}, "KELD_SystemGroup",
                                          &provider, OBJECT_GROUP_SERVER, &group);
  if (ZN_FAILED(status) || group == nullptr) return;
  for (const GUID& served : {kRefreshInterface, kServiceInterface}) {
    static_cast<void>(database.RegisterInterface(group, served, provider.GetId()));
  }
}

}  // namespace

u32 CreateSystemProvider(Database& database, std::u16string_view name) {
  ZN_RETURN_IF_FAILED(CreateTypes(database));
  ProviderCallbacks callbacks{};
  callbacks.Call = &CallSlot;
  callbacks.Event = &EventSlot;
  Provider* provider = AddProviderObject(database, name, callbacks, nullptr, true);
  if (provider == nullptr) return ZNE_OUT_OF_MEMORY;
  provider->SetExtensions({}, kSystemCatalogText);
  CreateSystemGroup(database, *provider);
  SetInitialProperties(*provider);
  EnterInGroups(database, *provider);
  provider->SetRegistered();
  return ZN_OK;
}

void StopRefreshThread() noexcept {
  const BusLock lock;
  std::unique_ptr<RefreshThread> refresher = std::move(Refresher());
  const BusRelease release;
  refresher.reset();
}

}  // namespace zn
