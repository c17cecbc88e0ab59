// Tasks: the objects that stand for asynchronous provider calls, and the way of a provider's
// reports to the object and to the caller's callback.
//
// A provider gets ReportTaskProgress as its callback and an opaque token as its context. The token
// names an entry of a table that holds the caller's callback and context, so a report that comes
// late, twice or with a made-up context finds nothing instead of freed memory. An entry goes with
// the first "finished" report, a failed call, a report on a task that is gone, and its provider.
//
// A finished task without children is deleted; one with children stays, flagged, until the last of
// them goes. Under FAST_LOCK unless it says otherwise.
#pragma once

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "zn/types.h"

namespace zn {

inline constexpr std::string_view kTaskTypeName = "KELD_Task";

// Makes the task object of a call, in state "created", and writes its id. The failure of the
// object's creation, with nothing left behind.
[[nodiscard]] u32 CreateTaskObject(Database& database, Provider& provider,
                                   const ProviderCallArguments& call, ObjectId* out);
// Deletes a task, and the parents that waited for it. No effect when it is gone.
void DeleteTask(Database& database, const ObjectId& taskId);

// Remembers the caller's callback and context for a task: the token that goes to the provider.
[[nodiscard]] void* RememberTask(Database& database, const InternedId& provider,
                                 const ObjectId& taskId, TaskCallback callback, void* context);
void ForgetTask(const void* token) noexcept;
void ForgetTasksOf(const InternedId& provider) noexcept;
void ForgetAllTasks() noexcept;
[[nodiscard]] size_t RememberedTasks() noexcept;

// What a provider calls for progress, on any of its threads and without the bus lock: updates and
// reaps the task, then calls the caller's callback with the caller's own context and hands its
// answer back. False when the task is gone. The report itself is left as it is.
bool ReportTaskProgress(TaskReport* report) noexcept;

}  // namespace zn
