#include <cstring>

#include <gmock/gmock.h>

#include "tests/unit/framework/api_frame.h"
#include "zn/db.h"
#include "zn/guid.h"
#include "zn/memory.h"
#include "zn/ob.h"
#include "zn/pr.h"
#include "zn/ps.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

bool Same(const ObjectId& a, const ObjectId& b) {
  return ObCompareId(a, b);
}

class ObTest : public FrameTest {
 protected:
  void SetUp() override {
    FrameTest::SetUp();
    id_ = MakeObject();
    other_ = MakeObject();
    ASSERT_EQ(PsCreatePropset(&emptySet_), ZN_OK);
  }
  // What the framed calls made is freed here, so that they trace nothing but themselves.
  void TearDown() override {
    for (Property2* record : records_) EXPECT_EQ(PsFreeProperty(record), ZN_OK);
    for (const ZnHandle set : sets_) EXPECT_EQ(PsDestroyPropset(set), ZN_OK);
    EXPECT_EQ(PsDestroyPropset(emptySet_), ZN_OK);
    FrameTest::TearDown();
  }

  // The provider that the library itself registers, as a service process has it.
  Provider* AddSystemProvider() {
    auto provider =
        std::make_unique<Provider>(database_.get(), database_->Types().FindType("KELD_Provider"),
                                   kSystemProviderName, ProviderCallbacks{}, nullptr, true);
    Provider* borrowed = provider.get();
    database_->AddProvider(std::move(provider));
    borrowed->SetRegistered();
    return borrowed;
  }
  void RemoveProvider(Provider* provider) { database_->TakeProvider(provider).reset(); }

  u32 SetNumber(const ObjectId& id, const char* name, u32 value, u32 flags = 0) {
    std::string text = name;
    const Property2 property{text.data(), ZN_TYPE_UINT32, flags, 4, &value};
    return ObSetProperty(Db(), id, &property);
  }
  // The value, or all ones when there is none of that type.
  u32 GetNumber(const ObjectId& id, const char* name) {
    Property2* property = nullptr;
    if (ZN_FAILED(ObGetProperty(Db(), id, name, &property))) return 0xFFFFFFFF;
    u32 value = 0xFFFFFFFF;
    if (property->Type == ZN_TYPE_UINT32) std::memcpy(&value, property->Value, 4);
    EXPECT_EQ(PsFreeProperty(property), ZN_OK);
    return value;
  }
  u32 FlagsOf(const ObjectId& id) {
    u32 flags = 0xFFFFFFFF;
    EXPECT_EQ(ObGetObjectFlags(Db(), id, &flags), ZN_OK);
    return flags;
  }
  // A list that an export answers, freed.
  template <typename T, typename Call>
  static std::vector<T> List(Call&& call) {
    u32 count = 99;
    T* items = nullptr;
    EXPECT_EQ(call(&count, &items), ZN_OK);
    EXPECT_EQ(items == nullptr, count == 0);
    std::vector<T> list(items, items + count);
    ZnFree(items);
    return list;
  }
  std::vector<ObjectId> ChildrenOf(const ObjectId& id, const char* type = nullptr) {
    return List<ObjectId>(
        [&](u32* count, ObjectId** out) { return ObGetChildObjects(Db(), id, type, count, out); });
  }
  std::vector<ObjectId> ParentsOf(const ObjectId& id, const char* type = nullptr) {
    return List<ObjectId>(
        [&](u32* count, ObjectId** out) { return ObGetParentObjects(Db(), id, type, count, out); });
  }
  std::vector<GUID> InterfacesOf(const ObjectId& id) {
    return List<GUID>(
        [&](u32* count, GUID** out) { return ObQueryInterfaces(Db(), id, count, out); });
  }

  // Every function of the standard frame that names an object, with good arguments.
  std::vector<FramedCall> ObjectCalls() {
    return {
        {"ObGetObjectType",
         [this](ZnHandle h) {
           char* type = nullptr;
           const u32 status = ObGetObjectType(h, id_, &type);
           ZnFree(type);
           return status;
         }},
        {"ObGetObjectFlags", [this](ZnHandle h) { return ObGetObjectFlags(h, id_, &word_); }},
        {"ObSetKey", [this](ZnHandle h) { return ObSetKey(h, id_, "key", 3); }},
        {"ObGetKey",
         [this](ZnHandle h) {
           void* key = nullptr;
           const u32 status = ObGetKey(h, id_, &key, &word_);
           ZnFree(key);
           return status;
         }},
        {"ObGetProperty",
         [this](ZnHandle h) {
           Property2* property = nullptr;
           const u32 status = ObGetProperty(h, id_, "State", &property);
           if (property != nullptr) records_.push_back(property);
           return status;
         }},
        {"ObSetProperty",
         [this](ZnHandle h) {
           char name[] = "State";
           const Property2 property{name, ZN_TYPE_UINT32, 0, 4, &word_};
           return ObSetProperty(h, id_, &property);
         }},
        {"ObGetProperties",
         [this](ZnHandle h) {
           ZnHandle set = nullptr;
           const u32 status = ObGetProperties(h, id_, &set);
           if (set != nullptr) sets_.push_back(set);
           return status;
         }},
        {"ObSetProperties", [this](ZnHandle h) { return ObSetProperties(h, id_, emptySet_); }},
        {"ObGetChildObjects",
         [this](ZnHandle h) { return ObGetChildObjects(h, id_, nullptr, &word_, &ids_); }},
        {"ObGetParentObjects",
         [this](ZnHandle h) { return ObGetParentObjects(h, id_, nullptr, &word_, &ids_); }},
        {"ObAddChildObject", [this](ZnHandle h) { return ObAddChildObject(h, id_, other_); }},
        {"ObRemoveChildObject", [this](ZnHandle h) { return ObRemoveChildObject(h, id_, other_); }},
        {"ObGetProviderForObject",
         [this](ZnHandle h) { return ObGetProviderForObject(h, id_, &handle_); }},
        {"ObGetObjectProviders",
         [this](ZnHandle h) {
           ZnHandle* handles = nullptr;
           const u32 status = ObGetObjectProviders(h, id_, &word_, &handles);
           ZnFree(handles);
           return status;
         }},
        {"ObQueryInterfaces",
         [this](ZnHandle h) { return ObQueryInterfaces(h, id_, &word_, &guids_); }},
        {"ObDeleteObject", [this](ZnHandle h) { return ObDeleteObject(h, id_); }},
    };
  }
  std::vector<Property2*> records_;
  std::vector<ZnHandle> sets_;
  ZnHandle emptySet_ = nullptr;
  ObjectId id_{};
  ObjectId other_{};
  u32 word_ = 0;
  ZnHandle handle_ = nullptr;
  ObjectId* ids_ = nullptr;
  GUID* guids_ = nullptr;
  const GUID interface_ = TestGuid(1);
};

