// What the tests of the network share: the service with the ledger provider, client programs and
// what they told, what a process costs, gates, and the two sizes of each test. Short ones run with
// every suite; with ZN_SOAK in the environment they run at full size, which scripts/soak.sh does.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/integration/network/ledger.h"
#include "tests/integration/service/raw_client.h"
#include "tests/integration/service/service_process.h"
#include "tests/unit/support/temporary.h"
#include "zn/status.h"

namespace zn::test {

using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif
// What is slowed down by a sanitizer may take longer.
inline constexpr int kSlowness = kIsSanitized ? 10 : 1;

[[nodiscard]] inline bool IsFullSize() {
  return std::getenv("ZN_SOAK") != nullptr;
}
template <typename T>
[[nodiscard]] T Sized(T shortForm, T full) {
  return IsFullSize() ? full : shortForm;
}

// A line of the report: what was measured, by the name of the running test.
__attribute__((format(printf, 1, 2))) void Measured(const char* format, ...);

// Another one each time, or the one of ZN_SOAK_SEED; told, so that a run can be repeated.
[[nodiscard]] u64 Seed();

[[nodiscard]] bool Eventually(const std::function<bool()>& holds,
                              std::chrono::milliseconds most = std::chrono::seconds(30));
[[nodiscard]] i64 MonotonicNs();
[[nodiscard]] double Milliseconds(Clock::duration duration);

// The value that so many percent of the values do not exceed.
[[nodiscard]] double Percentile(std::vector<double> values, double percent);

// What a process holds.
struct ProcessFacts {
  size_t residentKiB = 0;
  size_t descriptors = 0;
  size_t threads = 0;
};
[[nodiscard]] ProcessFacts FactsOf(pid_t pid);

// A place where the ledger provider waits until the test lets it go.
class Gate {
 public:
  explicit Gate(const char* variable);
  [[nodiscard]] bool WaitUntilReached() const;
  void Open() const;

 private:
  TemporaryFolder folder_;
  std::string path_;
  Environment environment_;
};

// The client program as a process; its output goes to a file.
class ClientProgram {
 public:
  struct Event {
    char kind;  // 'C', 'O', 'R', 'F' or 'L', see network_client.cpp
    i64 time;
    std::string status;
  };
  struct Told {
    std::vector<u64> acknowledged;
    std::vector<Event> events;
    std::vector<std::string> violations;

    [[nodiscard]] size_t Count(char kind) const;
  };

  explicit ClientProgram(const std::vector<std::string>& arguments);
  ~ClientProgram();
  ClientProgram(const ClientProgram&) = delete;
  ClientProgram& operator=(const ClientProgram&) = delete;

  [[nodiscard]] static std::unique_ptr<ClientProgram> Append(unsigned port, u64 client, u64 count,
                                                             u64 every = 0,
                                                             unsigned patienceMs = 0);
  // Connects and logs on in steps that it tells.
  [[nodiscard]] static std::unique_ptr<ClientProgram> AppendInSteps(unsigned port, u64 client);
  [[nodiscard]] static std::unique_ptr<ClientProgram> Listen(unsigned port);

  void Signal(int number) const;
  // The exit code, 128 + the number of the signal that ended it.
  int WaitForEnd();
  [[nodiscard]] Told WhatItTold() const;
  // It is logged on for the so-manieth time.
  [[nodiscard]] bool WaitUntilReady(size_t times = 1) const;

 private:
  TemporaryFolder folder_;
  pid_t pid_ = -1;
};

class Network : public testing::Test {
 protected:
  // With the example provider and the ledger.
  void Start(const std::string& settings = {}, std::vector<std::string> arguments = {});
  // Made, but not started.
  void Prepare(const std::string& settings = {});
  // It serves whoever comes, and ends as it should.
  void StopService();
  void TearDown() override;

  [[nodiscard]] unsigned Port() const { return service_->Port(); }
  [[nodiscard]] ServiceProcess& Service() { return *service_; }
  // How often a text stands in the trace of the service.
  [[nodiscard]] size_t Traced(const std::string& text) const;
  // What the file of the ledger holds, in order of the calls.
  [[nodiscard]] std::vector<u64> Ledger() const;
  // Nothing that was acknowledged is lost, and nothing is there twice.
  void ExpectNothingLostOrDoubled(const std::vector<ClientProgram::Told>& clients) const;

  // A client that speaks frames by hand, logged on; with its first cache request made it is told of
  // changes.
  [[nodiscard]] std::unique_ptr<RawClient> RawSession(bool listens = true) const;
  [[nodiscard]] static ObjectId LedgerOf(RawClient& client);
  [[nodiscard]] static PropertySet LedgerCall(const ObjectId& ledger, u32 minorCode,
                                              PropertySet data = {});

 private:
  TemporaryFolder folder_;
  Environment ledgerFile_{ledger::kFileVariable, folder_ / "ledger"};
  std::unique_ptr<ServiceProcess> service_;
};

// A TCP port of the loopback address that is free now.
[[nodiscard]] unsigned FreeLoopbackPort();

// Room for so many open files in this process and in what it starts; false when the host refuses.
[[nodiscard]] bool AllowDescriptors(size_t count);

}  // namespace zn::test
