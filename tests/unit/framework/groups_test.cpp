#include <stdlib.h>
#include <unistd.h>

#include <fstream>

#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class Groups : public StoreTest {
 protected:
  static std::u16string NameOf(const DBNode* node) {
    const Value* name = node->Properties().FindValue("Name", ZN_TYPE_WIDESTRING);
    return name == nullptr ? u"" : std::u16string(name->AsWideText());
  }
  u32 TryGroup(std::u16string_view name, const std::vector<std::string>& contained,
               std::string_view type = "KELD_GenericGroup") {
    DBNode* node = nullptr;
    return database_->CreateGroup(name, contained, type, provider_, OBJECT_GROUP_SERVER, &node);
  }
  DBNode* Find(std::u16string_view name) {
    DBNode* node = nullptr;
    return ZN_FAILED(database_->FindGroupByName(name, &node)) ? nullptr : node;
  }
};

TEST_F(Groups, AreNamedTypedAndFlagged) {
  MakeType("Disk");
  const DBNode* group = MakeGroup(u"Disks", {"Disk"});
  EXPECT_EQ(NameOf(group), u"Disks");
  EXPECT_EQ(group->GetTypeName(), "KELD_GenericGroup");
  EXPECT_NE(group->GetFlags() & OBJECT_GROUP_SERVER, 0u);
  EXPECT_EQ(group->GetFlags() & OBJECT_CLIENT_LOCAL, 0u);
  ASSERT_NE(group->GetContainedTypes(), nullptr);
  EXPECT_THAT(*group->GetContainedTypes(), ElementsAre("Disk"));
  EXPECT_EQ(Find(u"Disks"), group);
}

TEST_F(Groups, OfAClientExistOnThatClientAlone) {
  DBNode* group = nullptr;
  ASSERT_EQ(database_->CreateGroup(u"Mine", {"KELD_Task"}, "KELD_GenericGroup", provider_,
                                   OBJECT_GROUP_CLIENT, &group),
            ZN_OK);
  EXPECT_NE(group->GetFlags() & OBJECT_CLIENT_LOCAL, 0u);
}

TEST_F(Groups, HoldWhatWasThereBefore) {
  MakeType("Disk");
  MakeType("FastDisk", {}, {"Disk"});
  const DBNode* disk = Make("Disk");
  const DBNode* fast = Make("FastDisk");
  const DBNode* other = Make();
  const DBNode* group = MakeGroup(u"Disks", {"Disk"});
  EXPECT_THAT(group->Children(), testing::UnorderedElementsAre(disk->GetId(), fast->GetId()));
  EXPECT_THAT(disk->Parents(), ElementsAre(group->GetId()));
  EXPECT_THAT(other->Parents(), IsEmpty());
}

TEST_F(Groups, TakeANewObjectAtOnce) {
  MakeType("Disk");
  MakeType("FastDisk", {}, {"Disk"});
  const DBNode* group = MakeGroup(u"Disks", {"Disk"});
  EXPECT_THAT(group->Children(), IsEmpty());
  const DBNode* disk = Make("FastDisk");
  EXPECT_THAT(disk->Parents(), ElementsAre(group->GetId()));
  EXPECT_THAT(group->Children(), ElementsAre(disk->GetId()));
}

TEST_F(Groups, TellTheNewMemberBehindItsCreation) {
  MakeType("Disk");
  const DBNode* group = MakeGroup(u"Disks", {"Disk"});
  DBNode* disk = nullptr;
  ASSERT_EQ(database_->CreateDBNode(provider_, "Disk", 0, &disk, nullptr), ZN_OK);
  // The parent's change of the new object is part of what its creation tells.
  EXPECT_THAT(TakeTopics(),
              ElementsAre(Topic(*disk, ".object.add."), Topic(*group, ".relation.child.")));
}

TEST_F(Groups, TakeATypeThatIsDeclaredLater) {
  const DBNode* group = MakeGroup(u"Later", {"NotYet"});
  MakeType("NotYet");
  const DBNode* node = Make("NotYet");
  EXPECT_THAT(group->Children(), ElementsAre(node->GetId()));
}

