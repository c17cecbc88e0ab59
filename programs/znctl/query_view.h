// What `query` shows beside the bare hits: the properties that tell them apart, and of a query that
// the bus refused, which word is wrong and where. The words are read by the library's own parser,
// which is compiled into the console. Pure functions.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "terminal.h"
#include "values.h"
#include "zn/types.h"

namespace zn::ctl {

// Lines that say what is wrong: the text with a mark below the place, and a sentence or two.
// `declared` gives the properties of a type, inherited ones too, and is asked for types that exist.
// Empty where the status has another cause than the text.
using DeclaredProperties = std::function<PropertyList(const std::string& type)>;
std::vector<std::string> ExplainQuery(const std::string& text, u32 status,
                                      const DeclaredProperties& declared);

// Names of the properties that are worth a column each in a table of `room` columns: of one hit
// those that have a value, of several those in which the hits differ. The searchable ones come
// first, then those that somebody has given another value than the type (`defaults`) does. Hidden
// ones, names (which the path shows) and bytes are left out.
std::vector<std::string> QueryColumns(const std::vector<PropertyList>& hits,
                                      const PropertyList& defaults, size_t room);

// What a column of a property is wide at most.
inline constexpr size_t kWidestPropertyColumn = 24;

}  // namespace zn::ctl
