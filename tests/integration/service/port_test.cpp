// The port that the program keeps for the library.
#include "port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <set>
#include <vector>

#include <gmock/gmock.h>

namespace zn::svc {
namespace {

using testing::IsEmpty;
using testing::StartsWith;

constexpr char kLoopback[] = "127.0.0.1";

class TestSocket {
 public:
  explicit TestSocket(int type) : fd_(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {}
  ~TestSocket() { close(fd_); }
  TestSocket(const TestSocket&) = delete;
  TestSocket& operator=(const TestSocket&) = delete;
  // 0 or the error number.
  [[nodiscard]] int Bind(unsigned port, bool shares = false) const {
    const int isShared = shares ? 1 : 0;
    EXPECT_EQ(setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &isShared, sizeof isShared), 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    name.sin_port = htons(static_cast<unsigned short>(port));
    return bind(fd_, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 ? 0 : errno;
  }
  [[nodiscard]] int Listen() const { return listen(fd_, 1) == 0 ? 0 : errno; }
  [[nodiscard]] unsigned Port() const {
    sockaddr_in name{};
    socklen_t length = sizeof name;
    EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr*>(&name), &length), 0);
    return ntohs(name.sin_port);
  }

 private:
  int fd_;
};

TEST(ReservedPort, IsGivenToNobodyElse) {
  const ReservedPort reserved(kLoopback, 0);
  EXPECT_THAT(reserved.Fault(), IsEmpty());
  ASSERT_NE(reserved.Port(), 0u);
  EXPECT_EQ(TestSocket(SOCK_STREAM).Bind(reserved.Port()), EADDRINUSE);
  std::set<unsigned> given = {reserved.Port()};
  std::vector<std::unique_ptr<ReservedPort>> others;
  for (int i = 0; i < 300; ++i) {
    others.push_back(std::make_unique<ReservedPort>(kLoopback, 0));
    EXPECT_TRUE(given.insert(others.back()->Port()).second) << others.back()->Port();
  }
}

TEST(ReservedPort, IsListenedOnByWhoSharesIt) {
  const ReservedPort reserved(kLoopback, 0);
  EXPECT_FALSE(reserved.IsListenedOn());
  const TestSocket library(SOCK_STREAM);
  ASSERT_EQ(library.Bind(reserved.Port(), true), 0);
  EXPECT_FALSE(reserved.IsListenedOn());
  ASSERT_EQ(library.Listen(), 0);
  EXPECT_TRUE(reserved.IsListenedOn());
  const ReservedPort another(kLoopback, 0);
  EXPECT_FALSE(another.IsListenedOn()) << "that is another port";
}

TEST(ReservedPort, MayBeNamed) {
  unsigned port = 0;
  {
    const ReservedPort chosen(kLoopback, 0);
    port = chosen.Port();
  }
  const ReservedPort reserved(kLoopback, port);
  EXPECT_THAT(reserved.Fault(), IsEmpty());
  EXPECT_EQ(reserved.Port(), port);
}

TEST(ReservedPort, TellsWhyItIsNotToBeHad) {
  const TestSocket stream(SOCK_STREAM);
  ASSERT_EQ(stream.Bind(0, true), 0);
  ASSERT_EQ(stream.Listen(), 0);
  const ReservedPort taken(kLoopback, stream.Port());
  EXPECT_EQ(taken.Fault(),
            "TCP 127.0.0.1:" + std::to_string(stream.Port()) + ": Address already in use");
  EXPECT_EQ(taken.Port(), 0u);
  const TestSocket datagrams(SOCK_DGRAM);
  ASSERT_EQ(datagrams.Bind(0), 0);
  EXPECT_EQ(ReservedPort(kLoopback, datagrams.Port()).Fault(),
            "UDP 127.0.0.1:" + std::to_string(datagrams.Port()) + ": Address already in use");
  EXPECT_EQ(ReservedPort("localhost", 0).Fault(), "'localhost' is no IPv4 address");
  EXPECT_THAT(ReservedPort("198.51.100.7", 0).Fault(), StartsWith("TCP 198.51.100.7:0: "));
}

}  // namespace
}  // namespace zn::svc
