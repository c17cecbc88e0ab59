// A library without an entry point.
#include "zn/types.h"

extern "C" ZN_API u32 NotAnEntry(void);
u32 NotAnEntry(void) {
  return 0;
}
