// Loading: where the image and the entry point come from, what becomes of the values of the
// settings, what a loaded provider looks like.
#include "server.h"

namespace test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;

using Loading = ServerTest;

TEST_F(Loading, TheImageIsNamedAfterTheProviderByDefault) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:plain,");
  EXPECT_EQ(Failed(), "7:");
  EXPECT_THAT(Log(), IsSupersetOf({"plain entry", "plain initialize"}));
}

TEST_F(Loading, TheImageMayBeAnyPath) {
  AddEntry("elsewhere", std::string("ImageFile = \"") + ZN_TEST_PLUGIN + "\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:elsewhere,");
}

TEST_F(Loading, ABackslashSeparatesFoldersOfAnImage) {
  AddProvider("plain", "ImageFile = '" + folder_.string() + R"(\providers\libplain.so')");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:plain,");
}

TEST_F(Loading, AMissingImageFailsWithItsTrace) {
  AddEntry("nowhere", "ImageFile = \"/no/such/library\"");
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:plain,");
  EXPECT_EQ(Failed(), "7:nowhere,");
  EXPECT_TRUE(HasTraced("Error in loading provider /no/such/library : "));
}

TEST_F(Loading, ADamagedImageFails) {
  AddEntry("damaged", "");
  std::ofstream(Image("damaged")) << "no library";
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Failed(), "7:damaged,");
  EXPECT_TRUE(HasTraced("Error in loading provider damaged : "));
}

TEST_F(Loading, TheEntryPointMayHaveAnotherName) {
  AddProvider("plain", "ProviderEntry = \"OtherEntry\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:plain,");
  EXPECT_TRUE(HasLogged("plain other entry"));
}

