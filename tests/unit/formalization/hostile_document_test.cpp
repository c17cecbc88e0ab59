// Documents that mean harm: they fail, soon, without opening anything and without taking the memory
// or the stack of the process with them.
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "framework/common/znxml_dom_processor/formalization.h"
#include "tests/unit/formalization/documents.h"

namespace zn::test {
namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

// Far more than any of them needs, also under a sanitizer, and far less than each of them wants.
constexpr std::chrono::seconds kSoon{20};

class HostileDocumentTest : public DocumentTest {
 protected:
  // Reads the document with the library and alone; it fails both ways. The first fault's text.
  std::string Refused(const std::string& text) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(ReadObjectTypesFromMemory(Handle(), text.c_str(), nullptr), ZNE_XML_SOURCE_INVALID);
    EXPECT_THAT(Types(), IsEmpty());
    const Parsed parsed(text);
    EXPECT_EQ(parsed.status, ZNE_XML_SOURCE_INVALID);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kSoon);
    EXPECT_FALSE(parsed.faults.empty());
    EXPECT_LE(parsed.faults.size(), formalization::kMaxFaults + 1);
    return parsed.faults.empty() ? std::string() : parsed.faults.front().text;
  }
};

// A document whose own document type holds `declarations`.
std::string WithSubset(const std::string& declarations, const std::string& content = {}) {
  return "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\" [\n" + declarations +
         "]>\n<MIRA_FORMALIZATION>" + content + "</MIRA_FORMALIZATION>";
}

std::string TypeWithText(const std::string& text) {
  return ObjectType("A", {}, PropertyText("P", "mira_string", text));
}

// Each of `levels` entities names the one before ten times.
std::string Laughs(int levels, const std::string& seed = "ha") {
  std::string text = "<!ENTITY e0 \"" + seed + "\">\n";
  for (int i = 1; i <= levels; ++i) {
    text += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) text += "&e" + std::to_string(i - 1) + ";";
    text += "\">\n";
  }
  return text;
}

TEST_F(HostileDocumentTest, BillionLaughsAreRefusedBeforeTheFirst) {
  EXPECT_THAT(Refused(WithSubset(Laughs(9), TypeWithText("&e9;"))), HasSubstr("expand"));
  EXPECT_THAT(Refused(WithSubset(Laughs(40, ""), TypeWithText("&e40;"))), HasSubstr("expand"));
}

TEST_F(HostileDocumentTest, BillionLaughsInADefaultValueAreRefused) {
  const std::string laughs = Laughs(9) + "<!ATTLIST PROPERTY Extra CDATA \"&e9;\">\n";
  EXPECT_THAT(Refused(WithSubset(laughs, TypeWithText("a"))), HasSubstr("expand"));
}

TEST_F(HostileDocumentTest, BillionLaughsDeclaredBackwardsAreRefused) {
  std::string text;
  for (int i = 9; i >= 1; --i) {
    text += "<!ENTITY e" + std::to_string(i) + " \"";
    for (int k = 0; k < 10; ++k) text += "&e" + std::to_string(i - 1) + ";";
    text += "\">\n";
  }
  text += "<!ENTITY e0 \"ha\">\n";
  EXPECT_THAT(Refused(WithSubset(text, TypeWithText("&e9;"))), HasSubstr("expand"));
}

TEST_F(HostileDocumentTest, AnEntityThatNamesItselfIsRefused) {
  EXPECT_THAT(Refused(WithSubset("<!ENTITY a \"&b;\"><!ENTITY b \"&a;\">", TypeWithText("&a;"))),
              HasSubstr("expand"));
}

TEST_F(HostileDocumentTest, ALongEntityUsedManyTimesIsRefused) {
  EXPECT_THAT(
      Refused(WithSubset("<!ENTITY a \"" + std::string(100000, 'x') + "\">", TypeWithText("&a;"))),
      HasSubstr("expand"));
}

TEST_F(HostileDocumentTest, TooManyUsesOfAnEntityAreRefused) {
  std::string uses;
  for (size_t i = 0; i <= formalization::kMaxExpansions; ++i) uses += "&a;";
  const Parsed parsed(WithSubset("<!ENTITY a \"x\">", TypeWithText(uses)));
  EXPECT_EQ(parsed.status, ZNE_XML_SOURCE_INVALID);
  EXPECT_EQ(parsed.faults.size(), 1u);
  EXPECT_EQ(ReadObjectTypesFromMemory(
                Handle(), WithSubset("<!ENTITY a \"x\">", TypeWithText(uses)).c_str(), nullptr),
            ZNE_XML_SOURCE_INVALID);
}

