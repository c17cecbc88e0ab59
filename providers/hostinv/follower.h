// The one thread that follows the machine: it waits for changes, for the sampling period and for
// requests of callers, reads the machine and publishes what it finds. The Machine and the Publisher
// belong to it alone once it runs. No lock is held while the machine is read, the bus is called or
// a request is answered; the mutex guards the queue of requests only.
#pragma once

#include <poll.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "alerts.h"
#include "bus.h"
#include "machine.h"

namespace hostinv {

class Follower {
 public:
  Follower(std::unique_ptr<Machine> machine, ZnHandle database, ZnHandle provider,
           const Settings& settings);
  ~Follower();
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  // Reads and publishes everything once, on this thread, then starts the thread.
  u32 Start();

  // Ends the thread; requests that it has not answered, and later ones, are answered with
  // ZNE_SHUTDOWN_STARTED. A second call does nothing.
  void Stop();

  enum class Work { kRefresh, kRescan };
  using Done = std::function<void(u32 status)>;
  // Has figures (kRefresh) or everything (kRescan) read and published; `done` hears on the thread
  // when the objects are up to date.
  void Request(Work work, const Done& done);
  // The same, waiting for the end.
  u32 RequestAndWait(Work work);

 private:
  struct PendingRequest {
    Work work;
    Done done;
  };

  void Run();
  // Waits and tells which parts changed; 0 where only the period has passed or a request came.
  Parts Wait(std::vector<pollfd>* descriptors, bool* periodPassed);
  void Serve(const std::vector<PendingRequest>& requests);
  // Makes the objects equal to the machine, then raises the alerts of what has happened.
  void Show();
  std::vector<PendingRequest> TakeRequests();
  void Wake() const;

  std::unique_ptr<Machine> machine_;
  ZnHandle database_;
  ZnHandle provider_;
  Publisher publisher_;
  Alerts alerts_;
  u32 periodMs_;
  MachineState state_;
  int wake_ = -1;
  int timer_ = -1;
  std::atomic<bool> stop_ = false;
  std::mutex mutex_;
  bool closed_ = false;                   // under mutex_: no request is taken any more
  std::vector<PendingRequest> requests_;  // under mutex_
  std::thread thread_;                    // last: it uses all of the above
};

}  // namespace hostinv
