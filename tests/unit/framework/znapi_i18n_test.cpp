#include <algorithm>
#include <memory>
#include <string>

#include "framework/common/zni18n/localize.h"
#include "tests/unit/framework/bus_fixture.h"
#include "tests/unit/framework/fixture.h"
#include "tests/unit/support/temporary.h"
#include "zn/i18n.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

constexpr GUID kOwnCatalog = {0xABCDEF01, 0x2345, 0x6789, {0xAB, 0xCD, 1, 2, 3, 4, 5, 6}};
constexpr const char* kOwnCatalogText = "{abcdef01-2345-6789-abcd-010203040506}";
constexpr u32 kGerman = 0x407;

// Takes a text out of its block.
std::u16string Take(ZnWChar* block) {
  std::u16string text(block == nullptr ? u"(null)" : block);
  ZnFree(block);
  return text;
}

class LocalizedTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    AddCatalog(kSystemCatalogText, 0x409,
               "1=Hello\n2=%2 and %1 of %3\n3=A percent: 100%%\n4=\n"
               "5=Half %x of it\n6=<%1>\n");
    AddCatalog(kSystemCatalogText, kGerman, "1=Hallo\n2=%1 und %2 von %3\n");
    AddCatalog(kOwnCatalogText, 0x409, "1=own\n7=100%% of %1\n");
    AddCatalog(kOwnCatalogText, kGerman, "7=100%% von %1\n");
  }
  void AddCatalog(std::string_view id, u32 locale, const std::string& text,
                  const char* skin = "MiraSkin") {
    const std::string path = folder_ / (std::string(id) + skin + std::to_string(locale));
    WriteFile(path, text);
    const BusLock lock;
    DBNode* node = nullptr;
    ASSERT_EQ(database_->CreateDBNode(nullptr, "KELD_Extension", 0, &node, nullptr), ZN_OK);
    PropertySet set;
    set.Put("Id", Value::Text(id));
    set.Put("Locale", Value::UInt32(locale));
    set.Put("Platform", Value::UInt32(1));
    set.Put("Skin", Value::Text(skin));
    set.Put("ImageFile", Value::WideText(ToWide(path)));
    ASSERT_EQ(node->SetProperties(set), ZN_OK);
  }
  static I18nString Message(const GUID& catalog, u32 number) {
    return {catalog, number, const_cast<char*>("default")};
  }
  std::u16string Get(u32 message, u32 locale, const char* skin = nullptr) {
    ZnWChar* out = nullptr;
    status_ = i18nGetLocalizedString(nullptr, nullptr, message, locale, skin, 0, &out);
    return Take(out);
  }
  std::u16string Format(const I18nFormatString& fmt, u32 locale) {
    ZnWChar* out = nullptr;
    status_ = ZnMakeLocalizedFormattedString(nullptr, fmt, locale, nullptr, 0, &out);
    return Take(out);
  }

  TemporaryFolder folder_;
  u32 status_ = ZN_OK;
};

TEST_F(LocalizedTest, IsTheTextOfTheCatalogInTheLanguage) {
  EXPECT_EQ(Get(1, 0x409), u"Hello");
  EXPECT_EQ(Get(1, kGerman), u"Hallo");
  EXPECT_EQ(Get(4, 0x409), u"");
  EXPECT_EQ(status_, ZN_OK);
}

TEST_F(LocalizedTest, LocaleZeroIsEnglishAndNoSkinIsTheDefault) {
  AddCatalog(kSystemCatalogText, 0x409, "1=Ahoy\n", "Pirate");
  EXPECT_EQ(Get(1, 0), u"Hello");
  EXPECT_EQ(Get(1, 0, "MiraSkin"), u"Hello");
  EXPECT_EQ(Get(1, 0, "Pirate"), u"Ahoy");
}

TEST_F(LocalizedTest, ThereIsNoFallback) {
  EXPECT_EQ(Get(3, kGerman), u"(null)");
  EXPECT_EQ(status_, ZNE_THING_NOT_FOUND);
  Get(1, 0x40C);
  EXPECT_EQ(status_, ZNE_CATALOG_NOT_PRESENT);
  Get(1, 0x409, "Pirate");
  EXPECT_EQ(status_, ZNE_CATALOG_NOT_PRESENT);
}

