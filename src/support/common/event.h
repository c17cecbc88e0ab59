// The raw results of ZnWaitForEvent and the tag of event handles, for code inside the library.
#pragma once

#include "zn/types.h"

namespace zn {

// Outside the kinds that ZnCloseHandle takes: an event is closed by ZnCloseEvent alone.
inline constexpr u32 kEventTag = 0x455A0001;

inline constexpr u32 kWaitSignalled = 0;
inline constexpr u32 kWaitTimeout = 258;
// The handle is none, or the event was closed during the wait.
inline constexpr u32 kWaitFailed = 0xFFFFFFFFu;
// As a time-out: wait without limit.
inline constexpr u32 kWaitForever = 0xFFFFFFFFu;

}  // namespace zn
