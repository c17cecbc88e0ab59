// Pings, their answers and the monitor: see the header. The state of one run of the watch is shared
// by its three threads and goes with the last of them, so that a thread which ends the watch itself
// outlives it safely.
#include "clientsvc/common/csmanager.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "clientsvc/common/clientsession.h"
#include "framework/common/znstream/znstream.h"
#include "framework/common/znwire/messages.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "ucl/common/datagram.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr u32 kEndWaitMs = 30000;

Mutex timesMutex;
CSManagerTimes times ZN_GUARDED_BY(timesMutex);

[[nodiscard]] CSManagerTimes Times() noexcept {
  const MutexLock lock(timesMutex);
  return times;
}

[[nodiscard]] i64 Now() noexcept {
  const CSManagerTimes t = Times();
  return t.now == nullptr ? ZnGetMiraTime() : t.now();
}

// A wait event, closed with its owner.
class WaitEvent {
 public:
  WaitEvent() : event_(ZnCreateEvent(1, 0)) {}
  ~WaitEvent() { ZnCloseEvent(event_); }
  WaitEvent(const WaitEvent&) = delete;
  WaitEvent& operator=(const WaitEvent&) = delete;
  [[nodiscard]] bool IsGood() const noexcept { return event_ != nullptr; }
  void Set() noexcept { ZnSetEvent(event_); }
  [[nodiscard]] u32 Wait(u32 ms) noexcept { return ZnWaitForEvent(event_, ms); }

 private:
  ZnHandle event_;
};

// One run of the watch.
class Watch : public std::enable_shared_from_this<Watch> {
 public:
  [[nodiscard]] u32 Start();
  // Tells the threads to end and waits for those but the caller's.
  void End() noexcept;
  void Add(const ServerEntry& entry);
  [[nodiscard]] bool Find(u32 token, ServerEntry* out);
  void Activate(u32 token, std::uintptr_t registeredId);
  // Whether the list is empty then.
  [[nodiscard]] bool Remove(const void* session) noexcept;
  // Whether a session went and no entry is left.
  [[nodiscard]] bool MonitorRound() noexcept;

 private:
  void Ping() noexcept;
  void Receive() noexcept;
  void Monitor() noexcept;
  [[nodiscard]] std::vector<const void*> TakeSilent();
  template <typename Body>
  void StartThread(Body&& body);

  Mutex mutex_;
  std::vector<ServerEntry> entries_ ZN_GUARDED_BY(mutex_);
  DatagramSocket socket_;
  std::atomic<bool> stop_{false};
  WaitEvent pingEnded_;
  WaitEvent receiveEnded_;
  WaitEvent monitorEnded_;
  WaitEvent wakePing_;
  WaitEvent wakeMonitor_;
};

// The run of now, or null.
Mutex watchMutex;
std::shared_ptr<Watch>& Current() ZN_REQUIRES(watchMutex) {
  static auto& current = *new std::shared_ptr<Watch>;
  return current;
}

[[nodiscard]] std::shared_ptr<Watch> CurrentWatch() {
  const MutexLock lock(watchMutex);
  return Current();
}

template <typename Body>
void Watch::StartThread(Body&& body) {
  std::thread([self = shared_from_this(), body] { body(*self); }).detach();
}

u32 Watch::Start() {
  // A thread that was not started has ended.
  receiveEnded_.Set();
  monitorEnded_.Set();
  pingEnded_.Set();
  if (!socket_.Open()) {
    ZN_TRACE(6, "CSManagerStartup: Socket creation failed");
    return ZNE_UNEXPECTED;
  }
  const bool areEventsGood = pingEnded_.IsGood() && receiveEnded_.IsGood() &&
                             monitorEnded_.IsGood() && wakePing_.IsGood() && wakeMonitor_.IsGood();
  if (!socket_.Bind(kAnyAddress, 0) || !areEventsGood) return ZNE_UNEXPECTED;
  try {
    static_cast<void>(receiveEnded_.Wait(0));
    StartThread([](Watch& watch) { watch.Receive(); });
    static_cast<void>(monitorEnded_.Wait(0));
    StartThread([](Watch& watch) { watch.Monitor(); });
    static_cast<void>(pingEnded_.Wait(0));
    StartThread([](Watch& watch) { watch.Ping(); });
  } catch (const std::system_error&) {
    return ZNE_UNEXPECTED;
  }
  return ZN_OK;
}

// Contract: the waits are compared with a status that none of them gives, so the time-outs are
// silent; what was not over then ends by itself, with the state it holds.
void Watch::End() noexcept {
  stop_.store(true);
  socket_.Stop();
  wakePing_.Set();
  wakeMonitor_.Set();
  if (pingEnded_.Wait(kEndWaitMs) == ZNE_TIMED_OUT) {
    ZN_TRACE(6, "doPing shutdown timed out");
  }
  if (receiveEnded_.Wait(kEndWaitMs) == ZNE_TIMED_OUT) {
    ZN_TRACE(6, "DoRecv shutdown timed out");
  }
  if (monitorEnded_.Wait(kEndWaitMs) == ZNE_TIMED_OUT) {
    ZN_TRACE(6, "Monitor shutdown timed out");
  }
}

void Watch::Add(const ServerEntry& entry) {
  const MutexLock lock(mutex_);
  entries_.push_back(entry);
}

bool Watch::Find(u32 token, ServerEntry* out) {
  const MutexLock lock(mutex_);
  for (const ServerEntry& entry : entries_) {
    if (entry.token != token) continue;
    *out = entry;
    return true;
  }
  return false;
}

