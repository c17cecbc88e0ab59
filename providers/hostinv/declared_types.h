// The object types of this provider, read from its formalization document, which is compiled in.
#pragma once

#include "zn/types.h"

namespace hostinv {

// Declares every type of the document; one that is there already is left alone.
u32 DeclareTypes(ZnHandle database);

}  // namespace hostinv
