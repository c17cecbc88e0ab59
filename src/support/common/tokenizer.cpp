// Splits a text at a delimiter. White space goes everywhere inside a token, and what ends up empty
// is dropped; which characters are white space follows the C library in the process's locale.
#include <cctype>
#include <cwctype>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "support/common/block.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "zn/text.h"

namespace zn {

namespace {

bool IsSpace(char c) noexcept {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool IsSpace(ZnWChar c) noexcept {
  return std::iswspace(static_cast<wint_t>(c)) != 0;
}

template <typename Unit>
std::basic_string<Unit> WithoutSpace(std::basic_string_view<Unit> piece) {
  std::basic_string<Unit> token;
  token.reserve(piece.size());
  for (const Unit unit : piece) {
    if (!IsSpace(unit)) token += unit;
  }
  return token;
}

template <typename Unit>
std::vector<std::basic_string<Unit>> Split(std::basic_string_view<Unit> text, Unit delimiter) {
  std::vector<std::basic_string<Unit>> tokens;
  while (!text.empty()) {
    const size_t end = text.find(delimiter);
    std::basic_string<Unit> token = WithoutSpace(text.substr(0, end));
    if (!token.empty()) tokens.push_back(std::move(token));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return tokens;
}

void FreeTokens(const std::vector<void*>& blocks) noexcept {
  for (void* block : blocks) ZnFree(block);
}

// Outputs are written on success only: after a failure `out` is as it was and nothing of this call
// is left in it.
template <typename Unit>
u32 Tokenize(const Unit* text, Unit delimiter, Vector* out) noexcept {
  if (!IsGoodPointer(text) || !IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  std::vector<void*> blocks;
  try {
    const auto tokens = Split(std::basic_string_view<Unit>(text), delimiter);
    blocks.reserve(tokens.size());
    for (const auto& token : tokens) {
      void* block = TextToBlock(std::basic_string_view<Unit>(token));
      if (block == nullptr) throw std::bad_alloc();
      blocks.push_back(block);
    }
    void** items = ArrayToBlock(blocks);
    if (items == nullptr && !blocks.empty()) throw std::bad_alloc();
    *out = {static_cast<u32>(blocks.size()), items};
    return ZN_OK;
  } catch (const std::exception&) {
    FreeTokens(blocks);
    return ZNE_OUT_OF_MEMORY;
  }
}

}  // namespace

}  // namespace zn

extern "C" {

u32 StrTokenizerA(const char* text, char delimiter, Vector* out) {
  return zn::Tokenize(text, delimiter, out);
}
u32 StrTokenizerW(const ZnWChar* text, ZnWChar delimiter, Vector* out) {
  return zn::Tokenize(text, delimiter, out);
}

}  // extern "C"
