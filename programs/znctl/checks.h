// Checks of words on the command line that say what is wanted: of numbers, not what a type could
// hold; of files, not that they cannot be read.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace zn::ctl {

inline CLI::Validator AtLeastOne() {
  return CLI::Validator(
      [](std::string& text) {
        const bool isZero = std::strtoull(text.c_str(), nullptr, 0) == 0;  // or no number at all
        return isZero ? std::string("give 1 or more") : std::string();
      },
      "");
}

inline CLI::Validator ANumberOfSeconds() {
  constexpr double kMost = 1e9;  // some thirty years; more is no time of day any more
  return CLI::Validator(
      [=](std::string& text) {
        char* end = nullptr;
        const double seconds = std::strtod(text.c_str(), &end);
        const bool isGood = *end == '\0' && end != text.c_str() && seconds >= 0 && seconds <= kMost;
        return isGood ? std::string() : std::string("give a number of seconds, 0 or more");
      },
      "");
}

// What is wrong with a file that is to be read to its end; empty when nothing is. A pipe or a
// device might never have one.
inline std::string FaultOfFile(const std::string& path) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::none) {
    return path + " cannot be read: " + error.message();
  }
  if (!std::filesystem::exists(status)) return "there is no file " + path;
  if (std::filesystem::is_directory(status)) return path + " is a folder";
  return std::filesystem::is_regular_file(status) ? "" : path + " is not a regular file";
}

inline CLI::Validator ARegularFile() {
  return CLI::Validator([](std::string& path) { return FaultOfFile(path); }, "");
}

}  // namespace zn::ctl
