// The JSON that --json prints. docs/znctl.md describes it; a change of shape is a change of the
// number kJsonSchema.
#pragma once

#include <nlohmann/json.hpp>

#include "naming.h"
#include "values.h"

namespace zn::ctl {

using Json = nlohmann::ordered_json;

inline constexpr int kJsonSchema = 1;

// {"schema": 1, "verb": verb}
Json JsonDocument(const std::string& verb);

// One line, ASCII-safe for broken text: invalid UTF-8 becomes U+FFFD.
std::string JsonLine(const Json& json);
std::string JsonPretty(const Json& json);

Json JsonOfValue(const Value& value);
Json JsonOfProperty(const Property& property);    // {"type", "flags", "value"}
Json JsonOfProperties(const PropertyList& list);  // by name
Json JsonOfIds(const std::vector<Id>& ids);
Json JsonOfInfo(const ObjectInfo& info);  // {"id", "type", "name", "hidden"}
Json JsonOfTree(ObjectSource& source, const Forest& forest, const Id& id, size_t depth);

}  // namespace zn::ctl
