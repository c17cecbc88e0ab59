// The databases of the process: the list of all but the private ones, which owns them, and the
// system database among them. What is still listed when the process ends stays undestroyed, since
// its providers' libraries may be gone by then.
#include "framework/common/zncore/database.h"

namespace zn {

namespace {

Database* systemDatabase = nullptr;

}  // namespace

Database* ZnGetSystemDatabase() noexcept {
  return systemDatabase;
}

void SetSystemDatabase(Database* database) noexcept {
  systemDatabase = database;
}

std::vector<std::unique_ptr<Database>>& DatabaseList() noexcept {
  static auto& list = *new std::vector<std::unique_ptr<Database>>;
  return list;
}

void CopyTypes(Database& source, Database& target) {
  // A type that cannot be installed is missing in the copy; the others are there.
  for (const PropertySet& form : source.Types().DumpTypeGraph()) {
    static_cast<void>(target.Types().InstallType(form));
  }
}

}  // namespace zn
