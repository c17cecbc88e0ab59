// Turns events into what changed from what to what. Change events of the bus carry no data here,
// so the watcher keeps the last known state of every object and compares. Main thread only.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "bus.h"
#include "inbox.h"
#include "json_form.h"
#include "terminal.h"

namespace zn::ctl {

// "15:04:02.117" of the local day, or "2026-01-31T12:00:00.123Z".
std::string ClockText(std::chrono::system_clock::time_point time, bool utc);

// One event as it is shown.
struct Sighting {
  std::chrono::system_clock::time_point time;
  std::string topic;
  std::string kind;      // "data.change", "object.add", ... or "raised"
  std::string raisedBy;  // provider of a raised event
  std::optional<ObjectInfo> object;
  std::string path;
  std::vector<Change> changes;      // of properties, and of "flags", where they changed
  std::vector<std::string> gained;  // paths of relatives, ids of interfaces
  std::vector<std::string> lost;
  PropertyList data;  // of a raised event, or of an object that came or went

  // Whether there is anything to tell. A change that an earlier sighting has already told is empty.
  bool IsEmpty() const;
};

// "data.change" of "event.keld.dom.object.T.data.change.{id}"; "type.add" and the like for types;
// "raised" for all that is no change of the database.
std::string KindOfTopic(const std::string& topic);

class Watcher {
 public:
  explicit Watcher(const Database& database);  // takes the first snapshot
  Sighting Look(const BusEvent& event);
  // What is different here from what an earlier watcher knew: for a session that was lost and taken
  // up again. Objects are the same by their ids, or else, after a new start of the server, by path
  // and type.
  std::vector<Sighting> DifferencesFrom(const Watcher& earlier) const;

 private:
  struct Snapshot {
    ObjectInfo info;
    std::string path;
    PropertyList properties;
    std::vector<Id> parents;
    std::vector<Id> children;
    std::vector<Id> interfaces;
  };

  std::optional<Snapshot> Read(const Id& id) const;
  std::string PlaceOf(const Snapshot& snapshot) const;
  std::string Title(const Id& id) const;
  void Compare(const Snapshot& before, const Snapshot& after, Sighting* sighting) const;
  void CompareIds(const std::vector<Id>& before, const std::vector<Id>& after,
                  Sighting* sighting) const;

  const Database& database_;
  std::unordered_map<Id, Snapshot, IdHash> known_;
};

std::string RenderSighting(const Terminal& terminal, const Sighting& sighting, bool fullTopics);
Json JsonOfSighting(const Sighting& sighting);

}  // namespace zn::ctl
