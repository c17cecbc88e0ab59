// What the layer asks of the host's sockets. One half per host implements it (posix/); the names
// are those of the classic calls they stand for. Addresses are IPv4 in network byte order, ports in
// host order. No call raises a signal, and none is cut short by one.
#pragma once

#include <cstddef>
#include <string>

#include "zn/types.h"

namespace zn {

inline constexpr u32 kInvalidSocket = 0xFFFFFFFFu;

// 0 or -1. `dotted` is the host itself when it is a number with dots, which is not looked up; else
// the text of its first address.
[[nodiscard]] int ResolveHost(const char* host, std::string* dotted, u32* address);
[[nodiscard]] std::string AddressText(u32 address);

// A stream socket. kInvalidSocket when the host refuses; ZnGetLastError tells why, here and below.
[[nodiscard]] u32 OpenStream();
// 0, or -1 with the socket closed: the peer refused, or did not answer in time.
[[nodiscard]] int ConnectWithTimeout(u32 socket, u32 address, u32 port, u32 timeoutMs);
[[nodiscard]] int BindAny(u32 socket, u32 address, u32 port);  // 0 or -1
[[nodiscard]] int ListenOn(u32 socket);                        // 0 or -1
[[nodiscard]] u32 BoundPort(u32 socket);

enum class AcceptResult { kAccepted, kNone, kExhausted };
// kExhausted: the process or the host has no room for another one just now.
[[nodiscard]] AcceptResult AcceptNonBlocking(u32 listener, u32* socket, u32* address);

void SetNoDelay(u32 socket);
void ShutdownBoth(u32 socket);  // wakes who waits on it
void CloseSocket(u32 socket);

struct BytePart {
  const u8* data;
  size_t length;
};
inline constexpr size_t kMostParts = 64;
// Hands parts to the socket without waiting: the bytes it took, 0 when it takes none now, -1 on
// failure with *error set. At most kMostParts.
[[nodiscard]] i64 SendParts(u32 socket, const BytePart* parts, size_t count, u32* error);

struct ByteRoom {
  u8* data;
  size_t length;
};
inline constexpr i64 kReceivedNothing = -2;
// Receives into one or two rooms, in order. The bytes; 0 at the end of the stream; -1 on failure;
// kReceivedNothing when nothing is there and `waits` is false. A wait ends with the shutdown of the
// socket.
[[nodiscard]] i64 ReceiveParts(u32 socket, const ByteRoom* rooms, size_t count, bool waits);

// The host's code for a time-out, for the traces.
[[nodiscard]] u32 TimeoutErrorCode() noexcept;

}  // namespace zn
