// Task objects and reports: see the header.
#include "framework/common/znprov/task.h"

#include <cstdint>
#include <ctime>
#include <new>
#include <unordered_map>
#include <vector>

#include "framework/common/znprov/databaseref.h"
#include "support/common/fastlock.h"
#include "support/common/pointers.h"
#include "support/common/status.h"

namespace zn {

namespace {

// What the token of a task stands for.
struct RememberedTask {
  DatabaseRef database;
  InternedId provider;
  ObjectId taskId;
  TaskCallback callback;
  void* context;
};

using TaskTable = std::unordered_map<std::uintptr_t, RememberedTask>;
// Under FAST_LOCK. Never destroyed: providers' threads may report while the process ends.
TaskTable& Tasks() noexcept {
  static TaskTable& table = *new TaskTable;
  return table;
}

[[nodiscard]] i64 Now() noexcept {
  return static_cast<i64>(std::time(nullptr));
}

[[nodiscard]] PropertySet SetOf(ZnHandle handle) {
  return IsValidHandle(handle, HANDLE_PROPSET) ? *HandleThing<PropertySet>(handle) : PropertySet();
}

[[nodiscard]] PropertySet InitialProperties(const Provider& provider,
                                            const ProviderCallArguments& call) {
  PropertySet set;
  set.Put("ObjectId", Value::Id(call.object));
  set.Put("ProviderId", Value::Id(provider.GetId()));
  set.Put("InData", Value::Set(SetOf(call.in)));
  set.Put("OutData", Value::Set(SetOf(call.out)));
  set.Put("MajorCode", Value::UInt32(call.majorCode));
  set.Put("MinorCode", Value::UInt32(call.minorCode));
  set.Put("InterfaceId", Value::Guid(*call.interfaceId));
  set.Put("State", Value::UInt32(TASK_STATE_CREATED));
  set.Put("StartTime", Value::Time(Now()));
  return set;
}

// The task of that id, or null: reports name no other objects.
[[nodiscard]] DBNode* FindTask(Database& database, const ObjectId& id) noexcept {
  DBNode* node = database.FindCached(id);
  return node != nullptr && (node->GetFlags() & OBJECT_TASK) != 0 ? node : nullptr;
}

[[nodiscard]] bool IsDone(const DBNode& task) noexcept {
  return (task.GetFlags() & OBJECT_TASK_DONE) != 0;
}

[[nodiscard]] bool HasChildTasks(const DBNode& task) {
  std::vector<ObjectId> children;
  return !ZN_FAILED(task.GetChildren(kTaskTypeName, &children)) && !children.empty();
}

// Deletes the task, then each finished parent in turn that waited for nothing else.
void DeleteUpwards(Database& database, DBNode* task) {
  while (task != nullptr) {
    std::vector<ObjectId> parents;
    if (ZN_FAILED(task->GetParents(kTaskTypeName, &parents))) parents.clear();
    database.DeleteNode(task);
    if (parents.size() != 1) return;
    task = FindTask(database, parents.front());
    if (task == nullptr || !IsDone(*task) || HasChildTasks(*task)) return;
  }
}

[[nodiscard]] u32 StoreProgress(DBNode& task, const TaskReport& report) {
  PropertySet progress;
  progress.Put("State", Value::UInt32(report.state));
  progress.Put("PercentComplete", Value::UInt32(report.percentComplete));
  progress.Put("Result", Value::UInt32(report.result));
  if (report.state == TASK_STATE_FINISHED) progress.Put("EndTime", Value::Time(Now()));
  return task.SetProperties(progress);
}

[[nodiscard]] TaskTable::iterator FindRemembered(const TaskReport& report) noexcept {
  const auto found = Tasks().find(reinterpret_cast<std::uintptr_t>(report.context));
  const bool isItsOwn = found != Tasks().end() && SameGuid(found->second.taskId, report.taskId);
  return isItsOwn ? found : Tasks().end();
}

// Where the task lives: a task made by hand has no token and lives in the system database.
[[nodiscard]] Database* TaskDatabase(TaskTable::iterator remembered) noexcept {
  if ((libraryAlive.load(std::memory_order_relaxed) & 1u) == 0) return nullptr;
  return remembered != Tasks().end() ? remembered->second.database.Find() : ZnGetSystemDatabase();
}

// Brings the task object up to the report, and reaps it when it is over; false when it is gone.
[[nodiscard]] bool ApplyReport(Database* database, const TaskReport& report) {
  DBNode* task = database == nullptr ? nullptr : FindTask(*database, report.taskId);
  if (task == nullptr) return false;
  if (!IsDone(*task) && ZN_FAILED(StoreProgress(*task, report))) return false;
  if (report.state != TASK_STATE_FINISHED && !IsDone(*task)) return true;
  task->SetRawFlags(task->GetFlags() | OBJECT_TASK_DONE);
  if (!HasChildTasks(*task)) DeleteUpwards(*database, task);
  return true;
}

[[nodiscard]] bool Report(const TaskReport& report) {
  const BusLock lock;
  const auto remembered = FindRemembered(report);
  if (!ApplyReport(TaskDatabase(remembered), report)) {
    if (remembered != Tasks().end()) Tasks().erase(remembered);
    return false;
  }
  if (remembered == Tasks().end()) return true;
  TaskReport forCaller = report;
  forCaller.context = remembered->second.context;
  const TaskCallback callback = remembered->second.callback;
  // Before the callback: of two "finished" reports the caller hears one.
  if (report.state == TASK_STATE_FINISHED) Tasks().erase(remembered);
  if (callback == nullptr) return true;
  const BusRelease release;
  return callback(&forCaller);
}

}  // namespace

u32 CreateTaskObject(Database& database, Provider& provider, const ProviderCallArguments& call,
                     ObjectId* out) {
  // A private database of a process without a server has the base types alone.
  if (database.IsLocal() && database.Types().FindType(kTaskTypeName) == nullptr) {
    ZN_RETURN_IF_FAILED(RegisterMissingSystemTypes(database));
  }
  DBNode* task = nullptr;
  ZN_RETURN_IF_FAILED(database.CreateDBNode(&provider, kTaskTypeName, OBJECT_TASK, &task, nullptr));
  u32 status = ZN_OK;
  try {
    status = task->SetProperties(InitialProperties(provider, call));
  } catch (const std::bad_alloc&) {
    status = ZNE_OUT_OF_MEMORY;
  }
  if (ZN_FAILED(status)) {
    database.DeleteNode(task);
    return status;
  }
  *out = task->Guid();
  return ZN_OK;
}

void DeleteTask(Database& database, const ObjectId& taskId) {
  DeleteUpwards(database, FindTask(database, taskId));
}

void* RememberTask(Database& database, const InternedId& provider, const ObjectId& taskId,
                   TaskCallback callback, void* context) {
  static std::uintptr_t lastToken = 0;  // never 0, never used twice within a table
  do {
    ++lastToken;
  } while (lastToken == 0 || Tasks().contains(lastToken));
  Tasks().emplace(lastToken,
                  RememberedTask{DatabaseRef(database), provider, taskId, callback, context});
  return reinterpret_cast<void*>(lastToken);
}

void ForgetTask(const void* token) noexcept {
  Tasks().erase(reinterpret_cast<std::uintptr_t>(token));
}

void ForgetTasksOf(const InternedId& provider) noexcept {
  std::erase_if(Tasks(), [&](const auto& entry) { return entry.second.provider == provider; });
}

void ForgetAllTasks() noexcept {
  Tasks().clear();
}

size_t RememberedTasks() noexcept {
  return Tasks().size();
}

bool ReportTaskProgress(TaskReport* report) noexcept {
  if (!IsGoodPointer(report)) return false;
  try {
    return Report(*report);
  } catch (...) {
    return false;  // memory is short, or the caller's callback threw
  }
}

}  // namespace zn
