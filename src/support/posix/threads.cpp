// Threads by pthread: numbers, start, end. Every thread made here runs detached; its handle is a
// record of its own (common/sysobject.cpp) and says nothing about whether the thread still runs.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdint>
#include <thread>

#include "support/common/fastlock.h"
#include "support/common/platform.h"
#include "support/common/sync.h"
#include "zn/platform.h"

namespace zn {

u32 LookUpThreadId() noexcept {
  cachedThreadId = static_cast<u32>(gettid());
  return cachedThreadId;
}

namespace {

// What a new thread needs, and its number on the way back. Lives on the starter's stack until the
// thread has told its number.
struct Launch {
  ThreadStart start;
  void* argument;
  Mutex mutex;
  Condition told;
  u32 id ZN_GUARDED_BY(mutex) = 0;
};

void* RunThread(void* parameter) {
  auto* launch = static_cast<Launch*>(parameter);
  const ThreadStart start = launch->start;
  void* const argument = launch->argument;
  {
    const MutexLock lock(launch->mutex);
    launch->id = CurrentThreadId();
    launch->told.NotifyOne();
  }
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(start(argument)));
}

// Rounds a stack size up to what the system takes.
size_t UsableStackSize(u32 bytes) noexcept {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t least = std::max(static_cast<size_t>(PTHREAD_STACK_MIN), size_t{64} << 10);
  return (std::max<size_t>(bytes, least) + page - 1) / page * page;
}

}  // namespace

bool StartDetachedThread(ThreadStart start, void* argument, u32 stackBytes,
                         u32* threadId) noexcept {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes); error != 0) {
    SetLastFailure(static_cast<u32>(error));
    return false;
  }
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (stackBytes != 0) pthread_attr_setstacksize(&attributes, UsableStackSize(stackBytes));
  Launch launch{start, argument, {}, {}, 0};
  pthread_t thread;
  const int error = pthread_create(&thread, &attributes, RunThread, &launch);
  pthread_attr_destroy(&attributes);
  if (error != 0) {
    SetLastFailure(static_cast<u32>(error));
    return false;
  }
  const MutexLock lock(launch.mutex);
  while (launch.id == 0) launch.told.Wait(launch.mutex);
  if (threadId != nullptr) *threadId = launch.id;
  return true;
}

}  // namespace zn

extern "C" {

void ZnExitThread(u32 code) {
  pthread_exit(reinterpret_cast<void*>(static_cast<std::uintptr_t>(code)));
}

void ZnSleep(u32 ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

}  // extern "C"
