// The types that the library itself needs, as tables. The first six stand before any document is
// read; a document may declare the others with more properties, so they are made only where it has
// not.
#include <algorithm>
#include <iterator>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

namespace {

struct BuiltInType {
  const char* name;
  const char* supertype;  // null for none
};

constexpr BuiltInType kBaseTypes[] = {
    {"KELD_Object", nullptr},           {"KELD_Provider", nullptr},
    {"KELD_Database", nullptr},         {"KELD_Group", "KELD_Object"},
    {"KELD_SystemGroup", "KELD_Group"}, {"KELD_GenericGroup", "KELD_Group"},
};

constexpr BuiltInType kSystemTypes[] = {
    {"KELD_Extension", "KELD_Object"},
    {"KELD_Task", "KELD_Object"},
    {"KELD_Configlet", "KELD_Object"},
};

// What every object starts with.
PropertySet RootProperties() {
  PropertySet properties;
  properties.Put("Name", Value::WideText(u"Noname"));
  properties.Put("State", Value::UInt32(0));
  return properties;
}

u32 CreateBuiltInType(Database& database, const BuiltInType& row) {
  const PropertySet properties = row.name == kRootTypeName ? RootProperties() : PropertySet();
  std::vector<std::string> supertypes;
  if (row.supertype != nullptr) supertypes.emplace_back(row.supertype);
  TypeObject* type = nullptr;
  return database.Types().CreateTypeInstance(row.name, &properties, supertypes, 0, &type);
}

}  // namespace

u32 RegisterBaseObjectTypes(Database& database) {
  for (const BuiltInType& row : kBaseTypes) {
    ZN_TRACE(1, "ZnAPI:RegisterBaseObjectType:Creating base object type");
    const u32 status = CreateBuiltInType(database, row);
    if (ZN_FAILED(status)) {
      ZN_TRACE(1, "ZnAPI:RegisterBaseObjectType:Unable to create base object type");
      return status;
    }
    ZN_TRACE(1, "ZnAPI:RegisterBaseObjectType:Base object type created");
  }
  return ZN_OK;
}

u32 RegisterMissingSystemTypes(Database& database) {
  for (const BuiltInType& row : kSystemTypes) {
    if (database.Types().FindType(row.name) != nullptr) continue;
    ZN_RETURN_IF_FAILED(CreateBuiltInType(database, row));
  }
  return ZN_OK;
}

bool IsBaseSchemaType(std::string_view name) noexcept {
  constexpr std::string_view kHidden[] = {"KELD_Database",     "KELD_Provider",    "KELD_Object",
                                          "KELD_GenericGroup", "KELD_SystemGroup", "KELD_Group",
                                          "KELD_Type",         "KELD_Extension"};
  return std::find(std::begin(kHidden), std::end(kHidden), name) != std::end(kHidden);
}

}  // namespace zn
