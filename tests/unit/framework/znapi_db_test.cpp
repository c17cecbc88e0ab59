#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "tests/unit/framework/api_frame.h"
#include "zn/db.h"
#include "zn/memory.h"
#include "zn/pr.h"
#include "zn/ps.h"
#include "zn/type.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

ProviderCallbacks MinimalCallbacks() {
  ProviderCallbacks callbacks{};
  callbacks.Call = [](auto...) -> u32 { return ZN_OK; };
  callbacks.Initialize = [](auto...) -> u32 { return ZN_OK; };
  callbacks.Event = [](auto...) -> u32 { return ZN_OK; };
  return callbacks;
}

class DbTest : public FrameTest {
 protected:
  // Ids as texts, so that lists of them compare and print.
  template <typename Call>
  static std::vector<std::string> Ids(Call&& call) {
    u32 count = 99;
    ObjectId* ids = nullptr;
    EXPECT_EQ(call(&count, &ids), ZN_OK);
    EXPECT_EQ(ids == nullptr, count == 0);
    std::vector<std::string> texts;
    for (u32 i = 0; i < count; ++i) texts.push_back(GuidText(ids[i]));
    ZnFree(ids);
    return texts;
  }
  static std::vector<std::string> ObjectsIn(ZnHandle hDb, const char* type) {
    return Ids([&](u32* count, ObjectId** ids) { return DbGetObjects(hDb, type, count, ids); });
  }
  std::vector<std::string> Objects(const char* type) { return ObjectsIn(Db(), type); }
  std::vector<std::string> ChildrenOf(const ObjectId& id) {
    return Ids([&](u32* count, ObjectId** ids) {
      return ObGetChildObjects(Db(), id, nullptr, count, ids);
    });
  }
  u32 CreateGroup(const ZnWChar* name, std::vector<const char*> types, u32 flags = 0) {
    return DbCreateGroupNode(Db(), static_cast<u32>(types.size()), types.data(), flags, name,
                             &group_);
  }
  // The counter of open sequences belongs to the process; a test leaves it at 0.
  void CloseSequences() {
    while (DbUpdateSequenceFinish(AllOnesHandle(), 0) != ZN_OK) {
    }
  }

  ObjectId group_{};
};

TEST_F(DbTest, EveryCallOfTheFamilyRunsTheStandardFrame) {
  const char* types[] = {"KELD_Object"};
  const GUID interfaceId = TestGuid(1);
  u32 count = 0;
  ObjectId* ids = nullptr;
  const std::vector<FramedCall> calls = {
      {"DbCreateGroupNode",
       [&](ZnHandle h) { return DbCreateGroupNode(h, 1, types, 0, u"g", &group_); }},
      {"DbDeleteGroupNode", [&](ZnHandle h) { return DbDeleteGroupNode(h, u"g"); }},
      {"DbUpdateSequenceStart", [&](ZnHandle h) { return DbUpdateSequenceStart(h, 0); }},
      {"DbUpdateSequenceFinish", [&](ZnHandle h) { return DbUpdateSequenceFinish(h, 0); }},
      {"DbGetObjects",
       [&](ZnHandle h) {
         const u32 status = DbGetObjects(h, nullptr, &count, &ids);
         if (status == ZN_OK) ZnFree(ids);
         return status;
       }},
      {"DbGetObjectsWithInterface",
       [&](ZnHandle h) {
         return DbGetObjectsWithInterface(h, "KELD_Object", &interfaceId, &count, &ids);
       }},
  };
  for (const FramedCall& call : calls) ExpectStandardFrame(call);
  CloseSequences();
}

