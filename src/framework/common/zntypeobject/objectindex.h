// Indexes: from the values of one property of one declaring type to the objects that have them. A
// factory table gives an index for each indexable tag: boolean, int32, uint32, int64, time, uint64,
// string, widestring, guid and object id. Every call runs under FAST_LOCK.
//
// A value may be shared by one object or by a million ("State" of everything), and an index lives
// through as many removals as additions, so adding, removing and finding are constant time whatever
// the number of values and however many objects share one. In a large store nearly every value that
// is looked up is one that no cache holds; so a value, the one object that has it and that object's
// id lie together in one line, and a look-up waits for memory once.
#pragma once

#include <memory>
#include <vector>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

class DBNode;

class ObjectIndex {
 public:
  ObjectIndex() = default;
  virtual ~ObjectIndex() = default;
  ObjectIndex(const ObjectIndex&) = delete;
  ObjectIndex& operator=(const ObjectIndex&) = delete;

  // Enters the node under that value; a pair that is there stays once. A value of another tag than
  // the index's is left out, here and in the other calls.
  void Add(const Value& value, DBNode* node);
  // The same of a node whose id the caller has at hand. The index keeps a copy of it.
  virtual void Enter(const Value& value, DBNode* node, const ObjectId& id) = 0;
  void Update(const Value& oldValue, const Value& newValue, DBNode* node, const ObjectId& id) {
    Remove(oldValue, node);
    Enter(newValue, node, id);
  }
  // Appends every node with that value, in no particular order.
  virtual void Find(const Value& value, std::vector<DBNode*>* out) const = 0;
  // Their ids.
  virtual void FindIds(const Value& value, std::vector<ObjectId>* out) const = 0;
  // How many nodes Find would append.
  [[nodiscard]] virtual size_t Count(const Value& value) const noexcept = 0;
  // No effect for a pair that is not there.
  virtual void Remove(const Value& value, DBNode* node) noexcept = 0;
};

// The ids of the nodes, appended in their order.
void AppendIds(const std::vector<DBNode*>& nodes, std::vector<ObjectId>* out);

// Whether values of that tag can be indexed.
[[nodiscard]] bool IsIndexableTag(u32 tag) noexcept;
// A new empty index, or null for a tag that has no factory.
[[nodiscard]] std::unique_ptr<ObjectIndex> CreateObjectIndex(u32 tag);

}  // namespace zn
