#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/common/handle.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/memory.h"
#include "zn/platform.h"
#include "zn/ps.h"
#include "zn/status.h"

namespace zn {
namespace {

using test::TraceCapture;

// A set that goes with the test.
class Set {
 public:
  Set() { EXPECT_EQ(PsCreatePropset(&handle_), ZN_OK); }
  ~Set() { EXPECT_EQ(PsDestroyPropset(handle_), ZN_OK); }
  Set(const Set&) = delete;
  Set& operator=(const Set&) = delete;
  operator ZnHandle() const { return handle_; }  // NOLINT(google-explicit-constructor)

  u32 Add(const char* name, u32 value, u32 withFlags = 0) {
    const Property2 property{const_cast<char*>(name), ZN_TYPE_UINT32, withFlags, 4, &value};
    return PsAddProperty(handle_, &property);
  }
  u32 Put(const char* name, u32 value, u32 withFlags = 0) {
    const Property2 property{const_cast<char*>(name), ZN_TYPE_UINT32, withFlags, 4, &value};
    return PsSetProperty(handle_, &property);
  }
  u32 Get(const char* name) {
    Property2* property = nullptr;
    EXPECT_EQ(PsFindProperty(handle_, name, &property), ZN_OK);
    if (property == nullptr) return 0xDEAD;
    const u32 value = *static_cast<u32*>(property->Value);
    flags = property->Flags;
    EXPECT_EQ(PsFreeProperty(property), ZN_OK);
    return value;
  }
  u32 flags = 0;

