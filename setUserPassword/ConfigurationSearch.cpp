#include "setUserPassword/ConfigurationSearch.h"

#include <stdexcept>
#include <string>
#include <system_error>

#include "setUserPassword/Messages.h"
#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/filesystem/StandardPathIterator.h"

namespace korvane::setUserPassword {

namespace {

using utils::filesystem::StandardPath;
using utils::filesystem::StandardPathIterator;

// The installation's folder below every standard configuration base.
const std::filesystem::path& configurationSubdirectory() {
  static const std::filesystem::path subdirectory = std::filesystem::path("Korvane") / "Config";
  return subdirectory;
}

// Whether the file `fileName` is at `candidate`, links resolved.
bool configurationFileExists(const std::filesystem::path& candidate, std::string_view fileName) {
  try {
    return resolveConfigurationPath(candidate, fileName).exists();
  } catch (const std::system_error& error) {
    // The printable path only: the raw one would put its bytes into what().
    throw std::filesystem::filesystem_error(
        "exists", std::filesystem::path(utils::filesystem::toPrintable(candidate)), error.code());
  }
}

std::filesystem::path standardCandidate(const std::filesystem::path& base,
                                        std::string_view fileName) {
  return base / configurationSubdirectory() / fileName;
}

}  // namespace

utils::io::ResolvedPath resolveConfigurationPath(const std::filesystem::path& path,
                                                 std::string_view fileName) {
  try {
    return utils::io::ResolvedPath(path);
  } catch (const utils::io::UntrustedLinkError& error) {
    const bool users = fileName == userConfigurationFileName;
    throw utils::io::UntrustedLinkError(utils::core::format(
        "{}; name the real {} with {}", error.what(),
        users ? "user configuration file" : "password file", users ? "-Users" : "-Passwords"));
  }
}

const std::optional<std::filesystem::path>& selectUsersPath(const CommandLine& commandLine) {
  return commandLine.usersPath;
}

const std::optional<std::filesystem::path>& selectPasswordsPath(const CommandLine& commandLine) {
  return commandLine.passwordsPath;
}

std::optional<std::filesystem::path> findConfigurationFile(const CommandLine& commandLine,
                                                           std::string_view fileName,
                                                           ExplicitPathSelector selectExplicit) {
  if (const auto& explicitPath = selectExplicit(commandLine)) return *explicitPath;
  for (const auto& directory : commandLine.configDirectories) {
    auto candidate = directory / fileName;
    if (configurationFileExists(candidate, fileName)) return candidate;
  }
  for (StandardPathIterator base(StandardPath::configuration); base != std::default_sentinel;
       ++base) {
    auto candidate = standardCandidate(*base, fileName);
    if (configurationFileExists(candidate, fileName)) return candidate;
  }
  return std::nullopt;
}

std::filesystem::path defaultLocationForNewFile(const CommandLine& commandLine,
                                                std::string_view fileName) {
  if (!commandLine.configDirectories.empty()) {
    return commandLine.configDirectories.front() / fileName;
  }
  // The standard locations are never empty.
  return standardCandidate(*StandardPathIterator(StandardPath::configuration), fileName);
}

void throwNotFound(const CommandLine& commandLine, std::string_view description,
                   std::string_view fileName) {
  std::string message = utils::core::format(
      "could not find {} \"{}\" in any of the following locations:", description, fileName);
  const auto appendCandidate = [&](const std::filesystem::path& candidate) {
    message += utils::core::format("\n- {}", utils::filesystem::toPrintable(candidate));
  };
  for (const auto& directory : commandLine.configDirectories) appendCandidate(directory / fileName);
  for (StandardPathIterator base(StandardPath::configuration); base != std::default_sentinel;
       ++base) {
    appendCandidate(standardCandidate(*base, fileName));
  }
  throw std::runtime_error(message);
}

std::filesystem::path resolveUserConfigurationFile(const CommandLine& commandLine) {
  auto found = findConfigurationFile(commandLine, userConfigurationFileName, selectUsersPath);
  if (!found) throwNotFound(commandLine, "user configuration file", userConfigurationFileName);
  printLine(utils::core::format("Using user configuration file \"{}\"",
                                utils::filesystem::toPrintable(*found)));
  return std::move(*found);
}

std::filesystem::path resolvePasswordFile(const CommandLine& commandLine) {
  if (auto found = findConfigurationFile(commandLine, passwordFileName, selectPasswordsPath)) {
    printLine(
        utils::core::format("Using password file \"{}\"", utils::filesystem::toPrintable(*found)));
    return std::move(*found);
  }
  auto path = defaultLocationForNewFile(commandLine, passwordFileName);
  printLine(utils::core::format("Will create new password file at \"{}\"",
                                utils::filesystem::toPrintable(path)));
  return path;
}

}  // namespace korvane::setUserPassword
