// The way through the graph above a type. Under FAST_LOCK.
#pragma once

#include <unordered_set>
#include <vector>

namespace zn {

class TypeObject;

using TypeSet = std::unordered_set<const TypeObject*>;

// Appends the type and its ancestors, ancestors before descendants, in supertype order, without
// those that are `done`, and enters them there: for many types in turn, each comes once.
void AppendAncestorsFirst(const TypeObject& type, TypeSet* done, std::vector<TypeObject*>* out);

}  // namespace zn
