// How long the tests wait for what has to come: it ends a test that fails, and costs no other.
#pragma once

#include <chrono>

namespace hostinv {

inline constexpr std::chrono::seconds kPatience(60);

}  // namespace hostinv
