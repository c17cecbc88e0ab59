#include "framework/common/zntypeobject/objectindex.h"

#include <algorithm>
#include <string>

#include <gmock/gmock.h>

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// An index never looks at a node, so any address does.
DBNode* Node(size_t number) {
  return reinterpret_cast<DBNode*>(static_cast<std::uintptr_t>(number * 64));
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
      {"widestring", Value::WideText(u"Noname"), Value::WideText(u"K\u00f6ln")},
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
    index->Add(row.one, Node(1));
    index->Add(row.one, Node(2));
    index->Add(row.other, Node(3));
    EXPECT_THAT(Find(*index, row.one), UnorderedElementsAre(Node(1), Node(2)));
    EXPECT_THAT(Find(*index, row.other), ElementsAre(Node(3)));
  }
}

TEST(ObjectIndex, UpdateMovesANodeFromValueToValue) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    index->Add(row.one, Node(1));
    index->Add(row.one, Node(2));
    index->Update(row.one, row.other, Node(1));
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
    index->Add(row.one, Node(1));
    index->Remove(row.other, Node(1));
    index->Remove(row.one, Node(2));
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(1)));
  }
}

TEST(ObjectIndex, APairAddedTwiceStaysOnce) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    index->Add(row.one, Node(1));
    index->Add(row.one, Node(1));
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(1)));
    index->Add(row.one, Node(2));
    index->Add(row.one, Node(2));
    EXPECT_THAT(Find(*index, row.one), UnorderedElementsAre(Node(1), Node(2)));
  }
}

TEST(ObjectIndex, LeavesValuesOfAnotherTagOut) {
  for (const TwoValues& row : IndexableValues()) {
    SCOPED_TRACE(row.name);
    const auto index = CreateObjectIndex(row.one.Tag());
    const Value foreign = row.one.Tag() == ZN_TYPE_INT32 ? Value::UInt32(1) : Value::Int32(1);
    index->Add(foreign, Node(1));
    index->Remove(foreign, Node(1));
    EXPECT_THAT(Find(*index, foreign), IsEmpty());
  }
}

TEST(ObjectIndex, AnyByteButZeroIsTrue) {
  const auto index = CreateObjectIndex(ZN_TYPE_BOOLEAN);
  index->Add(Value::Bool(2), Node(1));
  EXPECT_THAT(Find(*index, Value::Bool(1)), ElementsAre(Node(1)));
  EXPECT_THAT(Find(*index, Value::Bool(0)), IsEmpty());
}

TEST(ObjectIndex, AppendsToWhatTheListHolds) {
  const auto index = CreateObjectIndex(ZN_TYPE_UINT32);
  index->Add(Value::UInt32(1), Node(1));
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
    for (size_t i = 1; i <= kNodes; ++i) index->Add(row.one, Node(i));
    index->Add(row.one, Node(kNodes));
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
    index->Add(row.one, Node(1));
    EXPECT_THAT(Find(*index, row.one), ElementsAre(Node(1)));
  }
}

TEST(ObjectIndex, KeepsManyValuesApart) {
  const auto index = CreateObjectIndex(ZN_TYPE_STRING);
  const auto text = [](size_t i) { return Value::Text("disk" + std::to_string(i)); };
  for (size_t i = 1; i <= 5000; ++i) index->Add(text(i), Node(i));
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
