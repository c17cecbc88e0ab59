// Typed values: comparison and text for people. Parsing stands in value_parse.cpp.
#include "values.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "text.h"

namespace zn::ctl {
namespace {

struct TypeNameRow {
  u32 type;
  const char* name;
};

constexpr TypeNameRow kTypeNames[] = {
    {ZN_TYPE_BOOLEAN, "boolean"},
    {ZN_TYPE_INT32, "int32"},
    {ZN_TYPE_UINT32, "uint32"},
    {ZN_TYPE_INT64, "int64"},
    {ZN_TYPE_UINT64, "uint64"},
    {ZN_TYPE_STRING, "string"},
    {ZN_TYPE_WIDESTRING, "widestring"},
    {ZN_TYPE_BINARY, "binary"},
    {ZN_TYPE_GUID, "guid"},
    {ZN_TYPE_PROPSET, "propset"},
    {ZN_TYPE_OBJECT_ID, "object id"},
    {ZN_TYPE_OBJECT, "object"},
    {ZN_TYPE_PROVIDER, "provider"},
    {ZN_TYPE_DATABASE, "database"},
    {ZN_TYPE_TYPE_OBJECT, "type object"},
    {ZN_TYPE_I18N, "i18n"},
    {ZN_TYPE_I18N_FORMAT_STRING, "i18nFormatString"},
    {ZN_TYPE_TIME, "time"},
};

std::string JoinProperties(const PropertyList& list) {
  std::string out;
  for (const Property& property : list) {
    if (!out.empty()) out += ", ";
    out += property.name + "=" + FormatValue(property.value);
  }
  return out;
}

struct Formatter {
  u32 type;

  std::string operator()(std::monostate) const { return "(no readable form)"; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(i64 value) const {
    return type == ZN_TYPE_TIME ? FormatTime(value) : fmt::to_string(value);
  }
  std::string operator()(u64 value) const { return fmt::to_string(value); }
  std::string operator()(const std::string& value) const { return value; }
  std::string operator()(const std::vector<u8>& value) const { return HexOf(value); }
  std::string operator()(const Id& value) const { return IdText(value); }
  std::string operator()(const Message& value) const {
    if (value.text) return *value.text;
    if (value.insertions.empty()) return value.name;
    return value.name + " (" + JoinProperties(value.insertions) + ")";
  }
  std::string operator()(const PropertyList& value) const {
    return "{" + JoinProperties(value) + "}";
  }
  std::string operator()(const Value::List& value) const {
    std::string out;
    for (const Value& element : value) {
      if (!out.empty()) out += ", ";
      out += FormatValue(element);
    }
    return "[" + out + "]";
  }
};

}  // namespace

bool operator==(const Message& a, const Message& b) {
  return a.catalog == b.catalog && a.number == b.number && a.name == b.name &&
         a.insertions == b.insertions;
}

bool operator==(const Value& a, const Value& b) {
  return a.type == b.type && a.data == b.data;
}

bool operator==(const Property& a, const Property& b) {
  return a.name == b.name && a.flags == b.flags && a.value == b.value;
}

const Property* FindProperty(const PropertyList& list, std::string_view name) {
  const auto hit = std::find_if(list.begin(), list.end(),
                                [&](const Property& property) { return property.name == name; });
  return hit == list.end() ? nullptr : &*hit;
}

std::string TypeName(u32 type) {
  const bool isArray = (type & ZN_TYPE_ARRAY) != 0;
  for (const TypeNameRow& row : kTypeNames) {
    if (row.type == (type & ~ZN_TYPE_ARRAY)) {
      return isArray ? std::string("array of ") + row.name : row.name;
    }
  }
  return fmt::format("type {:#x}", type);
}

std::string FormatTime(i64 time) {
  constexpr i64 kEarliest = 86400;       // day one: smaller numbers are durations or unset
  constexpr i64 kLatest = 253402300799;  // the end of year 9999
  const i64 seconds = time > kLatest ? time >> 32 : time;
  if (seconds < kEarliest) return fmt::to_string(time);
  const time_t whole = seconds;
  tm parts{};
  if (localtime_r(&whole, &parts) == nullptr) return fmt::to_string(time);
  char text[64];
  return std::string(text, strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts));
}

std::string FormatValue(const Value& value) {
  return std::visit(Formatter{value.type}, value.data);
}

std::vector<Change> Differences(const PropertyList& before, const PropertyList& after) {
  std::vector<Change> changes;
  for (const Property& property : after) {
    const Property* old = FindProperty(before, property.name);
    if (old == nullptr) {
      changes.push_back({property.name, std::nullopt, property.value});
    } else if (!(old->value == property.value)) {
      changes.push_back({property.name, old->value, property.value});
    }
  }
  for (const Property& property : before) {
    if (FindProperty(after, property.name) == nullptr) {
      changes.push_back({property.name, property.value, std::nullopt});
    }
  }
  return changes;
}

}  // namespace zn::ctl
