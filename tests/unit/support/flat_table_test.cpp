#include "support/common/flat_table.h"

#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace zn {
namespace {

struct Entry {
  u64 hash;
  u32 number;
};

Entry* FindNumber(const FlatTable<Entry>& table, u64 hash, u32 number) {
  return table.Find(hash, [&](const Entry& entry) { return entry.number == number; });
}

TEST(FlatTable, BehavesAsAMapWhileEntriesComeAndGo) {
  FlatTable<Entry> table;
  std::map<u32, Entry> model;
  for (u32 step = 0; step < 4000; ++step) {
    const u32 number = step * 7919 % 1009;
    const u64 hash = number % 3 == 0 ? 5 : MixHash(number);  // every third in one run
    const auto known = model.find(number);
    if (known != model.end()) {
      EXPECT_TRUE(table.Erase(hash, &known->second));
      EXPECT_FALSE(table.Erase(hash, &known->second));
      model.erase(known);
    } else {
      table.Insert(hash, &model.insert({number, {hash, number}}).first->second);
    }
    ASSERT_EQ(table.Size(), model.size());
  }
  for (u32 number = 0; number < 1009; ++number) {
    const u64 hash = number % 3 == 0 ? 5 : MixHash(number);
    const auto known = model.find(number);
    ASSERT_EQ(FindNumber(table, hash, number), known == model.end() ? nullptr : &known->second);
  }
  size_t visited = 0;
  table.ForEach([&](const Entry&) { ++visited; });
  EXPECT_EQ(visited, model.size());
}

TEST(FlatTable, AnEmptyTableFindsAndErasesNothing) {
  FlatTable<Entry> table;
  const Entry entry{1, 1};
  EXPECT_EQ(FindNumber(table, 1, 1), nullptr);
  EXPECT_FALSE(table.Erase(1, &entry));
}

// Each pair of words differs in bits that a multiplication and a shift alone cancel out again, so
// without a secret in the hash all 256 texts would fall into one slot.
TEST(HashBytes, TextsMadeToCollideDoNot) {
  constexpr u64 kTop = u64{1} << 63;
  std::set<u64> hashes;
  for (u32 choice = 0; choice < 256; ++choice) {
    u64 words[16] = {};
    for (u32 pair = 0; pair < 8; ++pair) {
      if ((choice >> pair & 1) == 0) continue;
      words[2 * pair] = kTop;
      words[2 * pair + 1] = kTop | kTop >> 29;
    }
    hashes.insert(HashBytes(words, sizeof words));
  }
  EXPECT_EQ(hashes.size(), 256u);
}

TEST(HashBytes, EveryLengthCounts) {
  const std::string zeros(40, '\0');
  std::set<u64> hashes;
  for (size_t length = 0; length <= zeros.size(); ++length) {
    hashes.insert(HashBytes(zeros.data(), length));
  }
  EXPECT_EQ(hashes.size(), zeros.size() + 1);
}

}  // namespace
}  // namespace zn
