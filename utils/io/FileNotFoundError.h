// FileNotFoundError: a file that was to be read does not exist (see
// throwFileError in SystemError.h). It is a std::system_error with the code
// std::errc::no_such_file_or_directory and the usual message, reported like
// any other failure; the type and path() only let a caller tell a missing
// file from a file that could not be opened.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

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
