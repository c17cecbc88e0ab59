// What the common code asks of the host beyond the exported Zn* calls. One half per host implements
// it (posix/); the common code includes no system header.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn {

// Address space that reads as zero and takes memory only where it is touched; never given back.
// Null when the system refuses.
[[nodiscard]] void* ReserveMemory(size_t bytes) noexcept;

// Memory straight from the system that reads as zero, at a multiple of a large page; whole large
// pages are taken, whatever is asked. Null when the system refuses.
inline constexpr size_t kLargePageBytes = size_t{2} << 20;
[[nodiscard]] void* AllocatePages(size_t bytes) noexcept;
// The size is that of the allocation. Null is accepted.
void FreePages(void* memory, size_t bytes) noexcept;
// Asks the system to back the memory with large pages as it is touched. A wish: it may not have
// any.
void UseLargePages(void* memory, size_t bytes) noexcept;

// Random bytes from the kernel; false when there are none. Buffered, safe across fork.
[[nodiscard]] bool RandomBytes(void* out, size_t count) noexcept;

// One simple capital of a unit beyond ASCII, by the host's Unicode tables and no locale.
[[nodiscard]] ZnWChar HostToUpper(ZnWChar unit) noexcept;

// Starts a thread that nobody joins. False when the system refuses (ZnGetLastError tells why).
// `stackBytes` 0 means the host's default.
using ThreadStart = u32 (*)(void*);
[[nodiscard]] bool StartDetachedThread(ThreadStart start, void* argument, u32 stackBytes,
                                       u32* threadId) noexcept;

// The calling thread's last failure of a platform call: what ZnGetLastError answers, and its text.
void SetLastFailure(u32 code, std::string_view text) noexcept;
void SetLastFailure(u32 code) noexcept;  // with the system's text
[[nodiscard]] const char* LastFailureText() noexcept;

// Local time of `seconds` since 1970 in the 26-byte form "Www Mmm dd hh:mm:ss yyyy\n\0".
inline constexpr size_t kTimeTextSize = 32;
void FormatTime(i64 seconds, char (&out)[kTimeTextSize]) noexcept;

// The folder for temporary files, with a separator at its end.
[[nodiscard]] std::string TemporaryFolder();

// What ZnGetVersionString tells of the host: "Linux", its release, and its processor's number (the
// machine number of the host's executables: 62 for x86-64, 183 for 64-bit ARM).
struct HostVersion {
  std::string name;
  std::string release;
  u32 processor = 0;
};
[[nodiscard]] HostVersion GetHostVersion();

// The host's name; empty when there is none.
[[nodiscard]] std::string GetHostName();

// An environment variable; empty when it is not set.
[[nodiscard]] std::string GetEnvironment(const char* name);

// The user's profile folder without a separator at its end; empty when nothing names it.
[[nodiscard]] std::string ProfileFolder();

// What the system says of a file, links followed; false when there is none.
struct FileStatus {
  u64 size = 0;
  bool isRegular = false;
};
[[nodiscard]] bool GetFileStatus(const std::string& path, FileStatus* out) noexcept;

// Makes a folder for this user alone unless it is there; false when it cannot be had.
[[nodiscard]] bool EnsureFolder(const std::string& path) noexcept;

}  // namespace zn
