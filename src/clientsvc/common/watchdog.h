// Deadlines for the answers of a logon: one timer thread for all of them, which runs while there is
// a deadline to keep and ends with Stop.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <thread>

#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

class WatchdogTimer {
 public:
  using Clock = std::chrono::steady_clock;

  // The one of the process; never destroyed.
  [[nodiscard]] static WatchdogTimer& Instance() noexcept;

  // Runs `onExpiry` on the timer thread at that time, with no lock held. The number is for Disarm.
  // 0 when no thread can be had: then there is no deadline.
  [[nodiscard]] u64 Arm(Clock::time_point when, std::function<void()> onExpiry);
  // No effect on one that has run. It may still be running when this returns.
  void Disarm(u64 number) noexcept;
  // Ends the thread; deadlines that are left do not expire. The next Arm starts another.
  void Stop() noexcept;

 private:
  struct Deadline {
    Clock::time_point when;
    std::function<void()> onExpiry;
  };
  void Run();

  Mutex mutex_;
  Condition changed_;
  std::map<u64, Deadline> deadlines_ ZN_GUARDED_BY(mutex_);
  u64 last_ ZN_GUARDED_BY(mutex_) = 0;
  bool stopping_ ZN_GUARDED_BY(mutex_) = false;
  std::thread thread_ ZN_GUARDED_BY(mutex_);
};

// How long an answer of a logon may take; tests shorten it.
[[nodiscard]] std::chrono::milliseconds LogonWatchdogTime() noexcept;
void SetLogonWatchdogTime(std::chrono::milliseconds time) noexcept;

}  // namespace zn
