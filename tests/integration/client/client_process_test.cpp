// The client's calls against the real service: logons, the copy, calls, changes, loss, discovery,
// files. The service runs as a process with the example provider and its two lamps.
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tests/integration/service/service_process.h"
#include "tests/unit/support/temporary.h"
#include "zn/znmira.h"

[[nodiscard]] inline bool operator==(const GUID& a, const GUID& b) {
  return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

namespace zn::test {
namespace {

using testing::IsSupersetOf;
using testing::SizeIs;

constexpr auto kPatience = std::chrono::seconds(30);

bool Eventually(const std::function<bool()>& holds) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// One session of this process.
class Session {
 public:
  Session() = default;
  ~Session() {
    if (handle != nullptr) {
      EXPECT_EQ(Delete(), ZN_OK);
    }
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  u32 LogOn(unsigned port, const ZnWChar* user = u"root", const ZnWChar* password = u"toor",
            u32 flags = 0) {
    const ClConnectInfo connect{0, port, "127.0.0.1", flags, 0, 0};
    const ClLogonInfo logon{user, password, u"", u"", ZN_LOGON_PASSWORD};
    return ClCreateDatabaseEx(&connect, &logon, &handle, &database, 0);
  }
  u32 LogOnLocally(unsigned port) {
    const ClConnectInfo connect{0, port, nullptr, ZN_CONNECT_LOCAL_PORT, 0, 0};
    return ClCreateDatabaseEx(&connect, nullptr, &handle, &database, 0);
  }
  u32 Delete() { return ClDeleteDatabase(std::exchange(handle, nullptr), database); }

  std::vector<ObjectId> Objects(const char* type) const {
    u32 count = 0;
    ObjectId* ids = nullptr;
    if (DbGetObjects(database, type, &count, &ids) != ZN_OK) return {};
    std::vector<ObjectId> list(ids, ids + count);
    ZnFree(ids);
    return list;
  }
  // 0, 1, or the status of the read.
  u32 IsOn(const ObjectId& lamp) const {
    Property2* property = nullptr;
    const u32 status = ObGetProperty(database, lamp, "On", &property);
    if (status != ZN_OK) return status;
    const u32 on = *static_cast<u8*>(property->Value);
    PsFreeProperty(property);
    return on;
  }
  u32 Switch(const ObjectId& lamp, u32 minor) const {
    ZnHandle in = nullptr;
    ZnHandle out = nullptr;
    EXPECT_EQ(PsCreatePropset(&in), ZN_OK);
    EXPECT_EQ(PsCreatePropset(&out), ZN_OK);
    ObjectId provider{};
    const u32 status = PrCallDispatch(database, lamp, &kSwitch, 1, minor, in, out, 0, 0, nullptr,
                                      nullptr, &provider, nullptr);
    EXPECT_EQ(PsDestroyPropset(in), ZN_OK);
    EXPECT_EQ(PsDestroyPropset(out), ZN_OK);
    return status;
  }

  ClientHandle* handle = nullptr;
  ZnHandle database = nullptr;
};

class ClientProcess : public testing::Test {
 protected:
  ClientProcess() { EXPECT_EQ(ClStartup(), ZN_OK); }
  ~ClientProcess() override { EXPECT_EQ(ClShutdown(), ZN_OK); }
  void SetUp() override { service_.MustStart(); }

  ServiceProcess service_{"[Security]\nAccessUsers = 'anna'\n"};
};

TEST_F(ClientProcess, SeesTheObjectsOfTheServer) {
  Session session;
  ASSERT_EQ(session.LogOn(service_.Port(), u"anna", u"secret"), ZN_OK);
  const std::vector<ObjectId> lamps = session.Objects("EXAMPLE_Lamp");
  ASSERT_THAT(lamps, SizeIs(2));
  EXPECT_THAT(session.Objects(nullptr), IsSupersetOf(lamps));
  EXPECT_TRUE(TypeIsA(session.database, "EXAMPLE_Lamp", "KELD_Object"));
  Property2* property = nullptr;
  ASSERT_EQ(ObGetProperty(session.database, lamps[0], "Name", &property), ZN_OK);
  EXPECT_EQ(property->Type, ZN_TYPE_WIDESTRING);
  PsFreeProperty(property);
  ZnHandle provider = nullptr;
  EXPECT_EQ(ObGetProviderForObject(session.database, lamps[0], &provider), ZN_OK);
  EXPECT_EQ(PrGetProviderByName(session.database, u"example", &provider), ZN_OK);
}

TEST_F(ClientProcess, WhoMayNotLogOnGetsNothing) {
  Session session;
  EXPECT_EQ(session.LogOn(service_.Port(), u"anna", u"guess"), ZNE_ACCESS_DENIED);
  EXPECT_EQ(session.LogOn(service_.Port(), u"ben", u"secret"), ZNE_ACCESS_DENIED);
  EXPECT_EQ(session.handle, nullptr);
}

TEST_F(ClientProcess, ASecondTryOnOneConnectionMaySucceed) {
  const ClConnectInfo connect{0, service_.Port(), "127.0.0.1", 0, 0, 0};
  Session session;
  ASSERT_EQ(ClCreateDatabase(&connect, &session.handle, &session.database), ZN_OK);
  ClLogonInfo logon{u"root", u"guess", u"", u"", ZN_LOGON_PASSWORD};
  EXPECT_EQ(ClLogon(session.handle, &logon), ZNE_ACCESS_DENIED);
  logon.password = u"toor";
  EXPECT_EQ(ClLogon(session.handle, &logon), ZN_OK);
  EXPECT_THAT(session.Objects("EXAMPLE_Lamp"), SizeIs(2));
}

TEST_F(ClientProcess, AProcessOfTheSameUserLogsOnWithoutAPassword) {
  Session session;
  ASSERT_EQ(session.LogOnLocally(service_.Port()), ZN_OK);
  EXPECT_THAT(session.Objects("EXAMPLE_Lamp"), SizeIs(2));
}

TEST_F(ClientProcess, TheCopyShowsAChangeWhenTheCallThatMadeItReturns) {
  Session session;
  ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  const ObjectId lamp = session.Objects("EXAMPLE_Lamp").at(0);
  for (u32 i = 1; i <= 100; ++i) {
    ASSERT_EQ(session.Switch(lamp, i % 2), ZN_OK);
    ASSERT_EQ(session.IsOn(lamp), i % 2) << i;
  }
  EXPECT_EQ(session.Switch(lamp, 7), ZNE_INVALID_MINOR_CODE);
  EXPECT_EQ(session.Switch(ObjectId{}, 1), ZNE_OBJECT_NOT_FOUND);
}

TEST_F(ClientProcess, OneClientSeesWhatAnotherChanges) {
  Session caller;
  Session watcher;
  ASSERT_EQ(caller.LogOn(service_.Port()), ZN_OK);
  ASSERT_EQ(watcher.LogOn(service_.Port()), ZN_OK);
  const ObjectId lamp = caller.Objects("EXAMPLE_Lamp").at(0);
  ASSERT_EQ(watcher.IsOn(lamp), 0u);
  static std::atomic<u32> heard;
  heard = 0;
  ClRegisterInfo info{u"watcher", {}};
  info.callbacks.Event = [](const EventRecord*) -> u32 {
    ++heard;
    return ZN_OK;
  };
  ZnHandle provider = nullptr;
  ZnHandle registration = nullptr;
  ASSERT_EQ(ClRegisterClient(watcher.handle, 0, &info, &provider), ZN_OK);
  ASSERT_EQ(EvRegisterEvent(watcher.database, provider,
                            "event.keld.dom.object.EXAMPLE_Lamp.data.change", &registration),
            ZN_OK);
  ASSERT_EQ(caller.Switch(lamp, 1), ZN_OK);
  EXPECT_TRUE(Eventually([&] { return watcher.IsOn(lamp) == 1; }));
  EXPECT_TRUE(Eventually([] { return heard == 1; }));
}

TEST_F(ClientProcess, QueriesAndSearchesAreAnsweredByTheServer) {
  Session session;
  ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  u32 count = 0;
  ObjectId* ids = nullptr;
  ASSERT_EQ(DbGetObjectsByQuery(session.database, u"SELECT FROM EXAMPLE_Lamp WHERE Watts EQ 40",
                                &count, &ids),
            ZN_OK);
  EXPECT_EQ(count, 1u);
  ZnFree(ids);
  ASSERT_EQ(DbGetObjectsByQuery(session.database, u"SELECT FROM EXAMPLE_Lamp WHERE Watts EQ 40",
                                &count, &ids),
            ZN_OK);
  EXPECT_EQ(count, 0u) << "it is here already";
  EXPECT_EQ(DbGetObjectsByQuery(session.database, u"nonsense", &count, &ids),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DbGetObjectsWithInterface(session.database, "NoSuchType", &kSwitch, &count, &ids),
            ZNE_INVALID_ARGUMENTS);
}

TEST_F(ClientProcess, ManyCallersAndConnectionsAtOnce) {
  Session sessions[4];
  for (Session& session : sessions) ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  const ObjectId lamp = sessions[0].Objects("EXAMPLE_Lamp").at(0);
  std::atomic<u32> good{0};
  std::vector<std::thread> callers;
  for (u32 i = 0; i < 8; ++i) {
    callers.emplace_back([&, i] {
      for (u32 call = 0; call < 100; ++call) {
        if (sessions[i % 4].Switch(lamp, call % 2) == ZN_OK) ++good;
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(good, 800u);
  ASSERT_EQ(sessions[0].Switch(lamp, 1), ZN_OK);
  for (Session& session : sessions) {
    EXPECT_TRUE(Eventually([&] { return session.IsOn(lamp) == 1; }));
  }
}

TEST_F(ClientProcess, AServerThatIsKilledIsTold) {
  Session session;
  ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  const ObjectId lamp = session.Objects("EXAMPLE_Lamp").at(0);
  static std::atomic<bool> lost;
  lost = false;
  ClRegisterInfo info{u"keeper", {}};
  info.callbacks.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  info.callbacks.Shutdown = [](ZnHandle) -> u32 {
    lost = true;
    return ZN_OK;
  };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ClRegisterClient(session.handle, 0, &info, &provider), ZN_OK);
  service_.Signal(SIGKILL);
  EXPECT_TRUE(Eventually([] { return lost.load(); }));
  EXPECT_EQ(session.IsOn(lamp), 0u) << "what is here can still be read";
  EXPECT_NE(session.Switch(lamp, 1), ZN_OK);
  EXPECT_EQ(session.Delete(), ZN_OK);
  EXPECT_NE(session.LogOn(service_.Port()), ZN_OK);

  ServiceProcess next;
  next.MustStart();
  ASSERT_EQ(session.LogOn(next.Port()), ZN_OK) << "another session, with a new server";
  EXPECT_EQ(session.Switch(session.Objects("EXAMPLE_Lamp").at(0), 1), ZN_OK);
}

TEST_F(ClientProcess, SessionsComeAndGoWithoutATrace) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto threads = [] {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
  };
  for (int i = 0; i < 3; ++i) {
    Session session;
    ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  }
  const auto openBefore = descriptors();
  const auto threadsBefore = threads();
  for (int i = 0; i < 50; ++i) {
    Session session;
    ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
    ASSERT_THAT(session.Objects("EXAMPLE_Lamp"), SizeIs(2));
  }
  // A worker may hold the last connection for a moment yet.
  EXPECT_TRUE(Eventually([&] { return descriptors() <= openBefore; }));
  EXPECT_TRUE(Eventually([&] { return threads() <= threadsBefore; }));
}

TEST_F(ClientProcess, TheServerIsFoundAndAnswersPings) {
  const Environment place("ZN_DISCOVERY", "127.0.0.1:" + std::to_string(service_.Port()));
  u32 count = 0;
  ClHostInfo* hosts = nullptr;
  EXPECT_TRUE(Eventually([&] {
    ClEnableHostDiscovery(1, 1);
    ClDisableHostDiscovery();
    ZnFree(hosts);
    hosts = nullptr;
    return ClEnumHosts(0, &count, &hosts) == ZN_OK && count == 1;
  }));
  if (count == 1) {
    EXPECT_EQ(hosts[0].protocolCount, 1u);
    EXPECT_STREQ(hosts[0].protocols[0].name, "Socket");
    EXPECT_EQ(hosts[0].miraVersion, 30u);
  }
  ZnFree(hosts);
}

TEST_F(ClientProcess, FetchesTheServersLog) {
  Session session;
  ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  const TemporaryFolder folder;
  const std::u16string copy = ToWide(folder / "copy");
  const std::string log = service_.Folder() / "Logs/znmira.log";
  ASSERT_TRUE(std::filesystem::exists(log));
  EXPECT_EQ(ClDownloadFile(session.handle, ToWide(log).c_str(), copy.c_str()), ZN_OK);
  EXPECT_NE(ReadFile(folder / "copy"), "");
  EXPECT_EQ(ClDownloadFile(session.handle, u"/etc/passwd", copy.c_str()),
            ZNE_CLIENT_NOT_AUTHORIZED);
}

TEST_F(ClientProcess, TheProgramOfTheGuideWorks) {
  const std::string command = "LAMP_PASSWORD=toor " ZN_LAMP_PROGRAM " 127.0.0.1 " +
                              std::to_string(service_.Port()) + " root > " +
                              (service_.Folder() / "lamp.out");
  EXPECT_EQ(std::system(command.c_str()), 0);
  EXPECT_THAT(ReadFile(service_.Folder() / "lamp.out"), testing::HasSubstr("the lamp is on\n"));
}

TEST_F(ClientProcess, ADrainedServerEndsItsSessions) {
  Session session;
  ASSERT_EQ(session.LogOn(service_.Port()), ZN_OK);
  const ObjectId lamp = session.Objects("EXAMPLE_Lamp").at(0);
  service_.Signal(SIGTERM);
  EXPECT_EQ(service_.WaitForEnd(), 0);
  EXPECT_TRUE(Eventually([&] { return session.Switch(lamp, 1) != ZN_OK; }));
}

}  // namespace
}  // namespace zn::test
