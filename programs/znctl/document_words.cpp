// Words of formalization documents; see the header.
#include "document_words.h"

#include <algorithm>
#include <array>
#include <set>

#include "zn/formalization.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr TypeWord kTypeWords[] = {
    {"mira_bool", "true or false", true},
    {"mira_int32", "a whole number from -2147483648 to 2147483647", true},
    {"mira_uint32", "a whole number from 0 to 4294967295", true},
    {"mira_int64", "digits, with + or - before them", true},
    {"mira_time", "digits alone: seconds since 1970", true},
    {"mira_uint64", "digits, with + before them", true},
    {"mira_string", "any text", true},
    {"mira_wstring", "any text", true},
    {"mira_binary", "nothing: its text is not read", false},
    {"mira_guid", "38 characters, {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", true},
    {"mira_objid", "38 characters, {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", true},
    {"mira_i18n", "catalog;number;'default text', the catalog as a GUID of 38 characters", false},
    {"mira_propset", "a PROPSET element", false},
};

constexpr std::array<std::string_view, 4> kPropertyFlags = {"Hidden", "NoDisplay", "RemoteOnly",
                                                            "Indexed"};
constexpr std::array<std::string_view, 4> kAlertFlags = {"ALERT_GLOBAL", "ALERT_LOCAL",
                                                         "ALERT_PUBLIC", "ALERT_PRIVATE"};
constexpr std::array<std::string_view, 4> kSeverityWords = {"CRITICAL", "ERROR", "WARNING", "INFO"};

template <std::size_t N>
bool IsOneOf(const std::array<std::string_view, N>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

std::vector<std::string> Split(const std::string& text, char separator, char quote) {
  std::vector<std::string> parts;
  XMLTokenizer* tokenizer = nullptr;
  if (ZN_FAILED(CreateXMLTokenizer(&tokenizer, separator, quote))) return parts;
  static_cast<void>(XMLTokenizer_Tokenize(tokenizer, text, &parts));
  DeleteXMLTokenizer(tokenizer);
  return parts;
}

std::string Quoted(const std::string& word) {
  return "\"" + word + "\"";
}

}  // namespace

const TypeWord* FindTypeWord(std::string_view word) {
  const auto* found = std::find_if(std::begin(kTypeWords), std::end(kTypeWords),
                                   [word](const TypeWord& row) { return row.word == word; });
  return found == std::end(kTypeWords) ? nullptr : found;
}

std::string TypeWords() {
  std::string words;
  for (const TypeWord& row : kTypeWords)
    words += (words.empty() ? "" : ", ") + std::string(row.word);
  return words;
}

std::vector<std::string> SplitWords(const std::string& text) {
  return Split(text, '|', '"');
}

std::vector<std::string> SplitI18n(const std::string& text) {
  return Split(text, ';', '\'');
}

std::string OddPropertyFlags(const std::string& text) {
  std::set<std::string> seen;
  for (const std::string& word : SplitWords(text)) {
    if (!IsOneOf(kPropertyFlags, word)) {
      return Quoted(word) +
             " is none of Hidden, NoDisplay, RemoteOnly, Indexed; the property gets no flag at all";
    }
    if (!seen.insert(word).second) {
      return Quoted(word) + " stands twice; the two add up to another flag";
    }
  }
  return {};
}

std::string OddTypeFlags(const std::string& text) {
  std::string word = text;
  static_cast<void>(XMLTokenizer_TrimString(&word));
  if (word.empty() || word == "Hidden" || word == "NoDisplay") return {};
  return Quoted(word) + " is neither Hidden nor NoDisplay; the type gets no flag";
}

std::string OddAlertFlags(const std::string& text) {
  for (const std::string& word : SplitWords(text)) {
    if (IsOneOf(kAlertFlags, word)) continue;
    return Quoted(word) +
           " is none of ALERT_GLOBAL, ALERT_LOCAL, ALERT_PUBLIC, ALERT_PRIVATE; the alert becomes "
           "global and public";
  }
  return {};
}

std::string BadSeverity(const std::string& text) {
  const std::vector<std::string> words = SplitWords(text);
  if (words.size() == 1 && IsOneOf(kSeverityWords, words[0])) return {};
  return "the severity is one of CRITICAL, ERROR, WARNING, INFO";
}

}  // namespace zn::ctl
