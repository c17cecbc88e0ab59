// The user's own tree of downloads, and the reading of passwords.
#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "support/common/download_path.h"
#include "support/common/platform.h"
#include "support/posix/password.h"
#include "tests/unit/support/temporary.h"
#include "zn/platform.h"

namespace zn {
namespace {

using test::Environment;
using test::TemporaryFolder;
using test::WriteFile;

std::string PathFor(const std::string& serverFile, bool isExtension = false,
                    const std::string& name = "{id}") {
  DownloadRequest request{serverFile, isExtension, ""};
  EXPECT_EQ(ZnBuildDownloadPath(name, "MiraSkin", 2, 1033, &request), 1);
  return request.localPath;
}

TEST(DownloadPath, LiesInTheProfile) {
  const TemporaryFolder profile;
  const Environment user("USERPROFILE", profile.Path() + "/");
  const std::string base = profile / ".KELDob/Downloads/";
  EXPECT_EQ(PathFor("C:\\x\\messages.en.cat"), base + "MsgCatalogs/{id}_MiraSkin_2_1033.cat");
  EXPECT_EQ(PathFor("console.so", true), base + "Extensions/{id}_MiraSkin_2_1033.so");
  EXPECT_EQ(PathFor("nosuffix"), base + "MsgCatalogs/{id}_MiraSkin_2_1033");
  EXPECT_EQ(PathFor("dir.d/nosuffix"), base + "MsgCatalogs/{id}_MiraSkin_2_1033")
      << "the point of a folder is no suffix";
  for (const char* folder : {"MsgCatalogs", "Extensions"}) {
    EXPECT_TRUE(std::filesystem::is_directory(base + folder));
  }
  struct stat status {};
  ASSERT_EQ(stat((profile / ".KELDob").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0077, 0u) << "for this user alone";
}

TEST(DownloadPath, HomeStandsInForTheProfile) {
  const TemporaryFolder home;
  const Environment user("USERPROFILE", "");
  const Environment homeVariable("HOME", home.Path());
  EXPECT_EQ(PathFor("a.cat").substr(0, home.Path().size()), home.Path());
}

TEST(DownloadPath, ANameCannotLeaveTheTree) {
  const TemporaryFolder profile;
  const Environment user("USERPROFILE", profile.Path());
  EXPECT_EQ(PathFor("a.cat", false, "../../x\\y"),
            profile / ".KELDob/Downloads/MsgCatalogs/.._.._x_y_MiraSkin_2_1033.cat");
}

TEST(DownloadPath, WithoutATreeThereIsNone) {
  const TemporaryFolder profile;
  DownloadRequest request{"a.cat", false, ""};
  {
    WriteFile(profile / ".KELDob", "a file in the way");
    const Environment user("USERPROFILE", profile.Path());
    EXPECT_EQ(ZnBuildDownloadPath("n", "s", 1, 1, &request), -1);
  }
  const Environment user("USERPROFILE", "");
  const Environment home("HOME", "");
  EXPECT_EQ(ZnBuildDownloadPath("n", "s", 1, 1, &request), -1);
  EXPECT_EQ(request.localPath, "");
}

// What is read from `input`, and what is shown meanwhile.
struct Reading {
  PasswordEnd end = PasswordEnd::kFailed;
  std::string password;
  std::string behind;  // what is left in the buffer behind the password
  std::string shown;
};

Reading ReadFrom(const std::string& input) {
  int in[2];
  int out[2];
  EXPECT_EQ(pipe(in), 0);
  EXPECT_EQ(pipe(out), 0);
  EXPECT_EQ(write(in[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
  close(in[1]);
  Reading reading;
  char password[kPasswordBytes] = "";
  reading.end = ReadPassword(in[0], out[1], password);
  reading.password = password;
  for (const char c :
       std::string_view(password, sizeof(password)).substr(reading.password.size())) {
    if (c != '\0') reading.behind += c;
  }
  close(out[1]);
  char shown[2048];
  const ssize_t count = read(out[0], shown, sizeof(shown));
  reading.shown.assign(shown, static_cast<size_t>(count));
  close(in[0]);
  close(out[0]);
  return reading;
}

TEST(Password, EndsWithTheLine) {
  for (const char* input : {"secret\rrest", "secret\nrest", "secret"}) {
    const Reading reading = ReadFrom(input);
    EXPECT_EQ(reading.end, PasswordEnd::kComplete);
    EXPECT_EQ(reading.password, "secret");
    EXPECT_EQ(reading.shown, "******\n");
  }
  EXPECT_EQ(ReadFrom("\r").password, "");
}

TEST(Password, WhatIsTakenBackLeavesTheBuffer) {
  const Reading reading = ReadFrom("abc\x7F\x7F\r");
  EXPECT_EQ(reading.password, "a");
  EXPECT_EQ(reading.behind, "");
}

TEST(Password, BackspaceTakesAWholeCharacterBack) {
  const Reading reading = ReadFrom(
      "a\xC3\xA4\x7F"
      "b\x08\x08\x08"
      "c\r");
  EXPECT_EQ(reading.password, "c");
  EXPECT_EQ(reading.shown, "**\b \b*\b \b\b \b*\n") << "nothing to take back shows nothing";
}

TEST(Password, IsCutToItsBuffer) {
  std::string keys(400, 'x');
  keys += '\r';
  const Reading reading = ReadFrom(keys);
  EXPECT_EQ(reading.password, std::string(255, 'x'));
}

TEST(Password, AFailingInputGivesNone) {
  char password[kPasswordBytes] = "old";
  EXPECT_EQ(ReadPassword(-1, -1, password), PasswordEnd::kFailed);
  EXPECT_STREQ(password, "");
}

// A terminal with this process at its other end.
class Terminal {
 public:
  Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY)) {
    EXPECT_EQ(grantpt(master_), 0);
    EXPECT_EQ(unlockpt(master_), 0);
    slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY);
    EXPECT_GE(slave_, 0);
  }
  ~Terminal() {
    close(slave_);
    close(master_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  [[nodiscard]] int Slave() const { return slave_; }
  [[nodiscard]] tcflag_t LocalFlags() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(slave_, &settings), 0);
    return settings.c_lflag;
  }
  void Type(const std::string& keys) const {
    EXPECT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  [[nodiscard]] std::string ReadShown() const {
    char shown[256];
    const ssize_t count = read(master_, shown, sizeof(shown));
    return std::string(shown, static_cast<size_t>(std::max<ssize_t>(count, 0)));
  }

 private:
  int master_;
  int slave_ = -1;
};

struct TerminalCase {
  const char* keys;
  PasswordEnd end;
  const char* password;
};

TEST(PasswordThreads, ATerminalDoesNotEchoAndIsSwitchedBack) {
  for (const TerminalCase& c : {TerminalCase{"ab\r", PasswordEnd::kComplete, "ab"},
                                TerminalCase{"ab\x03", PasswordEnd::kInterrupted, ""}}) {
    const Terminal terminal;
    const tcflag_t before = terminal.LocalFlags();
    EXPECT_NE(before & ECHO, 0u);
    char password[kPasswordBytes];
    PasswordEnd end = PasswordEnd::kFailed;
    std::thread reader([&] { end = ReadPassword(terminal.Slave(), terminal.Slave(), password); });
    // The switch flushes what was typed before it, so the keys wait for it.
    while ((terminal.LocalFlags() & ECHO) != 0) std::this_thread::yield();
    terminal.Type(c.keys);
    reader.join();
    EXPECT_EQ(end, c.end);
    EXPECT_STREQ(password, c.password);
    EXPECT_EQ(terminal.LocalFlags(), before);
    EXPECT_EQ(terminal.ReadShown().find("ab"), std::string::npos);
  }
}

}  // namespace
}  // namespace zn
