// Start and stop of a server through the exports. A process has one server life, so each runs in a
// child of its own.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <thread>

#include <gmock/gmock.h>

#include "tests/unit/support/refused_calls.h"
#include "tests/unit/support/temporary.h"
#include "zn/init.h"
#include "zn/pr.h"
#include "zn/status.h"
#include "zn/trace.h"

namespace zn::test {

namespace {

using testing::HasSubstr;
using testing::Not;

// Runs the body in a child; its failed expectations fail the test.
void InAProcess(const std::function<void()>& body) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "see above";
}

// A TCP port of the loopback address that nobody else has, or that this object has.
class PortHolder {
 public:
  PortHolder() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof name;
    EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    EXPECT_EQ(listen(fd_, 1), 0);
    EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr*>(&name), &length), 0);
    port_ = ntohs(name.sin_port);
  }
  ~PortHolder() { Release(); }
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;
  void Release() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  [[nodiscard]] u32 Port() const { return port_; }

 private:
  int fd_;
  u32 port_ = 0;
};

class ServerLife : public testing::Test {
 protected:
  void Write(const std::string& more = {}, bool hasInstallDir = true) {
    settings_.Write(
        (hasInstallDir ? "InstallDir = '" + settings_.Folder().Path() + "'\n" : "") +
        "BindAddress = '127.0.0.1'\n" + more +
        "[ProviderGroup]\n[Providers]\n[Tracing.znmira]\nTRACELEVEL = 1\nTraceFile = '" +
        TraceFile() + "'\n");
  }
  [[nodiscard]] std::string TraceFile() const { return settings_.Folder() / "trace.log"; }
  [[nodiscard]] std::string Trace() const { return ReadFile(TraceFile()); }
  // Whether the texts stand in the trace in this order.
  void ExpectInOrder(const std::vector<std::string>& texts) const {
    const std::string trace = Trace();
    size_t at = 0;
    for (const std::string& text : texts) {
      const size_t found = trace.find(" :  " + text, at);
      EXPECT_NE(found, std::string::npos) << text;
      if (found != std::string::npos) at = found;
    }
  }
  [[nodiscard]] static u32 FreePort() {
    PortHolder holder;
    return holder.Port();
  }

  TemporarySettings settings_;
};

TEST_F(ServerLife, TellsItsStepsInOrder) {
  Write();
  InAProcess([] {
    EXPECT_EQ(InitializeServer(nullptr, FreePort(), 0, 0), ZN_OK);
    EXPECT_EQ(ShutdownServer(), ZN_OK);
  });
  ExpectInOrder({"ZnSvc:Tracing Initialized successfully",
                 "ZnAPI:ZnInitialize:System database created",
                 "ZnAPI:ZnInitialize:Provider loading complete", "ZnSvc:System database created",
                 "ZnSvc:Send thread created successfully",
                 "ZnSvc:Broadcast listener thread created successfully",
                 "ZnAPI:Entering ObRaiseAlert", "ZnAPI:Entering ObRaiseAlert"});
  EXPECT_THAT(Trace(), Not(HasSubstr("BIND FAILED!!!")));
  EXPECT_THAT(Trace(), Not(HasSubstr("Failed to raise alert")));
}

TEST_F(ServerLife, RunsWithoutAPortWhenItIsTaken) {
  Write();
  const PortHolder taken;
  InAProcess([&] {
    EXPECT_EQ(InitializeServer(nullptr, taken.Port(), 0, 0), ZN_OK);
    ZnHandle system = nullptr;
    EXPECT_EQ(PrGetProviderByName(nullptr, u"system", &system), ZN_OK);
    EXPECT_EQ(ShutdownServer(), ZN_OK);
  });
  ExpectInOrder({"BIND FAILED!!!", "ZnSvc:System database created"});
}

TEST_F(ServerLife, FailsWithoutTheThreadsOfTheFramework) {
  Write();
  InAProcess([] {
    // The start opens the trace file behind the framework alone.
    EXPECT_EQ(ZnTraceInit(u"znmira", 0, nullptr), ZN_OK);
    WithRefusedCalls(kThreadCalls, EAGAIN, [] {
      EXPECT_EQ(InitializeServer(nullptr, FreePort(), 0, 0), ZNE_UNEXPECTED);
    });
    EXPECT_EQ(ShutdownServer(), ZN_OK);
  });
  ExpectInOrder({"ZnSvc: Initializing framework", "ZnSvc: Framework initialization failed."});
  EXPECT_THAT(Trace(), Not(HasSubstr("ZnSvc: Framework initialized")));
}

TEST_F(ServerLife, RunsWithoutTheThreadsThatTellClients) {
  Write("[Providers.threadless]\nImageFile = '" ZN_TEST_BARE
        "'\nProviderEntry = 'ThreadlessEntry'\n");
  InAProcess([] {
    std::thread([] { EXPECT_EQ(InitializeServer(nullptr, FreePort(), 0, 0), ZN_OK); }).join();
    ZnHandle provider = nullptr;
    EXPECT_EQ(PrGetProviderByName(nullptr, u"threadless", &provider), ZN_OK);
    EXPECT_EQ(ShutdownServer(), ZN_OK);
  });
  ExpectInOrder({"ZnSvc:System database created", "ZnSvc:Failed to create send thread",
                 "ZnSvc:Failed to create broadcast listener thread",
                 "ZnAPI:Entering ObRaiseAlert"});
  EXPECT_THAT(Trace(), Not(HasSubstr("created successfully")));
  EXPECT_THAT(Trace(), Not(HasSubstr("Failed to raise alert")));
}

TEST_F(ServerLife, FailsWithoutAnInstallDirAndCanBeStopped) {
  Write("", false);
  InAProcess([] {
    EXPECT_EQ(InitializeServer(nullptr, FreePort(), 0, 0), ZNE_UNEXPECTED);
    EXPECT_EQ(ShutdownServer(), ZN_OK);
  });
  ExpectInOrder(
      {"ZnAPI:ZnInitialize:Provider loading complete", "ZnSvc:Failed to create System database"});
}

TEST_F(ServerLife, StartsOnceInAProcess) {
  Write();
  InAProcess([] {
    const u32 port = FreePort();
    EXPECT_EQ(InitializeServer(nullptr, port, 0, 0), ZN_OK);
    EXPECT_EQ(InitializeServer(nullptr, port, 0, 0), ZNE_UNEXPECTED);
    EXPECT_EQ(ShutdownServer(), ZN_OK);
    EXPECT_EQ(InitializeServer(nullptr, port, 0, 0), ZNE_UNEXPECTED);
    ZnHandle system = nullptr;
    EXPECT_EQ(PrGetProviderByName(nullptr, u"system", &system), ZNE_INVALID_ARGUMENTS);
  });
}

TEST_F(ServerLife, StopsWithoutAStart) {
  InAProcess([] { EXPECT_EQ(ShutdownServer(), ZN_OK); });
}

TEST_F(ServerLife, HasNoComponentActivation) {
  InAProcess([] {
    InitDCOM();
    UninitDCOM();
  });
}

}  // namespace

}  // namespace zn::test
