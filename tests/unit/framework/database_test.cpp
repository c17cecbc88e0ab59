#include "framework/common/zncore/database.h"

#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/handle.h"
#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool Same(const ObjectId& a, const InternedId& b) {
  return SameGuid(a, b.Value());
}

class DatabaseTest : public StoreTest {
 protected:
  static std::vector<std::string> Texts(const std::vector<ObjectId>& ids) {
    std::vector<std::string> texts;
    for (const ObjectId& id : ids) texts.push_back(GuidText(id));
    return texts;
  }
  static std::string Text(const DBNode* node) { return GuidText(node->GetId().Value()); }
};

TEST_F(DatabaseTest, HasAnIdAHandleAndTheAuthenticatedFlag) {
  EXPECT_FALSE(database_->GetId().IsZero());
  ASSERT_TRUE(IsValidHandle(database_->Handle(), HANDLE_DATABASE));
  EXPECT_EQ(HandleThing<Database>(database_->Handle()), database_.get());
  EXPECT_TRUE(database_->IsAuthenticated());
  EXPECT_TRUE(database_->IsKeyed());
  EXPECT_TRUE(database_->IsLocal());
  EXPECT_EQ(ZnGetSystemDatabase(), database_.get());
}

TEST_F(DatabaseTest, ItsHandleGoesWithIt) {
  auto scratch = std::make_unique<Database>(DB_PRIVATE, DatabaseCallbacks{});
  const ZnHandle handle = scratch->Handle();
  EXPECT_EQ(scratch->Flags(), DB_PRIVATE | DB_AUTHENTICATED);
  EXPECT_FALSE(scratch->IsKeyed());
  scratch.reset();
  EXPECT_FALSE(IsValidHandle(handle, HANDLE_DATABASE));
}

TEST_F(DatabaseTest, CreationGivesTheDefaultPropertiesAndTellsOnce) {
  PropertySet declared;
  declared.Put("Size", Value::UInt64(12));
  MakeType("Disk", declared);
  DBNode* node = nullptr;
  ASSERT_EQ(database_->CreateDBNode(provider_, "Disk", 0, &node, nullptr), ZN_OK);
  EXPECT_FALSE(node->GetId().IsZero());
  EXPECT_EQ(node->CreatorId(), provider_->GetId());
  EXPECT_EQ(node->GetTypeName(), "Disk");
  ASSERT_EQ(node->Properties().Count(), 3u);
  EXPECT_EQ(node->Properties().FindValue("Name", ZN_TYPE_WIDESTRING)->AsWideText(), u"Noname");
  EXPECT_EQ(node->Properties().FindValue("Size", ZN_TYPE_UINT64)->AsUInt64(), 12u);
  EXPECT_EQ(database_->FindObject(node->GetId()), node);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic, Topic(*node, ".object.add."));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[0].id, node->GetId());
}

