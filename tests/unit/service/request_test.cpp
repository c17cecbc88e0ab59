// Requests of clients that are logged on: objects, provider calls, and the order of changes and
// answers.
#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include "tests/unit/service/service_fixture.h"
#include "zn/db.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Requests : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    provider_ = MakeProvider();
    object_ = ServedObject(provider_);
  }
  void SetNumber(u32 number) const {
    u32 value = number;
    char name[] = "Number";
    const Property2 property{name, ZN_TYPE_UINT32, 0, sizeof value, &value};
    ASSERT_EQ(ObSetProperty(nullptr, object_, &property), ZN_OK);
  }
  // Topics of what a client was sent, in order.
  [[nodiscard]] std::vector<std::string> SentTopics(u32 connectionId = 1) {
    std::vector<std::string> topics;
    for (const FakeTransport::Sent& sent : transport_.sent.Items()) {
      if (sent.connectionId != connectionId) continue;
      for (const UclBuffer& message : sent.messages) {
        const PropertySet set = SetIn(message);
        topics.emplace_back(set.FindValue("NotificationId", ZN_TYPE_STRING)->AsText());
      }
    }
    return topics;
  }

  ZnHandle provider_ = nullptr;
  ObjectId object_{};
};

// --- Calls -------------------------------------------------------------------------------------

TEST_F(Requests, CallsTheProviderOfTheInterface) {
  LogOn();
  script.call = [&](const SlotCall& call) {
    EXPECT_TRUE(SameGuid(call.id, object_));
    EXPECT_TRUE(SameGuid(call.interfaceId, kTestInterface));
    EXPECT_EQ(call.majorCode, 0u);
    EXPECT_EQ(call.minorCode, 5u);
    EXPECT_EQ(call.reserved, 0u);
    EXPECT_EQ(NumberOf(*HandleThing<PropertySet>(call.in), "In"), 7u);
    HandleThing<PropertySet>(call.out)->Put("Out", Value::UInt32(8));
    return ZN_OK;
  };
  PropertySet data;
  data.Put("In", Value::UInt32(7));
  const Reply reply = Send(Request(object_, 5, data));
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 8u);
  EXPECT_EQ(reply.set.Count(), 5u);
  EXPECT_TRUE(
      SameGuid(reply.set.FindValue("ProviderId", ZN_TYPE_OBJECT_ID)->AsGuid(), IdOf(provider_)));
  EXPECT_TRUE(IsZeroGuid(reply.set.FindValue("TaskId", ZN_TYPE_OBJECT_ID)->AsGuid()));
  EXPECT_EQ(NumberOf(reply.set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet(), "Out"), 8u);
}

TEST_F(Requests, TakesItsDataAsBytesToo) {
  LogOn();
  script.call = [](const SlotCall& call) {
    return NumberOf(*HandleThing<PropertySet>(call.in), "In");
  };
  PropertySet data;
  data.Put("In", Value::UInt32(0xC1000033));
  PropertySet request = Request(object_);
  request.Put("Data", wire::AsBinary(data));
  EXPECT_EQ(Send(request).Result(), 0xC1000033u);
}

TEST_F(Requests, ServesACallBeforeTheFirstCacheRequestAndTellsNothing) {
  const ClientPtr client = LogOn();
  script.call = [&](const SlotCall&) {
    SetNumber(1);
    return ZN_OK;
  };
  EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
  EXPECT_EQ(client->state, 3u);
  server_->sender.RunRound();
  EXPECT_THAT(transport_.sent.Items(), IsEmpty());
}

TEST_F(Requests, CarriesTheFailureOfACallWithZeroIdsAndTracesIt) {
  LogOn();
  script.call = [](const SlotCall& call) -> u32 {
    HandleThing<PropertySet>(call.out)->Put("Half", Value::UInt32(1));
    return 0xC1000031;
  };
  const TraceCapture trace(6);
  PropertySet request = Request(object_, 9);
  request.Put("MajorCode", Value::UInt32(4));
  const Reply reply = Send(request);
  EXPECT_EQ(reply.Result(), 0xC1000031u);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 8u);
  EXPECT_TRUE(IsZeroGuid(reply.set.FindValue("ProviderId", ZN_TYPE_OBJECT_ID)->AsGuid()));
  EXPECT_EQ(reply.set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet().Count(), 1u);
  EXPECT_THAT(trace.Messages(), ElementsAre("Failed to execute request Mj=4,Mn=9,Provider=0"));
}

TEST_F(Requests, PassesTheStatusesOfTheDispatchOn) {
  LogOn();
  EXPECT_EQ(Send(Request(TestGuid(1))).Result(), ZNE_OBJECT_NOT_FOUND);
  PropertySet request = Request(object_);
  request.Put("InterfaceId", Value::Guid(TestGuid(2)));
  EXPECT_EQ(Send(request).Result(), ZNE_INTERFACE_NOT_FOUND);
}

