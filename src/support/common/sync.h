// Mutex, scoped lock and condition with clang's thread-safety annotations. Every lock of the
// library but the bus lock (fastlock.h) is one of these, and each is a leaf: nothing that may take
// the bus lock is called while one is held.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define ZN_ANNOTATE(x) __attribute__((x))
#else
#define ZN_ANNOTATE(x)
#endif
#define ZN_CAPABILITY(x) ZN_ANNOTATE(capability(x))
#define ZN_SCOPED_CAPABILITY ZN_ANNOTATE(scoped_lockable)
#define ZN_GUARDED_BY(x) ZN_ANNOTATE(guarded_by(x))
#define ZN_PT_GUARDED_BY(x) ZN_ANNOTATE(pt_guarded_by(x))
#define ZN_REQUIRES(...) ZN_ANNOTATE(requires_capability(__VA_ARGS__))
#define ZN_EXCLUDES(...) ZN_ANNOTATE(locks_excluded(__VA_ARGS__))
#define ZN_ACQUIRE(...) ZN_ANNOTATE(acquire_capability(__VA_ARGS__))
#define ZN_RELEASE(...) ZN_ANNOTATE(release_capability(__VA_ARGS__))
#define ZN_NO_THREAD_SAFETY_ANALYSIS ZN_ANNOTATE(no_thread_safety_analysis)

namespace zn {

class ZN_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  void Lock() ZN_ACQUIRE() { mutex_.lock(); }
  void Unlock() ZN_RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

class ZN_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ZN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~MutexLock() ZN_RELEASE() { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

class Condition {
 public:
  void Wait(Mutex& mutex) ZN_REQUIRES(mutex) ZN_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }
  // False when the time ran out.
  [[nodiscard]] bool WaitUntil(Mutex& mutex, std::chrono::steady_clock::time_point when)
      ZN_REQUIRES(mutex) ZN_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    const bool signalled = condition_.wait_until(held, when) == std::cv_status::no_timeout;
    held.release();
    return signalled;
  }
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace zn
