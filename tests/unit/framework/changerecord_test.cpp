// The queue of an update sequence: what a change does to the changes queued before it.
#include "framework/common/zncore/changerecord.h"

#include <gtest/gtest.h>

#include "framework/common/znevent/topic.h"
#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

constexpr const char* kAdd = ".object.add.";
constexpr const char* kDelete = ".object.delete.";
constexpr const char* kData = ".data.change.";
constexpr const char* kParent = ".relation.parent.";
constexpr const char* kChild = ".relation.child.";
constexpr const char* kInterface = ".interface.change.";
constexpr const char* kFlag = ".flag.change.";

// A change of object `object`; `number` tells records of one kind apart.
struct Step {
  const char* change;
  u32 object = 1;
  u32 number = 0;
  u32 flags = EVENT_LOCAL | EVENT_REMOTE;
};

ChangeRecord RecordOf(const Step& step) {
  ChangeRecord record;
  record.flags = step.flags;
  record.topic = ObjectTopic("T", step.change, TestGuid(step.object));
  record.objectId = InternedId(TestGuid(step.object));
  record.data.Put("Number", Value::UInt32(step.number));
  return record;
}

// What is queued, as "<object><change><number>".
std::vector<std::string> Queued(const UpdateQueue& queue) {
  std::vector<std::string> names;
  for (const auto& record : queue.Records()) {
    const std::string_view topic = record->topic;
    const size_t start = std::string_view("event.keld.dom.object.T").size();
    names.push_back(std::to_string(record->objectId.Value().Data1 - TestGuid(0).Data1) +
                    std::string(topic.substr(start, topic.size() - start - kGuidTextLength)) +
                    std::to_string(record->data.FindValue("Number", ZN_TYPE_UINT32)->AsUInt32()));
  }
  return names;
}

struct MergeCase {
  const char* why;
  std::vector<Step> steps;
  std::vector<std::string> queued;
};

TEST(UpdateQueue, FollowsTheMergeTable) {
  const MergeCase kCases[] = {
      {"data after data takes its place",
       {{kData, 1, 1}, {kFlag, 1, 2}, {kData, 1, 3}},
       {"1.data.change.3", "1.flag.change.2"}},
      {"data of two objects",
       {{kData, 1, 1}, {kData, 2, 2}},
       {"1.data.change.1", "2.data.change.2"}},
      {"data after add goes", {{kAdd, 1, 1}, {kData, 1, 2}}, {"1.object.add.1"}},
      {"data before add stays",
       {{kData, 1, 1}, {kAdd, 1, 2}},
       {"1.data.change.1", "1.object.add.2"}},
      {"parent after parent goes", {{kParent, 1, 1}, {kParent, 1, 2}}, {"1.relation.parent.1"}},
      {"parent after add goes", {{kAdd, 1, 1}, {kParent, 1, 2}}, {"1.object.add.1"}},
      {"child after child goes", {{kChild, 1, 1}, {kChild, 1, 2}}, {"1.relation.child.1"}},
      {"child after add goes", {{kAdd, 1, 1}, {kChild, 1, 2}}, {"1.object.add.1"}},
      {"parent and child are apart",
       {{kParent, 1, 1}, {kChild, 1, 2}},
       {"1.relation.parent.1", "1.relation.child.2"}},
      {"interfaces after interfaces take their place",
       {{kInterface, 1, 1}, {kData, 1, 2}, {kInterface, 1, 3}},
       {"1.interface.change.3", "1.data.change.2"}},
      {"interfaces after add go", {{kAdd, 1, 1}, {kInterface, 1, 2}}, {"1.object.add.1"}},
      {"a deletion cancels nothing",
       {{kAdd, 1, 1}, {kData, 2, 2}, {kDelete, 1, 3}, {kDelete, 2, 4}},
       {"1.object.add.1", "2.data.change.2", "1.object.delete.3", "2.object.delete.4"}},
      {"flags are queued each time",
       {{kAdd, 1, 1}, {kFlag, 1, 2}, {kFlag, 1, 3}},
       {"1.object.add.1", "1.flag.change.2", "1.flag.change.3"}},
      {"a task's changes are queued each time",
       {{kAdd, 1, 1, EVENT_TASK}, {kData, 1, 2, EVENT_TASK}, {kData, 1, 3, EVENT_TASK}},
       {"1.object.add.1", "1.data.change.2", "1.data.change.3"}},
      {"and nothing merges into them",
       {{kData, 1, 1, EVENT_TASK}, {kData, 1, 2}, {kData, 1, 3}},
       {"1.data.change.1", "1.data.change.3"}},
  };
  for (const MergeCase& c : kCases) {
    SCOPED_TRACE(c.why);
    UpdateQueue queue;
    for (const Step& step : c.steps) queue.Merge(RecordOf(step));
    EXPECT_EQ(Queued(queue), c.queued);
  }
}

TEST(UpdateQueue, AReplacedRecordKeepsItsFlags) {
  UpdateQueue queue;
  queue.Merge(RecordOf({kData, 1, 1, EVENT_REMOTE}));
  queue.Merge(RecordOf({kData, 1, 2, EVENT_LOCAL | EVENT_REMOTE}));
  ASSERT_EQ(queue.Size(), 1u);
  EXPECT_EQ(queue.Records()[0]->flags, EVENT_REMOTE);
}

TEST(UpdateQueue, TakingEmptiesItsMaps) {
  UpdateQueue queue;
  for (const char* change : {kAdd, kData, kParent, kChild, kInterface}) {
    queue.Merge(RecordOf({change, change == kAdd ? 2u : 1u}));
  }
  EXPECT_EQ(queue.Size(), 5u);
  EXPECT_EQ(queue.Take().size(), 5u);
  EXPECT_TRUE(queue.IsEmpty());
  for (const char* change : {kData, kParent, kChild, kInterface})
    queue.Merge(RecordOf({change, 1}));
  queue.Merge(RecordOf({kData, 2}));
  EXPECT_EQ(queue.Size(), 5u) << "nothing is remembered of what was taken";
  queue.Clear();
  EXPECT_EQ(queue.Size(), 0u);
  queue.Merge(RecordOf({kData, 1}));
  EXPECT_EQ(queue.Size(), 1u);
}

TEST(ClientsPresent, IsFalseWithoutATest) {
  SetClientsPresentTest(nullptr);
  EXPECT_FALSE(ClientsPresent());
  SetClientsPresentTest([] { return true; });
  EXPECT_TRUE(ClientsPresent());
  SetClientsPresentTest([] { return false; });
  EXPECT_FALSE(ClientsPresent());
  SetClientsPresentTest(nullptr);
}

}  // namespace

}  // namespace zn::test
