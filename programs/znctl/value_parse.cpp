// Text of the command line into typed values. Refusals say what would have been right, since the
// text goes straight to the user.
#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "text.h"
#include "values.h"

namespace zn::ctl {
namespace {

using Json = nlohmann::ordered_json;

struct InputName {
  const char* name;
  u32 type;
};

constexpr InputName kInputNames[] = {
    {"boolean", ZN_TYPE_BOOLEAN},    {"bool", ZN_TYPE_BOOLEAN},
    {"int32", ZN_TYPE_INT32},        {"int", ZN_TYPE_INT32},
    {"uint32", ZN_TYPE_UINT32},      {"uint", ZN_TYPE_UINT32},
    {"int64", ZN_TYPE_INT64},        {"uint64", ZN_TYPE_UINT64},
    {"string", ZN_TYPE_STRING},      {"widestring", ZN_TYPE_WIDESTRING},
    {"wide", ZN_TYPE_WIDESTRING},    {"binary", ZN_TYPE_BINARY},
    {"hex", ZN_TYPE_BINARY},         {"guid", ZN_TYPE_GUID},
    {"objectid", ZN_TYPE_OBJECT_ID}, {"object id", ZN_TYPE_OBJECT_ID},
    {"propset", ZN_TYPE_PROPSET},    {"time", ZN_TYPE_TIME},
};

[[noreturn]] void Refuse(std::string_view text, const std::string& expected) {
  throw UsageError(fmt::format("\"{}\" is not {}", Printable(text), expected));
}

template <typename T>
std::optional<T> WholeNumber(std::string_view text) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (hex) text.remove_prefix(2);
  T number{};
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return number;
}

template <typename T>
Value NumberValue(u32 type, std::string_view text) {
  const std::optional<T> number = WholeNumber<T>(text);
  if (!number) {
    Refuse(text, fmt::format("{} (a whole number from {} to {})", TypeName(type),
                             std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
  }
  if constexpr (std::numeric_limits<T>::is_signed) return {type, static_cast<i64>(*number)};
  return {type, static_cast<u64>(*number)};
}

Value BooleanValue(u32 type, std::string_view text) {
  for (const char* word : {"true", "yes", "on", "1"}) {
    if (text == word) return {type, true};
  }
  for (const char* word : {"false", "no", "off", "0"}) {
    if (text == word) return {type, false};
  }
  Refuse(text, "a boolean (true or false)");
}

Value BinaryValue(u32 type, std::string_view text) {
  std::vector<u8> bytes;
  if (!ParseHex(text, &bytes)) Refuse(text, "binary (an even number of hexadecimal digits)");
  return {type, std::move(bytes)};
}

Value IdValue(u32 type, std::string_view text) {
  const std::optional<Id> id = ParseId(text);
  if (!id) Refuse(text, "an id such as {01234567-89ab-cdef-0123-456789abcdef}");
  return {type, *id};
}

Value TimeValue(u32 type, std::string_view text) {
  if (const std::optional<i64> seconds = WholeNumber<i64>(text)) return {type, *seconds};
  const std::string copy(text);
  for (const char* form : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S"}) {
    tm parts{};
    parts.tm_isdst = -1;
    const char* end = strptime(copy.c_str(), form, &parts);
    if (end == nullptr) continue;
    if (std::string_view(end) == "Z") return {type, static_cast<i64>(timegm(&parts))};
    if (*end == '\0') return {type, static_cast<i64>(mktime(&parts))};
  }
  Refuse(text, "a time (seconds since 1970, or 2026-01-31T12:00:00, with Z at its end for UTC)");
}

Value StringValue(u32 type, std::string_view text) {
  return {type, std::string(text)};
}

std::string TextOfJson(const Json& json) {
  return json.is_string() ? json.get<std::string>() : json.dump();
}

Value InferJson(const Json& json);

Property PropertyOfJson(const std::string& key, const Json& json) {
  const size_t colon = key.rfind(':');
  if (colon == std::string::npos) return {key, 0, InferJson(json)};
  const std::string typeName = key.substr(colon + 1);
  const std::optional<u32> type = ParseTypeName(typeName);
  if (!type) Refuse(typeName, "a type; see znctl call --help");
  return {key.substr(0, colon), 0, ParseValue(*type, TextOfJson(json))};
}

Value PropsetOfJson(const Json& json) {
  PropertyList list;
  for (const auto& [key, value] : json.items()) list.push_back(PropertyOfJson(key, value));
  return {ZN_TYPE_PROPSET, std::move(list)};
}

Value PropsetValue(u32, std::string_view text) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object())
    Refuse(text, "a property set such as {\"name\": \"value\", \"n:int64\": 1}");
  return PropsetOfJson(json);
}

Value InferNumber(std::string_view text, bool* found) {
  *found = true;
  if (const auto number = WholeNumber<u32>(text)) return {ZN_TYPE_UINT32, u64{*number}};
  if (const auto number = WholeNumber<u64>(text)) return {ZN_TYPE_UINT64, *number};
  if (const auto number = WholeNumber<i32>(text)) return {ZN_TYPE_INT32, i64{*number}};
  if (const auto number = WholeNumber<i64>(text)) return {ZN_TYPE_INT64, *number};
  *found = false;
  return {};
}

// An array whose element type is that of its elements; a mixture falls back to strings.
Value ArrayOfTexts(const std::vector<std::string>& texts) {
  Value::List elements;
  for (const std::string& text : texts) elements.push_back(InferValue(text));
  const bool mixed = std::any_of(elements.begin(), elements.end(), [&](const Value& element) {
    return element.type != elements.front().type || (element.type & ZN_TYPE_ARRAY) != 0;
  });
  const u32 type = elements.empty() || mixed ? ZN_TYPE_STRING : elements.front().type;
  if (mixed) {
    elements.clear();
    for (const std::string& text : texts) elements.push_back({ZN_TYPE_STRING, text});
  }
  return {type | ZN_TYPE_ARRAY, std::move(elements)};
}

Value InferJson(const Json& json) {
  if (json.is_object()) return PropsetOfJson(json);
  if (json.is_string()) return {ZN_TYPE_STRING, json.get<std::string>()};
  if (json.is_number_integer() || json.is_boolean()) return InferValue(json.dump());
  if (!json.is_array()) Refuse(json.dump(), "a value of the bus (no fractions, no null)");
  std::vector<std::string> texts;
  for (const Json& element : json) texts.push_back(TextOfJson(element));
  return ArrayOfTexts(texts);
}

// "a, b\, c" has two items; blanks around an item do not belong to it.
std::vector<std::string> SplitItems(std::string_view text) {
  std::vector<std::string> items;
  std::string item;
  size_t kept = 0;  // length up to the last character that is no trailing blank
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == ',') {
      items.push_back(item.substr(0, kept));
      item.clear();
      kept = 0;
      continue;
    }
    const bool escaped = text[i] == '\\' && i + 1 < text.size();
    if (escaped) ++i;
    if (!escaped && text[i] == ' ' && item.empty()) continue;
    item.push_back(text[i]);
    if (escaped || text[i] != ' ') kept = item.size();
  }
  items.push_back(item.substr(0, kept));
  return items;
}

