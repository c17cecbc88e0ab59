// The Pr exports but for the calls, and ZnRegisterAsProvider.
#include "framework/common/znprov/localprovider.h"

#include <functional>

#include "tests/unit/framework/bus_fixture.h"
#include "zn/db.h"
#include "zn/init.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

const ZnHandle kNoHandle = reinterpret_cast<ZnHandle>(0x5555);

class PrTest : public BusTest {
 protected:
  // That the call is refused with its own name in the trace.
  static void ExpectRefused(const char* name, const std::function<u32()>& call,
                            const char* why = "Invalid arguments") {
    const TraceCapture trace;
    EXPECT_EQ(call(), ZNE_INVALID_ARGUMENTS);
    const std::string text(name);
    EXPECT_EQ(trace.Messages(),
              (std::vector<std::string>{"ZnAPI:Entering " + text, "ZnAPI:" + text + ": " + why,
                                        "ZnAPI:Exiting " + text + ": 0x80070057, 2147942487"}));
  }
  ProviderCallbacks slots_ = ScriptedSlots();
  ZnHandle out_ = kNoHandle;
};

TEST_F(PrTest, CreateProviderRefusesBadArguments) {
  const auto create = [&](ZnHandle db, const ZnWChar* name, const ProviderCallbacks* slots,
                          ZnHandle* out) {
    ExpectRefused("PrCreateProvider", [&] { return PrCreateProvider(db, name, slots, out); });
  };
  const std::u16string longName(4097, u'x');
  create(SystemProvider(), u"a", &slots_, &out_);
  create(nullptr, nullptr, &slots_, &out_);
  create(nullptr, longName.c_str(), &slots_, &out_);
  create(nullptr, u"a", nullptr, &out_);
  create(nullptr, u"a", &slots_, nullptr);
  ProviderCallbacks without = slots_;
  without.Call = nullptr;
  create(nullptr, u"a", &without, &out_);
  without = slots_;
  without.Initialize = nullptr;
  create(nullptr, u"a", &without, &out_);
  without = slots_;
  without.Event = nullptr;
  create(nullptr, u"a", &without, &out_);
  EXPECT_EQ(out_, kNoHandle);
}

TEST_F(PrTest, CreateProviderNeedsADatabase) {
  SetSystemDatabase(nullptr);
  ExpectRefused(
      "PrCreateProvider", [&] { return PrCreateProvider(nullptr, u"a", &slots_, &out_); },
      "Invalid database");
  SetSystemDatabase(database_);
}

TEST_F(PrTest, CreateProviderInitialisesWithTheLockReleased) {
  u32 depth = 99;
  ZnHandle given = nullptr;
  bool wasRegistered = true;
  script.initialize = [&](ZnHandle database, ZnHandle provider) -> u32 {
    depth = fastLock.HoldCount();
    given = provider;
    EXPECT_EQ(database, database_->Handle());
    const BusLock lock;
    wasRegistered = HandleThing<Provider>(provider)->IsRegistered();
    return ZN_OK;
  };
  EXPECT_EQ(PrCreateProvider(nullptr, u"a", &slots_, &out_), ZN_OK);
  EXPECT_EQ(depth, 0u);
  EXPECT_EQ(out_, given);
  EXPECT_FALSE(wasRegistered);
  EXPECT_TRUE(HandleThing<Provider>(out_)->IsRegistered());
  EXPECT_EQ(HandleThing<Provider>(out_)->GetFlags() & OBJECT_CLIENT_LOCAL, 0u);
}

TEST_F(PrTest, CreateProviderRefusesANameThatIsTaken) {
  MakeProvider(u"a");
  EXPECT_EQ(PrCreateProvider(nullptr, u"a", &slots_, &out_), ZNE_PROVIDER_NAME_EXISTS);
  EXPECT_EQ(PrCreateProvider(nullptr, u"system", &slots_, &out_), ZNE_PROVIDER_NAME_EXISTS);
  EXPECT_EQ(out_, kNoHandle);
  EXPECT_EQ(PrCreateProvider(nullptr, u"A", &slots_, &out_), ZN_OK);  // another name
}

