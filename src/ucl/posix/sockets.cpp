// The socket calls of the layer. Connected sockets stay in blocking mode: who may wait says so with
// each call, so that a waiting caller needs one system call for one response.
#include "ucl/common/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
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

// The listen queue holds connections that came in while the accepting side was busy.
constexpr int kBacklog = 1024;

int Fd(u32 socket) noexcept {
  return static_cast<int>(socket);
}

void KeepError() noexcept {
  SetLastFailure(static_cast<u32>(errno));
}

// A number that is none would be cut to another port.
bool IsPort(u32 port) noexcept {
  if (port <= 0xFFFF) return true;
  SetLastFailure(EINVAL);
  return false;
}

void SetBlocking(int fd, bool blocking) noexcept {
  const int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

// Until the socket is connected; false on failure and after the time.
bool WaitConnected(int fd, u32 timeoutMs) noexcept {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    pollfd waiting{fd, POLLOUT, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(std::max<i64>(left.count(), 0)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) errno = ETIMEDOUT;
    if (ready <= 0) return false;
    int error = 0;
    socklen_t size = sizeof(error);
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return false;
    errno = error;
    return error == 0;
  }
}

}  // namespace

std::string AddressText(u32 address) {
  char text[INET_ADDRSTRLEN] = {};
  in_addr in{};
  in.s_addr = address;
  inet_ntop(AF_INET, &in, text, sizeof(text));
  return text;
}

int ResolveHost(const char* host, std::string* dotted, u32* address) {
  if (host == nullptr || dotted == nullptr || address == nullptr) return -1;
  dotted->clear();
  *address = 0;
  const in_addr_t number = inet_addr(host);
  if (number != INADDR_NONE) {
    *dotted = host;
    *address = number;
    return 0;
  }
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &found) != 0) return -1;
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
  if (found == nullptr) return 0;
  *address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr.s_addr;
  *dotted = AddressText(*address);
  return 0;
}

u32 OpenStream() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) KeepError();
  return fd < 0 ? kInvalidSocket : static_cast<u32>(fd);
}

int ConnectWithTimeout(u32 socket, u32 address, u32 port, u32 timeoutMs) {
  const int fd = Fd(socket);
  if (!IsPort(port)) {
    close(fd);
    return -1;
  }
  const sockaddr_in peer = MakeAddress(address, port);
  SetBlocking(fd, false);
  bool connected = connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof(peer)) == 0;
  if (!connected && errno == EISCONN) connected = true;
  if (!connected && (errno == EINPROGRESS || errno == EALREADY || errno == EINTR)) {
    connected = WaitConnected(fd, timeoutMs);
  }
  if (connected) {
    SetBlocking(fd, true);
    return 0;
  }
  KeepError();
  close(fd);
  return -1;
}

int BindAny(u32 socket, u32 address, u32 port) {
  if (!IsPort(port)) return -1;
  const int on = 1;
  setsockopt(Fd(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  const sockaddr_in name = MakeAddress(address, port);
  const int result = bind(Fd(socket), reinterpret_cast<const sockaddr*>(&name), sizeof(name));
  if (result != 0) KeepError();
  return result;
}

int ListenOn(u32 socket) {
  SetBlocking(Fd(socket), false);
  const int result = listen(Fd(socket), kBacklog);
  if (result != 0) KeepError();
  return result;
}

u32 BoundPort(u32 socket) {
  sockaddr_in name{};
  socklen_t size = sizeof(name);
  if (getsockname(Fd(socket), reinterpret_cast<sockaddr*>(&name), &size) != 0) return 0;
  return ntohs(name.sin_port);
}

AcceptResult AcceptNonBlocking(u32 listener, u32* socket, u32* address) {
  for (;;) {
    sockaddr_in peer{};
    socklen_t size = sizeof(peer);
    const int fd = accept4(Fd(listener), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
    if (fd >= 0) {
      *socket = static_cast<u32>(fd);
      *address = peer.sin_addr.s_addr;
      return AcceptResult::kAccepted;
    }
    if (errno == EINTR || errno == ECONNABORTED) continue;
    KeepError();
    const bool isExhausted =
        errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    return isExhausted ? AcceptResult::kExhausted : AcceptResult::kNone;
  }
}

void SetNoDelay(u32 socket) {
  const int on = 1;
  setsockopt(Fd(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

void ShutdownBoth(u32 socket) {
  shutdown(Fd(socket), SHUT_RDWR);
}

void CloseSocket(u32 socket) {
  if (socket != kInvalidSocket) close(Fd(socket));
}

i64 SendParts(u32 socket, const BytePart* parts, size_t count, u32* error) {
  iovec vectors[kMostParts];
  const size_t used = std::min(count, kMostParts);
  for (size_t i = 0; i < used; ++i) {
    vectors[i] = {const_cast<u8*>(parts[i].data), parts[i].length};
  }
  msghdr message{};
  message.msg_iov = vectors;
  message.msg_iovlen = used;
  for (;;) {
    const ssize_t sent = sendmsg(Fd(socket), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0) return sent;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) return 0;
    *error = static_cast<u32>(errno);
    KeepError();
    return -1;
  }
}

i64 ReceiveParts(u32 socket, const ByteRoom* rooms, size_t count, bool waits) {
  const int flags = waits ? 0 : MSG_DONTWAIT;
  for (;;) {
    ssize_t received = 0;
    if (count == 1) {
      received = recv(Fd(socket), rooms[0].data, rooms[0].length, flags);
    } else {
      iovec vectors[2] = {{rooms[0].data, rooms[0].length}, {rooms[1].data, rooms[1].length}};
      msghdr message{};
      message.msg_iov = vectors;
      message.msg_iovlen = 2;
      received = recvmsg(Fd(socket), &message, flags);
    }
    if (received >= 0) return received;
    if (errno == EINTR) continue;
    return errno == EAGAIN || errno == EWOULDBLOCK ? kReceivedNothing : -1;
  }
}

u32 TimeoutErrorCode() noexcept {
  return ETIMEDOUT;
}

}  // namespace zn
