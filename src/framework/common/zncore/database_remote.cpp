// A client copy and its server: requests for objects, and what their answers bring. Whoever made
// the copy carries the request (DatabaseCallbacks::forwardRequest).
#include "framework/common/zncore/database.h"

#include "framework/common/zncore/database_value.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"

namespace zn {

namespace {

constexpr u32 kCacheRequestMessage = 5;

}  // namespace

u32 Database::RemoteRequest(RequestCriteria criteria, PropertySet data, PropertySet* reply) {
  AssertBusLocked();
  PropertySet request;
  request.Put("Message", Value::UInt32(kCacheRequestMessage));
  request.Put("Criteria", Value::UInt32(static_cast<u32>(criteria)));
  request.Put("Data", Value::Set(std::move(data)));
  const DatabaseCallbacks callbacks = callbacks_;
  const BusRelease released;
  return callbacks.forwardRequest(request, reply, callbacks.context);
}

u32 Database::QueryServer(std::u16string_view text, std::vector<ObjectId>* out) {
  PropertySet data;
  data.Put("Query", Value::WideText(text));
  PropertySet reply;
  ZN_RETURN_IF_FAILED(RemoteRequest(RequestCriteria::kQuery, std::move(data), &reply));
  return InstallListing(reply, out);
}

u32 Database::InstallListing(const PropertySet& reply, std::vector<ObjectId>* out) {
  const std::vector<Value>* objects = FindSetList(reply, "Objects");
  if (objects == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  for (const Value& object : *objects) {
    const Value* id = object.AsSet().FindValue("ObjectId", ZN_TYPE_OBJECT_ID);
    // Contract: what the copy holds already is not reported, and so a query that is asked again
    // answers with nothing.
    if (id == nullptr || ObjectExists(id->AsGuid())) continue;
    ZN_RETURN_IF_FAILED(InstallObject(object.AsSet()));
    out->push_back(id->AsGuid());
  }
  return ZN_OK;
}

}  // namespace zn
