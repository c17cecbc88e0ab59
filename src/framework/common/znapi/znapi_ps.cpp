// The Ps* exports: property sets at the boundary.
#include <cstdlib>
#include <string>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/znpropset/property2.h"
#include "support/common/block.h"
#include "zn/ps.h"

namespace zn {

namespace {

PropertySet& SetOf(ZnHandle handle) noexcept {
  return *HandleThing<PropertySet>(handle);
}

u32 WrapForCaller(PropertySet&& set, ZnHandle* out) noexcept {
  const ZnHandle handle = WrapPropertySet(std::move(set));
  if (handle == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = handle;
  return ZN_OK;
}

u32 MarshalToBlock(const PropertySet& set, void** out, u32* outLen) {
  BinaryWriter writer;
  set.Marshal(writer);
  *out = writer.Buffer().Take(outLen);
  return ZN_OK;
}

u32 PrintToBlock(const PropertySet& set, void** out, u32* outLen) {
  std::string text;
  for (const Property& property : set) property.Print(text, 0);
  void* block = CopyToBlock(text.c_str(), text.size() + 1);
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = block;
  *outLen = static_cast<u32>(text.size() + 1);
  return ZN_OK;
}

u32 XmlToBlock(const PropertySet& set, void** out, u32* outLen) {
  XmlTextStream stream;
  set.WriteXml(stream);
  void* block = stream.Document(outLen);
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = block;
  return ZN_OK;
}

}  // namespace

}  // namespace zn

using namespace zn;  // NOLINT(google-build-using-namespace): the exports stand in the global
                     // namespace

extern "C" {

u32 PsCreatePropset(ZnHandle* out) {
  return ApiCall("PsCreatePropset", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(out)));
    return WrapForCaller(PropertySet(), out);
  });
}

u32 PsDestroyPropset(ZnHandle set) {
  return ApiCall("PsDestroyPropset",
                 [&](ApiFrame& frame) -> u32 { return frame.Check(DestroyPropertySet(set)); });
}

u32 PsAddProperty(ZnHandle set, const Property2* p) {
  return ApiCall("PsAddProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(set) && IsReadableProperty(p)));
    Property property;
    ZN_RETURN_IF_FAILED(ConvertProperty2ToProperty3(p, &property));
    return SetOf(set).AddOwned(std::move(property));
  });
}

u32 PsSetProperty(ZnHandle set, const Property2* p) {
  return ApiCall("PsSetProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(set) && IsReadableProperty(p)));
    Property property;
    ZN_RETURN_IF_FAILED(ConvertProperty2ToProperty3(p, &property));
    return SetOf(set).Set(property);
  });
}

u32 PsDeleteProperty(ZnHandle set, const char* name) {
  return ApiCall("PsDeleteProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(set) && IsGoodString(name, kMaxNameLength)));
    return SetOf(set).Delete(name);
  });
}

// Without the lock: the record is the caller's alone, and what it holds checks itself.
u32 PsFreeProperty(Property2* p) {
  ZN_TRACE(1, "ZnAPI:Entering PsFreeProperty");
  u32 status = ZNE_INVALID_ARGUMENTS;
  if (IsGoodPointer(p)) {
    status = FreeProperty2(p);
  } else {
    ZN_TRACE(3, "ZnAPI:PsFreeProperty: Invalid arguments");
  }
  ZN_TRACE(1, "ZnAPI:Exiting PsFreeProperty: 0x%x, %u", status, status);
  return status;
}

u32 PsFindProperty(ZnHandle set, const char* name, Property2** out) {
  return ApiCall("PsFindProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(set) && IsGoodString(name, kMaxNameLength) &&
                                    IsGoodPointer(out)));
    const Property* property = std::as_const(SetOf(set)).Find(std::string_view(name));
    if (property == nullptr) return ZNE_PROPERTY_NOT_FOUND;
    return ConvertProperty3ToProperty2(*property, out);
  });
}

u32 PsCopyPropset(ZnHandle set, ZnHandle* out) {
  return ApiCall("PsCopyPropset", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(set) && IsGoodPointer(out)));
    return WrapForCaller(PropertySet(SetOf(set)), out);
  });
}

u32 PsMergePropsets(ZnHandle target, ZnHandle source) {
  return ApiCall("PsMergePropsets", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(target) && IsPropsetHandle(source)));
    return SetOf(target).Merge(SetOf(source));
  });
}

u32 PsOpenPropset(ZnHandle set, ZnHandle* outIterator) {
  return ApiCall("PsOpenPropset", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(set) && IsGoodPointer(outIterator)));
    const ZnHandle iterator = AllocateHandle(HANDLE_PROPITER, nullptr);
    if (iterator == nullptr) return ZNE_OUT_OF_MEMORY;
    *outIterator = iterator;
    return ZN_OK;
  });
}

// The iterator is bound to no set: its second word is the position, nothing else.
u32 PsFindNextProperty(ZnHandle set, ZnHandle iterator, Property2** out) {
  return ApiCall("PsFindNextProperty", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(
        IsPropsetHandle(set) && IsValidHandle(iterator, HANDLE_PROPITER) && IsGoodPointer(out)));
    const PropertySet& properties = SetOf(set);
    const auto position = reinterpret_cast<std::uintptr_t>(HandleThing<void>(iterator));
    if (position >= properties.Count()) return ZNE_NO_MORE_PROPERTIES;
    ZN_RETURN_IF_FAILED(
        ConvertProperty3ToProperty2(properties.At(static_cast<u32>(position)), out));
    iterator->thing = reinterpret_cast<void*>(position + 1);
    return ZN_OK;
  });
}

u32 PsMarshalPropset(ZnHandle set, void** out, u32* outLen) {
  return ApiCall("PsMarshalPropset", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(
        frame.Check(IsPropsetHandle(set) && IsGoodPointer(out) && IsGoodPointer(outLen)));
    return MarshalToBlock(SetOf(set), out, outLen);
  });
}

u32 PsUnmarshalPropset(const void* data, u32 len, ZnHandle* out) {
  return ApiCall("PsUnmarshalPropset", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(data) && IsGoodPointer(out)));
    PropertySet set;
    BinaryReader reader(data, len);
    ZN_RETURN_IF_FAILED(set.Unmarshal(reader));
    return WrapForCaller(std::move(set), out);
  });
}

u32 PsSPrintf(u32 format, ZnHandle set, void** out, u32* outLen) {
  return ApiCall("PsSPrintf", [&](ApiFrame&) -> u32 {
    using Printer = u32 (*)(const PropertySet&, void**, u32*);
    constexpr Printer kPrinters[] = {PrintToBlock, MarshalToBlock, XmlToBlock};
    if (!IsPropsetHandle(set) || format >= std::size(kPrinters) || !IsGoodPointer(out) ||
        !IsGoodPointer(outLen)) {
      // The name of the worker behind this call, which the words of the trace have always used.
      ZN_TRACE(3, "ZnAPI:PsPrintPropset: Invalid arguments");
      return ZNE_INVALID_ARGUMENTS;
    }
    return kPrinters[format](SetOf(set), out, outLen);
  });
}

}  // extern "C"
