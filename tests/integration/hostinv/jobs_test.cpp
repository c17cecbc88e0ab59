// Threads of calls: stopped by task, bounded, joined at the end.
#include "jobs.h"

#include <future>

#include <gtest/gtest.h>

#include "zn/status.h"

namespace hostinv {
namespace {

ObjectId TaskId(u32 number) {
  ObjectId id{};
  id.Data1 = number;
  return id;
}

// A job that runs until it is told to stop, and tells when it has started and ended.
struct WaitingJob {
  std::promise<void> started;
  std::promise<void> ended;

  Jobs::Work Work() {
    return [this](const std::atomic<bool>& stop) {
      started.set_value();
      while (!stop) std::this_thread::yield();
      ended.set_value();
    };
  }
};

TEST(Jobs, StopsTheJobOfOneTask) {
  WaitingJob first;
  WaitingJob second;
  Jobs jobs;
  ASSERT_EQ(jobs.Start(TaskId(1), first.Work()), 0U);
  ASSERT_EQ(jobs.Start(TaskId(2), second.Work()), 0U);
  second.started.get_future().wait();
  EXPECT_EQ(jobs.Stop(TaskId(1)), 0U);
  first.ended.get_future().wait();
  EXPECT_EQ(second.ended.get_future().wait_for(std::chrono::seconds(0)),
            std::future_status::timeout);
}

TEST(Jobs, KnowsNoJobOfAnotherTask) {
  Jobs jobs;
  EXPECT_EQ(jobs.Stop(TaskId(1)), ZNE_THING_NOT_FOUND);
}

TEST(Jobs, EndsWhatRunsWhenAllAreStopped) {
  WaitingJob job;
  Jobs jobs;
  auto ended = job.ended.get_future();
  ASSERT_EQ(jobs.Start(TaskId(1), job.Work()), 0U);
  jobs.StopAll();
  EXPECT_EQ(ended.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_EQ(jobs.Start(TaskId(2), [](const std::atomic<bool>&) {}), ZNE_SHUTDOWN_STARTED);
  EXPECT_EQ(jobs.Stop(TaskId(1)), ZNE_THING_NOT_FOUND);
}

TEST(Jobs, RunsSoManyAtOnceAndNoMore) {
  std::promise<void> gate;
  const std::shared_future<void> open = gate.get_future().share();
  Jobs jobs;
  for (u32 i = 0; i < Jobs::kMost; ++i) {
    ASSERT_EQ(jobs.Start(TaskId(i), [open](const std::atomic<bool>&) { open.wait(); }), 0U);
  }
  EXPECT_EQ(jobs.Start(TaskId(99), [](const std::atomic<bool>&) {}), ZNE_OBJECT_IN_USE);
  gate.set_value();
  // Ended jobs make room; how soon a thread has marked its end is the scheduler's.
  u32 status = ZNE_OBJECT_IN_USE;
  while (status == ZNE_OBJECT_IN_USE) {
    status = jobs.Start(TaskId(99), [](const std::atomic<bool>&) {});
  }
  EXPECT_EQ(status, 0U);
}

}  // namespace
}  // namespace hostinv