TEST_F(Loading, ALibraryWithoutItsEntryPointFails) {
  AddEntry("empty", std::string("ImageFile = \"") + ZN_TEST_NO_ENTRY + "\"");
  AddProvider("plain", "ProviderEntry = \"NoSuchEntry\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Failed(), "7:empty,plain,");
  EXPECT_TRUE(Log().empty());
}

TEST_F(Loading, OtherValuesBecomePropertiesOfTheProvider) {
  AddProvider("plain",
              "Period = 2000\nRoot = \"/somewhere\"\nList = [\"a\", \"b\"]\n"
              "Bytes = { binary = \"0102\" }\nImageFile = \"plain\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(PropertyOf(u"plain", "Period"), "3:2000");
  EXPECT_EQ(PropertyOf(u"plain", "Root"), "6:/somewhere");
  EXPECT_EQ(PropertyOf(u"plain", "ImageFile"), "6:plain");
  EXPECT_EQ(PropertyOf(u"plain", "List"), "none");
  EXPECT_EQ(PropertyOf(u"plain", "Bytes"), "none");
}

TEST_F(Loading, AValueWithTheNameOfAnotherPropertyCostsItselfAlone) {
  AddProvider("plain", "VERSION = 7\nZ = 8");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(PropertyOf(u"plain", "VERSION"), "7:1.2.3");
  EXPECT_EQ(PropertyOf(u"plain", "Z"), "3:8");
  EXPECT_EQ(Failed(), "7:");
}

TEST_F(Loading, TheVersionIsAPropertyWhenThereIsOne) {
  AddProvider("plain");
  AddProvider("without", "Behaviour = \"no-version\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(PropertyOf(u"plain", "VERSION"), "7:1.2.3");
  EXPECT_EQ(PropertyOf(u"without", "VERSION"), "none");
}

TEST_F(Loading, ConfigletsAreObjectsOfTheProvider) {
  AddProvider("plain", "CONFIGLETS = \"disks; network;;\"");
  ASSERT_EQ(Start(), ZN_OK);
  std::vector<std::string> names;
  for (const ObjectId& id : ObjectsOfType("KELD_Configlet")) {
    names.push_back(PropertyOf(id, "Name"));
    ZnHandle creator = nullptr;
    EXPECT_EQ(ObGetProviderForObject(nullptr, id, &creator), ZN_OK);
    EXPECT_EQ(creator, ProviderNamed(u"plain"));
  }
  EXPECT_THAT(names, UnorderedElementsAre("7:disks", "7:network"));
}

TEST_F(Loading, AListOfConfigletsHas256BytesAtMost) {
  AddProvider("fits", "CONFIGLETS = \"" + std::string(127, 'f') + "\"");
  AddProvider("exceeds", "CONFIGLETS = \"" + std::string(128, 'e') + "\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:exceeds,fits,");
  const std::vector<ObjectId> configlets = ObjectsOfType("KELD_Configlet");
  ASSERT_EQ(configlets.size(), 1u);
  EXPECT_EQ(PropertyOf(configlets[0], "Name"), "7:" + std::string(127, 'f'));
}

TEST_F(Loading, EachProviderAnnouncesItself) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  DeliverAll();
  char* id = nullptr;
  ASSERT_EQ(ObIdToString(IdOf(u"plain"), &id), ZN_OK);
  const std::string topic = "event.keld.dom.provider." + std::string(id) + ".loaded";
  ZnFree(id);
  const std::string last = "event.keld.dom.initialization.lastphase.complete";
  const std::vector<std::string> heard = heardTopics.Get();
  EXPECT_THAT(heard, Contains(topic));
  EXPECT_THAT(heard, Contains(last));
  EXPECT_TRUE(HasLogged("plain event " + topic));
  EXPECT_TRUE(HasLogged("plain event " + last));
}

TEST_F(Loading, TheStartItselfRaisesNoChangesAndTheTimeAfterItDoes) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  DeliverAll();
  for (const std::string& line : Log()) {
    EXPECT_EQ(line.find("event.keld.dom.object"), std::string::npos) << line;
  }
  ObjectId id{};
  DeliverWith(
      [&] {
        EXPECT_EQ(ObCreateObject(nullptr, ProviderNamed(u"plain"), "KELD_Object", &id), ZN_OK);
      },
      ".object.add.");
  DeliverAll();
  char* text = nullptr;
  ASSERT_EQ(ObIdToString(id, &text), ZN_OK);
  EXPECT_TRUE(
      HasLogged("plain event event.keld.dom.object.KELD_Object.object.add." + std::string(text)));
  ZnFree(text);
}

TEST_F(Loading, ProvidersLoadInTheOrderOfTheirNames) {
  AddProvider("Charlie");
  AddProvider("bravo");
  AddProvider("alpha");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_THAT(WhoLogged("initialize"), ElementsAre("alpha", "bravo", "Charlie"));
  EXPECT_EQ(Loaded(), "7:alpha,bravo,Charlie,");
}

TEST_F(Loading, TwoProvidersMayShareALibrary) {
  AddProvider("first");
  AddEntry("second", "ImageFile = \"first\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:first,second,");
}

TEST_F(Loading, AGroupOfProvidersHasThemAsChildren) {
  root_ += "[Groups.Makers]\nContains = \"KELD_Provider\"\n";
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  std::vector<ObjectId> makers;
  for (const ObjectId& id : ObjectsOfType("KELD_GenericGroup")) {
    if (PropertyOf(id, "Name") == "7:Makers") makers.push_back(id);
  }
  ASSERT_EQ(makers.size(), 1u);
  u32 count = 0;
  ObjectId* children = nullptr;
  ASSERT_EQ(ObGetChildObjects(nullptr, makers[0], nullptr, &count, &children), ZN_OK);
  ASSERT_EQ(count, 1u);
  EXPECT_TRUE(Same(children[0], IdOf(u"plain")));
  ZnFree(children);
}

TEST_F(Loading, ACallReachesThePluginAndComesBack) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  Propset in;
  Propset out;
  in.Put("Number", 42);
  ObjectId answered{};
  ASSERT_EQ(PrCallDispatch(nullptr, ObjectOf(u"plain"), &kPluginInterface, 1, 1, in.Get(),
                           out.Get(), 0, 0, nullptr, nullptr, &answered, nullptr),
            ZN_OK);
  EXPECT_TRUE(Same(answered, IdOf(u"plain")));
  Property2* number = nullptr;
  ASSERT_EQ(PsFindProperty(out.Get(), "Number", &number), ZN_OK);
  EXPECT_EQ(PsFreeProperty(number), ZN_OK);
  const auto call = [&](u32 major, u32 minor) {
    return PrCallDispatch(nullptr, ObjectOf(u"plain"), &kPluginInterface, major, minor, in.Get(),
                          out.Get(), 0, 0, nullptr, nullptr, &answered, nullptr);
  };
  EXPECT_EQ(call(2, 1), ZNE_INVALID_MAJOR_CODE);
  EXPECT_EQ(call(1, 99), ZNE_INVALID_MINOR_CODE);
}

