// The stop of the framework while the slots that it runs act on the bus.
#include "framework/common/znapi/framework.h"

#include <memory>

#include "framework/common/zntypeobject/typemanager.h"
#include "tests/unit/framework/bus_fixture.h"

namespace zn::test {

namespace {

using FrameworkStopThreads = BusTest;

TEST_F(FrameworkStopThreads, AStopWithinAStopReturnsAtOnce) {
  const ZnHandle provider = MakeProvider();
  const ObjectId object = MakeObject(provider);
  u32 stops = 0;
  script.shutdown = [&](ZnHandle) {
    ++stops;
    StopFramework(LibraryLife::kGoesOn);
    // The databases stand until the outer stop has unloaded all providers.
    EXPECT_TRUE(ObExists(nullptr, object));
    return ZN_OK;
  };
  StopFramework(LibraryLife::kGoesOn);
  EXPECT_EQ(stops, 1u);
  EXPECT_EQ(ZnGetSystemDatabase(), nullptr);
  EXPECT_TRUE(DatabaseList().empty());
}

TEST_F(FrameworkStopThreads, AProviderThatComesDuringTheStopFindsNoSystemDatabaseAtItsEnd) {
  ZnHandle other = nullptr;
  {
    const BusLock lock;
    auto database = std::make_unique<Database>(0, DatabaseCallbacks{});
    ASSERT_EQ(RegisterBaseObjectTypes(*database), ZN_OK);
    other = database->Handle();
    // In front of the system database: unloaded before it, deleted after it.
    DatabaseList().insert(DatabaseList().begin(), std::move(database));
  }
  MakeProvider();
  u32 shutdowns = 0;
  script.shutdown = [&](ZnHandle database) {
    ++shutdowns;
    if (database != other) {
      MakeProvider(u"late", other);
      return ZN_OK;
    }
    EXPECT_EQ(ZnGetSystemDatabase(), nullptr);
    EXPECT_FALSE(ObExists(nullptr, ObjectId{}));
    return ZN_OK;
  };
  StopFramework(LibraryLife::kGoesOn);
  EXPECT_EQ(shutdowns, 2u);
}

}  // namespace

}  // namespace zn::test
