// Marshalling a set of twenty mixed properties (uint32, int64, 16-byte strings in turn) with a
// nested set of five among them, and reading it back into a set that owns its values.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_bus.h"

namespace zn::bench {
namespace {

void AddMixed(ZnHandle set, u32 index) {
  const std::string name = "Property" + std::to_string(index);
  u32 small = index;
  i64 large = -static_cast<i64>(index);
  std::string text = "sixteen bytes " + std::to_string(10 + index % 80);
  const Property2 properties[] = {{const_cast<char*>(name.c_str()), ZN_TYPE_UINT32, 0, 4, &small},
                                  {const_cast<char*>(name.c_str()), ZN_TYPE_INT64, 0, 8, &large},
                                  {const_cast<char*>(name.c_str()), ZN_TYPE_STRING, 0,
                                   static_cast<u32>(text.size() + 1), text.data()}};
  ZN_MUST(PsAddProperty(set, &properties[index % 3]));
}

ZnHandle SampleSet() {
  ZnHandle set = nullptr;
  ZnHandle nested = nullptr;
  ZN_MUST(PsCreatePropset(&set));
  ZN_MUST(PsCreatePropset(&nested));
  for (u32 i = 0; i < 5; ++i) AddMixed(nested, i);
  for (u32 i = 0; i < 19; ++i) AddMixed(set, i);
  const Property2 inner = {const_cast<char*>("Nested"), ZN_TYPE_PROPSET, 0, 8, nested};
  ZN_MUST(PsAddProperty(set, &inner));
  ZN_MUST(PsDestroyPropset(nested));
  return set;
}

void MarshalPropset(benchmark::State& state) {
  const ZnHandle set = SampleSet();
  for (auto _ : state) {
    void* bytes = nullptr;
    u32 length = 0;
    ZN_MUST(PsMarshalPropset(set, &bytes, &length));
    benchmark::DoNotOptimize(bytes);
    state.counters["bytes"] = length;
    ZnFree(bytes);
  }
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(PsDestroyPropset(set));
}
BENCHMARK(MarshalPropset);

void UnmarshalPropset(benchmark::State& state) {
  const ZnHandle set = SampleSet();
  void* bytes = nullptr;
  u32 length = 0;
  ZN_MUST(PsMarshalPropset(set, &bytes, &length));
  ZN_MUST(PsDestroyPropset(set));
  for (auto _ : state) {
    ZnHandle read = nullptr;
    ZN_MUST(PsUnmarshalPropset(bytes, length, &read));
    ZN_MUST(PsDestroyPropset(read));
  }
  state.SetItemsProcessed(state.iterations());
  ZnFree(bytes);
}
BENCHMARK(UnmarshalPropset);

}  // namespace
}  // namespace zn::bench