TEST_F(HostileDocumentTest, TooManyEntitiesAreRefused) {
  std::string text;
  for (size_t i = 0; i <= formalization::kMaxEntities; ++i) {
    text += "<!ENTITY e" + std::to_string(i) + " \"x\">";
  }
  EXPECT_THAT(Refused(WithSubset(text)), HasSubstr("expand"));
}

TEST_F(HostileDocumentTest, ParameterEntitiesAreRefused) {
  EXPECT_THAT(Refused(WithSubset("<!ENTITY % a \"&#37;b;\">")), HasSubstr("parameter entities"));
  EXPECT_THAT(Refused(WithSubset("<!ENTITY % a SYSTEM \"file:///etc/passwd\"> %a;")),
              HasSubstr("parameter entities"));
}

// A harmless use, so that the tests above cannot pass because all entities fail.
TEST_F(HostileDocumentTest, ASmallEntityIsFine) {
  const std::string text =
      WithSubset("<!ENTITY maker \"Acme &amp; Sons\">", TypeWithText("by &maker;, &maker;"));
  EXPECT_EQ(ReadObjectTypesFromMemory(Handle(), text.c_str(), nullptr), ZN_OK);
  const Value* value = Type("A")->Properties().FindValue("P", ZN_TYPE_STRING);
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->AsText(), "by Acme & Sons, Acme & Sons");
}

// A file that the document must not bring in, in any way.
TEST_F(HostileDocumentTest, NoFileButTheDocumentIsEverOpened) {
  const TemporaryFile canary("canary-4711", "canary.txt");
  const std::string url = "file://" + canary.Path();
  const std::string documents[] = {
      WithSubset("<!ENTITY a SYSTEM \"" + canary.Path() + "\">", TypeWithText("&a;")),
      WithSubset("<!ENTITY a SYSTEM \"" + url + "\">", TypeWithText("&a;")),
      WithSubset("<!ENTITY a PUBLIC \"x\" \"" + url + "\">", TypeWithText("&a;")),
      "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"" + url + "\"><MIRA_FORMALIZATION/>",
      "<!DOCTYPE MIRA_FORMALIZATION PUBLIC \"x\" \"" + canary.Path() + "\"><MIRA_FORMALIZATION/>",
  };
  for (const std::string& document : documents) {
    SCOPED_TRACE(document);
    struct stat before {};
    ASSERT_EQ(stat(canary.Path().c_str(), &before), 0);
    EXPECT_THAT(Refused(document), HasSubstr("is not opened"));
  }
}

TEST_F(HostileDocumentTest, APipeInPlaceOfTheDocumentIsNotWaitedFor) {
  const TemporaryFile pipe("", "pipe.xml");
  ASSERT_EQ(unlink(pipe.Path().c_str()), 0);
  ASSERT_EQ(mkfifo(pipe.Path().c_str(), 0600), 0);
  const TraceCapture trace(6);
  EXPECT_EQ(ReadObjectTypesFromFile(Handle(), pipe.Path().c_str(), nullptr),
            ZNE_XML_SOURCE_INVALID);
  EXPECT_THAT(trace.Messages(), Contains(HasSubstr(pipe.Path())));
}

// An external entity can be declared, as long as nobody asks for it; names and schemas that a
// reader might follow are only names.
TEST_F(HostileDocumentTest, NamesOfOtherDocumentsAreNotFollowed) {
  const TemporaryFile canary("<!ELEMENT canary", "canary.txt");
  const std::string text = WithSubset("<!ENTITY a SYSTEM \"" + canary.Path() +
                                          "\">\n<!NOTATION n SYSTEM \"" + canary.Path() + "\">\n" +
                                          "<!ATTLIST MIRA_FORMALIZATION xmlns:xsi CDATA #IMPLIED "
                                          "xsi:noNamespaceSchemaLocation CDATA #IMPLIED>",
                                      TypeWithText("a"));
  const std::string located =
      std::string(text).replace(text.find("<MIRA_FORMALIZATION>"), 20,
                                "<MIRA_FORMALIZATION xmlns:xsi='http://www.w3.org/2001/"
                                "XMLSchema-instance' xsi:noNamespaceSchemaLocation='" +
                                    canary.Path() + "'>");
  EXPECT_EQ(ReadObjectTypesFromMemory(Handle(), located.c_str(), nullptr), ZN_OK);
  EXPECT_THAT(Types(), testing::ElementsAre("A"));
}

