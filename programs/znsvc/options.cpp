// The command line of the service: see the header.
#include "options.h"

#include <CLI/CLI.hpp>

#include "port.h"
#include "zn/platform.h"

namespace zn::svc {

namespace {

constexpr char kAbout[] =
    "The service of the object bus: loads the providers of the settings, shows what they tell as\n"
    "live objects, and serves consoles on a TCP port until it is told to stop.";

constexpr char kFooter[] =
    "First steps:\n"
    "  znsvc --check                         are the settings good?\n"
    "  znsvc --foreground --port 0           try it on a free port, Ctrl-C ends it\n"
    "  systemctl enable --now znsvc          run it for good\n\n"
    "Who may log on stands in the settings, [Security]: AccessUsers and AccessGroups; root always\n"
    "may. Passwords are checked by PAM (/etc/pam.d/znsvc).\n\n"
    "Signals: SIGTERM and SIGINT end the service when the calls that run have ended; a second one\n"
    "ends it at once. SIGHUP reads the trace flags anew.\n\n"
    "Exit codes: 0 stopped as told (--check: nothing is wrong), 1 the start failed (--check: "
    "errors\n"
    "were found), 2 wrong usage. docs/znsvc.md tells the rest.\n";

[[nodiscard]] std::string VersionText() {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  static_cast<void>(ZnGetLibVersion(&a, &b, &c, &d));
  return "znsvc " + std::to_string(a) + "." + std::to_string(b) + "." + std::to_string(c) + "." +
         std::to_string(d);
}

void Describe(CLI::App& app, Options* options) {
  app.footer(kFooter);
  app.get_formatter()->column_width(34);
  app.set_version_flag("--version", VersionText);
  app.add_option("--settings", options->settings, "Settings file (else ZN_SETTINGS, else default)")
      ->type_name("FILE")
      ->take_last();
  app.add_option("--port", options->port, "Port of the service, TCP and UDP; 0 takes a free one")
      ->type_name("N")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_flag("--foreground", options->foreground,
               "Tell on the terminal what goes on, not in the system's log");
  app.add_flag("--check", options->check, "Say what is wrong with the settings, start nothing");
  app.add_flag("--insecure-accept-any-password", options->acceptAnyPassword,
               "For tests: whoever knows a user's name is let in. Only on a loopback address");
  app.add_flag("--insecure-on-every-address", options->onEveryAddress,
               "Do that even where other machines can connect");
}

}  // namespace

bool ReadCommandLine(int argc, char** argv, Options* options, int* exitCode) {
  CLI::App app(kAbout, "znsvc");
  Describe(app, options);
  try {
    app.parse(argc, argv);
    return true;
  } catch (const CLI::ParseError& error) {
    *exitCode = app.exit(error) == 0 ? kExitDone : kExitUsage;
    return false;
  }
}

std::string InsecureFault(const Options& options, const std::string& bindAddress) {
  if (!options.acceptAnyPassword) {
    return options.onEveryAddress
               ? "--insecure-on-every-address goes with --insecure-accept-any-password alone"
               : "";
  }
  if (IsLoopback(bindAddress) || options.onEveryAddress) return "";
  return "any password would be accepted from other machines: set BindAddress = \"127.0.0.1\" in "
         "the settings, or say --insecure-on-every-address too";
}

}  // namespace zn::svc
