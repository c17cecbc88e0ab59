#include "service/common/authslots.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "framework/common/znguid/guidtext.h"
#include "framework/common/znguid/znguid.h"
#include "support/common/shared_memory.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/platform.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Slots : public testing::Test {
 protected:
  Slots() : slots_([this] { return now_.load(); }) {}
  void SetUp() override { ASSERT_TRUE(slots_.Create(Name())); }

  [[nodiscard]] static std::string Name() {
    return AuthSharedMemoryName(static_cast<u32>(getpid()) % 40000 + 20000);
  }
  [[nodiscard]] static std::u16string Text(const GUID& guid) {
    char text[kGuidTextLength];
    FormatGuid(guid, text);
    return ToWide({text, kGuidTextLength});
  }
  GUID Prepare(u32 expectedSlot) {
    GUID guid{};
    u32 slot = 0;
    EXPECT_EQ(slots_.PrepForLogon(2, &guid, &slot), ZN_OK);
    EXPECT_EQ(slot, expectedSlot);
    return guid;
  }
  void TakeAll() {
    for (u32 slot = 32; slot-- > 0;) guids_.push_back(Prepare(slot));
  }

  std::atomic<u32> now_ = 1000;
  AuthSlots slots_;
  std::vector<GUID> guids_;
};

TEST_F(Slots, GiveTheHighestFreeSlotAndPutTheGuidIntoTheMemory) {
  const GUID first = Prepare(31);
  const GUID second = Prepare(30);
  EXPECT_FALSE(SameGuid(first, second));
  void* view = ZnOpenShMem(Name().c_str());
  ASSERT_NE(view, nullptr);
  const auto* bytes = static_cast<const u8*>(view);
  EXPECT_EQ(std::memcmp(bytes + 31 * 16, &first, 16), 0);
  EXPECT_EQ(std::memcmp(bytes + 30 * 16, &second, 16), 0);
  EXPECT_TRUE(std::all_of(bytes, bytes + 30 * 16, [](u8 byte) { return byte == 0; }));
  EXPECT_EQ(ZnCloseShMem(view), ZN_OK);
}

TEST_F(Slots, FreeASlotWhenItsGuidIsUsed) {
  const GUID guid = Prepare(31);
  Prepare(30);
  EXPECT_EQ(slots_.LogonUsingAuthTokens(Text(guid).c_str()), ZN_OK);
  Prepare(31);
}

TEST_F(Slots, AGuidMatchesAgainUntilItsSlotIsUsedAnew) {
  const GUID guid = Prepare(31);
  EXPECT_EQ(slots_.LogonUsingAuthTokens(Text(guid).c_str()), ZN_OK);
  EXPECT_EQ(slots_.LogonUsingAuthTokens(Text(guid).c_str()), ZN_OK);
  Prepare(31);
  EXPECT_EQ(slots_.LogonUsingAuthTokens(Text(guid).c_str()), ZNE_TIMED_OUT);
}

TEST_F(Slots, AGuidWhoseTimeIsOverStillMatches) {
  const GUID guid = Prepare(31);
  now_ = 5000;
  EXPECT_EQ(slots_.LogonUsingAuthTokens(Text(guid).c_str()), ZN_OK);
}

TEST_F(Slots, GiveASlotWhoseTimeIsOverToTheNext) {
  TakeAll();
  now_ = 1010;
  Prepare(31);
}

TEST_F(Slots, TheThirtyThirdWaitsForTheFirstToExpire) {
  Prepare(31);
  now_ = 1005;
  for (u32 slot = 31; slot-- > 0;) Prepare(slot);
  std::atomic<bool> done = false;
  std::thread waiter([&] {
    Prepare(31);
    done = true;
  });
  now_ = 1009;
  slots_.Wake();
  EXPECT_FALSE(done);
  now_ = 1010;
  while (!done) {
    slots_.Wake();
    std::this_thread::yield();
  }
  waiter.join();
}

TEST_F(Slots, TheThirtyThirdGetsTheSlotThatALogonFrees) {
  TakeAll();
  std::thread waiter([&] { Prepare(7); });
  // Slot 7 was the 25th of the way down from 31.
  EXPECT_EQ(slots_.LogonUsingAuthTokens(Text(guids_[24]).c_str()), ZN_OK);
  waiter.join();
}

