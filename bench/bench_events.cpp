// Events and alerts: from the raise to the provider's event slot, with a thousand registrations of
// other topics in the tree.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/bench_bus.h"

namespace zn::bench {
namespace {

class Registrations {
 public:
  Registrations() {
    for (u32 i = 0; i < 1000; ++i) {
      Add("event.bench.other" + std::to_string(i) + ".thing" + std::to_string(i % 17));
    }
    Add("event.bench.mine");
  }
  ~Registrations() {
    for (const ZnHandle handle : handles_) {
      ZN_MUST(EvUnregisterEvent(TheBus().database, handle));
    }
  }
  Registrations(const Registrations&) = delete;
  Registrations& operator=(const Registrations&) = delete;

 private:
  void Add(const std::string& topic) {
    ZnHandle handle = nullptr;
    ZN_MUST(EvRegisterEvent(TheBus().database, TheBus().provider, topic.c_str(), &handle));
    handles_.push_back(handle);
  }
  std::vector<ZnHandle> handles_;
};

void Raise(ZnHandle data) {
  ZN_MUST(EvRaiseEvent(TheBus().database, TheBus().provider, "event.bench.mine.raised", data));
}

void RaiseDelivered(benchmark::State& state) {
  const Registrations registrations;
  ZnHandle data = nullptr;
  ZN_MUST(PsCreatePropset(&data));
  const u64 before = EventsReceived();
  u64 raised = 0;
  for (auto _ : state) {
    Raise(data);
    if (++raised % 1024 == 0) WaitForEvents(before + raised);
  }
  WaitForEvents(before + raised);
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(PsDestroyPropset(data));
}
BENCHMARK(RaiseDelivered)->UseRealTime();

void RaiseLatency(benchmark::State& state) {
  const Registrations registrations;
  ZnHandle data = nullptr;
  ZN_MUST(PsCreatePropset(&data));
  u64 raised = EventsReceived();
  for (auto _ : state) {
    Raise(data);
    WaitForEvents(++raised);
  }
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(PsDestroyPropset(data));
}
BENCHMARK(RaiseLatency)->UseRealTime();

// An alert with two insertions, one of ten that are published.
constexpr const char* kAlertTopic = "event.bench.mine.alert9";

void PublishAlerts() {
  const GUID catalog = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  const I18nString message{catalog, 1, const_cast<char*>("The disk %1 is %2 percent full.")};
  const I18nString text{catalog, 2, const_cast<char*>("Disk full")};
  for (int i = 0; i < 10; ++i) {
    const std::string topic = "event.bench.mine.alert" + std::to_string(i);
    const AlertDescriptor alert{topic.c_str(), 3,     2,     &message, nullptr,
                                &text,         &text, &text, nullptr};
    const u32 status = ObPublishAlert(TheBus().database, TheBus().provider, &alert);
    if (status != ZNE_ALERT_REREGISTER) ZN_MUST(status);
  }
}

void PutText(ZnHandle set, const char* name, std::u16string text) {
  const Property2 property{const_cast<char*>(name), ZN_TYPE_WIDESTRING, 0,
                           static_cast<u32>((text.size() + 1) * sizeof(ZnWChar)), text.data()};
  ZN_MUST(PsAddProperty(set, &property));
}

void RaiseAlert(benchmark::State& state) {
  const Registrations registrations;
  PublishAlerts();
  ZnHandle insertions = nullptr;
  ZN_MUST(PsCreatePropset(&insertions));
  PutText(insertions, "AlertMsg1", u"sda");
  PutText(insertions, "AlertMsg2", u"97");
  const u64 before = EventsReceived();
  u64 raised = 0;
  for (auto _ : state) {
    ZN_MUST(ObRaiseAlert(TheBus().database, TheBus().provider, kAlertTopic, insertions, nullptr));
    if (++raised % 1024 == 0) WaitForEvents(before + raised);
  }
  WaitForEvents(before + raised);
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(PsDestroyPropset(insertions));
}
BENCHMARK(RaiseAlert)->UseRealTime();

}  // namespace
}  // namespace zn::bench
