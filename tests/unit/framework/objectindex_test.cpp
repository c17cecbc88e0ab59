#include "framework/common/zntypeobject/objectindex.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include <gmock/gmock.h>

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// An index that is given the ids never looks at a node, so any address does.
DBNode* Node(size_t number) {
  return reinterpret_cast<DBNode*>(static_cast<std::uintptr_t>(number * 64));
}
GUID IdOf(size_t number) {
  return {static_cast<u32>(number), 1, 2, {3}};
}
void Enter(ObjectIndex& index, const Value& value, size_t number) {
  index.Enter(value, Node(number), IdOf(number));
}

std::vector<DBNode*> Find(const ObjectIndex& index, const Value& value) {
  std::vector<DBNode*> found;
  index.Find(value, &found);
  EXPECT_EQ(index.Count(value), found.size());
  return found;
}

struct TwoValues {
  const char* name;
  Value one;
  Value other;
};

std::vector<TwoValues> IndexableValues() {
  return {
      {"boolean", Value::Bool(0), Value::Bool(1)},
      {"int32", Value::Int32(-1), Value::Int32(0x7FFFFFFF)},
      {"uint32", Value::UInt32(0), Value::UInt32(0xFFFFFFFF)},
      {"int64", Value::Int64(-1), Value::Int64(1ll << 40)},
      {"time", Value::Time(0), Value::Time(1ll << 33)},
      {"uint64", Value::UInt64(1), Value::UInt64(1ull << 63)},
      {"string", Value::Text(""), Value::Text("/dev/sda")},
      {"a text that fits its slot", Value::Text(std::string(28, 'x')),
       Value::Text(std::string(27, 'x'))},
      {"long texts", Value::Text(std::string(29, 'x')), Value::Text(std::string(28, 'x') + 'y')},
      {"widestring", Value::WideText(u"Noname"), Value::WideText(u"K\u00f6ln")},
      {"long wide texts", Value::WideText(std::u16string(15, u'x')),
       Value::WideText(std::u16string(14, u'x') + u'\u0178')},
      {"guid", Value::Guid(GUID{}), Value::Guid(GUID{1, 2, 3, {4}})},
      {"object id", Value::Id(GUID{5, 6, 7, {8}}), Value::Id(GUID{5, 6, 7, {9}})},
  };
}

TEST(ObjectIndex, HasAFactoryForTenTagsAndNoOther) {
  const std::vector<TwoValues> values = IndexableValues();
  const auto isListed = [&](u32 tag) {
    return std::any_of(values.begin(), values.end(),
                       [tag](const TwoValues& row) { return row.one.Tag() == tag; });
  };
  u32 indexable = 0;
  for (const u32 high : {0u, 0x10000u, ZN_TYPE_ARRAY, ZN_TYPE_ARRAY | 0x10000u}) {
    for (u32 low = 0; low <= 20; ++low) {
      const u32 tag = high | low;
      EXPECT_EQ(IsIndexableTag(tag), isListed(tag)) << std::hex << tag;
      EXPECT_EQ(CreateObjectIndex(tag) != nullptr, isListed(tag)) << std::hex << tag;
      indexable += IsIndexableTag(tag) ? 1 : 0;
    }
  }
  EXPECT_EQ(indexable, 10u);
}

TEST(ObjectIndex, FindsWhatWasAddedUnderItsValueAlone) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    ASSERT_NE(index, nullptr);
    EXPECT_THAT(Find(*index, row.one), IsEmpty());
    Enter(*index, row.one, 1);
    Enter(*index, row.one, 2);
    Enter(*index, row.other, 3);
    EXPECT_THAT(Find(*index, row.one), UnorderedElementsAre(Node(1), Node(2)));
    EXPECT_THAT(Find(*index, row.other), ElementsAre(Node(3)));
  }
}

TEST(ObjectIndex, UpdateMovesANodeFromValueToValue) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    Enter(*index, row.one, 1);
    Enter(*index, row.one, 2);
    index->Update(row.one, row.other, Node(1), IdOf(1));
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(2)));
    EXPECT_THAT(Find(*index, row.other), ElementsAre(Node(1)));
    index->Remove(row.one, Node(2));
    EXPECT_THAT(Find(*index, row.one), IsEmpty());
  }
}

TEST(ObjectIndex, RemovingAPairThatIsNotThereHasNoEffect) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    index->Remove(row.one, Node(1));
    Enter(*index, row.one, 1);
    index->Remove(row.other, Node(1));
    index->Remove(row.one, Node(2));
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(1)));
  }
}

TEST(ObjectIndex, APairAddedTwiceStaysOnce) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    Enter(*index, row.one, 1);
    Enter(*index, row.one, 1);
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(1)));
    Enter(*index, row.one, 2);
    Enter(*index, row.one, 2);
    EXPECT_THAT(Find(*index, row.one), UnorderedElementsAre(Node(1), Node(2)));
  }
}

