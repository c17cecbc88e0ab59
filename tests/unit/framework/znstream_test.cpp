#include "framework/common/znstream/znstream.h"

#include <rapidcheck/gtest.h>
#include <sys/resource.h>

#include <string>

#include <gtest/gtest.h>

#include "framework/common/znpropset/propertyset.h"
#include "tests/unit/framework/sample_values.h"
#include "zn/memory.h"

namespace zn {
namespace {

using test::AllTags;
using test::SampleValue;

std::string Marshalled(const PropertySet& set) {
  BinaryWriter writer;
  set.Marshal(writer);
  return {reinterpret_cast<const char*>(writer.Buffer().Data()), writer.Buffer().Size()};
}

u32 Read(std::string_view bytes, PropertySet* set) {
  BinaryReader reader(bytes.data(), bytes.size());
  return set->Unmarshal(reader);
}

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes.push_back(static_cast<char>(value));
  return bytes;
}

// A set with one property "A" of that value form: everything before the value.
std::string HeadOf(u32 tag) {
  std::string head = Bytes({0, 0, 0, 1});
  for (int shift = 24; shift >= 0; shift -= 8) head.push_back(static_cast<char>(tag >> shift));
  return head + Bytes({0, 0, 0, 1, 'A', 0, 0, 0, 0});
}

PropertySet OneProperty(Value value) {
  PropertySet set;
  set.Put("A", std::move(value));
  return set;
}

TEST(BinaryStream, OneUint32IsTwentyOneBytes) {
  EXPECT_EQ(Marshalled(OneProperty(Value::UInt32(5))),
            Bytes({0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 1, 0x41, 0, 0, 0, 0, 0, 0, 0, 5}));
}

TEST(BinaryStream, AnEmptySetIsFourBytes) {
  EXPECT_EQ(Marshalled(PropertySet()), Bytes({0, 0, 0, 0}));
}

TEST(BinaryStream, EveryTypeHasItsGoldenBytes) {
  const GUID guid{0x01020304, 0x0506, 0x0708, {9, 10, 11, 12, 13, 14, 15, 16}};
  struct Case {
    Value value;
    std::string bytes;
  };
  PropertySet inner;
  inner.Put("B", Value::Bool(1));
  const std::string innerBytes = Bytes({0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 'B', 0, 0, 0, 0, 1});
  const std::string guidBytes = Bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  const Case cases[] = {
      {Value::Bool(2), Bytes({2})},
      {Value::Int32(-2), Bytes({0xFF, 0xFF, 0xFF, 0xFE})},
      {Value::UInt32(0x01020304), Bytes({1, 2, 3, 4})},
      {Value::Int64(-2), Bytes({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE})},
      {Value::UInt64(0x0102030405060708), Bytes({1, 2, 3, 4, 5, 6, 7, 8})},
      {Value::Time(0x0102030405060708), Bytes({1, 2, 3, 4, 5, 6, 7, 8})},
      {Value::Text("hi"), Bytes({0, 0, 0, 2, 'h', 'i'})},
      {Value::Text(""), Bytes({0, 0, 0, 0})},
      {Value::WideText(u"h\u20ac"), Bytes({0, 0, 0, 2, 0, 'h', 0x20, 0xAC})},
      {Value::Binary("\0\1", 2), Bytes({0, 0, 0, 2, 0, 1})},
      {Value::Guid(guid), guidBytes},
      {Value::Id(guid), guidBytes},
      {Value::Set(ZN_TYPE_PROPSET, PropertySet(inner)), innerBytes},
      {Value::Set(ZN_TYPE_OBJECT, PropertySet(inner)), innerBytes},
      {Value::Set(ZN_TYPE_DATABASE, PropertySet(inner)), innerBytes},
      {Value::Set(ZN_TYPE_I18N, PropertySet(inner)), innerBytes},
      {Value::Default(ZN_TYPE_UINT32 | ZN_TYPE_ARRAY), Bytes({0, 0, 0, 0})},
      {Value::Array(ZN_TYPE_BOOLEAN, {Value::Bool(1), Value::Bool(0)}), Bytes({0, 0, 0, 2, 1, 0})},
      {Value::Array(ZN_TYPE_STRING, {Value::Text("x")}), Bytes({0, 0, 0, 1, 0, 0, 0, 1, 'x'})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.TypeName());
    EXPECT_EQ(Marshalled(OneProperty(c.value)), HeadOf(c.value.Tag()) + c.bytes);
  }
}

TEST(BinaryStream, EveryTypeReadsBackAndEveryTruncationFails) {
  PropertySet set;
  u32 seed = 1;
  for (const u32 tag : AllTags()) {
    set.Put("p" + std::to_string(tag), SampleValue(tag, seed), seed % 16);
    ++seed;
  }
  const std::string bytes = Marshalled(set);
  PropertySet read;
  ASSERT_EQ(Read(bytes, &read), ZN_OK);
  EXPECT_TRUE(read.Equals(set));
  EXPECT_TRUE(set.Equals(read));
  EXPECT_EQ(Marshalled(read), bytes);
  for (size_t length = 0; length < bytes.size(); ++length) {
    PropertySet cut = OneProperty(Value::UInt32(1));
    ASSERT_EQ(Read(std::string_view(bytes).substr(0, length), &cut), ZNE_UNEXPECTED) << length;
    ASSERT_TRUE(cut.IsEmpty()) << "no partial set is left";
  }
}

TEST(BinaryStream, BytesBehindACompleteSetAreIgnored) {
  PropertySet read;
  EXPECT_EQ(Read(Marshalled(OneProperty(Value::UInt32(5))) + "tail", &read), ZN_OK);
  EXPECT_EQ(read.Count(), 1u);
}

TEST(BinaryStream, ANegativeCountReadsAsNone) {
  PropertySet read = OneProperty(Value::UInt32(5));
  EXPECT_EQ(Read(Bytes({0xFF, 0xFF, 0xFF, 0xFF}), &read), ZN_OK);
  EXPECT_TRUE(read.IsEmpty());
}

TEST(BinaryStream, CountsBeyondTheBytesLeftFailAtOnce) {
  PropertySet read;
  const std::string many = Bytes({0x7F, 0xFF, 0xFF, 0xFF});
  EXPECT_EQ(Read(many, &read), ZNE_UNEXPECTED);
  for (const u32 tag : AllTags()) {
    if ((tag & ZN_TYPE_ARRAY) == 0 && tag != ZN_TYPE_STRING && tag != ZN_TYPE_WIDESTRING &&
        tag != ZN_TYPE_BINARY) {
      continue;
    }
    SCOPED_TRACE(tag);
    EXPECT_EQ(Read(HeadOf(tag) + many + "xxxx", &read), ZNE_UNEXPECTED);
    EXPECT_EQ(Read(HeadOf(tag) + Bytes({0xFF, 0xFF, 0xFF, 0xFF}) + "xxxx", &read), ZNE_UNEXPECTED);
  }
}

TEST(BinaryStream, AnUnknownTagEndsTheRead) {
  PropertySet read;
  EXPECT_EQ(Read(HeadOf(18) + Bytes({0, 0, 0, 0}), &read), ZNE_UNEXPECTED);
  EXPECT_EQ(Read(HeadOf(0) + Bytes({0, 0, 0, 0}), &read), ZNE_UNEXPECTED);
  EXPECT_EQ(Read(HeadOf(0x20005) + Bytes({0, 0, 0, 0, 0, 0, 0, 7}), &read), ZN_OK);
  EXPECT_EQ(read.FindValue("A", ZN_TYPE_UINT64)->AsUInt64(), 7u);
}

TEST(BinaryStream, FlagsKeepAllTheirBits) {
  std::string bytes = Marshalled(OneProperty(Value::Bool(1)));
  bytes.replace(13, 4, Bytes({0xFF, 0x12, 0x34, 0x56}));
  PropertySet read;
  ASSERT_EQ(Read(bytes, &read), ZN_OK);
  EXPECT_EQ(read.At(0).Flags(), 0xFF123456u);
  EXPECT_EQ(Marshalled(read), bytes);
}

TEST(BinaryStream, OfANameThatComesTwiceTheFirstPropertyStays) {
  const std::string one = Marshalled(OneProperty(Value::UInt32(1)));
  const std::string two = Marshalled(OneProperty(Value::UInt32(2)));
  PropertySet read;
  ASSERT_EQ(Read(Bytes({0, 0, 0, 2}) + one.substr(4) + two.substr(4), &read), ZN_OK);
  EXPECT_EQ(read.Count(), 1u);
  EXPECT_EQ(read.FindValue("A", ZN_TYPE_UINT32)->AsUInt32(), 1u);
}

TEST(BinaryStream, NamesOutOfOrderAreSortedIn) {
  const std::string a = Marshalled(OneProperty(Value::UInt32(1)));
  std::string b = a;
  b[12] = 'B';
  PropertySet read;
  ASSERT_EQ(Read(Bytes({0, 0, 0, 2}) + b.substr(4) + a.substr(4), &read), ZN_OK);
  EXPECT_EQ(read.At(0).Name(), "A");
  EXPECT_EQ(read.At(1).Name(), "B");
}

std::string Word(u32 value) {
  std::string bytes(4, '\0');
  StoreU32(reinterpret_cast<u8*>(bytes.data()), value);
  return bytes;
}

// Names in falling order, each three times. Sorting them in one by one would move the whole set for
// each of them.
TEST(BinaryStream, ALargeSetInFallingOrderIsSortedOnceAndKeepsTheFirstOfEachName) {
  constexpr u32 kNames = 50000;
  std::string bytes = Word(3 * kNames);
  for (u32 i = 0; i < 3 * kNames; ++i) {
    const std::string digits = std::to_string(1000000 + (kNames - 1 - i % kNames));
    bytes += Word(ZN_TYPE_UINT32) + Word(static_cast<u32>(digits.size())) + digits + Word(0) +
             Word(i / kNames);
  }
  PropertySet read;
  ASSERT_EQ(Read(bytes, &read), ZN_OK);
  ASSERT_EQ(read.Count(), kNames);
  for (u32 i = 0; i < kNames; ++i) {
    ASSERT_EQ(read.At(i).Name(), std::to_string(1000000 + i));
    ASSERT_EQ(read.At(i).GetValue().AsUInt32(), 0u);
  }
}

// Each level promises as many elements as the bytes behind it could hold. Room for the promises
// would come to four times the bytes on each of the 120 levels.
TEST(BinaryStream, PromisedElementsTakeNoRoomUntilTheyAreRead) {
  constexpr size_t kBytes = 4 << 20;
  std::string bytes;
  for (u32 level = 0; level < 120; ++level) {
    const std::string head = HeadOf(ZN_TYPE_PROPSET | ZN_TYPE_ARRAY);
    bytes += head + Word(static_cast<u32>((kBytes - bytes.size() - head.size()) / 4 - 1));
  }
  bytes.resize(kBytes, '\x7F');
  rusage before{};
  ASSERT_EQ(getrusage(RUSAGE_SELF, &before), 0);
  PropertySet read;
  EXPECT_EQ(Read(bytes, &read), ZNE_UNEXPECTED);
  rusage after{};
  ASSERT_EQ(getrusage(RUSAGE_SELF, &after), 0);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024) << "KiB";
}

