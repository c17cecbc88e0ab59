// Sessions with the real service: logons, calls, changes, datagrams, files, the stop.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include <gmock/gmock.h>

#include "framework/common/znguid/znguid.h"
#include "support/common/shared_memory.h"
#include "support/common/text.h"
#include "tests/integration/service/raw_client.h"
#include "tests/integration/service/service_process.h"
#include "zn/platform.h"

namespace zn::test {

namespace {

using testing::HasSubstr;
using testing::SizeIs;

class SessionProcess : public testing::Test {
 protected:
  [[nodiscard]] static std::vector<ObjectId> Lamps(RawClient& client) {
    std::vector<ObjectId> ids;
    const PropertySet set = client.Objects("EXAMPLE_Lamp");
    const Value* objects = set.FindValue("Objects", ZN_TYPE_OBJECT | ZN_TYPE_ARRAY);
    EXPECT_NE(objects, nullptr);
    if (objects == nullptr) return ids;
    for (const Value& object : objects->AsArray()) {
      ids.push_back(object.AsSet().FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid());
    }
    return ids;
  }
};

TEST_F(SessionProcess, LogsOnByPam) {
  ServiceProcess service("[Security]\nAccessUsers = 'anna'\n");
  service.MustStart();
  struct Row {
    const char* why;
    const char16_t* user;
    const char16_t* password;
    const char16_t* domain;
    u32 result;
  };
  const std::u16string host = ToWide([] {
    char name[256] = "";
    EXPECT_EQ(gethostname(name, sizeof name - 1), 0);
    return std::string(name);
  }());
  const Row rows[] = {
      {"on the list", u"anna", u"secret", u"", ZN_OK},
      {"a wrong password", u"anna", u"guess", u"", ZNE_ACCESS_DENIED},
      {"an empty password", u"anna", u"", u"", ZNE_ACCESS_DENIED},
      {"an unknown user", u"nobody-here", u"secret", u"", ZNE_ACCESS_DENIED},
      {"no name", u"", u"secret", u"", ZNE_ACCESS_DENIED},
      {"the superuser, who is on no list", u"root", u"toor", u"", ZN_OK},
      {"the superuser of this machine by name", u"root", u"toor", host.c_str(), ZN_OK},
      {"the superuser of this machine", u"root", u"toor", u".", ZN_OK},
      {"of another machine", u"root", u"toor", u"elsewhere.example", ZNE_ACCESS_DENIED},
      {"a good password, on no list", u"ben", u"secret", u"", ZNE_ACCESS_DENIED},
      {"an entry without a machine is for users without one", u"anna", u"secret", u".",
       ZNE_ACCESS_DENIED},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    RawClient client(service.Port());
    EXPECT_EQ(client.LogOn(row.user, row.password, row.domain), row.result);
  }
}

TEST_F(SessionProcess, LogsOnTheMembersOfAnAccessGroup) {
  struct Row {
    const char* groups;
    u32 result;
  };
  const Row rows[] = {
      {"daemon", ZN_OK},
      {"no-such-group;daemon", ZN_OK},
      {".\\daemon", ZN_OK},
      {"nogroup", ZNE_ACCESS_DENIED},
      {"elsewhere.example\\daemon", ZNE_ACCESS_DENIED},
      {"", ZNE_ACCESS_DENIED},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.groups);
    ServiceProcess service("[Security]\nAccessGroups = '" + std::string(row.groups) + "'\n");
    service.MustStart();
    RawClient member(service.Port());
    EXPECT_EQ(member.LogOn(u"daemon", u"secret"), row.result);
    RawClient stranger(service.Port());
    EXPECT_EQ(stranger.LogOn(u"daemon", u"guess"), ZNE_ACCESS_DENIED)
        << "a membership stands for no password";
    RawClient other(service.Port());
    EXPECT_EQ(other.LogOn(u"ben", u"secret"), ZNE_ACCESS_DENIED);
  }
}

TEST_F(SessionProcess, AFailedLogonMayBeTriedAgainOnTheSameConnection) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  EXPECT_EQ(client.LogOn(u"root", u"guess"), ZNE_ACCESS_DENIED);
  EXPECT_EQ(NumberOf(client.Ask(client.LogonMessage(u"root", u"toor", u"", 1)).Set(), "Result"),
            ZN_OK);
}

