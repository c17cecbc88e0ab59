// What a logon asks of the host: whether a password is the user's, what groups the user is in, and
// whether the user holds the right to load drivers, which is the mark of a machine's administrator.
// One half per host implements it (posix/).
#pragma once

#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn {

// The strings of a credential block, and where they came from.
struct LogonAttempt {
  std::u16string user;
  std::u16string password;
  std::u16string domain;   // empty: none
  std::u16string machine;  // whose names of rights to ask; hosts with one set of rights ignore it
  std::string peer;        // the client's address as text
};

enum class GroupKind { kGlobal, kLocal };

class LogonHost {
 public:
  LogonHost() = default;
  LogonHost(const LogonHost&) = delete;
  LogonHost& operator=(const LogonHost&) = delete;
  virtual ~LogonHost() = default;

  // As a service or over the network, whichever the host lets in. May take as long as the host's
  // own logon does. Any thread.
  [[nodiscard]] virtual bool LogOn(const LogonAttempt& attempt) = 0;
  // Direct and indirect membership in a group of that domain.
  [[nodiscard]] virtual bool IsMember(GroupKind kind, std::u16string_view domain,
                                      std::u16string_view user, std::u16string_view group) = 0;
  [[nodiscard]] virtual bool MayLoadDrivers(std::u16string_view domain,
                                            std::u16string_view user) = 0;
  // No logon is delayed any longer: the service stops.
  virtual void EndDelays() = 0;
};

// This host's. Lives as long as the process.
[[nodiscard]] LogonHost& ThisLogonHost();

}  // namespace zn
