#include "framework/common/zntypeobject/typemanager.h"

#include <algorithm>

#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class TypeManagerTest : public StoreTest {
 protected:
  TypeManager& Types() { return database_->Types(); }
  u32 Create(std::string_view name, const std::vector<std::string>& supertypes = {"KELD_Object"},
             const PropertySet& properties = {}) {
    TypeObject* type = nullptr;
    const u32 status = Types().CreateTypeInstance(name, &properties, supertypes, 0, &type);
    EXPECT_EQ(type != nullptr, status == ZN_OK);
    return status;
  }
  [[nodiscard]] static std::string NameIn(const PropertySet& form) {
    return std::string(form.FindValue("TypeName", ZN_TYPE_STRING)->AsText());
  }
  // Where the form of a type stands in a dump.
  [[nodiscard]] static size_t PlaceOf(const std::vector<PropertySet>& forms,
                                      const std::string& name) {
    const auto found = std::find_if(forms.begin(), forms.end(),
                                    [&](const PropertySet& form) { return NameIn(form) == name; });
    return static_cast<size_t>(found - forms.begin());
  }
};

struct NameCase {
  const char* name;
  bool isGood;
};
constexpr NameCase kNameCases[] = {
    {"A", true},    {"_", true},    {"a:b", true},  {"KELD_Object2", true}, {"a1_:", true},
    {"", false},    {"1a", false},  {":a", false},  {"a b", false},         {" a", false},
    {"a.b", false}, {"a-b", false}, {"a{b", false}, {"a\xC3\xA4", false},   {"a@", false},
    {"[", false},   {"`a", false},
};

TEST_F(TypeManagerTest, NamesAreLettersDigitsColonsAndUnderscores) {
  for (const NameCase& c : kNameCases) {
    EXPECT_EQ(Create(c.name), c.isGood ? ZN_OK : ZNE_INVALID_ARGUMENTS) << c.name;
  }
}

TEST_F(TypeManagerTest, ANameIsTakenOncePerDatabase) {
  EXPECT_EQ(Create("Disk"), ZN_OK);
  EXPECT_EQ(Create("Disk"), ZNE_TYPE_EXISTS);
  EXPECT_EQ(Create("disk"), ZN_OK);  // case counts
  Database other(0, {});
  EXPECT_EQ(other.Types().FindType("Disk"), nullptr);
  TypeObject* type = nullptr;
  EXPECT_EQ(other.Types().CreateTypeInstance("Disk", nullptr, {}, 0, &type), ZN_OK);
}

TEST_F(TypeManagerTest, IndexedPropertiesNeedATagWithAnIndex) {
  EXPECT_EQ(Create("A", {"KELD_Object"}, Declares("P", Value::Binary("x", 1), ZN_PROPERTY_INDEXED)),
            ZNE_PROPERTY_NOT_INDEXABLE);
  EXPECT_EQ(
      Create("A", {"KELD_Object"}, Declares("P", Value::Set(PropertySet()), ZN_PROPERTY_INDEXED)),
      ZNE_PROPERTY_NOT_INDEXABLE);
  EXPECT_EQ(Create("A", {"KELD_Object"},
                   Declares("P", Value::Array(ZN_TYPE_UINT32, {}), ZN_PROPERTY_INDEXED)),
            ZNE_PROPERTY_NOT_INDEXABLE);
  EXPECT_EQ(Create("A", {"KELD_Object"}, Declares("P", Value::Binary("x", 1))), ZN_OK);
  for (const u32 tag : {1u, 2u, 3u, 4u, 0x10005u, 5u, 6u, 7u, 9u, 11u}) {
    EXPECT_EQ(Create("T" + std::to_string(tag), {"KELD_Object"},
                     Declares("P", Value::Default(tag), ZN_PROPERTY_INDEXED)),
              ZN_OK)
        << tag;
  }
}

