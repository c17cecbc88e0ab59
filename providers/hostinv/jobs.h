// Threads of asynchronous calls, one per task, each stoppable by its task's id and joined at the
// end. The mutex guards the list only; it is never held while a job runs or the bus is called.
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

#include "zn/types.h"

namespace hostinv {

class Jobs {
 public:
  Jobs() = default;
  ~Jobs();
  Jobs(const Jobs&) = delete;
  Jobs& operator=(const Jobs&) = delete;

  // A job returns soon after `stop` has become true.
  using Work = std::function<void(const std::atomic<bool>& stop)>;

  // Asks every job to stop and waits for it; later ones are refused with ZNE_SHUTDOWN_STARTED.
  void StopAll();

  // ZNE_OBJECT_IN_USE where kMost jobs run already or the process gets no thread.
  u32 Start(const ObjectId& task, Work work);
  // ZNE_THING_NOT_FOUND where no job runs for that task.
  u32 Stop(const ObjectId& task);

  static constexpr std::size_t kMost = 16;

 private:
  struct Job {
    ObjectId task{};
    std::atomic<bool> stop = false;
    std::atomic<bool> ended = false;
    std::thread thread;
  };

  void JoinEnded();

  std::mutex mutex_;
  bool closed_ = false;  // under mutex_
  std::list<Job> jobs_;  // under mutex_; a list, for running jobs keep their places
};

}  // namespace hostinv
