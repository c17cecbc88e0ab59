// A private database as a value: the property set that stands for it. Under FAST_LOCK.
#pragma once

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

// The content of a private database as a set; false for any other handle.
[[nodiscard]] bool MarshalPrivateDatabase(ZnHandle handle, PropertySet* out);
// A new private database with the content of the set; null when it cannot be made.
[[nodiscard]] ZnHandle UnmarshalPrivateDatabase(const PropertySet& set);

}  // namespace zn
