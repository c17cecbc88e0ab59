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

class DeclarationsTest : public InitializeTest {
 protected:
  // Makes the setting name a document with that in its root.
  void Declare(const std::string& setting, const std::string& content) {
    const std::filesystem::path path = folder_ / (setting + ".xml");
    std::ofstream(path) << "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\">\n"
                        << "<MIRA_FORMALIZATION>\n"
                        << content << "</MIRA_FORMALIZATION>\n";
    root_ += setting + " = '" + path.string() + "'\n";
  }
  [[nodiscard]] std::string Trace() const {
    std::ifstream file(TracePath());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] static bool IsType(const char* name) { return TypeIsA(nullptr, name, name); }
  // Names of the properties that a type declares itself, "*" behind those that are indexed.
  [[nodiscard]] static std::vector<std::string> PropertiesOfType(const char* type) {
    std::vector<std::string> names;
    ZnHandle handle = nullptr;
    EXPECT_EQ(TypeGetTypeProperties(nullptr, type, 0, &handle), ZN_OK);
    const Propset set(handle);
    ZnHandle iterator = nullptr;
    EXPECT_EQ(PsOpenPropset(set.Get(), &iterator), ZN_OK);
    Property2* property = nullptr;
    while (PsFindNextProperty(set.Get(), iterator, &property) == ZN_OK) {
      const bool isIndexed = (property->Flags & ZN_PROPERTY_INDEXED) != 0;
      names.push_back(property->Name + std::string(isIndexed ? "*" : ""));
      static_cast<void>(PsFreeProperty(property));
    }
    static_cast<void>(ZnCloseHandle(iterator));
    return names;
  }
};

constexpr char kTestTypes[] =
    "<OBJECT_TYPE Name=\"Test_Late\"><INHERITS_FROM>Test_Early</INHERITS_FROM><PROPSET/>"
    "</OBJECT_TYPE>\n<OBJECT_TYPE Name=\"Test_Early\"><PROPSET/></OBJECT_TYPE>\n"
    "<OBJECT_TYPE Name=\"KELD_Task\"><PROPSET><PROPERTY Name=\"Note\" Type=\"mira_string\"/>"
    "</PROPSET></OBJECT_TYPE>\n";

TEST_F(DeclarationsTest, AreMadeBeforeTheMissingTypesOfTheBus) {
  Declare("ObjectTypeFile", kTestTypes);
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_TRUE(TypeIsA(nullptr, "Test_Late", "Test_Early"));
  EXPECT_THAT(PropertiesOfType("KELD_Task"), ::testing::ElementsAre("Note"));
  EXPECT_TRUE(IsType("KELD_Extension"));
  EXPECT_TRUE(IsType("KELD_Configlet"));
  const std::string trace = Trace();
  const size_t before = trace.find("ZnAPI:ZnCreateSystemProvider:Creating system object types");
  const size_t declared = trace.find("XML: The OBJECT_TYPE has name Test_Late");
  const size_t after = trace.find("ZnAPI:ZnCreateSystemProvider:System object types created");
  EXPECT_LT(before, declared);
  EXPECT_LT(declared, after);
}

TEST_F(DeclarationsTest, MayBeNamedWithBackslashes) {
  Declare("ObjectTypeFile", kTestTypes);
  const size_t path = root_.rfind(folder_.string());
  std::replace(root_.begin() + static_cast<std::ptrdiff_t>(path), root_.end(), '/', '\\');
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_TRUE(IsType("Test_Late"));
}

TEST_F(DeclarationsTest, WithAFaultAreTracedAndTheStartGoesOn) {
  Declare("ObjectTypeFile", "<OBJECT_TYPE/>");
  AddProvider("alpha");
  ASSERT_EQ(Start(), ZN_OK);
  for (const char* name : {"KELD_Extension", "KELD_Task", "KELD_Configlet"}) {
    EXPECT_TRUE(IsType(name)) << name;
  }
  EXPECT_EQ(Loaded(), "7:alpha,");
  const std::string file = (folder_ / "ObjectTypeFile.xml").string();
  EXPECT_NE(Trace().find("XML: Error at file " + file + ", line 3"), std::string::npos);
  EXPECT_NE(Trace().find("XML: Error while parsing xml file"), std::string::npos);
}

TEST_F(DeclarationsTest, WithoutTheirFileAreTracedAndTheStartGoesOn) {
  root_ += "ObjectTypeFile = \"/nowhere/types.xml\"\nAlertTypeFile = \"/nowhere/alerts.xml\"\n";
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_NE(Trace().find("/nowhere/types.xml"), std::string::npos);
  EXPECT_NE(Trace().find("/nowhere/alerts.xml"), std::string::npos);
}

TEST_F(DeclarationsTest, OfAlertsAreReadBeforeTheProvidersAreLoaded) {
  Declare("AlertTypeFile",
          "<ALERT_TYPE Topic=\"event.alert.test\" Severity=\"INFO\"><ALERT_PARAM><MSG>;1;a</MSG>"
          "<F_CLASS_NAME>;2;b</F_CLASS_NAME><F_ALERT_NAME>;3;c</F_ALERT_NAME><DESC>;4;d</DESC>"
          "<REC_ACTION>;5;e</REC_ACTION><PROPSET/></ALERT_PARAM></ALERT_TYPE>\n");
  ASSERT_EQ(Start(), ZN_OK);
  const std::string trace = Trace();
  const size_t before = trace.find("ZnAPI:ZnInitialize:System provider created");
  const size_t declared = trace.find("XML: The ALERT_TYPE has topic event.alert.test");
  const size_t after = trace.find("ZnAPI:ZnInitialize:Loading registered providers");
  ASSERT_NE(declared, std::string::npos);
  EXPECT_LT(before, declared);
  EXPECT_LT(declared, after);
}

// What is installed beside the sample settings.
TEST_F(DeclarationsTest, OfTheServiceAreGood) {
  root_ += "ObjectTypeFile = \"" ZN_SCHEMAS "/znsvc_types.xml\"\n";
  root_ += "AlertTypeFile = \"" ZN_SCHEMAS "/znsvc_alerts.xml\"\n";
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_THAT(PropertiesOfType("KELD_Extension"),
              ::testing::ElementsAre("FileSize", "Flags", "Id*", "ImageFile", "Locale", "Platform",
                                     "Skin"));
  EXPECT_TRUE(IsType("KELD_Task"));
  EXPECT_TRUE(IsType("KELD_Configlet"));
  EXPECT_EQ(Trace().find("XML: Error"), std::string::npos);
  EXPECT_NE(Trace().find("XML: The ALERT_TYPE has topic event.alert.keld.server.test"),
            std::string::npos);
}

}  // namespace
}  // namespace test