std::string NestedSets(u32 depth) {
  std::string bytes;
  for (u32 i = 1; i < depth; ++i) bytes += HeadOf(ZN_TYPE_PROPSET);
  return bytes + Bytes({0, 0, 0, 0});
}

TEST(BinaryStream, SetsNestTwoHundredFiftySixDeepAndNoDeeper) {
  PropertySet read;
  EXPECT_EQ(Read(NestedSets(256), &read), ZN_OK);
  EXPECT_EQ(Read(NestedSets(257), &read), ZNE_UNEXPECTED);
  EXPECT_EQ(Read(NestedSets(2000), &read), ZNE_UNEXPECTED);
}

TEST(StreamBuffer, DoublesBelowItsLimitAndGrowsByAnEighthAboveIt) {
  StreamBuffer buffer;
  static_cast<void>(buffer.Extend(1));
  EXPECT_EQ(buffer.Capacity(), 1024u);
  static_cast<void>(buffer.Extend(1024));
  EXPECT_EQ(buffer.Capacity(), 8192u);
  static_cast<void>(buffer.Extend(8192));
  EXPECT_EQ(buffer.Capacity(), 16384u);
  static_cast<void>(buffer.Extend(16384));
  EXPECT_EQ(buffer.Capacity(), 32768u);
  StreamBuffer large;
  static_cast<void>(large.Extend(1024001));
  EXPECT_EQ(large.Capacity(), 1032192u);
  static_cast<void>(large.Extend(8192));
  EXPECT_EQ(large.Capacity(), 1163264u) << "whole grains, no doubling any more";
}