TEST_F(DbTest, BadArgumentsAreRefusedWithTheOneText) {
  const ZnHandle db = Db();
  const char* types[] = {"KELD_Object"};
  const GUID interfaceId = TestGuid(1);
  u32 count = 0;
  ObjectId* ids = nullptr;
  const std::string tooLong(8193, 'x');
  ExpectInvalidArguments("DbCreateGroupNode",
                         {[&] { return DbCreateGroupNode(db, 0, types, 0, u"g", &group_); },
                          [&] { return DbCreateGroupNode(db, 1, nullptr, 0, u"g", &group_); },
                          [&] { return DbCreateGroupNode(db, 1, types, 0, nullptr, &group_); },
                          [&] { return DbCreateGroupNode(db, 1, types, 0, u"g", nullptr); }});
  ExpectInvalidArguments("DbDeleteGroupNode", {[&] { return DbDeleteGroupNode(db, nullptr); }});
  ExpectInvalidArguments("DbGetObjects",
                         {[&] { return DbGetObjects(db, tooLong.c_str(), &count, &ids); },
                          [&] { return DbGetObjects(db, nullptr, nullptr, &ids); },
                          [&] { return DbGetObjects(db, nullptr, &count, nullptr); }});
  ExpectInvalidArguments(
      "DbGetObjectsWithInterface",
      {[&] { return DbGetObjectsWithInterface(db, nullptr, nullptr, &count, &ids); },
       [&] { return DbGetObjectsWithInterface(db, nullptr, &interfaceId, nullptr, &ids); },
       [&] { return DbGetObjectsWithInterface(db, nullptr, &interfaceId, &count, nullptr); }});
  ExpectInvalidArguments("DbUpdateSequenceStart", {[&] { return DbUpdateSequenceStart(db, 1); }});
  CloseSequences();
}

// --- groups -----------------------------------------------------------------------------------

TEST_F(DbTest, AGroupHoldsWhatWasThereAndWhatComes) {
  MakeType("Disk");
  MakeType("Ssd", {}, {"Disk"});
  const ObjectId before = MakeObject("Ssd");
  const ObjectId other = MakeObject();
  ASSERT_EQ(CreateGroup(u"disks", {"Disk"}), ZN_OK);
  EXPECT_THAT(ChildrenOf(group_), ElementsAre(GuidText(before)));
  const ObjectId after = MakeObject("Disk");
  EXPECT_THAT(ChildrenOf(group_), UnorderedElementsAre(GuidText(before), GuidText(after)));
  u32 count = 0;
  ObjectId* parents = nullptr;
  ASSERT_EQ(ObGetParentObjects(Db(), after, nullptr, &count, &parents), ZN_OK);
  ASSERT_EQ(count, 1u);
  EXPECT_TRUE(ObCompareId(parents[0], group_));
  ZnFree(parents);
  EXPECT_FALSE(ObHasChildren(Db(), other, 0));
  char* type = nullptr;
  ASSERT_EQ(ObGetObjectType(Db(), group_, &type), ZN_OK);
  EXPECT_STREQ(type, "KELD_GenericGroup");
  ZnFree(type);
}

TEST_F(DbTest, AGroupOfEverythingIsItsOwnChild) {
  ASSERT_EQ(CreateGroup(u"all", {"KELD_Object"}), ZN_OK);
  EXPECT_THAT(ChildrenOf(group_), ElementsAre(GuidText(group_)));
}

