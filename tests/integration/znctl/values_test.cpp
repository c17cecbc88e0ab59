// Typed values: what the command line may say, what is refused and how, and how values are shown.
#include "values.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "failure.h"
#include "json_form.h"

namespace zn::ctl {
namespace {

TEST(ZnctlValues, InfersTypes) {
  struct Case {
    const char* text;
    const char* type;
    const char* shown;
  };
  const Case cases[] = {
      {"true", "boolean", "true"},
      {"0", "uint32", "0"},
      {"4294967295", "uint32", "4294967295"},
      {"4294967296", "uint64", "4294967296"},
      {"18446744073709551615", "uint64", "18446744073709551615"},
      {"18446744073709551616", "string", "18446744073709551616"},
      {"-1", "int32", "-1"},
      {"-2147483649", "int64", "-2147483649"},
      {"0x10", "uint32", "16"},
      {"1.5", "string", "1.5"},
      {"", "string", ""},
      {"True", "string", "True"},
      {"{01234567-89AB-cdef-0123-456789abcdef}", "object id",
       "{01234567-89ab-cdef-0123-456789abcdef}"},
      {"01234567-89ab-cdef-0123-456789abcdef", "string", "01234567-89ab-cdef-0123-456789abcdef"},
      {"[1, 2]", "array of uint32", "[1, 2]"},
      {"[1, -2]", "array of string", "[1, -2]"},
      {"[a, b]", "array of string", "[a, b]"},
      {"[\"a, b\", \"c\"]", "array of string", "[a, b, c]"},
      {"[]", "array of string", "[]"},
      {"{\"a\": 1, \"b:int64\": 2}", "propset", "{a=1, b=2}"},
      {"{no json}", "string", "{no json}"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const Value value = InferValue(c.text);
    EXPECT_EQ(TypeName(value.type), c.type);
    EXPECT_EQ(FormatValue(value), c.shown);
  }
}

TEST(ZnctlValues, ReadsGivenTypes) {
  struct Case {
    const char* type;
    const char* text;
    const char* shown;
  };
  const Case cases[] = {
      {"boolean", "yes", "true"},
      {"bool", "off", "false"},
      {"int32", "-2147483648", "-2147483648"},
      {"uint32", "0xff", "255"},
      {"int64", "-9223372036854775808", "-9223372036854775808"},
      {"uint64", "18446744073709551615", "18446744073709551615"},
      {"string", "2", "2"},
      {"wide", "Été", "Été"},
      {"binary", "00ff", "00ff"},
      {"guid", "01234567-89ab-cdef-0123-456789abcdef", "{01234567-89ab-cdef-0123-456789abcdef}"},
      {"objectid", "{01234567-89ab-cdef-0123-456789abcdef}",
       "{01234567-89ab-cdef-0123-456789abcdef}"},
      {"string[]", "a, b\\, c, d", "[a, b, c, d]"},
      {"array of uint32", "1,2,3", "[1, 2, 3]"},
      {"int64[]", "[1, 2]", "[1, 2]"},
      {"string[]", "", "[]"},
      {"boolean[]", "true", "[true]"},
      {"propset", "{\"n:wide\": \"x\"}", "{n=x}"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    const std::optional<u32> type = ParseTypeName(c.type);
    ASSERT_TRUE(type.has_value());
    EXPECT_EQ(FormatValue(ParseValue(*type, c.text)), c.shown);
  }
  const Value list = ParseValue(*ParseTypeName("string[]"), "a, b\\, c");
  EXPECT_EQ(std::get<Value::List>(list.data).size(), 2u);
}

TEST(ZnctlValues, RefusesWithWhatWouldBeRight) {
  struct Case {
    const char* argument;
    const char* text;
  };
  const Case cases[] = {
      {"n", "\"n\" is not name=value or name:type=value"},
      {"=1", "\"=1\" is not name=value or name:type=value"},
      {"n:uint32=-1", "n:uint32: \"-1\" is not uint32 (a whole number from 0 to 4294967295)"},
      {"n:uint32=4294967296",
       "n:uint32: \"4294967296\" is not uint32 (a whole number from 0 to 4294967295)"},
      {"n:int32=1x",
       "n:int32: \"1x\" is not int32 (a whole number from -2147483648 to 2147483647)"},
      {"n:int32=", "n:int32: \"\" is not int32 (a whole number from -2147483648 to 2147483647)"},
      {"n:boolean=2", "n:boolean: \"2\" is not a boolean (true or false)"},
      {"n:binary=abc", "n:binary: \"abc\" is not binary (an even number of hexadecimal digits)"},
      {"n:guid={zzzzzzzz-0000-0000-0000-000000000000}",
       "n:guid: \"{zzzzzzzz-0000-0000-0000-000000000000}\" is not an id such as "
       "{01234567-89ab-cdef-0123-456789abcdef}"},
      {"n:int32[]=1,x",
       "n:int32[]: \"x\" is not int32 (a whole number from -2147483648 to 2147483647)"},
      {"n:time=later",
       "n:time: \"later\" is not a time (seconds since 1970, or 2026-01-31T12:00:00, with Z at its "
       "end for UTC)"},
      {"n:propset=[1]",
       "n:propset: \"[1]\" is not a property set such as {\"name\": \"value\", \"n:int64\": 1}"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.argument);
    try {
      ParseArgument(c.argument);
      ADD_FAILURE() << "not refused";
    } catch (const UsageError& error) {
      EXPECT_STREQ(error.what(), c.text);
    }
  }
  EXPECT_THROW(ParseArgument("n:float=1"), UsageError);
  EXPECT_THROW(ParseArgument("n:binary[]=00"), UsageError);
  EXPECT_THROW(ParseValue(ZN_TYPE_I18N, "x"), UsageError);
}

TEST(ZnctlValues, KeepsEqualsSignsAndColonsOfTheValue) {
  const Property property = ParseArgument("filter=a:b=c");
  EXPECT_EQ(property.name, "filter");
  EXPECT_EQ(FormatValue(property.value), "a:b=c");
}

TEST(ZnctlValues, ReadsAndShowsTimes) {
  setenv("TZ", "UTC0", 1);
  tzset();
  const u32 time = ZN_TYPE_TIME;
  EXPECT_EQ(FormatValue(ParseValue(time, "2026-01-31T12:00:00Z")), "2026-01-31 12:00:00");
  EXPECT_EQ(std::get<i64>(ParseValue(time, "2026-01-31T12:00:00Z").data), 1769860800);
  EXPECT_EQ(FormatValue(ParseValue(time, "1769860800")), "2026-01-31 12:00:00");
  EXPECT_EQ(FormatTime(0), "0");
  EXPECT_EQ(FormatTime((i64{1769860800} << 32) + 5000), "2026-01-31 12:00:00");
}

TEST(ZnctlValues, TellsWhatDiffers) {
  const PropertyList before = {ParseArgument("same=1"), ParseArgument("changed=1"),
                               ParseArgument("gone=x")};
  const PropertyList after = {ParseArgument("same=1"), ParseArgument("changed=2"),
                              ParseArgument("new=y")};
  const std::vector<Change> changes = Differences(before, after);
  ASSERT_EQ(changes.size(), 3u);
  EXPECT_EQ(changes[0].name, "changed");
  EXPECT_EQ(FormatValue(*changes[0].before), "1");
  EXPECT_EQ(FormatValue(*changes[0].after), "2");
  EXPECT_EQ(changes[1].name, "new");
  EXPECT_FALSE(changes[1].before.has_value());
  EXPECT_EQ(changes[2].name, "gone");
  EXPECT_FALSE(changes[2].after.has_value());
  EXPECT_TRUE(Differences(before, before).empty());
}

TEST(ZnctlValues, HaveOneJsonForm) {
  const PropertyList list = {ParseArgument("b=true"),
                             ParseArgument("i:int64=-5"),
                             ParseArgument("u:uint64=18446744073709551615"),
                             ParseArgument("s=text"),
                             ParseArgument("x:binary=00ff"),
                             ParseArgument("a:string[]=p,q"),
                             ParseArgument("p={\"n\": 1}")};
  EXPECT_EQ(
      JsonLine(JsonOfProperties(list)),
      R"({"b":{"type":"boolean","flags":[],"value":true},)"
      R"("i":{"type":"int64","flags":[],"value":-5},)"
      R"("u":{"type":"uint64","flags":[],"value":18446744073709551615},)"
      R"("s":{"type":"string","flags":[],"value":"text"},)"
      R"("x":{"type":"binary","flags":[],"value":"00ff"},)"
      R"("a":{"type":"array of string","flags":[],"value":["p","q"]},)"
      R"("p":{"type":"propset","flags":[],"value":{"n":{"type":"uint32","flags":[],"value":1}}}})"
      "\n");
  EXPECT_EQ(JsonLine(Json("\xFF")), "\"\uFFFD\"\n");
}

}  // namespace
}  // namespace zn::ctl
