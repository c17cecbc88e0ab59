// tree, list and groups: what objects there are.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <unordered_set>

#include "checks.h"
#include "console.h"
#include "failure.h"
#include "json_form.h"
#include "render.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

struct TreeArguments {
  std::string object;
  size_t depth = 0;
  bool all = false;
  bool ids = false;
};

int RunTree(Console& console, const TreeArguments& arguments) {
  BusSource& source = console.Objects();
  const bool whole = arguments.object.empty() || arguments.object == "/";
  const Forest forest =
      whole ? BuildForest(source, arguments.all)
            : BuildForest(source, arguments.all, ResolveObject(source, arguments.object));
  const size_t depth = arguments.depth == 0 ? SIZE_MAX : arguments.depth;
  if (console.json) {
    Json document = JsonDocument("tree");
    Json objects = Json::array();
    for (const Id& root : forest.roots) {
      objects.push_back(JsonOfTree(source, forest, root, depth));
    }
    document["objects"] = std::move(objects);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  TreeOptions options;
  options.depth = depth;
  options.idLength = arguments.ids ? 36 : ShortIdLength(source.All());
  const std::string text = RenderTree(console.Screen(), source, forest, options);
  WriteOut(text.empty() ? "no objects\n" : text);
  return kExitOk;
}

struct ListArguments {
  std::string type;
  bool all = false;
};

void RequireType(const Database& bus, const std::string& type) {
  if (bus.TypeIsA(type, type)) return;
  throw Failure(ZNE_TYPE_NOT_FOUND, fmt::format("there is no type \"{}\"", Printable(type)),
                {"znctl types shows the types that there are"});
}

std::vector<Id> InTreeOrder(ObjectSource& source, const Forest& forest,
                            const std::vector<Id>& wanted) {
  const std::unordered_set<Id, IdHash> member(wanted.begin(), wanted.end());
  std::vector<Id> order;
  std::vector<Id> stack(forest.roots.rbegin(), forest.roots.rend());
  while (!stack.empty()) {
    const Id id = stack.back();
    stack.pop_back();
    if (member.contains(id)) order.push_back(id);
    const auto children = forest.children.find(id);
    if (children == forest.children.end()) continue;
    stack.insert(stack.end(), children->second.rbegin(), children->second.rend());
  }
  std::stable_sort(order.begin(), order.end(), [&](const Id& a, const Id& b) {
    return source.Info(a)->type < source.Info(b)->type;
  });
  return order;
}

int RunList(Console& console, const ListArguments& arguments) {
  BusSource& source = console.Objects();
  const Database& bus = console.Bus();
  if (!arguments.type.empty()) RequireType(bus, arguments.type);
  const std::vector<Id> wanted =
      arguments.type.empty() ? source.All() : bus.Objects(arguments.type);
  const Forest forest = BuildForest(source, arguments.all);
  const std::vector<Id> ids = InTreeOrder(source, forest, wanted);
  if (console.json) {
    Json document = JsonDocument("list");
    Json objects = Json::array();
    for (const Id& id : ids) {
      Json object = JsonOfInfo(*source.Info(id));
      object["path"] = PathOf(source, forest, id);
      objects.push_back(std::move(object));
    }
    document["objects"] = std::move(objects);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  const size_t length = ShortIdLength(source.All());
  std::vector<std::vector<std::string>> rows;
  for (const Id& id : ids) {
    const ObjectInfo& info = *source.Info(id);
    rows.push_back({ShortId(id, length), info.type, PathOf(source, forest, id)});
  }
  WriteOut(
      RenderTable(console.Screen(),
                  {{"ID", Style::kDim}, {"TYPE", Style::kType, true}, {"PATH", Style::kName, true}},
                  rows, "no objects"));
  return kExitOk;
}

int RunGroups(Console& console, bool all) {
  BusSource& source = console.Objects();
  std::vector<Id> ids;
  for (const Id& id : console.Bus().Objects("KELD_Group")) {
    const ObjectInfo* info = source.Info(id);
    if (info != nullptr && (all || !info->IsHidden())) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end(), [&](const Id& a, const Id& b) {
    return NaturalLess(source.Info(a)->name, source.Info(b)->name);
  });
  if (console.json) {
    Json document = JsonDocument("groups");
    Json groups = Json::array();
    for (const Id& id : ids) {
      Json group = JsonOfInfo(*source.Info(id));
      group["members"] = JsonOfIds(source.Children(id));
      groups.push_back(std::move(group));
    }
    document["groups"] = std::move(groups);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  const size_t length = ShortIdLength(source.All());
  std::vector<std::vector<std::string>> rows;
  for (const Id& id : ids) {
    const ObjectInfo& info = *source.Info(id);
    rows.push_back(
        {ShortId(id, length), info.name, info.type, fmt::to_string(source.Children(id).size())});
  }
  WriteOut(RenderTable(console.Screen(),
                       {{"ID", Style::kDim},
                        {"NAME", Style::kName, true},
                        {"TYPE", Style::kType, true},
                        {"MEMBERS", Style::kPlain, false, true}},
                       rows, "no groups"));
  return kExitOk;
}

}  // namespace

void AddTreeVerbs(CLI::App& app, Command* command) {
  {
    auto arguments = std::make_shared<TreeArguments>();
    CLI::App* verb = app.add_subcommand("tree", "Show the objects as a tree");
    verb->add_option("object", arguments->object, "Start here; without it, everything");
    verb->add_option("-d,--depth", arguments->depth, "Show so many levels")->check(AtLeastOne());
    verb->add_flag("-a,--all", arguments->all, "Hidden objects too");
    verb->add_flag("--ids", arguments->ids, "Whole ids instead of short ones");
    verb->footer(
        "Every object stands once, below its deepest parent.\n\n"
        "Examples:\n"
        "  znctl --local tree\n"
        "  znctl --local tree --depth 2\n"
        "  znctl --local tree /myhost/sda\n");
    verb->callback([=] { *command = [=](Console& c) { return RunTree(c, *arguments); }; });
  }
  {
    auto arguments = std::make_shared<ListArguments>();
    CLI::App* verb = app.add_subcommand("list", "List objects, all or of one type");
    verb->add_option("type", arguments->type, "This type and those derived from it");
    verb->add_flag("-a,--all", arguments->all, "Hidden objects too");
    verb->footer(
        "Examples:\n"
        "  znctl --local list\n"
        "  znctl --local list KELD_Group\n"
        "  znctl --local list --json | jq -r '.objects[].path'\n");
    verb->callback([=] { *command = [=](Console& c) { return RunList(c, *arguments); }; });
  }
  {
    auto all = std::make_shared<bool>(false);
    CLI::App* verb = app.add_subcommand("groups", "List the groups and how many members they have");
    verb->add_flag("-a,--all", *all, "Hidden groups too");
    verb->footer("The members themselves: znctl --local tree <group>\n");
    verb->callback([=] { *command = [=](Console& c) { return RunGroups(c, *all); }; });
  }
}

}  // namespace zn::ctl
