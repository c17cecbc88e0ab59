// A property set inside a message: writers put it there as a property set or as its marshalled
// bytes, readers take either.
#pragma once

#include <string_view>

#include "framework/common/znpropset/propertyset.h"

namespace zn::wire {

// The set under `key`: where it lies, or unmarshalled into `room`. Null when there is neither a set
// nor bytes that can be read as one. Valid as long as both arguments are unchanged. `names` is for
// the bytes of a peer that may make no new names.
[[nodiscard]] const PropertySet* FindNestedSet(const PropertySet& message, std::string_view key,
                                               PropertySet* room,
                                               NamesRead names = NamesRead::kAll);

// The set's marshalled bytes as a binary value.
[[nodiscard]] Value AsBinary(const PropertySet& set);

}  // namespace zn::wire
