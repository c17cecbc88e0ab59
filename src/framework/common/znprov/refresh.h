// The refresh of all providers: one thread, started by the first request, works on one request at a
// time. A request that comes meanwhile is folded into the running one.
#pragma once

#include <memory>
#include <thread>

#include "framework/common/znprov/provider.h"
#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

struct RefreshRequest {
  ProviderCallArguments call;  // its sets are not used, its interface id is `interfaceId`
  GUID interfaceId;
  ObjectId taskId;
};

// Owned by the process; any thread may ask. Its lock is a leaf.
class RefreshThread {
 public:
  // Null when the thread cannot be started.
  [[nodiscard]] static std::unique_ptr<RefreshThread> Start() noexcept;
  // Waits for the thread. Not under FAST_LOCK.
  ~RefreshThread();
  RefreshThread(const RefreshThread&) = delete;
  RefreshThread& operator=(const RefreshThread&) = delete;

  // Takes the request; false while a refresh runs.
  [[nodiscard]] bool Take(const RefreshRequest& request) ZN_EXCLUDES(mutex_);

 private:
  RefreshThread() = default;
  void Run() ZN_EXCLUDES(mutex_);
  [[nodiscard]] bool WaitForRequest(RefreshRequest* out) ZN_EXCLUDES(mutex_);
  [[nodiscard]] bool IsStopping() ZN_EXCLUDES(mutex_);
  void Refresh(const RefreshRequest& request) ZN_EXCLUDES(mutex_);

  Mutex mutex_;
  Condition wake_;
  RefreshRequest request_ ZN_GUARDED_BY(mutex_){};
  bool idle_ ZN_GUARDED_BY(mutex_) = true;
  bool stop_ ZN_GUARDED_BY(mutex_) = false;
  std::thread thread_;  // last: it uses the others
};

// Reports progress of a request through the callback it came with. Not under FAST_LOCK.
void ReportRefresh(const RefreshRequest& request, u32 state, u32 percent, u32 result) noexcept;

}  // namespace zn
