// Looking at ports before the service opens its own: the library reports a port that it cannot have
// in its trace alone, and goes on without clients, which is not what a service is started for.
#pragma once

#include <string>

namespace zn::svc {

// Addresses are dotted IPv4 text, empty for every address of the machine.
[[nodiscard]] bool IsLoopback(const std::string& address);
// Whether the address is one that a port can be opened on.
[[nodiscard]] bool IsAddressOfThisMachine(const std::string& address);
// An empty text when the port can be had (TCP and UDP), else why not.
[[nodiscard]] std::string PortFault(const std::string& address, unsigned port);
// A port that is free for TCP and UDP; 0 when there is none.
[[nodiscard]] unsigned FreePort(const std::string& address);

}  // namespace zn::svc
