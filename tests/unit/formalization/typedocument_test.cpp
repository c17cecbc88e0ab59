#include <thread>

#include "framework/common/znxml_dom_processor/documentreader.h"
#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "framework/common/znxml_typeinfo/otinfo.h"
#include "tests/unit/formalization/documents.h"

namespace zn::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

class TypeDocumentTest : public DocumentTest {
 protected:
  u32 Read(const std::string& text, const char** filter = nullptr) {
    return ReadObjectTypesFromMemory(Handle(), text.c_str(), filter);
  }
  // Reads a document with one type of one property and gives its value; no value on failure.
  Value ReadProperty(const std::string& property) {
    const std::string name = "Type" + std::to_string(++counter_);
    if (Read(Document(ObjectType(name, {}, property))) != ZN_OK) return {};
    const TypeObject* type = Type(name);
    EXPECT_NE(type, nullptr);
    EXPECT_EQ(type->Properties().Count(), 1u);
    return type->Properties().At(0).GetValue();
  }

  int counter_ = 0;
};

TEST_F(TypeDocumentTest, MakesATypeWithAllItDeclares) {
  ASSERT_EQ(Read(Document(ObjectType("Device") + ObjectType("Monitored") +
                          ObjectType("MyDisk", "Device, Monitored",
                                     PropertyText("Size", "mira_uint64", "0",
                                                  "Array=\"N\" Flags=\"Indexed\""),
                                     "Hidden"))),
            ZN_OK);
  EXPECT_THAT(Types(), ElementsAre("Device", "Monitored", "MyDisk"));
  // KELD_Object is an ancestor already and not named again.
  EXPECT_THAT(SupertypesOf("MyDisk"), ElementsAre("Device", "Monitored"));
  EXPECT_THAT(SupertypesOf("Device"), ElementsAre("KELD_Object"));
  const Property* size = Type("MyDisk")->Properties().Find("Size");
  ASSERT_NE(size, nullptr);
  EXPECT_EQ(size->TypeTag(), ZN_TYPE_UINT64);
  EXPECT_TRUE(size->IsIndexed());
  EXPECT_EQ(Type("MyDisk")->GetFlags(), 1u);
  EXPECT_EQ(Type("Device")->GetFlags(), 0u);
}

TEST_F(TypeDocumentTest, MakesSupertypesFirstWhateverTheirPlace) {
  ASSERT_EQ(Read(Document(ObjectType("A", "B") + ObjectType("B", "C") + ObjectType("C"))), ZN_OK);
  EXPECT_THAT(SupertypesOf("A"), ElementsAre("B"));
}

TEST_F(TypeDocumentTest, SplitsSupertypesAtCommasAndBlanks) {
  ASSERT_EQ(Read(Document(ObjectType("A") + ObjectType("B") + ObjectType("X1", "A,B") +
                          ObjectType("X2", " A, B ") + ObjectType("X3", "A B") +
                          ObjectType("X4", "\"A\",\"B\""))),
            ZN_OK);
  for (const char* name : {"X1", "X2", "X3", "X4"}) {
    EXPECT_THAT(SupertypesOf(name), ElementsAre("A", "B")) << name;
  }
}

// The empty name between the blank and the comma stands for the root of all types.
TEST_F(TypeDocumentTest, TakesABlankBeforeACommaForAnotherSupertype) {
  ASSERT_EQ(Read(Document(ObjectType("A") + ObjectType("B") + ObjectType("X", "A , B"))), ZN_OK);
  EXPECT_THAT(SupertypesOf("X"), ElementsAre("A", "KELD_Object", "B"));
}

TEST_F(TypeDocumentTest, ReadsEveryKindOfValue) {
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_bool", "true")).AsBool(), 1);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_int32", "-5")).AsInt32(), -5);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_uint32", "")).AsUInt32(), 0u);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_int64", "-5")).AsInt64(), -5);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_uint64", "+5")).AsUInt64(), 5u);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_time", "5")).Tag(), ZN_TYPE_TIME);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_string", " a &amp; b ")).AsText(), "a & b");
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_string", "<![CDATA[<a>]]>")).AsText(), "<a>");
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_wstring", "\xC3\xBC")).AsWideText(), u"\u00FC");
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_binary", "00ff")).AsBinary(), "");
  EXPECT_TRUE(IsZeroGuid(ReadProperty(PropertyText("P", "mira_guid", "")).AsGuid()));
  EXPECT_TRUE(ReadProperty(PropertyText("P", "mira_objid", "")).AsId().IsZero());
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_i18n", "a;b")).Tag(), ZN_TYPE_I18N);
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_propset", "")).Tag(), ZN_TYPE_PROPSET);
}

