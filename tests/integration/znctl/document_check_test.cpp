// What is wrong with a document, rule by rule.
#include "document_check.h"

#include <unistd.h>

#include <chrono>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zn::ctl {

// For messages of failed tests.
void PrintTo(const DocumentFault& fault, std::ostream* out) {
  *out << fault.line << (fault.isWarning ? " warning " : " error ") << fault.rule << ": "
       << fault.text;
}

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

auto Error(u32 line, const char* rule, const char* text) {
  return AllOf(Field(&DocumentFault::isWarning, false), Field(&DocumentFault::line, line),
               Field(&DocumentFault::rule, rule), Field(&DocumentFault::text, HasSubstr(text)));
}
auto Warning(u32 line, const char* rule, const char* text) {
  return AllOf(Field(&DocumentFault::isWarning, true), Field(&DocumentFault::line, line),
               Field(&DocumentFault::rule, rule), Field(&DocumentFault::text, HasSubstr(text)));
}

constexpr char kDoctype[] = "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\">\n";

// The content begins on line 3.
DocumentReport CheckText(const std::string& text) {
  const std::string path = "/tmp/znctl_document_" + std::to_string(getpid()) + ".xml";
  std::ofstream(path, std::ios::binary) << text;
  DocumentReport report = CheckDocument(path);
  for (const DocumentFault& fault : report.faults) EXPECT_EQ(fault.file, path);
  unlink(path.c_str());
  return report;
}
DocumentReport Check(const std::string& content) {
  return CheckText(kDoctype + std::string("<MIRA_FORMALIZATION>\n") + content +
                   "\n</MIRA_FORMALIZATION>\n");
}
// One property on line 4.
DocumentReport CheckProperty(const std::string& property) {
  return Check("<OBJECT_TYPE Name=\"A\"><PROPSET>\n" + property + "</PROPSET></OBJECT_TYPE>");
}
DocumentReport CheckValue(const std::string& word, const std::string& text,
                          const std::string& attributes = {}) {
  return CheckProperty("<PROPERTY Name=\"P\" Type=\"" + word + "\" " + attributes + ">" + text +
                       "</PROPERTY>");
}

std::string Type(const std::string& name, const std::string& supertypes = {},
                 const std::string& properties = {}) {
  return "<OBJECT_TYPE Name=\"" + name + "\">" +
         (supertypes.empty() ? "" : "<INHERITS_FROM>" + supertypes + "</INHERITS_FROM>") +
         "<PROPSET>" + properties + "</PROPSET></OBJECT_TYPE>\n";
}
std::string Number(const std::string& name, const std::string& word = "mira_int32") {
  return "<PROPERTY Name=\"" + name + "\" Type=\"" + word + "\"/>";
}

std::string AlertElement(const std::string& topic, const std::string& attributes,
                         const std::string& message = ";1;'text'",
                         const std::string& description = ";2;'text'") {
  return "<ALERT_TYPE Topic=\"" + topic + "\" " + attributes + "><ALERT_PARAM>\n<MSG>" + message +
         "</MSG><F_CLASS_NAME/><F_ALERT_NAME>;3;x</F_ALERT_NAME>\n<DESC>" + description +
         "</DESC><REC_ACTION>;4;x</REC_ACTION><PROPSET/></ALERT_PARAM></ALERT_TYPE>\n";
}

TEST(DocumentCheck, FindsNothingInAGoodDocument) {
  const DocumentReport types =
      Check(Type("B", "A") + Type("A", {}, Number("Count")) + Type("C", "KELD_Extension, A"));
  EXPECT_THAT(types.faults, IsEmpty());
  EXPECT_EQ(types.objectTypes, 3U);
  EXPECT_EQ(types.alertTypes, 0U);
  const DocumentReport alerts = Check(AlertElement("event.alert.a", "Severity=\"INFO\""));
  EXPECT_THAT(alerts.faults, IsEmpty());
  EXPECT_EQ(alerts.alertTypes, 1U);
}

