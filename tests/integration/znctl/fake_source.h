// A hand-made graph of objects for the naming and drawing tests.
#pragma once

#include <map>
#include <string>

#include "naming.h"

namespace zn::ctl {

class FakeSource : public ObjectSource {
 public:
  // The id's first digits are `digits`, so that tests can name it by prefix.
  Id Add(const std::string& name, const std::string& type, u32 digits, bool isGroup = false,
         u32 flags = 0) {
    ObjectInfo info;
    info.id.guid.Data1 = digits;
    info.name = name;
    info.type = type;
    info.isGroup = isGroup;
    info.flags = flags;
    all_.push_back(info.id);
    infos_[info.id] = info;
    return info.id;
  }

  void Relate(const Id& parent, const Id& child) {
    children_[parent].push_back(child);
    parents_[child].push_back(parent);
  }

  const std::vector<Id>& All() override { return all_; }
  const std::vector<Id>& Children(const Id& id) override { return children_[id]; }
  const std::vector<Id>& Parents(const Id& id) override { return parents_[id]; }
  const ObjectInfo* Info(const Id& id) override {
    const auto hit = infos_.find(id);
    return hit == infos_.end() ? nullptr : &hit->second;
  }

 private:
  std::vector<Id> all_;
  std::map<Id, ObjectInfo> infos_;
  std::map<Id, std::vector<Id>> children_;
  std::map<Id, std::vector<Id>> parents_;
};

// A host that lists everything it has, a disk with a partition and two file systems, and groups.
struct FakeMachine : FakeSource {
  Id host = Add("box", "Host", 0x10000000);
  Id disk = Add("sda", "Disk", 0x20000000);
  Id part1 = Add("sda1", "Partition", 0x30000001);
  Id part10 = Add("sda10", "Partition", 0x30000010);
  Id part2 = Add("sda2", "Partition", 0x30000002);
  Id root = Add("/", "FileSystem", 0x40000000);
  Id home = Add("/home", "FileSystem", 0x40000001);
  Id hidden = Add("secret", "Thing", 0x50000000, false, OBJECT_HIDDEN);
  Id system = Add("box", "KELD_SystemGroup", 0xA0000000, true);
  Id disks = Add("Disks", "KELD_GenericGroup", 0xA0000001, true);

  FakeMachine() {
    for (const Id& id : {disk, part1, part10, part2, root, home, hidden}) Relate(host, id);
    for (const Id& id : {part1, part10, part2}) Relate(disk, id);
    Relate(part1, root);
    Relate(part2, home);
    Relate(system, disks);
    Relate(system, system);  // a group may contain itself
    Relate(disks, disk);
  }
};

}  // namespace zn::ctl
