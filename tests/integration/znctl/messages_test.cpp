// Alerts and messages end to end, with the example provider that raises an alert every few seconds
// and the catalogs that are shipped.
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console_process.h"
#include "text.h"

namespace zn::ctl {
namespace {

using Json = nlohmann::ordered_json;
using testing::HasSubstr;
using testing::Not;

class ConsoleMessages : public testing::Test {
 protected:
  ConsoleMessages() { WriteSettings(true); }

  void WriteSettings(bool withCatalogs) {
    std::string text = "InstallDir = \"" + place_.File("") +
                       "\"\n[ProviderGroup]\n[Providers.kettle]\nImageFile = \"" KETTLE_LIBRARY
                       "\"\nMessageCatalog = \"{A4E1B7C2-5D38-4F60-9B0E-7C1D2E3F4A58}\"\n";
    if (withCatalogs) {
      text += Catalog("{A4E1B7C2-5D38-4F60-9B0E-7C1D2E3F4A58}",
                      ZN_SOURCES "/providers/example/catalogs/kettle");
      text += Catalog("{8BCC2DF0-62CF-11D4-80C5-00C04FBCEFDD}", ZN_SOURCES "/catalogs/znmira");
    }
    place_.Write("settings.toml", text);
  }
  static std::string Catalog(const std::string& id, const std::string& file) {
    return "[MessageCatalogs.\"" + id + "\".MiraSkin.1]\n1033 = { ImageFile = \"" + file +
           ".en.txt\" }\n1031 = { ImageFile = \"" + file + ".de.txt\" }\n";
  }
  Finished Run(std::vector<std::string> arguments) { return place_.Znctl(std::move(arguments)); }
  Json JsonOf(std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    const Finished finished = Run(std::move(arguments));
    EXPECT_EQ(finished.code, 0) << finished.err;
    return Json::parse(finished.out, nullptr, false);
  }

