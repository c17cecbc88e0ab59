// The run of the service. Signals are blocked in every thread and taken by the main thread, one at
// a time, so no handler runs anywhere.
#include "service.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <optional>
#include <string>
#include <thread>

#include "port.h"
#include "report.h"
#include "settings.h"
#include "zn/init.h"
#include "zn/status.h"
#include "zn/text.h"
#include "zn/trace.h"

namespace zn::svc {

namespace {

constexpr const ZnWChar* kTraceComponent = u"znmira";

// The switches of the library's two optional traces, by the names that their values have in the
// settings, [Tracing.znmira]. The library keeps the table until the stop.
TraceFlagRow traceFlags[] = {{u"TRACEDISPATCH", 0}, {u"TRACENOTIFY", 0}, {u"", 0}};

// Read into a copy first: the service looks at the flags all the time.
void ReadTraceFlagsAnew() {
  TraceFlagRow fresh[] = {{u"TRACEDISPATCH", 0}, {u"TRACENOTIFY", 0}, {u"", 0}};
  static_cast<void>(ZnTraceRefresh(kTraceComponent, fresh));
  for (int row = 0; row < 2; ++row) {
    std::atomic_ref<u8>(traceFlags[row].flag).store(fresh[row].flag, std::memory_order_relaxed);
  }
}

class Signals {
 public:
  Signals() {
    sigemptyset(&set_);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set_, number);
    static_cast<void>(pthread_sigmask(SIG_BLOCK, &set_, nullptr));
    static_cast<void>(signal(SIGPIPE, SIG_IGN));
  }
  [[nodiscard]] int Wait() const { return WaitFor(set_); }
  // From here on a signal to end ends the process at once: whoever sends a second one does not want
  // to wait for the calls that still run. The thread may outlive the run, so it has a copy.
  void EndAtOnce() const {
    std::thread([set = set_] {
      int number = SIGHUP;
      while (number == SIGHUP) number = WaitFor(set);
      _exit(128 + number);
    }).detach();
  }

 private:
  [[nodiscard]] static int WaitFor(const sigset_t& set) {
    int number = 0;
    while (sigwait(&set, &number) != 0) {
    }
    return number;
  }

  sigset_t set_;
};

[[nodiscard]] std::string StatusText(u32 status) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x ", status);
  return std::string(text) + ZnSysGetErrorString(0, status);
}

[[nodiscard]] std::string PlaceText(const std::string& address, unsigned port) {
  return (address.empty() ? std::string("every address") : address) + ", port " +
         std::to_string(port);
}

void WaitForTheEnd(const Signals& signals, const Report& report, const std::string& status) {
  while (signals.Wait() == SIGHUP) {
    report.Reloading();
    ReadTraceFlagsAnew();
    report.Say("trace flags read anew");
    report.Ready(status);
  }
}

void Stop(const Signals& signals, const Report& report) {
  report.Stopping();
  report.Say("stopping");
  signals.EndAtOnce();
  static_cast<void>(ShutdownServer());
  report.Say("stopped");
}

// The library runs without a port where it cannot have it; this program does not.
[[nodiscard]] std::string StartFault(u32 status, const ReservedPort& port) {
  if (status != ZN_OK) return StatusText(status) + SettingsHint();
  if (port.IsListenedOn()) return {};
  return "port " + std::to_string(port.Port()) + " cannot be opened; the trace tells why";
}

}  // namespace

int RunService(const Options& options) {
  const Signals signals;
  const Report report(options.foreground);
  std::string address;
  if (!ReadBindAddress(&address)) {
    report.Complain("BindAddress must be a text" + SettingsHint());
    return kExitFailed;
  }
  if (const std::string fault = InsecureFault(options, address); !fault.empty()) {
    report.Complain(fault);
    return kExitUsage;
  }
  // Until the library has its own: nobody takes it meanwhile.
  std::optional<ReservedPort> reserved(std::in_place, address, options.port);
  if (!reserved->Fault().empty()) {
    report.Complain(reserved->Fault());
    return kExitFailed;
  }
  const unsigned port = reserved->Port();
  if (options.acceptAnyPassword) report.Complain("WARNING: any password is accepted");
  const u32 status = InitializeServer(traceFlags, port, 1, options.acceptAnyPassword ? 1 : 0);
  const std::string fault = StartFault(status, *reserved);
  const bool takesDatagrams = reserved->TakesDatagrams();
  reserved.reset();
  if (!fault.empty()) {
    report.Complain("the start failed: " + fault);
    signals.EndAtOnce();
    static_cast<void>(ShutdownServer());
    return kExitFailed;
  }
  // Sessions work without: it is no reason to end.
  if (!takesDatagrams) {
    report.Complain(
        "UDP port " + std::to_string(port) +
        " cannot be opened, so there is neither discovery nor ping; the trace tells why");
  }
  const std::string place = "listening on " + PlaceText(address, port);
  report.Say(place);
  // Whoever asked for any free port wants to know which, wherever else it is told.
  if (options.port == 0 && !options.foreground) std::cout << "znsvc: " << place << std::endl;
  report.Ready(place);
  WaitForTheEnd(signals, report, place);
  Stop(signals, report);
  return kExitDone;
}

}  // namespace zn::svc
