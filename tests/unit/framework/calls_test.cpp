#include <cstring>

#include "framework/common/znprov/localprovider.h"
#include "framework/common/znprov/providercall.h"
#include "tests/unit/framework/bus_fixture.h"
#include "zn/db.h"
#include "zn/init.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

const ObjectId kOtherId = {7, 7, 7, {7}};

class CallTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    provider_ = MakeProvider();
    object_ = MakeObject(provider_);
    ASSERT_EQ(ObRegisterInterface(nullptr, object_, provider_, &kTestInterface), ZN_OK);
  }
  u32 CallProvider(u32 flags = 0, ObjectId* task = nullptr) {
    return PrCallProvider(provider_, object_, &kTestInterface, 1, 2, in_.Get(), out_.Get(), flags,
                          0, nullptr, nullptr, &answered_, task);
  }
  u32 Dispatch(ZnHandle database = nullptr) {
    return PrCallDispatch(database, object_, &kTestInterface, 1, 2, in_.Get(), out_.Get(), 0, 0,
                          nullptr, nullptr, &answered_, nullptr);
  }

  ZnHandle provider_ = nullptr;
  ObjectId object_{};
  ObjectId answered_ = kOtherId;
  Propset in_;
  Propset out_;
};

// Every word of a call, to be spoilt one at a time.
struct CallWords {
  ZnHandle target;
  const GUID* interfaceId;
  ZnHandle in;
  ZnHandle out;
  u32 flags;
  TaskCallback callback;
  ObjectId* answered;
  ObjectId* task;
};
struct BadCall {
  const char* why;
  void (*spoil)(CallWords&);
};
constexpr BadCall kBadCalls[] = {
    {"a set for a target", [](CallWords& w) { w.target = w.in; }},
    {"all ones for a target", [](CallWords& w) { w.target = reinterpret_cast<ZnHandle>(-1); }},
    {"no interface", [](CallWords& w) { w.interfaceId = nullptr; }},
    {"no input", [](CallWords& w) { w.in = nullptr; }},
    {"a target for an input", [](CallWords& w) { w.in = w.target; }},
    {"no output", [](CallWords& w) { w.out = nullptr; }},
    {"no place for the provider", [](CallWords& w) { w.answered = nullptr; }},
    {"a bad callback",
     [](CallWords& w) {
       w.flags = ZN_CALL_ASYNCHRONOUS;
       w.callback = reinterpret_cast<TaskCallback>(16);
     }},
    {"a bad place for the task",
     [](CallWords& w) {
       w.flags = ZN_CALL_ASYNCHRONOUS;
       w.task = reinterpret_cast<ObjectId*>(16);
     }},
};

