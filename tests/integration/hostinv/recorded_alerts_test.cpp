// The alerts of the provider, loaded by the library, on a copy of the recorded tree: published with
// texts in two languages, raised once per crossing.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "alert_listener.h"
#include "hostinv.h"
#include "loaded_bus.h"
#include "text.h"

namespace hostinv {
namespace {

namespace fs = std::filesystem;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr GUID kRefreshInterface = HOSTINV_REFRESH_INTERFACE;

class RecordedAlerts : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    static TemporaryFolder copy;  // to the end of the process
    folder = &copy;
    fs::copy(HOSTINV_TESTS "/tree", folder->Path() + "/tree",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    LoadedBus::Start("Root = \"" + folder->Path() +
                     "/tree/\"\nPeriod = 0\nAlertUsedPercent = 90\n" + CatalogSettings());
    AlertListener::Start(LoadedBus::Get().Database());
  }

  void SetUp() override { ASSERT_EQ(bus_.StartStatus(), 0U); }

  u32 Call(u32 minorCode) {
    ZnHandle in = nullptr;
    ZnHandle out = nullptr;
    EXPECT_EQ(PsCreatePropset(&in), 0U);
    EXPECT_EQ(PsCreatePropset(&out), 0U);
    ObjectId answering{};
    ObjectId task{};
    const u32 status = PrCallDispatch(bus_.Database(), bus_.Find("host"), &kRefreshInterface,
                                      HOSTINV_REFRESH_MAJOR, minorCode, in, out, 0, 0, nullptr,
                                      nullptr, &answering, &task);
    PsDestroyPropset(in);
    PsDestroyPropset(out);
    return status;
  }
  static void WriteTree(const std::string& name, const std::string& text) {
    folder->Write("tree/" + name, text);
  }
  // The root file system with that many percent of 100 units used.
  std::vector<HeardAlert> FillRoot(int percent) {
    WriteTree("recorded/usage",
              "100 " + std::to_string(percent) + " " + std::to_string(100 - percent) + " /\n");
    EXPECT_EQ(Call(HOSTINV_REFRESH), 0U);
    return AlertListener::Take();
  }
  std::vector<HeardAlert> SetLink(const std::string& state) {
    WriteTree("sys/class/net/eno1/operstate", state + "\n");
    EXPECT_EQ(Call(HOSTINV_RESCAN), 0U);
    return AlertListener::Take();
  }

