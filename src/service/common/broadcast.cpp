// The listener for datagrams: see the header.
#include "service/common/broadcast.h"

#include <chrono>
#include <cstring>
#include <new>
#include <utility>

#include "framework/common/zncore/database.h"
#include "framework/common/znwire/messages.h"
#include "service/common/server.h"
#include "support/common/fastlock.h"
#include "support/common/trace.h"
#include "zn/init.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr u32 kWaitMs = 2000;
constexpr u32 kCommandBytes = 4;
// A reply with more would be refused by whoever reads it.
constexpr size_t kMostAddresses = 100;

[[nodiscard]] PropertySet SocketProtocol() {
  PropertySet protocol;
  protocol.Put(wire::kProtocolVersionKey, Value::UInt32(wire::kProtocolVersion));
  protocol.Put(wire::kProtocolNameKey, Value::Text(std::string_view("Socket")));
  return protocol;
}

[[nodiscard]] u32 HostOrder(u32 networkOrder) noexcept {
  u8 bytes[4];
  std::memcpy(bytes, &networkOrder, sizeof bytes);
  return LoadU32(bytes);
}

[[nodiscard]] HostDescription DescribeHost() {
  HostDescription description;
  u32 major = 0;
  u32 minor = 0;
  static_cast<void>(ZnGetMiraVersion(&major, &minor));
  description.version = major * 10 + minor / 10;
  description.serverFlags = ZnGetServerFlags();
  const BusLock lock;
  const Database* database = ZnGetSystemDatabase();
  if (database != nullptr) description.databaseId = database->GetId().Value();
  return description;
}

[[nodiscard]] std::string MarshalText(const PropertySet& set) {
  BinaryWriter stream;
  set.Marshal(stream);
  return {reinterpret_cast<const char*>(stream.Buffer().Data()), stream.Buffer().Size()};
}

}  // namespace

std::string DiscoveryReply(const std::string& hostName, const std::vector<u32>& addresses,
                           const HostDescription& description) {
  std::vector<Value> hostIp;
  for (const u32 address : addresses) {
    if (hostIp.size() == kMostAddresses) break;
    hostIp.push_back(Value::UInt32(HostOrder(address)));
  }
  std::vector<Value> protocols;
  protocols.push_back(Value::Set(SocketProtocol()));
  PropertySet reply;
  reply.Put(wire::kHostnameKey, Value::Text(std::string_view(hostName)));
  reply.Put(wire::kDatabaseIdKey, Value::Id(description.databaseId));
  reply.Put(wire::kMiraVersionKey, Value::UInt32(description.version));
  reply.Put(wire::kMiraTypeKey, Value::UInt32(0));
  reply.Put(wire::kHostIpKey, Value::Array(ZN_TYPE_UINT32, std::move(hostIp)));
  reply.Put(wire::kServerFlagsKey, Value::UInt32(description.serverFlags));
  reply.Put(wire::kSupportedProtocolsKey, Value::Array(ZN_TYPE_PROPSET, std::move(protocols)));
  return MarshalText(reply);
}

u32 CreatePingToken(const HostNames& names) {
  std::string name;
  if (!names.ownName(&name)) {
    ZN_TRACE(6, "gethostname failed in CreatePingToken");
    return 0;
  }
  std::string officialName;
  std::vector<u32> addresses;
  if (!names.lookUp(name, &officialName, &addresses) || addresses.empty()) {
    ZN_TRACE(6, "gethostbyname failed in CreatePingToken");
    return 0;
  }
  return addresses.front();
}

bool BroadcastListener::Start(const std::string& bindAddress, u32 port) noexcept {
  try {
    description_ = DescribeHost();
    if (!OpenPort(bindAddress, port)) return true;
    thread_ = std::thread([this] { Run(); });
    return true;
  } catch (...) {
    return false;
  }
}

bool BroadcastListener::Stop(u32 timeoutMs) noexcept {
  if (!thread_.joinable()) return true;
  socket_.Stop();
  if (!WaitForEnd(timeoutMs)) return false;
  thread_.join();
  return true;
}

