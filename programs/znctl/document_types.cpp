// The types of a document among each other; see the header.
#include "document_types.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "zn/znmira.h"

namespace zn::ctl {
namespace {

using Names = std::vector<std::string>;

// Types that the bus brings or makes itself, beside those of a fresh database.
constexpr std::string_view kMadeLater[] = {"KELD_Extension", "KELD_Task", "KELD_Configlet"};

Names SupertypesOf(const OTInfo& type) {
  Names names;
  for (char** at = type.supertypes; at != nullptr && *at != nullptr; ++at) names.emplace_back(*at);
  return names;
}

// A database without content, that goes with the object.
class ScratchDatabase {
 public:
  ScratchDatabase() { static_cast<void>(DbCreatePrivateDatabase(&handle_)); }
  ~ScratchDatabase() {
    if (handle_ != nullptr) DbDeletePrivateDatabase(handle_);
  }
  ScratchDatabase(const ScratchDatabase&) = delete;
  ScratchDatabase& operator=(const ScratchDatabase&) = delete;

  bool IsOpen() const { return handle_ != nullptr; }
  bool HasType(const std::string& name) const {
    return TypeIsA(handle_, name.c_str(), name.c_str());
  }
  u32 Create(const std::string& name, const char** supertypes, ZnHandle properties) {
    ObjectId id{};
    return ObCreateTypeObject(handle_, name.c_str(), supertypes, properties, &id);
  }
  // Stands for a type that is declared elsewhere.
  u32 CreateStub(const std::string& name) {
    ZnHandle none = nullptr;
    u32 status = PsCreatePropset(&none);
    if (!ZN_FAILED(status)) status = Create(name, nullptr, none);
    PsDestroyPropset(none);
    return status;
  }

 private:
  ZnHandle handle_ = nullptr;
};

// Which nodes of a graph lead back to themselves: those that share a strongly connected component,
// found in one walk over all edges. Without recursion, since a document decides how deep it goes.
class Circles {
 public:
  explicit Circles(std::vector<std::vector<size_t>> edges)
      : edges_(std::move(edges)), nodes_(edges_.size()) {
    for (size_t at = 0; at < nodes_.size(); ++at) {
      if (nodes_[at].number == 0) Walk(at);
    }
  }
  bool Has(size_t at) const { return nodes_[at].isInCircle; }

 private:
  struct Node {
    size_t number = 0;  // in the order of the walk, from 1
    size_t lowest = 0;  // the first node of the way that it leads back to
    size_t tried = 0;   // edges
    bool isOpen = false;
    bool isInCircle = false;
  };

  void Walk(size_t first) {
    Enter(first);
    while (!way_.empty()) {
      const size_t at = way_.back();
      Node& node = nodes_[at];
      if (node.tried < edges_[at].size()) {
        Follow(at, edges_[at][node.tried++]);
        continue;
      }
      way_.pop_back();
      if (!way_.empty()) Lower(way_.back(), node.lowest);
      if (node.lowest == node.number) Close(at);
    }
  }
  void Enter(size_t at) {
    ++count_;
    nodes_[at].number = nodes_[at].lowest = count_;
    nodes_[at].isOpen = true;
    open_.push_back(at);
    way_.push_back(at);
  }
  void Follow(size_t from, size_t to) {
    if (from == to) nodes_[from].isInCircle = true;
    if (nodes_[to].number == 0) return Enter(to);
    if (nodes_[to].isOpen) Lower(from, nodes_[to].number);
  }
  void Lower(size_t at, size_t number) { nodes_[at].lowest = std::min(nodes_[at].lowest, number); }
  // The component that begins with that node is complete.
  void Close(size_t first) {
    const bool isAlone = open_.back() == first;
    for (bool isLast = false; !isLast; open_.pop_back()) {
      Node& node = nodes_[open_.back()];
      node.isOpen = false;
      node.isInCircle = node.isInCircle || !isAlone;
      isLast = open_.back() == first;
    }
  }

  const std::vector<std::vector<size_t>> edges_;
  std::vector<Node> nodes_;
  std::vector<size_t> way_;   // from where the walk began to where it is
  std::vector<size_t> open_;  // of components that are not complete, in the order of the walk
  size_t count_ = 0;
};

class TypeChecker {
 public:
  TypeChecker(const OTInfoVector& types, const TypeFault& report) : report_(report) {
    for (OTInfo* type : types) types_.emplace(type->name, type);
  }

