// Start and stop of the framework: see the header.
#include "framework/common/znapi/framework.h"

#include <memory>
#include <utility>

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

// By index: the lock is released around each Shutdown, and a client's database may come meanwhile.
void UnloadAllProviders() noexcept {
  for (size_t i = 0; i < DatabaseList().size(); ++i) DatabaseList()[i]->UnloadProviders();
}

void DeleteAllDatabases() noexcept {
  while (!DatabaseList().empty()) {
    const std::unique_ptr<Database> database = std::move(DatabaseList().back());
    DatabaseList().pop_back();
  }
  SetSystemDatabase(nullptr);
}

}  // namespace

void StopFramework(LibraryLife life) noexcept {
  const BusLock lock;
  StopRefreshThread();
  StopEventThreads();
  UnloadAllProviders();
  ForgetAllTasks();
  if (life == LibraryLife::kEnds) libraryAlive.fetch_and(~1u);
  DeleteAllDatabases();
}

}  // namespace zn