TEST_F(DbTest, AGroupNameIsTakenOnce) {
  ASSERT_EQ(CreateGroup(u"g", {"KELD_Object"}), ZN_OK);
  EXPECT_EQ(CreateGroup(u"g", {"KELD_Provider"}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DbDeleteGroupNode(Db(), u"g"), ZN_OK);
  EXPECT_FALSE(ObExists(Db(), group_));
  EXPECT_EQ(DbDeleteGroupNode(Db(), u"g"), ZNE_GROUP_NOT_USER_CREATED);
  EXPECT_EQ(CreateGroup(u"g", {"KELD_Object"}), ZN_OK);
}

TEST_F(DbTest, AGroupOfALocalDatabaseCarriesItsMark) {
  ASSERT_EQ(CreateGroup(u"g", {"KELD_Object"}, OBJECT_NODISPLAY | 4), ZN_OK);
  EXPECT_EQ(database_->FindObject(group_)->GetFlags(), OBJECT_GROUP_SERVER | OBJECT_NODISPLAY);
}

TEST_F(DbTest, AGroupOfAClientCopyIsTheClientsAlone) {
  DatabaseCallbacks callbacks;
  callbacks.forwardRequest = [](PropertySet&, PropertySet*, void*) -> u32 {
    return ZNE_UNEXPECTED;
  };
  Database copy(0, callbacks);
  ASSERT_EQ(RegisterBaseObjectTypes(copy), ZN_OK);
  const char* types[] = {"KELD_Provider"};
  ASSERT_EQ(DbCreateGroupNode(copy.Handle(), 1, types, OBJECT_HIDDEN, u"g", &group_), ZN_OK);
  EXPECT_EQ(copy.FindCached(group_)->GetFlags(),
            OBJECT_GROUP_CLIENT | OBJECT_CLIENT_LOCAL | OBJECT_HIDDEN);
}

TEST_F(DbTest, GroupFlagsAreNormalised) {
  for (const u32 flags : {4u, 8u, 0x80000000u}) {
    ExpectRefusal({"DbCreateGroupNode", [&](ZnHandle) { return CreateGroup(u"g", {"X"}, flags); }},
                  Db(), ZNE_INVALID_ARGUMENTS, "Invalid flags specified");
  }
  EXPECT_EQ(CreateGroup(u"g", {"KELD_Object"}, 3), ZN_OK);
  u32 flags = 0;
  EXPECT_EQ(ObGetObjectFlags(Db(), group_, &flags), ZN_OK);
  EXPECT_EQ(flags, OBJECT_HIDDEN);
}

TEST_F(DbTest, ContainedTypeNamesAreCheckedAfterTheDatabase) {
  const std::string tooLong(8193, 'x');
  for (const char* bad :
       {static_cast<const char*>(nullptr), reinterpret_cast<const char*>(16), tooLong.c_str()}) {
    ExpectRefusal({"DbCreateGroupNode",
                   [&](ZnHandle) {
                     return CreateGroup(u"g", {"KELD_Object", bad});
                   }},
                  Db(), ZNE_INVALID_ARGUMENTS, "Invalid contained type string");
    database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
    EXPECT_EQ(CreateGroup(u"g", {bad}), ZNW_SHMEM_LOGIN_FAILED);
    database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
  }
  EXPECT_THAT(Objects("KELD_Group"), IsEmpty());
}

// --- lists ------------------------------------------------------------------------------------

TEST_F(DbTest, ListsObjectsOfATypeAndItsDerivedTypes) {
  MakeType("Disk");
  MakeType("Ssd", {}, {"Disk"});
  const std::string ssd = GuidText(MakeObject("Ssd"));
  const std::string disk = GuidText(MakeObject("Disk"));
  const std::string plain = GuidText(MakeObject());
  EXPECT_THAT(Objects("Disk"), ElementsAre(disk, ssd));  // type by type
  EXPECT_THAT(Objects("Ssd"), ElementsAre(ssd));
  for (const char* all : {static_cast<const char*>(nullptr), "", "KELD_Object"}) {
    EXPECT_THAT(Objects(all), ElementsAre(plain, disk, ssd));
  }
  EXPECT_THAT(Objects("KELD_Group"), IsEmpty());
}

TEST_F(DbTest, AnUnknownTypeIsAnInvalidArgumentAndOutputsStay) {
  u32 count = 7;
  ObjectId* ids = &group_;
  EXPECT_EQ(DbGetObjects(Db(), "Nobody", &count, &ids), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(count, 7u);
  EXPECT_EQ(ids, &group_);
}

TEST_F(DbTest, TheTypeOfTypesListsTypes) {
  const std::string type = GuidText(MakeType("Disk")->GetId().Value());
  EXPECT_EQ(Objects("KELD_Type").back(), type);
  Database bare(0, {});
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjects(bare.Handle(), "KELD_Type", &count, &ids), ZNE_UNEXPECTED);
}

TEST_F(DbTest, ListsObjectsWithAnInterface) {
  MakeType("Disk");
  const GUID served = TestGuid(1);
  const GUID onType = TestGuid(2);
  const ObjectId disk = MakeObject("Disk");
  const ObjectId plain = MakeObject();
  MakeObject();
  ASSERT_EQ(ObRegisterInterface(Db(), disk, ProviderHandle(), &served), ZN_OK);
  ASSERT_EQ(ObRegisterInterface(Db(), plain, ProviderHandle(), &served), ZN_OK);
  ASSERT_EQ(ObRegisterInterfaceOnType(Db(), "Disk", ProviderHandle(), &onType), ZN_OK);
  const auto list = [&](const char* type, const GUID& id) {
    return Ids([&](u32* count, ObjectId** ids) {
      return DbGetObjectsWithInterface(Db(), type, &id, count, ids);
    });
  };
  EXPECT_THAT(list("KELD_Object", served), UnorderedElementsAre(GuidText(disk), GuidText(plain)));
  EXPECT_THAT(list("Disk", served), ElementsAre(GuidText(disk)));
  EXPECT_EQ(list(nullptr, served).size(), 2u);
  EXPECT_EQ(list("", served).size(), 2u);
  EXPECT_THAT(list("Disk", onType), IsEmpty());  // what a type serves is no object's own
}

TEST_F(DbTest, AListByInterfaceClearsItsOutputsOnceTheArgumentsPassed) {
  const GUID id = TestGuid(1);
  u32 count = 7;
  ObjectId* ids = &group_;
  EXPECT_EQ(DbGetObjectsWithInterface(AllOnesHandle(), "Nobody", &id, &count, &ids),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(count, 7u);
  EXPECT_EQ(DbGetObjectsWithInterface(Db(), "Nobody", &id, &count, &ids), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(ids, nullptr);
}

// --- update sequences -------------------------------------------------------------------------

TEST_F(DbTest, FinishingWithoutAStartSucceedsForAnyHandle) {
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([] { return DbUpdateSequenceFinish(AllOnesHandle(), 0); }, &messages), ZN_OK);
  EXPECT_THAT(messages, ElementsAre(Entering("DbUpdateSequenceFinish"),
                                    Exiting("DbUpdateSequenceFinish", ZN_OK)));
  EXPECT_EQ(DbUpdateSequenceFinish(nullptr, 5), ZN_OK);
  EXPECT_EQ(DbUpdateSequenceFinish(ProviderHandle(), 0), ZN_OK);
}

TEST_F(DbTest, ASequenceHoldsChangesUntilItsFinish) {
  database_->EndUpdateSequence();  // the fixture's own
  const ObjectId id = MakeObject();
  database_->EndUpdateSequence();
  ASSERT_EQ(database_->SequenceDepth(), 0u);
  ASSERT_EQ(DbUpdateSequenceStart(Db(), 0), ZN_OK);
  EXPECT_EQ(database_->SequenceDepth(), 1u);
  ASSERT_EQ(ObSetFlags(Db(), id, OBJECT_NODISPLAY), ZN_OK);
  EXPECT_EQ(database_->PendingEvents().Size(), 1u);
  ASSERT_EQ(DbUpdateSequenceFinish(Db(), 77), ZN_OK);  // the word is ignored
  EXPECT_TRUE(database_->PendingEvents().IsEmpty());
  EXPECT_EQ(database_->SequenceDepth(), 0u);
  database_->BeginUpdateSequence();
}

TEST_F(DbTest, ARefusedStartStillLetsOneFinishRun) {
  ASSERT_EQ(DbUpdateSequenceStart(AllOnesHandle(), 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DbUpdateSequenceFinish(AllOnesHandle(), 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DbUpdateSequenceFinish(AllOnesHandle(), 0), ZN_OK);  // spent
}

TEST_F(DbTest, AFinishOnAnotherDatabaseLeavesItsDepthAtZero) {
  ZnHandle other = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&other), ZN_OK);
  const u32 depth = database_->SequenceDepth();
  ASSERT_EQ(DbUpdateSequenceStart(Db(), 0), ZN_OK);
  EXPECT_EQ(DbUpdateSequenceFinish(other, 0), ZN_OK);
  EXPECT_EQ(HandleThing<Database>(other)->SequenceDepth(), 0u);
  EXPECT_EQ(database_->SequenceDepth(), depth + 1);
  EXPECT_EQ(DbDeletePrivateDatabase(other), ZN_OK);
}

// --- private databases ------------------------------------------------------------------------

TEST_F(DbTest, APrivateDatabaseHasTheTypesOfTheSystemDatabase) {
  MakeType("Disk");
  MakeType("Ssd", {}, {"Disk"});
  ZnHandle db = nullptr;
  EXPECT_THAT(MessagesOf([&] {
                const u32 status = DbCreatePrivateDatabase(&db);
                EXPECT_EQ(status, ZN_OK);
                return status;
              }),
              IsEmpty());
  EXPECT_TRUE(TypeIsA(db, "Ssd", "Disk"));
  // The same types under the same ids, in another order.
  std::vector<std::string> copied = ObjectsIn(db, "KELD_Type");
  std::vector<std::string> own = Objects("KELD_Type");
  EXPECT_THAT(copied, testing::UnorderedElementsAreArray(own));
  const Database* database = HandleThing<Database>(db);
  EXPECT_NE(database->Flags() & DB_PRIVATE, 0u);
  EXPECT_TRUE(database->IsAuthenticated());
  EXPECT_FALSE(database->IsKeyed());
  EXPECT_TRUE(database->IsLocal());
  for (const auto& listed : DatabaseList()) EXPECT_NE(listed.get(), database);
  EXPECT_EQ(DbDeletePrivateDatabase(db), ZN_OK);
}

TEST_F(DbTest, APrivateDatabaseStandsWithoutASystemDatabase) {
  SetSystemDatabase(nullptr);
  ZnHandle db = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&db), ZN_OK);
  ZnHandle provider = nullptr;
  const ProviderCallbacks callbacks = MinimalCallbacks();
  ASSERT_EQ(PrCreateProvider(db, u"mine", &callbacks, &provider), ZN_OK);
  ObjectId id{};
  ASSERT_EQ(ObCreateObject(db, provider, "KELD_Object", &id), ZN_OK);
  u32 value = 5;
  char name[] = "State";
  const Property2 state{name, ZN_TYPE_UINT32, 0, 4, &value};
  ASSERT_EQ(ObSetProperty(db, id, &state), ZN_OK);
  Property2* property = nullptr;
  ASSERT_EQ(ObGetProperty(db, id, "State", &property), ZN_OK);
  EXPECT_EQ(std::memcmp(property->Value, &value, 4), 0);
  EXPECT_EQ(PsFreeProperty(property), ZN_OK);
  EXPECT_EQ(ObjectsIn(db, nullptr).size(), 1u);
  EXPECT_EQ(DbDeletePrivateDatabase(db), ZN_OK);
  EXPECT_FALSE(ObExists(db, id));
  SetSystemDatabase(database_.get());
}

