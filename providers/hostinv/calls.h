// The calls of the provider: one table of interface, codes and handler, and the handlers. Any
// number of threads may call at once.
#pragma once

#include "follower.h"
#include "jobs.h"
#include "zn/types.h"

namespace hostinv {

// The arguments of the Call slot that handlers read.
struct CallArguments {
  ObjectId object{};
  u32 majorCode = 0;
  u32 minorCode = 0;
  ZnHandle in = nullptr;
  ZnHandle out = nullptr;
  bool asynchronous = false;
  void* context = nullptr;
  TaskCallback callback = nullptr;
  GUID interfaceId{};
  ObjectId task{};
};

// What handlers work with. `root` is empty for the live machine.
struct CallServices {
  ZnHandle database = nullptr;
  ZnHandle provider = nullptr;
  std::string root;
  Follower* follower = nullptr;
  Jobs* jobs = nullptr;
};

// ZNE_INTERFACE_NOT_FOUND, ZNE_INVALID_MAJOR_CODE or ZNE_INVALID_MINOR_CODE where the table has no
// such call, else what the call answers.
u32 DispatchCall(const CallServices& services, const CallArguments& arguments);

// Lets objects of the types that have them answer the interfaces.
u32 RegisterInterfaces(ZnHandle database, ZnHandle provider);

}  // namespace hostinv
