// The two kinds of index and the factory table. A boolean has two values, so its index is two sets
// of nodes. Every other index is a hash table with one group per value; the hash comes from the
// row of the tag, equality is the value's own.
#include "framework/common/zntypeobject/objectindex.h"

#include <unordered_map>

#include "support/common/flat_table.h"

namespace zn {

namespace {

// Nodes that share one value: an array, and once it is long, each node's place in it. Taking a node
// out moves the last one into its place.
class NodeSet {
 public:
  [[nodiscard]] const std::vector<DBNode*>& Nodes() const noexcept { return nodes_; }

  void Add(DBNode* node) {
    if (PlaceOf(node) != nodes_.size()) return;
    if (places_ == nullptr && nodes_.size() == kScanLimit) IndexPlaces();
    if (nodes_.size() == nodes_.capacity()) nodes_.reserve(nodes_.size() * 2 + 2);
    if (places_ != nullptr) places_->emplace(node, nodes_.size());
    nodes_.push_back(node);  // has its room: nothing fails between the two
  }

  void Remove(const DBNode* node) noexcept {
    const size_t place = PlaceOf(node);
    if (place == nodes_.size()) return;
    DBNode* last = nodes_.back();
    nodes_[place] = last;
    nodes_.pop_back();
    if (places_ == nullptr) return;
    const auto moved = places_->find(last);
    if (moved != places_->end()) moved->second = place;
    places_->erase(node);
  }

 private:
  using Places = std::unordered_map<const DBNode*, size_t>;
  static constexpr size_t kScanLimit = 32;  // up to here a scan is cheaper than a look-up

  [[nodiscard]] size_t PlaceOf(const DBNode* node) const noexcept {
    if (places_ != nullptr) {
      const auto found = places_->find(node);
      return found == places_->end() ? nodes_.size() : found->second;
    }
    size_t place = 0;
    while (place < nodes_.size() && nodes_[place] != node) ++place;
    return place;
  }

  void IndexPlaces() {
    auto places = std::make_unique<Places>();
    for (size_t i = 0; i < nodes_.size(); ++i) places->emplace(nodes_[i], i);
    places_ = std::move(places);
  }

  std::vector<DBNode*> nodes_;
  std::unique_ptr<Places> places_;
};

class BooleanIndex final : public ObjectIndex {
 public:
  void Add(const Value& value, DBNode* node) override {
    if (value.Tag() == ZN_TYPE_BOOLEAN) SetOf(value).Add(node);
  }
  void Find(const Value& value, std::vector<DBNode*>* out) const override {
    if (value.Tag() != ZN_TYPE_BOOLEAN) return;
    const auto& nodes = SetOf(value).Nodes();
    out->insert(out->end(), nodes.begin(), nodes.end());
  }
  [[nodiscard]] size_t Count(const Value& value) const noexcept override {
    return value.Tag() == ZN_TYPE_BOOLEAN ? SetOf(value).Nodes().size() : 0;
  }
  void Remove(const Value& value, DBNode* node) noexcept override {
    if (value.Tag() == ZN_TYPE_BOOLEAN) SetOf(value).Remove(node);
  }

 private:
  // Any byte but 0 is true.
  [[nodiscard]] NodeSet& SetOf(const Value& value) noexcept {
    return value.AsBool() != 0 ? true_ : false_;
  }
  [[nodiscard]] const NodeSet& SetOf(const Value& value) const noexcept {
    return value.AsBool() != 0 ? true_ : false_;
  }

  NodeSet false_;
  NodeSet true_;
};

using ValueHash = u64 (*)(const Value& value) noexcept;

class HashedIndex final : public ObjectIndex {
 public:
  HashedIndex(u32 tag, ValueHash hash) noexcept : tag_(tag), hash_(hash) {}
  ~HashedIndex() override {
    groups_.ForEach([](Group& group) { delete &group; });
  }
  HashedIndex(const HashedIndex&) = delete;
  HashedIndex& operator=(const HashedIndex&) = delete;

  void Add(const Value& value, DBNode* node) override {
    if (value.Tag() != tag_) return;
    Group* group = FindGroup(value);
    if (group != nullptr) {
      group->Add(node);
      return;
    }
    auto fresh = std::make_unique<Group>(value, node);
    groups_.Insert(hash_(value), fresh.get());
    static_cast<void>(fresh.release());  // the table owns it
  }

