// Paths, id prefixes and ambiguity. Matching follows all ways at once and keeps every object that
// the text can mean, so a name with a slash needs no quoting unless two readings both exist.
#include "naming.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <unordered_set>

#include "failure.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

struct Element {
  std::string text;
  size_t length;  // characters taken
  bool quoted;    // quotes or backslashes were used
};

// One element of a path up to the next slash outside quotes. Nothing for an unclosed quote.
std::optional<Element> ParseElement(std::string_view path) {
  Element element{{}, 0, false};
  char quote = '\0';
  size_t i = 0;
  for (; i < path.size() && (quote != '\0' || path[i] != '/'); ++i) {
    const char c = path[i];
    if (c == '\\' && i + 1 < path.size()) {
      element.text.push_back(path[++i]);
      element.quoted = true;
    } else if (quote == '\0' && (c == '"' || c == '\'')) {
      quote = c;
      element.quoted = true;
    } else if (c == quote) {
      quote = '\0';
    } else {
      element.text.push_back(c);
    }
  }
  if (quote != '\0') return std::nullopt;
  element.length = i;
  return element;
}

bool EndsElement(std::string_view path, size_t at) {
  return at == path.size() || path[at] == '/';
}

// The ways in which the head of `path` can mean an object of this name: characters taken by each.
std::vector<size_t> NameReadings(std::string_view path, const std::string& name) {
  std::vector<size_t> lengths;
  if (!name.empty() && path.starts_with(name) && EndsElement(path, name.size())) {
    lengths.push_back(name.size());
  }
  const std::optional<Element> element = ParseElement(path);
  const bool matches = element && element->quoted && element->text == name;
  if (matches && (lengths.empty() || lengths.front() != element->length)) {
    lengths.push_back(element->length);
  }
  return lengths;
}

std::vector<size_t> Readings(std::string_view path, const ObjectInfo& info) {
  std::vector<size_t> lengths = NameReadings(path, info.name);
  const size_t prefix = info.type.size() + 1;
  if (path.size() < prefix || !path.starts_with(info.type) || path[prefix - 1] != ':') {
    return lengths;
  }
  const std::string_view rest = path.substr(prefix);
  if (EndsElement(rest, 0)) {
    lengths.push_back(prefix);
    return lengths;
  }
  for (const size_t length : NameReadings(rest, info.name)) lengths.push_back(prefix + length);
  return lengths;
}

class Matcher {
 public:
  Matcher(ObjectSource& source, std::string_view path) : source_(source), path_(path) {}

  // Walks on from `candidates` with the text from `offset`.
  void Walk(const std::vector<Id>& candidates, size_t offset) {
    for (const Id& id : candidates) {
      const ObjectInfo* info = source_.Info(id);
      if (info == nullptr) continue;
      for (const size_t length : Readings(path_.substr(offset), *info)) {
        Arrive(id, offset + length);
      }
    }
  }

  const std::vector<Id>& Found() const { return found_; }
  size_t DeepestOffset() const { return deepestOffset_; }
  const std::vector<Id>& DeepestObjects() const { return deepestObjects_; }

 private:
  void Arrive(const Id& id, size_t offset) {
    if (!seen_.insert({offset, id}).second) return;
    const bool atEnd = offset >= path_.size() || offset + 1 == path_.size();  // "a" or "a/"
    if (atEnd) found_.push_back(id);
    if (offset > deepestOffset_) deepestObjects_.clear();
    if (offset >= deepestOffset_) deepestObjects_.push_back(id);
    deepestOffset_ = std::max(deepestOffset_, offset);
    if (offset + 1 < path_.size()) Walk(source_.Children(id), offset + 1);
  }

  ObjectSource& source_;
  std::string_view path_;
  std::set<std::pair<size_t, Id>> seen_;
  std::vector<Id> found_;
  size_t deepestOffset_ = 0;
  std::vector<Id> deepestObjects_;
};

