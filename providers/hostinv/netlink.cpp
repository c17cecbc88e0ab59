// Network interfaces by libnl-route; see the header.
#include "netlink.h"

#include <arpa/inet.h>
#include <linux/ethtool.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>

namespace hostinv {
namespace {

struct CacheDeleter {
  void operator()(nl_cache* cache) const { nl_cache_free(cache); }
};
using Cache = std::unique_ptr<nl_cache, CacheDeleter>;

Cache LinkCache(nl_sock* socket) {
  nl_cache* cache = nullptr;
  return Cache(rtnl_link_alloc_cache(socket, AF_UNSPEC, &cache) == 0 ? cache : nullptr);
}

Cache AddressCache(nl_sock* socket) {
  nl_cache* cache = nullptr;
  return Cache(rtnl_addr_alloc_cache(socket, &cache) == 0 ? cache : nullptr);
}

// Calls `visit` with each object of a cache; a cache that could not be filled has none.
template <typename Object, typename Visit>
void ForEach(const Cache& cache, Visit&& visit) {
  if (!cache) return;
  for (nl_object* object = nl_cache_get_first(cache.get()); object != nullptr;
       object = nl_cache_get_next(object)) {
    visit(reinterpret_cast<Object*>(object));
  }
}

std::string LinkName(rtnl_link* link) {
  const char* name = rtnl_link_get_name(link);
  return name != nullptr ? name : "";
}

std::string MacOf(rtnl_link* link) {
  std::array<char, 64> text{};
  nl_addr* address = rtnl_link_get_addr(link);
  // Tunnels carry an IP address in this place; only a real hardware address is shown.
  if (address == nullptr || nl_addr_get_len(address) != 6) return {};
  return nl_addr2str(address, text.data(), text.size());
}

std::string StateOf(rtnl_link* link) {
  std::array<char, 32> text{};
  std::string state =
      rtnl_link_operstate2str(rtnl_link_get_operstate(link), text.data(), text.size());
  return state;
}

// "192.0.2.1/24"; empty for a family that is neither IPv4 nor IPv6.
std::string AddressText(rtnl_addr* entry) {
  nl_addr* address = rtnl_addr_get_local(entry);
  if (address == nullptr) return {};
  std::array<char, INET6_ADDRSTRLEN> text{};
  const char* done = inet_ntop(nl_addr_get_family(address), nl_addr_get_binary_addr(address),
                               text.data(), text.size());
  if (done == nullptr) return {};
  return std::string(done) + "/" + std::to_string(rtnl_addr_get_prefixlen(entry));
}

std::uint32_t SpeedOf(int control, const std::string& name) {
  ethtool_cmd command{};
  command.cmd = ETHTOOL_GSET;
  ifreq request{};
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_data = reinterpret_cast<char*>(&command);
  if (ioctl(control, SIOCETHTOOL, &request) != 0) return 0;
  const std::uint32_t speed = ethtool_cmd_speed(&command);
  constexpr std::uint32_t kUnknown16 = 0xFFFF;  // older drivers
  return speed == static_cast<std::uint32_t>(SPEED_UNKNOWN) || speed == kUnknown16 ? 0 : speed;
}

TrafficCounters TrafficOf(rtnl_link* link) {
  TrafficCounters traffic;
  traffic.receivedBytes = rtnl_link_get_stat(link, RTNL_LINK_RX_BYTES);
  traffic.receivedPackets = rtnl_link_get_stat(link, RTNL_LINK_RX_PACKETS);
  traffic.receiveErrors = rtnl_link_get_stat(link, RTNL_LINK_RX_ERRORS);
  traffic.receiveDropped = rtnl_link_get_stat(link, RTNL_LINK_RX_DROPPED);
  traffic.sentBytes = rtnl_link_get_stat(link, RTNL_LINK_TX_BYTES);
  traffic.sentPackets = rtnl_link_get_stat(link, RTNL_LINK_TX_PACKETS);
  traffic.sendErrors = rtnl_link_get_stat(link, RTNL_LINK_TX_ERRORS);
  traffic.sendDropped = rtnl_link_get_stat(link, RTNL_LINK_TX_DROPPED);
  return traffic;
}

InterfaceState Describe(rtnl_link* link, int control) {
  InterfaceState state;
  state.name = LinkName(link);
  state.mac = MacOf(link);
  state.linkState = StateOf(link);
  state.index = static_cast<std::uint32_t>(rtnl_link_get_ifindex(link));
  state.mtu = rtnl_link_get_mtu(link);
  state.speedMbit = SpeedOf(control, state.name);
  state.traffic = TrafficOf(link);
  return state;
}

}  // namespace

void Netlink::SocketDeleter::operator()(nl_sock* socket) const {
  nl_socket_free(socket);
}

Netlink::Netlink(Socket query, Socket changes, int control)
    : query_(std::move(query)), changes_(std::move(changes)), control_(control) {}

Netlink::~Netlink() {
  if (control_ >= 0) close(control_);
}

std::unique_ptr<Netlink> Netlink::Open() {
  Socket query(nl_socket_alloc());
  Socket changes(nl_socket_alloc());
  if (!query || !changes) return nullptr;
  if (nl_connect(query.get(), NETLINK_ROUTE) != 0) return nullptr;
  // Told messages carry no sequence numbers of ours.
  nl_socket_disable_seq_check(changes.get());
  if (nl_connect(changes.get(), NETLINK_ROUTE) != 0) return nullptr;
  nl_socket_set_nonblocking(changes.get());
  nl_socket_add_memberships(changes.get(), RTNLGRP_LINK, RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR,
                            0);
  const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  return std::unique_ptr<Netlink>(new Netlink(std::move(query), std::move(changes), control));
}

std::vector<InterfaceState> Netlink::Interfaces() {
  std::map<int, InterfaceState> byIndex;
  std::map<int, int> masters;
  ForEach<rtnl_link>(LinkCache(query_.get()), [&](rtnl_link* link) {
    byIndex[rtnl_link_get_ifindex(link)] = Describe(link, control_);
    masters[rtnl_link_get_ifindex(link)] = rtnl_link_get_master(link);
  });
  ForEach<rtnl_addr>(AddressCache(query_.get()), [&](rtnl_addr* entry) {
    const auto owner = byIndex.find(rtnl_addr_get_ifindex(entry));
    std::string text = AddressText(entry);
    if (owner != byIndex.end() && !text.empty()) {
      owner->second.addresses.push_back(std::move(text));
    }
  });
  std::vector<InterfaceState> list;
  for (auto& [index, state] : byIndex) {
    const auto master = byIndex.find(masters[index]);
    if (master != byIndex.end()) state.master = master->second.name;
    std::sort(state.addresses.begin(), state.addresses.end());
  }
  list.reserve(byIndex.size());
  for (auto& [index, state] : byIndex) list.push_back(std::move(state));
  return list;
}

void Netlink::Sample(std::vector<InterfaceState>* interfaces) {
  ForEach<rtnl_link>(LinkCache(query_.get()), [&](rtnl_link* link) {
    const auto index = static_cast<std::uint32_t>(rtnl_link_get_ifindex(link));
    for (InterfaceState& state : *interfaces) {
      if (state.index == index) state.traffic = TrafficOf(link);
    }
  });
}

int Netlink::ChangeDescriptor() const {
  return nl_socket_get_fd(changes_.get());
}

bool Netlink::DrainChanges() const {
  // The messages themselves do not matter, a dump follows; so they are not even parsed, and lost
  // ones (ENOBUFS) count as well.
  std::array<char, 8192> buffer{};
  bool told = false;
  while (true) {
    const ssize_t got = recv(ChangeDescriptor(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno != ENOBUFS) return told;
    told = true;
    if (got == 0) return told;
  }
}

}  // namespace hostinv