  void Run() {
    OTInfoVector all;
    for (const auto& [name, type] : types_) all.push_back(type);
    OTInfoVector order;
    if (Order(all, &order) == ZNE_PROVIDER_REG_CIRCULAR) {
      TakeOutCircles(&all);
      static_cast<void>(Order(all, &order));
    }
    ScratchDatabase database;
    if (!database.IsOpen()) return;
    for (OTInfo* type : order) CheckCreation(*type, &database);
  }

 private:
  // Tells of each type that leads back to itself. The types come in the order of their names.
  void TakeOutCircles(OTInfoVector* all) {
    const Circles circles(Inheritance());
    size_t at = 0;
    std::erase_if(*all, [&](const OTInfo* type) {
      if (!circles.Has(at++)) return false;
      report_(*type, false, "circle",
              "\"" + std::string(type->name) +
                  "\" inherits from itself; no type of the document would be made");
      return true;
    });
  }
  // The declared supertypes of each type, by their places in the order of the names.
  std::vector<std::vector<size_t>> Inheritance() const {
    std::map<std::string_view, size_t> places;
    for (const auto& [name, type] : types_) places.emplace(name, places.size());
    std::vector<std::vector<size_t>> edges;
    for (const auto& [name, type] : types_) {
      std::vector<size_t>& supers = edges.emplace_back();
      for (const std::string& super : SupertypesOf(*type)) {
        const auto found = places.find(super);
        if (found != places.end()) supers.push_back(found->second);
      }
    }
    return edges;
  }

  // Supertypes first. What is not among the types is taken to exist.
  static u32 Order(OTInfoVector types, OTInfoVector* out) {
    OTIGraph* graph = nullptr;
    u32 status = CreateOTIGraph(&graph);
    if (!ZN_FAILED(status)) status = OTIGraph_AddNodes(graph, &types);
    if (!ZN_FAILED(status)) status = OTIGraph_RemoveChildNodes(graph, out, nullptr);
    std::reverse(out->begin(), out->end());
    DeleteOTIGraph(graph);
    return status;
  }

  void CheckCreation(const OTInfo& type, ScratchDatabase* database) {
    for (const std::string& super : SupertypesOf(type)) {
      if (super.empty() || database->HasType(super)) continue;
      if (types_.contains(super)) return;  // told where it failed
      if (std::find(std::begin(kMadeLater), std::end(kMadeLater), super) == std::end(kMadeLater)) {
        report_(type, true, "supertype",
                "\"" + super +
                    "\" is not declared in this document; it has to exist when the "
                    "document is read");
      }
      if (ZN_FAILED(database->CreateStub(super))) {
        report_(type, false, "supertype", "\"" + super + "\" is no name of a type");
        return;
      }
    }
    const u32 status =
        database->Create(type.name, const_cast<const char**>(type.supertypes), type.properties);
    if (ZN_FAILED(status)) TellStatus(type, status);
  }

  void TellStatus(const OTInfo& type, u32 status) {
    const std::string name = "\"" + std::string(type.name) + "\"";
    switch (status) {
      case ZNE_TYPE_EXISTS:
        return report_(type, false, "name", name + " is a type of the bus itself");
      case ZNE_PROPERTY_NOT_INDEXABLE:
        return;  // told at the property
      case ZNE_INHERITANCE_INVALID:
        return report_(type, false, "inheritance",
                       "a property of " + name +
                           " has another type than the inherited one of that name, or two "
                           "supertypes declare one name each for itself");
      default:
        break;
    }
    const Names supertypes = SupertypesOf(type);
    const std::set<std::string> different(supertypes.begin(), supertypes.end());
    if (different.size() != supertypes.size()) {
      return report_(type, false, "supertype", name + " names a supertype twice");
    }
    // The one refusal that is left is that of the name, which is told where the type stands.
  }

  std::map<std::string, OTInfo*> types_;
  const TypeFault& report_;
};

}  // namespace

TypeNames::TypeNames() {
  if (ZN_FAILED(DbCreatePrivateDatabase(&database_))) database_ = nullptr;
  if (ZN_FAILED(PsCreatePropset(&noProperties_))) noProperties_ = nullptr;
}

TypeNames::~TypeNames() {
  PsDestroyPropset(noProperties_);
  if (database_ != nullptr) DbDeletePrivateDatabase(database_);
}

bool TypeNames::IsTaken(const std::string& name) {
  ObjectId id{};
  const u32 status = ObCreateTypeObject(database_, name.c_str(), nullptr, noProperties_, &id);
  return status == ZNE_TYPE_EXISTS || !ZN_FAILED(status);
}

void CheckTypesTogether(const OTInfoVector& types, const TypeFault& report) {
  TypeChecker(types, report).Run();
}

}  // namespace zn::ctl
