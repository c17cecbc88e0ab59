// Named locks: a robust, recursive pthread mutex in shared memory of its own ("/<name>.mutex", mode
// 0600), which stays when the last process is gone, since taking the name away could split two
// processes between an old lock and a new one. One mapping per name and process; who makes the
// memory initialises it under a file lock.
#include "support/common/named_mutex.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <exception>
#include <map>
#include <memory>
#include <string>

#include "support/common/event.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/sync.h"
#include "support/common/sysobject.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr u32 kReady = 0x5A4E4D58;

// What lies in the shared memory.
struct SharedState {
  u32 ready;  // kReady once the mutex is initialised; written under the file lock
  pthread_mutex_t mutex;
};

int InitialiseMutex(pthread_mutex_t* mutex) noexcept {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int error = pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return error;
}

timespec DeadlineAfter(u32 timeoutMs) noexcept {
  timespec when{};
  clock_gettime(CLOCK_REALTIME, &when);
  when.tv_sec += timeoutMs / 1000;
  when.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000;
  if (when.tv_nsec >= 1000000000) {
    when.tv_nsec -= 1000000000;
    ++when.tv_sec;
  }
  return when;
}

// One name's lock in this process.
class SharedLock {
 public:
  explicit SharedLock(SharedState* state) noexcept : state_(state) {}
  ~SharedLock() {
    // A lock that some thread still holds stays mapped: the system lists it by its address.
    if (owner_.load() == kNoThread) munmap(state_, sizeof(SharedState));
  }
  SharedLock(const SharedLock&) = delete;
  SharedLock& operator=(const SharedLock&) = delete;

  u32 Wait(u32 timeoutMs) noexcept {
    const int error = Take(timeoutMs);
    if (error == ETIMEDOUT || error == EBUSY) return kWaitTimeout;
    if (error == EOWNERDEAD) {
      pthread_mutex_consistent(&state_->mutex);
      depth_ = 0;
    } else if (error != 0) {
      SetLastFailure(static_cast<u32>(error));
      return kWaitFailed;
    }
    owner_.store(CurrentThreadId());
    ++depth_;
    return error == EOWNERDEAD ? kWaitAbandoned : kWaitSignalled;
  }

  bool Release() noexcept {
    if (owner_.load() != CurrentThreadId()) return false;
    if (--depth_ == 0) owner_.store(kNoThread);
    return pthread_mutex_unlock(&state_->mutex) == 0;
  }

  void ReleaseAll() noexcept {
    while (Release()) {
    }
  }

 private:
  int Take(u32 timeoutMs) noexcept {
    if (timeoutMs == kWaitForever) return pthread_mutex_lock(&state_->mutex);
    if (timeoutMs == 0) return pthread_mutex_trylock(&state_->mutex);
    const timespec deadline = DeadlineAfter(timeoutMs);
    return pthread_mutex_timedlock(&state_->mutex, &deadline);
  }

  SharedState* state_;
  std::atomic<u32> owner_{kNoThread};
  u32 depth_ = 0;  // touched by the holder only
};