bool HasRealParent(ObjectSource& source, const Id& id) {
  const std::vector<Id>& parents = source.Parents(id);
  return std::any_of(parents.begin(), parents.end(), [&](const Id& parent) {
    const ObjectInfo* info = source.Info(parent);
    return info != nullptr && !info->isGroup && !(parent == id);
  });
}

// Where an absolute path may start: groups, objects without a real parent, entries into cycles.
std::vector<Id> PathStarts(ObjectSource& source) {
  std::vector<Id> starts = BuildForest(source, true).roots;
  std::unordered_set<Id, IdHash> known(starts.begin(), starts.end());
  for (const Id& id : source.All()) {
    const ObjectInfo* info = source.Info(id);
    if (info == nullptr || known.count(id) != 0) continue;
    if (info->isGroup || !HasRealParent(source, id)) starts.push_back(id);
  }
  return starts;
}

std::string NamesBelow(ObjectSource& source, const std::vector<Id>& ids) {
  std::vector<std::string> names;
  for (const Id& id : ids) {
    const ObjectInfo* info = source.Info(id);
    if (info != nullptr && !info->name.empty()) names.push_back(Printable(info->name));
  }
  std::sort(names.begin(), names.end(), NaturalLess);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  constexpr size_t kShown = 8;
  std::string out;
  for (size_t i = 0; i < names.size() && i < kShown; ++i) out += (i == 0 ? "" : ", ") + names[i];
  if (names.size() > kShown) out += fmt::format(" and {} more", names.size() - kShown);
  return out;
}

[[noreturn]] void FailNotFound(ObjectSource& source, std::string_view text,
                               const Matcher* absolute) {
  std::vector<std::string> details;
  std::string what = fmt::format("no object is named \"{}\"", Printable(text));
  if (absolute != nullptr && absolute->DeepestOffset() > 0) {
    const size_t offset = absolute->DeepestOffset();
    what = fmt::format("there is no \"{}\" below {}", Printable(text.substr(offset + 1)),
                       Printable(text.substr(0, offset)));
    std::vector<Id> below;
    for (const Id& id : absolute->DeepestObjects()) {
      const std::vector<Id>& children = source.Children(id);
      below.insert(below.end(), children.begin(), children.end());
    }
    const std::string names = NamesBelow(source, below);
    details.push_back(names.empty() ? "it has no children" : "it has: " + names);
  } else {
    details.push_back("znctl tree shows the names and ids that there are");
  }
  throw Failure(ZNE_OBJECT_NOT_FOUND, what, std::move(details));
}

[[noreturn]] void FailAmbiguous(ObjectSource& source, std::string_view text,
                                const std::vector<Id>& found) {
  const Forest forest = BuildForest(source, true);
  std::vector<std::string> details;
  constexpr size_t kShown = 20;
  for (size_t i = 0; i < found.size() && i < kShown; ++i) {
    const ObjectInfo* info = source.Info(found[i]);
    details.push_back(fmt::format("{}  {}  {}", IdText(found[i]),
                                  info == nullptr ? "" : Printable(info->type),
                                  PathOf(source, forest, found[i])));
  }
  if (found.size() > kShown) details.push_back(fmt::format("and {} more", found.size() - kShown));
  throw Failure(ZNE_INVALID_ARGUMENTS,
                fmt::format("\"{}\" names {} objects; give an id or a longer path", Printable(text),
                            found.size()),
                std::move(details));
}

std::vector<Id> MatchIdPrefix(ObjectSource& source, std::string_view prefix) {
  std::vector<Id> found;
  for (const Id& id : source.All()) {
    if (HasIdPrefix(id, prefix)) found.push_back(id);
  }
  return found;
}

// A group that bears the name of a real object gives way to it: the group of the computer and the
// computer itself are both named after the host.
Id PickOne(ObjectSource& source, std::string_view text, const std::vector<Id>& found) {
  if (found.size() == 1) return found.front();
  std::vector<Id> real;
  for (const Id& id : found) {
    const ObjectInfo* info = source.Info(id);
    if (info != nullptr && !info->isGroup) real.push_back(id);
  }
  if (real.size() == 1) return real.front();
  FailAmbiguous(source, text, found);
}

