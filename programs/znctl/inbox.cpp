// The queue to the main thread, and the signals. An eventfd wakes the waiter: writing to it is
// allowed in a signal handler, signalling a condition variable is not.
#include "inbox.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "failure.h"

namespace zn::ctl {
namespace {

std::atomic<int> caughtSignal{0};
std::atomic<int> wakeForHandler{-1};
std::atomic<const char*> busyNotice{nullptr};

void Wake(int descriptor) {
  const u64 one = 1;
  // A full counter wakes as well, so a failed write loses nothing.
  [[maybe_unused]] const ssize_t written = write(descriptor, &one, sizeof(one));
}

void OnSignal(int number) {
  int expected = 0;
  if (!caughtSignal.compare_exchange_strong(expected, number)) _exit(128 + number);
  const char* notice = busyNotice.load();
  if (notice != nullptr) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, notice, std::strlen(notice));
  }
  Wake(wakeForHandler.load());
}

}  // namespace

Deadline DeadlineIn(double seconds) {
  if (seconds < 0) return std::nullopt;
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(
             std::chrono::duration<double>(seconds));
}

Inbox& Inbox::Get() {
  static Inbox* const inbox = new Inbox;  // never destroyed: see the file's head
  return *inbox;
}

Inbox::Inbox() : wakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Inbox::CatchSignals() {
  wakeForHandler = wakeDescriptor_;
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    sigaction(number, nullptr, &present);
    if (present.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);  // nohup stays nohup
  }
  signal(SIGPIPE, SIG_IGN);  // a closed pipe must not keep the providers from their shutdown
}

int Inbox::Signal() const {
  return caughtSignal.load();
}

void Inbox::ThrowIfInterrupted() const {
  if (Signal() != 0) throw Interrupted(Signal());
}

void Inbox::SetBusyNotice(const char* notice) {
  busyNotice = notice;
}

void Inbox::Push(InboxItem item) {
  {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
  }
  Wake(wakeDescriptor_);
}

std::optional<InboxItem> Inbox::Pop() {
  const std::lock_guard lock(mutex_);
  if (items_.empty()) return std::nullopt;
  InboxItem item = std::move(items_.front());
  items_.pop_front();
  return item;
}

std::optional<InboxItem> Inbox::Wait(const Deadline& deadline) {
  for (;;) {
    if (Signal() != 0) return std::nullopt;
    if (std::optional<InboxItem> item = Pop()) return item;
    int timeoutMs = -1;
    if (deadline) {
      const auto left = *deadline - std::chrono::steady_clock::now();
      if (left <= left.zero()) return std::nullopt;
      const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
      timeoutMs = static_cast<int>(std::min<i64>(ms, 1 << 30));
    }
    pollfd wait{wakeDescriptor_, POLLIN, 0};
    if (poll(&wait, 1, timeoutMs) <= 0) continue;
    u64 count = 0;
    [[maybe_unused]] const ssize_t got = read(wakeDescriptor_, &count, sizeof(count));
  }
}

}  // namespace zn::ctl
