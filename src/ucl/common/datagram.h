// Datagrams for the discovery of hosts and for pings: a UDP socket whose waits end at once when it
// is stopped, and what this machine is called. Addresses are IPv4 in network byte order, ports in
// host order. Knows nothing of what the datagrams hold.
#pragma once

#include <string>
#include <vector>

#include "zn/types.h"

namespace zn {

inline constexpr u32 kAnyAddress = 0;
inline constexpr u32 kBroadcastAddress = 0xFFFFFFFFu;

// One thread waits and receives; any thread may send and stop. Closed by the destructor, which must
// not run while a thread is inside.
class DatagramSocket {
 public:
  DatagramSocket() = default;
  ~DatagramSocket();
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;

  // Each is false when the host refuses (ZnGetLastError tells why). Open comes first.
  [[nodiscard]] bool Open();
  [[nodiscard]] bool EnableBroadcast();
  [[nodiscard]] bool Bind(u32 address, u32 port);  // port 0: a free one
  [[nodiscard]] u32 Port() const;                  // as bound; 0 before

  enum class WaitResult { kReady, kTimeout, kStopped, kFailed };
  // Until a datagram is there, at most `timeoutMs`.
  [[nodiscard]] WaitResult Wait(u32 timeoutMs);
  // The length of the datagram, cut to `size`; negative on failure.
  [[nodiscard]] i32 Receive(void* buffer, u32 size, u32* address, u32* port);
  // True when all of it went out.
  [[nodiscard]] bool Send(const void* data, u32 length, u32 address, u32 port);

  // Ends the wait that runs and every later one. Any thread, any number of times.
  void Stop();

 private:
  int socket_ = -1;
  int wake_ = -1;
};

// What the machine calls itself; false when it cannot tell.
[[nodiscard]] bool GetLocalHostName(std::string* name);
// The official name of a host and its IPv4 addresses in the order of the resolver; false when the
// name is not known. Looked up anew with each call.
[[nodiscard]] bool LookUpHost(const std::string& name, std::string* officialName,
                              std::vector<u32>* addresses);
// "192.0.2.1".
[[nodiscard]] std::string AddressText(u32 address);

}  // namespace zn
