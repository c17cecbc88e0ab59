// The event threads: who gets an event, in which order, and how they start, stop and drain.
#include "framework/common/znevent/eventqueue.h"

#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "tests/unit/framework/event_fixture.h"
#include "tests/unit/framework/trace_capture.h"

namespace zn::test {

namespace {

using EventQueueThreads = EventTest;

TEST_F(EventQueueThreads, DeliversARaisedEventToItsProviderAndTheCallback) {
  Register(first_, "a");
  ASSERT_EQ(Raise("a.b", 5), ZN_OK);
  const Heard event = heard.WaitFor(1)[0];
  EXPECT_EQ(event.topic, "a.b");
  EXPECT_EQ(event.size, sizeof(EventRecord));
  EXPECT_EQ(event.flags, 0x10003u);
  EXPECT_EQ(event.provider, first_->Handle());
  EXPECT_EQ(event.database, database_->Handle()) << "a null handle means the system database";
  EXPECT_EQ(event.data.FindValue("Number", ZN_TYPE_UINT32)->AsUInt32(), 5u);
  EXPECT_FALSE(event.busLocked);
  const Heard forClients = raised.WaitFor(1)[0];
  EXPECT_EQ(forClients.topic, "a.b");
  EXPECT_EQ(forClients.who, static_cast<int>(kParameter));
  EXPECT_FALSE(forClients.busLocked);
}

TEST_F(EventQueueThreads, KeepsTheOrderOfRaising) {
  Register(first_, "*");
  std::vector<std::string> topics;
  for (int i = 0; i < 500; ++i) {
    topics.push_back("t." + std::to_string(i));
    ASSERT_EQ(Raise(topics.back().c_str()), ZN_OK);
  }
  EXPECT_EQ(Topics(heard.WaitFor(500)), topics);
  EXPECT_EQ(Topics(raised.WaitFor(500)), topics);
}

TEST_F(EventQueueThreads, CallsAProviderOncePerEvent) {
  for (const char* pattern : {"*", "a", "a.*.c", "a.b.c"}) Register(first_, pattern);
  ASSERT_EQ(Raise("a.b.c"), ZN_OK);
  Flush();
  size_t calls = 0;
  for (const Heard& event : heard.Items()) calls += event.topic == "a.b.c" ? 1u : 0u;
  EXPECT_EQ(calls, 1u);
}

TEST_F(EventQueueThreads, AnEventRaisedInASlotComesAfterAllReceiversOfTheCurrentOne) {
  Register(first_, "a");
  Register(AddProvider<2>(u"second"), "a");
  bool isRaised = false;
  onEvent = [&](int, const EventRecord&) {
    if (std::exchange(isRaised, true)) return;
    EXPECT_EQ(Raise("a.inner"), ZN_OK);
  };
  ASSERT_EQ(Raise("a.outer"), ZN_OK);
  EXPECT_EQ(Topics(heard.WaitFor(4)),
            (std::vector<std::string>{"a.outer", "a.outer", "a.inner", "a.inner"}));
}

TEST_F(EventQueueThreads, ALocalRaiseReachesNoClient) {
  Register(first_, "a");
  {
    const BusLock lock;
    ASSERT_EQ(RaiseEvent(*database_, first_->Handle(), "a.local", PropertySet(), kRaiseLocalFlags),
              ZN_OK);
  }
  EXPECT_EQ(heard.WaitFor(1)[0].flags, 0x10001u);
  ASSERT_EQ(Raise("a.both"), ZN_OK);
  EXPECT_EQ(Topics(heard.WaitFor(2)), (std::vector<std::string>{"a.local", "a.both"}));
  EXPECT_EQ(Topics(raised.WaitFor(1)), std::vector<std::string>{"a.both"});
}

TEST_F(EventQueueThreads, RaisingChecksProviderAndTopic) {
  const BusLock lock;
  const PropertySet none;
  EXPECT_EQ(RaiseEvent(*database_, database_->Handle(), "a", none, kRaiseFlags), ZNE_UNEXPECTED);
  EXPECT_EQ(RaiseEvent(*database_, first_->Handle(), "a.*", none, kRaiseFlags),
            ZNE_EVENT_STRING_INVALID);
  EXPECT_EQ(RaiseEvent(*database_, first_->Handle(), "a b", none, kRaiseFlags),
            ZNE_EVENT_STRING_INVALID);
  EXPECT_EQ(RaiseEvent(*database_, nullptr, "a", none, kRaiseFlags), ZN_OK);
}

TEST_F(EventQueueThreads, AReceiverMayDestroyTheSetOfTheRecord) {
  Register(first_, "a");
  onEvent = [](int, const EventRecord& event) {
    if (std::string_view(event.topic) != "a.1") return;
    EXPECT_TRUE(DestroyPropertySet(event.data));
    throw std::runtime_error("nothing to write down");
  };
  ASSERT_EQ(Raise("a.1"), ZN_OK);
  ASSERT_EQ(Raise("a.2"), ZN_OK);
  EXPECT_EQ(heard.WaitFor(1)[0].topic, "a.2");
}

TEST_F(EventQueueThreads, WhatReceiversThrowEndsNothing) {
  ZnHandle wait = nullptr;
  ASSERT_EQ(EvCreateWaitEvent(
                nullptr, [](const EventRecord*, void*) -> bool { throw 1; }, nullptr, &wait),
            ZN_OK);
  Register(first_, "a");
  Register(AddProvider<2>(u"second"), "a");
  onEvent = [](int, const EventRecord& event) {
    if (std::string_view(event.topic) == "a.1") throw std::runtime_error("no");
  };
  ASSERT_EQ(Raise("a.1"), ZN_OK);
  ASSERT_EQ(Raise("a.2"), ZN_OK);
  EXPECT_EQ(Topics(heard.WaitFor(2)), (std::vector<std::string>{"a.2", "a.2"}));
  EXPECT_EQ(Topics(raised.WaitFor(2)), (std::vector<std::string>{"a.1", "a.2"}));
}

TEST_F(EventQueueThreads, AProviderWithoutAnEventSlotIsPassedOver) {
  {
    const BusLock lock;
    auto silent =
        std::make_unique<Provider>(database_.get(), database_->Types().FindType("KELD_Provider"),
                                   u"silent", ProviderCallbacks{}, nullptr, false);
    Register(silent.get(), "a");
    database_->AddProvider(std::move(silent));
  }
  Register(first_, "a");
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(heard.WaitFor(1)[0].who, 1);
}

TEST_F(EventQueueThreads, AProviderThatGoesMeanwhileIsNotCalled) {
  Provider* second = AddProvider<2>(u"second");
  Register(first_, "a");
  Register(second, "a");
  int firstCalled = 0;
  onEvent = [&](int who, const EventRecord& event) {
    if (firstCalled != 0 || std::string_view(event.topic) != "a") return;
    firstCalled = who;
    const BusLock lock;
    static_cast<void>(database_->TakeProvider(who == 1 ? second : first_));
  };
  ASSERT_EQ(Raise("a"), ZN_OK);
  const int who = heard.WaitFor(1)[0].who;
  // Whoever is left hears what comes next, and nobody heard the first event twice.
  if (who != 1) first_ = second;
  ASSERT_EQ(Raise("a.end"), ZN_OK);
  const std::vector<Heard> events = heard.WaitFor(2);
  EXPECT_EQ(Topics(events), (std::vector<std::string>{"a", "a.end"}));
  EXPECT_EQ(events[1].who, who);
}

TEST_F(EventQueueThreads, TheOtherReceiversHearTheEventThen) {
  Provider* second = AddProvider<2>(u"second");
  Provider* bystander = AddProvider<3>(u"bystander");
  Register(first_, "a");
  Register(second, "a");
  bool isTaken = false;
  onEvent = [&](int, const EventRecord&) {
    if (std::exchange(isTaken, true)) return;
    const BusLock lock;
    static_cast<void>(database_->TakeProvider(bystander));
  };
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(heard.WaitFor(2).size(), 2u);
}

TEST_F(EventQueueThreads, AChangeIsALongRecordWithTheLocalFlagAlone) {
  Register(first_, "event");
  {
    const BusLock lock;
    auto data = std::make_unique<PropertySet>();
    data->Put("Name", Value::Text("x"));
    SendLocalNotificationEvent(*database_, "event.1", InternedId(GUID{1, 2, 3, {4}}), String("Typ"),
                               false, std::move(data));
    SendLocalNotificationEvent(*database_, "event.2", InternedId(), String(), false, nullptr);
    SendLocalNotificationEvent(*database_, "event.3", InternedId(GUID{1, 2, 3, {4}}), String("Typ"),
                               true, nullptr);
  }
  const std::vector<Heard> events = heard.WaitFor(3);
  EXPECT_EQ(events[0].size, sizeof(LocalEventRecord) + 1 + 3);
  EXPECT_EQ(events[0].flags, 0x9u);
  EXPECT_EQ(events[0].provider, nullptr);
  EXPECT_EQ(events[0].database, database_->Handle());
  EXPECT_TRUE(SameGuid(events[0].objectId, GUID{1, 2, 3, {4}}));
  EXPECT_EQ(events[0].typeName, "Typ");
  EXPECT_TRUE(events[0].typeNameIsBehindRecord);
  EXPECT_EQ(events[0].data.FindValue("Name", ZN_TYPE_STRING)->AsText(), "x");

  EXPECT_EQ(events[1].size, sizeof(LocalEventRecord) + 1);
  EXPECT_EQ(events[1].flags, 0x1u);
  EXPECT_TRUE(IsZeroGuid(events[1].objectId));
  EXPECT_EQ(events[1].typeName, "");
  EXPECT_TRUE(events[1].typeNameIsBehindRecord);
  EXPECT_FALSE(events[1].hasData);

  EXPECT_EQ(events[2].size, sizeof(LocalEventRecord));
  EXPECT_EQ(events[2].flags, 0x1u);
  EXPECT_TRUE(IsZeroGuid(events[2].objectId));
  EXPECT_FALSE(events[2].typeNameIsBehindRecord);
}

TEST_F(EventQueueThreads, AChangeNeverReachesTheEventCallback) {
  {
    const BusLock lock;
    SendLocalNotificationEvent(*database_, "event.1", InternedId(), String(), false, nullptr);
  }
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(raised.WaitFor(1)[0].topic, "a");
}

TEST_F(EventQueueThreads, AChangeWithOddCharactersIsLost) {
  Register(first_, "*");
  {
    const BusLock lock;
    SendLocalNotificationEvent(*database_, "event.a b", InternedId(), String(), false, nullptr);
    SendLocalNotificationEvent(*database_, "event.good", InternedId(), String(), false, nullptr);
  }
  EXPECT_EQ(heard.WaitFor(1)[0].topic, "event.good");
}

TEST_F(EventQueueThreads, AChangeThatIsTooLargeIsTraced) {
  const TraceCapture trace(6);
  {
    const BusLock lock;
    const char text[] = "a";
    SendLocalNotificationEvent(*database_, std::string_view(text, size_t{1} << 40), InternedId(),
                               String(), false, nullptr);
  }
  EXPECT_TRUE(trace.Has("Memory allocation failure in SendLocalNotificationEvent()"));
}

TEST_F(EventQueueThreads, ChangesReachTheChangeCallbackInOrder) {
  {
    const BusLock lock;
    for (u32 i = 0; i < 300; ++i) {
      PropertySet change;
      change.Put("Number", Value::UInt32(i));
      QueueChange(*database_, std::move(change));
    }
  }
  const std::vector<PropertySet> changes = told.WaitFor(300);
  for (u32 i = 0; i < 300; ++i) {
    EXPECT_EQ(changes[i].FindValue("Number", ZN_TYPE_UINT32)->AsUInt32(), i);
  }
}

TEST_F(EventQueueThreads, AChangeIsUnderWayUntilItsCallbackHasReturned) {
  static Gate entered;
  static Gate goOn;
  DatabaseCallbacks callbacks;
  callbacks.changeCallback = [](ZnHandle) {
    entered.Open();
    EXPECT_TRUE(goOn.Wait());
  };
  std::unique_ptr<Database> held;
  {
    const BusLock lock;
    EXPECT_EQ(ChangesUnderWay(), 0u);
    held = std::make_unique<Database>(0, callbacks);
    QueueChange(*held, PropertySet());
    QueueChange(*database_, PropertySet());
    EXPECT_EQ(ChangesUnderWay(), 2u);
  }
  ASSERT_TRUE(entered.Wait());
  EXPECT_EQ(ChangesUnderWay(), 2u);
  goOn.Open();
  static_cast<void>(told.WaitFor(1));
  while (ChangesUnderWay() != 0) std::this_thread::yield();
  const BusLock lock;
  held.reset();
}

TEST_F(EventQueueThreads, AStopForgetsTheChangesThatItDrops) {
  {
    const BusLock lock;
    StopEventThreads();
    QueueChange(*database_, PropertySet());
  }
  EXPECT_EQ(ChangesUnderWay(), 0u);
}

TEST_F(EventQueueThreads, AChangeOutlivesItsDatabase) {
  {
    const BusLock lock;
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle change) { told.Add(*HandleThing<PropertySet>(change)); };
    Database passing(0, callbacks);
    QueueChange(passing, PropertySet());
  }
  EXPECT_EQ(told.WaitFor(1).size(), 1u);
}

TEST_F(EventQueueThreads, AChangeCallbackMayThrowAndDestroyTheSet) {
  const BusLock lock;
  DatabaseCallbacks callbacks;
  callbacks.changeCallback = [](ZnHandle change) {
    EXPECT_FALSE(fastLock.HeldByThisThread());
    told.Add(*HandleThing<PropertySet>(change));
    EXPECT_TRUE(DestroyPropertySet(change));
    throw 1;
  };
  Database other(0, callbacks);
  QueueChange(other, PropertySet());
  QueueChange(other, PropertySet());
  const BusRelease release;
  EXPECT_EQ(told.WaitFor(2).size(), 2u);
}

TEST_F(EventQueueThreads, ADatabaseWithoutChangeCallbackTellsNothing) {
  const BusLock lock;
  Database silent(0, {});
  QueueChange(silent, PropertySet());
  QueueChange(*database_, PropertySet());
  const BusRelease release;
  EXPECT_EQ(told.WaitFor(1).size(), 1u);
}

TEST_F(EventQueueThreads, ADatabaseThatGoesTakesItsEventsAlong) {
  Gate inside;
  Gate leave;
  Gate closing;
  Register(first_, "a");
  onEvent = [&](int, const EventRecord& event) {
    if (std::string_view(event.topic) != "a.block") return;
    inside.Open();
    EXPECT_TRUE(leave.Wait());
  };
  std::unique_ptr<Database> passing;
  {
    const BusLock lock;
    passing = std::make_unique<Database>(0, DatabaseCallbacks{});
    ZnHandle registration = nullptr;
    ASSERT_EQ(passing->Events().Add(*first_, "*", &registration), ZN_OK);
  }
  ASSERT_EQ(Raise("a.block"), ZN_OK);
  ASSERT_TRUE(inside.Wait());
  ASSERT_EQ(Raise("withdrawn", 0, passing->Handle()), ZN_OK);
  Collected<std::string> steps;
  std::thread closer([&] {
    const BusLock lock;
    closing.Open();
    passing.reset();
    steps.Add("closed");
  });
  // The closer has the lock and gives it back while it waits for the batch.
  ASSERT_TRUE(closing.Wait());
  { const BusLock lock; }
  steps.Add("released");
  leave.Open();
  closer.join();
  EXPECT_EQ(steps.Items(), (std::vector<std::string>{"released", "closed"}));
  ASSERT_EQ(Raise("a.end"), ZN_OK);
  EXPECT_EQ(Topics(heard.WaitFor(2)), (std::vector<std::string>{"a.block", "a.end"}));
}

TEST_F(EventQueueThreads, AReceiverMayCloseTheDatabaseOfTheBatch) {
  std::unique_ptr<Database> passing;
  {
    const BusLock lock;
    DatabaseCallbacks callbacks;
    callbacks.eventCallback = [](const EventRecord*, u32) {
      ADD_FAILURE() << "the database of the event has gone";
      return true;
    };
    passing = std::make_unique<Database>(0, callbacks);
    ZnHandle registration = nullptr;
    for (Provider* provider : {first_, AddProvider<2>(u"second")}) {
      ASSERT_EQ(passing->Events().Add(*provider, "*", &registration), ZN_OK);
    }
  }
  Register(first_, "end");
  onEvent = [&](int, const EventRecord&) {
    const BusLock lock;
    passing.reset();
  };
  {
    const BusLock lock;  // so that both are in one batch
    ASSERT_EQ(Raise("p.1", 0, passing->Handle()), ZN_OK);
    ASSERT_EQ(Raise("p.2", 0, passing->Handle()), ZN_OK);
    ASSERT_EQ(Raise("end"), ZN_OK);
  }
  EXPECT_EQ(Topics(heard.WaitFor(2)), (std::vector<std::string>{"p.1", "end"}));
}

TEST_F(EventQueueThreads, AnIdleQueueIsDrainedAtOnce) {
  const BusLock lock;
  { Database passing(0, {}); }
  { Database passing(0, {}); }
  EXPECT_EQ(fastLock.HoldCount(), 1u);
}

TEST_F(EventQueueThreads, AStopWaitsForTheCallbackThatRuns) {
  Gate inside;
  Gate leave;
  Register(first_, "a");
  Collected<std::string> steps;
  onEvent = [&](int, const EventRecord&) {
    inside.Open();
    EXPECT_TRUE(leave.Wait());
    steps.Add("left");
  };
  ASSERT_EQ(Raise("a"), ZN_OK);
  ASSERT_TRUE(inside.Wait());
  std::thread stopper([&] {
    const BusLock lock;  // which the stop releases
    StopEventThreads();
    EXPECT_EQ(fastLock.HoldCount(), 1u);
    steps.Add("stopped");
  });
  leave.Open();
  stopper.join();
  EXPECT_EQ(steps.Items(), (std::vector<std::string>{"left", "stopped"}));
  EXPECT_FALSE(EventThreadsRunning());
}

TEST_F(EventQueueThreads, AnEventRaisedDuringTheStopIsNeverDelivered) {
  Register(first_, "a");
  Gate done;
  onEvent = [&](int, const EventRecord&) {
    StopEventThreads();  // on the raise thread it only tells the threads to end
    EXPECT_TRUE(EventThreadsRunning());
    EXPECT_EQ(Raise("a.late"), ZN_OK);
    done.Open();
  };
  ASSERT_EQ(Raise("a"), ZN_OK);
  ASSERT_TRUE(done.Wait());
  StopEventThreads();
  EXPECT_EQ(Topics(heard.Items()), std::vector<std::string>{"a"});
}

TEST_F(EventQueueThreads, WhatIsQueuedAtTheStopIsNotDeliveredLater) {
  Register(first_, "a");
  onEvent = [&](int, const EventRecord&) {
    StopEventThreads();
    EXPECT_EQ(Raise("a.late"), ZN_OK);
  };
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(heard.WaitFor(1).size(), 1u);
  ASSERT_TRUE(StartEventThreads(9)) << "it completes the stop first";
  onEvent = nullptr;
  ASSERT_EQ(Raise("a.new"), ZN_OK);
  EXPECT_EQ(Topics(heard.WaitFor(2)), (std::vector<std::string>{"a", "a.new"}));
  EXPECT_EQ(raised.WaitFor(2)[1].who, 9) << "the parameter of the second start";
}

TEST_F(EventQueueThreads, AWaitForDeliveryEndsWhenAllReceiversAreDone) {
  Register(first_, "a");
  EXPECT_TRUE(WaitForDelivery(0)) << "nothing is queued";
  for (int i = 0; i < 100; ++i) ASSERT_EQ(Raise("a.b"), ZN_OK);
  {
    const BusLock lock;  // released while it waits
    ASSERT_TRUE(WaitForDelivery(60000));
  }
  EXPECT_EQ(heard.Items().size(), 100u);
  EXPECT_EQ(raised.Items().size(), 100u);
}

TEST_F(EventQueueThreads, AWaitForDeliveryIsBounded) {
  Register(first_, "a");
  Gate entered;
  Gate goOn;
  onEvent = [&](int, const EventRecord&) {
    EXPECT_TRUE(WaitForDelivery(60000)) << "on the raise thread it would wait for itself";
    entered.Open();
    EXPECT_TRUE(goOn.Wait());
  };
  ASSERT_EQ(Raise("a.b"), ZN_OK);
  ASSERT_TRUE(entered.Wait());
  EXPECT_FALSE(WaitForDelivery(1));
  goOn.Open();
  EXPECT_TRUE(WaitForDelivery(60000));
}

TEST_F(EventQueueThreads, WithoutThreadsThereIsNoDeliveryToWaitFor) {
  StopEventThreads();
  EXPECT_TRUE(WaitForDelivery(60000));
}

TEST_F(EventQueueThreads, AStartOnARunningThreadIsIgnored) {
  ASSERT_TRUE(StartEventThreads(99));
  ASSERT_EQ(Raise("a"), ZN_OK);
  EXPECT_EQ(raised.WaitFor(1)[0].who, static_cast<int>(kParameter));
}

TEST_F(EventQueueThreads, WithoutThreadsRaisingAnswersAWarning) {
  StopEventThreads();
  StopEventThreads();
  EXPECT_EQ(Raise("a"), ZNW_SERVICE_UNAVAILABLE);
  EXPECT_FALSE(ZN_FAILED(Raise("a")));
  {
    const BusLock lock;
    EXPECT_EQ(RaiseEvent(*database_, database_->Handle(), "*", PropertySet(), kRaiseFlags),
              ZNW_SERVICE_UNAVAILABLE)
        << "asked before the provider and the topic";
    SendLocalNotificationEvent(*database_, "a", InternedId(), String(), false, nullptr);
    QueueChange(*database_, PropertySet());
    Database passing(0, {});  // nothing to drain
  }
  ASSERT_TRUE(StartEventThreads(kParameter));
  ASSERT_EQ(Raise("b"), ZN_OK);
  EXPECT_EQ(Topics(raised.WaitFor(1)), std::vector<std::string>{"b"});
}

TEST_F(EventQueueThreads, TwoStopsAtOnceBothReturnAfterTheEnd) {
  for (int round = 0; round < 20; ++round) {
    std::thread other([] {
      StopEventThreads();
      EXPECT_FALSE(EventThreadsRunning());
    });
    StopEventThreads();
    EXPECT_FALSE(EventThreadsRunning());
    other.join();
    ASSERT_TRUE(StartEventThreads(kParameter));
  }
}

TEST_F(EventQueueThreads, ManyThreadsRaiseWhileDatabasesComeAndGo) {
  constexpr int kThreads = 4;
  constexpr int kEvents = 300;
  Register(first_, "a");
  std::vector<std::thread> raisers;
  for (int t = 0; t < kThreads; ++t) {
    raisers.emplace_back([this] {
      for (int i = 0; i < kEvents; ++i) {
        ASSERT_EQ(Raise("a.b"), ZN_OK);
        ASSERT_EQ(Raise("other"), ZN_OK);
      }
    });
  }
  for (int i = 0; i < 100; ++i) {
    const BusLock lock;
    Database passing(0, {});
    ZnHandle registration = nullptr;
    ASSERT_EQ(passing.Events().Add(*first_, "x", &registration), ZN_OK);
    ASSERT_EQ(Raise("x", 0, passing.Handle()), ZN_OK);
  }
  for (std::thread& raiser : raisers) raiser.join();
  Flush();
  size_t count = 0;
  for (const Heard& event : heard.Items()) count += event.topic == "a.b" ? 1u : 0u;
  EXPECT_EQ(count, static_cast<size_t>(kThreads * kEvents));
}

}  // namespace

}  // namespace zn::test
