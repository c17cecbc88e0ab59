#include "framework/common/znpropset/value.h"

#include <gtest/gtest.h>

#include "framework/common/znpropset/propertyset.h"
#include "tests/unit/framework/sample_values.h"

namespace zn {
namespace {

using test::AllTags;
using test::SampleValue;

std::string Printed(const Value& value, u32 indent = 0) {
  std::string out;
  value.Print(out, indent);
  return out;
}

TEST(Value, EveryTagHasItsNameAndArraysSaySo) {
  struct Case {
    u32 tag;
    const char* name;
  };
  constexpr Case kCases[] = {
      {1, "boolean"},
      {2, "int32"},
      {3, "uint32"},
      {4, "int64"},
      {5, "uint64"},
      {6, "string"},
      {7, "widestring"},
      {8, "binary"},
      {9, "guid"},
      {10, "propset"},
      {11, "object id"},
      {12, "object"},
      {13, "provider"},
      {14, "database"},
      {15, "type object"},
      {16, "i18n"},
      {17, "i18nFormatString"},
      {0x10005, "time"},
  };
  for (const Case& c : kCases) {
    const Value scalar = Value::Default(c.tag);
    EXPECT_EQ(scalar.Tag(), c.tag);
    EXPECT_STREQ(scalar.TypeName(), c.name);
    const Value array = Value::Default(c.tag | ZN_TYPE_ARRAY);
    EXPECT_EQ(array.Tag(), c.tag | ZN_TYPE_ARRAY);
    EXPECT_EQ(std::string(array.TypeName()), std::string("array of ") + c.name);
  }
  EXPECT_STREQ(Value().TypeName(), "UnknownValueType");
}

TEST(Value, AnUnregisteredTagIsReadByItsLowSixteenBits) {
  EXPECT_EQ(Value::Default(0x20005).Tag(), ZN_TYPE_UINT64);
  EXPECT_EQ(Value::Default(0x80020005).Tag(), ZN_TYPE_UINT64 | ZN_TYPE_ARRAY);
  EXPECT_EQ(Value::Default(0x10005).Tag(), ZN_TYPE_TIME);
  EXPECT_FALSE(Value::Default(18).HasValue());
  EXPECT_FALSE(Value::Default(0).HasValue());
  EXPECT_FALSE(Value::Default(0x80000012).HasValue());
}

TEST(Value, EqualsIsTrueForACopyAndFalseForAnotherValueOfTheTag) {
  for (const u32 tag : AllTags()) {
    SCOPED_TRACE(tag);
    const Value value = SampleValue(tag, 1);
    const Value copy(value);  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(value.Equals(copy));
    EXPECT_FALSE(value.Equals(SampleValue(tag, 2)));
    EXPECT_FALSE(value.Equals(Value()));
  }
}

TEST(Value, BooleansAreEqualByByteThoughBothPrintTrue) {
  EXPECT_FALSE(Value::Bool(1).Equals(Value::Bool(2)));
  EXPECT_EQ(Printed(Value::Bool(1)), "true");
  EXPECT_EQ(Printed(Value::Bool(2)), "true");
  EXPECT_EQ(Printed(Value::Bool(0)), "false");
}

TEST(Value, ASetEqualsItsSupersetsButNotTheOtherWay) {
  PropertySet small;
  small.Put("A", Value::UInt32(1));
  PropertySet large(small);
  large.Put("B", Value::UInt32(2));
  const Value a = Value::Set(PropertySet(small));
  const Value ab = Value::Set(PropertySet(large));
  const Value none = Value::Default(ZN_TYPE_PROPSET);
  EXPECT_TRUE(a.Equals(ab));
  EXPECT_FALSE(ab.Equals(a));
  EXPECT_TRUE(none.Equals(ab));
  const Value objectA = Value::Set(ZN_TYPE_OBJECT, PropertySet(small));
  const Value objectAb = Value::Set(ZN_TYPE_OBJECT, PropertySet(large));
  EXPECT_TRUE(objectA.Equals(objectAb));
  EXPECT_FALSE(objectAb.Equals(objectA));
}

TEST(Value, ACloneOfAnObjectSharesItsSetAndOtherClonesDoNot) {
  Value object = SampleValue(ZN_TYPE_OBJECT);
  Value shared(object);
  shared.AsSet().Put("C", Value::UInt32(3));
  EXPECT_NE(object.AsSet().Find("C"), nullptr);
  {
    Value last(object);
    object = Value();
    shared = Value();
    EXPECT_NE(last.AsSet().Find("C"), nullptr);
  }
  Value set = SampleValue(ZN_TYPE_PROPSET);
  Value deep(set);
  deep.AsSet().Put("C", Value::UInt32(3));
  EXPECT_EQ(set.AsSet().Find("C"), nullptr);
}

TEST(Value, ACloneOfATextSharesItsBlock) {
  const Value text = SampleValue(ZN_TYPE_STRING);
  const Value copy(text);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(text.AsText().data(), copy.AsText().data());
}

TEST(Value, PrintsEachTypeAsTold) {
  EXPECT_EQ(Printed(Value::Int32(-5)), "-5");
  EXPECT_EQ(Printed(Value::UInt32(0xFFFFFFFF)), "4294967295");
  EXPECT_EQ(Printed(Value::Int64(-1)), "-1");
  EXPECT_EQ(Printed(Value::UInt64(~0ull)), "18446744073709551615");
  EXPECT_EQ(Printed(Value::Time(-1)), "-1") << "times print as signed";
  EXPECT_EQ(Printed(Value::Text("a<b")), "a<b");
  EXPECT_EQ(Printed(Value::WideText(u"\u00fc")), "\xC3\xBC");
  EXPECT_EQ(Printed(SampleValue(ZN_TYPE_BINARY)), "");
  EXPECT_EQ(Printed(SampleValue(ZN_TYPE_GUID)), "{00000001-0002-0003-0405-060708090a0b}");
  EXPECT_EQ(Printed(Value::Default(ZN_TYPE_PROPSET)), "(No Properties)");
  EXPECT_EQ(Printed(Value::Default(ZN_TYPE_UINT32 | ZN_TYPE_ARRAY)), "(No Elements)");
}

TEST(Value, PrintsArraysWithALineHeadAnElement) {
  const Value array = Value::Array(ZN_TYPE_UINT32, {Value::UInt32(7), Value::UInt32(8)});
  EXPECT_EQ(Printed(array), "\n   0:7   1:8");
  EXPECT_EQ(Printed(array, 1), "\n      0:7      1:8");
}

TEST(Value, PrintsSetsOneIndentDeeper) {
  PropertySet set;
  set.Put("A", Value::UInt32(5), 3);
  EXPECT_EQ(Printed(Value::Set(std::move(set))), "\n     <uint32>, 0x3, A:5\n");
}

TEST(Value, ALongNameIsCutByTheWorkBufferOfTheLineHead) {
  PropertySet set;
  set.Put(std::string(600, 'n'), Value::UInt32(5));
  std::string out;
  set.At(0).Print(out, 0);
  EXPECT_EQ(out.size(), 511 + std::string("5\n").size());
}

}  // namespace
}  // namespace zn
