// Hash table from a caller-computed 64-bit hash to a pointer: open addressing with linear probing,
// sixteen bytes a slot, no allocation per entry. The names, the ids, the objects of a database and
// their keys are kept in it. The caller says what equality means, so a look-up touches the entry
// only when the whole hash agrees. Not thread-safe.
#pragma once

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "support/common/platform.h"
#include "zn/types.h"

namespace zn {

// A secret of this process, mixed into every hash: names and ids come from the network, and whoever
// could tell the hashes beforehand could make a million of them fall into one slot.
[[nodiscard]] u64 MakeHashSeed() noexcept;
[[nodiscard]] inline u64 HashSeed() noexcept {
  static const u64 seed = MakeHashSeed();
  return seed;
}

// Both halves of the 128-bit product with an odd constant, folded into one word.
[[nodiscard]] inline u64 FoldProduct(u64 a) noexcept {
  constexpr u64 kMultiplier = 0x9E3779B97F4A7C15ull;
#if defined(__SIZEOF_INT128__)
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * kMultiplier;
  return static_cast<u64>(product) ^ static_cast<u64>(product >> 64);
#else
  const u64 low = (a & 0xFFFFFFFFu) * (kMultiplier & 0xFFFFFFFFu);
  const u64 middle1 = (a >> 32) * (kMultiplier & 0xFFFFFFFFu) + (low >> 32);
  const u64 middle2 = (a & 0xFFFFFFFFu) * (kMultiplier >> 32) + (middle1 & 0xFFFFFFFFu);
  const u64 high = (a >> 32) * (kMultiplier >> 32) + (middle1 >> 32) + (middle2 >> 32);
  return (a * kMultiplier) ^ high;
#endif
}

// A hash of one word.
[[nodiscard]] inline u64 MixHash(u64 h) noexcept {
  return FoldProduct(h ^ HashSeed());
}

// A hash over bytes, eight at a time.
[[nodiscard]] inline u64 HashBytes(const void* data, size_t length) noexcept {
  const auto* at = static_cast<const unsigned char*>(data);
  u64 h = HashSeed() + length;
  u64 word = 0;
  for (; length >= 8; length -= 8, at += 8) {
    std::memcpy(&word, at, 8);
    h = FoldProduct(h ^ word);
  }
  if (length >= 4) {
    u32 head = 0;
    u32 tail = 0;
    std::memcpy(&head, at, 4);
    std::memcpy(&tail, at + length - 4, 4);
    h = FoldProduct(h ^ (u64{head} << 32 | tail));
  } else if (length > 0) {
    h = FoldProduct(h ^ (u64{at[0]} << 16 | u64{at[length / 2]} << 8 | at[length - 1]));
  }
  return h;
}

template <typename T>
class FlatTable {
 public:
  FlatTable() = default;
  ~FlatTable() { FreeSlots(slots_, mask_ + 1); }
  FlatTable(const FlatTable&) = delete;
  FlatTable& operator=(const FlatTable&) = delete;

  [[nodiscard]] size_t Size() const noexcept { return size_; }

  // The entry of that hash that `equals` accepts, or null.
  template <typename Equals>
  [[nodiscard]] T* Find(u64 hash, Equals&& equals) const noexcept {
    if (size_ == 0) return nullptr;
    for (size_t i = HomeOf(hash);; i = (i + 1) & mask_) {
      const Slot& slot = slots_[i];
      if (slot.item == nullptr) return nullptr;
      if (slot.hash == hash && equals(*slot.item)) return slot.item;
    }
  }

  // Starts to bring the slots of a hash into the cache, for an Insert that comes a little later.
  void Prefetch(u64 hash) const noexcept {
    if (slots_ != nullptr) __builtin_prefetch(&slots_[HomeOf(hash)], 1);
  }

  // Enters an item that is not there yet. Throws std::bad_alloc, with the table as it was.
  void Insert(u64 hash, T* item) {
    if (slots_ == nullptr || (size_ + 1) * 4 > (mask_ + 1) * 3) Grow();
    Place(hash, item);
    ++size_;
  }

  // Takes the item out; false when it is not there.
  [[nodiscard]] bool Erase(u64 hash, const T* item) noexcept {
    if (size_ == 0) return false;
    size_t i = HomeOf(hash);
    while (slots_[i].item != item) {
      if (slots_[i].item == nullptr) return false;
      i = (i + 1) & mask_;
    }
    CloseGap(i);
    --size_;
    return true;
  }

  template <typename Visit>
  void ForEach(Visit&& visit) const {
    for (size_t i = 0; slots_ != nullptr && i <= mask_; ++i) {
      if (slots_[i].item != nullptr) visit(*slots_[i].item);
    }
  }

 private:
  struct Slot {
    u64 hash;
    T* item;
  };

  [[nodiscard]] size_t HomeOf(u64 hash) const noexcept { return static_cast<size_t>(hash) & mask_; }

  void Place(u64 hash, T* item) noexcept {
    size_t i = HomeOf(hash);
    while (slots_[i].item != nullptr) i = (i + 1) & mask_;
    slots_[i] = {hash, item};
  }

  // A table beyond a large page's size is probed at random: it wants large pages.
  [[nodiscard]] static Slot* AllocateSlots(size_t count) {
    const size_t bytes = count * sizeof(Slot);
    void* slots = nullptr;
    if (bytes < kLargePageBytes) {
      slots = std::calloc(count, sizeof(Slot));
    } else if ((slots = AllocatePages(bytes)) != nullptr) {
      UseLargePages(slots, bytes);
    }
    if (slots == nullptr) throw std::bad_alloc();
    return static_cast<Slot*>(slots);
  }
  static void FreeSlots(Slot* slots, size_t count) noexcept {
    if (count * sizeof(Slot) < kLargePageBytes) {
      std::free(slots);
    } else {
      FreePages(slots, count * sizeof(Slot));
    }
  }

  void Grow() {
    const size_t count = slots_ == nullptr ? 16 : (mask_ + 1) * 2;
    Slot* fresh = AllocateSlots(count);
    Slot* old = std::exchange(slots_, fresh);
    const size_t oldCount = old == nullptr ? 0 : mask_ + 1;
    mask_ = count - 1;
    for (size_t i = 0; i < oldCount; ++i) {
      if (old[i].item != nullptr) Place(old[i].hash, old[i].item);
    }
    FreeSlots(old, oldCount);
  }

  // Moves later entries of the run back, so that no probe ends at the freed slot too early.
  void CloseGap(size_t gap) noexcept {
    for (size_t i = (gap + 1) & mask_; slots_[i].item != nullptr; i = (i + 1) & mask_) {
      const size_t home = HomeOf(slots_[i].hash);
      if (((i - home) & mask_) >= ((i - gap) & mask_)) {
        slots_[gap] = slots_[i];
        gap = i;
      }
    }
    slots_[gap] = {0, nullptr};
  }

  Slot* slots_ = nullptr;
  size_t mask_ = 0;
  size_t size_ = 0;
};

}  // namespace zn
