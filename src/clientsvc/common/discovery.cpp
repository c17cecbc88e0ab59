// Discovery passes, their replies and the thread that repeats them: see the header.
#include "clientsvc/common/discovery.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstream/znstream.h"
#include "framework/common/znwire/messages.h"
#include "support/common/platform.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "ucl/common/datagram.h"
#include "ucl/common/ucl.h"

namespace zn {

namespace {

constexpr size_t kMostReplies = 4096;  // whoever floods ends the pass
constexpr u32 kMostPeriods = 20;       // and so does whoever never lets the time-out pass

// What the thread and its callers share.
struct DiscoveryState {
  Mutex mutex;
  Condition changed;
  bool enabled ZN_GUARDED_BY(mutex) = false;
  bool stopping ZN_GUARDED_BY(mutex) = false;
  DiscoveryTimes times ZN_GUARDED_BY(mutex);
  std::vector<DatagramSocket*> passing ZN_GUARDED_BY(mutex);  // of the passes under way
  std::thread thread ZN_GUARDED_BY(mutex);

  Mutex tableMutex;
  u32 timeoutMs ZN_GUARDED_BY(tableMutex) = 0;
  std::vector<ClHostInfo> table ZN_GUARDED_BY(tableMutex);
};
DiscoveryState& State() noexcept {
  static DiscoveryState& state = *new DiscoveryState;
  return state;
}

// While it lives, the stop of discovery ends the waits of that socket.
class PassScope {
 public:
  explicit PassScope(DatagramSocket& socket) : socket_(&socket) {
    DiscoveryState& state = State();
    const MutexLock lock(state.mutex);
    state.passing.push_back(socket_);
    if (state.stopping) socket_->Stop();
  }
  ~PassScope() {
    DiscoveryState& state = State();
    const MutexLock lock(state.mutex);
    std::erase(state.passing, socket_);
  }
  PassScope(const PassScope&) = delete;
  PassScope& operator=(const PassScope&) = delete;

