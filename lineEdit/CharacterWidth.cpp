#include "lineEdit/CharacterWidth.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "utils/string/Utf8.h"

namespace korvane::lineEdit {

namespace {

constexpr char32_t combiningMarkTable[] = {
#include "lineEdit/CombiningMarks.inc"
};

struct CodePointRange {
  char32_t first;
  char32_t last;
};

// East Asian wide and full-width ranges, inclusive, ascending.
constexpr std::array<CodePointRange, 32> wideRanges{{
    {0x1100, 0x115F},   {0x2329, 0x232A},   {0x2E80, 0x2E99},   {0x2E9B, 0x2EF3},
    {0x2F00, 0x2FD5},   {0x2FF0, 0x2FFB},   {0x3000, 0x303E},   {0x3041, 0x3096},
    {0x3099, 0x30FF},   {0x3105, 0x312D},   {0x3131, 0x318E},   {0x3190, 0x31BA},
    {0x31C0, 0x31E3},   {0x31F0, 0x321E},   {0x3220, 0x3247},   {0x3250, 0x4DBF},
    {0x4E00, 0xA48C},   {0xA490, 0xA4C6},   {0xA960, 0xA97C},   {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},   {0xFE10, 0xFE19},   {0xFE30, 0xFE52},   {0xFE54, 0xFE66},
    {0xFE68, 0xFE6B},   {0xFF01, 0xFFE6},   {0x1B000, 0x1B001}, {0x1F200, 0x1F202},
    {0x1F210, 0x1F23A}, {0x1F240, 0x1F248}, {0x1F250, 0x1F251}, {0x20000, 0x3FFFD},
}};

unsigned char byteAt(std::string_view text, std::size_t offset) {
  return static_cast<unsigned char>(text[offset]);
}

// Decodes the code point that begins at text[offset]. Any bytes decode (the
// text may hold broken UTF-8): see utils::string::Utf8Malformed.
utils::string::Utf8Sequence decodeAt(std::string_view text, std::size_t offset) {
  return utils::string::decodeUtf8(text.substr(offset), utils::string::Utf8Malformed::decodeAnyway);
}

// Length of the escape sequence "\x1b[...<final letter>" at text[offset], or
// 0 when none begins there.
std::size_t escapeSequenceLength(std::string_view text, std::size_t offset) {
  if (text.size() - offset <= 2 || text[offset] != '\x1b' || text[offset + 1] != '[') {
    return 0;
  }
  constexpr std::string_view finalLetters = "ABCDEFGHJKSTfm";
  for (std::size_t i = offset + 2; i < text.size(); ++i) {
    if (finalLetters.find(text[i]) != std::string_view::npos) {
      return i + 1 - offset;
    }
  }
  return 0;
}

}  // namespace

// Both tables are sorted, so a binary search gives the same answer as a scan
// at a fraction of the cost; refreshes measure the whole line on every key.
bool isCombiningMark(char32_t codePoint) {
  return codePoint >= combiningMarkTable[0] &&
         std::binary_search(std::begin(combiningMarkTable), std::end(combiningMarkTable),
                            codePoint);
}

bool isWideCharacter(char32_t codePoint) {
  if (codePoint < wideRanges.front().first) return false;
  const auto range =
      std::lower_bound(wideRanges.begin(), wideRanges.end(), codePoint,
                       [](const CodePointRange& r, char32_t value) { return r.last < value; });
  return range != wideRanges.end() && range->first <= codePoint;
}

std::size_t codePointColumns(char32_t codePoint) {
  if (isCombiningMark(codePoint)) return 0;
  return isWideCharacter(codePoint) ? 2 : 1;
}

namespace {

// Calls `visit` with the column width of every character of `text`,
// passing over escape sequences, which take no room on the screen.
template <typename Visit>
void forEachCharacterWidth(std::string_view text, Visit visit) {
  std::size_t offset = 0;
  while (offset < text.size()) {
    const unsigned char byte = byteAt(text, offset);
    if (byte < 0x80 && byte != 0x1b) {  // plain ASCII: one column
      visit(std::size_t{1});
      ++offset;
      continue;
    }
    const std::size_t escape = escapeSequenceLength(text, offset);
    if (escape != 0) {
      offset += escape;
      continue;
    }
    const utils::string::Utf8Sequence decoded = decodeAt(text, offset);
    visit(codePointColumns(decoded.codePoint));
    offset += decoded.length;
  }
}

}  // namespace

std::size_t columnWidth(std::string_view text) {
  std::size_t columns = 0;
  forEachCharacterWidth(text, [&](std::size_t width) { columns += width; });
  return columns;
}

std::size_t wrappedColumnWidth(std::string_view text, std::size_t startColumn,
                               std::size_t screenColumns) {
  std::size_t column = startColumn;
  forEachCharacterWidth(text, [&](std::size_t width) {
    if (width == 2 && screenColumns >= 2 && column % screenColumns == screenColumns - 1) {
      ++column;  // the terminal leaves the last column empty and wraps
    }
    column += width;
  });
  return column - startColumn;
}

std::size_t nextCharacterEnd(std::string_view text, std::size_t offset) {
  offset += decodeAt(text, offset).length;
  while (offset < text.size()) {
    const utils::string::Utf8Sequence decoded = decodeAt(text, offset);
    if (!isCombiningMark(decoded.codePoint)) break;
    offset += decoded.length;
  }
  return offset;
}

std::size_t previousCharacterStart(std::string_view text, std::size_t offset) {
  while (offset > 0) {
    // Back over continuation bytes to the lead byte, at most four bytes.
    std::size_t start = offset - 1;
    while (start > 0 && offset - start < 4 &&
           utils::string::isUtf8Continuation(byteAt(text, start))) {
      --start;
    }
    const char32_t codePoint = decodeAt(text.substr(0, offset), start).codePoint;
    offset = start;
    if (!isCombiningMark(codePoint)) break;
  }
  return offset;
}

std::span<const char32_t> combiningMarks() { return combiningMarkTable; }

}  // namespace korvane::lineEdit
