// Changes of a database: what listeners of the process hear and what clients are sent, at once and
// in update sequences.
#include <gtest/gtest.h>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/topic.h"
#include "tests/unit/framework/event_fixture.h"
#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

class NotifyThreads : public EventTest {
 protected:
  void SetUp() override {
    EventTest::SetUp();
    clientsPresent = true;
    {
      const BusLock lock;
      PropertySet properties;
      properties.Put("Size", Value::UInt32(0));
      ASSERT_EQ(
          database_->Types().CreateTypeInstance("Thing", &properties, {"KELD_Object"}, 0, &type_),
          ZN_OK);
    }
    static_cast<void>(Sent());
  }

  DBNode* Make(u32 flags = 0, Provider* creator = nullptr) {
    const BusLock lock;
    DBNode* node = nullptr;
    EXPECT_EQ(database_->CreateDBNode(creator == nullptr ? first_ : creator, "Thing", flags, &node,
                                      nullptr),
              ZN_OK);
    return node;
  }
  static void SetSize(DBNode* node, u32 size) {
    const BusLock lock;
    EXPECT_EQ(node->SetProperty(Property("Size", Value::UInt32(size))), ZN_OK);
  }
  void Delete(DBNode* node) {
    const BusLock lock;
    database_->DeleteNode(node);
  }
  void Begin() {
    const BusLock lock;
    database_->BeginUpdateSequence();
  }
  void End() {
    const BusLock lock;
    database_->EndUpdateSequence();
  }
  [[nodiscard]] size_t Pending() {
    const BusLock lock;
    return database_->PendingEvents().Size();
  }

  // What clients were sent since the last call.
  std::vector<PropertySet> Sent() {
    {
      const BusLock lock;
      PropertySet marker;
      marker.Put("NotificationId", Value::Text("marker"));
      QueueChange(*database_, std::move(marker));
    }
    size_t count = 1;
    std::vector<PropertySet> sent = told.WaitFor(count);
    while (TopicOf(sent.back()) != "marker") sent = told.WaitFor(++count);
    told.Clear();
    sent.pop_back();
    return sent;
  }
  PropertySet SentOne() {
    std::vector<PropertySet> sent = Sent();
    EXPECT_EQ(sent.size(), 1u);
    return sent.empty() ? PropertySet() : sent[0];
  }
  static std::string TopicOf(const PropertySet& record) {
    const Value* topic = record.FindValue("NotificationId", ZN_TYPE_STRING);
    return topic == nullptr ? "" : std::string(topic->AsText());
  }
  static std::vector<std::string> TopicsOf(const std::vector<PropertySet>& records) {
    std::vector<std::string> topics;
    for (const PropertySet& record : records) topics.push_back(TopicOf(record));
    return topics;
  }
  static u32 Number(const PropertySet& set, std::string_view name) {
    const Value* value = set.FindValue(name, ZN_TYPE_UINT32);
    EXPECT_NE(value, nullptr) << name;
    return value == nullptr ? 0xDEADu : value->AsUInt32();
  }
  static const PropertySet& DataOf(const PropertySet& record) {
    return record.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
  }
  // The records inside a batch.
  static std::vector<PropertySet> Inner(const PropertySet& batch) {
    std::vector<PropertySet> records;
    const Value* list = DataOf(batch).FindValue("Data", ZN_TYPE_PROPSET | ZN_TYPE_ARRAY);
    EXPECT_NE(list, nullptr);
    if (list == nullptr) return records;
    for (const Value& record : list->AsArray()) records.push_back(record.AsSet());
    return records;
  }
  static std::vector<std::string> Ids(const PropertySet& data, std::string_view name) {
    std::vector<std::string> ids;
    const Value* list = data.FindValue(name, ZN_TYPE_OBJECT_ID | ZN_TYPE_ARRAY);
    EXPECT_NE(list, nullptr) << name;
    if (list == nullptr) return ids;
    for (const Value& id : list->AsArray()) ids.push_back(GuidText(id.AsGuid()));
    return ids;
  }
  static std::vector<std::string> Names(const PropertySet& set) {
    std::vector<std::string> names;
    for (const Property& property : set) names.emplace_back(property.Name());
    return names;
  }
  static std::string IdText(const DBNode* node) { return GuidText(node->GetId().Value()); }
  static std::string Topic(const DBNode* node, const char* change) {
    return "event.keld.dom.object.Thing" + std::string(change) + IdText(node);
  }
  static std::string Topic(const std::string& id, const char* change) {
    return "event.keld.dom.object.Thing" + std::string(change) + id;
  }

