#include "tests/integration/service/service_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <gtest/gtest.h>

#include "support/common/shared_memory.h"

extern char** environ;

namespace zn::test {

ServiceProcess::ServiceProcess(const std::string& settings) {
  WriteFile(SettingsFile(), "InstallDir = '" + folder_.Path() + "'\nBindAddress = '127.0.0.1'\n" +
                                settings + "\n[ProviderGroup]\n[Providers.example]\nImageFile = '" +
                                ZN_EXAMPLE_PROVIDER + "'\n");
  WritePamRules();
}

ServiceProcess::~ServiceProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    static_cast<void>(waitpid(pid_, nullptr, 0));
    // What a killed one leaves until the next service on its port.
    if (port_ != 0) shm_unlink(("/" + AuthSharedMemoryName(port_)).c_str());
  }
  if (out_ >= 0) close(out_);
}

// ben's is good and helps nobody, for he is on no list; daemon is an account of every host, with a
// group of its name.
void ServiceProcess::WritePamRules() const {
  std::filesystem::create_directory(folder_ / "pam");
  WriteFile(folder_ / "passwords",
            "anna:secret:znsvc\nroot:toor:znsvc\nben:secret:znsvc\n"
            "daemon:secret:znsvc\n");
  const std::string matrix = std::string(ZN_PAM_MATRIX) + " passdb=" + (folder_ / "passwords");
  const std::string rules = "auth required " + matrix + "\naccount required " + matrix +
                            "\npassword required " + matrix + "\nsession required " + matrix + "\n";
  // Without the rules for others each logon is a complaint in the output, which nobody reads.
  for (const char* name : {"pam/znsvc", "pam/other"}) WriteFile(folder_ / name, rules);
}

void ServiceProcess::AddSettings(const std::string& text) const {
  WriteFile(SettingsFile(), ReadFile(SettingsFile()) + text);
}

namespace {

// Whether the PAM wrapper of that process has made its folder: its number stands in there.
bool HasPamFolder(pid_t pid) {
  std::error_code none;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp", none)) {
    const std::filesystem::path& path = entry.path();
    if (path.stem() != "pam" || !std::filesystem::exists(path / "znsvc", none)) continue;
    if (std::atoi(ReadFile(path / "pid").c_str()) == pid) return true;
  }
  return false;
}

// The PAM wrapper makes its folder under one of few names, and takes those over that ended
// processes have left. Two that do so at the same time take each other's, so they start one after
// the other.
class StartTurn {
 public:
  StartTurn() : file_(open(File().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    EXPECT_EQ(flock(file_, LOCK_EX), 0) << File();
  }
  ~StartTurn() { close(file_); }
  StartTurn(const StartTurn&) = delete;
  StartTurn& operator=(const StartTurn&) = delete;
  // Until the process has its folder, prints something or ends.
  static void WaitFor(pid_t pid, int out) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    pollfd printed{out, POLLIN, 0};
    while (!HasPamFolder(pid) && poll(&printed, 1, 2) == 0 &&
           std::chrono::steady_clock::now() < limit) {
    }
  }

 private:
  static std::string File() { return "/tmp/zn-test-start." + std::to_string(getuid()); }

  int file_;
};

}  // namespace

void ServiceProcess::Spawn(const std::vector<std::string>& arguments) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  std::vector<std::string> words = {ZNSVC_PROGRAM, "--settings", SettingsFile()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::vector<std::string> variables = {
      std::string("LD_PRELOAD=") + ZN_PRELOAD, "PAM_WRAPPER=1",
      // A thread sanitizer refuses libraries that are bound deeply; this wrapper takes that name.
      "UID_WRAPPER_DISABLE_DEEPBIND=1", "PAM_WRAPPER_SERVICE_DIR=" + (folder_ / "pam"),
      "PAM_WRAPPER_DEBUGLEVEL=0"};
  if (!notifySocket_.empty()) variables.push_back("NOTIFY_SOCKET=" + notifySocket_);
  std::vector<char*> envp;
  for (std::string& variable : variables) envp.push_back(variable.data());
  for (char** variable = environ; *variable != nullptr; ++variable) envp.push_back(*variable);
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  const StartTurn turn;
  const int error = posix_spawn(&pid_, ZNSVC_PROGRAM, &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  ASSERT_EQ(error, 0);
  if (out_ >= 0) close(out_);
  out_ = ends[0];
  StartTurn::WaitFor(pid_, out_);
}

// Without its end; empty at the end of the output.
std::string ServiceProcess::ReadLine() const {
  std::string line;
  char c = 0;
  while (read(out_, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

void ServiceProcess::MustStart(std::vector<std::string> arguments) {
  if (!Start(std::move(arguments))) throw std::runtime_error("no service: " + output_);
}

bool ServiceProcess::Start(std::vector<std::string> arguments) {
  Begin(std::move(arguments));
  return WaitUntilItListens();
}

void ServiceProcess::Begin(std::vector<std::string> arguments) {
  const bool namesPort = std::find(arguments.begin(), arguments.end(), "--port") != arguments.end();
  if (!namesPort) arguments.insert(arguments.end(), {"--port", "0"});
  arguments.emplace_back("--foreground");
  Spawn(arguments);
}

bool ServiceProcess::WaitUntilItListens() {
  constexpr std::string_view kMark = "znsvc: listening on 127.0.0.1, port ";
  for (std::string line = ReadLine(); !line.empty(); line = ReadLine()) {
    output_ += line + "\n";
    if (line.compare(0, kMark.size(), kMark) != 0) continue;
    port_ = static_cast<unsigned>(std::stoul(line.substr(kMark.size())));
    return true;
  }
  return false;
}

std::string ServiceProcess::RestOfOutput() const {
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(out_, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(got));
  }
  return text;
}

int ServiceProcess::RunToEnd(const std::vector<std::string>& arguments) {
  Spawn(arguments);
  output_ = RestOfOutput();
  return WaitForEnd();
}

void ServiceProcess::Signal(int number) const {
  ASSERT_EQ(kill(pid_, number), 0);
}

// What each thread of a process that should have ended waits for.
std::string ServiceProcess::Threads() const {
  std::string text;
  std::error_code none;
  const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, none)) {
    const std::string folder = task.path().string();
    text += folder + ": " + ReadFile(folder + "/comm") + ReadFile(folder + "/syscall") +
            ReadFile(folder + "/stack");
  }
  return text;
}

int ServiceProcess::WaitForEnd() {
  int status = 0;
  pid_t ended = 0;
  for (int i = 0; i < 6000 && ended == 0; ++i) {
    ended = waitpid(pid_, &status, WNOHANG);
    if (ended == 0) usleep(10'000);
  }
  if (ended == 0) ADD_FAILURE() << "the service does not end\n" << Threads() << Trace();
  if (ended != pid_) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace zn::test
