// IPv4 addresses as this host's sockets take them.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "zn/types.h"

namespace zn {

// The address is in network order, the port in the host's.
[[nodiscard]] inline sockaddr_in MakeAddress(u32 address, u32 port) noexcept {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<u16>(port));
  name.sin_addr.s_addr = address;
  return name;
}

}  // namespace zn
