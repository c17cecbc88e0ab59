// Loading into a database of the test, below the exports.
#include "framework/common/znprov/loader.h"

#include <gmock/gmock.h>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "support/common/fastlock.h"
#include "tests/unit/framework/trace_capture.h"
#include "tests/unit/support/temporary.h"
#include "zn/status.h"

namespace zn::test {
namespace {

using testing::ElementsAre;

// A start makes the type of configlets before it loads anything; the database here lacks it.
TEST(ProviderLoader, SaysThatAConfigletCannotBeMadeAndLoadsTheProvider) {
  TemporarySettings settings;
  settings.Write("[ProviderGroup]\n[Providers.plain]\nImageFile = '" ZN_TEST_BARE
                 "'\nProviderEntry = 'PlainEntry'\nCONFIGLETS = 'one;two'\n");
  const BusLock lock;
  Database database(DB_KEYED, {});
  ASSERT_EQ(RegisterBaseObjectTypes(database), ZN_OK);
  const TraceCapture trace(6);
  EXPECT_EQ(LoadRegisteredProviders(database, 0), ZN_OK);
  EXPECT_THAT(trace.Messages(), ElementsAre("Failed to create configlet object",
                                            "Failed to create configlet object"));
  EXPECT_NE(database.FindProviderByName(u"plain"), nullptr);
}

}  // namespace
}  // namespace zn::test
