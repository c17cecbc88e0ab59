// What a server tells a client copy: every kind of change, batches, events, and what the listeners
// of the client hear of it.
#include "framework/common/znwire/nestedset.h"
#include "tests/unit/framework/clientcopy_fixture.h"
#include "zn/ev.h"

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class ClientCopyUpdate : public RemoteCopyTest {
 protected:
  void SetUp() override {
    RemoteCopyTest::SetUp();
    Warm();
  }
  // All things are here.
  void FetchThings() {
    ASSERT_EQ(List("TEST_Thing").first, ZN_OK);
    requests.clear();
  }
  // An object that is here, with nothing left to be told.
  ObjectId MakeHere() {
    const ObjectId id = Make();
    static_cast<void>(Told(1));
    EXPECT_EQ(Size(id), 0u);
    requests.clear();
    return id;
  }
  [[nodiscard]] static std::string Topic(const char* type, const char* change, const ObjectId& id) {
    return "event.keld.dom.object." + std::string(type) + change + GuidText(id);
  }
  const DBNode* Here(const ObjectId& id) const { return Copy().FindCached(id); }
};

TEST_F(ClientCopyUpdate, AnObjectOfACompleteTypeComesByItself) {
  FetchThings();
  const ObjectId thing = Make();
  const ObjectId special = Make("TEST_Special");
  Push(2);
  EXPECT_THAT(List("TEST_Thing").second, UnorderedElementsAre(thing, special));
  EXPECT_THAT(requests, IsEmpty());
}

TEST_F(ClientCopyUpdate, AnObjectThatNobodyAskedForStaysOutsideAndIsHeardOf) {
  Listen();
  const ObjectId id = Make();
  Push(1);
  EXPECT_FALSE(IsHere(id));
  EXPECT_THAT(HeardTopics(), ElementsAre(Topic("TEST_Thing", ".object.add.", id)));
}

TEST_F(ClientCopyUpdate, AnAddReplacesWhatIsHere) {
  const ObjectId id = MakeHere();
  const ObjectId other = MakeHere();
  ASSERT_EQ(ObAddChildObject(copy_, other, id), ZN_OK);
  SetSize(id, 3, copy_);
  PropertySet form;
  {
    const BusLock lock;
    server->MarshalObject(*server->FindCached(id), &form);
  }
  PropertySet record =
      Record(Topic("TEST_Thing", ".object.add.", id), id, "TEST_Thing", std::move(form));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_EQ(Size(id), 0u);
  EXPECT_THAT(Here(id)->Parents(), IsEmpty());
  EXPECT_THAT(Here(other)->Children(), ElementsAre(InternedId(id))) << "no other object changes";
}

TEST_F(ClientCopyUpdate, ABadAddLeavesTheObjectAsItIs) {
  const ObjectId id = MakeHere();
  SetSize(id, 3, copy_);
  PropertySet bad;
  bad.Put("ObjectId", Value::Id(id));
  PropertySet record =
      Record(Topic("TEST_Thing", ".object.add.", id), id, "TEST_Thing", std::move(bad));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_EQ(Size(id), 3u);
  // A form of another object than the record is about.
  PropertySet form;
  {
    const BusLock lock;
    server->MarshalObject(*server->FindCached(id), &form);
  }
  form.Put("ObjectId", Value::Id(TestGuid(1)));
  record = Record(Topic("TEST_Thing", ".object.add.", id), id, "TEST_Thing", std::move(form));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_EQ(Size(id), 3u);
  EXPECT_FALSE(IsHere(TestGuid(1)));
}

TEST_F(ClientCopyUpdate, ADeletionTakesTheObjectAndHandsItsPropertiesOn) {
  const ObjectId id = MakeHere();
  SetSize(id, 8, copy_);
  Listen();
  ASSERT_EQ(ObDeleteObject(nullptr, id), ZN_OK);
  Push(1);
  EXPECT_FALSE(IsHere(id));
  FlushEvents();
  const std::vector<Heard> events = heard.Items();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].topic, Topic("TEST_Thing", ".object.delete.", id));
  EXPECT_EQ(events[0].objectId, id);
  EXPECT_EQ(events[0].typeName, "TEST_Thing");
  ASSERT_TRUE(events[0].hasData);
  EXPECT_EQ(events[0].data.FindValue("Size", ZN_TYPE_UINT32)->AsUInt32(), 8u);
  EXPECT_EQ(events[0].flags, EVENT_LOCAL | EVENT_HAS_DATA);
  EXPECT_EQ(events[0].database, copy_);
}

