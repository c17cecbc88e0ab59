#include "framework/common/zni18n/catalog.h"

#include <cstdio>
#include <memory>
#include <string>

#include "support/common/status.h"
#include "tests/unit/framework/fixture.h"
#include "tests/unit/support/temporary.h"

namespace zn::test {
namespace {

struct FileClose {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// The text of a message in a catalog of these bytes; "(none)" without one.
std::string MessageIn(std::string text, u32 message) {
  if (text.empty()) text = "\n";  // no stream is made of nothing
  const std::unique_ptr<std::FILE, FileClose> file(fmemopen(text.data(), text.size(), "r"));
  std::string found;
  return FindMessage(file.get(), message, &found) ? found : "(none)";
}

struct LineCase {
  const char* why;
  const char* lines;
  u32 message;
  const char* text;
};

TEST(CatalogFile, HasALinePerMessage) {
  constexpr LineCase kCases[] = {
      {"a number in hexadecimal", "0A = Hello", 10, "Hello"},
      {"a prefix is read too", "0x0A=Hello", 10, "Hello"},
      {"a capital prefix", "0X0A=Hello", 10, "Hello"},
      {"small letters", "c100004d=Hello", 0xC100004D, "Hello"},
      {"white space at the ends does not count", " \t0A \v=\f Hello you \r\n", 10, "Hello you"},
      {"a comment", "#0A=x", 10, "(none)"},
      {"a comment behind blanks", "   #0A=x", 10, "(none)"},
      {"an empty line", "\n\n  \n0A=x", 10, "x"},
      {"an empty line is no message 0", "\n\n", 0, "(none)"},
      {"the first of two", "0A=first\n0A=second", 10, "first"},
      {"the first = splits", "0A = a = b", 10, "a = b"},
      {"an empty text", "0A=", 10, ""},
      {"a text of blanks", "0A=   \t", 10, ""},
      {"no such message", "0A=x\n0B=y", 12, "(none)"},
      {"a line without = counts as message 0", "0A", 0, "0A"},
      {"and not as its number", "0A", 10, "(none)"},
      {"an empty number is 0", "=zero", 0, "zero"},
      {"letters that are no digits are 0", "xyz=zero", 0, "zero"},
      {"what stands behind the digits is not looked at", "0A rest=x", 10, "x"},
      {"a sign", "-1=x", 0xFFFFFFFF, "x"},
      {"a plus sign", "+A=x", 10, "x"},
      {"a number too long is the largest", "123456789=x", 0xFFFFFFFF, "x"},
      {"the last line needs no end", "0A=x\n0B=y", 11, "y"},
      {"UTF-8", "0A=\xC3\xBC\xE2\x82\xAC", 10, "\xC3\xBC\xE2\x82\xAC"},
  };
  for (const LineCase& c : kCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(MessageIn(c.lines, c.message), c.text);
  }
}

TEST(CatalogFile, ALineOfMoreThan1023BytesIsTwo) {
  const std::string head = "0A=";
  const std::string whole(1023 - head.size(), 'x');
  EXPECT_EQ(MessageIn(head + whole + "\n", 10), whole);
  EXPECT_EQ(MessageIn(head + whole + "0B=second half\n", 10), whole);
  EXPECT_EQ(MessageIn(head + whole + "0B=second half\n", 11), "second half");
}

TEST(CatalogFile, ALineEndsAtAZero) {
  EXPECT_EQ(MessageIn(std::string("0A=x\0y\n0B=z", 11), 10), "x");
  EXPECT_EQ(MessageIn(std::string("0A=x\0y\n0B=z", 11), 11), "z");
}

class CatalogTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_EQ(RegisterMissingSystemTypes(*database_), ZN_OK);
  }
  DBNode* MakeExtension(const char* id, u32 locale = 0x409, u32 platform = 1,
                        const char* skin = "MiraSkin", const std::u16string& path = u"/the/file") {
    DBNode* node = Make("KELD_Extension");
    Set(node, "Id", Value::Text(id));
    Set(node, "Locale", Value::UInt32(locale));
    Set(node, "Platform", Value::UInt32(platform));
    Set(node, "Skin", Value::Text(skin));
    Set(node, "ImageFile", Value::WideText(path));
    return node;
  }
  static void Set(DBNode* node, const char* name, Value value) {
    EXPECT_EQ(node->SetProperty(Property(name, std::move(value))), ZN_OK);
  }
  // The path, or the status as text.
  std::u16string Find(const CatalogKey& key) {
    std::u16string path;
    const u32 status = FindCatalogFile(*database_, key, &path);
    if (status == ZNE_CATALOG_NOT_PRESENT) return u"(not present)";
    EXPECT_EQ(status, ZN_OK);
    return path;
  }

