// PROPSET elements as property sets. Every element child of one is read as a PROPERTY, whatever its
// name. What is refused is traced, innermost first.
#pragma once

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

// ZNE_INVALID_ARGUMENTS, ZNE_DUPLICATE_LOOKUP_KEY; `out` is written on success only.
[[nodiscard]] u32 ReadPropset(const xercesc::DOMElement& element, PropertySet* out);

// The PROPSET that a type or an alert must have, in a handle of its own. Also
// ZNE_XML_SOURCE_INVALID when there is none, ZNE_OUT_OF_MEMORY.
[[nodiscard]] u32 ReadRequiredPropset(const xercesc::DOMElement& owner, ZnHandle* out);

}  // namespace zn