TEST_F(ClientCopyUpdate, ADeletionOfWhatIsNotHereIsHeardWithoutData) {
  const ObjectId id = Make();
  static_cast<void>(Told(1));
  Listen();
  ASSERT_EQ(ObDeleteObject(nullptr, id), ZN_OK);
  Push(1);
  FlushEvents();
  const std::vector<Heard> events = heard.Items();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_FALSE(events[0].hasData);
}

TEST_F(ClientCopyUpdate, AChangeReplacesAllProperties) {
  const ObjectId id = MakeHere();
  u32 number = 1;
  char name[] = "Mine";
  const Property2 own{name, ZN_TYPE_UINT32, 0, sizeof(u32), &number};
  ASSERT_EQ(ObSetProperty(copy_, id, &own), ZN_OK);
  SetSize(id, 5);
  Push(1);
  EXPECT_EQ(Size(id), 5u);
  EXPECT_FALSE(Here(id)->HasProperty("Mine"));
}

TEST_F(ClientCopyUpdate, RelationsAreReplaced) {
  const ObjectId parent = MakeHere();
  const ObjectId child = MakeHere();
  ASSERT_EQ(ObAddChildObject(nullptr, parent, child), ZN_OK);
  Push(2);
  EXPECT_THAT(Here(parent)->Children(), ElementsAre(InternedId(child)));
  EXPECT_THAT(Here(child)->Parents(), ElementsAre(InternedId(parent)));
  ASSERT_EQ(ObRemoveChildObject(nullptr, parent, child), ZN_OK);
  Push(2);
  EXPECT_THAT(Here(parent)->Children(), IsEmpty());
  EXPECT_THAT(Here(child)->Parents(), IsEmpty());
}

TEST_F(ClientCopyUpdate, ARelationRecordWithoutAListChangesNothing) {
  const ObjectId parent = MakeHere();
  const ObjectId child = MakeHere();
  ASSERT_EQ(ObAddChildObject(copy_, parent, child), ZN_OK);
  for (const char* change : {".relation.parent.", ".relation.child."}) {
    for (const ObjectId& id : {parent, child}) {
      PropertySet record = Record(Topic("TEST_Thing", change, id), id, "TEST_Thing", {});
      EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
    }
  }
  EXPECT_THAT(Here(parent)->Children(), ElementsAre(InternedId(child)));
  EXPECT_THAT(Here(child)->Parents(), ElementsAre(InternedId(parent)));
}

TEST_F(ClientCopyUpdate, AnObjectOfAClientGroupGetsItsGroupsBackWhereItIsMarked) {
  const ObjectId id = MakeHere();
  const char* types[] = {"TEST_Thing"};
  ObjectId group{};
  ASSERT_EQ(DbCreateGroupNode(copy_, 1, types, 0, u"mine", &group), ZN_OK);
  PropertySet data;
  data.Put("ParentList", Value::Array(ZN_TYPE_OBJECT_ID, {}));
  const std::string topic = Topic("TEST_Thing", ".relation.parent.", id);
  PropertySet record = Record(topic, id, "TEST_Thing", PropertySet(data));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_THAT(Here(id)->Parents(), IsEmpty()) << "nothing marks it";
  {
    const BusLock lock;
    DBNode* node = Copy().FindCached(id);
    node->SetRawFlags(node->GetFlags() | OBJECT_IN_CLIENT_GROUP);
  }
  record = Record(topic, id, "TEST_Thing", std::move(data));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_THAT(Here(id)->Parents(), ElementsAre(InternedId(group)));
}

TEST_F(ClientCopyUpdate, AnObjectThatComesAgainStaysInTheClientsGroups) {
  FetchThings();
  const char* types[] = {"TEST_Thing"};
  ObjectId group{};
  ASSERT_EQ(DbCreateGroupNode(copy_, 1, types, 0, u"mine", &group), ZN_OK);
  const ObjectId id = Make();
  PropertySet add = Told(1)[0];
  for (int i = 0; i < 2; ++i) {
    PropertySet record = add;
    EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
    EXPECT_THAT(Here(group)->Children(), ElementsAre(InternedId(id)));
    EXPECT_THAT(Here(id)->Parents(), ElementsAre(InternedId(group)));
  }
}

