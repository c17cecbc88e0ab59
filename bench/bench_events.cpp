// Events: from the raise to the provider's event slot, with a thousand registrations of other
// topics in the tree.
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

}  // namespace
}  // namespace zn::bench
