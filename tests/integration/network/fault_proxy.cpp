#include "tests/integration/network/fault_proxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <vector>

namespace zn::test {

namespace {

constexpr size_t kMostQueued = size_t{4} << 20;  // of a lane; then its sender has to wait

sockaddr_in Loopback(unsigned port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  name.sin_port = htons(static_cast<u16>(port));
  return name;
}

void NoDelay(int fd) {
  const int yes = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

}  // namespace

FaultProxy::FaultProxy(unsigned serverPort, const Faults& faults, u64 seed)
    : serverPort_(serverPort), faults_(faults), random_(seed) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_in name = Loopback(0);
  socklen_t length = sizeof name;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
      listen(listener_, 1000) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&name), &length) != 0 ||
      pipe2(stop_, O_CLOEXEC) != 0) {
    throw std::runtime_error("no proxy");
  }
  port_ = ntohs(name.sin_port);
  thread_ = std::thread([this] { Run(); });
}

FaultProxy::~FaultProxy() {
  close(stop_[1]);
  thread_.join();
  for (Link& link : links_) End(link, false);
  close(stop_[0]);
  close(listener_);
}

void FaultProxy::Accept() {
  const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  if (client < 0) return;
  const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in name = Loopback(serverPort_);
  if (connect(server, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    close(server);
    close(client);
    return;
  }
  NoDelay(client);
  NoDelay(server);
  ++counts_.connections;
  Link& link = links_.emplace_back();
  link.up.from = link.down.to = client;
  link.up.to = link.down.from = server;
}

// A cut of a network is seen as a reset or as an end, and one is as likely as the other.
void FaultProxy::End(Link& link, bool rudely) {
  if (link.isOver) return;
  link.isOver = true;
  const linger reset{1, 0};
  for (const int fd : {link.up.from, link.up.to}) {
    if (rudely) setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close(fd);
  }
}

void FaultProxy::CutUp(Link& link, Lane& lane, std::string_view bytes) {
  const Clock::time_point now = Clock::now();
  const bool isWhole = faults_.longestPiece == 0 || Below(2) == 0;
  while (!bytes.empty()) {
    const size_t length =
        isWhole ? bytes.size() : std::min<size_t>(bytes.size(), 1 + Below(faults_.longestPiece));
    Piece piece;
    piece.bytes = bytes.substr(0, length);
    bytes.remove_prefix(length);
    const auto delay = std::chrono::microseconds(Below(faults_.longestDelayUs + 1));
    lane.lastDue = std::max(lane.lastDue, now + delay);
    piece.due = lane.lastDue;
    ++counts_.pieces;
    counts_.bytes += length;
    if (Happens(faults_.damagesPerMillion)) {
      char& hit = piece.bytes[Below(static_cast<u32>(length))];
      hit = static_cast<char>(hit ^ (1 << Below(8)));
      ++counts_.damages;
      if (faults_.damagedLifeMs != 0) {
        link.endsAt = std::min(link.endsAt, now + std::chrono::milliseconds(faults_.damagedLifeMs));
      }
    }
    if (Happens(faults_.cutsPerMillion)) {
      piece.bytes.resize(Below(static_cast<u32>(length)));
      piece.cutsHere = true;
      bytes = {};
      lane.hasEnded = true;
    }
    // Now and then what came apart leaves together.
    const bool isMerged = !lane.queue.empty() && !lane.queue.back().cutsHere && Below(4) == 0;
    lane.queued += piece.bytes.size();
    if (isMerged) {
      lane.queue.back().bytes += piece.bytes;
      lane.queue.back().due = piece.due;
      lane.queue.back().cutsHere = piece.cutsHere;
    } else {
      lane.queue.push_back(std::move(piece));
    }
  }
}

void FaultProxy::Receive(Link& link, Lane& lane) {
  char buffer[65536];
  const ssize_t got = recv(lane.from, buffer, sizeof buffer, MSG_DONTWAIT);
  if (got < 0 && errno == EAGAIN) return;
  if (got <= 0) {
    lane.hasEnded = true;
    return;
  }
  CutUp(link, lane, {buffer, static_cast<size_t>(got)});
}

void FaultProxy::SendDue(Link& link, Lane& lane) {
  lane.isFull = false;
  const Clock::time_point now = Clock::now();
  while (!lane.queue.empty() && lane.queue.front().due <= now) {
    Piece& piece = lane.queue.front();
    if (!piece.bytes.empty()) {
      const ssize_t sent =
          send(lane.to, piece.bytes.data(), piece.bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
      if (sent < 0 && errno == EAGAIN) {
        lane.isFull = true;
        return;
      }
      if (sent < 0) {
        End(link, false);
        return;
      }
      lane.queued -= static_cast<size_t>(sent);
      piece.bytes.erase(0, static_cast<size_t>(sent));
      if (!piece.bytes.empty()) continue;
    }
    if (piece.cutsHere) {
      ++counts_.cuts;
      End(link, Below(2) == 0);
      return;
    }
    lane.queue.pop_front();
  }
  if (lane.hasEnded && lane.queue.empty()) End(link, false);
}

FaultProxy::Clock::time_point FaultProxy::NextDue() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Link& link : links_) {
    next = std::min(next, link.endsAt);
    for (const Lane* lane : {&link.up, &link.down}) {
      if (!lane->queue.empty() && !lane->isFull) next = std::min(next, lane->queue.front().due);
    }
  }
  return next;
}

void FaultProxy::Run() {
  for (;;) {
    std::vector<pollfd> waited = {{stop_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
    for (const Link& link : links_) {
      for (const int side : {0, 1}) {  // the client's socket, then the server's
        const Lane& in = side == 0 ? link.up : link.down;
        const Lane& out = side == 0 ? link.down : link.up;
        const bool reads = !in.hasEnded && in.queued < kMostQueued;
        const short events = static_cast<short>((reads ? POLLIN : 0) | (out.isFull ? POLLOUT : 0));
        waited.push_back({events == 0 ? -1 : in.from, events, 0});
      }
    }
    const Clock::time_point due = NextDue();
    timespec limit{};
    if (due != Clock::time_point::max()) {
      const auto left = std::max(Clock::duration(0), due - Clock::now());
      limit.tv_sec = std::chrono::duration_cast<std::chrono::seconds>(left).count();
      limit.tv_nsec = static_cast<long>((left % std::chrono::seconds(1)).count());
    }
    ppoll(waited.data(), waited.size(), due == Clock::time_point::max() ? nullptr : &limit,
          nullptr);
    if (waited[0].revents != 0) return;
    size_t at = 2;
    for (Link& link : links_) {
      if (waited[at++].revents != 0) Receive(link, link.up);
      if (waited[at++].revents != 0) Receive(link, link.down);
      SendDue(link, link.up);
      if (!link.isOver) SendDue(link, link.down);
      if (!link.isOver && link.endsAt <= Clock::now()) End(link, true);
    }
    if (waited[1].revents != 0) Accept();
    links_.remove_if([](const Link& link) { return link.isOver; });
  }
}

}  // namespace zn::test
