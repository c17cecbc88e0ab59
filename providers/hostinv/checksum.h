// SHA-256 of a file that lies on one file system: the opening that cannot leave it, and the digest
// with its progress. Free of the bus but for the statuses.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "zn/types.h"

namespace hostinv {

// An open descriptor, closed at the end.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return fd_; }
  bool IsOpen() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Opens the regular file `path` on the file system mounted at `mountPoint`, both below `root`
// (empty for the live machine). `path` is relative to the mount point, or absolute and then inside
// it. Neither "..", nor a symbolic link, nor another mount below leads out: the kernel refuses, so
// there is nothing to race with. On the file system mounted at "/" absolute links mean what they
// always do.
//   ZNE_INVALID_ARGUMENTS  the path leaves the file system, or is no regular file
//   ZNE_THING_NOT_FOUND    nothing is there
//   ZNE_ACCESS_DENIED      the service may not read it
//   ZNE_OPERATION_FAILED   any other refusal of the system
u32 OpenOnFileSystem(const std::string& root, const std::string& mountPoint,
                     const std::string& path, Descriptor* file);

struct Checksum {
  std::string digest;  // 64 lower-case hex digits
  std::uint64_t bytes = 0;
};

// Hears the percentage, 0 first and then after each block of 256 KiB, so it may hear the same one
// again; answers false to stop.
using Progress = std::function<bool(u32 percent)>;

// Reads the file to its end. ZNE_TASK_STOPPED when `progress` says so, ZNE_OPERATION_FAILED on a
// read error.
u32 ComputeChecksum(const Descriptor& file, const Progress& progress, Checksum* result);

}  // namespace hostinv
