// What a session does once it is logged on: requests, calls, pushes, loss, files; and the handles.
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "clientsvc/common/clienthandle.h"
#include "clientsvc/common/clientsession.h"
#include "clientsvc/common/csmanager.h"
#include "framework/common/znpropset/i18nvalue.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/provider.h"
#include "tests/unit/clientsvc/fake_server.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/ev.h"
#include "zn/i18n.h"
#include "zn/init.h"
#include "zn/ob.h"
#include "zn/ps.h"

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr GUID kInterface = {0x77, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

class ClientSessionTest : public ClientTest {
 protected:
  void SetUp() override {
    ProviderCallbacks none{};
    const BusLock lock;
    auto provider = std::make_unique<Provider>(&server_.Store(),
                                               server_.Store().Types().FindType("KELD_Provider"),
                                               u"far", none, nullptr, false);
    provider->SetRegistered();
    far_ = provider->GetId().Value();
    server_.Store().AddProvider(std::move(provider));
  }
  // An object of the server.
  ObjectId Make(u32 state) {
    const BusLock lock;
    DBNode* node = nullptr;
    Provider* far = server_.Store().FindProviderByName(u"far");
    EXPECT_EQ(server_.Store().CreateDBNode(far, "KELD_Object", 0, &node, nullptr), ZN_OK);
    EXPECT_EQ(node->SetProperty(Property("State", Value::UInt32(state))), ZN_OK);
    EXPECT_EQ(server_.Store().RegisterInterface(node, kInterface, far->GetId()), ZN_OK);
    return node->Guid();
  }
  u32 StateOf(const ObjectId& id) const {
    Property2* property = nullptr;
    const u32 status = ObGetProperty(database_, id, "State", &property);
    if (status != ZN_OK) return status;
    const u32 state = *static_cast<u32*>(property->Value);
    PsFreeProperty(property);
    return state;
  }
  [[nodiscard]] static PropertySet DataChange(const ObjectId& id, u32 state) {
    PropertySet data;
    data.Put("State", Value::UInt32(state));
    PropertySet set;
    set.Put("Message", Value::UInt32(11));
    set.Put("Flags", Value::UInt32(3));
    set.Put("NotificationId", Value::Text("event.keld.dom.object.KELD_Object.data.change.x"));
    set.Put("ObjectId", Value::Id(id));
    set.Put("ObjectType", Value::Text("KELD_Object"));
    set.Put("Data", Value::Set(std::move(data)));
    return set;
  }
  // The status of a call of the object; what the answer said is in out_.
  u32 Call(const ObjectId& id) {
    const ZnHandle in = WrapPropertySet(PropertySet());
    const ZnHandle out = WrapPropertySet(PropertySet());
    answered_ = {};
    const u32 status = PrCallDispatch(database_, id, &kInterface, 1, 2, in, out, 0, 0, nullptr,
                                      nullptr, &answered_, nullptr);
    out_ = *HandleThing<PropertySet>(out);
    EXPECT_TRUE(DestroyPropertySet(in));
    EXPECT_TRUE(DestroyPropertySet(out));
    return status;
  }

  ObjectId far_{};
  ObjectId answered_{};
  PropertySet out_;
};

TEST_F(ClientSessionTest, FetchesObjectsOverTheConnection) {
  const ObjectId id = Make(7);
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(StateOf(id), 7u);
  EXPECT_EQ(StateOf(id), 7u);
  EXPECT_EQ(server_.Received(5).size(), 4u) << "three of the logon and one";
}

TEST_F(ClientSessionTest, ForwardsCallsAndReadsTheirAnswers) {
  const ObjectId id = Make(0);
  ASSERT_EQ(LogOn(), ZN_OK);
  server_.On(7, [&](const PropertySet& request) {
    EXPECT_EQ(request.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid().Data1, id.Data1);
    EXPECT_EQ(request.FindValue("MajorCode", ZN_TYPE_UINT32)->AsUInt32(), 1u);
    PropertySet data;
    data.Put("Answer", Value::UInt32(42));
    PropertySet answer;
    answer.Put("Data", Value::Set(std::move(data)));
    answer.Put("ProviderId", Value::Id(far_));
    answer.Put("Message", Value::UInt32(8));
    answer.Put("Result", Value::UInt32(ZN_OK));
    return BytesOf(answer);
  });
  EXPECT_EQ(Call(id), ZN_OK);
  EXPECT_EQ(out_.FindValue("Answer", ZN_TYPE_UINT32)->AsUInt32(), 42u);
  EXPECT_TRUE(SameGuid(answered_, far_));
  // Each of the keys may be missing, and "Data" may be bytes.
  server_.On(7, [&](const PropertySet&) {
    PropertySet data;
    data.Put("Answer", Value::UInt32(43));
    PropertySet answer;
    answer.Put("Data", wire::AsBinary(data));
    return BytesOf(answer);
  });
  EXPECT_EQ(Call(id), ZN_OK);
  EXPECT_EQ(out_.FindValue("Answer", ZN_TYPE_UINT32)->AsUInt32(), 43u);
  server_.On(7, [&](const PropertySet&) {
    PropertySet answer;
    answer.Put("Result", Value::UInt32(ZNE_PROVIDER_ACCESS_VIOLATED));
    return BytesOf(answer);
  });
  EXPECT_EQ(Call(id), ZNE_PROVIDER_ACCESS_VIOLATED);
  server_.On(7, [&](const PropertySet&) { return std::string(); });
  EXPECT_EQ(Call(id), ZNE_UNEXPECTED) << "the server could not even say why";
  server_.On(7, [&](const PropertySet&) {
    PropertySet answer;
    answer.Put("Data", Value::Binary("nonsense", 8));
    return BytesOf(answer);
  });
  EXPECT_EQ(Call(id), ZNE_UNEXPECTED);
}

TEST_F(ClientSessionTest, TakesBytesHoweverTheyCome) {
  const ObjectId id = Make(5);
  for (const size_t piece : {size_t{1}, size_t{7}, size_t{64}}) {
    server_.SetPiece(piece);
    ASSERT_EQ(LogOn(), ZN_OK) << piece;
    EXPECT_EQ(StateOf(id), 5u);
    ASSERT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
    Forget();
  }
}

TEST_F(ClientSessionTest, AChangeInFrontOfAnAnswerIsAppliedBeforeTheCallReturns) {
  const ObjectId id = Make(1);
  ASSERT_EQ(LogOn(), ZN_OK);
  ASSERT_EQ(StateOf(id), 1u);
  for (u32 state = 2; state < 50; ++state) {
    server_.PushWithNextAnswer(DataChange(id, state));
    ASSERT_EQ(Call(id), ZN_OK);
    ASSERT_EQ(StateOf(id), state);
  }
}

TEST_F(ClientSessionTest, APushArrivesWhileNobodyWaits) {
  const ObjectId id = Make(1);
  ASSERT_EQ(LogOn(), ZN_OK);
  ASSERT_EQ(StateOf(id), 1u);
  server_.Push(DataChange(id, 2));
  EXPECT_TRUE(Eventually([&] { return StateOf(id) == 2; }));
}

TEST_F(ClientSessionTest, WhatIsPushedBeforeTheLogonIsDropped) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  const auto session = SessionList::Instance().All().at(0);
  PropertySet lacking;  // which is told only where it is looked at
  lacking.Put("Message", Value::UInt32(12));
  const std::string bytes = BytesOf(lacking);
  const auto length = static_cast<u32>(bytes.size());
  EXPECT_EQ(session->OnServerData(bytes.data(), length), ZN_OK);
  server_.PushWithNextAnswer(lacking);
  const ClLogonInfo logon = Alice();
  ASSERT_EQ(ClLogon(handle_, &logon), ZN_OK);
  EXPECT_EQ(session->OnServerData(bytes.data(), length), ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(ClientSessionTest, BadPushesCostNothing) {
  const ObjectId id = Make(1);
  ASSERT_EQ(LogOn(), ZN_OK);
  ASSERT_EQ(StateOf(id), 1u);
  const auto session = SessionList::Instance().All().at(0);
  PropertySet odd;
  odd.Put("Message", Value::UInt32(77));
  const std::string bytes = BytesOf(odd);
  EXPECT_EQ(session->OnServerData(bytes.data(), static_cast<u32>(bytes.size())), ZN_OK);
  EXPECT_EQ(session->OnServerData(bytes.data(), 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(session->OnServerData(nullptr, 4), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(session->OnServerData("\xff\xff\xff", 3), ZNE_UNEXPECTED);
  const std::string empty = BytesOf(PropertySet());
  EXPECT_EQ(session->OnServerData(empty.data(), static_cast<u32>(empty.size())),
            ZNE_PROPERTY_NOT_FOUND);
  server_.Push(odd);
  server_.SendRaw(FrameBytes(3, 0, "garbage"));
  server_.Push(DataChange(id, 3));
  EXPECT_TRUE(Eventually([&] { return StateOf(id) == 3; }));
}

TEST_F(ClientSessionTest, EventsOfTheServerReachTheClientsProviders) {
  ASSERT_EQ(LogOn(), ZN_OK);
  static Signal heard;
  ClRegisterInfo info{u"ears", {}};
  info.callbacks.Event = [](const EventRecord* event) -> u32 {
    EXPECT_STREQ(event->topic, "event.test.hello");
    heard.Set();
    return ZN_OK;
  };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZN_OK);
  ZnHandle registration = nullptr;
  ASSERT_EQ(EvRegisterEvent(database_, provider, "event.test", &registration), ZN_OK);
  PropertySet message;
  message.Put("Message", Value::UInt32(12));
  message.Put("Flags", Value::UInt32(3));
  message.Put("NotificationId", Value::Text("event.test.hello"));
  message.Put("ProviderId", Value::Id(far_));
  message.Put("Data", Value::Set(PropertySet()));
  server_.Push(message);
  EXPECT_TRUE(heard.Wait());
}

TEST_F(ClientSessionTest, TheLossOfTheServerIsTheEndOfTheSession) {
  const ObjectId id = Make(1);
  ASSERT_EQ(LogOn(), ZN_OK);
  ASSERT_EQ(StateOf(id), 1u);
  static Signal shutDown;
  ClRegisterInfo info{u"mine", {}};
  info.callbacks.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  info.callbacks.Shutdown = [](ZnHandle) -> u32 {
    shutDown.Set();
    return ZN_OK;
  };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZN_OK);
  server_.DropClients();
  EXPECT_TRUE(shutDown.Wait());
  const auto session = SessionList::Instance().All().at(0);
  EXPECT_TRUE(Eventually([&] { return session->IsLost(); }));
  EXPECT_EQ(StateOf(id), 1u) << "what is here can still be read";
  EXPECT_EQ(StateOf(far_), ZNE_OBJECT_NOT_FOUND);
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjects(database_, nullptr, &count, &ids), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClDownloadFile(handle_, u"x", u"/dev/null"), ZNE_INVALID_ARGUMENTS);
  const std::string bytes = BytesOf(DataChange(id, 9));
  EXPECT_EQ(session->OnServerData(bytes.data(), static_cast<u32>(bytes.size())),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
  EXPECT_FALSE(IsValidHandle(database_, HANDLE_DATABASE));
  Forget();
}

TEST_F(ClientSessionTest, ACallThatWaitsEndsWithItsConnection) {
  const ObjectId id = Make(0);
  ASSERT_EQ(LogOn(), ZN_OK);
  Signal asked;
  server_.On(7, [&](const PropertySet&) -> std::optional<std::string> {
    asked.Set();
    return std::nullopt;
  });
  std::thread caller([&] { EXPECT_EQ(Call(id), UCLW_SOCKET_DISCONNECTED); });
  ASSERT_TRUE(asked.Wait());
  EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
  caller.join();
  Forget();
}

TEST_F(ClientSessionTest, ManyCallersShareAConnection) {
  const ObjectId id = Make(0);
  ASSERT_EQ(LogOn(), ZN_OK);
  std::vector<std::thread> callers;
  std::atomic<u32> good{0};
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      const ZnHandle in = WrapPropertySet(PropertySet());
      const ZnHandle out = WrapPropertySet(PropertySet());
      ObjectId answered{};
      for (int call = 0; call < 50; ++call) {
        if (PrCallDispatch(database_, id, &kInterface, 1, 2, in, out, 0, 0, nullptr, nullptr,
                           &answered, nullptr) == ZN_OK) {
          ++good;
        }
      }
      EXPECT_TRUE(DestroyPropertySet(in));
      EXPECT_TRUE(DestroyPropertySet(out));
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(good, 200u);
}

TEST_F(ClientSessionTest, AHandleIsClosedOnce) {
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(ClDisconnect(handle_, 0, 0), ZN_OK);
  EXPECT_EQ(handle_->state, ZN_CLIENT_CLOSED);
  EXPECT_FALSE(IsValidHandle(database_, HANDLE_DATABASE));
  EXPECT_EQ(ClDisconnect(handle_, 0, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZNE_INVALID_ARGUMENTS);
  const ClLogonInfo logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_INVALID_ARGUMENTS);
  ZnFree(handle_);
  EXPECT_EQ(ClDisconnect(handle_, 0, 0), ZNE_INVALID_ARGUMENTS) << "freed by the application";
  Forget();

  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(ClDeleteDatabase(handle_, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(handle_->state, ZN_CLIENT_LOGGED_ON);
  EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
  EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZNE_INVALID_ARGUMENTS);
  Forget();
}

TEST_F(ClientSessionTest, AHandleThatIsClosedDuringItsLogonStaysClosed) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  Signal asked;
  std::atomic<int> requests{0};
  server_.On(5, [&](const PropertySet& request) -> std::optional<std::string> {
    if (++requests != 3) return server_.Answered(5, request);
    asked.Set();  // the third is for the providers, without which a logon does as well
    return std::nullopt;
  });
  std::thread closer([&] {
    ASSERT_TRUE(asked.Wait());
    EXPECT_EQ(ClDisconnect(handle_, 0, 0), ZN_OK);
  });
  const ClLogonInfo logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_INVALID_ARGUMENTS);
  closer.join();
  EXPECT_EQ(ClientState(handle_), ZN_CLIENT_CLOSED);
  EXPECT_EQ(ClDisconnect(handle_, 0, 0), ZNE_INVALID_ARGUMENTS);
  ZnFree(handle_);
  Forget();
}

TEST_F(ClientSessionTest, BadArgumentsAreRefused) {
  const ClConnectInfo connect = Connection();
  const ClLogonInfo logon = Alice();
  const auto* bad = reinterpret_cast<const ClConnectInfo*>(16);
  EXPECT_EQ(ClCreateDatabaseEx(bad, &logon, &handle_, &database_, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabaseEx(&connect, reinterpret_cast<const ClLogonInfo*>(16), &handle_,
                               &database_, 0),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, nullptr, &database_, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, nullptr, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 1), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabase(bad, &handle_, &database_), ZNE_INVALID_ARGUMENTS);
  ClConnectInfo nowhere = connect;
  nowhere.host = reinterpret_cast<const char*>(16);
  EXPECT_EQ(ClCreateDatabaseEx(&nowhere, &logon, &handle_, &database_, 0), ZNE_INVALID_ARGUMENTS);
  const std::string endless(4097, 'h');
  nowhere.host = endless.c_str();
  EXPECT_EQ(ClCreateDatabaseEx(&nowhere, &logon, &handle_, &database_, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabase(&connect, nullptr, &database_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClCreateDatabase(&connect, &handle_, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(server_.Numbers(), IsEmpty());

  ClientHandle stranger{ZN_CLIENT_MAGIC, ZN_CLIENT_LOGGED_ON, nullptr};
  ZnHandle provider = nullptr;
  ClRegisterInfo info{u"x", {}};
  I18nFormatString format{};
  ZnWChar* text = nullptr;
  for (ClientHandle* handle : {static_cast<ClientHandle*>(nullptr), &stranger}) {
    EXPECT_EQ(ClLogon(handle, &logon), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(ClDisconnect(handle, 0, 0), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(ClDeleteDatabase(handle, reinterpret_cast<ZnHandle>(4096)), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(ClRegisterClient(handle, 0, &info, &provider), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(ClDownloadFile(handle, u"x", u"y"), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(ClMakeFormattedString(handle, &format, &text), ZNE_INVALID_ARGUMENTS);
  }
  u32 count = 0;
  ClHostInfo* hosts = nullptr;
  EXPECT_EQ(ClEnumHosts(0, nullptr, &hosts), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClEnumHosts(0, &count, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClUnregisterClient(1, 2, 3), ZN_OK);
}

TEST_F(ClientSessionTest, AClientRegistersAfterItsLogon) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  ClRegisterInfo info{u"mine", {}};
  info.callbacks.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  ZnHandle provider = nullptr;
  EXPECT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZNW_SHMEM_LOGIN_FAILED);
  const ClLogonInfo logon = Alice();
  ASSERT_EQ(ClLogon(handle_, &logon), ZN_OK);
  EXPECT_EQ(ClRegisterClient(handle_, 0, nullptr, &provider), ZNE_INVALID_ARGUMENTS);
  ASSERT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZN_OK);
  EXPECT_TRUE(IsValidHandle(provider, HANDLE_PROVIDER));
  ZnHandle again = nullptr;
  EXPECT_EQ(ClRegisterClient(handle_, 0, &info, &again), ZN_OK) << "a taken name is no error";
  EXPECT_EQ(again, nullptr);
}

TEST_F(ClientSessionTest, AServerWithATokenIsWatchedOnceTheClientRegistered) {
  server_.SetOption("PingToken", 0x7f000001);
  ASSERT_EQ(LogOn(ZN_CONNECT_PING), ZN_OK);
  ServerEntry entry;
  ASSERT_TRUE(CSManagerFindServer(0x7f000001, &entry));
  EXPECT_FALSE(entry.active);
  EXPECT_EQ(entry.port, server_.Port());
  EXPECT_EQ(entry.address, kLoopback);
  EXPECT_NE(entry.lastResponse, 0);
  ClRegisterInfo info{u"mine", {}};
  info.callbacks.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZN_OK);
  ASSERT_TRUE(CSManagerFindServer(0x7f000001, &entry));
  EXPECT_TRUE(entry.active);
  EXPECT_EQ(entry.registeredId, reinterpret_cast<std::uintptr_t>(info.name));
  ASSERT_EQ(ClDisconnect(handle_, 0, 0), ZN_OK);
  EXPECT_FALSE(CSManagerRuns()) << "the last one to go ends the watch";
  ZnFree(handle_);
  Forget();
  ASSERT_EQ(LogOn(ZN_CONNECT_PING), ZN_OK);
  EXPECT_TRUE(CSManagerFindServer(0x7f000001, &entry)) << "and the next one starts it anew";
}

TEST_F(ClientSessionTest, AServerWithoutATokenIsNotWatched) {
  ASSERT_EQ(LogOn(ZN_CONNECT_PING), ZN_OK);
  ServerEntry entry;
  EXPECT_FALSE(CSManagerFindServer(0, &entry));
  CSManagerShutdown();
}

TEST_F(ClientSessionTest, AServerThatStopsAnsweringIsLost) {
  server_.SetOption("PingToken", 5);
  const ObjectId id = Make(0);
  ASSERT_EQ(LogOn(ZN_CONNECT_PING), ZN_OK);
  ClRegisterInfo info{u"mine", {}};
  info.callbacks.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ClRegisterClient(handle_, 0, &info, &provider), ZN_OK);
  Signal asked;
  server_.On(7, [&](const PropertySet&) -> std::optional<std::string> {
    asked.Set();
    return std::nullopt;
  });
  std::thread caller([&] { EXPECT_EQ(Call(id), UCLW_SOCKET_DISCONNECTED); });
  ASSERT_TRUE(asked.Wait());
  const auto session = SessionList::Instance().All().at(0);
  CSManagerMonitorNow();
  EXPECT_FALSE(session->IsLost()) << "it was heard of when the entry was made";
  CSManagerMonitorNow();
  EXPECT_TRUE(session->IsLost());
  caller.join();
  EXPECT_FALSE(CSManagerRuns());
  EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
  Forget();
}

TEST_F(ClientSessionTest, StartsAreCounted) {
  EXPECT_EQ(ClStartup(), ZN_OK);
  EXPECT_EQ(ClShutdown(), ZN_OK);
  ASSERT_EQ(LogOn(), ZN_OK) << "the first start still holds";
}

TEST(ClientStarts, AStopWithoutItsStartMakesTheCountWrap) {
  const ClConnectInfo nowhere{0, 1, "127.0.0.1", 0, 0, 0};
  ClientHandle* handle = nullptr;
  ZnHandle database = nullptr;
  EXPECT_EQ(ClShutdown(), ZN_OK);
  EXPECT_EQ(ClStartup(), ZN_OK) << "it makes up for the stop, and starts nothing";
  EXPECT_EQ(ClCreateDatabase(&nowhere, &handle, &database), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(ClStartup(), ZN_OK);
  EXPECT_EQ(ClCreateDatabase(&nowhere, &handle, &database), UCLE_SOCKET_ERROR);
  EXPECT_EQ(ClShutdown(), ZN_OK);
  EXPECT_EQ(ClCreateDatabase(&nowhere, &handle, &database), UCLE_NOT_INITIALIZED);
}

// A folder of its own as the user's.
class ClientFiles : public ClientSessionTest {
 protected:
  void SetUp() override {
    ClientSessionTest::SetUp();
    folder_ = testing::TempDir() + "zn_client_" + std::to_string(getpid());
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    setenv("USERPROFILE", folder_.c_str(), 1);
    server_.On(9, [this](const PropertySet& request) {
      PropertySet answer;
      const std::u16string_view name =
          request.FindValue("ImageFile", ZN_TYPE_WIDESTRING)->AsWideText();
      const bool isPublished = name == u"C:\\cat\\english.mc";
      answer.Put("Message", Value::UInt32(10));
      answer.Put("Result", Value::UInt32(isPublished ? ZN_OK : ZNE_CLIENT_NOT_AUTHORIZED));
      answer.Put("Data", Value::Binary(content_.data(), static_cast<u32>(content_.size())));
      return BytesOf(answer);
    });
  }
  void TearDown() override {
    unsetenv("USERPROFILE");
    std::filesystem::remove_all(folder_);
  }
  void PublishCatalog(u32 platform) {
    const BusLock lock;
    DBNode* node = nullptr;
    ASSERT_EQ(server_.Store().CreateDBNode(server_.Store().FindProviderByName(u"far"),
                                           "KELD_Extension", 0, &node, nullptr),
              ZN_OK);
    PropertySet properties;
    properties.Put("Id", Value::Text("{00000077-0002-0003-0405-060708090A0B}"));
    properties.Put("Locale", Value::UInt32(0x409));
    properties.Put("Platform", Value::UInt32(platform));
    properties.Put("Skin", Value::Text("MiraSkin"));
    properties.Put("ImageFile", Value::WideText(u"C:\\cat\\english.mc"));
    ASSERT_EQ(node->SetProperties(properties), ZN_OK);
  }
  // The status; the text is in text_.
  u32 MakeText(u32 message, PropertySet insertions) {
    char name[] = "default %1";
    const ZnHandle set = WrapPropertySet(std::move(insertions));
    const I18nFormatString format{kInterface, message, name, set};
    ZnWChar* text = nullptr;
    const u32 status = ClMakeFormattedString(handle_, &format, &text);
    text_ = text == nullptr ? std::u16string() : text;
    ZnFree(text);
    EXPECT_TRUE(DestroyPropertySet(set));
    return status;
  }
  [[nodiscard]] static PropertySet One(Value value) {
    PropertySet set;
    set.Put("i1", std::move(value));
    return set;
  }

  std::string folder_;
  std::string content_ = "1 = Disk %1 is full\n2 = second\n";
  std::u16string text_;
};

TEST_F(ClientFiles, AFileIsWrittenAsItComes) {
  content_ = std::string("\0\r\nany bytes\xff", 13);
  ASSERT_EQ(LogOn(), ZN_OK);
  const std::string path = folder_ + "/copy";
  const std::u16string wide(path.begin(), path.end());
  EXPECT_EQ(ClDownloadFile(handle_, u"C:\\cat\\english.mc", wide.c_str()), ZN_OK);
  std::ifstream file(path, std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), content_);
  EXPECT_EQ(ClDownloadFile(handle_, u"C:\\other", wide.c_str()), ZNE_CLIENT_NOT_AUTHORIZED);
  EXPECT_EQ(ClDownloadFile(handle_, u"C:\\cat\\english.mc", u"/nowhere/at/all"), ZN_OK)
      << "what cannot be written is not reported";
  EXPECT_FALSE(std::filesystem::exists("/nowhere/at/all"));
  EXPECT_EQ(ClDownloadFile(handle_, nullptr, wide.c_str()), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClDownloadFile(handle_, u"x", nullptr), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ClientFiles, WithoutACatalogTheDefaultTextsServe) {
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(MakeText(1, One(Value::Text("sda"))), ZN_OK);
  EXPECT_EQ(text_, u"default sda");
  EXPECT_EQ(MakeText(1, One(I18nValueOf(I18nParts{kInterface, 2, "nested"}))), ZN_OK);
  EXPECT_EQ(text_, u"default nested");
  EXPECT_THAT(server_.Received(9), IsEmpty());
}

TEST_F(ClientFiles, ACatalogIsFetchedOnce) {
  PublishCatalog(1);  // of the server's own platform: not for clients
  PublishCatalog(2);
  ASSERT_EQ(LogOn(), ZN_OK);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(MakeText(1, One(Value::WideText(u"sdb"))), ZN_OK);
    EXPECT_EQ(text_, u"Disk sdb is full");
  }
  EXPECT_EQ(server_.Received(9).size(), 1u);
  EXPECT_TRUE(std::filesystem::exists(folder_ +
                                      "/.KELDob/Downloads/MsgCatalogs/"
                                      "{00000077-0002-0003-0405-060708090a0b}_MiraSkin_2_1033.mc"));
  EXPECT_EQ(MakeText(1, One(I18nValueOf(I18nParts{kInterface, 2, "nested"}))), ZN_OK);
  EXPECT_EQ(text_, u"Disk second is full") << "nested messages come from the catalog too";
  EXPECT_EQ(MakeText(9, {}), ZNE_THING_NOT_FOUND);
  EXPECT_EQ(MakeText(1, One(Value::UInt32(7))), ZNE_NOT_SUPPORTED_FOR_OBJECT);
  EXPECT_EQ(text_, u"Disk  is full") << "a text all the same";
  EXPECT_EQ(MakeText(1, {}), ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(ClientFiles, ACatalogThatCannotBeFetchedIsDoneWithout) {
  PublishCatalog(2);
  server_.On(9, [](const PropertySet&) {
    PropertySet answer;
    answer.Put("Result", Value::UInt32(ZNE_UNEXPECTED));
    return BytesOf(answer);
  });
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(MakeText(1, One(Value::Text("sda"))), ZN_OK);
  EXPECT_EQ(text_, u"default sda");
}

TEST_F(ClientFiles, ACatalogTakesItsNameWhenAllOfItIsThere) {
  PublishCatalog(2);
  ASSERT_EQ(LogOn(), ZN_OK);
  // A file may not grow beyond this, as on a disk that is full.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit tight{10, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
  EXPECT_EQ(MakeText(1, One(Value::Text("sda"))), ZN_OK);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(text_, u"default sda");
  EXPECT_TRUE(std::filesystem::is_empty(folder_ + "/.KELDob/Downloads/MsgCatalogs"));
  EXPECT_EQ(MakeText(1, One(Value::Text("sda"))), ZN_OK);
  EXPECT_EQ(text_, u"Disk sda is full") << "it was asked for again";
}

TEST_F(ClientFiles, MessagesOfAClientCopyComeFromItsFiles) {
  PublishCatalog(1);
  ASSERT_EQ(LogOn(), ZN_OK);
  char name[] = "default";
  const I18nString message{kInterface, 2, name};
  ZnWChar* text = nullptr;
  ASSERT_EQ(i18nGetLocalizedStringFromi18n(database_, message, 0, nullptr, 0, &text), ZN_OK);
  EXPECT_EQ(std::u16string(text), u"second");
  ZnFree(text);
  const I18nString unknown{kInterface, 99, name};
  EXPECT_EQ(i18nGetLocalizedStringFromi18n(database_, unknown, 0, nullptr, 0, &text),
            ZNE_THING_NOT_FOUND);
  EXPECT_EQ(server_.Received(9).size(), 1u);
  EXPECT_TRUE(std::filesystem::exists(folder_ +
                                      "/.KELDob/Downloads/MsgCatalogs/"
                                      "{00000077-0002-0003-0405-060708090a0b}_MiraSkin_1_1033.mc"));
}

TEST_F(ClientFiles, ACatalogThatDidNotComeIsTraced) {
  PublishCatalog(1);
  // A folder lies where the file would be written.
  std::filesystem::create_directories(folder_ +
                                      "/.KELDob/Downloads/MsgCatalogs/"
                                      "{00000077-0002-0003-0405-060708090a0b}_MiraSkin_1_1033.mc");
  ASSERT_EQ(LogOn(), ZN_OK);
  char name[] = "default";
  const I18nString message{kInterface, 2, name};
  ZnWChar* text = nullptr;
  const TraceCapture traces(6);
  EXPECT_EQ(i18nGetLocalizedStringFromi18n(database_, message, 0, nullptr, 0, &text),
            ZNE_UNEXPECTED);
  EXPECT_TRUE(traces.Has("ClientSvc: Unable to open catalog " + folder_ +
                         "/.KELDob/Downloads/MsgCatalogs/"
                         "{00000077-0002-0003-0405-060708090a0b}_MiraSkin_1_1033.mc"));
}

TEST_F(ClientFiles, WithoutAFolderNothingIsFetched) {
  PublishCatalog(2);
  setenv("USERPROFILE", "/proc/none", 1);
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(MakeText(1, {}), ZNE_UNEXPECTED);
  EXPECT_THAT(server_.Received(9), IsEmpty());
}

}  // namespace
}  // namespace zn::test
