#include "framework/common/znalert/alert.h"

#include <ctime>
#include <set>

#include "framework/common/znpropset/i18nvalue.h"
#include "support/common/status.h"
#include "tests/unit/framework/api_frame.h"
#include "tests/unit/framework/event_fixture.h"
#include "tests/unit/framework/sets.h"
#include "zn/alert.h"
#include "zn/memory.h"
#include "zn/ps.h"

namespace zn::test {
namespace {

constexpr GUID kCatalog = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
constexpr const char* kTopic = "event.alert.test.one";

// A descriptor with texts of its own; what a test changes is seen at the next Get().
struct TestAlert {
  std::string message = "Disk %1 is %2 percent full.";
  std::string action = "Clean %1 up.";
  AlertDescriptor descriptor{kTopic, 3, 2, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
  I18nString messageText{};
  I18nString classification{kCatalog, 3, const_cast<char*>("class")};
  I18nString friendlyName{kCatalog, 2, const_cast<char*>("Disk full")};
  I18nString description{kCatalog, 4, const_cast<char*>("A disk is full.")};
  I18nString actionText{};

  TestAlert() {
    descriptor.message = &messageText;
    descriptor.classification = &classification;
    descriptor.friendlyName = &friendlyName;
    descriptor.description = &description;
    descriptor.recommendedAction = &actionText;
  }
  TestAlert(const TestAlert&) = delete;
  TestAlert& operator=(const TestAlert&) = delete;

  const AlertDescriptor* Get() {
    messageText = {kCatalog, 1, message.data()};
    actionText = {kCatalog, 5, action.data()};
    return &descriptor;
  }
};

// An owned set that a test fills.
class TestSet {
 public:
  TestSet() : handle_(WrapPropertySet(PropertySet())) {}
  ~TestSet() { static_cast<void>(PsDestroyPropset(handle_)); }
  TestSet(const TestSet&) = delete;
  TestSet& operator=(const TestSet&) = delete;
  [[nodiscard]] ZnHandle Get() const { return handle_; }
  TestSet& Put(const char* name, Value value) {
    HandleThing<PropertySet>(handle_)->Put(name, std::move(value));
    return *this;
  }

 private:
  ZnHandle handle_;
};

class AlertTest : public EventTest {
 protected:
  u32 Publish() { return ObPublishAlert(nullptr, first_->Handle(), alert_.Get()); }
  u32 Raise(const TestSet* insertions, const TestSet* user = nullptr) {
    return ObRaiseAlert(nullptr, first_->Handle(), kTopic,
                        insertions == nullptr ? nullptr : insertions->Get(),
                        user == nullptr ? nullptr : user->Get());
  }
  // Insertions that the alert as it is made takes.
  static void FillInsertions(TestSet* set) {
    set->Put("AlertMsg1", Value::Text("sda"))
        .Put("AlertMsg2", Value::WideText(u"97"))
        .Put("RecommendedAction1", Value::Text("sda"));
  }
  [[nodiscard]] std::vector<ObjectId> Alerts() const {
    const BusLock lock;
    std::vector<ObjectId> ids;
    static_cast<void>(database_->GetObjectsOfType(kAlertTypeName, &ids));
    return ids;
  }
  // The set of that name of the published alert.
  [[nodiscard]] PropertySet SetOf(const char* name) const {
    const BusLock lock;
    const DBNode* node = FindAlert(*database_, kTopic);
    if (node == nullptr) return {};
    const Value* value = node->Properties().FindValue(name, ZN_TYPE_PROPSET);
    return value == nullptr ? PropertySet() : value->AsSet();
  }
  // Takes a text from the object of the published alert.
  void DeleteText(const char* name) {
    const BusLock lock;
    DBNode* node = FindAlert(*database_, kTopic);
    PropertySet generic =
        node->Properties().FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
    ASSERT_EQ(generic.Delete(name), ZN_OK);
    ASSERT_EQ(node->DeleteProperty("GenericAlertPropset"), ZN_OK);
    ASSERT_EQ(node->SetProperty(Property("GenericAlertPropset", Value::Set(std::move(generic)))),
              ZN_OK);
  }
  [[nodiscard]] bool HasUserSet() const {
    const BusLock lock;
    return FindAlert(*database_, kTopic)->HasProperty("UserDefinedPropset");
  }
  // What the event of the next raise carries.
  PropertySet RaisedData(const TestSet* insertions, const TestSet* user = nullptr) {
    heard.Clear();
    const ZnHandle registration = Register(first_, "event.alert");
    EXPECT_EQ(Raise(insertions, user), ZN_OK);
    const std::vector<Heard> events = heard.WaitFor(1);
    EXPECT_EQ(ObUnregisterAlert(nullptr, registration), ZN_OK);
    EXPECT_EQ(events.at(0).topic, kTopic);
    EXPECT_EQ(events.at(0).provider, first_->Handle());
    return events.at(0).data;
  }
  static I18nParts PartsIn(const PropertySet& set, const char* name) {
    const Value* value = set.FindValue(name, ZN_TYPE_I18N);
    EXPECT_NE(value, nullptr) << name;
    return value == nullptr ? I18nParts{} : PartsOfI18n(value->AsSet());
  }

