// toPrintable: the one conversion of a path to the narrow text that messages
// show. On POSIX the path's bytes; on Windows the path in UTF-8, whatever the
// process's code pages, with every "/" shown as "\". Another account may
// have chosen the names in a path, so the text then goes through
// string::toPrintableText: control characters and bytes that are not UTF-8
// show as "\xNN" ("pw-\xff.json"), and no name can move the cursor, set a
// window title or hide a line of the message.
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string>

namespace korvane::utils::filesystem {

// Throws std::invalid_argument for a path of 2^31 characters or more and
// std::system_error for a path that holds an unpaired surrogate (Windows).
std::string toPrintable(const std::filesystem::path& path);

}  // namespace korvane::utils::filesystem
