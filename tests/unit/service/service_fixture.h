// What the tests of the service share: a server without a network (the transport writes down what
// it is asked for), with a host whose users are the test's, over a system database whose changes
// and events go to it; and a client that speaks in property sets.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znwire/messages.h"
#include "service/common/server.h"
#include "support/common/text.h"
#include "tests/unit/framework/bus_fixture.h"
#include "tests/unit/framework/event_fixture.h"
#include "tests/unit/framework/fixture.h"
#include "tests/unit/framework/sets.h"
#include "tests/unit/service/messages.h"
#include "ucl/common/credentials.h"
#include "ucl/common/round.h"
#include "zn/memory.h"

namespace zn::test {

inline constexpr u32 kPeer = 0x0100007F;  // 127.0.0.1 as it stands in memory

class FakeTransport final : public Transport {
 public:
  void Disconnect(u32 address, u32 connectionId) override {
    disconnected.Add({address, connectionId});
  }
  void MarkLoggedOn(u32, u32 connectionId) override { loggedOn.Add(connectionId); }
  void SendRound(const std::vector<UclBuffer>& messages, std::vector<UclTarget>* targets) override {
    if (onSend) onSend();
    for (UclTarget& target : *targets) {
      target.status = failing.contains(target.connectionId) ? UCLE_SOCKET_ERROR : ZN_OK;
      sent.Add({target.connectionId, messages});
    }
  }

  struct Sent {
    u32 connectionId;
    std::vector<UclBuffer> messages;
  };
  Collected<std::pair<u32, u32>> disconnected;
  Collected<u32> loggedOn;
  Collected<Sent> sent;
  std::set<u32> failing;         // set before anything is sent
  std::function<void()> onSend;  // the same
};

class FakeHost final : public LogonHost {
 public:
  [[nodiscard]] bool LogOn(const LogonAttempt& attempt) override {
    if (onLogOn) onLogOn(attempt);
    const auto found = passwords.find(attempt.user);
    return found != passwords.end() && found->second == attempt.password;
  }
  [[nodiscard]] bool IsMember(GroupKind kind, std::u16string_view domain, std::u16string_view user,
                              std::u16string_view group) override {
    asked.push_back({kind, std::u16string(domain), std::u16string(user), std::u16string(group)});
    return members.contains({kind, std::u16string(user), std::u16string(group)});
  }
  [[nodiscard]] bool MayLoadDrivers(std::u16string_view, std::u16string_view user) override {
    return drivers.contains(std::u16string(user));
  }
  void EndDelays() override {}

  struct Question {
    GroupKind kind;
    std::u16string domain;
    std::u16string user;
    std::u16string group;
  };
  std::map<std::u16string, std::u16string> passwords;
  std::set<std::tuple<GroupKind, std::u16string, std::u16string>> members;
  std::set<std::u16string> drivers;
  std::vector<Question> asked;
  std::function<void(const LogonAttempt&)> onLogOn;
};

[[nodiscard]] inline PropertySet SetIn(const UclBuffer& message) {
  return SetOf({static_cast<const char*>(message->Data()), message->Length()});
}

// What came back for one buffer.
struct Reply {
  u32 status = 0;
  bool hasAnswer = false;
  std::string bytes;
  PropertySet set;

  [[nodiscard]] u32 Result() const { return NumberOf(set, "Result"); }
  [[nodiscard]] bool Has(std::string_view name) const { return set.Find(name) != nullptr; }
};

class ServiceTest : public BusTest {
 protected:
  void SetUp() override {
    server_ = std::make_unique<ServerObject>(transport_, host_);
    current = server_.get();
    sendsMarkers = true;
    onChange = nullptr;
    ASSERT_NO_FATAL_FAILURE(BusTest::SetUp());
    SetClientsPresentTest([] { return current->connectedClients.Count() != 0; });
    server_->isReady = true;
    server_->allLoaded.Open();
    host_.passwords[u"anna"] = u"secret";
    host_.drivers.insert(u"anna");
  }
  void TearDown() override {
    server_->serviceIds.EndWaits();
    server_->slots.EndWaits();
    server_->sender.Stop();
    BusTest::TearDown();
    SetClientsPresentTest(nullptr);
    server_.reset();
  }
  [[nodiscard]] DatabaseCallbacks SystemCallbacks() const override {
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle change) {
      if (onChange) onChange();
      const bool isMarker = current->sender.ChangeNotify(*HandleThing<PropertySet>(change));
      if (isMarker && sendsMarkers) current->sender.RunRound();
    };
    callbacks.eventCallback = [](const EventRecord* event, u32) {
      return current->sender.EventNotify(*event);
    };
    return callbacks;
  }