TEST_F(TypeDocumentTest, TakesTheFirstTextAloneAsTheValue) {
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_string", "a<!-- not b -->b")).AsText(), "a");
}

TEST_F(TypeDocumentTest, ReadsArraysForEveryWordButN) {
  const auto count = [](const Value& value) { return value.AsArray().size(); };
  EXPECT_EQ(count(ReadProperty(PropertyText("P", "mira_int32", "1,2 3", "Array=\"Y\""))), 3u);
  EXPECT_EQ(count(ReadProperty(PropertyText("P", "mira_string", "", "Array=\"yes\""))), 0u);
  EXPECT_EQ(count(ReadProperty(PropertyText("P", "mira_bool", "true", "Array=\"n\""))), 1u);
  EXPECT_FALSE(ReadProperty(PropertyText("P", "mira_string", "a", "Array=\"N\"")).IsArray());
}

TEST_F(TypeDocumentTest, ReadsNestedSets) {
  const std::string inner = "<PROPSET>" + PropertyText("Count", "mira_uint32", "7") + "</PROPSET>";
  const Value one = ReadProperty(PropertyText("P", "mira_propset", inner));
  EXPECT_EQ(one.AsSet().FindValue("Count", ZN_TYPE_UINT32)->AsUInt32(), 7u);
  const Value first = ReadProperty(PropertyText("P", "mira_propset", inner + "<PROPSET/>"));
  EXPECT_EQ(first.AsSet().Count(), 1u);
  const Value many =
      ReadProperty(PropertyText("P", "mira_propset", inner + "<PROPSET/>", "Array=\"Y\""));
  ASSERT_EQ(many.AsArray().size(), 2u);
  EXPECT_EQ(many.AsArray()[0].AsSet().Count(), 1u);
  EXPECT_TRUE(many.AsArray()[1].AsSet().IsEmpty());
  EXPECT_EQ(ReadProperty(PropertyText("P", "mira_propset", "", "Array=\"Y\"")).AsArray().size(),
            0u);
}

TEST_F(TypeDocumentTest, GivesPropertiesTheSumOfTheirFlags) {
  const auto flagsOf = [&](const char* flags) {
    const std::string name = "Type" + std::to_string(++counter_);
    EXPECT_EQ(Read(Document(ObjectType(
                  name, {},
                  PropertyText("P", "mira_int32", "1", "Flags=\"" + std::string(flags) + "\"")))),
              ZN_OK);
    return Type(name)->Properties().At(0).Flags();
  };
  EXPECT_EQ(flagsOf("Hidden|Indexed"), 9u);
  EXPECT_EQ(flagsOf("Hidden|Hidden"), 2u);
  EXPECT_EQ(flagsOf("Hidden|Secret"), 0u);
  EXPECT_EQ(flagsOf(""), 0u);
}

TEST_F(TypeDocumentTest, GivesTypesTheirFlag) {
  ASSERT_EQ(
      Read(Document(ObjectType("A", {}, {}, " NoDisplay ") + ObjectType("B", {}, {}, "Other"))),
      ZN_OK);
  EXPECT_EQ(Type("A")->GetFlags(), 2u);
  EXPECT_EQ(Type("B")->GetFlags(), 0u);
}

TEST_F(TypeDocumentTest, PassesOverWhatTheFilterDoesNotName) {
  const char* filter[] = {"B", "Nobody", nullptr};
  ASSERT_EQ(Read(Document(ObjectType("A") + ObjectType("B") + ObjectType("C")), filter), ZN_OK);
  EXPECT_THAT(Types(), ElementsAre("B"));
  const char* nothing[] = {nullptr};
  ASSERT_EQ(Read(Document(ObjectType("D")), nothing), ZN_OK);
  ASSERT_EQ(Read(Document(""), filter), ZN_OK);
  EXPECT_THAT(Types(), ElementsAre("B"));
}

