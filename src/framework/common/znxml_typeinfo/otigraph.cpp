// The graph of declared object types: see the header.
#include "framework/common/znxml_typeinfo/otigraph.h"

#include <set>
#include <string_view>
#include <utility>

#include <xercesc/util/XercesDefs.hpp>

#include "support/common/status.h"
#include "support/common/trace.h"

// One walk along one kind of edge. A node is appended behind all that it leads to; an entry into a
// node that is still open is a circle, and all nodes on the way to it are marked.
class OTIGraph::Walk {
 public:
  Walk(Edges edges, std::vector<Node*>* order) noexcept : edges_(edges), order_(order) {}

  [[nodiscard]] u32 Visit(Node* start) {
    if (start->onCycle || !Open(start)) return start->onCycle ? ZNE_PROVIDER_REG_CIRCULAR : ZN_OK;
    while (!path_.empty()) {
      Step& step = path_.back();
      const std::vector<Node*>& nexts = step.node->*edges_;
      if (step.next == nexts.size()) {
        Close(step.node);
        continue;
      }
      Node* next = nexts[step.next++];
      if (!Open(next) && next->onCycle) return Fail();
    }
    return ZN_OK;
  }

 private:
  struct Step {
    Node* node;
    size_t next;
  };

  // Whether the walk has gone into the node: not when it is finished, and not when it is open.
  bool Open(Node* node) {
    if (node->onCycle || node->visited) return false;
    if (++node->entryCount > 1) {
      node->onCycle = true;
      return false;
    }
    path_.push_back({node, 0});
    return true;
  }
  void Close(Node* node) {
    node->visited = true;
    if (order_ != nullptr) order_->push_back(node);
    path_.pop_back();
  }
  [[nodiscard]] u32 Fail() noexcept {
    for (const Step& step : path_) step.node->visited = step.node->onCycle = true;
    path_.clear();
    return ZNE_PROVIDER_REG_CIRCULAR;
  }

  Edges edges_;
  std::vector<Node*>* order_;
  std::vector<Step> path_;
};

u32 OTIGraph::EntryCount(std::string_view name) const noexcept {
  const auto found = nodes_.find(name);
  return found == nodes_.end() ? 0 : found->second->entryCount;
}

void OTIGraph::ResetWalk() noexcept {
  for (auto& [name, node] : nodes_) {
    node->visited = node->onCycle = false;
    node->entryCount = 0;
  }
}

u32 OTIGraph::Sort(Edges edges, const char* start, std::vector<Node*>* order) {
  ResetWalk();
  Walk walk(edges, order);
  if (start != nullptr) {
    const auto found = nodes_.find(std::string_view(start));
    return found == nodes_.end() ? ZN_OK : walk.Visit(found->second.get());
  }
  for (auto& [name, node] : nodes_) ZN_RETURN_IF_FAILED(walk.Visit(node.get()));
  return ZN_OK;
}

u32 OTIGraph::SortParentsFirst(OTInfoVector* out, const char* start) {
  std::vector<Node*> order;
  ZN_RETURN_IF_FAILED(Sort(&Node::parents, start, &order));
  if (out == nullptr) return ZN_OK;
  ZN_TRACE(1, "XML: OBJECT_TYPES visited in following order");
  int number = 0;
  for (const Node* node : order) {
    ZN_TRACE(1, "XML: %d. %s", ++number, node->info->name);
    out->push_back(node->info);
  }
  return ZN_OK;
}

u32 OTIGraph::SortChildrenFirst(OTInfoVector* out, const char* start) {
  std::vector<Node*> order;
  ZN_RETURN_IF_FAILED(Sort(&Node::children, start, &order));
  if (out == nullptr) return ZN_OK;
  ZN_TRACE(1, "XML: OBJECT_TYPES created in following order");
  int number = 0;
  for (const Node* node : order) {
    ZN_TRACE(1, "XML: %d. %s", ++number, node->info->name);
    out->push_back(node->info);
  }
  return ZN_OK;
}

// Children come in the order of their names, parents in that of the record.
void OTIGraph::LinkAll() {
  for (auto& [name, node] : nodes_) {
    node->parents.clear();
    node->children.clear();
  }
  for (auto& [name, node] : nodes_) {
    for (char** at = node->info->supertypes; at != nullptr && *at != nullptr; ++at) {
      const auto parent = nodes_.find(std::string_view(*at));
      if (parent == nodes_.end()) continue;  // taken to be a type that exists
      node->parents.push_back(parent->second.get());
      parent->second->children.push_back(node.get());
    }
  }
}

void OTIGraph::Erase(const OTInfoVector& infos) {
  for (const OTInfo* info : infos) {
    const auto found = nodes_.find(std::string_view(info->name));
    if (found != nodes_.end() && found->second->info == info) nodes_.erase(found);
  }
  LinkAll();
}

// Enters records whose names are free and tests the graph. On failure they are out again.
u32 OTIGraph::Enter(const OTInfoVector& infos) {
  for (OTInfo* info : infos) {
    nodes_.try_emplace(info->name, std::make_unique<Node>(Node{info, {}, {}}));
  }
  LinkAll();
  const u32 status = SortParentsFirst(nullptr, nullptr);
  if (ZN_FAILED(status)) Erase(infos);
  return status;
}

u32 OTIGraph::AddNodes(const OTInfoVector& infos) {
  std::set<std::string_view> names;
  for (const OTInfo* info : infos) {
    const std::string_view name(info->name);
    if (nodes_.find(name) != nodes_.end() || !names.insert(name).second) {
      return ZNE_DUPLICATE_OBJECT_ID;
    }
  }
  return Enter(infos);
}

u32 OTIGraph::MergeNodes(const OTInfoVector& infos) {
  std::set<std::string_view> names;
  for (const OTInfo* info : infos) {
    if (!names.insert(info->name).second) return ZNE_DUPLICATE_OBJECT_ID;
  }
  NodeMap replaced;
  for (const OTInfo* info : infos) {
    const auto found = nodes_.find(std::string_view(info->name));
    if (found != nodes_.end()) replaced.insert(nodes_.extract(found));
  }
  const u32 status = Enter(infos);
  if (ZN_FAILED(status)) {
    nodes_.merge(replaced);
    LinkAll();
  }
  return status;
}

u32 OTIGraph::RemoveChildNodes(OTInfoVector* out, const char* start) {
  std::vector<Node*> order;
  ZN_RETURN_IF_FAILED(Sort(&Node::children, start, &order));
  OTInfoVector removed;
  for (const Node* node : order) removed.push_back(node->info);
  out->insert(out->end(), removed.begin(), removed.end());
  Erase(removed);
  return ZN_OK;
}
