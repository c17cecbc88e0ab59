#include <stdexcept>
#include <thread>

#include "framework/common/znprov/localprovider.h"
#include "framework/common/znprov/task.h"
#include "tests/unit/framework/bus_fixture.h"

namespace zn::test {
namespace {

const ObjectId kNoTask = {7, 7, 7, {7}};

// What the caller's callback heard.
struct Heard {
  std::vector<TaskReport> reports;
  bool answer = true;
};
bool Hear(TaskReport* report) {
  auto& heard = *static_cast<Heard*>(report->context);
  heard.reports.push_back(*report);
  return heard.answer;
}

class TaskTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    provider_ = MakeProvider();
    object_ = MakeObject(provider_);
    script.call = [this](const SlotCall& call) -> u32 {
      calls_.push_back(call);
      return status_;
    };
  }
  // An asynchronous call; the task's id.
  ObjectId Start(const ObjectId& parent = {}) {
    ObjectId task = parent;
    EXPECT_EQ(Call(&task), ZN_OK);
    return task;
  }
  u32 Call(ObjectId* task, TaskCallback callback = &Hear) {
    return PrCallProvider(provider_, object_, &kTestInterface, 3, 4, in_.Get(), out_.Get(),
                          ZN_CALL_ASYNCHRONOUS, 0, &heard_, callback, &answered_, task);
  }
  [[nodiscard]] static u32 FlagsOf(const ObjectId& id) {
    const BusLock lock;
    DBNode* node = ZnGetSystemDatabase()->FindCached(id);
    return node == nullptr ? 0 : node->GetFlags();
  }
  [[nodiscard]] static bool IsNow(const Value& time) {
    const auto now = static_cast<i64>(std::time(nullptr));
    return time.Tag() == ZN_TYPE_TIME && time.AsInt64() <= now && time.AsInt64() > now - 600;
  }
  [[nodiscard]] std::vector<ObjectId> Tasks() const { return ObjectsOfType("KELD_Task"); }

  ZnHandle provider_ = nullptr;
  ObjectId object_{};
  ObjectId answered_{};
  Propset in_;
  Propset out_;
  Heard heard_;
  std::vector<SlotCall> calls_;
  u32 status_ = ZN_OK;
};

TEST_F(TaskTest, StandsForAnAsynchronousCall) {
  in_.Set().Put("question", Value::UInt32(1));
  const ObjectId task = Start();
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_EQ(calls_[0].taskId, task);
  EXPECT_EQ(calls_[0].flags, ZN_CALL_ASYNCHRONOUS);
  EXPECT_NE(calls_[0].context, &heard_);
  EXPECT_EQ(FlagsOf(task), OBJECT_TASK);
  EXPECT_EQ(PropertyOf(task, "ObjectId").Tag(), ZN_TYPE_OBJECT_ID);
  EXPECT_EQ(PropertyOf(task, "ObjectId").AsGuid(), object_);
  EXPECT_EQ(PropertyOf(task, "ProviderId").Tag(), ZN_TYPE_OBJECT_ID);
  EXPECT_EQ(PropertyOf(task, "ProviderId").AsGuid(), IdOf(provider_));
  EXPECT_TRUE(in_.Set().Equals(PropertyOf(task, "InData").AsSet()));
  EXPECT_EQ(PropertyOf(task, "OutData").AsSet().Count(), 0u);
  EXPECT_EQ(PropertyOf(task, "MajorCode").AsUInt32(), 3u);
  EXPECT_EQ(PropertyOf(task, "MinorCode").AsUInt32(), 4u);
  EXPECT_EQ(PropertyOf(task, "InterfaceId").Tag(), ZN_TYPE_GUID);
  EXPECT_EQ(PropertyOf(task, "InterfaceId").AsGuid(), kTestInterface);
  EXPECT_EQ(PropertyOf(task, "State").AsUInt32(), TASK_STATE_CREATED);
  EXPECT_TRUE(IsNow(PropertyOf(task, "StartTime")));
  for (const char* later : {"PercentComplete", "Result", "EndTime"}) {
    EXPECT_FALSE(PropertyOf(task, later).HasValue()) << later;
  }
  ZnHandle creator = nullptr;
  EXPECT_EQ(ObGetProviderForObject(nullptr, task, &creator), ZN_OK);
  EXPECT_EQ(creator, provider_);
}

TEST_F(TaskTest, ExistsAlreadyInsideTheCall) {
  bool exists = false;
  script.call = [&](const SlotCall& call) -> u32 {
    exists = ObExists(nullptr, call.taskId);
    return ZN_OK;
  };
  Start();
  EXPECT_TRUE(exists);
}

