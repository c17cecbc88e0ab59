// ZnInitialize: its arguments, the order of its steps, its failures.
#include "server.h"

namespace test {
namespace {

class InitializeTest : public ServerTest {
 protected:
  u32 Initialize(u32 flags, ZnChangeCallback change) {
    isStarted_ = true;
    return ZnInitialize(flags, change, nullptr, &database_);
  }
};

TEST_F(InitializeTest, RefusesOtherFlagsAndAMissingCallback) {
  WriteSettings();
  database_ = reinterpret_cast<ZnHandle>(5);
  EXPECT_EQ(Initialize(2, &IgnoreChange), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Initialize(3, &IgnoreChange), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Initialize(0x80000000, &IgnoreChange), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Initialize(1, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnInitialize(1, &IgnoreChange, nullptr, reinterpret_cast<ZnHandle*>(16)),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(database_, reinterpret_cast<ZnHandle>(5));
}

TEST_F(InitializeTest, WithoutTheServerFlagGivesTheDatabaseThatStands) {
  WriteSettings();
  database_ = reinterpret_cast<ZnHandle>(5);
  EXPECT_EQ(Initialize(0, nullptr), ZN_OK);
  EXPECT_EQ(database_, nullptr);
  EXPECT_EQ(ZnInitialize(0, nullptr, nullptr, nullptr), ZN_OK);
  ASSERT_EQ(Initialize(1, &IgnoreChange), ZN_OK);
  ZnHandle again = nullptr;
  EXPECT_EQ(ZnInitialize(0, nullptr, nullptr, &again), ZN_OK);
  EXPECT_NE(again, nullptr);
  EXPECT_EQ(again, database_);
}

TEST_F(InitializeTest, NeedsNoPlaceForTheHandle) {
  WriteSettings();
  isStarted_ = true;
  EXPECT_EQ(ZnInitialize(1, &IgnoreChange, nullptr, nullptr), ZN_OK);
  EXPECT_NE(ProviderNamed(u"system"), nullptr);
}

TEST_F(InitializeTest, TracesItsSteps) {
  ASSERT_EQ(Start(), ZN_OK);
  size_t at = 0;
  std::ifstream file(TracePath());
  const std::string trace((std::istreambuf_iterator<char>(file)), {});
  for (const char* step :
       {"ZnAPI:ZnInitialize:System database created", "ZnAPI:ZnInitialize:Creating system provider",
        "ZnAPI:ZnCreateSystemProvider:Creating system object types",
        "ZnAPI:ZnCreateSystemProvider:System object types created",
        "ZnAPI:ZnInitialize:System provider created",
        "ZnAPI:ZnInitialize:Creating extension objects",
        "ZnAPI:ZnInitialize:Extension objects created", "Exiting FormalizeAlertType(0)",
        "ZnAPI:ZnInitialize:Loading registered providers",
        "ZnAPI:ZnInitialize:Provider loading complete"}) {
    const size_t found = trace.find(step, at);
    ASSERT_NE(found, std::string::npos) << step;
    at = found;
  }
}

TEST_F(InitializeTest, WithoutAnInstallDirFailsAfterTheProvidersWereLoaded) {
  root_.clear();
  AddProvider("alpha", "ImageFile = \"" + Image("alpha").string() + "\"");
  EXPECT_EQ(Start(), ZNE_UNEXPECTED);
  EXPECT_EQ(Loaded(), "7:alpha,");
  EXPECT_NE(database_, nullptr);
}

TEST_F(InitializeTest, ASecondTimeFailsAndChangesNothing) {
  AddProvider("alpha");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(ZnInitialize(1, &IgnoreChange, nullptr, nullptr), ZNE_UNEXPECTED);
  EXPECT_EQ(Loaded(), "7:alpha,");
  EXPECT_NE(ProviderNamed(u"alpha"), nullptr);
}

TEST_F(InitializeTest, ReadsTheServerFlags) {
  root_ += "Flags = 17\n";
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(ZnGetServerFlags(), 17u);
  EXPECT_EQ(ZnSetServerFlags(4), 17u);
}

TEST_F(InitializeTest, MissingFlagsAreZero) {
  static_cast<void>(ZnSetServerFlags(9));
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(ZnGetServerFlags(), 0u);
}

TEST_F(InitializeTest, StartsTheEventThreads) {
  ASSERT_EQ(Start(), ZN_OK);
  DeliverAll();
  EXPECT_THAT(heardTopics.Get(),
              ::testing::Contains("event.keld.dom.initialization.lastphase.complete"));
}

TEST_F(InitializeTest, MakesTheExtensionObjectsOfTheSettings) {
  std::ofstream(folder_ / "catalog.txt") << "1=x\n";
  root_ +=
      "[MessageCatalogs.\"{8BCC2DF0-62CF-11D4-80C5-00C04FBCEFDD}\".MiraSkin.1.1031]\n"
      "ImageFile = \"" +
      (folder_ / "catalog.txt").string() + "\"\n";
  ASSERT_EQ(Start(), ZN_OK) << "the other key is missing, which stops nothing";
  ASSERT_EQ(ObjectsOfType("KELD_Extension").size(), 1u);
  ZnWChar* text = nullptr;
  ASSERT_EQ(i18nGetLocalizedString(nullptr, nullptr, 1, 1031, nullptr, 0, &text), ZN_OK);
  EXPECT_EQ(Narrow(text), "x");
  ZnFree(text);
}

TEST_F(InitializeTest, PublishesTheServersAlertsBeforeTheProvidersLoad) {
  AddProvider("alpha");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(ObjectsOfType("KELD_SystemAlerts").size(), 2u);
  const ZnHandle system = ProviderNamed(u"system");
  EXPECT_EQ(ObRaiseAlert(nullptr, system, "event.alert.keld.server.start", nullptr, nullptr),
            ZN_OK);
  DeliverAll();
  EXPECT_THAT(heardTopics.Get(), ::testing::Contains("event.alert.keld.server.start"));
  std::ifstream file(TracePath());
  const std::string trace((std::istreambuf_iterator<char>(file)), {});
  EXPECT_LT(trace.find("Exiting FormalizeAlertType(0)"),
            trace.find("ZnAPI:ZnInitialize:Loading registered providers"));
}

TEST_F(InitializeTest, MakesTheGroupsOfTheSettings) {
  root_ += "[Groups.Shelf]\nContains = \"KELD_Configlet\"\nDisplayName = \"The shelf\"\n";
  AddProvider("alpha", "CONFIGLETS = \"one\"");
  ASSERT_EQ(Start(), ZN_OK);
  std::vector<std::string> names;
  for (const ObjectId& id : ObjectsOfType("KELD_GenericGroup")) {
    names.push_back(PropertyOf(id, "Name"));
    u32 count = 0;
    ObjectId* children = nullptr;
    EXPECT_EQ(ObGetChildObjects(nullptr, id, "KELD_Configlet", &count, &children), ZN_OK);
    EXPECT_EQ(count, 1u);
    ZnFree(children);
  }
  EXPECT_THAT(names, ::testing::ElementsAre("7:The shelf"));
}

}  // namespace
}  // namespace test