TEST_F(LocalizedTest, AProviderNamesItsCatalog) {
  const ZnHandle provider = MakeProvider();
  ZnWChar* out = nullptr;
  EXPECT_EQ(i18nGetLocalizedString(nullptr, provider, 1, 0, nullptr, 0, &out),
            ZNE_INVALID_ARGUMENTS)
      << "it has none";
  {
    const BusLock lock;
    HandleThing<Provider>(provider)->SetExtensions({}, kOwnCatalogText);
  }
  ASSERT_EQ(i18nGetLocalizedString(nullptr, provider, 1, 0, nullptr, 0, &out), ZN_OK);
  EXPECT_EQ(Take(out), u"own");
}

TEST_F(LocalizedTest, WithoutAProviderSystemThereIsNone) {
  const BusLock lock;
  Database bare(DB_AUTHENTICATED, {});
  ZnWChar* out = nullptr;
  EXPECT_EQ(i18nGetLocalizedString(bare.Handle(), nullptr, 1, 0, nullptr, 0, &out),
            ZNE_PROVIDER_REG_NO_PROVIDERS);
}

TEST_F(LocalizedTest, ARecordNamesItsCatalogItself) {
  ZnWChar* out = nullptr;
  ASSERT_EQ(i18nGetLocalizedStringFromi18n(nullptr, Message(kOwnCatalog, 1), 0, nullptr, 0, &out),
            ZN_OK);
  EXPECT_EQ(Take(out), u"own");
  out = nullptr;
  EXPECT_EQ(i18nGetLocalizedStringFromi18n(nullptr, Message(kOwnCatalog, 9), 0, nullptr, 0, &out),
            ZNE_THING_NOT_FOUND);
  EXPECT_EQ(i18nGetLocalizedStringFromi18n(nullptr, Message(GUID{}, 1), 0, nullptr, 0, &out),
            ZNE_CATALOG_NOT_PRESENT);
  EXPECT_EQ(out, nullptr) << "the default name is for the caller to fall back to";
}

TEST_F(LocalizedTest, PutsTheInsertionsInTheOrderOfTheLanguage) {
  const Propset insertions;
  I18nFormatString fmt{kSystemCatalog, 2, const_cast<char*>("default"), insertions.Get()};
  ASSERT_EQ(I18nAddInsertionString(&fmt, 1, "\xC3\xA4pple"), ZN_OK);
  ASSERT_EQ(I18nAddInsertionWideString(&fmt, 2, u"pear"), ZN_OK);
  ASSERT_EQ(I18nAddInsertionString(&fmt, 3, "three"), ZN_OK);
  EXPECT_EQ(Format(fmt, 0), u"pear and \u00e4pple of three");
  EXPECT_EQ(Format(fmt, kGerman), u"\u00e4pple und pear von three");
}

TEST_F(LocalizedTest, AMessageWithoutPlacesNeedsNoInsertions) {
  const I18nFormatString fmt{kSystemCatalog, 3, nullptr, nullptr};
  EXPECT_EQ(Format(fmt, 0), u"A percent: 100%");
}

TEST_F(LocalizedTest, AMalformedTemplateEndsBehindItsLastGoodPlace) {
  const I18nFormatString fmt{kSystemCatalog, 5, nullptr, nullptr};
  EXPECT_EQ(Format(fmt, 0), u"");
  EXPECT_EQ(status_, ZN_OK);
}

TEST_F(LocalizedTest, AMissingInsertionIsAFailure) {
  const Propset insertions;
  const I18nFormatString fmt{kSystemCatalog, 6, nullptr, insertions.Get()};
  EXPECT_EQ(Format(fmt, 0), u"(null)");
  EXPECT_EQ(status_, ZNE_PROPERTY_NOT_FOUND);
  const I18nFormatString none{kSystemCatalog, 6, nullptr, nullptr};
  Format(none, 0);
  EXPECT_EQ(status_, ZNE_INVALID_ARGUMENTS);
}

TEST_F(LocalizedTest, AnInsertionThatIsAMessageIsItsTextUnexpanded) {
  const Propset insertions;
  I18nFormatString fmt{kSystemCatalog, 6, nullptr, insertions.Get()};
  const I18nString nested = Message(kOwnCatalog, 7);
  ASSERT_EQ(I18nAddInsertionI18n(&fmt, 1, &nested), ZN_OK);
  EXPECT_EQ(Format(fmt, 0), u"<100% of %1>");
  AddCatalog(kSystemCatalogText, kGerman, "unused\n", "Other");
  const I18nFormatString german{kOwnCatalog, 7, nullptr, insertions.Get()};
  EXPECT_EQ(Format(german, kGerman), u"100% von 100% von %1");
}