  TypeObject* type_ = nullptr;
};

const std::vector<std::string> kWholeObject{"ChildList",  "CreatorId",     "Data",
                                            "Flags",      "InterfaceList", "ObjectId",
                                            "ObjectType", "ParentList"};

TEST_F(NotifyThreads, AMarkerPassesAnOpenSequenceAndCarriesItsId) {
  clientsPresent = true;
  Begin();
  {
    const BusLock lock;
    database_->QueueMarker(4711);
  }
  const PropertySet marker = SentOne();
  End();
  EXPECT_EQ(Number(marker, "Message"), 11u);
  EXPECT_EQ(Number(marker, "Flags"), 0x16u);
  EXPECT_EQ(TopicOf(marker), "");
  EXPECT_TRUE(IsZeroGuid(marker.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid()));
  EXPECT_EQ(Number(DataOf(marker), "ChangeNotifyServiceId"), 4711u);
}

TEST_F(NotifyThreads, AnAddedObjectComesWhole) {
  const DBNode* node = Make();
  const PropertySet record = SentOne();
  EXPECT_EQ(Names(record), (std::vector<std::string>{"Data", "Flags", "Message", "NotificationId",
                                                     "ObjectId", "ObjectType"}));
  EXPECT_EQ(Number(record, "Message"), 11u);
  EXPECT_EQ(Number(record, "Flags"), 3u);
  EXPECT_EQ(TopicOf(record), Topic(node, ".object.add."));
  EXPECT_EQ(record.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), node->GetId());
  EXPECT_EQ(record.FindValue("ObjectType", ZN_TYPE_STRING)->AsText(), "Thing");
  const PropertySet& data = DataOf(record);
  EXPECT_EQ(Names(data), kWholeObject);
  EXPECT_EQ(data.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), node->GetId());
  EXPECT_EQ(data.FindValue("ObjectType", ZN_TYPE_STRING)->AsText(), "Thing");
  EXPECT_EQ(Number(data, "Flags"), node->GetFlags());
  EXPECT_EQ(Number(DataOf(data), "Size"), 0u);
  EXPECT_EQ(data.FindValue("CreatorId", ZN_TYPE_OBJECT_ID)->AsId(), first_->GetId());
  EXPECT_TRUE(Ids(data, "ChildList").empty()) << "there, and empty";
  EXPECT_TRUE(Ids(data, "ParentList").empty());
  const Value* interfaces = data.FindValue("InterfaceList", ZN_TYPE_PROPSET | ZN_TYPE_ARRAY);
  ASSERT_NE(interfaces, nullptr);
  EXPECT_TRUE(interfaces->AsArray().empty());
}

TEST_F(NotifyThreads, AMarshalledGroupNamesItsContainedTypes) {
  const BusLock lock;
  DBNode* group = nullptr;
  ASSERT_EQ(database_->CreateGroup(u"g", {"Thing"}, "KELD_GenericGroup", first_,
                                   OBJECT_GROUP_SERVER, &group),
            ZN_OK);
  PropertySet whole;
  database_->MarshalObject(*group, &whole);
  const Value* types = whole.FindValue("ContainedTypes", ZN_TYPE_STRING | ZN_TYPE_ARRAY);
  ASSERT_NE(types, nullptr);
  ASSERT_EQ(types->AsArray().size(), 1u);
  EXPECT_EQ(types->AsArray()[0].AsText(), "Thing");
  EXPECT_EQ(Number(whole, "Flags") & OBJECT_GROUP_SERVER, OBJECT_GROUP_SERVER);
}

