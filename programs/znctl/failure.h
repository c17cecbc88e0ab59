// How a verb gives up. Failure carries a status of the bus (exit code 1), UsageError a mistake in
// the command line (exit code 2), Interrupted a signal (exit code 128 + signal). main() alone
// catches them, after the session has been shut down by its destructor.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "zn/types.h"

namespace zn::ctl {

struct Failure : std::runtime_error {
  Failure(u32 statusCode, const std::string& text, std::vector<std::string> moreLines = {})
      : std::runtime_error(text), status(statusCode), details(std::move(moreLines)) {}
  u32 status;
  std::vector<std::string> details;  // printed below the first line: candidates, hints
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Interrupted : std::runtime_error {
  explicit Interrupted(int signalNumber)
      : std::runtime_error("interrupted"), signal(signalNumber) {}
  int signal;
};

}  // namespace zn::ctl
