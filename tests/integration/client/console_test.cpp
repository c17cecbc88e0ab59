// The console on a server: the verbs over TCP, the ways to log on, and a watch that outlives its
// connection.
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#include <gmock/gmock.h>

#include "tests/integration/service/service_process.h"
#include "tests/unit/support/temporary.h"

namespace zn::test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class RemoteConsole : public testing::Test {
 protected:
  struct Ended {
    int code = -1;
    std::string out;
    std::string err;
  };

  void SetUp() override {
    service_.MustStart();
    WriteFile(folder_ / "password", "toor\n");
  }
  // The program with these words, as a shell runs it.
  [[nodiscard]] Ended Run(const std::string& words) const {
    static std::atomic<int> number{0};
    const std::string err = folder_ / ("err" + std::to_string(++number));
    Ended ended;
    const std::string command = std::string(ZNCTL_PROGRAM) + " " + words + " 2>" + err;
    std::FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return ended;
    char part[256];
    size_t count = 0;
    while ((count = std::fread(part, 1, sizeof(part), pipe)) > 0) ended.out.append(part, count);
    const int status = pclose(pipe);
    ended.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    ended.err = ReadFile(err);
    return ended;
  }
  [[nodiscard]] std::string Place() const {
    return "-H 127.0.0.1:" + std::to_string(service_.Port());
  }
  [[nodiscard]] std::string AsRoot() const {
    return Place() + " --user root --password-file " + (folder_ / "password") + " ";
  }

  TemporaryFolder folder_;
  ServiceProcess service_;
};

TEST_F(RemoteConsole, ShowsTheObjectsOfTheServer) {
  const Ended tree = Run(AsRoot() + "tree");
  EXPECT_EQ(tree.code, 0) << tree.err;
  EXPECT_THAT(tree.out, HasSubstr("Desk lamp"));
  EXPECT_THAT(Run(AsRoot() + "list EXAMPLE_Lamp").out, HasSubstr("Floor lamp"));
  EXPECT_THAT(Run(AsRoot() + "show 'Desk lamp'").out, HasSubstr("Watts"));
  EXPECT_EQ(Run(AsRoot() + "get 'Desk lamp' Watts").out, "8\n");
  EXPECT_THAT(Run(AsRoot() + "types").out, HasSubstr("EXAMPLE_Lamp"));
  EXPECT_THAT(Run(AsRoot() + "type EXAMPLE_Lamp").out, HasSubstr("Watts"));
  EXPECT_THAT(Run(AsRoot() + "providers").out, HasSubstr("example"));
  EXPECT_THAT(Run(AsRoot() + "query 'SELECT FROM EXAMPLE_Lamp WHERE Watts EQ 40'").out,
              HasSubstr("Floor lamp"));
}

TEST_F(RemoteConsole, CallsChangeTheServer) {
  const Ended call = Run(AsRoot() + "call 'Desk lamp' 6f0c2a9b 1 1");
  EXPECT_EQ(call.code, 0) << call.err;
  EXPECT_THAT(call.out, HasSubstr("answered by example"));
  EXPECT_EQ(Run(AsRoot() + "get 'Desk lamp' On").out, "true\n");
  const Ended bad = Run(AsRoot() + "call 'Desk lamp' 6f0c2a9b 9 9");
  EXPECT_EQ(bad.code, 1);
  EXPECT_THAT(bad.err, HasSubstr("ZNE_INVALID_MAJOR_CODE"));
  const Ended refresh = Run(AsRoot() + "refresh");
  EXPECT_EQ(refresh.code, 0) << refresh.err;
  const Ended set = Run(AsRoot() + "set 'Desk lamp' Watts 9");
  EXPECT_EQ(set.code, 2) << "a write would change the copy alone";
  EXPECT_EQ(Run(AsRoot() + "get 'Desk lamp' Watts").out, "8\n");
}

TEST_F(RemoteConsole, TakesThePasswordFromWhereItIsTold) {
  EXPECT_EQ(Run(AsRoot() + "logon").code, 0);
  EXPECT_EQ(Run(Place() + " --user root --password-fd 3 logon 3< " + (folder_ / "password")).code,
            0);
  WriteFile(folder_ / "wrong", "guess\n");
  const Ended wrong =
      Run(Place() + " --user root --password-file " + (folder_ / "wrong") + " logon");
  EXPECT_EQ(wrong.code, 1);
  EXPECT_THAT(wrong.err, HasSubstr("ZNE_ACCESS_DENIED"));
  EXPECT_THAT(wrong.err, HasSubstr("user or password are wrong"));
  EXPECT_EQ(Run(Place() + " --user root logon < /dev/null").code, 2) << "nobody to ask";
  EXPECT_EQ(Run(Place() + " --user root --password-file /nowhere logon").code, 2);
  EXPECT_EQ(Run(Place() + " --user root --password secret logon").code, 2) << "no such option";
}