TEST_F(DbTest, ObjectsOfAPrivateDatabaseAreItsOwn) {
  ZnHandle db = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&db), ZN_OK);
  ObjectId id{};
  ASSERT_EQ(ObCreateObject(db, ProviderHandle(), "KELD_Object", &id), ZN_OK);
  EXPECT_TRUE(ObExists(db, id));
  EXPECT_FALSE(ObExists(Db(), id));
  EXPECT_THAT(TakeTopics(), IsEmpty());
  EXPECT_EQ(DbDeletePrivateDatabase(db), ZN_OK);
}

TEST_F(DbTest, APrivateDatabaseNeedsAnOutput) {
  EXPECT_EQ(DbCreatePrivateDatabase(nullptr), ZNE_INVALID_ARGUMENTS);
}

TEST_F(DbTest, OnlyAPrivateDatabaseCanBeDeleted) {
  const FramedCall remove{"DbDeletePrivateDatabase",
                          [](ZnHandle h) { return DbDeletePrivateDatabase(h); }};
  ExpectRefusal(remove, nullptr, ZNE_INVALID_ARGUMENTS, "Invalid arguments");
  ExpectRefusal(remove, AllOnesHandle(), ZNE_INVALID_ARGUMENTS, "Invalid arguments");
  ExpectRefusal(remove, ProviderHandle(), ZNE_INVALID_ARGUMENTS, "Invalid arguments");
  ExpectRefusal(remove, Db(), ZNE_INVALID_ARGUMENTS, "Trying to delete non-private database");
  const ObjectId id = MakeObject();  // the database is as it was
  EXPECT_TRUE(ObExists(Db(), id));
  const ZnHandle hollow = AllocateHandle(HANDLE_DATABASE, nullptr);
  ExpectRefusal(remove, hollow, ZNE_INVALID_ARGUMENTS, "Invalid database");
  EXPECT_TRUE(FreeHandle(hollow, HANDLE_DATABASE));
}

