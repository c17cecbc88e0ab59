// Types: their creation through the object family, their names, properties and interfaces.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znapi/apiresult.h"
#include "framework/common/znpropset/property2.h"
#include "zn/ob.h"
#include "zn/type.h"

namespace zn {

namespace {

// Bit 0 of the flags of TypeGetTypeProperties and TypeQueryTypeInterfaces.
constexpr u32 kWithInherited = 1;

struct TypeRequest {
  ZnHandle hDb;
  const char* name;
  const char** supertypes;
  ZnHandle hPropset;
  u32 flags;
  ObjectId* out;
};

bool AreGoodArguments(const TypeRequest& request) noexcept {
  return IsDatabaseHandle(request.hDb) && IsNonEmptyTypeName(request.name) &&
         (request.supertypes == nullptr || IsGoodPointer(request.supertypes)) &&
         IsPropsetHandle(request.hPropset) && IsGoodPointer(request.out);
}

// The names given, and the root behind them unless one of them derives from it.
u32 ReadSupertypes(const ApiFrame& frame, Database& database, const char** names,
                   std::vector<std::string>* out) {
  bool hasRoot = false;
  for (; names != nullptr && *names != nullptr; ++names) {
    if (!IsTypeName(*names)) return frame.Refuse("Invalid supertype name");
    hasRoot = hasRoot || database.Types().TypeIsA(*names, kRootTypeName);
    out->emplace_back(*names);
  }
  if (!hasRoot) out->emplace_back(kRootTypeName);
  return ZN_OK;
}

// The part of both creations that runs under the lock. Contract: both refuse in the name of
// ObCreateTypeObject.
u32 CreateType(const TypeRequest& request) {
  return ApiCall(
      "ObCreateTypeObject", {.entry = false, .exit = false}, [&](ApiFrame& frame) -> u32 {
        // Again under the lock: another thread may have destroyed one of them meanwhile.
        ZN_RETURN_IF_FAILED(frame.Check(AreGoodArguments(request)));
        Database* database = nullptr;
        ZN_RETURN_UNLESS_OK(frame.OpenDatabase(request.hDb, &database));
        std::vector<std::string> supertypes;
        ZN_RETURN_IF_FAILED(ReadSupertypes(frame, *database, request.supertypes, &supertypes));
        TypeObject* type = nullptr;
        ZN_RETURN_IF_FAILED(database->Types().CreateTypeInstance(
            request.name, HandleThing<PropertySet>(request.hPropset), supertypes, request.flags,
            &type));
        *request.out = type->Guid();
        return ZN_OK;
      });
}

u32 OpenType(const ApiFrame& frame, ZnHandle hDb, const char* name, TypeObject** out) {
  Database* database = nullptr;
  ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
  *out = database->Types().FindType(name);
  return *out == nullptr ? ZNE_TYPE_NOT_FOUND : ZN_OK;
}

using Relatives = const std::vector<TypeObject*>& (TypeObject::*)() const;

// TypeGetSuperTypeObjects and TypeGetDerivedTypeObjects: direct relatives, in list order.
u32 GetRelatives(const char* function, ZnHandle hDb, const char* type, u32* count, char*** names,
                 Relatives relatives) {
  return ApiCall(function, [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsNonEmptyTypeName(type) &&
                                    AreListOutputs(count, names)));
    TypeObject* object = nullptr;
    ZN_RETURN_UNLESS_OK(OpenType(frame, hDb, type, &object));
    std::vector<std::string_view> texts;
    for (const TypeObject* relative : (object->*relatives)()) {
      texts.push_back(relative->Name().Text());
    }
    return NamesToCaller(texts, count, names);
  });
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

// Contract: an argument failure of the two creations comes before the lock and has no exit trace.
u32 ObCreateTypeObject(ZnHandle hDb, const char* type, const char** supertypes, ZnHandle hPropset,
                       ObjectId* out) {
  ZN_TRACE(1, "ZnAPI:Entering ObCreateTypeObject");
  if (IsGoodPointer(out)) *out = ObjectId{};
  const TypeRequest request{hDb, type, supertypes, hPropset, 0, out};
  if (!AreGoodArguments(request)) {
    ZN_TRACE(3, "ZnAPI:ObCreateTypeObject: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  const u32 status = CreateType(request);
  ZN_TRACE(1, "ZnAPI:Exiting ObCreateTypeObject: 0x%x, %u", status, status);
  return status;
}

u32 ObCreateTypeObjectEx(ZnHandle hDb, const char* type, const char** supertypes, ZnHandle hPropset,
                         u32 flags, u32, ObjectId* out) {
  ZN_TRACE(1, "ZnAPI:Entering ObCreateTypeObjectEx");
  if (IsGoodPointer(out)) *out = ObjectId{};
  const TypeRequest request{hDb, type, supertypes, hPropset, VisibilityFlags(flags), out};
  if (!AreGoodArguments(request)) {
    ZN_TRACE(3, "ZnAPI:ObCreateTypeObjectEx: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  if (request.flags == 0) {  // one of the two bits must be set
    ZN_TRACE(3, "ZnAPI:ObCreateTypeObjectEx: Invalid flags specified");
    return ZNE_INVALID_ARGUMENTS;
  }
  const u32 status = CreateType(request);
  ZN_TRACE(1, "ZnAPI:Exiting ObCreateTypeObjectEx: 0x%x, %u", status, status);
  return status;
}

bool ObIsA(ZnHandle hDb, ObjectId id, const char* type) {
  bool isA = false;
  static_cast<void>(ApiCall("ObIsA", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsNonEmptyTypeName(type)));
    Database* database = nullptr;
    DBNode* object = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenObject(hDb, id, &database, &object));
    const TypeObject* base = database->Types().FindType(type);
    if (object->GetType() == nullptr || base == nullptr) return ZNE_TYPE_NOT_FOUND;
    isA = object->GetType()->IsA(*base);
    return ZN_OK;
  }));
  return isA;
}

