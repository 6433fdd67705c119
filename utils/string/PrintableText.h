// toPrintableText: the one form in which text that comes from outside the
// program (file names, paths, user and account names, attribute names,
// bytes read from a file) is put into a message. Another account may have
// chosen that text, so it must not be able to move the cursor, set a window
// title or hide a line of the message around it.
//
// Every byte of a control character (C0 U+0000-U+001F, DEL U+007F, and C1
// U+0080-U+009F whether a raw byte or UTF-8, so U+0085 is "\xc2\x85") and
// every byte that is not part of well-formed UTF-8 is written as "\xNN"
// with two lower-case hexadecimal digits. Every other character, the
// backslash included, stands as it is: "pw-\xff.json" names the file whose
// name holds the byte 0xFF.
//
// Thread safety: a pure function, safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace korvane::utils::string {

std::string toPrintableText(std::string_view text);

}  // namespace korvane::utils::string
