// A thread whose calls of the host fail, for what no limit of a process brings about: a socket that
// cannot listen, a thread that cannot be started.
#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <thread>
#include <utility>
#include <vector>

#include "zn/types.h"

namespace zn::test {

// From now on each of the calls answers with that error, on this thread and on those that it
// starts; there is no way back. False when the host does not allow it.
[[nodiscard]] inline bool RefuseCalls(std::initializer_list<u32> calls, u32 error) {
  std::vector<sock_filter> filter = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const u32 call : calls) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog program{static_cast<u16>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Runs the body on a thread of its own that the host refuses these calls.
template <typename Body>
void WithRefusedCalls(std::initializer_list<u32> calls, u32 error, Body&& body) {
  std::thread([&] {
    if (!RefuseCalls(calls, error)) {
      std::perror("the host does not let a thread refuse itself calls");
      std::abort();
    }
    body();
  }).join();
}

// What starts a thread.
inline constexpr std::initializer_list<u32> kThreadCalls = {SYS_clone, SYS_clone3};

}  // namespace zn::test
