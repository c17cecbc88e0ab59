// Objects: reading and writing a property, creating and deleting, look-up by key, memory at scale.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_bus.h"

namespace zn::bench {
namespace {

ObjectId MakeObject() {
  ObjectId id;
  ZN_MUST(ObCreateObject(TheBus().database, TheBus().provider, kFiveType, &id));
  return id;
}

void ReadCount(ZnHandle database, const ObjectId& id) {
  Property2* property = nullptr;
  ZN_MUST(ObGetProperty(database, id, "Count", &property));
  benchmark::DoNotOptimize(*static_cast<u32*>(property->Value));
  ZN_MUST(PsFreeProperty(property));
}

void GetPropertyHot(benchmark::State& state) {
  const ObjectId id = MakeObject();
  const ZnHandle database = TheBus().database;
  for (auto _ : state) ReadCount(database, id);
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(ObDeleteObject(database, id));
}
BENCHMARK(GetPropertyHot);

// Every object once in random order, again and again: to find the next id costs nothing, to find
// its object does.
void GetPropertyRandom(benchmark::State& state) {
  const ZnHandle database = TheBus().database;
  std::vector<ObjectId> ids;
  for (i64 i = 0; i < state.range(0); ++i) ids.push_back(MakeObject());
  std::shuffle(ids.begin(), ids.end(), std::minstd_rand(1));
  size_t next = 0;
  for (auto _ : state) {
    ReadCount(database, ids[next]);
    if (++next == ids.size()) next = 0;
  }
  state.SetItemsProcessed(state.iterations());
  for (const ObjectId& id : ids) ZN_MUST(ObDeleteObject(database, id));
}
BENCHMARK(GetPropertyRandom)->Arg(300000);

void SetPropertyQuiet(benchmark::State& state) {
  const ObjectId id = MakeObject();
  u32 value = 0;
  const Property2 property = UInt32Property("Count", &value);
  for (auto _ : state) {
    ++value;
    ZN_MUST(ObSetProperty(TheBus().database, id, &property));
  }
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(ObDeleteObject(TheBus().database, id));
}
BENCHMARK(SetPropertyQuiet);

// Delivered means that the provider's event slot has run for each change.
void SetPropertyDelivered(benchmark::State& state) {
  const Bus& bus = TheBus();
  ZnHandle registration = nullptr;
  ZN_MUST(EvRegisterEvent(bus.database, bus.provider,
                          "event.keld.dom.object.Bench_Five.data.change", &registration));
  const ObjectId id = MakeObject();
  u32 value = 0;
  const Property2 property = UInt32Property("Count", &value);
  const u64 before = EventsReceived();
  for (auto _ : state) {
    ++value;
    ZN_MUST(ObSetProperty(bus.database, id, &property));
    if (value % 1024 == 0) WaitForEvents(before + value);
  }
  WaitForEvents(before + value);
  state.SetItemsProcessed(state.iterations());
  ZN_MUST(EvUnregisterEvent(bus.database, registration));
  ZN_MUST(ObDeleteObject(bus.database, id));
}
BENCHMARK(SetPropertyDelivered)->UseRealTime();

void CreateDelete(benchmark::State& state) {
  const ZnHandle database = TheBus().database;
  for (auto _ : state) ZN_MUST(ObDeleteObject(database, MakeObject()));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(CreateDelete);

long ResidentBytes() {
  long pages = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr || std::fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
  if (file != nullptr) std::fclose(file);
  return pages * sysconf(_SC_PAGESIZE);
}

void SetThreeProperties(const ObjectId& id, u32 number) {
  u32 count = number + 1;
  i64 total = -static_cast<i64>(number) - 1;
  char label[17];
  std::snprintf(label, sizeof label, "label%011u", number);
  const Property2 properties[] = {UInt32Property("Count", &count),
                                  {const_cast<char*>("Total"), ZN_TYPE_INT64, 0, 8, &total},
                                  {const_cast<char*>("Label"), ZN_TYPE_STRING, 0, 17, label}};
  for (const Property2& property : properties) {
    ZN_MUST(ObSetProperty(TheBus().database, id, &property));
  }
}

// Objects a second while so many stand, and bytes resident for each, three of its five properties
// changed. Run it alone: bytes resident are those of the process.
void CreateMany(benchmark::State& state) {
  const auto count = static_cast<u32>(state.range(0));
  static_cast<void>(TheBus());
  std::vector<ObjectId> ids;
  ids.reserve(count);
  for (auto _ : state) {
    const long before = ResidentBytes();
    for (u32 i = 0; i < count; ++i) {
      ids.push_back(MakeObject());
      SetThreeProperties(ids.back(), i);
    }
    state.counters["bytes_per_object"] =
        static_cast<double>(ResidentBytes() - before) / static_cast<double>(count);
    state.PauseTiming();
    for (const ObjectId& id : ids) ZN_MUST(ObDeleteObject(TheBus().database, id));
    ids.clear();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<i64>(count));
}
BENCHMARK(CreateMany)->Arg(10000);
BENCHMARK(CreateMany)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);

void GetIdByKey(benchmark::State& state) {
  const Bus& bus = TheBus();
  const auto count = static_cast<u32>(state.range(0));
  std::vector<ObjectId> ids;
  for (u32 i = 0; i < count; ++i) {
    ids.push_back(MakeObject());
    ZN_MUST(ObSetKey(bus.database, ids.back(), &i, sizeof i));
  }
  u32 random = 1;
  for (auto _ : state) {
    random = random * 1664525 + 1013904223;
    const auto key = static_cast<u32>((u64{random} * count) >> 32);
    ObjectId id;
    ZN_MUST(ObGetObjectIdByKey(bus.database, bus.provider, &key, sizeof key, &id));
    benchmark::DoNotOptimize(id);
  }
  state.SetItemsProcessed(state.iterations());
  for (const ObjectId& id : ids) ZN_MUST(ObDeleteObject(bus.database, id));
}
BENCHMARK(GetIdByKey)->Arg(1000000);

}  // namespace
}  // namespace zn::bench
