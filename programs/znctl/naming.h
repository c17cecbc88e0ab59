// How a user names an object, and which place in the tree an object has.
//
// The bus holds a directed graph with cycles and shared children. For people it is drawn as a
// forest in which every object stands once: below its deepest parent, where real relations go
// before membership in a group (a partition stands below its disk, not below the host that also
// lists it). A path is a walk along any child relation, so an object has as many paths as ways
// lead to it; the one printed is its place in the forest.
//
// ObjectSource is the seam: the bus implements it (bus_source.h), tests implement it by hand.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ids.h"

namespace zn::ctl {

struct ObjectInfo {
  Id id;
  std::string name;  // "Name", may be empty
  std::string type;
  u32 flags = 0;
  bool isGroup = false;

  // Left out unless everything is asked for.
  bool IsHidden() const { return (flags & (OBJECT_HIDDEN | OBJECT_NODISPLAY)) != 0; }
};

class ObjectSource {
 public:
  virtual ~ObjectSource() = default;
  virtual const std::vector<Id>& All() = 0;
  virtual const std::vector<Id>& Children(const Id& id) = 0;
  virtual const std::vector<Id>& Parents(const Id& id) = 0;
  virtual const ObjectInfo* Info(const Id& id) = 0;  // null where there is no such object
};

struct Forest {
  std::vector<Id> roots;
  std::unordered_map<Id, std::vector<Id>, IdHash> children;
  std::unordered_map<Id, Id, IdHash> parent;
};

// The forest of all objects, or of what can be reached from `from`. Hidden objects are left out
// unless `withHidden`; `from` itself always stands.
Forest BuildForest(ObjectSource& source, bool withHidden);
Forest BuildForest(ObjectSource& source, bool withHidden, const Id& from);

// "/host/sda/sda1"; names with a slash or a quote stand in quotes. Objects without a name show
// their type and a colon.
std::string PathOf(ObjectSource& source, const Forest& forest, const Id& id);

// One element of a path, quoted where it must be.
std::string PathElement(const ObjectInfo& info);

// The one object that `text` names. Throws Failure: not found (with the names that are there), or
// more than one (with all candidates).
Id ResolveObject(ObjectSource& source, std::string_view text);

// The objects that `text` names as an absolute path; empty where there are none.
std::vector<Id> MatchPath(ObjectSource& source, std::string_view text);

// Hex digits that tell the given objects apart: 8, or as many more as it takes.
size_t ShortIdLength(const std::vector<Id>& ids);
std::string ShortId(const Id& id, size_t length);

}  // namespace zn::ctl
