// What every verb works with: the terminal, the form of the output and the session, which is opened
// on first use. Verbs add themselves to the command line (CLI11) and leave what to run in Command.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bus_source.h"
#include "inbox.h"
#include "localizer.h"
#include "remote.h"
#include "session.h"
#include "terminal.h"

namespace CLI {
class App;
}

namespace zn::ctl {

class Console {
 public:
  explicit Console(const Terminal& terminal) : terminal_(terminal) {}

  bool json = false;
  bool local = false;
  std::string locale;  // as the user named it; empty for that of the environment
  std::optional<RemoteTarget> remote;

  const Terminal& Screen() const { return terminal_; }
  const Database& Bus();
  BusSource& Objects();
  bool BusEndsWithProgram();
  // The session with the server. Throws UsageError where the bus is not a server's.
  ClientHandle* Client(const char* verb);
  bool IsRemote() const { return remote.has_value(); }
  bool IsLost() const { return session_ && session_->IsLost(); }
  // After the loss of the server: tells it, and tries every second until another session stands
  // and `start` has gone through on it. `stop` comes first each time and ends whatever was made of
  // a session. False when the time is up or a signal came. Throws the refusal of a password.
  bool TakeUpAgain(const Deadline& deadline, const std::function<void()>& stop,
                   const std::function<void()>& start);

  // Ends the session, and everything known of its objects; the next use opens another. A verb that
  // has shown all it was asked for leaves so: whether its server goes now is nothing to it.
  void Drop();

  // The messages of the bus in the language that the user wants.
  Localizer Messages();

  // The object that the user named, with what is known of it.
  Id Resolve(const std::string& text) { return ResolveObject(Objects(), text); }
  // "name" in messages: the path of the object.
  std::string Describe(const Id& id);

 private:
  void WarnOfFailedProviders();
  Terminal terminal_;
  std::unique_ptr<Session> session_;
  std::unique_ptr<BusSource> source_;
};

// The verb that the command line chose; its result is the exit code.
using Command = std::function<int(Console&)>;

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

void AddTreeVerbs(CLI::App& app, Command* command);      // tree, list, groups
void AddObjectVerbs(CLI::App& app, Command* command);    // show, get, set
void AddQueryVerbs(CLI::App& app, Command* command);     // query
void AddTypeVerbs(CLI::App& app, Command* command);      // types, type
void AddProviderVerbs(CLI::App& app, Command* command);  // providers
void AddCallVerbs(CLI::App& app, Command* command);      // call, refresh
void AddWatchVerbs(CLI::App& app, Command* command);     // watch
void AddAlertVerbs(CLI::App& app, Command* command);     // alerts
void AddMessageVerbs(CLI::App& app, Command* command);   // messages
void AddSettingsVerbs(CLI::App& app, Command* command);  // settings
void AddDocumentVerbs(CLI::App& app, Command* command);  // validate
void AddServerVerbs(CLI::App& app, Command* command);    // hosts, ping, logon, download
void AddTaskVerbs(CLI::App& app, Command* command);      // tasks

// Entries of a list as the system provider keeps them, each followed by a comma.
std::vector<std::string> SplitProviderList(const std::string& text);

}  // namespace zn::ctl