  CatalogKey key_{
      {0xABCDEF01, 0x2345, 0x6789, {0xAB, 0xCD, 1, 2, 3, 4, 5, 6}}, 0x409, "MiraSkin", 1};
  static constexpr const char* kId = "{abcdef01-2345-6789-abcd-010203040506}";
};

TEST_F(CatalogTest, IsFoundByIdLocalePlatformAndSkin) {
  MakeExtension(kId);
  EXPECT_EQ(Find(key_), u"/the/file");
}

TEST_F(CatalogTest, TheIdIsComparedWithoutCaseAndTheSkinWithIt) {
  MakeExtension("{ABCDEF01-2345-6789-aBcD-010203040506}");
  EXPECT_EQ(Find(key_), u"/the/file");
  key_.skin = "MIRASKIN";
  EXPECT_EQ(Find(key_), u"(not present)");
}

TEST_F(CatalogTest, EveryPartMustMatch) {
  EXPECT_EQ(Find(key_), u"(not present)");
  MakeExtension("{00000000-0000-0000-0000-000000000001}");
  MakeExtension(kId, 0x407);
  MakeExtension(kId, 0x409, 2);
  MakeExtension(kId, 0x409, 1, "Other");
  EXPECT_EQ(Find(key_), u"(not present)");
  MakeExtension(kId, 0x409, 1, "MiraSkin", u"/the/right/one");
  EXPECT_EQ(Find(key_), u"/the/right/one");
}

TEST_F(CatalogTest, AnObjectWithoutAPartOrWithAnotherTypeOfItIsPassedOver) {
  for (const char* name : {"Id", "Locale", "Platform", "Skin", "ImageFile"}) {
    DBNode* node = MakeExtension(kId);
    EXPECT_EQ(node->DeleteProperty(name), ZN_OK);
    EXPECT_EQ(Find(key_), u"(not present)") << name;
    Set(node, name, Value::Bool(1));
    EXPECT_EQ(Find(key_), u"(not present)") << name;
    database_->DeleteNode(node);
  }
}

TEST_F(CatalogTest, TheFirstMatchEndsTheSearch) {
  MakeExtension(kId, 0x409, 1, "MiraSkin", u"/first");
  MakeExtension(kId, 0x409, 1, "MiraSkin", u"/second");
  EXPECT_EQ(Find(key_), u"/first");
}

TEST_F(CatalogTest, ObjectsOfDerivedTypesCount) {
  MakeType("MyExtension", {}, {"KELD_Extension"});
  DBNode* node = Make("MyExtension");
  const DBNode* model = MakeExtension(kId);
  EXPECT_EQ(node->SetProperties(model->Properties()), ZN_OK);
  Set(node, "ImageFile", Value::WideText(u"/derived"));
  database_->DeleteNode(const_cast<DBNode*>(model));
  EXPECT_EQ(Find(key_), u"/derived");
}

TEST_F(CatalogTest, TheFileIsNotOpenedToBeFound) {
  MakeExtension(kId, 0x409, 1, "MiraSkin", u"/no/such/file");
  EXPECT_EQ(Find(key_), u"/no/such/file");
}

TEST_F(CatalogTest, WithoutTheTypeTheStatusOfTheListIsGiven) {
  Database bare(0, {});
  std::u16string path;
  EXPECT_EQ(FindCatalogFile(bare, key_, &path), ZNE_INVALID_ARGUMENTS);
}

TEST(ReadMessage, ReadsAndWidensTheText) {
  const TemporaryFolder folder;
  WriteFile(folder / "catalog.txt",
            "# a catalog\n0A = Gr\xC3\xBC\xC3\x9F"
            "e \xF0\x9F\x92\xBE\n");
  std::u16string text;
  EXPECT_EQ(ReadMessage(ToWide(folder / "catalog.txt"), 10, &text), ZN_OK);
  EXPECT_EQ(text, u"Gr\u00fc\u00dfe \U0001F4BE");
  EXPECT_EQ(ReadMessage(ToWide(folder / "catalog.txt"), 11, &text), ZNE_THING_NOT_FOUND);
}

TEST(ReadMessage, TakesBackslashesForSlashes) {
  const TemporaryFolder folder;
  WriteFile(folder / "catalog.txt", "1=x\n");
  std::u16string path = ToWide(folder / "catalog.txt");
  std::replace(path.begin(), path.end(), u'/', u'\\');
  std::u16string text;
  EXPECT_EQ(ReadMessage(path, 1, &text), ZN_OK);
  EXPECT_EQ(text, u"x");
}

TEST(ReadMessage, TracesAFileThatCannotBeOpened) {
  const TemporaryFolder folder;
  const TraceCapture traces(6);
  std::u16string text;
  EXPECT_EQ(ReadMessage(ToWide(folder / "absent"), 1, &text), ZNE_UNEXPECTED);
  EXPECT_TRUE(traces.Has("Unable to open the catalog file " + (folder / "absent")));
}

TEST(ReadMessage, OpensNothingButPlainFiles) {
  std::u16string text;
  EXPECT_EQ(ReadMessage(u"/dev/zero", 1, &text), ZNE_UNEXPECTED);
  EXPECT_EQ(ReadMessage(u"/tmp", 1, &text), ZNE_UNEXPECTED);
}

TEST(ReadMessage, SeesAChangedFileAtTheNextCall) {
  const TemporaryFolder folder;
  const std::u16string path = ToWide(folder / "catalog.txt");
  std::u16string text;
  WriteFile(folder / "catalog.txt", "1=old\n");
  ASSERT_EQ(ReadMessage(path, 1, &text), ZN_OK);
  WriteFile(folder / "catalog.txt", "1=new\n");
  ASSERT_EQ(ReadMessage(path, 1, &text), ZN_OK);
  EXPECT_EQ(text, u"new");
}

}  // namespace
}  // namespace zn::test
