// The set of sockets is an epoll set; the timer and the wake are descriptors in it.
#include "ucl/common/poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "support/common/platform.h"

namespace zn {

namespace {

constexpr u64 kWakeKey = u64{1} << 63;

u32 ToHost(u32 interest) noexcept {
  u32 events = 0;
  if ((interest & kPollIn) != 0) events |= EPOLLIN | EPOLLRDHUP;
  if ((interest & kPollOut) != 0) events |= EPOLLOUT;
  if ((interest & kPollEdge) != 0) events |= EPOLLET;
  if ((interest & kPollOnce) != 0) events |= EPOLLONESHOT;
  return events;
}

u32 FromHost(u32 events) noexcept {
  u32 result = 0;
  if ((events & EPOLLIN) != 0) result |= kPollIn;
  if ((events & EPOLLOUT) != 0) result |= kPollOut;
  if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) result |= kPollGone;
  return result;
}

void CloseDescriptor(int* fd) noexcept {
  if (*fd >= 0) close(*fd);
  *fd = -1;
}

}  // namespace

bool Poller::Open() {
  set_ = epoll_create1(EPOLL_CLOEXEC);
  timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const bool isOpen = set_ >= 0 && timer_ >= 0 && wake_ >= 0 &&
                      Add(static_cast<u32>(timer_), kTimerKey, kPollIn | kPollEdge) &&
                      Add(static_cast<u32>(wake_), kWakeKey, kPollIn);
  if (isOpen) return true;
  SetLastFailure(static_cast<u32>(errno));
  Close();
  return false;
}

void Poller::Close() {
  CloseDescriptor(&wake_);
  CloseDescriptor(&timer_);
  CloseDescriptor(&set_);
}

bool Poller::Add(u32 socket, u64 key, u32 interest) {
  epoll_event event{};
  event.events = ToHost(interest);
  event.data.u64 = key;
  if (epoll_ctl(set_, EPOLL_CTL_ADD, static_cast<int>(socket), &event) == 0) return true;
  SetLastFailure(static_cast<u32>(errno));
  return false;
}

void Poller::Change(u32 socket, u64 key, u32 interest) {
  epoll_event event{};
  event.events = ToHost(interest);
  event.data.u64 = key;
  epoll_ctl(set_, EPOLL_CTL_MOD, static_cast<int>(socket), &event);
}

void Poller::Remove(u32 socket) {
  epoll_ctl(set_, EPOLL_CTL_DEL, static_cast<int>(socket), nullptr);
}

Poller::WaitResult Poller::Wait(PollEvent* event, u32 timeoutMs) {
  const int timeout = timeoutMs == kForever ? -1 : static_cast<int>(timeoutMs);
  for (;;) {
    epoll_event found{};
    const int count = epoll_wait(set_, &found, 1, timeout);
    if (count < 0 && errno == EINTR) continue;
    if (count == 0) return WaitResult::kTimeout;
    if (count < 0 || found.data.u64 == kWakeKey) return WaitResult::kWoken;
    *event = {found.data.u64, FromHost(found.events)};
    return WaitResult::kEvent;
  }
}

void Poller::SetTimer(u32 ms) {
  const u32 delay = std::max(ms, 1u);  // 0 would stop it
  itimerspec when{};
  when.it_value.tv_sec = delay / 1000;
  when.it_value.tv_nsec = static_cast<long>(delay % 1000) * 1'000'000;
  timerfd_settime(timer_, 0, &when, nullptr);
}

void Poller::WakeAll() {
  eventfd_write(wake_, 1);
}

}  // namespace zn