TEST(DocumentCheck, TellsWhereTheFormEnds) {
  const DocumentReport report = Check("<OBJECT_TYPE Name=\"A\">");
  ASSERT_FALSE(report.faults.empty());
  EXPECT_THAT(report.faults.back(), Error(5, "well-formed", "ended"));
}

TEST(DocumentCheck, TellsWhatTheDocumentTypeRefuses) {
  EXPECT_THAT(Check("<OBJECT_TYPE Name=\"A\"/>\n<OBJECT_TYPE><PROPSET/></OBJECT_TYPE>").faults,
              ElementsAre(Error(3, "document-type", "content"), Error(4, "document-type", "Name")));
  EXPECT_THAT(CheckText("<!DOCTYPE OTHER [<!ELEMENT OTHER ANY>]><OTHER/>").faults,
              ElementsAre(Error(1, "document-type", "MIRA_FORMALIZATION")));
}

TEST(DocumentCheck, TellsAFileThatCannotBeRead) {
  const DocumentReport report = CheckDocument("/tmp/znctl_there_is_no_such_document");
  EXPECT_EQ(report.Errors(), 1U);
  EXPECT_EQ(report.faults.at(0).rule, "well-formed");
}

TEST(DocumentCheck, TellsBadNames) {
  EXPECT_THAT(Check(Type("1a") + Type("a b") + Type("a:b") + Type("KELD_Object")).faults,
              ElementsAre(Error(3, "name", "\"1a\" is no name of a type"),
                          Error(4, "name", "\"a b\" is no name of a type"),
                          Error(6, "name", "is a type of the bus itself")));
  EXPECT_THAT(CheckProperty(Number("1p") + "\n" + Number("p:q") + Number("p q")).faults,
              ElementsAre(Error(4, "name", "\"1p\" is no name of a property"),
                          Error(5, "name", "\"p:q\" is no name of a property")));
}

TEST(DocumentCheck, TellsWhatStandsTwice) {
  EXPECT_THAT(Check(Type("A") + Type("B") + Type("A")).faults,
              ElementsAre(Error(5, "duplicate", "the type \"A\" stands already on line 3")));
  EXPECT_THAT(CheckProperty(Number("P") + "\n" + Number("P", "mira_bool")).faults,
              ElementsAre(Error(5, "duplicate", "the property \"P\" stands already on line 4")));
  const std::string alert = AlertElement("event.alert.a", "Severity=\"INFO\"");
  EXPECT_THAT(Check(alert + alert).faults,
              ElementsAre(Error(6, "duplicate", "stands already on line 3")));
}

TEST(DocumentCheck, TellsAnUnknownTypeWord) {
  EXPECT_THAT(CheckValue("mira_float", "1").faults,
              ElementsAre(Error(4, "type-word", "\"mira_float\" of \"P\" is none of mira_bool")));
}

TEST(DocumentCheck, TellsWhatEachTypeTakes) {
  const struct {
    const char* word;
    const char* text;
    const char* takes;
  } cases[] = {
      {"mira_bool", "True", "true or false"},
      {"mira_int32", "2147483648", "from -2147483648 to 2147483647"},
      {"mira_uint32", "-1", "from 0 to 4294967295"},
      {"mira_int64", "1x", "digits, with + or - before them"},
      {"mira_time", "+5", "digits alone"},
      {"mira_uint64", "-5", "digits, with + before them"},
      {"mira_guid", "{1}", "38 characters"},
      {"mira_objid", "x", "38 characters"},
      {"mira_i18n", "{1};2;x", "catalog;number;'default text'"},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(CheckValue(c.word, c.text).faults, ElementsAre(Error(4, "value", c.takes)))
        << c.word;
  }
  EXPECT_THAT(CheckValue("mira_int32", "1,x", "Array=\"Y\"").faults,
              ElementsAre(Error(4, "value", "is not a list, joined by commas, of a whole number")));
}

