// The exported probes: non-zero for a pointer that a call may not touch.
#include "support/common/pointers.h"

#include "zn/platform.h"

extern "C" {

int ZnIsBadReadPtr(const void* p, size_t) {
  return zn::IsGoodPointer(p) ? 0 : 1;
}
int ZnIsBadWritePtr(void* p, size_t) {
  return zn::IsGoodPointer(p) ? 0 : 1;
}
int ZnIsBadCodePtr(const void* p) {
  return zn::IsGoodPointer(p) ? 0 : 1;
}
int ZnIsBadStringPtrA(const char* p, size_t max) {
  return zn::IsGoodString(p, max) ? 0 : 1;
}
int ZnIsBadStringPtrW(const ZnWChar* p, size_t max) {
  return zn::IsGoodString(p, max) ? 0 : 1;
}

}  // extern "C"
