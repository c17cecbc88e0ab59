// The graph of declared object types: names, records that belong to others, edges. It orders types
// so that supertypes come first and finds circles. A walk keeps its path in memory of its own, so a
// chain of supertypes may be longer than the stack is deep.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include "zn/formalization.h"

struct OTIGraph {
 public:
  OTIGraph() = default;
  OTIGraph(const OTIGraph&) = delete;
  OTIGraph& operator=(const OTIGraph&) = delete;

  // What the exports of the same names tell.
  [[nodiscard]] u32 AddNodes(const OTInfoVector& infos);
  [[nodiscard]] u32 MergeNodes(const OTInfoVector& infos);
  [[nodiscard]] u32 RemoveChildNodes(OTInfoVector* out, const char* start);

  // Appends the records so that supertypes come first: all of them, by name where nothing else
  // orders them, or those that lead to `start`. `out` may be null, for a test.
  // ZNE_PROVIDER_REG_CIRCULAR.
  [[nodiscard]] u32 SortParentsFirst(OTInfoVector* out, const char* start);
  // The same with subtypes first.
  [[nodiscard]] u32 SortChildrenFirst(OTInfoVector* out, const char* start);

  [[nodiscard]] size_t Size() const noexcept { return nodes_.size(); }
  // How often the last walk went into a node; 0 for one that is not there.
  [[nodiscard]] u32 EntryCount(std::string_view name) const noexcept;

 private:
  struct Node {
    OTInfo* info;
    std::vector<Node*> parents;
    std::vector<Node*> children;
    bool visited = false;
    bool onCycle = false;
    u32 entryCount = 0;  // in the current walk
  };
  using NodeMap = std::map<std::string, std::unique_ptr<Node>, std::less<>>;
  using Edges = std::vector<Node*> Node::*;
  class Walk;

  [[nodiscard]] u32 Sort(Edges edges, const char* start, std::vector<Node*>* order);
  [[nodiscard]] u32 Enter(const OTInfoVector& infos);
  void Erase(const OTInfoVector& infos);
  void LinkAll();
  void ResetWalk() noexcept;

  NodeMap nodes_;
};
