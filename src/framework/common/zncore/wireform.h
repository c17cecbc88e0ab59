// Reading the marshalled forms of objects and changes. What is missing or has another tag reads as
// nothing.
#pragma once

#include <string_view>
#include <vector>

#include "framework/common/zncore/dbnode.h"
#include "framework/common/znpropset/propertyset.h"

namespace zn {

// An array property of that element tag, or null.
[[nodiscard]] const std::vector<Value>* FindArray(const PropertySet& form, std::string_view name,
                                                  u32 elementTag) noexcept;
// The ids of a list; none without it.
[[nodiscard]] IdSet ReadIds(const PropertySet& form, std::string_view name);
// A nested set, to be taken out, or null.
[[nodiscard]] PropertySet* FindOwnSet(PropertySet& form, std::string_view name) noexcept;
// A nested set in either of its forms, taken out or read from its bytes into the empty `out`. False
// when there is neither a set nor the bytes of one.
[[nodiscard]] bool TakeNestedSet(PropertySet& message, std::string_view name, PropertySet* out);
// A list of sets, to be taken out, or null (see FindSetList).
[[nodiscard]] std::vector<Value>* FindOwnSetList(PropertySet& set, std::string_view name) noexcept;

}  // namespace zn
