// Values of every type for the tests of values, sets and streams.
#pragma once

#include <iterator>
#include <string>
#include <vector>

#include "framework/common/znpropset/propertyset.h"

namespace zn::test {

inline constexpr u32 kScalarTags[] = {
    ZN_TYPE_BOOLEAN,     ZN_TYPE_INT32,      ZN_TYPE_UINT32,
    ZN_TYPE_INT64,       ZN_TYPE_UINT64,     ZN_TYPE_TIME,
    ZN_TYPE_STRING,      ZN_TYPE_WIDESTRING, ZN_TYPE_BINARY,
    ZN_TYPE_GUID,        ZN_TYPE_PROPSET,    ZN_TYPE_OBJECT_ID,
    ZN_TYPE_OBJECT,      ZN_TYPE_PROVIDER,   ZN_TYPE_DATABASE,
    ZN_TYPE_TYPE_OBJECT, ZN_TYPE_I18N,       ZN_TYPE_I18N_FORMAT_STRING};
static_assert(std::size(kScalarTags) == 18);

// Some value of the tag that is not its default, different for each seed below 100.
inline Value SampleValue(u32 tag, u32 seed = 1) {
  const std::string text = "sample" + std::to_string(seed);
  const GUID guid{seed, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  if ((tag & ZN_TYPE_ARRAY) != 0) {
    const u32 element = tag & ~ZN_TYPE_ARRAY;
    std::vector<Value> elements;
    for (u32 i = 0; i < 3; ++i) elements.push_back(SampleValue(element, seed + i));
    return Value::Array(element, std::move(elements));
  }
  switch (tag) {
    case ZN_TYPE_BOOLEAN:
      return Value::Bool(static_cast<u8>(seed));
    case ZN_TYPE_INT32:
      return Value::Int32(-static_cast<i32>(seed));
    case ZN_TYPE_UINT32:
      return Value::UInt32(0xF0000000u + seed);
    case ZN_TYPE_INT64:
      return Value::Int64(-0x123456789ABCDEFll - seed);
    case ZN_TYPE_UINT64:
      return Value::UInt64(0xFEDCBA9876543210ull + seed);
    case ZN_TYPE_TIME:
      return Value::Time(0x100000000ll + seed);
    case ZN_TYPE_STRING:
      return Value::Text(text);
    case ZN_TYPE_WIDESTRING:
      return Value::WideText(Widen(text));
    case ZN_TYPE_BINARY:
      return Value::Binary(text.data(), static_cast<u32>(text.size()));
    case ZN_TYPE_GUID:
      return Value::Guid(guid);
    case ZN_TYPE_OBJECT_ID:
      return Value::Id(guid);
    default: {
      PropertySet set;
      set.Put("A", Value::UInt32(seed));
      set.Put("B", Value::Text(text));
      return Value::Set(tag, std::move(set));
    }
  }
}

// All 36 tags.
inline std::vector<u32> AllTags() {
  std::vector<u32> tags;
  for (const u32 tag : kScalarTags) {
    tags.push_back(tag);
    tags.push_back(tag | ZN_TYPE_ARRAY);
  }
  return tags;
}

}  // namespace zn::test
