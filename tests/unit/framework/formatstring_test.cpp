#include "framework/common/fmtstr/formatstring.h"

#include <cstring>
#include <memory>
#include <string>

#include "framework/common/znpropset/i18nvalue.h"
#include "framework/common/znpropset/property2.h"
#include "support/common/fastlock.h"
#include "tests/unit/framework/bus_fixture.h"
#include "zn/i18n.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

constexpr GUID kCatalog = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};

struct BlockFree {
  void operator()(void* block) const { ZnFree(block); }
};
template <typename T>
using Block = std::unique_ptr<T, BlockFree>;

ZnHandle StaleSet() {
  ZnHandle handle = nullptr;
  EXPECT_EQ(PsCreatePropset(&handle), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(handle), ZN_OK);
  return handle;
}

// A format string of the test's own, with an empty set of insertions.
class FormatStringTest : public testing::Test {
 protected:
  FormatStringTest() {
    EXPECT_EQ(PsCreatePropset(&fmt_.insertions), ZN_OK);
    EXPECT_EQ(I18nAddFormatSpec(&fmt_, kCatalog, 7, "seven"), ZN_OK);
  }
  ~FormatStringTest() override {
    if (fmt_.name == nullptr) return;  // the test has deleted it
    EXPECT_EQ(I18nDeleteFormatString(&fmt_), ZN_OK);
  }
  [[nodiscard]] PropertySet& Insertions() const {
    return *HandleThing<PropertySet>(fmt_.insertions);
  }

  I18nFormatString fmt_{};
};

TEST(I18nRecord, IsOneBlockWithItsText) {
  I18nString* record = nullptr;
  ASSERT_EQ(ZnMakeI18nStr(kCatalog, 42, "answer", &record), ZN_OK);
  const Block<I18nString> owner(record);
  EXPECT_EQ(record->catalog, kCatalog);
  EXPECT_EQ(record->message, 42u);
  EXPECT_STREQ(record->name, "answer");
  EXPECT_EQ(record->name, reinterpret_cast<char*>(record + 1));
}