TEST_F(DbTest, ADeletedDatabaseLeavesADeadHandle) {
  ZnHandle db = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&db), ZN_OK);
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([&] { return DbDeletePrivateDatabase(db); }, &messages), ZN_OK);
  EXPECT_THAT(messages, ElementsAre(Entering("DbDeletePrivateDatabase"),
                                    Exiting("DbDeletePrivateDatabase", ZN_OK)));
  EXPECT_EQ(DbDeletePrivateDatabase(db), ZNE_INVALID_ARGUMENTS);
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjects(db, nullptr, &count, &ids), ZNE_INVALID_ARGUMENTS);
}

// The destructor calls the providers with the lock released and the handle still good.
TEST_F(DbTest, ADatabaseInDeletionCannotBeDeletedAgain) {
  static u32 second;
  second = ZN_OK;
  ProviderCallbacks callbacks = MinimalCallbacks();
  callbacks.Shutdown = [](ZnHandle hDb) -> u32 {
    second = DbDeletePrivateDatabase(hDb);
    return ZN_OK;
  };
  ZnHandle db = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&db), ZN_OK);
  ZnHandle provider = nullptr;
  ASSERT_EQ(PrCreateProvider(db, u"mine", &callbacks, &provider), ZN_OK);
  EXPECT_EQ(DbDeletePrivateDatabase(db), ZN_OK);
  EXPECT_EQ(second, ZNE_INVALID_ARGUMENTS);
}

