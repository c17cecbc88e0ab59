// The message catalogs that are shipped: each in two languages, with the same messages and the same
// places in them.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/common/fmtstr/template.h"
#include "framework/common/zni18n/catalog.h"
#include "support/common/status.h"
#include "support/common/text.h"

namespace zn {
namespace {

namespace fs = std::filesystem;

// Number and text of each line, the lines read as plainly as can be.
std::map<u32, std::string> ReadCatalog(const fs::path& path) {
  std::map<u32, std::string> messages;
  std::ifstream file(path);
  EXPECT_TRUE(file.good()) << path;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    const size_t equals = line.find(" = ");
    EXPECT_NE(equals, std::string::npos) << path << ": " << line;
    EXPECT_LE(line.size(), 1022u) << path << ": " << line;
    const auto number = static_cast<u32>(std::stoul(line.substr(0, equals), nullptr, 16));
    EXPECT_TRUE(messages.emplace(number, line.substr(equals + 3)).second)
        << path << " has twice " << line;
  }
  return messages;
}

std::multiset<u32> PlacesOf(const std::string& text) {
  const std::u16string wide = ToWide(text);
  std::multiset<u32> places;
  Specifier place;
  size_t from = 0;
  SpecifierScan scan = FindSpecifier(wide, from, &place);
  for (; scan == SpecifierScan::kFound; scan = FindSpecifier(wide, from, &place)) {
    places.insert(place.index);
    from = place.end;
  }
  EXPECT_EQ(scan, SpecifierScan::kNone) << "malformed: " << text;
  return places;
}

struct Shipped {
  const char* folder;
  const char* name;
};
constexpr Shipped kShipped[] = {{"catalogs", "znmira"},
                                {"providers/hostinv/catalogs", "hostinv"},
                                {"providers/example/catalogs", "kettle"}};

fs::path PathOf(const Shipped& catalog, const char* language) {
  return fs::path(ZN_SOURCE_DIR) / catalog.folder / (std::string(catalog.name) + language);
}

TEST(ShippedCatalogs, HaveTheSameMessagesAndPlacesInBothLanguages) {
  for (const Shipped& catalog : kShipped) {
    SCOPED_TRACE(catalog.name);
    const auto english = ReadCatalog(PathOf(catalog, ".en.txt"));
    const auto german = ReadCatalog(PathOf(catalog, ".de.txt"));
    ASSERT_FALSE(english.empty());
    ASSERT_EQ(english.size(), german.size());
    for (const auto& [number, text] : english) {
      SCOPED_TRACE(text);
      ASSERT_EQ(german.count(number), 1u);
      EXPECT_FALSE(german.at(number).empty());
      EXPECT_EQ(PlacesOf(text), PlacesOf(german.at(number)));
      EXPECT_EQ(ToWellFormed(german.at(number)), german.at(number));
    }
  }
}

TEST(ShippedCatalogs, AreReadByTheLibraryAsTheyStand) {
  for (const Shipped& catalog : kShipped) {
    for (const char* language : {".en.txt", ".de.txt"}) {
      const fs::path path = PathOf(catalog, language);
      SCOPED_TRACE(path.string());
      for (const auto& [number, text] : ReadCatalog(path)) {
        std::u16string found;
        EXPECT_EQ(ReadMessage(ToWide(path.string()), number, &found), ZN_OK);
        EXPECT_EQ(ToNarrow(found), text);
      }
    }
  }
}

TEST(ShippedCatalogs, TheBusHasATextForEveryMessageOfItsTable) {
  const auto english = ReadCatalog(PathOf(kShipped[0], ".en.txt"));
  for (u32 i = 0; i < kStatusRowCount; ++i) {
    const StatusRow& row = StatusRows()[i];
    ASSERT_EQ(english.count(row.code), 1u) << row.text;
    EXPECT_EQ(PlacesOf(english.at(row.code)), PlacesOf(row.text));
  }
}

// What a document of the service declares: each text with its number in the catalog of the bus.
std::map<u32, std::string> DeclaredTexts() {
  std::ifstream file(fs::path(ZN_SOURCE_DIR) / "schemas/znsvc_alerts.xml");
  const std::string document((std::istreambuf_iterator<char>(file)), {});
  const std::regex text(R"(>([^<;]*);(\d+);'([^']*)'<)");
  std::map<u32, std::string> texts;
  for (std::sregex_iterator at(document.begin(), document.end(), text), end; at != end; ++at) {
    EXPECT_EQ((*at)[1], "{8BCC2DF0-62CF-11D4-80C5-00C04FBCEFDD}");
    texts[static_cast<u32>(std::stoul((*at)[2]))] = (*at)[3];
  }
  return texts;
}

TEST(ShippedCatalogs, TheBusHasATextForEveryAlertOfTheServicesDocument) {
  const auto english = ReadCatalog(PathOf(kShipped[0], ".en.txt"));
  const auto declared = DeclaredTexts();
  EXPECT_EQ(declared.size(), 5u);
  for (const auto& [number, text] : declared) {
    ASSERT_EQ(english.count(number), 1u) << text;
    EXPECT_EQ(english.at(number), text);
  }
  EXPECT_EQ(english.size(), kStatusRowCount + declared.size()) << "and nothing else";
}

TEST(ShippedCatalogs, NoneIsForgottenHere) {
  std::set<std::string> known;
  for (const Shipped& catalog : kShipped) known.insert(catalog.name);
  std::set<std::string> present;
  for (const char* top : {"catalogs", "providers"}) {
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(ZN_SOURCE_DIR) / top)) {
      const std::string file = entry.path().filename();
      if (file.ends_with(".en.txt")) present.insert(file.substr(0, file.size() - 7));
    }
  }
  EXPECT_EQ(present, known);
}

}  // namespace
}  // namespace zn
