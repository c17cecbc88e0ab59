#include "framework/common/znprov/systemprovider.h"

#include <thread>

#include "framework/common/znprov/loader.h"
#include "tests/unit/framework/bus_fixture.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

// The task callback of a refresh: keeps the percents and states, and tells of the end.
struct Progress {
  std::vector<std::pair<u32, u32>> steps;  // state, percent
  Signal over;
};
bool Follow(TaskReport* report) {
  auto& progress = *static_cast<Progress*>(report->context);
  progress.steps.emplace_back(report->state, report->percentComplete);
  if (report->state == TASK_STATE_FINISHED) progress.over.Set();
  return true;
}
using Steps = std::vector<std::pair<u32, u32>>;

class SystemProviderTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    group_ = ObjectsOfType("KELD_SystemGroup").at(0);
  }
  u32 Call(const GUID& served, u32 major, u32 minor, u32 flags = 0, Progress* progress = nullptr) {
    task_ = {};
    return PrCallDispatch(nullptr, group_, &served, major, minor, in_.Get(), out_.Get(), flags, 0,
                          progress, progress == nullptr ? nullptr : &Follow, &answered_, &task_);
  }
  u32 Refresh(u32 minor, Progress* progress) {
    return Call(kRefreshInterface, 0, minor, ZN_CALL_ASYNCHRONOUS, progress);
  }
  [[nodiscard]] std::u16string TextOf(const char* name) {
    Property2* property = nullptr;
    EXPECT_EQ(PrGetProperty(SystemProvider(), name, &property), ZN_OK);
    EXPECT_EQ(property->Type, ZN_TYPE_WIDESTRING);
    std::u16string text(static_cast<ZnWChar*>(property->Value));
    EXPECT_EQ(PsFreeProperty(property), ZN_OK);
    return text;
  }

  ObjectId group_{};
  ObjectId task_{};
  ObjectId answered_{};
  Propset in_;
  Propset out_;
};

TEST_F(SystemProviderTest, HasItsPropertiesAndItsCatalog) {
  EXPECT_EQ(TextOf("FAILED_PROVIDERS"), u"");
  EXPECT_EQ(TextOf("LOADED_PROVIDERS"), u"");
  ZnWChar* version = nullptr;
  ASSERT_EQ(ZnGetVersionString(&version), ZN_OK);
  EXPECT_EQ(TextOf("VERSION"), version);
  ZnFree(version);
  const auto& provider = *HandleThing<Provider>(SystemProvider());
  EXPECT_TRUE(provider.IsBuiltIn());
  EXPECT_TRUE(provider.IsRegistered());
  EXPECT_EQ(provider.MessageCatalog().Text(), "{8BCC2DF0-62CF-11d4-80C5-00C04FBCEFDD}");
  EXPECT_TRUE(provider.ClientExtension().IsEmpty());
}

TEST_F(SystemProviderTest, MakesTheGroupOfTheMachine) {
  ZnWChar* computer = ZnGetComputerName();
  const std::u16string name = computer == nullptr ? u"system" : computer;
  ZnFree(computer);
  EXPECT_EQ(PropertyOf(group_, "Name").AsWideText(), name);
  const BusLock lock;
  const DBNode* group = database_->FindCached(group_);
  EXPECT_NE(group->GetFlags() & OBJECT_GROUP_SERVER, 0u);
  EXPECT_EQ(*group->GetContainedTypes(), NameSet{"KELD_GenericGroup"});
  EXPECT_EQ(group->Interfaces().size(), 2u);
  ZnHandle creator = nullptr;
  EXPECT_EQ(ObGetProviderForObject(nullptr, group_, &creator), ZN_OK);
  EXPECT_EQ(creator, SystemProvider());
}

TEST_F(SystemProviderTest, MakesTheBuiltInTypes) {
  const BusLock lock;
  for (const char* type :
       {"KELD_Object", "KELD_Provider", "KELD_Database", "KELD_Group", "KELD_SystemGroup",
        "KELD_GenericGroup", "KELD_Extension", "KELD_Task", "KELD_Configlet"}) {
    EXPECT_NE(database_->Types().FindType(type), nullptr) << type;
  }
  EXPECT_TRUE(database_->Types().TypeIsA("KELD_Task", "KELD_Object"));
}

TEST_F(SystemProviderTest, CannotBeMadeTwice) {
  const BusLock lock;
  const TraceCapture trace;
  EXPECT_EQ(CreateSystemProvider(*database_, u"again"), ZNE_UNEXPECTED);
  EXPECT_TRUE(trace.Has("ZnAPI:ZnCreateSystemProvider:Creating system object types"));
  EXPECT_FALSE(trace.Has("ZnAPI:ZnCreateSystemProvider:System object types created"));
  EXPECT_EQ(database_->FindProviderByName(u"again"), nullptr);
}

