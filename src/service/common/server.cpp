// The gate that the end of the start opens: see the header.
#include "service/common/server.h"

namespace zn {

void ReadyGate::Open() {
  const MutexLock lock(mutex_);
  open_ = true;
  changed_.NotifyAll();
}

void ReadyGate::End() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.NotifyAll();
}

bool ReadyGate::Wait() {
  const MutexLock lock(mutex_);
  while (!open_ && !ended_) changed_.Wait(mutex_);
  return open_ && !ended_;
}

}  // namespace zn
