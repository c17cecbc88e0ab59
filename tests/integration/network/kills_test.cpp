// Servers and clients that are killed, at any point of what they do.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <thread>

#include "support/common/shared_memory.h"
#include "tests/integration/network/network.h"
#include "zn/znmira.h"

namespace zn::test {

namespace {

using testing::IsEmpty;

class Kills : public Network {
 protected:
  // Short pauses as often as long ones, since what happens first takes the shortest.
  void PauseUpTo(int ms) {
    const double part = static_cast<double>(random_() % 1'000'000) / 1'000'000;
    std::this_thread::sleep_for(
        std::chrono::duration<double, std::milli>(kSlowness * ms * part * part * part));
  }

  std::mt19937_64 random_{Seed()};
};

// How long after each of the kills every client that was logged on then was told, and its calls
// failed; in ms.
struct Delays {
  std::vector<double> told;
  std::vector<double> failed;
  size_t missed = 0;  // kills that a client was never told of
};

void AddDelays(const ClientProgram::Told& client, const std::vector<i64>& kills, Delays* delays) {
  for (size_t kill = 0; kill < kills.size(); ++kill) {
    const auto isLater = [&](const ClientProgram::Event& event) {
      return event.time > kills[kill];
    };
    const auto next = std::find_if(client.events.begin(), client.events.end(), isLater);
    if (next == client.events.begin() || (next - 1)->kind != 'R') continue;  // not logged on then
    bool isTold = false;
    bool hasFailed = false;
    // What comes after the first of each is of a later server, lost amid the logon.
    for (auto event = next; event != client.events.end() && event->kind != 'R'; ++event) {
      const double ms = static_cast<double>(event->time - kills[kill]) / 1e6;
      if (event->kind == 'F' && !hasFailed) delays->failed.push_back(ms);
      if (event->kind == 'L' && !isTold) delays->told.push_back(ms);
      hasFailed = hasFailed || event->kind == 'F';
      isTold = isTold || event->kind == 'L';
    }
    if (!isTold) ++delays->missed;
  }
}

TEST_F(Kills, AKilledServerIsToldAtOnceAndItsSuccessorServes) {
  const int rounds = Sized(10, 200);
  const std::vector<std::string> arguments = {"--port", std::to_string(FreeLoopbackPort())};
  Start({}, arguments);
  std::vector<std::unique_ptr<ClientProgram>> clients;
  for (u64 i = 1; i <= 4; ++i) {
    clients.push_back(ClientProgram::Append(Port(), i, 0, 7, 5000));
    ASSERT_TRUE(clients.back()->WaitUntilReady());
  }
  std::vector<i64> kills;
  for (int round = 0; round < rounds; ++round) {
    // Amid calls and logons; every fourth while it starts.
    PauseUpTo(round % 2 == 0 ? 250 : 60);
    kills.push_back(MonotonicNs());
    Service().Signal(SIGKILL);
    ASSERT_EQ(Service().WaitForEnd(), 128 + SIGKILL);
    if (round % 4 == 3) {
      Service().Begin(arguments);
      PauseUpTo(60);
      kills.push_back(MonotonicNs());
      Service().Signal(SIGKILL);
      ASSERT_EQ(Service().WaitForEnd(), 128 + SIGKILL);
    }
    Service().MustStart(arguments);
  }
  std::vector<ClientProgram::Told> told;
  Delays delays;
  for (size_t i = 0; i < clients.size(); ++i) {
    const size_t before = clients[i]->WhatItTold().acknowledged.size();
    EXPECT_TRUE(Eventually([&] {
      return clients[i]->WhatItTold().acknowledged.size() >= before + 50;
    })) << "the last server serves";
    clients[i]->Signal(SIGKILL);
    EXPECT_EQ(clients[i]->WaitForEnd(), 128 + SIGKILL);
    told.push_back(clients[i]->WhatItTold());
    AddDelays(told.back(), kills, &delays);
  }
  ExpectNothingLostOrDoubled(told);
  ASSERT_THAT(delays.told, testing::Not(IsEmpty()));
  EXPECT_EQ(delays.missed, 0u);
  EXPECT_LT(Percentile(delays.told, 100), 1000 * kSlowness);
  EXPECT_LT(Percentile(delays.failed, 100), 1000 * kSlowness);
  Measured(
      "%zu kills of the server, %zu losses told after %.2f ms (half), %.2f ms (99 %%), "
      "%.2f ms (all), calls "
      "failed after %.2f ms (all), %zu numbers acknowledged over all servers",
      kills.size(), delays.told.size(), Percentile(delays.told, 50), Percentile(delays.told, 99),
      Percentile(delays.told, 100), Percentile(delays.failed, 100),
      told[0].acknowledged.size() + told[1].acknowledged.size() + told[2].acknowledged.size() +
          told[3].acknowledged.size());
}

TEST_F(Kills, TheLocalLogonWorksAfterAKilledServer) {
  const std::vector<std::string> arguments = {"--port", std::to_string(FreeLoopbackPort())};
  Start({}, arguments);
  Service().Signal(SIGKILL);
  ASSERT_EQ(Service().WaitForEnd(), 128 + SIGKILL);
  EXPECT_TRUE(std::filesystem::exists("/dev/shm/" + AuthSharedMemoryName(Port())))
      << "it left its shared memory";
  Service().MustStart(arguments);
  ASSERT_EQ(ClStartup(), ZN_OK);
  const ClConnectInfo local{0, Port(), nullptr, ZN_CONNECT_LOCAL_PORT, 0, 0};
  ClientHandle* handle = nullptr;
  ZnHandle database = nullptr;
  EXPECT_EQ(ClCreateDatabaseEx(&local, nullptr, &handle, &database, 0), ZN_OK);
  if (handle != nullptr) {
    EXPECT_EQ(ClDeleteDatabase(handle, database), ZN_OK);
  }
  EXPECT_EQ(ClShutdown(), ZN_OK);
  StopService();
  EXPECT_FALSE(std::filesystem::exists("/dev/shm/" + AuthSharedMemoryName(Port())));
}

TEST_F(Kills, AKilledClientLeavesNothingBehind) {
  const int rounds = Sized(10, 200);
  Start();
  const auto bystander = ClientProgram::Append(Port(), 1, 0, 10);
  ASSERT_TRUE(bystander->WaitUntilReady());
  std::vector<ClientProgram::Told> told;
  const auto killOne = [&](u64 number) {
    // Before its connect, in its logon, amid its calls.
    const auto client = ClientProgram::Append(Port(), number, 0, 3);
    PauseUpTo(120);
    client->Signal(SIGKILL);
    ASSERT_EQ(client->WaitForEnd(), 128 + SIGKILL);
    told.push_back(client->WhatItTold());
  };
  for (u64 i = 0; i < 5; ++i) killOne(100 + i);
  const ProcessFacts before = [&] {
    EXPECT_TRUE(Eventually([&] {
      return Traced("ZnSvc:Client connected.") == Traced("ZnSvc:Client disconnected.") + 1;
    }));
    return FactsOf(Service().Pid());
  }();
  for (int round = 0; round < rounds; ++round) killOne(1000 + static_cast<u64>(round));
  EXPECT_TRUE(Eventually([&] {
    return Traced("ZnSvc:Client connected.") == Traced("ZnSvc:Client disconnected.") + 1;
  })) << "sessions";
  EXPECT_TRUE(Eventually([&] {
    const ProcessFacts after = FactsOf(Service().Pid());
    // The communication layer keeps four idle workers, once it had them.
    return after.descriptors <= before.descriptors && after.threads <= before.threads + 4;
  })) << FactsOf(Service().Pid()).descriptors
      << " descriptors, were " << before.descriptors << ", " << FactsOf(Service().Pid()).threads
      << " threads, were " << before.threads;
  const ProcessFacts after = FactsOf(Service().Pid());
  size_t loggedOn = 0;
  for (const ClientProgram::Told& client : told) loggedOn += client.Count('R');
  bystander->Signal(SIGKILL);
  EXPECT_EQ(bystander->WaitForEnd(), 128 + SIGKILL);
  told.push_back(bystander->WhatItTold());
  EXPECT_EQ(told.back().Count('F'), 0u) << "who was not killed noticed nothing";
  EXPECT_EQ(told.back().Count('R'), 1u);
  ExpectNothingLostOrDoubled(told);
  Measured(
      "%d killed clients, %zu of them logged on; descriptors %zu -> %zu, threads %zu -> %zu, "
      "resident %zu -> %zu KiB",
      rounds, loggedOn, before.descriptors, after.descriptors, before.threads, after.threads,
      before.residentKiB, after.residentKiB);
}

}  // namespace

}  // namespace zn::test
