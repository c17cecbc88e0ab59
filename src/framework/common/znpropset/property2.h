// Between the flat record Property2 of the boundary and the properties inside ("Property3" in the
// traces of old). A record made here is one block: the record, then its value, then its name.
#pragma once

#include <string_view>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

// Whether the record, its name and its value can be read: the check of every frame that takes one.
[[nodiscard]] bool IsReadableProperty(const Property2* property) noexcept;

// The names that callers and documents may give: letters, digits, "_" and blanks, the first of them
// a letter or "_"; or none.
[[nodiscard]] bool IsPropertyNameText(std::string_view name) noexcept;

// ZNE_INVALID_ARGUMENTS, traced, for a bad shape, name or value.
[[nodiscard]] u32 ConvertProperty2ToProperty3(const Property2* in, Property* out);
// A new record that PsFreeProperty frees. ZNE_INVALID_ARGUMENTS for a tag without a flat form,
// ZNE_OUT_OF_MEMORY.
[[nodiscard]] u32 ConvertProperty3ToProperty2(const Property& in, Property2** out);
// Frees a record that the library returned. ZNE_INVALID_ARGUMENTS for a tag it never returns.
[[nodiscard]] u32 FreeProperty2(Property2* property) noexcept;

// A set in a new handle, or null when memory is short. The set is moved from.
[[nodiscard]] ZnHandle WrapPropertySet(PropertySet&& set) noexcept;
// Destroys the handle and its set; false when the handle is no live set.
[[nodiscard]] bool DestroyPropertySet(ZnHandle handle) noexcept;

}  // namespace zn
