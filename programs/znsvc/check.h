// znsvc --check: what is wrong with the settings, told by file and line, without starting anything.
#pragma once

#include <toml++/toml.h>

#include <iosfwd>
#include <string>

namespace zn::svc {

// What was found, as it is told: "<file>:<line>: error: <what>".
class Findings {
 public:
  Findings(std::ostream& out, std::string file) : out_(out), file_(std::move(file)) {}
  // Line 0 where no line can be named.
  void Error(unsigned line, const std::string& what);
  void Warn(unsigned line, const std::string& what);
  [[nodiscard]] unsigned Errors() const noexcept { return errors_; }
  [[nodiscard]] unsigned Warnings() const noexcept { return warnings_; }

 private:
  void Tell(unsigned line, const char* kind, const std::string& what);

  std::ostream& out_;
  std::string file_;
  unsigned errors_ = 0;
  unsigned warnings_ = 0;
};

// The entry of that name, without regard to case; null when there is none.
[[nodiscard]] const toml::node* FindEntry(const toml::table& table, std::string_view name);
// The same, when it is a table or a text.
[[nodiscard]] const toml::table* FindTable(const toml::table& table, std::string_view name);
[[nodiscard]] std::string TextOf(const toml::table& table, std::string_view name,
                                 const std::string& fallback = {});
[[nodiscard]] unsigned LineOf(const toml::node& node) noexcept;
// The parts of a text that ';' joins, without white space.
[[nodiscard]] std::vector<std::string> SplitList(const std::string& text, char delimiter);

void CheckValues(const toml::table& root, Findings& findings);
void CheckNetwork(const toml::table& root, Findings& findings);
void CheckSecurity(const toml::table& root, Findings& findings);
void CheckProviders(const toml::table& root, Findings& findings);
void CheckDocuments(const toml::table& root, Findings& findings);
void CheckCatalogs(const toml::table& root, Findings& findings);

// Checks the settings that count. The exit code: kExitDone when there is no error.
[[nodiscard]] int RunCheck(std::ostream& out);

}  // namespace zn::svc
