// Typed values as the console reads, compares and prints them: a copy of what the bus holds, free
// of handles. bus.h converts from and to the library's flat records.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ids.h"
#include "zn/types.h"

namespace zn::ctl {

struct Property;
using PropertyList = std::vector<Property>;

// A localizable message; insertions are present in formatted strings only. The text is what a
// Localizer found; without one the name is shown.
struct Message {
  Id catalog;
  u32 number = 0;
  std::string name;
  PropertyList insertions;
  std::optional<std::string> text = std::nullopt;
};

struct Value {
  using List = std::vector<Value>;
  using Data = std::variant<std::monostate, bool, i64, u64, std::string, std::vector<u8>, Id,
                            Message, PropertyList, List>;

  u32 type = 0;  // a ZN_TYPE_ tag; arrays have bit 31 and hold a List
  Data data;     // monostate for what has no flat form
};

struct Property {
  std::string name;
  u32 flags = 0;
  Value value;
};

bool operator==(const Value& a, const Value& b);
bool operator==(const Property& a, const Property& b);
bool operator==(const Message& a, const Message& b);

const Property* FindProperty(const PropertyList& list, std::string_view name);

// "uint32", "array of string": the names the library itself prints.
std::string TypeName(u32 type);

// "uint32", "wide", "objectid", "string[]"; the library's own names are understood too.
std::optional<u32> ParseTypeName(std::string_view text);

// Reads `text` as a value of `type`. Throws UsageError that says what was expected.
Value ParseValue(u32 type, std::string_view text);

// Reads a value whose type is not given: true and false are booleans, whole numbers the smallest of
// uint32, uint64, int32, int64 that holds them, a text in braces of 38 characters an object id,
// [a, b] an array, {"a": 1} a property set, all else a string.
Value InferValue(std::string_view text);

// "name=value" or "name:type=value". Throws UsageError.
Property ParseArgument(std::string_view text);

// One line for people. Text stands as it is; the caller makes it printable.
std::string FormatValue(const Value& value);

// A time of the bus as text in the local zone: seconds since 1970, or seconds in the high half and
// microseconds in the low half. Other numbers stay numbers.
std::string FormatTime(i64 time);

// What differs, by name; `before` or `after` is absent where the property came or went.
struct Change {
  std::string name;
  std::optional<Value> before;
  std::optional<Value> after;
};
std::vector<Change> Differences(const PropertyList& before, const PropertyList& after);

}  // namespace zn::ctl
