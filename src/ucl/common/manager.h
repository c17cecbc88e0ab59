// The one manager of the process: the objects by their handles, the connections by their ids, the
// workers and the timer. Made with the first use and never destroyed, so that a late caller finds
// an empty manager; UCLStartup and UCLCleanup open and close it.
#pragma once

#include <atomic>
#include <memory>
#include <unordered_map>
#include <vector>

#include "support/common/sync.h"
#include "ucl/common/comm_object.h"
#include "ucl/common/connection.h"
#include "ucl/common/workers.h"

namespace zn {

class UclManager {
 public:
  [[nodiscard]] static UclManager& Get();

  void Open();
  void Close();
  [[nodiscard]] bool IsOpen() const noexcept { return opened_ > 0; }

  [[nodiscard]] u32 NextHandle() noexcept;
  void AddClient(const std::shared_ptr<Client>& client);
  void AddServer(const std::shared_ptr<Server>& server);
  [[nodiscard]] std::shared_ptr<Client> FindClient(u32 handle);
  [[nodiscard]] std::shared_ptr<Server> FindServer(u32 handle);
  void RemoveClient(u32 handle);
  void RemoveServer(u32 handle);

  // Ids start at 1 and are used once; 0 is never one.
  [[nodiscard]] u32 NextConnectionId() noexcept;
  void AddConnection(const std::shared_ptr<Connection>& connection);
  void RemoveConnection(u32 connectionId);
  [[nodiscard]] std::shared_ptr<Connection> FindConnection(u32 connectionId);
  [[nodiscard]] u32 ConnectionCount();
  // Ends all connections of an object and waits until they have ended.
  void EndConnections(const CommObject& object, StopCause cause);

  [[nodiscard]] bool StartThreads();
  [[nodiscard]] Workers& Threads() noexcept { return workers_; }
  // Has the deadlines looked at not later than in so long.
  void RequestTimer(u32 delayMs);
  [[nodiscard]] static i64 NowMs();
  [[nodiscard]] static u64 ListenerKey(u32 handle) { return u64{1} << 32 | handle; }

 private:
  UclManager() = default;
  static void OnEvent(const PollEvent& event);
  void OnTimer();
  [[nodiscard]] std::vector<std::shared_ptr<Connection>> AllConnections();

  std::atomic<u32> opened_{0};
  std::atomic<u32> lastHandle_{0};
  std::atomic<u32> lastConnectionId_{0};
  Workers workers_;

  Mutex objectLock_;
  std::unordered_map<u32, std::shared_ptr<Client>> clients_ ZN_GUARDED_BY(objectLock_);
  std::unordered_map<u32, std::shared_ptr<Server>> servers_ ZN_GUARDED_BY(objectLock_);

  Mutex connectionLock_;
  std::unordered_map<u32, std::shared_ptr<Connection>> connections_ ZN_GUARDED_BY(connectionLock_);

  Mutex timerLock_;
  i64 timerAt_ ZN_GUARDED_BY(timerLock_) = 0;  // 0: not set
};

}  // namespace zn
