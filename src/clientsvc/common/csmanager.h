// The watch over servers: one entry for each session that asked for it, pinged from the moment on
// at which its client registered. A server that has not answered between two rounds of the monitor
// counts as gone, and its session as lost.
//
// Pings go out every 10 seconds, answers are taken as they come, the monitor looks every 30: a
// server has between 30 and 60 seconds of silence. Three threads (pings, answers, monitor) run from
// the first session that asks to the last one that goes. Entries are found by the server's token:
// two sessions with one server share the first entry of the two.
#pragma once

#include "support/common/sync.h"
#include "zn/client.h"
#include "zn/types.h"

namespace zn {

struct ServerEntry {
  const void* session = nullptr;
  u32 token = 0;
  i64 lastResponse = 0;  // as ZnGetMiraTime tells the time
  i64 lastSeen = 0;      // the same at the monitor's last round
  u32 address = 0;       // network byte order
  u32 port = 0;
  std::uintptr_t registeredId = 0;
  bool active = false;
};

// 0 when the watch runs already. ZNE_UNEXPECTED when socket or threads cannot be had.
[[nodiscard]] u32 CSManagerStartup();
// Ends the threads and forgets the entries. Returns when they have ended, but for the calling one.
void CSManagerShutdown() noexcept;
[[nodiscard]] bool CSManagerRuns() noexcept;
// False before the startup.
[[nodiscard]] bool CSManagerAddServer(const ServerEntry& entry);
// Whether there is an entry of that token, and what it says.
[[nodiscard]] bool CSManagerFindServer(u32 token, ServerEntry* out);
// Pings begin. No effect without an entry.
void CSManagerActivate(u32 token, std::uintptr_t registeredId);
// Takes the entry of that session out; with the last one the watch ends.
void CSManagerRemoveServer(const void* session) noexcept;

// The periods and the clock; tests shorten the ones and turn the other.
struct CSManagerTimes {
  u32 pingMs = 10000;
  u32 receiveMs = 2000;
  u32 monitorMs = 30000;
  i64 (*now)() = nullptr;  // null: ZnGetMiraTime
};
void SetCSManagerTimes(const CSManagerTimes& times) noexcept;
// One round of the monitor, now, on the calling thread; for tests.
void CSManagerMonitorNow() noexcept;

}  // namespace zn
