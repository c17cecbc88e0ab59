// The console as a process of its own: arguments in, exit code and both outputs out, on pipes or on
// a terminal of 80 columns.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace zn::ctl {

struct Finished {
  int code = -1;  // exit code, or 128 + signal as a shell counts it
  std::string out;
  std::string err;  // empty on a terminal, where all is one stream
};

struct Invocation {
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;
  std::string input;
  bool onTerminal = false;
  bool local = true;        // with --local, but for the settings verbs
  std::string untilOutput;  // then `signal` is sent, or the output closed where that is 0
  int signal = 0;
  bool closeOutput = false;
};

// A folder of its own with a settings file that loads the test provider.
class Workplace {
 public:
  Workplace();
  ~Workplace();
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

  std::string File(const std::string& name) const { return folder_ + "/" + name; }
  std::string Settings() const { return File("settings.toml"); }
  void Write(const std::string& name, const std::string& text) const;
  std::string Read(const std::string& name) const;

  // Runs znctl with --settings, and with --local unless `arguments` start with "settings".
  Finished Znctl(std::vector<std::string> arguments) const;
  Finished Do(Invocation run) const;

 private:
  std::string folder_;
};

}  // namespace zn::ctl
