#include "framework/common/znxml_dom_processor/propertytext.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/common/znpropset/propertyset.h"
#include "support/common/status.h"
#include "tests/unit/formalization/documents.h"
#include "tests/unit/framework/trace_capture.h"

namespace zn::test {
namespace {

using testing::ElementsAre;

constexpr char kScalarEnd[] = "XML : Error in getGetNonPropsetProperty";

Value Read(const char* word, std::string_view text) {
  Value value;
  EXPECT_EQ(ReadScalarText(TagOfTypeWord(word), text, &value), ZN_OK) << word << " " << text;
  return value;
}

Value ReadArray(const char* word, std::string_view text) {
  Value value;
  EXPECT_EQ(ReadArrayText(TagOfTypeWord(word), text, &value), ZN_OK) << word << " " << text;
  return value;
}

TEST(TypeWord, NamesATag) {
  const struct {
    const char* word;
    u32 tag;
  } cases[] = {
      {"mira_bool", 1},     {"mira_int32", 2},      {"mira_uint32", 3},
      {"mira_int64", 4},    {"mira_time", 0x10005}, {"mira_uint64", 5},
      {"mira_string", 6},   {"mira_wstring", 7},    {"mira_binary", 8},
      {"mira_guid", 9},     {"mira_objid", 11},     {"mira_i18n", 16},
      {"mira_propset", 10}, {"mira_float", 0},      {"", 0},
      {"MIRA_BOOL", 0},     {" mira_bool", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(TagOfTypeWord(c.word), c.tag) << c.word;
}

TEST(ScalarText, ReadsBooleans) {
  EXPECT_EQ(Read("mira_bool", "true").AsBool(), 1);
  EXPECT_EQ(Read("mira_bool", " false\n").AsBool(), 0);
  for (const int level : {3, 4}) {
    const TraceCapture trace(level);
    EXPECT_EQ(Read("mira_bool", "").AsBool(), 0);
    EXPECT_EQ(trace.Has("XML: No boolean value in xml filesetting default false"), level == 3);
  }
}

TEST(ScalarText, ReadsNumbers) {
  EXPECT_EQ(Read("mira_int32", "-2147483648").AsInt32(), INT32_MIN);
  EXPECT_EQ(Read("mira_int32", "+2147483647").AsInt32(), INT32_MAX);
  EXPECT_EQ(Read("mira_int32", "").AsInt32(), 0);
  EXPECT_EQ(Read("mira_int32", " 007 ").AsInt32(), 7);
  EXPECT_EQ(Read("mira_uint32", "4294967295").AsUInt32(), UINT32_MAX);
  EXPECT_EQ(Read("mira_uint32", "+5").AsUInt32(), 5u);
  EXPECT_EQ(Read("mira_uint32", " ").AsUInt32(), 0u);
  EXPECT_EQ(Read("mira_int64", "-5").AsInt64(), -5);
  EXPECT_EQ(Read("mira_int64", "+9223372036854775807").AsInt64(), INT64_MAX);
  EXPECT_EQ(Read("mira_int64", "").AsInt64(), 0);
  EXPECT_EQ(Read("mira_uint64", "+5").AsUInt64(), 5u);
  EXPECT_EQ(Read("mira_uint64", "18446744073709551615").AsUInt64(), UINT64_MAX);
  EXPECT_EQ(Read("mira_uint64", "").AsUInt64(), 0u);
  EXPECT_EQ(Read("mira_time", "1700000000").AsInt64(), 1700000000);
  EXPECT_EQ(Read("mira_time", "").AsInt64(), 0);
  EXPECT_EQ(Read("mira_time", "5").Tag(), ZN_TYPE_TIME);
}

TEST(ScalarText, TakesTheNearestSixtyFourBitNumberAndASignAlone) {
  EXPECT_EQ(Read("mira_int64", "-99999999999999999999").AsInt64(), INT64_MIN);
  EXPECT_EQ(Read("mira_uint64", "99999999999999999999").AsUInt64(), UINT64_MAX);
  EXPECT_EQ(Read("mira_time", "99999999999999999999").AsInt64(), INT64_MAX);
  EXPECT_EQ(Read("mira_int64", "-").AsInt64(), 0);
  EXPECT_EQ(Read("mira_uint64", "+").AsUInt64(), 0u);
}

TEST(ScalarText, ReadsTexts) {
  EXPECT_EQ(Read("mira_string", "  a b \n").AsText(), "a b");
  EXPECT_EQ(Read("mira_string", "").AsText(), "");
  EXPECT_EQ(Read("mira_wstring",
                 " Gr\xC3\xBC\xC3\x9F"
                 "e ")
                .AsWideText(),
            u"Gr\u00FC\u00DFe");
  EXPECT_EQ(Read("mira_wstring", "\xF0\x9F\x98\x80").AsWideText(), u"\U0001F600");
}

TEST(ScalarText, GivesBytesNoValue) {
  const Value value = Read("mira_binary", "00ff");
  EXPECT_EQ(value.Tag(), ZN_TYPE_BINARY);
  EXPECT_EQ(value.AsBinary(), "");
}

TEST(ScalarText, ReadsIds) {
  EXPECT_TRUE(SameGuid(Read("mira_guid", kGuidText).AsGuid(), kGuid));
  EXPECT_TRUE(IsZeroGuid(Read("mira_guid", " ").AsGuid()));
  EXPECT_TRUE(SameGuid(Read("mira_objid", kGuidText).AsId().Value(), kGuid));
  EXPECT_TRUE(Read("mira_objid", "").AsId().IsZero());
}

TEST(ScalarText, ReadsLocalizableTexts) {
  const Value value = Read("mira_i18n", std::string(kGuidText) + "; 17;'Disk is full'");
  ASSERT_EQ(value.Tag(), ZN_TYPE_I18N);
  EXPECT_TRUE(SameGuid(value.AsSet().FindValue("Catalog", ZN_TYPE_GUID)->AsGuid(), kGuid));
  EXPECT_EQ(value.AsSet().FindValue("Message", ZN_TYPE_UINT32)->AsUInt32(), 17u);
  EXPECT_EQ(value.AsSet().FindValue("Name", ZN_TYPE_STRING)->AsText(), "Disk is full");
}

TEST(ScalarText, OfALocalizableTextWithoutThreePartsIsTheEmptyRecord) {
  const std::string guid = kGuidText;
  for (const std::string& text : {std::string(), guid + ";17", guid + ";17;a;b",
                                  guid + ";17;Disk is full", std::string("free text")}) {
    SCOPED_TRACE(text);
    const Value value = Read("mira_i18n", text);
    EXPECT_TRUE(IsZeroGuid(value.AsSet().FindValue("Catalog", ZN_TYPE_GUID)->AsGuid()));
    EXPECT_EQ(value.AsSet().FindValue("Message", ZN_TYPE_UINT32)->AsUInt32(), 0u);
    EXPECT_EQ(value.AsSet().FindValue("Name", ZN_TYPE_STRING)->AsText(), "");
  }
}

struct Refusal {
  const char* word;
  const char* text;
  const char* trace;
};

const Refusal kRefusals[] = {
    {"mira_bool", "True", "XML: Inavalid boolean value in xml file :True"},
    {"mira_bool", "1", "XML: Inavalid boolean value in xml file :1"},
    {"mira_int32", "2147483648", "XML: invalid int32 value err in strtol  : 2147483648 errno 34 "},
    {"mira_int32", "-99999999999999999999",
     "XML: invalid int32 value err in strtol  : -99999999999999999999 errno 34 "},
    {"mira_int32", "5x", "XML: invalid int32 value: 5x"},
    {"mira_int32", "0x10", "XML: invalid int32 value: 0x10"},
    {"mira_uint32", "-5", "XML: Invalid value of mira_uint32: -5 "},
    {"mira_uint32", "x", "XML: Invalid value of mira_uint32: x "},
    {"mira_uint32", "4294967296",
     "XML: invalid uint32 value err in strtoul  : 4294967296 errno 34 "},
    {"mira_uint32", "5x", "XML : Inavalid uint32 value: 5x "},
    {"mira_uint32", "+-5", "XML : Inavalid uint32 value: +-5 "},
    {"mira_int64", "x", "XML: Invalid value of mira_int64: x"},
    {"mira_int64", "5x", "XML: Invalid value of mira_int64: 5x"},
    {"mira_int64", "5 5", "XML: Invalid value of mira_int64: 5 5"},
    {"mira_time", "+5", "XML: Invalid value of mira_time: +5"},
    {"mira_time", "-5", "XML: Invalid value of mira_time: -5"},
    {"mira_uint64", "-5", "XML: Invalid value of mira_int64: -5"},
    {"mira_uint64", "5x", "XML: Invalid value of mira_uint64: 5x"},
    {"mira_guid", "{1234}", "XML: error in getGuidValue{1234} "},
    {"mira_objid", "none", "XML: error in getObjIdValue none "},
    {"mira_i18n", "{1234};1;a", "XML: error in getGuidValue{1234} "},
};

TEST(ScalarText, RefusesWithItsWords) {
  for (const Refusal& c : kRefusals) {
    SCOPED_TRACE(c.trace);
    const TraceCapture trace(6);
    Value value;
    EXPECT_EQ(ReadScalarText(TagOfTypeWord(c.word), c.text, &value), ZNE_INVALID_ARGUMENTS);
    EXPECT_THAT(trace.Messages(), ElementsAre(c.trace, kScalarEnd));
    EXPECT_FALSE(value.HasValue());
  }
}

TEST(ScalarText, RefusesABadNumberInALocalizableText) {
  const TraceCapture trace(6);
  Value value;
  EXPECT_EQ(ReadScalarText(ZN_TYPE_I18N, std::string(kGuidText) + ";x;a", &value),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(), ElementsAre("XML: Invalid value of mira_uint32: x ", kScalarEnd));
}

TEST(ScalarText, IsNotForPropertySets) {
  Value value;
  EXPECT_EQ(ReadScalarText(ZN_TYPE_PROPSET, "", &value), ZNE_INVALID_ARGUMENTS);
}

TEST(ArrayText, ReadsItsTokens) {
  const Value numbers = ReadArray("mira_int32", "1, 2 -3");
  EXPECT_EQ(numbers.Tag(), ZN_TYPE_INT32 | ZN_TYPE_ARRAY);
  ASSERT_EQ(numbers.AsArray().size(), 3u);
  EXPECT_EQ(numbers.AsArray()[2].AsInt32(), -3);
  const Value texts = ReadArray("mira_string", R"(plain, "with, comma", "with \"quotes\"")");
  ASSERT_EQ(texts.AsArray().size(), 3u);
  EXPECT_EQ(texts.AsArray()[1].AsText(), "with, comma");
  EXPECT_EQ(texts.AsArray()[2].AsText(), "with \"quotes\"");
}

TEST(ArrayText, OfNoTokensIsEmpty) {
  for (const char* word :
       {"mira_bool", "mira_int32", "mira_uint32", "mira_int64", "mira_time", "mira_uint64",
        "mira_string", "mira_wstring", "mira_binary", "mira_guid", "mira_objid", "mira_i18n"}) {
    const Value value = ReadArray(word, " \n");
    EXPECT_EQ(value.Tag(), TagOfTypeWord(word) | ZN_TYPE_ARRAY) << word;
    EXPECT_TRUE(value.AsArray().empty()) << word;
  }
}

TEST(ArrayText, OfLocalizableTextsQuotesEach) {
  const std::string text =
      "\"" + std::string(kGuidText) + ";1;one\", \"" + kGuidText + ";2;'number two'\"";
  const Value value = ReadArray("mira_i18n", text);
  ASSERT_EQ(value.AsArray().size(), 2u);
  const PropertySet& second = value.AsArray()[1].AsSet();
  EXPECT_EQ(second.FindValue("Name", ZN_TYPE_STRING)->AsText(), "number two");
}

TEST(ArrayText, FailsAsAWholeAtItsFirstBadToken) {
  const TraceCapture trace(6);
  Value value;
  EXPECT_EQ(ReadArrayText(ZN_TYPE_INT32, "1,x,y", &value), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(), ElementsAre("XML: invalid int32 value: x",
                                            "XML : Error in getGetNonPropsetArrayProperty"));
  EXPECT_FALSE(value.HasValue());
}

TEST(ArrayText, OfATypeWithoutTextIsRefusedEvenWithoutElements) {
  Value value;
  EXPECT_EQ(ReadArrayText(0, "", &value), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ReadArrayText(ZN_TYPE_PROPSET, "", &value), ZNE_INVALID_ARGUMENTS);
  EXPECT_FALSE(value.HasValue());
}

TEST(ArrayText, OfLocalizableTextsHasWordsOfItsOwn) {
  const TraceCapture trace(6);
  Value value;
  EXPECT_EQ(ReadArrayText(ZN_TYPE_I18N, "\"{1};2;a\"", &value), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("XML: error in getGuidValue{1} ",
                          "XML : Error in getGetNonPropsetArrayProperty of type i18n"));
}

}  // namespace
}  // namespace zn::test
