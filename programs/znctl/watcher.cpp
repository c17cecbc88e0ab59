// Turns events into what changed from what to what.
#include "watcher.h"

#include <fmt/format.h>
#include <time.h>

#include <algorithm>

#include "bus_source.h"
#include "render.h"
#include "text.h"

namespace zn::ctl {
namespace {

constexpr std::string_view kObjectTopics = "event.keld.dom.object.";
constexpr std::string_view kTypeTopics = "event.keld.dom.type.";

std::optional<Value> FlagsValue(u32 flags) {
  return Value{ZN_TYPE_UINT32, u64{flags}};
}

PropertyList WithoutHidden(const PropertyList& list) {
  PropertyList shown;
  for (const Property& property : list) {
    if ((property.flags & ZN_PROPERTY_HIDDEN) == 0) shown.push_back(property);
  }
  return shown;
}

Style StyleOfKind(const std::string& kind) {
  if (kind.ends_with(".add")) return Style::kGood;
  if (kind.ends_with(".delete")) return Style::kBad;
  return Style::kBold;
}

}  // namespace

std::string ClockText(std::chrono::system_clock::time_point time, bool utc) {
  const time_t seconds =
      std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                      time - std::chrono::floor<std::chrono::seconds>(time))
                      .count();
  tm parts{};
  if (utc) {
    gmtime_r(&seconds, &parts);
  } else {
    localtime_r(&seconds, &parts);
  }
  char text[32];
  const size_t length =
      strftime(text, sizeof(text), utc ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S", &parts);
  return fmt::format("{}.{:03}{}", std::string_view(text, length), ms, utc ? "Z" : "");
}

bool Sighting::IsEmpty() const {
  const bool tellsItself = kind == "raised" || kind.ends_with(".add") ||
                           kind.ends_with(".delete") || kind.starts_with("type.");
  return !tellsItself && changes.empty() && gained.empty() && lost.empty();
}

std::string KindOfTopic(const std::string& topic) {
  const bool ofObject = topic.starts_with(kObjectTopics);
  const bool ofType = topic.starts_with(kTypeTopics);
  if (!ofObject && !ofType) return "raised";
  const size_t name = ofObject ? kObjectTopics.size() : kTypeTopics.size();
  const size_t from = topic.find('.', name);
  if (from == std::string::npos) return "raised";
  const size_t middle = topic.find('.', from + 1);
  if (middle == std::string::npos) return "raised";
  const size_t end = topic.find('.', middle + 1);
  const std::string change =
      topic.substr(from + 1, end == std::string::npos ? std::string::npos : end - from - 1);
  return ofObject ? change : "type." + change.substr(change.find('.') + 1);
}

Watcher::Watcher(const Database& database) : database_(database) {
  BusSource source(database);
  const Forest forest = BuildForest(source, true);
  for (const Id& id : source.All()) {
    std::optional<Snapshot> snapshot = Read(id);
    if (!snapshot) continue;
    snapshot->path = PathOf(source, forest, id);
    known_.emplace(id, std::move(*snapshot));
  }
}

std::optional<Watcher::Snapshot> Watcher::Read(const Id& id) const {
  const std::optional<std::string> type = database_.TypeOf(id);
  std::optional<PropertyList> properties = database_.Properties(id);
  if (!type || !properties) return std::nullopt;
  Snapshot snapshot;
  snapshot.info = {id, NameFrom(*type, *properties), *type, database_.FlagsOf(id),
                   database_.TypeIsA(*type, "KELD_Group")};
  snapshot.properties = WithoutHidden(*properties);
  snapshot.parents = database_.Parents(id);
  snapshot.children = database_.Children(id);
  snapshot.interfaces = database_.Interfaces(id);
  return snapshot;
}

// The path by way of the deepest parent known, real relations before groups.
std::string Watcher::PlaceOf(const Snapshot& snapshot) const {
  std::string best;
  bool bestIsGroup = true;
  for (const Id& parent : snapshot.parents) {
    const auto known = known_.find(parent);
    if (known == known_.end() || parent == snapshot.info.id) continue;
    const bool isGroup = known->second.info.isGroup;
    const std::string& path = known->second.path;
    const bool deeper =
        std::count(path.begin(), path.end(), '/') > std::count(best.begin(), best.end(), '/');
    if (isGroup != bestIsGroup ? bestIsGroup : deeper) {
      best = path;
      bestIsGroup = isGroup;
    }
  }
  return best + "/" + PathElement(snapshot.info);
}

std::string Watcher::Title(const Id& id) const {
  const auto known = known_.find(id);
  return known == known_.end() ? IdText(id) : known->second.path;
}

void Watcher::CompareIds(const std::vector<Id>& before, const std::vector<Id>& after,
                         Sighting* sighting) const {
  const auto missing = [](const std::vector<Id>& in, const Id& id) {
    return std::find(in.begin(), in.end(), id) == in.end();
  };
  for (const Id& id : after) {
    if (missing(before, id)) sighting->gained.push_back(Title(id));
  }
  for (const Id& id : before) {
    if (missing(after, id)) sighting->lost.push_back(Title(id));
  }
}

void Watcher::Compare(const Snapshot& before, const Snapshot& after, Sighting* sighting) const {
  if (sighting->kind == "data.change") {
    sighting->changes = Differences(before.properties, after.properties);
  } else if (sighting->kind == "relation.child") {
    CompareIds(before.children, after.children, sighting);
  } else if (sighting->kind == "relation.parent") {
    CompareIds(before.parents, after.parents, sighting);
  } else if (sighting->kind == "interface.change") {
    CompareIds(before.interfaces, after.interfaces, sighting);
  } else if (sighting->kind == "flag.change" && before.info.flags != after.info.flags) {
    sighting->changes.push_back(
        {"flags", FlagsValue(before.info.flags), FlagsValue(after.info.flags)});
  }
}

Sighting Watcher::Look(const BusEvent& event) {
  Sighting sighting{
      event.time, event.topic, KindOfTopic(event.topic), event.raisedBy, {}, {}, {}, {},
      {},         event.data};
  if (!event.isObjectChange) return sighting;
  const auto known = known_.find(event.object);
  if (sighting.kind == "object.delete") {
    sighting.object =
        ObjectInfo{event.object, NameFrom(event.type, event.data), event.type, 0, false};
    sighting.path =
        known == known_.end() ? "/" + PathElement(*sighting.object) : known->second.path;
    if (known != known_.end()) known_.erase(known);
    return sighting;
  }
  std::optional<Snapshot> now = Read(event.object);
  if (!now) {  // gone by now; its deletion follows
    sighting.object = known == known_.end() ? ObjectInfo{event.object, "", event.type, 0, false}
                                            : known->second.info;
    sighting.path = known == known_.end() ? IdText(event.object) : known->second.path;
    return sighting;
  }
  const bool moved = known == known_.end() || known->second.parents != now->parents ||
                     known->second.info.name != now->info.name;
  now->path = moved ? PlaceOf(*now) : known->second.path;
  sighting.object = now->info;
  sighting.path = now->path;
  if (sighting.kind == "object.add") sighting.data = now->properties;
  if (known != known_.end()) {
    Compare(known->second, *now, &sighting);
    // Each kind of change is taken over when its own event has told it, and not before.
    Snapshot& kept = known->second;
    if (sighting.kind == "data.change") kept.properties = now->properties;
    if (sighting.kind == "relation.child") kept.children = now->children;
    if (sighting.kind == "relation.parent") kept.parents = now->parents;
    if (sighting.kind == "interface.change") kept.interfaces = now->interfaces;
    kept.info = now->info;
    kept.path = now->path;
    return sighting;
  }
  known_.emplace(event.object, std::move(*now));
  return sighting;
}

namespace {

Sighting FoundOut(std::string_view kind, const ObjectInfo& info, const std::string& path) {
  Sighting sighting;
  sighting.time = std::chrono::system_clock::now();
  sighting.kind = kind;
  sighting.topic = fmt::format("{}{}.{}.{}", kObjectTopics, info.type, kind, IdText(info.id));
  sighting.object = info;
  sighting.path = path;
  return sighting;
}

}  // namespace

std::vector<Sighting> Watcher::DifferencesFrom(const Watcher& earlier) const {
  std::unordered_map<std::string, const Snapshot*> byPlace;
  for (const auto& [id, snapshot] : earlier.known_) {
    if (!known_.contains(id)) byPlace[snapshot.path + "\n" + snapshot.info.type] = &snapshot;
  }
  std::vector<Sighting> found;
  for (const auto& [id, now] : known_) {
    const auto same = earlier.known_.find(id);
    const Snapshot* before = same == earlier.known_.end() ? nullptr : &same->second;
    if (before == nullptr) {
      const auto place = byPlace.find(now.path + "\n" + now.info.type);
      if (place != byPlace.end()) before = place->second;
      if (place != byPlace.end()) byPlace.erase(place);
    }
    if (before == nullptr) {
      found.push_back(FoundOut("object.add", now.info, now.path));
      found.back().data = now.properties;
      continue;
    }
    // Relatives have other ids too where the object has.
    const bool isSame = before->info.id == id;
    for (const std::string_view kind :
         {"data.change", "flag.change", "interface.change", "relation.child", "relation.parent"}) {
      if (!isSame && kind.starts_with("relation.")) continue;
      Sighting sighting = FoundOut(kind, now.info, now.path);
      Compare(*before, now, &sighting);
      if (!sighting.IsEmpty()) found.push_back(std::move(sighting));
    }
  }
  for (const auto& [place, before] : byPlace) {
    found.push_back(FoundOut("object.delete", before->info, before->path));
    found.back().data = before->properties;
  }
  std::sort(found.begin(), found.end(),
            [](const Sighting& a, const Sighting& b) { return NaturalLess(a.path, b.path); });
  return found;
}

std::string RenderSighting(const Terminal& terminal, const Sighting& sighting, bool fullTopics) {
  const bool ownTopic = sighting.kind == "raised" || sighting.kind.starts_with("type.");
  const std::string topic = fullTopics || ownTopic ? sighting.topic : sighting.kind;
  constexpr size_t kKindWidth = 16;
  std::string out = Styled(terminal, Style::kDim, ClockText(sighting.time, false)) + "  ";
  const std::string padded =
      sighting.object && !fullTopics ? PadToWidth(topic, kKindWidth) : Printable(topic);
  out += Styled(terminal, StyleOfKind(sighting.kind), padded);
  if (sighting.object) {
    const std::string what = sighting.path + "  ";
    out += (fullTopics ? "\n    " : "  ") + Styled(terminal, Style::kName, sighting.path) + "  " +
           Styled(terminal, Style::kType, Printable(sighting.object->type));
  } else if (!sighting.raisedBy.empty()) {
    out += "  by " + Printable(sighting.raisedBy);
  }
  out += "\n";
  const std::string indent = "    ";
  for (const Change& change : sighting.changes) {
    const auto text = [](const std::optional<Value>& value) {
      return value ? Printable(FormatValue(*value)) : std::string("(none)");
    };
    std::string line = fmt::format("{}: {} {} {}", Printable(change.name), text(change.before),
                                   terminal.Arrow(), text(change.after));
    const size_t width = terminal.width > 24 ? terminal.width - indent.size() : SIZE_MAX;
    for (const std::string& part : Wrap(line, width)) out += indent + part + "\n";
  }
  for (const std::string& one : sighting.gained) {
    out += indent + Styled(terminal, Style::kGood, "+ " + one) + "\n";
  }
  for (const std::string& one : sighting.lost) {
    out += indent + Styled(terminal, Style::kBad, "- " + one) + "\n";
  }
  if (sighting.kind == "raised") out += RenderProperties(terminal, sighting.data, indent, false);
  return out;
}

Json JsonOfSighting(const Sighting& sighting) {
  Json json = {{"schema", kJsonSchema},
               {"verb", "watch"},
               {"time", ClockText(sighting.time, true)},
               {"topic", sighting.topic},
               {"kind", sighting.kind}};
  if (sighting.object) {
    json["object"] = JsonOfInfo(*sighting.object);
    json["object"]["path"] = sighting.path;
  } else {
    json["provider"] = sighting.raisedBy;
  }
  Json changes = Json::array();
  for (const Change& change : sighting.changes) {
    const u32 type = change.after ? change.after->type : change.before->type;
    changes.push_back({{"property", change.name},
                       {"type", TypeName(type)},
                       {"before", change.before ? JsonOfValue(*change.before) : Json()},
                       {"after", change.after ? JsonOfValue(*change.after) : Json()}});
  }
  json["changes"] = std::move(changes);
  json["gained"] = sighting.gained;
  json["lost"] = sighting.lost;
  json["data"] = JsonOfProperties(sighting.data);
  return json;
}

}  // namespace zn::ctl
