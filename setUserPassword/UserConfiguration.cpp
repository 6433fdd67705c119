#include "setUserPassword/UserConfiguration.h"

#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "setUserPassword/ConfigurationSearch.h"
#include "utils/core/Format.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/SystemError.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/decoder/WrappedException.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword {

namespace {

namespace decoder = utils::json::decoder;

// One user object.
void readUser(decoder::Value& user, UserTally& tally) {
  int namesSeen = 0;
  int uuidsSeen = 0;
  bool matches = false;
  utils::core::Uuid uuid;
  for (decoder::Member& member : user.asObject()) {
    if (member.name() == "UUID") {
      uuid = member.value().toUuid();
      ++uuidsSeen;
      tally.countUuid(uuid);
    } else if (member.name() == "userName") {
      ++namesSeen;
      const bool equal = member.value().stringEquals(tally.soughtName());
      matches = matches || equal;
    } else {
      member.value().skip();
    }
  }
  if (!matches) return;
  // `message` has one placeholder, for the name sought, shown escaped.
  const auto fail = [&](utils::core::FormatString<const std::string&> message) {
    const std::string soughtName = utils::string::toPrintableText(tally.soughtName());
    decoder::throwAtLocation(user.location(), utils::core::format(message, soughtName));
  };
  if (namesSeen > 1) fail("multiple user names specified for user \"{}\"");
  if (uuidsSeen == 0) fail("missing user UUID in the configuration of user \"{}\"");
  if (uuidsSeen > 1) fail("multiple UUIDs specified for user \"{}\"");
  tally.recordMatch(uuid);
}

}  // namespace

UserTally readUsers(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                    std::string_view userName) {
  UserTally tally(userName);
  decoder::Document document(stream, path);
  for (decoder::Member& member : document.readAsObject()) {
    if (!(member.name() == "users")) {
      member.value().skip();
      continue;
    }
    for (decoder::Value& user : member.value().asArray()) readUser(user, tally);
  }
  document.finish();
  return tally;
}

utils::core::Uuid findUser(const std::filesystem::path& path, std::string_view userName) {
  std::optional<utils::io::File> file =
      resolveConfigurationPath(path, userConfigurationFileName).openRegularFile();
  if (!file) {
    utils::io::throwFileError("open", path,
                              std::make_error_code(std::errc::no_such_file_or_directory), true);
  }
  utils::io::FileInputStream<char> stream(std::move(*file));
  return readUsers(stream, path, userName).result(path);
}

}  // namespace korvane::setUserPassword
