#include "framework/common/zncore/dbnode.h"

#include "framework/common/zntypeobject/typeobject.h"
#include "tests/unit/framework/fixture.h"
#include "zn/memory.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr u32 kPublicFlags = OBJECT_PUBLIC_FLAGS;

class DBNodeTest : public StoreTest {
 protected:
  [[nodiscard]] static u32 NumberOf(const BaseObject& object, std::string_view name) {
    const Value* value = object.Properties().FindValue(name, ZN_TYPE_UINT32);
    return value == nullptr ? 0xFFFFFFFF : value->AsUInt32();
  }
  // The objects of a type whose property has that value.
  static std::vector<DBNode*> Having(TypeObject* type, const Property& value) {
    std::vector<DBNode*> found;
    EXPECT_EQ(type->FindInstances(value, &found), ZN_OK);
    return found;
  }
};

TEST_F(DBNodeTest, SettingAPropertyTellsTheChangeWithTheWholeSet) {
  DBNode* node = Make();
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(3))), ZN_OK);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic, Topic(*node, ".data.change."));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[0].id, node->GetId());
  EXPECT_EQ(told[0].data.Count(), node->Properties().Count());
}

TEST_F(DBNodeTest, SettingThePresentValueSucceedsAndTellsNothing) {
  DBNode* node = Make();
  EXPECT_EQ(node->SetProperty(Property("State", Value::UInt32(0))), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, AValueOfAnotherTypeIsRefusedAndTheOldOneStays) {
  DBNode* node = Make();
  EXPECT_EQ(node->SetProperty(Property("State", Value::Text("three"))), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(NumberOf(*node, "State"), 0u);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, AHiddenPropertyChangesInSilence) {
  DBNode* node = Make();
  EXPECT_EQ(node->SetProperty(Property("Secret", Value::UInt32(1), ZN_PROPERTY_HIDDEN)), ZN_OK);
  // The stored property decides, not the one given.
  EXPECT_EQ(node->SetProperty(Property("Secret", Value::UInt32(2))), ZN_OK);
  EXPECT_EQ(NumberOf(*node, "Secret"), 2u);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, ARemoteOnlyPropertyIsToldToClientsAlone) {
  DBNode* node = Make();
  ASSERT_EQ(node->SetProperty(Property("Far", Value::UInt32(1), ZN_PROPERTY_REMOTE_ONLY)), ZN_OK);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].flags, EVENT_REMOTE);
}

TEST_F(DBNodeTest, AHiddenObjectChangesInSilence) {
  DBNode* node = Make("KELD_Object", OBJECT_HIDDEN);
  PropertySet set;
  set.Put("A", Value::UInt32(1));
  EXPECT_EQ(node->SetProperty(Property("State", Value::UInt32(3))), ZN_OK);
  EXPECT_EQ(node->SetProperties(set), ZN_OK);
  EXPECT_EQ(node->DeleteProperty("A"), ZN_OK);
  EXPECT_EQ(node->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  EXPECT_EQ(node->RemoveInterface(TestGuid(1)), ZN_OK);
  database_->DeleteNode(node);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, SetPropertiesTellsOnceEvenHiddenOnes) {
  DBNode* node = Make();
  PropertySet set;
  set.Put("A", Value::UInt32(1), ZN_PROPERTY_HIDDEN);
  set.Put("B", Value::UInt32(1), ZN_PROPERTY_HIDDEN | ZN_PROPERTY_REMOTE_ONLY);
  EXPECT_EQ(node->SetProperties(set), ZN_OK);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic, Topic(*node, ".data.change."));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
}

TEST_F(DBNodeTest, SetPropertiesThatAreAllRemoteOnlyAreToldToClientsAlone) {
  DBNode* node = Make();
  PropertySet set;
  set.Put("A", Value::UInt32(1), ZN_PROPERTY_REMOTE_ONLY);
  set.Put("B", Value::UInt32(1), ZN_PROPERTY_REMOTE_ONLY);
  EXPECT_EQ(node->SetProperties(set), ZN_OK);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].flags, EVENT_REMOTE);
}

