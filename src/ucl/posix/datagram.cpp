// The UDP socket of the discovery and of the pings, and the names of this machine.
#include "ucl/common/datagram.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>

#include "support/common/platform.h"
#include "ucl/posix/address.h"

namespace zn {

namespace {

bool Succeeded(bool result) noexcept {
  if (!result) SetLastFailure(static_cast<u32>(errno));
  return result;
}

}  // namespace

DatagramSocket::~DatagramSocket() {
  if (socket_ >= 0) close(socket_);
  if (wake_ >= 0) close(wake_);
}

bool DatagramSocket::Open() {
  if (socket_ >= 0) return true;
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (!Succeeded(wake_ >= 0)) return false;
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (Succeeded(socket_ >= 0)) return true;
  close(wake_);
  wake_ = -1;
  return false;
}

bool DatagramSocket::EnableBroadcast() {
  const int on = 1;
  return Succeeded(setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) == 0);
}

bool DatagramSocket::Bind(u32 address, u32 port) {
  if (port > 0xFFFF) {  // it would be cut to another one
    SetLastFailure(EINVAL);
    return false;
  }
  const sockaddr_in name = MakeAddress(address, port);
  return Succeeded(bind(socket_, reinterpret_cast<const sockaddr*>(&name), sizeof(name)) == 0);
}

u32 DatagramSocket::Port() const {
  sockaddr_in name{};
  socklen_t size = sizeof(name);
  if (getsockname(socket_, reinterpret_cast<sockaddr*>(&name), &size) != 0) return 0;
  return ntohs(name.sin_port);
}

DatagramSocket::WaitResult DatagramSocket::Wait(u32 timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd waiting[2] = {{socket_, POLLIN, 0}, {wake_, POLLIN, 0}};
    const int slice = static_cast<int>(std::clamp<i64>(left, 0, 0x7FFFFFFF));
    const int ready = poll(waiting, 2, slice);
    if (ready < 0 && errno == EINTR) continue;
    if (!Succeeded(ready >= 0)) return WaitResult::kFailed;
    if (waiting[1].revents != 0) return WaitResult::kStopped;
    return ready == 0 ? WaitResult::kTimeout : WaitResult::kReady;
  }
}

i32 DatagramSocket::Receive(void* buffer, u32 size, u32* address, u32* port) {
  for (;;) {
    sockaddr_in from{};
    socklen_t length = sizeof(from);
    const ssize_t received =
        recvfrom(socket_, buffer, size, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &length);
    if (received < 0 && errno == EINTR) continue;
    if (!Succeeded(received >= 0)) return -1;
    *address = from.sin_addr.s_addr;
    *port = ntohs(from.sin_port);
    return static_cast<i32>(received);
  }
}

bool DatagramSocket::Send(const void* data, u32 length, u32 address, u32 port) {
  const sockaddr_in to = MakeAddress(address, port);
  for (;;) {
    const ssize_t sent = sendto(socket_, data, length, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    if (sent < 0 && errno == EINTR) continue;
    return Succeeded(sent == static_cast<ssize_t>(length));
  }
}

void DatagramSocket::Stop() {
  if (wake_ >= 0) eventfd_write(wake_, 1);
}

bool GetLocalHostName(std::string* name) {
  char text[256] = {};
  if (!Succeeded(gethostname(text, sizeof(text) - 1) == 0)) return false;
  *name = text;
  return true;
}

bool LookUpHost(const std::string& name, std::string* officialName, std::vector<u32>* addresses) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  hints.ai_flags = AI_CANONNAME;
  addrinfo* found = nullptr;
  const int result = getaddrinfo(name.c_str(), nullptr, &hints, &found);
  if (result != 0) {
    SetLastFailure(static_cast<u32>(result), gai_strerror(result));
    return false;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
  *officialName = found->ai_canonname != nullptr ? found->ai_canonname : name;
  addresses->clear();
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    addresses->push_back(reinterpret_cast<const sockaddr_in*>(entry->ai_addr)->sin_addr.s_addr);
  }
  return true;
}

}  // namespace zn
