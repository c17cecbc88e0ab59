// The scanner of words, the search for what is wrong, and the reading of values.
#include "framework/common/znquery/querytext.h"

#include <algorithm>
#include <limits>

#include "framework/common/znguid/guidtext.h"

namespace zn {

namespace {

constexpr std::array<std::u16string_view, kQueryWords> kKeywords = {
    u"SELECT", u"FROM", u"", u"WHERE", u"", u"EQ", u""};

enum class UnitRole { kNothing, kStored, kEndsWord };

// What each unit of the text is for.
// Contract: an escaped double quote still acts as a quote, and leaves what follows escaped.
class UnitScanner {
 public:
  [[nodiscard]] UnitRole Take(ZnWChar unit) noexcept {
    if (unit == u'\\' && !escaped_ && !quoted_) {
      escaped_ = true;
      return UnitRole::kNothing;
    }
    if (unit == u'"') {
      quoted_ = !quoted_;
      return UnitRole::kNothing;
    }
    if (unit == u' ' && !escaped_ && !quoted_) return UnitRole::kEndsWord;
    escaped_ = false;
    return UnitRole::kStored;
  }
  [[nodiscard]] bool IsQuoted() const noexcept { return quoted_; }

 private:
  bool escaped_ = false;
  bool quoted_ = false;
};

// The white space that a scan for a number passes over.
bool IsSpace(ZnWChar unit) noexcept {
  return unit == u' ' || (unit >= u'\t' && unit <= u'\r');
}
bool IsDigit(ZnWChar unit) noexcept {
  return unit >= u'0' && unit <= u'9';
}
ZnWChar ToCapital(ZnWChar unit) noexcept {
  const bool isSmall = unit >= u'a' && unit <= u'z';
  return isSmall ? static_cast<ZnWChar>(unit - u'a' + u'A') : unit;
}

// A reader of a value: true with the number, or false with the place of the fault in the value.
struct ValueReading {
  u64 number = 0;
  size_t fault = 0;
};
using ValueReader = bool (*)(std::u16string_view text, ValueReading* out);

bool ReadBoolean(std::u16string_view text, ValueReading* out) {
  std::u16string capitals(text);
  std::transform(capitals.begin(), capitals.end(), capitals.begin(), ToCapital);
  out->number = capitals == u"TRUE" || capitals == u"1" ? 1 : 0;
  return out->number == 1 || capitals == u"FALSE" || capitals == u"0";
}

struct Digits {
  bool isNegative = false;
  bool isTooLarge = false;  // for 64 bits
  u64 magnitude = 0;
};

// White space, a sign, digits, and nothing behind them.
bool ReadDigits(std::u16string_view text, Digits* out, size_t* fault) noexcept {
  constexpr u64 kMost = std::numeric_limits<u64>::max();
  size_t at = 0;
  while (at < text.size() && IsSpace(text[at])) ++at;
  if (at < text.size() && (text[at] == u'+' || text[at] == u'-')) {
    out->isNegative = text[at++] == u'-';
  }
  const size_t first = at;
  for (; at < text.size() && IsDigit(text[at]); ++at) {
    const u64 digit = text[at] - u64{u'0'};
    out->isTooLarge = out->isTooLarge || out->magnitude > (kMost - digit) / 10;
    out->magnitude = out->magnitude * 10 + digit;
  }
  *fault = at;
  return at != first && at == text.size();
}

// Contract: numbers are read as "%lld" and "%llu" of a scan read them, and those of 32 bits as the
// low half of that: a number that does not fit is no fault. Beyond 64 bits it is the largest of its
// sign, within them it wraps round, and so -1 is the largest of an unsigned type.
bool ReadSigned(std::u16string_view text, ValueReading* out) {
  constexpr u64 kLargest = static_cast<u64>(std::numeric_limits<i64>::max());
  Digits digits;
  if (!ReadDigits(text, &digits, &out->fault)) return false;
  const u64 most = digits.isNegative ? kLargest + 1 : kLargest;
  const u64 magnitude = digits.isTooLarge ? most : std::min(digits.magnitude, most);
  out->number = digits.isNegative ? 0 - magnitude : magnitude;
  return true;
}
bool ReadUnsigned(std::u16string_view text, ValueReading* out) {
  Digits digits;
  if (!ReadDigits(text, &digits, &out->fault)) return false;
  const u64 number = digits.isNegative ? 0 - digits.magnitude : digits.magnitude;
  out->number = digits.isTooLarge ? std::numeric_limits<u64>::max() : number;
  return true;
}
template <ValueReader kReader>
bool ReadLowHalf(std::u16string_view text, ValueReading* out) {
  if (!kReader(text, out)) return false;
  out->number &= 0xFFFFFFFFu;
  return true;
}

bool ReadGuid(std::u16string_view text, ValueReading* out) {
  out->fault = GuidShapeFault(text);
  return out->fault == kNoShapeFault;
}

struct ValueRow {
  u32 tag;
  QueryFaultKind fault;
  ValueReader read;
};

// What is not listed is a text, which is good as it stands.
constexpr ValueRow kValueRows[] = {
    {ZN_TYPE_BOOLEAN, QueryFaultKind::kNoBoolean, ReadBoolean},
    {ZN_TYPE_INT32, QueryFaultKind::kNoNumber, ReadLowHalf<ReadSigned>},
    {ZN_TYPE_UINT32, QueryFaultKind::kNoNumber, ReadLowHalf<ReadUnsigned>},
    {ZN_TYPE_INT64, QueryFaultKind::kNoNumber, ReadSigned},
    {ZN_TYPE_TIME, QueryFaultKind::kNoNumber, ReadSigned},
    {ZN_TYPE_UINT64, QueryFaultKind::kNoNumber, ReadUnsigned},
    {ZN_TYPE_OBJECT_ID, QueryFaultKind::kNoNumber, ReadUnsigned},
    {ZN_TYPE_GUID, QueryFaultKind::kNoGuid, ReadGuid},
};

}  // namespace

std::u16string_view QueryKeyword(u32 word) noexcept {
  return word < kQueryWords ? kKeywords[word] : std::u16string_view();
}

bool QueryText::Parse() {
  Split();
  if (wordCount_ == kQueryWords && FirstWrongKeyword() == kQueryWords) return true;
  fault_ = FindFault();
  return false;
}

void QueryText::Split() {
  units_.resize(text_.size());
  UnitScanner scanner;
  WordPlace open;
  size_t stored = 0;
  for (size_t i = 0; i < text_.size(); ++i) {
    const bool wasQuoted = scanner.IsQuoted();
    const UnitRole role = scanner.Take(text_[i]);
    if (role == UnitRole::kStored) {
      units_[stored++] = text_[i];
    } else if (role == UnitRole::kEndsWord) {
      EndWord(&open, i, stored);
    } else if (!wasQuoted && scanner.IsQuoted()) {
      openQuote_ = i;
    }
  }
  EndWord(&open, text_.size(), stored);
  if (!scanner.IsQuoted()) openQuote_ = kNoQuote;
}

void QueryText::EndWord(WordPlace* open, size_t end, size_t lastUnit) noexcept {
  open->end = end;
  open->lastUnit = lastUnit;
  if (wordCount_ < words_.size()) words_[wordCount_] = *open;
  ++wordCount_;
  open->begin = end + 1;
  open->firstUnit = lastUnit;
}

u32 QueryText::FirstWrongKeyword() const noexcept {
  for (u32 i = 0; i < std::min<size_t>(wordCount_, kQueryWords); ++i) {
    if (!kKeywords[i].empty() && Word(i) != kKeywords[i]) return i;
  }
  return kQueryWords;
}

// The likeliest cause, not the first place where words and sentence differ: a blank too many or a
// quote left open moves every word behind it.
QueryFault QueryText::FindFault() const noexcept {
  if (text_.empty()) return {QueryFaultKind::kMissingWord, 0, 0};
  const u32 wrong = FirstWrongKeyword();
  const u32 held = static_cast<u32>(std::min(wordCount_, words_.size()));
  for (u32 i = 0; wordCount_ != kQueryWords && i < held && i <= wrong; ++i) {
    if (words_[i].begin == words_[i].end) return {QueryFaultKind::kEmptyWord, i, words_[i].begin};
  }
  const bool isQuoteFirst =
      openQuote_ != kNoQuote && (wrong == kQueryWords || openQuote_ < words_[wrong].end);
  if (isQuoteFirst && wordCount_ < kQueryWords) {
    return {QueryFaultKind::kOpenQuote, static_cast<u32>(wordCount_ - 1), openQuote_};
  }
  if (wrong < kQueryWords) return {QueryFaultKind::kWrongKeyword, wrong, words_[wrong].begin};
  if (wordCount_ > kQueryWords) {
    return {QueryFaultKind::kSurplusWord, kQueryWords, words_[kQueryWords].begin};
  }
  return {QueryFaultKind::kMissingWord, static_cast<u32>(wordCount_), text_.size()};
}

size_t QueryText::OffsetOf(u32 word, size_t unit) const noexcept {
  UnitScanner scanner;
  for (size_t i = words_[word].begin; i < words_[word].end; ++i) {
    if (scanner.Take(text_[i]) == UnitRole::kStored && unit-- == 0) return i;
  }
  return words_[word].end;
}

bool QueryText::ReadValue(u32 tag, u64* number) {
  ValueReading reading;
  const auto* row = std::find_if(std::begin(kValueRows), std::end(kValueRows),
                                 [tag](const ValueRow& candidate) { return candidate.tag == tag; });
  if (row != std::end(kValueRows) && !row->read(Value(), &reading)) {
    fault_ = {row->fault, kQueryValueWord, OffsetOf(kQueryValueWord, reading.fault)};
    return false;
  }
  *number = reading.number;
  return true;
}

}  // namespace zn
