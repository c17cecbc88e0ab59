// The run of the service: start, the wait for signals, stop.
#pragma once

#include "options.h"

namespace zn::svc {

// Returns when the service has stopped: the exit code.
[[nodiscard]] int RunService(const Options& options);

}  // namespace zn::svc
