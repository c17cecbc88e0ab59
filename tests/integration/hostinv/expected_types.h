// What the types of the inventory must be, written down a second time, in code: the provider
// declares them with a document, and the tests hold both the document and the objects against this.
#pragma once

#include <span>

#include "schema.h"
#include "zn/types.h"

namespace hostinv {

inline constexpr char kBlockType[] = "HostInv_BlockDevice";

struct PropertySchema {
  const char* name;
  u32 tag;
  u32 flags;
};

struct TypeSchema {
  const char* name;
  const char* supertype;  // null for the root of all objects
  std::span<const PropertySchema> properties;
};

// Supertypes stand before the types that derive from them.
std::span<const TypeSchema> Types();

}  // namespace hostinv