TEST_F(SessionProcess, LogsOnByTheGuidOfTheSharedMemory) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  client.Meet(2);
  EXPECT_EQ(NumberOf(client.Offered(), "Authentication"), 2u);
  void* view = ZnOpenShMem(AuthSharedMemoryName(service.Port()).c_str());
  ASSERT_NE(view, nullptr);
  GUID guid{};
  std::memcpy(&guid, static_cast<u8*>(view) + NumberOf(client.Offered(), "ShMemIndex") * 16, 16);
  ZnCloseShMem(view);
  char text[kGuidTextLength];
  FormatGuid(guid, text);
  const std::u16string wide = ToWide({text, kGuidTextLength});
  EXPECT_EQ(NumberOf(client.Ask(client.LogonMessage(wide, u"", u"", 2)).Set(), "Result"), ZN_OK);
}

// What was pushed of changed values; events of the start may come between.
std::vector<PropertySet> ChangesOf(const std::vector<RawFrame>& pushed) {
  std::vector<PropertySet> changes;
  for (const RawFrame& frame : pushed) {
    EXPECT_EQ(frame.type, 3u);
    PropertySet set = frame.Set();
    if (NumberOf(set, "Message") == 11) changes.push_back(std::move(set));
  }
  return changes;
}

TEST_F(SessionProcess, ChangesComeBeforeTheAnswerOfTheCallThatMadeThem) {
  ServiceProcess service;
  service.MustStart();
  RawClient caller(service.Port());
  RawClient watcher(service.Port());
  ASSERT_EQ(caller.LogOn(u"root", u"toor"), ZN_OK);
  ASSERT_EQ(watcher.LogOn(u"root", u"toor"), ZN_OK);
  const std::vector<ObjectId> lamps = Lamps(caller);
  ASSERT_THAT(lamps, SizeIs(2));
  ASSERT_THAT(Lamps(watcher), SizeIs(2));
  for (u32 i = 0; i < 50; ++i) {
    caller.pushed.clear();
    const PropertySet answer = caller.Ask(CallOf(lamps[0], kSwitch, 1, (i + 1) % 2)).Set();
    ASSERT_EQ(NumberOf(answer, "Result"), ZN_OK);
    ASSERT_EQ(NumberOf(answer, "Message"), 8u);
    const std::vector<PropertySet> changes = ChangesOf(caller.pushed);
    ASSERT_THAT(changes, SizeIs(1)) << i;
    const PropertySet& change = changes[0];
    EXPECT_TRUE(SameGuid(change.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid(), lamps[0]));
    EXPECT_EQ(change.FindValue("Data", ZN_TYPE_PROPSET)
                  ->AsSet()
                  .FindValue("On", ZN_TYPE_BOOLEAN)
                  ->AsBool(),
              (i + 1) % 2);
  }
  for (size_t seen = 0; seen < 50;) {
    RawFrame frame;
    ASSERT_TRUE(watcher.Receive(&frame)) << seen;
    seen += ChangesOf({frame}).size();
  }
}

TEST_F(SessionProcess, PassesTheStatusesOfAProviderOn) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  ASSERT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
  const std::vector<ObjectId> lamps = Lamps(client);
  ASSERT_THAT(lamps, SizeIs(2));
  const RawFrame frame = client.Ask(CallOf(lamps[0], kSwitch, 9, 0));
  EXPECT_EQ(NumberOf(frame.Set(), "Result"), ZNE_INVALID_MAJOR_CODE);
  EXPECT_EQ(frame.status, ZNE_INVALID_MAJOR_CODE);
}

TEST_F(SessionProcess, AOneWayFrameGetsNoAnswer) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  EXPECT_TRUE(client.SendBytes(FrameBytes(3, 77, BytesOf(OfferOf(1)))));
  client.Meet();
  EXPECT_THAT(client.pushed, SizeIs(0));
}