TEST_F(TypeManagerTest, SupertypesExistAndComeOnce) {
  EXPECT_EQ(Create("A", {"Nobody"}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("A", {"KELD_Object", "KELD_Group", "KELD_Object"}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("A", {"", "KELD_Object"}), ZNE_INVALID_ARGUMENTS);  // the empty name is the root
  EXPECT_EQ(Create("A", {""}), ZN_OK);
  EXPECT_THAT(Types().FindType("A")->Supertypes(), ElementsAre(Types().FindType("KELD_Object")));
  // An ancestor besides its own descendant is another type.
  EXPECT_EQ(Create("B", {"KELD_Group", "KELD_Object"}), ZN_OK);
}

TEST_F(TypeManagerTest, AnInheritedPropertyKeepsItsTag) {
  ASSERT_EQ(Create("A", {"KELD_Object"}, Declares("P", Value::UInt32(0))), ZN_OK);
  EXPECT_EQ(Create("B", {"A"}, Declares("P", Value::Int32(0))), ZNE_INHERITANCE_INVALID);
  EXPECT_EQ(Create("B", {"A"}, Declares("State", Value::Text(""))), ZNE_INHERITANCE_INVALID);
  EXPECT_EQ(Create("B", {"A"}, Declares("P", Value::UInt32(1))), ZN_OK);
  EXPECT_EQ(Create("C", {"B"}, Declares("P", Value::Int32(0))), ZNE_INHERITANCE_INVALID);
}

TEST_F(TypeManagerTest, SupertypesAgreeOnTags) {
  ASSERT_EQ(Create("A", {"KELD_Object"}, Declares("P", Value::UInt32(0))), ZN_OK);
  ASSERT_EQ(Create("B", {"KELD_Object"}, Declares("P", Value::Int32(0))), ZN_OK);
  EXPECT_EQ(Create("C", {"A", "B"}), ZNE_INHERITANCE_INVALID);
}

TEST_F(TypeManagerTest, SupertypesShareAPropertyOnlyThroughOneDeclaration) {
  ASSERT_EQ(Create("Top", {"KELD_Object"}, Declares("P", Value::UInt32(0))), ZN_OK);
  ASSERT_EQ(Create("Left", {"Top"}), ZN_OK);
  ASSERT_EQ(Create("Right", {"Top"}, Declares("P", Value::UInt32(1))), ZN_OK);  // declared above
  EXPECT_EQ(Create("Bottom", {"Left", "Right"}), ZN_OK);

  ASSERT_EQ(Create("A", {"KELD_Object"}, Declares("Q", Value::UInt32(0))), ZN_OK);
  ASSERT_EQ(Create("B", {"KELD_Object"}, Declares("Q", Value::UInt32(0))), ZN_OK);
  EXPECT_EQ(Create("C", {"A", "B"}), ZNE_INHERITANCE_INVALID);  // equal tags do not help
  EXPECT_EQ(Types().FindType("C"), nullptr);
}

TEST_F(TypeManagerTest, ReportsTheEarliestRuleThatFails) {
  ASSERT_EQ(Create("A", {"KELD_Object"}, Declares("P", Value::UInt32(0))), ZN_OK);
  const PropertySet bad = Declares("P", Value::Binary("x", 1), ZN_PROPERTY_INDEXED);
  EXPECT_EQ(Create("1", {"Nobody"}, bad), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("A", {"Nobody"}, bad), ZNE_TYPE_EXISTS);
  EXPECT_EQ(Create("B", {"Nobody"}, bad), ZNE_PROPERTY_NOT_INDEXABLE);
  EXPECT_EQ(Create("B", {"A", "Nobody"}, Declares("P", Value::Int32(0))), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Create("B", {"A"}, Declares("P", Value::Int32(0))), ZNE_INHERITANCE_INVALID);
}

TEST_F(TypeManagerTest, TracesEveryRuleAndStep) {
  const TraceCapture traces;
  ASSERT_EQ(Create("Disk"), ZN_OK);
  std::vector<std::string> expected;
  for (int rule = 1; rule <= 6; ++rule) {
    expected.push_back("ZnAPI:CreateTypeInstance:Applying Rule " + std::to_string(rule));
  }
  expected.emplace_back("ZnAPI:CreateTypeInstance:Creating object for type Disk");
  expected.emplace_back("ZnAPI:CreateTypeInstance:Registering type object Disk");
  EXPECT_EQ(traces.Messages(), expected);
}

TEST_F(TypeManagerTest, TracesUpToTheRuleThatFails) {
  const TraceCapture traces;
  ASSERT_EQ(Create("KELD_Object"), ZNE_TYPE_EXISTS);
  EXPECT_THAT(traces.Messages(), ElementsAre("ZnAPI:CreateTypeInstance:Applying Rule 1",
                                             "ZnAPI:CreateTypeInstance:Applying Rule 2"));
}

TEST_F(TypeManagerTest, MakesTheTypeOfTypesWithTheFirstType) {
  Database other(0, {});
  EXPECT_EQ(other.Types().FindType(kTypeTypeName), nullptr);
  const TraceCapture traces;
  TypeObject* type = nullptr;
  ASSERT_EQ(other.Types().CreateTypeInstance("First", nullptr, {}, 0, &type), ZN_OK);
  EXPECT_TRUE(traces.Has("ZnAPI:CreateTypeInstance:Creating type object for type objects"));
  const TypeObject* typeType = other.Types().FindType(kTypeTypeName);
  ASSERT_NE(typeType, nullptr);
  EXPECT_EQ(type->GetType(), typeType);
  EXPECT_EQ(typeType->Properties().Count(), 0u);
  EXPECT_THAT(typeType->Supertypes(), IsEmpty());
}

TEST_F(TypeManagerTest, TellsANewTypeWithItsPropertyForm) {
  static_cast<void>(TakeTold());
  ASSERT_EQ(Create("Disk", {"KELD_Object"}, Declares("P", Value::UInt32(0))), ZN_OK);
  const TypeObject* type = Types().FindType("Disk");
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].topic,
            "event.keld.dom.type.Disk.object.add." + GuidText(type->GetId().Value()));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[0].id, type->GetId());
  EXPECT_EQ(NameIn(told[0].data), "Disk");
}

