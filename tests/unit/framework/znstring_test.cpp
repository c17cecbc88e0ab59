#include "framework/common/znstring/znstring.h"

#include <gtest/gtest.h>

#include "framework/common/widestring/widestring.h"
#include "zn/memory.h"

namespace zn {
namespace {

TEST(String, ACopyKeepsItsTextWhenTheOriginalChanges) {
  const String first("abc");
  String second(first);
  EXPECT_TRUE(second.SharesWith(first));
  second.SetAt(1, 'X');
  EXPECT_EQ(first.Text(), "abc");
  EXPECT_EQ(second.Text(), "aXc");
  second.Append('!');
  EXPECT_EQ(second.Text(), "aXc!");
}

TEST(String, AnIndexOutsideTheTextReadsAsZeroAndChangesNothing) {
  String text("abc");
  EXPECT_EQ(text.At(-1), 0);
  EXPECT_EQ(text.At(3), 0);
  EXPECT_EQ(text.At(2), 'c');
  text.SetAt(-1, 'x');
  text.SetAt(3, 'x');
  EXPECT_EQ(text.Text(), "abc");
}

// Out of line: the compiler does not follow the counts, and would see a use after a delete.
[[gnu::noinline]] void Assign(String& to, const String& from) {
  to = from;
}

TEST(String, AssignedToItselfKeepsItsText) {
  String text("abc");
  Assign(text, text);
  EXPECT_EQ(text.Text(), "abc");
}

TEST(String, DefaultStringsShareOneBlock) {
  const String a;
  const String b;
  const String fromNull(static_cast<const char*>(nullptr));
  EXPECT_TRUE(a.SharesWith(b));
  EXPECT_TRUE(a.SharesWith(fromNull));
  EXPECT_STREQ(a.CStr(), "");
  String cleared("x");
  cleared.Clear();
  EXPECT_TRUE(cleared.SharesWith(a));
}

TEST(String, ComparesByBytesAndWithCase) {
  EXPECT_TRUE(String("a") < String("b"));
  EXPECT_TRUE(String("a") < String("aa"));
  EXPECT_TRUE(String("Z") < String("a"));
  EXPECT_TRUE(String("\x7f") < String("\x80"));
  EXPECT_TRUE(String("abc") == "abc");
  EXPECT_TRUE(String("abc") != "Abc");
  EXPECT_EQ(CompareNoCase(String("ABC"), String("abc")), 0);
  EXPECT_LT(CompareNoCase(String("ABC"), String("abd")), 0);
  EXPECT_GT(CompareNoCase(String("abcd"), String("ABC")), 0);
  EXPECT_EQ(CompareNoCase(String("\xC3\xBC"), String("\xC3\x9C")), 0) << "as ZnlstrcmpA has it";
  EXPECT_EQ(CompareNoCase(Widen("a\xC3\xBC"), Widen("A\xC3\x9C")), 0);
}

TEST(String, ConcatLeavesItsPartsAsTheyWere) {
  const String head("ab");
  EXPECT_EQ(String::Concat(head, "cd").Text(), "abcd");
  EXPECT_EQ(head.Text(), "ab");
}

TEST(WideString, WidensAndNarrowsUtf8) {
  const WideString wide = Widen("Gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80");
  EXPECT_EQ(wide.Text(), u"Gr\u00fc\u00df \U0001F600");
  char* narrow = ToNarrowCopy(wide);
  EXPECT_STREQ(narrow, "Gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80");
  ZnFree(narrow);
}

TEST(WideString, FindCountsFromOneAndTellsATextThatIsTooLong) {
  const WideString text(u"a%1b%1");
  EXPECT_EQ(Find(text, u"%1", 0), 2);
  EXPECT_EQ(Find(text, u"%1", 2), 5);
  EXPECT_EQ(Find(text, u"%2", 0), 0);
  EXPECT_EQ(Find(text, u"1234567", 0), -1);
}

TEST(WideString, SubIsCutToTheText) {
  const WideString text(u"abcdef");
  EXPECT_EQ(Sub(text, 1, 3).Text(), u"bc");
  EXPECT_EQ(Sub(text, 4, 99).Text(), u"ef");
  EXPECT_TRUE(Sub(text, 6, 9).IsEmpty());
  EXPECT_TRUE(Sub(text, 3, 3).IsEmpty());
}

}  // namespace
}  // namespace zn
