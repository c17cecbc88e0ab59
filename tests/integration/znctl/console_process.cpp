// The console as a process of its own. Its environment is made from nothing but PATH, a UTF-8
// locale and what the test asks for, so that results do not depend on who runs the tests.
#include "console_process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace zn::ctl {
namespace {

constexpr std::chrono::seconds kPatience(60);

struct Child {
  pid_t pid = -1;
  std::array<int, 2> outputs{-1, -1};  // read ends; the second is -1 on a terminal
  int input = -1;
};

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (const std::string& text : texts) out.push_back(const_cast<char*>(text.c_str()));
  out.push_back(nullptr);
  return out;
}

[[noreturn]] void Become(const Invocation& run) {
  std::vector<std::string> arguments{ZNCTL_PROGRAM};
  arguments.insert(arguments.end(), run.arguments.begin(), run.arguments.end());
  std::map<std::string, std::string> variables = {
      {"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C.UTF-8"}, {"TERM", "xterm"}, {"TZ", "UTC0"}};
  for (const char* kept : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"}) {
    if (const char* value = getenv(kept)) variables[kept] = value;
  }
  for (const auto& [name, value] : run.environment) variables[name] = value;
  std::vector<std::string> environment;
  for (const auto& [name, value] : variables) environment.push_back(name + "=" + value);
  execve(ZNCTL_PROGRAM, Pointers(arguments).data(), Pointers(environment).data());
  _exit(127);
}

Child StartOnPipes(const Invocation& run) {
  int in[2];
  int out[2];
  int err[2];
  EXPECT_EQ(pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC) | pipe2(err, O_CLOEXEC), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    Become(run);
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  return {pid, {out[0], err[0]}, in[1]};
}

Child StartOnTerminal(const Invocation& run) {
  int master = -1;
  winsize size{24, 80, 0, 0};
  const pid_t pid = forkpty(&master, nullptr, nullptr, &size);
  if (pid == 0) Become(run);
  return {pid, {master, -1}, -1};
}

// Reads both outputs to their ends; does what the test wants once the awaited text is there.
class Reading {
 public:
  Reading(const Invocation& run, Child* child) : run_(run), child_(child) {}

  void ReadAll(Finished* finished) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::array<std::string*, 2> texts{&finished->out, &finished->err};
    while (child_->outputs[0] >= 0 || child_->outputs[1] >= 0) {
      std::array<pollfd, 2> waits{pollfd{child_->outputs[0], POLLIN, 0},
                                  pollfd{child_->outputs[1], POLLIN, 0}};
      if (std::chrono::steady_clock::now() > end) {
        ADD_FAILURE() << "the console did not end; so far: " << finished->out << finished->err;
        kill(child_->pid, SIGKILL);
        return;
      }
      poll(waits.data(), waits.size(), 1000);
      for (size_t i = 0; i < waits.size(); ++i) {
        if (waits[i].fd >= 0 && waits[i].revents != 0) Take(i, texts[i]);
      }
      ActOnce(finished->out + finished->err);
    }
  }

 private:
  void Take(size_t stream, std::string* text) {
    char buffer[65536];
    const ssize_t got = read(child_->outputs[stream], buffer, sizeof(buffer));
    if (got > 0) {
      text->append(buffer, static_cast<size_t>(got));
      return;
    }
    close(child_->outputs[stream]);
    child_->outputs[stream] = -1;
  }

  void ActOnce(const std::string& output) {
    if (acted_ || run_.untilOutput.empty()) return;
    if (output.find(run_.untilOutput) == std::string::npos) return;
    acted_ = true;
    if (run_.signal != 0) kill(child_->pid, run_.signal);
    if (run_.closeOutput && child_->outputs[0] >= 0) {
      close(child_->outputs[0]);
      child_->outputs[0] = -1;
    }
  }

  const Invocation& run_;
  Child* child_;
  bool acted_ = false;
};

}  // namespace

Workplace::Workplace() {
  char name[] = "/tmp/znctl_test.XXXXXX";
  EXPECT_NE(mkdtemp(name), nullptr);
  folder_ = name;
  Write("settings.toml", "InstallDir = \"" + folder_ +
                             "\"\n[ProviderGroup]\n[Providers.bench]\nImageFile = \"" +
                             ZNCTL_TEST_PROVIDER + "\"\n");
}

Workplace::~Workplace() {
  std::filesystem::remove_all(folder_);
}

void Workplace::Write(const std::string& name, const std::string& text) const {
  std::ofstream(File(name), std::ios::binary) << text;
}

std::string Workplace::Read(const std::string& name) const {
  std::ostringstream text;
  text << std::ifstream(File(name), std::ios::binary).rdbuf();
  return text.str();
}

Finished Workplace::Znctl(std::vector<std::string> arguments) const {
  Invocation run;
  run.arguments = std::move(arguments);
  return Do(std::move(run));
}

Finished Workplace::Do(Invocation run) const {
  std::vector<std::string> first{"--settings", Settings()};
  const bool needsBus = run.local && !run.arguments.empty() && run.arguments.front() != "settings";
  if (needsBus) first.insert(first.begin(), "--local");
  run.arguments.insert(run.arguments.begin(), first.begin(), first.end());
  run.environment.emplace("ZNCTL_TEST_LOG", File("log"));
  Child child = run.onTerminal ? StartOnTerminal(run) : StartOnPipes(run);
  if (child.input >= 0) {
    EXPECT_EQ(write(child.input, run.input.data(), run.input.size()),
              static_cast<ssize_t>(run.input.size()));
    close(child.input);
  }
  Finished finished;
  Reading(run, &child).ReadAll(&finished);
  int status = 0;
  waitpid(child.pid, &status, 0);
  finished.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return finished;
}

}  // namespace zn::ctl
