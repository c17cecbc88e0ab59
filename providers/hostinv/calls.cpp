// The calls of the provider; see the header.
#include "calls.h"

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "checksum.h"
#include "hostinv.h"
#include "schema.h"
#include "text.h"
#include "zn/znmira.h"

namespace hostinv {
namespace {

constexpr GUID kRefreshInterface = HOSTINV_REFRESH_INTERFACE;
constexpr GUID kFilesInterface = HOSTINV_FILES_INTERFACE;

// One asynchronous call's way to its caller.
class TaskReporter {
 public:
  explicit TaskReporter(const CallArguments& arguments)
      : task_(arguments.task), context_(arguments.context), callback_(arguments.callback) {}

  const ObjectId& Task() const { return task_; }

  // False when the caller wants no more or the task is gone.
  bool Running(u32 percent) const { return Report(TASK_STATE_RUNNING, percent, 0); }
  // Exactly once, the last one: the library deletes the task and frees the context.
  void Finished(u32 percent, u32 result) const { Report(TASK_STATE_FINISHED, percent, result); }

 private:
  bool Report(u32 state, u32 percent, u32 result) const {
    if (callback_ == nullptr) return true;
    TaskReport report{};
    report.result = result;
    report.context = context_;
    report.taskId = task_;
    report.percentComplete = percent;
    report.state = state;
    return callback_(&report);
  }

