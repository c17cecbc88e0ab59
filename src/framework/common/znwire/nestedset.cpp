// Nested sets of messages: see the header.
#include "framework/common/znwire/nestedset.h"

namespace zn::wire {

const PropertySet* FindNestedSet(const PropertySet& message, std::string_view key,
                                 PropertySet* room, NamesRead names) {
  const Property* property = message.Find(key);
  if (property == nullptr) return nullptr;
  const Value& value = property->GetValue();
  if (value.Tag() == ZN_TYPE_PROPSET) return &value.AsSet();
  if (value.Tag() != ZN_TYPE_BINARY) return nullptr;
  const std::string_view bytes = value.AsBinary();
  BinaryReader reader(bytes.data(), bytes.size(), names);
  return ZN_FAILED(room->Unmarshal(reader)) ? nullptr : room;
}

Value AsBinary(const PropertySet& set) {
  BinaryWriter stream;
  set.Marshal(stream);
  return Value::Binary(stream.Buffer().Data(), stream.Buffer().Size());
}

}  // namespace zn::wire
