// The listener for datagrams: answers a discovery request with a description of this host, and a
// ping with the server's token. On the port of the service, UDP. Anything malformed gets no answer.
#pragma once

#include <string>
#include <thread>
#include <vector>

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

// The token of pings: this host's first IPv4 address, its bytes as they stand. 0, traced, when the
// host cannot tell.
[[nodiscard]] u32 CreatePingToken();

class BroadcastListener {
 public:
  explicit BroadcastListener(ServerObject& server) noexcept : server_(server) {}
  ~BroadcastListener() { Stop(); }
  BroadcastListener(const BroadcastListener&) = delete;
  BroadcastListener& operator=(const BroadcastListener&) = delete;

  // Opens the port, so that it answers from the return on, and starts the thread; false when there
  // is none to be had. Without a port, which is traced, there is no thread, and that is no failure.
  // `bindAddress` is that of the service, empty for every address.
  [[nodiscard]] bool Start(const std::string& bindAddress, u32 port) noexcept;
  void Stop() noexcept;

 private:
  [[nodiscard]] bool OpenPort(const std::string& bindAddress, u32 port);
  [[nodiscard]] bool BindTo(const std::string& bindAddress, u32 port);
  void Run() noexcept;
  void Listen();
  void Answer(u32 command, u32 address, u32 port);
  void AnswerPing(u32 address, u32 port);
  void AnswerDiscovery(u32 address, u32 port);

  ServerObject& server_;
  HostDescription description_;
  DatagramSocket socket_;
  std::thread thread_;
};

}  // namespace zn
