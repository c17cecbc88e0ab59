// The object types that this provider declares: their names, supertypes and properties. The list is
// the one place that knows a property's tag and flags; docs/hostinv.md tells the meaning of each.
#pragma once

#include <span>

#include "zn/types.h"

namespace hostinv {

inline constexpr char kHostType[] = "HostInv_Host";
inline constexpr char kProcessorType[] = "HostInv_Processor";
inline constexpr char kMemoryType[] = "HostInv_Memory";
inline constexpr char kBlockType[] = "HostInv_BlockDevice";
inline constexpr char kDiskType[] = "HostInv_Disk";
inline constexpr char kPartitionType[] = "HostInv_Partition";
inline constexpr char kFileSystemType[] = "HostInv_FileSystem";
inline constexpr char kInterfaceType[] = "HostInv_Interface";

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