TEST_F(SystemProviderTest, TracesTheMakingOfItsTypes) {
  const BusLock lock;
  const TraceCapture trace;
  Database fresh(0, {});
  EXPECT_EQ(CreateSystemProvider(fresh, u"system"), ZN_OK);
  EXPECT_TRUE(trace.Has("ZnAPI:ZnCreateSystemProvider:Creating system object types"));
  EXPECT_TRUE(trace.Has("ZnAPI:ZnCreateSystemProvider:System object types created"));
}

TEST_F(SystemProviderTest, TracesTheEventsItHears) {
  const TraceCapture trace;
  const EventRecord event{sizeof(EventRecord), 1, "a.b.c", nullptr, nullptr, nullptr};
  const BusLock lock;
  EXPECT_EQ(database_->FindProviderByName(u"system")->SendEvent(&event), ZN_OK);
  EXPECT_TRUE(trace.Has("SystemProvider: Received notification a.b.c"));
}

TEST_F(SystemProviderTest, RefusesOtherCodes) {
  const GUID nobodys = {1, 2, 3, {4}};
  EXPECT_EQ(Call(kRefreshInterface, 0, 3), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Call(kRefreshInterface, 1, 1, ZN_CALL_ASYNCHRONOUS), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Call(kServiceInterface, 0, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Call(kServiceInterface, 0, 3), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Call(kServiceInterface, 1, 1), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrCallProvider(SystemProvider(), group_, &nobodys, 0, 1, in_.Get(), out_.Get(), 0, 0,
                           nullptr, nullptr, &answered_, nullptr),
            ZNE_INVALID_ARGUMENTS);
}

TEST_F(SystemProviderTest, DumpsTheAllocations) {
  EXPECT_EQ(Call(kServiceInterface, 0, kMinorDumpAllocations), ZN_OK);
  EXPECT_EQ(answered_, IdOf(SystemProvider()));
}

TEST_F(SystemProviderTest, MakesAsManyGuidsAsAskedFor) {
  for (u32 count : {0u, 1u, 3u}) {
    in_.Set().Put("GUIDCount", Value::UInt32(count));
    ASSERT_EQ(Call(kServiceInterface, 0, kMinorMakeGuids), ZN_OK);
    const Property* guids = out_.Set().Find("GUIDs");
    ASSERT_NE(guids, nullptr);
    EXPECT_EQ(guids->TypeTag(), ZN_TYPE_GUID | ZN_TYPE_ARRAY);
    ASSERT_EQ(guids->GetValue().AsArray().size(), count);
  }
  const auto& guids = out_.Set().Find("GUIDs")->GetValue().AsArray();
  EXPECT_FALSE(guids[0].AsGuid() == guids[1].AsGuid());
  EXPECT_FALSE(IsZeroGuid(guids[2].AsGuid()));
}

TEST_F(SystemProviderTest, RefusesABadGuidCount) {
  EXPECT_EQ(Call(kServiceInterface, 0, kMinorMakeGuids), ZNE_PROPERTY_NOT_FOUND);
  in_.Set().Put("GUIDCount", Value::UInt32(kMaxGuidCount + 1));
  EXPECT_EQ(Call(kServiceInterface, 0, kMinorMakeGuids), ZNE_INVALID_ARGUMENTS);
  in_.Set().Put("GUIDCount", Value::UInt64(1));
  EXPECT_EQ(Call(kServiceInterface, 0, kMinorMakeGuids), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(out_.Set().IsEmpty());
}

TEST_F(SystemProviderTest, ARefreshMustBeAsynchronous) {
  EXPECT_EQ(Call(kRefreshInterface, 0, kMinorRefresh), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Call(kRefreshInterface, 0, kMinorRescan), ZNE_INVALID_ARGUMENTS);
}

TEST_F(SystemProviderTest, TheLoaderReservesItsArgument) {
  const BusLock lock;
  EXPECT_EQ(LoadRegisteredProviders(*database_, 1), ZNE_INVALID_ARGUMENTS);
}

using RefreshThreads = SystemProviderTest;

// Every call of a provider waits until it may go on.
struct HeldCalls {
  HeldCalls() {
    script.call = [this](const SlotCall&) -> u32 {
      ++calls;
      inside.Set();
      EXPECT_TRUE(goOn.Wait());
      return ZN_OK;
    };
  }

  Signal inside;
  Signal goOn;
  u32 calls = 0;
};

TEST_F(RefreshThreads, ReportTheShareOfProvidersThatAreDone) {
  MakeProvider();
  Progress progress;
  ASSERT_EQ(Refresh(kMinorRefresh, &progress), ZN_OK);
  ASSERT_TRUE(progress.over.Wait());
  EXPECT_EQ(progress.steps, (Steps{{TASK_STATE_RUNNING, 0},  // the start
                                   {TASK_STATE_RUNNING, 0},  // "system", the first of two
                                   {TASK_STATE_RUNNING, 50},
                                   {TASK_STATE_FINISHED, 100}}));
}

TEST_F(RefreshThreads, WithNoOtherProviderAreOverAtOnce) {
  Progress progress;
  ASSERT_EQ(Refresh(kMinorRefresh, &progress), ZN_OK);
  ASSERT_TRUE(progress.over.Wait());
  EXPECT_EQ(progress.steps,
            (Steps{{TASK_STATE_RUNNING, 0}, {TASK_STATE_RUNNING, 0}, {TASK_STATE_FINISHED, 100}}));
}

TEST_F(RefreshThreads, CallEachProviderSynchronouslyWithEmptySets) {
  std::vector<SlotCall> calls;
  u32 properties = 0;
  script.call = [&](const SlotCall& call) -> u32 {
    const BusLock lock;
    calls.push_back(call);
    properties += HandleThing<PropertySet>(call.in)->Count();
    properties += HandleThing<PropertySet>(call.out)->Count();
    return ZNE_INVALID_MAJOR_CODE;  // ends nothing
  };
  MakeProvider(u"one");
  MakeProvider(u"two");
  in_.Set().Put("ignored", Value::UInt32(1));
  Progress progress;
  ASSERT_EQ(Refresh(kMinorRescan, &progress), ZN_OK);
  ASSERT_TRUE(progress.over.Wait());
  ASSERT_EQ(calls.size(), 2u);
  for (const SlotCall& call : calls) {
    EXPECT_EQ(call.id, group_);
    EXPECT_EQ(call.interfaceId, kRefreshInterface);
    EXPECT_EQ(call.majorCode, 0u);
    EXPECT_EQ(call.minorCode, kMinorRescan);
    EXPECT_EQ(call.flags, 0u);
    EXPECT_EQ(call.taskId, ObjectId{});
    EXPECT_EQ(call.callback, nullptr);
  }
  EXPECT_EQ(properties, 0u);
}

TEST_F(RefreshThreads, NameTheirTask) {
  struct NameCase {
    u32 minor;
    const char16_t* name;
    u32 message;
  };
  constexpr NameCase kCases[] = {{kMinorRefresh, u"Refreshing", ZNI_REFRESHING},
                                 {kMinorRescan, u"Rescanning", ZNI_RESCANNING}};
  MakeProvider();
  for (const NameCase& c : kCases) {
    HeldCalls held;
    Progress progress;
    ASSERT_EQ(Refresh(c.minor, &progress), ZN_OK);
    ASSERT_TRUE(held.inside.Wait());
    EXPECT_EQ(PropertyOf(task_, "Name").AsWideText(), c.name);
    Property2* shown = nullptr;
    ASSERT_EQ(ObGetProperty(nullptr, task_, "DisplayName", &shown), ZN_OK);
    ASSERT_EQ(shown->Type, ZN_TYPE_I18N);
    const auto* text = static_cast<I18nString*>(shown->Value);
    EXPECT_EQ(text->catalog, kSystemCatalog);
    EXPECT_EQ(text->message, c.message);
    EXPECT_EQ(std::u16string(c.name), std::u16string(text->name, text->name + strlen(text->name)));
    EXPECT_EQ(PsFreeProperty(shown), ZN_OK);
    held.goOn.Set();
    ASSERT_TRUE(progress.over.Wait());
    StopRefreshThread();  // so that the next request is not folded into the end of this one
  }
}

TEST_F(RefreshThreads, FoldASecondRequestIntoTheFirst) {
  HeldCalls held;
  MakeProvider();
  Progress first;
  Progress second;
  ASSERT_EQ(Refresh(kMinorRefresh, &first), ZN_OK);
  ASSERT_TRUE(held.inside.Wait());
  const ObjectId firstTask = task_;
  EXPECT_EQ(Refresh(kMinorRescan, &second), ZN_OK);
  EXPECT_EQ(second.steps, (Steps{{TASK_STATE_FINISHED, 100}}));
  EXPECT_FALSE(ObExists(nullptr, task_));
  EXPECT_TRUE(ObExists(nullptr, firstTask));
  held.goOn.Set();
  ASSERT_TRUE(first.over.Wait());
  EXPECT_EQ(held.calls, 1u);
}

TEST_F(RefreshThreads, EndWithTheProviderTheyAreAt) {
  HeldCalls held;
  MakeProvider(u"one");
  MakeProvider(u"two");
  Progress progress;
  ASSERT_EQ(Refresh(kMinorRefresh, &progress), ZN_OK);
  ASSERT_TRUE(held.inside.Wait());
  Signal stopping;
  std::thread stopper([&] {
    stopping.Set();
    StopRefreshThread();
  });
  ASSERT_TRUE(stopping.Wait());
  held.goOn.Set();
  stopper.join();
  EXPECT_GE(held.calls, 1u);
  EXPECT_EQ(progress.steps.back(), (std::pair<u32, u32>{TASK_STATE_FINISHED, 100}));
}

TEST_F(RefreshThreads, DoNotStartOnceAStopHasBegun) {
  // The call itself is refused before the provider sees it.
  SetShuttingDown(true);
  Progress progress;
  EXPECT_EQ(Refresh(kMinorRefresh, &progress), ZNE_SHUTDOWN_STARTED);
  EXPECT_TRUE(progress.steps.empty());
}

}  // namespace
}  // namespace zn::test