TEST_F(TypeManagerTest, LooksTypesUpByNameAndById) {
  TypeObject* type = MakeType("Disk");
  EXPECT_EQ(Types().FindType("Disk"), type);
  EXPECT_EQ(Types().FindType("disk"), nullptr);
  EXPECT_EQ(Types().FindType(""), Types().FindType("KELD_Object"));
  EXPECT_EQ(Types().FindTypeById(type->GetId().Value()), type);
  EXPECT_EQ(Types().FindTypeById(TestGuid(1)), nullptr);
}

TEST_F(TypeManagerTest, TypeIsAKnowsBothNames) {
  MakeType("Disk");
  EXPECT_TRUE(Types().TypeIsA("Disk", "Disk"));
  EXPECT_TRUE(Types().TypeIsA("Disk", "KELD_Object"));
  EXPECT_TRUE(Types().TypeIsA("Disk", ""));
  EXPECT_FALSE(Types().TypeIsA("KELD_Object", "Disk"));
  EXPECT_FALSE(Types().TypeIsA("Disk", "Nobody"));
  EXPECT_FALSE(Types().TypeIsA("Nobody", "KELD_Object"));
  EXPECT_FALSE(Types().TypeIsA("Nobody", "Nobody"));
}

TEST_F(TypeManagerTest, RegistersTheBaseTypes) {
  Database other(0, {});
  const TraceCapture traces;
  ASSERT_EQ(RegisterBaseObjectTypes(other), ZN_OK);
  const auto messages = traces.Messages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(),
                       "ZnAPI:RegisterBaseObjectType:Creating base object type"),
            6);
  EXPECT_EQ(std::count(messages.begin(), messages.end(),
                       "ZnAPI:RegisterBaseObjectType:Base object type created"),
            6);
  TypeManager& types = other.Types();
  EXPECT_EQ(types.Types().size(), 7u);
  const TypeObject* root = types.FindType("KELD_Object");
  ASSERT_NE(root, nullptr);
  EXPECT_THAT(root->Supertypes(), IsEmpty());
  EXPECT_EQ(root->Properties().Count(), 2u);
  EXPECT_EQ(root->Properties().FindValue("Name", ZN_TYPE_WIDESTRING)->AsWideText(), u"Noname");
  EXPECT_EQ(root->Properties().FindValue("State", ZN_TYPE_UINT32)->AsUInt32(), 0u);
  EXPECT_THAT(types.FindType("KELD_Provider")->Supertypes(), IsEmpty());
  EXPECT_THAT(types.FindType("KELD_Database")->Supertypes(), IsEmpty());
  EXPECT_THAT(types.FindType("KELD_Group")->Supertypes(), ElementsAre(root));
  EXPECT_THAT(types.FindType("KELD_SystemGroup")->Supertypes(),
              ElementsAre(types.FindType("KELD_Group")));
  EXPECT_THAT(types.FindType("KELD_GenericGroup")->Supertypes(),
              ElementsAre(types.FindType("KELD_Group")));
}