TEST_F(TaskTest, KeepsTheOutputOfTheCall) {
  script.call = [](const SlotCall& call) -> u32 {
    const BusLock lock;
    HandleThing<PropertySet>(call.out)->Put("answer", Value::UInt32(42));
    return ZN_OK;
  };
  const ObjectId task = Start();
  const Value output = PropertyOf(task, "OutData");
  ASSERT_NE(output.AsSet().FindValue("answer", ZN_TYPE_UINT32), nullptr);
  EXPECT_EQ(output.AsSet().FindValue("answer", ZN_TYPE_UINT32)->AsUInt32(), 42u);
}

TEST_F(TaskTest, ACallThatFailsAtOnceLeavesNone) {
  status_ = ZNE_INVALID_MINOR_CODE;
  ObjectId task{};
  EXPECT_EQ(Call(&task), ZNE_INVALID_MINOR_CODE);
  EXPECT_EQ(task, ObjectId{});
  EXPECT_EQ(answered_, ObjectId{});
  EXPECT_TRUE(Tasks().empty());
  EXPECT_EQ(RememberedTasks(), 0u);
}

TEST_F(TaskTest, ACallThatThrowsLeavesNone) {
  script.call = [](const SlotCall&) -> u32 { throw std::runtime_error("no"); };
  ObjectId task{};
  EXPECT_EQ(Call(&task), ZNE_PROVIDER_ACCESS_VIOLATED);
  EXPECT_EQ(task, ObjectId{});
  EXPECT_TRUE(Tasks().empty());
}

TEST_F(TaskTest, NeedsNoPlaceForItsId) {
  EXPECT_EQ(Call(nullptr), ZN_OK);
  EXPECT_EQ(Tasks().size(), 1u);
}

TEST_F(TaskTest, FollowsTheReports) {
  const ObjectId task = Start();
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_RUNNING, 30, ZNI_REFRESHING));
  EXPECT_EQ(PropertyOf(task, "State").AsUInt32(), TASK_STATE_RUNNING);
  EXPECT_EQ(PropertyOf(task, "PercentComplete").AsUInt32(), 30u);
  EXPECT_EQ(PropertyOf(task, "Result").AsUInt32(), ZNI_REFRESHING);
  EXPECT_FALSE(PropertyOf(task, "EndTime").HasValue());
  EXPECT_EQ(FlagsOf(task), OBJECT_TASK);
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
  EXPECT_FALSE(ObExists(nullptr, task));
  EXPECT_EQ(RememberedTasks(), 0u);
}

TEST_F(TaskTest, TheCallerHearsEachReportWithItsOwnContext) {
  const ObjectId task = Start();
  TaskReport report{ZNI_REFRESHING, calls_[0].context, task, 30, TASK_STATE_RUNNING};
  EXPECT_TRUE(calls_[0].callback(&report));
  EXPECT_EQ(report.context, calls_[0].context);  // the provider's record stays as it was
  heard_.answer = false;
  EXPECT_FALSE(calls_[0].callback(&report));
  report.state = TASK_STATE_FINISHED;
  EXPECT_FALSE(calls_[0].callback(&report));
  ASSERT_EQ(heard_.reports.size(), 3u);
  EXPECT_EQ(heard_.reports[0].percentComplete, 30u);
  EXPECT_EQ(heard_.reports[0].result, ZNI_REFRESHING);
  EXPECT_EQ(heard_.reports[0].taskId, task);
  EXPECT_EQ(heard_.reports[0].context, &heard_);
  EXPECT_EQ(heard_.reports[2].state, TASK_STATE_FINISHED);
}

TEST_F(TaskTest, TheCallerIsCalledWithTheLockReleased) {
  static u32 depth = 99;
  Start();
  ObjectId task{};
  ASSERT_EQ(Call(&task,
                 [](TaskReport*) {
                   depth = fastLock.HoldCount();
                   return true;
                 }),
            ZN_OK);
  const BusLock lock;
  EXPECT_TRUE(calls_[1].Report(TASK_STATE_RUNNING, 1));
  EXPECT_EQ(depth, 0u);
  EXPECT_EQ(fastLock.HoldCount(), 1u);
}

TEST_F(TaskTest, ACallerWithoutACallbackIsContentWithTheTask) {
  ObjectId task{};
  ASSERT_EQ(Call(&task, nullptr), ZN_OK);
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_RUNNING, 50));
  EXPECT_EQ(PropertyOf(task, "PercentComplete").AsUInt32(), 50u);
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
}