// With a filter only elements of that name are looked at, without one all of them.
TEST_F(TypeDocumentTest, ReadsEveryElementOfTheRootAsATypeUnlessThereIsAFilter) {
  const std::string alert =
      "<ALERT_TYPE Topic=\"t\"><ALERT_PARAM><MSG/><F_CLASS_NAME/><F_ALERT_NAME/><DESC/>"
      "<REC_ACTION/><PROPSET/></ALERT_PARAM></ALERT_TYPE>";
  const char* filter[] = {"A", nullptr};
  EXPECT_EQ(Read(Document(ObjectType("A") + alert)), ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(Types(), IsEmpty());
  EXPECT_EQ(Read(Document(ObjectType("A") + alert), filter), ZN_OK);
  EXPECT_THAT(Types(), ElementsAre("A"));
}

TEST_F(TypeDocumentTest, OfNoTypesIsGood) {
  EXPECT_EQ(Read(Document("")), ZN_OK);
  EXPECT_THAT(Types(), IsEmpty());
}

TEST_F(TypeDocumentTest, GoesOnBehindATypeThatCannotBeMade) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read(Document(ObjectType("1a") + ObjectType("KELD_Object") + ObjectType("Good") +
                          ObjectType("Orphan", "Nobody"))),
            ZN_OK);
  EXPECT_THAT(Types(), ElementsAre("Good"));
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("XML: Creation of object type 1a failed", "XML: In file Memory, line 4",
                  "XML: Creation of object type KELD_Object failed", "XML: In file Memory, line 6",
                  "XML: Creation of object type Orphan failed", "XML: In file Memory, line 10"));
}

// The graph has thrown the types of the circle out, with all others of the document.
TEST_F(TypeDocumentTest, OfACircleIsGoodAndMakesNothing) {
  const TraceCapture trace(3);
  EXPECT_EQ(Read(Document(ObjectType("A", "B") + ObjectType("B", "A") + ObjectType("Free"))),
            ZN_OK);
  EXPECT_THAT(Types(), IsEmpty());
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(TypeDocumentTest, DescribesEachTypeBeforeItMakesIt) {
  const TraceCapture trace(1);
  ASSERT_EQ(Read(Document(
                ObjectType("A", "KELD_Object", PropertyText("P", "mira_int32", "5"), "Hidden"))),
            ZN_OK);
  EXPECT_THAT(trace.Messages(),
              IsSupersetOf({std::string("XML: The OBJECT_TYPE has name A"),
                            std::string("XML: The OBJECT_TYPE inherits from KELD_Object"),
                            std::string("XML: The OBJECT_TYPE has flags 1")}));
  EXPECT_THAT(trace.Messages(), Contains(StartsWith("XML: The OBJECT_TYPE has properties")));
}

TEST_F(TypeDocumentTest, DescribesNothingAboveTheLowestLevel) {
  const TraceCapture trace(2);
  ASSERT_EQ(Read(Document(ObjectType("A") + ObjectType("B", "A"))), ZN_OK);
  EXPECT_THAT(trace.Messages(), IsEmpty());
}

struct BadElement {
  const char* why;
  std::string content;
  u32 status;
  std::vector<std::string> traces;  // behind the value's own
};

const std::vector<std::string> kElementEnd = {
    "XML: Error in processing an OBJECT_TYPE element", "XML: In file Memory, line 4",
    "XML: Error in processing MIRA_FORMALIZATION element", "XML: Generation of Type info failed"};
const std::vector<std::string> kPropertyEnd = {"XML: Error in processing a PROPERTY element",
                                               "XML: In file Memory, line 5",
                                               "XML: Error in processing a PROPSET element"};

std::vector<std::string> Joined(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST_F(TypeDocumentTest, FailsAsAWholeAtABadElement) {
  const BadElement cases[] = {
      {"a value", PropertyText("P", "mira_time", "+5"), ZNE_INVALID_ARGUMENTS,
       Joined({"XML: Invalid value of mira_time: +5", "XML : Error in getGetNonPropsetProperty"},
              kPropertyEnd)},
      {"a name", PropertyText("1P", "mira_time", "5"), ZNE_INVALID_ARGUMENTS,
       Joined({"XML: Inavalid property name"}, kPropertyEnd)},
      {"a type word", PropertyText("P", "mira_float", "5"), ZNE_INVALID_ARGUMENTS, kPropertyEnd},
      {"a property twice",
       PropertyText("P", "mira_time", "5") + PropertyText("P", "mira_bool", "true"),
       ZNE_DUPLICATE_LOOKUP_KEY,
       {"XML: Duplicate property with name \"P\" specified", "XML: In file Memory, line 5",
        "XML: Error in processing a PROPSET element"}},
  };
  for (const BadElement& c : cases) {
    SCOPED_TRACE(c.why);
    const TraceCapture trace(6);
    EXPECT_EQ(Read(Document(ObjectType("A", {}, c.content) + ObjectType("Good"))), c.status);
    EXPECT_EQ(trace.Messages(), Joined(c.traces, kElementEnd));
    EXPECT_THAT(Types(), IsEmpty());
  }
}

TEST_F(TypeDocumentTest, TellsOfABadPropertyInsideAnother) {
  const TraceCapture trace(6);
  const std::string inner = "<PROPSET>\n" + PropertyText("Q", "mira_bool", "no") + "</PROPSET>";
  EXPECT_EQ(Read(Document(ObjectType("A", {}, PropertyText("P", "mira_propset", inner)))),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(), testing::Contains("XML: In file Memory, line 6").Times(1));
  EXPECT_THAT(trace.Messages(),
              testing::Contains("XML: Error in processing a PROPERTY element").Times(2));
}

TEST_F(TypeDocumentTest, RefusesATypeThatComesTwice) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read(Document(ObjectType("A") + ObjectType("B") + ObjectType("B") + ObjectType("A"))),
            ZNE_DUPLICATE_OBJECT_ID);
  EXPECT_THAT(trace.Messages(), ElementsAre("XML: Duplicate object types \"A\" specified",
                                            "XML: In file Memory, line 4"));
  EXPECT_THAT(Types(), IsEmpty());
}

