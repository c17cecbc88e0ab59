// A second example: a kettle that comes to the boil every few seconds and tells so by an alert. Its
// texts in two languages stand in catalogs/. A thread of its own heats it from Initialize to
// Shutdown; the mutex guards the flag that stops it.
#include <zn/znmira.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace {

// {A4E1B7C2-5D38-4F60-9B0E-7C1D2E3F4A58}
constexpr GUID kCatalog = {
    0xA4E1B7C2, 0x5D38, 0x4F60, {0x9B, 0x0E, 0x7C, 0x1D, 0x2E, 0x3F, 0x4A, 0x58}};
constexpr char kBoilsTopic[] = "event.alert.example.kettle.boils";
ZnHandle bus;
ZnHandle self;

I18nString Message(u32 number, const char* text) {
  return {kCatalog, number, const_cast<char*>(text)};
}

u32 PublishBoils() {
  const I18nString message = Message(1, "The kettle in the %1 boils at %2 degrees.");
  const I18nString friendlyName = Message(2, "Kettle boils");
  const I18nString description = Message(3, "A kettle has reached the heat at which it stops.");
  const I18nString action = Message(4, "Make tea.");
  AlertDescriptor alert{};
  alert.topic = kBoilsTopic;
  alert.severity = 4;  // the mildest
  alert.message = &message;
  alert.friendlyName = &friendlyName;
  alert.description = &description;
  alert.recommendedAction = &action;
  return ObPublishAlert(bus, self, &alert);
}

u32 Insert(ZnHandle insertions, const char* name, const std::string& text) {
  const Property2 property = {const_cast<char*>(name), ZN_TYPE_STRING, 0,
                              static_cast<u32>(text.size() + 1), const_cast<char*>(text.c_str())};
  return PsAddProperty(insertions, &property);
}

u32 RaiseBoils(u32 degrees) {
  ZnHandle insertions = nullptr;
  u32 status = PsCreatePropset(&insertions);
  if (!ZN_FAILED(status)) status = Insert(insertions, "AlertMsg1", "kitchen");
  if (!ZN_FAILED(status)) status = Insert(insertions, "AlertMsg2", std::to_string(degrees));
  if (!ZN_FAILED(status)) status = ObRaiseAlert(bus, self, kBoilsTopic, insertions, nullptr);
  PsDestroyPropset(insertions);
  return status;
}

std::mutex mutex;
std::condition_variable wake;
bool stop;
std::thread heater;

void Heat() {
  std::unique_lock lock(mutex);
  u32 degrees = 20;
  while (!wake.wait_for(lock, std::chrono::milliseconds(20), [] { return stop; })) {
    if (++degrees < 100) continue;
    lock.unlock();  // no lock of ours is held while the bus is called
    RaiseBoils(degrees);
    degrees = 20;
    lock.lock();
  }
}

u32 Initialize(ZnHandle database, ZnHandle provider, u32, u32) {
  bus = database;
  self = provider;
  const u32 status = PublishBoils();
  if (!ZN_FAILED(status)) heater = std::thread(Heat);
  return status;
}

u32 Shutdown(ZnHandle) {
  {
    const std::lock_guard lock(mutex);
    stop = true;
  }
  wake.notify_all();
  if (heater.joinable()) heater.join();
  return ZN_OK;
}

}  // namespace

extern "C" ZN_API u32 ProviderEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks) {
  *callbacks = {nullptr, Initialize, Shutdown, nullptr, nullptr, nullptr};
  return ZN_OK;
}