TEST_F(TaskTest, ACallbackThatThrowsIsAFalse) {
  ObjectId task{};
  ASSERT_EQ(Call(&task, [](TaskReport*) -> bool { throw 1; }), ZN_OK);
  EXPECT_FALSE(calls_[0].Report(TASK_STATE_RUNNING, 50));
  EXPECT_EQ(fastLock.HoldCount(), 0u);
}

TEST_F(TaskTest, AReportOnATaskThatIsGoneIsAFalse) {
  const ObjectId task = Start();
  ASSERT_EQ(ObDeleteObject(nullptr, task), ZN_OK);
  EXPECT_FALSE(calls_[0].Report(TASK_STATE_RUNNING, 50));
  EXPECT_TRUE(heard_.reports.empty());
  EXPECT_EQ(RememberedTasks(), 0u);
}

TEST_F(TaskTest, FinishesOnce) {
  Start();
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
  EXPECT_FALSE(calls_[0].Report(TASK_STATE_FINISHED, 100));
  EXPECT_FALSE(calls_[0].Report(TASK_STATE_RUNNING, 10));
  EXPECT_EQ(heard_.reports.size(), 1u);
}

TEST_F(TaskTest, MayFinishInsideTheCall) {
  script.call = [](const SlotCall& call) -> u32 {
    EXPECT_TRUE(call.Report(TASK_STATE_FINISHED, 100));
    return ZN_OK;
  };
  const ObjectId task = Start();
  EXPECT_NE(task, ObjectId{});
  EXPECT_FALSE(ObExists(nullptr, task));
  EXPECT_EQ(heard_.reports.size(), 1u);
}

TEST_F(TaskTest, AMadeUpContextReachesNobody) {
  const ObjectId task = Start();
  for (void* context : {static_cast<void*>(nullptr), static_cast<void*>(&heard_),
                        reinterpret_cast<void*>(0xDEADBEEF)}) {
    TaskReport report{ZN_OK, context, task, 20, TASK_STATE_RUNNING};
    EXPECT_TRUE(calls_[0].callback(&report));
  }
  EXPECT_EQ(PropertyOf(task, "PercentComplete").AsUInt32(), 20u);
  EXPECT_TRUE(heard_.reports.empty());
}

TEST_F(TaskTest, TheContextOfAnotherTaskReachesNobody) {
  const ObjectId first = Start();
  Start();
  TaskReport report{ZN_OK, calls_[1].context, first, 20, TASK_STATE_FINISHED};
  EXPECT_TRUE(calls_[0].callback(&report));
  EXPECT_TRUE(heard_.reports.empty());
  EXPECT_TRUE(calls_[1].Report(TASK_STATE_RUNNING, 5));
  EXPECT_EQ(heard_.reports.size(), 1u);
}

TEST_F(TaskTest, AReportNamesNoOtherObject) {
  Start();
  TaskReport report{ZN_OK, calls_[0].context, object_, 20, TASK_STATE_FINISHED};
  EXPECT_FALSE(calls_[0].callback(&report));
  EXPECT_TRUE(ObExists(nullptr, object_));
  EXPECT_FALSE(PropertyOf(object_, "PercentComplete").HasValue());
  EXPECT_FALSE(calls_[0].callback(nullptr));
}

TEST_F(TaskTest, AParentMustExist) {
  ObjectId parent = kNoTask;
  const TraceCapture trace(3);
  EXPECT_EQ(Call(&parent), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:PrCallProvider: Invalid parent task object"));
  EXPECT_EQ(parent, ObjectId{});
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(Tasks().empty());
  EXPECT_EQ(database_->SequenceDepth(), 0u);
}

TEST_F(TaskTest, IsAChildOfItsParent) {
  const ObjectId parent = Start();
  const ObjectId child = Start(parent);
  EXPECT_NE(child, parent);
  const BusLock lock;
  std::vector<ObjectId> children;
  ASSERT_EQ(database_->FindCached(parent)->GetChildren("KELD_Task", &children), ZN_OK);
  EXPECT_EQ(children, std::vector<ObjectId>{child});
}

TEST_F(TaskTest, AFinishedParentStaysUntilItsLastChildEnds) {
  const ObjectId parent = Start();
  const ObjectId first = Start(parent);
  const ObjectId second = Start(parent);
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100, ZNE_TASK_STOPPED));
  EXPECT_EQ(FlagsOf(parent), OBJECT_TASK | OBJECT_TASK_DONE);
  EXPECT_EQ(PropertyOf(parent, "State").AsUInt32(), TASK_STATE_FINISHED);
  EXPECT_EQ(PropertyOf(parent, "Result").AsUInt32(), ZNE_TASK_STOPPED);
  EXPECT_TRUE(IsNow(PropertyOf(parent, "EndTime")));
  EXPECT_TRUE(calls_[1].Report(TASK_STATE_FINISHED, 100));
  EXPECT_FALSE(ObExists(nullptr, first));
  EXPECT_TRUE(ObExists(nullptr, parent));
  EXPECT_TRUE(calls_[2].Report(TASK_STATE_FINISHED, 100));
  EXPECT_FALSE(ObExists(nullptr, second));
  EXPECT_FALSE(ObExists(nullptr, parent));
  EXPECT_EQ(heard_.reports.size(), 3u);
}

