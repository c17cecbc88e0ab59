// Local logons of a real service: its 32 slots, and the logon that needs no record at all.
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <future>

#include "clientsvc/common/csmanager.h"
#include "framework/common/znguid/guidtext.h"
#include "framework/common/znguid/znguid.h"
#include "support/common/shared_memory.h"
#include "support/common/text.h"
#include "tests/integration/network/network.h"
#include "zn/znmira.h"

namespace zn::test {

namespace {

constexpr u32 kSlots = 32;

class LocalSlots : public Network {
 protected:
  // The text of the GUID in a slot.
  [[nodiscard]] std::u16string GuidIn(u32 slot) const {
    void* view = ZnOpenShMem(AuthSharedMemoryName(Port()).c_str());
    EXPECT_NE(view, nullptr);
    GUID guid{};
    std::memcpy(&guid, static_cast<u8*>(view) + slot * sizeof guid, sizeof guid);
    ZnCloseShMem(view);
    char text[kGuidTextLength];
    FormatGuid(guid, text);
    return ToWide({text, kGuidTextLength});
  }
  // So many offers of local logons: the slots they got.
  std::vector<u32> Offer(size_t count) {
    std::vector<u32> slots;
    for (size_t i = 0; i < count; ++i) {
      clients_.push_back(std::make_unique<RawClient>(Port()));
      clients_.back()->Meet(2);
      slots.push_back(NumberOf(clients_.back()->Offered(), "ShMemIndex"));
    }
    return slots;
  }

  std::vector<std::unique_ptr<RawClient>> clients_;
};

TEST_F(LocalSlots, TheThirtyThirdGetsTheSlotThatALogonFrees) {
  Start();
  std::vector<u32> slots = Offer(kSlots);
  std::vector<u32> expected;
  for (u32 slot = kSlots; slot-- > 0;) expected.push_back(slot);
  EXPECT_EQ(slots, expected) << "the highest one first";
  RawClient late(Port());
  const u32 offer = late.SendRequest(OfferOf(2));
  std::future<RawFrame> answer =
      std::async(std::launch::async, [&] { return late.WaitForResponse(offer); });
  EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  // A password logon meanwhile needs no slot.
  EXPECT_EQ(RawClient(Port()).LogOn(u"root", u"toor"), ZN_OK);
  constexpr size_t kOne = 20;
  const PropertySet logon = clients_[kOne]->LogonMessage(GuidIn(slots[kOne]), u"", u"", 2);
  const auto begin = Clock::now();
  EXPECT_EQ(NumberOf(clients_[kOne]->Ask(logon).Set(), "Result"), ZN_OK);
  const PropertySet given = answer.get().Set();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(1 * kSlowness)) << "it does not wait on";
  EXPECT_EQ(NumberOf(given, "Authentication"), 2u);
  EXPECT_EQ(NumberOf(given, "ShMemIndex"), slots[kOne]);
}

TEST_F(LocalSlots, TheThirtyThirdGetsTheSlotThatExpiresFirst) {
  if (!IsFullSize()) GTEST_SKIP() << "takes the ten seconds that a slot is kept";
  Start();
  const auto begin = Clock::now();
  const std::vector<u32> slots = Offer(kSlots);
  RawClient late(Port());
  const PropertySet given = late.Ask(OfferOf(2)).Set();
  const double seconds = Milliseconds(Clock::now() - begin) / 1000;
  EXPECT_EQ(NumberOf(given, "ShMemIndex"), slots[0]);
  EXPECT_GT(seconds, 8);
  EXPECT_LT(seconds, 12);
  Measured("waited %.1f s", seconds);
}

TEST_F(LocalSlots, AWrongGuidTimesOutAndTheRightOneMayFollow) {
  Start();
  const std::vector<u32> slots = Offer(1);
  const std::u16string wrong = u"{12345678-1234-1234-1234-123456789abc}";
  const auto logOn = [&](const std::u16string& guid) {
    return NumberOf(clients_[0]->Ask(clients_[0]->LogonMessage(guid, u"", u"", 2)).Set(), "Result");
  };
  EXPECT_EQ(logOn(wrong), ZNE_TIMED_OUT);
  EXPECT_EQ(logOn(GuidIn(slots[0])), ZN_OK);
}

// --- On the standard port ------------------------------------------------------------------------

// A child with a network and shared memory of its own, in which every port and name is free. False
// where the host refuses.
bool InOwnNetwork(const std::function<void()>& body) {
  constexpr int kRefused = 77;
  const pid_t child = fork();
  if (child == 0) {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
      _exit(kRefused);
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP;
    EXPECT_EQ(ioctl(fd, SIOCSIFFLAGS, &loopback), 0);
    close(fd);
    try {
      body();
    } catch (const std::exception& error) {
      ADD_FAILURE() << error.what();
    }
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kRefused) return false;
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "see above";
  return true;
}

size_t Ledgers(ZnHandle database) {
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjects(database, ledger::kType, &count, &ids), ZN_OK);
  ZnFree(ids);
  return count;
}

