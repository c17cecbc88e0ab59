// show, get and set: one object and its properties.
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

struct ObjectArguments {
  std::string object;
  std::string property;
  std::string value;
  std::string type;
  bool all = false;
};

std::string JoinNames(BusSource& source, const std::vector<Id>& ids) {
  std::vector<std::string> names;
  for (const Id& id : ids) {
    const ObjectInfo* info = source.Info(id);
    names.push_back(info == nullptr ? IdText(id) : Printable(TitleOf(*info)));
  }
  std::sort(names.begin(), names.end(), NaturalLess);
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : ", ") + name;
  return out;
}

std::string JoinIds(const std::vector<Id>& ids) {
  std::string out;
  for (const Id& id : ids) out += (out.empty() ? "" : ", ") + IdText(id);
  return out;
}

struct ObjectFacts {
  Id id;
  ObjectInfo info;
  std::string path;
  std::string provider;
  std::vector<Id> parents;
  std::vector<Id> children;
  std::vector<Id> interfaces;
  PropertyList properties;
};

ObjectFacts ReadFacts(Console& console, const Id& id) {
  BusSource& source = console.Objects();
  const Database& bus = console.Bus();
  const std::optional<PropertyList> properties = bus.Properties(id);
  if (!properties) throw Failure(ZNE_OBJECT_NOT_FOUND, "the object is gone");
  return {id,
          *source.Info(id),
          console.Describe(id),
          bus.OwnerOf(id),
          source.Parents(id),
          source.Children(id),
          bus.Interfaces(id),
          *properties};
}

void ShowJson(const ObjectFacts& facts) {
  Json document = JsonDocument("show");
  Json object = JsonOfInfo(facts.info);
  object["path"] = facts.path;
  object["flags"] = facts.info.flags;
  object["provider"] = facts.provider;
  object["parents"] = JsonOfIds(facts.parents);
  object["children"] = JsonOfIds(facts.children);
  object["interfaces"] = JsonOfIds(facts.interfaces);
  object["properties"] = JsonOfProperties(facts.properties);
  document["object"] = std::move(object);
  WriteOut(JsonPretty(document));
}

int RunShow(Console& console, const ObjectArguments& arguments) {
  BusSource& source = console.Objects();
  ObjectFacts facts = ReadFacts(console, console.Resolve(arguments.object));
  console.Messages().FillTexts(&facts.properties);
  if (console.json) {
    ShowJson(facts);
    return kExitOk;
  }
  const Terminal& screen = console.Screen();
  std::string out = RenderField(screen, "path", facts.path);
  out += RenderField(screen, "type", Printable(facts.info.type));
  out += RenderField(screen, "id", IdText(facts.id));
  if (!facts.provider.empty()) out += RenderField(screen, "provider", Printable(facts.provider));
  if (facts.info.flags != 0) {
    out += RenderField(
        screen, "flags",
        fmt::format("{:#x}{}", facts.info.flags, facts.info.IsHidden() ? " (hidden)" : ""));
  }
  if (!facts.parents.empty()) {
    out += RenderField(screen, "parents", JoinNames(source, facts.parents));
  }
  if (!facts.children.empty()) {
    out += RenderField(screen, "children", JoinNames(source, facts.children));
  }
  if (!facts.interfaces.empty()) {
    out += RenderField(screen, "interfaces", JoinIds(facts.interfaces));
  }
  out += RenderField(screen, "properties", "");
  out += RenderProperties(screen, facts.properties, "  ", arguments.all);
  WriteOut(out);
  return kExitOk;
}

// The property, or a failure that names those that there are.
Property ReadProperty(Console& console, const Id& id, const std::string& name) {
  const Database& bus = console.Bus();
  try {
    return bus.GetProperty(id, name,
                           fmt::format("read \"{}\" of {}", Printable(name), console.Describe(id)));
  } catch (Failure& failure) {
    std::string names;
    for (const Property& property : bus.Properties(id).value_or(PropertyList())) {
      if ((property.flags & ZN_PROPERTY_HIDDEN) != 0) continue;
      names += (names.empty() ? "" : ", ") + Printable(property.name);
    }
    if (failure.status == ZNE_PROPERTY_NOT_FOUND) failure.details.push_back("it has: " + names);
    throw;
  }
}

std::string LinesOf(const Value& value) {
  const auto* list = std::get_if<Value::List>(&value.data);
  if (list == nullptr) return FormatValue(value) + "\n";
  std::string out;
  for (const Value& element : *list) out += FormatValue(element) + "\n";
  return out;
}

