// Clients that do not read what they are told, among others that do.
#include <signal.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <thread>

#include "tests/integration/network/network.h"

namespace zn::test {

namespace {

constexpr size_t kReaders = 48;
constexpr u64 kTextBytes = 64 << 10;
constexpr char kDropped[] =
    "Connection of 127.0.0.1 dropped: it does not read, and more than 256 KiB wait for it";

// Sessions that read all that they are told, each on a thread of its own, and note how late it is.
class Readers {
 public:
  explicit Readers(std::vector<std::unique_ptr<RawClient>> clients)
      : clients_(std::move(clients)) {}
  ~Readers() { Join(); }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

  // Each reads so many tellings, the first of which has the number `first`.
  void Begin(u64 first, u64 count) {
    received_ = 0;
    delays_.clear();
    for (const auto& client : clients_) {
      threads_.emplace_back([this, &client, first, count] { Read(*client, first, count); });
    }
  }
  void Join() {
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
  }
  void WaitUntilReceived(u64 count) const {
    for (u64 now = received_; now < count; now = received_) received_.wait(now);
  }
  // In ms, of all that was received since Begin; after Join.
  [[nodiscard]] const std::vector<double>& Delays() const { return delays_; }

 private:
  void Read(RawClient& client, u64 first, u64 count) {
    std::vector<double> delays;
    for (u64 i = 0; i < count; ++i) {
      const double delay = ReadOne(client, first + i);
      if (delay < 0) break;
      delays.push_back(delay);
      ++received_;
      received_.notify_all();
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    EXPECT_EQ(delays.size(), count) << "a reader was dropped, or its order is wrong";
    delays_.insert(delays_.end(), delays.begin(), delays.end());
    received_ += count - delays.size();  // whoever waits is not to wait for ever
    received_.notify_all();
  }
  // Below 0 when it is not the one that is due. Events of the service's start, which the delivery
  // may reach only now, are none of these tellings.
  [[nodiscard]] static double ReadOne(RawClient& client, u64 number) {
    RawFrame frame;
    while (client.Receive(&frame)) {
      const i64 now = MonotonicNs();
      const PropertySet change = frame.Set();
      const Value* data = change.FindValue("Data", ZN_TYPE_PROPSET);
      const Value* text =
          data == nullptr ? nullptr : data->AsSet().FindValue("Text", ZN_TYPE_BINARY);
      if (text == nullptr || text->AsBinary().size() != kTextBytes) continue;
      i64 stamp = 0;
      u64 told = 0;
      std::memcpy(&stamp, text->AsBinary().data(), sizeof stamp);
      std::memcpy(&told, text->AsBinary().data() + 8, sizeof told);
      return told == number ? static_cast<double>(now - stamp) / 1e6 : -1;
    }
    return -1;
  }

  std::vector<std::unique_ptr<RawClient>> clients_;
  std::vector<std::thread> threads_;
  std::atomic<u64> received_{0};
  std::mutex mutex_;
  std::vector<double> delays_;
};

class StoppedReaders : public Network {
 protected:
  // So many tellings, each when all readers have the one before; how long each call took, in ms.
  std::vector<double> Tell(RawClient& caller, const ObjectId& ledger, Readers& readers, u64 count) {
    readers.Begin(told_ + 1, count);
    PropertySet data;
    data.Put("Size", Value::UInt64(kTextBytes));
    const PropertySet call = LedgerCall(ledger, ledger::kTell, data);
    std::vector<double> times;
    for (u64 i = 1; i <= count; ++i) {
      const auto begin = Clock::now();
      EXPECT_EQ(NumberOf(caller.Ask(call).Set(), "Result"), ZN_OK);
      times.push_back(Milliseconds(Clock::now() - begin));
      readers.WaitUntilReceived(i * kReaders);
    }
    told_ += count;
    readers.Join();
    return times;
  }

  u64 told_ = 0;
};

TEST_F(StoppedReaders, CostTheOthersNothingAndAreDropped) {
  Start("MaxQueuedBytesPerClient = 262144\n");
  std::vector<std::unique_ptr<RawClient>> listeners;
  for (size_t i = 0; i < kReaders; ++i) listeners.push_back(RawSession());
  const ObjectId ledger = LedgerOf(*listeners[0]);
  Readers readers(std::move(listeners));
  const auto caller = RawSession(false);  // never asked for objects, so it is told nothing
  const std::vector<double> callsBefore = Tell(*caller, ledger, readers, Sized<u64>(20, 200));
  const std::vector<double> before = readers.Delays();

  const auto idle = RawSession();  // reads nothing more
  const auto stopped = ClientProgram::Listen(Port());
  ASSERT_TRUE(stopped->WaitUntilReady());
  stopped->Signal(SIGSTOP);
  std::vector<double> calls;
  std::vector<double> delays;
  for (int i = 0; i < 100 && Traced(kDropped) < 2; ++i) {
    for (const double time : Tell(*caller, ledger, readers, 20)) calls.push_back(time);
    delays.insert(delays.end(), readers.Delays().begin(), readers.Delays().end());
  }
  EXPECT_EQ(Traced(kDropped), 2u) << "the two that do not read, and nobody else";
  for (const double time : Tell(*caller, ledger, readers, Sized<u64>(20, 200))) {
    calls.push_back(time);
  }
  EXPECT_EQ(Traced(kDropped), 2u);
  Measured(
      "48 readers: a notification of 64 KiB is late by %.2f ms (half), %.2f ms (99 %%), %.2f "
      "ms (all)",
      Percentile(before, 50), Percentile(before, 99), Percentile(before, 100));
  Measured("with 2 stopped ones among them %.2f ms (half), %.2f ms (99 %%), %.2f ms (all)",
           Percentile(delays, 50), Percentile(delays, 99), Percentile(delays, 100));
  Measured("the call that tells takes %.2f ms (half) before, %.2f ms (half), %.2f ms (all) then",
           Percentile(callsBefore, 50), Percentile(calls, 50), Percentile(calls, 100));
  EXPECT_LT(Percentile(delays, 100), 1000 * kSlowness);
  EXPECT_LT(Percentile(calls, 100), 1000 * kSlowness);

  // Whoever was dropped finds out when it reads again.
  stopped->Signal(SIGCONT);
  EXPECT_EQ(stopped->WaitForEnd(), 0) << "it was told of its loss";
  EXPECT_EQ(stopped->WhatItTold().Count('L'), 1u);
  RawFrame frame;
  u64 read = 0;
  while (idle->Receive(&frame)) ++read;
  EXPECT_GT(read, 0u);
  EXPECT_LT(read, told_);
}

}  // namespace

}  // namespace zn::test
