#include "ucl/common/workers.h"

#include <new>
#include <system_error>

#include "support/common/platform.h"

namespace zn {

namespace {

// So many that are in no callback stay for good; any more end after the time without work.
constexpr u32 kKeptIdle = 4;
constexpr u32 kLingerMs = 3000;

// Of the calling thread: whose worker it is, and how many callbacks deep it stands.
thread_local Workers* currentWorkers = nullptr;
thread_local u32 callbackDepth = 0;

}  // namespace

bool Workers::Start(Handler handler) {
  const MutexLock lock(mutex_);
  if (isOpen_) return true;
  if (!poller_.Open()) return false;
  handler_ = handler;
  stopping_ = false;
  isOpen_ = AddThread();
  if (!isOpen_) poller_.Close();
  return isOpen_;
}

void Workers::Stop() {
  Threads finished;
  {
    const MutexLock lock(mutex_);
    if (!isOpen_) return;
    stopping_ = true;
    poller_.WakeAll();
    while (!threads_.empty()) left_.Wait(mutex_);
    finished.swap(finished_);
    isOpen_ = false;
  }
  for (std::thread& thread : finished) thread.join();
  poller_.Close();
}

bool Workers::AddThread() {
  total_.fetch_add(1);
  try {
    Threads added(1);
    const auto self = added.begin();
    *self = std::thread([this, self] { Run(self); });
    threads_.splice(threads_.end(), added);
    return true;
  } catch (const std::system_error& error) {
    SetLastFailure(static_cast<u32>(error.code().value()));
  } catch (const std::bad_alloc&) {
    SetLastFailure(static_cast<u32>(std::errc::not_enough_memory));
  }
  total_.fetch_sub(1);
  return false;
}

bool Workers::StartOne() {
  Threads finished;
  bool started = false;
  {
    const MutexLock lock(mutex_);
    if (stopping_) return false;
    finished.swap(finished_);
    started = AddThread();
  }
  for (std::thread& thread : finished) thread.join();
  return started;
}

void Workers::EnterCallback() {
  if (currentWorkers != this || callbackDepth++ > 0) return;
  // Without a thread to spare the others wait for a callback to end: slower, not wrong.
  if (inCallback_.fetch_add(1) + 1 >= total_.load()) static_cast<void>(StartOne());
}

void Workers::LeaveCallback() noexcept {
  if (currentWorkers == this && --callbackDepth == 0) inCallback_.fetch_sub(1);
}

bool Workers::IsSurplus() const noexcept {
  return total_.load() > inCallback_.load() + kKeptIdle;
}

bool Workers::Retire() {
  const MutexLock lock(mutex_);
  if (!IsSurplus()) return false;
  total_.fetch_sub(1);
  return true;
}

void Workers::Leave(Threads::iterator self) {
  const MutexLock lock(mutex_);
  finished_.splice(finished_.end(), threads_, self);
  left_.NotifyAll();
}

void Workers::Run(Threads::iterator self) {
  currentWorkers = this;
  for (;;) {
    PollEvent event{};
    const u32 timeoutMs = IsSurplus() ? kLingerMs : Poller::kForever;
    const Poller::WaitResult result = poller_.Wait(&event, timeoutMs);
    if (result == Poller::WaitResult::kEvent) handler_(event);
    if (result == Poller::WaitResult::kTimeout && Retire()) break;
    if (result == Poller::WaitResult::kWoken && stopping_) {
      total_.fetch_sub(1);
      break;
    }
  }
  Leave(self);
}

}  // namespace zn
