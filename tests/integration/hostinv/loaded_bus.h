// The library with the provider loaded through a settings file, as any program would have it, and
// an observer that hears every change of an object. One per process: the library starts once.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "inventory.h"
#include "temporary_folder.h"
#include "zn/znmira.h"

namespace hostinv {

struct HeardEvent {
  std::string topic;
  std::string type;
  ObjectId object{};
};

class LoadedBus {
 public:
  // The bus of this process, started by the first call; further calls return the same. `values` are
  // the lines of the provider's settings. It is stopped at the end of all tests.
  static LoadedBus& Start(const std::string& values);
  static LoadedBus& Get();

  ~LoadedBus();
  LoadedBus(const LoadedBus&) = delete;
  LoadedBus& operator=(const LoadedBus&) = delete;

  // Stops the library; nothing of the bus may be used afterwards.
  void Stop();

  u32 StartStatus() const { return status_; }
  ZnHandle Database() const { return database_; }
  ZnHandle Provider() const { return provider_; }

  // The zero id for an unknown key.
  ObjectId Find(const std::string& key) const;
  // The property as a Value; of a type that Value has not, or where missing, a failure.
  Value Get(const ObjectId& id, const std::string& name) const;
  Value Get(const std::string& key, const std::string& name) const { return Get(Find(key), name); }
  // Everything that the provider shows, read back from the bus.
  Inventory Snapshot() const;

  // Forgets the events heard so far. Events already raised are heard before it returns.
  void ForgetEvents();
  // The events raised since, in order.
  std::vector<HeardEvent> Events();
  // True once an event of the object with `change` in its topic was heard, within a minute.
  bool WaitForEvent(const ObjectId& object, const std::string& change);
  // Waits until `condition` holds, asking at each event, for a minute at most.
  bool WaitUntil(const std::function<bool()>& condition);

 private:
  LoadedBus() = default;
  void Load(const std::string& values);
  static u32 OnEvent(const EventRecord* event);
  // Returns when all events raised before have been heard.
  void Settle();

  TemporaryFolder folder_;
  u32 status_ = 0;
  bool isStopped_ = false;
  ZnHandle database_ = nullptr;
  ZnHandle provider_ = nullptr;
  ZnHandle observer_ = nullptr;
  std::mutex mutex_;
  std::condition_variable heard_;
  std::vector<HeardEvent> events_;  // under mutex_
  u32 settled_ = 0;                 // under mutex_: marks heard
};

bool IsZero(const ObjectId& id);

}  // namespace hostinv
