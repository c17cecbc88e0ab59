// What the common code asks of the host beyond the exported Zn* calls. One half per host implements
// it (posix/); the common code includes no system header.
#pragma once

#include <memory>
#include <string>

#include "zn/types.h"

namespace zn {

// Address space that reads as zero and takes memory only where it is touched; never given back.
// Null when the system refuses.
[[nodiscard]] void* ReserveMemory(size_t bytes) noexcept;

// Random bytes from the kernel; false when there are none. Buffered, safe across fork.
[[nodiscard]] bool RandomBytes(void* out, size_t count) noexcept;

}  // namespace zn
