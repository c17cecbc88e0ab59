// Service ids: see the header.
#include "service/common/serviceid.h"

#include <new>
#include <utility>

#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

// 0 stands for "no marker" and 1 for the spare event.
u32 ServiceIds::NextId() {
  ++last_;
  if (last_ <= kSpareId) last_ = kSpareId + 1;
  return last_;
}

std::shared_ptr<ServiceIds::Signal> ServiceIds::TakeSpareOrNew() {
  const auto spare = signals_.find(kSpareId);
  if (spare == signals_.end()) return std::make_shared<Signal>();
  std::shared_ptr<Signal> signal = std::move(spare->second);
  signals_.erase(spare);
  signal->isSet = false;
  return signal;
}

u32 ServiceIds::Take(QueueMarker queue, void* context, u32* serviceId) try {
  const MutexLock order(orderLock_);
  {
    const MutexLock lock(mutex_);
    std::shared_ptr<Signal> signal = TakeSpareOrNew();
    const u32 id = NextId();
    signals_[id] = std::move(signal);
    *serviceId = id;
  }
  queue(*serviceId, context);
  return ZN_OK;
} catch (const std::bad_alloc&) {
  return ZNE_OUT_OF_MEMORY;
}

void ServiceIds::GiveBack(u32 serviceId) {
  const auto filed = signals_.find(serviceId);
  if (filed == signals_.end()) return;
  std::shared_ptr<Signal> signal = std::move(filed->second);
  signals_.erase(filed);
  // Counted with the id that goes, as the table stood.
  if (signals_.size() + 1 < kFewEnough) signals_[kSpareId] = std::move(signal);
}

u32 ServiceIds::WaitOnServiceId(u32 serviceId) try {
  const MutexLock lock(mutex_);
  const auto filed = signals_.find(serviceId);
  if (filed == signals_.end()) {
    ZN_TRACE(6, "WaitOnServiceId : Event not found for serviceid             %d\n",
             static_cast<int>(serviceId));
    return ZNE_UNEXPECTED;
  }
  const std::shared_ptr<Signal> signal = filed->second;
  while (!signal->isSet && !ended_) signal->raised.Wait(mutex_);
  GiveBack(serviceId);
  return ZN_OK;
} catch (const std::bad_alloc&) {
  return ZNE_OUT_OF_MEMORY;  // the spare is lost, the wait was done
}

bool ServiceIds::RaiseEventOnServiceId(u32 serviceId) {
  const MutexLock lock(mutex_);
  const auto filed = signals_.find(serviceId);
  if (filed == signals_.end()) {
    ZN_TRACE(6, "RaiseEventOnServiceId : Event not found for             serviceid %d\n",
             static_cast<int>(serviceId));
    return false;
  }
  filed->second->isSet = true;
  filed->second->raised.NotifyOne();
  return true;
}

void ServiceIds::EndWaits() {
  const MutexLock lock(mutex_);
  ended_ = true;
  for (const auto& [id, signal] : signals_) signal->raised.NotifyAll();
}

size_t ServiceIds::Filed() {
  const MutexLock lock(mutex_);
  return signals_.size();
}

bool ServiceIds::HasSpare() {
  const MutexLock lock(mutex_);
  return signals_.contains(kSpareId);
}

void ServiceIds::SetLast(u32 serviceId) {
  const MutexLock lock(mutex_);
  last_ = serviceId;
}

}  // namespace zn