// With a document type of its own a document may leave out what the shipped one demands.
TEST_F(TypeDocumentTest, WithoutAPropsetFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read("<!DOCTYPE MIRA_FORMALIZATION [<!ELEMENT MIRA_FORMALIZATION ANY>"
                 "<!ELEMENT OBJECT_TYPE ANY><!ATTLIST OBJECT_TYPE Name CDATA #REQUIRED>]>\n"
                 "<MIRA_FORMALIZATION>\n<OBJECT_TYPE Name='A'/></MIRA_FORMALIZATION>"),
            ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("XML: No PROPSET element exists", "XML: In file Memory, line 3",
                  "XML: Error in processing an OBJECT_TYPE element", "XML: In file Memory, line 3",
                  "XML: Error in processing MIRA_FORMALIZATION element",
                  "XML: Generation of Type info failed"));
}

TEST_F(TypeDocumentTest, WithADocumentTypeOfItsOwnMayNameItsElementsAsItLikes) {
  EXPECT_EQ(Read("<!DOCTYPE MIRA_FORMALIZATION [<!ELEMENT MIRA_FORMALIZATION ANY>"
                 "<!ELEMENT T (PROPSET)><!ATTLIST T Name CDATA #REQUIRED>"
                 "<!ELEMENT PROPSET ANY><!ELEMENT Q (#PCDATA)>"
                 "<!ATTLIST Q Name CDATA #REQUIRED Type CDATA #REQUIRED>]>\n"
                 "<MIRA_FORMALIZATION><T Name='A'><PROPSET><Q Name='P' Type='mira_int32'>1,2</Q>"
                 "</PROPSET></T></MIRA_FORMALIZATION>"),
            ZN_OK);
  // No document type has said that it is a single value.
  EXPECT_EQ(Type("A")->Properties().At(0).TypeTag(), ZN_TYPE_INT32 | ZN_TYPE_ARRAY);
}

TEST_F(TypeDocumentTest, WithoutItsRootFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read("<!DOCTYPE OTHER [<!ELEMENT OTHER ANY>]><OTHER/>"), ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("XML: Got an xml file with no MIRA_FORMALIZATION element",
                          "XML: Generation of Type info failed"));
}

TEST_F(TypeDocumentTest, ThatIsNotValidFails) {
  const struct {
    const char* why;
    std::string text;
    u32 line;
  } cases[] = {
      {"an attribute is missing", Document("<OBJECT_TYPE><PROPSET/></OBJECT_TYPE>"), 4},
      {"an element that the type does not know", Document("<OTHER/>"), 4},
      {"an element in the wrong place", Document("<PROPSET/>"), 4},
      {"text between the elements", Document("text"), 4},
      {"no document type", "<MIRA_FORMALIZATION/>", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.why);
    const TraceCapture trace(6);
    EXPECT_EQ(Read(c.text), ZNE_XML_SOURCE_INVALID);
    const std::vector<std::string> messages = trace.Messages();
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ(messages[0], "XML: Error at file Memory, line " + std::to_string(c.line));
    EXPECT_THAT(messages[1], StartsWith("XML: The Message: "));
    EXPECT_EQ(messages.back(), "XML: Error while parsing xml file");
  }
}

