#include "framework/common/znprov/extensions.h"

#include <map>

#include "tests/unit/framework/bus_fixture.h"
#include "tests/unit/support/temporary.h"

namespace zn::test {
namespace {

class ExtensionTest : public BusTest {
 protected:
  // Both keys must be there; those that a test does not write are empty.
  u32 Create(const std::string& settings) {
    settings_.Write(settings);
    const BusLock lock;
    return CreateExtensionObjects(*database_, *database_->FindProviderByName(u"system"));
  }
  u32 CreateFrom(std::string catalogs) {
    return Create("[ClientExtensions]\n[MessageCatalogs]\n" + catalogs);
  }
  [[nodiscard]] std::string Image(const std::string& name = "file") const {
    WriteFile(folder_ / name, "12345");
    return "ImageFile = \"" + (folder_ / name) + "\"\n";
  }
  // The properties of the objects, by what their images are called.
  [[nodiscard]] std::map<std::string, PropertySet> Objects() const {
    std::map<std::string, PropertySet> objects;
    const BusLock lock;
    for (const ObjectId& id : ObjectsOfType("KELD_Extension")) {
      const DBNode* node = database_->FindObject(id);
      const std::string path =
          ToNarrow(node->Properties().FindValue("ImageFile", ZN_TYPE_WIDESTRING)->AsWideText());
      objects[path.substr(path.rfind('/') + 1)] = node->Properties();
      EXPECT_EQ(node->CreatorId(), database_->FindProviderByName(u"system")->GetId());
      EXPECT_EQ(node->GetFlags() & OBJECT_PUBLIC_FLAGS, 0u);
    }
    return objects;
  }
  static std::string TextOf(const PropertySet& set, const char* name) {
    const Value* value = set.FindValue(name, ZN_TYPE_STRING);
    return value == nullptr ? "(none)" : std::string(value->AsText());
  }
  static u32 NumberOf(const PropertySet& set, const char* name) {
    const Value* value = set.FindValue(name, ZN_TYPE_UINT32);
    return value == nullptr ? 0xDEAD : value->AsUInt32();
  }

