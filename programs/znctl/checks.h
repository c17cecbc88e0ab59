// Checks of words on the command line that say what is wanted: of numbers, not what a type could
// hold; of files, not that they cannot be read.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <string>

#include "file_fault.h"

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

// What is wrong with a file that the user named; empty when nothing is.
inline std::string FaultOfFile(const std::string& path) {
  return FaultOfFile(path, path, "there is no file " + path);
}

inline CLI::Validator ARegularFile() {
  return CLI::Validator([](std::string& path) { return FaultOfFile(path); }, "");
}

}  // namespace zn::ctl
