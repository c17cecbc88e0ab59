// The exports that make, print, read and compare GUIDs. None of them touches shared state, so none
// takes the bus lock.
#include "framework/common/znguid/znguid.h"
#include "support/common/block.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/guid.h"

using namespace zn;  // NOLINT(google-build-using-namespace): the exports stand in the global
                     // namespace

extern "C" {

u32 ZnGenerateGUID(GUID* out) {
  if (!IsGoodPointer(out)) {
    ZN_TRACE(3, "ZnAPI:ZnGenerateGUID: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  return GenerateRawGuid(out);
}

u32 ZnGUIDToString(const GUID* in, char** out) {
  if (!IsGoodPointer(in) || !IsGoodPointer(out)) {
    ZN_TRACE(3, "ZnAPI:ZnGUIDToString: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  char text[kGuidTextLength];
  FormatGuid(*in, text);
  char* block = TextToBlock(std::string_view(text, kGuidTextLength));
  if (block == nullptr) {
    ZN_TRACE(3, "ZnAPI:ZnGUIDToString: Out of memory");
    return ZNE_OUT_OF_MEMORY;
  }
  *out = block;
  return ZN_OK;
}

u32 ZnStringToGUID(const char* text, GUID* out) {
  // Contract: what stands behind the closing brace is not looked at.
  const bool readable = IsGoodPointer(text) && IsGoodPointer(out);
  if (!readable || !ParseGuid({text, strnlen(text, kGuidTextLength)}, out)) {
    ZN_TRACE(3, "ZnAPI:ZnStringToGUID: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  return ZN_OK;
}

bool ZnCompareGuid(const GUID* a, const GUID* b) {
  if (!IsGoodPointer(a) || !IsGoodPointer(b)) {
    ZN_TRACE(3, "ZnAPI:ZnCompareGuid: Invalid arguments");
    return false;
  }
  return SameGuid(*a, *b);
}

}  // extern "C"
