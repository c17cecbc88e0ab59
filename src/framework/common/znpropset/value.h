// A typed value: a tag and eight bytes. Numbers lie in the eight bytes; text, bytes and ids are
// counted references that a copy shares; sets and arrays are owned and copied deep, save for the
// "object" type, whose copies share one set. What a tag can do stands in one table of rows
// (value.cpp): name, print, marshal, unmarshal, equals, copy, destroy.
//
// A value is used by one thread at a time; copies of one value may be used by different threads.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "framework/common/widestring/widestring.h"
#include "framework/common/znguid/znguid.h"
#include "framework/common/znstream/znstream.h"
#include "framework/common/znstring/znstring.h"
#include "zn/types.h"

namespace zn {

class PropertySet;
class Value;
struct ArrayRep;
struct BinaryRep;
struct SharedSet;

// The tag that a stream's or caller's tag stands for: the array bit kept, a tag that is not
// registered read by its low 16 bits. 0 when there is no such type.
[[nodiscard]] u32 CanonicalTag(u32 tag) noexcept;

class Value {
 public:
  // No value; its tag is 0 and its type name "UnknownValueType".
  Value() noexcept : tag_(0) { payload_.bits = 0; }
  Value(const Value& other);
  Value(Value&& other) noexcept : payload_(other.payload_), tag_(std::exchange(other.tag_, 0u)) {}
  ~Value() {
    if (OwnsPayload()) Destroy();
  }
  Value& operator=(const Value& other) {
    Value copy(other);
    Swap(copy);
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    Swap(other);
    return *this;
  }
  void Swap(Value& other) noexcept {
    std::swap(payload_, other.payload_);
    std::swap(tag_, other.tag_);
  }

  // The default value of a tag: false, 0, the empty text, set or array. No value for a tag that
  // CanonicalTag does not know.
  [[nodiscard]] static Value Default(u32 tag);

  [[nodiscard]] static Value Bool(u8 v) noexcept { return Value(ZN_TYPE_BOOLEAN, v); }
  [[nodiscard]] static Value Int32(i32 v) noexcept {
    return Value(ZN_TYPE_INT32, static_cast<u32>(v));
  }
  [[nodiscard]] static Value UInt32(u32 v) noexcept { return Value(ZN_TYPE_UINT32, v); }
  [[nodiscard]] static Value Int64(i64 v) noexcept {
    return Value(ZN_TYPE_INT64, static_cast<u64>(v));
  }
  [[nodiscard]] static Value UInt64(u64 v) noexcept { return Value(ZN_TYPE_UINT64, v); }
  [[nodiscard]] static Value Time(i64 v) noexcept {
    return Value(ZN_TYPE_TIME, static_cast<u64>(v));
  }
  [[nodiscard]] static Value Text(String text) noexcept;
  [[nodiscard]] static Value Text(std::string_view text) { return Text(String(text)); }
  [[nodiscard]] static Value WideText(WideString text) noexcept;
  [[nodiscard]] static Value WideText(std::u16string_view text) {
    return WideText(WideString(text));
  }
  [[nodiscard]] static Value Binary(const void* data, u32 length);
  [[nodiscard]] static Value Guid(const GUID& guid);
  [[nodiscard]] static Value Id(InternedId id) noexcept;
  [[nodiscard]] static Value Id(const GUID& guid) { return Id(InternedId(guid)); }
  // A set under one of the tags that hold a set: propset, object, provider, database, type object,
  // i18n, i18nFormatString. The set is moved from.
  [[nodiscard]] static Value Set(u32 tag, PropertySet&& set);
  [[nodiscard]] static Value Set(PropertySet&& set) { return Set(ZN_TYPE_PROPSET, std::move(set)); }
  // An array of the given element tag; every element has that tag.
  [[nodiscard]] static Value Array(u32 elementTag, std::vector<Value> elements);

  [[nodiscard]] u32 Tag() const noexcept { return tag_; }
  [[nodiscard]] bool HasValue() const noexcept { return tag_ != 0; }
  [[nodiscard]] bool IsArray() const noexcept { return (tag_ & ZN_TYPE_ARRAY) != 0; }
  [[nodiscard]] const char* TypeName() const noexcept;

  // Readers of the payload. The tag has been tested.
  [[nodiscard]] u8 AsBool() const noexcept { return static_cast<u8>(payload_.bits); }
  [[nodiscard]] i32 AsInt32() const noexcept { return static_cast<i32>(payload_.bits); }
  [[nodiscard]] u32 AsUInt32() const noexcept { return static_cast<u32>(payload_.bits); }
  [[nodiscard]] i64 AsInt64() const noexcept { return static_cast<i64>(payload_.bits); }
  [[nodiscard]] u64 AsUInt64() const noexcept { return payload_.bits; }
  [[nodiscard]] std::string_view AsText() const noexcept {
    return {payload_.text->text, payload_.text->length};
  }
  [[nodiscard]] std::u16string_view AsWideText() const noexcept {
    return {payload_.wide->text, payload_.wide->length};
  }
  [[nodiscard]] std::string_view AsBinary() const noexcept;
  [[nodiscard]] const GUID& AsGuid() const noexcept { return payload_.id->guid; }
  [[nodiscard]] InternedId AsId() const noexcept;
  [[nodiscard]] const PropertySet& AsSet() const noexcept;
  [[nodiscard]] PropertySet& AsSet() noexcept;
  [[nodiscard]] const std::vector<Value>& AsArray() const noexcept;
  [[nodiscard]] std::vector<Value>& AsArray() noexcept;

  // Equality of two values of one tag; false when the tags differ. Booleans compare by byte. Sets
  // compare one-sidedly.
  // Contract: a set equals every superset of itself, and an empty set equals everything; callers
  // that need true equality compare both ways.
  [[nodiscard]] bool Equals(const Value& other) const noexcept;

  // Readable text as PsSPrintf format 0 shows it.
  void Print(std::string& out, u32 indent) const;
  void Marshal(BinaryWriter& stream) const;
  // Reads the form of `tag` into this value, which is left as it was on failure.
  [[nodiscard]] u32 Unmarshal(u32 tag, BinaryReader& stream);
  void WriteXml(XmlTextStream& stream) const;

 private:
  friend struct ValueTypes;
  union Payload {
    u64 bits;
    TextRep<char>* text;
    TextRep<ZnWChar>* wide;
    BinaryRep* binary;
    IdEntry* id;
    PropertySet* set;
    SharedSet* shared;
    ArrayRep* array;
  };

  Value(u32 tag, u64 bits) noexcept : tag_(tag) { payload_.bits = bits; }
  [[nodiscard]] bool OwnsPayload() const noexcept {
    return tag_ > ZN_TYPE_UINT64 && tag_ != ZN_TYPE_TIME;
  }
  void Destroy() noexcept;

  Payload payload_;
  u32 tag_;  // last, so that a property can use the four bytes behind it
};

struct ArrayRep {
  std::vector<Value> elements;
};

}  // namespace zn
