// query: objects by the value of a property.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "console.h"
#include "failure.h"
#include "json_form.h"
#include "query_view.h"
#include "render.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

struct QueryArguments {
  std::string text;
  bool all = false;
};

struct Hit {
  ObjectInfo info;
  std::string path;
  PropertyList properties;
};

std::vector<Id> AskBus(const Database& bus, const std::string& text) {
  std::vector<Id> ids;
  const u32 status = bus.Query(text, &ids);
  if (!ZN_FAILED(status)) return ids;
  const auto declared = [&bus](const std::string& type) { return bus.TypeProperties(type, true); };
  throw Failure(status, "the query cannot be answered", ExplainQuery(text, status, declared));
}

// In the order of their paths. What has gone since the bus answered is left out.
std::vector<Hit> ReadHits(Console& console, const std::vector<Id>& ids, bool all) {
  BusSource& source = console.Objects();
  const Forest forest = BuildForest(source, all);
  std::vector<Hit> hits;
  for (const Id& id : ids) {
    const ObjectInfo* info = source.Info(id);
    const std::optional<PropertyList> properties = console.Bus().Properties(id);
    if (info == nullptr || !properties || (info->IsHidden() && !all)) continue;
    hits.push_back({*info, PathOf(source, forest, id), *properties});
  }
  std::sort(hits.begin(), hits.end(),
            [](const Hit& a, const Hit& b) { return NaturalLess(a.path, b.path); });
  return hits;
}

void WriteJson(const std::string& text, const std::vector<Hit>& hits) {
  Json document = JsonDocument("query");
  document["query"] = text;
  Json objects = Json::array();
  for (const Hit& hit : hits) {
    Json object = JsonOfInfo(hit.info);
    object["path"] = hit.path;
    object["properties"] = JsonOfProperties(hit.properties);
    objects.push_back(std::move(object));
  }
  document["objects"] = std::move(objects);
  WriteOut(JsonPretty(document));
}

bool IsNumber(const std::vector<Hit>& hits, const std::string& name) {
  return std::all_of(hits.begin(), hits.end(), [&name](const Hit& hit) {
    const Property* property = FindProperty(hit.properties, name);
    return property == nullptr ||
           (property->value.type >= ZN_TYPE_INT32 && property->value.type <= ZN_TYPE_UINT64);
  });
}

// What the columns before the properties take, with the gap behind each.
struct HitLayout {
  size_t idLength = 0;
  bool withType = false;  // where it is not the same of all
  size_t taken = 0;
};

HitLayout LayOut(const std::vector<Hit>& hits, size_t idLength) {
  constexpr size_t kGap = 2;
  constexpr size_t kWidestPath = 32;  // that other columns stand back for
  HitLayout layout;
  layout.idLength = idLength;
  size_t pathWidth = 0;
  for (const Hit& hit : hits) {
    pathWidth = std::max(pathWidth, DisplayWidth(hit.path));
    layout.withType = layout.withType || hit.info.type != hits.front().info.type;
  }
  layout.taken = idLength + kGap + std::min(pathWidth, kWidestPath) +
                 (layout.withType ? kGap + kWidestPropertyColumn : 0);
  return layout;
}

std::vector<std::string> PropertyNames(Console& console, const std::vector<Hit>& hits,
                                       const HitLayout& layout) {
  constexpr size_t kPaper = 80;  // columns where no terminal says how many
  std::vector<PropertyList> properties;
  properties.reserve(hits.size());
  for (const Hit& hit : hits) properties.push_back(hit.properties);
  const size_t width = console.Screen().width == 0 ? kPaper : console.Screen().width;
  const PropertyList defaults = console.Bus().TypeProperties(hits.front().info.type, true);
  return QueryColumns(properties, defaults, width - std::min(width, layout.taken));
}

std::vector<std::string> RowOf(const Hit& hit, const HitLayout& layout,
                               const std::vector<std::string>& names) {
  std::vector<std::string> row = {ShortId(hit.info.id, layout.idLength), hit.path};
  if (layout.withType) row.push_back(hit.info.type);
  for (const std::string& name : names) {
    const Property* property = FindProperty(hit.properties, name);
    row.push_back(property == nullptr ? "" : FormatValue(property->value));
  }
  return row;
}

std::string RenderHits(Console& console, const std::vector<Hit>& hits) {
  if (hits.empty()) return "no objects\n";
  const HitLayout layout = LayOut(hits, ShortIdLength(console.Objects().All()));
  const std::vector<std::string> names = PropertyNames(console, hits, layout);
  std::vector<Column> columns = {{"ID", Style::kDim}, {"PATH", Style::kName, true}};
  if (layout.withType) columns.push_back({"TYPE", Style::kType, true});
  for (const std::string& name : names) {
    columns.push_back({name, Style::kPlain, true, IsNumber(hits, name)});
  }
  std::vector<std::vector<std::string>> rows;
  rows.reserve(hits.size());
  for (const Hit& hit : hits) rows.push_back(RowOf(hit, layout, names));
  return RenderTable(console.Screen(), columns, rows, "");
}

int RunQuery(Console& console, const QueryArguments& arguments) {
  const std::vector<Id> ids = AskBus(console.Bus(), arguments.text);
  const std::vector<Hit> hits = ReadHits(console, ids, arguments.all);
  if (console.json) {
    WriteJson(arguments.text, hits);
  } else {
    WriteOut(RenderHits(console, hits));
  }
  return kExitOk;
}

}  // namespace

void AddQueryVerbs(CLI::App& app, Command* command) {
  auto arguments = std::make_shared<QueryArguments>();
  CLI::App* verb = app.add_subcommand("query", "Find objects by the value of a property");
  verb->add_option("text", arguments->text, "The query, as one argument")->required();
  verb->add_flag("-a,--all", arguments->all, "Hidden objects too");
  verb->footer(
      "A query is: SELECT FROM <type> WHERE <property> EQ <value>\n"
      "The keywords are in capitals, with one blank between each two words. A value\n"
      "with blanks stands in double quotes; in a shell the whole query then stands\n"
      "in single quotes. Types and properties: znctl types, znctl type <name>.\n\n"
      "Examples:\n"
      "  znctl --local query 'SELECT FROM KELD_Object WHERE State EQ 0'\n"
      "  znctl --local query 'SELECT FROM KELD_Object WHERE Name EQ \"my disk\"'\n"
      "  znctl --local query 'SELECT FROM HostInv_Disk WHERE Rotational EQ TRUE'\n");
  verb->callback([=] { *command = [=](Console& c) { return RunQuery(c, *arguments); }; });
}

}  // namespace zn::ctl
