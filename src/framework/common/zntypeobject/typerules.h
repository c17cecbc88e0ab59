// The rules that a new type must keep, apart from the table of types: each answers with the status
// of its refusal. The order in which they are asked is the type manager's.
#pragma once

#include <string_view>
#include <vector>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

class TypeObject;

// Letters, digits, ":" and "_", the first a letter or "_". A ":" is allowed here and not in names
// of properties, a blank there and not here.
[[nodiscard]] bool IsTypeNameText(std::string_view name) noexcept;
// ZNE_PROPERTY_NOT_INDEXABLE when a property is marked for an index that its tag has not.
[[nodiscard]] u32 CheckIndexable(const PropertySet& properties) noexcept;
// ZNE_INHERITANCE_INVALID when one name has two tags: among the new type and its supertypes, or
// among two supertypes.
[[nodiscard]] u32 CheckInheritedTags(const PropertySet& properties,
                                     const std::vector<TypeObject*>& supertypes);
// ZNE_INHERITANCE_INVALID when two supertypes have one name from two declaring types.
[[nodiscard]] u32 CheckDiamonds(const std::vector<TypeObject*>& supertypes);

}  // namespace zn
