// Ports of this machine: see the header.
#include "port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
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

// 0 for what is no socket of IPv4: a name of another family has something else in that place.
[[nodiscard]] unsigned PortOf(int fd) {
  sockaddr_in name{};
  socklen_t length = sizeof name;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&name), &length) != 0) return 0;
  return name.sin_family == AF_INET ? ntohs(name.sin_port) : 0;
}

// 0 where it cannot be told.
[[nodiscard]] int OptionOf(int fd, int option) {
  int value = 0;
  socklen_t length = sizeof value;
  return getsockopt(fd, SOL_SOCKET, option, &value, &length) == 0 ? value : 0;
}

// Whether this process has a socket on the port that is of that kind. Where its descriptors cannot
// be listed nobody knows better, and it is believed to have one.
template <typename IsWanted>
[[nodiscard]] bool HasSocketOn(unsigned port, const IsWanted& isWanted) {
  std::error_code failure;
  std::filesystem::directory_iterator entry("/proc/self/fd", failure);
  for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    const int fd = std::atoi(entry->path().filename().c_str());
    if (isWanted(fd) && PortOf(fd) == port) return true;
  }
  return static_cast<bool>(failure);
}

[[nodiscard]] std::string ErrorText(int error) {
  return std::generic_category().message(error);
}

// `tried` is what was asked for or, where any would have done, the last one that was given.
[[nodiscard]] std::string PortFault(const std::string& address, unsigned wanted,
                                    const std::string& protocol, unsigned tried, int error) {
  if (wanted != 0) {
    const std::string name = (address.empty() ? "" : address + ":") + std::to_string(wanted);
    return protocol + " " + name + ": " + ErrorText(error);
  }
  const std::string what = tried == 0 ? "" : protocol + " " + std::to_string(tried) + ": ";
  return "no free port on " + (address.empty() ? "every address" : address) + ": " + what +
         ErrorText(error);
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
    int error = 0;
    const int fd = Bind(SOCK_STREAM, parsed, port, true, &error);
    if (fd < 0) {
      fault_ = PortFault(address, port, "TCP", 0, error);
      return;
    }
    const unsigned given = PortOf(fd);
    error = TryDatagrams(parsed, given);
    if (error == 0) {
      socket_ = fd;
      port_ = given;
      fault_.clear();
      return;
    }
    fault_ = PortFault(address, port, "UDP", given, error);
    close(fd);
  }
}

ReservedPort::~ReservedPort() {
  if (socket_ >= 0) close(socket_);
}

bool ReservedPort::IsListenedOn() const {
  return HasSocketOn(port_, [](int fd) { return OptionOf(fd, SO_ACCEPTCONN) != 0; });
}

bool ReservedPort::TakesDatagrams() const {
  return HasSocketOn(port_, [](int fd) { return OptionOf(fd, SO_TYPE) == SOCK_DGRAM; });
}

}  // namespace zn::svc