// What the caller of an asynchronous call hears.
struct Heard {
  std::vector<u32> percents;
  Signal over;
};
bool Follow(TaskReport* report) {
  auto& heard = *static_cast<Heard*>(report->context);
  heard.percents.push_back(report->percentComplete);
  if (report->state == TASK_STATE_FINISHED) heard.over.Set();
  return true;
}

// A task of the plug-in, which waits at a quarter until it may go on.
struct HeldTask {
  void Begin(const ObjectId& object) {
    in.Put("Started", started.Address());
    in.Put("GoOn", goOn.Address());
    ObjectId answered{};
    ASSERT_EQ(PrCallDispatch(nullptr, object, &kPluginInterface, 1, 3, in.Get(), out.Get(),
                             ZN_CALL_ASYNCHRONOUS, 0, &heard, &Follow, &answered, &id),
              ZN_OK);
    ASSERT_TRUE(started.Wait());
  }

  Signal started;
  Signal goOn;
  Heard heard;
  Propset in;
  Propset out;
  ObjectId id{};
};

using LoadingThreads = ServerTest;

TEST_F(LoadingThreads, ATaskOfAPluginReportsItsProgress) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  HeldTask task;
  ASSERT_NO_FATAL_FAILURE(task.Begin(ObjectOf(u"plain")));
  EXPECT_EQ(PropertyOf(task.id, "PercentComplete"), "3:25");
  EXPECT_EQ(PropertyOf(task.id, "State"), "3:3");
  task.goOn.Set();
  ASSERT_TRUE(task.heard.over.Wait());
  EXPECT_FALSE(ObExists(nullptr, task.id));
  EXPECT_THAT(task.heard.percents, ElementsAre(25, 75, 100));
}

TEST_F(LoadingThreads, ADeletedTaskStopsThePlugin) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  HeldTask task;
  ASSERT_NO_FATAL_FAILURE(task.Begin(ObjectOf(u"plain")));
  ASSERT_EQ(ObDeleteObject(nullptr, task.id), ZN_OK);
  task.goOn.Set();
  ASSERT_EQ(ShutdownServer(), ZN_OK);  // joins the plug-in's thread
  EXPECT_TRUE(HasLogged("plain stopped"));
  EXPECT_THAT(task.heard.percents, ElementsAre(25));
}

TEST_F(LoadingThreads, ARefreshReachesEveryPluginThatTakesPart) {
  AddProvider("alpha");
  AddProvider("bravo", "Behaviour = \"throw-call\"");
  AddProvider("charlie");
  ASSERT_EQ(Start(), ZN_OK);
  const ObjectId group = ObjectsOfType("KELD_SystemGroup").at(0);
  Heard heard;
  Propset in;
  Propset out;
  ObjectId answered{};
  ObjectId task{};
  ASSERT_EQ(PrCallDispatch(nullptr, group, &kRefreshInterface, 0, 2, in.Get(), out.Get(),
                           ZN_CALL_ASYNCHRONOUS, 0, &heard, &Follow, &answered, &task),
            ZN_OK);
  ASSERT_TRUE(heard.over.Wait());
  EXPECT_THAT(heard.percents, ElementsAre(0, 0, 25, 50, 75, 100));
  EXPECT_THAT(WhoLogged("refresh 2"), ElementsAre("alpha", "charlie"));
}

}  // namespace
}  // namespace test
