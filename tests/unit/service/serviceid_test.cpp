#include "service/common/serviceid.h"

#include <thread>

#include <gmock/gmock.h>

#include "support/common/status.h"
#include "tests/unit/framework/trace_capture.h"

namespace zn::test {

namespace {

using testing::ElementsAre;

void Nothing(u32, void*) {}

u32 TakeId(ServiceIds& ids) {
  u32 id = 0;
  EXPECT_EQ(ids.Take(Nothing, nullptr, &id), ZN_OK);
  return id;
}

TEST(ServiceIds, BeginAtTwoAndNeverUseZeroOrOne) {
  ServiceIds ids;
  EXPECT_EQ(TakeId(ids), 2u);
  EXPECT_EQ(TakeId(ids), 3u);
  ids.SetLast(0xFFFFFFFE);
  EXPECT_EQ(TakeId(ids), 0xFFFFFFFFu);
  EXPECT_EQ(TakeId(ids), 2u + 0u);
}

TEST(ServiceIds, QueueTheMarkerOfTheNewId) {
  ServiceIds ids;
  u32 queued = 0;
  u32 id = 0;
  EXPECT_EQ(ids.Take([](u32 serviceId, void* context) { *static_cast<u32*>(context) = serviceId; },
                     &queued, &id),
            ZN_OK);
  EXPECT_EQ(queued, id);
}

TEST(ServiceIds, LetAWaiterGoThatWasRaisedBefore) {
  ServiceIds ids;
  const u32 id = TakeId(ids);
  EXPECT_TRUE(ids.RaiseEventOnServiceId(id));
  EXPECT_EQ(ids.WaitOnServiceId(id), ZN_OK);
  const TraceCapture trace(6);
  EXPECT_EQ(ids.WaitOnServiceId(id), ZNE_UNEXPECTED) << "the id was given back";
  EXPECT_THAT(trace.Messages(),
              ElementsAre("WaitOnServiceId : Event not found for serviceid             " +
                          std::to_string(id)));
}

TEST(ServiceIds, WakeTheirWaiter) {
  ServiceIds ids;
  const u32 id = TakeId(ids);
  std::thread waiter([&] { EXPECT_EQ(ids.WaitOnServiceId(id), ZN_OK); });
  EXPECT_TRUE(ids.RaiseEventOnServiceId(id));
  waiter.join();
}

TEST(ServiceIds, TellAnUnknownOne) {
  ServiceIds ids;
  const TraceCapture trace(6);
  EXPECT_FALSE(ids.RaiseEventOnServiceId(9));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("RaiseEventOnServiceId : Event not found for             serviceid 9"));
}

TEST(ServiceIds, TwoAtOnceShareOneSpareEventAfterwards) {
  ServiceIds ids;
  const u32 first = TakeId(ids);
  const u32 second = TakeId(ids);
  EXPECT_NE(first, second);
  EXPECT_EQ(ids.Filed(), 2u);
  EXPECT_TRUE(ids.RaiseEventOnServiceId(first));
  EXPECT_TRUE(ids.RaiseEventOnServiceId(second));
  EXPECT_EQ(ids.WaitOnServiceId(first), ZN_OK);
  EXPECT_EQ(ids.WaitOnServiceId(second), ZN_OK);
  EXPECT_TRUE(ids.HasSpare());
  EXPECT_EQ(ids.Filed(), 1u);
  const u32 third = TakeId(ids);
  EXPECT_FALSE(ids.HasSpare()) << "the spare serves the next one";
  EXPECT_EQ(ids.Filed(), 1u);
  EXPECT_TRUE(ids.RaiseEventOnServiceId(third));
  EXPECT_EQ(ids.WaitOnServiceId(third), ZN_OK);
}

TEST(ServiceIds, KeepNoSpareWhileManyAreFiled) {
  ServiceIds ids;
  std::vector<u32> taken;
  for (int i = 0; i < 6; ++i) taken.push_back(TakeId(ids));
  EXPECT_TRUE(ids.RaiseEventOnServiceId(taken[0]));
  EXPECT_EQ(ids.WaitOnServiceId(taken[0]), ZN_OK);
  EXPECT_FALSE(ids.HasSpare()) << "six were filed";
  EXPECT_TRUE(ids.RaiseEventOnServiceId(taken[1]));
  EXPECT_EQ(ids.WaitOnServiceId(taken[1]), ZN_OK);
  EXPECT_TRUE(ids.HasSpare()) << "fewer than six were filed";
}

TEST(ServiceIds, EndAllWaitsAndBeginNoFurtherOne) {
  ServiceIds ids;
  const u32 id = TakeId(ids);
  std::thread waiter([&] { EXPECT_EQ(ids.WaitOnServiceId(id), ZN_OK); });
  ids.EndWaits();
  waiter.join();
  EXPECT_EQ(ids.WaitOnServiceId(TakeId(ids)), ZN_OK);
}

}  // namespace

}  // namespace zn::test
