#include "framework/common/znpropset/propertyset.h"

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/framework/sample_values.h"

namespace zn {
namespace {

PropertySet SetOf(std::initializer_list<std::pair<const char*, u32>> items) {
  PropertySet set;
  for (const auto& [name, value] : items) set.Put(name, Value::UInt32(value));
  return set;
}

std::string Names(const PropertySet& set) {
  std::string names;
  for (const Property& property : set) names.append(property.Name()).append(" ");
  return names;
}

TEST(PropertySet, IsInByteOrderOfTheNamesWhateverTheInsertionOrder) {
  EXPECT_EQ(Names(SetOf({{"b", 1}, {"B", 2}, {"aa", 3}, {"a", 4}, {"_", 5}, {"", 6}})),
            " B _ a aa b ");
}

TEST(PropertySet, AddRefusesANameThatIsThere) {
  PropertySet set = SetOf({{"A", 1}});
  Property again("A", Value::UInt32(2));
  EXPECT_EQ(set.AddOwned(std::move(again)), ZNE_DUPLICATE_LOOKUP_KEY);
  EXPECT_EQ(again.GetValue().AsUInt32(), 2u) << "a refused property is the caller's still";
  EXPECT_EQ(set.FindValue("A", ZN_TYPE_UINT32)->AsUInt32(), 1u);
}

TEST(PropertySet, SetKeepsTheFlagsAndTellsAnUnchangedValue) {
  PropertySet set;
  ASSERT_EQ(set.Set(Property("A", Value::UInt32(1), ZN_PROPERTY_HIDDEN)), ZN_OK);
  EXPECT_EQ(set.Set(Property("A", Value::UInt32(1), 0)), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(set.Set(Property("A", Value::UInt32(2), ZN_PROPERTY_INDEXED)), ZN_OK);
  EXPECT_EQ(set.Find("A")->Flags(), ZN_PROPERTY_HIDDEN);
  EXPECT_EQ(set.Set(Property("A", Value::Int32(2))), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(set.FindValue("A", ZN_TYPE_UINT32)->AsUInt32(), 2u);
}

TEST(PropertySet, MergeTellsWhetherAnythingChanged) {
  PropertySet target = SetOf({{"A", 1}, {"B", 2}});
  EXPECT_EQ(target.Merge(PropertySet()), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(target.Merge(SetOf({{"A", 1}})), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(target.Merge(SetOf({{"A", 1}, {"C", 3}})), ZN_OK);
  EXPECT_EQ(target.Merge(SetOf({{"B", 9}})), ZN_OK);
  EXPECT_EQ(target.Count(), 3u);
  EXPECT_EQ(target.FindValue("B", ZN_TYPE_UINT32)->AsUInt32(), 9u);
}

TEST(PropertySet, AMergeThatMeetsAnotherTagKeepsWhatWentBefore) {
  PropertySet target = SetOf({{"B", 2}});
  PropertySet source = SetOf({{"A", 1}, {"C", 3}});
  source.Put("B", Value::Text("two"));
  EXPECT_EQ(target.Merge(source), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Names(target), "A B ");
  EXPECT_EQ(target.FindValue("B", ZN_TYPE_UINT32)->AsUInt32(), 2u);
}

TEST(PropertySet, DeleteTakesOnePropertyAndMissesAnUnknownOne) {
  PropertySet set = SetOf({{"A", 1}, {"B", 2}, {"C", 3}});
  EXPECT_EQ(set.Delete("B"), ZN_OK);
  EXPECT_EQ(set.Delete("B"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(set.Delete("no such name anywhere"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(Names(set), "A C ");
}

TEST(PropertySet, FlagQuestionsAnswerFalseForAnUnknownName) {
  PropertySet set;
  set.Put("A", Value::UInt32(1), ZN_PROPERTY_HIDDEN);
  EXPECT_TRUE(set.IsHidden("A"));
  EXPECT_FALSE(set.IsHidden("B"));
  EXPECT_FALSE(set.IsIndexed("A"));
  set.SetIndexed("A");
  set.SetIndexed("B");
  EXPECT_TRUE(set.IsIndexed("A"));
  EXPECT_EQ(set.Count(), 1u);
}

TEST(PropertySet, AllRemoteOnlyStopsAtTheFirstThatIsNot) {
  PropertySet set;
  EXPECT_TRUE(set.AllRemoteOnly());
  set.Put("A", Value::UInt32(1), ZN_PROPERTY_REMOTE_ONLY);
  EXPECT_TRUE(set.AllRemoteOnly());
  set.Put("B", Value::UInt32(1));
  EXPECT_FALSE(set.AllRemoteOnly());
}

TEST(PropertySet, CopyingASetOntoItselfDoesNothing) {
  PropertySet set = SetOf({{"A", 1}});
  set.CopyFrom(set);
  EXPECT_EQ(Names(set), "A ");
}

TEST(PropertySet, BehavesAsASortedMapWhateverItsSize) {
  PropertySet set;
  std::map<std::string, u32> model;
  u32 random = 12345;
  for (int step = 0; step < 4000; ++step) {
    random = random * 1664525 + 1013904223;
    const std::string name = "p" + std::to_string((random >> 8) % 97);
    if ((random & 0xF0) == 0) {
      EXPECT_EQ(set.Delete(name) == ZN_OK, model.erase(name) == 1);
    } else {
      set.Put(name, Value::UInt32(random));
      model[name] = random;
    }
  }
  ASSERT_EQ(set.Count(), model.size());
  u32 index = 0;
  for (const auto& [name, value] : model) {
    EXPECT_EQ(set.At(index).Name(), name);
    EXPECT_EQ(set.At(index++).GetValue().AsUInt32(), value);
    ASSERT_NE(set.Find(std::string_view(name)), nullptr);
    EXPECT_EQ(set.Find(std::string_view(name))->GetValue().AsUInt32(), value);
  }
}

TEST(Property, AssignRefusesAnotherTagAndCopyFromDoesNot) {
  Property property("A", Value::UInt32(1), ZN_PROPERTY_HIDDEN);
  const Property other("B", Value::Text("x"), ZN_PROPERTY_INDEXED);
  EXPECT_EQ(property.Assign(other), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(property.Name(), "A");
  property.CopyFrom(other);
  EXPECT_TRUE(property.Equals(other));
  EXPECT_EQ(property.Flags(), ZN_PROPERTY_INDEXED);
  Property empty;
  EXPECT_EQ(empty.TypeTag(), 0u);
  EXPECT_STREQ(empty.TypeName(), "UnknownValueType");
  EXPECT_EQ(empty.Assign(other), ZN_OK);
}

TEST(Property, ConstructionKeepsTwelveBitsOfTheFlags) {
  EXPECT_EQ(Property("A", Value::UInt32(1), 0xFFFFFFFF).Flags(), 0xFFFu);
}

TEST(Property, EqualsNeedsAValueTheNameAndTheTag) {
  const Property a("A", Value::UInt32(1));
  EXPECT_TRUE(a.Equals(Property("A", Value::UInt32(1), ZN_PROPERTY_HIDDEN)));
  EXPECT_FALSE(a.Equals(Property("B", Value::UInt32(1))));
  EXPECT_FALSE(a.Equals(Property("A", Value::Int32(1))));
  EXPECT_FALSE(Property().Equals(Property()));
}

TEST(PropertySet, AReaderOfKnownNamesLeavesTheOthersOutAndKeepsNoneOfThem) {
  // The names differ in their last byte from what the process knows, on every level.
  PropertySet inner;
  inner.Put("KnownInner", Value::UInt32(7));
  inner.Put("Stranger4X", Value::UInt32(8));
  PropertySet set;
  set.Put("KnownFirst", Value::UInt32(1));
  set.Put("Stranger1X", Value::Text("a text to be skipped"));
  set.Put("Stranger2X", Value::Set(PropertySet(inner)));
  set.Put("ZKnownSet", Value::Set(std::move(inner)));
  BinaryWriter writer;
  set.Marshal(writer);
  std::string bytes(reinterpret_cast<const char*>(writer.Buffer().Data()), writer.Buffer().Size());
  for (size_t at = bytes.find("Stranger"); at != bytes.npos; at = bytes.find("Stranger", at + 1)) {
    bytes[at + 9] = '!';
  }
  BinaryReader known(bytes.data(), bytes.size(), NamesRead::kKnown);
  PropertySet read;
  ASSERT_EQ(read.Unmarshal(known), ZN_OK);
  EXPECT_EQ(read.Count(), 2u);
  ASSERT_NE(read.FindValue("KnownFirst", ZN_TYPE_UINT32), nullptr);
  const Value* nested = read.FindValue("ZKnownSet", ZN_TYPE_PROPSET);
  ASSERT_NE(nested, nullptr);
  EXPECT_EQ(nested->AsSet().Count(), 1u);
  PropertyName name;
  EXPECT_FALSE(PropertyName::Find("Stranger1!", &name));
  EXPECT_FALSE(PropertyName::Find("Stranger4!", &name));

  BinaryReader all(bytes.data(), bytes.size());
  ASSERT_EQ(read.Unmarshal(all), ZN_OK);
  EXPECT_EQ(read.Count(), 4u);
  EXPECT_TRUE(PropertyName::Find("Stranger4!", &name));
}

TEST(PropertySet, KeepsItsPropertiesInLentRoomUntilThereAreMore) {
  alignas(Property) unsigned char room[3 * sizeof(Property)];
  const auto isInRoom = [&](const PropertySet& set) {
    return static_cast<const void*>(set.begin()) == room;
  };
  PropertySet source;
  for (const char* name : {"A", "B", "C"}) source.Put(name, Value::Text(std::string_view(name)));
  {
    PropertySet set(room, 3);
    set.CopyFrom(source);
    EXPECT_TRUE(isInRoom(set));
    PropertySet fewer;
    fewer.Put("D", Value::Text("d"));
    set.CopyFrom(fewer);
    EXPECT_TRUE(isInRoom(set));
    EXPECT_EQ(set.Count(), 1u);
    set.CopyFrom(source);
    ASSERT_EQ(set.Add(Property("D", Value::Text("d"))), ZN_OK);
    EXPECT_FALSE(isInRoom(set));
    EXPECT_EQ(set.Count(), 4u);
    EXPECT_EQ(set.FindValue("B", ZN_TYPE_STRING)->AsText(), "B");
  }
  PropertySet direct(room, 3);
  PropertySet larger(source);
  larger.Put("E", Value::UInt32(5));
  direct.CopyFrom(source);
  direct.CopyFrom(larger);
  EXPECT_FALSE(isInRoom(direct));
  EXPECT_EQ(direct.Count(), 4u);
}

}  // namespace
}  // namespace zn
