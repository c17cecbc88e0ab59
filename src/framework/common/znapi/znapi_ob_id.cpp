// Ids of objects as bytes and as text.
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znguid/znguid.h"
#include "zn/guid.h"
#include "zn/ob.h"

using namespace zn;

extern "C" {

// The three below touch nothing but their arguments: no lock, no trace.
bool ObCompareId(ObjectId a, ObjectId b) {
  return SameGuid(a, b);
}

u32 ObCopyId(ObjectId* dst, ObjectId src) {
  if (!IsGoodPointer(dst)) return ZNE_INVALID_ARGUMENTS;
  *dst = src;
  return ZN_OK;
}

ObjectId* ObIdZero(ObjectId* dst) {
  if (IsGoodPointer(dst)) *dst = ObjectId{};
  return dst;
}

u32 ObIdToString(ObjectId id, char** out) {
  return ApiCall("ObIdToString", [&](ApiFrame&) -> u32 { return ZnGUIDToString(&id, out); });
}

u32 ObStringToId(const char* text, ObjectId* out) {
  return ApiCall("ObStringToId", [&](ApiFrame&) -> u32 { return ZnStringToGUID(text, out); });
}

}  // extern "C"