TEST_F(DBNodeTest, AnEmptyOrEqualSetChangesNothingAndTellsNothing) {
  DBNode* node = Make();
  PropertySet same;
  same.Put("State", Value::UInt32(0));
  EXPECT_EQ(node->SetProperties(PropertySet()), ZN_OK);
  EXPECT_EQ(node->SetProperties(same), ZN_OK);
  EXPECT_EQ(node->Properties().Count(), 2u);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, ASetWithAnotherTypeFailsAndTellsNothing) {
  DBNode* node = Make();
  PropertySet set;
  set.Put("Extra", Value::UInt32(1));
  set.Put("State", Value::Text("three"));
  EXPECT_EQ(node->SetProperties(set), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(NumberOf(*node, "State"), 0u);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, DeletingAPropertyTellsTheChange) {
  DBNode* node = Make();
  EXPECT_EQ(node->DeleteProperty("State"), ZN_OK);
  EXPECT_FALSE(node->HasProperty("State"));
  EXPECT_THAT(TakeTopics(), ElementsAre(Topic(*node, ".data.change.")));
  EXPECT_EQ(node->DeleteProperty("State"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DBNodeTest, TheIndexFollowsEveryKindOfChange) {
  PropertySet declared;
  declared.Put("Serial", Value::UInt32(0), ZN_PROPERTY_INDEXED);
  TypeObject* type = MakeType("Disk", declared);
  ASSERT_NE(type->FindIndex(PropertyName::Intern("Serial")), nullptr);
  DBNode* node = Make("Disk");
  const auto serial = [](u32 v) { return Property("Serial", Value::UInt32(v)); };

  EXPECT_THAT(Having(type, serial(0)), ElementsAre(node)) << "the default value of a new object";
  ASSERT_EQ(node->SetProperty(serial(1)), ZN_OK);
  EXPECT_THAT(Having(type, serial(0)), IsEmpty());
  EXPECT_THAT(Having(type, serial(1)), ElementsAre(node));
  PropertySet set;
  set.Put("Serial", Value::UInt32(2));
  ASSERT_EQ(node->SetProperties(set), ZN_OK);
  EXPECT_THAT(Having(type, serial(1)), IsEmpty());
  EXPECT_THAT(Having(type, serial(2)), ElementsAre(node));
  ASSERT_EQ(node->DeleteProperty("Serial"), ZN_OK);
  EXPECT_THAT(Having(type, serial(2)), IsEmpty());
  ASSERT_EQ(node->SetProperty(serial(3)), ZN_OK);
  EXPECT_THAT(Having(type, serial(3)), ElementsAre(node)) << "set again after it was deleted";
  database_->DeleteNode(node);
  EXPECT_THAT(Having(type, serial(3)), IsEmpty());
}

TEST_F(DBNodeTest, TheIndexFollowsASetThatFailsHalfWay) {
  PropertySet declared;
  declared.Put("A", Value::UInt32(0), ZN_PROPERTY_INDEXED);
  declared.Put("B", Value::UInt32(0));
  TypeObject* type = MakeType("Disk", declared);
  DBNode* node = Make("Disk");
  PropertySet set;
  set.Put("A", Value::UInt32(7));
  set.Put("B", Value::Text("no number"));
  ASSERT_EQ(node->SetProperties(set), ZNE_INVALID_ARGUMENTS);
  ASSERT_EQ(NumberOf(*node, "A"), 7u);
  EXPECT_THAT(Having(type, Property("A", Value::UInt32(0))), IsEmpty());
  EXPECT_THAT(Having(type, Property("A", Value::UInt32(7))), ElementsAre(node));
}

TEST_F(DBNodeTest, AnIndexedPropertyThatComesBackWithAnotherTypeStaysOutOfTheIndex) {
  PropertySet declared;
  declared.Put("A", Value::UInt32(0), ZN_PROPERTY_INDEXED);
  TypeObject* type = MakeType("Disk", declared);
  DBNode* node = Make("Disk");
  ASSERT_EQ(node->DeleteProperty("A"), ZN_OK);
  ASSERT_EQ(node->SetProperty(Property("A", Value::Text("text"))), ZN_OK);
  EXPECT_THAT(Having(type, Property("A", Value::UInt32(0))), IsEmpty());
  ASSERT_EQ(node->SetProperty(Property("A", Value::Text("more"))), ZN_OK);
  database_->DeleteNode(node);
  EXPECT_THAT(Having(type, Property("A", Value::UInt32(0))), IsEmpty());
}

TEST_F(DBNodeTest, FlagsAreNormalisedAndToldWithTheOldAndTheNewWord) {
  struct Row {
    const char* why;
    u32 given;
    u32 stored;
  };
  constexpr Row kRows[] = {
      {"hidden wins", 3, 1},
      {"bit 1 without bit 0", 6, 2},
      {"other bits are nothing", 4, 0},
      {"hidden alone", 1, 1},
      {"high half is ignored", 0x00800002, 2},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.why);
    DBNode* node = Make("KELD_Object", row.stored == 2 ? OBJECT_HIDDEN : OBJECT_NODISPLAY);
    node->SetRawFlags(node->GetFlags() | OBJECT_IN_CLIENT_GROUP);
    const u32 before = node->GetFlags();
    node->SetFlags(row.given);
    EXPECT_EQ(node->GetFlags() & kPublicFlags, row.stored);
    EXPECT_EQ(node->GetFlags() & ~kPublicFlags, before & ~kPublicFlags);
    const std::vector<Told> told = TakeTold();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].topic, Topic(*node, ".flag.change."));
    EXPECT_EQ(told[0].flags, row.stored) << "the stored flags are the event flags";
    EXPECT_EQ(told[0].data.FindValue("OldFlags", ZN_TYPE_UINT32)->AsUInt32(), before);
    EXPECT_EQ(told[0].data.FindValue("NewFlags", ZN_TYPE_UINT32)->AsUInt32(), node->GetFlags());
    node->SetFlags(row.given);
    EXPECT_THAT(TakeTopics(), IsEmpty()) << "the same flags again";
  }
}