TEST_F(ClientCopyUpdate, InterfacesAreReplaced) {
  const ObjectId id = MakeHere();
  ASSERT_EQ(ObRegisterInterface(nullptr, id, first_->Handle(), &kShownInterface), ZN_OK);
  Push(1);
  ASSERT_EQ(Here(id)->Interfaces().size(), 1u);
  EXPECT_EQ(Here(id)->Interfaces()[0].provider, first_->GetId());
  ASSERT_EQ(ObDeregisterInterface(nullptr, id, &kShownInterface), ZN_OK);
  Push(1);
  EXPECT_THAT(Here(id)->Interfaces(), IsEmpty());
}

TEST_F(ClientCopyUpdate, HidingDeletesAndShowingAddsWhereTheTypeIsComplete) {
  FetchThings();
  const ObjectId id = Make();
  Push(1);
  SetSize(id, 4);
  Push(1);
  Listen();
  ASSERT_EQ(ObSetFlags(nullptr, id, OBJECT_HIDDEN), ZN_OK);
  Push(1);
  EXPECT_FALSE(IsHere(id));
  EXPECT_THAT(HeardTopics(), ElementsAre(Topic("TEST_Thing", ".flag.change.", id)));
  ASSERT_EQ(ObSetFlags(nullptr, id, 0), ZN_OK);
  Push(1);
  EXPECT_TRUE(IsHere(id));
  EXPECT_EQ(Size(id), 4u);
  EXPECT_THAT(HeardTopics(), ElementsAre(Topic("TEST_Thing", ".object.add.", id)))
      << "for this client it has just come into being";
  EXPECT_THAT(requests, IsEmpty());
}

TEST_F(ClientCopyUpdate, AnObjectThatIsShownAgainHasItsRelativesBack) {
  FetchThings();
  const ObjectId parent = Make();
  const ObjectId id = Make();
  const ObjectId child = Make();
  ASSERT_EQ(ObAddChildObject(nullptr, parent, id), ZN_OK);
  ASSERT_EQ(ObAddChildObject(nullptr, id, child), ZN_OK);
  Push(7);
  ASSERT_EQ(ObSetFlags(nullptr, id, OBJECT_HIDDEN), ZN_OK);
  Push(1);
  EXPECT_THAT(Here(parent)->Children(), IsEmpty());
  EXPECT_THAT(Here(child)->Parents(), IsEmpty());
  ASSERT_EQ(ObSetFlags(nullptr, id, 0), ZN_OK);
  Push(1);
  EXPECT_THAT(Here(parent)->Children(), ElementsAre(InternedId(id)));
  EXPECT_THAT(Here(child)->Parents(), ElementsAre(InternedId(id)));
}

TEST_F(ClientCopyUpdate, AParentKnowsAChildThatIsShownAgainBeforeTheChildIsHere) {
  const ObjectId parent = Make();
  const ObjectId id = Make("TEST_Thing", OBJECT_HIDDEN);
  ASSERT_EQ(ObAddChildObject(nullptr, parent, id), ZN_OK);
  static_cast<void>(Told(1));
  ASSERT_EQ(Size(parent), 0u);
  ASSERT_THAT(Here(parent)->Children(), IsEmpty());
  ASSERT_EQ(ObSetFlags(nullptr, id, 0), ZN_OK);
  Push(1);
  EXPECT_FALSE(IsHere(id));
  EXPECT_THAT(Here(parent)->Children(), ElementsAre(InternedId(id)));
}

TEST_F(ClientCopyUpdate, ShowingAddsNothingWhereTheTypeIsNotComplete) {
  const ObjectId id = Make("TEST_Thing", OBJECT_HIDDEN);
  Listen();
  ASSERT_EQ(ObSetFlags(nullptr, id, 0), ZN_OK);
  Push(1);
  EXPECT_FALSE(IsHere(id));
  EXPECT_THAT(HeardTopics(), ElementsAre(Topic("TEST_Thing", ".flag.change.", id)));
}

