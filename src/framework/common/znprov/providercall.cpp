// Provider calls: see the header.
#include "framework/common/znprov/providercall.h"

#include <new>
#include <utility>

#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/databaseref.h"
#include "framework/common/znprov/task.h"
#include "framework/common/znwire/messages.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

namespace {

thread_local bool callerTellsChanges = false;

// Holds an update sequence of a database that may be deleted meanwhile. Whose caller tells the
// changes itself has nobody woken for those that the end of the sequence queues; what is queued
// inside the call, which may take long, is not held up.
class SequenceScope {
 public:
  explicit SequenceScope(Database& database) noexcept
      : isQuiet_(std::exchange(callerTellsChanges, false)), database_(database) {
    database.BeginUpdateSequence();
  }
  ~SequenceScope() {
    Database* database = database_.Find();
    if (database == nullptr) return;
    const QuietQueueing quiet(isQuiet_);
    database->EndUpdateSequence();
  }
  SequenceScope(const SequenceScope&) = delete;
  SequenceScope& operator=(const SequenceScope&) = delete;
  [[nodiscard]] Database* Find() const noexcept { return database_.Find(); }

 private:
  const bool isQuiet_;
  DatabaseRef database_;
};

// The task of an asynchronous call, from before the call to its answer.
struct CallTask {
  ObjectId id{};
  const void* token = nullptr;
};

[[nodiscard]] bool IsAsynchronous(const ProviderCallArguments& call) noexcept {
  return (call.flags & ZN_CALL_ASYNCHRONOUS) != 0;
}

void AbandonTask(Database* database, const CallTask& task, u32 status) {
  ForgetTask(task.token);
  DBNode* node = database == nullptr ? nullptr : database->FindCached(task.id);
  if (node == nullptr) return;
  try {
    static_cast<void>(node->SetProperty(Property("Result", Value::UInt32(status))));
    DeleteTask(*database, task.id);
  } catch (const std::bad_alloc&) {
    node = database->FindCached(task.id);
    if (node != nullptr) database->DeleteNode(node);
  }
}

// Sees to it that the parent task is here. On a client copy the lock may be given up for that, and
// the provider be gone afterwards.
[[nodiscard]] u32 FetchParentTask(Database& database, const Provider& provider,
                                  const ObjectId* parent) {
  if (parent == nullptr || IsZeroGuid(*parent)) return ZN_OK;
  const ZnHandle handle = provider.Handle();
  const InternedId id = provider.GetId();  // NOLINT(performance-unnecessary-copy-initialization)
  if (database.FindObject(*parent) == nullptr) {
    ZN_TRACE(3, "ZnAPI:PrCallProvider: Invalid parent task object");
    return ZNE_INVALID_ARGUMENTS;
  }
  const bool isStillHere =
      IsValidHandle(handle, HANDLE_PROVIDER) && HandleThing<Provider>(handle)->GetId() == id;
  return isStillHere ? ZN_OK : ZNE_PROVIDER_REG_NO_PROVIDERS;
}

// Makes the task and turns the call's callback and context into those the provider gets. The parent
// is here.
[[nodiscard]] u32 SetUpTask(Database& database, Provider& provider, ObjectId* parentAndTask,
                            ProviderCallArguments* call, CallTask* task) {
  DBNode* parent = parentAndTask == nullptr ? nullptr : database.FindCached(*parentAndTask);
  ZN_RETURN_IF_FAILED(CreateTaskObject(database, provider, *call, &task->id));
  if (parent != nullptr) static_cast<void>(parent->AddChild(InternedId(task->id)));
  if (parentAndTask != nullptr) *parentAndTask = task->id;
  call->context = RememberTask(database, provider.GetId(), task->id, call->callback, call->context);
  call->callback = &ReportTaskProgress;
  task->token = call->context;
  return ZN_OK;
}

// Puts the output into the task and tells of it. SetProperty would not do: it compares sets from
// one side, so the empty set of the start counts as equal to every output.
void ReplaceOutput(Database& database, DBNode& task, const PropertySet& output) {
  const Value* present = task.Properties().FindValue("OutData", ZN_TYPE_PROPSET);
  const bool isSame =
      present != nullptr && present->AsSet().Equals(output) && output.Equals(present->AsSet());
  if (isSame) return;
  PropertySet all(task.Properties());
  all.Put("OutData", Value::Set(PropertySet(output)));
  task.ReplaceProperties(all);
  if (task.IsHidden()) return;
  database.NotifyChange(kDataChanged, task.GetId(), task, EVENT_LOCAL | EVENT_REMOTE);
}

// The provider may have destroyed the set, and the task may be over already.
void StoreOutput(Database* database, const CallTask& task, ZnHandle out) {
  DBNode* node = database == nullptr ? nullptr : database->FindCached(task.id);
  if (node == nullptr || !IsValidHandle(out, HANDLE_PROPSET)) return;
  ReplaceOutput(*database, *node, *HandleThing<PropertySet>(out));
}

[[nodiscard]] u32 CallAsynchronously(const SequenceScope& sequence, Provider& provider,
                                     ProviderCallArguments call, ObjectId* taskResult,
                                     ZnHandle* answering) {
  CallTask task;
  u32 status = ZN_OK;
  try {
    status = FetchParentTask(*sequence.Find(), provider, taskResult);
    if (ZN_FAILED(status)) return status;
    status = SetUpTask(*sequence.Find(), provider, taskResult, &call, &task);
    if (!ZN_FAILED(status)) status = provider.Call(call, task.id, answering);
    if (!ZN_FAILED(status)) StoreOutput(sequence.Find(), task, call.out);
  } catch (const std::bad_alloc&) {  // the task may be half made
    status = ZNE_OUT_OF_MEMORY;
  }
  if (ZN_FAILED(status)) AbandonTask(sequence.Find(), task, status);
  return status;
}

}  // namespace

