// The name table: open addressing over pointers to immortal entries. A generation is never changed
// but for empty slots that fill up; when it is half full the next one, twice as large, is
// published, and the old one is kept for readers that still look at it.
#include "framework/common/znpropset/propertyname.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

#include "support/common/flat_table.h"
#include "support/common/sync.h"

namespace zn {

namespace {

struct Generation {
  size_t mask;
  Generation* previous;  // kept: a reader may still be in it
  std::atomic<const NameEntry*>* slots;
};

struct NameTable {
  std::atomic<Generation*> current{nullptr};
  size_t count = 0;   // under NamesMutex
  u32 countRead = 0;  // the same
};

// Without a destructor: names outlive every static.
static_assert(std::is_trivially_destructible_v<NameTable>);
constinit NameTable names;

// Taken for a new name alone.
Mutex& NamesMutex() noexcept {
  static Mutex& mutex = *new Mutex;
  return mutex;
}

u32 HashName(std::string_view text) noexcept {
  return static_cast<u32>(HashBytes(text.data(), text.size()));
}

// Most names are a word or two long: a call for each would cost more than the comparison.
bool HasText(const NameEntry& entry, std::string_view text) noexcept {
  const char* mine = entry.text;
  const char* theirs = text.data();
  size_t left = text.size();
  u64 a = 0;
  u64 b = 0;
  for (; left >= 8; left -= 8, mine += 8, theirs += 8) {
    std::memcpy(&a, mine, 8);
    std::memcpy(&b, theirs, 8);
    if (a != b) return false;
  }
  for (; left > 0; --left) {
    if (*mine++ != *theirs++) return false;
  }
  return true;
}

const NameEntry* Look(const Generation* generation, u32 hash, std::string_view text) noexcept {
  if (generation == nullptr) return nullptr;
  for (size_t i = hash & generation->mask;; i = (i + 1) & generation->mask) {
    const NameEntry* entry = generation->slots[i].load(std::memory_order_acquire);
    if (entry == nullptr) return nullptr;
    if (entry->hash == hash && entry->length == text.size() && HasText(*entry, text)) {
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
  const size_t textBytes = (text.size() / 8 + 1) * 8;
  void* block = ::operator new(offsetof(NameEntry, text) + textBytes);
  auto* entry = static_cast<NameEntry*>(block);
  entry->hash = hash;
  entry->length = static_cast<u32>(text.size());
  char* target = static_cast<char*>(block) + offsetof(NameEntry, text);
  std::memcpy(target, text.data(), text.size());
  std::memset(target + text.size(), 0, textBytes - text.size());
  return entry;
}

const NameEntry* FindOrMake(u32 hash, std::string_view text) {
  Generation* generation = names.current.load(std::memory_order_relaxed);
  const NameEntry* entry = Look(generation, hash, text);
  if (entry != nullptr) return entry;
  if (generation == nullptr || (names.count + 1) * 2 > generation->mask + 1) {
    generation = NextGeneration(generation);
    names.current.store(generation, std::memory_order_release);
  }
  entry = MakeEntry(hash, text);
  Place(*generation, entry);
  ++names.count;
  return entry;
}

}  // namespace

PropertyName PropertyName::Intern(std::string_view text) {
  if (text.empty()) return PropertyName();
  const u32 hash = HashName(text);
  const NameEntry* entry = Look(names.current.load(std::memory_order_acquire), hash, text);
  if (entry != nullptr) return PropertyName(entry);
  const MutexLock lock(NamesMutex());
  return PropertyName(FindOrMake(hash, text));
}

bool PropertyName::InternRead(std::string_view text, PropertyName* out) {
  if (Find(text, out)) return true;
  const MutexLock lock(NamesMutex());
  const size_t before = names.count;
  if (names.countRead == kMaxNamesRead) return false;
  *out = PropertyName(FindOrMake(HashName(text), text));
  if (names.count != before) ++names.countRead;
  return true;
}

bool PropertyName::Find(std::string_view text, PropertyName* out) noexcept {
  const NameEntry* entry =
      text.empty() ? &kEmptyName
                   : Look(names.current.load(std::memory_order_acquire), HashName(text), text);
  if (entry == nullptr) return false;
  *out = PropertyName(entry);
  return true;
}

}  // namespace zn