// A listening socket that the document names: nobody may knock.
class ListeningSocket {
 public:
  ListeningSocket() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(socket_, 4), 0);
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port_ = ntohs(address.sin_port);
  }
  ~ListeningSocket() { close(socket_); }
  ListeningSocket(const ListeningSocket&) = delete;
  ListeningSocket& operator=(const ListeningSocket&) = delete;
  [[nodiscard]] std::string Url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/document.dtd";
  }
  [[nodiscard]] bool WasCalled() const {
    const int peer = accept(socket_, nullptr, nullptr);
    if (peer >= 0) close(peer);
    return peer >= 0;
  }

 private:
  int socket_;
  int port_ = 0;
};

TEST_F(HostileDocumentTest, NoAddressIsEverCalled) {
  const ListeningSocket canary;
  const std::string documents[] = {
      WithSubset("<!ENTITY a SYSTEM \"" + canary.Url() + "\">", TypeWithText("&a;")),
      "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"" + canary.Url() + "\"><MIRA_FORMALIZATION/>",
  };
  for (const std::string& document : documents) {
    EXPECT_THAT(Refused(document), HasSubstr("is not opened"));
    EXPECT_FALSE(canary.WasCalled());
  }
}

// The document type is found by its name, wherever the document says that it lies.
TEST_F(HostileDocumentTest, TheDocumentTypeComesFromMemoryWhateverItsPath) {
  for (const char* id :
       {"mira_formalization.dtd", "../schemas/mira_formalization.dtd",
        "file:///nowhere/mira_formalization.dtd", "http://127.0.0.1:1/mira_formalization.dtd"}) {
    const Parsed parsed("<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"" + std::string(id) +
                        "\"><MIRA_FORMALIZATION/>");
    EXPECT_EQ(parsed.status, ZN_OK) << id;
  }
}

std::string Repeated(const std::string& piece, size_t bytes) {
  std::string text = piece;
  while (text.size() < bytes) text += text;  // quick without an optimizer too
  return text;
}

constexpr size_t kHundredMegabytes = size_t{100} << 20;

TEST_F(HostileDocumentTest, AHundredMegabytesOfNestingAreRefused) {
  EXPECT_THAT(Refused("<!DOCTYPE a [<!ELEMENT a ANY>]>" + Repeated("<a>", kHundredMegabytes)),
              HasSubstr("nest too deep"));
}

TEST_F(HostileDocumentTest, AHundredMegabytesOfNestedSetsAreRefused) {
  const std::string level = "<PROPERTY Name=\"P\" Type=\"mira_propset\"><PROPSET>";
  EXPECT_THAT(
      Refused(std::string(kDoctype) + "<MIRA_FORMALIZATION><OBJECT_TYPE Name=\"A\"><PROPSET>" +
              Repeated(level, kHundredMegabytes)),
      HasSubstr("nest too deep"));
}

TEST_F(HostileDocumentTest, AsMuchNestingAsIsAllowedIsFine) {
  // Three elements around them; each level is two.
  const size_t levels = (formalization::kMaxDepth - 3) / 2;
  const auto nested = [](size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i)
      text += "<PROPERTY Name=\"P\" Type=\"mira_propset\"><PROPSET>";
    for (size_t i = 0; i < count; ++i) text += "</PROPSET></PROPERTY>";
    return Document(ObjectType("A", {}, text));
  };
  EXPECT_EQ(ReadObjectTypesFromMemory(Handle(), nested(levels).c_str(), nullptr), ZN_OK);
  EXPECT_THAT(Types(), testing::ElementsAre("A"));
  EXPECT_EQ(Parsed(nested(levels + 1)).status, ZNE_XML_SOURCE_INVALID);
}