TEST(I18nRecord, RefusesABadNameAndClearsItsResultFirst) {
  EXPECT_EQ(ZnMakeI18nStr(kCatalog, 1, "x", nullptr), ZNE_INVALID_ARGUMENTS);
  auto* record = reinterpret_cast<I18nString*>(0x123456);
  const TraceCapture traces;
  EXPECT_EQ(ZnMakeI18nStr(kCatalog, 1, nullptr, &record), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(record, nullptr);
  EXPECT_TRUE(traces.Has("ZnAPI:ZnMakeI18nStr: Invalid arguments"));
  EXPECT_EQ(ZnMakeI18nStr(kCatalog, 1, std::string(0x20001, 'x').c_str(), &record),
            ZNE_INVALID_ARGUMENTS);
  ASSERT_EQ(ZnMakeI18nStr(kCatalog, 1, std::string(0x20000, 'x').c_str(), &record), ZN_OK);
  ZnFree(record);
}

TEST_F(FormatStringTest, TheSpecIsCopiedAndTheInsertionsStay) {
  const ZnHandle before = fmt_.insertions;
  EXPECT_EQ(fmt_.catalog, kCatalog);
  EXPECT_EQ(fmt_.message, 7u);
  EXPECT_STREQ(fmt_.name, "seven");
  EXPECT_EQ(fmt_.insertions, before);
  EXPECT_EQ(I18nAddFormatSpec(nullptr, kCatalog, 7, "seven"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nAddFormatSpec(&fmt_, kCatalog, 7, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_STREQ(fmt_.name, "seven");
}

TEST_F(FormatStringTest, InsertionsAreNamedByTheirNumbers) {
  const I18nString nested{kCatalog, 8, const_cast<char*>("eight")};
  EXPECT_EQ(I18nAddInsertionString(&fmt_, 1, "narrow"), ZN_OK);
  EXPECT_EQ(I18nAddInsertionWideString(&fmt_, 2, u"wide"), ZN_OK);
  EXPECT_EQ(I18nAddInsertionI18n(&fmt_, 3, &nested), ZN_OK);
  EXPECT_EQ(I18nAddInsertionString(&fmt_, 0xFFFFFFFF, "last"), ZN_OK);
  const BusLock lock;
  EXPECT_EQ(Insertions().FindValue("i1", ZN_TYPE_STRING)->AsText(), "narrow");
  EXPECT_EQ(Insertions().FindValue("i2", ZN_TYPE_WIDESTRING)->AsWideText(), u"wide");
  EXPECT_EQ(PartsOfI18n(Insertions().FindValue("i3", ZN_TYPE_I18N)->AsSet()).name, "eight");
  EXPECT_NE(Insertions().Find("i4294967295"), nullptr);
}

TEST_F(FormatStringTest, ANumberIsTakenOnce) {
  EXPECT_EQ(I18nAddInsertionString(&fmt_, 1, "first"), ZN_OK);
  EXPECT_EQ(I18nAddInsertionWideString(&fmt_, 1, u"second"), ZNE_DUPLICATE_LOOKUP_KEY);
  const BusLock lock;
  EXPECT_EQ(Insertions().FindValue("i1", ZN_TYPE_STRING)->AsText(), "first");
}

TEST_F(FormatStringTest, AnAdditionRefusesAValueThatIsNone) {
  const TraceCapture traces;
  EXPECT_EQ(I18nAddInsertionString(&fmt_, 1, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nAddInsertionWideString(&fmt_, 1, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nAddInsertionI18n(&fmt_, 1, reinterpret_cast<I18nString*>(8)),
            ZNE_INVALID_ARGUMENTS);
  const std::vector<std::string> messages = traces.Messages();
  EXPECT_EQ(
      std::count(messages.begin(), messages.end(), "ZnAPI:I18nAddInsertion: Invalid argument"), 3);
}

TEST_F(FormatStringTest, AnAdditionRefusesARecordOrHandleThatIsNone) {
  const TraceCapture traces;
  EXPECT_EQ(I18nAddInsertionString(nullptr, 1, "x"), ZNE_INVALID_ARGUMENTS);
  I18nFormatString other{};
  EXPECT_EQ(I18nAddInsertionString(&other, 1, "x"), ZNE_INVALID_ARGUMENTS);
  other.insertions = StaleSet();
  EXPECT_EQ(I18nAddInsertionWideString(&other, 1, u"x"), ZNE_INVALID_ARGUMENTS);
  const std::vector<std::string> messages = traces.Messages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(), "ZnAPI:I18nAddInsertion: Invalid handle"),
            3);
}

TEST_F(FormatStringTest, AnAdditionOfAnotherTypeIsUnexpected) {
  const TraceCapture traces;
  const BusLock lock;
  const u32 number = 1;
  EXPECT_EQ(AddInsertion(&fmt_, 1, ZN_TYPE_UINT32, &number), ZNE_UNEXPECTED);
  EXPECT_TRUE(traces.Has("ZnAPI:I18nAddInsertion: Invalid Property Type"));
}

TEST_F(FormatStringTest, GivesCopiesOfInsertions) {
  const I18nString nested{kCatalog, 8, const_cast<char*>("eight")};
  ASSERT_EQ(I18nAddInsertionString(&fmt_, 1, "narrow"), ZN_OK);
  ASSERT_EQ(I18nAddInsertionWideString(&fmt_, 2, u"wide"), ZN_OK);
  ASSERT_EQ(I18nAddInsertionI18n(&fmt_, 3, &nested), ZN_OK);
  u32 type = 0;
  void* value = nullptr;
  ASSERT_EQ(I18nGetInsertion(&fmt_, 1, &type, &value), ZN_OK);
  EXPECT_EQ(type, ZN_TYPE_STRING);
  EXPECT_STREQ(static_cast<char*>(value), "narrow");
  ZnFree(value);
  ASSERT_EQ(I18nGetInsertion(&fmt_, 2, nullptr, &value), ZN_OK);
  EXPECT_EQ(std::u16string(static_cast<ZnWChar*>(value)), u"wide");
  ZnFree(value);
  ASSERT_EQ(I18nGetInsertion(&fmt_, 3, &type, &value), ZN_OK);
  EXPECT_EQ(type, ZN_TYPE_I18N);
  EXPECT_EQ(static_cast<I18nString*>(value)->message, 8u);
  EXPECT_STREQ(static_cast<I18nString*>(value)->name, "eight");
  ZnFree(value);
}

TEST_F(FormatStringTest, ALookUpSaysWhatIsWrong) {
  u32 type = 0;
  void* value = nullptr;
  {
    const TraceCapture traces;
    EXPECT_EQ(I18nGetInsertion(&fmt_, 1, &type, &value), ZNE_PROPERTY_NOT_FOUND);
    EXPECT_TRUE(traces.Has("ZnAPI:I18nGetInsertion: Property lookup of failed"));
  }
  const TraceCapture traces;
  I18nFormatString other{};
  EXPECT_EQ(I18nGetInsertion(nullptr, 1, &type, &value), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nGetInsertion(&fmt_, 1, &type, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nGetInsertion(&other, 1, &type, &value), ZNE_INVALID_ARGUMENTS);
  const std::vector<std::string> messages = traces.Messages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(), "ZnAPI:I18nGetInsertion: Invalid handle"),
            3);
}

TEST_F(FormatStringTest, AnInsertionOfAnotherTypeIsUnexpected) {
  {
    const BusLock lock;
    Insertions().Put("i1", Value::UInt32(1));
  }
  void* value = nullptr;
  EXPECT_EQ(I18nGetInsertion(&fmt_, 1, nullptr, &value), ZNE_UNEXPECTED);
  EXPECT_EQ(value, nullptr);
}

TEST_F(FormatStringTest, ACopyIsDeep) {
  ASSERT_EQ(I18nAddInsertionString(&fmt_, 1, "narrow"), ZN_OK);
  I18nFormatString* copy = nullptr;
  ASSERT_EQ(I18nCopyFormatString(&fmt_, &copy), ZN_OK);
  const Block<I18nFormatString> owner(copy);
  EXPECT_EQ(copy->catalog, kCatalog);
  EXPECT_EQ(copy->message, 7u);
  EXPECT_STREQ(copy->name, "seven");
  EXPECT_NE(copy->name, fmt_.name);
  EXPECT_NE(copy->insertions, fmt_.insertions);
  void* value = nullptr;
  ASSERT_EQ(I18nGetInsertion(copy, 1, nullptr, &value), ZN_OK);
  EXPECT_STREQ(static_cast<char*>(value), "narrow");
  ZnFree(value);
  EXPECT_EQ(I18nDeleteFormatString(copy), ZN_OK);
  EXPECT_EQ(I18nGetInsertion(&fmt_, 1, nullptr, &value), ZN_OK) << "the original is whole";
  ZnFree(value);
}

TEST_F(FormatStringTest, ACopyWithoutInsertionsHasNone) {
  I18nFormatString bare{kCatalog, 1, const_cast<char*>("bare"), nullptr};
  I18nFormatString* copy = nullptr;
  ASSERT_EQ(I18nCopyFormatString(&bare, &copy), ZN_OK);
  EXPECT_EQ(copy->insertions, nullptr);
  EXPECT_EQ(I18nDeleteFormatString(copy), ZN_OK);
  ZnFree(copy);
  bare.insertions = StaleSet();
  EXPECT_EQ(I18nCopyFormatString(&bare, &copy), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nCopyFormatString(nullptr, &copy), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(I18nCopyFormatString(&fmt_, nullptr), ZNE_INVALID_ARGUMENTS);
}

TEST_F(FormatStringTest, ADeletionIsRefusedInTheWordsOfTheAdditions) {
  const TraceCapture traces;
  EXPECT_EQ(I18nDeleteFormatString(nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:I18nAddInsertion: Invalid handle"));
}

TEST_F(FormatStringTest, ASecondDeletionFreesNothing) {
  ASSERT_EQ(I18nDeleteFormatString(&fmt_), ZN_OK);
  const TraceCapture traces;
  EXPECT_EQ(I18nDeleteFormatString(&fmt_), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:I18nDeleteFormatString: Error destroying propset"));
}

// --- the formatted property ---

class FormattedPropertyTest : public testing::Test {
 protected:
  ~FormattedPropertyTest() override {
    if (property_ != nullptr) {
      EXPECT_EQ(PsFreeProperty(property_), ZN_OK);
    }
    ZnFree(message_);
    EXPECT_EQ(ZnFreeStringList(inserts_.count, reinterpret_cast<void**>(inserts_.items)), ZN_OK);
  }
  u32 Decode(const Property2& in) { return ZnDecodeFormattedString(&in, &message_, &inserts_); }
  // Decodes the bytes of a set.
  u32 DecodeSet(const PropertySet& set) {
    BinaryWriter writer;
    set.Marshal(writer);
    u32 length = 0;
    const Block<void> bytes(writer.Buffer().Take(&length));
    return Decode({nullptr, ZN_TYPE_INT32, 0, length, bytes.get()});
  }
  static PropertySet SetOf(u32 count) {
    PropertySet set;
    set.Put("TEMPLATE_I18N", I18nValueOf(I18nParts{kCatalog, 5, "five"}));
    set.Put("NUMBER_OF_INSERTS_UL", Value::UInt32(count));
    return set;
  }

  Property2* property_ = nullptr;
  I18nString* message_ = nullptr;
  InsertList inserts_{};
};

TEST_F(FormattedPropertyTest, IsASetInTheBytesOfAnInt32) {
  const char* name = "Message";
  ASSERT_EQ(ZnMakeFormattedString(&property_, name, kCatalog, 5, "five", 2, u"a", u""), ZN_OK);
  EXPECT_EQ(property_->Name, name) << "the pointer, not a copy";
  EXPECT_EQ(property_->Type, ZN_TYPE_INT32);
  EXPECT_EQ(property_->Flags, 0u);
  ZnHandle set = nullptr;
  ASSERT_EQ(PsUnmarshalPropset(property_->Value, property_->Size, &set), ZN_OK);
  {
    const BusLock lock;
    const PropertySet& content = *HandleThing<PropertySet>(set);
    EXPECT_EQ(content.Count(), 4u);
    EXPECT_EQ(PartsOfI18n(content.FindValue("TEMPLATE_I18N", ZN_TYPE_I18N)->AsSet()).message, 5u);
    EXPECT_EQ(content.FindValue("NUMBER_OF_INSERTS_UL", ZN_TYPE_UINT32)->AsUInt32(), 2u);
    EXPECT_EQ(content.FindValue("INSERT_0_VALUE", ZN_TYPE_WIDESTRING)->AsWideText(), u"a");
    EXPECT_EQ(content.FindValue("INSERT_1_VALUE", ZN_TYPE_WIDESTRING)->AsWideText(), u"");
  }
  EXPECT_EQ(PsDestroyPropset(set), ZN_OK);
}

TEST_F(FormattedPropertyTest, ReadsBackWhatItWrote) {
  ASSERT_EQ(ZnMakeFormattedString(&property_, "M", kCatalog, 5, "five", 2, u"eins", u"zw\u00f6lf"),
            ZN_OK);
  ASSERT_EQ(Decode(*property_), ZN_OK);
  EXPECT_EQ(message_->catalog, kCatalog);
  EXPECT_EQ(message_->message, 5u);
  EXPECT_STREQ(message_->name, "five");
  ASSERT_EQ(inserts_.count, 2u);
  EXPECT_EQ(std::u16string(inserts_.items[0]), u"eins");
  EXPECT_EQ(std::u16string(inserts_.items[1]), u"zw\u00f6lf");
}

TEST_F(FormattedPropertyTest, RefusesTheZeroCatalogAndBadTexts) {
  EXPECT_EQ(ZnMakeFormattedString(&property_, "M", GUID{}, 5, "five", 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnMakeFormattedString(nullptr, "M", kCatalog, 5, "five", 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnMakeFormattedString(&property_, "M", kCatalog, 5, nullptr, 0), ZNE_INVALID_ARGUMENTS);
  const ZnWChar* none = nullptr;
  EXPECT_EQ(ZnMakeFormattedString(&property_, "M", kCatalog, 5, "five", 1, none),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(property_, nullptr);
}

TEST_F(FormattedPropertyTest, ARecordOfAnotherTypeIsRefused) {
  ASSERT_EQ(ZnMakeFormattedString(&property_, "M", kCatalog, 5, "five", 0), ZN_OK);
  Property2 other = *property_;
  other.Type = ZN_TYPE_UINT32;
  message_ = nullptr;
  EXPECT_EQ(Decode(other), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(message_, nullptr);
  EXPECT_EQ(inserts_.items, nullptr);
}

TEST_F(FormattedPropertyTest, RefusesPointersThatAreNone) {
  ASSERT_EQ(ZnMakeFormattedString(&property_, "M", kCatalog, 5, "five", 0), ZN_OK);
  const TraceCapture traces;
  EXPECT_EQ(ZnDecodeFormattedString(nullptr, &message_, &inserts_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnDecodeFormattedString(property_, nullptr, &inserts_), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ZnDecodeFormattedString(property_, &message_, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:ZnDecodeFormattedString: Invalid arguments"));
  EXPECT_EQ(Decode({nullptr, ZN_TYPE_INT32, 0, 0, nullptr}), ZNE_INVALID_ARGUMENTS);
}

TEST_F(FormattedPropertyTest, EveryTruncationFailsAndLeavesNothing) {
  ASSERT_EQ(ZnMakeFormattedString(&property_, "M", kCatalog, 5, "five", 1, u"eins"), ZN_OK);
  for (u32 size = 0; size < property_->Size; ++size) {
    Property2 cut = *property_;
    cut.Size = size;
    EXPECT_TRUE(ZN_FAILED(Decode(cut))) << size;
    EXPECT_EQ(message_, nullptr);
    EXPECT_EQ(inserts_.items, nullptr);
    EXPECT_EQ(inserts_.count, 0u);
  }
}

TEST_F(FormattedPropertyTest, WithoutAMessageThereIsNoProperty) {
  EXPECT_EQ(DecodeSet(PropertySet()), ZNE_PROPERTY_NOT_FOUND);
  PropertySet other;
  other.Put("TEMPLATE_I18N", Value::UInt32(5));
  EXPECT_EQ(DecodeSet(other), ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(FormattedPropertyTest, WithoutACountThereAreNoInsertions) {
  PropertySet set = SetOf(0);
  ASSERT_EQ(set.Delete("NUMBER_OF_INSERTS_UL"), ZN_OK);
  set.Put("INSERT_0_VALUE", Value::WideText(u"unseen"));
  ASSERT_EQ(DecodeSet(set), ZN_OK);
  EXPECT_EQ(inserts_.count, 0u);
  EXPECT_EQ(inserts_.items, nullptr);
}

TEST_F(FormattedPropertyTest, AMissingInsertionIsANullInTheList) {
  PropertySet set = SetOf(3);
  set.Put("INSERT_1_VALUE", Value::WideText(u"there"));
  set.Put("INSERT_2_VALUE", Value::Text("of another type"));
  set.Put("INSERT_01_VALUE", Value::WideText(u"no name of an insertion"));
  set.Put("INSERT_7_VALUE", Value::WideText(u"beyond the count"));
  ASSERT_EQ(DecodeSet(set), ZN_OK);
  ASSERT_EQ(inserts_.count, 3u);
  EXPECT_EQ(inserts_.items[0], nullptr);
  EXPECT_EQ(std::u16string(inserts_.items[1]), u"there");
  EXPECT_EQ(inserts_.items[2], nullptr);
}

TEST_F(FormattedPropertyTest, ACountThatTheBytesCannotHoldFailsAtOnce) {
  EXPECT_EQ(DecodeSet(SetOf(0xFFFFFFFF)), ZNE_UNEXPECTED);
  EXPECT_EQ(DecodeSet(SetOf(100000)), ZNE_UNEXPECTED);
  EXPECT_EQ(message_, nullptr);
}

TEST(FormattedProperty, InASetBecomesAnInt32OfItsFirstFourBytes) {
  Propset set;
  ASSERT_EQ(PsAddI18nString(set.Get(), kCatalog, 5, "five", "M"), ZN_OK);
  ASSERT_EQ(PsAddI18nStringWithIndex(set.Get(), kCatalog, 5, "five", -3, "N"), ZN_OK);
  for (const char* name : {"M", "N"}) {
    Property2* found = nullptr;
    ASSERT_EQ(PsFindProperty(set.Get(), name, &found), ZN_OK);
    EXPECT_EQ(found->Type, ZN_TYPE_INT32);
    EXPECT_EQ(found->Size, 4u);
    // The number of properties of the marshalled set comes first, the most significant byte ahead.
    const u8 first[] = {0, 0, 0, static_cast<u8>(*name == 'M' ? 2 : 3)};
    EXPECT_EQ(std::memcmp(found->Value, first, sizeof(first)), 0);
    EXPECT_EQ(PsFreeProperty(found), ZN_OK);
  }
}

TEST(FormattedProperty, IsAddedToASetLikeAnyOther) {
  Propset set;
  ASSERT_EQ(PsAddI18nString(set.Get(), kCatalog, 5, "five", "M"), ZN_OK);
  EXPECT_EQ(PsAddI18nString(set.Get(), kCatalog, 5, "five", "M"), ZNE_DUPLICATE_LOOKUP_KEY);
  EXPECT_EQ(PsAddI18nString(set.Get(), GUID{}, 5, "five", "N"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsAddI18nString(set.Get(), kCatalog, 5, "five", "9"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsAddI18nString(nullptr, kCatalog, 5, "five", "N"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsAddI18nStringWithIndex(nullptr, kCatalog, 5, "five", 1, "N"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(set.Set().Count(), 1u);
}

TEST(StringList, MayBeNullAndHaveHoles) {
  EXPECT_EQ(ZnFreeStringList(5, nullptr), ZN_OK);
  auto** list = static_cast<void**>(ZnAlloc(3 * sizeof(void*)));
  list[1] = ZnAlloc(16);
  EXPECT_EQ(ZnFreeStringList(3, list), ZN_OK);
}

// The two forms count from 1 and from 0, and only a caller who means it maps the one to the other.
TEST_F(FormatStringTest, TheFormsAreNotConvertedIntoEachOther) {
  ASSERT_EQ(I18nAddInsertionWideString(&fmt_, 1, u"eins"), ZN_OK);
  const BusLock lock;
  const Value value = FormatStringValueOf(fmt_);
  EXPECT_EQ(value.AsSet().Find("TEMPLATE_I18N"), nullptr);
  EXPECT_EQ(InsertionsOf(value.AsSet())->Find("INSERT_0_VALUE"), nullptr);
  EXPECT_NE(InsertionsOf(value.AsSet())->Find("i1"), nullptr);
}

}  // namespace
}  // namespace zn::test