// --- threads ----------------------------------------------------------------------------------

TEST(DbLockThreads, TheAdvisoryLockHoldsOthersOffWhateverTheHandle) {
  std::atomic<bool> inside{false};
  int counter = 0;
  DbLockDatabase(nullptr);
  DbLockDatabase(AllOnesHandle());  // the same lock again
  std::thread other([&] {
    DbLockDatabase(reinterpret_cast<ZnHandle>(16));
    inside = true;
    ++counter;
    DbUnlockDatabase(nullptr);
  });
  ++counter;
  DbUnlockDatabase(nullptr);
  EXPECT_FALSE(inside);  // one hold is left
  ++counter;
  DbUnlockDatabase(nullptr);
  other.join();
  EXPECT_TRUE(inside);
  EXPECT_EQ(counter, 3);
  DbUnlockDatabase(nullptr);  // without a lock: nothing
}

TEST(DbLockThreads, TheAdvisoryLockLeavesTheBusAlone) {
  DbLockDatabase(nullptr);
  EXPECT_FALSE(fastLock.HeldByThisThread());
  u32 status = 1;
  std::thread other([&] {
    ZnHandle db = nullptr;
    status = DbCreatePrivateDatabase(&db);
    if (status == ZN_OK) status = DbDeletePrivateDatabase(db);
  });
  other.join();
  EXPECT_EQ(status, ZN_OK);
  DbUnlockDatabase(nullptr);
}

TEST(DbThreads, DatabasesComeAndGoOnManyThreads) {
  constexpr int kThreads = 4;
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&good] {
      for (int round = 0; round < 20; ++round) {
        ZnHandle db = nullptr;
        ZnHandle provider = nullptr;
        ObjectId id{};
        const ProviderCallbacks callbacks = MinimalCallbacks();
        const bool made = DbCreatePrivateDatabase(&db) == ZN_OK &&
                          PrCreateProvider(db, u"mine", &callbacks, &provider) == ZN_OK &&
                          ObCreateObject(db, provider, "KELD_Object", &id) == ZN_OK &&
                          ObExists(db, id);
        if (made && DbDeletePrivateDatabase(db) == ZN_OK && !ObExists(db, id)) ++good;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, kThreads * 20);
}

}  // namespace

}  // namespace zn::test