  Workplace place_;
};

TEST_F(ConsoleMessages, ListsThePublishedAlerts) {
  const Finished finished = Run({"alerts", "--locale", "en"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out, HasSubstr("event.alert.example.kettle.boils"));
  EXPECT_THAT(finished.out, HasSubstr("Kettle boils"));
  EXPECT_THAT(finished.out, HasSubstr("event.alert.keld.server.start"));
  EXPECT_THAT(finished.out, HasSubstr("3 warning"));
  EXPECT_THAT(Run({"alerts", "--locale", "de"}).out, HasSubstr("Der Wasserkocher kocht"));
}

TEST_F(ConsoleMessages, TakesTheLanguageOfTheEnvironment) {
  Invocation run;
  run.arguments = {"alerts"};
  run.environment = {{"LC_ALL", "de_DE.UTF-8"}};
  EXPECT_THAT(place_.Do(run).out, HasSubstr("Der Wasserkocher kocht"));
}

TEST_F(ConsoleMessages, ShowsOneAlertInFull) {
  const Finished finished =
      Run({"alerts", "event.alert.example.kettle.boils", "--locale", "de-AT"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  for (const char* text : {"4 information", "Bei %2 Grad kocht der Wasserkocher (Ort: %1).",
                           "Kochen Sie Tee.", "kettle"}) {
    EXPECT_THAT(finished.out, HasSubstr(text));
  }
  const Finished unknown = Run({"alerts", "event.alert.nobody"});
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.err, HasSubstr("ZNE_ALERT_OBJECT_NOT_FOUND"));
}

TEST_F(ConsoleMessages, AlertsHaveAStableJson) {
  const Json json = JsonOf({"alerts", "event.alert.example.kettle.boils", "--locale", "de"});
  EXPECT_EQ(json["schema"], 1);
  EXPECT_EQ(json["verb"], "alerts");
  EXPECT_EQ(json["locale"], 1031);
  ASSERT_EQ(json["alerts"].size(), 1u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : json["alerts"][0].items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"topic", "severity", "flag", "friendlyName", "message",
                                            "classification", "description", "recommendedAction",
                                            "provider", "userProperties", "object"}));
  EXPECT_EQ(json["alerts"][0]["recommendedAction"], "Kochen Sie Tee.");
}

TEST_F(ConsoleMessages, FollowsRaisedAlertsInGerman) {
  const Finished finished = Run({"alerts", "--follow", "--count", "1", "--locale", "de"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out, HasSubstr("4 information  Der Wasserkocher kocht"));
  EXPECT_THAT(finished.out, HasSubstr("Bei 100 Grad kocht der Wasserkocher (Ort: kitchen)."));
  EXPECT_THAT(finished.out, HasSubstr("Kochen Sie Tee."));
  EXPECT_THAT(finished.out, HasSubstr("event.alert.example.kettle.boils  by kettle"));
}

TEST_F(ConsoleMessages, FollowsInJsonOneLineEach) {
  const Finished finished = Run(
      {"alerts", "--follow", "event.alert.example", "--count", "2", "--json", "--locale", "en"});
  ASSERT_EQ(finished.code, 0) << finished.err;
  std::istringstream stream(finished.out);
  std::vector<Json> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0]["verb"], "alerts");
  EXPECT_EQ(lines[0]["message"], "The kettle in the kitchen boils at 100 degrees.");
  EXPECT_EQ(lines[0]["provider"], "kettle");
  EXPECT_FALSE(lines[0]["computer"].get<std::string>().empty());
  EXPECT_NE(lines[0]["id"], lines[1]["id"]);
}

TEST_F(ConsoleMessages, WithoutACatalogTheOwnTextsAreShown) {
  WriteSettings(false);
  const Finished finished = Run({"alerts", "--follow", "--count", "1", "--locale", "de"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out, HasSubstr("The kettle in the kitchen boils at 100 degrees."));
  EXPECT_THAT(finished.out, HasSubstr("Make tea."));
  EXPECT_THAT(Run({"messages"}).out, HasSubstr("no message catalogs are known"));
}

TEST_F(ConsoleMessages, FollowingEndsInTime) {
  const Finished finished = Run({"alerts", "--follow", "event.alert.nobody", "--for", "0"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(Run({"alerts", "--for", "1"}).code, 2) << "nothing to wait for";
}

TEST_F(ConsoleMessages, ListsTheCatalogs) {
  const Finished finished = Run({"messages"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  for (const char* text : {"kettle", "system", "de-DE", "en-US", "a4e1b7c2", "MiraSkin"}) {
    EXPECT_THAT(finished.out, HasSubstr(text));
  }
  const Json json = JsonOf({"messages"});
  ASSERT_EQ(json["catalogs"].size(), 4u);
  EXPECT_EQ(json["catalogs"][0]["catalog"], "{a4e1b7c2-5d38-4f60-9b0e-7c1d2e3f4a58}");
  EXPECT_EQ(json["catalogs"][0]["providers"], Json::array({"kettle"}));
  EXPECT_EQ(json["catalogs"][0]["locale"], 1031);
  EXPECT_EQ(json["catalogs"][0]["language"], "de-DE");
}

TEST_F(ConsoleMessages, ShowsTheTextsOfACatalog) {
  const Finished german = Run({"messages", "kettle", "--locale", "de"});
  EXPECT_EQ(german.code, 0) << german.err;
  EXPECT_THAT(german.out, HasSubstr("0x00000004  Kochen Sie Tee."));
  const Finished byId = Run({"messages", "{8bcc2df0", "--locale", "en"});
  EXPECT_THAT(byId.out, HasSubstr("0x41220001  Server started successfully."));
  const Json json = JsonOf({"messages", "kettle", "--locale", "en"});
  ASSERT_EQ(json["messages"].size(), 4u);
  EXPECT_EQ(json["messages"][3]["message"], 4);
  EXPECT_EQ(json["messages"][3]["text"], "Make tea.");
}

TEST_F(ConsoleMessages, ShowsOneMessageBare) {
  EXPECT_EQ(Run({"messages", "system", "0x41220001", "--locale", "1031"}).out,
            "Der Server wurde erfolgreich gestartet.\n");
  EXPECT_EQ(Run({"messages", "kettle", "4", "--locale", "0x409"}).out, "Make tea.\n");
}

TEST_F(ConsoleMessages, ShowsTheMessagesOfAnObjectInTheLanguageAskedFor) {
  const char* alert = "event.alert.example.kettle.boils";
  EXPECT_THAT(Run({"show", alert, "--locale", "de"}).out, HasSubstr("Der Wasserkocher kocht"));
  EXPECT_THAT(Run({"show", alert, "--locale", "en"}).out, HasSubstr("Kettle boils"));
  EXPECT_THAT(Run({"get", alert, "GenericAlertPropset", "--locale", "de"}).out,
              HasSubstr("Kochen Sie Tee."));
  const Json json = JsonOf({"get", alert, "GenericAlertPropset", "--locale", "de"});
  const Json& message = json["value"]["RecommendedAction"]["value"];
  EXPECT_EQ(message["text"], "Kochen Sie Tee.");
  EXPECT_EQ(message["message"], 4) << "beside what the bus holds";
  WriteSettings(false);
  const Json own = JsonOf({"get", alert, "GenericAlertPropset", "--locale", "de"});
  EXPECT_EQ(own["value"]["RecommendedAction"]["value"]["text"], "Make tea.");
}

TEST_F(ConsoleMessages, SaysWhatIsNotThere) {
  struct Case {
    std::vector<std::string> arguments;
    int code;
    const char* text;
  };
  const Case cases[] = {
      {{"messages", "nobody"}, 1, "ZNE_CATALOG_NOT_PRESENT"},
      {{"messages", "kettle", "--locale", "fr"}, 1, "it is there in: de-DE, en-US"},
      {{"messages", "kettle", "99"}, 1, "ZNE_THING_NOT_FOUND"},
      {{"messages", "kettle", "nine"}, 2, "no message number"},
      {{"messages", "kettle", "--locale", "xx"}, 2, "there is no locale"},
      {{"messages", "--locale", "xx"}, 2, "there is no locale"},
      {{"alerts", "--locale", "0"}, 2, "there is no locale"},
      {{"show", "event.alert.example.kettle.boils", "--locale", "xx"}, 2, "there is no locale"},
      {{"alerts", "--follow", "--count", "0"}, 2, "--count: give 1 or more"},
      {{"alerts", "--follow", "--for", "nan"}, 2, "--for: give a number of seconds, 0 or more"},
      {{"watch", "--for", "1e300"}, 2, "--for: give a number of seconds, 0 or more"},
      {{"watch", "--count", "0"}, 2, "--count: give 1 or more"},
      {{"tree", "--depth", "0"}, 2, "--depth: give 1 or more"},
  };
  for (const Case& c : cases) {
    const Finished finished = Run(c.arguments);
    SCOPED_TRACE(finished.err);
    EXPECT_EQ(finished.code, c.code);
    EXPECT_THAT(finished.err, HasSubstr(c.text));
    EXPECT_EQ(finished.out, "");
  }
}

TEST_F(ConsoleMessages, FitsIntoEightyColumns) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"alerts", "--locale", "de"},
                                             {"messages"},
                                             {"messages", "system", "--locale", "de"},
                                             {"alerts", "--help"},
                                             {"messages", "--help"}}) {
    Invocation run;
    run.arguments = arguments;
    run.environment = {{"COLUMNS", "80"}};
    const Finished finished = place_.Do(run);
    EXPECT_EQ(finished.code, 0) << finished.err;
    std::istringstream stream(finished.out);
    for (std::string line; std::getline(stream, line);) {
      EXPECT_LE(DisplayWidth(line), 80u) << line;
    }
  }
}

TEST_F(ConsoleMessages, AlertsAndFilesAreCalledByWhatTheyAre) {
  const Finished all = Run({"list", "--all"});
  EXPECT_THAT(all.out, HasSubstr("/event.alert.example.kettle.boils"));
  EXPECT_THAT(all.out, HasSubstr("/kettle.de.txt"));
  const Finished shown = Run({"tree"});
  EXPECT_THAT(shown.out, Not(HasSubstr("event.alert"))) << "not for display";
  EXPECT_EQ(Run({"show", "event.alert.example.kettle.boils"}).code, 0);
}

}  // namespace
}  // namespace zn::ctl
