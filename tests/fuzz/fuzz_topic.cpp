// Topics and patterns against a model that is as simple as it can be: a set of paths walked by
// recursion. The input is a list of lines, each a step:
//   +1<pattern>        provider 1, 2 or 3 registers
//   -<letter>          the registration of that number ('a' is the first) is given back
//   ~2                 provider 2 goes, with its registrations
//   ?<topic>           who hears the topic, in the tree and in the model
//   =<topic>|<pattern> the flat matcher, the classes and the splitters
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventregistry.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/provider.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "zn/ev.h"
#include "zn/memory.h"

namespace {

using zn::Database;
using zn::EventRegistry;
using zn::Provider;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

// The types and providers of every run. The ids are fixed, so that an input can spell a leaf's key.
struct World {
  Database database{0, {}};
  std::vector<std::unique_ptr<Provider>> providers;

  World() {
    Require(zn::RegisterBaseObjectTypes(database) == ZN_OK, "base types");
    MakeType("B", {"KELD_Object"});
    MakeType("D", {"B"});
    MakeType("O", {"KELD_Object"});
    for (u32 i = 1; i <= 3; ++i) {
      providers.push_back(std::make_unique<Provider>(&database,
                                                     database.Types().FindType("KELD_Provider"),
                                                     u"p", ProviderCallbacks{}, nullptr, false));
      providers.back()->SetId(zn::InternedId(GUID{i, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}}));
    }
  }

 private:
  void MakeType(const char* name, const std::vector<std::string>& supertypes) {
    zn::TypeObject* type = nullptr;
    Require(database.Types().CreateTypeInstance(name, nullptr, supertypes, 0, &type) == ZN_OK,
            name);
  }
};

using Path = std::vector<std::string>;

Path Split(std::string_view text) {
  Path tokens(1);
  for (const char c : text) {
    if (c == '.') {
      tokens.emplace_back();
    } else {
      tokens.back() += c;
    }
  }
  return tokens;
}

bool IsOneOf(char c, std::string_view others) {
  const bool isAlphanumeric =
      (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
  return isAlphanumeric || others.find(c) != std::string_view::npos;
}

bool IsLegalToken(const std::string& token) {
  return token == "*" ||
         std::all_of(token.begin(), token.end(), [](char c) { return IsOneOf(c, ":_-{}"); });
}

std::string LeafKey(u32 provider) {
  char text[64];
  std::snprintf(text, sizeof(text), "mira:provider:{%08x-0000-0000-0000-000000000000}", provider);
  return text;
}

bool IsObjectTopic(const Path& tokens) {
  return tokens.size() >= 4 && tokens[0] == "event" && tokens[1] == "keld" && tokens[2] == "dom" &&
         tokens[3] == "object";
}

struct Handle {
  ZnHandle handle;
  bool isBranch;
  u32 leaf;  // number of the leaf it was made for
  bool isFree = false;
};

class Model {
 public:
  explicit Model(World& world) : world_(world) {}

  void Register(u32 provider, const std::string& pattern) {
    ZnHandle handle = nullptr;
    const u32 status = registry_.Add(*world_.providers[provider - 1], pattern, &handle);
    Path tokens = Split(pattern);
    if (!std::all_of(tokens.begin(), tokens.end(), IsLegalToken)) {
      Require(status == ZNE_EVENT_STRING_INVALID && handle == nullptr, "illegal pattern");
      return;
    }
    Require(status == ZN_OK && handle != nullptr, "registration");
    while (!tokens.empty() && tokens.back() == "*") tokens.pop_back();
    Path path;
    for (const std::string& token : tokens) {
      if (FindLeaf(path, token) != 0) continue;
      path.push_back(token);
      branches_.insert(path);
    }
    const std::string key = LeafKey(provider);
    Path keyPath = path;
    keyPath.push_back(key);
    if (branches_.contains(keyPath)) {
      handles_.push_back({handle, true, 0});
      return;
    }
    u32& leaf = leaves_[{path, provider}];
    if (leaf == 0) leaf = ++leavesMade_;
    handles_.push_back({handle, false, leaf});
  }

  void Unregister(size_t index) {
    if (index >= handles_.size()) return;
    Handle& handle = handles_[index];
    const u32 status = registry_.Remove(handle.handle);
    if (handle.isFree || handle.isBranch) {
      Require(status == ZNE_INVALID_ARGUMENTS, "no registration");
      return;
    }
    const auto live = std::find_if(leaves_.begin(), leaves_.end(),
                                   [&](const auto& leaf) { return leaf.second == handle.leaf; });
    const bool isLive = live != leaves_.end();
    if (!isLive && withdrawn_.erase(handle.leaf) == 0) {
      Require(status == ZNE_UNEXPECTED, "a leaf that is gone");
      return;
    }
    Require(status == ZN_OK, "giving back");
    if (isLive) leaves_.erase(live);
    handle.isFree = true;
  }

  void RemoveProvider(u32 provider) {
    registry_.RemoveProvider(*world_.providers[provider - 1]);
    for (auto it = leaves_.begin(); it != leaves_.end();) {
      if (it->first.second != provider) {
        ++it;
        continue;
      }
      withdrawn_.insert(it->second);
      it = leaves_.erase(it);
    }
  }

  void Ask(const std::string& topic) {
    const Path tokens = Split(topic);
    // Leaf keys in a topic multiply the ways through the model, not those through the tree.
    if (tokens.size() > 10) return;
    std::vector<ZnHandle> found;
    const u32 status = registry_.Collect(world_.database, topic, &found);
    if (std::find(tokens.begin(), tokens.end(), "*") != tokens.end()) {
      Require(status == ZNE_EVENT_NOT_FOUND && found.empty(), "a star in a topic");
      return;
    }
    Require(status == ZN_OK, "collecting");
    std::set<ZnHandle> expected;
    Walk(tokens, 0, {}, &expected);
    Require(found == std::vector<ZnHandle>(expected.begin(), expected.end()), "receivers");
    Require(registry_.HasListeners() == !leaves_.empty(), "listeners");
  }

 private:
  // The number of the leaf that the token names in the node, or 0.
  u32 FindLeaf(const Path& path, const std::string& token) const {
    for (u32 provider = 1; provider <= 3; ++provider) {
      if (token != LeafKey(provider)) continue;
      const auto found = leaves_.find({path, provider});
      if (found != leaves_.end()) return found->second;
    }
    return 0;
  }

  void Walk(const Path& tokens, size_t depth, const Path& path, std::set<ZnHandle>* out) {
    for (const auto& [place, leaf] : leaves_) {
      if (place.first == path) out->insert(world_.providers[place.second - 1]->Handle());
    }
    if (depth == tokens.size()) return;
    const bool isType = depth == 4 && IsObjectTopic(tokens);
    for (const Path& branch : branches_) {
      if (branch.size() != path.size() + 1 ||
          !std::equal(path.begin(), path.end(), branch.begin())) {
        continue;
      }
      const std::string& key = branch.back();
      const bool enters = key == "*" || (isType ? world_.database.Types().TypeIsA(tokens[4], key)
                                                : key == tokens[depth]);
      if (enters) Walk(tokens, depth + 1, branch, out);
    }
    if (!isType && FindLeaf(path, tokens[depth]) != 0) Walk(tokens, depth + 1, path, out);
  }

  World& world_;
  EventRegistry registry_;
  std::set<Path> branches_;
  std::map<std::pair<Path, u32>, u32> leaves_;  // node and provider, number of the leaf
  std::set<u32> withdrawn_;
  u32 leavesMade_ = 0;
  std::vector<Handle> handles_;
};

bool Matches(Database& database, const Path& topic, const Path& pattern) {
  if (topic.size() < pattern.size()) return false;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == "*") continue;
    const bool isType = i == 4 && IsObjectTopic(topic);
    const bool same =
        isType ? database.Types().TypeIsA(topic[i], pattern[i]) : topic[i] == pattern[i];
    if (!same) return false;
  }
  return true;
}

