#include "setUserPassword/UserConfiguration.h"

#include <optional>

#include "setUserPassword/ExactReader.h"
#include "setUserPassword/TwoPassRead.h"
#include "setUserPassword/UserFileRules.h"
#include "setUserPassword/UserSkim.h"
#include "utils/io/File.h"

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
  std::optional<UserTally> tally;
  const SearchPass pass = readSkimmingFirst(
      utils::io::File(path, utils::io::File::Access::read),
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
