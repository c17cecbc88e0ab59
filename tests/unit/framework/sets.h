// What tests that look at marshalled sets share: the bytes of a set, the set that bytes are, and a
// number in one.
#pragma once

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn::test {

[[nodiscard]] inline std::string BytesOf(const PropertySet& set) {
  BinaryWriter stream;
  set.Marshal(stream);
  return {reinterpret_cast<const char*>(stream.Buffer().Data()), stream.Buffer().Size()};
}

// The bytes are one set and nothing behind it.
[[nodiscard]] inline PropertySet SetOf(std::string_view bytes) {
  PropertySet set;
  BinaryReader reader(bytes.data(), bytes.size());
  EXPECT_EQ(set.Unmarshal(reader), ZN_OK);
  EXPECT_EQ(reader.Left(), 0u);
  return set;
}

[[nodiscard]] inline u32 NumberOf(const PropertySet& set, std::string_view name) {
  const Value* value = set.FindValue(name, ZN_TYPE_UINT32);
  EXPECT_NE(value, nullptr) << name;
  return value == nullptr ? 0xDEADBEEF : value->AsUInt32();
}

}  // namespace zn::test