 private:
  ZnHandle handle_ = nullptr;
};

TEST(PsApi, AddsFindsSetsAndDeletes) {
  Set set;
  EXPECT_EQ(set.Add("A", 1, ZN_PROPERTY_HIDDEN), ZN_OK);
  EXPECT_EQ(set.Add("A", 2), ZNE_DUPLICATE_LOOKUP_KEY);
  EXPECT_EQ(set.Get("A"), 1u);
  EXPECT_EQ(set.Put("A", 1, ZN_PROPERTY_INDEXED), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(set.Put("A", 3, ZN_PROPERTY_INDEXED), ZN_OK);
  EXPECT_EQ(set.Get("A"), 3u);
  EXPECT_EQ(set.flags, ZN_PROPERTY_HIDDEN) << "the flags of a present property stay";
  EXPECT_EQ(PsDeleteProperty(set, "A"), ZN_OK);
  EXPECT_EQ(PsDeleteProperty(set, "A"), ZNE_PROPERTY_NOT_FOUND);
  Property2* property = nullptr;
  EXPECT_EQ(PsFindProperty(set, "A", &property), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(PsFindProperty(set, "unknown everywhere", &property), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(property, nullptr);
}

TEST(PsApi, ANameThatStartsWithADigitIsRefusedAndABlankInsidePasses) {
  Set set;
  TraceCapture traces;
  EXPECT_EQ(set.Add("9lives", 1), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:ConvertProperty2ToProperty3: Invalid property name: 9lives"));
  EXPECT_EQ(set.Add("nine lives", 1), ZN_OK);
}

TEST(PsApi, MergeAnswersUnchangedForAnEmptySource) {
  Set target;
  Set source;
  EXPECT_EQ(PsMergePropsets(target, source), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(source.Add("A", 1), ZN_OK);
  EXPECT_EQ(PsMergePropsets(target, source), ZN_OK);
  EXPECT_EQ(PsMergePropsets(target, source), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(PsMergePropsets(target, target), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(target.Get("A"), 1u);
}

TEST(PsApi, CopiesAreDeep) {
  Set set;
  EXPECT_EQ(set.Add("A", 1), ZN_OK);
  ZnHandle copy = nullptr;
  ASSERT_EQ(PsCopyPropset(set, &copy), ZN_OK);
  EXPECT_EQ(set.Put("A", 2), ZN_OK);
  Property2* property = nullptr;
  ASSERT_EQ(PsFindProperty(copy, "A", &property), ZN_OK);
  EXPECT_EQ(*static_cast<u32*>(property->Value), 1u);
  EXPECT_EQ(PsFreeProperty(property), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(copy), ZN_OK);
}

std::string Next(ZnHandle set, ZnHandle iterator) {
  Property2* property = nullptr;
  const u32 status = PsFindNextProperty(set, iterator, &property);
  if (status != ZN_OK) return status == ZNE_NO_MORE_PROPERTIES ? "end" : "failed";
  std::string name = property->Name;
  EXPECT_EQ(PsFreeProperty(property), ZN_OK);
  return name;
}

TEST(PsApi, AnIteratorGivesTheNamesInOrderAndThenTheEndForGood) {
  Set set;
  for (const char* name : {"b", "a", "C"}) EXPECT_EQ(set.Add(name, 1), ZN_OK);
  ZnHandle iterator = nullptr;
  ASSERT_EQ(PsOpenPropset(set, &iterator), ZN_OK);
  for (const char* expected : {"C", "a", "b", "end", "end"}) {
    EXPECT_EQ(Next(set, iterator), expected);
  }
  EXPECT_EQ(set.Add("d", 1), ZN_OK);
  EXPECT_EQ(Next(set, iterator), "d") << "positions are counted anew at every step";
  EXPECT_EQ(ZnCloseHandle(iterator), ZN_OK);
  EXPECT_EQ(Next(set, iterator), "failed");
}

TEST(PsApi, AnIteratorIsBoundToNoSet) {
  Set first;
  Set second;
  EXPECT_EQ(first.Add("A", 1), ZN_OK);
  EXPECT_EQ(second.Add("X", 1), ZN_OK);
  EXPECT_EQ(second.Add("Y", 1), ZN_OK);
  ZnHandle iterator = nullptr;
  ASSERT_EQ(PsOpenPropset(first, &iterator), ZN_OK);
  EXPECT_EQ(Next(first, iterator), "A");
  EXPECT_EQ(Next(second, iterator), "Y");
  ZnFree(iterator);
  EXPECT_EQ(Next(second, iterator), "failed") << "ZnFree frees an iterator too";
}

TEST(PsApi, MarshalsAndReadsBack) {
  Set set;
  EXPECT_EQ(set.Add("A", 5), ZN_OK);
  void* bytes = nullptr;
  u32 length = 0;
  ASSERT_EQ(PsMarshalPropset(set, &bytes, &length), ZN_OK);
  EXPECT_EQ(length, 21u);
  ZnHandle read = nullptr;
  ASSERT_EQ(PsUnmarshalPropset(bytes, length, &read), ZN_OK);
  EXPECT_EQ(PsMergePropsets(read, set), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(PsDestroyPropset(read), ZN_OK);
  read = nullptr;
  EXPECT_EQ(PsUnmarshalPropset(bytes, length - 1, &read), ZNE_UNEXPECTED);
  EXPECT_EQ(read, nullptr);
  ZnFree(bytes);
}

std::string Printed(u32 format, ZnHandle set) {
  void* text = nullptr;
  u32 length = 0;
  EXPECT_EQ(PsSPrintf(format, set, &text, &length), ZN_OK);
  std::string copy(static_cast<char*>(text), length);
  ZnFree(text);
  return copy;
}

TEST(PsApi, PrintsItsThreeForms) {
  using namespace std::string_literals;
  Set set;
  EXPECT_EQ(Printed(0, set), "\0"s) << "an empty set prints its terminator alone";
  EXPECT_EQ(Printed(2, set), "<XML>\n<PropertyCount>0 </PropertyCount>\n</XML>\0"s);
  EXPECT_EQ(set.Add("A", 5, 2), ZN_OK);
  EXPECT_EQ(Printed(0, set), "  <uint32>, 0x2, A:5\n\0"s);
  EXPECT_EQ(Printed(1, set).size(), 21u);
}

TEST(PsApi, AnUnknownFormatIsRefusedInTheWordsOfTheWorker) {
  Set set;
  TraceCapture traces;
  void* text = nullptr;
  u32 length = 0;
  EXPECT_EQ(PsSPrintf(3, set, &text, &length), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:PsPrintPropset: Invalid arguments"));
  EXPECT_EQ(PsSPrintf(0, set, nullptr, &length), ZNE_INVALID_ARGUMENTS);
}

TEST(PsApi, BadArgumentsAreRefusedAndTraced) {
  Set set;
  Set freed;
  ZnHandle out = nullptr;
  ZnHandle iterator = nullptr;
  Property2* property = nullptr;
  void* bytes = nullptr;
  u32 length = 0;
  u32 word = 1;
  const Property2 good{const_cast<char*>("A"), ZN_TYPE_UINT32, 0, 4, &word};
  const Property2 noName{nullptr, ZN_TYPE_UINT32, 0, 4, &word};
  const Property2 noValue{const_cast<char*>("A"), ZN_TYPE_UINT32, 0, 4, nullptr};
  const std::string longName(5000, 'n');
  const auto wrongKind = AllocateHandle(HANDLE_PROVIDER, nullptr);
  ASSERT_EQ(PsOpenPropset(set, &iterator), ZN_OK);
  TraceCapture traces;
  struct Case {
    const char* function;
    u32 status;
  };
  const Case cases[] = {
      {"PsCreatePropset", PsCreatePropset(nullptr)},
      {"PsDestroyPropset", PsDestroyPropset(nullptr)},
      {"PsDestroyPropset", PsDestroyPropset(wrongKind)},
      {"PsAddProperty", PsAddProperty(nullptr, &good)},
      {"PsAddProperty", PsAddProperty(set, nullptr)},
      {"PsAddProperty", PsAddProperty(set, &noName)},
      {"PsAddProperty", PsAddProperty(set, &noValue)},
      {"PsSetProperty", PsSetProperty(iterator, &good)},
      {"PsDeleteProperty", PsDeleteProperty(set, nullptr)},
      {"PsDeleteProperty", PsDeleteProperty(set, longName.c_str())},
      {"PsFreeProperty", PsFreeProperty(nullptr)},
      {"PsFindProperty", PsFindProperty(set, "A", nullptr)},
      {"PsFindProperty", PsFindProperty(set, nullptr, &property)},
      {"PsCopyPropset", PsCopyPropset(set, nullptr)},
      {"PsMergePropsets", PsMergePropsets(set, nullptr)},
      {"PsOpenPropset", PsOpenPropset(set, nullptr)},
      {"PsFindNextProperty", PsFindNextProperty(set, set, &property)},
      {"PsFindNextProperty", PsFindNextProperty(set, nullptr, &property)},
      {"PsMarshalPropset", PsMarshalPropset(set, nullptr, &length)},
      {"PsMarshalPropset", PsMarshalPropset(wrongKind, &bytes, &length)},
      {"PsUnmarshalPropset", PsUnmarshalPropset(nullptr, 4, &out)},
      {"PsUnmarshalPropset", PsUnmarshalPropset("", 0, nullptr)},
  };
  const std::vector<std::string> messages = traces.Messages();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.function);
    EXPECT_EQ(c.status, ZNE_INVALID_ARGUMENTS);
    EXPECT_TRUE(traces.Has("ZnAPI:" + std::string(c.function) + ": Invalid arguments"));
    EXPECT_TRUE(traces.Has("ZnAPI:Entering " + std::string(c.function)));
    EXPECT_TRUE(
        traces.Has("ZnAPI:Exiting " + std::string(c.function) + ": 0x80070057, 2147942487"));
  }
  EXPECT_EQ(messages.size(), 3 * std::size(cases)) << "one refusal, traced once, per call";
  EXPECT_EQ(ZnCloseHandle(iterator), ZN_OK);
  EXPECT_TRUE(FreeHandle(wrongKind, HANDLE_PROVIDER));
}

TEST(PsApi, ADestroyedSetIsRefusedEverywhere) {
  ZnHandle set = nullptr;
  ASSERT_EQ(PsCreatePropset(&set), ZN_OK);
  ASSERT_EQ(PsDestroyPropset(set), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(set), ZNE_INVALID_ARGUMENTS);
  Property2* property = nullptr;
  EXPECT_EQ(PsFindProperty(set, "A", &property), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsFindProperty(reinterpret_cast<ZnHandle>(0xFFFFFFFFul), "A", &property),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsFindProperty(reinterpret_cast<ZnHandle>(~0ul), "A", &property),
            ZNE_INVALID_ARGUMENTS);
}

TEST(PsApi, AfterTheLibraryIsDoneEveryHandleIsRefused) {
  ZnHandle set = nullptr;
  ASSERT_EQ(PsCreatePropset(&set), ZN_OK);
  libraryAlive = 0;
  Property2* property = nullptr;
  EXPECT_EQ(PsFindProperty(set, "A", &property), ZNE_INVALID_ARGUMENTS);
  libraryAlive = 1;
  EXPECT_EQ(PsDestroyPropset(set), ZN_OK);
}

TEST(PsApi, FreeingARecordOfATypeThatIsNeverHandedOutIsRefused) {
  Property2 record{const_cast<char*>("A"), ZN_TYPE_OBJECT, 0, 0, nullptr};
  for (const u32 type : {12u, 13u, 15u, 18u, 0x80000008u, 0x8000000Cu, 0x8000000Eu}) {
    record.Type = type;
    EXPECT_EQ(PsFreeProperty(&record), ZNE_INVALID_ARGUMENTS) << type;
  }
}

}  // namespace
}  // namespace zn