TEST(DocumentCheck, WarnsOfValuesThatAreNotRead) {
  EXPECT_THAT(CheckValue("mira_binary", "00").faults, ElementsAre(Warning(4, "value", "not read")));
  EXPECT_THAT(CheckValue("mira_i18n", "free text").faults,
              ElementsAre(Warning(4, "value", "read as nothing")));
  EXPECT_THAT(CheckValue("mira_propset", "<PROPSET/>\n<PROPSET/>").faults,
              ElementsAre(Warning(5, "value", "only the first PROPSET is read")));
}

// A note in the text cuts it short; what is left is no text of three parts.
TEST(DocumentCheck, LooksAtTheFirstPieceOfATextAlone) {
  EXPECT_THAT(
      CheckValue("mira_i18n", "{10203040-5060-7080-0102-030405060708};1<!--x-->;'a'").faults,
      ElementsAre(Warning(4, "value", "read as nothing")));
}

TEST(DocumentCheck, LooksIntoNestedSets) {
  EXPECT_THAT(
      CheckValue("mira_propset", "<PROPSET>\n" + Number("1p") + "</PROPSET>", "Array=\"Y\"").faults,
      ElementsAre(Error(5, "name", "\"1p\"")));
}

TEST(DocumentCheck, TellsWhatCannotBeIndexed) {
  for (const char* word : {"mira_binary", "mira_i18n", "mira_propset"}) {
    EXPECT_THAT(CheckValue(word, "", "Flags=\"Indexed\"").faults,
                ElementsAre(Error(4, "indexed", word)));
  }
  EXPECT_THAT(CheckValue("mira_int32", "", "Array=\"Y\" Flags=\"Hidden|Indexed\"").faults,
              ElementsAre(Error(4, "indexed", "an array of")));
  EXPECT_THAT(CheckValue("mira_int32", "", "Flags=\"Indexed\"").faults, IsEmpty());
}

TEST(DocumentCheck, WarnsOfFlagsThatMeanSomethingElse) {
  EXPECT_THAT(CheckValue("mira_int32", "", "Flags=\"Hiden\"").faults,
              ElementsAre(Warning(4, "flags", "no flag at all")));
  EXPECT_THAT(CheckValue("mira_int32", "", "Flags=\"Hidden|Hidden\"").faults,
              ElementsAre(Warning(4, "flags", "stands twice")));
  EXPECT_THAT(Check("<OBJECT_TYPE Name=\"A\" Flags=\"Secret\"><PROPSET/></OBJECT_TYPE>").faults,
              ElementsAre(Warning(3, "flags", "neither Hidden nor NoDisplay")));
}

TEST(DocumentCheck, TellsEveryTypeOfACircleAndNoOther) {
  EXPECT_THAT(
      Check(Type("A", "B") + Type("B", "C") + Type("C", "A") + Type("D", "A") + Type("E", "E") +
            Type("F"))
          .faults,
      ElementsAre(Error(3, "circle", "\"A\" inherits from itself"), Error(4, "circle", "\"B\""),
                  Error(5, "circle", "\"C\""), Error(7, "circle", "\"E\"")));
}

// Two circles with a way from one to the other, a circle with a chord, and a diamond, which is
// none.
TEST(DocumentCheck, TellsCirclesFromTheWaysBetweenThem) {
  const DocumentReport report =
      Check(Type("A", "B") + Type("B", "A, M") + Type("M", "P") + Type("P", "Q") + Type("Q", "P") +
            Type("R", "S") + Type("S", "R, T") + Type("T", "R") + Type("U", "V, W") +
            Type("V", "X") + Type("W", "X") + Type("X"));
  std::string told;
  for (const DocumentFault& fault : report.faults) {
    if (fault.rule == "circle") told += fault.text.substr(1, 1);
  }
  EXPECT_EQ(told, "ABPQRST");
}

