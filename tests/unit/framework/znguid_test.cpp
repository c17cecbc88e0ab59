#include "framework/common/znguid/znguid.h"

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zn/guid.h"
#include "zn/memory.h"
#include "zn/status.h"

namespace zn {
namespace {

constexpr GUID kSample{
    0x8BCC2DF0, 0x62CF, 0x11D4, {0x80, 0xC5, 0x00, 0xC0, 0x4F, 0xBC, 0xEF, 0xDD}};
constexpr const char* kSampleText = "{8bcc2df0-62cf-11d4-80c5-00c04fbcefdd}";

GUID Parse(const char* text) {
  GUID id{};
  EXPECT_EQ(ZnStringToGUID(text, &id), ZN_OK) << text;
  return id;
}

TEST(Guid, TextIsLowerCaseAndReadsBackInEitherCase) {
  char* text = nullptr;
  ASSERT_EQ(ZnGUIDToString(&kSample, &text), ZN_OK);
  EXPECT_STREQ(text, kSampleText);
  ZnFree(text);
  EXPECT_TRUE(SameGuid(Parse(kSampleText), kSample));
  EXPECT_TRUE(SameGuid(Parse("{8BCC2DF0-62CF-11D4-80C5-00C04FBCEFDD}"), kSample));
}

TEST(Guid, TheZeroTextGivesTheZeroGuid) {
  EXPECT_TRUE(IsZeroGuid(Parse("{00000000-0000-0000-0000-000000000000}")));
}

TEST(Guid, LettersBeyondFPassTheShapeAndCountAsZero) {
  const GUID id = Parse("{zzzzzzzz-0001-0000-0000-000000000000}");
  EXPECT_EQ(id.Data1, 0u);
  EXPECT_EQ(id.Data2, 1u);
}

TEST(Guid, RefusesAWrongShape) {
  struct Case {
    const char* why;
    const char* text;
  };
  constexpr Case kCases[] = {
      {"37 characters", "{8bcc2df0-62cf-11d4-80c5-00c04fbcefdd"},
      {"no opening brace", "(8bcc2df0-62cf-11d4-80c5-00c04fbcefdd}"},
      {"no closing brace", "{8bcc2df0-62cf-11d4-80c5-00c04fbcefdd)"},
      {"a hyphen out of place", "{8bcc2df-062cf-11d4-80c5-00c04fbcefdd}"},
      {"a blank among the digits", "{8bcc2df0-62cf-11d4-80c5-00c04fbcef d}"},
      {"empty", ""},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.why);
    GUID id = kSample;
    EXPECT_EQ(ZnStringToGUID(c.text, &id), ZNE_INVALID_ARGUMENTS);
    EXPECT_TRUE(SameGuid(id, kSample)) << "a refusal writes nothing";
  }
}

TEST(Guid, TextBehindTheClosingBraceIsNotLookedAt) {
  EXPECT_TRUE(SameGuid(Parse("{8bcc2df0-62cf-11d4-80c5-00c04fbcefdd} and more"), kSample));
}

TEST(Guid, BadPointersAreRefused) {
  GUID id{};
  char* text = nullptr;
  EXPECT_EQ(ZnStringToGUID(nullptr, &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnStringToGUID(kSampleText, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnGUIDToString(nullptr, &text), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnGUIDToString(&id, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnGenerateGUID(nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_FALSE(ZnCompareGuid(nullptr, &id));
  EXPECT_FALSE(ZnCompareGuid(&id, nullptr));
}

TEST(Guid, CompareLooksAtEveryByte) {
  EXPECT_TRUE(ZnCompareGuid(&kSample, &kSample));
  for (size_t i = 0; i < sizeof(GUID); ++i) {
    GUID other = kSample;
    reinterpret_cast<u8*>(&other)[i] ^= 1;
    EXPECT_FALSE(ZnCompareGuid(&kSample, &other)) << "byte " << i;
  }
}

TEST(Guid, GeneratedIdsAreOfVersionFourAndDiffer) {
  GUID a{};
  GUID b{};
  ASSERT_EQ(ZnGenerateGUID(&a), ZN_OK);
  ASSERT_EQ(ZnGenerateGUID(&b), ZN_OK);
  EXPECT_FALSE(SameGuid(a, b));
  EXPECT_EQ(a.Data3 >> 12, 4);
  EXPECT_EQ(a.Data4[0] >> 6, 2);
}

// Whoever sends ids must not be able to choose those that fall into one slot of the tables.
TEST(Guid, IdsMadeToCollideHaveDifferentHashes) {
  std::set<u64> hashes;
  for (u64 high = 0; high < 1000; ++high) {
    const u64 low = high * 0x9E3779B97F4A7C15ull;
    GUID id{};
    std::memcpy(&id, &low, 8);
    std::memcpy(id.Data4, &high, 8);
    hashes.insert(GuidHash(id));
  }
  EXPECT_EQ(hashes.size(), 1000u);
}

TEST(InternedId, EqualGuidsHaveOneEntryThatGoesWithTheLast) {
  {
    const InternedId a(kSample);
    const InternedId b(kSample);
    EXPECT_EQ(a, b);
    EXPECT_EQ(&a.Value(), &b.Value());
    EXPECT_EQ(a.ReferenceCount(), 2u);
    {
      const InternedId copy(a);  // NOLINT(performance-unnecessary-copy-initialization)
      EXPECT_EQ(a.ReferenceCount(), 3u);
    }
    EXPECT_EQ(a.ReferenceCount(), 2u);
  }
  const InternedId again(kSample);
  EXPECT_EQ(again.ReferenceCount(), 1u);
}

TEST(InternedId, TheDefaultIsTheZeroId) {
  const InternedId id;
  EXPECT_TRUE(id.IsZero());
  EXPECT_TRUE(IsZeroGuid(id.Value()));
  EXPECT_EQ(id, InternedId(GUID{}));
}

TEST(InternedId, AssignmentMovesACountFromOneEntryToTheOther) {
  InternedId a(kSample);
  const InternedId b = InternedId::Generate();
  EXPECT_FALSE(b.IsZero());
  a = b;
  EXPECT_EQ(a, b);
  EXPECT_EQ(b.ReferenceCount(), 2u);
  EXPECT_EQ(InternedId(kSample).ReferenceCount(), 1u);
}

TEST(InternedIdThreads, CountsStayExactWhenThreadsInternAndDropTheSameIds) {
  const InternedId kept(kSample);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (u32 i = 0; i < 20000; ++i) {
        GUID id = kSample;
        id.Data1 += i % 7;
        const InternedId mine(id);
        const InternedId copy(mine);
        ASSERT_TRUE(SameGuid(copy.Value(), id));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(kept.ReferenceCount(), 1u);
}

}  // namespace
}  // namespace zn