TEST_F(ClientCopyUpdate, VisibleFlagsAreStored) {
  const ObjectId id = MakeHere();
  ASSERT_EQ(ObSetFlags(nullptr, id, OBJECT_NODISPLAY), ZN_OK);
  Push(1);
  u32 flags = 0;
  EXPECT_EQ(ObGetObjectFlags(copy_, id, &flags), ZN_OK);
  EXPECT_EQ(flags, OBJECT_NODISPLAY);
  PropertySet record =
      Record(Topic("TEST_Thing", ".flag.change.", id), id, "TEST_Thing", PropertySet());
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK) << "without flags it says nothing";
  EXPECT_EQ(ObGetObjectFlags(copy_, id, &flags), ZN_OK);
  EXPECT_EQ(flags, OBJECT_NODISPLAY);
}

TEST_F(ClientCopyUpdate, ATypeComesWithItsAdd) {
  TypeId("TEST_New", "TEST_Thing");
  Push(1);
  EXPECT_TRUE(TypeIsA(copy_, "TEST_New", "TEST_Thing"));
  EXPECT_FALSE(Copy().Types().FindType("TEST_New")->IsComplete());
  FetchThings();
  TypeId("TEST_Newer", "TEST_New");
  Push(1);
  EXPECT_TRUE(Copy().Types().FindType("TEST_Newer")->IsComplete())
      << "all objects of its base are here, and it has none yet";
  const ObjectId id = Make("TEST_Newer");
  Push(1);
  EXPECT_THAT(List("TEST_Thing").second, ElementsAre(id));
}

TEST_F(ClientCopyUpdate, TheInterfacesOfATypeAreReplaced) {
  ASSERT_EQ(ObRegisterInterfaceOnType(nullptr, "TEST_Thing", first_->Handle(), &kShownInterface),
            ZN_OK);
  PropertySet set = Told(1)[0];
  PropertySet stranger = set;
  stranger.Put("ObjectId", Value::Id(TestGuid(1)));
  EXPECT_EQ(DbUpdateCache(copy_, stranger), ZN_OK);
  EXPECT_THAT(Copy().Types().FindType("TEST_Thing")->Interfaces(), IsEmpty())
      << "an id that is not here";
  EXPECT_EQ(DbUpdateCache(copy_, set), ZN_OK);
  ASSERT_EQ(Copy().Types().FindType("TEST_Thing")->Interfaces().size(), 1u);
}

TEST_F(ClientCopyUpdate, ABatchIsAppliedInOrderAndTellsOfItselfNothing) {
  FetchThings();
  Listen();
  ASSERT_EQ(DbUpdateSequenceStart(nullptr, 0), ZN_OK);
  const ObjectId one = Make();
  const ObjectId two = Make();
  SetSize(one, 1);
  ASSERT_EQ(ObAddChildObject(nullptr, one, two), ZN_OK);
  ASSERT_EQ(DbUpdateSequenceFinish(nullptr, 0), ZN_OK);
  Push(1);
  EXPECT_EQ(Size(one), 1u);
  EXPECT_THAT(Here(one)->Children(), ElementsAre(InternedId(two)));
  EXPECT_THAT(HeardTopics(),
              ElementsAre("event.keld.dom.cache.deaf", Topic("TEST_Thing", ".object.add.", one),
                          Topic("TEST_Thing", ".object.add.", two), "event.keld.dom.cache.listen"));
}

TEST_F(ClientCopyUpdate, TheCacheRecordsKeepTheirTwoForms) {
  Listen();
  for (const char* topic : {"event.keld.dom.cache.deaf", "event.keld.dom.cache.listen"}) {
    PropertySet record = Record(topic, ObjectId{}, "", {});
    EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  }
  FlushEvents();
  const std::vector<Heard> events = heard.Items();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].size, sizeof(LocalEventRecord) + 1) << "an empty type and a zero id";
  EXPECT_EQ(events[1].size, sizeof(LocalEventRecord));
}

TEST_F(ClientCopyUpdate, ABadRecordInABatchDoesNotStopTheOnesBehind) {
  const ObjectId id = MakeHere();
  PropertySet size;
  size.Put("Size", Value::UInt32(6));
  std::vector<Value> records;
  records.push_back(Value::Set(PropertySet()));
  PropertySet wrong = Record("event.x", id, "TEST_Thing", {});
  wrong.Put("Message", Value::UInt32(12));
  records.push_back(Value::Set(std::move(wrong)));
  records.push_back(Value::Set(
      Record(Topic("TEST_Thing", ".data.change.", id), id, "TEST_Thing", std::move(size))));
  PropertySet data;
  data.Put("Data", Value::Array(ZN_TYPE_PROPSET, std::move(records)));
  PropertySet batch = Record("event.keld.dom.database.change", ObjectId{}, "", std::move(data));
  EXPECT_EQ(DbUpdateCache(copy_, batch), ZN_OK);
  EXPECT_EQ(Size(id), 6u);
  batch = Record("event.keld.dom.database.change", ObjectId{}, "", {});
  EXPECT_EQ(DbUpdateCache(copy_, batch), ZNE_PROPERTY_NOT_FOUND) << "no list";
}