TEST_F(NotifyThreads, ADataChangeShipsAllProperties) {
  DBNode* node = Make();
  {
    const BusLock lock;
    ASSERT_EQ(node->SetProperty(Property("Other", Value::UInt32(8))), ZN_OK);
  }
  static_cast<void>(Sent());
  SetSize(node, 9);
  const PropertySet record = SentOne();
  EXPECT_EQ(TopicOf(record), Topic(node, ".data.change."));
  EXPECT_EQ(Number(DataOf(record), "Size"), 9u);
  EXPECT_EQ(Number(DataOf(record), "Other"), 8u);
}

TEST_F(NotifyThreads, ADeletionSendsNothingOfTheObjectToClientsButAllToListeners) {
  Register(first_, "event.keld.dom.object.*.object.delete");
  DBNode* node = Make();
  SetSize(node, 4);
  static_cast<void>(Sent());
  const std::string id = IdText(node);
  Delete(node);
  const PropertySet record = SentOne();
  EXPECT_EQ(TopicOf(record), Topic(id, ".object.delete."));
  EXPECT_TRUE(DataOf(record).IsEmpty());
  const Heard event = heard.WaitFor(1)[0];
  EXPECT_EQ(event.topic, Topic(id, ".object.delete."));
  EXPECT_EQ(event.flags, EVENT_LOCAL | EVENT_HAS_DATA);
  EXPECT_EQ(GuidText(event.objectId), id);
  EXPECT_EQ(event.typeName, "Thing");
  EXPECT_EQ(Number(event.data, "Size"), 4u);
}

TEST_F(NotifyThreads, OnlyADeletionCarriesDataToListeners) {
  Register(first_, "event.keld.dom.object.Thing");
  clientsPresent = false;
  DBNode* node = Make();
  SetSize(node, 4);
  {
    const BusLock lock;
    node->SetFlags(OBJECT_HIDDEN);  // which raises with the local flag
  }
  for (const Heard& event : heard.WaitFor(3)) {
    EXPECT_FALSE(event.hasData) << event.topic;
    EXPECT_EQ(event.size, sizeof(LocalEventRecord) + 6) << event.topic;
  }
}

TEST_F(NotifyThreads, RelationsAreToldAboutTheObjectItselfWithItsVisibleRelatives) {
  DBNode* parent = Make();
  DBNode* child = Make();
  const DBNode* hidden = Make(OBJECT_HIDDEN);
  {
    const BusLock lock;
    ASSERT_EQ(parent->AddChild(hidden->GetId()), ZN_OK);
  }
  static_cast<void>(Sent());
  {
    const BusLock lock;
    ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  }
  const std::vector<PropertySet> sent = Sent();
  ASSERT_EQ(TopicsOf(sent), (std::vector<std::string>{Topic(parent, ".relation.child."),
                                                      Topic(child, ".relation.parent.")}));
  EXPECT_EQ(sent[0].FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), parent->GetId());
  EXPECT_EQ(Names(DataOf(sent[0])), std::vector<std::string>{"ChildList"});
  EXPECT_EQ(Ids(DataOf(sent[0]), "ChildList"), std::vector<std::string>{IdText(child)});
  EXPECT_EQ(sent[1].FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), child->GetId());
  EXPECT_EQ(Names(DataOf(sent[1])), std::vector<std::string>{"ParentList"});
  EXPECT_EQ(Ids(DataOf(sent[1]), "ParentList"), std::vector<std::string>{IdText(parent)});
}

TEST_F(NotifyThreads, RelationsAreReadWhenTheyAreSent) {
  DBNode* parent = Make();
  const DBNode* one = Make();
  const DBNode* two = Make();
  static_cast<void>(Sent());
  Begin();
  {
    const BusLock lock;
    ASSERT_EQ(parent->AddChild(one->GetId()), ZN_OK);
    ASSERT_EQ(parent->AddChild(two->GetId()), ZN_OK);
  }
  EXPECT_EQ(Pending(), 3u) << "one of the parent, one of each child";
  End();
  const std::vector<PropertySet> inner = Inner(SentOne());
  ASSERT_EQ(inner.size(), 5u);
  EXPECT_EQ(TopicOf(inner[1]), Topic(parent, ".relation.child."));
  EXPECT_EQ(Ids(DataOf(inner[1]), "ChildList").size(), 2u);
}