TEST_F(LocalizedTest, AnInsertionWhoseMessageIsMissingIsAFailure) {
  const Propset insertions;
  I18nFormatString fmt{kSystemCatalog, 6, nullptr, insertions.Get()};
  const I18nString nested = Message(kOwnCatalog, 99);
  ASSERT_EQ(I18nAddInsertionI18n(&fmt, 1, &nested), ZN_OK);
  Format(fmt, 0);
  EXPECT_EQ(status_, ZNE_THING_NOT_FOUND);
}

TEST_F(LocalizedTest, AnInsertionOfAnotherTypeIsAFailure) {
  const Propset insertions;
  insertions.Set().Put("i1", Value::UInt32(1));
  const I18nFormatString fmt{kSystemCatalog, 6, nullptr, insertions.Get()};
  Format(fmt, 0);
  EXPECT_EQ(status_, ZNE_UNEXPECTED);
}

// The three calls with a good message, each with its name.
struct Localizer {
  const char* name;
  std::function<u32(ZnHandle hDb, const char* skin, u32 reserved, ZnWChar** out)> call;
};
std::vector<Localizer> Localizers() {
  return {{"i18nGetLocalizedString",
           [](ZnHandle hDb, const char* skin, u32 reserved, ZnWChar** out) {
             return i18nGetLocalizedString(hDb, nullptr, 1, 0, skin, reserved, out);
           }},
          {"i18nGetLocalizedStringFromi18n",
           [](ZnHandle hDb, const char* skin, u32 reserved, ZnWChar** out) {
             return i18nGetLocalizedStringFromi18n(hDb, {kSystemCatalog, 1, nullptr}, 0, skin,
                                                   reserved, out);
           }},
          {"ZnMakeLocalizedFormattedString",
           [](ZnHandle hDb, const char* skin, u32 reserved, ZnWChar** out) {
             return ZnMakeLocalizedFormattedString(hDb, {kSystemCatalog, 1, nullptr, nullptr}, 0,
                                                   skin, reserved, out);
           }}};
}

TEST_F(LocalizedTest, EveryCallRefusesWhatIsWrongAndTracesIt) {
  const std::string longest(256, 'x');
  for (const Localizer& f : Localizers()) {
    SCOPED_TRACE(f.name);
    ZnWChar* out = nullptr;
    const auto refused = [&](ZnHandle hDb, const char* skin, u32 reserved, ZnWChar** result,
                             const char* why, u32 status = ZNE_INVALID_ARGUMENTS) {
      const TraceCapture traces;
      EXPECT_EQ(f.call(hDb, skin, reserved, result), status);
      EXPECT_TRUE(traces.Has(std::string("ZnAPI:") + f.name + ": " + why)) << why;
    };
    refused(SystemProvider(), nullptr, 0, &out, "Invalid arguments");
    refused(nullptr, nullptr, 0, nullptr, "Invalid arguments");
    refused(nullptr, nullptr, 1, &out, "Invalid arguments");
    refused(nullptr, (longest + "x").c_str(), 0, &out, "Invalid arguments");
    EXPECT_EQ(f.call(nullptr, longest.c_str(), 0, &out), ZNE_CATALOG_NOT_PRESENT);
    {
      const BusLock lock;
      SetSystemDatabase(nullptr);
      refused(nullptr, nullptr, 0, &out, "Invalid database");
      SetSystemDatabase(database_);
      database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
      refused(nullptr, nullptr, 0, &out, "DB auth failed", ZNW_SHMEM_LOGIN_FAILED);
      database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
    }
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(f.call(nullptr, nullptr, 0, &out), ZN_OK);
    EXPECT_EQ(Take(out), u"Hello");
  }
}