TEST_F(DBNodeTest, AHiddenObjectStillTellsAChangeOfItsFlags) {
  DBNode* node = Make("KELD_Object", OBJECT_HIDDEN);
  node->SetFlags(0);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic, Topic(*node, ".flag.change."));
  EXPECT_EQ(told[0].flags, 0u);
  EXPECT_FALSE(node->IsHidden());
}

TEST_F(DBNodeTest, InterfacesAreKeptOncePerIdInOrder) {
  DBNode* node = Make();
  Provider* other = AddProvider(u"other");
  EXPECT_EQ(node->AddInterface(TestGuid(2), provider_->GetId()), ZN_OK);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic, Topic(*node, ".interface.change."));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(node->AddInterface(TestGuid(2), other->GetId()), ZNE_INTERFACE_EXISTS);
  EXPECT_THAT(TakeTopics(), IsEmpty());
  EXPECT_EQ(node->AddInterface(TestGuid(1), other->GetId()), ZN_OK);
  ASSERT_EQ(node->Interfaces().size(), 2u);
  EXPECT_TRUE(SameGuid(node->Interfaces()[0].interfaceId, TestGuid(2)));
  EXPECT_TRUE(SameGuid(node->Interfaces()[1].interfaceId, TestGuid(1)));
  static_cast<void>(TakeTold());
  EXPECT_EQ(node->RemoveInterface(TestGuid(3)), ZNE_INTERFACE_NOT_FOUND);
  EXPECT_THAT(TakeTopics(), IsEmpty());
  EXPECT_EQ(node->RemoveInterface(TestGuid(2)), ZN_OK);
  EXPECT_THAT(TakeTopics(), ElementsAre(Topic(*node, ".interface.change.")));
}