void CheckTokens(const std::string& topic) {
  const Path tokens = Split(topic);
  char** block = nullptr;
  u32 count = 0;
  const u32 status = EvTokens(topic.c_str(), &block, &count);
  if (!std::all_of(tokens.begin(), tokens.end(), IsLegalToken)) {
    Require(status == ZNE_EVENT_STRING_INVALID && block == nullptr, "illegal token");
    return;
  }
  Require(status == ZN_OK && count == tokens.size(), "count of tokens");
  for (u32 i = 0; i < count; ++i) Require(tokens[i] == block[i], "token");
  ZnFree(block);
}

void Compare(World& world, std::string_view line) {
  const size_t bar = line.find('|');
  if (bar == std::string_view::npos) return;
  const std::string topic(line.substr(0, bar));
  const std::string pattern(line.substr(bar + 1));
  const bool expected = Matches(world.database, Split(topic), Split(pattern));
  Require(zn::MatchTopic(&world.database, topic, pattern) == expected, "match");
  Require(EvMatch(world.database.Handle(), topic.c_str(), pattern.c_str()) == expected, "EvMatch");
  const bool isRaisable =
      std::all_of(topic.begin(), topic.end(), [](char c) { return IsOneOf(c, ".:_-{}"); });
  Require(zn::IsRaisableTopic(topic) == isRaisable, "class of a topic");
  CheckTokens(topic);
  CheckTokens(pattern);
}

void Step(World& world, Model& model, std::string_view line) {
  if (line.empty() || line.size() > 0x1000 || line.find('\0') != std::string_view::npos) return;
  const std::string rest(line.substr(1));
  const u32 provider = rest.empty() || rest[0] < '1' || rest[0] > '3' ? 0 : u32(rest[0] - '0');
  switch (line[0]) {
    case '+':
      if (provider != 0) model.Register(provider, rest.substr(1));
      return;
    case '-':
      if (!rest.empty()) model.Unregister(static_cast<size_t>(static_cast<u8>(rest[0]) - u8{'a'}));
      return;
    case '~':
      if (provider != 0) model.RemoveProvider(provider);
      return;
    case '?':
      model.Ask(rest);
      return;
    case '=':
      Compare(world, rest);
      return;
    default:
      return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const zn::BusLock lock;
  static World& world = *new World;
  Model model(world);
  std::string_view input(reinterpret_cast<const char*>(data), size);
  for (int steps = 0; steps < 64 && !input.empty(); ++steps) {
    const size_t end = std::min(input.find('\n'), input.size());
    Step(world, model, input.substr(0, end));
    input.remove_prefix(std::min(end + 1, input.size()));
  }
  return 0;
}
