// The threads of the layer: a few workers that wait on one poller and run whatever its events call
// for, callbacks of the layers above included. A callback may block for as long as it likes, so
// there is always one worker more than callbacks that run; those that are too many end after a
// while. Owned by the manager; all calls from any thread.
#pragma once

#include <atomic>
#include <list>
#include <thread>

#include "support/common/sync.h"
#include "ucl/common/poller.h"

namespace zn {

class Workers {
 public:
  using Handler = void (*)(const PollEvent& event);

  // Opens the poller and starts the first worker, where that is not done. False when the host
  // refuses; ZnGetLastError tells why.
  [[nodiscard]] bool Start(Handler handler);
  // Ends all threads and closes the poller; waits for the callbacks that run. Not from a worker.
  void Stop();
  [[nodiscard]] Poller& Set() noexcept { return poller_; }
  [[nodiscard]] u32 Count() const noexcept { return total_.load(); }

  // Stands around every call into the layers above.
  class CallbackScope {
   public:
    explicit CallbackScope(Workers& workers) : workers_(workers) { workers_.EnterCallback(); }
    ~CallbackScope() { workers_.LeaveCallback(); }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

   private:
    Workers& workers_;
  };

 private:
  using Threads = std::list<std::thread>;

  void EnterCallback();
  void LeaveCallback() noexcept;
  [[nodiscard]] bool StartOne() ZN_EXCLUDES(mutex_);
  [[nodiscard]] bool AddThread() ZN_REQUIRES(mutex_);
  void Run(Threads::iterator self);
  [[nodiscard]] bool IsSurplus() const noexcept;
  [[nodiscard]] bool Retire();
  void Leave(Threads::iterator self);

  Poller poller_;
  Handler handler_ = nullptr;
  std::atomic<u32> total_{0};
  std::atomic<u32> inCallback_{0};
  std::atomic<bool> stopping_{false};
  Mutex mutex_;
  Condition left_;
  bool isOpen_ ZN_GUARDED_BY(mutex_) = false;
  Threads threads_ ZN_GUARDED_BY(mutex_);
  Threads finished_ ZN_GUARDED_BY(mutex_);  // at their end or nearly so, to be joined
};

}  // namespace zn