TEST_F(HostileDocumentTest, ADocumentTypeWithoutAnEndIsRefused) {
  EXPECT_THAT(Refused("<!DOCTYPE a [<!ELEMENT a " + Repeated("(", kHundredMegabytes)),
              testing::AnyOf(HasSubstr("before the root element"), HasSubstr("content")));
  EXPECT_THAT(Refused("<!--" + Repeated("x", kHundredMegabytes)),
              HasSubstr("before the root element"));
  EXPECT_THAT(Refused("<!DOCTYPE a [<!ATTLIST a b CDATA \"" + Repeated("&amp;", kHundredMegabytes)),
              HasSubstr("before the root element"));
}

TEST_F(HostileDocumentTest, FaultsWithoutAnEndAreRefused) {
  const Parsed parsed(Document(Repeated("<OTHER/>", size_t{1} << 20)));
  EXPECT_EQ(parsed.faults.size(), formalization::kMaxFaults + 1);
  EXPECT_THAT(parsed.faults.back().text, HasSubstr("too many faults"));
}

TEST_F(HostileDocumentTest, MoreMemoryThanThereShallBeIsRefused) {
  // Many small elements: each takes several times its text.
  const std::string text = Document(Repeated(
      ObjectType("A", {}, PropertyText("P", "mira_string", "x")), formalization::kMaxMemory / 8));
  const Parsed parsed(text);
  EXPECT_EQ(parsed.status, ZNE_XML_SOURCE_INVALID);
  ASSERT_FALSE(parsed.faults.empty());
  EXPECT_THAT(parsed.faults.back().text, HasSubstr("too much memory"));
}

// Entities are dear enough to refuse before any of these ampersands has found where it ends.
TEST_F(HostileDocumentTest, AnEntityOfAmpersandsIsRefused) {
  EXPECT_THAT(
      Refused(WithSubset("<!ENTITY a \"" + Repeated("&#38;", 150000) + "\">", TypeWithText("&a;"))),
      HasSubstr("expand"));
}

// Each element would get a copy of it.
TEST_F(HostileDocumentTest, ALongDefaultValueOfManyElementsIsRefused) {
  std::string uses;
  for (int i = 0; i < 9000; ++i) uses += "&a;";
  std::string properties;
  for (int i = 0; i < 200; ++i) {
    properties += PropertyText("P" + std::to_string(i), "mira_string", "x");
  }
  EXPECT_THAT(Refused(WithSubset("<!ENTITY a \"" + std::string(1000, 'x') +
                                     "\">\n<!ATTLIST PROPERTY Extra CDATA \"" + uses + "\">\n",
                                 ObjectType("A", {}, properties))),
              HasSubstr("too much memory"));
}

// --- good documents that ask for much work ----------------------------------------------------

std::string NumberedType(size_t number) {
  return "T" + std::to_string(number);
}

TEST_F(HostileDocumentTest, AChainOfThousandsOfTypesIsMade) {
  constexpr size_t kLength = 3000;
  std::string types = ObjectType(NumberedType(0));
  for (size_t i = 1; i < kLength; ++i) {
    types += ObjectType(NumberedType(i), NumberedType(i - 1),
                        PropertyText("P" + std::to_string(i), "mira_uint32", ""));
  }
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(ReadObjectTypesFromMemory(Handle(), Document(types).c_str(), nullptr), ZN_OK);
  const BusLock lock;
  const TypeObject* last = database_->Types().FindType(NumberedType(kLength - 1));
  ASSERT_NE(last, nullptr);
  EXPECT_TRUE(last->IsA(*database_->Types().FindType(NumberedType(0))));
  // Written out, each type stands behind its supertype.
  std::vector<std::string> written;
  for (const PropertySet& form : database_->Types().DumpTypeGraph()) {
    const std::string_view name = form.FindValue("TypeName", ZN_TYPE_STRING)->AsText();
    if (name.front() == 'T') written.emplace_back(name);
  }
  ASSERT_EQ(written.size(), kLength);
  for (size_t i = 0; i < kLength; ++i) ASSERT_EQ(written[i], NumberedType(i));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3 * kSoon);
}

TEST_F(HostileDocumentTest, ATypeOfManySupertypesIsMade) {
  constexpr size_t kCount = 3000;
  std::string types;
  std::string all;
  for (size_t i = 0; i < kCount; ++i) {
    types +=
        ObjectType(NumberedType(i), {}, PropertyText("P" + std::to_string(i), "mira_bool", ""));
    all += (i == 0 ? "" : ",") + NumberedType(i);
  }
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_EQ(ReadObjectTypesFromMemory(Handle(), Document(types + ObjectType("All", all)).c_str(),
                                      nullptr),
            ZN_OK);
  ASSERT_NE(Type("All"), nullptr);
  EXPECT_EQ(Type("All")->Supertypes().size(), kCount);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3 * kSoon);
}

