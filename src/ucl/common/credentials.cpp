#include "ucl/common/credentials.h"

#include <array>
#include <cstring>

#include "zn/status.h"

namespace zn {

namespace {

// Where the texts cut the challenge.
constexpr std::array<size_t, 4> kCuts = {64, 192, 320, 448};

// The texts in the order of the wire.
template <typename Record>
auto Fields(Record& credentials) {
  return std::array{&credentials.user, &credentials.password, &credentials.fourth,
                    &credentials.domain};
}

void AppendText(const std::u16string& text, std::vector<u8>* block) {
  const auto count = static_cast<u32>(text.size());
  for (int shift = 24; shift >= 0; shift -= 8) block->push_back(static_cast<u8>(count >> shift));
  for (const char16_t unit : text) {
    block->push_back(static_cast<u8>(unit >> 8));
    block->push_back(static_cast<u8>(unit));
  }
}

// The part of the block that is not read yet.
class BlockReader {
 public:
  BlockReader(const void* block, u32 length) : at_(static_cast<const u8*>(block)), left_(length) {}

  [[nodiscard]] bool Piece(size_t length, std::string* out) {
    if (left_ < length) return false;
    out->append(reinterpret_cast<const char*>(at_), length);
    Skip(length);
    return true;
  }
  [[nodiscard]] bool Rest(std::string* out) { return Piece(left_, out); }

  [[nodiscard]] bool Text(std::u16string* out) {
    if (left_ < 4) return false;
    const u32 count = u32{at_[0]} << 24 | u32{at_[1]} << 16 | u32{at_[2]} << 8 | u32{at_[3]};
    Skip(4);
    if (count > left_ / 2) return false;
    out->resize(count);
    for (u32 i = 0; i < count; ++i) {
      (*out)[i] = static_cast<char16_t>(at_[2 * i] << 8 | at_[2 * i + 1]);
    }
    Skip(size_t{count} * 2);
    return true;
  }

 private:
  void Skip(size_t length) {
    at_ += length;
    left_ -= length;
  }

  const u8* at_;
  size_t left_;
};

}  // namespace

void WipeText(std::u16string* text) noexcept {
  text->resize(text->capacity());  // what is short lies in the string itself, and stays there
  volatile char16_t* at = text->data();
  for (size_t i = 0; i < text->size(); ++i) at[i] = 0;
  text->clear();
}

u32 BuildCredentialBlock(std::string_view challenge, const Credentials& credentials,
                         std::vector<u8>* block) {
  if (challenge.size() < kCuts.back()) return ZNE_UNEXPECTED;
  const auto fields = Fields(credentials);
  std::vector<u8> result;
  size_t from = 0;
  for (size_t i = 0; i < kCuts.size(); ++i) {
    result.insert(result.end(), challenge.begin() + static_cast<std::ptrdiff_t>(from),
                  challenge.begin() + static_cast<std::ptrdiff_t>(kCuts[i]));
    AppendText(*fields[i], &result);
    from = kCuts[i];
  }
  result.insert(result.end(), challenge.begin() + static_cast<std::ptrdiff_t>(from),
                challenge.end());
  *block = std::move(result);
  return ZN_OK;
}

u32 ReadCredentialBlock(const void* block, u32 length, std::string_view challenge,
                        Credentials* credentials) {
  if (block == nullptr || length < kLeastChallengeLength) return ZNE_UNEXPECTED;
  BlockReader reader(block, length);
  SecretCredentials found;
  const auto fields = Fields<Credentials>(found);
  std::string joined;
  size_t from = 0;
  for (size_t i = 0; i < kCuts.size(); ++i) {
    if (!reader.Piece(kCuts[i] - from, &joined) || !reader.Text(fields[i])) return ZNE_UNEXPECTED;
    from = kCuts[i];
  }
  if (!reader.Rest(&joined)) return ZNE_UNEXPECTED;
  if (joined.size() > kMostChallengeLength || joined != challenge) return ZNE_UNEXPECTED;
  *credentials = std::move(static_cast<Credentials&>(found));
  return ZN_OK;
}

}  // namespace zn
