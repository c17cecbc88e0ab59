// The name table: open addressing over pointers to immortal entries. A generation is never changed
// but for empty slots that fill up; when it is half full the next one, twice as large, is
// published, and the old one is kept for readers that still look at it.
#include "framework/common/znpropset/propertyname.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>

#include "support/common/flat_table.h"
#include "support/common/sync.h"

namespace zn {

namespace {

constexpr NameEntry kEmptyName{0, 0, {0}};

struct Generation {
  size_t mask;
  Generation* previous;  // kept: a reader may still be in it
  std::atomic<const NameEntry*>* slots;
};

struct NameTable {
  std::atomic<Generation*> current{nullptr};
  Mutex mutex;
  size_t count ZN_GUARDED_BY(mutex) = 0;
};

NameTable& Names() noexcept {
  static NameTable& table = *new NameTable;  // never destroyed: names outlive every static
  return table;
}

u32 HashName(std::string_view text) noexcept {
  return static_cast<u32>(HashBytes(text.data(), text.size()));
}

const NameEntry* Look(const Generation* generation, u32 hash, std::string_view text) noexcept {
  if (generation == nullptr) return nullptr;
  for (size_t i = hash & generation->mask;; i = (i + 1) & generation->mask) {
    const NameEntry* entry = generation->slots[i].load(std::memory_order_acquire);
    if (entry == nullptr) return nullptr;
    if (entry->hash == hash && entry->length == text.size() &&
        std::memcmp(entry->text, text.data(), text.size()) == 0) {
      return entry;
    }
  }
}

void Place(Generation& generation, const NameEntry* entry) noexcept {
  size_t i = entry->hash & generation.mask;
  while (generation.slots[i].load(std::memory_order_relaxed) != nullptr) {
    i = (i + 1) & generation.mask;
  }
  generation.slots[i].store(entry, std::memory_order_release);
}

Generation* NextGeneration(Generation* old) {
  constexpr size_t kFirstSize = 1024;
  const size_t size = old == nullptr ? kFirstSize : (old->mask + 1) * 2;
  auto* next = new Generation{size - 1, old, new std::atomic<const NameEntry*>[size]()};
  for (size_t i = 0; old != nullptr && i <= old->mask; ++i) {
    const NameEntry* entry = old->slots[i].load(std::memory_order_relaxed);
    if (entry != nullptr) Place(*next, entry);
  }
  return next;
}

const NameEntry* MakeEntry(u32 hash, std::string_view text) {
  void* block = ::operator new(offsetof(NameEntry, text) + text.size() + 1);
  auto* entry = static_cast<NameEntry*>(block);
  entry->hash = hash;
  entry->length = static_cast<u32>(text.size());
  char* target = static_cast<char*>(block) + offsetof(NameEntry, text);
  std::memcpy(target, text.data(), text.size());
  target[text.size()] = 0;
  return entry;
}

}  // namespace

PropertyName::PropertyName() noexcept : entry_(&kEmptyName) {}

PropertyName PropertyName::Intern(std::string_view text) {
  if (text.empty()) return PropertyName();
  const u32 hash = HashName(text);
  NameTable& table = Names();
  const NameEntry* entry = Look(table.current.load(std::memory_order_acquire), hash, text);
  if (entry != nullptr) return PropertyName(entry);

  const MutexLock lock(table.mutex);
  Generation* generation = table.current.load(std::memory_order_relaxed);
  entry = Look(generation, hash, text);
  if (entry != nullptr) return PropertyName(entry);
  if (generation == nullptr || (table.count + 1) * 2 > generation->mask + 1) {
    generation = NextGeneration(generation);
    table.current.store(generation, std::memory_order_release);
  }
  entry = MakeEntry(hash, text);
  Place(*generation, entry);
  ++table.count;
  return PropertyName(entry);
}

bool PropertyName::Find(std::string_view text, PropertyName* out) noexcept {
  const NameEntry* entry =
      text.empty() ? &kEmptyName
                   : Look(Names().current.load(std::memory_order_acquire), HashName(text), text);
  if (entry == nullptr) return false;
  *out = PropertyName(entry);
  return true;
}

}  // namespace zn