// Looked at from each of its types, a chain of so many takes a minute.
TEST(DocumentCheck, ALongChainBehindACircleTakesNoTime) {
  std::string types = Type("A", "B") + Type("B", "A") + Type("T0", "A");
  for (int i = 1; i < 5000; ++i) {
    types += Type("T" + std::to_string(i), "T" + std::to_string(i - 1));
  }
  const auto begin = std::chrono::steady_clock::now();
  const DocumentReport report = Check(types);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  EXPECT_EQ(report.Errors(), 2u);
}

TEST(DocumentCheck, TellsOfSupertypes) {
  EXPECT_THAT(Check(Type("A", "Elsewhere") + Type("B", "A, A") + Type("C", "no:name, 1x")).faults,
              ElementsAre(Warning(3, "supertype", "\"Elsewhere\" is not declared"),
                          Error(4, "supertype", "names a supertype twice"),
                          Warning(5, "supertype", "\"no:name\" is not declared"),
                          Warning(5, "supertype", "\"1x\" is not declared"),
                          Error(5, "supertype", "\"1x\" is no name of a type")));
}

TEST(DocumentCheck, TellsOfPropertiesThatDoNotAgree) {
  EXPECT_THAT(Check(Type("A", {}, Number("x")) + Type("B", "A", Number("x", "mira_string"))).faults,
              ElementsAre(Error(4, "inheritance", "a property of \"B\" has another type")));
  EXPECT_THAT(
      Check(Type("A", {}, Number("x")) + Type("B", {}, Number("x")) + Type("C", "A, B")).faults,
      ElementsAre(Error(5, "inheritance", "two supertypes declare one name")));
}

TEST(DocumentCheck, TellsWhatKeepsAnAlertFromBeingPublished) {
  EXPECT_THAT(Check(AlertElement("event.*", "Severity=\"INFO\"")).faults,
              ElementsAre(Error(3, "topic", "\"event.*\" is no topic")));
  EXPECT_THAT(Check(AlertElement("", "Severity=\"INFO\"")).faults,
              ElementsAre(Error(3, "topic", "")));
  for (const char* severity : {"", "Severity=\"LOUD\"", "Severity=\"ERROR|INFO\""}) {
    EXPECT_THAT(Check(AlertElement("event.a", severity)).faults,
                ElementsAre(Error(3, "severity", "one of CRITICAL")));
  }
  EXPECT_THAT(
      Check(AlertElement("event.a", "Severity=\"INFO\" Flag=\"ALERT_LOCAL|ALERT_GLOBAL\"")).faults,
      ElementsAre(Error(3, "flags", "global or local")));
  EXPECT_THAT(Check(AlertElement("event.a", "Severity=\"INFO\"", "free text")).faults,
              ElementsAre(Error(4, "text", "MSG is not of the form")));
  EXPECT_THAT(Check(AlertElement("event.a", "Severity=\"INFO\"", ";1;a", ";1;''")).faults,
              ElementsAre(Error(5, "text", "DESC has no default text")));
  EXPECT_THAT(Check(AlertElement("event.a", "Severity=\"INFO\"", ";x;a")).faults,
              ElementsAre(Error(4, "value", "\";x;a\" is not")));
}

TEST(DocumentCheck, WarnsOfAnAlertThatGoesFurtherThanItSays) {
  EXPECT_THAT(Check(AlertElement("event.a", "Severity=\"INFO\" Flag=\"LOCAL\"")).faults,
              ElementsAre(Warning(3, "flags", "becomes global and public")));
}

TEST(DocumentCheck, TellsThatTypesAndAlertsDoNotGoTogether) {
  EXPECT_THAT(Check(Type("A") + AlertElement("event.a", "Severity=\"INFO\"")).faults,
              ElementsAre(Error(2, "mixed", "stand in one document")));
}

}  // namespace
}  // namespace zn::ctl
