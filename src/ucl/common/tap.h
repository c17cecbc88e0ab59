// Where the frames of the process can be watched (UCLSetTap). Costs one load while nobody does.
#pragma once

#include <atomic>

#include "ucl/common/ucl.h"

namespace zn {

extern std::atomic<bool> tapEnabled;

[[nodiscard]] inline bool IsTapped() noexcept {
  return tapEnabled.load(std::memory_order_relaxed);
}
void TellTap(const UclTapFrame& frame);

}  // namespace zn