TEST_F(TypeManagerTest, TheFirstBaseTypeThatFailsEndsTheRegistration) {
  Database other(0, {});
  TypeObject* type = nullptr;
  ASSERT_EQ(other.Types().CreateTypeInstance("KELD_Database", nullptr, {}, 0, &type), ZN_OK);
  const TraceCapture traces;
  EXPECT_EQ(RegisterBaseObjectTypes(other), ZNE_TYPE_EXISTS);
  EXPECT_TRUE(traces.Has("ZnAPI:RegisterBaseObjectType:Unable to create base object type"));
  EXPECT_NE(other.Types().FindType("KELD_Provider"), nullptr);
  EXPECT_EQ(other.Types().FindType("KELD_Group"), nullptr);
}

TEST_F(TypeManagerTest, MakesOnlyTheSystemTypesThatAreMissing) {
  TypeObject* task = MakeType("KELD_Task", Declares("Own", Value::UInt32(1)));
  ASSERT_EQ(RegisterMissingSystemTypes(*database_), ZN_OK);
  EXPECT_EQ(Types().FindType("KELD_Task"), task);
  for (const char* name : {"KELD_Extension", "KELD_Configlet"}) {
    ASSERT_NE(Types().FindType(name), nullptr) << name;
    EXPECT_THAT(Types().FindType(name)->Supertypes(), ElementsAre(Types().FindType("KELD_Object")));
  }
  EXPECT_EQ(RegisterMissingSystemTypes(*database_), ZN_OK);
}

TEST_F(TypeManagerTest, TheBaseSchemaHasEightNames) {
  for (const char* name : {"KELD_Database", "KELD_Provider", "KELD_Object", "KELD_GenericGroup",
                           "KELD_SystemGroup", "KELD_Group", "KELD_Type", "KELD_Extension"}) {
    EXPECT_TRUE(IsBaseSchemaType(name)) << name;
  }
  EXPECT_FALSE(IsBaseSchemaType("KELD_Task"));
  EXPECT_FALSE(IsBaseSchemaType("KELD_Configlet"));
  EXPECT_FALSE(IsBaseSchemaType(""));
}

TEST_F(TypeManagerTest, DumpsSupertypesBeforeSubtypes) {
  MakeType("Z");
  MakeType("A", {}, {"Z"});
  MakeType("M", {}, {"A", "KELD_Group"});
  const std::vector<PropertySet> forms = Types().DumpTypeGraph();
  EXPECT_EQ(forms.size(), Types().Types().size());
  EXPECT_EQ(NameIn(forms.front()), "KELD_Type");
  for (const auto& [name, type] : Types().Types()) {
    for (const TypeObject* super : type->Supertypes()) {
      EXPECT_LT(PlaceOf(forms, std::string(super->Name().Text())), PlaceOf(forms, name)) << name;
    }
  }
}

