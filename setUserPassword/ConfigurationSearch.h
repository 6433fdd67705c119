// Where the two configuration files are: the user configuration file
// (users.json, read only) and the password file (passwords.json, created
// when missing).
//
// A file is searched for in an explicit path (-Users, -Passwords), then in
// every -ConfigDir directory in command-line order, then in every standard
// configuration base with "Korvane/Config" appended (Korvane\Config on
// Windows). The first candidate that exists wins; an explicit path is taken
// as it stands.
//
// Thread safety: reads the environment; call from the main thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "setUserPassword/CommandLine.h"
#include "utils/io/ResolvedPath.h"

namespace korvane::setUserPassword {

inline constexpr std::string_view userConfigurationFileName = "users.json";
inline constexpr std::string_view passwordFileName = "passwords.json";

using ExplicitPathSelector = const std::optional<std::filesystem::path>& (*)(const CommandLine&);

const std::optional<std::filesystem::path>& selectUsersPath(const CommandLine& commandLine);
const std::optional<std::filesystem::path>& selectPasswordsPath(const CommandLine& commandLine);

// Resolves `path`, the configuration file `fileName`, as every file the
// program opens is resolved (utils/io/ResolvedPath.h). A link that is not
// followed says to name the real file with the option for it.
utils::io::ResolvedPath resolveConfigurationPath(const std::filesystem::path& path,
                                                 std::string_view fileName);

// The explicit path when given, else the first existing candidate, else
// nothing. A failing existence test other than "not found" throws
// std::filesystem::filesystem_error for "exists"; a link that is not
// followed, what resolveConfigurationPath throws.
std::optional<std::filesystem::path> findConfigurationFile(const CommandLine& commandLine,
                                                           std::string_view fileName,
                                                           ExplicitPathSelector selectExplicit);

// Where a new file goes: the first -ConfigDir directory, else the first
// standard location.
std::filesystem::path defaultLocationForNewFile(const CommandLine& commandLine,
                                                std::string_view fileName);

// Throws std::runtime_error listing every candidate searched, in order.
[[noreturn]] void throwNotFound(const CommandLine& commandLine, std::string_view description,
                                std::string_view fileName);

// Prints "Using user configuration file "<path>"" on standard output, or
// throws the not-found error.
std::filesystem::path resolveUserConfigurationFile(const CommandLine& commandLine);

// Prints "Using password file "<path>"" or "Will create new password file at
// "<path>"" on standard output.
std::filesystem::path resolvePasswordFile(const CommandLine& commandLine);

}  // namespace korvane::setUserPassword
