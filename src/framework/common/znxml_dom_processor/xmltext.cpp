// Trimming, splitting, flag words: see the header.
#include "framework/common/znxml_dom_processor/xmltext.h"

#include <iterator>
#include <utility>

namespace zn {

namespace {

struct WordRow {
  std::string_view word;
  u32 value;
};

constexpr WordRow kPropertyFlags[] = {
    {"Hidden", ZN_PROPERTY_HIDDEN},
    {"NoDisplay", ZN_PROPERTY_NO_DISPLAY},
    {"RemoteOnly", ZN_PROPERTY_REMOTE_ONLY},
    {"Indexed", ZN_PROPERTY_INDEXED},
};
constexpr WordRow kTypeFlags[] = {{"Hidden", OBJECT_HIDDEN}, {"NoDisplay", OBJECT_NODISPLAY}};

template <size_t N>
const WordRow* FindWord(const WordRow (&words)[N], std::string_view word) noexcept {
  for (const WordRow& row : words) {
    if (row.word == word) return &row;
  }
  return nullptr;
}

// One pass over a text.
class Splitter {
 public:
  Splitter(std::string_view text, const XmlTokenRule& rule, std::vector<std::string>* out) noexcept
      : text_(text), rule_(rule), out_(out) {}

  void Run() {
    SkipSpace();
    while (!text_.empty()) {
      const char c = text_.front();
      if (c == rule_.quote) {
        TakeQuoted();
      } else if (IsSeparator(c)) {
        Emit();
        text_.remove_prefix(1);
        SkipSpace();
      } else if (IsXmlSpace(c)) {
        Emit();
        SkipSpace();
      } else {
        token_ += c;
        text_.remove_prefix(1);
      }
    }
    if (!token_.empty()) Emit();
  }

 private:
  [[nodiscard]] bool IsSeparator(char c) const noexcept {
    return c == rule_.separator && rule_.splitsAtSeparator;
  }
  // Contract: also an empty one. White space and then a separator so make a token of nothing.
  void Emit() { out_->push_back(std::exchange(token_, {})); }
  void SkipSpace() noexcept {
    while (!text_.empty() && IsXmlSpace(text_.front())) text_.remove_prefix(1);
  }
  // A quote that is never closed reaches to the end.
  void TakeQuoted() {
    if (!token_.empty()) Emit();
    text_.remove_prefix(1);
    while (!text_.empty() && text_.front() != rule_.quote) {
      if (text_.front() == '\\' && text_.size() > 1) text_.remove_prefix(1);
      token_ += text_.front();
      text_.remove_prefix(1);
    }
    Emit();
    if (!text_.empty()) text_.remove_prefix(1);
    SkipSpace();
    if (!text_.empty() && text_.front() == rule_.separator) text_.remove_prefix(1);
    SkipSpace();
  }

  std::string_view text_;
  XmlTokenRule rule_;
  std::vector<std::string>* out_;
  std::string token_;
};

}  // namespace

bool IsXmlSpace(char c) noexcept {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view TrimXmlText(std::string_view text) noexcept {
  while (!text.empty() && IsXmlSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsXmlSpace(text.back())) text.remove_suffix(1);
  return text;
}

void TokenizeXmlText(std::string_view text, const XmlTokenRule& rule,
                     std::vector<std::string>* out) {
  Splitter(text, rule, out).Run();
}

std::vector<std::string> XmlTokens(std::string_view text, char separator, char quote) {
  std::vector<std::string> tokens;
  TokenizeXmlText(text, {separator, quote}, &tokens);
  return tokens;
}

// Contract: the values are added, so a word that comes twice counts twice; an unknown word makes
// the whole 0 and hides what comes behind it.
u32 PropertyFlagsOf(std::string_view text) {
  u32 sum = 0;
  for (const std::string& word : XmlWords(text)) {
    const WordRow* row = FindWord(kPropertyFlags, word);
    if (row == nullptr) return 0;
    sum += row->value;
  }
  return sum;
}

bool TypeFlagsOf(std::string_view text, u32* out) noexcept {
  const WordRow* row = FindWord(kTypeFlags, TrimXmlText(text));
  if (row == nullptr) return false;
  *out = row->value;
  return true;
}

}  // namespace zn