struct EncodingCase {
  const char* why;
  std::string text;
};

std::string Wide(const std::string& ascii, bool bigEndian) {
  std::string text;
  for (const char c : ascii) text += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
  return text;
}

TEST_F(HostileDocumentTest, WrongEncodingsAreRefused) {
  const std::string body = std::string(kDoctype) + "<MIRA_FORMALIZATION>";
  const std::string end = "</MIRA_FORMALIZATION>";
  const std::string wide = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>" + body + end;
  const EncodingCase cases[] = {
      {"bytes that are no UTF-8", body + ObjectType("A\xFF") + end},
      {"a sequence that ends early", body + ObjectType("A\xC3") + end},
      {"an overlong form", body + ObjectType("A\xC0\x80") + end},
      {"a surrogate", body + ObjectType("A\xED\xA0\x80") + end},
      {"beyond Unicode", body + ObjectType("A\xF4\x90\x80\x80") + end},
      {"a byte that UTF-8 does not have", body + ObjectType("A\xF5\x80\x80\x80") + end},
      {"the same in a comment", body + "<!--\xF5\x80\x80\x80-->" + end},
      {"the same, said to be UTF-8",
       "<?xml version=\"1.0\" encoding=\"utf-8\"?>" + body + ObjectType("A\xF6\x80\x80\x80") + end},
      {"an encoding that nobody knows",
       "<?xml version=\"1.0\" encoding=\"KLINGON-1\"?>" + body + end},
      {"another width than it says", "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + body + end},
      {"wide text that says it is narrow", "\xFF\xFE" + Wide(wide, false)},
      {"half a unit at the end", "\xFF\xFE" + Wide(body, false) + "x"},
      {"a character that XML does not have", body + ObjectType("A&#0;") + end},
      {"a control character", body + ObjectType(std::string("A\x01")) + end},
  };
  for (const EncodingCase& c : cases) {
    SCOPED_TRACE(c.why);
    const TemporaryFile file(c.text, "encoding.xml");
    EXPECT_EQ(ReadObjectTypesFromFile(Handle(), file.Path().c_str(), nullptr),
              ZNE_XML_SOURCE_INVALID);
    EXPECT_THAT(Types(), IsEmpty());
  }
}

TEST_F(HostileDocumentTest, RightEncodingsAreRead) {
  const std::string body = std::string(kDoctype) + "<MIRA_FORMALIZATION>" +
                           TypeWithText("\xFC\xF5") + "</MIRA_FORMALIZATION>";
  const std::string latin = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + body;
  const std::string wide = "<?xml version=\"1.0\" encoding=\"UTF-16\"?>" + body;
  for (const std::string& text :
       {latin, "\xFF\xFE" + Wide(wide, false), "\xFE\xFF" + Wide(wide, true)}) {
    const TemporaryFile file(text, "encoding.xml");
    const BusLock lock;
    Database database(0, {});
    ASSERT_EQ(RegisterBaseObjectTypes(database), ZN_OK);
    EXPECT_EQ(ReadObjectTypesFromFile(database.Handle(), file.Path().c_str(), nullptr), ZN_OK);
    ASSERT_NE(database.Types().FindType("A"), nullptr);
    EXPECT_EQ(database.Types().FindType("A")->Properties().At(0).GetValue().AsText(),
              "\xC3\xBC\xC3\xB5");
  }
}

TEST_F(HostileDocumentTest, EveryBeginningOfAGoodDocumentIsRefused) {
  const std::string text =
      Document(ObjectType("A", "B", PropertyText("P", "mira_string", "a &amp; b", "Array=\"Y\"")) +
               ObjectType("B"));
  ASSERT_EQ(Parsed(text).status, ZN_OK);
  const size_t end = text.rfind('>');
  for (size_t length = 0; length < end; ++length) {
    EXPECT_EQ(Parsed(text.substr(0, length)).status, ZNE_XML_SOURCE_INVALID) << length;
  }
}

}  // namespace
}  // namespace zn::test
