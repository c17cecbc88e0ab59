// Consoles that follow a server while it is killed and started again on its port: `watch` and
// `alerts --follow` say that the connection is lost, take it up again, and go on.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tests/integration/service/service_process.h"
#include "tests/unit/support/temporary.h"

extern char** environ;

namespace zn::test {
namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;

// The console as a process in the background, with its outputs in files.
class Following {
 public:
  Following(std::string stem, const std::vector<std::string>& words)
      : out_(stem + ".out"), err_(stem + ".err") {
    std::vector<std::string> all = {ZNCTL_PROGRAM};
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char*> argv;
    for (std::string& word : all) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, out_.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, err_.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    EXPECT_EQ(posix_spawn(&pid_, ZNCTL_PROGRAM, &files, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&files);
  }
  ~Following() { static_cast<void>(End()); }
  Following(const Following&) = delete;
  Following& operator=(const Following&) = delete;

  [[nodiscard]] std::string Out() const { return ReadFile(out_); }
  [[nodiscard]] std::string Err() const { return ReadFile(err_); }
  [[nodiscard]] std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    const std::string text = Out();
    for (size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
      lines.push_back(text.substr(at, end - at));
    }
    return lines;
  }
  // Whether it waits for somebody to read what it writes.
  [[nodiscard]] bool Writes() const {
    const std::string call = ReadFile("/proc/" + std::to_string(pid_) + "/syscall");
    return call.starts_with(std::to_string(SYS_write) + " ");
  }
  // As Ctrl-C ends it: the exit code.
  int End() {
    if (pid_ > 0) kill(pid_, SIGINT);
    return Wait();
  }
  int Wait() {
    if (pid_ <= 0) return code_;
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
    pid_ = -1;
    code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return code_;
  }