TEST_F(SessionProcess, SendsItsLog) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  ASSERT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
  const PropertySet answer = client.Ask(FileRequestOf(service.Folder() / "Logs/znmira.log")).Set();
  EXPECT_EQ(NumberOf(answer, "Result"), ZN_OK);
  EXPECT_THAT(std::string(answer.FindValue("Data", ZN_TYPE_BINARY)->AsBinary()),
              HasSubstr("ZnSvc:Client connected. Address = 127.0.0.1"));
  EXPECT_EQ(NumberOf(client.Ask(FileRequestOf("/etc/passwd")).Set(), "Result"),
            ZNE_CLIENT_NOT_AUTHORIZED);
}

class Datagrams {
 public:
  explicit Datagrams(unsigned port) : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    peer_.sin_family = AF_INET;
    peer_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    peer_.sin_port = htons(static_cast<u16>(port));
  }
  ~Datagrams() { close(fd_); }
  Datagrams(const Datagrams&) = delete;
  Datagrams& operator=(const Datagrams&) = delete;

  std::string Ask(std::string_view bytes) {
    EXPECT_EQ(sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&peer_),
                     sizeof peer_),
              static_cast<ssize_t>(bytes.size()));
    pollfd waited{fd_, POLLIN, 0};
    if (poll(&waited, 1, 10000) != 1) return "nothing";
    char buffer[4096];
    const ssize_t got = recv(fd_, buffer, sizeof buffer, 0);
    return got < 0 ? "failure" : std::string(buffer, static_cast<size_t>(got));
  }

 private:
  int fd_;
  sockaddr_in peer_{};
};

TEST_F(SessionProcess, AnswersPingsWithTheTokenOfTheSession) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  client.Meet();
  const u32 token = NumberOf(client.Offered(), "PingToken");
  Datagrams datagrams(service.Port());
  const std::string reply = datagrams.Ask({"\0\0\0\2", 4});
  ASSERT_THAT(reply, SizeIs(4));
  u32 word = 0;
  std::memcpy(&word, reply.data(), 4);
  EXPECT_EQ(ntohl(word), token);
}

TEST_F(SessionProcess, AnswersADiscovery) {
  ServiceProcess service("Flags = 6\n");
  service.MustStart();
  Datagrams datagrams(service.Port());
  RawFrame reply;
  reply.payload = datagrams.Ask({"\0\0\0\1", 4});
  const PropertySet set = reply.Set();
  EXPECT_EQ(NumberOf(set, "ServerFlags"), 6u);
  EXPECT_EQ(NumberOf(set, "MiraVersion"), 30u);
}

TEST_F(SessionProcess, GivesNoPingTokenWhenKeepAliveIsDisabled) {
  ServiceProcess service("DisableKeepAlive = 1\n");
  service.MustStart();
  RawClient client(service.Port());
  client.Meet();
  EXPECT_EQ(client.Offered().Find("PingToken"), nullptr);
}

TEST_F(SessionProcess, TheStopEndsIdleSessionsQuickly) {
  ServiceProcess service;
  service.MustStart();
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int i = 0; i < 100; ++i) {
    clients.push_back(std::make_unique<RawClient>(service.Port()));
    ASSERT_EQ(clients.back()->LogOn(u"root", u"toor"), ZN_OK);
  }
  const auto begin = std::chrono::steady_clock::now();
  service.Signal(SIGTERM);
  EXPECT_EQ(service.WaitForEnd(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  for (const auto& client : clients) EXPECT_TRUE(client->IsClosedByPeer());
  EXPECT_EQ(ZnOpenShMem(AuthSharedMemoryName(service.Port()).c_str()), nullptr);
}

TEST_F(SessionProcess, TellsTheStopAsAnAlert) {
  ServiceProcess service;
  service.MustStart();
  RawClient client(service.Port());
  ASSERT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
  ASSERT_THAT(Lamps(client), SizeIs(2));
  service.Signal(SIGTERM);
  RawFrame frame;
  bool told = false;
  while (!told && client.Receive(&frame)) {
    const PropertySet set = frame.Set();
    told = NumberOf(set, "Message") == 12 &&
           set.FindValue("NotificationId", ZN_TYPE_STRING)->AsText() ==
               "event.alert.keld.server.shutdown";
  }
  EXPECT_TRUE(told);
  EXPECT_EQ(service.WaitForEnd(), 0);
}

}  // namespace

}  // namespace zn::test
