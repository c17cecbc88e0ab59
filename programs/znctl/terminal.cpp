// What the streams are attached to, colour and bars.
#include "terminal.h"

#include <fmt/format.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <clocale>
#include <cstdlib>

#include "text.h"

namespace zn::ctl {
namespace {

bool IsSet(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

bool IsPerson(int descriptor) {
  const char* term = std::getenv("TERM");
  const bool dumb = term != nullptr && std::string_view(term) == "dumb";
  return isatty(descriptor) == 1 && !dumb;
}

size_t ColumnsOf(int descriptor) {
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

// Where the output is no terminal nothing is cut, unless COLUMNS asks for it.
size_t ColumnsWanted() {
  const char* text = std::getenv("COLUMNS");
  if (text == nullptr) return 0;
  size_t columns = 0;
  const std::string_view view(text);
  const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), columns);
  const bool whole = error == std::errc() && end == view.data() + view.size();
  return whole && columns >= 20 ? columns : 0;
}

bool CharsetIsUtf8() {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (locale == nullptr) return false;
  const bool utf8 = std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
  freelocale(locale);
  return utf8;
}

const char* CodeOf(Style style) {
  switch (style) {
    case Style::kBold:
      return "1";
    case Style::kDim:
      return "2";
    case Style::kName:
      return "1;36";
    case Style::kType:
      return "33";
    case Style::kGood:
      return "32";
    case Style::kBad:
      return "31";
    case Style::kPlain:
      break;
  }
  return nullptr;
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace

Terminal DetectTerminal() {
  Terminal terminal;
  const bool outIsPerson = IsPerson(STDOUT_FILENO);
  terminal.colour = outIsPerson && !IsSet("NO_COLOR");
  terminal.bars = IsPerson(STDERR_FILENO);
  terminal.unicode = CharsetIsUtf8();
  terminal.width = isatty(STDOUT_FILENO) == 1 ? ColumnsOf(STDOUT_FILENO) : ColumnsWanted();
  terminal.barWidth = ColumnsOf(STDERR_FILENO);
  return terminal;
}

std::string Styled(const Terminal& terminal, Style style, std::string_view text) {
  const char* code = CodeOf(style);
  if (!terminal.colour || code == nullptr || text.empty()) return std::string(text);
  return fmt::format("\033[{}m{}\033[0m", code, text);
}

bool WriteOut(std::string_view text) {
  return WriteAll(STDOUT_FILENO, text);
}

void WriteError(std::string_view text) {
  WriteAll(STDERR_FILENO, text);
}

std::string BarLine(std::string_view label, unsigned percent, size_t width, bool unicode) {
  percent = std::min(percent, 100u);
  constexpr size_t kFrame = 8;  // " [" "] " and "100%"
  const size_t labelWidth = std::min(DisplayWidth(label), width / 2);
  if (width < labelWidth + kFrame + 4) return fmt::format("{}%", percent);
  const size_t cells = std::min<size_t>(width - labelWidth - kFrame - 1, 50);
  const size_t full = cells * percent / 100;
  std::string bar;
  for (size_t i = 0; i < cells; ++i) {
    bar += i < full ? (unicode ? "█" : "#") : (unicode ? "░" : ".");
  }
  return fmt::format("{} [{}] {:3}%", CutToWidth(label, labelWidth), bar, percent);
}

ProgressBar::ProgressBar(const Terminal& terminal, std::string label)
    : terminal_(terminal), label_(std::move(label)) {}

ProgressBar::~ProgressBar() {
  Clear();
}

void ProgressBar::Update(unsigned percent) {
  if (!terminal_.bars) return;
  WriteError("\r" + BarLine(label_, percent, terminal_.barWidth, terminal_.unicode) + "\033[K");
  drawn_ = true;
}

void ProgressBar::Clear() {
  if (drawn_) WriteError("\r\033[K");
  drawn_ = false;
}

}  // namespace zn::ctl
