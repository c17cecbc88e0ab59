// A machine as the objects the bus will hold: each with its key, its type, its properties and its
// parents. Describe makes an Inventory of a MachineState, Compare tells what to do to turn one into
// another. Plain values, free of the bus, so that all of it is tested without one.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "machine.h"

namespace hostinv {

// A time of the bus: the C library's seconds.
struct Time {
  std::int64_t seconds = 0;
  bool operator==(const Time&) const = default;
};

// One alternative per kind of property this provider has: boolean, uint32, uint64, time, string
// (UTF-8), wide string, array of string. The schema's tags and these alternatives agree.
using Value = std::variant<bool, std::uint32_t, std::uint64_t, Time, std::string, std::u16string,
                           std::vector<std::string>>;
using Properties = std::map<std::string, Value, std::less<>>;

struct Item {
  const char* type = nullptr;  // one of the schema's names
  Properties properties;
  std::set<std::string> parents;  // keys
};

// Keys, the bytes that the objects carry as their lookup keys: "host", "memory", "cpu:0",
// "block:sda", "block:sda1", "fs:/home", "net:eth0".
using Inventory = std::map<std::string, Item, std::less<>>;

inline constexpr char kHostKey[] = "host";
inline constexpr char kFileSystemPrefix[] = "fs:";

Inventory Describe(const MachineState& state);

// What changed from one inventory to the next. A thing whose type changed under its key is removed
// and added.
struct Changes {
  std::vector<std::string> removed;
  std::vector<std::string> added;
  std::map<std::string, Properties> changed;                  // only the properties that differ
  std::vector<std::pair<std::string, std::string>> unlinked;  // parent, child; both still there
  std::vector<std::pair<std::string, std::string>> linked;    // parent, child; added ones included

  bool IsEmpty() const {
    return removed.empty() && added.empty() && changed.empty() && unlinked.empty() &&
           linked.empty();
  }
};

Changes Compare(const Inventory& before, const Inventory& after);

}  // namespace hostinv
