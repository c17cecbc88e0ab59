#include "framework/common/znpropset/property2.h"

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/common/fastlock.h"
#include "tests/unit/framework/sample_values.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/ps.h"

namespace zn {
namespace {

using test::SampleValue;
using test::TraceCapture;

Property2 Record(const char* name, u32 type, u32 size, const void* value, u32 flags = 0) {
  return {const_cast<char*>(name), type, flags, size, const_cast<void*>(value)};
}

// Types with a flat form: all but object, provider and type object; arrays of binary and database
// have none either.
bool HasFlatForm(u32 tag) {
  const u32 scalar = tag & ~ZN_TYPE_ARRAY;
  if (scalar == ZN_TYPE_OBJECT || scalar == ZN_TYPE_PROVIDER || scalar == ZN_TYPE_TYPE_OBJECT) {
    return false;
  }
  return tag == scalar || (scalar != ZN_TYPE_BINARY && scalar != ZN_TYPE_DATABASE);
}

Value FlatSample(u32 tag) {
  const u32 scalar = tag & ~ZN_TYPE_ARRAY;
  if (scalar != ZN_TYPE_I18N && scalar != ZN_TYPE_I18N_FORMAT_STRING) return SampleValue(tag);
  PropertySet message;
  message.Put("Catalog", Value::Guid(GUID{1, 2, 3, {4}}));
  message.Put("Message", Value::UInt32(77));
  message.Put("Name", Value::Text("a default text"));
  PropertySet set = message;
  if (scalar == ZN_TYPE_I18N_FORMAT_STRING) {
    set.Clear();
    set.Put("FormatSpec", Value::Set(std::move(message)));
    PropertySet insertions;
    insertions.Put("i1", Value::Text("one"));
    set.Put("Insertions", Value::Set(std::move(insertions)));
  }
  Value value = Value::Set(scalar, std::move(set));
  if (tag == scalar) return value;
  return Value::Array(scalar, {value, value});
}

TEST(Property2, EveryFlatFormGoesOutAndComesBack) {
  for (const u32 tag : test::AllTags()) {
    if (!HasFlatForm(tag) || (tag & ~ZN_TYPE_ARRAY) == ZN_TYPE_DATABASE) continue;
    SCOPED_TRACE(tag);
    const Property property("A name", FlatSample(tag), ZN_PROPERTY_HIDDEN);
    Property2* record = nullptr;
    ASSERT_EQ(ConvertProperty3ToProperty2(property, &record), ZN_OK);
    EXPECT_STREQ(record->Name, "A name");
    EXPECT_EQ(record->Type, tag);
    EXPECT_EQ(record->Flags, ZN_PROPERTY_HIDDEN);
    Property back;
    ASSERT_TRUE(IsReadableProperty(record));
    ASSERT_EQ(ConvertProperty2ToProperty3(record, &back), ZN_OK);
    EXPECT_TRUE(property.Equals(back) && back.Equals(property));
    EXPECT_EQ(PsFreeProperty(record), ZN_OK);
  }
}

TEST(Property2, TypesWithoutAFlatFormAreRefusedBothWays) {
  for (const u32 tag : test::AllTags()) {
    if (HasFlatForm(tag)) continue;
    SCOPED_TRACE(tag);
    TraceCapture traces;
    Property2* record = nullptr;
    EXPECT_EQ(ConvertProperty3ToProperty2(Property("A", SampleValue(tag)), &record),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_TRUE(traces.Has("ZnAPI:ConvertProperty3ToProperty2: Invalid arguments"));
    const u64 anything[4] = {};
    Property2 flat = Record("A", tag, 8, anything);
    Property out;
    EXPECT_EQ(ConvertProperty2ToProperty3(&flat, &out), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(PsFreeProperty(&flat), ZNE_INVALID_ARGUMENTS) << "and nothing is freed";
  }
}

TEST(Property2, SizesOnOutputAreAsTold) {
  struct Case {
    u32 tag;
    u32 size;
  };
  const u32 textLength = 7;  // "sample1"
  const Case cases[] = {
      {ZN_TYPE_BOOLEAN, 1},
      {ZN_TYPE_INT32, 4},
      {ZN_TYPE_UINT32, 4},
      {ZN_TYPE_INT64, 8},
      {ZN_TYPE_UINT64, 8},
      {ZN_TYPE_TIME, 8},
      {ZN_TYPE_STRING, textLength + 1},
      {ZN_TYPE_WIDESTRING, 2 * (textLength + 1)},
      {ZN_TYPE_BINARY, textLength},
      {ZN_TYPE_GUID, 16},
      {ZN_TYPE_OBJECT_ID, 16},
      {ZN_TYPE_PROPSET, 8},
      {ZN_TYPE_I18N, sizeof(I18nString) + 14 + 1},
      {ZN_TYPE_I18N_FORMAT_STRING, sizeof(I18nFormatString)},
      {ZN_TYPE_UINT32 | ZN_TYPE_ARRAY, 3},
      {ZN_TYPE_STRING | ZN_TYPE_ARRAY, 3},
      {ZN_TYPE_PROPSET | ZN_TYPE_ARRAY, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.tag);
    Property2* record = nullptr;
    ASSERT_EQ(ConvertProperty3ToProperty2(Property("A", FlatSample(c.tag)), &record), ZN_OK);
    EXPECT_EQ(record->Size, c.size);
    EXPECT_EQ(PsFreeProperty(record), ZN_OK);
  }
}

TEST(Property2, AnArrayOfStringsHoldsItsPointersThenTheTexts) {
  Property2* record = nullptr;
  ASSERT_EQ(ConvertProperty3ToProperty2(Property("A", SampleValue(0x80000006)), &record), ZN_OK);
  char** texts = static_cast<char**>(record->Value);
  EXPECT_EQ(texts[0], reinterpret_cast<char*>(texts + 3));
  EXPECT_STREQ(texts[0], "sample1");
  EXPECT_EQ(texts[1], texts[0] + 8);
  EXPECT_STREQ(texts[2], "sample3");
  EXPECT_EQ(PsFreeProperty(record), ZN_OK);
}

TEST(Property2, AcceptsTheRecordSizesOfBothPointerWidths) {
  ZnHandle inner = nullptr;
  ASSERT_EQ(PsCreatePropset(&inner), ZN_OK);
  I18nString message{GUID{1, 2, 3, {}}, 5, const_cast<char*>("text")};
  I18nFormatString format{GUID{1, 2, 3, {}}, 5, const_cast<char*>("text"), nullptr};
  struct Case {
    u32 tag;
    u32 size;
    const void* value;
    bool accepted;
  };
  const Case cases[] = {
      {ZN_TYPE_PROPSET, 8, inner, true},
      {ZN_TYPE_PROPSET, 16, inner, true},
      {ZN_TYPE_PROPSET, 12, inner, false},
      {ZN_TYPE_I18N, 4 + 25, &message, true},
      {ZN_TYPE_I18N, 4 + 33, &message, true},
      {ZN_TYPE_I18N, 4 + 24, &message, false},
      {ZN_TYPE_I18N_FORMAT_STRING, 28, &format, true},
      {ZN_TYPE_I18N_FORMAT_STRING, 40, &format, true},
      {ZN_TYPE_I18N_FORMAT_STRING, 32, &format, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size);
    const Property2 record = Record("A", c.tag, c.size, c.value);
    Property out;
    EXPECT_EQ(ConvertProperty2ToProperty3(&record, &out) == ZN_OK, c.accepted);
  }
  EXPECT_EQ(PsDestroyPropset(inner), ZN_OK);
}

TEST(Property2, AFormatStringWithoutAValidHandleHasASpecOnly) {
  const I18nFormatString format{GUID{1, 2, 3, {}}, 5, const_cast<char*>("text"), nullptr};
  const Property2 record = Record("A", ZN_TYPE_I18N_FORMAT_STRING, sizeof format, &format);
  Property out;
  ASSERT_EQ(ConvertProperty2ToProperty3(&record, &out), ZN_OK);
  const PropertySet& set = out.GetValue().AsSet();
  EXPECT_EQ(set.Count(), 1u);
  ASSERT_NE(set.FindValue("FormatSpec", ZN_TYPE_PROPSET), nullptr);
  EXPECT_EQ(set.FindValue("FormatSpec", ZN_TYPE_PROPSET)->AsSet().Count(), 3u);
}

TEST(Property2, ANameThatCannotBeReadBecomesTheEmptyText) {
  const I18nString message{GUID{1, 2, 3, {}}, 5, nullptr};
  const Property2 record = Record("A", ZN_TYPE_I18N, 25, &message);
  Property out;
  ASSERT_EQ(ConvertProperty2ToProperty3(&record, &out), ZN_OK);
  EXPECT_EQ(out.GetValue().AsSet().FindValue("Name", ZN_TYPE_STRING)->AsText(), "");
}

TEST(Property2, ShapesAreHeldAgainstTheRules) {
  const u32 word = 5;
  const ZnWChar wide[] = u"ab";
  const char* texts[] = {"a", nullptr};
  struct Case {
    const char* why;
    Property2 record;
    bool accepted;
  };
  const Case cases[] = {
      {"a plain uint32", Record("A", 3, 4, &word), true},
      {"a size that differs", Record("A", 3, 8, &word), false},
      {"no size", Record("A", 3, 0, &word), false},
      {"no value", Record("A", 3, 4, nullptr), false},
      {"text with its terminator", Record("A", 6, 3, "ab"), true},
      {"text counted without its terminator", Record("A", 6, 2, "ab"), false},
      {"text counted too long", Record("A", 6, 4, "ab\0"), false},
      {"wide text of any size", Record("A", 7, 99, wide), true},
      {"wide text of no size", Record("A", 7, 0, wide), false},
      {"an int32 of any span", Record("A", 2, 99, &word), true},
      {"binary", Record("A", 8, 2, "ab"), true},
      {"empty binary", Record("A", 8, 0, "ab"), false},
      {"an empty array", Record("A", 0x80000003, 0, nullptr), true},
      {"an array of none with a value", Record("A", 0x80000003, 0, &word), false},
      {"an array of some without a value", Record("A", 0x80000003, 1, nullptr), false},
      {"an array of texts with a null among them", Record("A", 0x80000006, 2, texts), false},
      {"a tag that is not registered", Record("A", 18, 4, &word), false},
      {"a tag that only a stream may carry", Record("A", 0x20005, 8, texts), false},
      {"a handle that is none", Record("A", 10, 8, &word), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    Property out;
    EXPECT_EQ(ConvertProperty2ToProperty3(&c.record, &out),
              c.accepted ? ZN_OK : ZNE_INVALID_ARGUMENTS);
  }
}

TEST(Property2, AShortInt32ReadsNoMoreThanItsSpan) {
  const u8 bytes[2] = {0x34, 0x12};
  const Property2 record = Record("A", ZN_TYPE_INT32, 2, bytes);
  Property out;
  ASSERT_EQ(ConvertProperty2ToProperty3(&record, &out), ZN_OK);
  EXPECT_EQ(out.GetValue().AsInt32(), 0x1234);
}

TEST(Property2, NamesAreHeldAgainstTheRule) {
  struct Case {
    const char* name;
    bool accepted;
  };
  constexpr Case kCases[] = {
      {"", true},    {"Name", true}, {"_x9", true},  {"with a blank", true}, {"9lives", false},
      {" x", false}, {"a:b", false}, {"a-b", false}, {"\xC3\xBC", false},
  };
  const u32 word = 5;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    TraceCapture traces;
    const Property2 record = Record(c.name, 3, 4, &word);
    Property out;
    EXPECT_EQ(ConvertProperty2ToProperty3(&record, &out),
              c.accepted ? ZN_OK : ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(traces.Has("ZnAPI:ConvertProperty2ToProperty3: Invalid property name: " +
                         std::string(c.name)),
              !c.accepted);
  }
}

TEST(Property2, TheTracesTellWhatWasWrong) {
  TraceCapture traces;
  const u32 word = 5;
  Property out;
  Property2 record = Record("A", 3, 8, &word);
  EXPECT_EQ(ConvertProperty2ToProperty3(&record, &out), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:ConvertProperty2ToProperty3: Invalid arguments"));
  record = Record("A", 10, 8, &word);
  EXPECT_EQ(ConvertProperty2ToProperty3(&record, &out), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:ConvertProperty2ToProperty3: Unable to convert Value to IValue"));
}

TEST(Property2, AnArrayWithoutAFlatFormHasAGoodShapeAndNoValue) {
  const u64 anything[4] = {};
  for (const u32 tag : {8u, 12u, 13u, 14u, 15u, 18u}) {
    SCOPED_TRACE(tag);
    TraceCapture traces;
    Property out;
    const Property2 record = Record("A", tag | ZN_TYPE_ARRAY, 2, anything);
    EXPECT_EQ(ConvertProperty2ToProperty3(&record, &out), ZNE_INVALID_ARGUMENTS);
    EXPECT_TRUE(traces.Has("ZnAPI:ConvertProperty2ToProperty3: Unable to convert Value to IValue"));
  }
}

TEST(Property2, ADatabaseThatDoesNotFitTogetherTellsWhy) {
  const BusLock lock;
  TraceCapture traces;
  PropertySet content;  // as hostile bytes may have it
  Property2* record = nullptr;
  const Property bare("A", Value::Set(ZN_TYPE_DATABASE, PropertySet(content)));
  EXPECT_EQ(ConvertProperty3ToProperty2(bare, &record), ZNE_INVALID_ARGUMENTS);
  PropertySet object;
  object.Put("ObjectId", Value::Id(GUID{1, 2, 3, {4}}));
  object.Put("ObjectType", Value::Text("NoSuchType"));
  object.Put("Flags", Value::UInt32(0));
  std::vector<Value> objects;
  objects.push_back(Value::Set(ZN_TYPE_OBJECT, std::move(object)));
  content.Put("DatabaseId", Value::Id(GUID{5, 6, 7, {8}}));
  content.Put("Types", Value::Array(ZN_TYPE_TYPE_OBJECT, {}));
  content.Put("Objects", Value::Array(ZN_TYPE_OBJECT, std::move(objects)));
  const Property full("A", Value::Set(ZN_TYPE_DATABASE, std::move(content)));
  EXPECT_EQ(ConvertProperty3ToProperty2(full, &record), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(record, nullptr);
  EXPECT_FALSE(traces.Has("ZnAPI:DbDeletePrivateDatabase: Invalid arguments"));
}

// A record may hold a set that another thread is in a call with.
TEST(Property2Threads, FreeingASetWaitsForTheCallThatUsesIt) {
  for (u32 round = 0; round < 20; ++round) {
    Property2* record = nullptr;
    PropertySet held;
    held.Put("Text", Value::Text(std::string(100, 'x')));
    ASSERT_EQ(ConvertProperty3ToProperty2(Property("A", Value::Set(std::move(held))), &record),
              ZN_OK);
    const auto set = static_cast<ZnHandle>(record->Value);
    std::thread other([&] { EXPECT_EQ(PsFreeProperty(record), ZN_OK); });
    u32 status = ZN_OK;
    while (status == ZN_OK) {
      Property2* found = nullptr;
      status = PsFindProperty(set, "Text", &found);
      if (status == ZN_OK) status = PsFreeProperty(found);
      std::this_thread::yield();
    }
    EXPECT_EQ(status, ZNE_INVALID_ARGUMENTS);
    other.join();
  }
}

TEST(Property2, FlagsOfARecordAreMaskedToTwelveBits) {
  const u32 word = 5;
  const Property2 record = Record("A", 3, 4, &word, 0xFFFFF00F);
  Property out;
  ASSERT_EQ(ConvertProperty2ToProperty3(&record, &out), ZN_OK);
  EXPECT_EQ(out.Flags(), 0x00Fu);
}

TEST(Property2, FreeingTwiceWhatARecordHoldsIsHarmless) {
  Property2* record = nullptr;
  ASSERT_EQ(ConvertProperty3ToProperty2(Property("A", SampleValue(ZN_TYPE_PROPSET)), &record),
            ZN_OK);
  const auto handle = static_cast<ZnHandle>(record->Value);
  EXPECT_EQ(PsDestroyPropset(handle), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(handle), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsFreeProperty(record), ZN_OK) << "the record skips a handle that is already gone";
}

}  // namespace
}  // namespace zn
