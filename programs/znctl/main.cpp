// znctl: the console of the object bus. This file owns the command line and the exit codes:
//   0    done (also a watch that Ctrl-C has ended)
//   1    a status of the bus, told on the standard error with its name and text
//   2    a mistake in the command line
//   128+ ended by a signal, as shells count it
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "console.h"
#include "failure.h"
#include "inbox.h"
#include "status_names.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr char kFooter[] =
    "Objects are named by id, by the first digits of an id, by a path of names\n"
    "(/myhost/sda/sda1) or by the end of one (sda1). docs/znctl.md tells the rest.\n\n"
    "First steps:\n"
    "  znctl --local tree              what there is\n"
    "  znctl --local show sda          one object with its properties\n"
    "  znctl --local watch --for 10    what changes in ten seconds\n"
    "  znctl -H myhost --user me tree  the same of a server\n"
    "  znctl tree --help               more about a verb\n\n"
    "Exit codes: 0 done, 1 the bus refused (status, name and text on stderr),\n"
    "2 wrong usage, 130 interrupted.\n";

struct GlobalArguments {
  bool local = false;
  bool json = false;
  std::string settings;
  std::string locale;
  std::string host;
  RemoteTarget logon;
};

void AddGlobals(CLI::App& app, GlobalArguments* globals) {
  CLI::Option* local =
      app.add_flag("--local", globals->local, "Run the bus in this process, with its providers");
  app.add_option("-H,--host", globals->host, "Work on the bus of a server")
      ->type_name("HOST[:PORT]")
      ->excludes(local)
      ->take_last();
  app.add_option("--user", globals->logon.user, "Who logs on (else: by shared memory, here)")
      ->type_name("[DOMAIN\\]NAME")
      ->take_last();
  CLI::Option* file = app.add_option("--password-file", globals->logon.passwordFile,
                                     "Its first line is the password (else: asked for)")
                          ->type_name("FILE")
                          ->take_last();
  app.add_option("--password-fd", globals->logon.passwordDescriptor,
                 "The same from an open descriptor")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber)
      ->excludes(file)
      ->take_last();
  app.add_option("--settings", globals->settings, "Settings file (else ZN_SETTINGS, else default)")
      ->type_name("FILE")
      ->take_last();
  app.add_option("--locale", globals->locale, "Language of messages: de, de-AT, 1031, 0x407")
      ->type_name("LOCALE")
      ->take_last();
  app.add_flag("--json", globals->json, "Print JSON instead of text");
}

void Arrange(CLI::App* app) {
  app->get_formatter()->column_width(28);
  for (CLI::App* verb : app->get_subcommands({})) {
    verb->fallthrough();
    Arrange(verb);
  }
}

int Run(const GlobalArguments& globals, const Command& command) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread yet
  if (!globals.settings.empty()) setenv("ZN_SETTINGS", globals.settings.c_str(), 1);
  Inbox::Get().CatchSignals();
  Console console(DetectTerminal());
  console.local = globals.local;
  if (!globals.host.empty()) {
    const RemoteTarget place = ParseRemoteTarget(globals.host);
    console.remote = globals.logon;
    console.remote->host = place.host;
    console.remote->port = place.port;
  }
  console.json = globals.json;
  console.locale = globals.locale;
  const auto lost = [&console](std::vector<std::string> details) {
    return Failure(UCLW_SOCKET_DISCONNECTED, "lost the connection to " + console.remote->Text(),
                   std::move(details));
  };
  try {
    const int code = command(console);
    if (console.IsLost()) throw lost({"what was shown may lack something"});
    return code;
  } catch (const Failure& failure) {
    if (!console.IsLost() || failure.status == UCLW_SOCKET_DISCONNECTED) throw;
    throw lost({failure.what()});
  }
}

int RunGuarded(const GlobalArguments& globals, const Command& command) {
  try {
    return Run(globals, command);
  } catch (const Failure& failure) {
    std::string text =
        fmt::format("znctl: {}: {}\n", failure.what(), DescribeStatus(failure.status));
    for (const std::string& line : failure.details) text += "  " + Printable(line) + "\n";
    WriteError(text);
    return kExitFailed;
  } catch (const UsageError& error) {
    WriteError(fmt::format("znctl: {}\n", error.what()));
    return kExitUsage;
  } catch (const Interrupted& interrupted) {
    return 128 + interrupted.signal;
  } catch (const std::exception& error) {
    WriteError(fmt::format("znctl: {}\n", error.what()));
    return kExitFailed;
  }
}

// The verb on whose help the user is to look after a mistake.
std::string ChosenVerb(const CLI::App& app) {
  std::string name = app.get_name();
  for (const CLI::App* verb : app.get_subcommands()) name += " " + ChosenVerb(*verb);
  return name;
}

int Main(int argc, char** argv) {
  CLI::App app{"The console of the object bus: shows objects, changes them, follows events.",
               "znctl"};
  GlobalArguments globals;
  Command command;
  AddGlobals(app, &globals);
  AddTreeVerbs(app, &command);
  AddObjectVerbs(app, &command);
  AddQueryVerbs(app, &command);
  AddTypeVerbs(app, &command);
  AddProviderVerbs(app, &command);
  AddCallVerbs(app, &command);
  AddWatchVerbs(app, &command);
  AddAlertVerbs(app, &command);
  AddMessageVerbs(app, &command);
  AddSettingsVerbs(app, &command);
  AddDocumentVerbs(app, &command);
  AddTaskVerbs(app, &command);
  AddServerVerbs(app, &command);
  app.require_subcommand(0, 1);
  app.footer(kFooter);
  Arrange(&app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty()) at = at->get_subcommands().front();
    const std::string chosen = ChosenVerb(app);
    const size_t blank = chosen.rfind(' ');
    WriteOut(at->help(blank == std::string::npos ? "" : chosen.substr(0, blank)));
    return kExitOk;
  } catch (const CLI::ParseError& error) {
    WriteError(fmt::format("znctl: {}\n{} --help tells more\n", error.what(), ChosenVerb(app)));
    return kExitUsage;
  }
  if (!command) {
    WriteOut(app.help());
    return kExitOk;
  }
  return RunGuarded(globals, command);
}

}  // namespace
}  // namespace zn::ctl

int main(int argc, char** argv) {
  try {
    return zn::ctl::Main(argc, argv);
  } catch (const std::exception& error) {  // memory ran out, or the output cannot be written
    std::fprintf(stderr, "znctl: %s\n", error.what());
    return zn::ctl::kExitFailed;
  }
}
