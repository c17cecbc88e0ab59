// Clients behind a network that delays, cuts and damages what they say and hear.
#include <signal.h>

#include "tests/integration/network/fault_proxy.h"
#include "tests/integration/network/network.h"

namespace zn::test {

namespace {

using testing::Each;
using testing::SizeIs;

class Faulty : public Network {
 protected:
  using Clients = std::vector<std::unique_ptr<ClientProgram>>;

  // All of them at once; each number of a client's is its own.
  [[nodiscard]] static Clients Callers(unsigned port, u64 first, u64 count, u64 calls, u64 every) {
    Clients clients;
    for (u64 i = 0; i < count; ++i) {
      clients.push_back(ClientProgram::Append(port, first + i, calls, every));
    }
    return clients;
  }
  [[nodiscard]] static std::vector<ClientProgram::Told> EndsOf(const Clients& clients) {
    std::vector<ClientProgram::Told> told;
    for (const auto& client : clients) {
      EXPECT_EQ(client->WaitForEnd(), 0);
      told.push_back(client->WhatItTold());
    }
    return told;
  }
  [[nodiscard]] static size_t Total(const std::vector<ClientProgram::Told>& all, char kind) {
    size_t total = 0;
    for (const ClientProgram::Told& told : all) total += told.Count(kind);
    return total;
  }
  // The service has let go of everybody.
  void ExpectNobodyThere(const ProcessFacts& before) {
    EXPECT_TRUE(Eventually([&] {
      return FactsOf(Service().Pid()).descriptors <= before.descriptors;
    })) << FactsOf(Service().Pid()).descriptors
        << " descriptors, were " << before.descriptors;
    EXPECT_TRUE(Eventually([&] {
      return Traced("ZnSvc:Client connected.") == Traced("ZnSvc:Client disconnected.");
    })) << Traced("ZnSvc:Client connected.")
        << " came, " << Traced("ZnSvc:Client disconnected.") << " went";
  }
};

TEST_F(Faulty, DelaysAndPiecesLoseNothingAndCostNoConnection) {
  Start();
  FaultProxy proxy(Port(), {2000, 40, 0, 0, 0}, Seed());
  const Clients clients = Callers(proxy.Port(), 1, 16, Sized<u64>(25, 250), 5);
  const std::vector<ClientProgram::Told> told = EndsOf(clients);
  EXPECT_EQ(Total(told, 'F'), 0u);
  EXPECT_EQ(Total(told, 'R'), 16u);
  EXPECT_THAT(Ledger(), SizeIs(16 * Sized<u64>(25, 250)));
  ExpectNothingLostOrDoubled(told);
  EXPECT_GT(proxy.Done().pieces, proxy.Done().bytes / 400) << "cut up";
}

TEST_F(Faulty, NothingAcknowledgedIsLostOrDoubledWhereConnectionsAreCut) {
  Start();
  const ProcessFacts before = FactsOf(Service().Pid());
  const u64 calls = Sized<u64>(2000, 100'000) / 16;
  const auto begin = Clock::now();
  std::vector<ClientProgram::Told> told;
  {
    FaultProxy proxy(Port(), {Sized(500u, 1000u), 60, Sized(500u, 300u), 0, 0}, Seed());
    const Clients clients = Callers(proxy.Port(), 1, 16, calls, 10);
    told = EndsOf(clients);
    Measured(
        "16 clients, %lu calls acknowledged, %lu cut connections, %zu failed calls, %lu "
        "pieces, %.1f s",
        16 * calls, proxy.Done().cuts.load(), Total(told, 'F'), proxy.Done().pieces.load(),
        Milliseconds(Clock::now() - begin) / 1000);
    EXPECT_GT(proxy.Done().cuts, 0u);
  }
  for (const ClientProgram::Told& client : told) EXPECT_THAT(client.acknowledged, SizeIs(calls));
  ExpectNothingLostOrDoubled(told);
  const size_t unacknowledged = Ledger().size() - 16 * calls;
  EXPECT_LE(unacknowledged, Total(told, 'F')) << "a failed call was noted once or not at all";
  ExpectNobodyThere(before);
}

// The wire has no checksum: what is damaged may become another good message. What can be promised
// is that it hurts nobody but its own connection, for as long as that lives. A response may never
// come when its request's frame was damaged, so that here a damaged connection ends after a while.
TEST_F(Faulty, DamagedBytesHarmNobodyElse) {
  Start("MaxFrameLength = 16777216\n");
  const ProcessFacts before = FactsOf(Service().Pid());
  const u64 calls = Sized<u64>(40, 1000);
  std::vector<ClientProgram::Told> direct;
  std::vector<ClientProgram::Told> damaged;
  {
    FaultProxy proxy(Port(), {200, 200, 0, Sized(20'000u, 8000u), 100}, Seed());
    const Clients good = Callers(Port(), 101, 4, 10 * calls, 10);
    const Clients bad = Callers(proxy.Port(), 1, 8, calls, 10);
    damaged = EndsOf(bad);
    direct = EndsOf(good);
    Measured("8 clients, %lu calls each, %lu damaged pieces, %zu failed calls, %zu logons", calls,
             proxy.Done().damages.load(), Total(damaged, 'F'), Total(damaged, 'R'));
    EXPECT_GT(proxy.Done().damages, 0u);
  }
  for (const ClientProgram::Told& client : damaged) {
    EXPECT_THAT(client.acknowledged, SizeIs(calls)) << "each connects again and goes on";
  }
  EXPECT_EQ(Total(direct, 'F'), 0u) << "of those who are not behind the proxy";
  EXPECT_EQ(Total(direct, 'L'), 0u);
  EXPECT_EQ(Total(direct, 'R'), 4u);
  for (const ClientProgram::Told& client : direct) {
    EXPECT_THAT(client.acknowledged, SizeIs(10 * calls));
    EXPECT_THAT(client.violations, testing::IsEmpty());
  }
  const std::vector<u64> noted = Ledger();
  for (u64 client = 101; client <= 104; ++client) {
    const auto isOfClient = [client](u64 number) { return number >> 32 == client; };
    EXPECT_GE(static_cast<u64>(std::count_if(noted.begin(), noted.end(), isOfClient)), 10 * calls);
  }
  ExpectNobodyThere(before);
}

}  // namespace

}  // namespace zn::test