TEST_F(DatabaseTest, CreationOfAnUnknownTypeFailsWithATrace) {
  DBNode* node = Make();
  const size_t before = database_->ObjectCount();
  const TraceCapture trace;
  EXPECT_EQ(database_->CreateDBNode(provider_, "NoSuchType", 0, &node, nullptr),
            ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(node, nullptr);
  EXPECT_EQ(database_->ObjectCount(), before);
  EXPECT_THAT(trace.Messages(), ElementsAre("Database::CreateDBNode :"));
}

TEST_F(DatabaseTest, CreationUnitesTheFlagsOfTypeAndCaller) {
  MakeType("Shy", {}, {"KELD_Object"}, OBJECT_HIDDEN);
  const DBNode* node = Make("Shy", OBJECT_NODISPLAY);
  EXPECT_EQ(node->GetFlags(), OBJECT_HIDDEN | OBJECT_NODISPLAY);
  EXPECT_TRUE(node->IsHidden()) << "a hidden type has hidden objects";
}

TEST_F(DatabaseTest, CreationOfAHiddenObjectIsNotTold) {
  DBNode* node = nullptr;
  ASSERT_EQ(database_->CreateDBNode(provider_, "KELD_Object", OBJECT_HIDDEN, &node, nullptr),
            ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(DatabaseTest, CreationOfAClientsGroupMarksItAsLocalToTheClient) {
  EXPECT_EQ(Make("KELD_GenericGroup", OBJECT_GROUP_CLIENT)->GetFlags(),
            OBJECT_GROUP_CLIENT | OBJECT_CLIENT_LOCAL);
}

TEST_F(DatabaseTest, CreationTakesTheContainedTypes) {
  const std::vector<std::string> names{"B", "A"};
  DBNode* node = nullptr;
  ASSERT_EQ(database_->CreateDBNode(provider_, "KELD_GenericGroup", 0, &node, &names), ZN_OK);
  ASSERT_NE(node->GetContainedTypes(), nullptr);
  EXPECT_THAT(*node->GetContainedTypes(), ElementsAre("A", "B"));
}

TEST_F(DatabaseTest, CreationWithoutProviderIsTheSystemProviders) {
  DBNode* node = nullptr;
  ASSERT_EQ(database_->CreateDBNode(nullptr, "KELD_Object", 0, &node, nullptr), ZN_OK);
  EXPECT_TRUE(node->CreatorId().IsZero()) << "without a system provider";
  const Provider* system = AddProvider(u"system");
  ASSERT_EQ(database_->CreateDBNode(nullptr, "KELD_Object", 0, &node, nullptr), ZN_OK);
  EXPECT_EQ(node->CreatorId(), system->GetId());
}

TEST_F(DatabaseTest, NothingIsToldWhileNotificationIsOff) {
  database_->LowerNotifyEnable();
  DBNode* node = Make();
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(1))), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
  database_->RaiseNotifyEnable();
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(2))), ZN_OK);
  EXPECT_EQ(TakeTopics().size(), 1u);
}

TEST_F(DatabaseTest, FindsNothingUnderAnIdThatNoObjectHas) {
  Make();
  EXPECT_EQ(database_->FindObject(InternedId::Generate()), nullptr);
  EXPECT_EQ(database_->FindObject(TestGuid(1)), nullptr);
  EXPECT_FALSE(database_->ObjectExists(GUID{}));
}

TEST_F(DatabaseTest, FindsEachOfManyObjects) {
  std::vector<DBNode*> nodes;
  for (int i = 0; i < 3000; ++i) nodes.push_back(Make());
  for (size_t i = 0; i < nodes.size(); i += 2) {
    database_->DeleteNode(nodes[i]);
    nodes[i] = nullptr;
  }
  for (DBNode* node : nodes) {
    if (node == nullptr) continue;
    EXPECT_EQ(database_->FindObject(node->GetId()), node);
  }
  EXPECT_EQ(database_->ObjectCount(), nodes.size() / 2);
}

TEST_F(DatabaseTest, ListsInstancesOfATypeWithThoseOfDerivedTypes) {
  MakeType("Disk");
  MakeType("FastDisk", {}, {"Disk"});
  const DBNode* fast = Make("FastDisk");
  const DBNode* first = Make("Disk");
  const DBNode* second = Make("Disk", OBJECT_HIDDEN);
  Make();
  std::vector<ObjectId> ids;
  ASSERT_EQ(database_->GetObjectsOfType("Disk", &ids), ZN_OK);
  EXPECT_THAT(Texts(ids), ElementsAre(Text(first), Text(second), Text(fast)));
  ASSERT_EQ(database_->GetObjectsOfType("FastDisk", &ids), ZN_OK);
  EXPECT_THAT(Texts(ids), ElementsAre(Text(fast)));
  ASSERT_EQ(database_->GetObjectsOfType("", &ids), ZN_OK);
  EXPECT_EQ(ids.size(), 4u) << "the empty name is the root type";
}

TEST_F(DatabaseTest, ListsTheTypesAsInstancesOfTheTypeOfTypes) {
  std::vector<ObjectId> ids;
  ASSERT_EQ(database_->GetObjectsOfType("KELD_Type", &ids), ZN_OK);
  const TypeObject* root = database_->Types().FindType("KELD_Object");
  const std::vector<std::string> texts = Texts(ids);
  EXPECT_THAT(texts, testing::Contains(GuidText(root->GetId().Value())));
  EXPECT_EQ(database_->FindObject(root->GetId()), nullptr) << "types are no objects of the table";
}

