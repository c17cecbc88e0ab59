// The listener for datagrams: answers a discovery request with a description of this host, and a
// ping with the server's token. On the port of the service, UDP. Anything malformed gets no answer.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "support/common/sync.h"
#include "ucl/common/datagram.h"
#include "zn/types.h"

namespace zn {

struct ServerObject;

// What a discovery reply says beside the host's name and addresses.
struct HostDescription {
  GUID databaseId{};
  u32 version = 0;
  u32 serverFlags = 0;
};

// The reply: the addresses, in network byte order, are cut to as many as fit into one datagram.
[[nodiscard]] std::string DiscoveryReply(const std::string& hostName,
                                         const std::vector<u32>& addresses,
                                         const HostDescription& description);

// How a host says what it is called and where it is; tests say it themselves.
struct HostNames {
  bool (*ownName)(std::string* name) = GetLocalHostName;
  bool (*lookUp)(const std::string& name, std::string* officialName,
                 std::vector<u32>* addresses) = LookUpHost;
};

// The token of pings: this host's first IPv4 address, its bytes as they stand. 0, traced, when the
// host cannot tell.
[[nodiscard]] u32 CreatePingToken(const HostNames& names = {});

class BroadcastListener {
 public:
  explicit BroadcastListener(ServerObject& server, const HostNames& names = {}) noexcept
      : server_(server), names_(names) {}
  ~BroadcastListener() { static_cast<void>(Stop(kForever)); }
  BroadcastListener(const BroadcastListener&) = delete;
  BroadcastListener& operator=(const BroadcastListener&) = delete;

  // Opens the port, so that it answers from the return on, and starts the thread; false when there
  // is none to be had. Without a port, which is traced, there is no thread, and that is no failure.
  // `bindAddress` is that of the service, empty for every address.
  [[nodiscard]] bool Start(const std::string& bindAddress, u32 port) noexcept;
  // Waits for the end of the thread, which the look-up of a name may hold up. False when it did for
  // so long; the destructor waits for it all the same.
  [[nodiscard]] bool Stop(u32 timeoutMs) noexcept;

  static constexpr u32 kForever = 0xFFFFFFFFu;

 private:
  [[nodiscard]] bool OpenPort(const std::string& bindAddress, u32 port);
  [[nodiscard]] bool BindTo(const std::string& bindAddress, u32 port);
  void Run() noexcept;
  void Listen();
  [[nodiscard]] bool WaitForEnd(u32 timeoutMs) noexcept;
  void Answer(u32 command, u32 address, u32 port);
  void AnswerPing(u32 address, u32 port);
  void AnswerDiscovery(u32 address, u32 port);

  ServerObject& server_;
  const HostNames names_;
  HostDescription description_;
  DatagramSocket socket_;
  Mutex mutex_;
  Condition ended_;
  bool hasEnded_ ZN_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace zn
