// The network interfaces of this process's network namespace, by libnl-route: one socket that
// answers dumps, one that tells changes. Speeds come from the driver by ioctl and not from /sys,
// which may belong to another network namespace. One thread at a time.
#pragma once

#include <memory>
#include <vector>

#include "machine.h"

struct nl_sock;

namespace hostinv {

class Netlink {
 public:
  // Null where the kernel gives no netlink socket.
  static std::unique_ptr<Netlink> Open();
  ~Netlink();
  Netlink(const Netlink&) = delete;
  Netlink& operator=(const Netlink&) = delete;

  std::vector<InterfaceState> Interfaces();
  // Brings the counters of interfaces that still exist up to date.
  void Sample(std::vector<InterfaceState>* interfaces);

  // Readable when links or addresses have changed.
  int ChangeDescriptor() const;
  // Empties it. True if anything was told, or if messages were lost.
  bool DrainChanges() const;

 private:
  struct SocketDeleter {
    void operator()(nl_sock* socket) const;
  };
  using Socket = std::unique_ptr<nl_sock, SocketDeleter>;

  Netlink(Socket query, Socket changes, int control);

  Socket query_;
  Socket changes_;
  int control_;  // any socket: the address of ioctls
};

}  // namespace hostinv
