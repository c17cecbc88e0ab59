// The name of the memory through which a server proves to a local client that it runs as the
// administrator: only who may read it can log on that way.
#pragma once

#include <string>

#include "zn/types.h"

namespace zn {

inline constexpr u32 kStandardPort = 2148;

// "ZnMiraAuthShareMemory", with the port added unless it is 0 or the standard one, so that two
// services can run on one machine.
[[nodiscard]] std::string AuthSharedMemoryName(u32 port);

}  // namespace zn