TEST_F(Requests, RefusesARequestThatLacksAPropertyOrHasOneOfAnotherType) {
  LogOn();
  u32 calls = 0;
  script.call = [&](const SlotCall&) { return ++calls, ZN_OK; };
  for (const char* name :
       {"ObjectId", "InterfaceId", "MajorCode", "MinorCode", "Data", "Flags", "Reserved"}) {
    SCOPED_TRACE(name);
    PropertySet request = Request(object_);
    ASSERT_EQ(request.Delete(name), ZN_OK);
    const Reply reply = Send(request);
    EXPECT_EQ(reply.Result(), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(NumberOf(reply.set, "Message"), 8u);
    EXPECT_TRUE(IsZeroGuid(reply.set.FindValue("ProviderId", ZN_TYPE_OBJECT_ID)->AsGuid()));
    request.Put(name, Value::Bool(1));
    EXPECT_EQ(Send(request).Result(), ZNE_INVALID_ARGUMENTS);
  }
  EXPECT_EQ(calls, 0u);
  EXPECT_THAT(transport_.disconnected.Items(), IsEmpty());
}

TEST_F(Requests, SurvivesAProviderThatDestroysItsSets) {
  LogOn();
  script.call = [](const SlotCall& call) {
    EXPECT_EQ(PsDestroyPropset(call.in), ZN_OK);
    EXPECT_EQ(PsDestroyPropset(call.out), ZN_OK);
    return ZN_OK;
  };
  const Reply reply = Send(Request(object_));
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(reply.set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet().Count(), 0u);
}

TEST_F(Requests, GivesTheTaskOfAnAsynchronousCall) {
  LogOn();
  ObjectId task{};
  script.call = [&](const SlotCall& call) {
    task = call.taskId;
    return ZN_OK;
  };
  const Reply reply = Send(Request(object_, 0, {}, ZN_CALL_ASYNCHRONOUS));
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_FALSE(IsZeroGuid(task));
  EXPECT_TRUE(SameGuid(reply.set.FindValue("TaskId", ZN_TYPE_OBJECT_ID)->AsGuid(), task));
}

// --- Order of changes and answers --------------------------------------------------------------

TEST_F(Requests, AnswersAtOnceWhenNothingIsUnderWay) {
  Listen();
  ASSERT_EQ(ChangesUnderWay(), 0u);
  // Nobody sends: a marker would be waited for without end.
  EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
  EXPECT_EQ(server_->serviceIds.Filed(), 0u);
}

TEST_F(Requests, TheAnswerComesBehindTheChangesThatTheCallMade) {
  Listen();
  ObjectId made{};
  script.call = [&](const SlotCall&) {
    return ObCreateObject(nullptr, provider_, "KELD_Object", &made);
  };
  ASSERT_TRUE(server_->sender.Start());
  for (int i = 0; i < 20; ++i) {
    transport_.sent.Clear();
    EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
    EXPECT_THAT(SentTopics(),
                ElementsAre("event.keld.dom.object.KELD_Object.object.add." + GuidText(made)));
  }
}

TEST_F(Requests, TheThreadOfACallTellsTheChangesItself) {
  Listen();
  SetNumber(100);
  while (ChangesUnderWay() != 0) std::this_thread::yield();
  while (!TellChangesHere()) std::this_thread::yield();  // the change thread sleeps
  server_->sender.RunRound();
  transport_.sent.Clear();
  script.call = [&](const SlotCall&) {
    SetNumber(1);
    return ZN_OK;
  };
  std::thread::id teller;
  onChange = [&] { teller = std::this_thread::get_id(); };
  EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
  EXPECT_EQ(teller, std::this_thread::get_id());
  EXPECT_EQ(SentTopics().size(), 1u) << "without a send thread";
  EXPECT_EQ(server_->serviceIds.Filed(), 0u) << "without a marker";
}

TEST_F(Requests, WhatAProviderTellsInsideItsCallIsNotHeldUp) {
  Listen();
  script.call = [&](const SlotCall&) {
    EXPECT_EQ(DbUpdateSequenceStart(nullptr, 0), ZN_OK);
    SetNumber(1);
    EXPECT_EQ(DbUpdateSequenceFinish(nullptr, 0), ZN_OK);
    while (ChangesUnderWay() != 0) std::this_thread::yield();
    SetNumber(2);
    return ZN_OK;
  };
  EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
  EXPECT_EQ(SentTopics().size(), 2u);
}

// The change thread stands in the middle of a change, until it is let go.
class RequestsBehindOthers : public Requests {
 protected:
  void SetUp() override {
    Requests::SetUp();
    Listen();
    onChange = [this] {
      entered_.Open();
      EXPECT_TRUE(goOn_.Wait());
    };
    SetNumber(100);
    ASSERT_TRUE(entered_.Wait());
    script.call = [&](const SlotCall&) {
      SetNumber(1);
      return ZN_OK;
    };
  }
  void TearDown() override {
    goOn_.Open();
    Requests::TearDown();
  }

  Gate entered_;
  Gate goOn_;
};

TEST_F(RequestsBehindOthers, AnAnswerWaitsForTheMarkerBehindThem) {
  Collected<std::string> steps;
  std::thread caller([&] {
    EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
    steps.Add("answered");
  });
  while (server_->serviceIds.Filed() == 0) std::this_thread::yield();
  steps.Add("let go");
  goOn_.Open();
  caller.join();
  EXPECT_THAT(steps.Items(), ElementsAre("let go", "answered"));
  EXPECT_EQ(SentTopics().size(), 2u);
  EXPECT_TRUE(server_->serviceIds.HasSpare());
  EXPECT_EQ(server_->serviceIds.Filed(), 1u);
}

TEST_F(RequestsBehindOthers, AMarkerIsSentToNoClient) {
  server_->serviceIds.EndWaits();
  WaitForChangesToLeave(*server_);
  goOn_.Open();
  while (ChangesUnderWay() != 0) std::this_thread::yield();
  server_->sender.RunRound();
  const auto sent = transport_.sent.Items();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].messages.size(), 1u);
}

