// The objects of a database as the naming rules see them. What was read once is kept: a verb sees
// one state of the bus. Main thread only.
#pragma once

#include <memory>
#include <unordered_map>

#include "bus.h"
#include "naming.h"

namespace zn::ctl {

class BusSource : public ObjectSource {
 public:
  explicit BusSource(const Database& database) : database_(database) {}

  const std::vector<Id>& All() override;
  const std::vector<Id>& Children(const Id& id) override;
  const std::vector<Id>& Parents(const Id& id) override;
  const ObjectInfo* Info(const Id& id) override;

  void Forget(const Id& id);  // read it afresh next time
  void ForgetRelations();

 private:
  bool IsGroupType(const std::string& type);
  std::string ReadName(const Id& id, const std::string& type) const;

  const Database& database_;
  bool allKnown_ = false;
  std::vector<Id> all_;
  std::unordered_map<Id, std::vector<Id>, IdHash> children_;
  std::unordered_map<Id, std::vector<Id>, IdHash> parents_;
  std::unordered_map<Id, std::unique_ptr<ObjectInfo>, IdHash> infos_;
  std::unordered_map<std::string, bool> groupTypes_;
};

// The name as text, whichever of the two string types holds it. Alerts and the files offered to
// clients have none: they are called by their topic and by their file.
std::string NameFrom(const std::string& type, const PropertyList& properties);

}  // namespace zn::ctl
