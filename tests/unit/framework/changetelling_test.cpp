// Who tells changes: the change thread, or a thread that would wait for it.
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "framework/common/znevent/eventqueue.h"
#include "tests/unit/framework/event_fixture.h"

namespace zn::test {

namespace {

// A database whose change callback writes down which thread it ran on, and waits where it is told.
class ChangeTelling : public EventTest {
 protected:
  void SetUp() override {
    EventTest::SetUp();
    tellers.Clear();
    hold = nullptr;
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle) {
      if (hold) hold();
      tellers.Add(std::this_thread::get_id());
    };
    {
      const BusLock lock;
      noted_ = std::make_unique<Database>(0, callbacks);
    }
    // From here on the change thread sleeps.
    Queue(false);
    static_cast<void>(tellers.WaitFor(1));
    while (!TellChangesHere()) std::this_thread::yield();
    tellers.Clear();
  }
  void TearDown() override {
    const BusLock lock;
    noted_.reset();
  }
  void Queue(bool isQuiet) {
    const BusLock lock;
    const QuietQueueing quiet(isQuiet);
    QueueChange(*noted_, PropertySet());
  }

  static inline Collected<std::thread::id> tellers;
  static inline std::function<void()> hold;
  std::unique_ptr<Database> noted_;
  Gate inside_;
  Gate leave_;
};

TEST_F(ChangeTelling, AThreadMayTellWhatItQueuedQuietly) {
  for (int i = 0; i < 3; ++i) Queue(true);
  EXPECT_EQ(ChangesUnderWay(), 3u);
  EXPECT_TRUE(TellChangesHere());
  EXPECT_EQ(tellers.Items(), std::vector<std::thread::id>(3, std::this_thread::get_id()));
  EXPECT_EQ(ChangesUnderWay(), 0u);
  EXPECT_TRUE(TellChangesHere()) << "also where there is nothing";
}

TEST_F(ChangeTelling, TheChangeThreadGoesOnWithWhatWasQueuedQuietlyMeanwhile) {
  hold = [this] {
    inside_.Open();
    EXPECT_TRUE(leave_.Wait());
  };
  Queue(false);
  ASSERT_TRUE(inside_.Wait());
  Queue(true);
  EXPECT_FALSE(TellChangesHere());
  leave_.Open();
  const auto list = tellers.WaitFor(2);
  EXPECT_NE(list[1], std::this_thread::get_id());
}

TEST_F(ChangeTelling, WhatComesWhileAThreadTellsGoesToTheChangeThread) {
  hold = [this] {
    if (tellers.Items().empty()) Queue(false);
  };
  Queue(true);
  EXPECT_TRUE(TellChangesHere());
  const auto list = tellers.WaitFor(2);
  EXPECT_EQ(list[0], std::this_thread::get_id());
  EXPECT_NE(list[1], std::this_thread::get_id());
}

TEST_F(ChangeTelling, AStopWaitsForTheThreadThatTells) {
  hold = [this] {
    inside_.Open();
    EXPECT_TRUE(leave_.Wait());
  };
  Queue(true);
  std::thread teller([] { EXPECT_TRUE(TellChangesHere()); });
  ASSERT_TRUE(inside_.Wait());
  Collected<size_t> toldAtStop;
  std::thread stopper([&] {
    StopEventThreads();
    toldAtStop.Add(tellers.Items().size());
  });
  leave_.Open();
  stopper.join();
  teller.join();
  EXPECT_EQ(toldAtStop.Items()[0], 1u);
  EXPECT_FALSE(TellChangesHere()) << "without the threads";
}

TEST_F(ChangeTelling, ATellerIsNotAskedToTellAgainInsideACallback) {
  bool answer = true;
  hold = [&] { answer = TellChangesHere(); };
  Queue(true);
  EXPECT_TRUE(TellChangesHere());
  EXPECT_FALSE(answer);
}

}  // namespace

}  // namespace zn::test
