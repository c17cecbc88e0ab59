#include "framework/common/znprov/provider.h"

#include <stdexcept>
#include <thread>

#include "framework/common/znprov/localprovider.h"
#include "tests/unit/framework/bus_fixture.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

class ProviderSlots : public BusTest {
 protected:
  // A provider object with the given slots, not initialised.
  Provider* Add(const ProviderCallbacks& slots, std::shared_ptr<void> library = nullptr,
                bool isBuiltIn = false) {
    const BusLock lock;
    return AddProviderObject(*database_, u"slots", slots, std::move(library), isBuiltIn);
  }
  u32 Call(Provider* provider, ZnHandle* answering = nullptr) {
    const ProviderCallArguments call{ObjectId{}, &kTestInterface, 1, 2, in_.Get(), out_.Get(), 0, 0,
                                     nullptr,    nullptr};
    return provider->Call(call, ObjectId{}, answering);
  }
  Propset in_;
  Propset out_;
};

TEST_F(ProviderSlots, AMissingSlotIsNotImplemented) {
  const BusLock lock;
  Provider* provider = Add({});
  EXPECT_EQ(Call(provider), ZNE_NOT_IMPLEMENTED);
  EXPECT_EQ(provider->Initialize(), ZNE_NOT_IMPLEMENTED);
  EXPECT_EQ(provider->Shutdown(), ZNE_NOT_IMPLEMENTED);
  EXPECT_EQ(provider->SendEvent(nullptr), ZNE_NOT_IMPLEMENTED);
  EXPECT_TRUE(provider->GetVersion().IsEmpty());
}

TEST_F(ProviderSlots, ABuiltInProviderKeepsCallAndEventAlone) {
  const BusLock lock;
  Provider* provider = Add(ScriptedSlots(), nullptr, true);
  EXPECT_EQ(Call(provider), ZN_OK);
  EXPECT_EQ(provider->SendEvent(nullptr), ZN_OK);
  EXPECT_EQ(provider->Initialize(), ZNE_NOT_IMPLEMENTED);
  EXPECT_EQ(provider->Shutdown(), ZNE_NOT_IMPLEMENTED);
  EXPECT_EQ(provider->Callbacks().GetVersion, nullptr);
}

TEST_F(ProviderSlots, WhateverASlotThrowsIsAnAccessViolation) {
  script.call = [](const SlotCall&) -> u32 { throw 42; };
  script.initialize = [](ZnHandle, ZnHandle) -> u32 { throw std::runtime_error("no"); };
  script.shutdown = [](ZnHandle) -> u32 { throw std::bad_alloc(); };
  script.event = [](const EventRecord*) -> u32 { throw std::string("text"); };
  const BusLock lock;
  Provider* provider = Add(ScriptedSlots());
  EXPECT_EQ(Call(provider), ZNE_PROVIDER_ACCESS_VIOLATED);
  EXPECT_EQ(provider->Initialize(), ZNE_PROVIDER_ACCESS_VIOLATED);
  EXPECT_EQ(provider->Shutdown(), ZNE_PROVIDER_ACCESS_VIOLATED);
  EXPECT_EQ(provider->SendEvent(nullptr), ZNE_PROVIDER_ACCESS_VIOLATED);
  EXPECT_EQ(CallsInProgress(), 0u);
}

TEST_F(ProviderSlots, RunWithTheLockReleasedAndRestoreItsDepth) {
  u32 inside = 99;
  script.call = [&](const SlotCall&) -> u32 {
    inside = fastLock.HoldCount();
    throw 1;
  };
  const BusLock once;
  const BusLock twice;
  const BusLock thrice;
  Provider* provider = Add(ScriptedSlots());
  EXPECT_EQ(Call(provider), ZNE_PROVIDER_ACCESS_VIOLATED);
  EXPECT_EQ(inside, 0u);
  EXPECT_EQ(fastLock.HoldCount(), 3u);
}

TEST_F(ProviderSlots, ACallIsCountedWhileItRuns) {
  u32 inside = 0;
  script.call = [&](const SlotCall&) -> u32 {
    const BusLock lock;
    inside = CallsInProgress();
    return ZN_OK;
  };
  EXPECT_EQ(Call(Add(ScriptedSlots())), ZN_OK);
  EXPECT_EQ(inside, 1u);
  EXPECT_EQ(CallsInProgress(), 0u);
}

TEST_F(ProviderSlots, AStopRefusesCallsAndNothingElse) {
  bool reached = false;
  script.call = [&](const SlotCall&) -> u32 {
    reached = true;
    return ZN_OK;
  };
  SetShuttingDown(true);
  const BusLock lock;
  Provider* provider = Add(ScriptedSlots());
  EXPECT_EQ(Call(provider), ZNE_SHUTDOWN_STARTED);
  EXPECT_FALSE(reached);
  EXPECT_EQ(CallsInProgress(), 0u);
  EXPECT_EQ(provider->Shutdown(), ZN_OK);
}

