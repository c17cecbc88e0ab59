// An inventory as text, one line per property, to compare a whole machine with a file.
#pragma once

#include <string>

#include "inventory.h"

namespace hostinv {

std::string Dump(const Inventory& inventory);

// The text of tests/integration/hostinv/expected_objects.txt: what the recorded tree shows.
std::string ExpectedObjects();

}  // namespace hostinv
