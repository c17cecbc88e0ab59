// The expected types; see the header.
#include "expected_types.h"

#include <array>

namespace hostinv {
namespace {

constexpr u32 kPlain = 0;
constexpr u32 kIndexed = ZN_PROPERTY_INDEXED;
constexpr u32 kBool = ZN_TYPE_BOOLEAN;
constexpr u32 kU32 = ZN_TYPE_UINT32;
constexpr u32 kU64 = ZN_TYPE_UINT64;
constexpr u32 kTime = ZN_TYPE_TIME;
constexpr u32 kText = ZN_TYPE_STRING;
constexpr u32 kTexts = ZN_TYPE_STRING | ZN_TYPE_ARRAY;

constexpr PropertySchema kHost[] = {
    {"OperatingSystem", kText, kPlain}, {"Kernel", kText, kPlain},
    {"Architecture", kText, kPlain},    {"BootTime", kTime, kPlain},
    {"Uptime", kU64, kPlain},           {"Load1Percent", kU32, kPlain},
    {"Load5Percent", kU32, kPlain},     {"Load15Percent", kU32, kPlain},
};

constexpr PropertySchema kProcessor[] = {
    {"Number", kU32, kPlain}, {"Vendor", kText, kPlain},      {"Model", kText, kPlain},
    {"Cores", kU32, kPlain},  {"FrequencyMHz", kU32, kPlain}, {"UsePercent", kU32, kPlain},
};

constexpr PropertySchema kMemory[] = {
    {"Total", kU64, kPlain},
    {"Available", kU64, kPlain},
    {"SwapTotal", kU64, kPlain},
    {"SwapFree", kU64, kPlain},
};

constexpr PropertySchema kBlock[] = {
    {"Device", kText, kIndexed}, {"Size", kU64, kPlain},   {"ReadOnly", kBool, kPlain},
    {"Label", kText, kPlain},    {"Uuid", kText, kPlain},  {"Reads", kU64, kPlain},
    {"ReadBytes", kU64, kPlain}, {"Writes", kU64, kPlain}, {"WrittenBytes", kU64, kPlain},
    {"IoTimeMs", kU64, kPlain},
};

constexpr PropertySchema kDisk[] = {
    {"Model", kText, kPlain},
    {"Serial", kText, kPlain},
    {"Rotational", kBool, kPlain},
    {"Removable", kBool, kPlain},
};

constexpr PropertySchema kPartition[] = {{"Number", kU32, kPlain}, {"Start", kU64, kPlain}};

constexpr PropertySchema kFileSystem[] = {
    {"Device", kText, kIndexed}, {"MountPoint", kText, kIndexed}, {"FileSystemType", kText, kPlain},
    {"Size", kU64, kPlain},      {"Used", kU64, kPlain},          {"Free", kU64, kPlain},
    {"ReadOnly", kBool, kPlain},
};

constexpr PropertySchema kInterface[] = {
    {"Device", kText, kIndexed},       {"Mac", kText, kIndexed},
    {"Addresses", kTexts, kPlain},     {"Mtu", kU32, kPlain},
    {"SpeedMbit", kU32, kPlain},       {"LinkState", kText, kPlain},
    {"Master", kText, kPlain},         {"ReceivedBytes", kU64, kPlain},
    {"ReceivedPackets", kU64, kPlain}, {"ReceiveErrors", kU64, kPlain},
    {"ReceiveDropped", kU64, kPlain},  {"SentBytes", kU64, kPlain},
    {"SentPackets", kU64, kPlain},     {"SendErrors", kU64, kPlain},
    {"SendDropped", kU64, kPlain},
};

constexpr std::array<TypeSchema, 8> kTypes = {{
    {kHostType, nullptr, kHost},
    {kProcessorType, nullptr, kProcessor},
    {kMemoryType, nullptr, kMemory},
    {kBlockType, nullptr, kBlock},
    {kDiskType, kBlockType, kDisk},
    {kPartitionType, kBlockType, kPartition},
    {kFileSystemType, nullptr, kFileSystem},
    {kInterfaceType, nullptr, kInterface},
}};

}  // namespace

std::span<const TypeSchema> Types() {
  return kTypes;
}

}  // namespace hostinv
