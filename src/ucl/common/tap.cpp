#include "ucl/common/tap.h"

#include "support/common/sync.h"

namespace zn {

std::atomic<bool> tapEnabled{false};

namespace {

struct TapState {
  Mutex mutex;
  UclTap tap ZN_GUARDED_BY(mutex) = nullptr;
  void* context ZN_GUARDED_BY(mutex) = nullptr;
};

TapState& State() {
  static TapState& state = *new TapState;  // never destroyed: late threads may still send
  return state;
}

}  // namespace

void TellTap(const UclTapFrame& frame) {
  TapState& state = State();
  const MutexLock lock(state.mutex);
  if (state.tap != nullptr) state.tap(frame, state.context);
}

void UCLSetTap(UclTap tap, void* context) {
  TapState& state = State();
  const MutexLock lock(state.mutex);
  state.tap = tap;
  state.context = context;
  tapEnabled.store(tap != nullptr);
}

}  // namespace zn
