// A provider of the test that hears the alerts of the inventory and keeps their texts in German.
#pragma once

#include <string>
#include <vector>

#include "zn/types.h"

namespace hostinv {

struct HeardAlert {
  std::string topic;
  std::string text;  // "message / action", in German
  std::string key;   // user properties
  ObjectId object{};
};

class AlertListener {
 public:
  // Registers on the running bus; to the end of the process.
  static void Start(ZnHandle database);
  // The alerts heard since the last call, all those raised before it among them.
  static std::vector<HeardAlert> Take();
  // The same, waiting for at least so many, a minute at most.
  static std::vector<HeardAlert> WaitFor(std::size_t count);
};

// The settings that list the catalogs of the inventory provider.
std::string CatalogSettings();

}  // namespace hostinv
