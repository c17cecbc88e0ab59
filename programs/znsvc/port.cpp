// Ports of this machine: see the header.
#include "port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zn::svc {

namespace {

class Socket {
 public:
  explicit Socket(int type) : fd_(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {}
  ~Socket() {
    if (fd_ >= 0) close(fd_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // 0 or the error number. As the service binds: a port whose old connections linger is free.
  [[nodiscard]] int Bind(const in_addr& address, unsigned port) const {
    if (fd_ < 0) return errno;
    const int yes = 1;
    static_cast<void>(setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes));
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr = address;
    name.sin_port = htons(static_cast<unsigned short>(port));
    return bind(fd_, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ? 0 : errno;
  }
  [[nodiscard]] int Listen() const { return listen(fd_, 1) == 0 ? 0 : errno; }
  [[nodiscard]] unsigned Port() const {
    sockaddr_in name{};
    socklen_t length = sizeof name;
    if (getsockname(fd_, reinterpret_cast<sockaddr*>(&name), &length) != 0) return 0;
    return ntohs(name.sin_port);
  }

 private:
  int fd_;
};

[[nodiscard]] bool ReadAddress(const std::string& text, in_addr* address) {
  address->s_addr = htonl(INADDR_ANY);
  return text.empty() || inet_pton(AF_INET, text.c_str(), address) == 1;
}

// Without the permission to share: a second service would take half of the datagrams.
[[nodiscard]] int BindDatagrams(const in_addr& address, unsigned port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr = address;
  name.sin_port = htons(static_cast<unsigned short>(port));
  const int error =
      bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ? 0 : errno;
  close(fd);
  return error;
}

}  // namespace

bool IsLoopback(const std::string& address) {
  in_addr parsed{};
  return !address.empty() && ReadAddress(address, &parsed) && ntohl(parsed.s_addr) >> 24 == 127;
}

bool IsAddressOfThisMachine(const std::string& address) {
  in_addr parsed{};
  return ReadAddress(address, &parsed) && Socket(SOCK_STREAM).Bind(parsed, 0) == 0;
}

std::string PortFault(const std::string& address, unsigned port) {
  const std::string name = (address.empty() ? "" : address + ":") + std::to_string(port);
  in_addr parsed{};
  if (!ReadAddress(address, &parsed)) return "'" + address + "' is no IPv4 address";
  const Socket stream(SOCK_STREAM);
  int error = stream.Bind(parsed, port);
  if (error == 0) error = stream.Listen();
  if (error != 0) return "TCP " + name + ": " + std::strerror(error);
  error = BindDatagrams(parsed, port);
  if (error != 0) return "UDP " + name + ": " + std::strerror(error);
  return {};
}

unsigned FreePort(const std::string& address) {
  constexpr int kAttempts = 50;
  in_addr parsed{};
  if (!ReadAddress(address, &parsed)) return 0;
  for (int i = 0; i < kAttempts; ++i) {
    const Socket stream(SOCK_STREAM);
    if (stream.Bind(parsed, 0) != 0) return 0;
    if (BindDatagrams(parsed, stream.Port()) == 0) return stream.Port();
  }
  return 0;
}

}  // namespace zn::svc
