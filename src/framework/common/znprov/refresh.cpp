// The refresh thread: see the header.
#include "framework/common/znprov/refresh.h"

#include <system_error>
#include <utility>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/systemprovider.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "zn/pr.h"

namespace zn {

namespace {

// The texts of a task, by what it does.
struct RefreshText {
  u32 message;
  const char* narrow;
  std::u16string_view wide;
};
constexpr RefreshText kRefreshing{ZNI_REFRESHING, "Refreshing", u"Refreshing"};
constexpr RefreshText kRescanning{ZNI_RESCANNING, "Rescanning", u"Rescanning"};

[[nodiscard]] u32 MakeDisplayName(const RefreshText& text, Property* out) {
  I18nString name{kSystemCatalog, text.message, const_cast<char*>(text.narrow)};
  char propertyName[] = "DisplayName";
  const Property2 flat{propertyName, ZN_TYPE_I18N, 0,
                       static_cast<u32>(sizeof(I18nString) + std::strlen(text.narrow) + 1), &name};
  return ConvertProperty2ToProperty3(&flat, out);
}

// The task may be gone, and its texts are for show: nothing fails here.
void NameTask(const RefreshRequest& request) {
  const BusLock lock;
  Database* database = ZnGetSystemDatabase();
  DBNode* task = database == nullptr ? nullptr : database->FindCached(request.taskId);
  if (task == nullptr) return;
  const bool isRescan = request.call.minorCode == kMinorRescan;
  const RefreshText& text = isRescan ? kRescanning : kRefreshing;
  Property displayName;
  if (!ZN_FAILED(MakeDisplayName(text, &displayName))) {
    static_cast<void>(task->SetProperty(displayName));
  }
  static_cast<void>(task->SetProperty(Property("Name", Value::WideText(text.wide))));
}

[[nodiscard]] std::vector<ZnHandle> SnapshotProviders() {
  const BusLock lock;
  std::vector<ZnHandle> handles;
  Database* database = ZnGetSystemDatabase();
  if (database == nullptr) return handles;
  for (const auto& provider : database->Providers()) handles.push_back(provider->Handle());
  return handles;
}

enum class Turn { kGone, kItself, kOther };
[[nodiscard]] Turn TurnOf(ZnHandle provider) noexcept {
  const BusLock lock;
  if (!IsValidHandle(provider, HANDLE_PROVIDER)) return Turn::kGone;
  return HandleThing<Provider>(provider)->IsBuiltIn() ? Turn::kItself : Turn::kOther;
}

// What a provider answers to its refresh does not matter to the others.
void RefreshOne(ZnHandle provider, const RefreshRequest& request) {
  ZnHandle in = WrapPropertySet(PropertySet());
  ZnHandle out = WrapPropertySet(PropertySet());
  ObjectId answering{};
  const ProviderCallArguments& call = request.call;
  static_cast<void>(PrCallProvider(provider, call.object, &request.interfaceId, call.majorCode,
                                   call.minorCode, in, out, call.flags, call.reserved, nullptr,
                                   nullptr, &answering, nullptr));
  static_cast<void>(DestroyPropertySet(in));
  static_cast<void>(DestroyPropertySet(out));
}

}  // namespace

std::unique_ptr<RefreshThread> RefreshThread::Start() noexcept {
  try {
    std::unique_ptr<RefreshThread> refresh(new RefreshThread);
    refresh->thread_ = std::thread([self = refresh.get()] { self->Run(); });
    return refresh;
  } catch (...) {
    return nullptr;
  }
}

RefreshThread::~RefreshThread() {
  {
    const MutexLock lock(mutex_);
    stop_ = true;
  }
  wake_.NotifyAll();
  if (thread_.joinable()) thread_.join();
}

bool RefreshThread::Take(const RefreshRequest& request) {
  {
    const MutexLock lock(mutex_);
    if (!idle_) return false;
    request_ = request;
    idle_ = false;
  }
  wake_.NotifyAll();
  return true;
}

bool RefreshThread::WaitForRequest(RefreshRequest* out) {
  const MutexLock lock(mutex_);
  while (idle_ && !stop_) wake_.Wait(mutex_);
  *out = request_;
  return !stop_;
}

bool RefreshThread::IsStopping() {
  const MutexLock lock(mutex_);
  return stop_;
}

void RefreshThread::Run() {
  RefreshRequest request{};
  while (WaitForRequest(&request)) {
    try {
      Refresh(request);
    } catch (...) {
      ReportRefresh(request, TASK_STATE_FINISHED, 0, ZNE_OUT_OF_MEMORY);
    }
    // Contract: after the last report, so a request made from that report's callback is folded in.
    const MutexLock lock(mutex_);
    idle_ = true;
  }
}

void RefreshThread::Refresh(const RefreshRequest& request) {
  const std::vector<ZnHandle> providers = SnapshotProviders();
  NameTask(request);
  ReportRefresh(request, TASK_STATE_RUNNING, 0, ZN_OK);
  for (size_t index = 0; index < providers.size(); ++index) {
    const Turn turn = TurnOf(providers[index]);
    if (turn == Turn::kGone) continue;
    if (turn == Turn::kOther) RefreshOne(providers[index], request);
    if (IsStopping()) break;
    ReportRefresh(request, TASK_STATE_RUNNING, static_cast<u32>(index * 100 / providers.size()),
                  ZN_OK);
  }
  ReportRefresh(request, TASK_STATE_FINISHED, 100, ZN_OK);
}

void ReportRefresh(const RefreshRequest& request, u32 state, u32 percent, u32 result) noexcept {
  if (request.call.callback == nullptr) return;
  TaskReport report{result, request.call.context, request.taskId, percent, state};
  static_cast<void>(request.call.callback(&report));
}

}  // namespace zn