TEST_F(ClientCopyUpdate, ARecordMayCarryItsDataAsBytes) {
  const ObjectId id = MakeHere();
  PropertySet size;
  size.Put("Size", Value::UInt32(6));
  PropertySet record = Record(Topic("TEST_Thing", ".data.change.", id), id, "TEST_Thing", {});
  record.Put("Data", wire::AsBinary(size));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_EQ(Size(id), 6u);
  record = Record(Topic("TEST_Thing", ".data.change.", id), id, "TEST_Thing", {});
  record.Put("Data", Value::Binary("\xff", 1));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZNE_PROPERTY_NOT_FOUND) << "bytes of no set";
  EXPECT_EQ(Size(id), 6u);
}

TEST_F(ClientCopyUpdate, WhatIsNoChangeIsRefused) {
  const ObjectId id = MakeHere();
  const PropertySet good = Record(Topic("TEST_Thing", ".object.delete.", id), id, "TEST_Thing", {});
  PropertySet bad = good;
  bad.Put("Message", Value::UInt32(12));
  EXPECT_EQ(DbUpdateCache(copy_, bad), ZNE_INVALID_ARGUMENTS);
  bad = PropertySet();
  EXPECT_EQ(DbUpdateCache(copy_, bad), ZNE_INVALID_ARGUMENTS);
  for (const char* key : {"Flags", "NotificationId", "ObjectId", "ObjectType", "Data"}) {
    bad = good;
    ASSERT_EQ(bad.Delete(key), ZN_OK);
    EXPECT_EQ(DbUpdateCache(copy_, bad), ZNE_PROPERTY_NOT_FOUND) << key;
    bad = good;
    bad.Put(key, Value::Bool(1));
    EXPECT_EQ(DbUpdateCache(copy_, bad), ZNE_PROPERTY_NOT_FOUND) << key;
  }
  EXPECT_TRUE(IsHere(id));
}

TEST_F(ClientCopyUpdate, OtherTopicsChangeNothingAndAreHeard) {
  const ObjectId id = MakeHere();
  Listen();
  const std::string topics[] = {"event.keld.dom.cache.deaf",
                                "event.keld.dom.object.TEST_Thing.object",
                                "event.keld.dom.object.TEST_Thing.object.deleted." + GuidText(id),
                                "event.keld.dom.type.TEST_Thing.object.delete." + GuidText(id),
                                "event.keld.other.object.TEST_Thing.object.delete." + GuidText(id),
                                "anything"};
  for (const std::string& topic : topics) {
    PropertySet record = Record(topic, id, "TEST_Thing", {});
    EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  }
  EXPECT_TRUE(IsHere(id));
  EXPECT_EQ(HeardTopics().size(), std::size(topics) - 1) << "all that begin with \"event\"";
}

TEST_F(ClientCopyUpdate, TheLookUpHasTheFrameButNotItsOuterTraces) {
  PropertySet record;
  const TraceCapture traces(1);
  EXPECT_EQ(DbUpdateCache(first_->Handle(), record), ZNE_INVALID_ARGUMENTS);
  ASSERT_TRUE(SetLoggedOn(copy_, false));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_THAT(traces.Messages(), ElementsAre("ZnAPI:DbUpdateCache: Invalid arguments",
                                             "ZnAPI:DbUpdateCache: DB auth failed"));
}

class ServerEvent : public ClientCopyUpdate {
 protected:
  [[nodiscard]] PropertySet Event(const char* topic, u32 number) const {
    PropertySet data;
    if (number != 0) data.Put("Number", Value::UInt32(number));
    PropertySet set;
    set.Put("Message", Value::UInt32(12));
    set.Put("Flags", Value::UInt32(EVENT_LOCAL | EVENT_REMOTE | EVENT_OWNS_DATA));
    set.Put("NotificationId", Value::Text(topic));
    set.Put("ProviderId", Value::Id(first_->GetId()));
    set.Put("Data", Value::Set(std::move(data)));
    return set;
  }
};

