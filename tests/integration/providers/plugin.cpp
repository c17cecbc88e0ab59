// The plug-in of the loading tests. What it does wrong is told by the value "Behaviour" of its own
// settings, so that one source serves every case; a test that needs two of them copies the file.
// What happens to it goes, line by line, to the file that ZN_TEST_LOG names.
//
// Its object carries kPluginInterface, major code 1: minor 1 copies the input to the output, minor
// 2 waits for an event of the caller, minor 3 starts a thread that reports progress and waits for
// an event, minor 4 throws. It takes part in the refresh of all providers.
#include "plugin.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zn/znmira.h"

namespace {

std::string name;
std::string behaviour;
ZnHandle provider;
ObjectId object;
std::vector<std::thread> workers;

void Log(const std::string& what) {
  std::FILE* log = std::fopen(std::getenv("ZN_TEST_LOG"), "a");
  if (log == nullptr) return;  // the test and its folder are gone
  std::fprintf(log, "%s %s\n", name.c_str(), what.c_str());
  std::fclose(log);
}

[[nodiscard]] bool Is(const char* what) {
  return behaviour == what;
}

// Says when the library is unloaded.
struct Unload {
  ~Unload() {
    if (!name.empty()) Log("unload");
  }
} unload;

[[nodiscard]] std::string Narrow(const ZnWChar* text) {
  std::string narrow;
  for (; *text != 0; ++text) narrow.push_back(static_cast<char>(*text));
  return narrow;
}

[[nodiscard]] std::string ReadBehaviour(const ZnWChar* providerName) {
  const std::u16string path = std::u16string(u"Providers\\") + providerName;
  ZnHandle key = nullptr;
  if (ZN_FAILED(ZnRegOpenKeyEx(HkeyMiraRoot(), path.c_str(), 0, 0, &key))) return {};
  ZnWChar text[64] = {};
  u32 type = 0;
  u32 length = sizeof(text) - sizeof(ZnWChar);
  const u32 status =
      ZnRegQueryValueEx(key, u"Behaviour", nullptr, &type, reinterpret_cast<u8*>(text), &length);
  static_cast<void>(ZnRegCloseKey(key));
  return ZN_FAILED(status) ? std::string() : Narrow(text);
}

// An event handle of the caller, carried as a number; in one process that is an address.
[[nodiscard]] ZnHandle EventOf(ZnHandle set, const char* property) {
  Property2* found = nullptr;
  if (ZN_FAILED(PsFindProperty(set, property, &found))) return nullptr;
  u64 address = 0;
  std::memcpy(&address, found->Value, sizeof(address));
  static_cast<void>(PsFreeProperty(found));
  return reinterpret_cast<ZnHandle>(address);
}

u32 WaitForCaller(ZnHandle in) {
  ZnSetEvent(EventOf(in, "Started"));
  static_cast<void>(ZnWaitForEvent(EventOf(in, "GoOn"), 60000));
  Log("call ends");
  return ZN_OK;
}

struct Job {
  void* context;
  TaskCallback callback;
  ObjectId taskId;
  ZnHandle started;
  ZnHandle goOn;

