// The bus in this process: providers are loaded from the settings at the start and shut down at
// the end, also when a verb fails or is interrupted.
#include "session.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <toml++/toml.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "failure.h"
#include "inbox.h"
#include "status_names.h"
#include "terminal.h"
#include "text.h"
#include "zn/init.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr char kDefaultSettings[] = "/etc/znmira/settings.toml";

// The database wants callbacks for connected clients. This process has none.
void OnChange(ZnHandle) {}
bool OnEvent(const EventRecord*, u32) {
  return true;
}

class LocalSession : public Session {
 public:
  LocalSession() : database_(Start()) {}
  ~LocalSession() override {
    Inbox::Get().SetBusyNotice(nullptr);
    ShutdownServer();
  }
  LocalSession(const LocalSession&) = delete;
  LocalSession& operator=(const LocalSession&) = delete;

  const Database& Objects() const override { return database_; }
  bool EndsWithProgram() const override { return true; }

 private:
  static ZnHandle Start();
  Database database_;
};

struct StartHint {
  u32 status;
  const char* hint;
};
constexpr StartHint kStartHints[] = {
    {ZNE_PROVIDER_GROUP_REG_MISSING,
     "it has no table [ProviderGroup], which must be there and may be empty"},
    {ZNE_PROVIDER_REG_UNREADABLE,
     "it has no table [Providers], which must be there and may be empty"},
    {ZNE_PROVIDER_REG_CIRCULAR,
     "its provider groups depend on each other in a circle: look at DependsOn in "
     "[ProviderGroup.*]"},
    {ZNE_UNEXPECTED, "see that InstallDir is there, a text naming the folder of the installation"},
};

std::vector<std::string> Hints(u32 status) {
  const std::string file = SettingsFile();
  const std::string fault = FaultOfSettingsFile(file);
  std::vector<std::string> lines;
  if (!fault.empty()) {
    lines.push_back(fault);
  } else {
    lines.push_back("the settings file is " + file);
    for (const StartHint& row : kStartHints) {
      if (row.status == status) lines.emplace_back(row.hint);
    }
  }
  lines.emplace_back("the least that a settings file holds:");
  for (const char* line : {"InstallDir = \"/usr/local\"", "[ProviderGroup]", "[Providers]"}) {
    lines.push_back(std::string("  ") + line);
  }
  lines.emplace_back("another file can be named by --settings FILE or by ZN_SETTINGS");
  return lines;
}

ZnHandle LocalSession::Start() {
  ZnHandle database = nullptr;
  const u32 status = ZnInitialize(1, OnChange, OnEvent, &database);
  if (ZN_FAILED(status)) {
    ShutdownServer();
    throw Failure(status, "cannot start the bus in this process", Hints(status));
  }
  return database;
}

}  // namespace

std::string SettingsFile() {
  const char* named = std::getenv("ZN_SETTINGS");
  return named != nullptr && *named != '\0' ? named : kDefaultSettings;
}

std::string FaultOfSettingsFile(const std::string& file) {
  struct stat info {};
  if (stat(file.c_str(), &info) != 0) {
    return fmt::format("the settings file {} cannot be read: {}", file,
                       std::generic_category().message(errno));
  }
  if (!S_ISREG(info.st_mode)) return fmt::format("{} is not a regular file", file);
  try {
    (void)toml::parse_file(file);
  } catch (const toml::parse_error& error) {
    const toml::source_position& at = error.source().begin;
    return fmt::format("the settings file {} has a fault in line {}, column {}: {}", file, at.line,
                       at.column, std::string(error.description()));
  }
  return {};
}

std::unique_ptr<Session> StartLocalSession() {
  Inbox::Get().SetBusyNotice("\nstopping; a second Ctrl-C ends at once\n");
  auto session = std::make_unique<LocalSession>();
  Inbox::Get().SetBusyNotice(nullptr);
  Inbox::Get().ThrowIfInterrupted();
  return session;
}

}  // namespace zn::ctl