void Watch::Activate(u32 token, std::uintptr_t registeredId) {
  const MutexLock lock(mutex_);
  const auto place = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const ServerEntry& e) { return e.token == token; });
  if (place == entries_.end()) return;
  place->registeredId = registeredId;
  place->active = true;
}

bool Watch::Remove(const void* session) noexcept {
  const MutexLock lock(mutex_);
  std::erase_if(entries_, [&](const ServerEntry& entry) { return entry.session == session; });
  return entries_.empty();
}

void Watch::Ping() noexcept {
  u8 command[4];
  StoreU32(command, wire::kPingCommand);
  while (!stop_.load()) {
    {
      const MutexLock lock(mutex_);
      for (const ServerEntry& entry : entries_) {
        if (!entry.active) continue;
        static_cast<void>(socket_.Send(command, sizeof(command), entry.address, entry.port));
      }
    }
    static_cast<void>(wakePing_.Wait(Times().pingMs));
  }
  pingEnded_.Set();
}

void Watch::Receive() noexcept {
  while (!stop_.load()) {
    if (socket_.Wait(Times().receiveMs) != DatagramSocket::WaitResult::kReady) continue;
    u8 answer[8];  // one byte more than an answer has would tell a longer one
    u32 address = 0;
    u32 port = 0;
    if (socket_.Receive(answer, sizeof(answer), &address, &port) != 4) continue;
    const u32 token = LoadU32(answer);
    const i64 now = Now();
    const MutexLock lock(mutex_);
    const auto place = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const ServerEntry& e) { return e.token == token; });
    if (place != entries_.end()) place->lastResponse = now;
  }
  receiveEnded_.Set();
}

// Takes the silent entries out and notes what the others have said.
std::vector<const void*> Watch::TakeSilent() {
  std::vector<const void*> silent;
  const MutexLock lock(mutex_);
  std::erase_if(entries_, [&](ServerEntry& entry) {
    if (!entry.active) return false;
    if (entry.lastResponse == entry.lastSeen) {
      silent.push_back(entry.session);
      return true;
    }
    entry.lastSeen = entry.lastResponse;
    return false;
  });
  return silent;
}

bool Watch::MonitorRound() noexcept {
  std::vector<const void*> silent;
  try {
    silent = TakeSilent();
  } catch (const std::bad_alloc&) {
    return false;  // at the next round
  }
  for (const void* pointer : silent) {
    const std::shared_ptr<ClientSession> session = SessionList::Instance().FindListed(pointer);
    if (session == nullptr) continue;
    session->OnConnectionLost();
    session->StopConnection();  // whoever waits for the server would wait for ever
  }
  if (silent.empty()) return false;
  const MutexLock lock(mutex_);
  return entries_.empty();
}

void Watch::Monitor() noexcept {
  bool isLast = false;
  while (!stop_.load() && !isLast) {
    // The list is empty when the watch begins: a round before the wait would look at nothing, or,
    // where this thread is late, take half a minute from a server that has just been added.
    static_cast<void>(wakeMonitor_.Wait(Times().monitorMs));
    if (!stop_.load()) isLast = MonitorRound();
  }
  monitorEnded_.Set();
  // The watch of another session may run by now.
  if (!isLast) return;
  const std::shared_ptr<Watch> self = shared_from_this();
  {
    const MutexLock lock(watchMutex);
    if (Current() != self) return;
    Current().reset();
  }
  self->End();
}

}  // namespace

u32 CSManagerStartup() try {
  const MutexLock lock(watchMutex);
  if (Current() != nullptr) return ZN_OK;
  auto watch = std::make_shared<Watch>();
  const u32 status = watch->Start();
  if (ZN_FAILED(status)) {
    watch->End();
    return status;
  }
  Current() = std::move(watch);
  return ZN_OK;
} catch (const std::bad_alloc&) {
  return ZNE_OUT_OF_MEMORY;
}

void CSManagerShutdown() noexcept {
  std::shared_ptr<Watch> watch;
  {
    const MutexLock lock(watchMutex);
    watch.swap(Current());
  }
  if (watch != nullptr) watch->End();
}

bool CSManagerRuns() noexcept {
  return CurrentWatch() != nullptr;
}

bool CSManagerAddServer(const ServerEntry& entry) {
  const std::shared_ptr<Watch> watch = CurrentWatch();
  if (watch == nullptr) return false;
  watch->Add(entry);
  return true;
}

bool CSManagerFindServer(u32 token, ServerEntry* out) {
  const std::shared_ptr<Watch> watch = CurrentWatch();
  return watch != nullptr && watch->Find(token, out);
}

void CSManagerActivate(u32 token, std::uintptr_t registeredId) {
  const std::shared_ptr<Watch> watch = CurrentWatch();
  if (watch != nullptr) watch->Activate(token, registeredId);
}

void CSManagerRemoveServer(const void* session) noexcept {
  const std::shared_ptr<Watch> watch = CurrentWatch();
  if (watch != nullptr && watch->Remove(session)) CSManagerShutdown();
}

void SetCSManagerTimes(const CSManagerTimes& newTimes) noexcept {
  const MutexLock lock(timesMutex);
  times = newTimes;
}

void CSManagerMonitorNow() noexcept {
  const std::shared_ptr<Watch> watch = CurrentWatch();
  if (watch != nullptr && watch->MonitorRound()) CSManagerShutdown();
}

}  // namespace zn
