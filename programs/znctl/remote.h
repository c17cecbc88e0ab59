// The bus of a server: where it is, who logs on, and the session that comes of it.
#pragma once

#include <memory>
#include <string>

#include "session.h"
#include "zn/client.h"

namespace zn::ctl {

// What the command line says of a server. The password is asked for once and then kept.
struct RemoteTarget {
  std::string host;
  u32 port = 0;      // 0: the standard port
  std::string user;  // "name" or "domain\name"; empty: the logon through shared memory
  std::string passwordFile;
  int passwordDescriptor = -1;
  bool hasPassword = false;
  std::string password;

  // "host:port" for people.
  std::string Text() const;
};

// "host", "host:port" or ":port", which is this machine. Throws UsageError.
RemoteTarget ParseRemoteTarget(const std::string& text);
// Whether the host is this machine by one of its usual names.
bool IsThisMachine(const std::string& host);

class RemoteSession : public Session {
 public:
  // Connects and logs on. Throws Failure with a hint of what to do about it, UsageError where no
  // password is to be had.
  explicit RemoteSession(RemoteTarget* target);
  ~RemoteSession() override;
  RemoteSession(const RemoteSession&) = delete;
  RemoteSession& operator=(const RemoteSession&) = delete;

  const Database& Objects() const override { return database_; }
  bool EndsWithProgram() const override { return false; }
  ClientHandle* Client() const override { return client_; }
  bool IsLost() const override;

 private:
  void Open(RemoteTarget* target);
  void WatchConnection();

  ClientHandle* client_ = nullptr;
  Database database_{nullptr};
};

// Makes the client side of the library ready while one lives.
class ClientSide {
 public:
  ClientSide();
  ~ClientSide();
  ClientSide(const ClientSide&) = delete;
  ClientSide& operator=(const ClientSide&) = delete;
};

}  // namespace zn::ctl