TEST_F(Slots, TheStopLetsTheThirtyThirdGo) {
  TakeAll();
  std::thread waiter([&] {
    u32 slot = 99;
    EXPECT_EQ(slots_.PrepForLogon(2, nullptr, &slot), ZNE_SHUTDOWN_STARTED);
    EXPECT_EQ(slot, 99u);
  });
  slots_.EndWaits();
  waiter.join();
}

TEST_F(Slots, AreWaitedForAsLongAsThePatienceLasts) {
  std::atomic<bool> ticks = false;  // a second with each look
  AuthSlots slots([&] { return ticks ? ++now_ : now_.load(); });
  ASSERT_TRUE(slots.Create(Name()));
  for (int i = 0; i < 32; ++i) ASSERT_EQ(slots.PrepForLogon(2, nullptr, nullptr), ZN_OK);
  ticks = true;
  std::atomic<bool> done = false;
  std::thread waiter([&] {
    u32 slot = 99;
    EXPECT_EQ(slots.PrepForLogon(2, nullptr, &slot, 5), ZNE_TIMED_OUT);
    EXPECT_EQ(slot, 99u);
    done = true;
  });
  while (!done) {
    slots.Wake();
    std::this_thread::yield();
  }
  waiter.join();
  EXPECT_EQ(now_, 1006u) << "four seconds before the first is free";
}

TEST_F(Slots, NeverMatchTheGuidOfZeros) {
  EXPECT_EQ(slots_.LogonUsingAuthTokens(u"{00000000-0000-0000-0000-000000000000}"), ZNE_TIMED_OUT);
}

TEST_F(Slots, RefuseWhatIsNoGuidOrUnknown) {
  Prepare(31);
  for (const ZnWChar* text : {u"", u"guid", u"{c0ffee01-1111-2222-0102-030405060708}"}) {
    EXPECT_EQ(slots_.LogonUsingAuthTokens(text), ZNE_TIMED_OUT);
  }
  const TraceCapture trace(5);
  EXPECT_EQ(slots_.LogonUsingAuthTokens(nullptr), ZNE_TIMED_OUT);
  EXPECT_THAT(trace.Messages(), ElementsAre("ZnSvc:Illegal parameter in LogonUsingAuthTokens"));
}

TEST_F(Slots, HaveNothingToDoForAPassword) {
  u32 slot = 99;
  EXPECT_EQ(slots_.PrepForLogon(1, nullptr, &slot), ZN_OK);
  EXPECT_EQ(slot, 99u);
  Prepare(31);
}

TEST_F(Slots, WantAPlaceForTheGuidOfAToken) {
  const TraceCapture trace(6);
  EXPECT_EQ(slots_.PrepForLogon(4, nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(), ElementsAre("ZnSvc:PrepForLogon() Invalid parameter"));
  GUID guid{};
  EXPECT_EQ(slots_.PrepForLogon(4, &guid, nullptr), ZN_OK);
  EXPECT_FALSE(IsZeroGuid(guid));
}

TEST_F(Slots, TakeAnAreaOfTheSameNameForAStrangers) {
  const GUID guid = Prepare(31);
  AuthSlots others([] { return 1u; });
  ASSERT_TRUE(others.Create(Name()));
  EXPECT_EQ(others.LogonUsingAuthTokens(Text(guid).c_str()), ZNE_TIMED_OUT);
  others.Release();
  EXPECT_EQ(ZnOpenShMem(Name().c_str()), nullptr);
}

TEST(SlotsWithoutMemory, LeaveThePassword) {
  AuthSlots slots([] { return 1u; });
  EXPECT_FALSE(slots.Exists());
  EXPECT_EQ(slots.Choose(2), 1u);
  EXPECT_EQ(slots.PrepForLogon(2, nullptr, nullptr), ZNW_AUTH_TYPE_UNSUPPORTED);
  EXPECT_EQ(slots.LogonUsingAuthTokens(u"x"), ZNW_AUTH_TYPE_UNSUPPORTED);
  EXPECT_EQ(slots.PrepForLogon(1, nullptr, nullptr), ZN_OK);
}

TEST(SlotsWithoutMemory, SayWhyThereIsNone) {
  AuthSlots slots([] { return 1u; });
  const TraceCapture trace(5);
  EXPECT_FALSE(slots.Create(std::string(300, 'x')));  // longer than a file's name may be
  EXPECT_TRUE(trace.Has("GUID based authentication is not supported"));
  EXPECT_EQ(slots.Choose(2), 1u);
}

}  // namespace

}  // namespace zn::test
