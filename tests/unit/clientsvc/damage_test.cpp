// A server whose answers are damaged, byte by byte: no damage of an answer costs the client more
// than the session that it made, and the next one works.
#include <algorithm>
#include <atomic>
#include <utility>

#include <gmock/gmock.h>

#include "tests/unit/clientsvc/fake_server.h"
#include "zn/status.h"

namespace zn::test {
namespace {

class Damaged : public ClientTest {
 protected:
  // A logon with one answer damaged at one place; how it ends is the damage's.
  void TryWith(u32 message, size_t place, u8 flip) {
    server_.On(message, [this, message, place, flip](const PropertySet& request) {
      std::optional<std::string> answer = server_.Answered(message, request);
      length_ = std::max(length_.load(), answer->size());  // the answers of a kind differ
      if (place < answer->size()) (*answer)[place] = static_cast<char>((*answer)[place] ^ flip);
      return answer;
    });
    const u32 status = LogOn();
    EXPECT_EQ(handle_ != nullptr, status == ZN_OK) << message << ", byte " << place;
    End();
  }
  void End() {
    if (handle_ == nullptr) return;
    EXPECT_EQ(ClDeleteDatabase(std::exchange(handle_, nullptr), database_), ZN_OK);
  }
  // At every place of the answer, and cut off there.
  void TryEveryPlace(u32 message, size_t step) {
    length_ = 1;
    size_t tries = 0;
    for (size_t place = 0; place < length_; place += step) {
      for (const u8 flip : {u8{0x01}, u8{0x80}}) TryWith(message, place, flip);
      server_.On(message, [this, message, place](const PropertySet& request) {
        const std::string answer = *server_.Answered(message, request);
        return answer.substr(0, std::min(place, answer.size()));
      });
      const u32 status = LogOn();
      EXPECT_EQ(handle_ != nullptr, status == ZN_OK) << message << ", cut at " << place;
      // The first requests have answers of many lengths, and not each of them must be good.
      if (message != wire::kCacheRequest) {
        EXPECT_NE(status, ZN_OK) << message << ", cut at " << place;
      }
      End();
      ++tries;
    }
    EXPECT_GT(tries, 10u);
    server_.On(message, nullptr);
    EXPECT_EQ(LogOn(), ZN_OK) << "the next one works";
  }

  std::atomic<size_t> length_{0};
};

TEST_F(Damaged, AnswersToTheOfferCostTheirLogonAlone) {
  TryEveryPlace(wire::kSessionOffer, 1);
}

TEST_F(Damaged, AnswersToTheChallengeCostTheirLogonAlone) {
  TryEveryPlace(wire::kChallengeRequest, 13);
}

TEST_F(Damaged, AnswersToTheLogonCostTheirLogonAlone) {
  TryEveryPlace(wire::kLogon, 1);
}

TEST_F(Damaged, AnswersToTheFirstRequestsCostTheirLogonAlone) {
  TryEveryPlace(wire::kCacheRequest, 7);
}

}  // namespace
}  // namespace zn::test