TEST_F(PrTest, AFailedInitializeLeavesNothing) {
  ObjectId made{};
  script.initialize = [&](ZnHandle, ZnHandle provider) -> u32 {
    EXPECT_EQ(ObCreateObject(nullptr, provider, "KELD_Object", &made), ZN_OK);
    return ZNE_DEVICE_NOT_FOUND;
  };
  EXPECT_EQ(PrCreateProvider(nullptr, u"a", &slots_, &out_), ZNE_DEVICE_NOT_FOUND);
  EXPECT_EQ(out_, kNoHandle);
  EXPECT_FALSE(ObExists(nullptr, made));
  EXPECT_EQ(PrGetProviderByName(nullptr, u"a", &out_), ZNE_PROVIDER_REG_NO_PROVIDERS);
  script.initialize = [](ZnHandle, ZnHandle) -> u32 { throw 1; };
  EXPECT_EQ(PrCreateProvider(nullptr, u"a", &slots_, &out_), ZNE_PROVIDER_ACCESS_VIOLATED);
  script.initialize = nullptr;
  EXPECT_EQ(PrCreateProvider(nullptr, u"a", &slots_, &out_), ZN_OK);
}

TEST_F(PrTest, AProviderOfAPrivateDatabaseIsTheClients) {
  ZnHandle database = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&database), ZN_OK);
  ASSERT_EQ(PrCreateProvider(database, u"a", &slots_, &out_), ZN_OK);
  EXPECT_NE(HandleThing<Provider>(out_)->GetFlags() & OBJECT_CLIENT_LOCAL, 0u);
  ASSERT_EQ(DbDeletePrivateDatabase(database), ZN_OK);
}

TEST_F(PrTest, InitializeMayDeleteItsPrivateDatabase) {
  ZnHandle database = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&database), ZN_OK);
  script.initialize = [](ZnHandle mine, ZnHandle) -> u32 { return DbDeletePrivateDatabase(mine); };
  EXPECT_EQ(PrCreateProvider(database, u"a", &slots_, &out_), ZNE_UNEXPECTED);
  EXPECT_EQ(out_, kNoHandle);
}

TEST_F(PrTest, RegisterAsProviderNeedsTheEventSlotAlone) {
  ProviderCallbacks eventOnly{};
  eventOnly.Event = slots_.Event;
  EXPECT_EQ(ZnRegisterAsProvider(nullptr, u"a", &eventOnly, &out_), ZN_OK);
  EXPECT_TRUE(HandleThing<Provider>(out_)->IsRegistered());
  slots_.Event = nullptr;
  ExpectRefused("ZnRegisterAsProvider",
                [&] { return ZnRegisterAsProvider(nullptr, u"b", &slots_, &out_); });
}

TEST_F(PrTest, RegisterAsProviderRefusesBadArguments) {
  const auto refuse = [&](ZnHandle db, const ZnWChar* name, const ProviderCallbacks* slots,
                          ZnHandle* out) {
    ExpectRefused("ZnRegisterAsProvider",
                  [&] { return ZnRegisterAsProvider(db, name, slots, out); });
  };
  refuse(SystemProvider(), u"a", &slots_, &out_);
  refuse(nullptr, nullptr, &slots_, &out_);
  refuse(nullptr, u"a", nullptr, &out_);
  refuse(nullptr, u"a", &slots_, nullptr);
}

TEST_F(PrTest, RegisterAsProviderRunsInitialize) {
  bool ran = false;
  script.initialize = [&](ZnHandle, ZnHandle) -> u32 {
    ran = true;
    return ZN_OK;
  };
  EXPECT_EQ(ZnRegisterAsProvider(nullptr, u"a", &slots_, &out_), ZN_OK);
  EXPECT_TRUE(ran);
}