SharedState* MapState(const std::string& systemName) noexcept {
  const int fd = shm_open(systemName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return nullptr;
  void* memory = MAP_FAILED;
  if (flock(fd, LOCK_EX) == 0 && ftruncate(fd, sizeof(SharedState)) == 0) {
    memory = mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  auto* state = memory == MAP_FAILED ? nullptr : static_cast<SharedState*>(memory);
  if (state != nullptr && state->ready != kReady && InitialiseMutex(&state->mutex) == 0) {
    state->ready = kReady;
  }
  close(fd);  // and with it goes the file lock
  return state;
}

using LockPointer = std::shared_ptr<SharedLock>;

// The locks of this process by name and by handle.
class NamedLocks {
 public:
  LockPointer Get(const char* name) {
    std::string systemName = "/" + std::string(name) + ".mutex";
    std::replace(systemName.begin() + 1, systemName.end(), '/', '_');
    std::replace(systemName.begin() + 1, systemName.end(), '\\', '_');
    const MutexLock lock(mutex_);
    std::weak_ptr<SharedLock>& known = byName_[systemName];
    if (LockPointer live = known.lock(); live != nullptr) return live;
    SharedState* state = MapState(systemName);
    if (state == nullptr) {
      SetLastFailure(static_cast<u32>(errno));
      return nullptr;
    }
    auto made = std::make_shared<SharedLock>(state);
    known = made;
    return made;
  }

  void Add(ZnHandle handle, LockPointer named) {
    const MutexLock lock(mutex_);
    byHandle_.insert_or_assign(handle, std::move(named));
  }

  LockPointer Find(ZnHandle handle) {
    if (HandleTag(handle) != HANDLE_SYSOBJECT) return nullptr;
    const MutexLock lock(mutex_);
    const auto found = byHandle_.find(handle);
    return found == byHandle_.end() ? nullptr : found->second;
  }

  LockPointer Remove(ZnHandle handle) {
    const MutexLock lock(mutex_);
    const auto found = byHandle_.find(handle);
    if (found == byHandle_.end()) return nullptr;
    LockPointer named = std::move(found->second);
    byHandle_.erase(found);
    return named;
  }

 private:
  Mutex mutex_;
  std::map<std::string, std::weak_ptr<SharedLock>> byName_ ZN_GUARDED_BY(mutex_);
  std::map<ZnHandle, LockPointer> byHandle_ ZN_GUARDED_BY(mutex_);
};

NamedLocks& Locks() {
  static NamedLocks& locks = *new NamedLocks;
  return locks;
}

// What a handle owns.
class NamedMutex : public SystemObject {
 public:
  NamedMutex() = default;
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;
  ~NamedMutex() override {
    if (const LockPointer named = Locks().Remove(handle_); named != nullptr) named->ReleaseAll();
  }
  void SetHandle(ZnHandle handle) noexcept { handle_ = handle; }

 private:
  ZnHandle handle_ = nullptr;
};

ZnHandle MakeHandle(LockPointer named) {
  auto owned = std::make_unique<NamedMutex>();
  ZnHandle handle = AllocateHandle(HANDLE_SYSOBJECT, static_cast<SystemObject*>(owned.get()));
  if (handle == nullptr) return nullptr;
  owned->SetHandle(handle);
  static_cast<void>(owned.release());
  Locks().Add(handle, std::move(named));
  return handle;
}

}  // namespace

ZnHandle ZnCreateNamedMutex(const char* name) noexcept {
  if (!IsGoodPointer(name) || *name == '\0') return nullptr;
  try {
    LockPointer named = Locks().Get(name);
    return named == nullptr ? nullptr : MakeHandle(std::move(named));
  } catch (const std::exception&) {
    return nullptr;
  }
}

u32 ZnWaitNamedMutex(ZnHandle mutex, u32 timeoutMs) noexcept {
  const LockPointer named = Locks().Find(mutex);
  return named == nullptr ? kWaitFailed : named->Wait(timeoutMs);
}

bool ZnReleaseNamedMutex(ZnHandle mutex) noexcept {
  const LockPointer named = Locks().Find(mutex);
  return named != nullptr && named->Release();
}

bool ZnCloseNamedMutex(ZnHandle mutex) noexcept {
  return Locks().Find(mutex) != nullptr && ZnCloseHandle(mutex) == 0;
}

ZnHandle ZnTryNamedMutex(const char* name) noexcept {
  ZnHandle mutex = ZnCreateNamedMutex(name);
  if (mutex == nullptr) return nullptr;
  const u32 result = ZnWaitNamedMutex(mutex, 0);
  if (result != kWaitTimeout && result != kWaitFailed) return mutex;
  ZnCloseNamedMutex(mutex);
  return nullptr;
}

}  // namespace zn
