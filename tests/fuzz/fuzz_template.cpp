// Templates of messages and the places of alert texts, against models that are as simple as they
// can be: the expansion by one regular step after the other, the places by a set of numbers. The
// first byte of an input splits the rest into the template and an insertion.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "framework/common/fmtstr/template.h"
#include "framework/common/znalert/places.h"
#include "support/common/status.h"
#include "support/common/text.h"

namespace {

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

constexpr u32 kKnown = 3;  // the insertions 1 to 3 are there

class Insertions final : public zn::InsertionSource {
 public:
  explicit Insertions(std::u16string text) : text_(std::move(text)) {}
  [[nodiscard]] u32 Append(u32 index, std::u16string* out) override {
    Require(index != 0, "place 0 was asked for");
    if (index > kKnown) return ZNE_PROPERTY_NOT_FOUND;
    out->append(text_);
    return ZN_OK;
  }

 private:
  std::u16string text_;
};

enum class Outcome { kText, kMissing };

// Each step looks at the front of what is left.
Outcome Model(std::u16string_view rest, const std::u16string& insertion, std::u16string* out) {
  std::u16string done;
  std::u16string sinceGood;
  while (!rest.empty()) {
    if (rest[0] != u'%') {
      sinceGood += rest[0];
      rest.remove_prefix(1);
      continue;
    }
    if (rest.size() > 1 && rest[1] == u'%') {
      sinceGood += u"%%";
      rest.remove_prefix(2);
      continue;
    }
    size_t at = rest.size() > 1 && rest[1] == u'{' ? 2 : 1;
    const bool braces = at == 2;
    std::u16string digits;
    while (at < rest.size() && rest[at] >= u'0' && rest[at] <= u'9') digits += rest[at++];
    while (!digits.empty() && digits[0] == u'0') digits.erase(0, 1);
    const bool closed = !braces || (at < rest.size() && rest[at] == u'}');
    if (digits.empty() || !closed) {
      sinceGood.clear();
      rest = {};
      break;
    }
    if (digits != u"1" && digits != u"2" && digits != u"3") return Outcome::kMissing;
    done += sinceGood + insertion;
    sinceGood.clear();
    rest.remove_prefix(at + (braces ? 1 : 0));
  }
  done += sinceGood;
  for (size_t i = done.find(u"%%"); i != std::u16string::npos; i = done.find(u"%%", i + 1)) {
    done.erase(i, 1);
  }
  *out = done;
  return Outcome::kText;
}

void CheckExpansion(std::u16string_view text, const std::u16string& insertion) {
  Insertions insertions(insertion);
  std::u16string found;
  std::u16string expected;
  const u32 status = zn::ExpandTemplate(text, insertions, &found);
  if (Model(text, insertion, &expected) == Outcome::kMissing) {
    Require(status == ZNE_PROPERTY_NOT_FOUND && found.empty(), "a missing insertion");
    return;
  }
  if (status == ZNE_OUT_OF_MEMORY) return;  // beyond the bound
  Require(status == ZN_OK && found == expected, "the expanded text");
}

// The number of places, -1 for a text that is refused.
int CountByModel(std::string_view text) {
  text = text.substr(0, text.find('\0'));
  std::set<int> places;
  for (size_t at = 0; at < text.size();) {
    size_t run = 0;
    while (at + run < text.size() && text[at + run] >= '0' && text[at + run] <= '9') ++run;
    if (run > 1024) return -1;
    if (text[at] != '%') {
      at += run == 0 ? 1 : run;
      continue;
    }
    if (++at == text.size()) return -1;
    if (text[at] == '%') {
      ++at;
      continue;
    }
    const bool braces = text[at] == '{';
    if (braces) ++at;
    std::string digits;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') digits += text[at++];
    if (digits.empty() || digits.size() > 1024) return -1;
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
    if (digits.empty() || digits.size() > 2) return -1;
    const int number = std::atoi(digits.c_str());
    if (number > 64 || !places.insert(number).second) return -1;
    if (braces && (at == text.size() || text[at++] != '}')) return -1;
  }
  if (!places.empty() && *places.rbegin() != static_cast<int>(places.size())) return -1;
  return static_cast<int>(places.size());
}

void CheckPlaces(std::string_view text) {
  u32 count = 0;
  const u32 status = zn::CountPlaces(text, &count);
  const int expected = CountByModel(text);
  if (expected < 0) {
    Require(status == ZNE_INSERTION_FORMAT_INVALID, "a refused text");
    return;
  }
  Require(status == ZN_OK && count == static_cast<u32>(expected), "the number of places");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
  const size_t split = std::min<size_t>(data[0], input.size());
  CheckExpansion(zn::ToWide(input.substr(split)), zn::ToWide(input.substr(0, split)));
  CheckPlaces(input.substr(split));
  return 0;
}
