// From the document to the types: the document is parsed, its declarations are read into records,
// ordered so that supertypes come first, and created.
#include "declared_types.h"

#include <vector>

#include "hostinv_types.h"
#include "zn/formalization_parser.h"
#include "zn/znmira.h"

namespace hostinv {
namespace {

// Records and the graph that orders them, freed together. The document outlives both.
class DeclaredTypes {
 public:
  DeclaredTypes() = default;
  ~DeclaredTypes() {
    DeleteOTIGraph(graph_);
    for (OTInfo* info : infos_) DeleteOTInfo(info);
  }
  DeclaredTypes(const DeclaredTypes&) = delete;
  DeclaredTypes& operator=(const DeclaredTypes&) = delete;

  u32 Read(xercesc::DOMDocument* document) {
    u32 status = OTIVCreate_Doc(document, &infos_);
    if (!ZN_FAILED(status)) status = OTInfo_Validate(&infos_);
    if (!ZN_FAILED(status)) status = CreateOTIGraph(&graph_);
    if (!ZN_FAILED(status)) status = OTIGraph_AddNodes(graph_, &infos_);
    return status;
  }

  // Taken out of the graph subtypes come first; backwards it is an order of creation.
  u32 Create(ZnHandle database) {
    OTInfoVector order;
    u32 status = OTIGraph_RemoveChildNodes(graph_, &order, nullptr);
    for (auto info = order.rbegin(); !ZN_FAILED(status) && info != order.rend(); ++info) {
      status = CreateType(database, **info);
    }
    return status;
  }

 private:
  static u32 CreateType(ZnHandle database, const OTInfo& info) {
    auto** supertypes = const_cast<const char**>(info.supertypes);
    ObjectId id{};
    const u32 status =
        info.hasFlags ? ObCreateTypeObjectEx(database, info.name, supertypes, info.properties,
                                             info.flags, 0, &id)
                      : ObCreateTypeObject(database, info.name, supertypes, info.properties, &id);
    return status == ZNE_TYPE_EXISTS ? ZN_OK : status;
  }

  OTInfoVector infos_;
  OTIGraph* graph_ = nullptr;
};

}  // namespace

u32 DeclareTypes(ZnHandle database) {
  zn::FormalizationParser parser;
  u32 status = parser.ParseMemory(kTypesDocument, sizeof(kTypesDocument) - 1, "hostinv_types.xml");
  if (ZN_FAILED(status)) return status;
  DeclaredTypes types;
  status = types.Read(parser.Document());
  return ZN_FAILED(status) ? status : types.Create(database);
}

}  // namespace hostinv