TEST_F(ServerEvent, IsRaisedForTheListenersOfTheCopy) {
  Listen();
  PropertySet message = Event("event.keld.hello", 7);
  EXPECT_EQ(RaiseServerEvent(copy_, message), ZN_OK);
  FlushEvents();
  const std::vector<Heard> events = heard.Items();
  ASSERT_EQ(events.size(), 1u);
  ZnHandle provider = nullptr;
  ASSERT_EQ(PrGetProviderByName(copy_, u"first", &provider), ZN_OK);
  EXPECT_EQ(events[0].topic, "event.keld.hello");
  EXPECT_EQ(events[0].provider, provider);
  EXPECT_EQ(events[0].database, copy_);
  EXPECT_EQ(events[0].size, sizeof(EventRecord));
  ASSERT_TRUE(events[0].hasData);
  EXPECT_EQ(events[0].data.FindValue("Number", ZN_TYPE_UINT32)->AsUInt32(), 7u);
  for (const Heard& event : raised.Items()) {
    EXPECT_NE(event.topic, "event.keld.hello") << "it is not sent on";
  }
}

TEST_F(ServerEvent, MayCarryItsDataAsBytes) {
  Listen();
  PropertySet data;
  data.Put("Number", Value::UInt32(7));
  PropertySet message = Event("event.keld.hello", 0);
  message.Put("Data", wire::AsBinary(data));
  EXPECT_EQ(RaiseServerEvent(copy_, message), ZN_OK);
  FlushEvents();
  const std::vector<Heard> events = heard.Items();
  ASSERT_EQ(events.size(), 1u);
  ASSERT_TRUE(events[0].hasData);
  EXPECT_EQ(events[0].data.FindValue("Number", ZN_TYPE_UINT32)->AsUInt32(), 7u);
}

TEST_F(ServerEvent, HasNoSetWhereTheServersIsEmpty) {
  Listen();
  PropertySet message = Event("event.keld.hello", 0);
  EXPECT_EQ(RaiseServerEvent(copy_, message), ZN_OK);
  FlushEvents();
  const std::vector<Heard> events = heard.Items();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_FALSE(events[0].hasData);
  EXPECT_EQ(events[0].flags & EVENT_OWNS_DATA, 0u);
}

TEST_F(ServerEvent, OfAnUnknownProviderIsDroppedAndTheProvidersAreAskedForAnew) {
  Listen();
  PropertySet message = Event("event.keld.hello", 1);
  message.Put("ProviderId", Value::Id(TestGuid(1)));
  EXPECT_EQ(RaiseServerEvent(copy_, message), ZNE_PROVIDER_REG_NO_PROVIDERS);
  EXPECT_THAT(requests, IsEmpty()) << "nothing is fetched while an event is taken in";
  EXPECT_THAT(HeardTopics(), IsEmpty());
  ZnHandle provider = nullptr;
  EXPECT_EQ(PrGetProviderByName(copy_, u"first", &provider), ZN_OK);
  EXPECT_THAT(Criteria(), ElementsAre(2u));
}

TEST_F(ServerEvent, WithoutAProviderHasNone) {
  Listen();
  PropertySet message = Event("event.keld.hello", 1);
  ASSERT_EQ(message.Delete("ProviderId"), ZN_OK);
  EXPECT_EQ(RaiseServerEvent(copy_, message), ZN_OK);
  FlushEvents();
  ASSERT_EQ(heard.Items().size(), 1u);
  EXPECT_EQ(heard.Items()[0].provider, nullptr);
}

TEST_F(ServerEvent, WithoutItsWordsIsRefused) {
  for (const char* key : {"Flags", "NotificationId", "Data"}) {
    PropertySet message = Event("event.keld.hello", 1);
    ASSERT_EQ(message.Delete(key), ZN_OK);
    EXPECT_EQ(RaiseServerEvent(copy_, message), ZNE_PROPERTY_NOT_FOUND) << key;
  }
  Listen();
  PropertySet message = Event("event.with a blank", 1);
  EXPECT_EQ(RaiseServerEvent(copy_, message), ZNE_EVENT_STRING_INVALID);
  EXPECT_EQ(RaiseServerEvent(first_->Handle(), message), ZNE_INVALID_ARGUMENTS);
}

}  // namespace
}  // namespace zn::test