TEST_F(Groups, OfTheRootTypeAreTheirOwnChildren) {
  const DBNode* group = MakeGroup(u"All", {"KELD_Object"});
  EXPECT_THAT(group->Children(), Contains(group->GetId()));
  EXPECT_THAT(group->Parents(), Contains(group->GetId()));
}

TEST_F(Groups, MayContainGroups) {
  const DBNode* outer = MakeGroup(u"Outer", {"KELD_GenericGroup"});
  EXPECT_THAT(outer->Children(), ElementsAre(outer->GetId()));
  const DBNode* inner = MakeGroup(u"Inner", {"KELD_Task"});
  EXPECT_THAT(outer->Children(), Contains(inner->GetId()));
  EXPECT_THAT(inner->Parents(), ElementsAre(outer->GetId()));
}

TEST_F(Groups, WithAnExistingNameAreRefused) {
  MakeGroup(u"Disks", {"KELD_Task"});
  EXPECT_EQ(TryGroup(u"Disks", {"KELD_Object"}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(TryGroup(u"disks", {"KELD_Task"}), ZN_OK) << "names compare exactly";
}

TEST_F(Groups, WithoutContainedTypesAreRefused) {
  EXPECT_EQ(TryGroup(u"Nothing", {}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Find(u"Nothing"), nullptr);
}

TEST_F(Groups, OfAnUnknownTypeAreRefusedAndLeaveNothingBehind) {
  const size_t before = database_->ObjectCount();
  EXPECT_EQ(TryGroup(u"Odd", {"KELD_Object"}, "NoSuchGroup"), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(Find(u"Odd"), nullptr);
  EXPECT_EQ(database_->ObjectCount(), before);
}

TEST_F(Groups, AreFoundByTheFirstEqualName) {
  DBNode* first = MakeGroup(u"One", {"KELD_Task"});
  DBNode* second = MakeGroup(u"Two", {"KELD_Task"});
  ASSERT_EQ(second->SetProperty(Property("Name", Value::WideText(u"One"))), ZN_OK);
  EXPECT_EQ(Find(u"One"), first);
  ASSERT_EQ(first->DeleteProperty("Name"), ZN_OK);
  EXPECT_EQ(Find(u"One"), second) << "a group without a name is passed over";
  DBNode* out = first;
  EXPECT_EQ(database_->FindGroupByName(u"Three", &out), ZNE_GROUP_NOT_USER_CREATED);
  EXPECT_EQ(out, first);
}

TEST_F(Groups, AreTakenOffTheListByName) {
  MakeType("Disk");
  const DBNode* disk = Make("Disk");
  DBNode* group = MakeGroup(u"Disks", {"Disk"});
  DBNode* out = nullptr;
  EXPECT_EQ(database_->RemoveGroup(u"Other", &out), ZNE_GROUP_NOT_USER_CREATED);
  ASSERT_EQ(database_->RemoveGroup(u"Disks", &out), ZN_OK);
  EXPECT_EQ(out, group);
  EXPECT_EQ(Find(u"Disks"), nullptr);
  database_->DeleteNode(out);
  EXPECT_THAT(disk->Parents(), IsEmpty());
  EXPECT_EQ(database_->RemoveGroup(u"Disks", &out), ZNE_GROUP_NOT_USER_CREATED);
}

TEST_F(Groups, DeletedAsObjectsLeaveTheList) {
  MakeType("Disk");
  database_->DeleteNode(MakeGroup(u"Disks", {"Disk"}));
  EXPECT_EQ(Find(u"Disks"), nullptr);
  EXPECT_THAT(Make("Disk")->Parents(), IsEmpty());
}

TEST_F(Groups, ContainingATypeComeInListOrderOncePerMatch) {
  MakeType("Disk");
  MakeType("FastDisk", {}, {"Disk"});
  DBNode* twice = MakeGroup(u"Twice", {"FastDisk", "Disk"});
  DBNode* once = MakeGroup(u"Once", {"Disk"});
  MakeGroup(u"Tasks", {"NoSuchType"});
  std::vector<DBNode*> found;
  EXPECT_EQ(database_->GetGroupsContaining("FastDisk", 0, &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(twice, twice, once));
  found.clear();
  EXPECT_EQ(database_->GetGroupsContaining("Disk", 0, &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(twice, once));
  // A new object becomes a child once all the same.
  EXPECT_EQ(Make("FastDisk")->Parents().size(), 2u);
}

TEST_F(Groups, ContainingATypeAreChosenByAnyFlagOfTheMask) {
  MakeType("Disk");
  DBNode* group = MakeGroup(u"Disks", {"Disk"});
  std::vector<DBNode*> found;
  EXPECT_EQ(database_->GetGroupsContaining("Disk", OBJECT_GROUP_CLIENT, &found),
            ZNE_OBJECT_NOT_IN_GROUP);
  EXPECT_EQ(
      database_->GetGroupsContaining("Disk", OBJECT_GROUP_CLIENT | OBJECT_GROUP_SERVER, &found),
      ZN_OK);
  EXPECT_THAT(found, ElementsAre(group));
}

TEST_F(Groups, ContainNoUnknownType) {
  MakeGroup(u"Odd", {"NoSuchType"});
  std::vector<DBNode*> found;
  EXPECT_EQ(database_->GetGroupsContaining("NoSuchType", 0, &found), ZNE_OBJECT_NOT_IN_GROUP);
  EXPECT_EQ(database_->GetGroupsContaining("KELD_Object", 0, &found), ZNE_OBJECT_NOT_IN_GROUP);
  EXPECT_THAT(found, IsEmpty());
}

TEST_F(Groups, WithManyMembersGoWithoutThem) {
  MakeType("Disk");
  DBNode* group = MakeGroup(u"Disks", {"Disk"});
  std::vector<DBNode*> disks;
  for (int i = 0; i < 500; ++i) disks.push_back(Make("Disk"));
  ASSERT_EQ(group->Children().size(), 500u);
  database_->DeleteNode(group);
  for (const DBNode* disk : disks) EXPECT_THAT(disk->Parents(), IsEmpty());
}

// Groups of the settings: each test has a settings file of its own.
class RegistryGroups : public Groups {
 protected:
  RegistryGroups() : path_("/tmp/zn_groups_" + std::to_string(getpid()) + ".toml") {
    setenv("ZN_SETTINGS", path_.c_str(), 1);
  }
  ~RegistryGroups() override {
    unsetenv("ZN_SETTINGS");
    unlink(path_.c_str());
  }
  void SetUp() override {
    Groups::SetUp();
    MakeType("Disk");
    MakeType("Net");
  }
  // The groups of the settings file, then what making them answers.
  u32 Load(const std::string& groups) {
    std::ofstream(path_) << groups;
    return database_->LoadRegistryGroups(provider_);
  }

 private:
  std::string path_;
};

TEST_F(RegistryGroups, WithoutTheKeyAreReportedUnreadable) {
  EXPECT_EQ(Load("[Providers]\n"), ZNE_GROUP_REG_UNREADABLE);
  EXPECT_EQ(Load("this is no settings file"), ZNE_GROUP_REG_UNREADABLE);
}

TEST_F(RegistryGroups, AreMadeFromEverySubkey) {
  const DBNode* disk = Make("Disk");
  ASSERT_EQ(Load("[Groups.A]\nDisplayName = 'Storage'\nContains = 'Disk,Net'\n"
                 "[Groups.B]\nContains = 'Net'\n"),
            ZN_OK);
  const DBNode* storage = Find(u"Storage");
  ASSERT_NE(storage, nullptr);
  EXPECT_EQ(storage->GetTypeName(), "KELD_GenericGroup");
  EXPECT_EQ(storage->CreatorId(), provider_->GetId());
  EXPECT_NE(storage->GetFlags() & OBJECT_GROUP_SERVER, 0u);
  EXPECT_THAT(*storage->GetContainedTypes(), ElementsAre("Disk", "Net"));
  EXPECT_THAT(storage->Children(), ElementsAre(disk->GetId()));
  EXPECT_NE(Find(u"B"), nullptr) << "named as the subkey without a DisplayName";
}

TEST_F(RegistryGroups, WithoutContainsArePassedOver) {
  EXPECT_EQ(Load("[Groups.A]\nDisplayName = 'Empty'\nContains = ''\n"
                 "[Groups.B]\nDisplayName = 'Missing'\n"
                 "[Groups.C]\nDisplayName = 'Number'\nContains = 5\n"
                 "[Groups.D]\nDisplayName = 'Disks'\nContains = 'Disk'\n"),
            ZN_OK);
  EXPECT_EQ(Find(u"Empty"), nullptr);
  EXPECT_EQ(Find(u"Missing"), nullptr);
  EXPECT_EQ(Find(u"Number"), nullptr);
  EXPECT_NE(Find(u"Disks"), nullptr);
}

TEST_F(RegistryGroups, WithNothingBetweenTheCommasAreRefusedAndIgnored) {
  EXPECT_EQ(Load("[Groups.A]\nDisplayName = 'Commas'\nContains = ',,'\n"
                 "[Groups.B]\nDisplayName = 'Disks'\nContains = ',Disk,,'\n"),
            ZN_OK);
  EXPECT_EQ(Find(u"Commas"), nullptr);
  ASSERT_NE(Find(u"Disks"), nullptr);
  EXPECT_THAT(*Find(u"Disks")->GetContainedTypes(), ElementsAre("Disk"));
}

TEST_F(RegistryGroups, OfOneNameAreMadeOnce) {
  EXPECT_EQ(Load("[Groups.A]\nDisplayName = 'Same'\nContains = 'Disk'\n"
                 "[Groups.B]\nDisplayName = 'Same'\nContains = 'Net'\n"),
            ZN_OK);
  ASSERT_NE(Find(u"Same"), nullptr);
  EXPECT_THAT(*Find(u"Same")->GetContainedTypes(), ElementsAre("Disk"));
}

TEST_F(RegistryGroups, KeepBlanksInTheNames) {
  const DBNode* disk = Make("Disk");
  EXPECT_EQ(Load("[Groups.A]\nDisplayName = 'Blank'\nContains = 'Net, Disk'\n"), ZN_OK);
  ASSERT_NE(Find(u"Blank"), nullptr);
  EXPECT_THAT(*Find(u"Blank")->GetContainedTypes(), ElementsAre(" Disk", "Net"));
  EXPECT_THAT(Find(u"Blank")->Children(), Not(Contains(disk->GetId())));
}

TEST_F(RegistryGroups, CutLongTypeNamesTo255Characters) {
  EXPECT_EQ(Load("[Groups.Long]\nContains = '" + std::string(300, 'x') + "'\n"), ZN_OK);
  ASSERT_NE(Find(u"Long"), nullptr);
  EXPECT_THAT(*Find(u"Long")->GetContainedTypes(), ElementsAre(std::string(255, 'x')));
}

TEST_F(RegistryGroups, BehindANameTooLongForTheBufferAreNotReached) {
  EXPECT_EQ(Load("[Groups.A]\nContains = 'Disk'\n"
                 "[Groups." +
                 std::string(300, 'k') +
                 "]\nContains = 'Disk'\n"
                 "[Groups.Z]\nContains = 'Disk'\n"),
            ZNE_GROUP_REG_DAMAGED);
  EXPECT_NE(Find(u"A"), nullptr);
  EXPECT_EQ(Find(u"Z"), nullptr);
}

TEST_F(RegistryGroups, CanBeDeletedByName) {
  ASSERT_EQ(Load("[Groups.Disks]\nContains = 'Disk'\n"), ZN_OK);
  DBNode* out = nullptr;
  ASSERT_EQ(database_->RemoveGroup(u"Disks", &out), ZN_OK);
  database_->DeleteNode(out);
  EXPECT_EQ(Find(u"Disks"), nullptr);
}

}  // namespace

}  // namespace zn::test
