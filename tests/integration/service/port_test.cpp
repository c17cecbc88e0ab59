// The port that the program keeps for the library.
#include "port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace zn::svc {
namespace {

using testing::IsEmpty;

constexpr char kLoopback[] = "127.0.0.1";

class TestSocket {
 public:
  explicit TestSocket(int type, int family = AF_INET)
      : fd_(socket(family, type | SOCK_CLOEXEC, 0)) {}
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
    return BindTo(name);
  }
  template <typename Name>
  [[nodiscard]] int BindTo(const Name& name) const {
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

// Free for both protocols.
unsigned FreePort() {
  const ReservedPort chosen(kLoopback, 0);
  EXPECT_THAT(chosen.Fault(), IsEmpty());
  return chosen.Port();
}

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

TEST(ReservedPort, TakesDatagramsWhereThisProcessHasASocketForThem) {
  const ReservedPort reserved(kLoopback, 0);
  ASSERT_NE(reserved.Port(), 0u);
  EXPECT_FALSE(reserved.TakesDatagrams()) << "its own is one of TCP";
  const TestSocket library(SOCK_DGRAM);
  ASSERT_EQ(library.Bind(reserved.Port()), 0);
  EXPECT_TRUE(reserved.TakesDatagrams());
  EXPECT_FALSE(reserved.IsListenedOn()) << "of TCP";
  const ReservedPort another(kLoopback, 0);
  EXPECT_FALSE(another.TakesDatagrams()) << "that is another port";
}

// Its name has the port in the same place.
TEST(ReservedPort, IsNotListenedOnByWhoListensOnThePortOfIPv6) {
  const ReservedPort reserved(kLoopback, 0);
  ASSERT_NE(reserved.Port(), 0u);
  const TestSocket six(SOCK_STREAM, AF_INET6);
  sockaddr_in6 name{};
  name.sin6_family = AF_INET6;
  name.sin6_addr = in6addr_loopback;
  name.sin6_port = htons(static_cast<unsigned short>(reserved.Port()));
  if (six.BindTo(name) != 0) GTEST_SKIP() << "this host has no IPv6, or the port is taken there";
  ASSERT_EQ(six.Listen(), 0);
  EXPECT_FALSE(reserved.IsListenedOn());
}

TEST(ReservedPort, MayBeNamed) {
  const unsigned port = FreePort();
  const ReservedPort reserved(kLoopback, port);
  EXPECT_THAT(reserved.Fault(), IsEmpty());
  EXPECT_EQ(reserved.Port(), port);
}

TEST(ReservedPort, TellsWhyItIsNotToBeHad) {
  const unsigned port = FreePort();
  const std::string name = "127.0.0.1:" + std::to_string(port);
  {
    const TestSocket stream(SOCK_STREAM);
    ASSERT_EQ(stream.Bind(port, true), 0);
    ASSERT_EQ(stream.Listen(), 0);
    const ReservedPort taken(kLoopback, port);
    EXPECT_EQ(taken.Fault(), "TCP " + name + ": Address already in use");
    EXPECT_EQ(taken.Port(), 0u);
  }
  const TestSocket datagrams(SOCK_DGRAM);
  ASSERT_EQ(datagrams.Bind(port), 0);
  const ReservedPort taken(kLoopback, port);
  EXPECT_EQ(taken.Fault(), "UDP " + name + ": Address already in use");
  EXPECT_EQ(taken.Port(), 0u);
}

TEST(ReservedPort, TellsWhyItsAddressIsNotToBeHad) {
  EXPECT_EQ(ReservedPort("localhost", 0).Fault(), "'localhost' is no IPv4 address");
  EXPECT_EQ(ReservedPort("198.51.100.7", 0).Fault(),
            "no free port on 198.51.100.7: Cannot assign requested address");
  EXPECT_EQ(ReservedPort("198.51.100.7", 2148).Fault(),
            "TCP 198.51.100.7:2148: Cannot assign requested address");
}

}  // namespace
}  // namespace zn::svc