TEST_F(DatabaseTest, ListsNoInstancesOfAnUnknownType) {
  std::vector<ObjectId> ids{TestGuid(9)};
  EXPECT_EQ(database_->GetObjectsOfType("NoSuchType", &ids), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ids.size(), 1u);
  Database bare(0, {});
  EXPECT_EQ(bare.GetObjectsOfType("KELD_Type", &ids), ZNE_UNEXPECTED);
  EXPECT_EQ(bare.GetObjectsOfType("KELD_Object", &ids), ZNE_INVALID_ARGUMENTS);
}

TEST_F(DatabaseTest, KeysOfTwoProvidersAreApart) {
  const Provider* other = AddProvider(u"other");
  const GUID mine = provider_->GetId().Value();
  const GUID theirs = other->GetId().Value();
  DBNode* a = Make();
  DBNode* b = Make();
  SetTestKey(*a, mine, "sda");
  SetTestKey(*b, theirs, "sda");
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "sda")), a);
  EXPECT_EQ(database_->FindByKey(TestKey(theirs, "sda")), b);
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "sdb")), nullptr);
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "sd")), nullptr);
}

TEST_F(DatabaseTest, AKeyFollowsItsObject) {
  const GUID mine = provider_->GetId().Value();
  DBNode* node = Make();
  SetTestKey(*node, mine, "old");
  SetTestKey(*node, mine, "new");
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "old")), nullptr);
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "new")), node);
  node->SetKey({});
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "new")), nullptr);
  SetTestKey(*node, mine, "again");
  database_->DeleteNode(node);
  EXPECT_EQ(database_->FindByKey(TestKey(mine, "again")), nullptr);
}

TEST_F(DatabaseTest, KeysOfEveryLengthAreFound) {
  const GUID mine = provider_->GetId().Value();
  std::vector<DBNode*> nodes;
  std::string bytes;
  for (size_t length = 0; length < 40; ++length, bytes += '\0') {
    nodes.push_back(Make());
    SetTestKey(*nodes.back(), mine, bytes);
  }
  for (size_t length = 0; length < 40; ++length) {
    EXPECT_EQ(database_->FindByKey(TestKey(mine, std::string(length, '\0'))), nodes[length]);
  }
}

TEST_F(DatabaseTest, WithoutAKeyTableEveryObjectIsLookedAt) {
  Database scratch(DB_PRIVATE, {});
  EXPECT_EQ(scratch.FindByKey(TestKey(TestGuid(1), "a")), nullptr) << "no types at all";
  CopyTypes(*database_, scratch);
  DBNode* plain = nullptr;
  DBNode* keyed = nullptr;
  ASSERT_EQ(scratch.CreateDBNode(nullptr, "KELD_Object", 0, &plain, nullptr), ZN_OK);
  ASSERT_EQ(scratch.CreateDBNode(nullptr, "KELD_Object", 0, &keyed, nullptr), ZN_OK);
  SetTestKey(*keyed, TestGuid(1), "a");
  EXPECT_EQ(scratch.FindByKey(TestKey(TestGuid(1), "a")), keyed);
  EXPECT_EQ(scratch.FindByKey(TestKey(TestGuid(1), "b")), nullptr);
  EXPECT_EQ(scratch.FindByKey({}), nullptr) << "an object without a key has not the empty key";
}

