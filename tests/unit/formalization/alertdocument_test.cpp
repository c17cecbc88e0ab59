#include "framework/common/znxml_alinfo/alinfo.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "tests/unit/formalization/documents.h"

namespace zn::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

const auto kDatabase = reinterpret_cast<ZnHandle>(std::uintptr_t{0x4711000});  // handed through

std::string Text(const char* element, int number, const std::string& text) {
  return std::string("<") + element + ">" + kGuidText + ";" + std::to_string(number) + ";'" + text +
         "'</" + element + ">";
}

std::string Texts() {
  return Text("MSG", 1, "The disk %1 is full.") + Text("F_CLASS_NAME", 2, "Storage") +
         Text("F_ALERT_NAME", 3, "Disk full") + Text("DESC", 4, "No space is left.") +
         Text("REC_ACTION", 5, "Delete something.");
}

std::string Alert(const std::string& topic, const std::string& attributes = {},
                  const std::string& texts = Texts(), const std::string& properties = {}) {
  return "<ALERT_TYPE Topic=\"" + topic + "\" " + attributes + ">\n<ALERT_PARAM>" + texts +
         "\n<PROPSET>" + properties + "</PROPSET></ALERT_PARAM></ALERT_TYPE>\n";
}

// What has been published, copied out of the descriptors.
struct Published {
  std::string topic;
  u32 flag;
  u32 severity;
  std::vector<std::string> texts;
  std::vector<u32> messages;
  u32 properties;
};

class AlertDocumentTest : public testing::Test {
 protected:
  u32 Read(const std::string& text) {
    return ReadAlertTypesFromMemory(kDatabase, text.c_str(), Publisher());
  }
  AlertPublisher Publisher() {
    return [this](ZnHandle database, const AlertDescriptor& alert) {
      EXPECT_EQ(database, kDatabase);
      Published published{alert.topic, alert.flag, alert.severity, {}, {}, 0};
      for (const I18nString* text : {alert.message, alert.classification, alert.friendlyName,
                                     alert.description, alert.recommendedAction}) {
        published.texts.emplace_back(text->name);
        published.messages.push_back(text->message);
        EXPECT_TRUE(SameGuid(text->catalog, kGuid) || text->message == 0);
      }
      published.properties = HandleThing<PropertySet>(alert.userProperties)->Count();
      published_.push_back(std::move(published));
      return status_;
    };
  }
  std::vector<std::string> Topics() const {
    std::vector<std::string> topics;
    for (const Published& alert : published_) topics.push_back(alert.topic);
    return topics;
  }

  std::vector<Published> published_;
  u32 status_ = ZN_OK;
};

