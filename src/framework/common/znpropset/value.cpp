// The table of value types: one row per scalar tag says how a value is named, printed, written,
// read, compared, copied and destroyed. Arrays have no rows of their own: they run the row of their
// element for each element.
#include "framework/common/znpropset/value.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <new>

#include "framework/common/znpropset/propertyset.h"
#include "support/common/text.h"

namespace zn {

// Immutable bytes, shared by copies.
struct BinaryRep {
  std::atomic<u32> references;
  u32 length;
  u8 bytes[1];
};

// The holder of an "object" value: copies share it, the last one takes the set with it.
struct SharedSet {
  std::atomic<u32> references{1};
  PropertySet set;
};

namespace {

BinaryRep* MakeBinary(const void* data, u32 length) {
  void* block = ::operator new(offsetof(BinaryRep, bytes) + length + 1);
  auto* rep = static_cast<BinaryRep*>(block);
  new (&rep->references) std::atomic<u32>(1);
  rep->length = length;
  if (length != 0) std::memcpy(static_cast<u8*>(block) + offsetof(BinaryRep, bytes), data, length);
  return rep;
}

std::string_view BytesOf(const BinaryRep& rep) noexcept {
  return {reinterpret_cast<const char*>(&rep) + offsetof(BinaryRep, bytes), rep.length};
}

// "%*c  %d:" of an array element, cut to its work buffer.
void PrintElementHead(std::string& out, u32 indent, size_t index) {
  char head[512];
  const int length = std::snprintf(head, sizeof head, "%*c  %d:", static_cast<int>(indent * 4), ' ',
                                   static_cast<int>(index));
  out.append(head, std::min(sizeof head - 1, static_cast<size_t>(length)));
}

}  // namespace

// One row of the table. Functions left null need no work.
struct ValueTypes {
  using Payload = Value::Payload;

  struct Row {
    u32 tag;
    const char* name;
    const char* arrayName;
    u32 leastBytes;  // of one value on the wire: bounds what a count can cost
    void (*print)(const Payload&, std::string&, u32 indent);
    void (*marshal)(const Payload&, BinaryWriter&);
    u32 (*unmarshal)(Payload*, BinaryReader&);
    void (*xml)(const Payload&, XmlTextStream&);
    bool (*equals)(const Payload&, const Payload&);
    void (*makeDefault)(Payload*);
    void (*copy)(Payload* to, const Payload& from);
    void (*destroy)(Payload*);
  };

  static const Row* Find(u32 tag) noexcept;
  static const Row& Get(u32 tag) noexcept { return *Find(tag & ~ZN_TYPE_ARRAY); }

  // --- numbers ---------------------------------------------------------------------------------
  template <typename T>
  static void PrintNumber(const Payload& p, std::string& out, u32) {
    out += std::to_string(static_cast<T>(p.bits));
  }
  static void PrintBool(const Payload& p, std::string& out, u32) {
    out += p.bits != 0 ? "true" : "false";
  }
  static void Marshal8(const Payload& p, BinaryWriter& s) { s.WriteUInt8(static_cast<u8>(p.bits)); }
  static void Marshal32(const Payload& p, BinaryWriter& s) {
    s.WriteUInt32(static_cast<u32>(p.bits));
  }
  static void Marshal64(const Payload& p, BinaryWriter& s) { s.WriteUInt64(p.bits); }
  static u32 Unmarshal8(Payload* p, BinaryReader& s) {
    u8 v = 0;
    ZN_RETURN_IF_FAILED(s.ReadUInt8(&v));
    p->bits = v;
    return ZN_OK;
  }
  static u32 Unmarshal32(Payload* p, BinaryReader& s) {
    u32 v = 0;
    ZN_RETURN_IF_FAILED(s.ReadUInt32(&v));
    p->bits = v;
    return ZN_OK;
  }
  static u32 Unmarshal64(Payload* p, BinaryReader& s) { return s.ReadUInt64(&p->bits); }
  static void XmlBool(const Payload& p, XmlTextStream& s) {
    const u8 byte = static_cast<u8>(p.bits);
    s.WriteRaw(&byte, 1);
  }
  template <typename T>
  static void XmlSigned(const Payload& p, XmlTextStream& s) {
    s.WriteNumber(static_cast<T>(p.bits));
  }
  static void XmlUnsigned(const Payload& p, XmlTextStream& s) { s.WriteUnsigned(p.bits); }
  static bool SameBits(const Payload& a, const Payload& b) { return a.bits == b.bits; }
  static void ZeroBits(Payload* p) { p->bits = 0; }

