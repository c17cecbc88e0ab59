// Notifications: what the two callbacks make, and who is sent what.
#include "service/common/notify.h"

#include <thread>

#include <gmock/gmock.h>

#include "tests/unit/service/service_fixture.h"
#include "zn/ev.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Notify : public ServiceTest {
 protected:
  [[nodiscard]] static PropertySet Change(u32 flags = EVENT_LOCAL | EVENT_REMOTE,
                                          PropertySet data = {}) {
    PropertySet set;
    set.Put("Message", Value::UInt32(11));
    set.Put("Flags", Value::UInt32(flags));
    set.Put("NotificationId", Value::Text(std::string_view("a.topic")));
    set.Put("Data", Value::Set(std::move(data)));
    return set;
  }
  [[nodiscard]] static PropertySet Marker(u32 serviceId) {
    PropertySet data;
    data.Put("ChangeNotifyServiceId", Value::UInt32(serviceId));
    return Change(kMarkerFlags, std::move(data));
  }
  // Everything that was sent to one client, in order.
  [[nodiscard]] std::vector<std::string> SentTo(u32 connectionId) {
    std::vector<std::string> bytes;
    for (const FakeTransport::Sent& sent : transport_.sent.Items()) {
      if (sent.connectionId != connectionId) continue;
      for (const UclBuffer& message : sent.messages) bytes.push_back(BytesOf(SetIn(message)));
    }
    return bytes;
  }
};

TEST_F(Notify, SendsAChangeAsItIsToEveryListener) {
  Listen(1);
  LogOn(2);
  Connect(3);
  Listen(4);
  server_->sender.ChangeNotify(Change());
  server_->sender.RunRound();
  const std::string bytes = BytesOf(Change());
  EXPECT_THAT(SentTo(1), ElementsAre(bytes));
  EXPECT_THAT(SentTo(2), IsEmpty()) << "state 3: its first cache request is still to come";
  EXPECT_THAT(SentTo(3), IsEmpty()) << "a stranger";
  EXPECT_THAT(SentTo(4), ElementsAre(bytes));
  EXPECT_EQ(server_->sender.UnderWay(), 0u);
}

TEST_F(Notify, SharesOneBufferAmongAllClientsOfARound) {
  Listen(1);
  Listen(2);
  server_->sender.ChangeNotify(Change());
  server_->sender.ChangeNotify(Change(6));
  server_->sender.RunRound();
  const auto sent = transport_.sent.Items();
  ASSERT_EQ(sent.size(), 2u) << "one send for each client";
  EXPECT_EQ(sent[0].messages, sent[1].messages);
  EXPECT_EQ(sent[0].messages.size(), 2u);
}

TEST_F(Notify, KeepsTheOrder) {
  Listen();
  std::vector<std::string> expected;
  for (u32 i = 0; i < 50; ++i) {
    PropertySet data;
    data.Put("Number", Value::UInt32(i));
    expected.push_back(BytesOf(Change(2, data)));
    server_->sender.ChangeNotify(Change(2, data));
    if (i % 7 == 0) server_->sender.RunRound();
  }
  server_->sender.RunRound();
  EXPECT_EQ(SentTo(1), expected);
}

TEST_F(Notify, TheSendThreadHelpsARoundThatIsToComeWhenManyMessagesWait) {
  Listen();
  ASSERT_TRUE(server_->sender.Start());
  for (u32 i = 0; i < 511; ++i) server_->sender.ChangeNotify(Change(), true);
  while (server_->sender.UnderWay() == 511) std::this_thread::yield();
  server_->sender.RunRound();
  EXPECT_EQ(SentTo(1).size(), 511u);
}

TEST_F(Notify, RefusesAChangeWithoutFlags) {
  Listen();
  PropertySet change = Change();
  ASSERT_EQ(change.Delete("Flags"), ZN_OK);
  const TraceCapture trace(6);
  server_->sender.ChangeNotify(change);
  EXPECT_THAT(trace.Messages(), ElementsAre("Flag is not set in change notification"));
  EXPECT_EQ(server_->sender.UnderWay(), 0u);
}

TEST_F(Notify, DropsAChangeWithoutDataWhoseFlagsCouldBeAMarkers) {
  Listen();
  for (const u32 flags : {2u, 4u, 0x10u, 0x16u, 3u, 6u, 7u}) {
    PropertySet change = Change(flags);
    ASSERT_EQ(change.Delete("Data"), ZN_OK);
    server_->sender.ChangeNotify(change);
    EXPECT_EQ(server_->sender.UnderWay(), 0u) << flags;
  }
  for (const u32 flags : {0u, 1u, 8u, 9u}) {
    PropertySet change = Change(flags);
    ASSERT_EQ(change.Delete("Data"), ZN_OK);
    server_->sender.ChangeNotify(change);
    EXPECT_EQ(server_->sender.UnderWay(), 1u) << flags;
    server_->sender.RunRound();
  }
}