TEST_F(LocalizedTest, AProviderHandleOfAnotherKindIsRefused) {
  ZnWChar* out = nullptr;
  const TraceCapture traces;
  EXPECT_EQ(i18nGetLocalizedString(nullptr, database_->Handle(), 1, 0, nullptr, 0, &out),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:i18nGetLocalizedString: Invalid arguments"));
}

// A client copy: its owner fetches the texts, with the bus lock released.
class RemoteCatalogTest : public LocalizedTest {
 protected:
  void MakeCopy(bool canFetch) {
    DatabaseCallbacks callbacks;
    callbacks.forwardRequest = [](PropertySet&, PropertySet* reply, void*) -> u32 {
      reply->Put("Objects", Value::Array(ZN_TYPE_OBJECT, {}));  // the copy has them all
      return ZN_OK;
    };
    callbacks.context = this;
    if (canFetch) {
      callbacks.fetchMessage = [](const MessageRequest& request, std::u16string* text,
                                  void* context) {
        auto& test = *static_cast<RemoteCatalogTest*>(context);
        EXPECT_FALSE(fastLock.HeldByThisThread());
        test.requests_.push_back(request);
        *text = test.answer_;
        return test.fetchStatus_;
      };
    }
    const BusLock lock;
    copy_ = std::make_unique<Database>(DB_AUTHENTICATED, callbacks);
    ASSERT_EQ(RegisterBaseObjectTypes(*copy_), ZN_OK);
    ASSERT_EQ(RegisterMissingSystemTypes(*copy_), ZN_OK);
    std::vector<ObjectId> ids;
    ASSERT_EQ(database_->GetObjectsOfType("KELD_Extension", &ids), ZN_OK);
    for (const ObjectId& id : ids) {
      PropertySet form;
      database_->MarshalObject(*database_->FindObject(id), &form);
      ASSERT_EQ(copy_->InstallObject(form), ZN_OK);
    }
  }
  void TearDown() override {
    {
      const BusLock lock;
      copy_.reset();
    }
    LocalizedTest::TearDown();
  }

  std::unique_ptr<Database> copy_;
  std::vector<MessageRequest> requests_;
  std::u16string answer_ = u"far <%1>";
  u32 fetchStatus_ = ZN_OK;
};

TEST_F(RemoteCatalogTest, FetchesTheTextWithTheLockReleased) {
  MakeCopy(true);
  ZnWChar* out = nullptr;
  ASSERT_EQ(i18nGetLocalizedStringFromi18n(copy_->Handle(), Message(kOwnCatalog, 7), kGerman,
                                           nullptr, 0, &out),
            ZN_OK);
  EXPECT_EQ(Take(out), u"far <%1>");
  ASSERT_EQ(requests_.size(), 1u);
  EXPECT_EQ(requests_[0].key.catalog, kOwnCatalog);
  EXPECT_EQ(requests_[0].key.locale, kGerman);
  EXPECT_EQ(requests_[0].key.skin, "MiraSkin");
  EXPECT_EQ(requests_[0].key.platform, 1u);
  EXPECT_EQ(requests_[0].message, 7u);
  EXPECT_EQ(requests_[0].path, ToWide(folder_ / (std::string(kOwnCatalogText) + "MiraSkin1031")));
}

TEST_F(RemoteCatalogTest, FetchesTheMessageAndThoseInserted) {
  MakeCopy(true);
  const Propset insertions;
  I18nFormatString fmt{kOwnCatalog, 7, nullptr, insertions.Get()};
  const I18nString nested = Message(kSystemCatalog, 1);
  ASSERT_EQ(I18nAddInsertionI18n(&fmt, 1, &nested), ZN_OK);
  ZnWChar* out = nullptr;
  ASSERT_EQ(ZnMakeLocalizedFormattedString(copy_->Handle(), fmt, 0, nullptr, 0, &out), ZN_OK);
  EXPECT_EQ(Take(out), u"far <far <%1>>");
  ASSERT_EQ(requests_.size(), 2u);
  EXPECT_EQ(requests_[1].key.catalog, kSystemCatalog);
}

TEST_F(RemoteCatalogTest, AFailureOfTheFetchIsTheAnswer) {
  MakeCopy(true);
  fetchStatus_ = ZNE_CLIENT_NOT_AUTHORIZED;
  ZnWChar* out = nullptr;
  EXPECT_EQ(
      i18nGetLocalizedStringFromi18n(copy_->Handle(), Message(kOwnCatalog, 7), 0, nullptr, 0, &out),
      ZNE_CLIENT_NOT_AUTHORIZED);
  EXPECT_EQ(out, nullptr);
}

TEST_F(RemoteCatalogTest, WithoutAWayToTheServerThereIsNoText) {
  MakeCopy(false);
  ZnWChar* out = nullptr;
  EXPECT_EQ(
      i18nGetLocalizedStringFromi18n(copy_->Handle(), Message(kOwnCatalog, 7), 0, nullptr, 0, &out),
      ZNE_NOT_IMPLEMENTED);
}

}  // namespace
}  // namespace zn::test