 private:
  DatagramSocket* socket_;
};

// A number below `limit` that fills the text.
[[nodiscard]] bool ReadNumber(std::string_view text, u32 limit, u32* out) noexcept {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *out);
  return error == std::errc() && end == text.data() + text.size() && *out < limit;
}

[[nodiscard]] bool ReadAddress(std::string_view text, u32* out) noexcept {
  u8 bytes[4];
  for (int i = 0; i < 4; ++i) {
    const size_t point = i == 3 ? text.size() : text.find('.');
    u32 number = 0;
    if (point == std::string_view::npos || !ReadNumber(text.substr(0, point), 256, &number)) {
      return false;
    }
    bytes[i] = static_cast<u8>(number);
    text.remove_prefix(std::min(point + 1, text.size()));
  }
  std::memcpy(out, bytes, sizeof(bytes));
  return true;
}

void CopyText(std::string_view text, char* out, size_t bytes) noexcept {
  const size_t length = std::min(text.size(), bytes - 1);
  std::memcpy(out, text.data(), length);
  out[length] = '\0';
}

void ReadProtocols(const std::vector<Value>& list, ClHostInfo* row) {
  row->protocolCount = static_cast<u32>(std::min<size_t>(list.size(), ZN_HOST_PROTOCOLS));
  for (u32 i = 0; i < row->protocolCount; ++i) {
    const PropertySet& entry = list[i].AsSet();
    const Value* version = entry.FindValue(wire::kProtocolVersionKey, ZN_TYPE_UINT32);
    const Value* name = entry.FindValue(wire::kProtocolNameKey, ZN_TYPE_STRING);
    if (version != nullptr) row->protocols[i].version = version->AsUInt32();
    if (name == nullptr) continue;
    CopyText(name->AsText(), row->protocols[i].name, sizeof(row->protocols[i].name));
  }
}

// Replies come from anybody: what is in them makes no new names, so those that count are made here.
void KnowReplyNames() {
  static const bool known = [] {
    for (const std::string_view key :
         {wire::kDatabaseIdKey, wire::kHostnameKey, wire::kHostIpKey, wire::kMiraVersionKey,
          wire::kMiraTypeKey, wire::kSupportedProtocolsKey, wire::kServerFlagsKey,
          wire::kProtocolVersionKey, wire::kProtocolNameKey}) {
      static_cast<void>(PropertyName::Intern(key));
    }
    return true;
  }();
  static_cast<void>(known);
}

[[nodiscard]] bool ReadReply(const DiscoveryReply& reply, ClHostInfo* row) {
  PropertySet set;
  BinaryReader reader(reply.data.data(), reply.data.size(), NamesRead::kKnown);
  if (ZN_FAILED(set.Unmarshal(reader))) return false;
  const Value* id = set.FindValue(wire::kDatabaseIdKey, ZN_TYPE_OBJECT_ID);
  const Value* name = set.FindValue(wire::kHostnameKey, ZN_TYPE_STRING);
  const Value* addresses = set.FindValue(wire::kHostIpKey, ZN_TYPE_ARRAY | ZN_TYPE_UINT32);
  const Value* version = set.FindValue(wire::kMiraVersionKey, ZN_TYPE_UINT32);
  const Value* type = set.FindValue(wire::kMiraTypeKey, ZN_TYPE_UINT32);
  const Value* protocols =
      set.FindValue(wire::kSupportedProtocolsKey, ZN_TYPE_ARRAY | ZN_TYPE_PROPSET);
  const Value* flags = set.FindValue(wire::kServerFlagsKey, ZN_TYPE_UINT32);
  for (const Value* value : {id, name, addresses, version, type, protocols, flags}) {
    if (value == nullptr) return false;
  }
  row->databaseId = id->AsGuid();
  CopyText(name->AsText(), row->hostname, sizeof(row->hostname));
  const std::vector<Value>& list = addresses->AsArray();
  row->addressCount = static_cast<u32>(std::min<size_t>(list.size(), ZN_HOST_ADDRESSES));
  for (u32 i = 0; i < row->addressCount; ++i) row->addresses[i] = list[i].AsUInt32();
  row->miraVersion = version->AsUInt32();
  row->miraType = type->AsUInt32();
  ReadProtocols(protocols->AsArray(), row);
  row->serverFlags = flags->AsUInt32();
  return true;
}

// Until nothing has come for as long as the time-out, or for too long. False when it was stopped.
[[nodiscard]] bool CollectReplies(DatagramSocket& socket, u32 timeoutMs,
                                  std::vector<DiscoveryReply>* replies) {
  u8 buffer[wire::kMaxDatagram + 1];  // one byte more tells a reply that is too long
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1) +
                   kMostPeriods * std::chrono::milliseconds(timeoutMs);
  while (replies->size() < kMostReplies && std::chrono::steady_clock::now() < end) {
    const DatagramSocket::WaitResult result = socket.Wait(timeoutMs);
    if (result == DatagramSocket::WaitResult::kStopped) return false;
    if (result != DatagramSocket::WaitResult::kReady) break;
    DiscoveryReply reply;
    u32 port = 0;
    const i32 length = socket.Receive(buffer, sizeof(buffer), &reply.address, &port);
    if (length < 0) continue;
    reply.data.assign(buffer, buffer + length);
    replies->push_back(std::move(reply));
  }
  return true;
}

// Passes with pauses between them while discovery is enabled. Stays, and waits, while it is not.
void RunThread() noexcept {
  DiscoveryState& state = State();
  state.mutex.Lock();
  while (!state.stopping) {
    if (!state.enabled) {
      state.changed.Wait(state.mutex);
      continue;
    }
    const auto until =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(state.times.intervalMs);
    while (!state.stopping && state.changed.WaitUntil(state.mutex, until)) {
    }
    if (state.stopping || !state.enabled) continue;
    state.mutex.Unlock();
    try {
      static_cast<void>(RunDiscoveryPass());  // the next one may do better
    } catch (const std::bad_alloc&) {
    }
    state.mutex.Lock();
  }
  state.mutex.Unlock();
}

}  // namespace

std::vector<DiscoveryTarget> ParseDiscoveryTargets(std::string_view text) {
  std::vector<DiscoveryTarget> targets;
  if (text.empty()) targets.push_back({kBroadcastAddress, kUclStandardPort});
  while (!text.empty()) {
    const size_t comma = std::min(text.find(','), text.size());
    const std::string_view item = text.substr(0, comma);
    text.remove_prefix(std::min(comma + 1, text.size()));
    const size_t colon = std::min(item.find(':'), item.size());
    DiscoveryTarget target{0, kUclStandardPort};
    if (!ReadAddress(item.substr(0, colon), &target.address)) continue;
    if (colon < item.size() && !ReadNumber(item.substr(colon + 1), 65536, &target.port)) continue;
    targets.push_back(target);
  }
  return targets;
}

