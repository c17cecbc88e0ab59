// A provider call around the guarded section: its update sequence, its task when it is
// asynchronous, its results. And the dispatch of a call from an object and an interface to the
// provider, or to the server of a client copy. Under FAST_LOCK, which every call gives up: nothing
// found before it is good after it.
#pragma once

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "zn/types.h"

namespace zn {

// Where the caller wants the answers. For an asynchronous call `task` may be null, and names the
// parent task (or the zero id) on the way in; for any other it is not touched.
struct ProviderCallResults {
  ObjectId* provider;
  ObjectId* task;
};

// Calls the provider. `database` holds the tasks and is told the changes as one sequence. Success
// stores who answered and the task; a failure stores zero ids and leaves no task.
// ZNE_INVALID_ARGUMENTS for a parent task that does not exist, the failure of the task's creation,
// the statuses of Provider::Call and whatever the provider answers.
[[nodiscard]] u32 CallProvider(Database& database, Provider& provider,
                               const ProviderCallArguments& call,
                               const ProviderCallResults& results);

// Stands around a call whose caller tells the changes of the call itself, as soon as the call has
// returned (TellChangesHere). It serves the first call on its thread; what a provider calls in turn
// has other callers.
class CallerTellsChanges {
 public:
  CallerTellsChanges() noexcept;
  ~CallerTellsChanges();
  CallerTellsChanges(const CallerTellsChanges&) = delete;
  CallerTellsChanges& operator=(const CallerTellsChanges&) = delete;
};

// The database that a call of this provider belongs to, or null with its trace: the system database
// where there is one; else only a provider of the client's own can be called here.
[[nodiscard]] Database* DatabaseOfCall(const Provider& provider) noexcept;

// Sends the call to the server of a client copy. The status of the connection or of the call.
[[nodiscard]] u32 ForwardProviderCall(Database& database, const ProviderCallArguments& call,
                                      const ProviderCallResults& results);

}  // namespace zn