TEST(ObjectIndex, LeavesValuesOfAnotherTagOut) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    const Value foreign = row.one.Tag() == ZN_TYPE_INT32 ? Value::UInt32(1) : Value::Int32(1);
    Enter(*index, foreign, 1);
    index->Remove(foreign, Node(1));
    EXPECT_THAT(Find(*index, foreign), IsEmpty());
  }
}

TEST(ObjectIndex, AnyByteButZeroIsTrue) {
  const auto index = CreateObjectIndex(ZN_TYPE_BOOLEAN);
  Enter(*index, Value::Bool(2), 1);
  EXPECT_THAT(Find(*index, Value::Bool(1)), ElementsAre(Node(1)));
  EXPECT_THAT(Find(*index, Value::Bool(0)), IsEmpty());
}

// Of one node, whose id lies in the slot.
TEST(ObjectIndex, KnowsTheIdOfTheOneNodeOfAValue) {
  for (const TwoValues& row : IndexableValues()) {
    if (row.one.Tag() == ZN_TYPE_BOOLEAN) continue;  // keeps no ids
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    Enter(*index, row.one, 1);
    Enter(*index, row.other, 2);
    index->Update(row.other, row.one, Node(2), IdOf(2));
    index->Remove(row.one, Node(1));
    index->Remove(row.one, Node(2));
    Enter(*index, row.one, 3);
    std::vector<ObjectId> ids{IdOf(9)};
    index->FindIds(row.other, &ids);
    ASSERT_EQ(ids.size(), 1u);
    index->FindIds(row.one, &ids);
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(ids[0].Data1, 9u);
    EXPECT_EQ(ids[1].Data1, 3u);
  }
}

// Removals leave no hole in which a later look-up would end too early, and grown tables no entry
// behind.
TEST(ObjectIndex, AgreesWithAMapThroughManyChanges) {
  for (const u32 tag : {u32{ZN_TYPE_UINT32}, u32{ZN_TYPE_STRING}}) {
    const auto index = CreateObjectIndex(tag);
    const auto valueOf = [tag](u32 number) {
      if (tag == ZN_TYPE_UINT32) return Value::UInt32(number);
      return Value::Text(std::string(number % 64, 'x') + std::to_string(number));
    };
    std::map<u32, std::set<DBNode*>> model;
    u32 random = 1;
    for (int step = 0; step < 20000; ++step) {
      random = random * 1664525 + 1013904223;
      const u32 number = (random >> 8) % 500;
      const size_t node = 1 + (random >> 20) % 3;
      if ((random >> 31) != 0) {
        Enter(*index, valueOf(number), node);
        model[number].insert(Node(node));
      } else {
        index->Remove(valueOf(number), Node(node));
        model[number].erase(Node(node));
      }
    }
    for (const auto& [number, nodes] : model) {
      EXPECT_THAT(Find(*index, valueOf(number)), testing::UnorderedElementsAreArray(nodes));
    }
  }
}

TEST(ObjectIndex, AppendsToWhatTheListHolds) {
  const auto index = CreateObjectIndex(ZN_TYPE_UINT32);
  Enter(*index, Value::UInt32(1), 1);
  std::vector<DBNode*> found{Node(9)};
  index->Find(Value::UInt32(1), &found);
  EXPECT_THAT(found, ElementsAre(Node(9), Node(1)));
}

// Thousands of nodes with one value take another road than a few do.
TEST(ObjectIndex, KeepsManyNodesOfOneValueApart) {
  constexpr size_t kNodes = 5000;
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    for (size_t i = 1; i <= kNodes; ++i) Enter(*index, row.one, i);
    Enter(*index, row.one, kNodes);
    EXPECT_EQ(index->Count(row.one), kNodes);
    std::vector<DBNode*> expected;
    for (size_t i = 1; i <= kNodes; ++i) {
      if (i % 7 == 0) {
        expected.push_back(Node(i));
      } else {
        index->Remove(row.one, Node(i));
      }
    }
    std::vector<DBNode*> found = Find(*index, row.one);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
    for (DBNode* node : expected) index->Remove(row.one, node);
    EXPECT_THAT(Find(*index, row.one), IsEmpty());
    Enter(*index, row.one, 1);
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(1)));
  }
}

TEST(ObjectIndex, KeepsManyValuesApart) {
  const auto index = CreateObjectIndex(ZN_TYPE_STRING);
  const auto text = [](size_t i) { return Value::Text("disk" + std::to_string(i)); };
  for (size_t i = 1; i <= 5000; ++i) Enter(*index, text(i), i);
  for (size_t i = 1; i <= 5000; i += 2) index->Remove(text(i), Node(i));
  for (size_t i = 1; i <= 5000; ++i) {
    const std::vector<DBNode*> found = Find(*index, text(i));
    if (i % 2 == 1) {
      EXPECT_THAT(found, IsEmpty());
    } else {
      EXPECT_THAT(found, ElementsAre(Node(i)));
    }
  }
}

}  // namespace

}  // namespace zn::test
