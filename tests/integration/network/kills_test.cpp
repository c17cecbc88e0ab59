// Servers and clients that are killed, at any point of what they do.
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <thread>

#include "support/common/shared_memory.h"
#include "tests/integration/network/fault_proxy.h"
#include "tests/integration/network/network.h"
#include "zn/znmira.h"

namespace zn::test {

namespace {

using testing::IsEmpty;

// How many clients were killed at which point of their life.
struct KillPoints {
  size_t connecting = 0;
  size_t loggingOn = 0;
  size_t firstRequests = 0;
  size_t working = 0;

  void Count(const ClientProgram::Told& client) {
    if (client.Count('R') != 0) {
      ++working;
    } else if (client.Count('O') != 0) {
      ++firstRequests;
    } else if (client.Count('C') != 0) {
      ++loggingOn;
    } else {
      ++connecting;
    }
  }
  void ExpectEach() const {
    EXPECT_GT(connecting, 0u);
    EXPECT_GT(loggingOn, 0u);
    EXPECT_GT(firstRequests, 0u);
    EXPECT_GT(working, 0u);
  }
};

class Kills : public Network {
 protected:
  // Short pauses as often as long ones, since what happens first takes the shortest.
  void PauseUpTo(int ms) {
    const double part = static_cast<double>(random_() % 1'000'000) / 1'000'000;
    std::this_thread::sleep_for(
        std::chrono::duration<double, std::milli>(kSlowness * ms * part * part * part));
  }
  // A way to the server, and how long a client takes on it until it is at work.
  struct Way {
    unsigned port = 0;
    double startMs = 0;
  };
  // Kills one that is at work, and measures the way with it.
  ClientProgram::Told KillAtWork(u64 number, Way* way) {
    const i64 begin = MonotonicNs();
    const auto client = ClientProgram::AppendInSteps(way->port, number);
    EXPECT_TRUE(client->WaitUntilReady());
    ClientProgram::Told told = End(*client);
    for (const ClientProgram::Event& event : told.events) {
      if (event.kind == 'R') way->startMs = static_cast<double>(event.time - begin) / 1e6;
    }
    return told;
  }
  // Kills a client at any point, each as likely as any other, of its start and a while of its work.
  ClientProgram::Told KillOne(const Way& way, u64 number) {
    const auto client = ClientProgram::AppendInSteps(way.port, number);
    const double part = static_cast<double>(random_() % 1'000'000) / 1'000'000;
    std::this_thread::sleep_for(
        std::chrono::duration<double, std::milli>(1.3 * way.startMs * part));
    return End(*client);
  }
  // So many, on the ways by turns.
  KillPoints KillMany(int count, const Way (&ways)[2], std::vector<ClientProgram::Told>* told) {
    KillPoints points;
    for (int i = 0; i < count; ++i) {
      told->push_back(KillOne(ways[i % 2], 1000 + static_cast<u64>(i)));
      points.Count(told->back());
    }
    return points;
  }
  [[nodiscard]] bool OneClientIsLeft() const {
    return Eventually([&] {
      return Traced("ZnSvc:Client connected.") == Traced("ZnSvc:Client disconnected.") + 1;
    });
  }

  std::mt19937_64 random_{Seed()};

 private:
  static ClientProgram::Told End(ClientProgram& client) {
    client.Signal(SIGKILL);
    EXPECT_EQ(client.WaitForEnd(), 128 + SIGKILL);
    return client.WhatItTold();
  }
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

// Half of them on a slow network, where a kill is as likely to hit a short step as a long one.
TEST_F(Kills, AKilledClientLeavesNothingBehind) {
  const int rounds = Sized(10, 200);
  Start();
  const FaultProxy slow(Port(), {.longestDelayUs = 20'000}, random_());
  const auto bystander = ClientProgram::Append(Port(), 1, 0, 10);
  ASSERT_TRUE(bystander->WaitUntilReady());
  std::vector<ClientProgram::Told> told;
  Way ways[2] = {{slow.Port()}, {Port()}};
  KillPoints first;
  for (u64 i = 0; i < 6; ++i) {
    told.push_back(KillAtWork(100 + i, &ways[i % 2]));
    first.Count(told.back());
  }
  EXPECT_EQ(first.working, 6u);
  ASSERT_TRUE(OneClientIsLeft());
  const ProcessFacts before = FactsOf(Service().Pid());
  const KillPoints points = KillMany(rounds, ways, &told);
  EXPECT_TRUE(OneClientIsLeft()) << "sessions";
  EXPECT_TRUE(Eventually([&] {
    const ProcessFacts after = FactsOf(Service().Pid());
    // The communication layer keeps four idle workers, once it had them.
    return after.descriptors <= before.descriptors && after.threads <= before.threads + 4;
  })) << FactsOf(Service().Pid()).descriptors
      << " descriptors, were " << before.descriptors << ", " << FactsOf(Service().Pid()).threads
      << " threads, were " << before.threads;
  const ProcessFacts after = FactsOf(Service().Pid());
  bystander->Signal(SIGKILL);
  EXPECT_EQ(bystander->WaitForEnd(), 128 + SIGKILL);
  told.push_back(bystander->WhatItTold());
  EXPECT_EQ(told.back().Count('F'), 0u) << "who was not killed noticed nothing";
  EXPECT_EQ(told.back().Count('R'), 1u);
  ExpectNothingLostOrDoubled(told);
  if (IsFullSize()) points.ExpectEach();  // a few may well miss a step
  Measured(
      "%d killed clients: %zu before they were connected, %zu in their logon, %zu in their first "
      "requests, %zu at work; descriptors %zu -> %zu, threads %zu -> %zu, resident %zu -> %zu KiB",
      rounds, points.connecting, points.loggingOn, points.firstRequests, points.working,
      before.descriptors, after.descriptors, before.threads, after.threads, before.residentKiB,
      after.residentKiB);
}

}  // namespace

}  // namespace zn::test
