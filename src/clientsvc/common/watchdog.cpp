// The timer thread: see the header.
#include "clientsvc/common/watchdog.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <utility>

namespace zn {

namespace {

constexpr std::chrono::milliseconds kLogonTime{60000};
std::atomic<i64> logonTimeMs{kLogonTime.count()};

}  // namespace

WatchdogTimer& WatchdogTimer::Instance() noexcept {
  static WatchdogTimer& timer = *new WatchdogTimer;
  return timer;
}

u64 WatchdogTimer::Arm(Clock::time_point when, std::function<void()> onExpiry) {
  const MutexLock lock(mutex_);
  if (stopping_) return 0;
  if (!thread_.joinable()) {
    try {
      thread_ = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
      return 0;
    }
  }
  const u64 number = ++last_;
  deadlines_.emplace(number, Deadline{when, std::move(onExpiry)});
  changed_.NotifyAll();
  return number;
}

void WatchdogTimer::Disarm(u64 number) noexcept {
  const MutexLock lock(mutex_);
  deadlines_.erase(number);
}

void WatchdogTimer::Stop() noexcept {
  std::thread thread;
  {
    const MutexLock lock(mutex_);
    if (!thread_.joinable()) return;
    stopping_ = true;
    thread = std::move(thread_);
    changed_.NotifyAll();
  }
  thread.join();
  const MutexLock lock(mutex_);
  deadlines_.clear();
  stopping_ = false;
}

// Few deadlines stand at a time, so the earliest is looked for.
void WatchdogTimer::Run() {
  const auto isEarlier = [](const auto& a, const auto& b) { return a.second.when < b.second.when; };
  mutex_.Lock();
  while (!stopping_) {
    const auto next = std::min_element(deadlines_.begin(), deadlines_.end(), isEarlier);
    if (next == deadlines_.end()) {
      changed_.Wait(mutex_);
      continue;
    }
    const Clock::time_point when = next->second.when;
    if (Clock::now() < when) {
      static_cast<void>(changed_.WaitUntil(mutex_, when));
      continue;
    }
    const std::function<void()> onExpiry = std::move(next->second.onExpiry);
    deadlines_.erase(next);
    mutex_.Unlock();
    onExpiry();
    mutex_.Lock();
  }
  mutex_.Unlock();
}

std::chrono::milliseconds LogonWatchdogTime() noexcept {
  return std::chrono::milliseconds(logonTimeMs.load());
}

void SetLogonWatchdogTime(std::chrono::milliseconds time) noexcept {
  logonTimeMs.store(time.count());
}

}  // namespace zn
