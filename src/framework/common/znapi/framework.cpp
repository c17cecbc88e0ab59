// Start and stop of the framework: see the header.
#include "framework/common/znapi/framework.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "framework/common/zncore/clientcopy.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/systemprovider.h"
#include "framework/common/znprov/task.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "zn/platform.h"

namespace zn {

bool StartFramework(u32 parameter) noexcept {
  const BusLock lock;
  if (EventThreadsRunning()) return true;
  ZnSetLocale();
  return StartEventThreads(parameter);
}

namespace {

// Under FAST_LOCK, which a stop releases around the slots that it runs.
constinit bool isStopping = false;

// Each once. The lock is released around each Shutdown: databases may go meanwhile, and others
// come.
void UnloadAllProviders() noexcept {
  std::vector<InternedId> done;
  for (;;) {
    const auto& list = DatabaseList();
    const auto next = std::find_if(list.begin(), list.end(), [&](const auto& database) {
      return std::find(done.begin(), done.end(), database->GetId()) == done.end();
    });
    if (next == list.end()) return;
    done.push_back((*next)->GetId());
    UnloadProvidersOf(DatabaseRef(**next));
  }
}

void DeleteAllDatabases() noexcept {
  while (!DatabaseList().empty()) {
    std::unique_ptr<Database> database = std::move(DatabaseList().back());
    DatabaseList().pop_back();
    const bool isSystem = database.get() == ZnGetSystemDatabase();
    database.reset();
    // At once: the end of the next database may release the lock.
    if (isSystem) SetSystemDatabase(nullptr);
  }
}

}  // namespace

void StopFramework(LibraryLife life) noexcept {
  const BusLock lock;
  if (std::exchange(isStopping, true)) return;
  StopRefreshThread();
  StopEventThreads();
  UnloadAllProviders();
  ForgetAllTasks();
  if (life == LibraryLife::kEnds) libraryAlive.fetch_and(~1u);
  DeleteAllDatabases();
  isStopping = false;
}

}  // namespace zn
