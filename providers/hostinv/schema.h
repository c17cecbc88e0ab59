// The names of the object types that this provider declares. Their supertypes and properties stand
// in hostinv_types.xml, the one place that knows a property's type and flags; docs/hostinv.md tells
// the meaning of each.
#pragma once

namespace hostinv {

inline constexpr char kHostType[] = "HostInv_Host";
inline constexpr char kProcessorType[] = "HostInv_Processor";
inline constexpr char kMemoryType[] = "HostInv_Memory";
inline constexpr char kDiskType[] = "HostInv_Disk";
inline constexpr char kPartitionType[] = "HostInv_Partition";
inline constexpr char kFileSystemType[] = "HostInv_FileSystem";
inline constexpr char kInterfaceType[] = "HostInv_Interface";

}  // namespace hostinv
