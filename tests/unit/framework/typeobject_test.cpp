#include "framework/common/zntypeobject/typeobject.h"

#include <algorithm>

#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class TypeObjectTest : public StoreTest {
 protected:
  // An object with a value of its own for one property.
  DBNode* MakeWith(std::string_view type, std::string_view name, Value value) {
    DBNode* node = Make(type);
    EXPECT_EQ(node->SetProperty(Property(name, std::move(value))), ZN_OK);
    static_cast<void>(TakeTold());
    return node;
  }
  static std::vector<DBNode*> Having(TypeObject* type, std::string_view name, Value value) {
    std::vector<DBNode*> found;
    EXPECT_EQ(type->FindInstances(Property(name, std::move(value)), &found), ZN_OK);
    return found;
  }
  static std::vector<DBNode*> InstancesOf(const TypeObject* type) {
    std::vector<DBNode*> nodes;
    type->CollectInstances(&nodes);
    return nodes;
  }
  TypeObject* Root() { return database_->Types().FindType(kRootTypeName); }
  static PropertyName Name(std::string_view text) { return PropertyName::Intern(text); }
};

using InstanceListTest = TypeObjectTest;

TEST_F(InstanceListTest, KeepsTheOrderOfCreationThroughRemovals) {
  std::vector<DBNode*> expected;
  std::vector<DBNode*> nodes;
  TypeObject* type = MakeType("Many");
  for (int i = 0; i < 1000; ++i) nodes.push_back(Make("Many"));
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (i % 5 == 0) {
      expected.push_back(nodes[i]);
    } else {
      database_->DeleteNode(nodes[i]);
    }
  }
  EXPECT_EQ(type->Instances().Count(), expected.size());
  EXPECT_EQ(InstancesOf(type), expected);
  // The holes were closed on the way, so a walk costs what the objects cost.
  EXPECT_LE(type->Instances().Slots().size(), 2 * expected.size());
  expected.push_back(Make("Many"));
  EXPECT_EQ(InstancesOf(type), expected);
}

TEST_F(InstanceListTest, LeavesANodeOfAnotherListAlone) {
  TypeObject* one = MakeType("One");
  TypeObject* other = MakeType("Other");
  DBNode* node = Make("One");
  other->Instances().Remove(node);
  EXPECT_THAT(InstancesOf(one), ElementsAre(node));
  EXPECT_EQ(other->Instances().Count(), 0u);
}

