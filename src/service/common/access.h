// Who may use the service: the lists "AccessUsers" and "AccessGroups" of the settings key
// "Security", and the decision over a password logon.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/common/logonhost.h"
#include "zn/types.h"

namespace zn {

// "domain\name", or "name" alone. Compared exactly; an entry without a domain stands for users who
// gave none.
struct AccessEntry {
  std::optional<std::u16string> domain;
  std::u16string name;
};

// The entries of a text: joined by ';', domain and name joined by '\'. White space is removed
// everywhere, empty parts are dropped, and what follows the second part of an entry is ignored.
[[nodiscard]] std::vector<AccessEntry> ParseAccessList(const std::u16string& text);

class AccessLists {
 public:
  // Reads both lists; a missing key or value leaves one empty. Once, at the start: a change of the
  // settings counts from the next start on.
  void Read();
  void Clear() noexcept;
  void Set(std::vector<AccessEntry> users, std::vector<AccessEntry> groups);

  // Users first, then global groups, then local ones. An empty domain is none.
  [[nodiscard]] bool Allows(std::u16string_view domain, std::u16string_view user,
                            LogonHost& host) const;

  [[nodiscard]] const std::vector<AccessEntry>& Users() const noexcept { return users_; }
  [[nodiscard]] const std::vector<AccessEntry>& Groups() const noexcept { return groups_; }

 private:
  std::vector<AccessEntry> users_;
  std::vector<AccessEntry> groups_;
};

// Whether the password is the user's and the user may use the service: by the lists, or as one who
// holds the right to load drivers.
[[nodiscard]] bool CheckPassword(const LogonAttempt& attempt, const AccessLists& lists,
                                 LogonHost& host);

}  // namespace zn
