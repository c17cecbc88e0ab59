// The service as a process: settings, PAM rules and passwords of a test's own, a free port, and
// what the process prints.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/unit/support/temporary.h"
#include "zn/types.h"

namespace zn::test {

// What the lamps of the example provider serve.
inline constexpr GUID kSwitch = {
    0x6F0C2A9B, 0x51C4, 0x4D0E, {0x9A, 0x37, 0x2B, 0x8E, 0x1D, 0x7C, 0x40, 0xF5}};

class ServiceProcess {
 public:
  // `settings` is added to the least that a service needs, which loads the example provider.
  explicit ServiceProcess(const std::string& settings = {});
  ~ServiceProcess();
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;

  // Starts it with a free port and waits until it listens. When it ends instead, Start is false and
  // MustStart throws what it printed, which ends the test.
  void MustStart(std::vector<std::string> arguments = {});
  [[nodiscard]] bool Start(std::vector<std::string> arguments = {});
  // The two halves of Start: between them the providers load.
  void Begin(std::vector<std::string> arguments);
  [[nodiscard]] bool WaitUntilItListens();
  // Starts it with these arguments alone and waits for its end: the exit code.
  int RunToEnd(const std::vector<std::string>& arguments);
  void Signal(int number) const;
  // Waits for the end: the exit code, 128 + the signal's number for one that a signal ended, -1 for
  // one that does not end within a minute.
  int WaitForEnd();

  [[nodiscard]] unsigned Port() const { return port_; }
  [[nodiscard]] pid_t Pid() const { return pid_; }
  [[nodiscard]] const std::string& Output() const { return output_; }
  [[nodiscard]] std::string Trace() const { return ReadFile(folder_ / "Logs/znmira.log"); }
  [[nodiscard]] std::string SettingsFile() const { return folder_ / "settings.toml"; }
  [[nodiscard]] const TemporaryFolder& Folder() const { return folder_; }
  // What it printed since; once it has ended.
  [[nodiscard]] std::string RestOfOutput() const;
  void AddSettings(const std::string& text) const;
  // Where the process tells what systemd would hear; before Start.
  void SetNotifySocket(const std::string& path) { notifySocket_ = path; }

 private:
  void Spawn(const std::vector<std::string>& arguments);
  [[nodiscard]] std::string ReadLine() const;
  void WritePamRules() const;
  [[nodiscard]] std::string Threads() const;

  TemporaryFolder folder_;
  std::string notifySocket_;
  pid_t pid_ = -1;
  int out_ = -1;
  unsigned port_ = 0;
  std::string output_;
};

}  // namespace zn::test