TEST_F(PrTest, RegisterAsProviderTakesANameThatIsTakenInSilence) {
  MakeProvider(u"a");
  EXPECT_EQ(ZnRegisterAsProvider(nullptr, u"a", &slots_, &out_), ZN_OK);
  EXPECT_EQ(out_, kNoHandle);
}

TEST_F(PrTest, ByNameComparesExactly) {
  const ZnHandle provider = MakeProvider(u"Name");
  EXPECT_EQ(PrGetProviderByName(nullptr, u"Name", &out_), ZN_OK);
  EXPECT_EQ(out_, provider);
  out_ = kNoHandle;
  EXPECT_EQ(PrGetProviderByName(nullptr, u"name", &out_), ZNE_PROVIDER_REG_NO_PROVIDERS);
  EXPECT_EQ(PrGetProviderByName(nullptr, u"SYSTEM", &out_), ZNE_PROVIDER_REG_NO_PROVIDERS);
  EXPECT_EQ(out_, kNoHandle);
}

TEST_F(PrTest, ByNameRefusesBadArguments) {
  const std::u16string longName(4097, u'x');
  const auto refuse = [&](ZnHandle db, const ZnWChar* name, ZnHandle* out) {
    ExpectRefused("PrGetProviderByName", [&] { return PrGetProviderByName(db, name, out); });
  };
  refuse(SystemProvider(), u"a", &out_);
  refuse(nullptr, nullptr, &out_);
  refuse(nullptr, longName.c_str(), &out_);
  refuse(nullptr, u"a", nullptr);
  EXPECT_EQ(PrGetProviderByName(nullptr, longName.substr(1).c_str(), &out_),
            ZNE_PROVIDER_REG_NO_PROVIDERS);
}

TEST_F(PrTest, ByIdAndBack) {
  const ZnHandle provider = MakeProvider();
  EXPECT_EQ(PrGetProviderHandle(database_->Handle(), IdOf(provider), &out_), ZN_OK);
  EXPECT_EQ(out_, provider);
  EXPECT_EQ(PrGetProviderHandle(database_->Handle(), ObjectId{}, &out_),
            ZNE_PROVIDER_REG_NO_PROVIDERS);
  ExpectRefused("PrGetProviderHandle",
                [&] { return PrGetProviderHandle(database_->Handle(), ObjectId{}, nullptr); });
  ExpectRefused("PrGetProviderHandle",
                [&] { return PrGetProviderHandle(provider, ObjectId{}, &out_); });
}

TEST_F(PrTest, ByIdDoesNotTakeTheNullDatabase) {
  const ObjectId id = IdOf(SystemProvider());
  ExpectRefused(
      "PrGetProviderHandle", [&] { return PrGetProviderHandle(nullptr, id, &out_); },
      "Invalid database");
}

TEST_F(PrTest, IdRefusesBadArguments) {
  ObjectId id{};
  const ZnHandle provider = MakeProvider();
  ExpectRefused("PrGetProviderId", [&] { return PrGetProviderId(nullptr, &id); });
  ExpectRefused("PrGetProviderId", [&] { return PrGetProviderId(database_->Handle(), &id); });
  ExpectRefused("PrGetProviderId", [&] { return PrGetProviderId(provider, nullptr); });
}

TEST_F(PrTest, NameIsABlockOfTheCaller) {
  ZnWChar* name = nullptr;
  const ZnHandle system = SystemProvider();
  ASSERT_EQ(PrGetProviderName(system, &name), ZN_OK);
  EXPECT_EQ(std::u16string(name), u"system");
  ZnFree(name);
  ExpectRefused("PrGetProviderName", [&] { return PrGetProviderName(nullptr, &name); });
  ExpectRefused("PrGetProviderName", [&] { return PrGetProviderName(system, nullptr); });
}

class PrPropertyTest : public PrTest {
 protected:
  void SetUp() override {
    PrTest::SetUp();
    provider_ = MakeProvider();
  }
  Property2 Number(u32* value) { return {name_, ZN_TYPE_UINT32, 0, sizeof(u32), value}; }
  ZnHandle provider_ = nullptr;
  char name_[8] = "Number";
};