  // --- text and bytes ----------------------------------------------------------------------------
  static std::string_view Text(const Payload& p) noexcept { return {p.text->text, p.text->length}; }
  static std::u16string_view Wide(const Payload& p) noexcept {
    return {p.wide->text, p.wide->length};
  }
  static void PrintText(const Payload& p, std::string& out, u32) { out += Text(p); }
  static void PrintWide(const Payload& p, std::string& out, u32) { out += ToNarrow(Wide(p)); }
  static void MarshalText(const Payload& p, BinaryWriter& s) { s.WriteString(Text(p)); }
  static void MarshalWide(const Payload& p, BinaryWriter& s) { s.WriteWideString(Wide(p)); }
  static u32 UnmarshalText(Payload* p, BinaryReader& s) {
    const u8* at = nullptr;
    u32 count = 0;
    ZN_RETURN_IF_FAILED(s.ReadCounted(1, &at, &count));
    p->text = String::Make({reinterpret_cast<const char*>(at), count});
    return ZN_OK;
  }
  static u32 UnmarshalWide(Payload* p, BinaryReader& s) {
    WideString text;
    ZN_RETURN_IF_FAILED(s.ReadWideString(&text));
    p->wide = text.TakeRep();
    return ZN_OK;
  }
  static void XmlText(const Payload& p, XmlTextStream& s) { s.WriteString(Text(p)); }
  static void XmlWide(const Payload& p, XmlTextStream& s) { s.WriteString(ToNarrow(Wide(p))); }
  static bool SameText(const Payload& a, const Payload& b) {
    return a.text == b.text || Text(a) == Text(b);
  }
  static bool SameWide(const Payload& a, const Payload& b) {
    return a.wide == b.wide || Wide(a) == Wide(b);
  }
  static void EmptyText(Payload* p) { p->text = String::Empty(); }
  static void EmptyWide(Payload* p) { p->wide = WideString::Empty(); }
  static void CopyText(Payload* to, const Payload& from) { to->text = String::Retain(from.text); }
  static void CopyWide(Payload* to, const Payload& from) {
    to->wide = WideString::Retain(from.wide);
  }
  static void DestroyText(Payload* p) { String::Release(p->text); }
  static void DestroyWide(Payload* p) { WideString::Release(p->wide); }

  static void PrintNothing(const Payload&, std::string&, u32) {}
  static void MarshalBinary(const Payload& p, BinaryWriter& s) {
    const std::string_view bytes = BytesOf(*p.binary);
    s.WriteBinary(bytes.data(), static_cast<u32>(bytes.size()));
  }
  static u32 UnmarshalBinary(Payload* p, BinaryReader& s) {
    const u8* at = nullptr;
    u32 count = 0;
    ZN_RETURN_IF_FAILED(s.ReadCounted(1, &at, &count));
    p->binary = MakeBinary(at, count);
    return ZN_OK;
  }
  static void XmlBinary(const Payload&, XmlTextStream& s) { s.WriteBinary(); }
  static bool SameBinary(const Payload& a, const Payload& b) {
    return a.binary == b.binary || BytesOf(*a.binary) == BytesOf(*b.binary);
  }
  static void EmptyBinary(Payload* p) { p->binary = MakeBinary(nullptr, 0); }
  static void CopyBinary(Payload* to, const Payload& from) {
    from.binary->references.fetch_add(1, std::memory_order_relaxed);
    to->binary = from.binary;
  }
  static void DestroyBinary(Payload* p) {
    if (p->binary->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      ::operator delete(p->binary);
    }
  }

  // --- ids ---------------------------------------------------------------------------------------
  static void PrintId(const Payload& p, std::string& out, u32) {
    char text[kGuidTextLength];
    FormatGuid(p.id->guid, text);
    out.append(text, kGuidTextLength);
  }
  static void MarshalId(const Payload& p, BinaryWriter& s) { s.WriteGuid(p.id->guid); }
  static u32 UnmarshalId(Payload* p, BinaryReader& s) {
    GUID guid{};
    ZN_RETURN_IF_FAILED(s.ReadGuid(&guid));
    p->id = InternedId::Intern(guid);
    return ZN_OK;
  }
  static void XmlId(const Payload& p, XmlTextStream& s) { s.WriteGuid(p.id->guid); }
  static bool SameId(const Payload& a, const Payload& b) { return a.id == b.id; }
  static void ZeroId(Payload* p) { p->id = InternedId::ZeroEntry(); }
  static void CopyId(Payload* to, const Payload& from) { to->id = InternedId::Retain(from.id); }
  static void DestroyId(Payload* p) { InternedId::Release(p->id); }

