// The kinds of index and the factory table. A boolean has two values, so its index is two sets of
// nodes. Every other index is a hash table that holds the value itself in the slot, numbers as they
// are, texts and ids by their bytes.
#include "framework/common/zntypeobject/objectindex.h"

#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>

#include "framework/common/zncore/dbnode.h"
#include "support/common/flat_table.h"
#include "support/common/platform.h"

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
  void Enter(const Value& value, DBNode* node, const ObjectId&) override {
    if (value.Tag() == ZN_TYPE_BOOLEAN) SetOf(value).Add(node);
  }
  void Find(const Value& value, std::vector<DBNode*>* out) const override {
    if (value.Tag() != ZN_TYPE_BOOLEAN) return;
    const auto& nodes = SetOf(value).Nodes();
    out->insert(out->end(), nodes.begin(), nodes.end());
  }
  void FindIds(const Value& value, std::vector<ObjectId>* out) const override {
    if (value.Tag() == ZN_TYPE_BOOLEAN) AppendIds(SetOf(value).Nodes(), out);
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

// The slots of a table: a power of two of them, all zero at first, moved as bytes. They are probed
// at random, so a table that is large enough lies on large pages.
template <typename Slot>
class SlotArray {
 public:
  SlotArray() = default;
  explicit SlotArray(size_t count) : slots_(Allocate(count * sizeof(Slot))), mask_(count - 1) {}
  ~SlotArray() {
    if (Bytes() < kLargePageBytes) {
      ::operator delete(slots_, kLine);
    } else {
      FreePages(slots_, Bytes());
    }
  }
  SlotArray(const SlotArray&) = delete;
  SlotArray& operator=(const SlotArray&) = delete;
  void Swap(SlotArray& other) noexcept {
    std::swap(slots_, other.slots_);
    std::swap(mask_, other.mask_);
  }

  [[nodiscard]] size_t Count() const noexcept { return slots_ == nullptr ? 0 : mask_ + 1; }
  [[nodiscard]] Slot& operator[](size_t place) const noexcept { return slots_[place]; }
  [[nodiscard]] size_t HomeOf(u64 hash) const noexcept { return static_cast<size_t>(hash) & mask_; }
  [[nodiscard]] size_t Next(size_t place) const noexcept { return (place + 1) & mask_; }
  // Whether a probe that starts at `home` passes `place` on its way to `end`.
  [[nodiscard]] bool LiesBetween(size_t home, size_t place, size_t end) const noexcept {
    return ((end - home) & mask_) >= ((end - place) & mask_);
  }

 private:
  static constexpr std::align_val_t kLine{64};

  [[nodiscard]] size_t Bytes() const noexcept { return Count() * sizeof(Slot); }
  [[nodiscard]] static Slot* Allocate(size_t bytes) {
    void* slots = nullptr;
    if (bytes < kLargePageBytes) {
      slots = std::memset(::operator new(bytes, kLine), 0, bytes);
    } else if ((slots = AllocatePages(bytes)) != nullptr) {
      UseLargePages(slots, bytes);
    }
    if (slots == nullptr) throw std::bad_alloc();
    return static_cast<Slot*>(slots);
  }

  Slot* slots_ = nullptr;
  size_t mask_ = 0;
};

// Who has one value: a node with its id, or a crowd of nodes. No bits are an empty slot.
class Holders {
 public:
  [[nodiscard]] bool IsEmpty() const noexcept { return word_ == 0; }
  void SetOnly(DBNode* node, const ObjectId& id) noexcept {
    word_ = reinterpret_cast<std::uintptr_t>(node);
    id_ = id;
  }
  void Add(DBNode* node, const ObjectId& id) {
    if (IsEmpty()) {
      SetOnly(node, id);
      return;
    }
    if (!IsCrowd()) {
      if (Only() == node) return;
      auto crowd = std::make_unique<NodeSet>();
      crowd->Add(Only());
      crowd->Add(node);
      word_ = reinterpret_cast<std::uintptr_t>(crowd.release()) | kCrowdMark;
      return;
    }
    Crowd()->Add(node);
  }
  // Whether nobody is left. The holders of no node are to be forgotten then.
  [[nodiscard]] bool Remove(const DBNode* node) noexcept {
    if (!IsCrowd()) return Only() == node;
    Crowd()->Remove(node);
    return Crowd()->Nodes().empty();
  }
  [[nodiscard]] size_t Count() const noexcept { return IsCrowd() ? Crowd()->Nodes().size() : 1; }
  void AppendNodes(std::vector<DBNode*>* out) const {
    if (!IsCrowd()) {
      out->push_back(Only());
      return;
    }
    const std::vector<DBNode*>& nodes = Crowd()->Nodes();
    out->insert(out->end(), nodes.begin(), nodes.end());
  }
  void AppendIdsTo(std::vector<ObjectId>* out) const {
    if (!IsCrowd()) {
      out->push_back(id_);
      return;
    }
    AppendIds(Crowd()->Nodes(), out);
  }
  void Destroy() noexcept {
    if (IsCrowd()) delete Crowd();
  }

 private:
  static constexpr std::uintptr_t kCrowdMark = 1;  // nodes and sets lie at even addresses

  [[nodiscard]] bool IsCrowd() const noexcept { return (word_ & kCrowdMark) != 0; }
  [[nodiscard]] DBNode* Only() const noexcept { return reinterpret_cast<DBNode*>(word_); }
  [[nodiscard]] NodeSet* Crowd() const noexcept {
    return reinterpret_cast<NodeSet*>(word_ & ~kCrowdMark);
  }

  std::uintptr_t word_;
  ObjectId id_;  // of the one node
};

// A slot of numbers: the value itself. Half a line.
struct alignas(32) NumberSlot {
  // A number of 32 bits lies in the value's eight bytes without its sign, whatever the tag.
  struct Probe {
    explicit Probe(const Value& value) noexcept
        : bits(value.AsUInt64()), hash(MixHash(value.AsUInt64())) {}
    u64 bits;
    u64 hash;
  };

  [[nodiscard]] bool Holds(const Probe& probe) const noexcept { return bits == probe.bits; }
  [[nodiscard]] u64 Hash() const noexcept { return MixHash(bits); }
  void Keep(const Probe& probe, const Value&) noexcept { bits = probe.bits; }
  void Destroy() noexcept { holders.Destroy(); }

  u64 bits;
  Holders holders;
};
static_assert(sizeof(NumberSlot) == 32);

// A slot of texts and ids: their bytes, where they are few. One line.
struct alignas(64) BytesSlot {
  struct Probe {
    explicit Probe(const Value& value) noexcept
        : bytes(BytesOf(value)), hash(HashBytes(bytes.data(), bytes.size())) {}
    std::string_view bytes;
    u64 hash;
  };

  [[nodiscard]] bool Holds(const Probe& probe) const noexcept {
    return hash == probe.hash && length == probe.bytes.size() &&
           std::memcmp(Bytes(), probe.bytes.data(), length) == 0;
  }
  [[nodiscard]] u64 Hash() const noexcept { return hash; }
  // Of a long text the value is kept, which shares the text with the property.
  void Keep(const Probe& probe, const Value& value) {
    if (probe.bytes.size() <= sizeof few) {
      std::memcpy(few, probe.bytes.data(), probe.bytes.size());
    } else {
      const Value* kept = new Value(value);
      std::memcpy(few, &kept, sizeof kept);
    }
    hash = probe.hash;
    length = static_cast<u32>(probe.bytes.size());
  }
  void Destroy() noexcept {
    holders.Destroy();
    if (length > sizeof few) delete Kept();
  }

  // The bytes by which two values of one tag are equal or not.
  [[nodiscard]] static std::string_view BytesOf(const Value& value) noexcept {
    switch (value.Tag()) {
      case ZN_TYPE_STRING:
        return value.AsText();
      case ZN_TYPE_WIDESTRING:
        return {reinterpret_cast<const char*>(value.AsWideText().data()),
                value.AsWideText().size() * sizeof(ZnWChar)};
      default:
        return {reinterpret_cast<const char*>(&value.AsGuid()), sizeof(GUID)};
    }
  }
  [[nodiscard]] const Value* Kept() const noexcept {
    const Value* kept = nullptr;
    std::memcpy(&kept, few, sizeof kept);
    return kept;
  }
  [[nodiscard]] const char* Bytes() const noexcept {
    return length <= sizeof few ? few : BytesOf(*Kept()).data();
  }

  u64 hash;
  Holders holders;
  u32 length;
  char few[28];
};
static_assert(sizeof(BytesSlot) == 64);

// A hash table of slots: open addressing with linear probing, at most three quarters full.
template <typename Slot>
class HashedIndex final : public ObjectIndex {
 public:
  explicit HashedIndex(u32 tag) noexcept : tag_(tag) {}
  ~HashedIndex() override {
    for (size_t i = 0; i < slots_.Count(); ++i) {
      if (!slots_[i].holders.IsEmpty()) slots_[i].Destroy();
    }
  }
  HashedIndex(const HashedIndex&) = delete;
  HashedIndex& operator=(const HashedIndex&) = delete;

  void Enter(const Value& value, DBNode* node, const ObjectId& id) override {
    if (value.Tag() != tag_) return;
    const Probe probe(value);
    if (Slot* present = FindSlot(probe)) {
      present->holders.Add(node, id);
      return;
    }
    if ((used_ + 1) * 4 > slots_.Count() * 3) Grow();
    Slot& fresh = slots_[FreePlace(slots_, probe.hash)];
    fresh.Keep(probe, value);  // the last that may fail: the slot is still an empty one
    fresh.holders.SetOnly(node, id);
    ++used_;
  }

  void Find(const Value& value, std::vector<DBNode*>* out) const override {
    if (const Slot* slot = FindValue(value)) slot->holders.AppendNodes(out);
  }
  void FindIds(const Value& value, std::vector<ObjectId>* out) const override {
    if (const Slot* slot = FindValue(value)) slot->holders.AppendIdsTo(out);
  }
  [[nodiscard]] size_t Count(const Value& value) const noexcept override {
    const Slot* slot = FindValue(value);
    return slot == nullptr ? 0 : slot->holders.Count();
  }
  void Remove(const Value& value, DBNode* node) noexcept override {
    Slot* slot = FindValue(value);
    if (slot == nullptr || !slot->holders.Remove(node)) return;
    slot->Destroy();
    CloseGap(static_cast<size_t>(slot - &slots_[0]));
    --used_;
  }

 private:
  using Probe = typename Slot::Probe;
  using Slots = SlotArray<Slot>;

  [[nodiscard]] Slot* FindValue(const Value& value) const noexcept {
    return value.Tag() == tag_ ? FindSlot(Probe(value)) : nullptr;
  }
  [[nodiscard]] Slot* FindSlot(const Probe& probe) const noexcept {
    if (used_ == 0) return nullptr;
    const size_t home = slots_.HomeOf(probe.hash);
    // Every third look-up goes on to the next slot, and would wait once more.
    __builtin_prefetch(&slots_[slots_.Next(home)]);
    for (size_t i = home;; i = slots_.Next(i)) {
      if (slots_[i].holders.IsEmpty()) return nullptr;
      if (slots_[i].Holds(probe)) return &slots_[i];
    }
  }
  [[nodiscard]] static size_t FreePlace(const Slots& slots, u64 hash) noexcept {
    size_t place = slots.HomeOf(hash);
    while (!slots[place].holders.IsEmpty()) place = slots.Next(place);
    return place;
  }
  void Grow() {
    Slots larger(slots_.Count() == 0 ? 16 : slots_.Count() * 2);
    for (size_t i = 0; i < slots_.Count(); ++i) {
      if (slots_[i].holders.IsEmpty()) continue;
      larger[FreePlace(larger, slots_[i].Hash())] = slots_[i];
    }
    slots_.Swap(larger);
  }
  // Moves later slots of the run back, so that no probe ends at the freed one too early.
  void CloseGap(size_t gap) noexcept {
    for (size_t i = slots_.Next(gap); !slots_[i].holders.IsEmpty(); i = slots_.Next(i)) {
      const size_t home = slots_.HomeOf(slots_[i].Hash());
      if (!slots_.LiesBetween(home, gap, i)) continue;
      slots_[gap] = slots_[i];
      gap = i;
    }
    slots_[gap] = Slot{};
  }

  u32 tag_;
  Slots slots_;
  size_t used_ = 0;
};

template <typename Slot>
std::unique_ptr<ObjectIndex> CreateHashed(u32 tag) {
  return std::make_unique<HashedIndex<Slot>>(tag);
}
std::unique_ptr<ObjectIndex> CreateBoolean(u32) {
  return std::make_unique<BooleanIndex>();
}

struct IndexFactory {
  u32 tag;
  std::unique_ptr<ObjectIndex> (*create)(u32 tag);
};

constexpr IndexFactory kIndexFactories[] = {
    {ZN_TYPE_BOOLEAN, CreateBoolean},           {ZN_TYPE_INT32, CreateHashed<NumberSlot>},
    {ZN_TYPE_UINT32, CreateHashed<NumberSlot>}, {ZN_TYPE_INT64, CreateHashed<NumberSlot>},
    {ZN_TYPE_TIME, CreateHashed<NumberSlot>},   {ZN_TYPE_UINT64, CreateHashed<NumberSlot>},
    {ZN_TYPE_STRING, CreateHashed<BytesSlot>},  {ZN_TYPE_WIDESTRING, CreateHashed<BytesSlot>},
    {ZN_TYPE_GUID, CreateHashed<BytesSlot>},    {ZN_TYPE_OBJECT_ID, CreateHashed<BytesSlot>},
};

const IndexFactory* FindFactory(u32 tag) noexcept {
  for (const IndexFactory& factory : kIndexFactories) {
    if (factory.tag == tag) return &factory;
  }
  return nullptr;
}

}  // namespace

void ObjectIndex::Add(const Value& value, DBNode* node) {
  Enter(value, node, node->Guid());
}

void AppendIds(const std::vector<DBNode*>& nodes, std::vector<ObjectId>* out) {
  constexpr size_t kAhead = 16;  // nodes; each is likely to lie where no cache holds it
  out->reserve(out->size() + nodes.size());
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (i + kAhead < nodes.size()) __builtin_prefetch(&nodes[i + kAhead]->Guid());
    out->push_back(nodes[i]->Guid());
  }
}

bool IsIndexableTag(u32 tag) noexcept {
  return FindFactory(tag) != nullptr;
}

std::unique_ptr<ObjectIndex> CreateObjectIndex(u32 tag) {
  const IndexFactory* factory = FindFactory(tag);
  return factory == nullptr ? nullptr : factory->create(tag);
}

}  // namespace zn
