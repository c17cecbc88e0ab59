// The tokens of a text and the places they make: see the header.
#include "framework/common/znalert/places.h"

#include <bit>
#include <cstdio>

#include "support/common/status.h"

namespace zn {

namespace {

constexpr size_t kMaxDigits = 1024;

[[nodiscard]] bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

struct Token {
  PlaceToken kind = PlaceToken::kEnd;
  u32 number = 0;
};

// The number of a run of digits; one beyond kMaxPlaces counts as the next.
[[nodiscard]] u32 NumberOf(std::string_view digits) noexcept {
  u32 number = 0;
  for (const char c : digits) {
    number = number * 10 + static_cast<u32>(c - '0');
    if (number > kMaxPlaces) return kMaxPlaces + 1;
  }
  return number;
}

[[nodiscard]] size_t RunOf(std::string_view text, bool (*belongs)(char)) noexcept {
  size_t length = 0;
  while (length < text.size() && belongs(text[length])) ++length;
  return length;
}

// Takes the token at the front off the text; false for a run of digits that is too long.
[[nodiscard]] bool NextToken(std::string_view* text, Token* out) noexcept {
  if (text->empty()) {
    *out = {};
    return true;
  }
  size_t length = 1;
  switch (text->front()) {
    case '%':
      *out = {PlaceToken::kPercent};
      break;
    case '{':
      *out = {PlaceToken::kOpen};
      break;
    case '}':
      *out = {PlaceToken::kClose};
      break;
    default:
      if (IsDigit(text->front())) {
        length = RunOf(*text, [](char c) { return IsDigit(c); });
        if (length > kMaxDigits) return false;
        *out = {PlaceToken::kNumber, NumberOf(text->substr(0, length))};
      } else {
        length =
            RunOf(*text, [](char c) { return !IsDigit(c) && c != '%' && c != '{' && c != '}'; });
        *out = {PlaceToken::kText};
      }
  }
  text->remove_prefix(length);
  return true;
}

}  // namespace

u32 PlaceParser::TakePlace(u32 number, State next) noexcept {
  if (number == 0 || number > kMaxPlaces) return ZNE_INSERTION_FORMAT_INVALID;
  const u64 bit = u64{1} << (number - 1);
  if ((places_ & bit) != 0) return ZNE_INSERTION_FORMAT_INVALID;
  places_ |= bit;
  state_ = next;
  return ZN_OK;
}

u32 PlaceParser::TakeBehindPercent(PlaceToken token, u32 number) noexcept {
  switch (token) {
    case PlaceToken::kPercent:
      state_ = State::kOutside;
      return ZN_OK;
    case PlaceToken::kOpen:
      state_ = State::kBehindOpen;
      return ZN_OK;
    case PlaceToken::kNumber:
      return TakePlace(number, State::kOutside);
    case PlaceToken::kEnd:
    case PlaceToken::kClose:
    case PlaceToken::kText:
      return ZNE_INSERTION_FORMAT_INVALID;
  }
  std::fputs("Bug in the GetNextToken\n", stdout);
  return ZNE_INSERTION_FORMAT_INVALID;
}

u32 PlaceParser::Take(PlaceToken token, u32 number) noexcept {
  switch (state_) {
    case State::kOutside:
      if (token == PlaceToken::kPercent) state_ = State::kBehindPercent;
      return ZN_OK;
    case State::kBehindPercent:
      return TakeBehindPercent(token, number);
    case State::kBehindOpen:
      if (token != PlaceToken::kNumber) return ZNE_INSERTION_FORMAT_INVALID;
      return TakePlace(number, State::kBehindNumber);
    case State::kBehindNumber:
      if (token != PlaceToken::kClose) return ZNE_INSERTION_FORMAT_INVALID;
      state_ = State::kOutside;
      return ZN_OK;
  }
  return ZNE_INSERTION_FORMAT_INVALID;
}

u32 PlaceParser::Count(u32* out) const noexcept {
  const auto count = static_cast<u32>(std::countr_one(places_));
  if (std::popcount(places_) != static_cast<int>(count)) return ZNE_INSERTION_FORMAT_INVALID;
  *out = count;
  return ZN_OK;
}

u32 CountPlaces(std::string_view text, u32* out) noexcept {
  text = text.substr(0, text.find('\0'));  // a text from elsewhere may hold more than it shows
  PlaceParser parser;
  Token token;
  do {
    if (!NextToken(&text, &token)) return ZNE_INSERTION_FORMAT_INVALID;
    ZN_RETURN_IF_FAILED(parser.Take(token.kind, token.number));
  } while (token.kind != PlaceToken::kEnd);
  return parser.Count(out);
}

}  // namespace zn