TEST_F(NotifyThreads, InterfacesAreListed) {
  DBNode* node = Make();
  static_cast<void>(Sent());
  {
    const BusLock lock;
    ASSERT_EQ(database_->RegisterInterface(node, TestGuid(5), first_->GetId()), ZN_OK);
  }
  const PropertySet record = SentOne();
  EXPECT_EQ(TopicOf(record), Topic(node, ".interface.change."));
  EXPECT_EQ(Names(DataOf(record)), std::vector<std::string>{"InterfaceList"});
  const Value* list = DataOf(record).FindValue("InterfaceList", ZN_TYPE_PROPSET | ZN_TYPE_ARRAY);
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(list->AsArray().size(), 1u);
  const PropertySet& entry = list->AsArray()[0].AsSet();
  EXPECT_TRUE(SameGuid(entry.FindValue("Interface", ZN_TYPE_GUID)->AsGuid(), TestGuid(5)));
  EXPECT_EQ(entry.FindValue("Provider", ZN_TYPE_OBJECT_ID)->AsId(), first_->GetId());
}

TEST_F(NotifyThreads, FlagsOfAVisibleObjectComeAlone) {
  DBNode* node = Make();
  static_cast<void>(Sent());
  {
    const BusLock lock;
    node->SetFlags(OBJECT_NODISPLAY);
  }
  const PropertySet record = SentOne();
  EXPECT_EQ(TopicOf(record), Topic(node, ".flag.change."));
  EXPECT_EQ(Number(record, "Flags"), 2u);
  EXPECT_EQ(Names(DataOf(record)), (std::vector<std::string>{"NewFlags", "OldFlags"}));
  EXPECT_EQ(Number(DataOf(record), "NewFlags"), 2u);
  EXPECT_EQ(Number(DataOf(record), "OldFlags"), 0u);
}

TEST_F(NotifyThreads, AnObjectHiddenOrShownComesWhole) {
  DBNode* node = Make();
  static_cast<void>(Sent());
  std::vector<std::string> names = kWholeObject;
  names.insert(names.end(), {"NewFlags", "OldFlags"});
  std::sort(names.begin(), names.end());
  {
    const BusLock lock;
    node->SetFlags(OBJECT_HIDDEN);
  }
  const PropertySet hidden = SentOne();
  EXPECT_EQ(TopicOf(hidden), Topic(node, ".flag.change."));
  EXPECT_EQ(Names(DataOf(hidden)), names);
  EXPECT_EQ(Number(DataOf(hidden), "Flags") & 0xFFFFu, 1u);
  {
    const BusLock lock;
    node->SetFlags(0);
  }
  const PropertySet shown = SentOne();
  EXPECT_EQ(Names(DataOf(shown)), names) << "the old flags count too";
  EXPECT_EQ(Number(shown, "Flags"), 0u);
}

TEST_F(NotifyThreads, ATypeNamedLikeAChangeIsTakenForIt) {
  const BusLock lock;
  TypeObject* type = nullptr;
  ASSERT_EQ(database_->Types().CreateTypeInstance("address", nullptr, {"KELD_Object"}, 0, &type),
            ZN_OK);
  DBNode* node = nullptr;
  ASSERT_EQ(database_->CreateDBNode(first_, "address", 0, &node, nullptr), ZN_OK);
  database_->BeginUpdateSequence();
  node->SetFlags(OBJECT_NODISPLAY);
  EXPECT_EQ(Names(database_->PendingEvents().Records()[0]->data), kWholeObject)
      << "\".object.add\" stands in the topic of every type whose name begins with \"add\"";
  database_->EndUpdateSequence();
}