  ClientPtr Connect(u32 connectionId = 1) {
    EXPECT_EQ(ClientConnected(*server_, "127.0.0.1", "127.0.0.1", kPeer, connectionId), ZN_OK);
    return server_->clients.Find(kPeer, connectionId);
  }
  void Disconnect(u32 connectionId = 1) { ClientDisconnected(*server_, kPeer, connectionId); }

  Reply SendBytes(std::string_view bytes, u32 connectionId = 1) {
    Reply reply;
    u32 length = 0;
    void* block = nullptr;
    reply.status = ZnSendReceive(*server_, static_cast<u32>(bytes.size()), bytes.data(), &length,
                                 &block, kPeer, connectionId);
    reply.hasAnswer = block != nullptr;
    if (block == nullptr) return reply;
    reply.bytes.assign(static_cast<const char*>(block), length);
    ZnFree(block);
    reply.set = SetOf(reply.bytes);
    EXPECT_EQ(BytesOf(reply.set), reply.bytes) << "an answer is a marshalled set and nothing else";
    return reply;
  }
  Reply Send(const PropertySet& set, u32 connectionId = 1) {
    return SendBytes(BytesOf(set), connectionId);
  }

  // --- Messages --------------------------------------------------------------------------------

  [[nodiscard]] static Credentials Anna() { return {u"anna", u"secret", u"", u""}; }
  [[nodiscard]] static PropertySet Request(const ObjectId& object, u32 minor = 0,
                                           PropertySet data = {}, u32 flags = 0) {
    return CallOf(object, kTestInterface, 0, minor, std::move(data), flags);
  }

  // The challenge that the client was given; the offer comes first.
  std::string Challenge(u32 connectionId = 1) {
    EXPECT_EQ(Send(OfferOf(), connectionId).Result(), ZN_OK);
    const Reply reply = Send(ChallengeRequestOf(), connectionId);
    EXPECT_EQ(reply.Result(), ZN_OK);
    const Value* data = reply.set.FindValue("Data", ZN_TYPE_BINARY);
    return data == nullptr ? std::string() : std::string(data->AsBinary());
  }
  // Connects and logs on: state 3.
  ClientPtr LogOn(u32 connectionId = 1) {
    ClientPtr client = Connect(connectionId);
    const std::string challenge = Challenge(connectionId);
    EXPECT_EQ(Send(LogonOf(challenge, Anna()), connectionId).Result(), ZN_OK);
    return client;
  }
  // The same, with the first cache request: state 1.
  ClientPtr Listen(u32 connectionId = 1) {
    ClientPtr client = LogOn(connectionId);
    EXPECT_EQ(Send(CacheRequestOf(), connectionId).Result(), ZN_OK);
    return client;
  }

  // An object that the scripted provider serves.
  ObjectId ServedObject(ZnHandle provider) {
    const ObjectId object = MakeObject(provider);
    EXPECT_EQ(ObRegisterInterface(nullptr, object, provider, &kTestInterface), ZN_OK);
    return object;
  }

  static inline ServerObject* current = nullptr;
  static inline bool sendsMarkers = true;        // set while no change is on its way
  static inline std::function<void()> onChange;  // runs before a change is taken; set as the former

  FakeTransport transport_;
  FakeHost host_;
  std::unique_ptr<ServerObject> server_;
};

}  // namespace zn::test