std::vector<ClHostInfo> ReadDiscoveryReplies(const std::vector<DiscoveryReply>& replies) {
  KnowReplyNames();
  std::vector<ClHostInfo> rows;
  std::vector<u32> senders;
  for (const DiscoveryReply& reply : replies) {
    const bool isRepeated =
        std::find(senders.begin(), senders.end(), reply.address) != senders.end();
    senders.push_back(reply.address);
    ClHostInfo row{};
    if (reply.data.size() > wire::kMaxDatagram || isRepeated || !ReadReply(reply, &row)) continue;
    const bool isKnown = std::any_of(rows.begin(), rows.end(), [&](const ClHostInfo& other) {
      return std::strcmp(other.hostname, row.hostname) == 0;
    });
    if (!isKnown) rows.push_back(row);
  }
  return rows;
}

u32 RunDiscoveryPass() {
  DiscoveryState& state = State();
  u32 timeoutMs = 0;
  {
    const MutexLock lock(state.tableMutex);
    timeoutMs = state.timeoutMs;
  }
  DatagramSocket socket;
  if (!socket.Open() || !socket.EnableBroadcast() || !socket.Bind(kAnyAddress, 0)) {
    return ZNE_UNEXPECTED;
  }
  u8 command[4];
  StoreU32(command, wire::kDiscoveryCommand);
  for (const DiscoveryTarget& target : ParseDiscoveryTargets(GetEnvironment("ZN_DISCOVERY"))) {
    static_cast<void>(socket.Send(command, sizeof(command), target.address, target.port));
  }
  std::vector<DiscoveryReply> replies;
  {
    const PassScope scope(socket);
    if (!CollectReplies(socket, timeoutMs, &replies)) return ZNE_UNEXPECTED;
  }
  std::vector<ClHostInfo> rows = ReadDiscoveryReplies(replies);
  const MutexLock lock(state.tableMutex);
  state.table = std::move(rows);
  return ZN_OK;
}

void EnableDiscovery(u32 timeoutSeconds, bool immediately) {
  constexpr u32 kMostSeconds = 3600;
  DiscoveryState& state = State();
  u32 secondMs = 0;
  {
    const MutexLock lock(state.mutex);
    if (state.enabled || state.stopping) return;
    secondMs = state.times.secondMs;
  }
  {
    const MutexLock lock(state.tableMutex);
    state.timeoutMs = std::min(timeoutSeconds, kMostSeconds) * secondMs;
  }
  if (immediately) static_cast<void>(RunDiscoveryPass());
  const MutexLock lock(state.mutex);
  state.enabled = true;
  state.changed.NotifyAll();
  if (state.thread.joinable() || state.stopping) return;
  try {
    state.thread = std::thread(&RunThread);
  } catch (const std::system_error&) {  // then without the repetition
  }
}

void DisableDiscovery() {
  DiscoveryState& state = State();
  const MutexLock lock(state.mutex);
  state.enabled = false;
}

void StopDiscovery() noexcept {
  DiscoveryState& state = State();
  std::thread thread;
  {
    const MutexLock lock(state.mutex);
    state.enabled = false;
    for (DatagramSocket* socket : state.passing) socket->Stop();
    if (!state.thread.joinable()) return;
    state.stopping = true;
    state.changed.NotifyAll();
    thread = std::move(state.thread);
  }
  thread.join();
  const MutexLock lock(state.mutex);
  state.stopping = false;
}

std::vector<ClHostInfo> MatchingHosts(u32 flagMask) {
  DiscoveryState& state = State();
  std::vector<ClHostInfo> hosts;
  const MutexLock lock(state.tableMutex);
  for (const ClHostInfo& row : state.table) {
    const bool matches = (row.serverFlags & flagMask) != 0 || (row.serverFlags | flagMask) == 0;
    if (matches) hosts.push_back(row);
  }
  return hosts;
}

void SetDiscoveryTimes(const DiscoveryTimes& newTimes) noexcept {
  DiscoveryState& state = State();
  const MutexLock lock(state.mutex);
  state.times = newTimes;
}

}  // namespace zn
