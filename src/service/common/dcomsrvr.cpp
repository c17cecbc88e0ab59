// Logon tokens by component activation: a service of another host system. The two entry points are
// there for programs that were written for it; nothing is activated, and authentication type 4 is
// never granted.
#include "support/common/trace.h"
#include "zn/init.h"

extern "C" {

void InitDCOM(void) {
  ZN_TRACE(1, "ZnSvc:Component activation is not available on this host");
}

void UninitDCOM(void) {}

}  // extern "C"