  // --- sets --------------------------------------------------------------------------------------
  static void PrintSet(const Payload& p, std::string& out, u32 indent) {
    p.set->Print(out, indent);
  }
  static void MarshalSet(const Payload& p, BinaryWriter& s) { p.set->Marshal(s); }
  static u32 UnmarshalSet(Payload* p, BinaryReader& s) {
    auto set = std::make_unique<PropertySet>();
    ZN_RETURN_IF_FAILED(set->Unmarshal(s));
    p->set = set.release();
    return ZN_OK;
  }
  static void XmlSet(const Payload& p, XmlTextStream& s) { p.set->WriteXml(s); }
  static bool SameSet(const Payload& a, const Payload& b) { return a.set->Equals(*b.set); }
  static void EmptySet(Payload* p) { p->set = new PropertySet; }
  static void CopySet(Payload* to, const Payload& from) { to->set = new PropertySet(*from.set); }
  static void DestroySet(Payload* p) { delete p->set; }

  static void PrintShared(const Payload& p, std::string& out, u32 indent) {
    p.shared->set.Print(out, indent);
  }
  static void MarshalShared(const Payload& p, BinaryWriter& s) { p.shared->set.Marshal(s); }
  static u32 UnmarshalShared(Payload* p, BinaryReader& s) {
    auto shared = std::make_unique<SharedSet>();
    ZN_RETURN_IF_FAILED(shared->set.Unmarshal(s));
    p->shared = shared.release();
    return ZN_OK;
  }
  static void XmlShared(const Payload& p, XmlTextStream& s) { p.shared->set.WriteXml(s); }
  static bool SameShared(const Payload& a, const Payload& b) {
    return a.shared->set.Equals(b.shared->set);
  }
  static void EmptyShared(Payload* p) { p->shared = new SharedSet; }
  static void CopyShared(Payload* to, const Payload& from) {
    from.shared->references.fetch_add(1, std::memory_order_relaxed);
    to->shared = from.shared;
  }
  static void DestroyShared(Payload* p) {
    if (p->shared->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete p->shared;
  }

  static constexpr Row SetRow(u32 tag, const char* name, const char* arrayName) {
    return {tag,          name,   arrayName, 4,        PrintSet, MarshalSet,
            UnmarshalSet, XmlSet, SameSet,   EmptySet, CopySet,  DestroySet};
  }
  static constexpr Row IdRow(u32 tag, const char* name, const char* arrayName) {
    return {tag,         name,  arrayName, 16,     PrintId, MarshalId,
            UnmarshalId, XmlId, SameId,    ZeroId, CopyId,  DestroyId};
  }

  static const std::array<Row, 18> rows;
};

const std::array<ValueTypes::Row, 18> ValueTypes::rows = {{
    {ZN_TYPE_BOOLEAN, "boolean", "array of boolean", 1, PrintBool, Marshal8, Unmarshal8, XmlBool,
     SameBits, ZeroBits, nullptr, nullptr},
    {ZN_TYPE_INT32, "int32", "array of int32", 4, PrintNumber<i32>, Marshal32, Unmarshal32,
     XmlSigned<i32>, SameBits, ZeroBits, nullptr, nullptr},
    {ZN_TYPE_UINT32, "uint32", "array of uint32", 4, PrintNumber<u32>, Marshal32, Unmarshal32,
     XmlUnsigned, SameBits, ZeroBits, nullptr, nullptr},
    {ZN_TYPE_INT64, "int64", "array of int64", 8, PrintNumber<i64>, Marshal64, Unmarshal64,
     XmlSigned<i64>, SameBits, ZeroBits, nullptr, nullptr},
    {ZN_TYPE_UINT64, "uint64", "array of uint64", 8, PrintNumber<u64>, Marshal64, Unmarshal64,
     XmlUnsigned, SameBits, ZeroBits, nullptr, nullptr},
    {ZN_TYPE_STRING, "string", "array of string", 4, PrintText, MarshalText, UnmarshalText, XmlText,
     SameText, EmptyText, CopyText, DestroyText},
    {ZN_TYPE_WIDESTRING, "widestring", "array of widestring", 4, PrintWide, MarshalWide,
     UnmarshalWide, XmlWide, SameWide, EmptyWide, CopyWide, DestroyWide},
    {ZN_TYPE_BINARY, "binary", "array of binary", 4, PrintNothing, MarshalBinary, UnmarshalBinary,
     XmlBinary, SameBinary, EmptyBinary, CopyBinary, DestroyBinary},
    IdRow(ZN_TYPE_GUID, "guid", "array of guid"),
    SetRow(ZN_TYPE_PROPSET, "propset", "array of propset"),
    IdRow(ZN_TYPE_OBJECT_ID, "object id", "array of object id"),
    {ZN_TYPE_OBJECT, "object", "array of object", 4, PrintShared, MarshalShared, UnmarshalShared,
     XmlShared, SameShared, EmptyShared, CopyShared, DestroyShared},
    SetRow(ZN_TYPE_PROVIDER, "provider", "array of provider"),
    SetRow(ZN_TYPE_DATABASE, "database", "array of database"),
    SetRow(ZN_TYPE_TYPE_OBJECT, "type object", "array of type object"),
    SetRow(ZN_TYPE_I18N, "i18n", "array of i18n"),
    SetRow(ZN_TYPE_I18N_FORMAT_STRING, "i18nFormatString", "array of i18nFormatString"),
    // Printed as signed and written through the unsigned form: the same bytes, but for the text
    // dress, which shows it unsigned.
    {ZN_TYPE_TIME, "time", "array of time", 8, PrintNumber<i64>, Marshal64, Unmarshal64,
     XmlUnsigned, SameBits, ZeroBits, nullptr, nullptr},
}};

const ValueTypes::Row* ValueTypes::Find(u32 tag) noexcept {
  if (tag - 1 < 17) return &rows[tag - 1];
  return tag == ZN_TYPE_TIME ? &rows[17] : nullptr;
}

u32 CanonicalTag(u32 tag) noexcept {
  const u32 array = tag & ZN_TYPE_ARRAY;
  const u32 key = tag & 0x0FFFFFFF;
  if (ValueTypes::Find(key) != nullptr) return array | key;
  const u32 low = key & 0xFFFF;
  return ValueTypes::Find(low) != nullptr ? array | low : 0;
}

Value::Value(const Value& other) : payload_(other.payload_), tag_(other.tag_) {
  if (!OwnsPayload()) return;
  if (IsArray()) {
    payload_.array = new ArrayRep(*other.payload_.array);
  } else {
    ValueTypes::Get(tag_).copy(&payload_, other.payload_);
  }
}

void Value::Destroy() noexcept {
  if (IsArray()) {
    delete payload_.array;
  } else {
    ValueTypes::Get(tag_).destroy(&payload_);
  }
}

Value Value::Default(u32 tag) {
  Value value;
  tag = CanonicalTag(tag);
  if (tag == 0) return value;
  if ((tag & ZN_TYPE_ARRAY) != 0) {
    value.payload_.array = new ArrayRep;
  } else {
    ValueTypes::Get(tag).makeDefault(&value.payload_);
  }
  value.tag_ = tag;
  return value;
}

Value Value::Text(String text) noexcept {
  Value value(ZN_TYPE_STRING, 0);
  value.payload_.text = text.TakeRep();
  return value;
}

Value Value::WideText(WideString text) noexcept {
  Value value(ZN_TYPE_WIDESTRING, 0);
  value.payload_.wide = text.TakeRep();
  return value;
}

Value Value::Binary(const void* data, u32 length) {
  Payload payload{};
  payload.binary = MakeBinary(data, length);
  Value value(ZN_TYPE_BINARY, 0);
  value.payload_ = payload;
  return value;
}

Value Value::Guid(const GUID& guid) {
  Payload payload{};
  payload.id = InternedId::Intern(guid);
  Value value(ZN_TYPE_GUID, 0);
  value.payload_ = payload;
  return value;
}

Value Value::Id(InternedId id) noexcept {
  Value value(ZN_TYPE_OBJECT_ID, 0);
  value.payload_.id = id.TakeEntry();
  return value;
}

Value Value::Set(u32 tag, PropertySet&& set) {
  Value value = Default(tag);
  value.AsSet() = std::move(set);
  return value;
}

Value Value::Array(u32 elementTag, std::vector<Value> elements) {
  Value value = Default(elementTag | ZN_TYPE_ARRAY);
  value.payload_.array->elements = std::move(elements);
  return value;
}

const char* Value::TypeName() const noexcept {
  if (tag_ == 0) return "UnknownValueType";
  const ValueTypes::Row& row = ValueTypes::Get(tag_);
  return IsArray() ? row.arrayName : row.name;
}

std::string_view Value::AsBinary() const noexcept {
  return BytesOf(*payload_.binary);
}

InternedId Value::AsId() const noexcept {
  return InternedId::Adopt(InternedId::Retain(payload_.id));
}

const PropertySet& Value::AsSet() const noexcept {
  return tag_ == ZN_TYPE_OBJECT ? payload_.shared->set : *payload_.set;
}
PropertySet& Value::AsSet() noexcept {
  return tag_ == ZN_TYPE_OBJECT ? payload_.shared->set : *payload_.set;
}
const std::vector<Value>& Value::AsArray() const noexcept {
  return payload_.array->elements;
}
std::vector<Value>& Value::AsArray() noexcept {
  return payload_.array->elements;
}

bool Value::Equals(const Value& other) const noexcept {
  if (tag_ != other.tag_ || tag_ == 0) return false;
  if (!IsArray()) return ValueTypes::Get(tag_).equals(payload_, other.payload_);
  const std::vector<Value>& mine = AsArray();
  const std::vector<Value>& theirs = other.AsArray();
  if (mine.size() != theirs.size()) return false;
  for (size_t i = 0; i < mine.size(); ++i) {
    if (!mine[i].Equals(theirs[i])) return false;
  }
  return true;
}

void Value::Print(std::string& out, u32 indent) const {
  if (tag_ == 0) return;
  if (!IsArray()) {
    ValueTypes::Get(tag_).print(payload_, out, indent);
    return;
  }
  const std::vector<Value>& elements = AsArray();
  if (elements.empty()) {
    out += "(No Elements)";
    return;
  }
  out += '\n';
  for (size_t i = 0; i < elements.size(); ++i) {
    PrintElementHead(out, indent, i);
    elements[i].Print(out, indent);
  }
}

void Value::Marshal(BinaryWriter& stream) const {
  if (tag_ == 0) return;
  if (!IsArray()) {
    ValueTypes::Get(tag_).marshal(payload_, stream);
    return;
  }
  stream.WriteUInt32(static_cast<u32>(AsArray().size()));
  for (const Value& element : AsArray()) element.Marshal(stream);
}

u32 Value::Unmarshal(u32 tag, BinaryReader& stream) {
  const ValueTypes::Row* found = ValueTypes::Find(tag & 0x0FFFFFFF);
  if (found == nullptr) found = ValueTypes::Find(tag & 0xFFFF);
  if (found == nullptr) return ZNE_UNEXPECTED;
  const ValueTypes::Row& row = *found;
  Value read;
  if ((tag & ZN_TYPE_ARRAY) == 0) {
    ZN_RETURN_IF_FAILED(row.unmarshal(&read.payload_, stream));
    read.tag_ = row.tag;
  } else {
    u32 count = 0;
    ZN_RETURN_IF_FAILED(stream.ReadUInt32(&count));
    if (count > stream.Left() / row.leastBytes) return ZNE_UNEXPECTED;
    std::vector<Value> elements;
    elements.reserve(std::min(count, kRoomAhead));
    for (u32 i = 0; i < count; ++i) {
      ZN_RETURN_IF_FAILED(elements.emplace_back().Unmarshal(row.tag, stream));
    }
    read = Array(row.tag, std::move(elements));
  }
  Swap(read);
  return ZN_OK;
}

void Value::WriteXml(XmlTextStream& stream) const {
  if (tag_ == 0) return;
  if (!IsArray()) {
    ValueTypes::Get(tag_).xml(payload_, stream);
    return;
  }
  stream.BeginElement("ArraySize");
  stream.WriteUnsigned(AsArray().size());
  stream.EndElement("ArraySize");
  for (size_t i = 0; i < AsArray().size(); ++i) {
    const std::string name = "Element" + std::to_string(i);
    stream.BeginElement(name);
    AsArray()[i].WriteXml(stream);
    stream.EndElement(name);
  }
}

}  // namespace zn
