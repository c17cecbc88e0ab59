// The provider "system", built into the library: it owns the objects of the library itself, keeps
// the lists of loaded and failed providers, and serves two interfaces on the system group: refresh
// of all providers, and service functions.
#pragma once

#include <string_view>

#include "zn/types.h"

namespace zn {

class Database;

// {E89E2FD0-07FB-11D2-A7C4-00A0C9249029}: major 0, minor 1 refreshes, minor 2 rescans; asynchronous
// calls alone. Every provider that wants to take part serves the same codes.
inline constexpr GUID kRefreshInterface = {
    0xE89E2FD0, 0x07FB, 0x11D2, {0xA7, 0xC4, 0x00, 0xA0, 0xC9, 0x24, 0x90, 0x29}};
inline constexpr u32 kMinorRefresh = 1;
inline constexpr u32 kMinorRescan = 2;

// {3A998F90-0AF5-11D4-ABB5-00C04F87C098}: major 0, minor 1 dumps the allocations, minor 2 makes
// "GUIDCount" ids, at most kMaxGuidCount, into the array "GUIDs".
inline constexpr GUID kServiceInterface = {
    0x3A998F90, 0x0AF5, 0x11D4, {0xAB, 0xB5, 0x00, 0xC0, 0x4F, 0x87, 0xC0, 0x98}};
inline constexpr u32 kMinorDumpAllocations = 1;
inline constexpr u32 kMinorMakeGuids = 2;
inline constexpr u32 kMaxGuidCount = 1u << 20;

// {8BCC2DF0-62CF-11d4-80C5-00C04FBCEFDD}: catalog of the library's own texts.
inline constexpr GUID kSystemCatalog = {
    0x8BCC2DF0, 0x62CF, 0x11D4, {0x80, 0xC5, 0x00, 0xC0, 0x4F, 0xBC, 0xEF, 0xDD}};
inline constexpr std::string_view kSystemCatalogText = "{8BCC2DF0-62CF-11d4-80C5-00C04FBCEFDD}";

// Makes the built-in types, then the provider object with its group. ZNE_UNEXPECTED when a type
// cannot be made, which is the case when they were made before; ZNE_OUT_OF_MEMORY. Under FAST_LOCK.
[[nodiscard]] u32 CreateSystemProvider(Database& database, std::u16string_view name);

// Ends and joins the refresh thread, if a refresh was ever asked for: a refresh under way ends with
// the provider it is at. Releases the bus lock while it waits; not from a callback of a refresh.
void StopRefreshThread() noexcept;

}  // namespace zn
