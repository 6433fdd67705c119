#include "setUserPassword/UserConfiguration.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "setUserPassword/ConfigurationSearch.h"
#include "setUserPassword/UserList.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/SystemError.h"
#include "utils/json/decoder/Document.h"

namespace korvane::setUserPassword {

UserTally readUsers(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                    std::string_view userName, SecondHalfSearch* secondHalf,
                    const std::function<void()>& readingOn) {
  UserTally tally(userName);
  utils::json::decoder::Document document(stream, path);
  // At the second half's boundary, its outcome completes the tally, when
  // it has one; otherwise this pass reads on.
  bool toldReadingOn = false;
  const auto tookSecondHalf = [&] {
    if (secondHalf == nullptr) return false;
    if (secondHalf->reachedBy(document.offset()) && secondHalf->addOutcomeTo(tally)) return true;
    if (secondHalf->dropped() && !toldReadingOn) {
      toldReadingOn = true;
      if (readingOn) readingOn();
    }
    return false;
  };
  utils::json::decoder::Object object = document.readAsObject();
  if (userList::readMembers(object, tally, tookSecondHalf)) return tally;
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
  // Declared after the stream: stopped before the file closes.
  const std::unique_ptr<SecondHalfSearch> secondHalf =
      SecondHalfSearch::startFor(stream.file(), userName, path);
  // The worker reads its half itself; the pass does the same with its own,
  // so that the halves take alike and neither waits long for the other. A
  // read-ahead thread would take turns with the two on a small machine,
  // and on any other only make the pass wait longer at the boundary. Once
  // the worker's outcome is dropped, the pass reads the rest alone, and a
  // read-ahead thread helps again.
  if (secondHalf != nullptr) stream.readAlone();
  return readUsers(stream, path, userName, secondHalf.get(), [&stream] { stream.allowReadAhead(); })
      .result(path);
}

}  // namespace korvane::setUserPassword
