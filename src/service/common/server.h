// The server of a process: everything between the start and the stop of its service. There is one,
// TheServer; tests make others, with a transport and a host of their own.
//
// Lock order: service-id lock, then the bus lock, then the leaves (client table, slots, queue of
// notifications, ready gate). No request holds one of them while it calls a provider, asks the host
// for a logon, or waits.
#pragma once

#include <atomic>
#include <memory>

#include "service/common/access.h"
#include "service/common/authslots.h"
#include "service/common/clienttable.h"
#include "service/common/logonhost.h"
#include "service/common/notify.h"
#include "service/common/serveroptions.h"
#include "service/common/serviceid.h"
#include "service/common/traceflags.h"
#include "service/common/transport.h"
#include "support/common/platform.h"
#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

// Opens once, when all providers have loaded; a stop lets the waiters go unserved.
class ReadyGate {
 public:
  void Open();
  void End();
  // False when the stop came.
  [[nodiscard]] bool Wait();

 private:
  Mutex mutex_;
  Condition changed_;
  bool open_ ZN_GUARDED_BY(mutex_) = false;
  bool ended_ ZN_GUARDED_BY(mutex_) = false;
};

struct ServerObject {
  // Throws std::bad_alloc.
  ServerObject(Transport& theTransport, LogonHost& theHost);

  // Written by the start and the stop alone, while no request can come.
  TraceFlags traces;
  ServerOptions options;
  bool noTokenLogon = false;  // never grant type 4, which no host of ours does
  bool logonBypass = false;   // the host of the service asked for it: any password is good
  std::atomic<bool> isKeepAliveDisabled{false};
  AccessLists access;

  // What fills challenges: the host's random bytes. Tests give their own, so that a session's bytes
  // are the same each time.
  bool (*random)(void* out, size_t count) noexcept = RandomBytes;
  std::atomic<u32> pingToken{0};
  std::atomic<bool> isReady{false};       // the system database stands
  std::atomic<bool> sendsNothing{false};  // no send thread: no marker ever comes by
  ReadyGate allLoaded;
  ClientTable clients;
  ConnectedClients connectedClients;
  ServiceIds serviceIds;
  AuthSlots slots;
  Transport& transport;
  LogonHost& host;
  NotificationSender sender;
};

// The two callbacks of the communication layer; the client table's side of a connection. A non-zero
// result refuses a new one.
[[nodiscard]] u32 ClientConnected(ServerObject& server, const char* host, const char* hostAgain,
                                  u32 address, u32 connectionId) noexcept;
void ClientDisconnected(ServerObject& server, u32 address, u32 connectionId) noexcept;

// Serves one buffer of a client: the answer is a block for ZnFree. With a failure that has no
// answer the outputs stay as they were, and the result goes to the client as the frame's status
// alone. The requests of one connection come one at a time.
[[nodiscard]] u32 ZnSendReceive(ServerObject& server, u32 inLength, const void* in, u32* outLength,
                                void** out, u32 address, u32 connectionId) noexcept;

// Returns when every change that was queued before the call has left for the clients, which it does
// at once when nothing is on its way.
void WaitForChangesToLeave(ServerObject& server) noexcept;

}  // namespace zn