  static inline TemporaryFolder* folder = nullptr;
  LoadedBus& bus_ = LoadedBus::Get();
};

TEST_F(RecordedAlerts, ArePublishedWithTheDefaultTextsOfTheEnglishCatalog) {
  u32 count = 0;
  ObjectId* ids = nullptr;
  ASSERT_EQ(DbGetObjects(bus_.Database(), "KELD_SystemAlerts", &count, &ids), 0U);
  u32 own = 0;
  for (u32 i = 0; i < count; ++i) {
    Property2* generic = nullptr;
    ASSERT_EQ(ObGetProperty(bus_.Database(), ids[i], "GenericAlertPropset", &generic), 0U);
    const auto set = static_cast<ZnHandle>(generic->Value);
    for (const char* name : {"AlertMsg", "FriendlyAlertName", "ClassificationName", "Description",
                             "RecommendedAction"}) {
      Property2* found = nullptr;
      ASSERT_EQ(PsFindProperty(set, name, &found), 0U);
      const auto record = *static_cast<I18nString*>(found->Value);
      ZnWChar* english = nullptr;
      ZnWChar* german = nullptr;
      if (record.catalog.Data1 == 0x5E0A1C74u) {
        ++own;
        ASSERT_EQ(i18nGetLocalizedStringFromi18n(nullptr, record, 0x409, nullptr, 0, &english), 0U)
            << record.name;
        ASSERT_EQ(i18nGetLocalizedStringFromi18n(nullptr, record, 0x407, nullptr, 0, &german), 0U)
            << record.name;
        EXPECT_EQ(FromUtf16(english), record.name);
        EXPECT_NE(FromUtf16(german), record.name);
        if (name == std::string_view("FriendlyAlertName")) {
          // Whole beside severity and topic, in a line of 80 columns.
          for (const char16_t* text : {english, german}) {
            EXPECT_LE(std::char_traits<char16_t>::length(text), 25U) << FromUtf16(text);
          }
        }
        ZnFree(english);
        ZnFree(german);
      }
      PsFreeProperty(found);
    }
    PsFreeProperty(generic);
  }
  ZnFree(ids);
  EXPECT_EQ(own, 25U) << "five alerts of five texts";
}

TEST_F(RecordedAlerts, AFileSystemAcrossTheLimitAndBackIsTwoAlerts) {
  EXPECT_THAT(FillRoot(89), IsEmpty());
  const std::vector<HeardAlert> full = FillRoot(91);
  ASSERT_THAT(full, SizeIs(1));
  EXPECT_EQ(full[0].topic, "event.alert.hostinv.filesystem.full");
  EXPECT_EQ(
      full[0].text,
      "Das Dateisystem / ist zu 91 Prozent belegt, die Grenze liegt bei 90 Prozent. / "
      "Löschen Sie auf /, was nicht mehr gebraucht wird, oder vergrößern Sie das Dateisystem.");
  EXPECT_EQ(full[0].key, "fs:/");
  EXPECT_TRUE(ObCompareId(full[0].object, bus_.Find("fs:/")));
  for (const int percent : {89, 92, 86, 99}) EXPECT_THAT(FillRoot(percent), IsEmpty()) << percent;
  const std::vector<HeardAlert> normal = FillRoot(80);
  ASSERT_THAT(normal, SizeIs(1));
  EXPECT_EQ(normal[0].topic, "event.alert.hostinv.filesystem.normal");
  EXPECT_EQ(normal[0].text, "Das Dateisystem / hat wieder Platz: 80 Prozent sind belegt. / Keine");
}

TEST_F(RecordedAlerts, ALinkThatIsLostAndComesBackIsTwoAlerts) {
  EXPECT_THAT(SetLink("up"), IsEmpty());
  const std::vector<HeardAlert> lost = SetLink("down");
  ASSERT_THAT(lost, SizeIs(1));
  EXPECT_EQ(lost[0].topic, "event.alert.hostinv.interface.linklost");
  EXPECT_EQ(lost[0].text,
            "Die Netzwerkschnittstelle eno1 hat ihre Verbindung verloren. / "
            "Prüfen Sie das Kabel von eno1 und das Gerät am anderen Ende.");
  EXPECT_TRUE(ObCompareId(lost[0].object, bus_.Find("net:eno1")));
  EXPECT_THAT(SetLink("down"), IsEmpty());
  const std::vector<HeardAlert> back = SetLink("up");
  ASSERT_THAT(back, SizeIs(1));
  EXPECT_EQ(back[0].topic, "event.alert.hostinv.interface.linkback");
}

TEST_F(RecordedAlerts, ADiskThatIsGoneIsAnAlert) {
  ASSERT_FALSE(IsZero(bus_.Find("block:sdb")));
  fs::remove_all(folder->Path() + "/tree/sys/block/sdb");
  ASSERT_EQ(Call(HOSTINV_RESCAN), 0U);
  const std::vector<HeardAlert> gone = AlertListener::Take();
  ASSERT_THAT(gone, SizeIs(1));
  EXPECT_EQ(gone[0].topic, "event.alert.hostinv.disk.gone");
  EXPECT_THAT(gone[0].text, ::testing::StartsWith("Die Festplatte /dev/sdb ("));
  EXPECT_EQ(gone[0].key, "block:sdb");
  EXPECT_TRUE(IsZero(gone[0].object)) << "it has no object any more";
  ASSERT_EQ(Call(HOSTINV_RESCAN), 0U);
  EXPECT_THAT(AlertListener::Take(), IsEmpty());
}

}  // namespace
}  // namespace hostinv
