// The two ends that own connections: a Client connects, a Server listens and accepts. An object
// lives as long as the manager lists it or a connection refers to it. Fields fixed at creation are
// read by any thread without a lock.
#pragma once

#include <atomic>
#include <memory>

#include "support/common/sync.h"
#include "ucl/common/sockets.h"
#include "ucl/common/ucl.h"

namespace zn {

class Connection;
class UclManager;

// What holds for each connection of an object; the options' fields of the same names.
struct ConnectionLimits {
  bool tcpNoDelay;
  u32 maxFrameLength;
  u32 maxLogonFrameLength;
  u32 logonTimeoutMs;
  u64 maxQueuedBytes;
  u32 sendStallMs;
};

class CommObject : public std::enable_shared_from_this<CommObject> {
 public:
  enum class Kind { kClient = 1, kServer = 2 };

  CommObject(UclManager& manager, Kind kind, u32 handle, void* context, DataCallback data,
             ConnectCallback connect, u32 port, const ConnectionLimits& limits)
      : manager_(manager),
        kind_(kind),
        handle_(handle),
        context_(context),
        dataCallback_(data),
        connectCallback_(connect),
        port_(port),
        limits_(limits) {}
  virtual ~CommObject() = default;
  CommObject(const CommObject&) = delete;
  CommObject& operator=(const CommObject&) = delete;

  [[nodiscard]] UclManager& Manager() const noexcept { return manager_; }
  [[nodiscard]] bool IsServer() const noexcept { return kind_ == Kind::kServer; }
  [[nodiscard]] u32 Handle() const noexcept { return handle_; }
  [[nodiscard]] u32 Port() const noexcept { return port_; }
  [[nodiscard]] const ConnectionLimits& Limits() const noexcept { return limits_; }

  // The ids of requests: unique per object, the first is 1, and 0 follows the last.
  [[nodiscard]] u32 NextSendId() noexcept { return lastSendId_.fetch_add(1) + 1; }
  void SetLastSendId(u32 id) noexcept { lastSendId_ = id; }  // for tests of the wrap

  // Call out, guarded against exceptions; no lock may be held.
  [[nodiscard]] u32 CallData(bool oneWay, u32 address, u32 connectionId, u32 length, void* data,
                             void** outData, u32* outLength);
  u32 CallConnect(const char* host, u32 address, u32 connectionId, bool connected);

  void ConnectionAdded() noexcept { connectionCount_.fetch_add(1); }
  void ConnectionEnded() noexcept { connectionCount_.fetch_sub(1); }
  [[nodiscard]] u32 ConnectionCount() const noexcept { return connectionCount_; }

 private:
  UclManager& manager_;
  const Kind kind_;
  const u32 handle_;
  void* const context_;
  const DataCallback dataCallback_;
  const ConnectCallback connectCallback_;  // null on some clients
  const u32 port_;
  const ConnectionLimits limits_;
  std::atomic<u32> lastSendId_{0};
  std::atomic<u32> connectionCount_{0};
};

class Client final : public CommObject {
 public:
  Client(UclManager& manager, u32 handle, void* context, DataCallback data, ConnectCallback connect,
         u32 port, const UclClientOptions& options);
  [[nodiscard]] u32 Connect(const char* host, u32* address, u32* connectionId);

 private:
  const u32 connectTimeoutMs_;
};

class Server final : public CommObject {
 public:
  Server(UclManager& manager, u32 handle, void* context, DataCallback data, ConnectCallback connect,
         u32 port, const UclServerOptions& options);
  ~Server() override;

  // Listens. The checks of the callbacks are the caller's.
  [[nodiscard]] u32 Create(const char* bindAddress);
  [[nodiscard]] u32 BoundPort() const noexcept { return boundPort_; }
  // The listening socket has connections to accept. On a worker.
  void OnReadable();
  // Takes up accepting again after the host was out of descriptors.
  void OnTimer();
  // 0 or ZNE_TIMED_OUT. Called from a connect callback of the server, it does not wait.
  u32 StopAccepting(u32 timeoutMs);

 private:
  [[nodiscard]] AcceptResult AcceptAll();
  [[nodiscard]] std::shared_ptr<Connection> MakeConnection(u32 socket, u32 address);
  void Admit(u32 socket, u32 address);
  void CloseListener() ZN_REQUIRES(lock_);

  const u32 maxClients_;
  u32 boundPort_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> isPaused_{false};
  Mutex lock_;
  Condition settled_;
  u32 listener_ ZN_GUARDED_BY(lock_) = kInvalidSocket;
  bool accepting_ ZN_GUARDED_BY(lock_) = false;
};

}  // namespace zn
