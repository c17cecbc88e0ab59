#include "framework/common/znprov/textlist.h"

namespace zn {
namespace {

struct ListCase {
  const char* why;
  std::u16string_view list;
  std::u16string_view name;
  std::u16string_view result;
};

TEST(TextList, TakesTheFirstEntryOfTheNameOff) {
  constexpr ListCase kCases[] = {
      {"alone", u"a,", u"a", u""},
      {"in front", u"a,b,c,", u"a", u"b,c,"},
      {"in the middle", u"a,b,c,", u"b", u"a,c,"},
      {"at the end", u"a,b,c,", u"c", u"a,b,"},
      {"not there", u"a,b,", u"d", u"a,b,"},
      {"the first of two", u"a,b,a,", u"a", u"b,a,"},
      {"a prefix of an entry is none", u"ab,a,", u"a", u"ab,"},
      {"a suffix of an entry is none", u"ba,", u"a", u"ba,"},
      {"with regard to case", u"A,a,", u"a", u"A,"},
      {"an entry without its comma is none", u"a", u"a", u"a"},
      {"an empty list", u"", u"a", u""},
      {"the empty name", u",a,", u"", u"a,"},
  };
  for (const ListCase& c : kCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(WithoutEntry(c.list, c.name), c.result);
  }
}

TEST(TextList, AppendsTheNameAndAComma) {
  EXPECT_EQ(WithEntry(u"", u"a"), u"a,");
  EXPECT_EQ(WithEntry(u"a,", u"b"), u"a,b,");
  EXPECT_EQ(WithEntry(u"a,", u"a"), u"a,a,");
}

}  // namespace
}  // namespace zn