TEST_F(NotifyThreads, WithNoClientASequenceQueuesNothingAndListenersHearAtOnce) {
  clientsPresent = false;
  Register(first_, "event.keld.dom.object.Thing");
  Begin();
  DBNode* node = Make();
  const std::string id = IdText(node);
  SetSize(node, 1);
  SetSize(node, 2);
  EXPECT_EQ(Pending(), 0u);
  Delete(node);
  EXPECT_EQ(Pending(), 0u);
  EXPECT_EQ(Topics(heard.WaitFor(4)),
            (std::vector<std::string>{Topic(id, ".object.add."), Topic(id, ".data.change."),
                                      Topic(id, ".data.change."), Topic(id, ".object.delete.")}));
  End();
  EXPECT_TRUE(Sent().empty());
}

TEST_F(NotifyThreads, ListenersHearEveryChangeOfASequenceAtOnce) {
  Register(first_, "event.keld.dom.object.Thing.data.change");
  DBNode* node = Make();
  static_cast<void>(Sent());
  Begin();
  SetSize(node, 1);
  SetSize(node, 2);
  EXPECT_EQ(heard.WaitFor(2).size(), 2u) << "though they are one for clients";
  EXPECT_EQ(Pending(), 1u);
  End();
  EXPECT_EQ(Number(DataOf(SentOne()), "Size"), 2u);
}

TEST_F(NotifyThreads, AnObjectThatLivesWithinASequenceIsToldByItsDeletionAlone) {
  Begin();
  DBNode* node = Make();
  const std::string id = IdText(node);
  for (u32 size = 1; size <= 3; ++size) SetSize(node, size);
  Delete(node);
  EXPECT_EQ(Pending(), 2u) << "the add and the delete";
  End();
  const PropertySet batch = SentOne();
  EXPECT_EQ(TopicOf(batch), "event.keld.dom.database.change");
  EXPECT_EQ(Number(batch, "Message"), 11u);
  EXPECT_EQ(Number(batch, "Flags"), 0u);
  EXPECT_TRUE(batch.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId().IsZero());
  EXPECT_EQ(batch.FindValue("ObjectType", ZN_TYPE_STRING)->AsText(), "");
  EXPECT_EQ(Names(DataOf(batch)), std::vector<std::string>{"Data"});
  const std::vector<PropertySet> inner = Inner(batch);
  EXPECT_EQ(TopicsOf(inner),
            (std::vector<std::string>{"event.keld.dom.cache.deaf", Topic(id, ".object.delete."),
                                      "event.keld.dom.cache.listen"}));
  for (const PropertySet* cache : {&inner.front(), &inner.back()}) {
    EXPECT_EQ(Number(*cache, "Message"), 11u);
    EXPECT_EQ(Number(*cache, "Flags"), 2u);
    EXPECT_TRUE(DataOf(*cache).IsEmpty());
  }
}

TEST_F(NotifyThreads, ADeletionInASequenceDropsTheOtherChangesOfItsObject) {
  DBNode* node = Make();
  DBNode* other = Make();
  static_cast<void>(Sent());
  const std::string id = IdText(node);
  Begin();
  SetSize(node, 1);
  SetSize(other, 1);
  {
    const BusLock lock;
    ASSERT_EQ(node->AddChild(other->GetId()), ZN_OK);
    node->SetFlags(OBJECT_NODISPLAY);
    ASSERT_EQ(database_->RegisterInterface(node, TestGuid(5), first_->GetId()), ZN_OK);
  }
  Delete(node);
  End();
  EXPECT_EQ(
      TopicsOf(Inner(SentOne())),
      (std::vector<std::string>{"event.keld.dom.cache.deaf", Topic(other, ".data.change."),
                                Topic(other, ".relation.parent."), Topic(id, ".flag.change."),
                                Topic(id, ".object.delete."), "event.keld.dom.cache.listen"}));
}