bool BroadcastListener::WaitForEnd(u32 timeoutMs) noexcept {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  const MutexLock lock(mutex_);
  while (!hasEnded_) {
    if (!ended_.WaitUntil(mutex_, until) && !hasEnded_) return false;
  }
  return true;
}

void BroadcastListener::Run() noexcept {
  try {
    Listen();
  } catch (const std::bad_alloc&) {  // no listener any more
  }
  const MutexLock lock(mutex_);
  hasEnded_ = true;
  ended_.NotifyAll();
}

bool BroadcastListener::OpenPort(const std::string& bindAddress, u32 port) {
  if (!socket_.Open()) {
    ZN_TRACE(6, "BroadcastListener: Socket creation failed");
    return false;
  }
  if (!BindTo(bindAddress, port)) {
    ZN_TRACE(6, "Bind failed for BroadcastListener");
    return false;
  }
  ZN_TRACE(1, "Bind successful for BroadcastListener");
  return true;
}

bool BroadcastListener::BindTo(const std::string& bindAddress, u32 port) {
  if (bindAddress.empty()) return socket_.Bind(kAnyAddress, port);
  std::string name;
  std::vector<u32> addresses;
  return LookUpHost(bindAddress, &name, &addresses) && !addresses.empty() &&
         socket_.Bind(addresses.front(), port);
}

void BroadcastListener::Listen() {
  u8 buffer[wire::kMaxDatagram];
  while (true) {
    const DatagramSocket::WaitResult waited = socket_.Wait(kWaitMs);
    if (waited == DatagramSocket::WaitResult::kStopped) return;
    if (waited == DatagramSocket::WaitResult::kFailed) return;
    if (waited == DatagramSocket::WaitResult::kTimeout) continue;
    u32 address = 0;
    u32 port = 0;
    const i32 length = socket_.Receive(buffer, sizeof buffer, &address, &port);
    if (length < 0) {
      ZN_TRACE(4, "recvfrom() failed for BroadcastListener");
    } else if (length != static_cast<i32>(kCommandBytes)) {
      ZN_TRACE(4, "Incorrect bytes received by BroadcastListener");
    } else {
      Answer(LoadU32(buffer), address, port);
    }
  }
}

void BroadcastListener::Answer(u32 command, u32 address, u32 port) {
  if (command == wire::kPingCommand) {
    AnswerPing(address, port);
  } else if (command == wire::kDiscoveryCommand) {
    AnswerDiscovery(address, port);
  } else {
    ZN_TRACE(4, "Incorrect command received by BroadcastListener");
  }
}

void BroadcastListener::AnswerPing(u32 address, u32 port) {
  if (server_.isKeepAliveDisabled) return;
  u8 reply[kCommandBytes];
  StoreU32(reply, server_.pingToken.load());
  if (!socket_.Send(reply, sizeof reply, address, port)) {
    ZN_TRACE(6, "Error in sending MiraPing response");
  }
}

// Name and addresses are looked up for each request: they may have changed.
void BroadcastListener::AnswerDiscovery(u32 address, u32 port) {
  const std::string client = AddressText(address);
  ZN_TRACE(1, "Command received by BroadcastListener from client: %s", client.c_str());
  std::string name;
  if (!names_.ownName(&name)) {
    ZN_TRACE(4, "gethostname() failed in BroadcastListener ");
    return;
  }
  std::string officialName;
  std::vector<u32> addresses;
  if (!names_.lookUp(name, &officialName, &addresses)) {
    ZN_TRACE(4, "gethostbyname() failed in BroadcastListener ");
    return;
  }
  const std::string reply = DiscoveryReply(officialName, addresses, description_);
  if (reply.size() <= wire::kMaxDatagram &&
      socket_.Send(reply.data(), static_cast<u32>(reply.size()), address, port)) {
    ZN_TRACE(1, "Sent response to %s from BroadcastListener", client.c_str());
  } else {
    ZN_TRACE(6, "Send to %s failed from BroadcastListener", client.c_str());
  }
}

}  // namespace zn
