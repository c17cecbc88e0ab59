// znsvc: the service of the object bus. Exit codes: 0 stopped as told, 1 the start failed, 2 wrong
// usage; with --check 0 nothing is wrong, 1 errors were found.
#include <cstdlib>
#include <exception>
#include <iostream>

#include "check.h"
#include "options.h"
#include "service.h"

int main(int argc, char** argv) {
  using namespace zn::svc;
  try {
    Options options;
    int exitCode = kExitDone;
    if (!ReadCommandLine(argc, argv, &options, &exitCode)) return exitCode;
    if (!options.settings.empty()) setenv("ZN_SETTINGS", options.settings.c_str(), 1);
    return options.check ? RunCheck(std::cout) : RunService(options);
  } catch (const std::exception& error) {
    std::cerr << "znsvc: " << error.what() << '\n';
    return kExitFailed;
  }
}