TEST_F(ObTest, EveryObjectCallRunsTheStandardFrame) {
  for (const FramedCall& call : ObjectCalls()) ExpectStandardFrame(call);
}

TEST_F(ObTest, AnUnknownObjectIsNotFoundWithoutAnErrorTrace) {
  ASSERT_EQ(ObDeleteObject(Db(), id_), ZN_OK);
  for (const FramedCall& f : ObjectCalls()) {
    SCOPED_TRACE(f.name);
    std::vector<std::string> messages;
    EXPECT_EQ(Traced([&] { return f.call(Db()); }, &messages), ZNE_OBJECT_NOT_FOUND);
    EXPECT_THAT(messages, ElementsAre(Entering(f.name), Exiting(f.name, ZNE_OBJECT_NOT_FOUND)));
  }
}

TEST_F(ObTest, EveryCallWithAProviderRunsTheStandardFrame) {
  ObjectId out{};
  const std::vector<FramedCall> calls = {
      {"ObCreateObject",
       [&](ZnHandle h) { return ObCreateObject(h, ProviderHandle(), "KELD_Object", &out); }},
      {"ObCreateObjectEx",
       [&](ZnHandle h) {
         return ObCreateObjectEx(h, ProviderHandle(), "KELD_Object", 0, 0, &out);
       }},
      {"ObRegisterInterfaceOnType",
       [&](ZnHandle h) {
         return ObRegisterInterfaceOnType(h, "KELD_Object", ProviderHandle(), &interface_);
       }},
      {"ObGetInterfaceProvider",
       [&](ZnHandle h) { return ObGetInterfaceProvider(h, id_, &interface_, &handle_); }},
      {"ObUnregisterInterfaceOnType",
       [&](ZnHandle h) {
         return ObUnregisterInterfaceOnType(h, "KELD_Object", ProviderHandle(), &interface_);
       }},
  };
  for (const FramedCall& call : calls) ExpectStandardFrame(call);
  ASSERT_EQ(ObSetKey(Db(), id_, "k", 1), ZN_OK);
  ExpectStandardFrame({"ObGetObjectIdByKey", [&](ZnHandle h) {
                         return ObGetObjectIdByKey(h, ProviderHandle(), "k", 1, &out);
                       }});
}

TEST_F(ObTest, BadArgumentsAreRefusedWithTheOneText) {
  const ZnHandle db = Db();
  const ZnHandle pr = ProviderHandle();
  ObjectId out{};
  ExpectInvalidArguments("ObCreateObject",
                         {[&] { return ObCreateObject(db, nullptr, "KELD_Object", &out); },
                          [&] { return ObCreateObject(db, db, "KELD_Object", &out); },
                          [&] { return ObCreateObject(db, AllOnesHandle(), "KELD_Object", &out); },
                          [&] { return ObCreateObject(db, pr, nullptr, &out); },
                          [&] { return ObCreateObject(db, pr, "KELD_Object", nullptr); }});
  ExpectInvalidArguments("ObCreateObjectEx",
                         {[&] { return ObCreateObjectEx(db, nullptr, "KELD_Object", 0, 0, &out); },
                          [&] { return ObCreateObjectEx(db, pr, nullptr, 0, 0, &out); },
                          [&] { return ObCreateObjectEx(db, pr, "KELD_Object", 0, 0, nullptr); }});
  ExpectInvalidArguments("ObGetObjectType", {[&] { return ObGetObjectType(db, id_, nullptr); }});
  ExpectInvalidArguments("ObGetObjectFlags", {[&] { return ObGetObjectFlags(db, id_, nullptr); }});
  ExpectInvalidArguments("ObGetKey", {[&] { return ObGetKey(db, id_, nullptr, &word_); },
                                      [&] {
                                        void* key = nullptr;
                                        return ObGetKey(db, id_, &key, nullptr);
                                      }});
  ExpectInvalidArguments("ObGetObjectIdByKey",
                         {[&] { return ObGetObjectIdByKey(db, nullptr, "k", 1, &out); },
                          [&] { return ObGetObjectIdByKey(db, pr, nullptr, 1, &out); },
                          [&] { return ObGetObjectIdByKey(db, pr, nullptr, 0, &out); },
                          [&] { return ObGetObjectIdByKey(db, pr, "k", 1, nullptr); }});
  Property2* property = nullptr;
  ExpectInvalidArguments("ObGetProperty",
                         {[&] { return ObGetProperty(db, id_, nullptr, &property); },
                          [&] { return ObGetProperty(db, id_, "State", nullptr); }});
  char name[] = "P";
  const Property2 nameless{nullptr, ZN_TYPE_UINT32, 0, 4, &word_};
  const Property2 valueless{name, ZN_TYPE_UINT32, 0, 4, nullptr};
  ExpectInvalidArguments("ObSetProperty", {[&] { return ObSetProperty(db, id_, nullptr); },
                                           [&] { return ObSetProperty(db, id_, &nameless); },
                                           [&] { return ObSetProperty(db, id_, &valueless); }});
  ExpectInvalidArguments("ObGetProperties", {[&] { return ObGetProperties(db, id_, nullptr); }});
  ExpectInvalidArguments("ObSetProperties", {[&] { return ObSetProperties(db, id_, nullptr); },
                                             [&] { return ObSetProperties(db, id_, db); }});
  ExpectInvalidArguments("ObGetChildObjects",
                         {[&] { return ObGetChildObjects(db, id_, nullptr, nullptr, &ids_); },
                          [&] { return ObGetChildObjects(db, id_, nullptr, &word_, nullptr); }});
  ExpectInvalidArguments("ObGetParentObjects",
                         {[&] { return ObGetParentObjects(db, id_, nullptr, nullptr, &ids_); },
                          [&] { return ObGetParentObjects(db, id_, nullptr, &word_, nullptr); }});
  ExpectInvalidArguments("ObAddChildObject", {[&] { return ObAddChildObject(db, id_, id_); }});
  ExpectInvalidArguments("ObGetProviderForObject",
                         {[&] { return ObGetProviderForObject(db, id_, nullptr); }});
  ZnHandle* handles = nullptr;
  ExpectInvalidArguments("ObGetObjectProviders",
                         {[&] { return ObGetObjectProviders(db, id_, nullptr, &handles); },
                          [&] { return ObGetObjectProviders(db, id_, &word_, nullptr); }});
  ExpectInvalidArguments("ObGetInterfaceProvider",
                         {[&] { return ObGetInterfaceProvider(db, id_, nullptr, &handle_); },
                          [&] { return ObGetInterfaceProvider(db, id_, &interface_, nullptr); }});
  ExpectInvalidArguments("ObQueryInterfaces",
                         {[&] { return ObQueryInterfaces(db, id_, nullptr, &guids_); },
                          [&] { return ObQueryInterfaces(db, id_, &word_, nullptr); }});
  ExpectInvalidArguments(
      "ObRegisterInterfaceOnType",
      {[&] { return ObRegisterInterfaceOnType(db, nullptr, pr, &interface_); },
       [&] { return ObRegisterInterfaceOnType(db, "", pr, &interface_); },
       [&] { return ObRegisterInterfaceOnType(db, "KELD_Object", nullptr, &interface_); },
       [&] { return ObRegisterInterfaceOnType(db, "KELD_Object", pr, nullptr); }});
  ExpectInvalidArguments(
      "ObUnregisterInterfaceOnType",
      {[&] { return ObUnregisterInterfaceOnType(db, "", pr, &interface_); },
       [&] { return ObUnregisterInterfaceOnType(db, "KELD_Object", nullptr, &interface_); },
       [&] { return ObUnregisterInterfaceOnType(db, "KELD_Object", pr, nullptr); }});
}