class ForestBuilder {
 public:
  ForestBuilder(ObjectSource& source, std::vector<Id> nodes, const Id* from)
      : source_(source), nodes_(std::move(nodes)), member_(nodes_.begin(), nodes_.end()) {
    for (const Id& id : nodes_) {
      const bool isRoot = from != nullptr && *from == id;
      if (!isRoot) CollectParents(id);
      if (isRoot || parents_[id].empty()) starts_.push_back(id);
    }
    for (auto& [id, children] : below_) Sort(&children);
    Sort(&starts_);
  }

  Forest Build() {
    std::vector<Id> order = Order();
    std::unordered_map<Id, size_t, IdHash> place;
    for (size_t i = 0; i < order.size(); ++i) place[order[i]] = i;
    std::unordered_map<Id, size_t, IdHash> depth;
    Forest forest;
    for (const Id& id : order) {
      for (const Id& child : below_[id]) {
        if (place[child] <= place[id]) continue;  // leads back: a cycle
        size_t& childDepth = depth[child];
        if (depth[id] + 1 <= childDepth) continue;
        childDepth = depth[id] + 1;
        forest.parent[child] = id;
      }
    }
    for (const Id& id : order) {
      const auto parent = forest.parent.find(id);
      if (parent == forest.parent.end()) {
        forest.roots.push_back(id);
      } else {
        forest.children[parent->second].push_back(id);
      }
    }
    for (auto& [id, children] : forest.children) Sort(&children);
    Sort(&forest.roots);
    return forest;
  }

 private:
  void CollectParents(const Id& id) {
    std::vector<Id> real;
    std::vector<Id> groups;
    for (const Id& parent : source_.Parents(id)) {
      if (parent == id || member_.count(parent) == 0) continue;
      const ObjectInfo* info = source_.Info(parent);
      (info != nullptr && info->isGroup ? groups : real).push_back(parent);
    }
    parents_[id] = real.empty() ? std::move(groups) : std::move(real);
    for (const Id& parent : parents_[id]) below_[parent].push_back(id);
  }

  // Every node after all nodes that lead to it, but for the ways that close a cycle.
  std::vector<Id> Order() {
    std::vector<Id> order;
    for (const Id& start : starts_) Descend(start, &order);
    std::vector<Id> rest = nodes_;
    Sort(&rest);
    for (const Id& id : rest) Descend(id, &order);
    std::reverse(order.begin(), order.end());
    return order;
  }

  void Descend(const Id& start, std::vector<Id>* order) {
    if (!seen_.insert(start).second) return;
    std::vector<std::pair<Id, size_t>> stack{{start, 0}};
    while (!stack.empty()) {
      const Id id = stack.back().first;
      const std::vector<Id>& children = below_[id];
      if (stack.back().second == children.size()) {
        order->push_back(id);
        stack.pop_back();
        continue;
      }
      const Id child = children[stack.back().second++];
      if (seen_.insert(child).second) stack.emplace_back(child, 0);
    }
  }

  void Sort(std::vector<Id>* ids) {
    std::sort(ids->begin(), ids->end(), [this](const Id& a, const Id& b) {
      const ObjectInfo* first = source_.Info(a);
      const ObjectInfo* second = source_.Info(b);
      if (first == nullptr || second == nullptr) return first == second && a < b;
      if (first->isGroup != second->isGroup) return second->isGroup;
      if (first->type != second->type) return first->type < second->type;
      if (first->name != second->name) return NaturalLess(first->name, second->name);
      return a < b;
    });
  }

  ObjectSource& source_;
  std::vector<Id> nodes_;
  std::unordered_set<Id, IdHash> member_;
  std::unordered_map<Id, std::vector<Id>, IdHash> parents_;
  std::unordered_map<Id, std::vector<Id>, IdHash> below_;
  std::vector<Id> starts_;
  std::unordered_set<Id, IdHash> seen_;
};

