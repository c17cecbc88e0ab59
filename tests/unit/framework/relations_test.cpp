#include "framework/common/zncore/dbnode.h"
#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class Relations : public StoreTest {
 protected:
  // The ids as texts, in the order of the answer.
  static std::vector<std::string> Texts(const std::vector<ObjectId>& ids) {
    std::vector<std::string> texts;
    for (const ObjectId& id : ids) texts.push_back(GuidText(id));
    return texts;
  }
  static std::string Text(const DBNode* node) { return GuidText(node->GetId().Value()); }
  static std::vector<std::string> Children(const DBNode* node, std::string_view filter) {
    std::vector<ObjectId> ids;
    EXPECT_EQ(node->GetChildren(filter, &ids), ZN_OK);
    return Texts(ids);
  }
  static std::vector<std::string> Parents(const DBNode* node, std::string_view filter) {
    std::vector<ObjectId> ids;
    EXPECT_EQ(node->GetParents(filter, &ids), ZN_OK);
    return Texts(ids);
  }
};

TEST_F(Relations, AreKeptAtBothEndsAndToldForBoth) {
  DBNode* parent = Make();
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  EXPECT_THAT(parent->Children(), ElementsAre(child->GetId()));
  EXPECT_THAT(child->Parents(), ElementsAre(parent->GetId()));
  EXPECT_THAT(parent->Parents(), IsEmpty());
  const std::vector<Told> told = TakeTold();
  ASSERT_EQ(told.size(), 2u);
  EXPECT_EQ(told[0].topic, Topic(*parent, ".relation.child."));
  EXPECT_EQ(told[0].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[0].id, parent->GetId());
  EXPECT_EQ(told[1].topic, Topic(*child, ".relation.parent."));
  EXPECT_EQ(told[1].flags, EVENT_LOCAL | EVENT_REMOTE);
  EXPECT_EQ(told[1].id, child->GetId());
}

