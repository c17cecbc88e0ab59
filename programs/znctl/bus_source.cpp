// The objects of a database as the naming rules see them.
#include "bus_source.h"

namespace zn::ctl {
namespace {

std::string TextOf(const Value& value) {
  const auto* text = std::get_if<std::string>(&value.data);
  return text == nullptr ? std::string() : *text;
}

// What stands for the name of an object of the library's own; null for other types.
struct NameRow {
  const char* type;
  std::string (*name)(const PropertyList& properties);
};

std::string TopicOf(const PropertyList& properties) {
  const Property* generic = FindProperty(properties, "GenericAlertPropset");
  const auto* set = generic == nullptr ? nullptr : std::get_if<PropertyList>(&generic->value.data);
  const Property* topic = set == nullptr ? nullptr : FindProperty(*set, "AlertTopic");
  return topic == nullptr ? std::string() : TextOf(topic->value);
}

std::string FileOf(const PropertyList& properties) {
  const Property* image = FindProperty(properties, "ImageFile");
  const std::string path = image == nullptr ? std::string() : TextOf(image->value);
  return path.substr(path.find_last_of("/\\") + 1);
}

const NameRow* OwnNameOf(const std::string& type) {
  static constexpr NameRow kRows[] = {{"KELD_SystemAlerts", TopicOf}, {"KELD_Extension", FileOf}};
  for (const NameRow& row : kRows) {
    if (type == row.type) return &row;
  }
  return nullptr;
}

}  // namespace

std::string NameFrom(const std::string& type, const PropertyList& properties) {
  const NameRow* row = OwnNameOf(type);
  std::string own = row == nullptr ? std::string() : row->name(properties);
  if (!own.empty()) return own;
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
  auto info = std::make_unique<ObjectInfo>();
  info->id = id;
  info->type = *type;
  info->name = ReadName(id, *type);
  info->flags = database_.FlagsOf(id);
  info->isGroup = IsGroupType(*type);
  return infos_.emplace(id, std::move(info)).first->second.get();
}

// The one property of most objects, all of those whose name is put together.
std::string BusSource::ReadName(const Id& id, const std::string& type) const {
  if (OwnNameOf(type) != nullptr) {
    return NameFrom(type, database_.Properties(id).value_or(PropertyList()));
  }
  const std::optional<Property> name = database_.FindProperty(id, "Name");
  return name ? TextOf(name->value) : std::string();
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
