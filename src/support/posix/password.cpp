// The terminal is switched to single characters without echo and without signals, so that it is
// always switched back: Ctrl-C ends the reading, and is then raised as the signal it would have
// been.
#include "support/posix/password.h"

#include <fcntl.h>
#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "support/common/pointers.h"
#include "support/common/status.h"
#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr char kInterrupt = 0x03;
constexpr char kBackspace = 0x08;
constexpr char kDelete = 0x7F;

class QuietTerminal {
 public:
  explicit QuietTerminal(int fd) noexcept : fd_(fd), isTerminal_(tcgetattr(fd, &before_) == 0) {
    if (!isTerminal_) return;
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    quiet.c_cc[VMIN] = 1;
    quiet.c_cc[VTIME] = 0;
    tcsetattr(fd_, TCSAFLUSH, &quiet);
  }
  ~QuietTerminal() {
    if (isTerminal_) tcsetattr(fd_, TCSAFLUSH, &before_);
  }
  QuietTerminal(const QuietTerminal&) = delete;
  QuietTerminal& operator=(const QuietTerminal&) = delete;
  [[nodiscard]] bool IsTerminal() const noexcept { return isTerminal_; }

 private:
  int fd_;
  termios before_{};
  bool isTerminal_;
};

void Show(int out, const char* text) noexcept {
  [[maybe_unused]] const ssize_t shown = write(out, text, std::strlen(text));
}

bool IsContinuation(char c) noexcept {
  return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The length without the last character, which may be several bytes.
size_t WithoutLast(const char* text, size_t length) noexcept {
  if (length > 0) --length;
  while (length > 0 && IsContinuation(text[length])) --length;
  return length;
}

}  // namespace

PasswordEnd ReadPassword(int in, int out, char (&password)[kPasswordBytes]) noexcept {
  const QuietTerminal terminal(in);
  size_t length = 0;
  PasswordEnd end = PasswordEnd::kComplete;
  while (length + 1 < kPasswordBytes) {
    char c = '\0';
    const ssize_t got = read(in, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) end = PasswordEnd::kFailed;
    if (terminal.IsTerminal() && c == kInterrupt) end = PasswordEnd::kInterrupted;
    if (got <= 0 || end != PasswordEnd::kComplete || c == '\r' || c == '\n') break;
    if (c == kBackspace || c == kDelete) {
      if (length > 0) Show(out, "\b \b");
      const size_t shorter = WithoutLast(password, length);
      explicit_bzero(password + shorter, length - shorter);
      length = shorter;
      continue;
    }
    password[length++] = c;
    if (!IsContinuation(c)) Show(out, "*");
  }
  password[length] = '\0';
  Show(out, "\n");
  if (end != PasswordEnd::kComplete) explicit_bzero(password, sizeof(password));
  return end;
}

}  // namespace zn

u32 ZnGetPassword(char** out) {
  if (!zn::IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  auto* block = static_cast<char*>(ZnAlloc(zn::kPasswordBytes));
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  // The terminal itself, so that a redirected input is no password; without one, the input.
  const int terminal = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  char password[zn::kPasswordBytes] = "";
  const zn::PasswordEnd end = terminal >= 0
                                  ? zn::ReadPassword(terminal, terminal, password)
                                  : zn::ReadPassword(STDIN_FILENO, STDERR_FILENO, password);
  if (terminal >= 0) close(terminal);
  if (end != zn::PasswordEnd::kComplete) {
    ZnFree(block);
    if (end == zn::PasswordEnd::kInterrupted) raise(SIGINT);
    return ZNE_UNEXPECTED;
  }
  std::memcpy(block, password, sizeof(password));
  explicit_bzero(password, sizeof(password));
  *out = block;
  return ZN_OK;
}
