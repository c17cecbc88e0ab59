// The thread that follows the machine; see the header.
#include "follower.h"

#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <future>
#include <utility>

#include "alert_bus.h"
#include "zn/status.h"

namespace hostinv {
namespace {

// Takes the count off an eventfd or a timerfd.
void ReadCount(int fd) {
  std::uint64_t count = 0;
  while (read(fd, &count, sizeof(count)) < 0 && errno == EINTR) {
  }
}

itimerspec Every(u32 milliseconds) {
  itimerspec period{};
  period.it_interval.tv_sec = milliseconds / 1000;
  period.it_interval.tv_nsec = static_cast<long>(milliseconds % 1000) * 1'000'000;
  period.it_value = period.it_interval;
  return period;
}

}  // namespace

Follower::Follower(std::unique_ptr<Machine> machine, ZnHandle database, ZnHandle provider,
                   const Settings& settings)
    : machine_(std::move(machine)),
      database_(database),
      provider_(provider),
      publisher_(database, provider),
      alerts_(settings.alerts),
      periodMs_(settings.periodMs) {}

Follower::~Follower() {
  Stop();
  if (wake_ >= 0) close(wake_);
  if (timer_ >= 0) close(timer_);
}

void Follower::Stop() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  stop_ = true;
  if (thread_.joinable()) {
    Wake();
    thread_.join();
  }
  for (const PendingRequest& request : TakeRequests()) request.done(ZNE_SHUTDOWN_STARTED);
}

u32 Follower::Start() {
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (wake_ < 0 || timer_ < 0) return ZNE_OPERATION_FAILED;
  const itimerspec period = Every(periodMs_);  // all zero, no period, leaves the timer unarmed
  if (timerfd_settime(timer_, 0, &period, nullptr) != 0) return ZNE_OPERATION_FAILED;
  machine_->Scan(kAllParts, &state_);
  Show();
  thread_ = std::thread(&Follower::Run, this);
  return 0;
}

void Follower::Request(Work work, const Done& done) {
  bool taken = false;
  {
    const std::lock_guard lock(mutex_);
    taken = !closed_;
    if (taken) requests_.push_back({work, done});
  }
  if (taken) {
    Wake();
  } else {
    done(ZNE_SHUTDOWN_STARTED);
  }
}

u32 Follower::RequestAndWait(Work work) {
  // Shared, since the thread may still be inside set_value when the waiter has its answer.
  const auto answer = std::make_shared<std::promise<u32>>();
  Request(work, [answer](u32 status) { answer->set_value(status); });
  return answer->get_future().get();
}

void Follower::Run() {
  std::vector<pollfd> descriptors = {{wake_, POLLIN, 0}, {timer_, POLLIN, 0}};
  for (const Watch& watch : machine_->Watches()) {
    descriptors.push_back({watch.fd, watch.events, 0});
  }
  while (!stop_) {
    bool periodPassed = false;
    const Parts parts = Wait(&descriptors, &periodPassed);
    const std::vector<PendingRequest> requests = TakeRequests();
    if (parts != 0) machine_->Scan(parts, &state_);
    if (parts == 0 && periodPassed) machine_->Sample(&state_);
    if (parts != 0 || periodPassed) Show();
    Serve(requests);
  }
}

Parts Follower::Wait(std::vector<pollfd>* descriptors, bool* periodPassed) {
  if (poll(descriptors->data(), descriptors->size(), -1) <= 0) return 0;
  Parts parts = 0;
  for (pollfd& descriptor : *descriptors) {
    if (descriptor.revents == 0) continue;
    if (descriptor.fd == wake_) {
      ReadCount(wake_);
    } else if (descriptor.fd == timer_) {
      ReadCount(timer_);
      *periodPassed = true;
    } else if ((descriptor.revents & POLLNVAL) != 0) {
      descriptor.fd = -1;  // gone for good; polling on would spin
    } else {
      parts |= machine_->Drain(descriptor.fd);
    }
  }
  return parts;
}

void Follower::Serve(const std::vector<PendingRequest>& requests) {
  for (const PendingRequest& request : requests) {
    if (request.work == Work::kRescan) {
      publisher_.ForgetDeleted();
      machine_->Scan(kAllParts, &state_);
    } else {
      machine_->Sample(&state_);
    }
    Show();
    request.done(0);
  }
}

void Follower::Show() {
  publisher_.Publish(Describe(state_));
  for (const Occurrence& occurrence : alerts_.Look(state_)) {
    // Refused where somebody has taken the alert back: then nobody is to hear of it.
    RaiseOccurrence(database_, provider_, occurrence);
  }
}

std::vector<Follower::PendingRequest> Follower::TakeRequests() {
  const std::lock_guard lock(mutex_);
  return std::exchange(requests_, {});
}

void Follower::Wake() const {
  const std::uint64_t one = 1;
  // A full counter is awake already.
  [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof(one));
}

}  // namespace hostinv
