#include "setUserPassword/UserConfiguration.h"

#include <optional>
#include <system_error>
#include <utility>

#include "setUserPassword/ConfigurationSearch.h"
#include "setUserPassword/ExactReader.h"
#include "setUserPassword/TwoPassRead.h"
#include "setUserPassword/UserFileRules.h"
#include "setUserPassword/UserSkim.h"
#include "utils/io/File.h"
#include "utils/io/SystemError.h"

namespace korvane::setUserPassword {

UserTally readUsers(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                    std::string_view userName) {
  ExactReader reader(stream, path);
  UserTally tally(userName);
  readUserFile(reader, tally);
  return tally;
}

utils::core::Uuid findUser(const std::filesystem::path& path, std::string_view userName,
                           SearchPass* settledBy) {
  std::optional<utils::io::File> file =
      resolveConfigurationPath(path, userConfigurationFileName).openRegularFile();
  if (!file) {
    utils::io::throwFileError("open", path,
                              std::make_error_code(std::errc::no_such_file_or_directory), true);
  }
  std::optional<UserTally> tally;
  const SearchPass pass = readSkimmingFirst(
      std::move(*file),
      [&](const utils::json::decoder::Skimmer::Reader& reader) {
        tally = UserSkim::run(reader, userName);
        return tally.has_value();
      },
      [&](utils::io::InputStream<char>& stream) {
        tally.emplace(readUsers(stream, path, userName));
      });
  if (settledBy != nullptr) *settledBy = pass;
  return tally->result(path);
}

}  // namespace korvane::setUserPassword