TEST_F(Notify, AChangeWithoutTheBitsCarriesNoServiceId) {
  Listen();
  PropertySet data;
  data.Put("ChangeNotifyServiceId", Value::UInt32(4711));
  server_->sender.ChangeNotify(Change(EVENT_LOCAL, data));
  const TraceCapture trace(6);
  server_->sender.RunRound();
  EXPECT_EQ(SentTo(1).size(), 1u);
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(Notify, RaisesAMarkerAndSendsItToNobody) {
  Listen();
  server_->sender.ChangeNotify(Marker(4711));
  const TraceCapture trace(6);
  server_->sender.RunRound();
  EXPECT_THAT(SentTo(1), IsEmpty());
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("RaiseEventOnServiceId : Event not found for             serviceid 4711"));
}

TEST_F(Notify, RaisesMarkersWhenThereIsNoClient) {
  u32 id = 0;
  ASSERT_EQ(server_->serviceIds.Take([](u32, void*) {}, nullptr, &id), ZN_OK);
  server_->sender.ChangeNotify(Marker(id));
  server_->sender.RunRound();
  EXPECT_EQ(server_->serviceIds.WaitOnServiceId(id), ZN_OK);
}

TEST_F(Notify, RaisesAMarkerBehindTheSendOfWhatStoodBeforeIt) {
  Listen();
  u32 id = 0;
  ASSERT_EQ(server_->serviceIds.Take([](u32, void*) {}, nullptr, &id), ZN_OK);
  transport_.onSend = [&] { EXPECT_EQ(server_->serviceIds.Filed(), 1u); };
  server_->sender.ChangeNotify(Change());
  server_->sender.ChangeNotify(Marker(id));
  EXPECT_EQ(server_->sender.UnderWay(), 2u);
  server_->sender.RunRound();
  EXPECT_EQ(SentTo(1).size(), 1u);
  EXPECT_EQ(server_->serviceIds.WaitOnServiceId(id), ZN_OK);
}

TEST_F(Notify, TracesAClientThatCannotBeReachedAndServesTheOthers) {
  Listen(1);
  Listen(2);
  transport_.failing.insert(1);
  server_->sender.ChangeNotify(Change());
  const TraceCapture trace(6);
  server_->sender.RunRound();
  EXPECT_THAT(trace.Messages(), ElementsAre("SendThread: unable to send data to client"));
  EXPECT_EQ(SentTo(2).size(), 1u);
}

TEST_F(Notify, ForgetsAClientThatHasGone) {
  Listen(1);
  Listen(2);
  Disconnect(1);
  server_->sender.ChangeNotify(Change());
  server_->sender.RunRound();
  EXPECT_THAT(SentTo(1), IsEmpty());
  EXPECT_EQ(SentTo(2).size(), 1u);
}

TEST_F(Notify, AClientThatLogsOnAgainHearsNothingUntilItsNextCacheRequest) {
  const ClientPtr client = Listen();
  const std::string challenge(client->challenge.begin(), client->challenge.end());
  EXPECT_EQ(Send(LogonOf(challenge, Anna())).Result(), ZN_OK);
  server_->sender.ChangeNotify(Change());
  server_->sender.RunRound();
  EXPECT_THAT(SentTo(1), IsEmpty());
}

TEST_F(Notify, TracesWhatItSendsWhenItsTraceIsOn) {
  TraceFlagRow table[] = {{u"Dispatch", 0}, {u"Notify", 1}, {u"", 0}};
  server_->traces.Use(table);
  Listen(1);
  Connect(2);
  const TraceCapture trace(1);
  server_->sender.ChangeNotify(Change());
  server_->sender.ChangeNotify(Change());
  server_->sender.RunRound();
  EXPECT_THAT(trace.Messages(), ElementsAre("ChangeNotify: sending notification",
                                            "ChangeNotify: sending notification",
                                            "SendThread sending 2 notifications to 2 clients"));
}

