// The clients of a server: one entry for each connection, found by address and connection id. An
// entry is shared: who got hold of one may use it after the connection has gone, and finds that it
// can no longer be reached.
//
// Locks: the table's own is a leaf and held for look-ups alone, never across a logon or a send.
// What the dispatcher alone writes (session, challenge) needs no lock, since the requests of a
// connection are handed over one at a time.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

// What a session has agreed on.
struct SessionOptions {
  u32 version = 30;
  u32 encryption = 0;
  u32 encryptionKeyIndex = 0;
  u32 compression = 0;
  u32 authentication = 1;
  u32 reserved = 0;
};

// Bits of a client's state: 0 connected, 3 logged on, 1 its first cache request was served. Only a
// client in state 1 hears notifications, so that its first copy of the database and the flow of
// changes cannot cross.
inline constexpr u32 kClientLoggedOn = 1;
inline constexpr u32 kClientAwaitsCache = 2;

struct ClientEntry {
  ClientEntry(u32 peerAddress, u32 peerConnection, std::string peerHost, std::string peerHostAgain)
      : address(peerAddress),
        connectionId(peerConnection),
        host(std::move(peerHost)),
        hostAgain(std::move(peerHostAgain)) {}

  [[nodiscard]] u64 SessionKey() const noexcept {
    return static_cast<u64>(address) << 32 | connectionId;
  }
  [[nodiscard]] bool HearsNotifications() const noexcept {
    return state.load(std::memory_order_acquire) == kClientLoggedOn;
  }
  [[nodiscard]] bool IsLoggedOn() const noexcept {
    return (state.load(std::memory_order_acquire) & kClientLoggedOn) != 0;
  }

  const u32 address;
  const u32 connectionId;
  const std::string host;
  const std::string hostAgain;
  std::atomic<u32> state{0};
  bool isGone = false;  // under FAST_LOCK: no longer in the table
  // Of whoever serves the connection's requests, one at a time.
  SessionOptions session;
  std::vector<u8> challenge;  // empty until one was asked for
};

using ClientPtr = std::shared_ptr<ClientEntry>;
// In the order of the connects.
using ClientList = std::shared_ptr<const std::vector<ClientPtr>>;

// Counts the clients that hear notifications. Under FAST_LOCK, but for the look.
class ConnectedClients {
 public:
  // Contract: a client that logs on a second time is counted again by its next cache request, and
  // its end takes one off; the count then stays above the truth and changes are built for nobody.
  void Add() noexcept;
  void Remove() noexcept;
  [[nodiscard]] u32 Count() const noexcept { return count_.load(std::memory_order_relaxed); }

 private:
  std::atomic<u32> count_{0};
};

class ClientTable {
 public:
  void Add(ClientPtr client);
  // Null for an unknown client.
  [[nodiscard]] ClientPtr Find(u32 address, u32 connectionId);
  // Takes the entry out and hands it over; null when it is gone already.
  [[nodiscard]] ClientPtr Remove(u32 address, u32 connectionId);
  [[nodiscard]] size_t Count();
  // Those that hear notifications, made anew only after a change. `*count` receives the number of
  // all clients.
  [[nodiscard]] ClientList Listeners(size_t* count);
  // A state has changed: the next Listeners looks again.
  void StateChanged();
  void Clear();

 private:
  struct Slot {
    ClientPtr client;
    u64 sequence;
  };

  Mutex mutex_;
  std::unordered_map<u64, Slot> byKey_ ZN_GUARDED_BY(mutex_);
  std::map<u64, ClientPtr> inOrder_ ZN_GUARDED_BY(mutex_);
  u64 nextSequence_ ZN_GUARDED_BY(mutex_) = 0;
  ClientList listeners_ ZN_GUARDED_BY(mutex_);  // null when it is to be made anew
};

}  // namespace zn