TEST_F(TaskTest, AFinishedParentTakesNoFurtherReports) {
  const ObjectId parent = Start();
  Start(parent);
  ASSERT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_RUNNING, 20));
  EXPECT_EQ(PropertyOf(parent, "PercentComplete").AsUInt32(), 100u);
  EXPECT_EQ(heard_.reports.size(), 1u);
}

TEST_F(TaskTest, ARunningParentOutlivesItsChildren) {
  const ObjectId parent = Start();
  Start(parent);
  EXPECT_TRUE(calls_[1].Report(TASK_STATE_FINISHED, 100));
  EXPECT_TRUE(ObExists(nullptr, parent));
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
  EXPECT_FALSE(ObExists(nullptr, parent));
}

TEST_F(TaskTest, ThreeGenerationsEndTogether) {
  const ObjectId grandparent = Start();
  const ObjectId parent = Start(grandparent);
  Start(parent);
  EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
  EXPECT_TRUE(calls_[1].Report(TASK_STATE_FINISHED, 100));
  EXPECT_EQ(Tasks().size(), 3u);
  EXPECT_TRUE(calls_[2].Report(TASK_STATE_FINISHED, 100));
  EXPECT_TRUE(Tasks().empty());
}

TEST_F(TaskTest, AChildThatFailsAtOnceLetsItsFinishedParentGo) {
  const ObjectId parent = Start();
  script.call = [&](const SlotCall&) -> u32 {
    EXPECT_TRUE(calls_[0].Report(TASK_STATE_FINISHED, 100));
    EXPECT_TRUE(ObExists(nullptr, parent));
    return ZNE_UNEXPECTED;
  };
  ObjectId child = parent;
  EXPECT_EQ(Call(&child), ZNE_UNEXPECTED);
  EXPECT_TRUE(Tasks().empty());
}

TEST_F(TaskTest, GoesWithItsProvider) {
  const ObjectId task = Start();
  {
    const BusLock lock;
    DiscardProvider(*database_, provider_);
  }
  EXPECT_FALSE(ObExists(nullptr, task));
  EXPECT_EQ(RememberedTasks(), 0u);
  EXPECT_FALSE(calls_[0].Report(TASK_STATE_RUNNING, 50));
  EXPECT_TRUE(heard_.reports.empty());
}

TEST_F(TaskTest, AReportAfterTheStopIsAFalse) {
  Start();
  StopFramework(LibraryLife::kGoesOn);
  EXPECT_FALSE(calls_[0].Report(TASK_STATE_FINISHED, 100));
}

TEST_F(TaskTest, MadeByHandHasTheSameProperties) {
  ObjectId task{};
  const TraceCapture trace;
  ASSERT_EQ(ObCreateTaskObject(nullptr, provider_, object_, 5, 6, &kTestInterface, in_.Get(),
                               out_.Get(), &task),
            ZN_OK);
  EXPECT_EQ(trace.Messages().front(), "ZnAPI:Entering ObCreateTaskObject");
  EXPECT_EQ(trace.Messages().back(), "ZnAPI:Exiting ObCreateTaskObject: 0x0, 0");
  EXPECT_EQ(FlagsOf(task), OBJECT_TASK);
  EXPECT_EQ(PropertyOf(task, "ObjectId").AsGuid(), object_);
  EXPECT_EQ(PropertyOf(task, "ProviderId").AsGuid(), IdOf(provider_));
  EXPECT_EQ(PropertyOf(task, "MajorCode").AsUInt32(), 5u);
  EXPECT_EQ(PropertyOf(task, "MinorCode").AsUInt32(), 6u);
  EXPECT_EQ(PropertyOf(task, "State").AsUInt32(), TASK_STATE_CREATED);
  EXPECT_TRUE(IsNow(PropertyOf(task, "StartTime")));
}

