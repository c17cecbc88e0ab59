// What every verb works with.
#include "console.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

#include "failure.h"
#include "language.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {

const Database& Console::Bus() {
  if (!session_) {
    if (remote) {
      session_ = std::make_unique<RemoteSession>(&*remote);
      return session_->Objects();
    }
    if (!local) {
      throw UsageError(
          "no bus to work on: -H HOST is that of a server, --local runs one in this process, with "
          "its providers");
    }
    session_ = StartLocalSession();
    WarnOfFailedProviders();
  }
  return session_->Objects();
}

BusSource& Console::Objects() {
  const Database& bus = Bus();
  if (!source_) source_ = std::make_unique<BusSource>(bus);
  return *source_;
}

bool Console::BusEndsWithProgram() {
  Bus();
  return session_->EndsWithProgram();
}

Localizer Console::Messages() {
  const std::optional<u32> named = locale.empty() ? LocaleOfEnvironment() : ParseLocale(locale);
  if (!named) {
    throw UsageError(fmt::format(
        "there is no locale \"{}\"; name it like de or de-AT, or give its number like 1031",
        Printable(locale)));
  }
  return Localizer(Bus(), *named);
}

ClientHandle* Console::Client(const char* verb) {
  if (!IsRemote()) throw UsageError(fmt::format("{} works with a server: -H HOST", verb));
  Bus();
  return session_->Client();
}

void Console::Drop() {
  source_.reset();
  session_.reset();
}

namespace {

// A second. False when the time is up in it or a signal came. What is still in the inbox is of the
// session that went.
bool Pause(const Deadline& deadline) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  while (std::chrono::steady_clock::now() < until) {
    if (Inbox::Get().Signal() != 0) return false;
    if (deadline && std::chrono::steady_clock::now() >= *deadline) return false;
    static_cast<void>(Inbox::Get().Wait(deadline ? std::min(until, *deadline) : until));
  }
  return true;
}

}  // namespace

bool Console::TakeUpAgain(const Deadline& deadline, const std::function<void()>& stop,
                          const std::function<void()>& start) {
  WriteError(fmt::format("znctl: lost the connection to {}; trying again\n", remote->Text()));
  for (;;) {
    stop();
    Drop();
    try {
      start();
      break;
    } catch (const Failure& failure) {
      // Asking again and again with a wrong password may lock the user out.
      if (failure.status == ZNE_ACCESS_DENIED && !remote->user.empty()) throw;
      if (!Pause(deadline)) return false;
    }
  }
  WriteError(fmt::format("znctl: connected to {} again\n", remote->Text()));
  return true;
}

std::string Console::Describe(const Id& id) {
  return PathOf(Objects(), BuildForest(Objects(), true), id);
}

void Console::WarnOfFailedProviders() {
  const ZnHandle system = session_->Objects().ProviderByName("system");
  if (system == nullptr) return;
  const PropertyList properties = PropertiesOfProvider(system);
  const Property* failed = FindProperty(properties, "FAILED_PROVIDERS");
  if (failed == nullptr) return;
  for (const std::string& name : SplitProviderList(FormatValue(failed->value))) {
    WriteError(
        fmt::format("znctl: warning: the provider \"{}\" failed to load\n", Printable(name)));
  }
}

std::vector<std::string> SplitProviderList(const std::string& text) {
  std::vector<std::string> names;
  size_t from = 0;
  for (size_t comma = text.find(','); comma != std::string::npos; comma = text.find(',', from)) {
    if (comma > from) names.push_back(text.substr(from, comma - from));
    from = comma + 1;
  }
  if (from < text.size()) names.push_back(text.substr(from));
  return names;
}

}  // namespace zn::ctl