TEST_F(DBNodeTest, TheProviderOfAnInterfaceComesFromTheObjectThenFromItsType) {
  TypeObject* type = MakeType("Disk");
  Provider* other = AddProvider(u"other");
  DBNode* node = Make("Disk");
  InternedId id;
  EXPECT_EQ(node->GetInterfaceProvider(TestGuid(1), &id), ZNE_INTERFACE_NOT_FOUND);
  ASSERT_EQ(type->AddInterface(TestGuid(1), other->GetId()), ZN_OK);
  EXPECT_EQ(node->GetInterfaceProvider(TestGuid(1), &id), ZN_OK);
  EXPECT_EQ(id, other->GetId());
  ASSERT_EQ(node->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  EXPECT_EQ(node->GetInterfaceProvider(TestGuid(1), &id), ZN_OK);
  EXPECT_EQ(id, provider_->GetId());
}

TEST_F(DBNodeTest, AKeyIsGivenBackWithoutItsPrefix) {
  DBNode* node = Make();
  void* key = node;
  u32 length = 5;
  EXPECT_EQ(node->CopyKey(&key, &length), ZNE_THING_NOT_FOUND);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(length, 0u);
  SetTestKey(*node, provider_->GetId().Value(), "sda1");
  EXPECT_EQ(node->CopyKey(&key, &length), ZN_OK);
  ASSERT_EQ(length, 4u);
  EXPECT_EQ(std::memcmp(key, "sda1", 4), 0);
  ZnFree(key);
  node->SetKey({});
  EXPECT_EQ(node->CopyKey(&key, &length), ZNE_THING_NOT_FOUND);
  EXPECT_TRUE(node->Key().empty());
}

TEST_F(DBNodeTest, DeletionIsToldAndTheIdIsKnownNoMore) {
  DBNode* node = Make();
  const std::string topic = Topic(*node, ".object.delete.");
  const InternedId id = node->GetId();
  database_->DeleteNode(node);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic, topic);
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[0].id, id);
  EXPECT_EQ(database_->FindObject(id), nullptr);
}

TEST_F(DBNodeTest, DeletionTellsNoChangeOfItsOwnRelationsOrInterfaces) {
  DBNode* parent = Make();
  DBNode* node = Make();
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(node->GetId()), ZN_OK);
  ASSERT_EQ(node->AddChild(child->GetId()), ZN_OK);
  ASSERT_EQ(database_->RegisterInterface(node, TestGuid(1), provider_->GetId()), ZN_OK);
  static_cast<void>(TakeTold());
  const std::string deleted = Topic(*node, ".object.delete.");
  database_->DeleteNode(node);
  EXPECT_THAT(TakeTopics(), ElementsAre(Topic(*child, ".relation.parent."),
                                        Topic(*parent, ".relation.child."), deleted));
  EXPECT_TRUE(parent->Children().empty());
  EXPECT_TRUE(child->Parents().empty());
}

TEST_F(DBNodeTest, AnObjectOutlivesItsCreator) {
  Provider* creator = AddProvider(u"passing");
  DBNode* node = Make("KELD_Object", 0, creator);
  const InternedId creatorId = creator->GetId();
  database_->TakeProvider(creator).reset();
  EXPECT_EQ(node->CreatorId(), creatorId);
  EXPECT_EQ(database_->FindProviderById(creatorId.Value()), nullptr);
  Property out;
  EXPECT_EQ(node->GetProperty("State", &out), ZN_OK);
  EXPECT_EQ(node->SetProperty(Property("State", Value::UInt32(1))), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty()) << "nobody answers for the object any more";
}

TEST_F(DBNodeTest, NothingIsToldBeforeTheCreatorIsRegistered) {
  auto fresh =
      std::make_unique<Provider>(database_.get(), database_->Types().FindType("KELD_Provider"),
                                 u"fresh", ProviderCallbacks{}, nullptr, false);
  Provider* provider = fresh.get();
  database_->AddProvider(std::move(fresh));
  DBNode* node = nullptr;
  ASSERT_EQ(database_->CreateDBNode(provider, "KELD_Object", 0, &node, nullptr), ZN_OK);
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(1))), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
  provider->SetRegistered();
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(2))), ZN_OK);
  EXPECT_THAT(TakeTopics(), ElementsAre(Topic(*node, ".data.change.")));
}

}  // namespace

}  // namespace zn::test