TEST_F(RequestsBehindOthers, TheStopLetsAnswersGoThoughTheirMarkersNeverComeBy) {
  sendsMarkers = false;
  Gate called;
  std::thread caller([&] {
    EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
    called.Open();
  });
  while (server_->serviceIds.Filed() == 0) std::this_thread::yield();
  server_->serviceIds.EndWaits();
  EXPECT_TRUE(called.Wait());
  caller.join();
}

TEST_F(RequestsBehindOthers, WithoutASendThreadNoAnswerIsHeldBack) {
  server_->sendsNothing = true;
  EXPECT_EQ(Send(Request(object_)).Result(), ZN_OK);
}

TEST_F(Requests, ManyClientsAtOnceEachSeeTheirChangesBeforeTheirAnswers) {
  constexpr u32 kClients = 8;
  for (u32 id = 1; id <= kClients; ++id) Listen(id);
  script.call = [&](const SlotCall& call) {
    ObjectId made{};
    EXPECT_EQ(ObCreateObject(nullptr, provider_, "KELD_Object", &made), ZN_OK);
    HandleThing<PropertySet>(call.out)->Put("Made", Value::Id(made));
    return ZN_OK;
  };
  ASSERT_TRUE(server_->sender.Start());
  std::atomic<u32> misses = 0;
  std::vector<std::thread> callers;
  for (u32 id = 1; id <= kClients; ++id) {
    callers.emplace_back([&, id] {
      for (int i = 0; i < 25; ++i) {
        const Reply reply = Send(Request(object_), id);
        const GUID made = reply.set.FindValue("Data", ZN_TYPE_PROPSET)
                              ->AsSet()
                              .FindValue("Made", ZN_TYPE_OBJECT_ID)
                              ->AsGuid();
        bool seen = false;
        for (const std::string& topic : SentTopics(id)) {
          seen =
              seen || topic.ends_with(GuidText(made)) || topic == "event.keld.dom.database.change";
        }
        if (!seen) ++misses;
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(misses, 0u);
  EXPECT_LE(server_->serviceIds.Filed(), 6u);
}

// --- Objects -----------------------------------------------------------------------------------

TEST_F(Requests, AnswersACacheRequestWithTheObjects) {
  LogOn();
  const Reply reply = Send(CacheRequestOf("KELD_Object"));
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 6u);
  EXPECT_EQ(reply.set.Count(), 3u);
  const PropertySet& data = reply.set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
  const Value* objects = data.FindValue("Objects", ZN_TYPE_OBJECT | ZN_TYPE_ARRAY);
  ASSERT_NE(objects, nullptr);
  bool found = false;
  for (const Value& object : objects->AsArray()) {
    found = found ||
            SameGuid(object.AsSet().FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid(), object_);
  }
  EXPECT_TRUE(found);
}

TEST_F(Requests, AnswersABadCacheRequestWithAnEmptySet) {
  LogOn();
  PropertySet request = CacheRequestOf("KELD_Unheard");
  const Reply reply = Send(request);
  EXPECT_EQ(reply.Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 6u);
  EXPECT_TRUE(reply.set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet().IsEmpty());
}

}  // namespace

}  // namespace zn::test
