#include <gmock/gmock.h>

#include "tests/unit/framework/api_frame.h"
#include "zn/memory.h"
#include "zn/ps.h"
#include "zn/type.h"

namespace zn::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class TypeTest : public FrameTest {
 protected:
  void SetUp() override {
    FrameTest::SetUp();
    ASSERT_EQ(PsCreatePropset(&empty_), ZN_OK);
  }
  void TearDown() override {
    for (const ZnHandle set : sets_) EXPECT_EQ(PsDestroyPropset(set), ZN_OK);
    EXPECT_EQ(PsDestroyPropset(empty_), ZN_OK);
    FrameTest::TearDown();
  }
  // A set with one uint32, destroyed at the end of the test.
  ZnHandle SetOf(std::string name, u32 value, u32 flags = 0) {
    ZnHandle set = nullptr;
    EXPECT_EQ(PsCreatePropset(&set), ZN_OK);
    const Property2 property{name.data(), ZN_TYPE_UINT32, flags, 4, &value};
    EXPECT_EQ(PsAddProperty(set, &property), ZN_OK);
    sets_.push_back(set);
    return set;
  }
  u32 Create(const char* name, std::vector<const char*> supertypes = {}, ZnHandle set = nullptr) {
    supertypes.push_back(nullptr);
    return ObCreateTypeObject(Db(), name, supertypes.data(), set == nullptr ? empty_ : set, &out_);
  }
  template <typename Call>
  static std::vector<std::string> Names(Call&& call) {
    u32 count = 99;
    char** names = nullptr;
    EXPECT_EQ(call(&count, &names), ZN_OK);
    EXPECT_EQ(names == nullptr, count == 0);
    std::vector<std::string> list(names, names + count);
    ZnFree(names);  // one block holds it all
    return list;
  }
  std::vector<std::string> Supertypes(const char* type) {
    return Names(
        [&](u32* count, char*** out) { return TypeGetSuperTypeObjects(Db(), type, count, out); });
  }
  std::vector<std::string> Derived(const char* type) {
    return Names(
        [&](u32* count, char*** out) { return TypeGetDerivedTypeObjects(Db(), type, count, out); });
  }
  std::vector<std::string> All() {
    return Names([&](u32* count, char*** out) { return TypeGetObjects(Db(), count, out); });
  }
  // Names of the properties of a type.
  std::vector<std::string> Properties(const char* type, u32 flags) {
    ZnHandle set = nullptr;
    EXPECT_EQ(TypeGetTypeProperties(Db(), type, flags, &set), ZN_OK);
    std::vector<std::string> names;
    for (const Property& property : *HandleThing<PropertySet>(set)) {
      names.emplace_back(property.Name());
    }
    EXPECT_EQ(PsDestroyPropset(set), ZN_OK);
    return names;
  }
  u32 CountInterfaces(const char* type, u32 flags) {
    u32 count = 99;
    GUID* ids = nullptr;
    EXPECT_EQ(TypeQueryTypeInterfaces(Db(), type, flags, &count, &ids), ZN_OK);
    EXPECT_EQ(ids == nullptr, count == 0);
    ZnFree(ids);
    return count;
  }

  ZnHandle empty_ = nullptr;
  std::vector<ZnHandle> sets_;
  ObjectId out_{};
};

TEST_F(TypeTest, EveryCallOfTheFamilyRunsTheStandardFrame) {
  u32 count = 0;
  char** names = nullptr;
  GUID* ids = nullptr;
  const std::vector<FramedCall> calls = {
      {"TypeGetObjects", [&](ZnHandle h) { return TypeGetObjects(h, &count, &names); }},
      {"TypeGetSuperTypeObjects",
       [&](ZnHandle h) { return TypeGetSuperTypeObjects(h, "KELD_Object", &count, &names); }},
      {"TypeGetDerivedTypeObjects",
       [&](ZnHandle h) { return TypeGetDerivedTypeObjects(h, "KELD_Provider", &count, &names); }},
      {"TypeGetTypeProperties",
       [&](ZnHandle h) {
         ZnHandle set = nullptr;
         const u32 status = TypeGetTypeProperties(h, "KELD_Object", 1, &set);
         if (set != nullptr) sets_.push_back(set);
         return status;
       }},
      {"TypeQueryTypeInterfaces",
       [&](ZnHandle h) { return TypeQueryTypeInterfaces(h, "KELD_Object", 1, &count, &ids); }},
  };
  for (const FramedCall& call : calls) ExpectStandardFrame(call);
}

