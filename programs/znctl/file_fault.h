// What keeps a file from being read to its end, as text for people.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace zn::ctl {

// Empty when nothing does. A pipe or a device might never have an end. `subject` begins the
// sentence about a file that is there, `missing` is the whole one about a file that is not.
inline std::string FaultOfFile(const std::string& path, const std::string& subject,
                               const std::string& missing) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::none) {
    return subject + " cannot be read: " + error.message();
  }
  if (!std::filesystem::exists(status)) return missing;
  if (std::filesystem::is_directory(status)) return subject + " is a folder";
  return std::filesystem::is_regular_file(status) ? "" : subject + " is not a regular file";
}

}  // namespace zn::ctl