  TemporarySettings settings_;
  TemporaryFolder folder_;
};

TEST_F(ExtensionTest, EachListedFileIsAnObject) {
  ASSERT_EQ(CreateFrom("[MessageCatalogs.\"{AB}\".MiraSkin.2.1031]\nFlags = 5\n" + Image()), ZN_OK);
  ASSERT_EQ(Objects().size(), 1u);
  const PropertySet set = Objects().at("file");
  EXPECT_EQ(TextOf(set, "Id"), "{AB}");
  EXPECT_EQ(TextOf(set, "Skin"), "MiraSkin");
  EXPECT_EQ(NumberOf(set, "Platform"), 2u);
  EXPECT_EQ(NumberOf(set, "Locale"), 1031u);
  EXPECT_EQ(NumberOf(set, "Flags"), 5u);
  EXPECT_EQ(set.FindValue("ImageFile", ZN_TYPE_WIDESTRING)->AsWideText(), ToWide(folder_ / "file"));
  EXPECT_EQ(set.FindValue("FileSize", ZN_TYPE_UINT64)->AsUInt64(), 5u);
}

TEST_F(ExtensionTest, BothKeysAreRead) {
  ASSERT_EQ(Create("[ClientExtensions.a.s.1.1]\n" + Image("one") + "[MessageCatalogs.b.s.1.1]\n" +
                   Image("two")),
            ZN_OK);
  EXPECT_EQ(Objects().size(), 2u);
  EXPECT_EQ(NumberOf(Objects().at("one"), "Flags"), 0u) << "the default";
}

TEST_F(ExtensionTest, AMissingKeyIsToldAndTheOtherIsRead) {
  EXPECT_EQ(Create("[MessageCatalogs.b.s.1.1]\n" + Image()), ZNE_CLIENT_EXT_REG_MISSING);
  EXPECT_EQ(Objects().size(), 1u);
}

TEST_F(ExtensionTest, WithoutTheCatalogsTheExtensionsAreRead) {
  EXPECT_EQ(Create("[ClientExtensions.b.s.1.1]\n" + Image()), ZNE_CLIENT_EXT_REG_MISSING);
  EXPECT_EQ(Objects().size(), 1u);
}

TEST_F(ExtensionTest, AFileThatIsMissingHasNoObjectAndNothingIsTraced) {
  const TraceCapture traces;
  EXPECT_EQ(CreateFrom("[MessageCatalogs.b.s.1.1]\nImageFile = \"" + (folder_ / "absent") + "\"\n"),
            ZN_OK);
  EXPECT_TRUE(Objects().empty());
  EXPECT_THAT(traces.Messages(), testing::IsEmpty());
}

TEST_F(ExtensionTest, AnEntryWithoutAnImageIsPassedOver) {
  EXPECT_EQ(CreateFrom("[MessageCatalogs.b.s.1.1]\nOther = \"no image\"\n"
                       "[MessageCatalogs.b.s.1.2]\nImageFile = 7\n"
                       "[MessageCatalogs.b.s.1.3]\n" +
                       Image()),
            ZN_OK);
  EXPECT_EQ(Objects().size(), 1u);
}

TEST_F(ExtensionTest, BackslashesInAPathAreSlashes) {
  WriteFile(folder_ / "file", "x");
  std::string path = folder_ / "file";
  std::replace(path.begin(), path.end(), '/', '\\');
  EXPECT_EQ(CreateFrom("[MessageCatalogs.b.s.1.1]\nImageFile = '" + path + "'\n"), ZN_OK);
  EXPECT_EQ(ObjectsOfType("KELD_Extension").size(), 1u);
}

TEST_F(ExtensionTest, ValuesOfEveryLevelArePropertiesOfTheObjectsBelow) {
  ASSERT_EQ(CreateFrom("[MessageCatalogs.b]\nVendor = \"ours\"\nLevel = 1\nImageFile = \"x\"\n"
                       "FLAGS = 9\n"
                       "[MessageCatalogs.b.s]\nLevel = 2\n"
                       "[MessageCatalogs.b.s.1]\nLevel = 3\nThird = 3\n"
                       "[MessageCatalogs.b.s.1.1]\nLevel = 4\n" +
                       Image("one") + "[MessageCatalogs.b.s.1.2]\n" + Image("two") +
                       "[MessageCatalogs.b.t.1.2]\n" + Image("three")),
            ZN_OK);
  const auto objects = Objects();
  ASSERT_EQ(objects.size(), 3u);
  for (const char* name : {"one", "two", "three"}) {
    EXPECT_EQ(TextOf(objects.at(name), "Vendor"), "ours") << name;
    EXPECT_EQ(NumberOf(objects.at(name), "Flags"), 0u) << "a level's own value is no default";
    EXPECT_EQ(objects.at(name).Find("FLAGS"), nullptr);
  }
  EXPECT_EQ(NumberOf(objects.at("one"), "Level"), 4u) << "the later over the earlier";
  EXPECT_EQ(NumberOf(objects.at("two"), "Level"), 3u);
  EXPECT_EQ(NumberOf(objects.at("three"), "Level"), 1u);
  EXPECT_EQ(objects.at("three").Find("Third"), nullptr);
}

TEST_F(ExtensionTest, AValueOfAnotherTypeThanThePropertyCostsItselfAlone) {
  ASSERT_EQ(CreateFrom("[MessageCatalogs.b.s.1.1]\nLocale = \"text\"\nSkin = 7\nName = \"narrow\"\n"
                       "Good = 1\n" +
                       Image()),
            ZN_OK);
  const PropertySet set = Objects().at("file");
  EXPECT_EQ(NumberOf(set, "Locale"), 1u);
  EXPECT_EQ(TextOf(set, "Skin"), "s");
  EXPECT_EQ(NumberOf(set, "Good"), 1u);
}

TEST_F(ExtensionTest, ALongPlatformEndsItsLevelAlone) {
  EXPECT_EQ(
      CreateFrom("[MessageCatalogs.b.s.100.1]\n" + Image("one") + "[MessageCatalogs.b.s.20.1]\n" +
                 Image("two") + "[MessageCatalogs.b.t.1.1]\n" + Image("three")),
      ZNE_BUFFER_TOO_SMALL);
  // The names of a level come in order: 100 ends it before 20 is reached.
  EXPECT_EQ(Objects().size(), 1u);
  EXPECT_EQ(Objects().count("three"), 1u);
}

TEST_F(ExtensionTest, NamesHaveTheirLimits) {
  const std::string id(1024, 'i');
  const std::string longer(1025, 'j');
  EXPECT_EQ(CreateFrom("[MessageCatalogs." + id + ".s.99.4294967295]\n" + Image("one")), ZN_OK);
  EXPECT_EQ(NumberOf(Objects().at("one"), "Locale"), 4294967295u);
  EXPECT_EQ(CreateFrom("[MessageCatalogs." + longer + ".s.1.1]\n" + Image("two")),
            ZNE_BUFFER_TOO_SMALL);
  EXPECT_EQ(CreateFrom("[MessageCatalogs.b." + longer + ".1.1]\n" + Image("two")),
            ZNE_BUFFER_TOO_SMALL);
  EXPECT_EQ(CreateFrom("[MessageCatalogs.b.s.1.12345678901]\n" + Image("two")),
            ZNE_BUFFER_TOO_SMALL);
  EXPECT_EQ(Objects().size(), 1u);
}

TEST_F(ExtensionTest, AKeyThatCannotBeOpenedEndsTheWalk) {
  // A slash in a name separates keys for whoever opens it.
  EXPECT_EQ(CreateFrom("[MessageCatalogs.\"a/b\".s.1.1]\n" + Image("one") +
                       "[MessageCatalogs.c.s.1.1]\n" + Image("two")),
            ZNE_UNEXPECTED);
  EXPECT_TRUE(Objects().empty());
}

TEST_F(ExtensionTest, AFailedCreationIsTheResult) {
  settings_.Write("[ClientExtensions]\n[MessageCatalogs.b.s.1.1]\n" + Image());
  const BusLock lock;
  Provider& system = *database_->FindProviderByName(u"system");
  Database bare(0, {});  // without the type
  DBNode* node = nullptr;
  const u32 status = bare.CreateDBNode(&system, "KELD_Extension", 0, &node, nullptr);
  EXPECT_TRUE(ZN_FAILED(status));
  EXPECT_EQ(CreateExtensionObjects(bare, system), status);
}

TEST_F(ExtensionTest, ANameThatIsNoNumberIsZero) {
  EXPECT_EQ(CreateFrom("[MessageCatalogs.b.s.x.english]\n" + Image()), ZN_OK);
  EXPECT_EQ(NumberOf(Objects().at("file"), "Platform"), 0u);
  EXPECT_EQ(NumberOf(Objects().at("file"), "Locale"), 0u);
}

// --- what a provider offers ---

class ProviderExtensionTest : public BusTest {
 protected:
  void SetUp() override {
    BusTest::SetUp();
    provider_ = MakeProvider();
  }
  void SetTexts(const char* extension, const char* catalog) {
    const BusLock lock;
    HandleThing<Provider>(provider_)->SetExtensions(extension, catalog);
  }
  ObjectId MakeExtension(const char* type = "KELD_Extension") {
    const BusLock lock;
    DBNode* node = nullptr;
    EXPECT_EQ(database_->CreateDBNode(nullptr, type, 0, &node, nullptr), ZN_OK);
    return node->GetId().Value();
  }
  ZnHandle provider_ = nullptr;
};

TEST_F(ProviderExtensionTest, GivesItsIds) {
  SetTexts("{00000001-0002-0003-0405-060708090a0b}", "{0000000A-0002-0003-0405-060708090A0B}");
  GUID extension{};
  GUID catalog{};
  ASSERT_EQ(PrGetExtension(provider_, &extension), ZN_OK);
  ASSERT_EQ(PrGetMessageCatalog(provider_, &catalog), ZN_OK);
  EXPECT_EQ(extension, (GUID{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}));
  EXPECT_EQ(catalog, (GUID{10, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}));
  ASSERT_EQ(PrGetMessageCatalog(SystemProvider(), &catalog), ZN_OK);
  EXPECT_EQ(catalog, kSystemCatalog);
}

TEST_F(ProviderExtensionTest, ATextThatIsNoIdHasTheStatusOfItsReading) {
  GUID id{};
  EXPECT_EQ(PrGetExtension(provider_, &id), ZNE_INVALID_ARGUMENTS) << "it has none";
  SetTexts("no id", "{}");
  EXPECT_EQ(PrGetExtension(provider_, &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrGetMessageCatalog(provider_, &id), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ProviderExtensionTest, RefusesBadHandlesAndPointers) {
  GUID id{};
  const TraceCapture traces;
  EXPECT_EQ(PrGetExtension(nullptr, &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrGetExtension(provider_, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrGetMessageCatalog(database_->Handle(), &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrSetProviderExtensions(nullptr, {}, {}), ZNE_INVALID_ARGUMENTS);
  for (const char* name : {"PrGetExtension", "PrGetMessageCatalog", "PrSetProviderExtensions"}) {
    EXPECT_TRUE(traces.Has(std::string("ZnAPI:") + name + ": Invalid arguments")) << name;
  }
}

TEST_F(ProviderExtensionTest, ZeroIdsChangeNothing) {
  SetTexts("{00000001-0002-0003-0405-060708090a0b}", "kept");
  EXPECT_EQ(PrSetProviderExtensions(provider_, {}, {}), ZN_OK);
  const BusLock lock;
  EXPECT_EQ(HandleThing<Provider>(provider_)->ClientExtension().Text(),
            "{00000001-0002-0003-0405-060708090a0b}");
  EXPECT_EQ(HandleThing<Provider>(provider_)->MessageCatalog().Text(), "kept");
}

TEST_F(ProviderExtensionTest, TakesTheIdsOfExtensionObjects) {
  const ObjectId one = MakeExtension();
  {
    const BusLock lock;
    TypeObject* type = nullptr;
    ASSERT_EQ(
        database_->Types().CreateTypeInstance("MyExtension", nullptr, {"KELD_Extension"}, 0, &type),
        ZN_OK);
  }
  const ObjectId two = MakeExtension("MyExtension");
  ASSERT_EQ(PrSetProviderExtensions(provider_, one, two), ZN_OK);
  GUID id{};
  ASSERT_EQ(PrGetExtension(provider_, &id), ZN_OK);
  EXPECT_EQ(id, one);
  ASSERT_EQ(PrGetMessageCatalog(provider_, &id), ZN_OK);
  EXPECT_EQ(id, two);
  ASSERT_EQ(PrSetProviderExtensions(provider_, {}, one), ZN_OK);
  ASSERT_EQ(PrGetExtension(provider_, &id), ZN_OK);
  EXPECT_EQ(id, one) << "the zero id leaves it";
}

TEST_F(ProviderExtensionTest, RefusesObjectsThatAreNoneOrOfAnotherType) {
  const ObjectId good = MakeExtension();
  const ObjectId other = MakeObject(provider_);
  const ObjectId nobody{1, 2, 3, {4}};
  EXPECT_EQ(PrSetProviderExtensions(provider_, nobody, {}), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(PrSetProviderExtensions(provider_, good, nobody), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(PrSetProviderExtensions(provider_, other, {}), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PrSetProviderExtensions(provider_, good, other), ZNE_INVALID_ARGUMENTS);
  const BusLock lock;
  EXPECT_TRUE(HandleThing<Provider>(provider_)->ClientExtension().IsEmpty());
}

}  // namespace
}  // namespace zn::test
