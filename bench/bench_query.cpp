// Queries: by an indexed property at two sizes of the store, and by one without an index.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "bench/bench_bus.h"

namespace zn::bench {
namespace {

// Objects of a type of their own, with five properties each: Name and State, which every object
// has, uint32 "Number" and string "Tag", different in each object, and int64 "Total". They stay
// until the program ends.
struct Population {
  std::u16string type;
  u32 count;
};

constexpr u32 kTagLength = 16;

void WriteTag(u32 number, char* out) {
  std::snprintf(out, kTagLength + 1, "tag%013u", number);
}

void MakeType(const char* name, u32 flags) {
  ZnHandle set = nullptr;
  ZN_MUST(PsCreatePropset(&set));
  u32 number = 0;
  i64 total = 0;
  char tag[] = "";
  const Property2 properties[] = {
      {const_cast<char*>("Number"), ZN_TYPE_UINT32, flags, sizeof number, &number},
      {const_cast<char*>("Tag"), ZN_TYPE_STRING, flags, 1, tag},
      {const_cast<char*>("Total"), ZN_TYPE_INT64, 0, sizeof total, &total}};
  for (const Property2& property : properties) ZN_MUST(PsAddProperty(set, &property));
  ObjectId id;
  ZN_MUST(ObCreateTypeObject(TheBus().database, name, nullptr, set, &id));
  ZN_MUST(PsDestroyPropset(set));
}

Population Populate(const std::string& type, u32 count, u32 flags) {
  const Bus& bus = TheBus();
  MakeType(type.c_str(), flags);
  for (u32 i = 0; i < count; ++i) {
    ObjectId id;
    ZN_MUST(ObCreateObject(bus.database, bus.provider, type.c_str(), &id));
    u32 number = i + 1;
    char tag[kTagLength + 1];
    WriteTag(number, tag);
    const Property2 properties[] = {UInt32Property("Number", &number),
                                    {const_cast<char*>("Tag"), ZN_TYPE_STRING, 0, sizeof tag, tag}};
    for (const Property2& property : properties) {
      ZN_MUST(ObSetProperty(bus.database, id, &property));
    }
  }
  return {std::u16string(type.begin(), type.end()), count};
}

const Population& ThePopulation(u32 count, u32 flags) {
  static std::map<std::string, Population> made;
  const std::string type = (flags == 0 ? "Bench_Plain" : "Bench_Indexed") + std::to_string(count);
  const auto known = made.find(type);
  if (known != made.end()) return known->second;
  return made.emplace(type, Populate(type, count, flags)).first->second;
}

// A query whose value is written anew each time.
class Query {
 public:
  Query(const Population& population, const char16_t* property, size_t valueLength)
      : text_(u"SELECT FROM " + population.type + u" WHERE " + property + u" EQ "),
        value_(text_.size()) {
    text_.append(valueLength, u'0');
  }
  void Set(const char* value) {
    for (size_t i = value_; i < text_.size(); ++i) text_[i] = static_cast<char16_t>(*value++);
  }
  u32 Run() const {
    u32 count = 0;
    ObjectId* ids = nullptr;
    ZN_MUST(DbGetObjectsByQuery(TheBus().database, text_.c_str(), &count, &ids));
    benchmark::DoNotOptimize(*ids);
    ZnFree(ids);
    return count;
  }

 private:
  std::u16string text_;
  size_t value_;
};

u32 NextRandom(u32* random, u32 count) {
  *random = *random * 1664525 + 1013904223;
  return static_cast<u32>((u64{*random} * count) >> 32);
}

void RequireHits(u32 hits, i64 expected) {
  if (hits == expected) return;
  std::fprintf(stderr, "%u hits\n", hits);
  std::exit(1);
}

void QueryIndexedNumber(benchmark::State& state) {
  constexpr size_t kDigits = 7;
  const Population& population =
      ThePopulation(static_cast<u32>(state.range(0)), ZN_PROPERTY_INDEXED);
  Query query(population, u"Number", kDigits);
  u32 random = 1;
  char digits[kDigits + 1];
  for (auto _ : state) {
    u32 number = NextRandom(&random, population.count) + 1;
    for (size_t i = kDigits; i-- > 0; number /= 10) {
      digits[i] = static_cast<char>('0' + number % 10);
    }
    query.Set(digits);
    RequireHits(query.Run(), 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(QueryIndexedNumber)->Arg(10000)->Arg(1000000);

void QueryIndexedText(benchmark::State& state) {
  const Population& population =
      ThePopulation(static_cast<u32>(state.range(0)), ZN_PROPERTY_INDEXED);
  Query query(population, u"Tag", kTagLength);
  u32 random = 1;
  std::string tag = "tag0000000000000";
  for (auto _ : state) {
    u32 number = NextRandom(&random, population.count) + 1;
    for (size_t i = kTagLength; i-- > 3; number /= 10) {
      tag[i] = static_cast<char>('0' + number % 10);
    }
    query.Set(tag.c_str());
    RequireHits(query.Run(), 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(QueryIndexedText)->Arg(10000)->Arg(1000000);

// Instances a second, one of them found.
void QueryScan(benchmark::State& state, const char16_t* property, const char* value) {
  const Population& population = ThePopulation(static_cast<u32>(state.range(0)), 0);
  Query query(population, property, std::string_view(value).size());
  query.Set(value);
  for (auto _ : state) RequireHits(query.Run(), 1);
  state.SetItemsProcessed(state.iterations() * static_cast<i64>(population.count));
}
BENCHMARK_CAPTURE(QueryScan, Number, u"Number", "150000")
    ->Arg(300000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(QueryScan, Text, u"Tag", "tag0000000150000")
    ->Arg(300000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zn::bench
