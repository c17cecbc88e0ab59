// The port of the service before the library opens it: the library reports a port that it cannot
// have in its trace alone, and goes on without clients, which is not what a service is started for.
#pragma once

#include <string>

namespace zn::svc {

// Addresses are dotted IPv4 text, empty for every address of the machine.
[[nodiscard]] bool IsLoopback(const std::string& address);
// Whether the address is one that a port can be opened on.
[[nodiscard]] bool IsAddressOfThisMachine(const std::string& address);

// A port that is free for TCP and UDP, bound for TCP for as long as this lives. It is shared: the
// library binds it too and listens, but no process that wants a port of its own gets this one, nor
// does the system give it to one that asks for any.
//
// UDP cannot be held like this: two sockets that share a port there take the datagrams from each
// other.
class ReservedPort {
 public:
  // 0 for a free one.
  ReservedPort(const std::string& address, unsigned port);
  ~ReservedPort();
  ReservedPort(const ReservedPort&) = delete;
  ReservedPort& operator=(const ReservedPort&) = delete;

  // An empty text when the port was to be had, else why not.
  [[nodiscard]] const std::string& Fault() const noexcept { return fault_; }
  [[nodiscard]] unsigned Port() const noexcept { return port_; }
  // Whether this process listens on it, and whether it has a socket of UDP there. For a port that
  // was to be had.
  [[nodiscard]] bool IsListenedOn() const;
  [[nodiscard]] bool TakesDatagrams() const;

 private:
  int socket_ = -1;
  unsigned port_ = 0;
  std::string fault_;
};

}  // namespace zn::svc