  void Find(const Value& value, std::vector<DBNode*>* out) const override {
    const Group* group = value.Tag() == tag_ ? FindGroup(value) : nullptr;
    if (group == nullptr) return;
    if (group->crowd == nullptr) {
      out->push_back(group->only);
      return;
    }
    const auto& nodes = group->crowd->Nodes();
    out->insert(out->end(), nodes.begin(), nodes.end());
  }

  [[nodiscard]] size_t Count(const Value& value) const noexcept override {
    const Group* group = value.Tag() == tag_ ? FindGroup(value) : nullptr;
    if (group == nullptr) return 0;
    return group->crowd == nullptr ? 1 : group->crowd->Nodes().size();
  }

  void Remove(const Value& value, DBNode* node) noexcept override {
    Group* group = value.Tag() == tag_ ? FindGroup(value) : nullptr;
    if (group == nullptr || !group->Remove(node)) return;
    static_cast<void>(groups_.Erase(hash_(value), group));
    delete group;
  }

 private:
  // The nodes of one value. Most values of a large store belong to one node alone, which then lies
  // in the group itself.
  struct Group {
    Group(const Value& v, DBNode* node) : value(v), only(node) {}

    void Add(DBNode* node) {
      if (crowd == nullptr) {
        if (only == node) return;
        auto fresh = std::make_unique<NodeSet>();
        fresh->Add(only);
        crowd = std::move(fresh);
        only = nullptr;
      }
      crowd->Add(node);
    }
    // Whether the group is empty now.
    [[nodiscard]] bool Remove(const DBNode* node) noexcept {
      if (crowd == nullptr) return only == node;
      crowd->Remove(node);
      return crowd->Nodes().empty();
    }

    Value value;
    DBNode* only;  // null once there is a crowd
    std::unique_ptr<NodeSet> crowd;
  };

  [[nodiscard]] Group* FindGroup(const Value& value) const noexcept {
    return groups_.Find(hash_(value),
                        [&value](const Group& group) { return group.value.Equals(value); });
  }

  u32 tag_;
  ValueHash hash_;
  FlatTable<Group> groups_;
};

// A number of 32 bits lies in the value's eight bytes without its sign, whatever the tag.
u64 HashNumber(const Value& value) noexcept {
  return MixHash(value.AsUInt64());
}
u64 HashText(const Value& value) noexcept {
  return HashBytes(value.AsText().data(), value.AsText().size());
}
u64 HashWideText(const Value& value) noexcept {
  return HashBytes(value.AsWideText().data(), value.AsWideText().size() * sizeof(ZnWChar));
}
u64 HashId(const Value& value) noexcept {
  return GuidHash(value.AsGuid());
}

template <ValueHash kHash>
std::unique_ptr<ObjectIndex> CreateHashed(u32 tag) {
  return std::make_unique<HashedIndex>(tag, kHash);
}
std::unique_ptr<ObjectIndex> CreateBoolean(u32) {
  return std::make_unique<BooleanIndex>();
}

struct IndexFactory {
  u32 tag;
  std::unique_ptr<ObjectIndex> (*create)(u32 tag);
};

constexpr IndexFactory kIndexFactories[] = {
    {ZN_TYPE_BOOLEAN, CreateBoolean},           {ZN_TYPE_INT32, CreateHashed<HashNumber>},
    {ZN_TYPE_UINT32, CreateHashed<HashNumber>}, {ZN_TYPE_INT64, CreateHashed<HashNumber>},
    {ZN_TYPE_TIME, CreateHashed<HashNumber>},   {ZN_TYPE_UINT64, CreateHashed<HashNumber>},
    {ZN_TYPE_STRING, CreateHashed<HashText>},   {ZN_TYPE_WIDESTRING, CreateHashed<HashWideText>},
    {ZN_TYPE_GUID, CreateHashed<HashId>},       {ZN_TYPE_OBJECT_ID, CreateHashed<HashId>},
};

const IndexFactory* FindFactory(u32 tag) noexcept {
  for (const IndexFactory& factory : kIndexFactories) {
    if (factory.tag == tag) return &factory;
  }
  return nullptr;
}

}  // namespace

bool IsIndexableTag(u32 tag) noexcept {
  return FindFactory(tag) != nullptr;
}

std::unique_ptr<ObjectIndex> CreateObjectIndex(u32 tag) {
  const IndexFactory* factory = FindFactory(tag);
  return factory == nullptr ? nullptr : factory->create(tag);
}

}  // namespace zn