  [[nodiscard]] bool Report(u32 percent, u32 state) const {
    TaskReport report{ZN_OK, context, taskId, percent, state};
    return callback(&report);
  }
};

void Work(const Job& job) {
  if (!job.Report(25, TASK_STATE_RUNNING)) Log("stopped");
  ZnSetEvent(job.started);
  static_cast<void>(ZnWaitForEvent(job.goOn, 60000));
  if (job.Report(75, TASK_STATE_RUNNING)) {
    static_cast<void>(job.Report(100, TASK_STATE_FINISHED));
  } else {
    Log("stopped");
  }
}

u32 Call(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32 flags, u32,
         void* context, TaskCallback callback, const GUID* interfaceId, const ObjectId* taskId,
         ZnHandle*) {
  if (Is("throw-call")) throw std::runtime_error("call");
  if (std::memcmp(interfaceId, &kPluginInterface, sizeof(GUID)) != 0) {
    Log("refresh " + std::to_string(minorCode));
    return ZN_OK;
  }
  if (majorCode != 1) return ZNE_INVALID_MAJOR_CODE;
  if (std::memcmp(&id, &object, sizeof(id)) != 0) return ZNE_NOT_SUPPORTED_FOR_OBJECT;
  switch (minorCode) {
    case 1:
      return PsMergePropsets(out, in);
    case 2:
      return WaitForCaller(in);
    case 3:
      if ((flags & ZN_CALL_ASYNCHRONOUS) == 0) return ZNE_INVALID_ARGUMENTS;
      workers.emplace_back([job = Job{context, callback, *taskId, EventOf(in, "Started"),
                                      EventOf(in, "GoOn")}] { Work(job); });
      return ZN_OK;
    case 4:
      throw 4;
    default:
      return ZNE_INVALID_MINOR_CODE;
  }
}

[[nodiscard]] u32 MakeObject(ZnHandle database) {
  u32 status = ObCreateObject(database, provider, "KELD_Object", &object);
  if (!ZN_FAILED(status)) {
    status = ObRegisterInterface(database, object, provider, &kPluginInterface);
  }
  if (!ZN_FAILED(status)) {
    status = ObSetKey(database, object, "object", 6);
  }
  return status;
}

// A task of its own, under way when Initialize fails.
[[nodiscard]] u32 StartTask() {
  ZnHandle set = nullptr;
  ObjectId answered{};
  ObjectId task{};
  u32 status = PsCreatePropset(&set);
  if (!ZN_FAILED(status)) {
    status =
        ObCreateTaskObject(nullptr, provider, object, 1, 1, &kPluginInterface, set, set, &task);
  }
  if (!ZN_FAILED(status)) {
    status = PrCallProvider(provider, object, &kPluginInterface, 1, 1, set, set,
                            ZN_CALL_ASYNCHRONOUS, 0, nullptr, nullptr, &answered, &task);
  }
  static_cast<void>(PsDestroyPropset(set));
  return status;
}

u32 Initialize(ZnHandle database, ZnHandle self, u32, u32) {
  Log("initialize");
  provider = self;
  if (Is("throw-initialize")) throw std::runtime_error("initialize");
  u32 status = MakeObject(database);
  if (ZN_FAILED(status)) return status;
  for (const char* topic : {"event.keld.dom", "event.test"}) {
    ZnHandle registration = nullptr;
    status = EvRegisterEvent(database, self, topic, &registration);
    if (ZN_FAILED(status)) return status;
  }
  if (Is("fail-initialize")) {
    status = StartTask();
    return ZN_FAILED(status) ? status : ZNE_DEVICE_NOT_FOUND;
  }
  return ZN_OK;
}

u32 Shutdown(ZnHandle) {
  Log("shutdown");
  for (std::thread& worker : workers) worker.join();
  workers.clear();
  if (Is("throw-shutdown")) throw std::runtime_error("shutdown");
  return ZN_OK;
}

u32 Event(const EventRecord* event) {
  Log(std::string("event ") + event->topic);
  if (Is("throw-event")) throw std::runtime_error("event");
  return ZN_OK;
}

u32 GetVersion(ZnWChar** text) {
  if (Is("throw-version")) throw std::runtime_error("version");
  constexpr ZnWChar kVersion[] = u"1.2.3";
  *text = static_cast<ZnWChar*>(ZnAlloc(sizeof(kVersion)));
  std::memcpy(*text, kVersion, sizeof(kVersion));
  return ZN_OK;
}

u32 Fill(const ZnWChar* providerName, ProviderCallbacks* callbacks) {
  name = Narrow(providerName);
  behaviour = ReadBehaviour(providerName);
  Log("entry");
  if (Is("throw-entry")) throw std::runtime_error("entry");
  if (Is("fail-entry")) return ZNE_DEVICE_NOT_FOUND;
  if (Is("odd-entry")) return ZNI_PROPSET_UNCHANGED;
  *callbacks = {Call, Initialize, Shutdown, nullptr, Event, GetVersion};
  if (Is("no-call")) callbacks->Call = nullptr;
  if (Is("no-initialize")) callbacks->Initialize = nullptr;
  if (Is("no-version")) callbacks->GetVersion = nullptr;
  return ZN_OK;
}

}  // namespace

extern "C" {

ZN_API u32 ProviderEntry(const ZnWChar* providerName, u32, ProviderCallbacks* callbacks);
ZN_API u32 OtherEntry(const ZnWChar* providerName, u32, ProviderCallbacks* callbacks);

u32 ProviderEntry(const ZnWChar* providerName, u32, ProviderCallbacks* callbacks) {
  return Fill(providerName, callbacks);
}
u32 OtherEntry(const ZnWChar* providerName, u32, ProviderCallbacks* callbacks) {
  const u32 status = Fill(providerName, callbacks);
  Log("other entry");
  return status;
}

}  // extern "C"
