// Discovery of hosts: a table of the servers that answered the last broadcast, replaced whole by
// each pass. A pass runs on the thread that enables discovery or on the discovery thread.
#pragma once

#include <string_view>
#include <vector>

#include "zn/client.h"
#include "zn/types.h"

namespace zn {

// Where a discovery request goes: address in network order.
struct DiscoveryTarget {
  u32 address;
  u32 port;
};
// "192.0.2.1:2149,255.255.255.255": what is no address is passed over. The broadcast on the
// standard port for an empty text.
[[nodiscard]] std::vector<DiscoveryTarget> ParseDiscoveryTargets(std::string_view text);

// One datagram as it came.
struct DiscoveryReply {
  u32 address = 0;
  std::vector<u8> data;
};
// The rows of the replies, in the order of arrival: one for each sender and each host name. What is
// no reply loses its row and nothing else.
[[nodiscard]] std::vector<ClHostInfo> ReadDiscoveryReplies(
    const std::vector<DiscoveryReply>& replies);

// One pass with the time-out of now. ZNE_UNEXPECTED without a socket and when it was stopped; the
// table stays then.
[[nodiscard]] u32 RunDiscoveryPass();
void EnableDiscovery(u32 timeoutSeconds, bool immediately);
void DisableDiscovery();
// Ends the passes under way and the discovery thread, and disables discovery. The table stays.
void StopDiscovery() noexcept;
// The rows that a mask of flags asks for.
[[nodiscard]] std::vector<ClHostInfo> MatchingHosts(u32 flagMask);
// The pause between two passes of the thread, and how long a second of the time-out is; tests
// shorten both.
struct DiscoveryTimes {
  u32 intervalMs = 6000;
  u32 secondMs = 1000;
};
void SetDiscoveryTimes(const DiscoveryTimes& times) noexcept;

}  // namespace zn
