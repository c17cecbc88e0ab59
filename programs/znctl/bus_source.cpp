// The objects of a database as the naming rules see them.
#include "bus_source.h"

namespace zn::ctl {
namespace {

std::string TextOf(const Value& value) {
  const auto* text = std::get_if<std::string>(&value.data);
  return text == nullptr ? std::string() : *text;
}

}  // namespace

std::string NameFrom(const PropertyList& properties) {
  const Property* name = FindProperty(properties, "Name");
  return name == nullptr ? std::string() : TextOf(name->value);
}

const std::vector<Id>& BusSource::All() {
  if (!allKnown_) all_ = database_.Objects("");
  allKnown_ = true;
  return all_;
}

const std::vector<Id>& BusSource::Children(const Id& id) {
  const auto known = children_.find(id);
  if (known != children_.end()) return known->second;
  return children_.emplace(id, database_.Children(id)).first->second;
}

const std::vector<Id>& BusSource::Parents(const Id& id) {
  const auto known = parents_.find(id);
  if (known != parents_.end()) return known->second;
  return parents_.emplace(id, database_.Parents(id)).first->second;
}

bool BusSource::IsGroupType(const std::string& type) {
  const auto known = groupTypes_.find(type);
  if (known != groupTypes_.end()) return known->second;
  return groupTypes_.emplace(type, database_.TypeIsA(type, "KELD_Group")).first->second;
}

const ObjectInfo* BusSource::Info(const Id& id) {
  const auto known = infos_.find(id);
  if (known != infos_.end()) return known->second.get();
  const std::optional<std::string> type = database_.TypeOf(id);
  if (!type) return infos_.emplace(id, nullptr).first->second.get();
  const std::optional<Property> name = database_.FindProperty(id, "Name");
  auto info = std::make_unique<ObjectInfo>();
  info->id = id;
  info->type = *type;
  info->name = name ? TextOf(name->value) : std::string();
  info->flags = database_.FlagsOf(id);
  info->isGroup = IsGroupType(*type);
  return infos_.emplace(id, std::move(info)).first->second.get();
}

void BusSource::Forget(const Id& id) {
  infos_.erase(id);
  children_.erase(id);
  parents_.erase(id);
}

void BusSource::ForgetRelations() {
  allKnown_ = false;
  children_.clear();
  parents_.clear();
}

}  // namespace zn::ctl
