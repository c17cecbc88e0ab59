// providers: which plug-ins were loaded, and which were not.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "console.h"
#include "failure.h"
#include "json_form.h"
#include "listener.h"
#include "render.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

struct ProviderFacts {
  std::string name;
  std::string state;  // "built in", "loaded" or "failed"
  Id id;
  std::string version;
  PropertyList properties;
};

std::string TextProperty(const PropertyList& properties, const char* name) {
  const Property* property = FindProperty(properties, name);
  return property == nullptr ? std::string() : FormatValue(property->value);
}

ProviderFacts ReadProvider(const Database& bus, const std::string& name, const std::string& state) {
  ProviderFacts facts{name, state, {}, {}, {}};
  const ZnHandle provider = bus.ProviderByName(name);
  if (provider == nullptr) return facts;
  facts.id = IdOfProvider(provider);
  facts.properties = PropertiesOfProvider(provider);
  facts.version = TextProperty(facts.properties, "VERSION");
  return facts;
}

std::vector<ProviderFacts> ReadProviders(const Database& bus) {
  std::vector<ProviderFacts> list{ReadProvider(bus, "system", "built in")};
  const PropertyList system = list.front().properties;
  for (const std::string& name : SplitProviderList(TextProperty(system, "LOADED_PROVIDERS"))) {
    list.push_back(ReadProvider(bus, name, "loaded"));
  }
  for (const std::string& name : SplitProviderList(TextProperty(system, "FAILED_PROVIDERS"))) {
    list.push_back(ReadProvider(bus, name, "failed"));
  }
  return list;
}

Json JsonOfProvider(const ProviderFacts& facts) {
  return {{"name", facts.name},
          {"state", facts.state},
          {"id", facts.id.IsZero() ? Json() : Json(IdText(facts.id))},
          {"version", facts.version},
          {"properties", JsonOfProperties(facts.properties)}};
}

int RunOne(Console& console, const std::vector<ProviderFacts>& list, const std::string& name) {
  const auto hit = std::find_if(list.begin(), list.end(),
                                [&](const ProviderFacts& facts) { return facts.name == name; });
  if (hit == list.end()) {
    throw Failure(ZNE_PROVIDER_NOT_FOUND,
                  fmt::format("there is no provider \"{}\"", Printable(name)),
                  {"znctl providers shows those that there are"});
  }
  if (console.json) {
    Json document = JsonDocument("providers");
    document["providers"] = Json::array({JsonOfProvider(*hit)});
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  const Terminal& screen = console.Screen();
  std::string out = RenderField(screen, "provider", Printable(hit->name));
  out += RenderField(screen, "state", hit->state);
  if (!hit->id.IsZero()) out += RenderField(screen, "id", IdText(hit->id));
  out += RenderField(screen, "properties", "");
  out += RenderProperties(screen, hit->properties, "  ", true);
  WriteOut(out);
  return kExitOk;
}

int RunProviders(Console& console, const std::string& name) {
  const std::vector<ProviderFacts> list = ReadProviders(console.Bus());
  if (!name.empty()) return RunOne(console, list, name);
  if (console.json) {
    Json document = JsonDocument("providers");
    Json providers = Json::array();
    for (const ProviderFacts& facts : list) providers.push_back(JsonOfProvider(facts));
    document["providers"] = std::move(providers);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  std::vector<std::vector<std::string>> rows;
  for (const ProviderFacts& facts : list) {
    rows.push_back(
        {facts.name, facts.state, facts.version, facts.id.IsZero() ? "" : ShortId(facts.id, 8)});
  }
  WriteOut(RenderTable(console.Screen(),
                       {{"NAME", Style::kName, true},
                        {"STATE"},
                        {"VERSION", Style::kPlain, true},
                        {"ID", Style::kDim}},
                       rows, "no providers"));
  return kExitOk;
}

}  // namespace

void AddProviderVerbs(CLI::App& app, Command* command) {
  auto name = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("providers", "List the providers and whether they loaded");
  verb->add_option("name", *name, "Show this one with its properties");
  verb->footer(
      "Examples:\n"
      "  znctl --local providers\n"
      "  znctl --local providers hostinv\n");
  verb->callback([=] { *command = [=](Console& c) { return RunProviders(c, *name); }; });
}

}  // namespace zn::ctl