int RunGet(Console& console, const ObjectArguments& arguments) {
  const Id id = console.Resolve(arguments.object);
  Property property = ReadProperty(console, id, arguments.property);
  console.Messages().FillTexts(&property.value);
  if (console.json) {
    Json document = JsonDocument("get");
    document["id"] = IdText(id);
    document["property"] = property.name;
    document.update(JsonOfProperty(property));
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  // Into a file or a pipe the text goes as it is, on a terminal it must not steer it.
  const std::string lines = LinesOf(property.value);
  WriteOut(console.Screen().width > 0 ? Printable(lines, true) : lines);
  return kExitOk;
}

u32 TypeToSet(Console& console, const Id& id, const ObjectArguments& arguments,
              const std::optional<Property>& before) {
  if (!arguments.type.empty()) {
    const std::optional<u32> type = ParseTypeName(arguments.type);
    if (!type) throw UsageError(fmt::format("\"{}\" is not a type", Printable(arguments.type)));
    return *type;
  }
  if (before) return before->value.type;
  throw Failure(
      ZNE_PROPERTY_NOT_FOUND,
      fmt::format("{} has no \"{}\"", console.Describe(id), Printable(arguments.property)),
      {"--type TYPE adds it as a new property of this type"});
}

int RunSet(Console& console, const ObjectArguments& arguments) {
  if (console.IsRemote()) {
    throw UsageError("a server's objects change by calls alone (znctl call); set needs --local");
  }
  const Id id = console.Resolve(arguments.object);
  const Database& bus = console.Bus();
  const std::optional<Property> before = bus.FindProperty(id, arguments.property);
  const u32 type = TypeToSet(console, id, arguments, before);
  Property property{arguments.property, 0, ParseValue(type, arguments.value)};
  bus.SetProperty(
      id, property,
      fmt::format("set \"{}\" of {}", Printable(arguments.property), console.Describe(id)));
  const Property after = ReadProperty(console, id, arguments.property);
  if (console.json) {
    Json document = JsonDocument("set");
    document["id"] = IdText(id);
    document["property"] = after.name;
    document["type"] = TypeName(after.value.type);
    document["before"] = before ? JsonOfValue(before->value) : Json();
    document["after"] = JsonOfValue(after.value);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  const std::string old = before ? Printable(FormatValue(before->value)) : "(none)";
  WriteOut(fmt::format("{}: {} {} {}\n", Printable(after.name), old, console.Screen().Arrow(),
                       Printable(FormatValue(after.value))));
  return kExitOk;
}

constexpr char kNamingHelp[] =
    "An object is named by its id, by the first digits of its id, by a path of\n"
    "names (/myhost/sda/sda1) or by the end of one (sda/sda1, sda1).\n";

}  // namespace

void AddObjectVerbs(CLI::App& app, Command* command) {
  {
    auto arguments = std::make_shared<ObjectArguments>();
    CLI::App* verb = app.add_subcommand("show", "Show one object with all its properties");
    verb->add_option("object", arguments->object, "Path, id or start of an id")->required();
    verb->add_flag("-a,--all", arguments->all, "Hidden properties too");
    verb->footer(std::string(kNamingHelp) +
                 "\nExamples:\n"
                 "  znctl --local show /myhost/eth0\n"
                 "  znctl --local show 1f0c93d2\n"
                 "  znctl --local show /home        (a file system named by its mount point)\n"
                 "  znctl --local show '/myhost/sda/sda1/\"/home\"'\n");
    verb->callback([=] { *command = [=](Console& c) { return RunShow(c, *arguments); }; });
  }
  {
    auto arguments = std::make_shared<ObjectArguments>();
    CLI::App* verb = app.add_subcommand("get", "Print the value of one property");
    verb->add_option("object", arguments->object, "Path, id or start of an id")->required();
    verb->add_option("property", arguments->property, "Its name")->required();
    verb->footer(
        "Arrays are printed one element to a line, bytes as hexadecimal digits.\n\n"
        "Examples:\n"
        "  znctl --local get sda Size\n"
        "  znctl --local get sda Size --json\n");
    verb->callback([=] { *command = [=](Console& c) { return RunGet(c, *arguments); }; });
  }
  {
    auto arguments = std::make_shared<ObjectArguments>();
    CLI::App* verb = app.add_subcommand("set", "Change the value of one property");
    verb->add_option("object", arguments->object, "Path, id or start of an id")->required();
    verb->add_option("property", arguments->property, "Its name")->required();
    verb->add_option("value", arguments->value, "The new value")->required();
    verb->add_option("-t,--type", arguments->type, "Type of a property that is not there yet");
    verb->footer(
        "The value is read as the property's own type. Put -- before a value that\n"
        "starts with a dash and is no number.\n\n"
        "Examples:\n"
        "  znctl --local set clock Name 'kitchen clock'\n"
        "  znctl --local set clock Labels 'wall, round' --type 'string[]'\n");
    verb->callback([=] { *command = [=](Console& c) { return RunSet(c, *arguments); }; });
  }
}

}  // namespace zn::ctl
