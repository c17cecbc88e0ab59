// The text of a query and what can be wrong with it. There is one sentence,
//
//   SELECT FROM type WHERE property EQ value
//
// of exactly seven words with one blank between each two. Words are split by blanks; a backslash
// takes a blank into its word, and so do double quotes around it, which may stand anywhere in a
// word and can themselves not be escaped. The keywords are in capitals.
//
// The library answers one status for every fault here. People want to be told which word is wrong
// and where, so the parser keeps that, and the console compiles this very file to tell them. That
// is why nothing but the public types and the shape of an id is included. No locale takes part.
// Pure functions, any thread.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn {

enum class QueryFaultKind : u8 {
  kNone,
  kMissingWord,   // the text ends before the word
  kSurplusWord,   // the word is one too many
  kEmptyWord,     // a blank stands where the word should begin: two in a row, or one at either end
  kOpenQuote,     // the quote at the offset is never closed; the word is the one it swallows
  kWrongKeyword,  // the word is not the keyword that belongs in its place
  kNoBoolean,     // the value is none of FALSE, TRUE, 0 and 1
  kNoNumber,      // the value is no decimal number; the offset is where it stops being one
  kNoGuid,        // the value has not the shape of an id from the offset on
};

struct QueryFault {
  QueryFaultKind kind = QueryFaultKind::kNone;
  u32 word = 0;       // 0 for the first
  size_t offset = 0;  // in units of the text; its length for what is missing at the end
};

inline constexpr u32 kQueryWords = 7;
inline constexpr u32 kQueryTypeWord = 2;
inline constexpr u32 kQueryPropertyWord = 4;
inline constexpr u32 kQueryValueWord = 6;

// The keyword that stands in this place; empty for type, property and value.
[[nodiscard]] std::u16string_view QueryKeyword(u32 word) noexcept;

class QueryText {
 public:
  // The text is borrowed and must outlive this object.
  explicit QueryText(std::u16string_view text) : text_(text) {}
  QueryText(const QueryText&) = delete;
  QueryText& operator=(const QueryText&) = delete;

  // Whether the text is the sentence. Words can be asked for then, a fault otherwise.
  [[nodiscard]] bool Parse();

  [[nodiscard]] std::u16string_view Type() const noexcept { return Word(kQueryTypeWord); }
  [[nodiscard]] std::u16string_view Property() const noexcept { return Word(kQueryPropertyWord); }
  [[nodiscard]] std::u16string_view Value() const noexcept { return Word(kQueryValueWord); }

  // Reads the value as that type: the number of a boolean, integer, time or object id, signed ones
  // as their two's complement in the width of the type; 0 for texts, which are always good, and for
  // an id, whose shape alone is looked at. False with a fault. The tag is one that can be indexed.
  [[nodiscard]] bool ReadValue(u32 tag, u64* number);

  [[nodiscard]] const QueryFault& Fault() const noexcept { return fault_; }
  // Where a word begins and ends in the text, with what escapes and quotes it.
  [[nodiscard]] size_t BeginOf(u32 word) const noexcept { return words_[word].begin; }
  [[nodiscard]] size_t EndOf(u32 word) const noexcept { return words_[word].end; }

 private:
  struct WordPlace {
    size_t begin = 0;  // in the text
    size_t end = 0;
    size_t firstUnit = 0;  // in units_
    size_t lastUnit = 0;   // behind the last
  };

  [[nodiscard]] std::u16string_view Word(u32 word) const noexcept {
    const WordPlace& place = words_[word];
    return std::u16string_view(units_).substr(place.firstUnit, place.lastUnit - place.firstUnit);
  }
  void Split();
  void EndWord(WordPlace* open, size_t end, size_t lastUnit) noexcept;
  // The first word that is not the keyword of its place; kQueryWords where all are.
  [[nodiscard]] u32 FirstWrongKeyword() const noexcept;
  [[nodiscard]] QueryFault FindFault() const noexcept;
  // The place in the text of a unit of a word.
  [[nodiscard]] size_t OffsetOf(u32 word, size_t unit) const noexcept;

  std::u16string_view text_;
  std::u16string units_;                            // of all words, one after the other
  std::array<WordPlace, kQueryWords + 1> words_{};  // and the first that is too many
  size_t wordCount_ = 0;
  size_t openQuote_ = kNoQuote;
  QueryFault fault_;

  static constexpr size_t kNoQuote = static_cast<size_t>(-1);
};

}  // namespace zn
