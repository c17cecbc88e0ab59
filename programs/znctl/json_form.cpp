// The JSON that --json prints.
#include "json_form.h"

#include "text.h"

namespace zn::ctl {
namespace {

struct JsonValue {
  Json operator()(std::monostate) const { return nullptr; }
  Json operator()(bool value) const { return value; }
  Json operator()(i64 value) const { return value; }
  Json operator()(u64 value) const { return value; }
  Json operator()(const std::string& value) const { return value; }
  Json operator()(const std::vector<u8>& value) const { return HexOf(value); }
  Json operator()(const Id& value) const { return IdText(value); }
  Json operator()(const Message& value) const {
    Json json = {
        {"catalog", IdText(value.catalog)}, {"message", value.number}, {"name", value.name}};
    if (!value.insertions.empty()) json["insertions"] = JsonOfProperties(value.insertions);
    if (value.text) json["text"] = *value.text;
    return json;
  }
  Json operator()(const PropertyList& value) const { return JsonOfProperties(value); }
  Json operator()(const Value::List& value) const {
    Json list = Json::array();
    for (const Value& element : value) list.push_back(JsonOfValue(element));
    return list;
  }
};

Json JsonOfFlags(u32 flags) {
  struct FlagRow {
    u32 flag;
    const char* name;
  };
  constexpr FlagRow kFlags[] = {{ZN_PROPERTY_HIDDEN, "hidden"},
                                {ZN_PROPERTY_NO_DISPLAY, "no-display"},
                                {ZN_PROPERTY_REMOTE_ONLY, "remote-only"},
                                {ZN_PROPERTY_INDEXED, "indexed"}};
  Json list = Json::array();
  for (const FlagRow& row : kFlags) {
    if ((flags & row.flag) != 0) list.push_back(row.name);
  }
  return list;
}

}  // namespace

Json JsonDocument(const std::string& verb) {
  return {{"schema", kJsonSchema}, {"verb", verb}};
}

std::string JsonLine(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string JsonPretty(const Json& json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json JsonOfValue(const Value& value) {
  return std::visit(JsonValue{}, value.data);
}

Json JsonOfProperty(const Property& property) {
  return {{"type", TypeName(property.value.type)},
          {"flags", JsonOfFlags(property.flags)},
          {"value", JsonOfValue(property.value)}};
}

Json JsonOfProperties(const PropertyList& list) {
  Json json = Json::object();
  for (const Property& property : list) json[property.name] = JsonOfProperty(property);
  return json;
}

Json JsonOfIds(const std::vector<Id>& ids) {
  Json list = Json::array();
  for (const Id& id : ids) list.push_back(IdText(id));
  return list;
}

Json JsonOfInfo(const ObjectInfo& info) {
  return {{"id", IdText(info.id)},
          {"type", info.type},
          {"name", info.name},
          {"hidden", info.IsHidden()}};
}

Json JsonOfTree(ObjectSource& source, const Forest& forest, const Id& id, size_t depth) {
  const ObjectInfo* info = source.Info(id);
  Json node = info == nullptr ? Json{{"id", IdText(id)}} : JsonOfInfo(*info);
  Json children = Json::array();
  const auto below = forest.children.find(id);
  if (below != forest.children.end() && depth > 1) {
    for (const Id& child : below->second) {
      children.push_back(JsonOfTree(source, forest, child, depth - 1));
    }
  }
  node["children"] = std::move(children);
  return node;
}

}  // namespace zn::ctl
