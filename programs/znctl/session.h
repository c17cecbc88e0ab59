// Where the bus is. A session gives the database on which the verbs work, and ends everything it
// started when it is destroyed: the bus in this very process, or the one of a server (remote.h).
#pragma once

#include <memory>
#include <string>

#include "bus.h"
#include "zn/client.h"

namespace zn::ctl {

class Session {
 public:
  virtual ~Session() = default;
  virtual const Database& Objects() const = 0;
  // Whether calls and tasks end with this program.
  virtual bool EndsWithProgram() const = 0;
  // The session with a server, null where there is none.
  virtual ClientHandle* Client() const { return nullptr; }
  // Whether its server has gone: what was read since may lack anything.
  virtual bool IsLost() const { return false; }
};

// The settings file that applies: the one named, else that of the environment, else the default.
std::string SettingsFile();

// Throws Failure with a hint of what to do about it.
std::unique_ptr<Session> StartLocalSession();

// What is wrong with a settings file, as text for people; empty where nothing is.
std::string FaultOfSettingsFile(const std::string& file);

}  // namespace zn::ctl