u32 TypeGetObjects(ZnHandle hDb, u32* count, char*** names) {
  return ApiCall("TypeGetObjects", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && AreListOutputs(count, names)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    std::vector<std::string_view> texts;
    for (const auto& [name, type] : database->Types().Types()) {
      if (!IsBaseSchemaType(name)) texts.push_back(name);
    }
    return NamesToCaller(texts, count, names);
  });
}

u32 TypeGetSuperTypeObjects(ZnHandle hDb, const char* type, u32* count, char*** names) {
  return GetRelatives("TypeGetSuperTypeObjects", hDb, type, count, names, &TypeObject::Supertypes);
}

u32 TypeGetDerivedTypeObjects(ZnHandle hDb, const char* type, u32* count, char*** names) {
  return GetRelatives("TypeGetDerivedTypeObjects", hDb, type, count, names, &TypeObject::Subtypes);
}

u32 TypeGetTypeProperties(ZnHandle hDb, const char* type, u32 flags, ZnHandle* properties) {
  return ApiCall("TypeGetTypeProperties", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsNonEmptyTypeName(type) &&
                                    IsGoodPointer(properties)));
    TypeObject* object = nullptr;
    ZN_RETURN_UNLESS_OK(OpenType(frame, hDb, type, &object));
    const bool inherited = (flags & kWithInherited) != 0;
    const ZnHandle handle =
        WrapPropertySet(PropertySet(inherited ? object->AllProperties() : object->Properties()));
    if (handle == nullptr) return ZNE_OUT_OF_MEMORY;
    *properties = handle;
    return ZN_OK;
  });
}

u32 TypeQueryTypeInterfaces(ZnHandle hDb, const char* type, u32 flags, u32* count, GUID** ids) {
  return ApiCall("TypeQueryTypeInterfaces", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsNonEmptyTypeName(type) &&
                                    AreListOutputs(count, ids)));
    TypeObject* object = nullptr;
    const u32 status = OpenType(frame, hDb, type, &object);
    if (status == ZNE_TYPE_NOT_FOUND) {
      ZN_TRACE(3, "ZnAPI:TypeQueryTypeInterfaces: Type not found");
    }
    ZN_RETURN_UNLESS_OK(status);
    std::vector<GUID> interfaces;
    object->CollectInterfaces((flags & kWithInherited) != 0, &interfaces);
    return ListToCaller(interfaces, count, ids);
  });
}

bool TypeIsA(ZnHandle hDb, const char* type, const char* baseType) {
  bool isA = false;
  static_cast<void>(ApiCall("TypeIsA", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb) && IsNonEmptyTypeName(type) &&
                                    IsNonEmptyTypeName(baseType)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    const TypeObject* derived = database->Types().FindType(type);
    const TypeObject* base = database->Types().FindType(baseType);
    if (derived == nullptr || base == nullptr) return ZNE_TYPE_NOT_FOUND;
    isA = derived->IsA(*base);  // itself included, so equal names answer true
    return ZN_OK;
  }));
  return isA;
}

}  // extern "C"