TEST_F(RemoteConsole, LogsOnLocallyWithoutAPassword) {
  const Ended logon = Run(Place() + " logon");
  EXPECT_EQ(logon.code, 0) << logon.err;
  EXPECT_THAT(logon.out, HasSubstr("through shared memory"));
  EXPECT_EQ(Run("-H :" + std::to_string(service_.Port()) + " get 'Desk lamp' Watts").out, "8\n");
  EXPECT_EQ(Run("-H far.example logon").code, 2) << "there somebody has to log on";
}

TEST_F(RemoteConsole, SaysWhatIsWrongWithAServer) {
  const Ended nobody =
      Run("-H 127.0.0.1:1 --user root --password-file " + (folder_ / "password") + " tree");
  EXPECT_EQ(nobody.code, 1);
  EXPECT_THAT(nobody.err, HasSubstr("UCLE_SOCKET_ERROR"));
  EXPECT_THAT(nobody.err, HasSubstr("nobody answers there"));
  EXPECT_EQ(Run("-H 127.0.0.1:x tree").code, 2);
  EXPECT_EQ(Run("-H 127.0.0.1 --local tree").code, 2);
  EXPECT_EQ(Run("tree").code, 2);
  EXPECT_EQ(Run("--local ping").code, 2);
}

TEST_F(RemoteConsole, PingsAndFindsTheServer) {
  const Ended ping = Run(Place() + " ping --count 2 --wait 30");
  EXPECT_EQ(ping.code, 0) << ping.err;
  EXPECT_THAT(ping.out, ContainsRegex("127\\.0\\.0\\.1:[0-9]+: [0-9.]+ ms\n.* ms\n"));
  EXPECT_EQ(Run("-H 127.0.0.1:1 ping --count 1 --wait 0.1").code, 1);
  for (const char* host : {"127.0.0.1", "localhost", ""}) {
    const Ended hosts = Run("--json hosts --wait 3 --at " + std::string(host) + ":" +
                            std::to_string(service_.Port()));
    EXPECT_EQ(hosts.code, 0) << hosts.err;
    EXPECT_THAT(hosts.out, HasSubstr("\"Socket\"")) << host;
  }
  EXPECT_EQ(Run("hosts --at 99999").code, 2) << "no port";
  const Ended unknown = Run("hosts --at 'no host:1'");
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.err, HasSubstr("cannot find the host no host"));
}

TEST_F(RemoteConsole, FetchesALog) {
  const std::string log = service_.Folder() / "Logs/znmira.log";
  const Ended fetched = Run(AsRoot() + "download " + log + " " + (folder_ / "copy"));
  EXPECT_EQ(fetched.code, 0) << fetched.err;
  EXPECT_NE(ReadFile(folder_ / "copy"), "");
  const Ended refused = Run(AsRoot() + "download /etc/passwd " + (folder_ / "other"));
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("ZNE_CLIENT_NOT_AUTHORIZED"));
  EXPECT_EQ(Run(AsRoot() + "download " + log + " /nowhere/copy").code, 2);
}

TEST_F(RemoteConsole, ListsTasks) {
  const Ended tasks = Run(AsRoot() + "--json tasks");
  EXPECT_EQ(tasks.code, 0) << tasks.err;
  EXPECT_THAT(tasks.out, HasSubstr("\"tasks\": []"));
  EXPECT_EQ(Run(AsRoot() + "tasks stop 1234").code, 2) << "a server's task cannot be stopped here";
}