TEST_F(TypeDocumentTest, ThatIsNotWellFormedFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read(Document("\n<OBJECT_TYPE Name='A'>")), ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(), Contains(StartsWith("XML: Fatal Error at file Memory, line 6")));
}

// An attribute that is declared twice is worth a warning to the parser, and no more.
TEST_F(TypeDocumentTest, ThatDrawsAWarningAloneFails) {
  const TraceCapture trace(6);
  EXPECT_EQ(Read("<!DOCTYPE MIRA_FORMALIZATION [<!ELEMENT MIRA_FORMALIZATION EMPTY>\n"
                 "<!ATTLIST MIRA_FORMALIZATION a CDATA #IMPLIED>\n"
                 "<!ATTLIST MIRA_FORMALIZATION a CDATA #IMPLIED>]><MIRA_FORMALIZATION/>"),
            ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("XML: Warning at file Memory, line 3", StartsWith("XML: The Message: "),
                          "XML: Error while parsing xml file"));
}

TEST_F(TypeDocumentTest, IsReadFromAFile) {
  const TemporaryFile file(Document(ObjectType("A")));
  EXPECT_EQ(ReadObjectTypesFromFile(Handle(), file.Path().c_str(), nullptr), ZN_OK);
  EXPECT_THAT(Types(), ElementsAre("A"));
}

TEST_F(TypeDocumentTest, IsReadFromAFileWhoseNameIsNotAscii) {
  const TemporaryFile file(Document("<OTHER/>"), "b\xC3\xBCro.xml");
  const TraceCapture trace(6);
  EXPECT_EQ(ReadObjectTypesFromFile(Handle(), file.Path().c_str(), nullptr),
            ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(), Contains("XML: Error at file " + file.Path() + ", line 4"));
}