TEST_F(DatabaseTest, ObjectsAreFoundByInterfaceAndType) {
  MakeType("Disk");
  MakeType("FastDisk", {}, {"Disk"});
  DBNode* plain = Make();
  DBNode* disk = Make("Disk");
  DBNode* fast = Make("FastDisk");
  for (DBNode* node : {plain, disk, fast}) {
    ASSERT_EQ(database_->RegisterInterface(node, TestGuid(1), provider_->GetId()), ZN_OK);
  }
  EXPECT_EQ(database_->RegisterInterface(disk, TestGuid(1), provider_->GetId()),
            ZNE_INTERFACE_EXISTS);
  std::vector<ObjectId> ids;
  ASSERT_EQ(database_->GetObjectsWithInterface("Disk", TestGuid(1), &ids), ZN_OK);
  EXPECT_THAT(Texts(ids), testing::UnorderedElementsAre(Text(disk), Text(fast)));
  ASSERT_EQ(database_->GetObjectsWithInterface("KELD_Object", TestGuid(1), &ids), ZN_OK);
  EXPECT_EQ(ids.size(), 3u);
  ASSERT_EQ(database_->GetObjectsWithInterface("Disk", TestGuid(2), &ids), ZN_OK);
  EXPECT_THAT(Texts(ids), IsEmpty());
  EXPECT_EQ(database_->GetObjectsWithInterface("NoSuchType", TestGuid(1), &ids),
            ZNE_INVALID_ARGUMENTS);
}

TEST_F(DatabaseTest, ADeregisteredInterfaceIsFoundNoMore) {
  DBNode* node = Make();
  EXPECT_EQ(database_->DeregisterInterface(node, TestGuid(1)), ZNE_INTERFACE_NOT_FOUND);
  ASSERT_EQ(database_->RegisterInterface(node, TestGuid(1), provider_->GetId()), ZN_OK);
  ASSERT_EQ(database_->DeregisterInterface(node, TestGuid(1)), ZN_OK);
  std::vector<ObjectId> ids;
  ASSERT_EQ(database_->GetObjectsWithInterface("KELD_Object", TestGuid(1), &ids), ZN_OK);
  EXPECT_THAT(Texts(ids), IsEmpty());
  EXPECT_THAT(node->Interfaces(), IsEmpty());
  ASSERT_EQ(database_->RegisterInterface(node, TestGuid(1), provider_->GetId()), ZN_OK);
  database_->DeleteNode(node);
  ASSERT_EQ(database_->GetObjectsWithInterface("KELD_Object", TestGuid(1), &ids), ZN_OK);
  EXPECT_THAT(Texts(ids), IsEmpty()) << "a deleted object is registered nowhere";
}

TEST_F(DatabaseTest, ProvidersAreFoundByNameIdAndHandle) {
  Provider* other = AddProvider(u"other");
  EXPECT_EQ(database_->FindProviderByName(u"other"), other);
  EXPECT_EQ(database_->FindProviderByName(u"Other"), nullptr) << "names compare exactly";
  EXPECT_EQ(database_->FindProviderById(other->GetId().Value()), other);
  EXPECT_EQ(database_->FindProviderById(TestGuid(1)), nullptr);
  EXPECT_EQ(database_->FindProviderByHandle(other->Handle()), other);
  EXPECT_EQ(database_->FindProviderByHandle(database_->Handle()), nullptr);
  const std::unique_ptr<Provider> taken = database_->TakeProvider(other);
  EXPECT_EQ(taken.get(), other);
  EXPECT_EQ(database_->FindProviderByName(u"other"), nullptr);
  EXPECT_EQ(database_->TakeProvider(other), nullptr);
}

std::vector<ZnHandle> shutDown;
u32 holdsInShutdown = 0;

TEST_F(DatabaseTest, ProvidersAreShutDownLastToFirstWithTheLockReleased) {
  ProviderCallbacks callbacks{};
  static const std::vector<std::unique_ptr<Provider>>* providersLeft = nullptr;
  static std::vector<size_t> leftAtShutdown;
  leftAtShutdown.clear();
  shutDown.clear();
  holdsInShutdown = 0;
  callbacks.Shutdown = [](ZnHandle handle) -> u32 {
    shutDown.push_back(handle);
    leftAtShutdown.push_back(providersLeft->size());
    holdsInShutdown += fastLock.HoldCount();
    return ZN_OK;
  };
  auto scratch = std::make_unique<Database>(0, DatabaseCallbacks{});
  CopyTypes(*database_, *scratch);
  providersLeft = &scratch->Providers();
  for (const auto* name : {u"one", u"two", u"three"}) AddProvider(name, callbacks, scratch.get());
  const ZnHandle handle = scratch->Handle();
  scratch.reset();
  EXPECT_THAT(shutDown, ElementsAre(handle, handle, handle));
  EXPECT_THAT(leftAtShutdown, ElementsAre(2u, 1u, 0u)) << "each is off the list when it is called";
  EXPECT_EQ(holdsInShutdown, 0u);
  EXPECT_EQ(fastLock.HoldCount(), 1u);
}

