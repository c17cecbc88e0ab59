// Checksum of a file on one file system; see the header.
#include "checksum.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include <openssl/evp.h>

#include "zn/status.h"

namespace hostinv {
namespace {

constexpr std::size_t kBlockSize = std::size_t{1} << 18U;

u32 StatusOfErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return ZNE_THING_NOT_FOUND;
    case EACCES:
    case EPERM:
      return ZNE_ACCESS_DENIED;
    case EXDEV:  // left the mount
    case ELOOP:
    case ENAMETOOLONG:
    case EISDIR:
    case ENXIO:  // a socket or a pipe
      return ZNE_INVALID_ARGUMENTS;
    default:
      return ZNE_OPERATION_FAILED;
  }
}

// Turns an absolute path into one relative to the mount point; false if it lies elsewhere.
bool MakeRelative(const std::string& mountPoint, std::string* path) {
  if (path->empty() || path->find('\0') != std::string::npos) return false;
  if (path->front() == '/') {
    const std::string prefix = mountPoint == "/" ? "/" : mountPoint + "/";
    if (path->compare(0, prefix.size(), prefix) != 0) return false;
    path->erase(0, prefix.size());
  }
  path->erase(0, path->find_first_not_of('/'));
  return !path->empty();
}

std::string Hex(const std::array<unsigned char, EVP_MAX_MD_SIZE>& bytes, unsigned length) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned i = 0; i < length; ++i) {
    text.push_back(kDigits[bytes[i] >> 4U]);
    text.push_back(kDigits[bytes[i] & 15U]);
  }
  return text;
}

// A file that grows while it is read stays at 100.
u32 PercentOf(std::uint64_t bytes, std::uint64_t size) {
  return size == 0 ? 100 : static_cast<u32>(std::min<std::uint64_t>(100, bytes * 100 / size));
}

struct ContextDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

Descriptor::~Descriptor() {
  if (fd_ >= 0) close(fd_);
}

Descriptor::Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

u32 OpenOnFileSystem(const std::string& root, const std::string& mountPoint,
                     const std::string& path, Descriptor* file) {
  std::string relative = path;
  if (!MakeRelative(mountPoint, &relative)) return ZNE_INVALID_ARGUMENTS;
  const Descriptor folder(open((root + mountPoint).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder.IsOpen()) return StatusOfErrno(errno);
  open_how how{};
  // Not blocking: a pipe without a writer would hold us here before we see that it is a pipe.
  how.flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_MAGICLINKS |
                (mountPoint == "/" ? RESOLVE_IN_ROOT : RESOLVE_BENEATH);
  const long fd = syscall(SYS_openat2, folder.Get(), relative.c_str(), &how, sizeof(how));
  if (fd < 0) return StatusOfErrno(errno);
  Descriptor opened(static_cast<int>(fd));
  struct stat info {};
  if (fstat(opened.Get(), &info) != 0) return StatusOfErrno(errno);
  if (!S_ISREG(info.st_mode)) return ZNE_INVALID_ARGUMENTS;
  *file = std::move(opened);
  return 0;
}

u32 ComputeChecksum(const Descriptor& file, const Progress& progress, Checksum* result) {
  const std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
  struct stat info {};
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1 ||
      fstat(file.Get(), &info) != 0) {
    return ZNE_OPERATION_FAILED;
  }
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (!progress(0)) return ZNE_TASK_STOPPED;
  std::vector<unsigned char> block(kBlockSize);
  std::uint64_t bytes = 0;
  while (true) {
    const ssize_t got = read(file.Get(), block.data(), block.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return ZNE_OPERATION_FAILED;
    if (got == 0) break;
    EVP_DigestUpdate(context.get(), block.data(), static_cast<std::size_t>(got));
    bytes += static_cast<std::uint64_t>(got);
    if (!progress(PercentOf(bytes, size))) return ZNE_TASK_STOPPED;
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  if (EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1) return ZNE_OPERATION_FAILED;
  result->digest = Hex(digest, length);
  result->bytes = bytes;
  return 0;
}

}  // namespace hostinv
