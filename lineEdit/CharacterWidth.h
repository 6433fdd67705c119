// Column widths and character steps over the UTF-8 text of the line editor.
//
// A code point in the combining-marks table takes no column, one inside the
// East Asian wide ranges takes two, every other one takes one. Text is decoded
// leniently (utils::string::Utf8Malformed::decodeAnyway): any byte sequence
// has a defined decoding, so arbitrary (even invalid) UTF-8 can be measured
// and stepped through without ever reading outside the given text.
//
// Thread safety: all functions are pure and reentrant.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace korvane::lineEdit {

// Whether codePoint is a combining mark (takes no column of its own).
bool isCombiningMark(char32_t codePoint);

// Whether codePoint lies in one of the wide (two-column) ranges.
bool isWideCharacter(char32_t codePoint);

// Columns of one code point: 0, 1 or 2.
std::size_t codePointColumns(char32_t codePoint);

// Columns the text takes on the screen. Escape sequences that begin
// "\x1b[" (when more than two bytes remain) are skipped up to and including
// their final letter (one of A B C D E F G H J K S T f m).
std::size_t columnWidth(std::string_view text);

// Columns of the text on a screen of the given width where rows wrap: a
// two-column character that would start in the last column of a row goes to
// the next row, leaving that column empty, so it counts one more column.
// startColumn is the column at which the text begins (the prompt's width).
// REQUIRES: screenColumns > 0
std::size_t wrappedColumnWidth(std::string_view text, std::size_t startColumn,
                               std::size_t screenColumns);

// The offset just past the character that begins at offset and every
// combining mark that follows it.
// REQUIRES: offset < text.size()
std::size_t nextCharacterEnd(std::string_view text, std::size_t offset);

// The offset at which the character before offset begins, stepping back over
// trailing combining marks and then one more code point.
// REQUIRES: 0 < offset <= text.size()
std::size_t previousCharacterStart(std::string_view text, std::size_t offset);

// The combining-marks table (sorted ascending), for tests.
std::span<const char32_t> combiningMarks();

}  // namespace korvane::lineEdit
