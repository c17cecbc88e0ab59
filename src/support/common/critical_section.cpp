// Critical sections: one pointer in the caller's structure to a recursive lock of ours.
#include <mutex>
#include <new>

#include "support/common/pointers.h"
#include "zn/platform.h"

namespace {

std::recursive_mutex* SectionOf(void** section) noexcept {
  return zn::IsGoodPointer(section) ? static_cast<std::recursive_mutex*>(*section) : nullptr;
}

}  // namespace

extern "C" {

void ZnInitializeCriticalSection(void** section) {
  if (zn::IsGoodPointer(section)) *section = new (std::nothrow) std::recursive_mutex;
}

void ZnDeleteCriticalSection(void** section) {
  delete SectionOf(section);
  if (zn::IsGoodPointer(section)) *section = nullptr;
}

void ZnEnterCriticalSection(void** section) {
  if (std::recursive_mutex* mutex = SectionOf(section); mutex != nullptr) mutex->lock();
}

void ZnLeaveCriticalSection(void** section) {
  if (std::recursive_mutex* mutex = SectionOf(section); mutex != nullptr) mutex->unlock();
}

}  // extern "C"