TEST_F(CallTest, CallProviderRefusesBadArguments) {
  script.call = [](const SlotCall&) -> u32 {
    ADD_FAILURE() << "reached";
    return ZN_OK;
  };
  for (const BadCall& bad : kBadCalls) {
    SCOPED_TRACE(bad.why);
    CallWords w{provider_, &kTestInterface, in_.Get(), out_.Get(), 0, nullptr, &answered_, nullptr};
    bad.spoil(w);
    const TraceCapture trace;
    EXPECT_EQ(PrCallProvider(w.target, object_, w.interfaceId, 1, 2, w.in, w.out, w.flags, 0,
                             nullptr, w.callback, w.answered, w.task),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(trace.Messages(),
              (std::vector<std::string>{"ZnAPI:Entering PrCallProvider",
                                        "ZnAPI:PrCallProvider: Invalid arguments",
                                        "ZnAPI:Exiting PrCallProvider: 0x80070057, 2147942487"}));
  }
  EXPECT_EQ(answered_, kOtherId);
}

TEST_F(CallTest, DispatchRefusesBadArguments) {
  for (const BadCall& bad : kBadCalls) {
    SCOPED_TRACE(bad.why);
    CallWords w{database_->Handle(), &kTestInterface, in_.Get(), out_.Get(), 0, nullptr,
                &answered_,          nullptr};
    bad.spoil(w);
    const TraceCapture trace(3);
    EXPECT_EQ(PrCallDispatch(w.target, object_, w.interfaceId, 1, 2, w.in, w.out, w.flags, 0,
                             nullptr, w.callback, w.answered, w.task),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_TRUE(trace.Has("ZnAPI:PrCallDispatch: Invalid arguments"));
  }
}

TEST_F(CallTest, DispatchWantsAPlaceForTheTaskAndCallProviderDoesNot) {
  EXPECT_EQ(PrCallDispatch(nullptr, object_, &kTestInterface, 1, 2, in_.Get(), out_.Get(),
                           ZN_CALL_ASYNCHRONOUS, 0, nullptr, nullptr, &answered_, nullptr),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(CallProvider(ZN_CALL_ASYNCHRONOUS, nullptr), ZN_OK);
}

TEST_F(CallTest, EveryWordReachesTheSlot) {
  int context = 0;
  const TaskCallback callback = [](TaskReport*) { return true; };
  bool reached = false;
  script.call = [&](const SlotCall& call) -> u32 {
    reached = true;
    EXPECT_EQ(call.id, object_);
    EXPECT_EQ(call.majorCode, 11u);
    EXPECT_EQ(call.minorCode, 12u);
    EXPECT_EQ(call.in, in_.Get());
    EXPECT_EQ(call.out, out_.Get());
    EXPECT_EQ(call.flags, 0x80u);
    EXPECT_EQ(call.reserved, 14u);
    EXPECT_EQ(call.context, &context);
    EXPECT_EQ(call.callback, callback);
    EXPECT_EQ(call.interfaceId, kTestInterface);
    EXPECT_EQ(call.taskId, ObjectId{});
    EXPECT_NE(call.answering, nullptr);
    EXPECT_EQ(PsMarshalPropset(call.out, nullptr, nullptr), ZNE_INVALID_ARGUMENTS);  // may call us
    return ZN_OK;
  };
  EXPECT_EQ(PrCallProvider(provider_, object_, &kTestInterface, 11, 12, in_.Get(), out_.Get(), 0x80,
                           14, &context, callback, &answered_, nullptr),
            ZN_OK);
  EXPECT_TRUE(reached);
  EXPECT_EQ(answered_, IdOf(provider_));
}

TEST_F(CallTest, AnotherProviderMayHaveAnswered) {
  const ZnHandle other = MakeProvider(u"other");
  script.call = [&](const SlotCall& call) -> u32 {
    *call.answering = other;
    return ZN_OK;
  };
  EXPECT_EQ(CallProvider(), ZN_OK);
  EXPECT_EQ(answered_, IdOf(other));
}

TEST_F(CallTest, ABadAnsweringHandleMeansTheCalledProvider) {
  for (ZnHandle bad : {in_.Get(), database_->Handle(), reinterpret_cast<ZnHandle>(24)}) {
    script.call = [&](const SlotCall& call) -> u32 {
      *call.answering = bad;
      return ZN_OK;
    };
    EXPECT_EQ(CallProvider(), ZN_OK);
    EXPECT_EQ(answered_, IdOf(provider_));
  }
}

TEST_F(CallTest, AFailureStoresTheZeroIdAndLeavesTheTaskAlone) {
  script.call = [](const SlotCall&) -> u32 { return ZNE_INVALID_MAJOR_CODE; };
  ObjectId task = kOtherId;
  EXPECT_EQ(CallProvider(0, &task), ZNE_INVALID_MAJOR_CODE);
  EXPECT_EQ(answered_, ObjectId{});
  EXPECT_EQ(task, kOtherId);
}

TEST_F(CallTest, AWarningIsASuccess) {
  script.call = [](const SlotCall&) -> u32 { return ZNW_SERVICE_UNAVAILABLE; };
  EXPECT_EQ(CallProvider(), ZNW_SERVICE_UNAVAILABLE);
  EXPECT_EQ(answered_, IdOf(provider_));
}

TEST_F(CallTest, AnExceptionIsAStatusAndKeepsCountAndDepth) {
  script.call = [](const SlotCall&) -> u32 { throw 1; };
  {
    const BusLock lock;
    EXPECT_EQ(CallProvider(), ZNE_PROVIDER_ACCESS_VIOLATED);
    EXPECT_EQ(fastLock.HoldCount(), 1u);
    EXPECT_EQ(CallsInProgress(), 0u);
    EXPECT_EQ(database_->SequenceDepth(), 0u);
  }
  EXPECT_EQ(fastLock.HoldCount(), 0u);
}

TEST_F(CallTest, AProviderWithoutCallIsNotImplemented) {
  ProviderCallbacks slots = ScriptedSlots();
  slots.Call = nullptr;
  ASSERT_EQ(ZnRegisterAsProvider(nullptr, u"silent", &slots, &provider_), ZN_OK);
  EXPECT_EQ(CallProvider(), ZNE_NOT_IMPLEMENTED);
}

TEST_F(CallTest, AStopRefusesEveryCall) {
  script.call = [](const SlotCall&) -> u32 {
    ADD_FAILURE() << "reached";
    return ZN_OK;
  };
  SetShuttingDown(true);
  EXPECT_EQ(CallProvider(), ZNE_SHUTDOWN_STARTED);
  EXPECT_EQ(Dispatch(), ZNE_SHUTDOWN_STARTED);
}

TEST_F(CallTest, AnUpdateSequenceIsOpenDuringTheCall) {
  u32 depth = 0;
  script.call = [&](const SlotCall&) -> u32 {
    const BusLock lock;
    depth = database_->SequenceDepth();
    return ZNE_UNEXPECTED;
  };
  EXPECT_EQ(CallProvider(), ZNE_UNEXPECTED);
  EXPECT_EQ(depth, 1u);
  EXPECT_EQ(database_->SequenceDepth(), 0u);
}

TEST_F(CallTest, TheProviderMayDestroyTheOutputSet) {
  script.call = [](const SlotCall& call) -> u32 { return PsDestroyPropset(call.out); };
  EXPECT_EQ(CallProvider(ZN_CALL_ASYNCHRONOUS, nullptr), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(out_.Get()), ZNE_INVALID_ARGUMENTS);
}

TEST_F(CallTest, TheProviderMayBeGoneAfterTheCall) {
  const ObjectId id = IdOf(provider_);
  script.call = [&](const SlotCall&) -> u32 {
    const BusLock lock;
    DiscardProvider(*database_, provider_);
    return ZN_OK;
  };
  EXPECT_EQ(CallProvider(), ZN_OK);
  EXPECT_EQ(answered_, id);
}

TEST_F(CallTest, DispatchFindsTheProviderOfTheObject) {
  EXPECT_EQ(Dispatch(), ZN_OK);
  EXPECT_EQ(answered_, IdOf(provider_));
  EXPECT_EQ(Dispatch(database_->Handle()), ZN_OK);
}

TEST_F(CallTest, DispatchFindsTheProviderOfTheType) {
  object_ = MakeObject(MakeProvider(u"other"));
  EXPECT_EQ(Dispatch(), ZNE_INTERFACE_NOT_FOUND);
  ASSERT_EQ(ObRegisterInterfaceOnType(nullptr, "KELD_Object", provider_, &kTestInterface), ZN_OK);
  EXPECT_EQ(Dispatch(), ZN_OK);
  EXPECT_EQ(answered_, IdOf(provider_));
}

TEST_F(CallTest, DispatchTracesBothFrames) {
  const TraceCapture trace;
  EXPECT_EQ(Dispatch(), ZN_OK);
  EXPECT_EQ(trace.Messages(),
            (std::vector<std::string>{
                "ZnAPI:Entering PrCallDispatch", "ZnAPI:Entering PrCallProvider",
                "ZnAPI:Exiting PrCallProvider: 0x0, 0", "ZnAPI:Exiting PrCallDispatch: 0x0, 0"}));
}

TEST_F(CallTest, DispatchRefusesAnUnknownObject) {
  object_ = kOtherId;
  EXPECT_EQ(Dispatch(), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(answered_, kOtherId);
}

TEST_F(CallTest, DispatchRefusesAnInterfaceNobodyServes) {
  const GUID nobodys = {9, 9, 9, {9}};
  EXPECT_EQ(PrCallDispatch(nullptr, object_, &nobodys, 1, 2, in_.Get(), out_.Get(), 0, 0, nullptr,
                           nullptr, &answered_, nullptr),
            ZNE_INTERFACE_NOT_FOUND);
}

TEST_F(CallTest, DispatchMissesAProviderThatIsGone) {
  object_ = MakeObject(MakeProvider(u"other"));
  ASSERT_EQ(ObRegisterInterface(nullptr, object_, provider_, &kTestInterface), ZN_OK);
  {
    const BusLock lock;
    DiscardProvider(*database_, provider_);
  }
  EXPECT_EQ(Dispatch(), ZNE_PROVIDER_REG_NO_PROVIDERS);
}

TEST_F(CallTest, DispatchNeedsADatabase) {
  SetSystemDatabase(nullptr);
  const TraceCapture trace(3);
  EXPECT_EQ(Dispatch(), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:PrCallDispatch: Invalid database"));
  SetSystemDatabase(database_);
}

TEST_F(CallTest, DispatchNeedsALogon) {
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  const TraceCapture trace(3);
  EXPECT_EQ(Dispatch(), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_TRUE(trace.Has("ZnAPI:PrCallDispatch: DB auth failed"));
}

// What a server would be sent, and what it answers.
struct Forwarded {
  PropertySet request;
  u32 depth = 99;
  u32 answer = ZN_OK;
  int context = 0;
};

u32 ForwardHook(PropertySet& request, ObjectId* provider, ObjectId* task, PropertySet* out,
                void* context) {
  auto& forwarded = *static_cast<Forwarded*>(context);
  forwarded.request = request;
  forwarded.depth = fastLock.HoldCount();
  *provider = kOtherId;
  if (task != nullptr) *task = kOtherId;
  out->Put("answer", Value::UInt32(42));
  return forwarded.answer;
}

class ClientCopyTest : public CallTest {
 protected:
  // A copy of a server's database whose only provider is the server's, with one object.
  void SetUp() override {
    CallTest::SetUp();
    const BusLock lock;
    DatabaseCallbacks callbacks;
    callbacks.forwardRequest = [](PropertySet&, PropertySet*, void*) -> u32 {
      return ZNE_OBJECT_NOT_FOUND;
    };
    callbacks.forwardProviderCall = &ForwardHook;
    callbacks.context = &forwarded_;
    copy_ = std::make_unique<Database>(0u, callbacks);
    CopyTypes(*database_, *copy_);
    server_ = AddProviderObject(*copy_, u"server's", ProviderCallbacks{}, nullptr, false);
    ASSERT_NE(server_, nullptr);
    DBNode* node = nullptr;
    ASSERT_EQ(copy_->CreateDBNode(server_, "KELD_Object", 0, &node, nullptr), ZN_OK);
    object_ = node->GetId().Value();
    ASSERT_EQ(copy_->RegisterInterface(node, kTestInterface, server_->GetId()), ZN_OK);
  }
  void TearDown() override {
    {
      const BusLock lock;
      copy_.reset();
    }
    CallTest::TearDown();
  }

  Forwarded forwarded_;
  std::unique_ptr<Database> copy_;
  Provider* server_ = nullptr;
};

TEST_F(ClientCopyTest, DispatchForwardsTheCallWithTheLockReleased) {
  in_.Set().Put("question", Value::UInt32(7));
  ObjectId task{};
  const BusLock lock;
  EXPECT_EQ(PrCallDispatch(copy_->Handle(), object_, &kTestInterface, 3, 4, in_.Get(), out_.Get(),
                           ZN_CALL_ASYNCHRONOUS, 5, nullptr, nullptr, &answered_, &task),
            ZN_OK);
  EXPECT_EQ(forwarded_.depth, 0u);
  EXPECT_EQ(fastLock.HoldCount(), 1u);
  EXPECT_EQ(answered_, kOtherId);
  EXPECT_EQ(task, kOtherId);
  EXPECT_NE(out_.Set().FindValue("answer", ZN_TYPE_UINT32), nullptr);
  const PropertySet& request = forwarded_.request;
  ASSERT_EQ(request.Count(), 7u);
  EXPECT_EQ(request.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid(), object_);
  EXPECT_EQ(request.FindValue("InterfaceId", ZN_TYPE_GUID)->AsGuid(), kTestInterface);
  EXPECT_EQ(request.FindValue("MajorCode", ZN_TYPE_UINT32)->AsUInt32(), 3u);
  EXPECT_EQ(request.FindValue("MinorCode", ZN_TYPE_UINT32)->AsUInt32(), 4u);
  EXPECT_EQ(request.FindValue("Flags", ZN_TYPE_UINT32)->AsUInt32(), 1u);
  EXPECT_EQ(request.FindValue("Reserved", ZN_TYPE_UINT32)->AsUInt32(), 5u);
  EXPECT_TRUE(request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet().Equals(in_.Set()));
}

TEST_F(ClientCopyTest, TheAnswerOfTheServerIsTheStatus) {
  forwarded_.answer = ZNE_INVALID_MINOR_CODE;
  EXPECT_EQ(Dispatch(copy_->Handle()), ZNE_INVALID_MINOR_CODE);
}

TEST_F(ClientCopyTest, CallProviderRefusesTheServersProvider) {
  provider_ = server_->Handle();
  const TraceCapture trace(3);
  EXPECT_EQ(CallProvider(), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:PrCallProvider: Client database with non-client provider"));
}

TEST_F(ClientCopyTest, AProviderOfTheClientIsCalledHere) {
  const ZnHandle local = MakeProvider(u"client's", copy_->Handle());
  EXPECT_EQ(HandleThing<Provider>(local)->GetFlags(), OBJECT_CLIENT_LOCAL);
  {
    const BusLock lock;
    ASSERT_EQ(copy_->DeregisterInterface(copy_->FindCached(object_), kTestInterface), ZN_OK);
    ASSERT_EQ(copy_->RegisterInterface(copy_->FindCached(object_), kTestInterface,
                                       HandleThing<Provider>(local)->GetId()),
              ZN_OK);
  }
  bool reached = false;
  script.call = [&](const SlotCall&) -> u32 {
    reached = true;
    return ZN_OK;
  };
  EXPECT_EQ(Dispatch(copy_->Handle()), ZN_OK);
  EXPECT_TRUE(reached);
  EXPECT_EQ(forwarded_.depth, 99u);
}

class PrivateCallTest : public CallTest {
 protected:
  void SetUp() override {
    CallTest::SetUp();
    SetSystemDatabase(nullptr);
    ASSERT_EQ(DbCreatePrivateDatabase(&private_), ZN_OK);
    provider_ = MakeProvider(u"private", private_);
  }
  void TearDown() override {
    static_cast<void>(DbDeletePrivateDatabase(private_));
    SetSystemDatabase(database_);
    CallTest::TearDown();
  }
  ZnHandle private_ = nullptr;
};

TEST_F(PrivateCallTest, WorksWithoutASystemDatabase) {
  u32 depth = 0;
  script.call = [&](const SlotCall&) -> u32 {
    const BusLock lock;
    depth = HandleThing<Database>(private_)->SequenceDepth();
    return ZN_OK;
  };
  EXPECT_EQ(CallProvider(), ZN_OK);
  EXPECT_EQ(depth, 1u);
  EXPECT_EQ(answered_, IdOf(provider_));
}

TEST_F(PrivateCallTest, ATaskNeedsNoSystemDatabaseEither) {
  ObjectId task{};
  EXPECT_EQ(CallProvider(ZN_CALL_ASYNCHRONOUS, &task), ZN_OK);
  EXPECT_TRUE(ObExists(private_, task));
}

TEST_F(PrivateCallTest, RefusesAProviderThatIsNotTheClients) {
  HandleThing<Provider>(provider_)->SetRawFlags(0);
  const TraceCapture trace(3);
  EXPECT_EQ(CallProvider(), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("ZnAPI:PrCallProvider: Client database with non-client provider"));
}

// No call brings that about: a database ends its providers before its handle. The handle is marked
// as freed here, and stands again for the end of the test.
TEST_F(PrivateCallTest, RefusesAProviderWhoseDatabaseHasNoHandle) {
  const TraceCapture trace(3);
  private_->tag = 0;
  EXPECT_EQ(CallProvider(), ZNE_INVALID_ARGUMENTS);
  private_->tag = HANDLE_DATABASE;
  EXPECT_TRUE(trace.Has("ZnAPI:PrCallProvider: Unable to get database from hProvider"));
}

TEST_F(PrivateCallTest, TheDatabaseMayBeDeletedDuringTheCall) {
  script.call = [&](const SlotCall&) -> u32 { return DbDeletePrivateDatabase(private_); };
  ObjectId task{};
  EXPECT_EQ(CallProvider(ZN_CALL_ASYNCHRONOUS, &task), ZN_OK);
  EXPECT_EQ(RememberedTasks(), 0u);
}

}  // namespace
}  // namespace zn::test