TEST_F(TypeTest, BadArgumentsAreRefusedWithTheOneText) {
  const ZnHandle db = Db();
  u32 count = 0;
  char** names = nullptr;
  GUID* ids = nullptr;
  ZnHandle set = nullptr;
  const std::string tooLong(8193, 'x');
  ExpectInvalidArguments("TypeGetObjects", {[&] { return TypeGetObjects(db, nullptr, &names); },
                                            [&] { return TypeGetObjects(db, &count, nullptr); }});
  ExpectInvalidArguments(
      "TypeGetSuperTypeObjects",
      {[&] { return TypeGetSuperTypeObjects(db, nullptr, &count, &names); },
       [&] { return TypeGetSuperTypeObjects(db, "", &count, &names); },
       [&] { return TypeGetSuperTypeObjects(db, tooLong.c_str(), &count, &names); },
       [&] { return TypeGetSuperTypeObjects(db, "KELD_Object", nullptr, &names); },
       [&] { return TypeGetSuperTypeObjects(db, "KELD_Object", &count, nullptr); }});
  ExpectInvalidArguments(
      "TypeGetDerivedTypeObjects",
      {[&] { return TypeGetDerivedTypeObjects(db, nullptr, &count, &names); },
       [&] { return TypeGetDerivedTypeObjects(db, "", &count, &names); },
       [&] { return TypeGetDerivedTypeObjects(db, "KELD_Object", nullptr, &names); },
       [&] { return TypeGetDerivedTypeObjects(db, "KELD_Object", &count, nullptr); }});
  ExpectInvalidArguments("TypeGetTypeProperties",
                         {[&] { return TypeGetTypeProperties(db, nullptr, 0, &set); },
                          [&] { return TypeGetTypeProperties(db, "", 0, &set); },
                          [&] { return TypeGetTypeProperties(db, "KELD_Object", 0, nullptr); }});
  ExpectInvalidArguments(
      "TypeQueryTypeInterfaces",
      {[&] { return TypeQueryTypeInterfaces(db, nullptr, 0, &count, &ids); },
       [&] { return TypeQueryTypeInterfaces(db, "", 0, &count, &ids); },
       [&] { return TypeQueryTypeInterfaces(db, "KELD_Object", 0, nullptr, &ids); },
       [&] { return TypeQueryTypeInterfaces(db, "KELD_Object", 0, &count, nullptr); }});
}

