// Indexes: from the values of one property of one declaring type to the objects that have them. One
// class per indexable tag stands behind a factory table: boolean, int32, uint32, int64, time,
// uint64, string, widestring, guid and object id. Every call runs under FAST_LOCK.
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

  virtual void Add(const Value& value, DBNode* node) = 0;
  void Update(const Value& oldValue, const Value& newValue, DBNode* node) {
    Remove(oldValue, node);
    Add(newValue, node);
  }
  // Appends every node with that value.
  virtual void Find(const Value& value, std::vector<DBNode*>* out) const = 0;
  virtual void Remove(const Value& value, DBNode* node) noexcept = 0;
};

// Whether values of that tag can be indexed.
[[nodiscard]] bool IsIndexableTag(u32 tag) noexcept;
// A new empty index, or null for a tag that has no factory.
[[nodiscard]] std::unique_ptr<ObjectIndex> CreateObjectIndex(u32 tag);

}  // namespace zn