bool IsShown(ObjectSource& source, const Id& id, bool withHidden) {
  const ObjectInfo* info = source.Info(id);
  return info != nullptr && (withHidden || !info->IsHidden());
}

}  // namespace

std::string PathElement(const ObjectInfo& info) {
  if (info.name.empty()) return Printable(info.type) + ":";
  const std::string name = Printable(info.name);
  if (name.find_first_of("/\"'\\") == std::string::npos) return name;
  std::string out = "\"";
  for (const char c : name) {
    if (c == '"' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  return out + "\"";
}

Forest BuildForest(ObjectSource& source, bool withHidden) {
  std::vector<Id> nodes;
  for (const Id& id : source.All()) {
    if (IsShown(source, id, withHidden)) nodes.push_back(id);
  }
  return ForestBuilder(source, std::move(nodes), nullptr).Build();
}

Forest BuildForest(ObjectSource& source, bool withHidden, const Id& from) {
  std::vector<Id> nodes{from};
  std::unordered_set<Id, IdHash> known{from};
  for (size_t i = 0; i < nodes.size(); ++i) {
    const std::vector<Id> children = source.Children(nodes[i]);
    for (const Id& child : children) {
      if (IsShown(source, child, withHidden) && known.insert(child).second) nodes.push_back(child);
    }
  }
  return ForestBuilder(source, std::move(nodes), &from).Build();
}

std::string PathOf(ObjectSource& source, const Forest& forest, const Id& id) {
  std::string path;
  Id at = id;
  for (;;) {
    const ObjectInfo* info = source.Info(at);
    path = "/" + (info == nullptr ? IdText(at) : PathElement(*info)) + path;
    const auto parent = forest.parent.find(at);
    if (parent == forest.parent.end()) return path;
    at = parent->second;
  }
}

std::vector<Id> MatchPath(ObjectSource& source, std::string_view text) {
  Matcher matcher(source, text);
  matcher.Walk(PathStarts(source), 1);
  return matcher.Found();
}

Id ResolveObject(ObjectSource& source, std::string_view text) {
  if (text.empty()) throw UsageError("an object's name must not be empty");
  if (const std::optional<Id> id = ParseId(text)) {
    if (source.Info(*id) == nullptr) FailNotFound(source, text, nullptr);
    return *id;
  }
  if (text.front() == '{') {
    const std::vector<Id> found =
        LooksLikeIdPrefix(text) ? MatchIdPrefix(source, text) : std::vector<Id>();
    if (found.empty()) FailNotFound(source, text, nullptr);
    return PickOne(source, text, found);
  }
  std::optional<Matcher> absolute;
  if (text.front() == '/') {
    absolute.emplace(source, text);
    absolute->Walk(PathStarts(source), 1);
    if (!absolute->Found().empty()) return PickOne(source, text, absolute->Found());
  }
  Matcher anywhere(source, text);
  anywhere.Walk(source.All(), 0);
  if (!anywhere.Found().empty()) return PickOne(source, text, anywhere.Found());
  if (LooksLikeIdPrefix(text)) {
    const std::vector<Id> found = MatchIdPrefix(source, text);
    if (!found.empty()) return PickOne(source, text, found);
  }
  FailNotFound(source, text, absolute ? &*absolute : &anywhere);
}

size_t ShortIdLength(const std::vector<Id>& ids) {
  constexpr size_t kLeast = 8;
  std::vector<std::string> texts;
  for (const Id& id : ids) texts.push_back(IdDigits(id));
  std::sort(texts.begin(), texts.end());
  texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
  size_t length = kLeast;
  for (size_t i = 1; i < texts.size(); ++i) {
    const auto [left, right] =
        std::mismatch(texts[i - 1].begin(), texts[i - 1].end(), texts[i].begin());
    length = std::max(length, static_cast<size_t>(left - texts[i - 1].begin()) + 1);
  }
  return length;
}

std::string ShortId(const Id& id, size_t length) {
  return IdDigits(id).substr(0, length);
}

}  // namespace zn::ctl
