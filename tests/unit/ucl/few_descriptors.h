// For tests of what happens where the process may open no more files.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace zn::test {

// While it lives, so many more descriptors than now may be opened.
class FewDescriptors {
 public:
  explicit FewDescriptors(int left) {
    getrlimit(RLIMIT_NOFILE, &old_);
    const int next = dup(0);
    close(next);
    rlimit few = old_;
    few.rlim_cur = static_cast<rlim_t>(next + left);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &old_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit old_{};
};

// The address sanitizer opens pipes for its own checks.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kChecksNeedDescriptors = true;
#else
inline constexpr bool kChecksNeedDescriptors = false;
#endif

}  // namespace zn::test