TEST_F(Relations, ASecondAddOfThePairIsRefused) {
  DBNode* parent = Make();
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  static_cast<void>(TakeTold());
  EXPECT_EQ(parent->AddChild(child->GetId()), ZNE_DUPLICATE_CHILD);
  EXPECT_EQ(parent->Children().size(), 1u);
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(Relations, RemovalEndsBothEndsAndTellsBoth) {
  DBNode* parent = Make();
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  static_cast<void>(TakeTold());
  parent->RemoveChild(child->GetId());
  EXPECT_THAT(parent->Children(), IsEmpty());
  EXPECT_THAT(child->Parents(), IsEmpty());
  EXPECT_THAT(TakeTopics(),
              ElementsAre(Topic(*parent, ".relation.child."), Topic(*child, ".relation.parent.")));
}

TEST_F(Relations, RemovalOfAPairThatIsNotRelatedSucceedsAndIsToldAllTheSame) {
  DBNode* parent = Make();
  DBNode* child = Make();
  parent->RemoveChild(child->GetId());
  EXPECT_THAT(parent->Children(), IsEmpty());
  EXPECT_THAT(TakeTopics(),
              ElementsAre(Topic(*parent, ".relation.child."), Topic(*child, ".relation.parent.")));
}

TEST_F(Relations, RemovalTakesTheIdOutOfTheSetItLiesIn) {
  DBNode* parent = Make();
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  parent->RemoveChild(*parent->Children().begin());
  EXPECT_THAT(parent->Children(), IsEmpty());
  EXPECT_THAT(child->Parents(), IsEmpty());
}

TEST_F(Relations, AnIdWithoutObjectIsAChildThatOnlyTheParentKnows) {
  DBNode* parent = Make();
  const InternedId stranger(TestGuid(1));
  ASSERT_EQ(parent->AddChild(stranger), ZN_OK);
  EXPECT_THAT(parent->Children(), ElementsAre(stranger));
  EXPECT_THAT(TakeTopics(), ElementsAre(Topic(*parent, ".relation.child.")));
  parent->RemoveChild(stranger);
  EXPECT_THAT(parent->Children(), IsEmpty());
  EXPECT_THAT(TakeTopics(), ElementsAre(Topic(*parent, ".relation.child.")));
}

TEST_F(Relations, AHiddenEndSilencesBothEnds) {
  DBNode* shown = Make();
  DBNode* hidden = Make("KELD_Object", OBJECT_HIDDEN);
  ASSERT_EQ(shown->AddChild(hidden->GetId()), ZN_OK);
  ASSERT_EQ(hidden->AddChild(shown->GetId()), ZN_OK);
  shown->RemoveChild(hidden->GetId());
  hidden->RemoveChild(shown->GetId());
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

TEST_F(Relations, ACycleIsAcceptedAndADeletionLeavesTheOtherWithEmptySets) {
  DBNode* a = Make();
  DBNode* b = Make();
  ASSERT_EQ(a->AddChild(b->GetId()), ZN_OK);
  ASSERT_EQ(b->AddChild(a->GetId()), ZN_OK);
  database_->DeleteNode(a);
  EXPECT_THAT(b->Children(), IsEmpty());
  EXPECT_THAT(b->Parents(), IsEmpty());
}

TEST_F(Relations, AnObjectMayBeItsOwnChildAndStillGoes) {
  DBNode* node = Make();
  const InternedId id = node->GetId();
  ASSERT_EQ(node->AddChild(id), ZN_OK);
  EXPECT_THAT(node->Children(), ElementsAre(id));
  EXPECT_THAT(node->Parents(), ElementsAre(id));
  database_->DeleteNode(node);
  EXPECT_EQ(database_->FindObject(id), nullptr);
}

TEST_F(Relations, DeletionDropsAParentThatIsNoMore) {
  DBNode* node = Make();
  const InternedId id = node->GetId();
  node->ReplaceParents({InternedId(TestGuid(1)), InternedId(TestGuid(2))});
  database_->DeleteNode(node);
  EXPECT_EQ(database_->FindObject(id), nullptr);
}

TEST_F(Relations, AreListedInTheOrderOfTheIds) {
  DBNode* parent = Make();
  std::vector<std::string> expected;
  for (int i = 0; i < 20; ++i) {
    DBNode* child = Make();
    ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
    expected.push_back(Text(child));
  }
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(Children(parent, "KELD_Object"), expected);
  EXPECT_EQ(Children(parent, ""), expected) << "the empty name is the root type as well";
}

TEST_F(Relations, TheRootTypeListsHiddenAndUnknownMembersWithoutALook) {
  DBNode* parent = Make();
  DBNode* hidden = Make("KELD_Object", OBJECT_HIDDEN);
  const InternedId stranger(TestGuid(1));
  ASSERT_EQ(parent->AddChild(hidden->GetId()), ZN_OK);
  ASSERT_EQ(parent->AddChild(stranger), ZN_OK);
  EXPECT_THAT(Children(parent, "KELD_Object"),
              UnorderedElementsAre(Text(hidden), GuidText(TestGuid(1))));
}

TEST_F(Relations, AnyOtherFilterLooksTheMembersUp) {
  MakeType("Disk");
  MakeType("FastDisk", {}, {"Disk"});
  DBNode* parent = Make();
  DBNode* plain = Make();
  DBNode* disk = Make("Disk", OBJECT_HIDDEN);
  DBNode* fast = Make("FastDisk");
  for (DBNode* child : {plain, disk, fast}) ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  EXPECT_THAT(Children(parent, "Disk"), UnorderedElementsAre(Text(disk), Text(fast)));
  EXPECT_THAT(Children(parent, "FastDisk"), ElementsAre(Text(fast)));
  EXPECT_THAT(Children(parent, "NoSuchType"), IsEmpty());
  EXPECT_THAT(Parents(disk, "KELD_Object"), ElementsAre(Text(parent)));
  EXPECT_THAT(Parents(disk, "Disk"), IsEmpty());
}

TEST_F(Relations, AFilteredListFailsOnAMemberWithoutObject) {
  MakeType("Disk");
  DBNode* parent = Make();
  ASSERT_EQ(parent->AddChild(InternedId(TestGuid(1))), ZN_OK);
  std::vector<ObjectId> out{TestGuid(9)};
  EXPECT_EQ(parent->GetChildren("Disk", &out), ZNE_UNEXPECTED);
  EXPECT_EQ(out.size(), 1u) << "the answer is written on success only";
}

TEST_F(Relations, NoMembersGiveAnEmptyList) {
  const DBNode* node = Make();
  std::vector<ObjectId> out{TestGuid(9)};
  EXPECT_EQ(node->GetChildren("KELD_Object", &out), ZN_OK);
  EXPECT_THAT(Texts(out), IsEmpty());
  EXPECT_EQ(node->GetParents("NoSuchType", &out), ZN_OK);
  EXPECT_THAT(Texts(out), IsEmpty());
}

TEST_F(Relations, HasChildrenAsksForEveryBitOfTheMask) {
  DBNode* parent = Make();
  EXPECT_FALSE(parent->HasChildren(0)) << "no children at all";
  ASSERT_EQ(parent->AddChild(InternedId(TestGuid(1))), ZN_OK);
  EXPECT_FALSE(parent->HasChildren(0)) << "none that can be found";
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  EXPECT_TRUE(parent->HasChildren(0));
  EXPECT_FALSE(parent->HasChildren(OBJECT_HIDDEN));
  child->SetRawFlags(OBJECT_HIDDEN | OBJECT_TASK);
  EXPECT_TRUE(parent->HasChildren(OBJECT_HIDDEN));
  EXPECT_TRUE(parent->HasChildren(OBJECT_HIDDEN | OBJECT_TASK));
  EXPECT_FALSE(parent->HasChildren(OBJECT_HIDDEN | OBJECT_NODISPLAY));
}

TEST_F(Relations, ReplacedSetsAreTakenAsTheyAre) {
  DBNode* node = Make();
  node->ReplaceChildren({InternedId(TestGuid(1)), InternedId(TestGuid(2))});
  EXPECT_EQ(node->Children().size(), 2u);
  node->ReplaceChildren({});
  EXPECT_THAT(node->Children(), IsEmpty());
  node->ReplaceParents({InternedId(TestGuid(3))});
  EXPECT_THAT(node->Parents(), ElementsAre(InternedId(TestGuid(3))));
  EXPECT_THAT(TakeTopics(), IsEmpty());
}

}  // namespace

}  // namespace zn::test