  ObjectId task_;
  void* context_;
  TaskCallback callback_;
};

void SetName(ZnHandle database, const ObjectId& task, const std::string& name) {
  const PropertySet set;
  PutProperty(set.Handle(), "Name", ToUtf16(name));
  ObSetProperties(database, task, set.Handle());
}

u32 RefreshOrRescan(const CallServices& services, const CallArguments& arguments,
                    Follower::Work work) {
  if (!arguments.asynchronous) return services.follower->RequestAndWait(work);
  const TaskReporter reporter(arguments);
  services.follower->Request(work, [reporter](u32 status) { reporter.Finished(100, status); });
  return 0;
}

u32 Refresh(const CallServices& services, const CallArguments& arguments) {
  return RefreshOrRescan(services, arguments, Follower::Work::kRefresh);
}

u32 Rescan(const CallServices& services, const CallArguments& arguments) {
  return RefreshOrRescan(services, arguments, Follower::Work::kRescan);
}

// The mount point of a file system object of ours. It comes out of the object's key, which has the
// exact bytes; the property has only what is valid text of them.
u32 FindMountPoint(const CallServices& services, const ObjectId& object, std::string* mountPoint) {
  if (!ObExists(services.database, object)) return ZNE_OBJECT_NOT_FOUND;
  if (!ObIsA(services.database, object, kFileSystemType)) return ZNE_NOT_SUPPORTED_FOR_OBJECT;
  void* key = nullptr;
  u32 length = 0;
  const u32 status = ObGetKey(services.database, object, &key, &length);
  if (ZN_FAILED(status)) return status;
  std::string text(static_cast<const char*>(key), length);
  ZnFree(key);
  if (!text.starts_with(kFileSystemPrefix)) return ZNE_NOT_SUPPORTED_FOR_OBJECT;
  *mountPoint = text.substr(sizeof(kFileSystemPrefix) - 1);
  return 0;
}

u32 OpenNamedFile(const CallServices& services, const CallArguments& arguments, std::string* path,
                  Descriptor* file) {
  std::string mountPoint;
  u32 status = FindMountPoint(services, arguments.object, &mountPoint);
  if (ZN_FAILED(status)) return status;
  status = FindText(arguments.in, "Path", path);
  if (ZN_FAILED(status)) return ZNE_INVALID_ARGUMENTS;
  return OpenOnFileSystem(services.root, mountPoint, *path, file);
}

u32 PutChecksum(ZnHandle set, const Checksum& checksum) {
  return PutProperties(set, {{"Algorithm", std::string("SHA-256")},
                             {"Digest", checksum.digest},
                             {"Bytes", checksum.bytes}});
}

// The output of a task: that of the call, and the task's id.
u32 PutTaskOutput(ZnHandle set, const ObjectId& task, const Checksum& checksum) {
  const u32 status = PutId(set, "TaskId", task);
  return ZN_FAILED(status) ? status : PutChecksum(set, checksum);
}

// True once the library has put the output set of the call that started the task onto the task. The
// id tells it from what the caller had left in its set by an earlier call.
bool HasOutput(ZnHandle database, const ObjectId& task) {
  Property2* output = nullptr;
  if (ZN_FAILED(ObGetProperty(database, task, "OutData", &output))) return false;
  ObjectId owner{};
  const u32 status = FindId(static_cast<ZnHandle>(output->Value), "TaskId", &owner);
  PsFreeProperty(output);
  return ZN_SUCCEEDED(status) && ObCompareId(owner, task);
}

// The task lives until the finishing report, so its output must be complete before. The library
// stores the announced one when the call has returned; a digest put there earlier would be lost
// under it, so a job that is faster than the return of its own call waits for that.
u32 StoreOutput(ZnHandle database, const ObjectId& task, const Checksum& checksum,
                const std::atomic<bool>& stop) {
  constexpr int kMostWaits = 10'000;
  for (int i = 0; !HasOutput(database, task); ++i) {
    if (stop || i == kMostWaits) return stop ? ZNE_TASK_STOPPED : ZNE_OPERATION_FAILED;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const PropertySet output;
  u32 status = PutTaskOutput(output.Handle(), task, checksum);
  if (ZN_FAILED(status)) return status;
  const PropertySet properties;
  status = PutProperty(properties.Handle(), "OutData", output);
  if (ZN_FAILED(status)) return status;
  return ObSetProperties(database, task, properties.Handle());
}

void RunChecksum(ZnHandle database, const TaskReporter& reporter, const Descriptor& file,
                 const std::atomic<bool>& stop) {
  std::optional<u32> told;
  const auto progress = [&](u32 percent) {
    if (stop) return false;
    // Told when it grows; the last step is told below, with the output at hand.
    if (percent == 100 || percent == told) return true;
    told = percent;
    return reporter.Running(percent);
  };
  Checksum checksum;
  u32 status = ComputeChecksum(file, progress, &checksum);
  if (ZN_SUCCEEDED(status)) {
    told = 100;
    status = StoreOutput(database, reporter.Task(), checksum, stop);
    if (ZN_SUCCEEDED(status)) reporter.Running(100);
  }
  reporter.Finished(told.value_or(0), status);
}

u32 ComputeNow(const Descriptor& file, ZnHandle out) {
  Checksum checksum;
  const u32 status = ComputeChecksum(
      file, [](u32) { return true; }, &checksum);
  return ZN_FAILED(status) ? status : PutChecksum(out, checksum);
}

u32 ChecksumOfFile(const CallServices& services, const CallArguments& arguments) {
  std::string path;
  // Shared, for a job must be copyable.
  const auto file = std::make_shared<Descriptor>();
  const u32 status = OpenNamedFile(services, arguments, &path, file.get());
  if (ZN_FAILED(status)) return status;
  if (!arguments.asynchronous) return ComputeNow(*file, arguments.out);
  // Announces the output: an empty set on the task would count as equal to any other, and so could
  // never be replaced.
  const u32 announced = PutTaskOutput(arguments.out, arguments.task, Checksum());
  if (ZN_FAILED(announced)) return announced;
  SetName(services.database, arguments.task, "Checksum of " + path);
  // So that Stop can be called on the task itself.
  ObRegisterInterface(services.database, arguments.task, services.provider, &kFilesInterface);
  const TaskReporter reporter(arguments);
  return services.jobs->Start(arguments.task, [database = services.database, reporter,
                                               file](const std::atomic<bool>& stop) {
    RunChecksum(database, reporter, *file, stop);
  });
}

u32 StopTask(const CallServices& services, const CallArguments& arguments) {
  ObjectId task = arguments.object;
  const u32 status = FindId(arguments.in, "TaskId", &task);
  if (ZN_FAILED(status) && status != ZNE_PROPERTY_NOT_FOUND) return status;
  return services.jobs->Stop(task);
}

struct CallRow {
  const GUID* interfaceId;
  u32 majorCode;
  u32 minorCode;
  u32 (*handler)(const CallServices&, const CallArguments&);
};

constexpr CallRow kCalls[] = {
    {&kRefreshInterface, HOSTINV_REFRESH_MAJOR, HOSTINV_REFRESH, Refresh},
    {&kRefreshInterface, HOSTINV_REFRESH_MAJOR, HOSTINV_RESCAN, Rescan},
    {&kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_CHECKSUM, ChecksumOfFile},
    {&kFilesInterface, HOSTINV_FILES_MAJOR, HOSTINV_STOP, StopTask},
};

u32 RegisterOn(ZnHandle database, const char* type, ZnHandle provider, const GUID* interfaceId) {
  const u32 status = ObRegisterInterfaceOnType(database, type, provider, interfaceId);
  return status == ZNE_INTERFACE_EXISTS ? 0 : status;
}

}  // namespace

u32 DispatchCall(const CallServices& services, const CallArguments& arguments) {
  // The nearer a row comes, the better the reason: interface, then major, then minor code.
  u32 refusal = ZNE_INTERFACE_NOT_FOUND;
  for (const CallRow& row : kCalls) {
    if (!ZnCompareGuid(row.interfaceId, &arguments.interfaceId)) continue;
    if (row.majorCode != arguments.majorCode) {
      refusal = ZNE_INVALID_MAJOR_CODE;
      continue;
    }
    if (row.minorCode == arguments.minorCode) return row.handler(services, arguments);
    refusal = ZNE_INVALID_MINOR_CODE;
  }
  return refusal;
}

u32 RegisterInterfaces(ZnHandle database, ZnHandle provider) {
  const u32 status = RegisterOn(database, kHostType, provider, &kRefreshInterface);
  if (ZN_FAILED(status)) return status;
  return RegisterOn(database, kFileSystemType, provider, &kFilesInterface);
}

}  // namespace hostinv
