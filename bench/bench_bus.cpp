// Starts the bus for the benchmarks.
#include "bench/bench_bus.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>

namespace zn::bench {

namespace {

std::atomic<u64> received{0};

u32 OnEvent(const EventRecord*) {
  received.fetch_add(1, std::memory_order_release);
  return ZN_OK;
}
u32 OnCall(ObjectId, u32, u32, ZnHandle, ZnHandle, u32, u32, void*, TaskCallback, const GUID*,
           const ObjectId*, ZnHandle*) {
  return ZN_OK;
}
u32 OnInitialize(ZnHandle, ZnHandle, u32, u32) {
  return ZN_OK;
}
void OnChange(ZnHandle) {}
bool OnBusEvent(const EventRecord*, u32) {
  return true;
}

void MakeFiveType(ZnHandle database) {
  ZnHandle set = nullptr;
  ZN_MUST(PsCreatePropset(&set));
  u32 count = 0;
  i64 total = 0;
  char label[] = "";
  const Property2 properties[] = {UInt32Property("Count", &count),
                                  {const_cast<char*>("Total"), ZN_TYPE_INT64, 0, 8, &total},
                                  {const_cast<char*>("Label"), ZN_TYPE_STRING, 0, 1, label}};
  for (const Property2& property : properties) ZN_MUST(PsAddProperty(set, &property));
  ObjectId id;
  ZN_MUST(ObCreateTypeObject(database, kFiveType, nullptr, set, &id));
  ZN_MUST(PsDestroyPropset(set));
}

Bus Start() {
  const std::string path = "/tmp/znbench-" + std::to_string(getpid()) + ".toml";
  std::ofstream(path) << "InstallDir = \"/tmp\"\n[Providers]\n[ProviderGroup]\n";
  setenv("ZN_SETTINGS", path.c_str(), 1);
  Bus bus{};
  ZN_MUST(ZnInitialize(1, OnChange, OnBusEvent, &bus.database));
  unlink(path.c_str());
  const ProviderCallbacks callbacks{OnCall, OnInitialize, nullptr, nullptr, OnEvent, nullptr};
  ZN_MUST(PrCreateProvider(bus.database, u"bench", &callbacks, &bus.provider));
  MakeFiveType(bus.database);
  return bus;
}

}  // namespace

const Bus& TheBus() {
  static const Bus bus = Start();
  return bus;
}

u64 EventsReceived() noexcept {
  return received.load(std::memory_order_acquire);
}

void WaitForEvents(u64 count) noexcept {
  while (EventsReceived() < count) std::this_thread::yield();
}

}  // namespace zn::bench