TEST_F(ProviderSlots, InitializeAndShutdownGetTheHandles) {
  std::vector<ZnHandle> seen;
  script.initialize = [&](ZnHandle database, ZnHandle provider) -> u32 {
    seen = {database, provider};
    return ZN_OK;
  };
  script.shutdown = [&](ZnHandle database) -> u32 {
    seen.push_back(database);
    return ZN_OK;
  };
  const BusLock lock;
  Provider* provider = Add(ScriptedSlots());
  EXPECT_EQ(provider->Initialize(), ZN_OK);
  EXPECT_EQ(provider->Shutdown(), ZN_OK);
  EXPECT_EQ(seen,
            (std::vector<ZnHandle>{database_->Handle(), provider->Handle(), database_->Handle()}));
}

TEST_F(ProviderSlots, TheVersionIsTheTextAlone) {
  ZnWChar* text = nullptr;
  u32 status = ZN_OK;
  script.getVersion = [&](ZnWChar** out) -> u32 {
    *out = text;
    return status;
  };
  const BusLock lock;
  Provider* provider = Add(ScriptedSlots());
  EXPECT_EQ(provider->GetVersion().Text(), u"");  // null
  text = reinterpret_cast<ZnWChar*>(16);
  EXPECT_EQ(provider->GetVersion().Text(), u"");  // unreadable
  text = static_cast<ZnWChar*>(ZnAlloc(8));
  text[0] = u'7';
  status = ZNE_UNEXPECTED;  // does not matter
  EXPECT_EQ(provider->GetVersion().Text(), u"7");
  script.getVersion = [](ZnWChar**) -> u32 { throw 1; };
  EXPECT_EQ(provider->GetVersion().Text(), u"");
}

TEST_F(ProviderSlots, AVersionOfMoreThan8192CharactersIsNone) {
  script.getVersion = [](ZnWChar** out) -> u32 {
    static std::u16string text(9000, u'9');
    *out = text.data();
    return ZN_OK;
  };
  const BusLock lock;
  EXPECT_EQ(Add(ScriptedSlots())->GetVersion().Text(), u"");
}

TEST_F(ProviderSlots, TheLibraryStaysWhileASlotOfADeletedProviderRuns) {
  bool isUnloaded = false;
  bool unloadedInside = true;
  std::shared_ptr<void> library(&isUnloaded, [](void* flag) { *static_cast<bool*>(flag) = true; });
  Provider* provider = Add(ScriptedSlots(), std::move(library));
  const ZnHandle handle = provider->Handle();
  script.call = [&](const SlotCall&) -> u32 {
    const BusLock lock;
    DiscardProvider(*database_, handle);
    unloadedInside = isUnloaded;
    return ZN_OK;
  };
  EXPECT_EQ(Call(provider), ZN_OK);
  EXPECT_FALSE(unloadedInside);
  EXPECT_TRUE(isUnloaded);
}

TEST_F(ProviderSlots, DiscardingTakesTheObjectsAlong) {
  const ZnHandle provider = MakeProvider();
  const ZnHandle other = MakeProvider(u"other");
  const ObjectId mine = MakeObject(provider);
  const ObjectId theirs = MakeObject(other);
  {
    const BusLock lock;
    DiscardProvider(*database_, provider);
    DiscardProvider(*database_, provider);  // a handle that is none any more
  }
  EXPECT_FALSE(ObExists(nullptr, mine));
  EXPECT_TRUE(ObExists(nullptr, theirs));
  ObjectId id{};
  EXPECT_EQ(PrGetProviderId(provider, &id), ZNE_INVALID_ARGUMENTS);
}

using ProviderThreads = ProviderSlots;

TEST_F(ProviderThreads, AStopWaitsForTheCallThatRuns) {
  Signal running;
  Signal goOn;
  std::atomic<bool> isCallOver{false};
  script.call = [&](const SlotCall&) -> u32 {
    running.Set();
    EXPECT_TRUE(goOn.Wait());
    isCallOver = true;
    return ZN_OK;
  };
  Provider* provider = Add(ScriptedSlots());
  std::thread caller([&] { EXPECT_EQ(Call(provider), ZN_OK); });
  ASSERT_TRUE(running.Wait());
  SetShuttingDown(true);
  std::thread stopper([&] {
    const BusLock lock;
    WaitForCallsToEnd();
    EXPECT_TRUE(isCallOver);
    EXPECT_EQ(fastLock.HoldCount(), 1u);
  });
  EXPECT_EQ(Call(provider), ZNE_SHUTDOWN_STARTED);
  goOn.Set();
  stopper.join();
  caller.join();
}

TEST_F(ProviderThreads, AStopWithoutCallsWaitsForNothing) {
  const BusLock lock;
  SetShuttingDown(true);
  WaitForCallsToEnd();
  EXPECT_TRUE(IsShuttingDown());
}

}  // namespace
}  // namespace zn::test
