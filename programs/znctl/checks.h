// Checks of numbers on the command line that say what is wanted, not what a type could hold.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <string>

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

}  // namespace zn::ctl