TEST_F(AlertDocumentTest, PublishesAllThatAnAlertDeclares) {
  ASSERT_EQ(Read(Document(Alert("event.alert.disk",
                                "Flag=\"ALERT_GLOBAL|ALERT_PUBLIC\" Severity=\"ERROR\"", Texts(),
                                PropertyText("Device", "mira_string", "")))),
            ZN_OK);
  ASSERT_EQ(published_.size(), 1u);
  const Published& alert = published_[0];
  EXPECT_EQ(alert.topic, "event.alert.disk");
  EXPECT_EQ(alert.flag, 3u);
  EXPECT_EQ(alert.severity, 2u);
  EXPECT_THAT(alert.texts, ElementsAre("The disk %1 is full.", "Storage", "Disk full",
                                       "No space is left.", "Delete something."));
  EXPECT_THAT(alert.messages, ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(alert.properties, 1u);
}

TEST_F(AlertDocumentTest, PublishesInTheOrderOfTheDocument) {
  ASSERT_EQ(Read(Document(Alert("z") + Alert("a") + Alert("m"))), ZN_OK);
  EXPECT_THAT(Topics(), ElementsAre("z", "a", "m"));
}

TEST_F(AlertDocumentTest, AddsUpItsFlagsAndSeverities) {
  const struct {
    const char* attributes;
    u32 flag;
    u32 severity;
  } cases[] = {
      {"", 0, 0},
      {"Flag=\"\" Severity=\"\"", 0, 0},
      {"Flag=\"ALERT_LOCAL|ALERT_PRIVATE\"", 0, 0},
      {"Flag=\"ALERT_LOCAL|ALERT_PUBLIC\"", 1, 0},
      {"Flag=\"ALERT_GLOBAL|ALERT_PRIVATE\"", 2, 0},
      {"Flag=\"ALERT_PUBLIC|ALERT_GLOBAL\"", 3, 0},
      {"Flag=\"ALERT_PUBLIC\"", 1, 0},
      {"Flag=\"ALERT_LOCAL|EVERYWHERE\"", 3, 0},              // the widest scope
      {"Flag=\"EVERYWHERE|ALERT_LOCAL|ALERT_LOCAL\"", 3, 0},  // nothing behind it is looked at
      {"Severity=\"CRITICAL\"", 0, 1},
      {"Severity=\"ERROR\"", 0, 2},
      {"Severity=\"WARNING\"", 0, 3},
      {"Severity=\"INFO\"", 0, 4},
      {"Severity=\"ERROR|ERROR\"", 0, 4},  // the same as INFO
      {"Severity=\"ERROR|LOUD\"", 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.attributes);
    published_.clear();
    ASSERT_EQ(Read(Document(Alert("t", c.attributes))), ZN_OK);
    ASSERT_EQ(published_.size(), 1u);
    EXPECT_EQ(published_[0].flag, c.flag);
    EXPECT_EQ(published_[0].severity, c.severity);
  }
}

TEST_F(AlertDocumentTest, RefusesTwoWordsOfOnePair) {
  for (const char* flag : {"ALERT_GLOBAL|ALERT_LOCAL", "ALERT_GLOBAL|ALERT_GLOBAL",
                           "ALERT_PUBLIC|ALERT_PRIVATE", "ALERT_PRIVATE|ALERT_PRIVATE"}) {
    SCOPED_TRACE(flag);
    const TraceCapture trace(6);
    EXPECT_EQ(Read(Document(Alert("t", "Flag=\"" + std::string(flag) + "\"") + Alert("u"))),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_THAT(trace.Messages(), ElementsAre("XML: Error in processing an ALERT_TYPE element",
                                              "XML: In file Memory, line 4",
                                              "XML: Error in processing MIRA_FORMALIZATION element",
                                              "XML: Generation of Alert info failed"));
    EXPECT_THAT(published_, IsEmpty());
  }
}

TEST_F(AlertDocumentTest, GivesTheEmptyRecordForATextOfAnotherForm) {
  const std::string texts =
      "<MSG>The disk is full.</MSG><F_CLASS_NAME/><F_ALERT_NAME/><DESC/>"
      "<REC_ACTION/>";
  ASSERT_EQ(Read(Document(Alert("t", {}, texts))), ZN_OK);
  EXPECT_THAT(published_[0].texts, ElementsAre("", "", "", "", ""));
  EXPECT_THAT(published_[0].messages, ElementsAre(0, 0, 0, 0, 0));
}

TEST_F(AlertDocumentTest, RefusesABadTextOrProperty) {
  const std::vector<std::string> end = {"XML: Error in processing a ALERT_PARAM element",
                                        "XML: In file Memory, line 5",
                                        "XML: Error in processing an ALERT_TYPE element",
                                        "XML: In file Memory, line 4",
                                        "XML: Error in processing MIRA_FORMALIZATION element",
                                        "XML: Generation of Alert info failed"};
  const auto joined = [&end](std::vector<std::string> begin) {
    begin.insert(begin.end(), end.begin(), end.end());
    return begin;
  };
  {
    const TraceCapture trace(6);
    const std::string texts =
        "<MSG>{1};2;text</MSG><F_CLASS_NAME/><F_ALERT_NAME/><DESC/><REC_ACTION/>";
    EXPECT_EQ(Read(Document(Alert("t", {}, texts))), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(trace.Messages(),
              joined({"XML: error in getGuidValue{1} ", "XML : Error in getGetNonPropsetProperty",
                      "XML: In file Memory, line 5"}));
  }
  {
    const TraceCapture trace(6);
    EXPECT_EQ(Read(Document(Alert("t", {}, Texts(), PropertyText("P", "mira_bool", "no")))),
              ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(trace.Messages(),
              joined({"XML: Inavalid boolean value in xml file :no",
                      "XML : Error in getGetNonPropsetProperty",
                      "XML: Error in processing a PROPERTY element", "XML: In file Memory, line 6",
                      "XML: Error in processing a PROPSET element"}));
  }
}

// The shipped document type demands all of it; another one need not.
std::string Free(const std::string& content) {
  return "<!DOCTYPE MIRA_FORMALIZATION [<!ELEMENT MIRA_FORMALIZATION ANY><!ELEMENT ALERT_TYPE ANY>"
         "<!ATTLIST ALERT_TYPE Topic CDATA #IMPLIED><!ELEMENT ALERT_PARAM ANY><!ELEMENT MSG ANY>"
         "<!ELEMENT F_CLASS_NAME ANY><!ELEMENT F_ALERT_NAME ANY><!ELEMENT DESC ANY>"
         "<!ELEMENT REC_ACTION ANY><!ELEMENT PROPSET ANY>]>\n<MIRA_FORMALIZATION>" +
         content + "</MIRA_FORMALIZATION>";
}

TEST_F(AlertDocumentTest, WithoutItsParametersFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read(Free("<ALERT_TYPE Topic='t'/>")), ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("XML: No ALERT_PARAM element exists", "XML: In file Memory, line 2",
                  "XML: Error in processing an ALERT_TYPE element", "XML: In file Memory, line 2",
                  "XML: Error in processing MIRA_FORMALIZATION element",
                  "XML: Generation of Alert info failed"));
}

TEST_F(AlertDocumentTest, WithoutOneOfItsTextsFails) {
  const std::vector<std::string> elements = {"<MSG/>", "<F_CLASS_NAME/>", "<F_ALERT_NAME/>",
                                             "<DESC/>", "<REC_ACTION/>"};
  for (size_t left = 0; left < elements.size(); ++left) {
    SCOPED_TRACE(elements[left]);
    std::string texts;
    for (size_t i = 0; i < elements.size(); ++i) {
      if (i != left) texts += elements[i];
    }
    EXPECT_EQ(
        Read(Free("<ALERT_TYPE><ALERT_PARAM>" + texts + "<PROPSET/></ALERT_PARAM></ALERT_TYPE>")),
        ZNE_OBJECT_NOT_FOUND);
  }
  EXPECT_THAT(published_, IsEmpty());
}

TEST_F(AlertDocumentTest, WithoutItsPropsetFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read(Free("<ALERT_TYPE><ALERT_PARAM><MSG/><F_CLASS_NAME/><F_ALERT_NAME/><DESC/>"
                      "<REC_ACTION/></ALERT_PARAM></ALERT_TYPE>")),
            ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(), IsSupersetOf({"XML: No PROPSET element exists",
                                              "XML: Error in processing a ALERT_PARAM element"}));
}

TEST_F(AlertDocumentTest, RefusesATopicThatComesTwiceBeforeAnyIsPublished) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read(Document(Alert("a") + Alert("b") + Alert("b"))), ZNE_DUPLICATE_OBJECT_ID);
  EXPECT_THAT(trace.Messages(), ElementsAre("XML: Duplicate alert types \"b\" specified",
                                            "XML: In file Memory, line 7"));
  EXPECT_THAT(published_, IsEmpty());
}