CallerTellsChanges::CallerTellsChanges() noexcept {
  callerTellsChanges = true;
}

CallerTellsChanges::~CallerTellsChanges() {
  callerTellsChanges = false;
}

Database* DatabaseOfCall(const Provider& provider) noexcept {
  Database* system = ZnGetSystemDatabase();
  const bool isClientCopy = !provider.GetDatabase().IsLocal();
  if (system != nullptr && !isClientCopy) return system;
  if ((provider.GetFlags() & OBJECT_CLIENT_LOCAL) == 0) {
    ZN_TRACE(3, "ZnAPI:PrCallProvider: Client database with non-client provider");
    return nullptr;
  }
  if (system != nullptr) return system;
  if (!IsValidHandle(provider.GetDatabase().Handle(), HANDLE_DATABASE)) {
    ZN_TRACE(3, "ZnAPI:PrCallProvider: Unable to get database from hProvider");
    return nullptr;
  }
  return &provider.GetDatabase();
}

u32 CallProvider(Database& database, Provider& provider, const ProviderCallArguments& call,
                 const ProviderCallResults& results) {
  const InternedId called = provider.GetId();
  const bool isAsynchronous = IsAsynchronous(call);
  ZnHandle answering = nullptr;
  u32 status = ZN_OK;
  {
    const SequenceScope sequence(database);
    status = isAsynchronous ? CallAsynchronously(sequence, provider, call, results.task, &answering)
                            : provider.Call(call, ObjectId{}, &answering);
  }
  if (ZN_FAILED(status)) {
    *results.provider = ObjectId{};
    if (isAsynchronous && results.task != nullptr) *results.task = ObjectId{};
    return status;
  }
  const bool another = IsValidHandle(answering, HANDLE_PROVIDER);
  *results.provider = (another ? HandleThing<Provider>(answering)->GetId() : called).Value();
  return status;
}

u32 ForwardProviderCall(Database& database, const ProviderCallArguments& call,
                        const ProviderCallResults& results) {
  PropertySet request;
  // In the order of the names, so that each goes to the end.
  request.Put(wire::kDataKey, Value::Set(PropertySet(*HandleThing<PropertySet>(call.in))));
  request.Put(wire::kFlagsKey, Value::UInt32(call.flags));
  request.Put(wire::kInterfaceIdKey, Value::Guid(*call.interfaceId));
  request.Put(wire::kMajorCodeKey, Value::UInt32(call.majorCode));
  request.Put(wire::kMinorCodeKey, Value::UInt32(call.minorCode));
  request.Put(wire::kObjectIdKey, Value::Id(call.object));
  request.Put(wire::kReservedKey, Value::UInt32(call.reserved));
  // Only an asynchronous call has a place for its task.
  ObjectId* const task = IsAsynchronous(call) ? results.task : nullptr;
  PropertySet output(*HandleThing<PropertySet>(call.out));
  const DatabaseCallbacks& callbacks = database.Callbacks();
  u32 status = ZN_OK;
  {
    const Database::Pin pin(database);
    const BusRelease release;
    status =
        callbacks.forwardProviderCall(request, results.provider, task, &output, callbacks.context);
  }
  // The caller's set may have been destroyed while the connection was waited for.
  if (IsValidHandle(call.out, HANDLE_PROPSET)) {
    HandleThing<PropertySet>(call.out)->Swap(output);
  }
  // A server that has gone has answered nothing.
  if (ZN_FAILED(status)) {
    *results.provider = ObjectId{};
    if (task != nullptr) *task = ObjectId{};
  }
  return status;
}

}  // namespace zn