TEST(StreamBuffer, TakeHandsTheBlockOverAndNothingWhenNothingWasWritten) {
  StreamBuffer buffer;
  u32 length = 9;
  EXPECT_EQ(buffer.Take(&length), nullptr);
  EXPECT_EQ(length, 0u);
  std::memcpy(buffer.Extend(3), "abc", 3);
  void* block = buffer.Take(&length);
  EXPECT_EQ(std::string(static_cast<char*>(block), length), "abc");
  EXPECT_EQ(buffer.Size(), 0u);
  ZnFree(block);
}

TEST(BinaryReader, ReadingPastTheEndFailsAndTakesNothing) {
  BinaryReader reader("abc", 3);
  u32 word = 7;
  u64 large = 7;
  GUID guid{};
  EXPECT_EQ(reader.ReadUInt32(&word), ZNE_UNEXPECTED);
  EXPECT_EQ(reader.ReadUInt64(&large), ZNE_UNEXPECTED);
  EXPECT_EQ(reader.ReadGuid(&guid), ZNE_UNEXPECTED);
  EXPECT_EQ(word, 7u);
  EXPECT_EQ(reader.Left(), 3u);
}

std::string XmlOf(const PropertySet& set) {
  XmlTextStream stream;
  set.WriteXml(stream);
  u32 length = 0;
  void* block = stream.Document(&length);
  std::string text(static_cast<char*>(block), length);
  ZnFree(block);
  return text;
}

