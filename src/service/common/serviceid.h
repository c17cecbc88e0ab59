// The ordering marker: a client that gets its answer must already have got every change that its
// request caused, though changes and answers travel on different threads. A waiter takes a service
// id, a marker with that id follows the changes through their queues, and whoever sends the changes
// raises the id when the marker comes by.
//
// The service-id lock is taken before the bus lock, so that the markers stand in the queue in the
// order of their ids.
#pragma once

#include <chrono>
#include <map>
#include <memory>

#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

class ServiceIds {
 public:
  // Queues the marker of an id. Called with the service-id lock held; takes the bus lock itself.
  using QueueMarker = void (*)(u32 serviceId, void* context);

  // A new id, never 0 or 1, with an event that is not set, and its marker queued.
  // ZNE_OUT_OF_MEMORY.
  [[nodiscard]] u32 Take(QueueMarker queue, void* context, u32* serviceId);
  // Waits until the id is raised, or for good no longer once the waits were ended. Gives the id
  // back. ZNE_UNEXPECTED, traced, for an unknown id.
  [[nodiscard]] u32 WaitOnServiceId(u32 serviceId);
  // False, traced, for an unknown id.
  bool RaiseEventOnServiceId(u32 serviceId);
  // Nobody raises ids any more: the stop has begun, or nothing sends. All waits end, and no further
  // one begins.
  void EndWaits();

  // For the tests: ids and spare events that are filed.
  [[nodiscard]] size_t Filed();
  [[nodiscard]] bool HasSpare();
  // For the tests: as if so many ids had been taken.
  void SetLast(u32 serviceId);

 private:
  struct Signal {
    bool isSet = false;
    Condition raised;
  };
  // The event under this id waits for its next user.
  static constexpr u32 kSpareId = 1;
  static constexpr size_t kFewEnough = 6;

  [[nodiscard]] u32 NextId() ZN_REQUIRES(mutex_);
  [[nodiscard]] std::shared_ptr<Signal> TakeSpareOrNew() ZN_REQUIRES(mutex_);
  void GiveBack(u32 serviceId) ZN_REQUIRES(mutex_);

  Mutex orderLock_;  // the service-id lock: held until the marker is queued
  Mutex mutex_;      // the map alone; a leaf, so that the sender never waits for orderLock_
  u32 last_ ZN_GUARDED_BY(mutex_) = 0;
  bool ended_ ZN_GUARDED_BY(mutex_) = false;
  std::map<u32, std::shared_ptr<Signal>> signals_ ZN_GUARDED_BY(mutex_);
};

}  // namespace zn
