// What every verb works with.
#include "console.h"

#include <fmt/format.h>

#include "failure.h"
#include "language.h"
#include "text.h"

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
