// Floors: what the machine takes for the bare steps of an operation, measured in the same run, so
// that a result can be read as a ratio on a noisy machine.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "zn/types.h"

namespace {

// One uncontended mutex, three hash look-ups, one malloc and free.
void FloorPropertyRead(benchmark::State& state) {
  std::mutex mutex;
  std::unordered_map<u64, u64> first;
  std::unordered_map<u64, u64> second;
  std::unordered_map<std::string, u64> third;
  for (u64 i = 0; i < 1000; ++i) {
    first[i * 7919] = i;
    second[i * 104729] = i;
    third["property" + std::to_string(i)] = i;
  }
  const std::string name = "property500";
  for (auto _ : state) {
    const std::lock_guard<std::mutex> lock(mutex);
    benchmark::DoNotOptimize(first.find(500 * 7919)->second);
    benchmark::DoNotOptimize(second.find(500 * 104729)->second);
    benchmark::DoNotOptimize(third.find(name)->second);
    void* block = std::malloc(48);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FloorPropertyRead);

// The bytes of the marshalled set of twenty properties and a nested one of five, by memcpy alone.
void FloorMarshalBytes(benchmark::State& state) {
  const std::vector<u8> bytes(760, 7);
  for (auto _ : state) {
    void* block = std::malloc(bytes.size());
    std::memcpy(block, bytes.data(), bytes.size());
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FloorMarshalBytes);

// One hand-over from a thread to another and back through a mutex and a condition: two hand-overs.
void FloorHandOver(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable wake;
  int turn = 0;
  bool stop = false;
  std::thread other([&] {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
      wake.wait(lock, [&] { return turn == 1 || stop; });
      if (stop) return;
      turn = 0;
      wake.notify_all();
    }
  });
  for (auto _ : state) {
    std::unique_lock<std::mutex> lock(mutex);
    turn = 1;
    wake.notify_all();
    wake.wait(lock, [&] { return turn == 0; });
  }
  {
    const std::lock_guard<std::mutex> lock(mutex);
    stop = true;
  }
  wake.notify_all();
  other.join();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(FloorHandOver)->UseRealTime();

}  // namespace