TEST_F(Notify, TracesWhatItSendsAtTheLowestLevelAlone) {
  TraceFlagRow table[] = {{u"Dispatch", 0}, {u"Notify", 1}, {u"", 0}};
  server_->traces.Use(table);
  Listen();
  EventRecord record{};
  record.size = sizeof(EventRecord);
  record.topic = "a.topic";
  const TraceCapture trace(2);
  server_->sender.ChangeNotify(Change());
  EXPECT_TRUE(server_->sender.EventNotify(record));
  server_->sender.RunRound();
  EXPECT_EQ(SentTo(1).size(), 2u);
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(Notify, AnEmptyRoundDoesNothing) {
  Listen();
  server_->sender.RunRound();
  EXPECT_THAT(transport_.sent.Items(), IsEmpty());
}

TEST_F(Notify, TheStopSendsWhatIsQueued) {
  Listen();
  ASSERT_TRUE(server_->sender.Start());
  server_->sender.ChangeNotify(Change());
  server_->sender.Stop();
  EXPECT_EQ(SentTo(1).size(), 1u);
  server_->sender.ChangeNotify(Change());
  EXPECT_EQ(SentTo(1).size(), 1u) << "what comes later is not sent";
}

// --- Events ------------------------------------------------------------------------------------

TEST_F(Notify, SendsAnEventWithItsProviderAndData) {
  Listen();
  const ZnHandle provider = MakeProvider();
  const Propset data;
  data.Set().Put("Number", Value::UInt32(5));
  ASSERT_TRUE(server_->sender.Start());
  ASSERT_EQ(EvRaiseEvent(nullptr, provider, "event.test.raised", data.Get()), ZN_OK);
  const auto sent = transport_.sent.WaitFor(1);
  const PropertySet set = SetIn(sent[0].messages[0]);
  EXPECT_EQ(NumberOf(set, "Message"), 12u);
  EXPECT_EQ(NumberOf(set, "Flags"), EVENT_LOCAL | EVENT_REMOTE | EVENT_OWNS_DATA);
  EXPECT_EQ(set.FindValue("NotificationId", ZN_TYPE_STRING)->AsText(), "event.test.raised");
  EXPECT_TRUE(SameGuid(set.FindValue("ProviderId", ZN_TYPE_OBJECT_ID)->AsGuid(), IdOf(provider)));
  EXPECT_EQ(NumberOf(set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet(), "Number"), 5u);
  EXPECT_EQ(set.Count(), 5u);
}

TEST_F(Notify, SendsNoLocalEvent) {
  Listen();
  const ZnHandle provider = MakeProvider();
  const Propset data;
  ASSERT_TRUE(server_->sender.Start());
  {
    const BusLock lock;
    ASSERT_EQ(RaiseEvent(*database_, provider, "event.test.local", {}, kRaiseLocalFlags), ZN_OK);
  }
  ASSERT_EQ(EvRaiseEvent(nullptr, provider, "event.test.raised", data.Get()), ZN_OK);
  const auto sent = transport_.sent.WaitFor(1);
  EXPECT_EQ(SetIn(sent[0].messages[0]).FindValue("NotificationId", ZN_TYPE_STRING)->AsText(),
            "event.test.raised");
}

TEST_F(Notify, RefusesAnEventRecordThatIsTooSmall) {
  EventRecord record{};
  record.size = sizeof(EventRecord) - 1;
  record.topic = "a.topic";
  EXPECT_FALSE(server_->sender.EventNotify(record));
  EXPECT_EQ(server_->sender.UnderWay(), 0u);
}

TEST_F(Notify, SendsAnEmptySetForAnEventThatOwnsNoData) {
  Listen();
  EventRecord record{};
  record.size = sizeof(EventRecord);
  record.flags = EVENT_REMOTE;
  record.topic = "a.topic";
  const Propset data;
  data.Set().Put("Number", Value::UInt32(5));
  record.data = data.Get();
  EXPECT_TRUE(server_->sender.EventNotify(record));
  server_->sender.RunRound();
  const PropertySet set = SetIn(transport_.sent.Items()[0].messages[0]);
  EXPECT_TRUE(set.FindValue("Data", ZN_TYPE_PROPSET)->AsSet().IsEmpty());
  EXPECT_TRUE(IsZeroGuid(set.FindValue("ProviderId", ZN_TYPE_OBJECT_ID)->AsGuid()));
}

TEST_F(Notify, TracesAnEventWhenItsTraceIsOn) {
  TraceFlagRow table[] = {{u"Dispatch", 0}, {u"Notify", 1}, {u"", 0}};
  server_->traces.Use(table);
  EventRecord record{};
  record.size = sizeof(EventRecord);
  record.topic = "a.topic";
  const TraceCapture trace(1);
  EXPECT_TRUE(server_->sender.EventNotify(record));
  EXPECT_THAT(trace.Messages(), ElementsAre("EventNotify: sending event"));
}

}  // namespace

}  // namespace zn::test