// A server with a catalog whose file is named as the server alone can find it.
class RemoteMessages : public RemoteConsole {
 protected:
  void SetUp() override {
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::copy_file(ZN_SOURCES "/providers/example/catalogs/kettle.de.txt",
                               folder_ / "kettle.de.txt");
    service_.AddSettings(
        "[Providers.kettle]\n"
        "ImageFile = '" KETTLE_LIBRARY
        "'\nMessageCatalog = '{A4E1B7C2-5D38-4F60-9B0E-7C1D2E3F4A58}'\n"
        "[MessageCatalogs.'{A4E1B7C2-5D38-4F60-9B0E-7C1D2E3F4A58}'.MiraSkin.1]\n"
        "1031 = { ImageFile = 'kettle.de.txt' }\n");
    std::filesystem::current_path(folder_.Path());
    RemoteConsole::SetUp();
    std::filesystem::current_path(here);
    setenv("USERPROFILE", (folder_ / "").c_str(), 1);
  }
  void TearDown() override { unsetenv("USERPROFILE"); }
};

TEST_F(RemoteMessages, ComeFromTheFilesOfTheServer) {
  const Ended catalog = Run(AsRoot() + "messages kettle --locale de");
  EXPECT_EQ(catalog.code, 0) << catalog.err;
  EXPECT_THAT(catalog.out, HasSubstr("0x00000004  Kochen Sie Tee."));
  EXPECT_EQ(Run(AsRoot() + "messages kettle 4 --locale de").out, "Kochen Sie Tee.\n");
  EXPECT_THAT(Run(AsRoot() + "alerts --locale de").out, HasSubstr("Der Wasserkocher kocht"));
  EXPECT_THAT(Run(AsRoot() + "show event.alert.example.kettle.boils --locale de").out,
              HasSubstr("Der Wasserkocher kocht"));
}

// A watch in the background, whose output is a file meanwhile.
class RemoteWatch : public RemoteConsole {
 protected:
  void Begin(const std::string& words) {
    out_ = folder_ / "watch.out";
    WriteFile(out_, "");
    watching_ = std::async(std::launch::async,
                           [this, words] { return Run(AsRoot() + words + " > " + out_); });
    // It has begun when it has seen something.
    ASSERT_TRUE(SwitchUntil([this] { return !ReadFile(out_).empty(); }));
  }
  // Switches the lamp of the server again and again.
  template <typename Holds>
  bool SwitchUntil(Holds&& holds) {
    for (int i = 0; i < 100 && !holds(); ++i) {
      static_cast<void>(Run(AsRoot() + "call 'Desk lamp' 6f0c2a9b 1 " + (i % 2 == 0 ? "1" : "0")));
      static_cast<void>(watching_.wait_for(std::chrono::milliseconds(100)));
    }
    return holds();
  }
  [[nodiscard]] bool HasEnded() const {
    return watching_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

  std::string out_;
  std::future<Ended> watching_;
};

TEST_F(RemoteWatch, OutlivesItsConnection) {
  Begin("watch --type EXAMPLE_Lamp --for 600 --count 40");
  ASSERT_TRUE(Run(AsRoot() + "call 'Desk lamp' 6f0c2a9b 1 1").code == 0);
  ASSERT_EQ(Run(AsRoot() + "get 'Desk lamp' On").out, "true\n");
  const std::string port = std::to_string(service_.Port());
  service_.Signal(SIGKILL);
  static_cast<void>(service_.WaitForEnd());
  const size_t told = ReadFile(out_).size();
  // The lamp of a new server is off: that is what changed meanwhile.
  ServiceProcess next;
  next.MustStart({"--port", port});
  const auto tellsTheChange = [&] {
    return ReadFile(out_).find("On: true", told) != std::string::npos;
  };
  for (int i = 0; i < 300 && !tellsTheChange(); ++i) {
    static_cast<void>(watching_.wait_for(std::chrono::milliseconds(100)));
  }
  EXPECT_TRUE(tellsTheChange()) << ReadFile(out_);
  ASSERT_TRUE(SwitchUntil([this] { return HasEnded(); }));
  const Ended watch = watching_.get();
  EXPECT_EQ(watch.code, 0);
  EXPECT_THAT(watch.err, HasSubstr("znctl: lost the connection to 127.0.0.1:" + port));
  EXPECT_THAT(watch.err, HasSubstr("znctl: connected to 127.0.0.1:" + port + " again"));
}

TEST_F(RemoteWatch, EndsInTimeWithoutAServer) {
  Begin("watch --for 10");
  service_.Signal(SIGKILL);
  const Ended watch = watching_.get();
  EXPECT_EQ(watch.code, 0) << "its time is up";
  EXPECT_THAT(watch.err, HasSubstr("lost the connection to 127.0.0.1"));
  EXPECT_THAT(watch.err, Not(HasSubstr("connected to")));
}

}  // namespace
}  // namespace zn::test
