// What the service tells while it runs: on the terminal when it was started by hand, in the
// system's log otherwise, and to systemd where that waits for it.
#pragma once

#include <string>

namespace zn::svc {

class Report {
 public:
  explicit Report(bool toTerminal);

  void Say(const std::string& text) const;
  void Complain(const std::string& text) const;
  void Ready(const std::string& status) const;
  void Reloading() const;
  void Stopping() const;

 private:
  bool toTerminal_;
};

}  // namespace zn::svc