TEST_F(DatabaseTest, ItsEndDeletesEveryObjectAndTellsNothing) {
  static u32 callbackCalls = 0;
  callbackCalls = 0;
  DatabaseCallbacks callbacks;
  callbacks.changeCallback = [](ZnHandle) { ++callbackCalls; };
  auto scratch = std::make_unique<Database>(DB_KEYED, callbacks);
  CopyTypes(*database_, *scratch);
  const Provider* provider = AddProvider(u"scratch", {}, scratch.get());
  scratch->RaiseNotifyEnable();
  std::vector<InternedId> ids;
  DBNode* previous = nullptr;
  for (int i = 0; i < 100; ++i) {
    DBNode* node = nullptr;
    ASSERT_EQ(scratch->CreateDBNode(scratch->FindProviderByName(u"scratch"), "KELD_Object", 0,
                                    &node, nullptr),
              ZN_OK);
    ASSERT_EQ(node->CreatorId(), provider->GetId());
    if (previous != nullptr) static_cast<void>(node->AddChild(previous->GetId()));
    SetTestKey(*node, TestGuid(1), std::to_string(i));
    ASSERT_EQ(scratch->RegisterInterface(node, TestGuid(2), provider->GetId()), ZN_OK);
    ids.push_back(node->GetId());
    previous = node;
  }
  DBNode* group = nullptr;
  ASSERT_EQ(scratch->CreateGroup(u"All", {"KELD_Object"}, "KELD_GenericGroup", nullptr,
                                 OBJECT_GROUP_SERVER, &group),
            ZN_OK);
  scratch.reset();
  for (const InternedId& id : ids) EXPECT_EQ(id.ReferenceCount(), 1u) << "ours alone is left";
  EXPECT_EQ(callbackCalls, 0u);
}

TEST_F(DatabaseTest, ACopyHasTheTypesOfItsSource) {
  PropertySet declared;
  declared.Put("Serial", Value::UInt32(5));
  const TypeObject* disk = MakeType("Disk", declared);
  Database scratch(DB_PRIVATE, {});
  CopyTypes(*database_, scratch);
  EXPECT_EQ(scratch.Types().Types().size(), database_->Types().Types().size());
  const TypeObject* copy = scratch.Types().FindType("Disk");
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, disk);
  EXPECT_EQ(copy->GetId(), disk->GetId());
  DBNode* node = nullptr;
  ASSERT_EQ(scratch.CreateDBNode(nullptr, "Disk", 0, &node, nullptr), ZN_OK);
  EXPECT_EQ(node->Properties().FindValue("Serial", ZN_TYPE_UINT32)->AsUInt32(), 5u);
  EXPECT_EQ(database_->FindObject(node->GetId()), nullptr) << "the objects are apart";
  EXPECT_TRUE(Same(node->GetId().Value(), scratch.FindObject(node->GetId())->GetId()));
}

TEST_F(DatabaseTest, APrivateDatabaseTellsNothing) {
  Database scratch(DB_PRIVATE, {});
  CopyTypes(*database_, scratch);
  AddProvider(u"scratch", {}, &scratch);
  scratch.BeginUpdateSequence();
  DBNode* node = nullptr;
  ASSERT_EQ(scratch.CreateDBNode(scratch.FindProviderByName(u"scratch"), "KELD_Object", 0, &node,
                                 nullptr),
            ZN_OK);
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(1))), ZN_OK);
  EXPECT_FALSE(scratch.WouldNotify(*node));
  EXPECT_TRUE(scratch.PendingEvents().IsEmpty());
}

}  // namespace

}  // namespace zn::test