TEST_F(PrPropertyTest, SetsGetsAndTellsWhatIsUnchanged) {
  u32 value = 5;
  const Property2 number = Number(&value);
  EXPECT_EQ(PrSetProperty(provider_, &number), ZN_OK);
  EXPECT_EQ(PrSetProperty(provider_, &number), ZNI_PROPSET_UNCHANGED);
  Property2* read = nullptr;
  ASSERT_EQ(PrGetProperty(provider_, "Number", &read), ZN_OK);
  EXPECT_EQ(read->Type, ZN_TYPE_UINT32);
  EXPECT_EQ(*static_cast<u32*>(read->Value), 5u);
  EXPECT_EQ(PsFreeProperty(read), ZN_OK);
  EXPECT_EQ(PrGetProperty(provider_, "Nothing", &read), ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(PrPropertyTest, AnotherTypeIsRefusedAndTheOldValueStays) {
  u32 value = 5;
  const Property2 number = Number(&value);
  ASSERT_EQ(PrSetProperty(provider_, &number), ZN_OK);
  u8 flag = 1;
  const Property2 boolean{name_, ZN_TYPE_BOOLEAN, 0, 1, &flag};
  EXPECT_EQ(PrSetProperty(provider_, &boolean), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrSetProperty(provider_, &number), ZNI_PROPSET_UNCHANGED);
}

TEST_F(PrPropertyTest, SetsMergeAndAreCopied) {
  Propset values;
  values.Set().Put("A", Value::UInt32(1));
  values.Set().Put("B", Value::UInt32(2));
  EXPECT_EQ(PrSetProperties(provider_, values.Get()), ZN_OK);
  ZnHandle copy = nullptr;
  ASSERT_EQ(PrGetProperties(provider_, &copy), ZN_OK);
  EXPECT_EQ(HandleThing<PropertySet>(copy)->Count(), 2u);
  HandleThing<PropertySet>(copy)->Put("C", Value::UInt32(3));
  EXPECT_EQ(HandleThing<Provider>(provider_)->Properties().Count(), 2u);
  EXPECT_EQ(PsDestroyPropset(copy), ZN_OK);
}

TEST_F(PrPropertyTest, RefuseBadArguments) {
  u32 value = 5;
  const Property2 number = Number(&value);
  Property2* read = nullptr;
  Propset set;
  ZnHandle out = nullptr;
  const std::string longName(4097, 'x');
  ExpectRefused("PrGetProperty", [&] { return PrGetProperty(set.Get(), "a", &read); });
  ExpectRefused("PrGetProperty", [&] { return PrGetProperty(provider_, nullptr, &read); });
  ExpectRefused("PrGetProperty", [&] { return PrGetProperty(provider_, longName.c_str(), &read); });
  ExpectRefused("PrGetProperty", [&] { return PrGetProperty(provider_, "a", nullptr); });
  ExpectRefused("PrSetProperty", [&] { return PrSetProperty(nullptr, &number); });
  ExpectRefused("PrSetProperty", [&] { return PrSetProperty(provider_, nullptr); });
  ExpectRefused("PrGetProperties", [&] { return PrGetProperties(nullptr, &out); });
  ExpectRefused("PrGetProperties", [&] { return PrGetProperties(provider_, nullptr); });
  ExpectRefused("PrSetProperties", [&] { return PrSetProperties(set.Get(), set.Get()); });
  ExpectRefused("PrSetProperties", [&] { return PrSetProperties(provider_, provider_); });
}

TEST_F(PrPropertyTest, NeedNoLogon) {
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  u32 value = 5;
  const Property2 number = Number(&value);
  EXPECT_EQ(PrSetProperty(provider_, &number), ZN_OK);
  ZnHandle out = nullptr;
  EXPECT_EQ(PrGetProviderByName(nullptr, u"scripted", &out), ZNW_SHMEM_LOGIN_FAILED);
}

}  // namespace
}  // namespace zn::test
