// The entry point and the six slots. The library keeps one instance per process, for slots carry no
// context; calls hold it by reference count, so that a stop cannot pull it away under them.
#include <memory>
#include <mutex>

#include "alert_bus.h"
#include "bus.h"
#include "calls.h"
#include "declared_types.h"
#include "follower.h"
#include "jobs.h"
#include "zn/znmira.h"

namespace hostinv {
namespace {

struct Instance {
  CallServices services;
  std::unique_ptr<Follower> follower;
  Jobs jobs;
};

std::mutex instanceMutex;  // a leaf: nothing is called under it
std::shared_ptr<Instance> theInstance;

std::shared_ptr<Instance> GetInstance() {
  const std::lock_guard lock(instanceMutex);
  return theInstance;
}

void SetInstance(std::shared_ptr<Instance> instance) {
  const std::lock_guard lock(instanceMutex);
  theInstance.swap(instance);
}

u32 Call(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32 flags,
         u32 /*reserved*/, void* context, TaskCallback callback, const GUID* interfaceId,
         const ObjectId* taskId, ZnHandle* /*answeringProvider*/) {
  const std::shared_ptr<Instance> instance = GetInstance();
  if (!instance) return ZNE_SHUTDOWN_STARTED;
  CallArguments arguments;
  arguments.object = id;
  arguments.majorCode = majorCode;
  arguments.minorCode = minorCode;
  arguments.in = in;
  arguments.out = out;
  arguments.asynchronous = (flags & ZN_CALL_ASYNCHRONOUS) != 0;
  arguments.context = context;
  arguments.callback = callback;
  arguments.interfaceId = *interfaceId;
  arguments.task = *taskId;
  return DispatchCall(instance->services, arguments);
}

u32 Initialize(ZnHandle database, ZnHandle provider, u32 /*reserved1*/, u32 /*reserved2*/) {
  // A second settings key with the same library would share this instance.
  if (GetInstance()) return ZNE_OBJECT_IN_USE;
  const Settings settings = ReadSettings(provider);
  auto machine = settings.root.empty() ? MakeLiveMachine() : MakeRecordedMachine(settings.root);
  if (!machine) return ZNE_DEVICE_NOT_FOUND;
  u32 status = DeclareTypes(database);
  if (ZN_FAILED(status)) return status;
  status = RegisterInterfaces(database, provider);
  if (ZN_FAILED(status)) return status;
  status = PublishAlerts(database, provider);
  if (ZN_FAILED(status)) return status;
  auto instance = std::make_shared<Instance>();
  instance->follower = std::make_unique<Follower>(std::move(machine), database, provider, settings);
  instance->services = {database, provider, settings.root, instance->follower.get(),
                        &instance->jobs};
  status = instance->follower->Start();
  if (ZN_SUCCEEDED(status)) SetInstance(std::move(instance));
  return status;
}

u32 Shutdown(ZnHandle /*database*/) {
  const std::shared_ptr<Instance> instance = GetInstance();
  if (!instance) return 0;
  SetInstance(nullptr);
  instance->jobs.StopAll();
  instance->follower->Stop();
  return 0;
}

u32 Event(const EventRecord* /*event*/) {
  return 0;
}

u32 GetVersion(ZnWChar** text) {
  constexpr ZnWChar kVersion[] = u"1.0.0";
  auto* copy = static_cast<ZnWChar*>(ZnAlloc(sizeof(kVersion)));
  if (copy == nullptr) return ZNE_OUT_OF_MEMORY;
  std::char_traits<ZnWChar>::copy(copy, kVersion, std::size(kVersion));
  *text = copy;
  return 0;
}

}  // namespace
}  // namespace hostinv

// The library looks this up by its name; no header declares it.
extern "C" ZN_API u32 ProviderEntry(const ZnWChar* name, u32 reserved,
                                    ProviderCallbacks* callbacks);

u32 ProviderEntry(const ZnWChar* /*name*/, u32 /*reserved*/, ProviderCallbacks* callbacks) {
  callbacks->Call = hostinv::Call;
  callbacks->Initialize = hostinv::Initialize;
  callbacks->Shutdown = hostinv::Shutdown;
  callbacks->Event = hostinv::Event;
  callbacks->GetVersion = hostinv::GetVersion;
  return 0;
}