TEST_F(TypeDocumentTest, TellsTheFileOfABadElement) {
  const TemporaryFile file(Document(ObjectType("A", {}, PropertyText("P", "mira_bool", "no"))),
                           "b\xC3\xBCro.xml");
  const TraceCapture trace(6);
  EXPECT_EQ(ReadObjectTypesFromFile(Handle(), file.Path().c_str(), nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(trace.Messages(), Contains("XML: In file " + file.Path() + ", line 5"));
}

TEST_F(TypeDocumentTest, FailsWithoutItsFile) {
  for (const char* path : {"/tmp/zn_there_is_no_such_file", "/tmp"}) {
    const TraceCapture trace(6);
    EXPECT_EQ(ReadObjectTypesFromFile(Handle(), path, nullptr), ZNE_XML_SOURCE_INVALID);
    EXPECT_THAT(trace.Messages(), Contains(HasSubstr(path)));
    EXPECT_THAT(trace.Messages(), Contains("XML: Error while parsing xml file"));
  }
}

TEST_F(TypeDocumentTest, RefusesBadPointers) {
  EXPECT_EQ(ReadObjectTypesFromFile(Handle(), nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ReadObjectTypesFromMemory(Handle(), nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
}

TEST_F(TypeDocumentTest, IsReadByTwoThreadsOneAfterTheOther) {
  const std::string first = Document(ObjectType("A", {}, PropertyText("P", "mira_int32", "1")));
  const std::string second = Document(ObjectType("B", {}, PropertyText("P", "mira_int32", "1")));
  EXPECT_EQ(Read(Document("")), ZN_OK);  // starts the XML platform
  std::thread other([&] { EXPECT_EQ(Read(first), ZN_OK); });
  EXPECT_EQ(Read(second), ZN_OK);
  other.join();
  EXPECT_THAT(Types(), ElementsAre("A", "B"));
}

// A parser on which the XML platform does not start.
class DeadParser final : public FormalizationParser {
 public:
  using FormalizationParser::FormalizationParser;

 protected:
  void StartPlatform() override {
    FormalizationParser::StartPlatform();  // exceptions have their texts from it
    ThrowXML(xercesc::RuntimeException, xercesc::XMLExcepts::File_CouldNotOpenFile);
  }
};

TEST(DocumentReader, TellsThatThePlatformDoesNotStart) {
  const TraceCapture trace(6);
  DocumentReader reader(std::make_unique<DeadParser>(&TraceFault));
  EXPECT_EQ(reader.Parse({.text = "<a/>"}), ZNE_XML_SOURCE_INVALID);
  EXPECT_EQ(reader.Document(), nullptr);
  // The message stands on a line of its own, behind the end of the first.
  EXPECT_THAT(trace.Messages(),
              ElementsAre("Error during initialization! :", "XML: Error while parsing xml file"));
}

TEST(DocumentReader, TellsThatTheParserGaveUp) {
  const TraceCapture trace(6);
  TraceFault({FormalizationFault::Kind::kParse, "file.xml", 0, "out of luck"});
  EXPECT_THAT(trace.Messages(), ElementsAre("Error during parsing! :"));
}

TEST(RequiredElements, HaveWordsForEachFailure) {
  const struct {
    const char* element;
    const char* missing;
  } cases[] = {
      {"MIRA_FORMALIZATION", "XML: Got an xml file with no MIRA_FORMALIZATION element"},
      {"PROPSET", "XML: No PROPSET element exists"},
      {"ALERT_PARAM", "XML: No ALERT_PARAM element exists"},
  };
  for (const auto& c : cases) {
    const TraceCapture trace(6);
    EXPECT_EQ(TellRequired(ZN_OK, c.element), ZN_OK);
    EXPECT_EQ(TellRequired(ZNE_OBJECT_NOT_FOUND, c.element), ZNE_XML_SOURCE_INVALID);
    EXPECT_EQ(TellRequired(ZNE_OUT_OF_MEMORY, c.element), ZNE_OUT_OF_MEMORY);
    EXPECT_THAT(trace.Messages(),
                ElementsAre(c.missing, std::string("XML: Unknown error while getting ") +
                                           c.element + " element"));
  }
}

TEST(Filter, HasWordsForItsFailure) {
  const TraceCapture trace(6);
  TraceFragmentFailure(ZN_OK);
  TraceFragmentFailure(ZNE_OUT_OF_MEMORY);
  EXPECT_THAT(trace.Messages(), ElementsAre("XML: Problem in creating a document fragment"));
}

TEST(Dom, LetsNoExceptionOut) {
  xercesc::XMLPlatformUtils::Initialize();  // its exceptions allocate by the platform's means
  EXPECT_EQ(GuardDom([]() -> u32 { return ZNE_TYPE_EXISTS; }), ZNE_TYPE_EXISTS);
  EXPECT_EQ(GuardDom([]() -> u32 { throw std::bad_alloc(); }), ZNE_OUT_OF_MEMORY);
  EXPECT_EQ(GuardDom([]() -> u32 { throw xercesc::OutOfMemoryException(); }), ZNE_OUT_OF_MEMORY);
  EXPECT_EQ(GuardDom([]() -> u32 {
              throw xercesc::DOMException(xercesc::DOMException::NOT_FOUND_ERR, 0,
                                          xercesc::XMLPlatformUtils::fgMemoryManager);
            }),
            ZNE_UNEXPECTED);
  xercesc::XMLPlatformUtils::Terminate();
}

// A body that cannot be copied for want of memory.
struct DearBody {
  DearBody() = default;
  DearBody(const DearBody&) { throw std::bad_alloc(); }
  DearBody& operator=(const DearBody&) = delete;
  u32 operator()() const { return ZN_OK; }
};

TEST(Dom, DoesNotCopyWhatItRuns) {
  const DearBody body;
  EXPECT_EQ(GuardDom(body), ZN_OK);
}

// The graph lets no circle in, so that the order of a document never fails for one; whatever else
// would make it fail has its words too.
TEST(ObjectTypeOrder, HasWordsForItsFailures) {
  const TraceCapture trace(5);
  TraceOrderFailure(ZN_OK);
  TraceOrderFailure(ZNE_PROVIDER_REG_CIRCULAR);
  TraceOrderFailure(ZNE_OUT_OF_MEMORY);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("XML: OBJECT_TYPEs in xml source have circular dependencies",
                          "XML: Topological sorting of OBJECT_TYPEs failed"));
}

TEST(ObjectTypeOrder, TakesACircleForLessThanAnyOtherFailure) {
  const TraceCapture worse(6);
  TraceOrderFailure(ZNE_PROVIDER_REG_CIRCULAR);
  TraceOrderFailure(ZNE_OUT_OF_MEMORY);
  EXPECT_THAT(worse.Messages(), ElementsAre("XML: Topological sorting of OBJECT_TYPEs failed"));
}

}  // namespace
}  // namespace zn::test