TEST_F(NotifyThreads, AnAddInASequenceCarriesTheStateAtItsEnd) {
  Begin();
  DBNode* node = Make();
  SetSize(node, 1);
  const DBNode* other = Make();
  SetSize(node, 3);
  EXPECT_EQ(Pending(), 2u);
  End();
  const std::vector<PropertySet> inner = Inner(SentOne());
  ASSERT_EQ(TopicsOf(inner), (std::vector<std::string>{
                                 "event.keld.dom.cache.deaf", Topic(node, ".object.add."),
                                 Topic(other, ".object.add."), "event.keld.dom.cache.listen"}));
  EXPECT_EQ(Names(DataOf(inner[1])), kWholeObject);
  EXPECT_EQ(Number(DataOf(DataOf(inner[1])), "Size"), 3u);
}

TEST_F(NotifyThreads, OneChangeInASequenceIsSentAsItself) {
  DBNode* node = Make();
  static_cast<void>(Sent());
  Begin();
  SetSize(node, 5);
  End();
  EXPECT_EQ(TopicOf(SentOne()), Topic(node, ".data.change."));
  Begin();
  End();
  EXPECT_TRUE(Sent().empty());
}

TEST_F(NotifyThreads, ATaskIsToldStepByStep) {
  DBNode* task = Make(OBJECT_TASK);
  EXPECT_EQ(Number(SentOne(), "Flags"), 7u);
  const std::string id = IdText(task);
  Begin();
  SetSize(task, 1);
  SetSize(task, 2);
  Delete(task);
  EXPECT_EQ(Pending(), 3u);
  End();
  const std::vector<PropertySet> inner = Inner(SentOne());
  ASSERT_EQ(TopicsOf(inner),
            (std::vector<std::string>{"event.keld.dom.cache.deaf", Topic(id, ".data.change."),
                                      Topic(id, ".data.change."), Topic(id, ".object.delete."),
                                      "event.keld.dom.cache.listen"}));
  EXPECT_EQ(Number(DataOf(inner[1]), "Size"), 1u);
  EXPECT_EQ(Number(DataOf(inner[2]), "Size"), 2u);
}

TEST_F(NotifyThreads, ATaskAddedInASequenceIsNotMadeAfresh) {
  Begin();
  DBNode* task = Make(OBJECT_TASK);
  SetSize(task, 1);
  End();
  const std::vector<PropertySet> inner = Inner(SentOne());
  ASSERT_EQ(inner.size(), 4u);
  EXPECT_EQ(Number(DataOf(DataOf(inner[1])), "Size"), 0u);
}

TEST_F(NotifyThreads, EveryFinishSendsWhatIsQueued) {
  DBNode* node = Make();
  static_cast<void>(Sent());
  Begin();
  Begin();
  SetSize(node, 1);
  End();
  EXPECT_EQ(Pending(), 0u);
  {
    const BusLock lock;
    EXPECT_EQ(database_->SequenceDepth(), 1u);
  }
  EXPECT_EQ(Number(DataOf(SentOne()), "Size"), 1u);
  SetSize(node, 2);
  EXPECT_EQ(Pending(), 1u) << "later changes queue until the next finish";
  EXPECT_TRUE(Sent().empty());
  End();
  EXPECT_EQ(Number(DataOf(SentOne()), "Size"), 2u);
  SetSize(node, 3);
  EXPECT_EQ(Number(DataOf(SentOne()), "Size"), 3u);
}

TEST_F(NotifyThreads, AFinishWithoutAStartLeavesTheDepthAtZero) {
  End();
  {
    const BusLock lock;
    EXPECT_EQ(database_->SequenceDepth(), 0u);
  }
  DBNode* node = Make();
  EXPECT_EQ(TopicOf(SentOne()), Topic(node, ".object.add."));
}

TEST_F(NotifyThreads, WorkHeldForClientsThatHaveGoneIsDropped) {
  DBNode* node = Make();
  static_cast<void>(Sent());
  Begin();
  SetSize(node, 1);
  EXPECT_EQ(Pending(), 1u);
  clientsPresent = false;
  SetSize(node, 2);
  EXPECT_EQ(Pending(), 0u);
  clientsPresent = true;
  End();
  EXPECT_TRUE(Sent().empty());
}

