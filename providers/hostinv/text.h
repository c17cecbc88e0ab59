// Text helpers of the machine readers: whole files, lines, fields, numbers, and the escapes and
// encodings in which the kernel and udev write names. Nothing here keeps state.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hostinv {

// The whole file, or nothing where it cannot be read. A short read of a vanishing /sys attribute
// (ENODEV, EINVAL) counts as unreadable.
std::optional<std::string> ReadFile(const std::string& path);

// The file without surrounding white space, empty where it cannot be read: the form in which /sys
// gives one value.
std::string ReadValue(const std::string& path);

// ReadValue as a number, 0 where it is none.
std::uint64_t ReadNumber(const std::string& path);

// Empty for none.
inline std::string Text(const char* text) {
  return text != nullptr ? text : "";
}

std::string_view Trim(std::string_view text);
std::vector<std::string_view> SplitLines(std::string_view text);
// Fields between runs of blanks and tabs.
std::vector<std::string_view> SplitFields(std::string_view text);
// Cuts "key: value" or "key=value" at the first separator and trims both halves; false without one.
bool SplitPair(std::string_view line, char separator, std::string_view* key,
               std::string_view* value);
// A leading decimal number; 0 where there is none.
std::uint64_t ParseNumber(std::string_view text);

// "\x20" as udev and findmnt write it in encoded names. A broken escape stays as it is.
std::string DecodeHexEscapes(std::string_view text);

// Names come from file systems and devices as bytes. What is not UTF-8 becomes U+FFFD, so that
// every text handed to the bus is valid and the same in its narrow and its wide form.
std::u16string ToUtf16(std::string_view bytes);
std::string CleanUtf8(std::string_view bytes);
// The UTF-8 form of wide text; a lone surrogate becomes U+FFFD.
std::string FromUtf16(std::u16string_view wide);

}  // namespace hostinv
