#include "service/common/serveroptions.h"

#include <gtest/gtest.h>

#include "tests/unit/support/temporary.h"

namespace zn::test {

namespace {

TEST(ServerOptions, HaveTheirDefaults) {
  const TemporarySettings settings("");
  const ServerOptions options = ReadServerOptions();
  EXPECT_EQ(options.bindAddress, "");
  EXPECT_TRUE(options.tcpNoDelay);
  EXPECT_EQ(options.maxFrameLength, 0u);
  EXPECT_EQ(options.maxLogonFrameLength, 1048576u);
  EXPECT_EQ(options.logonTimeoutSeconds, 60u);
  EXPECT_EQ(options.maxClients, 0u);
  EXPECT_FALSE(options.acceptLogonWarnings);
  EXPECT_EQ(options.maxQueuedBytesPerClient, 67108864u);
}

TEST(ServerOptions, AreReadFromTheSettings) {
  const TemporarySettings settings(
      "BindAddress = '127.0.0.1'\nTcpNoDelay = 0\nMaxFrameLength = 1000\n"
      "MaxLogonFrameLength = 2000\nLogonTimeout = 3\nMaxClients = 4\nAcceptLogonWarnings = 1\n"
      "MaxQueuedBytesPerClient = 5000\n");
  const ServerOptions options = ReadServerOptions();
  EXPECT_FALSE(options.tcpNoDelay);
  EXPECT_TRUE(options.acceptLogonWarnings);
  const UclServerOptions ucl = ToUclOptions(options);
  EXPECT_STREQ(ucl.bindAddress, "127.0.0.1");
  EXPECT_FALSE(ucl.tcpNoDelay);
  EXPECT_EQ(ucl.maxFrameLength, 1000u);
  EXPECT_EQ(ucl.maxLogonFrameLength, 2000u);
  EXPECT_EQ(ucl.logonTimeoutMs, 3000u);
  EXPECT_EQ(ucl.maxClients, 4u);
  EXPECT_EQ(ucl.maxQueuedBytes, 5000u);
  EXPECT_FALSE(ucl.freePort);
}

TEST(ServerOptions, FallBackForAValueOfAnotherType) {
  const TemporarySettings settings("BindAddress = 7\nTcpNoDelay = 'no'\nLogonTimeout = 'x'\n");
  const ServerOptions options = ReadServerOptions();
  EXPECT_EQ(ToUclOptions(options).bindAddress, nullptr);
  EXPECT_TRUE(options.tcpNoDelay);
  EXPECT_EQ(options.logonTimeoutSeconds, 60u);
}

TEST(ServerOptions, ALongLogonTimeoutDoesNotWrap) {
  const TemporarySettings settings("LogonTimeout = 4294968\n");  // 4,294,968,000 ms
  EXPECT_EQ(ToUclOptions(ReadServerOptions()).logonTimeoutMs, 4294967000u);
}

}  // namespace

}  // namespace zn::test