 private:
  std::string out_;
  std::string err_;
  pid_t pid_ = -1;
  int code_ = -1;
};

class RemoteFollowing : public testing::Test {
 protected:
  static std::string Settings() {
    return "\n[Providers.kettle]\nImageFile = '" KETTLE_LIBRARY "'\n";
  }
  RemoteFollowing() {
    WriteFile(folder_ / "password", "toor\n");
    service_.AddSettings(Settings());
    next_.AddSettings(Settings());
    service_.MustStart();
    port_ = std::to_string(service_.Port());
  }
  [[nodiscard]] std::vector<std::string> Words(const std::vector<std::string>& verb) const {
    std::vector<std::string> words = {"-H",   "127.0.0.1:" + port_, "--user",
                                      "root", "--password-file",    folder_ / "password"};
    words.insert(words.end(), verb.begin(), verb.end());
    return words;
  }
  void Switch(const char* lamp, bool on) const {
    Following call(folder_ / "call", Words({"call", lamp, "6f0c2a9b", "1", on ? "1" : "0"}));
    ASSERT_TRUE(Until([&] { return !call.Out().empty() || !call.Err().empty(); }));
    ASSERT_EQ(call.Err(), "");
  }
  // Returns when each of them has said so: then it shows nothing more of that server.
  void Kill(const std::vector<Following*>& followers) {
    service_.Signal(SIGKILL);
    static_cast<void>(service_.WaitForEnd());
    for (const Following* following : followers) {
      ASSERT_TRUE(
          Until([&] { return following->Err().find("lost the connection") != std::string::npos; }));
    }
  }
  // Another process with the same port, and objects of its own.
  void StartAgain() { next_.MustStart({"--port", port_}); }
  static bool Until(const std::function<bool()>& holds) {
    for (int i = 0; i < 600; ++i) {
      if (holds()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return holds();
  }
  // Whether one of the lines from that one on has all of the parts.
  static bool Tells(const Following& following, size_t from,
                    const std::vector<std::string>& parts) {
    const std::vector<std::string> lines = following.Lines();
    for (size_t i = from; i < lines.size(); ++i) {
      bool hasAll = true;
      for (const std::string& part : parts) hasAll &= lines[i].find(part) != std::string::npos;
      if (hasAll) return true;
    }
    return false;
  }
  void ExpectTakenUpAgain(Following& following) const {
    EXPECT_EQ(following.End(), 0);
    EXPECT_EQ(following.Err(), "znctl: lost the connection to 127.0.0.1:" + port_ +
                                   "; trying again\nznctl: connected to 127.0.0.1:" + port_ +
                                   " again\n");
  }

  TemporaryFolder folder_;
  ServiceProcess service_;
  ServiceProcess next_;
  std::string port_;
};

constexpr char kOnBecomesTrue[] =
    R"({"property":"On","type":"boolean","before":false,"after":true})";
constexpr char kOnBecomesFalse[] =
    R"({"property":"On","type":"boolean","before":true,"after":false})";

TEST_F(RemoteFollowing, GoesOnWithTheServerThatComesBack) {
  Following watch(folder_ / "watch",
                  Words({"watch", "--json", "--type", "EXAMPLE_Lamp", "--for", "120"}));
  Following alerts(folder_ / "alerts", Words({"alerts", "--follow", "--json", "--for", "120"}));
  ASSERT_TRUE(Until([&] {
    Switch("Floor lamp", false);
    Switch("Floor lamp", true);
    return !watch.Out().empty();
  }));
  Switch("Desk lamp", true);
  ASSERT_TRUE(Until([&] { return Tells(watch, 0, {"Desk lamp", kOnBecomesTrue}); }));
  ASSERT_TRUE(Until([&] { return !alerts.Lines().empty(); }));

  Kill({&watch, &alerts});
  const size_t watched = watch.Lines().size();
  const size_t alerted = alerts.Lines().size();
  StartAgain();
  // Both lamps of the new server are off: that is what changed meanwhile.
  for (const char* lamp : {"Desk lamp", "Floor lamp"}) {
    EXPECT_TRUE(Until([&] {
      return Tells(watch, watched, {lamp, R"("kind":"data.change")", kOnBecomesFalse});
    })) << watch.Out();
  }
  EXPECT_TRUE(Until([&] {
    return Tells(alerts, alerted, {R"("topic":"event.alert.example.kettle.boils")"});
  })) << alerts.Out();
  Switch("Desk lamp", true);
  EXPECT_TRUE(Until([&] { return Tells(watch, watched, {"Desk lamp", kOnBecomesTrue}); }));
  EXPECT_THAT(watch.Lines(), Each(HasSubstr(R"("type":"EXAMPLE_Lamp")")))
      << "nothing else was asked for";
  ExpectTakenUpAgain(watch);
  ExpectTakenUpAgain(alerts);
}

TEST_F(RemoteFollowing, FindsTheObjectAgainThatItWatches) {
  Switch("Desk lamp", true);
  Switch("Floor lamp", true);
  Following watch(folder_ / "watch",
                  Words({"watch", "--json", "--object", "Desk lamp", "--for", "120"}));
  ASSERT_TRUE(Until([&] {
    Switch("Desk lamp", false);
    Switch("Desk lamp", true);
    return Tells(watch, 0, {kOnBecomesTrue});
  }));
  Kill({&watch});
  const size_t watched = watch.Lines().size();
  StartAgain();
  EXPECT_TRUE(Until([&] { return Tells(watch, watched, {kOnBecomesFalse}); })) << watch.Out();
  Switch("Floor lamp", true);
  Switch("Desk lamp", true);
  EXPECT_TRUE(Until([&] { return Tells(watch, watched, {kOnBecomesTrue}); })) << watch.Out();
  EXPECT_THAT(watch.Lines(), Each(Not(HasSubstr("Floor lamp"))));
  ExpectTakenUpAgain(watch);
}

TEST_F(RemoteFollowing, ShowsTheMarksOfManyChangesOnlyWhereTheyAreAskedFor) {
  Following all(folder_ / "all", Words({"watch", "--json", "--for", "120"}));
  Following marks(folder_ / "marks",
                  Words({"watch", "--json", "event.keld.dom.cache", "--for", "120"}));
  // A call that makes a task tells of more than one change.
  ASSERT_TRUE(Until([&] {
    const Following refresh(folder_ / "refresh", Words({"refresh"}));
    EXPECT_TRUE(Until([&] { return !refresh.Out().empty() || !refresh.Err().empty(); }));
    return marks.Out().find("cache.listen") != std::string::npos &&
           all.Out().find("KELD_Task") != std::string::npos;
  })) << marks.Err();
  EXPECT_THAT(marks.Out(), HasSubstr("event.keld.dom.cache.deaf"));
  EXPECT_THAT(all.Out(), Not(HasSubstr("event.keld.dom.cache")));
  EXPECT_EQ(all.End(), 0);
  EXPECT_EQ(marks.End(), 0);
}

// A pipe that stands for the console's output, full: the console waits in its first write.
class FullPipe {
 public:
  explicit FullPipe(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    fd_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    while (write(fd_, "\n", 1) == 1) {
    }
  }
  ~FullPipe() { close(fd_); }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;
  void Drain() const {
    char bytes[4096];
    while (read(fd_, bytes, sizeof bytes) > 0) {
    }
  }

 private:
  int fd_ = -1;
};

class RemoteLast : public RemoteFollowing, public testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Verbs, RemoteLast, testing::Values("alerts --follow", "watch"));

TEST_P(RemoteLast, ALossBehindTheLastThatWasAskedForIsNone) {
  const FullPipe pipe(folder_ / "follow.out");
  std::vector<std::string> words = {"--count", "1", "--for", "120"};
  std::istringstream verb(GetParam());
  words.insert(words.begin(), std::istream_iterator<std::string>(verb), {});
  Following following(folder_ / "follow", Words(words));
  ASSERT_TRUE(Until([&] {
    Switch("Floor lamp", false);
    Switch("Floor lamp", true);
    return following.Writes();
  }));
  service_.Signal(SIGKILL);
  static_cast<void>(service_.WaitForEnd());
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the console hears of it
  pipe.Drain();
  EXPECT_EQ(following.Wait(), 0);
  EXPECT_EQ(following.Err(), "");
}

TEST_F(RemoteFollowing, ShowsThatTheServerStops) {
  Following watch(folder_ / "watch", Words({"watch", "--for", "600"}));
  ASSERT_TRUE(Until([&] {
    Switch("Floor lamp", false);
    Switch("Floor lamp", true);
    return !watch.Out().empty();
  }));
  service_.Signal(SIGTERM);
  EXPECT_EQ(service_.WaitForEnd(), 0);
  EXPECT_TRUE(Until([&] {
    return watch.Out().find("event.alert.keld.server.shutdown") != std::string::npos;
  })) << watch.Out();
  EXPECT_EQ(watch.End(), 0);
}

TEST_F(RemoteFollowing, EndsWhenThePasswordIsRefused) {
  WriteFile(next_.Folder() / "passwords", "root:changed:znsvc\n");
  Following alerts(folder_ / "alerts", Words({"alerts", "--follow", "--for", "120"}));
  ASSERT_TRUE(Until([&] { return !alerts.Out().empty(); }));
  Kill({&alerts});
  StartAgain();
  EXPECT_TRUE(Until([&] { return alerts.Err().find("ZNE_ACCESS_DENIED") != std::string::npos; }))
      << alerts.Err();
  EXPECT_EQ(alerts.End(), 1);
}

}  // namespace
}  // namespace zn::test