TEST_F(AlertDocumentTest, DescribesEachAlert) {
  const TraceCapture trace(1);
  ASSERT_EQ(Read(Document(Alert("event.alert.disk", "Flag=\"ALERT_PUBLIC\"") +
                          Alert("event.alert.net", "Flag=\"ALERT_GLOBAL\""))),
            ZN_OK);
  EXPECT_THAT(trace.Messages(),
              IsSupersetOf({"XML: The ALERT_TYPE has topic event.alert.disk",
                            "XML: The alert flag is ALERT_PUBLIC|ALERT_LOCAL",
                            "XML: The alert message is The disk %1 is full.",
                            "XML: The alert friendly classification name is Storage",
                            "XML: The alert friendly alert name is Disk full",
                            "XML: The alert description is No space is left.",
                            "XML: The alert recommended action is Delete something.",
                            "XML: The ALERT_TYPE has topic event.alert.net",
                            "XML: The alert flag is ALERT_PRIVATE|ALERT_GLOBAL"}));
}

TEST_F(AlertDocumentTest, GoesOnBehindAPublicationThatFails) {
  status_ = ZNE_ALERT_REREGISTER;
  const TraceCapture trace(5);
  EXPECT_EQ(Read(Document(Alert("a") + Alert("b"))), ZN_OK);
  EXPECT_THAT(Topics(), ElementsAre("a", "b"));
  EXPECT_THAT(trace.Messages(),
              ElementsAre("XML: Publication of alert a failed", "XML: In file Memory, line 4",
                          "XML: Publication of alert b failed", "XML: In file Memory, line 7"));
}

TEST_F(AlertDocumentTest, TakesAPublicationThatFailsForLessThanABadDocument) {
  status_ = ZNE_ALERT_REREGISTER;
  const TraceCapture worse(6);
  EXPECT_EQ(Read(Document(Alert("c"))), ZN_OK);
  EXPECT_THAT(worse.Messages(), Not(Contains("XML: Publication of alert c failed")));
}

TEST_F(AlertDocumentTest, DescribesNothingAboveTheLowestLevel) {
  const TraceCapture trace(2);
  ASSERT_EQ(Read(Document(Alert("a"))), ZN_OK);
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(AlertDocumentTest, WithoutItsRootFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read("<!DOCTYPE OTHER [<!ELEMENT OTHER ANY>]><OTHER/>"), ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("XML: Got an xml file with no MIRA_FORMALIZATION element",
                          "XML: Generation of Alert info failed"));
}

TEST_F(AlertDocumentTest, ReadsEveryElementOfTheRootAsAnAlert) {
  EXPECT_EQ(Read(Document(Alert("a") + ObjectType("A"))), ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(published_, IsEmpty());
}

TEST_F(AlertDocumentTest, IsReadFromAFile) {
  const TemporaryFile file(Document(Alert("a")), "alerts.xml");
  EXPECT_EQ(ReadAlertTypesFromFile(kDatabase, file.Path().c_str(), Publisher()), ZN_OK);
  EXPECT_THAT(Topics(), ElementsAre("a"));
  EXPECT_EQ(ReadAlertTypesFromFile(kDatabase, "/tmp/zn_there_is_no_such_file", Publisher()),
            ZNE_XML_SOURCE_INVALID);
  EXPECT_EQ(ReadAlertTypesFromFile(kDatabase, nullptr, Publisher()), ZNE_INVALID_ARGUMENTS);
}

}  // namespace
}  // namespace zn::test
