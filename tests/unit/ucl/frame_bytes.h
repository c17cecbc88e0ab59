// Frames as bytes, spelled out here a second time so that the tests do not lean on the code they
// test.
#pragma once

#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn::test {

inline const std::string kHead("\r\n--#UCL_DATA_HEAD#--\0", 22);
inline const std::string kEnd("\r\n--#UCL_DATA__END#--\0", 22);

inline std::string Word(u32 value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}

inline u32 WordAt(std::string_view bytes, size_t at) {
  u32 value = 0;
  for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<u8>(bytes[at + i]);
  return value;
}

inline std::string HeaderBytes(u32 length, u32 type, u32 id, u32 status = 0) {
  return kHead + Word(0) + Word(length) + Word(type) + Word(id) + Word(status);
}

inline std::string FrameBytes(u32 type, u32 id, std::string_view payload, u32 status = 0) {
  return HeaderBytes(static_cast<u32>(payload.size()), type, id, status) + std::string(payload) +
         kEnd;
}

}  // namespace zn::test