std::vector<std::string> ItemsOf(std::string_view text) {
  if (text.empty()) return {};
  const bool bracketed = text.size() >= 2 && text.front() == '[' && text.back() == ']';
  if (!bracketed) return SplitItems(text);
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_array()) return SplitItems(text.substr(1, text.size() - 2));
  std::vector<std::string> items;
  for (const Json& element : json) items.push_back(TextOfJson(element));
  return items;
}

using ParseScalar = Value (*)(u32 type, std::string_view text);
struct ScalarRow {
  u32 type;
  ParseScalar parse;
};

constexpr ScalarRow kScalars[] = {
    {ZN_TYPE_BOOLEAN, BooleanValue},
    {ZN_TYPE_INT32, NumberValue<i32>},
    {ZN_TYPE_UINT32, NumberValue<u32>},
    {ZN_TYPE_INT64, NumberValue<i64>},
    {ZN_TYPE_UINT64, NumberValue<u64>},
    {ZN_TYPE_STRING, StringValue},
    {ZN_TYPE_WIDESTRING, StringValue},
    {ZN_TYPE_BINARY, BinaryValue},
    {ZN_TYPE_GUID, IdValue},
    {ZN_TYPE_OBJECT_ID, IdValue},
    {ZN_TYPE_PROPSET, PropsetValue},
    {ZN_TYPE_TIME, TimeValue},
};

}  // namespace

std::optional<u32> ParseTypeName(std::string_view text) {
  constexpr std::string_view kArrayOf = "array of ";
  u32 array = 0;
  if (text.ends_with("[]")) {
    array = ZN_TYPE_ARRAY;
    text.remove_suffix(2);
  } else if (text.starts_with(kArrayOf)) {
    array = ZN_TYPE_ARRAY;
    text.remove_prefix(kArrayOf.size());
  }
  for (const InputName& row : kInputNames) {
    if (text != row.name) continue;
    if (array != 0 && row.type == ZN_TYPE_BINARY) return std::nullopt;  // has no flat form
    return row.type | array;
  }
  return std::nullopt;
}

Value ParseValue(u32 type, std::string_view text) {
  if ((type & ZN_TYPE_ARRAY) != 0) {
    Value::List elements;
    for (const std::string& item : ItemsOf(text)) {
      elements.push_back(ParseValue(type & ~ZN_TYPE_ARRAY, item));
    }
    return {type, std::move(elements)};
  }
  for (const ScalarRow& row : kScalars) {
    if (row.type == type) return row.parse(type, text);
  }
  throw UsageError(fmt::format("a value of type \"{}\" cannot be given as text", TypeName(type)));
}

Value InferValue(std::string_view text) {
  if (text == "true" || text == "false") return {ZN_TYPE_BOOLEAN, text == "true"};
  bool isNumber = false;
  Value number = InferNumber(text, &isNumber);
  if (isNumber) return number;
  if (text.size() == 38 && ParseId(text)) return {ZN_TYPE_OBJECT_ID, *ParseId(text)};
  if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
    return ArrayOfTexts(ItemsOf(text));
  }
  if (text.size() >= 2 && text.front() == '{' && text.back() == '}') {
    const Json json = Json::parse(text, nullptr, false);
    if (json.is_object()) return PropsetOfJson(json);
  }
  return {ZN_TYPE_STRING, std::string(text)};
}

Property ParseArgument(std::string_view text) {
  const size_t equals = text.find('=');
  if (equals == std::string_view::npos || equals == 0) {
    Refuse(text, "name=value or name:type=value");
  }
  const std::string_view left = text.substr(0, equals);
  const std::string_view right = text.substr(equals + 1);
  const size_t colon = left.rfind(':');
  if (colon == std::string_view::npos) return {std::string(left), 0, InferValue(right)};
  const std::string_view typeName = left.substr(colon + 1);
  const std::optional<u32> type = ParseTypeName(typeName);
  if (!type) {
    Refuse(typeName,
           "a type: boolean, int32, uint32, int64, uint64, string, wide, binary, guid, objectid, "
           "time, propset, or one of them with [] behind it");
  }
  try {
    return {std::string(left.substr(0, colon)), 0, ParseValue(*type, right)};
  } catch (const UsageError& error) {
    throw UsageError(fmt::format("{}: {}", left, error.what()));
  }
}

}  // namespace zn::ctl
