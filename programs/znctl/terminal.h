// What the streams are attached to, and what may therefore be written to them: colour, drawing
// characters and bars only where a person looks. Also the one place that writes to the standard
// output. Main thread only.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace zn::ctl {

struct Terminal {
  bool colour = false;   // standard output takes colour
  bool bars = false;     // standard error takes progress bars
  bool unicode = false;  // the locale's charset is UTF-8: lines and arrows may be drawn
  size_t width = 0;      // columns of the standard output; 0 where nothing need be cut
  size_t barWidth = 80;  // columns of the standard error

  const char* Arrow() const { return unicode ? "→" : "->"; }
};

Terminal DetectTerminal();

enum class Style { kPlain, kBold, kDim, kName, kType, kGood, kBad };

// `text` in the style's colour, or as it is where there is none.
std::string Styled(const Terminal& terminal, Style style, std::string_view text);

// Writes all of `text` to the standard output at once. A reader that has gone away (a closed pipe)
// is no error: false then, so that followers can stop.
bool WriteOut(std::string_view text);
void WriteError(std::string_view text);

// A one-line bar on the standard error, drawn in place. Nothing is written where bars are off.
class ProgressBar {
 public:
  ProgressBar(const Terminal& terminal, std::string label);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void SetLabel(std::string label) { label_ = std::move(label); }
  void Update(unsigned percent);
  void Clear();

 private:
  const Terminal& terminal_;
  std::string label_;
  bool drawn_ = false;
};

// The bar's line without the terminal around it.
std::string BarLine(std::string_view label, unsigned percent, size_t width, bool unicode);

}  // namespace zn::ctl
