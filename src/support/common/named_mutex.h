// Locks by name between processes of one user. Recursive on one thread; a thread or process that
// ends while it holds one leaves it free, and the next to take it is told so. Any thread.
#pragma once

#include "zn/types.h"

namespace zn {

inline constexpr u32 kWaitAbandoned = 0x80;  // taken, but its last holder ended while holding it

// A handle of kind 8 to the lock of that name, which is made if need be; null on failure.
[[nodiscard]] ZnHandle ZnCreateNamedMutex(const char* name) noexcept;
// 0 taken, kWaitAbandoned, 258 out of time, 0xFFFFFFFF no such handle. All ones waits for ever.
[[nodiscard]] u32 ZnWaitNamedMutex(ZnHandle mutex, u32 timeoutMs) noexcept;
// False when the calling thread does not hold it.
bool ZnReleaseNamedMutex(ZnHandle mutex) noexcept;
// Gives up the calling thread's holds with it. False when the handle is none.
bool ZnCloseNamedMutex(ZnHandle mutex) noexcept;
// Creates and takes in one; null when somebody else holds it or it cannot be made.
[[nodiscard]] ZnHandle ZnTryNamedMutex(const char* name) noexcept;

}  // namespace zn
