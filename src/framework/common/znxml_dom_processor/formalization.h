// Reading whole documents at the start of the bus: object types into a database, alerts to whoever
// publishes them. The one header of the reader that needs no XML library.
//
// Under FAST_LOCK, which is what keeps two readers apart.
#pragma once

#include <functional>

#include "zn/types.h"

namespace zn {

// Reads a document and creates its object types in `database`, supertypes first; types whose names
// are not in `filter` (a null-terminated list, null for all) are passed over. What becomes of a
// single type is traced and stops nothing.
//
// ZNE_XML_SOURCE_INVALID for a document that is not well formed, not valid, out of bounds or
// without its root; ZNE_DUPLICATE_OBJECT_ID for a type that comes twice; what OTIVCreate_Doc
// answers. Contract: ZN_OK and no type for a document whose types inherit in a circle.
u32 ReadObjectTypesFromFile(ZnHandle database, const char* path, const char** filter);
u32 ReadObjectTypesFromMemory(ZnHandle database, const char* text, const char** filter);

// Publishes one alert in a database; the record is good during the call.
using AlertPublisher = std::function<u32(ZnHandle database, const AlertDescriptor& alert)>;

// Reads a document and publishes its alerts in their order. A publication that fails is traced and
// stops nothing. The statuses of the above.
u32 ReadAlertTypesFromFile(ZnHandle database, const char* path, const AlertPublisher& publish);
u32 ReadAlertTypesFromMemory(ZnHandle database, const char* text, const AlertPublisher& publish);

}  // namespace zn
