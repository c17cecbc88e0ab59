// The provider that the console's tests run against: objects with odd names, a cycle, twins, a
// hidden object, every type of value, calls that echo, work, fail and raise, and a ticker whose
// count rises by itself. Its Shutdown writes a line to the file named by ZNCTL_TEST_LOG, so that a
// test can tell a clean end from a killed one.
#include <zn/znmira.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char kType[] = "ZnctlTest_Thing";
// {51d0c0de-0001-4000-8000-000000000001}
constexpr GUID kInterface = {
    0x51D0C0DE, 0x0001, 0x4000, {0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};
constexpr u32 kMajor = 1;
constexpr u32 kEcho = 1;
constexpr u32 kWork = 2;
constexpr u32 kRaise = 3;
constexpr u32 kRename = 4;

ZnHandle bus;
ZnHandle self;
std::mutex mutex;
std::condition_variable wake;
bool stopping = false;
std::vector<std::thread> threads;

Property2 Flat(const char* name, u32 type, const void* value, size_t size, u32 flags = 0) {
  return {const_cast<char*>(name), type, flags, static_cast<u32>(size), const_cast<void*>(value)};
}

void SetName(const ObjectId& id, const char16_t* name) {
  const Property2 flat = Flat("Name", ZN_TYPE_WIDESTRING, name,
                              (std::char_traits<char16_t>::length(name) + 1) * sizeof(char16_t));
  ObSetProperty(bus, id, &flat);
}

ObjectId Make(const char16_t* name, const ObjectId* parent, u32 flags = 0) {
  ObjectId id{};
  ObCreateObjectEx(bus, self, kType, flags, 0, &id);
  SetName(id, name);
  if (parent != nullptr) ObAddChildObject(bus, *parent, id);
  return id;
}

u32 MakeType() {
  const u32 count = 0;
  const u64 big = 18446744073709551615u;
  const i64 when = 1769860800;
  const bool flag = true;
  const u8 raw[] = {0x00, 0xFF};
  const char* tags[] = {"one", "two"};
  const i32 numbers[] = {1, -2, 3};
  const char label[] = "label";
  const char secret[] = "secret";
  const GUID guid = kInterface;
  const Property2 flats[] = {
      Flat("Count", ZN_TYPE_UINT32, &count, 4, ZN_PROPERTY_INDEXED),
      Flat("Big", ZN_TYPE_UINT64, &big, 8),
      Flat("When", ZN_TYPE_TIME, &when, 8),
      Flat("Flag", ZN_TYPE_BOOLEAN, &flag, 1),
      Flat("Raw", ZN_TYPE_BINARY, raw, sizeof(raw)),
      Flat("Tags", ZN_TYPE_STRING | ZN_TYPE_ARRAY, tags, 2),
      Flat("Numbers", ZN_TYPE_INT32 | ZN_TYPE_ARRAY, numbers, 3),
      Flat("Label", ZN_TYPE_STRING, label, sizeof(label)),
      Flat("Guid", ZN_TYPE_GUID, &guid, sizeof(guid)),
      Flat("Secret", ZN_TYPE_STRING, secret, sizeof(secret), ZN_PROPERTY_HIDDEN),
  };
  ZnHandle set = nullptr;
  u32 status = PsCreatePropset(&set);
  for (const Property2& flat : flats) {
    if (!ZN_FAILED(status)) status = PsAddProperty(set, &flat);
  }
  ObjectId id;
  if (!ZN_FAILED(status)) status = ObCreateTypeObject(bus, kType, nullptr, set, &id);
  PsDestroyPropset(set);
  if (ZN_FAILED(status)) return status;
  return ObRegisterInterfaceOnType(bus, kType, self, &kInterface);
}

// Sleeps the period or until the end; true to go on.
bool Pause(std::chrono::milliseconds period) {
  std::unique_lock lock(mutex);
  return !wake.wait_for(lock, period, [] { return stopping; });
}

void Tick(ObjectId ticker) {
  for (u32 count = 1; Pause(std::chrono::milliseconds(20)); ++count) {
    const Property2 flat = Flat("Count", ZN_TYPE_UINT32, &count, 4);
    ObSetProperty(bus, ticker, &flat);
  }
}

void MakeObjects() {
  const ObjectId root = Make(u"bench", nullptr);
  const ObjectId tray = Make(u"tray", &root);
  Make(u"/", &tray);
  Make(u"a/b", &tray);
  const ObjectId a = Make(u"a", &tray);
  Make(u"c", &a);
  Make(u"twin", &tray);
  Make(u"twin", &a);
  Make(u"\x1b[31mröd 磁盘", &tray);
  Make(u"unseen", &tray, OBJECT_HIDDEN);
  const ObjectId loop = Make(u"loop", &root);
  const ObjectId back = Make(u"back", &loop);
  ObAddChildObject(bus, back, loop);
  Make(u"list", &root);  // the name of a verb
  const ObjectId ticker = Make(u"ticker", &root);
  threads.emplace_back(Tick, ticker);
}

u32 Initialize(ZnHandle database, ZnHandle provider, u32, u32) {
  bus = database;
  self = provider;
  const u32 status = MakeType();
  if (!ZN_FAILED(status)) MakeObjects();
  return status;
}

u32 NumberIn(ZnHandle set, const char* name, u32 fallback) {
  Property2* flat = nullptr;
  if (ZN_FAILED(PsFindProperty(set, name, &flat))) return fallback;
  u32 number = fallback;
  if (flat->Type == ZN_TYPE_UINT32) std::memcpy(&number, flat->Value, sizeof(number));
  PsFreeProperty(flat);
  return number;
}

void PutDone(ZnHandle out, u32 steps) {
  const Property2 done = Flat("Done", ZN_TYPE_UINT32, &steps, 4);
  PsAddProperty(out, &done);
}

// The library stores the output of the call on the task once the call has returned.
bool HasOutput(const ObjectId& task) {
  Property2* flat = nullptr;
  if (ZN_FAILED(ObGetProperty(bus, task, "OutData", &flat))) return false;
  Property2* done = nullptr;
  const u32 status = PsFindProperty(static_cast<ZnHandle>(flat->Value), "Done", &done);
  if (!ZN_FAILED(status)) PsFreeProperty(done);
  PsFreeProperty(flat);
  return !ZN_FAILED(status);
}

void StoreResult(const ObjectId& task, u32 steps) {
  while (!HasOutput(task) && Pause(std::chrono::milliseconds(1))) {
  }
  ZnHandle out = nullptr;
  PsCreatePropset(&out);
  PutDone(out, steps);
  const Property2 flat = Flat("OutData", ZN_TYPE_PROPSET, out, 8);
  ObSetProperty(bus, task, &flat);
  PsDestroyPropset(out);
}

void Work(u32 steps, u32 result, ObjectId task, void* context, TaskCallback callback) {
  TaskReport report{ZN_OK, context, task, 0, TASK_STATE_RUNNING};
  for (u32 step = 0; step < steps; ++step) {
    report.percentComplete = step * 100 / steps;
    if (!callback(&report) || !Pause(std::chrono::milliseconds(10))) return;
  }
  StoreResult(task, steps);
  report = {result, context, task, 100, TASK_STATE_FINISHED};
  callback(&report);
}

u32 Call(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32 flags, u32,
         void* context, TaskCallback callback, const GUID* interfaceId, const ObjectId* taskId,
         ZnHandle*) {
  if (!ZnCompareGuid(interfaceId, &kInterface)) return ZNE_NOT_IMPLEMENTED;
  if (majorCode != kMajor) return ZNE_INVALID_MAJOR_CODE;
  switch (minorCode) {
    case kEcho:
      PsMergePropsets(out, in);
      return ZN_OK;
    case kWork: {
      if ((flags & ZN_CALL_ASYNCHRONOUS) == 0) return ZNE_INVALID_ARGUMENTS;
      PutDone(out, 0);  // an empty set would count as equal to any, and so never be replaced
      const std::lock_guard lock(mutex);
      threads.emplace_back(Work, NumberIn(in, "Steps", 10), NumberIn(in, "Result", 0), *taskId,
                           context, callback);
      return ZN_OK;
    }
    case kRaise:
      return EvRaiseEvent(bus, self, "event.znctltest.ping", in);
    case kRename:
      SetName(id, u"renamed");
      return ZN_OK;
    default:
      return ZNE_INVALID_MINOR_CODE;
  }
}

u32 Shutdown(ZnHandle) {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  wake.notify_all();
  for (std::thread& thread : threads) thread.join();
  const char* file = std::getenv("ZNCTL_TEST_LOG");
  std::FILE* log = file == nullptr ? nullptr : std::fopen(file, "a");
  if (log == nullptr) return ZN_OK;
  std::fputs("shutdown\n", log);
  std::fclose(log);
  return ZN_OK;
}

u32 Event(const EventRecord*) {
  return ZN_OK;
}

}  // namespace

extern "C" ZN_API u32 ProviderEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks);
extern "C" ZN_API u32 ProviderEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks) {
  *callbacks = {Call, Initialize, Shutdown, nullptr, Event, nullptr};
  return ZN_OK;
}
