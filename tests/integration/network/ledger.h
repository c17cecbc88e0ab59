// What the ledger provider of these tests offers, for the provider, the client program and the
// tests: one object that notes numbers, one line for each call of the interface.
#pragma once

#include "zn/types.h"

namespace zn::test::ledger {

inline constexpr char kType[] = "NETTEST_Ledger";
inline constexpr char kLeafType[] = "NETTEST_Leaf";
// {3D2A61F0-7B1C-4E55-9C4B-6E1B0A5D7F21}
inline constexpr GUID kInterface = {
    0x3D2A61F0, 0x7B1C, 0x4E55, {0x9C, 0x4B, 0x6E, 0x1B, 0x0A, 0x5D, 0x7F, 0x21}};
inline constexpr u32 kMajor = 1;

// "Number" (uint64) is noted in the file; "Position" (uint64) of the answer says as which one. With
// "Tells" (uint64, not 0) the object's "Count" becomes the position.
inline constexpr u32 kAppend = 1;
// Nothing at all.
inline constexpr u32 kNothing = 2;
// The object's "Text" becomes "Size" bytes: the time (8 bytes, nanoseconds of the monotonic clock),
// the number of the telling (8), zeros.
inline constexpr u32 kTell = 3;
// Returns when the test opens the gate for it.
inline constexpr u32 kHold = 4;
// Makes "Count" (uint64) leaves.
inline constexpr u32 kMake = 5;

inline constexpr char kFileVariable[] = "ZN_NETTEST_LEDGER";  // the file; 8 bytes for each number
inline constexpr char kLoadGateVariable[] = "ZN_NETTEST_LOAD_GATE";  // held when it is there
inline constexpr char kHoldGateVariable[] = "ZN_NETTEST_HOLD_GATE";
// Made beside a gate when somebody stands before it.
inline constexpr char kWaitsSuffix[] = ".waits";

}  // namespace zn::test::ledger
