// Reports of the service: see the header.
#include "report.h"

#include <syslog.h>
#include <systemd/sd-daemon.h>
#include <time.h>

#include <cinttypes>
#include <cstdint>
#include <iostream>

namespace zn::svc {

Report::Report(bool toTerminal) : toTerminal_(toTerminal) {
  if (!toTerminal_) openlog("znsvc", LOG_PID, LOG_DAEMON);
}

void Report::Say(const std::string& text) const {
  if (toTerminal_) {
    std::cout << "znsvc: " << text << std::endl;
  } else {
    syslog(LOG_INFO, "%s", text.c_str());
  }
}

void Report::Complain(const std::string& text) const {
  std::cerr << "znsvc: " << text << std::endl;
  if (!toTerminal_) syslog(LOG_ERR, "%s", text.c_str());
}

// Where nothing waits for a notice, none is sent.
void Report::Ready(const std::string& status) const {
  static_cast<void>(sd_notifyf(0, "READY=1\nSTATUS=%s", status.c_str()));
}

void Report::Reloading() const {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto microseconds =
      static_cast<uint64_t>(now.tv_sec) * 1000000u + static_cast<uint64_t>(now.tv_nsec) / 1000u;
  static_cast<void>(sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%" PRIu64, microseconds));
}

void Report::Stopping() const {
  static_cast<void>(sd_notify(0, "STOPPING=1\nSTATUS=Waiting for calls to end"));
}

}  // namespace zn::svc