TEST_F(TypeTest, AnUnknownTypeIsNotFound) {
  u32 count = 7;
  char** names = nullptr;
  GUID* ids = nullptr;
  ZnHandle set = nullptr;
  EXPECT_EQ(TypeGetSuperTypeObjects(Db(), "Nobody", &count, &names), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(TypeGetDerivedTypeObjects(Db(), "Nobody", &count, &names), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(TypeGetTypeProperties(Db(), "Nobody", 0, &set), ZNE_TYPE_NOT_FOUND);
  ExpectRefusal({"TypeQueryTypeInterfaces",
                 [&](ZnHandle h) { return TypeQueryTypeInterfaces(h, "Nobody", 0, &count, &ids); }},
                Db(), ZNE_TYPE_NOT_FOUND, "Type not found");
  EXPECT_EQ(count, 7u);
}

TEST_F(TypeTest, TheBaseSchemaIsNotListed) {
  ASSERT_EQ(RegisterMissingSystemTypes(*database_), ZN_OK);
  ASSERT_EQ(Create("Zebra"), ZN_OK);
  ASSERT_EQ(Create("Ant"), ZN_OK);
  EXPECT_THAT(All(), ElementsAre("Ant", "KELD_Configlet", "KELD_Task", "Zebra"));
}

TEST_F(TypeTest, ADatabaseWithTheBaseSchemaAloneListsNothing) {
  EXPECT_THAT(All(), IsEmpty());
}

TEST_F(TypeTest, RelativesAreTheDirectOnesInListOrder) {
  ASSERT_EQ(Create("B"), ZN_OK);
  ASSERT_EQ(Create("A"), ZN_OK);
  ASSERT_EQ(Create("C", {"B", "A"}), ZN_OK);
  ASSERT_EQ(Create("D", {"C"}), ZN_OK);
  EXPECT_THAT(Supertypes("C"), ElementsAre("B", "A"));
  EXPECT_THAT(Supertypes("D"), ElementsAre("C"));
  EXPECT_THAT(Supertypes("KELD_Object"), IsEmpty());
  EXPECT_THAT(Derived("B"), ElementsAre("C"));
  EXPECT_THAT(Derived("D"), IsEmpty());
  EXPECT_THAT(Derived("KELD_Object"), ElementsAre("KELD_Group", "B", "A"));  // as created
}

TEST_F(TypeTest, PropertiesAreOwnOnesOrInheritedOnesToo) {
  ASSERT_EQ(Create("Disk", {}, SetOf("Size", 1)), ZN_OK);
  ASSERT_EQ(Create("Ssd", {"Disk"}, SetOf("Wear", 2)), ZN_OK);
  EXPECT_THAT(Properties("Ssd", 0), ElementsAre("Wear"));
  EXPECT_THAT(Properties("Ssd", 2), ElementsAre("Wear"));  // bit 0 alone counts
  EXPECT_THAT(Properties("Ssd", 1), ElementsAre("Name", "Size", "State", "Wear"));
  EXPECT_THAT(Properties("KELD_Provider", 0), IsEmpty());
}

TEST_F(TypeTest, InterfacesAreOwnOnesOrInheritedOnesToo) {
  const GUID one = TestGuid(1);
  const GUID two = TestGuid(2);
  ASSERT_EQ(Create("Disk"), ZN_OK);
  ASSERT_EQ(Create("Ssd", {"Disk"}), ZN_OK);
  ASSERT_EQ(ObRegisterInterfaceOnType(Db(), "Disk", ProviderHandle(), &one), ZN_OK);
  ASSERT_EQ(ObRegisterInterfaceOnType(Db(), "Ssd", ProviderHandle(), &one), ZN_OK);
  ASSERT_EQ(ObRegisterInterfaceOnType(Db(), "Ssd", ProviderHandle(), &two), ZN_OK);
  EXPECT_EQ(CountInterfaces("Disk", 0), 1u);
  EXPECT_EQ(CountInterfaces("Ssd", 0), 2u);
  EXPECT_EQ(CountInterfaces("Ssd", 1), 2u);  // each once
  EXPECT_EQ(CountInterfaces("KELD_Object", 1), 0u);
}

TEST_F(TypeTest, IsAShowsItsStatusInTheExitTraceAlone) {
  ASSERT_EQ(Create("Disk"), ZN_OK);
  std::vector<std::string> messages;
  const auto isA = [&](ZnHandle h, const char* type, const char* base) {
    return Traced([&] { return TypeIsA(h, type, base); }, &messages);
  };
  EXPECT_TRUE(isA(Db(), "Disk", "KELD_Object"));
  EXPECT_THAT(messages, ElementsAre(Entering("TypeIsA"), Exiting("TypeIsA", ZN_OK)));
  EXPECT_TRUE(isA(Db(), "Disk", "Disk"));
  EXPECT_FALSE(isA(Db(), "KELD_Object", "Disk"));
  EXPECT_THAT(messages, ElementsAre(Entering("TypeIsA"), Exiting("TypeIsA", ZN_OK)));
  const struct {
    const char* type;
    const char* base;
  } unknown[] = {{"Nobody", "Nobody"}, {"Nobody", "Disk"}, {"Disk", "Nobody"}};
  for (const auto& row : unknown) {
    EXPECT_FALSE(isA(Db(), row.type, row.base));
    EXPECT_THAT(messages, ElementsAre(Entering("TypeIsA"), Exiting("TypeIsA", ZNE_TYPE_NOT_FOUND)));
  }
  const std::vector<std::string> refused{Entering("TypeIsA"), "ZnAPI:TypeIsA: Invalid arguments",
                                         Exiting("TypeIsA", ZNE_INVALID_ARGUMENTS)};
  EXPECT_FALSE(isA(AllOnesHandle(), "Disk", "Disk"));
  EXPECT_EQ(messages, refused);
  EXPECT_FALSE(isA(Db(), "", "Disk"));
  EXPECT_EQ(messages, refused);
  EXPECT_FALSE(isA(Db(), "Disk", ""));
  EXPECT_EQ(messages, refused);
  EXPECT_FALSE(isA(Db(), nullptr, nullptr));
  EXPECT_EQ(messages, refused);
}

// --- creation ---------------------------------------------------------------------------------

TEST_F(TypeTest, ANewTypeAnswersItsIdAndDerivesFromTheRoot) {
  ASSERT_EQ(ObCreateTypeObject(Db(), "Disk", nullptr, empty_, &out_), ZN_OK);
  EXPECT_TRUE(SameGuid(out_, database_->Types().FindType("Disk")->GetId().Value()));
  EXPECT_THAT(Supertypes("Disk"), ElementsAre("KELD_Object"));
  EXPECT_EQ(database_->Types().FindType("Disk")->GetFlags(), 0u);
}

TEST_F(TypeTest, TheRootIsAppendedUnlessASupertypeDerivesFromIt) {
  ASSERT_EQ(Create("A"), ZN_OK);
  ASSERT_EQ(Create("B", {"A"}), ZN_OK);
  EXPECT_THAT(Supertypes("B"), ElementsAre("A"));
  ASSERT_EQ(Create("C", {"KELD_Provider"}), ZN_OK);
  EXPECT_THAT(Supertypes("C"), ElementsAre("KELD_Provider", "KELD_Object"));
  ASSERT_EQ(Create("D", {"KELD_Provider", "B"}), ZN_OK);
  EXPECT_THAT(Supertypes("D"), ElementsAre("KELD_Provider", "B"));
  ASSERT_EQ(Create("E", {}), ZN_OK);  // an empty list as a missing one
  EXPECT_THAT(Supertypes("E"), ElementsAre("KELD_Object"));
  ASSERT_EQ(Create("F", {""}), ZN_OK);  // the empty name is the root
  EXPECT_THAT(Supertypes("F"), ElementsAre("KELD_Object"));
}

TEST_F(TypeTest, TheRulesAnswerThroughTheCall) {
  ASSERT_EQ(Create("Disk", {}, SetOf("Size", 1)), ZN_OK);
  EXPECT_EQ(Create("1a"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("a b"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("a:b"), ZN_OK);
  EXPECT_EQ(Create("Disk"), ZNE_TYPE_EXISTS);
  EXPECT_EQ(Create("X", {"Nobody"}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("X", {"Disk", "Disk"}), ZNE_INVALID_ARGUMENTS);
  ASSERT_EQ(Create("Tape", {}, SetOf("Size", 1)), ZN_OK);
  EXPECT_EQ(Create("X", {"Disk", "Tape"}), ZNE_INHERITANCE_INVALID);
  ZnHandle set = SetOf("Blob", 0);
  char name[] = "Raw";
  char bytes[] = "x";
  const Property2 binary{name, ZN_TYPE_BINARY, ZN_PROPERTY_INDEXED, 1, bytes};
  ASSERT_EQ(PsAddProperty(set, &binary), ZN_OK);
  EXPECT_EQ(Create("X", {}, set), ZNE_PROPERTY_NOT_INDEXABLE);
}

TEST_F(TypeTest, TheSetStaysTheCallers) {
  ZnHandle set = SetOf("Size", 1);
  ASSERT_EQ(Create("Disk", {}, set), ZN_OK);
  EXPECT_EQ(PsDeleteProperty(set, "Size"), ZN_OK);
  EXPECT_THAT(Properties("Disk", 0), ElementsAre("Size"));
}

TEST_F(TypeTest, NewTypesAreFoundAmongTheInstancesOfTheTypeOfTypes) {
  ASSERT_EQ(Create("Disk"), ZN_OK);
  std::vector<ObjectId> ids;
  ASSERT_EQ(database_->GetObjectsOfType("KELD_Type", &ids), ZN_OK);
  EXPECT_TRUE(SameGuid(ids.back(), out_));
}

// Refused before the lock, so without an exit trace, and with the output zeroed.
TEST_F(TypeTest, ArgumentsOfACreationAreCheckedFirst) {
  const ZnHandle db = Db();
  const char* supertypes[] = {"KELD_Object", nullptr};
  const auto bad = reinterpret_cast<const char**>(16);
  const std::string tooLong(8193, 'x');
  const struct {
    ZnHandle hDb;
    const char* type;
    const char** supertypes;
    ZnHandle set;
    bool hasOut;
  } rows[] = {
      {AllOnesHandle(), "X", supertypes, empty_, true},
      {empty_, "X", supertypes, empty_, true},
      {db, nullptr, supertypes, empty_, true},
      {db, "", supertypes, empty_, true},
      {db, tooLong.c_str(), supertypes, empty_, true},
      {db, "X", bad, empty_, true},
      {db, "X", supertypes, nullptr, true},
      {db, "X", supertypes, db, true},
      {db, "X", supertypes, empty_, false},
  };
  for (const auto& row : rows) {
    out_ = TestGuid(1);
    ObjectId* out = row.hasOut ? &out_ : nullptr;
    std::vector<std::string> messages;
    EXPECT_EQ(
        Traced([&] { return ObCreateTypeObject(row.hDb, row.type, row.supertypes, row.set, out); },
               &messages),
        ZNE_INVALID_ARGUMENTS);
    EXPECT_THAT(messages, ElementsAre(Entering("ObCreateTypeObject"),
                                      "ZnAPI:ObCreateTypeObject: Invalid arguments"));
    EXPECT_EQ(Traced(
                  [&] {
                    return ObCreateTypeObjectEx(row.hDb, row.type, row.supertypes, row.set, 1, 0,
                                                out);
                  },
                  &messages),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_THAT(messages, ElementsAre(Entering("ObCreateTypeObjectEx"),
                                      "ZnAPI:ObCreateTypeObjectEx: Invalid arguments"));
    if (row.hasOut) {
      EXPECT_TRUE(IsZeroGuid(out_));
    }
  }
  EXPECT_EQ(database_->Types().FindType("X"), nullptr);
}

TEST_F(TypeTest, LaterFailuresOfBothCreationsHaveOneName) {
  const FramedCall plain{"ObCreateTypeObject", [&](ZnHandle h) {
                           return ObCreateTypeObject(h, "X", nullptr, empty_, &out_);
                         }};
  const auto extended = [&](ZnHandle h) {
    return ObCreateTypeObjectEx(h, "X", nullptr, empty_, 1, 0, &out_);
  };
  std::vector<std::string> messages;
  SetSystemDatabase(nullptr);
  ExpectRefusal(plain, nullptr, ZNE_INVALID_ARGUMENTS, "Invalid database");
  EXPECT_EQ(Traced([&] { return extended(nullptr); }, &messages), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre(Entering("ObCreateTypeObjectEx"),
                                    "ZnAPI:ObCreateTypeObject: Invalid database",
                                    Exiting("ObCreateTypeObjectEx", ZNE_INVALID_ARGUMENTS)));
  SetSystemDatabase(database_.get());
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  ExpectRefusal(plain, Db(), ZNW_SHMEM_LOGIN_FAILED, "DB auth failed");
  EXPECT_EQ(Traced([&] { return extended(Db()); }, &messages), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_THAT(messages, ElementsAre(Entering("ObCreateTypeObjectEx"),
                                    "ZnAPI:ObCreateTypeObject: DB auth failed",
                                    Exiting("ObCreateTypeObjectEx", ZNW_SHMEM_LOGIN_FAILED)));
  database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
}

TEST_F(TypeTest, AnUnreadableSupertypeNameHasATextOfItsOwn) {
  const char* supertypes[] = {"KELD_Object", reinterpret_cast<const char*>(16), nullptr};
  ExpectRefusal({"ObCreateTypeObject",
                 [&](ZnHandle h) { return ObCreateTypeObject(h, "X", supertypes, empty_, &out_); }},
                Db(), ZNE_INVALID_ARGUMENTS, "Invalid supertype name");
  const std::string tooLong(8193, 'x');
  supertypes[1] = tooLong.c_str();
  EXPECT_EQ(ObCreateTypeObject(Db(), "X", supertypes, empty_, &out_), ZNE_INVALID_ARGUMENTS);
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([&] { return ObCreateTypeObjectEx(Db(), "X", supertypes, empty_, 1, 0, &out_); },
                   &messages),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, Contains("ZnAPI:ObCreateTypeObject: Invalid supertype name"));
}

TEST_F(TypeTest, TheExtendedCreationNeedsOneOfTwoFlags) {
  const struct {
    u32 given;
    u32 stored;
  } good[] = {{1, 1}, {2, 2}, {3, 1}, {6, 2}, {0xFFFFFFFF, 1}};
  for (const auto& row : good) {
    const std::string name = "T" + std::to_string(row.given);
    ASSERT_EQ(ObCreateTypeObjectEx(Db(), name.c_str(), nullptr, empty_, row.given, 99, &out_),
              ZN_OK);
    EXPECT_EQ(database_->Types().FindType(name)->GetFlags(), row.stored);
  }
  for (const u32 flags : {0u, 4u, 8u, 0x80000000u}) {
    out_ = TestGuid(1);
    std::vector<std::string> messages;
    EXPECT_EQ(
        Traced([&] { return ObCreateTypeObjectEx(Db(), "X", nullptr, empty_, flags, 0, &out_); },
               &messages),
        ZNE_INVALID_ARGUMENTS);
    EXPECT_THAT(messages, ElementsAre(Entering("ObCreateTypeObjectEx"),
                                      "ZnAPI:ObCreateTypeObjectEx: Invalid flags specified"));
    EXPECT_TRUE(IsZeroGuid(out_));
  }
}

TEST_F(TypeTest, CreationTracesItsEnds) {
  std::vector<std::string> messages;
  ASSERT_EQ(
      Traced([&] { return ObCreateTypeObject(Db(), "X", nullptr, empty_, &out_); }, &messages),
      ZN_OK);
  EXPECT_EQ(messages.front(), Entering("ObCreateTypeObject"));
  EXPECT_EQ(messages.back(), Exiting("ObCreateTypeObject", ZN_OK));
  ASSERT_EQ(Traced([&] { return ObCreateTypeObjectEx(Db(), "Y", nullptr, empty_, 1, 0, &out_); },
                   &messages),
            ZN_OK);
  EXPECT_EQ(messages.front(), Entering("ObCreateTypeObjectEx"));
  EXPECT_EQ(messages.back(), Exiting("ObCreateTypeObjectEx", ZN_OK));
  EXPECT_THAT(messages, Not(Contains(Entering("ObCreateTypeObject"))));
}

}  // namespace

}  // namespace zn::test