TEST(XmlTextStream, AnEmptySetIsAsTold) {
  using namespace std::string_literals;
  EXPECT_EQ(XmlOf(PropertySet()), "<XML>\n<PropertyCount>0 </PropertyCount>\n</XML>\0"s);
}

TEST(XmlTextStream, WritesEachPropertyWithNothingEscaped) {
  using namespace std::string_literals;
  PropertySet set;
  set.Put("A", Value::Text("a<b"), 2);
  EXPECT_EQ(XmlOf(set),
            "<XML>\n<PropertyCount>1 </PropertyCount>\n<Property><Type>6 </Type>\n<Name>A</Name>\n"
            "<Flags>2 </Flags>\n<Value>a<b</Value>\n</Property>\n</XML>\0"s);
}

TEST(XmlTextStream, WritesEachValueTypeInItsDress) {
  using namespace std::string_literals;
  struct Case {
    Value value;
    std::string text;
  };
  const Case cases[] = {
      {Value::Bool(1), "\1"s},
      {Value::Int32(-1), "-1 "},
      {Value::UInt32(0xFFFFFFFF), "4294967295 "},
      {Value::Int64(-1), "-1 "},
      {Value::Time(-1), "18446744073709551615 "},
      {Value::WideText(u"\u00fc"), "\xC3\xBC"},
      {Value::Binary("x", 1), "Unknown binary value\0"s},
      {SampleValue(ZN_TYPE_GUID), "{00000001-0002-0003-0405-060708090a0b}"},
      {Value::Default(ZN_TYPE_PROPSET), "<PropertyCount>0 </PropertyCount>\n"},
      {Value::Array(ZN_TYPE_UINT32, {Value::UInt32(4)}),
       "<ArraySize>1 </ArraySize>\n<Element0>4 </Element0>\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value.TypeName());
    XmlTextStream stream;
    c.value.WriteXml(stream);
    u32 length = 0;
    void* block = stream.Document(&length);
    EXPECT_EQ(std::string(static_cast<char*>(block), length), "<XML>\n" + c.text + "</XML>\0"s);
    ZnFree(block);
  }
}

// --- random sets
// -----------------------------------------------------------------------------------

GUID RandomGuid() {
  GUID guid{};
  guid.Data1 = *rc::gen::arbitrary<u32>();
  guid.Data4[7] = *rc::gen::arbitrary<u8>();
  return guid;
}

PropertySet RandomSet(int depth);

Value RandomScalar(u32 tag, int depth) {
  switch (tag) {
    case ZN_TYPE_BOOLEAN:
      return Value::Bool(*rc::gen::arbitrary<u8>());
    case ZN_TYPE_INT32:
      return Value::Int32(*rc::gen::arbitrary<i32>());
    case ZN_TYPE_UINT32:
      return Value::UInt32(*rc::gen::arbitrary<u32>());
    case ZN_TYPE_INT64:
      return Value::Int64(*rc::gen::arbitrary<i64>());
    case ZN_TYPE_UINT64:
      return Value::UInt64(*rc::gen::arbitrary<u64>());
    case ZN_TYPE_TIME:
      return Value::Time(*rc::gen::arbitrary<i64>());
    case ZN_TYPE_STRING:
      return Value::Text(*rc::gen::arbitrary<std::string>());
    case ZN_TYPE_WIDESTRING: {
      std::u16string text;
      for (const u16 unit : *rc::gen::arbitrary<std::vector<u16>>()) text.push_back(unit);
      return Value::WideText(text);
    }
    case ZN_TYPE_BINARY: {
      const std::string bytes = *rc::gen::arbitrary<std::string>();
      return Value::Binary(bytes.data(), static_cast<u32>(bytes.size()));
    }
    case ZN_TYPE_GUID:
      return Value::Guid(RandomGuid());
    case ZN_TYPE_OBJECT_ID:
      return Value::Id(RandomGuid());
    default:
      return Value::Set(tag, RandomSet(depth - 1));
  }
}

Value RandomValue(int depth) {
  const auto last = static_cast<u32>(depth > 0 ? std::size(test::kScalarTags) : 10);
  const u32 tag = test::kScalarTags[*rc::gen::inRange<u32>(0, last)];
  if (!*rc::gen::arbitrary<bool>()) return RandomScalar(tag, depth);
  std::vector<Value> elements;
  const u32 count = *rc::gen::inRange<u32>(0, 4);
  for (u32 i = 0; i < count; ++i) elements.push_back(RandomScalar(tag, depth));
  return Value::Array(tag, std::move(elements));
}

PropertySet RandomSet(int depth) {
  PropertySet set;
  const u32 count = *rc::gen::inRange<u32>(0, 6);
  for (u32 i = 0; i < count; ++i) {
    set.Put("n" + std::to_string(*rc::gen::inRange<u32>(0, 50)), RandomValue(depth),
            *rc::gen::inRange<u32>(0, 0x1000));
  }
  return set;
}

RC_GTEST_PROP(BinaryStream, RandomSetsOfAllTypesReadBackTheSame, ()) {
  const PropertySet set = RandomSet(3);
  const std::string bytes = Marshalled(set);
  PropertySet read;
  RC_ASSERT(Read(bytes, &read) == ZN_OK);
  RC_ASSERT(Marshalled(read) == bytes);
  RC_ASSERT(set.Equals(read) && read.Equals(set));
}

}  // namespace
}  // namespace zn