class StandardPort : public Network {};

TEST_F(StandardPort, NoRecordAtAllMeansALocalLogon) {
  const bool isPermitted = InOwnNetwork([this] {
    Start({}, {"--port", "2148"});
    EXPECT_EQ(ClStartup(), ZN_OK);
    ClientHandle* handle = nullptr;
    ZnHandle database = nullptr;
    EXPECT_EQ(ClCreateDatabaseEx(nullptr, nullptr, &handle, &database, 0), ZN_OK);
    if (handle != nullptr) {
      EXPECT_EQ(Ledgers(database), 1u);
      EXPECT_EQ(handle->state, ZN_CLIENT_LOGGED_ON);
      EXPECT_EQ(ClLogon(handle, nullptr), ZN_OK) << "whatever the record";
      EXPECT_EQ(ClDeleteDatabase(handle, database), ZN_OK);
    }
    EXPECT_EQ(ClShutdown(), ZN_OK);
    StopService();
  });
  if (!isPermitted) GTEST_SKIP() << "a network namespace is not permitted here";
}

TEST_F(StandardPort, ARecordWithoutAHostStartsTheWatchAndThenIsLocal) {
  const bool isPermitted = InOwnNetwork([this] {
    Start({}, {"--port", "2148"});
    EXPECT_EQ(ClStartup(), ZN_OK);
    const ClConnectInfo nowhere{0, 0, nullptr, ZN_CONNECT_PING, 0, 0};
    ClientHandle* handle = nullptr;
    ZnHandle database = nullptr;
    EXPECT_EQ(ClCreateDatabaseEx(&nowhere, nullptr, &handle, &database, 0), ZN_OK);
    EXPECT_TRUE(CSManagerRuns());
    if (handle != nullptr) {
      EXPECT_EQ(Ledgers(database), 1u);
      EXPECT_EQ(ClDeleteDatabase(handle, database), ZN_OK);
    }
    EXPECT_EQ(ClShutdown(), ZN_OK);
    EXPECT_FALSE(CSManagerRuns());
    StopService();
  });
  if (!isPermitted) GTEST_SKIP() << "a network namespace is not permitted here";
}

TEST_F(StandardPort, AnEndWithoutAStartWrapsTheCountOfStarts) {
  const bool isPermitted = InOwnNetwork([] {
    const auto tryToConnect = [] {
      const ClConnectInfo connect{0, 0, "127.0.0.1", 0, 0, 0};
      ClientHandle* handle = nullptr;
      ZnHandle database = nullptr;
      return ClCreateDatabase(&connect, &handle, &database);
    };
    EXPECT_EQ(tryToConnect(), UCLE_NOT_INITIALIZED);
    EXPECT_EQ(ClShutdown(), ZN_OK) << "from 0 to the largest";
    EXPECT_EQ(ClStartup(), ZN_OK) << "to 0 again, and not the first one";
    EXPECT_EQ(tryToConnect(), UCLE_NOT_INITIALIZED);
    EXPECT_EQ(ClStartup(), ZN_OK) << "this is the first";
    EXPECT_EQ(tryToConnect(), UCLE_SOCKET_ERROR) << "nobody is there";
    EXPECT_EQ(ClStartup(), ZN_OK);
    EXPECT_EQ(ClShutdown(), ZN_OK);
    EXPECT_EQ(tryToConnect(), UCLE_SOCKET_ERROR) << "one of two";
    EXPECT_EQ(ClShutdown(), ZN_OK) << "the count reaches 0, and all ends";
    EXPECT_EQ(tryToConnect(), UCLE_NOT_INITIALIZED);
  });
  if (!isPermitted) GTEST_SKIP() << "a network namespace is not permitted here";
}

}  // namespace

}  // namespace zn::test