TEST_F(TaskTest, MadeByHandRefusesBadArgumentsWithoutAnExitTrace) {
  ObjectId task = kNoTask;
  const auto refuse = [&](ZnHandle db, ZnHandle provider, const GUID* served, ZnHandle in,
                          ZnHandle out, ObjectId* id) {
    const TraceCapture trace;
    EXPECT_EQ(ObCreateTaskObject(db, provider, object_, 5, 6, served, in, out, id),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(trace.Messages(),
              (std::vector<std::string>{"ZnAPI:Entering ObCreateTaskObject",
                                        "ZnAPI:ObCreateTaskObject: Invalid arguments"}));
  };
  refuse(provider_, provider_, &kTestInterface, in_.Get(), out_.Get(), &task);
  refuse(nullptr, nullptr, &kTestInterface, in_.Get(), out_.Get(), &task);
  refuse(nullptr, provider_, nullptr, in_.Get(), out_.Get(), &task);
  refuse(nullptr, provider_, &kTestInterface, nullptr, out_.Get(), &task);
  refuse(nullptr, provider_, &kTestInterface, in_.Get(), nullptr, &task);
  refuse(nullptr, provider_, &kTestInterface, in_.Get(), out_.Get(), nullptr);
  EXPECT_EQ(task, kNoTask);
}

TEST_F(TaskTest, MadeByHandNeedsADatabaseThatIsOpen) {
  ObjectId task{};
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  EXPECT_EQ(ObCreateTaskObject(nullptr, provider_, object_, 5, 6, &kTestInterface, in_.Get(),
                               out_.Get(), &task),
            ZNW_SHMEM_LOGIN_FAILED);
  SetSystemDatabase(nullptr);
  const TraceCapture trace(3);
  EXPECT_EQ(ObCreateTaskObject(nullptr, provider_, object_, 5, 6, &kTestInterface, in_.Get(),
                               out_.Get(), &task),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:ObCreateTaskObject: Invalid database"));
  SetSystemDatabase(database_);
}

TEST_F(TaskTest, MadeByHandCanBeReportedOn) {
  ObjectId task{};
  ASSERT_EQ(ObCreateTaskObject(nullptr, provider_, object_, 5, 6, &kTestInterface, in_.Get(),
                               out_.Get(), &task),
            ZN_OK);
  TaskReport report{ZN_OK, nullptr, task, 100, TASK_STATE_FINISHED};
  EXPECT_TRUE(ReportTaskProgress(&report));
  EXPECT_FALSE(ObExists(nullptr, task));
}

using TaskThreads = TaskTest;

TEST_F(TaskThreads, ReportsAndDeletionsOfManyThreadsEndWithEveryTaskGone) {
  constexpr u32 kThreads = 4;
  constexpr u32 kEach = 50;
  static std::atomic<u32> finished{0};
  finished = 0;
  script.call = [](const SlotCall&) -> u32 { return ZN_OK; };
  const auto run = [&](bool deletes) {
    Propset in;
    Propset out;
    for (u32 i = 0; i < kEach; ++i) {
      ObjectId task{};
      ObjectId answered{};
      SlotCall seen{};
      ASSERT_EQ(PrCallProvider(
                    provider_, object_, &kTestInterface, 0, 0, in.Get(), out.Get(),
                    ZN_CALL_ASYNCHRONOUS, 0, nullptr,
                    [](TaskReport* report) {
                      if (report->state == TASK_STATE_FINISHED) ++finished;
                      return true;
                    },
                    &answered, &task),
                ZN_OK);
      seen.taskId = task;
      seen.callback = &ReportTaskProgress;
      static_cast<void>(seen.Report(TASK_STATE_RUNNING, i));
      if (deletes) static_cast<void>(ObDeleteObject(nullptr, task));
      static_cast<void>(seen.Report(TASK_STATE_FINISHED, 100));
    }
  };
  std::vector<std::thread> threads;
  for (u32 i = 0; i < kThreads; ++i) threads.emplace_back(run, i % 2 == 0);
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(Tasks().empty());
}

TEST_F(TaskThreads, TwoFinishedReportsAtOnceReachTheCallerOnce) {
  static std::atomic<u32> heard{0};
  for (int round = 0; round < 50; ++round) {
    heard = 0;
    calls_.clear();
    ObjectId task{};
    ASSERT_EQ(Call(&task,
                   [](TaskReport*) {
                     ++heard;
                     return true;
                   }),
              ZN_OK);
    Signal go;
    const auto finish = [&] {
      EXPECT_TRUE(go.Wait());
      static_cast<void>(calls_[0].Report(TASK_STATE_FINISHED, 100));
    };
    std::thread one(finish);
    std::thread other(finish);
    go.Set();
    one.join();
    other.join();
    EXPECT_EQ(heard, 1u);
  }
}

}  // namespace
}  // namespace zn::test
