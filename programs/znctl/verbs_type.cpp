// types and type: what kinds of objects there are.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "console.h"
#include "failure.h"
#include "json_form.h"
#include "render.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

// The types of the bus itself, which the list of types leaves out.
constexpr const char* kBaseTypes[] = {"KELD_Object",      "KELD_Group",    "KELD_GenericGroup",
                                      "KELD_SystemGroup", "KELD_Provider", "KELD_Database",
                                      "KELD_Extension",   "KELD_Type"};

std::string Join(const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : ", ") + Printable(name);
  return out;
}

Json JsonOfNames(const std::vector<std::string>& names) {
  Json list = Json::array();
  for (const std::string& name : names) list.push_back(name);
  return list;
}

size_t CountOf(const Database& bus, const std::string& type) {
  try {
    return bus.Objects(type).size();
  } catch (const Failure&) {
    return 0;  // types of things that are not in the object table
  }
}

int RunTypes(Console& console, bool all) {
  const Database& bus = console.Bus();
  std::vector<std::string> types = bus.Types();
  for (const char* base : kBaseTypes) {
    if (all && bus.TypeIsA(base, base)) types.emplace_back(base);
  }
  std::sort(types.begin(), types.end(), NaturalLess);
  types.erase(std::unique(types.begin(), types.end()), types.end());
  if (console.json) {
    Json document = JsonDocument("types");
    Json list = Json::array();
    for (const std::string& type : types) {
      list.push_back({{"name", type},
                      {"supertypes", JsonOfNames(bus.SuperTypes(type))},
                      {"objects", CountOf(bus, type)}});
    }
    document["types"] = std::move(list);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  std::vector<std::vector<std::string>> rows;
  for (const std::string& type : types) {
    rows.push_back({type, Join(bus.SuperTypes(type)), fmt::to_string(CountOf(bus, type))});
  }
  WriteOut(RenderTable(console.Screen(),
                       {{"TYPE", Style::kType, true},
                        {"SUPERTYPES", Style::kPlain, true},
                        {"OBJECTS", Style::kPlain, false, true}},
                       rows, "no types but those of the bus itself (--all shows them)"));
  return kExitOk;
}

void TypeJson(const Database& bus, const std::string& name, const PropertyList& own) {
  Json document = JsonDocument("type");
  Json properties = Json::object();
  for (const Property& property : bus.TypeProperties(name, true)) {
    Json row = JsonOfProperty(property);
    row["inherited"] = FindProperty(own, property.name) == nullptr;
    properties[property.name] = std::move(row);
  }
  document["type"] = {{"name", name},
                      {"supertypes", JsonOfNames(bus.SuperTypes(name))},
                      {"subtypes", JsonOfNames(bus.DerivedTypes(name))},
                      {"interfaces", JsonOfIds(bus.TypeInterfaces(name, true))},
                      {"objects", CountOf(bus, name)},
                      {"properties", std::move(properties)}};
  WriteOut(JsonPretty(document));
}

int RunType(Console& console, const std::string& name) {
  const Database& bus = console.Bus();
  if (!bus.TypeIsA(name, name)) {
    throw Failure(ZNE_TYPE_NOT_FOUND, fmt::format("there is no type \"{}\"", Printable(name)),
                  {"znctl types shows the types that there are"});
  }
  const PropertyList own = bus.TypeProperties(name, false);
  if (console.json) {
    TypeJson(bus, name, own);
    return kExitOk;
  }
  const Terminal& screen = console.Screen();
  const std::vector<std::string> supertypes = bus.SuperTypes(name);
  const std::vector<std::string> subtypes = bus.DerivedTypes(name);
  std::string out = RenderField(screen, "type", name);
  if (!supertypes.empty()) out += RenderField(screen, "supertypes", Join(supertypes));
  if (!subtypes.empty()) out += RenderField(screen, "subtypes", Join(subtypes));
  for (const Id& id : bus.TypeInterfaces(name, true)) {
    out += RenderField(screen, "interface", IdText(id));
  }
  out += RenderField(screen, "objects", fmt::to_string(CountOf(bus, name)));
  std::vector<std::vector<std::string>> rows;
  for (const Property& property : bus.TypeProperties(name, true)) {
    rows.push_back({property.name, TypeName(property.value.type), FlagNames(property.flags),
                    FormatValue(property.value),
                    FindProperty(own, property.name) == nullptr ? "inherited" : ""});
  }
  out += "\n" + RenderTable(screen,
                            {{"PROPERTY", Style::kName},
                             {"TYPE", Style::kType},
                             {"FLAGS", Style::kPlain, true},
                             {"DEFAULT", Style::kPlain, true},
                             {"FROM", Style::kDim}},
                            rows, "no properties");
  WriteOut(out);
  return kExitOk;
}

}  // namespace

void AddTypeVerbs(CLI::App& app, Command* command) {
  {
    auto all = std::make_shared<bool>(false);
    CLI::App* verb = app.add_subcommand("types", "List the types of objects");
    verb->add_flag("-a,--all", *all, "The types of the bus itself too");
    verb->callback([=] { *command = [=](Console& c) { return RunTypes(c, *all); }; });
  }
  {
    auto name = std::make_shared<std::string>();
    CLI::App* verb = app.add_subcommand("type", "Show one type with its properties");
    verb->add_option("name", *name, "Its name")->required();
    verb->footer("Example:\n  znctl --local type KELD_Object\n");
    verb->callback([=] { *command = [=](Console& c) { return RunType(c, *name); }; });
  }
}

}  // namespace zn::ctl