TEST_F(NotifyThreads, AProviderStillRegisteringIsSilent) {
  Register(first_, "event.keld.dom.object.Thing");
  Provider* newcomer = nullptr;
  {
    const BusLock lock;
    auto provider =
        std::make_unique<Provider>(database_.get(), database_->Types().FindType("KELD_Provider"),
                                   u"newcomer", ProviderCallbacks{}, nullptr, false);
    newcomer = provider.get();
    database_->AddProvider(std::move(provider));
  }
  DBNode* node = Make(0, newcomer);
  SetSize(node, 1);
  EXPECT_TRUE(Sent().empty());
  {
    const BusLock lock;
    EXPECT_FALSE(database_->WouldNotify(*node));
    newcomer->SetRegistered();
    EXPECT_TRUE(database_->WouldNotify(*node));
  }
  SetSize(node, 2);
  EXPECT_EQ(TopicOf(SentOne()), Topic(node, ".data.change."));
  EXPECT_EQ(Topics(heard.WaitFor(1)), std::vector<std::string>{Topic(node, ".data.change.")});
}

TEST_F(NotifyThreads, ObjectsWithoutTheirCreatorAreSilent) {
  Provider* passing = AddProvider<2>(u"passing");
  DBNode* node = Make(0, passing);
  static_cast<void>(Sent());
  {
    const BusLock lock;
    static_cast<void>(database_->TakeProvider(passing));
  }
  SetSize(node, 1);
  EXPECT_TRUE(Sent().empty());
}

TEST_F(NotifyThreads, NothingIsToldUntilNotificationsAreOn) {
  Register(first_, "event.keld.dom");
  {
    const BusLock lock;
    database_->LowerNotifyEnable();
  }
  DBNode* node = Make();
  SetSize(node, 1);
  {
    const BusLock lock;
    database_->NotifyTypeChange(TypeTopic("Thing", kObjectAdded.topic, type_->GetId().Value()),
                                type_->GetId(), *type_, PropertySet(), 3);
    database_->RaiseNotifyEnable();
  }
  EXPECT_TRUE(Sent().empty());
  SetSize(node, 2);
  EXPECT_EQ(Topics(heard.WaitFor(1)), std::vector<std::string>{Topic(node, ".data.change.")});
}

TEST_F(NotifyThreads, ADatabaseWithoutAChangeCallbackIsSilent) {
  const BusLock lock;
  Database quiet(0, {});
  ASSERT_EQ(RegisterBaseObjectTypes(quiet), ZN_OK);
  quiet.RaiseNotifyEnable();
  quiet.BeginUpdateSequence();
  DBNode* node = nullptr;
  ASSERT_EQ(quiet.CreateDBNode(nullptr, "KELD_Object", 0, &node, nullptr), ZN_OK);
  quiet.NotifyLocalOnlyChange(kChildChanged, node->GetId(), *node);
  EXPECT_FALSE(quiet.WouldNotify(*node));
  EXPECT_TRUE(quiet.PendingEvents().IsEmpty());
}

TEST_F(NotifyThreads, WithNobodyThereNothingIsMade) {
  clientsPresent = false;
  DBNode* node = Make();
  const BusLock lock;
  EXPECT_FALSE(database_->WouldNotify(*node));
  ZnHandle registration = Register(first_, "anything");
  EXPECT_TRUE(database_->WouldNotify(*node));
  EXPECT_EQ(EvUnregisterEvent(nullptr, registration), ZN_OK);
  EXPECT_FALSE(database_->WouldNotify(*node));
  clientsPresent = true;
  EXPECT_TRUE(database_->WouldNotify(*node));
}