TEST_F(TypeManagerTest, ACopyHasTheSameTypesWithTheSameIds) {
  TypeObject* disk = MakeType("Disk", Declares("Slot", Value::UInt32(0), ZN_PROPERTY_INDEXED),
                              {"KELD_Object"}, OBJECT_NODISPLAY);
  ASSERT_EQ(disk->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  Database copy(0, {});
  for (const PropertySet& form : Types().DumpTypeGraph()) {
    ASSERT_EQ(copy.Types().InstallType(form), ZN_OK);
  }
  const auto before = Types().DumpTypeGraph();
  const auto after = copy.Types().DumpTypeGraph();
  ASSERT_EQ(before.size(), after.size());
  for (size_t i = 0; i < before.size(); ++i) {
    EXPECT_TRUE(before[i].Equals(after[i]) && after[i].Equals(before[i])) << NameIn(before[i]);
  }
  TypeObject* twin = copy.Types().FindType("Disk");
  EXPECT_NE(twin, disk);
  EXPECT_EQ(twin->GetId(), disk->GetId());
  EXPECT_NE(twin->FindIndex(PropertyName::Intern("Slot")), nullptr);
}

TEST_F(TypeManagerTest, AnInstalledTypeIsToldToNobody) {
  PropertySet form = MakeType("Disk")->GetProperties();
  form.Put("TypeName", Value::Text("Copy"));
  static_cast<void>(TakeTold());
  ASSERT_EQ(Types().InstallType(form), ZN_OK);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(TypeManagerTest, AnInstalledTypeIsReplacedInPlace) {
  TypeObject* type = MakeType("Disk", Declares("Old", Value::UInt32(1), ZN_PROPERTY_INDEXED));
  DBNode* node = Make("Disk");
  MakeType("Other");
  PropertySet form = type->GetProperties();
  form.Put("ObjectId", Value::Id(TestGuid(7)));
  form.Put("Flags", Value::UInt32(OBJECT_HIDDEN));
  form.Put("Data", Value::Set(Declares("New", Value::UInt32(2), ZN_PROPERTY_INDEXED)));
  form.Put("SuperTypes", Value::Array(ZN_TYPE_STRING, {Value::Text("Other")}));
  ASSERT_EQ(Types().InstallType(form), ZN_OK);
  EXPECT_EQ(Types().FindType("Disk"), type);
  EXPECT_EQ(node->GetType(), type);
  EXPECT_TRUE(SameGuid(type->GetId().Value(), TestGuid(7)));
  EXPECT_EQ(type->GetFlags(), OBJECT_HIDDEN);
  EXPECT_EQ(type->Properties().Find("Old"), nullptr);
  EXPECT_NE(type->AllProperties().Find("New"), nullptr);
  EXPECT_THAT(type->Supertypes(), ElementsAre(Types().FindType("Other")));
  EXPECT_THAT(Types().FindType("KELD_Object")->Subtypes(), testing::Not(Contains(type)));
  EXPECT_EQ(type->FindIndex(PropertyName::Intern("Old")), nullptr);
  EXPECT_NE(type->FindIndex(PropertyName::Intern("New")), nullptr);
}

// An index that kept an object of a type that left it would name freed memory.
TEST_F(TypeManagerTest, ObjectsOfAReplacedTypeChangeTheirIndexes) {
  const PropertySet indexed = Declares("P", Value::UInt32(5), ZN_PROPERTY_INDEXED);
  TypeObject* left = MakeType("Left", indexed);
  TypeObject* joined = MakeType("Joined", indexed);
  TypeObject* type = MakeType("Disk", {}, {"Left"});
  MakeType("Floppy", {}, {"Disk"});
  DBNode* node = Make("Floppy");
  const Property wanted("P", Value::UInt32(5));
  std::vector<DBNode*> found;
  ASSERT_EQ(left->FindInstances(wanted, &found), ZN_OK);
  ASSERT_THAT(found, ElementsAre(node));

  PropertySet form = type->GetProperties();
  form.Put("SuperTypes", Value::Array(ZN_TYPE_STRING, {Value::Text("Joined")}));
  ASSERT_EQ(Types().InstallType(form), ZN_OK);
  found.clear();
  ASSERT_EQ(left->FindInstances(wanted, &found), ZN_OK);
  EXPECT_THAT(found, IsEmpty());
  ASSERT_EQ(joined->FindInstances(wanted, &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(node));

  database_->DeleteNode(node);
  found.clear();
  ASSERT_EQ(joined->FindInstances(wanted, &found), ZN_OK);
  EXPECT_THAT(found, IsEmpty());
}

// The rules forbid two declarations of one name, but an installed type follows no rules.
TEST_F(TypeManagerTest, AnObjectUnderTwoIndexesOfOneNameFollowsInBoth) {
  const PropertySet indexed = Declares("P", Value::UInt32(5), ZN_PROPERTY_INDEXED);
  TypeObject* one = MakeType("One", indexed);
  TypeObject* two = MakeType("Two", indexed);
  PropertySet form = MakeType("Disk", {}, {"One"})->GetProperties();
  form.Put("SuperTypes", Value::Array(ZN_TYPE_STRING, {Value::Text("One"), Value::Text("Two")}));
  ASSERT_EQ(Types().InstallType(form), ZN_OK);
  DBNode* node = Make("Disk");
  ASSERT_EQ(node->SetProperty(Property("P", Value::UInt32(6))), ZN_OK);
  for (TypeObject* type : {one, two}) {
    std::vector<DBNode*> found;
    ASSERT_EQ(type->FindInstances(Property("P", Value::UInt32(5)), &found), ZN_OK);
    EXPECT_THAT(found, IsEmpty());
    ASSERT_EQ(type->FindInstances(Property("P", Value::UInt32(6)), &found), ZN_OK);
    EXPECT_THAT(found, ElementsAre(node));
  }
  database_->DeleteNode(node);
  for (TypeObject* type : {one, two}) {
    std::vector<DBNode*> found;
    ASSERT_EQ(type->FindInstances(Property("P", Value::UInt32(6)), &found), ZN_OK);
    EXPECT_THAT(found, IsEmpty());
  }
}

TEST_F(TypeManagerTest, AReplacedTypeTakesTheIndexesOfItsDerivedTypesOver) {
  const PropertySet indexed = Declares("P", Value::UInt32(5), ZN_PROPERTY_INDEXED);
  TypeObject* base = MakeType("Base");
  TypeObject* derived = MakeType("Derived", indexed, {"Base"});
  const PropertyName name = PropertyName::Intern("P");
  ASSERT_NE(derived->FindIndex(name), nullptr);
  DBNode* node = Make("Derived");
  PropertySet form = base->GetProperties();
  form.Put("Data", Value::Set(PropertySet(indexed)));
  ASSERT_EQ(Types().InstallType(form), ZN_OK);
  EXPECT_EQ(derived->FindIndex(name), nullptr);
  ASSERT_NE(base->FindIndex(name), nullptr);
  std::vector<DBNode*> found;
  ASSERT_EQ(derived->FindInstances(Property("P", Value::UInt32(5)), &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(node));
}

TEST_F(TypeManagerTest, AClientCopyKeepsNoIndexes) {
  DatabaseCallbacks callbacks;
  callbacks.forwardRequest = [](PropertySet&, PropertySet*, void*) -> u32 { return ZN_OK; };
  Database copy(0, callbacks);
  ASSERT_EQ(RegisterBaseObjectTypes(copy), ZN_OK);
  const PropertySet indexed = Declares("P", Value::UInt32(5), ZN_PROPERTY_INDEXED);
  TypeObject* type = nullptr;
  ASSERT_EQ(copy.Types().CreateTypeInstance("Disk", &indexed, {"KELD_Object"}, 0, &type), ZN_OK);
  DBNode* node = nullptr;
  ASSERT_EQ(copy.CreateDBNode(nullptr, "Disk", 0, &node, nullptr), ZN_OK);
  EXPECT_EQ(type->FindIndex(PropertyName::Intern("P")), nullptr);
  std::vector<DBNode*> found;
  ASSERT_EQ(type->FindInstances(Property("P", Value::UInt32(5)), &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(node));
}

TEST_F(TypeManagerTest, TheTypeOfTypesAsTheFirstTypeIsASuccessWithoutAType) {
  Database other(0, {});
  TypeObject* type = nullptr;
  EXPECT_EQ(other.Types().CreateTypeInstance("KELD_Type", nullptr, {}, 0, &type), ZN_OK);
  EXPECT_EQ(type, nullptr);
  EXPECT_NE(other.Types().FindType("KELD_Type"), nullptr);
}

// What another machine sends is no reason to loop or to fall over.
TEST_F(TypeManagerTest, AnInstalledTypeMakesNoCircleAndNoHole) {
  TypeObject* a = MakeType("A");
  TypeObject* b = MakeType("B", {}, {"A"});
  PropertySet form = a->GetProperties();
  form.Put("SuperTypes",
           Value::Array(ZN_TYPE_STRING, {Value::Text("B"), Value::Text("A"), Value::Text("Nobody"),
                                         Value::Text("KELD_Group"), Value::Text("KELD_Group")}));
  ASSERT_EQ(Types().InstallType(form), ZN_OK);
  EXPECT_THAT(a->Supertypes(), ElementsAre(Types().FindType("KELD_Group")));
  EXPECT_TRUE(b->IsA(*a));
  EXPECT_FALSE(a->IsA(*b));
}

TEST_F(TypeManagerTest, AnIncompleteFormChangesNothing) {
  TypeObject* type = MakeType("Disk", Declares("P", Value::UInt32(1)));
  const PropertySet good = type->GetProperties();
  for (const char* name :
       {"ObjectId", "Data", "TypeName", "Flags", "SuperTypes", "InterfaceList"}) {
    SCOPED_TRACE(name);
    PropertySet missing = good;
    missing.Put("Flags", Value::UInt32(99));
    missing.Put(name, Value::Bool(1));
    EXPECT_EQ(Types().InstallType(missing), ZNE_PROPERTY_NOT_FOUND);
    ASSERT_EQ(missing.Delete(name), ZN_OK);
    EXPECT_EQ(Types().InstallType(missing), ZNE_PROPERTY_NOT_FOUND);
  }
  PropertySet badInterface = good;
  badInterface.Put("Flags", Value::UInt32(99));
  badInterface.Put(
      "InterfaceList",
      Value::Array(ZN_TYPE_PROPSET, {Value::Set(Declares("Interface", Value::Bool(1)))}));
  EXPECT_EQ(Types().InstallType(badInterface), ZNE_PROPERTY_NOT_FOUND);
  PropertySet nameless = good;
  nameless.Put("TypeName", Value::Text(""));
  EXPECT_EQ(Types().InstallType(nameless), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(type->GetFlags(), 0u);
  EXPECT_EQ(type->Properties().Count(), 1u);
}

TEST_F(TypeManagerTest, InstancesGetTheFlagsOfTheirType) {
  MakeType("Quiet", {}, {"KELD_Object"}, OBJECT_HIDDEN);
  EXPECT_TRUE(Make("Quiet")->IsHidden());
  EXPECT_EQ(Make("Quiet", OBJECT_NODISPLAY)->GetFlags(), OBJECT_HIDDEN | OBJECT_NODISPLAY);
}

}  // namespace

}  // namespace zn::test