  TestAlert alert_;
};

TEST_F(AlertTest, APublishedAlertIsAnObjectThatIsNotForDisplay) {
  ASSERT_EQ(Publish(), ZN_OK);
  ASSERT_EQ(Alerts().size(), 1u);
  const BusLock lock;
  const DBNode* node = database_->FindObject(Alerts().at(0));
  EXPECT_EQ(node->GetTypeName().Text(), "KELD_SystemAlerts");
  EXPECT_EQ(node->GetFlags() & OBJECT_PUBLIC_FLAGS, OBJECT_NODISPLAY);
  EXPECT_EQ(node->CreatorId(), first_->GetId());
}

TEST_F(AlertTest, ItsGenericSetHasWhatWasDescribed) {
  ASSERT_EQ(Publish(), ZN_OK);
  const PropertySet set = SetOf("GenericAlertPropset");
  EXPECT_EQ(set.Count(), 10u);
  EXPECT_EQ(set.FindValue("AlertTopic", ZN_TYPE_STRING)->AsText(), kTopic);
  EXPECT_EQ(NumberOf(set, "AlertSeverity"), 2u);
  EXPECT_EQ(NumberOf(set, "AlertFlag"), 3u);
  EXPECT_EQ(PartsIn(set, "AlertMsg").message, 1u);
  EXPECT_EQ(PartsIn(set, "AlertMsg").name, "Disk %1 is %2 percent full.");
  EXPECT_TRUE(SameGuid(PartsIn(set, "AlertMsg").catalog, kCatalog));
  EXPECT_EQ(NumberOf(set, "AlertMsgInsertionStringCount"), 2u);
  EXPECT_EQ(PartsIn(set, "FriendlyAlertName").message, 2u);
  EXPECT_EQ(PartsIn(set, "ClassificationName").message, 3u);
  EXPECT_EQ(PartsIn(set, "Description").message, 4u);
  EXPECT_EQ(PartsIn(set, "RecommendedAction").message, 5u);
  EXPECT_EQ(NumberOf(set, "RecommendedActionInsertionStringCount"), 1u);
  EXPECT_FALSE(HasUserSet());
}

TEST_F(AlertTest, TheClassificationMayBeMissing) {
  alert_.descriptor.classification = nullptr;
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(SetOf("GenericAlertPropset").Find("ClassificationName"), nullptr);
  TestSet insertions;
  FillInsertions(&insertions);
  const PropertySet data = RaisedData(&insertions);
  const PropertySet& generic = data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  EXPECT_EQ(generic.Find("ClassificationName"), nullptr);
}

TEST_F(AlertTest, TheUserPropertiesAreKeptAsATemplate) {
  TestSet user;
  user.Put("Device", Value::Text("")).Put("Bytes", Value::UInt64(0));
  alert_.descriptor.userProperties = user.Get();
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(SetOf("UserDefinedPropset").Count(), 2u);
}

TEST_F(AlertTest, TheTypeIsMadeOnFirstUseAndTraced) {
  const TraceCapture traces;
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_TRUE(traces.Has("Exiting FormalizeAlertType(0)"));
  const BusLock lock;
  TypeObject* type = database_->Types().FindType("KELD_SystemAlerts");
  ASSERT_NE(type, nullptr);
  const PropertySet& own = type->AllProperties();
  const PropertySet& generic = own.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  EXPECT_EQ(generic.FindValue("AlertTopic", ZN_TYPE_STRING)->AsText(), "event.alert.default");
  EXPECT_NE(generic.Find("TimeStampSeconds"), nullptr);
  EXPECT_EQ(generic.Find("AlertGUID"), nullptr);
  EXPECT_NE(own.FindValue("UserDefinedPropset", ZN_TYPE_PROPSET), nullptr);
}

TEST_F(AlertTest, EachDatabaseHasTheTypeOfItsOwn) {
  std::unique_ptr<Database> other;
  Provider* provider = nullptr;
  {
    const BusLock lock;
    other = std::make_unique<Database>(0, DatabaseCallbacks{});
    ASSERT_EQ(RegisterBaseObjectTypes(*other), ZN_OK);
    provider = AddProvider<2>(u"second", other.get());
  }
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(ObPublishAlert(other->Handle(), provider->Handle(), alert_.Get()), ZN_OK);
  EXPECT_EQ(ObUnpublishAlert(nullptr, provider->Handle(), kTopic), ZN_OK);
  EXPECT_EQ(ObUnpublishAlert(other->Handle(), provider->Handle(), kTopic), ZN_OK);
  const BusLock lock;
  other.reset();
}

struct BadDescriptor {
  const char* why;
  std::function<void(TestAlert&)> spoil;
  u32 status = ZNE_INVALID_ARGUMENTS;
};

TEST_F(AlertTest, ABadDescriptorIsRefusedAndLeavesNothing) {
  static I18nString noText{kCatalog, 1, nullptr};
  static ZnHandle stale = WrapPropertySet(PropertySet());
  ASSERT_EQ(PsDestroyPropset(stale), ZN_OK);
  const BadDescriptor cases[] = {
      {"no topic", [](TestAlert& a) { a.descriptor.topic = nullptr; }},
      {"an empty topic", [](TestAlert& a) { a.descriptor.topic = ""; }},
      {"a flag of 4", [](TestAlert& a) { a.descriptor.flag = 4; }},
      {"severity 0", [](TestAlert& a) { a.descriptor.severity = 0; }},
      {"severity 5", [](TestAlert& a) { a.descriptor.severity = 5; }},
      {"no message", [](TestAlert& a) { a.descriptor.message = nullptr; }},
      {"a message without text", [](TestAlert& a) { a.descriptor.message = &noText; }},
      {"no friendly name", [](TestAlert& a) { a.descriptor.friendlyName = nullptr; }},
      {"a friendly name without text", [](TestAlert& a) { a.descriptor.friendlyName = &noText; }},
      {"no description", [](TestAlert& a) { a.descriptor.description = nullptr; }},
      {"a description without text", [](TestAlert& a) { a.descriptor.description = &noText; }},
      {"no action", [](TestAlert& a) { a.descriptor.recommendedAction = nullptr; }},
      {"an action without text", [](TestAlert& a) { a.descriptor.recommendedAction = &noText; }},
      {"a stale set", [](TestAlert& a) { a.descriptor.userProperties = stale; }},
      {"a place twice", [](TestAlert& a) { a.message = "%1 %1"; }, ZNE_INSERTION_FORMAT_INVALID},
      {"a gap", [](TestAlert& a) { a.message = "%2"; }, ZNE_INSERTION_FORMAT_INVALID},
      {"place 65", [](TestAlert& a) { a.message = "%65"; }, ZNE_INSERTION_FORMAT_INVALID},
      {"letters in a place", [](TestAlert& a) { a.action = "%{x}"; }, ZNE_INSERTION_FORMAT_INVALID},
  };
  for (const BadDescriptor& c : cases) {
    SCOPED_TRACE(c.why);
    TestAlert bad;
    c.spoil(bad);
    EXPECT_EQ(ObPublishAlert(nullptr, first_->Handle(), bad.Get()), c.status);
    EXPECT_TRUE(Alerts().empty());
  }
}

TEST_F(AlertTest, EveryGoodFlagAndSeverityIsTaken) {
  for (u32 flag = 0; flag < 4; ++flag) {
    for (u32 severity = 1; severity <= 4; ++severity) {
      alert_.descriptor.flag = flag;
      alert_.descriptor.severity = severity;
      EXPECT_EQ(Publish(), ZN_OK);
      EXPECT_EQ(NumberOf(SetOf("GenericAlertPropset"), "AlertSeverity"), severity);
      EXPECT_EQ(NumberOf(SetOf("GenericAlertPropset"), "AlertFlag"), flag);
      EXPECT_EQ(ObUnpublishAlert(nullptr, first_->Handle(), kTopic), ZN_OK);
    }
  }
}

TEST_F(AlertTest, ATopicIsPublishedOnceByWhomever) {
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(Publish(), ZNE_ALERT_REREGISTER);
  const Provider* other = AddProvider<2>(u"second");
  EXPECT_EQ(ObPublishAlert(nullptr, other->Handle(), alert_.Get()), ZNE_ALERT_REREGISTER);
  EXPECT_EQ(Alerts().size(), 1u);
}

TEST_F(AlertTest, AnybodyMayTakeItBack) {
  ASSERT_EQ(Publish(), ZN_OK);
  const Provider* other = AddProvider<2>(u"second");
  EXPECT_EQ(ObUnpublishAlert(nullptr, other->Handle(), kTopic), ZN_OK);
  EXPECT_TRUE(Alerts().empty());
  EXPECT_EQ(ObUnpublishAlert(nullptr, other->Handle(), kTopic), ZNE_ALERT_OBJECT_NOT_FOUND);
  EXPECT_EQ(Publish(), ZN_OK);
}

TEST_F(AlertTest, TopicsAreComparedExactly) {
  ASSERT_EQ(Publish(), ZN_OK);
  for (const char* topic : {"event.alert.test", "event.alert.test.One", "event.alert.test.one.x"}) {
    EXPECT_EQ(ObUnpublishAlert(nullptr, first_->Handle(), topic), ZNE_ALERT_OBJECT_NOT_FOUND);
    EXPECT_EQ(ObRaiseAlert(nullptr, first_->Handle(), topic, nullptr, nullptr),
              ZNE_ALERT_OBJECT_NOT_FOUND);
  }
}

TEST_F(AlertTest, ARaisedAlertCarriesItsFormatStrings) {
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  const auto before = static_cast<u32>(std::time(nullptr));
  const PropertySet data = RaisedData(&insertions);
  const auto after = static_cast<u32>(std::time(nullptr));
  const Value* found = data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET);
  ASSERT_NE(found, nullptr);
  const PropertySet& set = found->AsSet();
  EXPECT_EQ(set.Count(), 10u);
  EXPECT_EQ(set.FindValue("AlertTopic", ZN_TYPE_STRING)->AsText(), kTopic);
  EXPECT_EQ(NumberOf(set, "AlertSeverity"), 2u);
  EXPECT_EQ(NumberOf(set, "AlertFlag"), 3u);
  EXPECT_EQ(PartsIn(set, "FriendlyAlertName").message, 2u);
  EXPECT_EQ(PartsIn(set, "ClassificationName").message, 3u);
  EXPECT_EQ(PartsIn(set, "Description").message, 4u);
  const PropertySet& message = set.FindValue("AlertMsg", ZN_TYPE_I18N_FORMAT_STRING)->AsSet();
  EXPECT_EQ(PartsOfFormatString(message).message, 1u);
  EXPECT_EQ(PartsOfFormatString(message).name, "Disk %1 is %2 percent full.");
  ASSERT_NE(InsertionsOf(message), nullptr);
  EXPECT_EQ(InsertionsOf(message)->FindValue("i1", ZN_TYPE_STRING)->AsText(), "sda");
  EXPECT_EQ(InsertionsOf(message)->FindValue("i2", ZN_TYPE_WIDESTRING)->AsWideText(), u"97");
  const PropertySet& action =
      set.FindValue("RecommendedAction", ZN_TYPE_I18N_FORMAT_STRING)->AsSet();
  EXPECT_EQ(InsertionsOf(action)->Count(), 1u);
  EXPECT_EQ(set.Find("AlertMsgInsertionStringCount"), nullptr);
  EXPECT_EQ(set.Find("RecommendedActionInsertionStringCount"), nullptr);
  EXPECT_GE(NumberOf(set, "TimeStampSeconds"), before);
  EXPECT_LE(NumberOf(set, "TimeStampSeconds"), after);
  EXPECT_FALSE(IsZeroGuid(set.FindValue("AlertGUID", ZN_TYPE_GUID)->AsGuid()));
}

TEST_F(AlertTest, ARaisedAlertSaysWhereItComesFrom) {
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  const PropertySet data = RaisedData(&insertions);
  ZnWChar* computer = ZnGetComputerName();
  EXPECT_EQ(data.FindValue("SourceComputer", ZN_TYPE_WIDESTRING)->AsWideText(), computer);
  ZnFree(computer);
  EXPECT_EQ(data.FindValue("SourceProvider", ZN_TYPE_WIDESTRING)->AsWideText(), u"first");
  EXPECT_EQ(data.Find("UserDefinedPropset"), nullptr);
}

TEST_F(AlertTest, EachRaiseHasAnIdOfItsOwn) {
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  const auto idOf = [&] {
    const PropertySet data = RaisedData(&insertions);
    return GuidText(data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)
                        ->AsSet()
                        .FindValue("AlertGUID", ZN_TYPE_GUID)
                        ->AsGuid());
  };
  EXPECT_NE(idOf(), idOf());
}

TEST_F(AlertTest, ARegistrationOnTheBeginningOfTheTopicHearsIt) {
  ASSERT_EQ(Publish(), ZN_OK);
  ZnHandle registration = nullptr;
  ASSERT_EQ(ObRegisterAlert(nullptr, first_->Handle(), "event.alert", &registration), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  ASSERT_EQ(Raise(&insertions), ZN_OK);
  EXPECT_EQ(Topics(heard.WaitFor(1)), std::vector<std::string>{kTopic});
  EXPECT_EQ(raised.WaitFor(1).at(0).topic, kTopic) << "clients hear it as well";
  ASSERT_EQ(ObUnregisterAlert(nullptr, registration), ZN_OK);
  ASSERT_EQ(Raise(&insertions), ZN_OK);
  Flush();
  EXPECT_EQ(heard.Items().size(), 1u);
  EXPECT_EQ(ObUnregisterAlert(nullptr, registration), ZNE_INVALID_ARGUMENTS);
}

TEST_F(AlertTest, RegistrationsAreRefusedAsThoseOfEvents) {
  ZnHandle registration = nullptr;
  EXPECT_EQ(ObRegisterAlert(nullptr, first_->Handle(), "", &registration), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObRegisterAlert(nullptr, first_->Handle(), "a b", &registration),
            ZNE_EVENT_STRING_INVALID);
  const TraceCapture traces;
  EXPECT_EQ(ObRegisterAlert(nullptr, nullptr, "a", &registration), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObRegisterAlert(nullptr, first_->Handle(), nullptr, &registration),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObRegisterAlert(nullptr, first_->Handle(), "a", nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObUnregisterAlert(first_->Handle(), nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:ObRegisterAlert: Invalid arguments"));
  EXPECT_TRUE(traces.Has("ZnAPI:ObUnregisterAlert: Invalid arguments"));
}

TEST_F(AlertTest, EveryPlaceMustHaveItsInsertion) {
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(Raise(nullptr), ZNE_INSERTION_STRINGS_INVALID);
  TestSet none;
  EXPECT_EQ(Raise(&none), ZNE_INSERTION_STRINGS_INVALID);
  TestSet oneMissing;
  oneMissing.Put("AlertMsg1", Value::Text("x")).Put("RecommendedAction1", Value::Text("x"));
  EXPECT_EQ(Raise(&oneMissing), ZNE_INSERTION_STRINGS_INVALID);
  TestSet actionMissing;
  actionMissing.Put("AlertMsg1", Value::Text("x")).Put("AlertMsg2", Value::Text("x"));
  EXPECT_EQ(Raise(&actionMissing), ZNE_INSERTION_STRINGS_INVALID);
}

TEST_F(AlertTest, WithoutPlacesNoSetIsNeeded) {
  alert_.message = "100%% full";
  alert_.action = "None";
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(Raise(nullptr), ZN_OK);
}

TEST_F(AlertTest, AnInsertionOfAnotherTypeIsRefused) {
  ASSERT_EQ(Publish(), ZN_OK);
  for (const char* name : {"AlertMsg1", "AlertMsg2", "RecommendedAction1"}) {
    TestSet insertions;
    FillInsertions(&insertions);
    insertions.Put(name, Value::UInt32(7));
    EXPECT_EQ(Raise(&insertions), ZNE_INSERTION_STRINGS_INVALID) << name;
  }
}

TEST_F(AlertTest, AMessageMayBeAnInsertion) {
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  insertions.Put("AlertMsg1", I18nValueOf(I18nParts{kCatalog, 9, "nine"}));
  const PropertySet data = RaisedData(&insertions);
  const PropertySet& generic = data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  const PropertySet& message = generic.FindValue("AlertMsg", ZN_TYPE_I18N_FORMAT_STRING)->AsSet();
  EXPECT_EQ(PartsOfI18n(InsertionsOf(message)->FindValue("i1", ZN_TYPE_I18N)->AsSet()).message, 9u);
}

TEST_F(AlertTest, InsertionsBeyondThePlacesGoAlongUpToAGap) {
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  insertions.Put("AlertMsg3", Value::Text("more")).Put("AlertMsg5", Value::Text("behind a gap"));
  const PropertySet data = RaisedData(&insertions);
  const PropertySet& generic = data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  const PropertySet& message = generic.FindValue("AlertMsg", ZN_TYPE_I18N_FORMAT_STRING)->AsSet();
  EXPECT_EQ(InsertionsOf(message)->Count(), 3u);
  insertions.Put("AlertMsg3", Value::Bool(1));
  EXPECT_EQ(Raise(&insertions), ZNE_INSERTION_STRINGS_INVALID);
}

TEST_F(AlertTest, SixtyFourInsertionsAreTheMost) {
  alert_.message.clear();
  TestSet insertions;
  insertions.Put("RecommendedAction1", Value::Text("x"));
  for (int i = 1; i <= 64; ++i) alert_.message += "%" + std::to_string(i) + " ";
  for (int i = 1; i <= 66; ++i) {
    insertions.Put(("AlertMsg" + std::to_string(i)).c_str(), Value::Text("x"));
  }
  ASSERT_EQ(Publish(), ZN_OK);
  const PropertySet data = RaisedData(&insertions);
  const PropertySet& generic = data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  const PropertySet& message = generic.FindValue("AlertMsg", ZN_TYPE_I18N_FORMAT_STRING)->AsSet();
  EXPECT_EQ(InsertionsOf(message)->Count(), 64u);
}

TEST_F(AlertTest, ATemplateOfUserPropertiesMustBeFilled) {
  TestSet wanted;
  wanted.Put("Device", Value::Text("")).Put("Bytes", Value::UInt64(0));
  alert_.descriptor.userProperties = wanted.Get();
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  EXPECT_EQ(Raise(&insertions), ZNE_USER_PROPSET_INVALID);
  TestSet user;
  user.Put("Device", Value::Text("sda"));
  EXPECT_EQ(Raise(&insertions, &user), ZNE_USER_PROPSET_INVALID);
  // Any type will do, and more may come along.
  user.Put("Bytes", Value::Text("many")).Put("Extra", Value::Bool(1));
  const PropertySet data = RaisedData(&insertions, &user);
  const Value* carried = data.FindValue("UserDefinedPropset", ZN_TYPE_PROPSET);
  ASSERT_NE(carried, nullptr);
  EXPECT_EQ(carried->AsSet().Count(), 3u);
}

TEST_F(AlertTest, AnEmptyTemplateStillWantsASet) {
  TestSet wanted;
  alert_.descriptor.userProperties = wanted.Get();
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_TRUE(HasUserSet());
  TestSet insertions;
  FillInsertions(&insertions);
  EXPECT_EQ(Raise(&insertions), ZNE_USER_PROPSET_INVALID);
  EXPECT_EQ(Raise(&insertions, &wanted), ZN_OK);
}

TEST_F(AlertTest, UserPropertiesGoAlongWithoutATemplateToo) {
  ASSERT_EQ(Publish(), ZN_OK);
  TestSet insertions;
  FillInsertions(&insertions);
  TestSet user;
  user.Put("Device", Value::Text("sda"));
  const PropertySet data = RaisedData(&insertions, &user);
  EXPECT_NE(data.FindValue("UserDefinedPropset", ZN_TYPE_PROPSET), nullptr);
}

TEST_F(AlertTest, NothingOfARefusedRaiseIsSent) {
  ASSERT_EQ(Publish(), ZN_OK);
  Register(first_, "event.alert");
  EXPECT_EQ(Raise(nullptr), ZNE_INSERTION_STRINGS_INVALID);
  Flush();
  EXPECT_TRUE(heard.Items().empty());
}

TEST_F(AlertTest, ATextThatWasSpoiledMeanwhileIsRefused) {
  ASSERT_EQ(Publish(), ZN_OK);
  {
    const BusLock lock;
    DBNode* node = FindAlert(*database_, kTopic);
    PropertySet generic =
        node->Properties().FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
    generic.Put("AlertMsg", I18nValueOf(I18nParts{kCatalog, 1, "%5"}));
    ASSERT_EQ(node->SetProperty(Property("GenericAlertPropset", Value::Set(std::move(generic)))),
              ZN_OK);
  }
  TestSet insertions;
  FillInsertions(&insertions);
  EXPECT_EQ(Raise(&insertions), ZNE_INSERTION_FORMAT_INVALID);
}

TEST_F(AlertTest, AnAlertWithoutItsMessageIsNotRaised) {
  ASSERT_EQ(Publish(), ZN_OK);
  DeleteText("AlertMsg");
  Register(first_, "event.alert");
  TestSet insertions;
  FillInsertions(&insertions);
  EXPECT_EQ(Raise(&insertions), ZNE_PROPERTY_NOT_FOUND);
  Flush();
  EXPECT_TRUE(heard.Items().empty());
}

TEST_F(AlertTest, AnAlertWithoutAnActionIsRaisedWithoutOne) {
  ASSERT_EQ(Publish(), ZN_OK);
  DeleteText("RecommendedAction");
  TestSet insertions;
  FillInsertions(&insertions);
  const PropertySet data = RaisedData(&insertions);
  const PropertySet& generic = data.FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  EXPECT_EQ(generic.Find("RecommendedAction"), nullptr);
}

TEST_F(AlertTest, ATopicThatCannotBeRaisedSaysSo) {
  alert_.descriptor.topic = "event alert";
  alert_.message = alert_.action = "None";
  ASSERT_EQ(Publish(), ZN_OK);
  EXPECT_EQ(ObRaiseAlert(nullptr, first_->Handle(), "event alert", nullptr, nullptr),
            ZNE_EVENT_STRING_INVALID);
}

TEST_F(AlertTest, WithoutTheEventThreadsARaiseIsNotDelivered) {
  alert_.message = alert_.action = "None";
  ASSERT_EQ(Publish(), ZN_OK);
  StopEventThreads();
  EXPECT_EQ(Raise(nullptr), ZNW_SERVICE_UNAVAILABLE);
}

TEST_F(AlertTest, TheServerHasTwoOfItsOwn) {
  {
    const BusLock lock;
    ASSERT_EQ(PublishServerAlerts(*database_, *first_), ZN_OK);
    EXPECT_EQ(PublishServerAlerts(*database_, *first_), ZNE_ALERT_REREGISTER);
  }
  struct Row {
    const char* topic;
    u32 severity;
    u32 first;
    const char* message;
    const char* friendlyName;
    const char* description;
  };
  for (const Row& row :
       {Row{"event.alert.keld.server.start", 4, 0x41220001, "Server started successfully.",
            "Server Started.", "Server start alert."},
        Row{"event.alert.keld.server.shutdown", 3, 0x41220006, "Server is now shutting down.",
            "Server is shutting down.", "Server shutdown alert."}}) {
    SCOPED_TRACE(row.topic);
    const BusLock lock;
    const DBNode* node = FindAlert(*database_, row.topic);
    ASSERT_NE(node, nullptr);
    const PropertySet& set =
        node->Properties().FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
    EXPECT_EQ(NumberOf(set, "AlertFlag"), 3u);
    EXPECT_EQ(NumberOf(set, "AlertSeverity"), row.severity);
    EXPECT_EQ(PartsIn(set, "AlertMsg").message, row.first);
    EXPECT_EQ(PartsIn(set, "AlertMsg").name, row.message);
    EXPECT_EQ(PartsIn(set, "FriendlyAlertName").name, row.friendlyName);
    EXPECT_EQ(PartsIn(set, "ClassificationName").name, "keld class.");
    EXPECT_EQ(PartsIn(set, "Description").name, row.description);
    EXPECT_EQ(PartsIn(set, "RecommendedAction").name, "None");
    EXPECT_EQ(GuidText(PartsIn(set, "AlertMsg").catalog), "{8bcc2df0-62cf-11d4-80c5-00c04fbcefdd}");
  }
  heard.Clear();
  Register(first_, "event.alert.keld");
  EXPECT_EQ(ObRaiseAlert(nullptr, first_->Handle(), kServerStartAlert, nullptr, nullptr), ZN_OK);
  EXPECT_EQ(heard.WaitFor(1).at(0).topic, kServerStartAlert);
}

TEST_F(AlertTest, TheMessageNumbersOfTheShutdownAlertAreThoseOfTheTable) {
  const BusLock lock;
  ASSERT_EQ(PublishServerAlerts(*database_, *first_), ZN_OK);
  const DBNode* node = FindAlert(*database_, kServerShutdownAlert);
  const PropertySet& set =
      node->Properties().FindValue("GenericAlertPropset", ZN_TYPE_PROPSET)->AsSet();
  EXPECT_EQ(PartsIn(set, "FriendlyAlertName").message, 0x81220007u);
  EXPECT_EQ(PartsIn(set, "ClassificationName").message, 0x81220008u);
  EXPECT_EQ(PartsIn(set, "Description").message, 0x81220009u);
  EXPECT_EQ(PartsIn(set, "RecommendedAction").message, 0x8122000Au);
}

class AlertFrameTest : public FrameTest {
 protected:
  TestAlert alert_;
};

TEST_F(AlertFrameTest, EveryCallOfTheFamilyRunsTheStandardFrame) {
  alert_.message = alert_.action = "None";
  ASSERT_EQ(ObPublishAlert(Db(), ProviderHandle(), alert_.Get()), ZN_OK);
  alert_.descriptor.topic = "event.alert.test.two";
  ExpectStandardFrame({"ObPublishAlert", [&](ZnHandle hDb) {
                         return ObPublishAlert(hDb, ProviderHandle(), alert_.Get());
                       }});
  ExpectStandardFrame({"ObRaiseAlert", [&](ZnHandle hDb) {
                         return ObRaiseAlert(hDb, ProviderHandle(), kTopic, nullptr, nullptr);
                       }});
  ExpectStandardFrame({"ObUnpublishAlert", [&](ZnHandle hDb) {
                         return ObUnpublishAlert(hDb, ProviderHandle(), kTopic);
                       }});
}

TEST_F(AlertFrameTest, BadArgumentsAreRefusedInTheNameOfTheCall) {
  ExpectInvalidArguments("ObPublishAlert",
                         {
                             [&] { return ObPublishAlert(Db(), nullptr, alert_.Get()); },
                             [&] { return ObPublishAlert(Db(), Db(), alert_.Get()); },
                             [&] { return ObPublishAlert(Db(), ProviderHandle(), nullptr); },
                         });
  ExpectInvalidArguments("ObUnpublishAlert",
                         {
                             [&] { return ObUnpublishAlert(Db(), nullptr, kTopic); },
                             [&] { return ObUnpublishAlert(Db(), ProviderHandle(), nullptr); },
                         });
  ExpectInvalidArguments(
      "ObRaiseAlert",
      {
          [&] { return ObRaiseAlert(Db(), nullptr, kTopic, nullptr, nullptr); },
          [&] { return ObRaiseAlert(Db(), ProviderHandle(), nullptr, nullptr, nullptr); },
          [&] { return ObRaiseAlert(Db(), ProviderHandle(), kTopic, Db(), nullptr); },
          [&] { return ObRaiseAlert(Db(), ProviderHandle(), kTopic, nullptr, Db()); },
      });
}

}  // namespace
}  // namespace zn::test