TEST_F(NotifyThreads, TypeEventsPassByTheirTwoPatternsAlone) {
  Register(first_, "event.keld.dom.type");
  const GUID id = type_->GetId().Value();
  static_cast<void>(Sent());
  PropertySet data;
  data.Put("TypeName", Value::Text("Thing"));
  {
    const BusLock lock;
    for (const ChangeKind kind : {kObjectAdded, kDataChanged, kInterfaceChanged, kObjectDeleted}) {
      database_->NotifyTypeChange(TypeTopic("Thing", kind.topic, id), type_->GetId(), *type_, data,
                                  3);
    }
  }
  const std::vector<std::string> topics{TypeTopic("Thing", kObjectAdded.topic, id),
                                        TypeTopic("Thing", kInterfaceChanged.topic, id)};
  const std::vector<PropertySet> sent = Sent();
  EXPECT_EQ(TopicsOf(sent), topics);
  EXPECT_EQ(Topics(heard.WaitFor(2)), topics);
  EXPECT_EQ(DataOf(sent[0]).FindValue("TypeName", ZN_TYPE_STRING)->AsText(), "Thing");
  EXPECT_EQ(sent[0].FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), type_->GetId());
  EXPECT_EQ(sent[0].FindValue("ObjectType", ZN_TYPE_STRING)->AsText(), type_->GetTypeName().Text());
  EXPECT_FALSE(heard.Items()[0].hasData);
}

TEST_F(NotifyThreads, OnlyTheListenTopicMakesAShortRecord) {
  Register(first_, "event.keld.dom.type");
  const std::string stem = "event.keld.dom.type.Thing.object.add.";
  {
    const BusLock lock;
    for (const char* tail : {"dom.cache.listen", "event.keld.dom.cache.deaf", "dom.cache.deaf."}) {
      database_->NotifyTypeChange(stem + tail, type_->GetId(), *type_, PropertySet(), 3);
    }
  }
  const std::vector<Heard> events = heard.WaitFor(3);
  EXPECT_EQ(events[0].size, sizeof(LocalEventRecord));
  EXPECT_GT(events[1].size, sizeof(LocalEventRecord)) << "the topic has no point at its end";
  EXPECT_EQ(events[2].size, sizeof(LocalEventRecord));
}

TEST_F(NotifyThreads, ALocalFormPassesAnySequence) {
  DBNode* node = Make();
  const DBNode* child = Make();
  static_cast<void>(Sent());
  Begin();
  {
    const BusLock lock;
    database_->LowerNotifyEnable();  // which it does not ask
    database_->NotifyLocalOnlyChange(kChildChanged, child->GetId(), *node);
    database_->NotifyLocalOnlyChange(kParentChanged, child->GetId(), *node);
    database_->RaiseNotifyEnable();
  }
  EXPECT_EQ(Pending(), 0u);
  const std::vector<PropertySet> sent = Sent();
  ASSERT_EQ(TopicsOf(sent), (std::vector<std::string>{Topic(node, ".relation.child."),
                                                      Topic(node, ".relation.parent.")}));
  EXPECT_EQ(sent[0].FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), node->GetId());
  EXPECT_EQ(sent[1].FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), child->GetId());
  End();
}

TEST_F(NotifyThreads, AHiddenObjectTellsItsFlagsAlone) {
  DBNode* node = Make(OBJECT_HIDDEN);
  SetSize(node, 1);
  {
    const BusLock lock;
    node->SetFlags(OBJECT_NODISPLAY);
    node->SetFlags(OBJECT_HIDDEN);
  }
  Delete(node);
  for (const std::string& topic : TopicsOf(Sent())) {
    EXPECT_NE(topic.find(".flag.change."), std::string::npos) << topic;
  }
}

TEST_F(NotifyThreads, ThePendingQueueGoesWithItsDatabaseUnsent) {
  {
    const BusLock lock;
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle) { ADD_FAILURE() << "nothing was finished"; };
    Database passing(0, callbacks);
    ASSERT_EQ(RegisterBaseObjectTypes(passing), ZN_OK);
    passing.RaiseNotifyEnable();
    Provider* provider = AddProvider<2>(u"p", &passing);
    passing.BeginUpdateSequence();
    DBNode* node = nullptr;
    ASSERT_EQ(passing.CreateDBNode(provider, "KELD_Object", 0, &node, nullptr), ZN_OK);
    EXPECT_EQ(passing.PendingEvents().Size(), 1u);
  }
  EXPECT_TRUE(Sent().empty());
}

}  // namespace

}  // namespace zn::test