TEST_F(TypeObjectTest, ItsPropertyFormTellsAllOfIt) {
  TypeObject* type = MakeType("Disk", Declares("Size", Value::UInt64(7)), {"KELD_Object"}, 2);
  ASSERT_EQ(type->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  const PropertySet form = type->GetProperties();
  EXPECT_EQ(form.Count(), 7u);
  EXPECT_EQ(form.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsId(), type->GetId());
  EXPECT_EQ(form.FindValue("ObjectType", ZN_TYPE_STRING)->AsText(), "KELD_Type");
  EXPECT_EQ(form.FindValue("TypeName", ZN_TYPE_STRING)->AsText(), "Disk");
  EXPECT_EQ(form.FindValue("Flags", ZN_TYPE_UINT32)->AsUInt32(), 2u);
  const PropertySet& data = form.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
  EXPECT_EQ(data.Count(), 1u);
  EXPECT_EQ(data.FindValue("Size", ZN_TYPE_UINT64)->AsUInt64(), 7u);
  const auto& supertypes = form.FindValue("SuperTypes", ZN_TYPE_ARRAY | ZN_TYPE_STRING)->AsArray();
  ASSERT_EQ(supertypes.size(), 1u);
  EXPECT_EQ(supertypes[0].AsText(), "KELD_Object");
  const auto& interfaces =
      form.FindValue("InterfaceList", ZN_TYPE_ARRAY | ZN_TYPE_PROPSET)->AsArray();
  ASSERT_EQ(interfaces.size(), 1u);
  const PropertySet& entry = interfaces[0].AsSet();
  EXPECT_TRUE(SameGuid(entry.FindValue("Interface", ZN_TYPE_GUID)->AsGuid(), TestGuid(1)));
  EXPECT_EQ(entry.FindValue("Provider", ZN_TYPE_OBJECT_ID)->AsId(), provider_->GetId());
}

TEST_F(TypeObjectTest, TheTypeOfTypesSaysItIsItsOwnType) {
  const TypeObject* typeType = database_->Types().FindType(kTypeTypeName);
  ASSERT_NE(typeType, nullptr);
  EXPECT_EQ(typeType->GetType(), nullptr);
  EXPECT_EQ(typeType->GetProperties().FindValue("ObjectType", ZN_TYPE_STRING)->AsText(),
            "KELD_Type");
}

TEST_F(TypeObjectTest, CannotBeChangedOnePropertyAtATime) {
  TypeObject* type = MakeType("Disk", Declares("Size", Value::UInt64(7)));
  EXPECT_EQ(type->SetProperty(Property("Size", Value::UInt64(8))), ZNE_UNEXPECTED);
  EXPECT_EQ(type->Properties().FindValue("Size", ZN_TYPE_UINT64)->AsUInt64(), 7u);
}

TEST_F(TypeObjectTest, AMergedIndexedPropertyGetsItsIndex) {
  TypeObject* type = MakeType("Disk");
  DBNode* node = MakeWith("Disk", "Slot", Value::UInt32(4));
  EXPECT_EQ(type->FindIndex(Name("Slot")), nullptr);
  ASSERT_EQ(type->SetProperties(Declares("Slot", Value::UInt32(0), ZN_PROPERTY_INDEXED)), ZN_OK);
  ASSERT_NE(type->FindIndex(Name("Slot")), nullptr);
  EXPECT_EQ(type->FindIndex(Name("Slot"))->Count(Value::UInt32(4)), 1u);
  EXPECT_THAT(Having(type, "Slot", Value::UInt32(4)), ElementsAre(node));
}

TEST_F(TypeObjectTest, IsAFollowsEverySupertype) {
  TypeObject* a = MakeType("A");
  TypeObject* b = MakeType("B");
  TypeObject* c = MakeType("C", {}, {"A", "B"});
  TypeObject* d = MakeType("D", {}, {"C"});
  EXPECT_TRUE(d->IsA(*d));
  EXPECT_TRUE(d->IsA(*a));
  EXPECT_TRUE(d->IsA(*b));
  EXPECT_TRUE(d->IsA(*c));
  EXPECT_TRUE(d->IsA(*Root()));
  EXPECT_FALSE(a->IsA(*b));
  EXPECT_FALSE(a->IsA(*d));
  EXPECT_FALSE(d->IsA(*database_->Types().FindType(kTypeTypeName)));
}

TEST_F(TypeObjectTest, APropertyBelongsToTheHighestTypeThatDeclaresIt) {
  TypeObject* a = MakeType("A", Declares("P", Value::UInt32(1)));
  TypeObject* b = MakeType("B", Declares("P", Value::UInt32(2)), {"A"});
  TypeObject* c = MakeType("C", Declares("Q", Value::UInt32(3)), {"B"});
  EXPECT_EQ(c->FormalizingType(Name("P")), a);
  EXPECT_EQ(b->FormalizingType(Name("P")), a);
  EXPECT_EQ(c->FormalizingType(Name("Q")), c);
  EXPECT_EQ(b->FormalizingType(Name("Q")), nullptr);
  EXPECT_EQ(c->FormalizingType(Name("State")), Root());
}

TEST_F(TypeObjectTest, TheNearestDeclarationGivesTheDefault) {
  MakeType("A", Declares("P", Value::UInt32(1)));
  TypeObject* b = MakeType("B", Declares("P", Value::UInt32(2)), {"A"});
  const PropertySet& all = b->AllProperties();
  EXPECT_EQ(all.Count(), 3u);  // "Name" and "State" of the root
  EXPECT_EQ(all.FindValue("P", ZN_TYPE_UINT32)->AsUInt32(), 2u);
  EXPECT_EQ(all.FindValue("State", ZN_TYPE_UINT32)->AsUInt32(), 0u);
  EXPECT_EQ(Make("B")->Properties().FindValue("P", ZN_TYPE_UINT32)->AsUInt32(), 2u);
}

TEST_F(TypeObjectTest, DefaultsFollowAMergeIntoAnAncestor) {
  TypeObject* a = MakeType("A");
  TypeObject* b = MakeType("B", {}, {"A"});
  EXPECT_EQ(b->AllProperties().Find("Late"), nullptr);
  ASSERT_EQ(a->SetProperties(Declares("Late", Value::UInt32(1))), ZN_OK);
  EXPECT_NE(b->AllProperties().Find("Late"), nullptr);
}

TEST_F(TypeObjectTest, ListsInstancesOfDerivedTypesOnceThroughADiamond) {
  TypeObject* top = MakeType("Top");
  MakeType("Left", {}, {"Top"});
  MakeType("Right", {}, {"Top"});
  MakeType("Bottom", {}, {"Left", "Right"});
  DBNode* bottom = Make("Bottom");
  DBNode* right = Make("Right");
  DBNode* own = Make("Top");
  DBNode* left = Make("Left");
  // Own ones, then type by type depth first.
  EXPECT_THAT(InstancesOf(top), ElementsAre(own, left, bottom, right));
  EXPECT_THAT(Having(top, "State", Value::UInt32(0)),
              UnorderedElementsAre(own, left, bottom, right));
}

TEST_F(TypeObjectTest, TheTypeOfTypesListsTheTypesByTheirIds) {
  const TypeObject* typeType = database_->Types().FindType(kTypeTypeName);
  TypeObject* mine = MakeType("Mine");
  std::vector<ObjectId> ids;
  typeType->CollectInstanceIds(&ids);
  EXPECT_EQ(ids.size(), database_->Types().Types().size() - 1);  // without itself
  EXPECT_TRUE(SameGuid(ids.back(), mine->GetId().Value()));
  EXPECT_EQ(database_->FindObject(ids.back()), nullptr);  // types are no objects of the table
}

TEST_F(TypeObjectTest, FindsUnindexedValuesAmongInstancesOfDerivedTypes) {
  TypeObject* a = MakeType("A", Declares("P", Value::Text("x")));
  TypeObject* b = MakeType("B", {}, {"A"});
  DBNode* ofA = Make("A");
  DBNode* ofB = Make("B");
  DBNode* changed = MakeWith("B", "P", Value::Text("y"));
  EXPECT_THAT(Having(a, "P", Value::Text("x")), UnorderedElementsAre(ofA, ofB));
  EXPECT_THAT(Having(b, "P", Value::Text("x")), ElementsAre(ofB));
  EXPECT_THAT(Having(a, "P", Value::Text("y")), ElementsAre(changed));
  EXPECT_THAT(Having(a, "P", Value::WideText(u"x")), IsEmpty());  // equality is strict by type
}

TEST_F(TypeObjectTest, RefusesASearchByAPropertyThatNoTypeDeclares) {
  DBNode* node = MakeWith("KELD_Object", "Own", Value::UInt32(1));
  std::vector<DBNode*> found;
  EXPECT_EQ(Root()->FindInstances(Property("Own", Value::UInt32(1)), &found),
            ZNE_PROPERTY_NOT_FORMALIZED);
  EXPECT_THAT(found, IsEmpty());
  EXPECT_TRUE(node->HasProperty("Own"));
}

class IndexedTypeTest : public TypeObjectTest {
 protected:
  void SetUp() override {
    TypeObjectTest::SetUp();
    a_ = MakeType("A", Declares("P", Value::UInt32(0), ZN_PROPERTY_INDEXED));
    b_ = MakeType("B", {}, {"A"});
  }
  TypeObject* a_ = nullptr;
  TypeObject* b_ = nullptr;
};

TEST_F(IndexedTypeTest, NewObjectsStandUnderTheirDefaults) {
  DBNode* ofA = Make("A");
  DBNode* ofB = Make("B");
  ObjectIndex* index = a_->FindIndex(Name("P"));
  ASSERT_NE(index, nullptr);
  EXPECT_EQ(index->Count(Value::UInt32(0)), 2u);
  EXPECT_EQ(b_->FindIndex(Name("P")), nullptr);
  EXPECT_EQ(b_->FormalizedIndex(Name("P")), index);
  EXPECT_EQ(b_->FormalizedIndex(Name("State")), nullptr);
  EXPECT_THAT(Having(a_, "P", Value::UInt32(0)), UnorderedElementsAre(ofA, ofB));
}

TEST_F(IndexedTypeTest, FollowsEveryWayAValueChanges) {
  DBNode* node = Make("B");
  ObjectIndex* index = a_->FindIndex(Name("P"));
  ASSERT_EQ(node->SetProperty(Property("P", Value::UInt32(5))), ZN_OK);
  EXPECT_EQ(index->Count(Value::UInt32(0)), 0u);
  EXPECT_THAT(Having(a_, "P", Value::UInt32(5)), ElementsAre(node));
  ASSERT_EQ(node->SetProperties(Declares("P", Value::UInt32(6))), ZN_OK);
  EXPECT_EQ(index->Count(Value::UInt32(5)), 0u);
  EXPECT_THAT(Having(a_, "P", Value::UInt32(6)), ElementsAre(node));
  ASSERT_EQ(node->DeleteProperty("P"), ZN_OK);
  EXPECT_EQ(index->Count(Value::UInt32(6)), 0u);
  ASSERT_EQ(node->SetProperty(Property("P", Value::UInt32(7))), ZN_OK);
  EXPECT_THAT(Having(a_, "P", Value::UInt32(7)), ElementsAre(node));
}

TEST_F(IndexedTypeTest, ARefusedValueLeavesTheIndexAlone) {
  DBNode* node = Make("A");
  EXPECT_EQ(node->SetProperty(Property("P", Value::Text("x"))), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(Having(a_, "P", Value::UInt32(0)), ElementsAre(node));
}

TEST_F(IndexedTypeTest, ADeletedObjectLeavesTheIndex) {
  DBNode* node = Make("B");
  DBNode* stays = Make("B");
  database_->DeleteNode(node);
  EXPECT_THAT(Having(a_, "P", Value::UInt32(0)), ElementsAre(stays));
}

TEST_F(IndexedTypeTest, ADerivedTypeFindsItsOwnThroughTheIndexOfItsAncestor) {
  DBNode* ofA = MakeWith("A", "P", Value::UInt32(3));
  DBNode* ofB = MakeWith("B", "P", Value::UInt32(3));
  Make("B");
  Make("B");
  Make("B");
  EXPECT_THAT(Having(b_, "P", Value::UInt32(3)), ElementsAre(ofB));
  EXPECT_THAT(Having(a_, "P", Value::UInt32(3)), UnorderedElementsAre(ofA, ofB));
}

TEST_F(IndexedTypeTest, ADerivedTypeWithFewObjectsIsReadInstead) {
  for (int i = 0; i < 10; ++i) Make("A");
  DBNode* ofB = Make("B");
  ASSERT_GT(a_->FindIndex(Name("P"))->Count(Value::UInt32(0)), b_->Instances().Count());
  EXPECT_THAT(Having(b_, "P", Value::UInt32(0)), ElementsAre(ofB));
}

TEST_F(TypeObjectTest, ADerivedTypeMakesTheIndexAtTheFormalizingType) {
  TypeObject* a = MakeType("A", Declares("P", Value::UInt32(0)));
  DBNode* before = Make("A");
  DBNode* otherBefore = MakeWith("A", "P", Value::UInt32(9));
  TypeObject* b = MakeType("B", Declares("P", Value::UInt32(1), ZN_PROPERTY_INDEXED), {"A"});
  EXPECT_EQ(b->FindIndex(Name("P")), nullptr);
  ObjectIndex* index = a->FindIndex(Name("P"));
  ASSERT_NE(index, nullptr);
  EXPECT_TRUE(a->Properties().IsIndexed("P"));
  // Objects made before the index are in it, and it follows them.
  EXPECT_EQ(index->Count(Value::UInt32(0)), 1u);
  EXPECT_EQ(index->Count(Value::UInt32(9)), 1u);
  ASSERT_EQ(before->SetProperty(Property("P", Value::UInt32(9))), ZN_OK);
  DBNode* ofB = Make("B");
  EXPECT_THAT(Having(a, "P", Value::UInt32(9)), UnorderedElementsAre(before, otherBefore));
  EXPECT_THAT(Having(a, "P", Value::UInt32(1)), ElementsAre(ofB));
}

TEST_F(TypeObjectTest, AnIndexCoversRedeclarationsWithoutTheFlag) {
  TypeObject* a = MakeType("A", Declares("P", Value::UInt32(0), ZN_PROPERTY_INDEXED));
  MakeType("B", Declares("P", Value::UInt32(1)), {"A"});
  DBNode* ofB = Make("B");
  EXPECT_THAT(Having(a, "P", Value::UInt32(1)), ElementsAre(ofB));
  ASSERT_EQ(ofB->SetProperty(Property("P", Value::UInt32(2))), ZN_OK);
  EXPECT_THAT(Having(a, "P", Value::UInt32(2)), ElementsAre(ofB));
  EXPECT_THAT(Having(a, "P", Value::UInt32(1)), IsEmpty());
}

TEST_F(TypeObjectTest, AnInterfaceIsRegisteredOnceAndRemovedByItsProvider) {
  TypeObject* type = MakeType("Disk");
  Provider* other = AddProvider(u"other");
  EXPECT_EQ(type->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  EXPECT_EQ(type->AddInterface(TestGuid(1), other->GetId()), ZNE_INTERFACE_EXISTS);
  EXPECT_EQ(type->RemoveInterface(TestGuid(2), provider_->GetId()), ZNE_INTERFACE_NOT_FOUND);
  EXPECT_EQ(type->RemoveInterface(TestGuid(1), other->GetId()), ZNE_INTERFACE_NOT_FOUND);
  EXPECT_EQ(type->Interfaces().size(), 1u);
  EXPECT_EQ(type->RemoveInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  EXPECT_THAT(type->Interfaces(), IsEmpty());
}

TEST_F(TypeObjectTest, TellsItsNewInterfaceList) {
  TypeObject* type = MakeType("Disk");
  static_cast<void>(TakeTold());
  ASSERT_EQ(type->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  ASSERT_EQ(type->AddInterface(TestGuid(1), provider_->GetId()), ZNE_INTERFACE_EXISTS);
  ASSERT_EQ(type->RemoveInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 1u);  // the second replaces the first within the sequence
  EXPECT_EQ(told[0].topic,
            "event.keld.dom.type.Disk.interface.change." + GuidText(type->GetId().Value()));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[0].data.Count(), 2u);
  EXPECT_EQ(told[0].data.FindValue("TypeName", ZN_TYPE_STRING)->AsText(), "Disk");
  EXPECT_THAT(told[0].data.FindValue("InterfaceList", ZN_TYPE_ARRAY | ZN_TYPE_PROPSET)->AsArray(),
              IsEmpty());
}

TEST_F(TypeObjectTest, InheritsInterfacesFromTheNearestAncestor) {
  TypeObject* a = MakeType("A");
  TypeObject* b = MakeType("B", {}, {"A"});
  Provider* other = AddProvider(u"other");
  ASSERT_EQ(a->AddInterface(TestGuid(1), provider_->GetId()), ZN_OK);
  ASSERT_EQ(a->AddInterface(TestGuid(2), provider_->GetId()), ZN_OK);
  ASSERT_EQ(b->AddInterface(TestGuid(1), other->GetId()), ZN_OK);
  ASSERT_NE(b->FindInterface(TestGuid(1)), nullptr);
  EXPECT_EQ(b->FindInterface(TestGuid(1))->provider, other->GetId());
  ASSERT_NE(b->FindInterface(TestGuid(2)), nullptr);
  EXPECT_EQ(b->FindInterface(TestGuid(2))->provider, provider_->GetId());
  EXPECT_EQ(b->FindInterface(TestGuid(3)), nullptr);

  std::vector<GUID> own;
  b->CollectInterfaces(false, &own);
  EXPECT_EQ(own.size(), 1u);
  std::vector<GUID> all;
  b->CollectInterfaces(true, &all);
  EXPECT_EQ(all.size(), 2u);  // the one on both is listed once
}

TEST_F(TypeObjectTest, AChainBelowAForkEndsInAllThatIsAboveTheFork) {
  PropertySet top;
  top.Put("OfTop", Value::UInt32(0));
  PropertySet middle;
  middle.Put("OfMiddle", Value::UInt32(0));
  PropertySet again = middle;
  again.Put("OfTop", Value::UInt32(0));
  TypeObject* left = MakeType("Left");
  TypeObject* right = MakeType("Right", top);
  TypeObject* fork = MakeType("Fork", {}, {"Left", "Right"});
  TypeObject* below = MakeType("Below", middle, {"Fork"});
  TypeObject* last = MakeType("Last", again, {"Below"});
  TypeObject* other = MakeType("Other", {}, {"Left"});
  for (const TypeObject* base : {Root(), left, right, fork, below, last}) {
    EXPECT_TRUE(last->IsA(*base)) << base->Name().Text();
  }
  EXPECT_FALSE(last->IsA(*other));
  EXPECT_FALSE(other->IsA(*right));
  EXPECT_EQ(last->FormalizingType(PropertyName::Intern("OfTop")), right);
  EXPECT_EQ(last->FormalizingType(PropertyName::Intern("OfMiddle")), below);
  EXPECT_EQ(last->FormalizingType(PropertyName::Intern("State")), Root());
  EXPECT_EQ(last->FormalizingType(PropertyName::Intern("Nowhere")), nullptr);
  EXPECT_THAT(last->AncestorsFirst(), ElementsAre(Root(), left, right, fork, below, last));
}

// A generated schema may be deep: nothing recurses over it.
TEST_F(TypeObjectTest, StandsAtTheEndOfALongChain) {
  std::string name = "KELD_Object";
  for (int i = 0; i < 300; ++i) {
    const std::string next = "T" + std::to_string(i);
    MakeType(next, {}, {name});
    name = next;
  }
  const TypeObject* last = database_->Types().FindType(name);
  EXPECT_TRUE(last->IsA(*Root()));
  EXPECT_EQ(last->AncestorsFirst().front(), Root());
  DBNode* node = Make(name);
  EXPECT_THAT(InstancesOf(Root()), ElementsAre(node));
}

}  // namespace

}  // namespace zn::test
