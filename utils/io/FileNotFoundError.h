// FileNotFoundError: a file that was to be read does not exist. Callers that
// treat a missing file as empty (the password file) catch exactly this type.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace korvane::utils::io {

class FileNotFoundError : public std::system_error {
 public:
  FileNotFoundError(std::error_code code, const std::string& what, std::filesystem::path path)
      : std::system_error(code, what), path_(std::move(path)) {}

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace korvane::utils::io
