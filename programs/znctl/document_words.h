// The words of formalization documents, and in words what each type of value takes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zn::ctl {

struct TypeWord {
  const char* word;
  const char* takes;  // the text of one value
  bool isIndexable;
};
// Null for an unknown word.
const TypeWord* FindTypeWord(std::string_view word);
// All of them, for messages.
std::string TypeWords();

// Words joined by "|", as the library splits them.
std::vector<std::string> SplitWords(const std::string& text);
// The parts of a localizable text.
std::vector<std::string> SplitI18n(const std::string& text);

// What is odd about a list of flags; empty when nothing is.
std::string OddPropertyFlags(const std::string& text);
std::string OddTypeFlags(const std::string& text);
std::string OddAlertFlags(const std::string& text);
// What keeps an alert of this severity from being published; empty when nothing does.
std::string BadSeverity(const std::string& text);

}  // namespace zn::ctl
