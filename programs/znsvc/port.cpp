// Ports of this machine: see the header.
#include "port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace zn::svc {

namespace {

[[nodiscard]] bool ReadAddress(const std::string& text, in_addr* address) {
  address->s_addr = htonl(INADDR_ANY);
  return text.empty() || inet_pton(AF_INET, text.c_str(), address) == 1;
}

[[nodiscard]] sockaddr_in NameOf(const in_addr& address, unsigned port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr = address;
  name.sin_port = htons(static_cast<unsigned short>(port));
  return name;
}

// A socket of that kind, bound; else -1 and the error number. As the service binds: what shares
// lets others share, and takes a port whose old connections linger.
[[nodiscard]] int Bind(int type, const in_addr& address, unsigned port, bool shares, int* error) {
  const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const int yes = 1;
  if (fd >= 0 && shares) {
    static_cast<void>(setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
  }
  const sockaddr_in name = NameOf(address, port);
  if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0) return fd;
  *error = errno;
  if (fd >= 0) close(fd);
  return -1;
}

[[nodiscard]] unsigned PortOf(int fd) {
  sockaddr_in name{};
  socklen_t length = sizeof name;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&name), &length) != 0) return 0;
  return ntohs(name.sin_port);
}

// 0 or the error number.
[[nodiscard]] int TryDatagrams(const in_addr& address, unsigned port) {
  int error = 0;
  const int fd = Bind(SOCK_DGRAM, address, port, false, &error);
  if (fd < 0) return error;
  close(fd);
  return 0;
}

}  // namespace

bool IsLoopback(const std::string& address) {
  in_addr parsed{};
  return !address.empty() && ReadAddress(address, &parsed) && ntohl(parsed.s_addr) >> 24 == 127;
}

bool IsAddressOfThisMachine(const std::string& address) {
  in_addr parsed{};
  int error = 0;
  const int fd = ReadAddress(address, &parsed) ? Bind(SOCK_STREAM, parsed, 0, true, &error) : -1;
  if (fd >= 0) close(fd);
  return fd >= 0;
}

// A free port of TCP that UDP has in use is given back, and another one asked for.
ReservedPort::ReservedPort(const std::string& address, unsigned port) {
  constexpr int kAttempts = 50;
  in_addr parsed{};
  if (!ReadAddress(address, &parsed)) {
    fault_ = "'" + address + "' is no IPv4 address";
    return;
  }
  for (int i = 0; i < (port == 0 ? kAttempts : 1); ++i) {
    const std::string name = (address.empty() ? "" : address + ":") + std::to_string(port);
    int error = 0;
    const int fd = Bind(SOCK_STREAM, parsed, port, true, &error);
    fault_ = "TCP " + name + ": " + std::strerror(error);
    if (fd < 0) return;
    error = TryDatagrams(parsed, PortOf(fd));
    if (error == 0) {
      socket_ = fd;
      port_ = PortOf(fd);
      fault_.clear();
      return;
    }
    fault_ = "UDP " + name + ": " + std::strerror(error);
    close(fd);
  }
}

ReservedPort::~ReservedPort() {
  if (socket_ >= 0) close(socket_);
}

bool ReservedPort::IsListenedOn() const {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", failure)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    int listens = 0;
    socklen_t length = sizeof listens;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listens, &length) != 0) continue;
    if (listens != 0 && PortOf(fd) == port_) return true;
  }
  return static_cast<bool>(failure);  // where descriptors cannot be listed, nobody knows better
}

}  // namespace zn::svc