TEST_F(ObTest, NamesHaveTheirLimits) {
  ObjectId out{};
  std::string type(8193, 'x');
  EXPECT_EQ(ObCreateObject(Db(), ProviderHandle(), type.c_str(), &out), ZNE_INVALID_ARGUMENTS);
  type.resize(8192);
  EXPECT_EQ(ObCreateObject(Db(), ProviderHandle(), type.c_str(), &out), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(ObGetChildObjects(Db(), id_, std::string(8193, 'x').c_str(), &word_, &ids_),
            ZNE_INVALID_ARGUMENTS);
  Property2* property = nullptr;
  std::string name(4097, 'x');
  EXPECT_EQ(ObGetProperty(Db(), id_, name.c_str(), &property), ZNE_INVALID_ARGUMENTS);
  name.resize(4096);
  EXPECT_EQ(ObGetProperty(Db(), id_, name.c_str(), &property), ZNE_PROPERTY_NOT_FOUND);
}

// --- creation ---------------------------------------------------------------------------------

TEST_F(ObTest, ANewObjectHasItsTypeDefaultsAndCreator) {
  char* type = nullptr;
  ASSERT_EQ(ObGetObjectType(Db(), id_, &type), ZN_OK);
  EXPECT_STREQ(type, "KELD_Object");
  ZnFree(type);
  EXPECT_EQ(GetNumber(id_, "State"), 0u);
  Property2* name = nullptr;
  ASSERT_EQ(ObGetProperty(Db(), id_, "Name", &name), ZN_OK);
  EXPECT_EQ(name->Type, ZN_TYPE_WIDESTRING);
  EXPECT_EQ(std::u16string_view(static_cast<const ZnWChar*>(name->Value)), u"Noname");
  EXPECT_EQ(PsFreeProperty(name), ZN_OK);
  ASSERT_EQ(ObGetProviderForObject(Db(), id_, &handle_), ZN_OK);
  EXPECT_EQ(handle_, ProviderHandle());
  EXPECT_TRUE(ObExists(Db(), id_));
  EXPECT_EQ(FlagsOf(id_), 0u);
}

TEST_F(ObTest, ANullHandleIsTheSystemDatabase) {
  ObjectId id{};
  ASSERT_EQ(ObCreateObject(nullptr, ProviderHandle(), "KELD_Object", &id), ZN_OK);
  EXPECT_TRUE(ObExists(Db(), id));
  EXPECT_TRUE(ObExists(nullptr, id));
}

TEST_F(ObTest, WithoutASystemDatabaseANullHandleIsAnInvalidDatabase) {
  SetSystemDatabase(nullptr);
  ObjectId id{};
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([&] { return ObCreateObject(nullptr, ProviderHandle(), "KELD_Object", &id); },
                   &messages),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, testing::Contains("ZnAPI:ObCreateObject: Invalid database"));
  SetSystemDatabase(database_.get());
}

TEST_F(ObTest, AnUnknownTypeIsNotFoundAndTheOutputStays) {
  ObjectId id = TestGuid(9);
  std::vector<std::string> messages;
  EXPECT_EQ(
      Traced([&] { return ObCreateObject(Db(), ProviderHandle(), "Nobody", &id); }, &messages),
      ZNE_TYPE_NOT_FOUND);
  EXPECT_THAT(messages, ElementsAre(Entering("ObCreateObject"), "Database::CreateDBNode :",
                                    Exiting("ObCreateObject", ZNE_TYPE_NOT_FOUND)));
  EXPECT_TRUE(Same(id, TestGuid(9)));
}

TEST_F(ObTest, TheEmptyTypeNameIsTheRoot) {
  const ObjectId id = MakeObject("");
  EXPECT_TRUE(ObIsA(Db(), id, "KELD_Object"));
}

TEST_F(ObTest, TheSystemProviderCreatesByTheExtendedCallAlone) {
  const ZnHandle system = AddSystemProvider()->Handle();
  ObjectId id{};
  ExpectRefusal(
      {"ObCreateObject", [&](ZnHandle h) { return ObCreateObject(h, system, "KELD_Object", &id); }},
      Db(), ZNE_INVALID_ARGUMENTS, "Error: System provider handle specified");
  EXPECT_EQ(ObCreateObjectEx(Db(), system, "KELD_Object", 0, 0, &id), ZN_OK);
  EXPECT_TRUE(ObExists(Db(), id));
}

struct FlagCase {
  u32 given;
  bool isGood;
  u32 stored;
};
constexpr FlagCase kFlagCases[] = {
    {0, true, 0}, {1, true, 1},  {2, true, 2},  {3, true, 1},           {5, true, 1},
    {6, true, 2}, {4, false, 0}, {8, false, 0}, {0x80000000, false, 0}, {0x80000002, true, 2},
};

TEST_F(ObTest, CreationNormalisesItsFlags) {
  for (const FlagCase& c : kFlagCases) {
    SCOPED_TRACE(c.given);
    ObjectId id{};
    const FramedCall create{"ObCreateObjectEx", [&](ZnHandle h) {
                              return ObCreateObjectEx(h, ProviderHandle(), "KELD_Object", c.given,
                                                      77, &id);
                            }};
    if (!c.isGood) {
      ExpectRefusal(create, Db(), ZNE_INVALID_ARGUMENTS, "Invalid flags specified");
      continue;
    }
    ASSERT_EQ(create.call(Db()), ZN_OK);
    EXPECT_EQ(FlagsOf(id), c.stored);
  }
}

TEST_F(ObTest, FlagsAreCheckedBeforeTheDatabase) {
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  ObjectId id{};
  EXPECT_EQ(ObCreateObjectEx(Db(), ProviderHandle(), "KELD_Object", 4, 0, &id),
            ZNE_INVALID_ARGUMENTS);
  database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
}

