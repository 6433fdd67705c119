// The boundary where operating-system error codes become exceptions.
//
// Texts read "could not <operation> "<file>": <system's reason>", with the
// path printed as every message of the tool prints paths.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace korvane::utils::io {

std::string describeFileOperation(std::string_view operation, const std::filesystem::path& path);

// Throws FileNotFoundError when `code` says the file does not exist and
// `notFoundMeansMissing` is set, std::system_error otherwise.
[[noreturn]] void throwFileError(std::string_view operation, const std::filesystem::path& path,
                                 std::error_code code, bool notFoundMeansMissing = false);

// The calling thread's last system error (errno, GetLastError()).
std::error_code lastSystemError() noexcept;

}  // namespace korvane::utils::io
