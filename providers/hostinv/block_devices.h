// Disks and partitions as /sys tells them, with the names and labels that udev has found out. How
// the devices are enumerated and where udev's properties come from is the caller's: libudev on a
// live machine, folders and udev's database files on a recorded one.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "machine.h"

namespace hostinv {

// udev's property of one device, empty where it has none.
using UdevProperty = std::function<std::string(const char* key)>;

// Reads the device whose /sys folder is `folder`; `disk` is the disk's name for a partition, else
// empty. Counters are not read.
BlockState ReadBlockDevice(const std::string& folder, const std::string& disk,
                           const UdevProperty& property);

// False for what no one has put to use: loop, zram and network block devices of size 0. A removable
// drive of size 0 waits for its medium and is kept.
bool IsInUse(const BlockState& block);

// Contents of a udev database file ("E:KEY=value" lines) as a property source.
UdevProperty PropertiesOfDatabase(const std::string& text);

}  // namespace hostinv
