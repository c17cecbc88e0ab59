// Texts in a language, asked of a bus of the test's own; what of a catalog's file the console reads
// by itself.
#include "localizer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "alerts.h"
#include "catalogs.h"
#include "language.h"
#include "zn/db.h"
#include "zn/init.h"
#include "zn/ob.h"

namespace zn::ctl {
namespace {

constexpr char kCatalogText[] = "{00000007-0000-0000-0000-000000000000}";

u32 OnCall(ObjectId, u32, u32, ZnHandle, ZnHandle, u32, u32, void*, TaskCallback, const GUID*,
           const ObjectId*, ZnHandle*) {
  return 0;
}
u32 OnInitialize(ZnHandle, ZnHandle, u32, u32) {
  return 0;
}
u32 OnShutdown(ZnHandle) {
  return 0;
}
u32 OnEvent(const EventRecord*) {
  return 0;
}

// A file that goes with the test.
class CatalogFile {
 public:
  explicit CatalogFile(const std::string& text)
      : path_(std::filesystem::temp_directory_path() /
              ("znctl_catalog_" + std::to_string(::getpid()))) {
    std::ofstream(path_) << text;
  }
  ~CatalogFile() { std::filesystem::remove(path_); }
  CatalogFile(const CatalogFile&) = delete;
  CatalogFile& operator=(const CatalogFile&) = delete;
  std::string Path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

class ZnctlLocalizer : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(DbCreatePrivateDatabase(&handle_), 0u);
    ProviderCallbacks callbacks{};
    callbacks.Call = OnCall;
    callbacks.Initialize = OnInitialize;
    callbacks.Shutdown = OnShutdown;
    callbacks.Event = OnEvent;
    ZnHandle provider = nullptr;
    ASSERT_EQ(ZnRegisterAsProvider(handle_, u"test", &callbacks, &provider), 0u);
    ObjectId type{};
    const Propset nothing;
    ASSERT_EQ(ObCreateTypeObject(handle_, "KELD_Extension", nullptr, nothing.Handle(), &type), 0u);
    ObjectId id{};
    ASSERT_EQ(ObCreateObject(handle_, provider, "KELD_Extension", &id), 0u);
    const Database bus(handle_);
    const PropertyList properties = {
        {"Id", 0, {ZN_TYPE_STRING, std::string(kCatalogText)}},
        {"Skin", 0, {ZN_TYPE_STRING, std::string("MiraSkin")}},
        {"Platform", 0, {ZN_TYPE_UINT32, u64{1}}},
        {"Locale", 0, {ZN_TYPE_UINT32, u64{kEnglish}}},
        {"ImageFile", 0, {ZN_TYPE_WIDESTRING, file_.Path()}},
    };
    for (const Property& property : properties) bus.SetProperty(Id{id}, property, "prepare");
  }
  ~ZnctlLocalizer() override { DbDeletePrivateDatabase(handle_); }

  std::string Text(u32 type, u32 number, PropertyList insertions = {}) const {
    const Database bus(handle_);
    Message message{{}, number, "own %1 and 5%%", std::move(insertions)};
    message.catalog.guid.Data1 = 7;
    const Property property{"AlertMsg", 0, {type, std::move(message)}};
    return Localizer(bus, kEnglish).Text(&property);
  }

  CatalogFile file_{"1 = 100%% full\n2 = %1 is 100%% full\n"};
  ZnHandle handle_ = nullptr;
};

TEST_F(ZnctlLocalizer, ShowsAPublishedTextAsItStands) {
  EXPECT_EQ(Text(ZN_TYPE_I18N, 1), "100%% full");
  EXPECT_EQ(Text(ZN_TYPE_I18N, 2), "%1 is 100%% full");
  EXPECT_EQ(Text(ZN_TYPE_I18N, 3), "own %1 and 5%%");
}

TEST_F(ZnctlLocalizer, ExpandsARaisedTextWithAndWithoutInsertions) {
  const PropertyList insertions = {{"i1", 0, {ZN_TYPE_STRING, std::string("sda")}}};
  EXPECT_EQ(Text(ZN_TYPE_I18N_FORMAT_STRING, 1), "100% full");
  EXPECT_EQ(Text(ZN_TYPE_I18N_FORMAT_STRING, 2, insertions), "sda is 100% full");
  EXPECT_EQ(Text(ZN_TYPE_I18N_FORMAT_STRING, 3, insertions), "own sda and 5%");
}

// Every alert has a text for what to do; one that says that there is nothing to do is no line.
TEST_F(ZnctlLocalizer, ShowsNoActionWhereThereIsNothingToDo) {
  const Database bus(handle_);
  const auto shown = [&](const char* action) {
    const auto text = [](const char* key, const char* own) {
      return Property{key, 0, {ZN_TYPE_I18N_FORMAT_STRING, Message{{}, 1, own, {}}}};
    };
    const PropertyList generic = {text("FriendlyAlertName", "name"), text("AlertMsg", "message"),
                                  text("RecommendedAction", action)};
    const auto alert = ReadAlert({{"GenericAlertPropset", 0, {ZN_TYPE_PROPSET, generic}}},
                                 Localizer(bus, kEnglish));
    return alert ? RenderAlert(Terminal{}, *alert, {}) : std::string();
  };
  EXPECT_NE(shown("Do it.").find("    message\n    -> Do it.\n"), std::string::npos);
  EXPECT_NE(shown("None").find("    message\n"), std::string::npos);
  EXPECT_EQ(shown("None").find("->"), std::string::npos);
  EXPECT_EQ(shown("").find("->"), std::string::npos);
}

TEST_F(ZnctlLocalizer, FallsBackWhereTheInsertionsAreNone) {
  // Anybody may raise an event with a format string of any content.
  EXPECT_EQ(Text(ZN_TYPE_I18N_FORMAT_STRING, 2), "own %1 and 5%");
  const PropertyList number = {{"i1", 0, {ZN_TYPE_UINT32, u64{7}}}};
  EXPECT_EQ(Text(ZN_TYPE_I18N_FORMAT_STRING, 2, number), "own 7 and 5%");
  const PropertyList nameless = {{"", 0, {ZN_TYPE_STRING, std::string("x")}}};
  EXPECT_EQ(Text(ZN_TYPE_I18N_FORMAT_STRING, 2, nameless), "own %1 and 5%");
}

TEST(ZnctlCatalogFile, HasNumbersAsTheLibraryReadsThem) {
  const CatalogFile file("# a comment\n\n 0A = ten\nbad line\n0xB=eleven\n0a=again\n=zero\n");
  std::vector<u32> numbers;
  ASSERT_TRUE(ReadNumbers(file.Path(), &numbers));
  EXPECT_EQ(numbers, (std::vector<u32>{10, 0, 11})) << "a line without \"=\" is message 0";
}

TEST(ZnctlCatalogFile, IsNamedWithEitherSlash) {
  const CatalogFile file("1 = one\n");
  std::string path = file.Path();
  std::replace(path.begin(), path.end(), '/', '\\');
  std::vector<u32> numbers;
  EXPECT_TRUE(ReadNumbers(path, &numbers));
  EXPECT_EQ(numbers, std::vector<u32>{1});
}

TEST(ZnctlCatalogFile, IsAPlainFile) {
  std::vector<u32> numbers;
  EXPECT_FALSE(ReadNumbers("/dev/zero", &numbers));
  EXPECT_FALSE(ReadNumbers("/tmp", &numbers));
  EXPECT_FALSE(ReadNumbers("/no/such/file", &numbers));
}

}  // namespace
}  // namespace zn::ctl