TEST_F(ObTest, ADeletedObjectIsGoneAndSoAreItsRelations) {
  const ObjectId child = MakeObject();
  ASSERT_EQ(ObAddChildObject(Db(), id_, child), ZN_OK);
  ASSERT_EQ(ObDeleteObject(Db(), id_), ZN_OK);
  EXPECT_FALSE(ObExists(Db(), id_));
  EXPECT_EQ(ObDeleteObject(Db(), id_), ZNE_OBJECT_NOT_FOUND);
  EXPECT_THAT(ParentsOf(child), IsEmpty());
}

// --- ids --------------------------------------------------------------------------------------

TEST_F(ObTest, IdsCompareByAllTheirBytes) {
  EXPECT_TRUE(ObCompareId(TestGuid(1), TestGuid(1)));
  const GUID base = TestGuid(1);
  for (size_t i = 0; i < sizeof(GUID); ++i) {
    GUID changed = base;
    reinterpret_cast<u8*>(&changed)[i] ^= 1;
    EXPECT_FALSE(ObCompareId(base, changed)) << i;
  }
}

TEST_F(ObTest, IdsAreCopiedAndZeroed) {
  ObjectId id{};
  EXPECT_EQ(ObCopyId(&id, TestGuid(1)), ZN_OK);
  EXPECT_TRUE(Same(id, TestGuid(1)));
  EXPECT_EQ(ObIdZero(&id), &id);
  EXPECT_TRUE(Same(id, ObjectId{}));
  EXPECT_EQ(ObCopyId(nullptr, id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObIdZero(nullptr), nullptr);
}

TEST_F(ObTest, ComparingCopyingAndZeroingTraceNothing) {
  ObjectId id{};
  EXPECT_THAT(MessagesOf([&] {
                return ObCompareId(id, id) && ObCopyId(&id, id) == ZN_OK && ObIdZero(&id) == &id;
              }),
              IsEmpty());
}

TEST_F(ObTest, IdsGoToTextAndBack) {
  char* text = nullptr;
  std::vector<std::string> messages;
  ASSERT_EQ(Traced([&] { return ObIdToString(TestGuid(0xAB), &text); }, &messages), ZN_OK);
  EXPECT_STREQ(text, "{c0ffeeab-1111-2222-0102-030405060708}");
  EXPECT_THAT(messages, ElementsAre(Entering("ObIdToString"), Exiting("ObIdToString", ZN_OK)));
  ObjectId id{};
  EXPECT_EQ(ObStringToId(text, &id), ZN_OK);
  EXPECT_TRUE(Same(id, TestGuid(0xAB)));
  EXPECT_EQ(ObStringToId("{C0FFEEAB-1111-2222-0102-030405060708}", &id), ZN_OK);
  EXPECT_TRUE(Same(id, TestGuid(0xAB)));
  ZnFree(text);
}

TEST_F(ObTest, BadIdTextsAndOutputsAreRefused) {
  ObjectId id = TestGuid(5);
  EXPECT_EQ(ObStringToId("{c0ffeeab-1111-2222-0102-03040506070}", &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObStringToId("", &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObStringToId(nullptr, &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(Same(id, TestGuid(5)));
  EXPECT_EQ(ObStringToId("{c0ffeeab-1111-2222-0102-030405060708}", nullptr), ZNE_INVALID_ARGUMENTS);
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([&] { return ObIdToString(id, nullptr); }, &messages), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, testing::Contains("ZnAPI:ZnGUIDToString: Invalid arguments"));
}

// --- existence, flags -------------------------------------------------------------------------

TEST_F(ObTest, ExistenceHasTracesOfItsOwn) {
  std::vector<std::string> messages;
  EXPECT_TRUE(Traced([&] { return ObExists(Db(), id_); }, &messages));
  EXPECT_THAT(messages, ElementsAre("ZnAPI:Entering ObExists", "ZnAPI:Exiting ObExists"));
  EXPECT_FALSE(Traced([&] { return ObExists(AllOnesHandle(), id_); }, &messages));
  EXPECT_THAT(messages,
              ElementsAre("ZnAPI:Entering ObExists", "ZnAPI:ObExists: Invalid database handle",
                          "ZnAPI:Exiting ObExists"));
  EXPECT_FALSE(ObExists(ProviderHandle(), id_));
  EXPECT_FALSE(ObExists(Db(), TestGuid(1)));
  SetSystemDatabase(nullptr);
  EXPECT_FALSE(Traced([&] { return ObExists(nullptr, id_); }, &messages));
  EXPECT_THAT(messages, testing::Contains("ZnAPI:ObExists: Invalid database"));
  SetSystemDatabase(database_.get());
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  EXPECT_FALSE(Traced([&] { return ObExists(Db(), id_); }, &messages));
  EXPECT_THAT(messages, testing::Contains("ZnAPI:ObExists: DB auth failed"));
  database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
}

TEST_F(ObTest, ATypeIsNoObject) {
  const ObjectId type = MakeType("Disk")->GetId().Value();
  EXPECT_FALSE(ObExists(Db(), type));
  u32 flags = 0;
  EXPECT_EQ(ObGetObjectFlags(Db(), type, &flags), ZNE_OBJECT_NOT_FOUND);
}

TEST_F(ObTest, ShowsTheLowHalfOfTheFlagsAlone) {
  DBNode* node = database_->FindObject(id_);
  node->SetRawFlags(0x00801234);
  EXPECT_EQ(FlagsOf(id_), 0x1234u);
}

TEST_F(ObTest, SetFlagsStoresOneOfThreeValues) {
  constexpr FlagCase kCases[] = {{3, true, 1}, {6, true, 2}, {4, true, 0},
                                 {1, true, 1}, {2, true, 2}, {0, true, 0}};
  for (const FlagCase& c : kCases) {
    EXPECT_EQ(ObSetFlags(Db(), id_, c.given), ZN_OK);
    EXPECT_EQ(FlagsOf(id_), c.stored) << c.given;
  }
}

TEST_F(ObTest, TheSameFlagsAgainTellNothing) {
  ASSERT_EQ(ObSetFlags(Db(), id_, 2), ZN_OK);
  static_cast<void>(TakeTold());
  ASSERT_EQ(ObSetFlags(Db(), id_, 6), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(ObTest, AHiddenObjectTellsItsFlagsAlone) {
  ASSERT_EQ(ObSetFlags(Db(), id_, OBJECT_HIDDEN), ZN_OK);
  static_cast<void>(TakeTold());
  ASSERT_EQ(SetNumber(id_, "State", 5), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
  ASSERT_EQ(ObSetFlags(Db(), id_, OBJECT_NODISPLAY), ZN_OK);
  EXPECT_EQ(TakeTopics().size(), 1u);
}

TEST_F(ObTest, SetFlagsHasTracesOfItsOwn) {
  const auto call = [&](ZnHandle h) { return [this, h] { return ObSetFlags(h, id_, 0); }; };
  std::vector<std::string> messages;
  EXPECT_EQ(Traced(call(Db()), &messages), ZN_OK);
  EXPECT_THAT(messages, ElementsAre("ZNAPI:Entering ObSetFlags"));
  EXPECT_EQ(Traced(call(AllOnesHandle()), &messages), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre("ZNAPI:Entering ObSetFlags"));
  SetSystemDatabase(nullptr);
  EXPECT_EQ(Traced(call(nullptr), &messages), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages,
              ElementsAre("ZNAPI:Entering ObSetFlags", "ZnAPI:ObSetFlags: Invalid database"));
  SetSystemDatabase(database_.get());
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  EXPECT_EQ(Traced(call(Db()), &messages), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_THAT(messages,
              ElementsAre("ZNAPI:Entering ObSetFlags", "ZnAPI:ObSetProperties: DB auth failed"));
  database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
  EXPECT_EQ(ObSetFlags(Db(), TestGuid(1), 0), ZNE_OBJECT_NOT_FOUND);
}

// --- keys -------------------------------------------------------------------------------------

TEST_F(ObTest, AKeyFindsItsObject) {
  ASSERT_EQ(ObSetKey(Db(), id_, "sda", 3), ZN_OK);
  ObjectId found{};
  ASSERT_EQ(ObGetObjectIdByKey(Db(), ProviderHandle(), "sda", 3, &found), ZN_OK);
  EXPECT_TRUE(Same(found, id_));
  EXPECT_EQ(ObGetObjectIdByKey(Db(), ProviderHandle(), "sd", 2, &found), ZNE_OBJECT_NOT_FOUND);
  void* key = nullptr;
  ASSERT_EQ(ObGetKey(Db(), id_, &key, &word_), ZN_OK);
  EXPECT_EQ(std::string_view(static_cast<const char*>(key), word_), "sda");
  ZnFree(key);
}

TEST_F(ObTest, KeysOfAnyLengthAreFound) {
  for (const size_t length : {0u, 1u, 111u, 112u, 113u, 5000u}) {
    const std::string key(length, 'k');
    const auto bytes = static_cast<u32>(length);
    ASSERT_EQ(ObSetKey(Db(), id_, key.data(), bytes), ZN_OK) << length;
    ObjectId found{};
    ASSERT_EQ(ObGetObjectIdByKey(Db(), ProviderHandle(), key.data(), bytes, &found), ZN_OK);
    EXPECT_TRUE(Same(found, id_));
    void* copy = nullptr;
    ASSERT_EQ(ObGetKey(Db(), id_, &copy, &word_), ZN_OK);
    EXPECT_EQ(word_, bytes);
    ZnFree(copy);
  }
  EXPECT_EQ(ObSetKey(Db(), id_, "k", 0xFFFFFFFF), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ObTest, AKeyIsTakenOncePerProvider) {
  ASSERT_EQ(ObSetKey(Db(), id_, "k", 1), ZN_OK);
  EXPECT_EQ(ObSetKey(Db(), other_, "k", 1), ZNE_DUPLICATE_LOOKUP_KEY);
  EXPECT_EQ(ObSetKey(Db(), id_, "k", 1), ZNE_DUPLICATE_LOOKUP_KEY);  // its own key too
  const ZnHandle second = AddProvider(u"second")->Handle();
  ObjectId elsewhere{};
  ASSERT_EQ(ObCreateObject(Db(), second, "KELD_Object", &elsewhere), ZN_OK);
  EXPECT_EQ(ObSetKey(Db(), elsewhere, "k", 1), ZN_OK);
  ObjectId found{};
  ASSERT_EQ(ObGetObjectIdByKey(Db(), second, "k", 1, &found), ZN_OK);
  EXPECT_TRUE(Same(found, elsewhere));
}

TEST_F(ObTest, ANewKeyReplacesTheOldOneAndANullKeyClears) {
  ASSERT_EQ(ObSetKey(Db(), id_, "old", 3), ZN_OK);
  ASSERT_EQ(ObSetKey(Db(), id_, "new", 3), ZN_OK);
  ObjectId found{};
  EXPECT_EQ(ObGetObjectIdByKey(Db(), ProviderHandle(), "old", 3, &found), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(ObGetObjectIdByKey(Db(), ProviderHandle(), "new", 3, &found), ZN_OK);
  ASSERT_EQ(ObSetKey(Db(), id_, nullptr, 7), ZN_OK);
  EXPECT_EQ(ObGetObjectIdByKey(Db(), ProviderHandle(), "new", 3, &found), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(ObSetKey(Db(), other_, "new", 3), ZN_OK);
}

TEST_F(ObTest, AnObjectWithoutAKeyAnswersZeros) {
  void* key = this;
  word_ = 7;
  EXPECT_EQ(ObGetKey(Db(), id_, &key, &word_), ZNE_THING_NOT_FOUND);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(word_, 0u);
}

TEST_F(ObTest, KeysWorkWithoutAKeyTable) {
  ZnHandle db = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&db), ZN_OK);
  ZnHandle provider = nullptr;
  ProviderCallbacks callbacks{};
  callbacks.Call = [](auto...) -> u32 { return ZN_OK; };
  callbacks.Initialize = [](auto...) -> u32 { return ZN_OK; };
  callbacks.Event = [](auto...) -> u32 { return ZN_OK; };
  ASSERT_EQ(PrCreateProvider(db, u"mine", &callbacks, &provider), ZN_OK);
  ObjectId one{};
  ObjectId two{};
  ASSERT_EQ(ObCreateObject(db, provider, "KELD_Object", &one), ZN_OK);
  ASSERT_EQ(ObCreateObject(db, provider, "KELD_Object", &two), ZN_OK);
  EXPECT_EQ(ObSetKey(db, one, "k", 1), ZN_OK);
  EXPECT_EQ(ObSetKey(db, two, "k", 1), ZNE_DUPLICATE_LOOKUP_KEY);
  ObjectId found{};
  EXPECT_EQ(ObGetObjectIdByKey(db, provider, "k", 1, &found), ZN_OK);
  EXPECT_TRUE(Same(found, one));
  EXPECT_EQ(DbDeletePrivateDatabase(db), ZN_OK);
}

// --- outputs that are cleared first -----------------------------------------------------------

TEST_F(ObTest, SomeOutputsAreClearedBeforeAnyCheck) {
  const ZnHandle bad = AllOnesHandle();
  char text[] = "x";
  char* type = text;
  EXPECT_EQ(ObGetObjectType(bad, id_, &type), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(type, nullptr);

  void* key = text;
  word_ = 7;
  EXPECT_EQ(ObGetKey(bad, id_, &key, &word_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(word_, 0u);
  word_ = 7;
  EXPECT_EQ(ObGetKey(Db(), id_, nullptr, &word_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(word_, 0u);

  ZnHandle* handles = &handle_;
  word_ = 7;
  EXPECT_EQ(ObGetObjectProviders(bad, id_, &word_, &handles), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(handles, nullptr);
  EXPECT_EQ(word_, 0u);

  GUID guid{};
  guids_ = &guid;
  word_ = 7;
  EXPECT_EQ(ObQueryInterfaces(bad, id_, &word_, &guids_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(guids_, nullptr);
  EXPECT_EQ(word_, 0u);
}

TEST_F(ObTest, OtherOutputsStayAfterARefusal) {
  const ZnHandle bad = AllOnesHandle();
  word_ = 7;
  ids_ = &id_;
  EXPECT_EQ(ObGetChildObjects(bad, id_, nullptr, &word_, &ids_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObGetObjectFlags(bad, id_, &word_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(word_, 7u);
  EXPECT_EQ(ids_, &id_);
  ObjectId out = TestGuid(3);
  EXPECT_EQ(ObCreateObject(bad, ProviderHandle(), "KELD_Object", &out), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(Same(out, TestGuid(3)));
}

// --- properties -------------------------------------------------------------------------------

TEST_F(ObTest, APropertyTravelsWithTypeFlagsAndSize) {
  ASSERT_EQ(SetNumber(id_, "Speed", 7, ZN_PROPERTY_NO_DISPLAY), ZN_OK);
  Property2* property = nullptr;
  ASSERT_EQ(ObGetProperty(Db(), id_, "Speed", &property), ZN_OK);
  EXPECT_STREQ(property->Name, "Speed");
  EXPECT_EQ(property->Type, ZN_TYPE_UINT32);
  EXPECT_EQ(property->Flags, ZN_PROPERTY_NO_DISPLAY);
  EXPECT_EQ(property->Size, 4u);
  u32 value = 0;
  std::memcpy(&value, property->Value, 4);
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(PsFreeProperty(property), ZN_OK);
}

TEST_F(ObTest, AMissingPropertyIsNotFoundAndTheOutputStays) {
  Property2 record{};
  Property2* property = &record;
  EXPECT_EQ(ObGetProperty(Db(), id_, "Nobody ever used this name", &property),
            ZNE_PROPERTY_NOT_FOUND);
  ASSERT_EQ(SetNumber(other_, "OnTheOther", 1), ZN_OK);
  EXPECT_EQ(ObGetProperty(Db(), id_, "OnTheOther", &property), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(property, &record);
}

TEST_F(ObTest, ThePresentValueAgainSucceedsAndTellsNothing) {
  ASSERT_EQ(SetNumber(id_, "State", 5), ZN_OK);
  EXPECT_EQ(TakeTopics().size(), 1u);
  EXPECT_EQ(SetNumber(id_, "State", 5), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(ObTest, AValueOfAnotherTypeIsRefusedAndTheOldOneStays) {
  char name[] = "State";
  char text[] = "five";
  const Property2 property{name, ZN_TYPE_STRING, 0, 5, text};
  EXPECT_EQ(ObSetProperty(Db(), id_, &property), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(GetNumber(id_, "State"), 0u);
}

TEST_F(ObTest, ABadPropertyIsRefusedInTheNameOfTheConversion) {
  char name[] = "1st";
  const Property2 property{name, ZN_TYPE_UINT32, 0, 4, &word_};
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([&] { return ObSetProperty(Db(), id_, &property); }, &messages),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre(Entering("ObSetProperty"),
                                    "ZnAPI:ConvertProperty2ToProperty3: Invalid property name: 1st",
                                    Exiting("ObSetProperty", ZNE_INVALID_ARGUMENTS)));
}

TEST_F(ObTest, AnObjectWhoseCreatorIsGoneStillAnswers) {
  Provider* provider = AddProvider(u"short-lived");
  ObjectId id{};
  ASSERT_EQ(ObCreateObject(Db(), provider->Handle(), "KELD_Object", &id), ZN_OK);
  RemoveProvider(provider);
  EXPECT_EQ(GetNumber(id, "State"), 0u);
  EXPECT_EQ(ObGetProviderForObject(Db(), id, &handle_), ZNE_UNEXPECTED);
}

TEST_F(ObTest, AFreedProviderHandleIsRefused) {
  Provider* provider = AddProvider(u"short-lived");
  const ZnHandle handle = provider->Handle();
  RemoveProvider(provider);
  ObjectId id{};
  EXPECT_EQ(ObCreateObject(Db(), handle, "KELD_Object", &id), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ObTest, AllPropertiesComeAsACopyAndGoAsAMerge) {
  ZnHandle set = nullptr;
  ASSERT_EQ(ObGetProperties(Db(), id_, &set), ZN_OK);
  char name[] = "State";
  u32 value = 9;
  const Property2 property{name, ZN_TYPE_UINT32, 0, 4, &value};
  ASSERT_EQ(PsSetProperty(set, &property), ZN_OK);
  EXPECT_EQ(GetNumber(id_, "State"), 0u);  // the set is a copy
  ASSERT_EQ(ObSetProperties(Db(), id_, set), ZN_OK);
  EXPECT_EQ(GetNumber(id_, "State"), 9u);
  EXPECT_EQ(TakeTopics().size(), 1u);
  ASSERT_EQ(ObSetProperties(Db(), id_, set), ZN_OK);  // nothing changes now
  EXPECT_THAT(TakeTopics(), IsEmpty());
  EXPECT_EQ(PsDestroyPropset(set), ZN_OK);  // it stayed the caller's
}

TEST_F(ObTest, AnEmptySetChangesAndTellsNothing) {
  EXPECT_EQ(ObSetProperties(Db(), id_, emptySet_), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

// --- relations --------------------------------------------------------------------------------

TEST_F(ObTest, RelationsStandOnBothEnds) {
  ASSERT_EQ(ObAddChildObject(Db(), id_, other_), ZN_OK);
  ASSERT_EQ(ChildrenOf(id_).size(), 1u);
  EXPECT_TRUE(Same(ChildrenOf(id_)[0], other_));
  ASSERT_EQ(ParentsOf(other_).size(), 1u);
  EXPECT_TRUE(Same(ParentsOf(other_)[0], id_));
  EXPECT_EQ(ObAddChildObject(Db(), id_, other_), ZNE_DUPLICATE_CHILD);
  ASSERT_EQ(ObRemoveChildObject(Db(), id_, other_), ZN_OK);
  EXPECT_THAT(ChildrenOf(id_), IsEmpty());
  EXPECT_THAT(ParentsOf(other_), IsEmpty());
  EXPECT_EQ(ObRemoveChildObject(Db(), id_, other_), ZN_OK);  // no relation, no failure
}

TEST_F(ObTest, BothEndsOfARelationMustExist) {
  EXPECT_EQ(ObAddChildObject(Db(), id_, TestGuid(1)), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(ObAddChildObject(Db(), TestGuid(1), id_), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(ObRemoveChildObject(Db(), id_, TestGuid(1)), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(ObRemoveChildObject(Db(), TestGuid(1), id_), ZNE_OBJECT_NOT_FOUND);
  EXPECT_THAT(ChildrenOf(id_), IsEmpty());
}

TEST_F(ObTest, ACycleIsAcceptedAndEndsWithItsObjects) {
  ASSERT_EQ(ObAddChildObject(Db(), id_, other_), ZN_OK);
  ASSERT_EQ(ObAddChildObject(Db(), other_, id_), ZN_OK);
  ASSERT_EQ(ObDeleteObject(Db(), id_), ZN_OK);
  EXPECT_THAT(ChildrenOf(other_), IsEmpty());
  EXPECT_THAT(ParentsOf(other_), IsEmpty());
}

TEST_F(ObTest, RelatedObjectsAreFilteredByType) {
  MakeType("Disk");
  const ObjectId disk = MakeObject("Disk");
  ASSERT_EQ(ObAddChildObject(Db(), id_, disk), ZN_OK);
  ASSERT_EQ(ObAddChildObject(Db(), id_, other_), ZN_OK);
  ASSERT_EQ(ObSetFlags(Db(), disk, OBJECT_HIDDEN), ZN_OK);
  EXPECT_EQ(ChildrenOf(id_).size(), 2u);
  EXPECT_EQ(ChildrenOf(id_, "KELD_Object").size(), 2u);
  EXPECT_EQ(ChildrenOf(id_, "").size(), 2u);
  ASSERT_EQ(ChildrenOf(id_, "Disk").size(), 1u);  // hidden ones too
  EXPECT_TRUE(Same(ChildrenOf(id_, "Disk")[0], disk));
  EXPECT_THAT(ChildrenOf(id_, "Nobody"), IsEmpty());
  EXPECT_EQ(ParentsOf(disk, "KELD_Object").size(), 1u);
  EXPECT_THAT(ParentsOf(disk, "Disk"), IsEmpty());
}

TEST_F(ObTest, HasChildrenAsksForEveryBitOfTheMask) {
  EXPECT_FALSE(ObHasChildren(Db(), id_, 0));
  ASSERT_EQ(ObAddChildObject(Db(), id_, other_), ZN_OK);
  EXPECT_TRUE(ObHasChildren(Db(), id_, 0));
  EXPECT_FALSE(ObHasChildren(Db(), id_, OBJECT_HIDDEN));
  ASSERT_EQ(ObSetFlags(Db(), other_, OBJECT_HIDDEN), ZN_OK);
  EXPECT_TRUE(ObHasChildren(Db(), id_, OBJECT_HIDDEN));
  EXPECT_FALSE(ObHasChildren(Db(), id_, OBJECT_HIDDEN | OBJECT_NODISPLAY));
}

TEST_F(ObTest, HasChildrenTracesItsRefusalsAlone) {
  std::vector<std::string> messages;
  EXPECT_FALSE(Traced([&] { return ObHasChildren(Db(), id_, 0); }, &messages));
  EXPECT_THAT(messages, IsEmpty());
  EXPECT_FALSE(Traced([&] { return ObHasChildren(AllOnesHandle(), id_, 0); }, &messages));
  EXPECT_THAT(messages, ElementsAre("ZnAPI:ObHasChildren: Invalid database handle"));
  EXPECT_FALSE(Traced([&] { return ObHasChildren(Db(), TestGuid(1), 0); }, &messages));
  EXPECT_THAT(messages, IsEmpty());
  SetSystemDatabase(nullptr);
  EXPECT_FALSE(Traced([&] { return ObHasChildren(nullptr, id_, 0); }, &messages));
  EXPECT_THAT(messages, ElementsAre("ZnAPI:ObHasChildren: Invalid database"));
  SetSystemDatabase(database_.get());
}

// --- interfaces -------------------------------------------------------------------------------

TEST_F(ObTest, AnInterfaceIsRegisteredFoundAndTakenBack) {
  ASSERT_EQ(ObRegisterInterface(Db(), id_, ProviderHandle(), &interface_), ZN_OK);
  EXPECT_EQ(ObRegisterInterface(Db(), id_, ProviderHandle(), &interface_), ZNE_INTERFACE_EXISTS);
  ASSERT_EQ(ObGetInterfaceProvider(Db(), id_, &interface_, &handle_), ZN_OK);
  EXPECT_EQ(handle_, ProviderHandle());
  ASSERT_EQ(InterfacesOf(id_).size(), 1u);
  EXPECT_TRUE(SameGuid(InterfacesOf(id_)[0], interface_));
  ASSERT_EQ(ObDeregisterInterface(Db(), id_, &interface_), ZN_OK);
  EXPECT_EQ(ObDeregisterInterface(Db(), id_, &interface_), ZNE_INTERFACE_NOT_FOUND);
  EXPECT_THAT(InterfacesOf(id_), IsEmpty());
  EXPECT_EQ(ObGetInterfaceProvider(Db(), id_, &interface_, &handle_), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ObTest, AnInterfaceWhoseProviderIsGoneIsAnInvalidArgument) {
  Provider* provider = AddProvider(u"short-lived");
  ASSERT_EQ(ObRegisterInterface(Db(), id_, provider->Handle(), &interface_), ZN_OK);
  RemoveProvider(provider);
  EXPECT_EQ(ObGetInterfaceProvider(Db(), id_, &interface_, &handle_), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ObTest, RegisteringAnInterfaceTracesItsRefusalsAlone) {
  std::vector<std::string> messages;
  const auto registers = [&](ZnHandle h, ZnHandle provider, const GUID* interfaceId) {
    return Traced([&] { return ObRegisterInterface(h, id_, provider, interfaceId); }, &messages);
  };
  EXPECT_EQ(registers(Db(), ProviderHandle(), &interface_), ZN_OK);
  EXPECT_THAT(messages, IsEmpty());
  const std::string refusal = "ZnAPI:ObRegisterInterface: Invalid arguments";
  EXPECT_EQ(registers(AllOnesHandle(), ProviderHandle(), &interface_), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre(refusal));
  EXPECT_EQ(registers(Db(), nullptr, &interface_), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre(refusal));
  EXPECT_EQ(registers(Db(), ProviderHandle(), nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre(refusal));

  const ZnHandle hollow = AllocateHandle(HANDLE_PROVIDER, nullptr);
  EXPECT_EQ(registers(Db(), hollow, &interface_), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre("ZnAPI:ObRegisterInterface: Invalid provider"));
  EXPECT_TRUE(FreeHandle(hollow, HANDLE_PROVIDER));

  const auto takesBack = [&](ZnHandle h, const GUID* interfaceId) {
    return Traced([&] { return ObDeregisterInterface(h, id_, interfaceId); }, &messages);
  };
  EXPECT_EQ(takesBack(Db(), nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre("ZnAPI:ObDeregisterInterface: Invalid arguments"));
  EXPECT_EQ(takesBack(Db(), &interface_), ZN_OK);
  EXPECT_THAT(messages, IsEmpty());
  EXPECT_EQ(ObRegisterInterface(Db(), TestGuid(2), ProviderHandle(), &interface_),
            ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(ObDeregisterInterface(Db(), TestGuid(2), &interface_), ZNE_OBJECT_NOT_FOUND);
}

TEST_F(ObTest, ListsTheCreatorAndTheProviderOfEachInterface) {
  const ZnHandle second = AddProvider(u"second")->Handle();
  Provider* lost = AddProvider(u"lost");
  const GUID ids[] = {TestGuid(1), TestGuid(2), TestGuid(3), TestGuid(4)};
  ASSERT_EQ(ObRegisterInterface(Db(), id_, second, &ids[0]), ZN_OK);
  ASSERT_EQ(ObRegisterInterface(Db(), id_, ProviderHandle(), &ids[1]), ZN_OK);
  ASSERT_EQ(ObRegisterInterface(Db(), id_, second, &ids[2]), ZN_OK);
  ASSERT_EQ(ObRegisterInterface(Db(), id_, lost->Handle(), &ids[3]), ZN_OK);
  RemoveProvider(lost);
  const auto list = [&](const ObjectId& id) {
    return List<ZnHandle>(
        [&](u32* count, ZnHandle** out) { return ObGetObjectProviders(Db(), id, count, out); });
  };
  EXPECT_THAT(list(id_), ElementsAre(ProviderHandle(), second, ProviderHandle(), second, nullptr));

  Provider* creator = AddProvider(u"creator");
  ObjectId orphan{};
  ASSERT_EQ(ObCreateObject(Db(), creator->Handle(), "KELD_Object", &orphan), ZN_OK);
  RemoveProvider(creator);
  EXPECT_THAT(list(orphan), ElementsAre(nullptr));
}

TEST_F(ObTest, AnInterfaceOnATypeIsOnItsObjects) {
  MakeType("Disk");
  MakeType("Ssd", {}, {"Disk"});
  const ObjectId ssd = MakeObject("Ssd");
  ASSERT_EQ(ObRegisterInterfaceOnType(Db(), "Disk", ProviderHandle(), &interface_), ZN_OK);
  EXPECT_EQ(ObRegisterInterfaceOnType(Db(), "Disk", ProviderHandle(), &interface_),
            ZNE_INTERFACE_EXISTS);
  ASSERT_EQ(ObGetInterfaceProvider(Db(), ssd, &interface_, &handle_), ZN_OK);
  EXPECT_EQ(handle_, ProviderHandle());
  EXPECT_EQ(InterfacesOf(ssd).size(), 1u);
  // The object's own registration comes first, and the id is listed once.
  const ZnHandle second = AddProvider(u"second")->Handle();
  ASSERT_EQ(ObRegisterInterface(Db(), ssd, second, &interface_), ZN_OK);
  ASSERT_EQ(ObGetInterfaceProvider(Db(), ssd, &interface_, &handle_), ZN_OK);
  EXPECT_EQ(handle_, second);
  EXPECT_EQ(InterfacesOf(ssd).size(), 1u);

  EXPECT_EQ(ObUnregisterInterfaceOnType(Db(), "Disk", second, &interface_),
            ZNE_INTERFACE_NOT_FOUND);
  EXPECT_EQ(ObUnregisterInterfaceOnType(Db(), "Disk", ProviderHandle(), &interface_), ZN_OK);
  EXPECT_EQ(ObUnregisterInterfaceOnType(Db(), "Disk", ProviderHandle(), &interface_),
            ZNE_INTERFACE_NOT_FOUND);
  EXPECT_EQ(ObRegisterInterfaceOnType(Db(), "Nobody", ProviderHandle(), &interface_),
            ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(ObUnregisterInterfaceOnType(Db(), "Nobody", ProviderHandle(), &interface_),
            ZNE_TYPE_NOT_FOUND);
}

TEST_F(ObTest, TheSystemProviderServesNoType) {
  const ZnHandle system = AddSystemProvider()->Handle();
  ExpectInvalidArguments(
      "ObRegisterInterfaceOnType",
      {[&] { return ObRegisterInterfaceOnType(Db(), "KELD_Object", system, &interface_); }});
  ExpectInvalidArguments(
      "ObUnregisterInterfaceOnType",
      {[&] { return ObUnregisterInterfaceOnType(Db(), "KELD_Object", system, &interface_); }});
}

// --- membership of a type ---------------------------------------------------------------------

TEST_F(ObTest, IsAShowsItsStatusInTheExitTraceAlone) {
  MakeType("Disk");
  const ObjectId disk = MakeObject("Disk");
  std::vector<std::string> messages;
  const auto isA = [&](ZnHandle h, const ObjectId& id, const char* type) {
    return Traced([&] { return ObIsA(h, id, type); }, &messages);
  };
  EXPECT_TRUE(isA(Db(), disk, "Disk"));
  EXPECT_THAT(messages, ElementsAre(Entering("ObIsA"), Exiting("ObIsA", ZN_OK)));
  EXPECT_TRUE(isA(Db(), disk, "KELD_Object"));
  EXPECT_FALSE(isA(Db(), id_, "Disk"));
  EXPECT_THAT(messages, ElementsAre(Entering("ObIsA"), Exiting("ObIsA", ZN_OK)));
  EXPECT_FALSE(isA(Db(), disk, "Nobody"));
  EXPECT_THAT(messages, ElementsAre(Entering("ObIsA"), Exiting("ObIsA", ZNE_TYPE_NOT_FOUND)));
  EXPECT_FALSE(isA(Db(), TestGuid(1), "Disk"));
  EXPECT_THAT(messages, ElementsAre(Entering("ObIsA"), Exiting("ObIsA", ZNE_OBJECT_NOT_FOUND)));
  for (const char* bad : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_FALSE(isA(Db(), disk, bad));
    EXPECT_THAT(messages, ElementsAre(Entering("ObIsA"), "ZnAPI:ObIsA: Invalid arguments",
                                      Exiting("ObIsA", ZNE_INVALID_ARGUMENTS)));
  }
  EXPECT_FALSE(isA(AllOnesHandle(), disk, "Disk"));
}

}  // namespace

}  // namespace zn::test
